// How marks travel down the tree, the draw buffer pool, and an object destroyed with
// children still attached.
#include <functional>
#include <set>

#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    using UpdatersTest = GuiTest;

    namespace
    {
        std::set<UpdaterId> Dirty(BaseObj* o)
        {
            std::set<UpdaterId> out;
            for (unsigned int i = 0; i < eUpdaterCount; ++i)
                if (o->GetUpdater(static_cast<UpdaterId>(i))->IsDirty()) out.insert(static_cast<UpdaterId>(i));
            return out;
        }
    }

    TEST_F(UpdatersTest, MarksReachTheChildrenThatDependOnThem)
    {
        const struct
        {
            const char* name;
            std::function<void(BaseObj*)> mark;
            std::function<void(BaseObj*)> configureChild;
            std::set<UpdaterId> expected;
        } rows[] = {
            {"position, inheriting", [](BaseObj* p) { p->MarkPosition(); }, [](BaseObj*) {}, {ePositionUpdater, eMatrixUpdater}},
            {"position, not inheriting", [](BaseObj* p) { p->MarkPosition(); },
             [](BaseObj* c) { c->SetInheritPosition(false); }, {}},
            {"size", [](BaseObj* p) { p->MarkSize(); }, [](BaseObj*) {},
             {ePositionUpdater, eSizeUpdater, eMatrixUpdater, eRedrawUpdater}},
            {"size, not inheriting size", [](BaseObj* p) { p->MarkSize(); }, [](BaseObj* c) { c->SetInheritSize(false); },
             {ePositionUpdater, eMatrixUpdater}},
            {"orientation", [](BaseObj* p) { p->MarkOrientation(); }, [](BaseObj*) {},
             {ePositionUpdater, eOrientationUpdater, eMatrixUpdater}},
            {"orientation, own", [](BaseObj* p) { p->MarkOrientation(); },
             [](BaseObj* c) { c->SetInheritOrientation(false); }, {ePositionUpdater, eMatrixUpdater}},
            {"alpha", [](BaseObj* p) { p->MarkAlpha(); }, [](BaseObj*) {}, {eAlphaUpdater, eRedrawUpdater}},
            {"alpha, own", [](BaseObj* p) { p->MarkAlpha(); }, [](BaseObj* c) { c->SetInheritAlpha(false); }, {}},
            {"clipping", [](BaseObj* p) { p->MarkClipping(); }, [](BaseObj* c) { c->SetClippedByParent(false); },
             {eClippingUpdater}},
            {"enabled (the state refresh pulls it at once)", [](BaseObj* p) { p->MarkEnabled(); }, [](BaseObj*) {}, {}},
            {"focusable object", [](BaseObj* p) { p->MarkFocusableObj(); }, [](BaseObj*) {}, {eFocusableObjUpdater}},
            {"focusable object, focusable child", [](BaseObj* p) { p->MarkFocusableObj(); },
             [](BaseObj* c) { c->SetFocusable(true); }, {}},
            {"focused, not inheriting", [](BaseObj* p) { p->MarkFocused(); }, [](BaseObj*) {}, {}},
            {"redraw stays with its object", [](BaseObj* p) { p->MarkRedraw(); }, [](BaseObj*) {}, {}},
        };
        for (const auto& r : rows)
        {
            SCOPED_TRACE(r.name);
            BaseObj* p = MakeRect("P", 10, 10, 100, 100);
            BaseObj* c = MakeRect("C", 1, 1, 10, 10, p);
            BaseObj* g = MakeRect("G", 1, 1, 5, 5, c);
            r.configureChild(c);
            Frame();
            ASSERT_EQ(c->GetDirtyUpdaterCount(), 0u);
            r.mark(p);
            EXPECT_EQ(Dirty(c), r.expected);
            // A mark already set does not walk again: the grandchild saw the first walk only.
            const std::set<UpdaterId> grand = Dirty(g);
            r.mark(p);
            EXPECT_EQ(Dirty(g), grand);
            Objects().DeleteObj(p);
        }
    }

    TEST_F(UpdatersTest, AnUnchangedObjectCostsNothingInThePass)
    {
        BaseObj* o = MakeRect("Obj", 0, 0, 10, 10);
        Frame();
        EXPECT_EQ(o->GetDirtyUpdaterCount(), 0u);
        // Sizes before places (an anchor needs the size), eases before what they drive.
        const UpdaterId order[] = {eRedrawUpdater,      eEaseSizeUpdater,    eSizeUpdater,     eEasePositionUpdater,
                                   ePositionUpdater,    eEaseRotationUpdater, eOrientationUpdater, eMatrixUpdater,
                                   eClippingUpdater,    eSubObjUpdater,      eStateUpdater,    eEaseAlphaUpdater,
                                   eAlphaUpdater,       eEnabledUpdater,     eFocusableObjUpdater, eFocusedUpdater};
        ASSERT_EQ(o->GetFirstUpdaterCount(), 16u);
        for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(o->GetFirstUpdaterAt(i), o->GetUpdater(order[i])) << i;
        EXPECT_EQ(o->GetSecondUpdaterCount(), 0u);
        o->SetPosition(UDim2(0, 5, 0, 5));
        EXPECT_EQ(o->GetDirtyUpdaterCount(), 3u);
        Frame();
        EXPECT_EQ(o->GetDirtyUpdaterCount(), 0u);
        EXPECT_EQ(o->GetMatrix().m[0][3], 5.0f);
        EXPECT_EQ(o->GetInverseMatrix().m[0][3], -5.0f);
    }

    TEST_F(UpdatersTest, DrawBufferPoolPicksTheSmallestFit)
    {
        GfxObjPool& pool = m_pSystem->GetScreen().GetGfxObjPool();
        GuiShader* a = reinterpret_cast<GuiShader*>(0x10);
        GuiShader* b = reinterpret_cast<GuiShader*>(0x20);
        GfxObj* big = pool.Get(64, 4, a);
        GfxObj* small = pool.Get(8, 4, a);
        GfxObj* tri = pool.Get(8, 3, a);
        GfxObj* other = pool.Get(8, 4, b);
        EXPECT_EQ(pool.GetSize(), 4u);
        pool.Release(big);
        pool.Release(small);
        EXPECT_EQ(pool.Get(6, 4, a), small);
        EXPECT_EQ(pool.Get(6, 4, a), big);
        EXPECT_NE(pool.Get(6, 4, a), tri) << "another face form is not shared";
        EXPECT_EQ(pool.GetInUseCount(), 5u);
        pool.Release(other);
        EXPECT_EQ(pool.Get(2, 4, b), other);

        ScopedLogCapture log;
        GfxObj* raised = pool.Get(2, 2, a);
        ASSERT_NE(raised, nullptr);
        EXPECT_EQ(raised->uVerticesPerFace, 3u);
        EXPECT_TRUE(log.Contains("Invalid number of vertex per face"));

        // A full pool grows a free record that is too small rather than making one.
        while (pool.GetSize() < GfxObjPool::kCapacity) pool.Get(1, 4, b);
        GfxObj* grown = nullptr;
        pool.Release(other);
        grown = pool.Get(500, 4, b);
        EXPECT_EQ(grown, other);
        EXPECT_EQ(grown->uFaceCapacity, 500u);
        EXPECT_EQ(pool.Get(500, 4, b), nullptr) << "nothing free of that form";
    }

    TEST_F(UpdatersTest, DestroyingAnObjectWithChildrenReportsAndOrphansThem)
    {
        ScopedLogCapture log;
        Node* loose = MEM_NEW(Node, "Loose", nullptr, "", "");
        loose->Init(nullptr);
        BaseObj* kid = Objects().CreateObj<Node>("Kid", loose);
        ASSERT_NE(kid, nullptr);
        MEM_DELETE(loose);
        EXPECT_TRUE(log.Contains("Assertion \"false\" failed. Anormal behavior! This object should not have children"));
        EXPECT_EQ(kid->GetParent(), nullptr);
        Objects().DeleteObj(kid);
        EXPECT_EQ(Objects().GetObjByPath("Loose/Kid"), nullptr);
    }
}
