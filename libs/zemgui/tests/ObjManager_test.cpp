// The registry: roots, paths and ids, refusals, cloning, looks, deletion and its lock.
#include <string>

#include "common/utils/Hash.h"
#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    using ObjManagerTest = GuiTest;

    TEST_F(ObjManagerTest, RootsPathsAndIds)
    {
        const char* names[] = {"DrawnObjRoot", "PointerObjRoot", "LookRoot"};
        for (unsigned int i = 0; i < eRootCount; ++i)
        {
            BaseObj* r = Objects().GetRootAt(i);
            ASSERT_NE(r, nullptr);
            EXPECT_STREQ(r->GetName(), names[i]);
            EXPECT_STREQ(r->GetPath(), names[i]);
            EXPECT_EQ(r->GetRootIndex(), i);
            EXPECT_EQ(r->GetParent(), nullptr);
        }
        EXPECT_EQ(Objects().GetObjByPath("DrawnObjRoot"), Root());

        BaseObj* a = Make("A");
        BaseObj* b = Make<ButtonObj>("B", a);
        EXPECT_STREQ(b->GetPath(), "DrawnObjRoot/A/B");
        EXPECT_EQ(b->GetId(), GenerateUIntIdFromString("DrawnObjRoot/A/B"));
        EXPECT_EQ(Objects().GetObjByPath("DrawnObjRoot/A/B"), b);
        EXPECT_EQ(a->GetByRelativePath("B"), b);
        EXPECT_EQ(Root()->GetByRelativePath("/A"), a);
        EXPECT_STREQ(b->GetTypeName(), "ButtonObj");

        // A rename moves the object and what is under it in the map.
        Make("C", b);
        ASSERT_TRUE(a->SetName("Renamed"));
        EXPECT_EQ(Objects().GetObjByPath("DrawnObjRoot/A/B"), nullptr);
        EXPECT_EQ(Objects().GetObjByPath("DrawnObjRoot/Renamed/B/C"), b->GetChild("C"));
    }

    TEST_F(ObjManagerTest, RefusalsReportAndLeaveTheTreeAlone)
    {
        ScopedLogCapture log;
        BaseObj* a = Make("A");
        const unsigned int count = Objects().GetObjectCount();

        EXPECT_EQ(Objects().CreateObj<Node>(nullptr, Root()), nullptr);
        EXPECT_EQ(Objects().CreateObj<Node>("X", nullptr), nullptr);
        EXPECT_EQ(Objects().CreateObjFromObj("X", Root(), nullptr, true), nullptr);
        EXPECT_TRUE(log.Contains("Assertion \"false\" failed. Invalid parameters"));
        EXPECT_EQ(Make("A"), nullptr);
        EXPECT_TRUE(log.Contains("An object with the same name already exists"));
        Make("B");
        EXPECT_FALSE(Root()->GetChild("B")->SetName("A"));

        Objects().DeleteObj(Root());
        EXPECT_TRUE(log.Contains("Cannot delete root"));
        Objects().ClearRoot(eLookRoot);
        EXPECT_TRUE(log.Contains("you cannot directly manipulate a private tree"));
        Look* look = Objects().CreateLook("Skin");
        ASSERT_NE(look, nullptr);
        log.Clear();
        EXPECT_EQ(Objects().GetObj(look->GetRoot()->GetId()), nullptr);
        EXPECT_TRUE(log.Contains("you cannot directly manipulate a private tree"));
        EXPECT_EQ(Objects().CreateLook("Skin"), nullptr);
        EXPECT_TRUE(log.Contains("Look with same name already exists"));

        // A path of 512 characters or more is refused before the object exists.
        std::string longName(600, 'n');
        EXPECT_EQ(Make(longName.c_str(), a), nullptr);
        EXPECT_TRUE(log.Contains("Path is too long, resize the string or rename GUI objects."));

        // An object made its own ancestor.
        BaseObj* child = Make("Child", a);
        a->GetParent()->RemoveChild(a);  // a detached holder of its own
        child->AddChild(a);
        EXPECT_EQ(a->GetParent(), nullptr);
        EXPECT_EQ(child->GetChildCount(), 0u);
        Root()->AddChild(a);
        EXPECT_EQ(a->GetParent(), Root());
        EXPECT_EQ(Objects().GetObjectCount(), count + 2 + 1);  // B, Child, the look's root
    }

    TEST_F(ObjManagerTest, EveryTypeNameBuildsItsClass)
    {
        EXPECT_EQ(ObjManager::GetTypeCount(), 16u);
        EXPECT_STREQ(ObjManager::GetTypeNameAt(0), "BaseObj");
        for (unsigned int i = 1; i < ObjManager::GetTypeCount(); ++i)
        {
            const char* type = ObjManager::GetTypeNameAt(i);
            BaseObj* o = Objects().CreateObjByType(type, type, Root());
            ASSERT_NE(o, nullptr) << type;
            EXPECT_STREQ(o->GetTypeName(), type);
            BaseObj* clone = Objects().CreateObjFromObj((std::string(type) + "Copy").c_str(), Root(), o, true);
            ASSERT_NE(clone, nullptr) << type;
            EXPECT_STREQ(clone->GetTypeName(), type);
        }
        ScopedLogCapture log;
        EXPECT_EQ(Objects().CreateObjByType("Widget", "W", Root()), nullptr);
        EXPECT_EQ(Objects().CreateObjByType("BaseObj", "W", Root()), nullptr);
    }

    namespace
    {
        void ExpectSameProperties(BaseObj* a, BaseObj* b)
        {
            SCOPED_TRACE(a->GetPath());
            EXPECT_STREQ(a->GetTypeName(), b->GetTypeName());
            EXPECT_STREQ(a->GetName(), b->GetName());
            EXPECT_NE(a->GetId(), b->GetId());
            const PropertyTable& t = a->GetPropertyTable();
            for (unsigned int i = 0; i < t.GetSize(); ++i)
            {
                PropertyValue va, vb;
                t[i].pfnGet(a, va);
                t[i].pfnGet(b, vb);
                EXPECT_TRUE(va == vb) << t[i].szName;
            }
            ASSERT_EQ(a->GetChildCount(), b->GetChildCount());
            ASSERT_EQ(a->GetSubObjCount(), b->GetSubObjCount());
            for (unsigned int i = 0; i < a->GetSubObjCount(); ++i)
                EXPECT_STREQ(a->GetSubObjAt(i)->GetName(), b->GetSubObjAt(i)->GetName());
            for (unsigned int i = 0; i < a->GetChildCount(); ++i) ExpectSameProperties(a->GetChildAt(i), b->GetChildAt(i));
        }
    }

    TEST_F(ObjManagerTest, CloningASubtreeCopiesPropertiesUnderNewIds)
    {
        BaseObj* src = Make("Panel");
        src->SetPosition(UDim2(0.1f, 3, 0.2f, 4));
        src->SetAlpha(0.5f);
        src->SetTooltipText("tip");
        src->SetStack(true);
        src->AddSubObj(MEM_NEW(RecordingSubObj, src, "Background"));
        ButtonObj* ok = Make<ButtonObj>("Ok", src);
        ok->SetRotation(90);
        ok->SetFocusMask(3);
        BaseObj* label = Make<LabelObj>("Label", src);
        label->SetAlwaysOnTop(true);
        Make("Deep", label)->SetEnabled(false);
        CheckboxObj* box = Make<CheckboxObj>("Box", src);
        box->SetAspectRatioPreserved(true);

        BaseObj* copy = Objects().CreateObjFromObj("PanelCopy", Root(), src, true);
        ASSERT_NE(copy, nullptr);
        EXPECT_STREQ(copy->GetName(), "PanelCopy");
        EXPECT_STREQ(copy->GetProtoName(), "Panel");
        EXPECT_EQ(copy->GetChildAt(copy->GetChildCount() - 1)->GetName(), std::string("Label")) << "on top stays on top";
        // Names of the root differ; compare below it.
        for (unsigned int i = 0; i < src->GetChildCount(); ++i) ExpectSameProperties(src->GetChildAt(i), copy->GetChildAt(i));
        EXPECT_STREQ(copy->GetTooltipText(), "tip");
        EXPECT_EQ(copy->GetAlpha(), 0.5f);
        EXPECT_EQ(Objects().GetObjByPath("DrawnObjRoot/PanelCopy/Label/Deep"), copy->GetChild("Label")->GetChild("Deep"));
        EXPECT_STREQ(copy->GetChild("Label")->GetChild("Deep")->GetCurrentState(), "DisabledState");

        // Cloned under its own child: the new branch does not hold itself.
        BaseObj* inner = Objects().CreateObjFromObj("Inner", ok, src, false);
        ASSERT_NE(inner, nullptr);
        EXPECT_STREQ(inner->GetProtoName(), "");
        EXPECT_EQ(inner->GetChild("Ok")->GetChild("Inner"), nullptr);
    }

    TEST_F(ObjManagerTest, LooksHoldPrototypes)
    {
        Look* look = Objects().CreateLook("Skin");
        ASSERT_NE(look, nullptr);
        EXPECT_EQ(look->GetRoot()->GetParent(), Objects().GetRootAt(eLookRoot));
        ButtonObj* proto = Objects().CreateObj<ButtonObj>("BigButton", look->GetRoot());
        proto->SetSize(UDim2(0, 200, 0, 60));
        EXPECT_EQ(proto->GetRootIndex(), unsigned(eLookRoot));

        BaseObj* b = Objects().CreateObjFromLook("Play", Root(), "Skin", "BigButton");
        ASSERT_NE(b, nullptr);
        EXPECT_STREQ(b->GetTypeName(), "ButtonObj");
        EXPECT_STREQ(b->GetLookName(), "Skin");
        EXPECT_STREQ(b->GetProtoName(), "BigButton");
        EXPECT_EQ(b->GetSize(), UDim2(0, 200, 0, 60));
        EXPECT_EQ(b->GetRootIndex(), unsigned(eDrawnObjRoot));
        EXPECT_EQ(Objects().CreateObjFromLook("X", Root(), "Skin", "Missing"), nullptr);
        EXPECT_EQ(Objects().CreateObjFromLook("X", Root(), "None", "BigButton"), nullptr);

        ScopedLogCapture log;
        EXPECT_EQ(look->AddProto("BigButton", b), nullptr);
        EXPECT_TRUE(log.Contains("A propotype already exists with this name."));
        Objects().DeleteObjFromLook(look, "BigButton");
        EXPECT_EQ(look->GetProto("BigButton"), nullptr);
        EXPECT_NE(Objects().GetObjByPath("DrawnObjRoot/Play"), nullptr) << "clones outlive their prototype";
        Objects().DeleteLook("Skin");
        EXPECT_EQ(Objects().GetLook("Skin"), nullptr);
        EXPECT_EQ(Objects().GetRootAt(eLookRoot)->GetChildCount(), 0u);
    }

    TEST_F(ObjManagerTest, DeletionWaitsForTheLock)
    {
        BaseObj* a = Make("A");
        BaseObj* child = Make("Child", a);
        int deletes = 0;
        LambdaCallback onDelete([&](EventArgs&) {
            ++deletes;
            return false;
        });
        a->ConnectEventCallback("DeleteEvent", onDelete.Functor());
        child->ConnectEventCallback("DeleteEvent", onDelete.Functor());

        Objects().LockDeletion(true);
        Objects().DeleteObj(a);
        EXPECT_EQ(deletes, 2) << "children go first, each with its event";
        EXPECT_EQ(Objects().GetPendingDeleteCount(), 2u);
        EXPECT_EQ(Objects().GetObjByPath("DrawnObjRoot/A"), nullptr);
        EXPECT_EQ(Root()->GetChildCount(), 0u);
        EXPECT_FALSE(Objects().FlushDeletions(a)) << "nothing is destroyed under the lock";

        ScopedLogCapture log;
        Objects().DeleteObj(a);
        EXPECT_TRUE(log.Contains("Anormal behavior"));
        EXPECT_EQ(Objects().GetPendingDeleteCount(), 2u);

        Objects().LockDeletion(false);
        EXPECT_TRUE(Objects().FlushDeletions(a));
        EXPECT_EQ(Objects().GetPendingDeleteCount(), 0u);

        Objects().LockDeletion(false);
        EXPECT_EQ(Objects().GetDeletionLock(), 0);
        EXPECT_FALSE(Objects().IsDeletionLocked());
    }

    TEST_F(ObjManagerTest, ClearRootDeletesEveryChild)
    {
        for (int i = 0; i < 20; ++i) Make(("N" + std::to_string(i)).c_str());
        const unsigned int before = Objects().GetObjectCount();
        Objects().ClearRoot(eDrawnObjRoot);
        EXPECT_EQ(Root()->GetChildCount(), 0u);
        EXPECT_EQ(Objects().GetObjectCount(), before - 20);
    }

    TEST_F(ObjManagerTest, ChildOrderKeepsTheAlwaysOnTopZone)
    {
        BaseObj* p = Make("P");
        BaseObj* top = Make("Top", p);
        top->SetAlwaysOnTop(true);
        BaseObj* a = Make("A", p);
        BaseObj* b = Make("B", p);
        BaseObj* c = Make("C", p);
        auto order = [&] {
            std::string s;
            for (unsigned int i = 0; i < p->GetChildCount(); ++i) s += p->GetChildAt(i)->GetName()[0];
            return s;
        };
        EXPECT_EQ(order(), "ABCT");
        EXPECT_EQ(p->GetAlwaysOnTopFirstId(), 3u);
        p->BringChildToFront(a);
        EXPECT_EQ(order(), "BCAT");
        p->SendChildToBack(a);
        EXPECT_EQ(order(), "ABCT");
        p->RaiseChild(c);
        EXPECT_EQ(order(), "ABCT") << "raising never crosses into the top zone";
        p->LowerChild(top);
        EXPECT_EQ(order(), "ABCT");
        EXPECT_FALSE(p->SetChildIndex(top, 0));
        EXPECT_FALSE(p->SetChildIndex(a, 3));
        EXPECT_TRUE(p->SetChildIndex(c, -5));
        EXPECT_EQ(order(), "CABT");
        EXPECT_TRUE(p->SetChildIndex(c, 2));
        EXPECT_EQ(order(), "ACBT");
        b->SetAlwaysOnTop(true);
        EXPECT_EQ(order(), "ACTB");
        EXPECT_EQ(p->GetAlwaysOnTopFirstId(), 2u);
        top->SetAlwaysOnTop(false);
        EXPECT_EQ(order(), "TACB");
        EXPECT_EQ(p->GetAlwaysOnTopFirstId(), 3u);
        Objects().DeleteObj(a);
        EXPECT_EQ(order(), "TCB");
        EXPECT_EQ(p->GetAlwaysOnTopFirstId(), 2u);
    }

    TEST_F(ObjManagerTest, HoldersKeepObjectsOutOfTheDrawnTree)
    {
        BaseObj* holder = Objects().CreateHolder("CollectionHolder");
        ASSERT_NE(holder, nullptr);
        EXPECT_EQ(holder->GetParent(), nullptr);
        BaseObj* page = Make<ButtonObj>("Page", holder);
        EXPECT_EQ(Objects().GetObjByPath("CollectionHolder/Page"), page);
        EXPECT_EQ(page->GetRootIndex(), unsigned(eHolderTree));
        ScopedLogCapture log;
        EXPECT_EQ(Objects().CreateHolder("CollectionHolder"), nullptr);
        EXPECT_TRUE(log.Contains("An object with the same name already exists"));

        // Pages are cloned from it into the drawn tree, and never drawn where they wait.
        BaseObj* shown = Objects().CreateObjFromObj("Page", Root(), page, true);
        ASSERT_NE(shown, nullptr);
        page->SetPosition(UDim2(0, 5, 0, 5));
        const unsigned int waiting = page->GetDirtyUpdaterCount();
        EXPECT_GT(waiting, 0u);
        Frame();
        EXPECT_EQ(page->GetDirtyUpdaterCount(), waiting) << "the pass does not reach the holder";
        EXPECT_EQ(shown->GetDirtyUpdaterCount(), 0u);
        Objects().DeleteObj(holder);
        EXPECT_EQ(Objects().GetObjByPath("CollectionHolder/Page"), nullptr);
        EXPECT_EQ(Objects().GetObjByPath("DrawnObjRoot/Page"), shown);

        // One left standing goes with the system.
        Make("Left", Objects().CreateHolder("Forgotten"));
    }
}
