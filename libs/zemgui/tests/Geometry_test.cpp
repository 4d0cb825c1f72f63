// Where objects stand: anchors, aspect correction, self-sizing, stacking, overlaps,
// rotation and its clip rectangles, and absurd measures.
#include <cmath>

#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    using GeometryTest = GuiTest;

    TEST_F(GeometryTest, AnchorPlacesAPointOfTheObjectAtItsPosition)
    {
        const struct
        {
            UDim2 anchor;
            Vec2 expected;
        } cases[] = {
            {UDim2(0, 0, 0, 0), Vec2(200, 300)},
            {UDim2(0.5f, 0, 0.5f, 0), Vec2(150, 250)},  // the centre
            {UDim2(1, 0, 1, 0), Vec2(100, 200)},
            {UDim2(0, 10, 0.5f, -5), Vec2(190, 255)},
        };
        for (const auto& c : cases)
        {
            BaseObj* o = MakeRect("Obj", 200, 300, 100, 100);
            o->SetAnchor(c.anchor);
            EXPECT_EQ(o->GetAbsPosition(), c.expected);
            Objects().DeleteObj(o);
        }
    }

    TEST_F(GeometryTest, ChildrenAreMeasuredAgainstTheirParent)
    {
        BaseObj* panel = MakeRect("Panel", 100, 50, 400, 200);
        BaseObj* child = Make("Child", panel);
        child->SetPosition(UDim2(0.5f, 10, 0.25f, 0));
        child->SetSize(UDim2(0.5f, 0, 0.5f, 4));
        EXPECT_EQ(child->GetAbsSize(), Vec2(200, 104));
        EXPECT_EQ(child->GetAbsPosition(), Vec2(310, 100));

        // A move of the parent carries the child; one that does not inherit stays put.
        BaseObj* free = Make("Free", panel);
        free->SetInheritPosition(false);
        free->SetPosition(UDim2(0, 5, 0, 6));
        Frame();
        panel->SetPosition(UDim2(0, 120, 0, 50));
        EXPECT_TRUE(child->GetUpdater(ePositionUpdater)->IsDirty());
        EXPECT_FALSE(free->GetUpdater(ePositionUpdater)->IsDirty());
        EXPECT_EQ(child->GetAbsPosition(), Vec2(330, 100));
        EXPECT_EQ(free->GetAbsPosition(), Vec2(5, 6));
    }

    TEST_F(GeometryTest, AspectCorrectionOnSeveralScreens)
    {
        const struct
        {
            unsigned short w, h;
            bool preserved;
            Direction dir;
            Alignment align;
            float pos;   // pixels along the stretched axis
            float size;  // pixels along the stretched axis
        } cases[] = {
            {1920, 1080, true, eHorizontal, eLeftTop, 480, 960},
            {1440, 1080, false, eHorizontal, eLeftTop, 360, 720},
            {1440, 1080, true, eHorizontal, eLeftTop, 480, 960},
            {1440, 1080, true, eHorizontal, eMiddle, 240, 960},
            {1440, 1080, true, eHorizontal, eRightBottom, 0, 960},
            {2560, 1080, true, eHorizontal, eLeftTop, 480, 960},
            {2560, 1080, true, eHorizontal, eMiddle, 800, 960},
            {1920, 1440, true, eVertical, eLeftTop, 270, 540},
            {1920, 1440, true, eVertical, eMiddle, 450, 540},
            {1920, 1440, true, eVertical, eRightBottom, 630, 540},
        };
        for (const auto& c : cases)
        {
            SCOPED_TRACE(::testing::Message() << c.w << "x" << c.h << " dir " << c.dir << " align " << c.align);
            m_pSystem->GetScreen().SetSize(c.w, c.h);
            BaseObj* o = Make("Obj");
            o->SetPosition(UDim2(0.25f, 0, 0.25f, 0));
            o->SetSize(UDim2(0.5f, 0, 0.5f, 0));
            o->SetAspectRatioPreserved(c.preserved);
            o->SetAspectRatioStretchDirection(c.dir);
            o->SetAspectRatioStretchAlignment(c.align);
            const Vec2 pos = o->GetAbsPosition();
            const Vec2 size = o->GetAbsSize();
            EXPECT_FLOAT_EQ(c.dir == eHorizontal ? pos.x : pos.y, c.pos);
            EXPECT_FLOAT_EQ(c.dir == eHorizontal ? size.x : size.y, c.size);
            // The other axis keeps its plain measure.
            EXPECT_FLOAT_EQ(c.dir == eHorizontal ? size.y : size.x, 0.5f * (c.dir == eHorizontal ? c.h : c.w));
            Objects().DeleteObj(o);
        }
    }

    TEST_F(GeometryTest, ScreenResizeMarksAndMovesTheDrawnTree)
    {
        BaseObj* o = Make("Obj");
        o->SetPosition(UDim2(0.5f, 0, 0.5f, 0));
        Frame();
        EXPECT_EQ(o->GetAbsPosition(), Vec2(960, 540));
        m_pSystem->GetScreen().SetSize(800, 600);
        EXPECT_TRUE(o->GetUpdater(ePositionUpdater)->IsDirty());
        EXPECT_EQ(o->GetAbsPosition(), Vec2(400, 300));
        const Matrix44& p = m_pSystem->GetScreen().GetProjection();
        EXPECT_FLOAT_EQ(p.m[0][0], 2.0f / 800);
        EXPECT_FLOAT_EQ(p.m[1][1], -2.0f / 600);
        EXPECT_FLOAT_EQ(p.m[0][3], -1.0f);
        EXPECT_FLOAT_EQ(p.m[1][3], 1.0f);

        ScopedLogCapture log;
        m_pSystem->GetScreen().SetSize(0, 600);
        EXPECT_EQ(m_pSystem->GetScreen().GetSize(), Vec2(800, 600));
        EXPECT_TRUE(log.Contains("Invalid parameters"));
    }

    TEST_F(GeometryTest, PixelAlignmentRoundsHalfDown)
    {
        BaseObj* o = Make("Obj");
        const struct
        {
            float offset, aligned;
        } cases[] = {{10.5f, 10}, {10.6f, 11}, {10.4f, 10}, {-2.5f, -3}, {-2.4f, -2}};
        for (const auto& c : cases)
        {
            o->SetAlignToPixel(true);
            o->SetPosition(UDim2(0, c.offset, 0, 0));
            EXPECT_EQ(o->GetAbsPosition().x, c.aligned) << c.offset;
            o->SetAlignToPixel(false);
            o->SetPosition(UDim2(0, c.offset, 0, 1));
            EXPECT_EQ(o->GetAbsPosition().x, c.offset);
        }
    }

    namespace
    {
        struct Layout
        {
            const char* name;
            UDim2 parentSize;
            bool stack, overlap;
            Direction dir;
            std::vector<UDim2> childSizes;
            std::vector<UDim2> childPositions;
            Vec2 expectedSize;
            std::vector<float> expectedPlaces;  // along the stack direction, when stacking
        };
    }

    TEST_F(GeometryTest, StackAndOverlapLayouts)
    {
        const UDim2 w10(0, 10, 0, 20);
        const std::vector<Layout> layouts = {
            {"three stacked widths", UDim2(-1, 0, 0, 50), true, true, eHorizontal, {w10, w10, w10}, {}, Vec2(30, 50), {0, 10, 20}},
            {"half of them", UDim2(-0.5f, 0, 0, 50), true, true, eHorizontal, {w10, w10, w10}, {}, Vec2(15, 50), {0, 10, 20}},
            {"capped by the space", UDim2(-1, 0, 0, 50), true, true, eHorizontal, {w10, w10, w10, w10, w10, w10}, {},
             Vec2(40, 50), {0, 10, 20, 30, 40, 50}},
            {"vertical stack", UDim2(0, 70, -1, 0), true, true, eVertical,
             {UDim2(0, 5, 0, 7), UDim2(0, 6, 0, 8), UDim2(0, 9, 0, 11)}, {}, Vec2(70, 26), {0, 7, 15}},
            {"stack with offset", UDim2(-1, 4, 0, 50), true, true, eHorizontal, {w10, w10}, {}, Vec2(24, 50), {0, 10}},
            {"no stack takes the largest", UDim2(-1, 0, -1, 0), false, true, eHorizontal,
             {UDim2(0, 12, 0, 3), UDim2(0, 7, 0, 9)}, {}, Vec2(12, 9), {}},
            {"no overlap, same place", UDim2(-1, 0, 0, 50), false, false, eHorizontal,
             {UDim2(0, 100, 0, 10), UDim2(0, 60, 0, 10)}, {UDim2(0.2f, 0, 0, 0), UDim2(0.2f, 0, 0, 0)}, Vec2(100, 50), {}},
            {"no overlap, pulled apart", UDim2(-1, 0, 0, 50), false, false, eHorizontal,
             {UDim2(0, 100, 0, 10), UDim2(0, 100, 0, 10)}, {UDim2(0, 0, 0, 0), UDim2(0.5f, 0, 0, 0)}, Vec2(200, 50), {}},
        };
        for (const Layout& l : layouts)
        {
            SCOPED_TRACE(l.name);
            // The box that holds the layout is 40 wide, so a self-sized child meets its space.
            BaseObj* box = MakeRect("Box", 0, 0, l.name == std::string("capped by the space") ? 40 : 1000, 500);
            BaseObj* p = Make("Layout", box);
            p->SetSize(l.parentSize);
            p->SetStack(l.stack);
            p->SetOverlap(l.overlap);
            p->SetStackDirection(l.dir);
            std::vector<BaseObj*> kids;
            for (size_t i = 0; i < l.childSizes.size(); ++i)
            {
                BaseObj* c = Make(("C" + std::to_string(i)).c_str(), p);
                c->SetSize(l.childSizes[i]);
                if (i < l.childPositions.size()) c->SetPosition(l.childPositions[i]);
                kids.push_back(c);
            }
            Frame();
            EXPECT_EQ(p->GetAbsSize(), l.expectedSize);
            for (size_t i = 0; i < l.expectedPlaces.size(); ++i)
            {
                const Vec2 at = kids[i]->GetAbsPosition();
                EXPECT_EQ(l.dir == eHorizontal ? at.x : at.y, l.expectedPlaces[i]) << "child " << i;
            }
            // A child that grows re-lays the parent on the next pass.
            if (l.stack && l.dir == eHorizontal)
            {
                kids[0]->SetSize(UDim2(0, 11, 0, 20));
                Frame();
                EXPECT_EQ(kids[1]->GetAbsPosition().x, 11.0f);
            }
            Objects().DeleteObj(box);
        }
    }

    TEST_F(GeometryTest, StackedChildrenKeepTheirAnchorsAndInvisibleOnesTakeNoRoom)
    {
        BaseObj* p = Make("Row");
        p->SetSize(UDim2(-1, 0, 0, 40));
        p->SetStack(true);
        BaseObj* a = MakeRect("A", 0, 0, 10, 10, p);
        BaseObj* hidden = MakeRect("Hidden", 0, 0, 50, 10, p);
        BaseObj* b = MakeRect("B", 0, 0, 20, 10, p);
        b->SetAnchor(UDim2(0.5f, 0, 0, 0));
        hidden->SetVisible(false);
        Frame();
        EXPECT_EQ(p->GetAbsSize().x, 30.0f);
        EXPECT_EQ(a->GetAbsPosition().x, 0.0f);
        EXPECT_EQ(b->GetAbsPosition().x, 10.0f) << "the anchor is taken back out";
        hidden->SetVisible(true);
        Frame();
        EXPECT_EQ(p->GetAbsSize().x, 80.0f);
    }

    TEST_F(GeometryTest, SubObjectsSetAMinimumForSelfSizing)
    {
        BaseObj* p = Make("Label");
        p->SetSize(UDim2(-1, 0, -1, 0));
        ASSERT_TRUE(p->AddSubObj(MEM_NEW(RecordingSubObj, p, "Text", Vec2(64, 18))));
        MakeRect("Small", 0, 0, 10, 30, p);
        Frame();
        EXPECT_EQ(p->GetAbsSize(), Vec2(64, 30));
    }

    TEST_F(GeometryTest, QuarterTurnsClipToTheTurnedRectangle)
    {
        // Each turn about a pivot at the object's centre: the clip rectangle is the one the
        // matrix draws, within the half pixel that centres rotation on pixels.
        for (int turn = 0; turn < 4; ++turn)
        {
            SCOPED_TRACE(turn);
            BaseObj* o = MakeRect("Obj", 300, 200, 100, 40);
            o->SetAnchor(UDim2(0.5f, 0, 0.5f, 0));
            o->SetRotation(90.0f * turn);
            EXPECT_EQ(o->GetQuarterTurn(), turn);
            const GuiRect clip = o->GetWorldClip();
            float minX = 1e9f, minY = 1e9f, maxX = -1e9f, maxY = -1e9f;
            for (Vec2 corner : {Vec2(0, 0), Vec2(100, 0), Vec2(0, 40), Vec2(100, 40)})
            {
                const Vec2 w = o->GetMatrix().TransformPoint(corner.x, corner.y);
                minX = std::min(minX, w.x);
                minY = std::min(minY, w.y);
                maxX = std::max(maxX, w.x);
                maxY = std::max(maxY, w.y);
            }
            EXPECT_NEAR(clip.left, minX, 1.0f);
            EXPECT_NEAR(clip.top, minY, 1.0f);
            EXPECT_NEAR(clip.right, maxX, 1.0f);
            EXPECT_NEAR(clip.bottom, maxY, 1.0f);
            const bool swapped = turn % 2 == 1;
            EXPECT_FLOAT_EQ(clip.right - clip.left, swapped ? 40 : 100);
            EXPECT_FLOAT_EQ(clip.bottom - clip.top, swapped ? 100 : 40);
            Objects().DeleteObj(o);
        }

        // A quarter turn about the top left corner, as the table of turns has it.
        BaseObj* o = MakeRect("Corner", 100, 100, 100, 50);
        o->SetRotation(90);
        EXPECT_EQ(o->GetWorldClip(), GuiRect(100, 0, 150, 100));
        o->SetRotation(45);
        EXPECT_EQ(o->GetQuarterTurn(), -1);
        EXPECT_EQ(o->GetLocalClip(), GuiRect(0, 0, 100, 50)) << "other angles keep their own rectangle";
    }

    TEST_F(GeometryTest, ChildrenTurnWithTheirParent)
    {
        BaseObj* p = MakeRect("P", 500, 500, 100, 100);
        BaseObj* c = MakeRect("C", 50, 0, 10, 10, p);
        p->SetRotation(90);
        // The child's place turns the same way as the parent's drawing.
        const Vec2 drawn = p->GetMatrix().TransformPoint(50, 0);
        const Vec2 placed = c->GetAbsPosition();
        EXPECT_NEAR(placed.x, drawn.x, 1.0f);
        EXPECT_NEAR(placed.y, drawn.y, 1.0f);
        EXPECT_EQ(c->GetQuarterTurn(), 1);
        c->SetInheritOrientation(false);
        EXPECT_EQ(c->GetQuarterTurn(), 0);
    }

    TEST_F(GeometryTest, ClippingFollowsTheParentUnlessFreed)
    {
        BaseObj* p = MakeRect("P", 100, 100, 50, 50);
        BaseObj* c = MakeRect("C", 40, 40, 50, 50, p);
        EXPECT_EQ(c->GetWorldClip(), GuiRect(140, 140, 150, 150));
        EXPECT_EQ(c->GetLocalClip(), GuiRect(0, 0, 10, 10));
        c->SetClippedByParent(false);
        EXPECT_EQ(c->GetWorldClip(), GuiRect(140, 140, 190, 190));
        c->SetClippedByParent(true);
        c->SetPosition(UDim2(0, 60, 0, 0));
        EXPECT_TRUE(c->GetWorldClip().IsZero()) << "outside its parent an object has nothing to draw";
    }

    TEST_F(GeometryTest, AbsurdMeasuresNeitherCrashNorHit)
    {
        BaseObj* neg = MakeRect("Negative", 100, 100, -50, -20);
        BaseObj* huge = MakeRect("Huge", 0, 0, 3e38f, 3e38f);
        BaseObj* inside = MakeRect("Inside", 0, 0, 1e30f, 1e30f, huge);
        inside->SetRotation(33);
        neg->SetInteractEnabled(true);
        huge->SetInteractEnabled(true);
        Pointer* p = Pointers().CreatePointer("Mouse");
        p->OnMoved(110, 110);
        Frame();
        EXPECT_TRUE(neg->GetWorldClip().IsZero());
        EXPECT_NE(p->GetPointed(), neg);
        EXPECT_TRUE(std::isfinite(neg->GetAbsSize().x));
        // The tree keeps working afterwards.
        neg->SetSize(UDim2(0, 50, 0, 20));
        huge->SetVisible(false);
        p->OnMoved(120, 110);
        Frame();
        EXPECT_EQ(p->GetPointed(), neg);
    }

    TEST(GuiMatrix, PlaneInverseAgreesWithTheGeneralOne)
    {
        const Matrix44 m = Matrix44::Translation(300.5f, -20.25f) * Matrix44::RotationZ(0.6f, 0.8f) *
                           Matrix44::Translation(-49.5f, -19.5f);
        const Matrix44 a = m.InversePlane();
        const Matrix44 b = m.Inverse();
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) EXPECT_NEAR(a.m[i][j], b.m[i][j], 1e-4) << i << j;
        const Matrix44 id = m * a;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) EXPECT_NEAR(id.m[i][j], i == j ? 1.0f : 0.0f, 1e-4) << i << j;
        Matrix44 singular;
        singular.m[0][0] = 0.0f;
        EXPECT_EQ(singular.InversePlane().m[0][0], 1.0f) << "a singular matrix gives the identity";
        Matrix44 projective = m;
        projective.m[3][0] = 0.001f;
        const Matrix44 p = projective.InversePlane() * projective;
        EXPECT_NEAR(p.m[0][0], 1.0f, 1e-3) << "not a plane transform: the general way";
    }
}
