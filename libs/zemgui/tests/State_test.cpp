// State computation and the three interaction modes.
#include <string>

#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    using StateTest = GuiTest;

    namespace
    {
        void Point(BaseObj* o, bool on)
        {
            PointerEventArgs args(o, nullptr);
            if (on)
                o->OnPointerEntered(args);
            else
                o->OnPointerLeft(args);
        }
        void Push(BaseObj* o, bool on)
        {
            PointerEventArgs args(o, nullptr);
            if (on)
                o->OnButtonPressed(args);
            else
                o->OnButtonReleased(args);
        }
    }

    TEST_F(StateTest, BaseStateByEnabledPointedFocused)
    {
        const struct
        {
            bool enabled, pointed, focused;
            const char* state;
        } rows[] = {
            {true, false, false, "EnabledState"},  {true, true, false, "PointedState"},
            {true, false, true, "FocusedState"},   {true, true, true, "PointedState"},
            {false, false, false, "DisabledState"}, {false, true, true, "DisabledState"},
        };
        for (const auto& r : rows)
        {
            BaseObj* o = Make("Obj");
            o->SetEnabled(r.enabled);
            Point(o, r.pointed);
            if (r.focused)
            {
                PointerEventArgs a(o, nullptr);
                o->OnFocusGot(a);
            }
            EXPECT_STREQ(o->GetCurrentState(), r.state) << r.enabled << r.pointed << r.focused;
            Objects().DeleteObj(o);
        }
    }

    TEST_F(StateTest, ButtonAndCheckboxStatesForEveryCombination)
    {
        for (int bits = 0; bits < 16; ++bits)
        {
            const bool enabled = bits & 1, hovered = bits & 2, pushed = bits & 4, selected = bits & 8;
            std::string expected;
            if (!enabled)
                expected = "DisabledState";
            else if (!hovered)
                expected = "EnabledState";
            else
                expected = pushed ? "PushedState" : "PointedState";
            const std::string expectedBox = selected ? "Selected" + expected : expected;

            ButtonObj* b = Make<ButtonObj>("Button");
            CheckboxObj* c = Make<CheckboxObj>("Box");
            for (ButtonObj* o : {b, static_cast<ButtonObj*>(c)})
            {
                Point(o, hovered);
                Push(o, pushed);
                o->SetEnabled(enabled);
            }
            c->SetSelected(selected);
            EXPECT_EQ(b->GetCurrentState(), expected) << "enabled " << enabled << " hovered " << hovered << " pushed " << pushed;
            EXPECT_EQ(c->GetCurrentState(), expectedBox) << "selected " << selected;
            EXPECT_TRUE(c->HasDeclaredName(eStateName, expectedBox.c_str()));
            Objects().DeleteObj(b);
            Objects().DeleteObj(c);
        }
    }

    TEST_F(StateTest, StatesPassDownAndReachSubObjects)
    {
        BaseObj* p = Make("P");
        BaseObj* follower = Make("Follower", p);
        BaseObj* own = Make("Own", p);
        follower->SetInheritState(true);
        RecordingSubObj* sub = MEM_NEW(RecordingSubObj, follower, "Img");
        ASSERT_TRUE(follower->AddSubObj(sub));
        Frame();
        EXPECT_EQ(sub->sLastState, "EnabledState");
        const unsigned int applied = sub->uStates;

        p->SetState("Custom");
        EXPECT_STREQ(follower->GetCurrentState(), "Custom");
        EXPECT_STREQ(follower->GetPreviousState(), "EnabledState");
        EXPECT_STREQ(own->GetCurrentState(), "EnabledState");
        Frame();
        EXPECT_EQ(sub->sLastState, "Custom");
        p->SetState("Custom");
        Frame();
        EXPECT_EQ(sub->uStates, applied + 1) << "the same state again does not reach the sub-objects";

        // A disabled parent disables its children's state.
        p->SetEnabled(false);
        EXPECT_STREQ(own->GetCurrentState(), "DisabledState");
        EXPECT_FALSE(own->IsEnabledFinal());
        p->SetEnabled(true);
        EXPECT_STREQ(own->GetCurrentState(), "EnabledState");

        // A delegating child takes its state from the parent's choice.
        own->SetDelegateState(true);
        own->RefreshState();
        EXPECT_STREQ(own->GetCurrentState(), p->ComputeState());
    }

    TEST_F(StateTest, ThreeInteractionModes)
    {
        BaseObj* o = Make("Obj");
        // Transparent (the default): no pointer test at all.
        EXPECT_TRUE(o->IsInteractTransparent());
        EXPECT_FALSE(o->HasSecondUpdater(o->GetUpdater(ePointerUpdater)));
        // Opaque: tested, catches the pointer, takes no events.
        o->SetInteractTransparent(false);
        EXPECT_FALSE(o->IsInteractEnabled());
        EXPECT_TRUE(o->HasSecondUpdater(o->GetUpdater(ePointerUpdater)));
        // Taking events.
        o->SetInteractEnabled(true);
        EXPECT_FALSE(o->IsInteractTransparent());
        o->SetFocusable(true);
        // Back to transparent: not focusable, out of the tests.
        o->SetInteractTransparent(true);
        EXPECT_FALSE(o->IsInteractEnabled());
        EXPECT_FALSE(o->IsFocusable());
        EXPECT_FALSE(o->HasSecondUpdater(o->GetUpdater(ePointerUpdater)));
    }

    TEST_F(StateTest, FlagsComputedFromTheParent)
    {
        BaseObj* p = Make("P");
        BaseObj* c = Make("C", p);
        BaseObj* g = Make("G", c);
        p->SetAlpha(0.5f);
        c->SetAlpha(0.5f);
        EXPECT_FLOAT_EQ(g->GetFinalAlpha(), 0.25f);
        c->SetInheritAlpha(false);
        EXPECT_FLOAT_EQ(g->GetFinalAlpha(), 0.5f);

        EXPECT_EQ(g->GetFocusableObj(), nullptr);
        p->SetFocusable(true);
        EXPECT_EQ(g->GetFocusableObj(), p);
        c->SetFocusable(true);
        EXPECT_EQ(g->GetFocusableObj(), c);

        g->SetInheritFocus(true);
        c->SetInheritFocus(true);
        PointerEventArgs a(p, nullptr);
        p->OnFocusGot(a);
        EXPECT_TRUE(g->IsFocusedFinal());
        EXPECT_STREQ(g->GetCurrentState(), "FocusedState");
        p->OnFocusLost(a);
        EXPECT_FALSE(g->IsFocusedFinal());
        EXPECT_STREQ(g->GetCurrentState(), "EnabledState");
    }
}
