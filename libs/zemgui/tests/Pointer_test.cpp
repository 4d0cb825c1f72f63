// Pointers: what they point at, in which order events arrive, and objects that vanish
// while events are delivered.
#include <string>

#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    class PointerTest : public GuiTest
    {
    protected:
        void SetUp() override
        {
            GuiTest::SetUp();
            m_pMouse = Pointers().CreatePointer("Mouse");
            ASSERT_NE(m_pMouse, nullptr);
        }

        // Logs "Name:Event" for the pointer events of an object.
        void Watch(BaseObj* o)
        {
            for (const char* e : {"PointerEnteredEvent", "PointerLeftEvent", "ButtonPressedEvent", "ButtonReleasedEvent",
                                  "PointerScrolledEvent", "FocusGotEvent", "FocusLostEvent"})
            {
                m_aWatchers.push_back(std::make_unique<LambdaCallback>([this, o, e](EventArgs&) {
                    m_sTrace += std::string(o->GetName()) + ":" + std::string(e).substr(0, std::string(e).size() - 5) + " ";
                    return false;
                }));
                o->ConnectEventCallback(e, m_aWatchers.back()->Functor());
            }
        }

        void MoveTo(unsigned int x, unsigned int y)
        {
            m_pMouse->OnMoved(x, y);
            Frame();
        }

        Pointer* m_pMouse = nullptr;
        std::string m_sTrace;
        std::vector<std::unique_ptr<LambdaCallback>> m_aWatchers;
    };

    TEST_F(PointerTest, FrontMostObjectWinsInDeliveryOrder)
    {
        const struct
        {
            const char* name;
            bool transparentLater, earlierOnTop, opaqueLater;
            const char* pointed;
            const char* trace;
        } cases[] = {
            {"later sibling is in front", false, false, false, "Later", "Later:PointerEntered "},
            {"transparent later sibling", true, false, false, "Earlier", "Earlier:PointerEntered "},
            {"always on top goes in front", false, true, false, "Earlier", "Earlier:PointerEntered "},
            {"opaque catches and drops", false, false, true, "Later", ""},
        };
        for (const auto& c : cases)
        {
            SCOPED_TRACE(c.name);
            BaseObj* earlier = MakeRect("Earlier", 100, 100, 200, 200);
            BaseObj* later = MakeRect("Later", 150, 150, 200, 200);
            earlier->SetInteractEnabled(true);
            later->SetInteractEnabled(true);
            if (c.transparentLater) later->SetInteractTransparent(true);
            if (c.opaqueLater)
            {
                later->SetInteractEnabled(false);
                later->SetInteractTransparent(false);
            }
            if (c.earlierOnTop) earlier->SetAlwaysOnTop(true);
            Watch(earlier);
            Watch(later);
            m_sTrace.clear();
            MoveTo(200, 200);
            ASSERT_NE(m_pMouse->GetPointed(), nullptr);
            EXPECT_STREQ(m_pMouse->GetPointed()->GetName(), c.pointed);
            EXPECT_EQ(m_sTrace, c.trace);
            // Out of both: the root stands for nothing.
            m_sTrace.clear();
            MoveTo(1000, 1000);
            EXPECT_EQ(m_pMouse->GetPointed(), nullptr);
            Objects().DeleteObj(earlier);
            Objects().DeleteObj(later);
            m_aWatchers.clear();
        }
    }

    TEST_F(PointerTest, MovingAcrossObjectsLeavesBeforeEntering)
    {
        BaseObj* a = MakeRect("A", 0, 0, 100, 100);
        BaseObj* b = MakeRect("B", 100, 0, 100, 100);
        BaseObj* inner = MakeRect("Inner", 10, 10, 20, 20, b);
        for (BaseObj* o : {a, b, inner})
        {
            o->SetInteractEnabled(true);
            Watch(o);
        }
        MoveTo(50, 50);
        MoveTo(150, 50);
        MoveTo(115, 15);
        MoveTo(115, 15);  // no motion, no test
        MoveTo(1500, 15);
        EXPECT_EQ(m_sTrace,
                  "A:PointerEntered A:PointerLeft B:PointerEntered B:PointerLeft Inner:PointerEntered "
                  "Inner:PointerLeft ");
        EXPECT_STREQ(a->GetCurrentState(), "EnabledState");
    }

    TEST_F(PointerTest, PressFocusAndRelease)
    {
        ButtonObj* ok = MakeRect<ButtonObj>("Ok", 0, 0, 100, 40);
        Watch(ok);
        EXPECT_FALSE(m_pMouse->OnButtonDown(1, 0, false)) << "nothing pointed and nothing focused";
        EXPECT_EQ(m_pMouse->GetPressed(), nullptr);

        MoveTo(10, 10);
        m_sTrace.clear();
        EXPECT_TRUE(m_pMouse->OnButtonDown(1, 7, false));
        EXPECT_EQ(m_pMouse->GetFocused(), ok);
        EXPECT_EQ(m_pMouse->GetPressed(), ok);
        EXPECT_EQ(m_pMouse->GetHeldButton(), 1u);
        EXPECT_STREQ(ok->GetCurrentState(), "PushedState");
        EXPECT_TRUE(m_pMouse->OnButtonDown(1, 7, false)) << "a held button repeats";
        EXPECT_EQ(m_pMouse->GetPressCount(), 1u);
        m_pMouse->OnButtonUp(1, 7, false);
        EXPECT_EQ(m_pMouse->GetPressed(), nullptr);
        EXPECT_EQ(m_pMouse->GetFocused(), nullptr) << "focus is not kept";
        EXPECT_EQ(m_sTrace, "Ok:FocusGot Ok:ButtonPressed Ok:FocusLost Ok:ButtonReleased ");
        EXPECT_STREQ(ok->GetCurrentState(), "PointedState");

        // The focus mask decides which buttons focus.
        ok->SetFocusMask(2);
        m_pMouse->OnButtonDown(1, 0, false);
        EXPECT_EQ(m_pMouse->GetFocused(), nullptr);
        m_pMouse->OnButtonUp(1, 0, false);
    }

    TEST_F(PointerTest, EventsRiseToTheFocusableAncestor)
    {
        ButtonObj* panel = MakeRect<ButtonObj>("Panel", 0, 0, 300, 300);
        BaseObj* icon = MakeRect("Icon", 10, 10, 50, 50, panel);
        icon->SetInteractEnabled(true);
        Watch(panel);
        Watch(icon);
        MoveTo(20, 20);
        EXPECT_EQ(m_pMouse->GetPointed(), icon);
        m_sTrace.clear();
        EXPECT_TRUE(m_pMouse->OnButtonDown(1, 0, false));
        EXPECT_EQ(m_pMouse->GetFocused(), panel);
        EXPECT_EQ(m_pMouse->GetPressed(), icon) << "the pointed object belongs to the focused one";
        EXPECT_EQ(m_sTrace, "Panel:FocusGot Icon:ButtonPressed Panel:ButtonPressed ");
        m_pMouse->OnButtonUp(1, 0, false);

        // Scrolling climbs from the first object until one takes it.
        LambdaCallback taker([](EventArgs&) { return true; });
        panel->ConnectEventCallback("PointerScrolledEvent", taker.Functor());
        m_sTrace.clear();
        m_pMouse->OnScrolled(0.0f);
        m_pMouse->OnScrolled(-1.0f);
        EXPECT_EQ(m_sTrace, "Icon:PointerScrolled Panel:PointerScrolled ");
    }

    TEST_F(PointerTest, AHandlerDeletesItsOwnObjectDuringThePress)
    {
        ButtonObj* doomed = MakeRect<ButtonObj>("Doomed", 0, 0, 100, 100);
        MakeRect("Child", 0, 0, 10, 10, doomed);
        bool aliveAtEnd = false;
        LambdaCallback killer([&](EventArgs& a) {
            BaseObj* self = static_cast<ObjEventArgs&>(a).m_pObj;
            Objects().DeleteObj(Root()->GetChild("Doomed"));
            // Still whole: destruction waits for the lock.
            aliveAtEnd = self->IsPendingDelete() && std::string(self->GetName()) == "Doomed";
            return true;
        });
        int deletes = 0;
        LambdaCallback onDelete([&](EventArgs&) {
            ++deletes;
            return false;
        });
        doomed->ConnectEventCallback("ButtonPressedEvent", killer.Functor());
        doomed->ConnectEventCallback("DeleteEvent", onDelete.Functor());
        MoveTo(5, 5);
        EXPECT_TRUE(m_pMouse->OnButtonDown(1, 0, false));
        EXPECT_TRUE(aliveAtEnd);
        EXPECT_EQ(deletes, 1);
        EXPECT_EQ(m_pMouse->GetPressed(), nullptr);
        EXPECT_EQ(m_pMouse->GetPointed(), nullptr);
        EXPECT_EQ(m_pMouse->GetFocused(), nullptr);
        EXPECT_EQ(Objects().GetPendingDeleteCount(), 0u);
        EXPECT_FALSE(m_pMouse->OnButtonUp(1, 0, false));
        Frame();
    }

    TEST_F(PointerTest, DeletionDuringThePassWalk)
    {
        // An ease that ends deletes its own parent, a sibling and itself.
        BaseObj* parent = Make("Parent");
        BaseObj* first = Make("First", parent);
        BaseObj* second = Make("Second", parent);
        Make("Third", parent);
        LambdaCallback onEnd([&](EventArgs&) {
            Objects().DeleteObj(second);
            Objects().DeleteObj(first);
            Objects().DeleteObj(parent);
            Objects().DeleteObj(parent);  // twice: reported, no harm
            return false;
        });
        first->ConnectEventCallback("EndEase", onEnd.Functor());
        first->EaseAlpha(0.0f, 0.01f, &LinearEase::kInstance, eEaseIn);
        ScopedLogCapture log;
        Frame(100);
        EXPECT_EQ(Root()->GetChild("Parent"), nullptr);
        EXPECT_EQ(Objects().GetPendingDeleteCount(), 0u);
        EXPECT_TRUE(log.Contains("Anormal behavior"));
        Frame();
    }

    TEST_F(PointerTest, PointerObjectsAreLinkedOnlyFromTheirRoot)
    {
        ScopedLogCapture log;
        PointerObj* stray = Make<PointerObj>("Stray");
        EXPECT_FALSE(m_pMouse->SetPointerObj(stray));
        EXPECT_TRUE(log.Contains("This pointer object cannot be used like that"));

        PointerObj* arrow = Objects().CreateObj<PointerObj>("Arrow", Objects().GetRootAt(ePointerObjRoot));
        arrow->SetDefaultPointerState("Arrow");
        arrow->SetSize(UDim2(0, 16, 0, 16));
        EXPECT_TRUE(m_pMouse->SetPointerObj(arrow));
        EXPECT_STREQ(arrow->GetCurrentState(), "Arrow");
        Pointer* pen = Pointers().CreatePointer("Pen");
        EXPECT_FALSE(pen->SetPointerObj(arrow));
        EXPECT_TRUE(log.Contains("This pointer object is already linked to another pointer"));
        EXPECT_EQ(Pointers().CreatePointer("Pen"), nullptr);
        EXPECT_TRUE(log.Contains("Pointer with same name already exists"));

        // It follows the pointer and is updated after the drawn tree, even hidden.
        m_pMouse->OnMoved(300, 200);
        arrow->SetVisible(false);
        Frame();
        EXPECT_EQ(arrow->GetAbsPosition(), Vec2(300, 200));
        EXPECT_EQ(arrow->GetDirtyUpdaterCount(), 0u);

        // A hand state while over an object that asks for it.
        BaseObj* link = MakeRect("Link", 250, 150, 100, 100);
        link->SetInteractEnabled(true);
        link->SetChangePointerEnabled(true);
        link->SetChangePointerState("Hand");
        MoveTo(260, 160);
        EXPECT_STREQ(arrow->GetCurrentState(), "Hand");
        MoveTo(10, 10);
        EXPECT_STREQ(arrow->GetCurrentState(), "Arrow");

        Objects().DeleteObj(arrow);
        EXPECT_EQ(m_pMouse->GetPointerObj(), nullptr);
        Pointers().DeletePointer(pen);
        EXPECT_EQ(Pointers().GetPointer("Pen"), nullptr);
    }

    TEST_F(PointerTest, InteractionRootAndTestingOnlyMovedPointers)
    {
        BaseObj* a = MakeRect("A", 0, 0, 100, 100);
        a->SetInteractEnabled(true);
        MoveTo(10, 10);
        EXPECT_EQ(m_pMouse->GetPointed(), a);
        // The object moves away under a still pointer: nothing is retested.
        a->SetPosition(UDim2(0, 500, 0, 0));
        Frame();
        EXPECT_EQ(m_pMouse->GetPointed(), a);
        Pointers().SetTestOnlyWhenMoved(false);
        Frame();
        EXPECT_EQ(m_pMouse->GetPointed(), nullptr);

        // A modal panel as the interaction root: it stands for nothing, and what lies
        // behind it is out of reach, inside its area or not.
        a->SetPosition(UDim2(0, 800, 0, 0));
        BaseObj* modal = MakeRect("Modal", 400, 0, 300, 300);
        BaseObj* inside = MakeRect("Inside", 10, 10, 100, 100, modal);
        inside->SetInteractEnabled(true);
        Pointers().SetInteractRoot(modal);
        MoveTo(420, 20);
        EXPECT_EQ(m_pMouse->GetPointed(), inside);
        MoveTo(650, 250);
        EXPECT_EQ(m_pMouse->GetPointed(), nullptr);
        MoveTo(850, 50);
        EXPECT_EQ(m_pMouse->GetPointed(), nullptr);
        Objects().DeleteObj(modal);
        EXPECT_EQ(Pointers().GetInteractRoot(), Root());
        MoveTo(850, 50);
        EXPECT_EQ(m_pMouse->GetPointed(), a);
        unsigned int x = 0, y = 0;
        m_pMouse->GetPosition(x, y);
        EXPECT_EQ(x, 850u);
        EXPECT_EQ(y, 50u);
    }

    TEST_F(PointerTest, RotatedObjectsAreHitInTheirOwnFrame)
    {
        BaseObj* bar = MakeRect("Bar", 500, 500, 200, 20);
        bar->SetAnchor(UDim2(0.5f, 0, 0.5f, 0));
        bar->SetInteractEnabled(true);
        bar->SetRotation(90);
        MoveTo(500, 580);  // along the turned bar
        EXPECT_EQ(m_pMouse->GetPointed(), bar);
        MoveTo(580, 500);  // where it stood unturned
        EXPECT_EQ(m_pMouse->GetPointed(), nullptr);
        bar->SetRotation(45);
        MoveTo(560, 440);  // up and to the right: a counter-clockwise turn on screen
        EXPECT_EQ(m_pMouse->GetPointed(), bar);
        MoveTo(560, 560);
        EXPECT_EQ(m_pMouse->GetPointed(), nullptr);
    }

    TEST_F(PointerTest, APointerDeletedByAHandlerOutlivesItsOperation)
    {
        ButtonObj* b = MakeRect<ButtonObj>("B", 0, 0, 100, 100);
        LambdaCallback dropPointer([&](EventArgs& a) {
            Pointers().DeletePointer(static_cast<PointerEventArgs&>(a).m_pPointer);
            return true;
        });
        b->ConnectEventCallback("ButtonPressedEvent", dropPointer.Functor());
        MoveTo(10, 10);
        EXPECT_TRUE(m_pMouse->OnButtonDown(1, 0, false));
        EXPECT_EQ(Pointers().GetPointer("Mouse"), nullptr);
        EXPECT_EQ(Pointers().GetPointerCount(), 0u);
        Frame();
        EXPECT_TRUE(b->IsPushed()) << "the release never comes";
        EXPECT_STREQ(b->GetCurrentState(), "EnabledState") << "the pointer left as it went";
    }
}
