#pragma once
// Buttons add a pushed state to the base states, and checkboxes a selected pair of each.
#include "zemgui/obj/WidgetClasses.h"

namespace ZemGui
{
    inline constexpr const char* kPushedState = "PushedState";

    class ButtonObj : public LabelObj
    {
    public:
        ButtonObj(const char* name, BaseObj* parent, const char* look, const char* proto);
        const char* GetTypeName() const override { return "ButtonObj"; }
        const PropertyTable& GetPropertyTable() const override;
        static const PropertyTable& GetButtonObjTable();

        const char* ComputeState() override;
        bool OnButtonPressed(PointerEventArgs& args) override;
        bool OnButtonReleased(PointerEventArgs& args) override;
        bool IsPushed() const { return m_bPushed; }

    protected:
        // The state by enabled, pointed, pushed and focused, before any selection.
        const char* ComputeButtonState();

    private:
        bool m_bPushed = false;
    };

    class CheckboxObj : public ButtonObj
    {
    public:
        CheckboxObj(const char* name, BaseObj* parent, const char* look, const char* proto);
        const char* GetTypeName() const override { return "CheckboxObj"; }

        const char* ComputeState() override;
        void SetSelected(bool selected);
        bool IsSelected() const { return m_bSelected; }

    private:
        bool m_bSelected = false;
    };
}
