// The property table of every object: order, defaults, what each setter marks.
#include <set>

#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    namespace
    {
        struct PropertyCase
        {
            const char* name;
            PropertyValue changed;            // a value other than the default
            std::set<UpdaterId> marks;        // updaters the change dirties
            std::set<UpdaterId> secondAdded;  // updaters the change puts in the second list
        };

        const std::set<UpdaterId> kLayoutMarks = {eRedrawUpdater, ePositionUpdater, eSizeUpdater, eMatrixUpdater,
                                                  eClippingUpdater};

        std::vector<PropertyCase> Cases()
        {
            return {
                {"Position", PropertyValue::Dim2(UDim2(0.1f, 5, 0.2f, 6)), {ePositionUpdater, eMatrixUpdater, eClippingUpdater}, {}},
                {"Size", PropertyValue::Dim2(UDim2(0.5f, 0, 0, 20)), {eRedrawUpdater, eSizeUpdater, eMatrixUpdater, eClippingUpdater}, {}},
                {"Anchor", PropertyValue::Dim2(UDim2(0.5f, 0, 0.5f, 0)), {ePositionUpdater, eMatrixUpdater, eClippingUpdater}, {}},
                {"Rotation", PropertyValue::Float(30.0f),
                 {ePositionUpdater, eOrientationUpdater, eMatrixUpdater, eClippingUpdater}, {}},
                {"AlignToPixel", PropertyValue::Bool(false), {}, {}},
                {"InheritOrientation", PropertyValue::Bool(false), {eOrientationUpdater, eMatrixUpdater}, {}},
                {"InheritPosition", PropertyValue::Bool(false), {ePositionUpdater, eMatrixUpdater, eClippingUpdater}, {}},
                {"InheritSize", PropertyValue::Bool(false), {eRedrawUpdater, eSizeUpdater, eMatrixUpdater, eClippingUpdater}, {}},
                {"Visible", PropertyValue::Bool(false), {}, {}},
                // The state refresh pulls the enabled flag at once; the new state is what waits.
                {"Enabled", PropertyValue::Bool(false), {eStateUpdater}, {}},
                {"Overlap", PropertyValue::Bool(false), {eSizeUpdater, eMatrixUpdater}, {}},
                {"Stack", PropertyValue::Bool(true), {eSizeUpdater, eMatrixUpdater}, {}},
                {"StackDirection", PropertyValue::Dir(eVertical), {eSizeUpdater, eMatrixUpdater}, {}},
                {"Alpha", PropertyValue::Float(0.25f), {eAlphaUpdater, eRedrawUpdater}, {}},
                {"InheritAlpha", PropertyValue::Bool(false), {eAlphaUpdater, eRedrawUpdater}, {}},
                {"ClippedByParent", PropertyValue::Bool(false), {eClippingUpdater, eRedrawUpdater}, {}},
                {"InteractEnabled", PropertyValue::Bool(true), {}, {ePointerUpdater}},
                {"InteractTransparent", PropertyValue::Bool(false), {}, {ePointerUpdater}},
                {"FocusKept", PropertyValue::Bool(true), {}, {}},
                {"Focusable", PropertyValue::Bool(true), {eFocusableObjUpdater}, {}},
                {"InheritFocus", PropertyValue::Bool(true), {eFocusedUpdater}, {}},
                {"AutoRepeatPressEnabled", PropertyValue::Bool(true), {}, {eAutoRepeatPressUpdater}},
                {"AutoRepeatPressRate", PropertyValue::Integer(25), {}, {}},
                {"AutoRepeatPressDelay", PropertyValue::Integer(500), {}, {}},
                {"ChangePointerEnabled", PropertyValue::Bool(true), {}, {}},
                {"ChangePointerState", PropertyValue::Text("HandState"), {}, {}},
                {"TooltipText", PropertyValue::Text("Help"), {}, {}},
                {"AlwaysOnTop", PropertyValue::Bool(true), {}, {}},
                {"AspectRatioPreserved", PropertyValue::Bool(true), kLayoutMarks, {}},
                {"AspectRatioStretchAlignment", PropertyValue::Align(eMiddle), kLayoutMarks, {}},
                {"AspectRatioStretchDirection", PropertyValue::Dir(eVertical), kLayoutMarks, {}},
                {"FocusMask", PropertyValue::Integer(6), {}, {}},
                {"InheritState", PropertyValue::Bool(true), {}, {}},
            };
        }

        std::set<UpdaterId> DirtyUpdaters(BaseObj* o)
        {
            std::set<UpdaterId> out;
            for (unsigned int i = 0; i < eUpdaterCount; ++i)
                if (o->GetUpdater(static_cast<UpdaterId>(i))->IsDirty()) out.insert(static_cast<UpdaterId>(i));
            return out;
        }
    }

    using PropertyTableTest = GuiTest;

    TEST_F(PropertyTableTest, RowsStandInTheirOrderWithTheirDefaults)
    {
        const PropertyTable& table = BaseObj::GetBaseObjTable();
        const auto cases = Cases();
        ASSERT_EQ(table.GetSize(), 33u);
        ASSERT_EQ(cases.size(), 33u);
        BaseObj* o = Make("Obj");
        for (unsigned int i = 0; i < table.GetSize(); ++i)
        {
            SCOPED_TRACE(table[i].szName);
            EXPECT_STREQ(table[i].szName, cases[i].name);
            PropertyValue v;
            ASSERT_TRUE(o->GetProperty(table[i].szName, v));
            EXPECT_TRUE(v == table[i].kDefault) << "a new object holds the row's default";
            EXPECT_FALSE(cases[i].changed == table[i].kDefault);
        }
        // The defaults the table states.
        EXPECT_EQ(o->GetSize(), UDim2(1, 0, 1, 0));
        EXPECT_TRUE(o->GetAlignToPixel());
        EXPECT_TRUE(o->IsInteractTransparent());
        EXPECT_EQ(o->GetAutoRepeatPressRate(), 60);
        EXPECT_EQ(o->GetAutoRepeatPressDelay(), 300);
        EXPECT_EQ(o->GetFocusMask(), 1);
    }

    TEST_F(PropertyTableTest, EachSetterStoresAndMarksWhatDependsOnIt)
    {
        for (const PropertyCase& c : Cases())
        {
            SCOPED_TRACE(c.name);
            BaseObj* o = Make(c.name);
            ASSERT_NE(o, nullptr);
            Frame();
            ASSERT_EQ(o->GetDirtyUpdaterCount(), 0u) << "the pass leaves nothing to do";
            std::set<UpdaterId> secondBefore;
            for (unsigned int i = 0; i < eUpdaterCount; ++i)
                if (o->HasSecondUpdater(o->GetUpdater(static_cast<UpdaterId>(i)))) secondBefore.insert(static_cast<UpdaterId>(i));

            ASSERT_TRUE(o->SetProperty(c.name, c.changed));
            PropertyValue back;
            o->GetProperty(c.name, back);
            EXPECT_TRUE(back == c.changed) << "the value is stored";
            EXPECT_EQ(DirtyUpdaters(o), c.marks);

            std::set<UpdaterId> added;
            for (unsigned int i = 0; i < eUpdaterCount; ++i)
            {
                const UpdaterId id = static_cast<UpdaterId>(i);
                if (o->HasSecondUpdater(o->GetUpdater(id)) && !secondBefore.count(id)) added.insert(id);
            }
            EXPECT_EQ(added, c.secondAdded);

            // Setting the same value again marks nothing.
            Frame();
            ASSERT_TRUE(o->SetProperty(c.name, c.changed));
            EXPECT_EQ(o->GetDirtyUpdaterCount(), 0u);
            Objects().DeleteObj(o);
        }
    }

    TEST_F(PropertyTableTest, DerivedTablesOverrideDefaultsInPlace)
    {
        const PropertyTable& base = BaseObj::GetBaseObjTable();
        const PropertyTable& button = ButtonObj::GetButtonObjTable();
        ASSERT_EQ(button.GetSize(), base.GetSize());
        for (unsigned int i = 0; i < base.GetSize(); ++i) EXPECT_STREQ(button[i].szName, base[i].szName);
        EXPECT_TRUE(button.Find("InteractEnabled")->kDefault == PropertyValue::Bool(true));
        EXPECT_TRUE(button.Find("InteractTransparent")->kDefault == PropertyValue::Bool(false));

        ButtonObj* b = Make<ButtonObj>("Button");
        EXPECT_TRUE(b->IsInteractEnabled());
        EXPECT_FALSE(b->IsInteractTransparent());
        EXPECT_TRUE(b->IsFocusable());
        EXPECT_TRUE(b->HasSecondUpdater(b->GetUpdater(ePointerUpdater)));

        TooltipObj* t = Make<TooltipObj>("Tip");
        EXPECT_FALSE(t->IsVisible());
        EXPECT_FALSE(t->GetClippedByParent());
        ScrollbarObj* s = Make<ScrollbarObj>("Bar");
        EXPECT_TRUE(s->IsAutoRepeatPressEnabled());
        EXPECT_TRUE(s->HasSecondUpdater(s->GetUpdater(eAutoRepeatPressUpdater)));
    }

    TEST_F(PropertyTableTest, ValuesAreClampedWrappedOrRefused)
    {
        BaseObj* o = Make("Obj");
        o->SetAlpha(3.0f);
        EXPECT_EQ(o->GetAlpha(), 1.0f);
        o->SetAlpha(-1.0f);
        EXPECT_EQ(o->GetAlpha(), 0.0f);
        const struct
        {
            float in, out;
        } rotations[] = {{-90, 270}, {720, 0}, {450, 90}, {-720, 0}, {359.5f, 359.5f}};
        for (const auto& r : rotations)
        {
            o->SetRotation(r.in);
            EXPECT_FLOAT_EQ(o->GetRotation(), r.out) << r.in;
        }

        ScopedLogCapture log;
        const float nan = std::nanf("");
        const float inf = INFINITY;
        o->SetPosition(UDim2(0, 10, 0, 10));
        o->SetPosition(UDim2(nan, 0, 0, 0));
        o->SetSize(UDim2(0, inf, 0, 1));
        o->SetAnchor(UDim2(0, 0, nan, 0));
        o->SetRotation(inf);
        o->SetAlpha(nan);
        o->MovePosition(UDim2(0, -inf, 0, 0), 0);
        EXPECT_EQ(o->GetPosition(), UDim2(0, 10, 0, 10));
        EXPECT_EQ(o->GetSize(), UDim2(1, 0, 1, 0));
        EXPECT_TRUE(o->GetAnchor().IsZero());
        EXPECT_EQ(o->GetAlpha(), 0.0f);
        EXPECT_TRUE(log.Contains("Invalid parameters"));

        o->SetChangePointerState(std::string(64, 'x').c_str());
        EXPECT_STREQ(o->GetChangePointerState(), "");
        EXPECT_TRUE(log.Contains("Invalid parameter."));
    }
}
