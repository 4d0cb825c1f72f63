#pragma once
// The concrete classes of the type table. Each has its type name, so that cloning and
// files can build it, and the property defaults its class overrides; the behaviour of
// each widget builds on these.
#include "zemgui/obj/BaseObj.h"

namespace ZemGui
{
    class LabelObj : public BaseObj
    {
    public:
        LabelObj(const char* name, BaseObj* parent, const char* look, const char* proto);
        const char* GetTypeName() const override { return "LabelObj"; }
        const PropertyTable& GetPropertyTable() const override;
        static const PropertyTable& GetLabelObjTable();
    };

    class ImageObj : public BaseObj
    {
    public:
        using BaseObj::BaseObj;
        const char* GetTypeName() const override { return "ImageObj"; }
    };

    class ClockObj : public ImageObj
    {
    public:
        using ImageObj::ImageObj;
        const char* GetTypeName() const override { return "ClockObj"; }
    };

    class ComboboxObj : public BaseObj
    {
    public:
        using BaseObj::BaseObj;
        const char* GetTypeName() const override { return "ComboboxObj"; }
    };

    class DatagridObj : public BaseObj
    {
    public:
        DatagridObj(const char* name, BaseObj* parent, const char* look, const char* proto);
        const char* GetTypeName() const override { return "DatagridObj"; }
        const PropertyTable& GetPropertyTable() const override;
        static const PropertyTable& GetDatagridObjTable();
    };

    class EditboxObj : public LabelObj
    {
    public:
        using LabelObj::LabelObj;
        const char* GetTypeName() const override { return "EditboxObj"; }
    };

    class ItemListboxObj : public BaseObj
    {
    public:
        using BaseObj::BaseObj;
        const char* GetTypeName() const override { return "ItemListboxObj"; }
    };

    class ListboxObj : public BaseObj
    {
    public:
        using BaseObj::BaseObj;
        const char* GetTypeName() const override { return "ListboxObj"; }
    };

    class ScrollbarObj : public BaseObj
    {
    public:
        ScrollbarObj(const char* name, BaseObj* parent, const char* look, const char* proto);
        const char* GetTypeName() const override { return "ScrollbarObj"; }
        const PropertyTable& GetPropertyTable() const override;
        static const PropertyTable& GetScrollbarObjTable();
    };

    class SliderObj : public BaseObj
    {
    public:
        using BaseObj::BaseObj;
        const char* GetTypeName() const override { return "SliderObj"; }
    };

    class TooltipObj : public LabelObj
    {
    public:
        TooltipObj(const char* name, BaseObj* parent, const char* look, const char* proto);
        const char* GetTypeName() const override { return "TooltipObj"; }
        const PropertyTable& GetPropertyTable() const override;
        static const PropertyTable& GetTooltipObjTable();
    };
}
