#include "zemgui/obj/ButtonObj.h"

namespace ZemGui
{
    namespace
    {
        const char* const kSelectedStates[] = {"SelectedEnabledState", "SelectedDisabledState", "SelectedPointedState",
                                               "SelectedFocusedState", "SelectedPushedState"};
    }

    ButtonObj::ButtonObj(const char* name, BaseObj* parent, const char* look, const char* proto)
        : LabelObj(name, parent, look, proto)
    {
        DeclareName(eStateName, kPushedState);
        ResetProperties();
    }

    const PropertyTable& ButtonObj::GetPropertyTable() const { return GetButtonObjTable(); }

    const PropertyTable& ButtonObj::GetButtonObjTable()
    {
        static const PropertyTable kTable = [] {
            PropertyTable t(LabelObj::GetLabelObjTable());
            t.SetDefault("InteractEnabled", PropertyValue::Bool(true));
            t.SetDefault("InteractTransparent", PropertyValue::Bool(false));
            t.SetDefault("Focusable", PropertyValue::Bool(true));
            return t;
        }();
        return kTable;
    }

    const char* ButtonObj::ComputeButtonState()
    {
        if (!IsEnabledFinal()) return kDisabledState;
        if (!IsPointed()) return IsFocusedFinal() ? kFocusedState : kEnabledState;
        return m_bPushed ? kPushedState : kPointedState;
    }

    const char* ButtonObj::ComputeState()
    {
        if (GetDelegateState()) return BaseObj::ComputeState();
        return ComputeButtonState();
    }

    bool ButtonObj::OnButtonPressed(PointerEventArgs& args)
    {
        BaseObj::OnButtonPressed(args);
        m_bPushed = true;
        RefreshState();
        // A button takes the press whatever its handlers say.
        return true;
    }

    bool ButtonObj::OnButtonReleased(PointerEventArgs& args)
    {
        const bool taken = BaseObj::OnButtonReleased(args);
        m_bPushed = false;
        RefreshState();
        return taken;
    }

    CheckboxObj::CheckboxObj(const char* name, BaseObj* parent, const char* look, const char* proto)
        : ButtonObj(name, parent, look, proto)
    {
        for (const char* s : kSelectedStates) DeclareName(eStateName, s);
    }

    const char* CheckboxObj::ComputeState()
    {
        if (GetDelegateState()) return BaseObj::ComputeState();
        const char* s = ComputeButtonState();
        if (!m_bSelected) return s;
        if (s == kDisabledState) return kSelectedStates[1];
        if (s == kPointedState) return kSelectedStates[2];
        if (s == kFocusedState) return kSelectedStates[3];
        if (s == kPushedState) return kSelectedStates[4];
        return kSelectedStates[0];
    }

    void CheckboxObj::SetSelected(bool selected)
    {
        if (selected == m_bSelected) return;
        m_bSelected = selected;
        RefreshState();
    }
}
