#include "zemgui/updaters/EaseFunction.h"

#include <cmath>
#include <cstring>

namespace ZemGui
{
    namespace
    {
        constexpr float kPi = 3.14159265358979f;
    }

    const LinearEase LinearEase::kInstance;
    const QuadraticEase QuadraticEase::kInstance;
    const CubicEase CubicEase::kInstance;
    const SineEase SineEase::kInstance;
    const CircleEase CircleEase::kInstance;
    const BackEase BackEase::kInstance;
    const ElasticEase ElasticEase::kInstance;
    const BounceEase BounceEase::kInstance;

    float EaseFunction::Ease(unsigned int mode, float t) const
    {
        switch (mode)
        {
            case eEaseIn: return EaseIn(t);
            case eEaseOut: return EaseOut(t);
            case eEaseInOut: return EaseInOut(t);
            default: return 0.0f;
        }
    }

    const EaseFunction* EaseFunction::GetDefault() { return &BackEase::kInstance; }

    const EaseFunction* EaseFunction::FindByName(const char* name)
    {
        static const struct
        {
            const char* name;
            const EaseFunction* ease;
        } kTable[] = {
            {"LinearEase", &LinearEase::kInstance},   {"QuadraticEase", &QuadraticEase::kInstance},
            {"CubicEase", &CubicEase::kInstance},     {"SineEase", &SineEase::kInstance},
            {"CircleEase", &CircleEase::kInstance},   {"BackEase", &BackEase::kInstance},
            {"ElasticEase", &ElasticEase::kInstance}, {"BounceEase", &BounceEase::kInstance},
        };
        if (!name) return nullptr;
        for (const auto& e : kTable)
            if (std::strcmp(e.name, name) == 0) return e.ease;
        return nullptr;
    }

    float LinearEase::Compute(float t) const { return t; }
    float QuadraticEase::Compute(float t) const { return t * t; }
    float CubicEase::Compute(float t) const { return t * t * t; }
    float SineEase::Compute(float t) const { return 1.0f - std::sin((1.0f - t) * kPi * 0.5f); }

    float CircleEase::Compute(float t) const
    {
        // Outside [-1, 1] the root has no value; the curve stays at its end instead of NaN.
        const float r = 1.0f - t * t;
        return 1.0f - std::sqrt(r > 0.0f ? r : 0.0f);
    }

    float BackEase::Compute(float t) const { return t * t * (1.0f - 0.5f * std::sin(t * kPi)); }

    float ElasticEase::Compute(float t) const
    {
        return 1.0f + std::pow(2.0f, -10.0f * t) * std::sin((t - 0.075f) * 2.0f * kPi / 0.3f);
    }

    float BounceEase::Compute(float t) const
    {
        if (t < 0.36363637f) return 7.5625f * t * t;
        if (t < 0.72727275f)
        {
            const float u = t - 0.54545456f;
            return 7.5625f * u * u + 0.75f;
        }
        // The last two arcs use 7.7625, not 7.5625: the curve ends a little above 1.
        if (t < 0.90909094f)
        {
            const float u = t - 0.8181818f;
            return 7.7625f * u * u + 0.9375f;
        }
        const float u = t - 0.95454544f;
        return 7.7625f * u * u + 0.984375f;
    }
}
