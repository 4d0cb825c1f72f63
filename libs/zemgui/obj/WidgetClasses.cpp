#include "zemgui/obj/WidgetClasses.h"

namespace ZemGui
{
    // Each class with a table of its own resets again once its table is the one in use:
    // the base constructor could only see the base's rows.

    LabelObj::LabelObj(const char* name, BaseObj* parent, const char* look, const char* proto)
        : BaseObj(name, parent, look, proto)
    {
        ResetProperties();
    }

    const PropertyTable& LabelObj::GetPropertyTable() const { return GetLabelObjTable(); }

    const PropertyTable& LabelObj::GetLabelObjTable()
    {
        static const PropertyTable kTable(BaseObj::GetBaseObjTable());
        return kTable;
    }

    DatagridObj::DatagridObj(const char* name, BaseObj* parent, const char* look, const char* proto)
        : BaseObj(name, parent, look, proto)
    {
        ResetProperties();
    }

    const PropertyTable& DatagridObj::GetPropertyTable() const { return GetDatagridObjTable(); }

    const PropertyTable& DatagridObj::GetDatagridObjTable()
    {
        static const PropertyTable kTable = [] {
            PropertyTable t(BaseObj::GetBaseObjTable());
            t.SetDefault("InteractEnabled", PropertyValue::Bool(true));
            t.SetDefault("InteractTransparent", PropertyValue::Bool(false));
            t.SetDefault("FocusKept", PropertyValue::Bool(true));
            t.SetDefault("Focusable", PropertyValue::Bool(true));
            return t;
        }();
        return kTable;
    }

    ScrollbarObj::ScrollbarObj(const char* name, BaseObj* parent, const char* look, const char* proto)
        : BaseObj(name, parent, look, proto)
    {
        ResetProperties();
    }

    const PropertyTable& ScrollbarObj::GetPropertyTable() const { return GetScrollbarObjTable(); }

    const PropertyTable& ScrollbarObj::GetScrollbarObjTable()
    {
        static const PropertyTable kTable = [] {
            PropertyTable t(BaseObj::GetBaseObjTable());
            t.SetDefault("InteractEnabled", PropertyValue::Bool(true));
            t.SetDefault("InteractTransparent", PropertyValue::Bool(false));
            t.SetDefault("FocusKept", PropertyValue::Bool(true));
            t.SetDefault("Focusable", PropertyValue::Bool(true));
            t.SetDefault("AutoRepeatPressEnabled", PropertyValue::Bool(true));
            return t;
        }();
        return kTable;
    }

    TooltipObj::TooltipObj(const char* name, BaseObj* parent, const char* look, const char* proto)
        : LabelObj(name, parent, look, proto)
    {
        ResetProperties();
    }

    const PropertyTable& TooltipObj::GetPropertyTable() const { return GetTooltipObjTable(); }

    const PropertyTable& TooltipObj::GetTooltipObjTable()
    {
        static const PropertyTable kTable = [] {
            PropertyTable t(LabelObj::GetLabelObjTable());
            t.SetDefault("Visible", PropertyValue::Bool(false));
            t.SetDefault("ClippedByParent", PropertyValue::Bool(false));
            return t;
        }();
        return kTable;
    }
}
