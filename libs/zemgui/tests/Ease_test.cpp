// Ease curves against their definitions, eases of properties and auto repeat.
#include <cmath>
#include <functional>

#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    namespace
    {
        const double kPi = 3.14159265358979323846;

        // Each curve as its definition states it, in double; the in-out form is the in
        // form on the first half and the out form mirrored onto the second.
        double BounceOut(double t)
        {
            if (t < 4.0 / 11.0) return 7.5625 * t * t;
            if (t < 8.0 / 11.0) return 7.5625 * std::pow(t - 6.0 / 11.0, 2) + 0.75;
            if (t < 10.0 / 11.0) return 7.7625 * std::pow(t - 9.0 / 11.0, 2) + 0.9375;
            return 7.7625 * std::pow(t - 21.0 / 22.0, 2) + 0.984375;
        }
        double ElasticOut(double t) { return std::pow(2.0, -10.0 * t) * std::sin((t - 0.075) * 2.0 * kPi / 0.3) + 1.0; }
        double BackIn(double t) { return t * t * (1.0 - 0.5 * std::sin(t * kPi)); }

        struct Curve
        {
            const char* name;
            const EaseFunction* ease;
            std::function<double(double)> in, out;
        };

        std::vector<Curve> Curves()
        {
            return {
                {"LinearEase", &LinearEase::kInstance, [](double t) { return t; }, [](double t) { return t; }},
                {"QuadraticEase", &QuadraticEase::kInstance, [](double t) { return t * t; },
                 [](double t) { return t * (2.0 - t); }},
                {"CubicEase", &CubicEase::kInstance, [](double t) { return t * t * t; },
                 [](double t) { return 1.0 - std::pow(1.0 - t, 3); }},
                {"SineEase", &SineEase::kInstance, [](double t) { return 1.0 - std::cos(t * kPi / 2.0); },
                 [](double t) { return std::sin(t * kPi / 2.0); }},
                {"CircleEase", &CircleEase::kInstance, [](double t) { return 1.0 - std::sqrt(1.0 - t * t); },
                 [](double t) { return std::sqrt(t * (2.0 - t)); }},
                {"BackEase", &BackEase::kInstance, BackIn, [](double t) { return 1.0 - BackIn(1.0 - t); }},
                {"ElasticEase", &ElasticEase::kInstance, [](double t) { return 1.0 - ElasticOut(1.0 - t); }, ElasticOut},
                {"BounceEase", &BounceEase::kInstance, [](double t) { return 1.0 - BounceOut(1.0 - t); }, BounceOut},
            };
        }
    }

    TEST(EaseCurves, InOutAndInOutAgainstTheirDefinitions)
    {
        for (const Curve& c : Curves())
        {
            SCOPED_TRACE(c.name);
            EXPECT_EQ(EaseFunction::FindByName(c.name), c.ease);
            for (double t : {0.0, 0.25, 0.5, 0.75, 1.0})
            {
                const float tf = static_cast<float>(t);
                EXPECT_NEAR(c.ease->EaseIn(tf), c.in(t), 1e-4) << "in at " << t;
                EXPECT_NEAR(c.ease->EaseOut(tf), c.out(t), 1e-4) << "out at " << t;
                const double inOut = t < 0.5 ? 0.5 * c.in(2.0 * t) : 0.5 * c.out(2.0 * t - 1.0) + 0.5;
                EXPECT_NEAR(c.ease->EaseInOut(tf), inOut, 1e-4) << "in-out at " << t;
                EXPECT_EQ(c.ease->Ease(eEaseIn, tf), c.ease->EaseIn(tf));
                EXPECT_EQ(c.ease->Ease(eEaseOut, tf), c.ease->EaseOut(tf));
                EXPECT_EQ(c.ease->Ease(eEaseInOut, tf), c.ease->EaseInOut(tf));
                EXPECT_EQ(c.ease->Ease(3, tf), 0.0f) << "an unknown mode gives 0";
            }
        }
        EXPECT_EQ(EaseFunction::GetDefault(), &BackEase::kInstance);
        EXPECT_FLOAT_EQ(BackEase::kInstance.EaseIn(1.0f), 1.0f);
        // The last bounce arcs use 7.7625: the curve ends above 1.
        EXPECT_GT(BounceEase::kInstance.EaseOut(1.0f), 1.0f);
        EXPECT_NEAR(BounceEase::kInstance.EaseOut(1.0f), BounceOut(1.0), 1e-5);
        EXPECT_EQ(EaseFunction::FindByName("WobbleEase"), nullptr);
    }

    using EaseTest = GuiTest;

    TEST_F(EaseTest, AnEaseRunsThroughTheSetterAndEndsOnce)
    {
        BaseObj* o = Make("Obj");
        int ends = 0;
        LambdaCallback onEnd([&](EventArgs&) {
            ++ends;
            return false;
        });
        o->ConnectEventCallback("EndEase", onEnd.Functor());

        o->EaseAlpha(0.0f, 1.0f, &LinearEase::kInstance, eEaseIn);
        EXPECT_TRUE(o->GetAlphaEase().IsRunning());
        for (int i = 0; i < 5; ++i) Frame(100);
        EXPECT_NEAR(o->GetAlpha(), 0.5f, 1e-5);
        EXPECT_NEAR(o->GetFinalAlpha(), 0.5f, 1e-5);
        for (int i = 0; i < 6; ++i) Frame(100);
        EXPECT_EQ(o->GetAlpha(), 0.0f);
        EXPECT_FALSE(o->GetAlphaEase().IsRunning());
        EXPECT_EQ(ends, 1);

        // A zero duration applies the start and runs nothing.
        o->EasePosition(UDim2(0, 100, 0, 0), 0.0f, nullptr, eEaseOut);
        Frame(100);
        EXPECT_EQ(o->GetPosition(), UDim2());
        EXPECT_FALSE(o->GetPositionEase().IsRunning());
        EXPECT_EQ(ends, 1);

        // A second start restarts from the start it is given.
        o->EaseSize(UDim2(0, 200, 0, 100), 1.0f, &LinearEase::kInstance, eEaseIn);
        Frame(500);
        o->GetSizeEase().Start(1.0f, UDim2(0, 0, 0, 0), UDim2(0, 100, 0, 100), &LinearEase::kInstance, eEaseIn);
        EXPECT_EQ(o->GetSize(), UDim2());
        Frame(250);
        EXPECT_EQ(o->GetAbsSize(), Vec2(25, 25));

        o->EaseRotation(90.0f, 0.5f, &QuadraticEase::kInstance, eEaseOut);
        Frame(250);
        EXPECT_NEAR(o->GetRotation(), 90.0f * 0.75f, 1e-3);
        Frame(250);
        EXPECT_EQ(o->GetQuarterTurn(), 1);
    }

    TEST_F(EaseTest, AHandlerOfTheEndMayStartTheNextEase)
    {
        BaseObj* o = Make("Obj");
        int ends = 0;
        LambdaCallback chain([&](EventArgs&) {
            if (++ends == 1) o->EaseAlpha(1.0f, 0.2f, &LinearEase::kInstance, eEaseIn);
            return false;
        });
        o->ConnectEventCallback("EndEase", chain.Functor());
        o->EaseAlpha(0.0f, 0.2f, &LinearEase::kInstance, eEaseIn);
        for (int i = 0; i < 6; ++i) Frame(100);
        EXPECT_EQ(ends, 2);
        EXPECT_EQ(o->GetAlpha(), 1.0f);
    }

    TEST_F(EaseTest, AutoRepeatAfterTheDelayThenAtTheRate)
    {
        BaseObj* o = MakeRect("Repeater", 0, 0, 50, 50);
        o->SetInteractEnabled(true);
        o->SetFocusable(true);
        o->SetAutoRepeatPressEnabled(true);
        o->SetAutoRepeatPressDelay(300);
        o->SetAutoRepeatPressRate(60);
        int presses = 0;
        LambdaCallback onPress([&](EventArgs&) {
            ++presses;
            return true;
        });
        o->ConnectEventCallback("ButtonPressedEvent", onPress.Functor());
        Pointer* mouse = Pointers().CreatePointer("Mouse");
        mouse->OnMoved(10, 10);
        Frame(0);
        ASSERT_TRUE(mouse->OnButtonDown(1, 0, false));
        EXPECT_EQ(presses, 1);
        const int expected[] = {1, 1, 2, 3, 4, 5};  // frames of 100 ms: delay at 300, then one a frame
        for (int e : expected)
        {
            Frame(100);
            EXPECT_EQ(presses, e);
        }
        EXPECT_TRUE(o->GetAutoRepeat().IsRepeating());
        mouse->OnButtonUp(1, 0, false);
        Frame(100);
        EXPECT_EQ(presses, 5);
        EXPECT_FALSE(o->GetAutoRepeat().IsActive());

        // Leaving stops it too; a deleted pointer ends it quietly.
        mouse->OnButtonDown(1, 0, false);
        mouse->OnMoved(400, 400);
        Frame(0);
        EXPECT_FALSE(o->GetAutoRepeat().IsActive());
        Frame(400);
        EXPECT_EQ(presses, 6);
        mouse->OnMoved(10, 10);
        Frame(0);
        mouse->OnButtonDown(2, 0, false);
        Pointers().DeletePointer(mouse);
        Frame(400);
        EXPECT_FALSE(o->GetAutoRepeat().IsActive());
    }
}
