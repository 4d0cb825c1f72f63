// Named events: connection rules and changes made while an event fires.
#include <string>

#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    using EventsTest = GuiTest;

    namespace
    {
        struct Listener
        {
            int calls = 0;
            bool answer = false;
            bool OnEvent(EventArgs&)
            {
                ++calls;
                return answer;
            }
        };
    }

    TEST_F(EventsTest, ConnectionRules)
    {
        BaseObj* o = Make("Obj");
        ObjEventArgs args(o);
        EXPECT_FALSE(o->FireEvent("NoSuchEvent", args));

        Listener l[6];
        for (int i = 0; i < 5; ++i)
            EXPECT_TRUE(o->ConnectEventCallback("Ping", EventCallbackFunctorMember<Listener>(&l[i], &Listener::OnEvent)));
        // The same target twice is connected once.
        EXPECT_TRUE(o->ConnectEventCallback("Ping", EventCallbackFunctorMember<Listener>(&l[0], &Listener::OnEvent)));
        EXPECT_EQ(o->GetCallbackCount("Ping"), 5u);

        ScopedLogCapture log;
        EXPECT_FALSE(o->ConnectEventCallback("Ping", EventCallbackFunctorMember<Listener>(&l[5], &Listener::OnEvent)));
        EXPECT_TRUE(log.Contains("Assertion \"false\" failed. Too much call back for this event"));
        EXPECT_FALSE(o->ConnectEventCallback(std::string(64, 'e').c_str(), EventCallbackFunctorMember<Listener>(&l[5], &Listener::OnEvent)));
        EXPECT_TRUE(log.Contains("Invalid parameter."));

        // The result is the OR of the callbacks.
        EXPECT_FALSE(o->FireEvent("Ping", args));
        l[3].answer = true;
        EXPECT_TRUE(o->FireEvent("Ping", args));
        for (int i = 0; i < 5; ++i) EXPECT_EQ(l[i].calls, 2);

        // A freed slot takes the next callback.
        EXPECT_TRUE(o->DisconnectEventCallback("Ping", EventCallbackFunctorMember<Listener>(&l[1], &Listener::OnEvent)));
        EXPECT_TRUE(o->ConnectEventCallback("Ping", EventCallbackFunctorMember<Listener>(&l[5], &Listener::OnEvent)));
        o->FireEvent("Ping", args);
        EXPECT_EQ(l[1].calls, 2);
        EXPECT_EQ(l[5].calls, 1);
        EXPECT_FALSE(o->DisconnectEventCallback("Ping", EventCallbackFunctorMember<Listener>(&l[1], &Listener::OnEvent)));
    }

    TEST_F(EventsTest, CallbacksMayChangeTheListWhileItFires)
    {
        BaseObj* o = Make("Obj");
        std::string trace;
        LambdaCallback* self = nullptr;
        LambdaCallback later([&](EventArgs&) {
            trace += "L";
            return false;
        });
        LambdaCallback added([&](EventArgs&) {
            trace += "N";
            return false;
        });
        LambdaCallback quitter([&](EventArgs&) {
            trace += "Q";
            o->DisconnectEventCallback("Ping", self->Functor());
            return false;
        });
        self = &quitter;
        LambdaCallback first([&](EventArgs&) {
            trace += "F";
            return false;
        });
        LambdaCallback remover([&](EventArgs&) {
            trace += "R";
            o->DisconnectEventCallback("Ping", first.Functor());
            o->ConnectEventCallback("Ping", added.Functor());
            return false;
        });
        o->ConnectEventCallback("Ping", first.Functor());
        o->ConnectEventCallback("Ping", quitter.Functor());
        o->ConnectEventCallback("Ping", remover.Functor());
        o->ConnectEventCallback("Ping", later.Functor());
        ObjEventArgs args(o);
        o->FireEvent("Ping", args);
        EXPECT_EQ(trace, "FQRLN") << "later callbacks run once each; one added at the end runs too";
        trace.clear();
        o->FireEvent("Ping", args);
        EXPECT_EQ(trace, "RLN");
        EXPECT_EQ(o->GetCallbackCount("Ping"), 3u);
    }

    TEST_F(EventsTest, TheObjectMayBeDeletedByItsOwnEvent)
    {
        BaseObj* o = Make("Obj");
        Make("Kid", o);
        int after = 0;
        LambdaCallback killer([&](EventArgs& a) {
            Objects().DeleteObj(static_cast<ObjEventArgs&>(a).m_pObj);
            return true;
        });
        LambdaCallback next([&](EventArgs&) {
            ++after;
            return false;
        });
        o->ConnectEventCallback("Ping", killer.Functor());
        o->ConnectEventCallback("Ping", next.Functor());
        ObjEventArgs args(o);
        EXPECT_TRUE(o->FireEvent("Ping", args));
        EXPECT_EQ(after, 1) << "the object lives until the firing is over";
        EXPECT_EQ(Objects().GetPendingDeleteCount(), 2u);
        EXPECT_EQ(Root()->GetChild("Obj"), nullptr);
        Frame();
        EXPECT_EQ(Objects().GetPendingDeleteCount(), 0u);
    }

    TEST_F(EventsTest, TreeEventsFireInTheirPlaces)
    {
        BaseObj* p = Make("P");
        std::string trace;
        LambdaCallback attached([&](EventArgs& a) {
            trace += std::string("+") + static_cast<ObjEventArgs&>(a).m_pObj->GetName();
            return false;
        });
        LambdaCallback detached([&](EventArgs& a) {
            BaseObj* c = static_cast<ObjEventArgs&>(a).m_pObj;
            trace += std::string("-") + c->GetName() + (p->GetChildIndex(c) >= 0 ? "(in)" : "(out)");
            return false;
        });
        LambdaCallback subAdded([&](EventArgs& a) {
            trace += std::string("s+") + static_cast<SubObjEventArgs&>(a).m_pSubObj->GetName();
            return false;
        });
        p->ConnectEventCallback("ChildAttachedEvent", attached.Functor());
        p->ConnectEventCallback("ChildDetachedEvent", detached.Functor());
        p->ConnectEventCallback("SubObjAddedEvent", subAdded.Functor());
        BaseObj* c = Make("C", p);
        p->AddSubObj(MEM_NEW(RecordingSubObj, p, "Img"));
        Objects().DeleteObj(c);
        EXPECT_EQ(trace, "+Cs+Img-C(in)");

        ScopedLogCapture log;
        BaseObj* other = Make("Other");
        RecordingSubObj* foreign = MEM_NEW(RecordingSubObj, other, "X");
        EXPECT_FALSE(p->AddSubObj(foreign));
        EXPECT_TRUE(log.Contains("Cannot add a SubObj of another object"));
        RecordingSubObj* twin = MEM_NEW(RecordingSubObj, p, "Img");
        EXPECT_FALSE(p->AddSubObj(twin));
        EXPECT_TRUE(log.Contains("Sub object with same name already composes this object"));
        MEM_DELETE(twin);
        EXPECT_EQ(p->GetSubObjCount(), 1u);
        MEM_DELETE(foreign);
    }
}
