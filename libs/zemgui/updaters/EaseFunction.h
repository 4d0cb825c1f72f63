#pragma once
// Ease curves: one stateless instance per class. `Compute` is the curve; in, out and
// in-out are built from it (bounce and elastic have their curve as the out form).
namespace ZemGui
{
    enum EaseMode : unsigned int
    {
        eEaseIn = 0,
        eEaseOut = 1,
        eEaseInOut = 2,
    };

    class EaseFunction
    {
    public:
        virtual ~EaseFunction() = default;
        virtual float EaseIn(float t) const { return Compute(t); }
        virtual float EaseOut(float t) const { return 1.0f - Compute(1.0f - t); }
        virtual float EaseInOut(float t) const
        {
            return t < 0.5f ? 0.5f * EaseIn(2.0f * t) : 0.5f * EaseOut(2.0f * (t - 0.5f)) + 0.5f;
        }
        virtual float Compute(float t) const = 0;

        // By mode: 0 in, 1 out, 2 in-out; any other mode gives 0.
        float Ease(unsigned int mode, float t) const;
        // The ease used when none is given.
        static const EaseFunction* GetDefault();
        // By class name ("LinearEase", "BounceEase", ...); null when unknown.
        static const EaseFunction* FindByName(const char* name);
    };

    class LinearEase : public EaseFunction
    {
    public:
        float Compute(float t) const override;
        static const LinearEase kInstance;
    };

    class QuadraticEase : public EaseFunction
    {
    public:
        float Compute(float t) const override;
        static const QuadraticEase kInstance;
    };

    class CubicEase : public EaseFunction
    {
    public:
        float Compute(float t) const override;
        static const CubicEase kInstance;
    };

    class SineEase : public EaseFunction
    {
    public:
        float Compute(float t) const override;
        static const SineEase kInstance;
    };

    class CircleEase : public EaseFunction
    {
    public:
        float Compute(float t) const override;
        static const CircleEase kInstance;
    };

    class BackEase : public EaseFunction
    {
    public:
        float Compute(float t) const override;
        static const BackEase kInstance;
    };

    class ElasticEase : public EaseFunction
    {
    public:
        float EaseIn(float t) const override { return 1.0f - Compute(1.0f - t); }
        float EaseOut(float t) const override { return Compute(t); }
        float Compute(float t) const override;
        static const ElasticEase kInstance;
    };

    class BounceEase : public EaseFunction
    {
    public:
        float EaseIn(float t) const override { return 1.0f - Compute(1.0f - t); }
        float EaseOut(float t) const override { return Compute(t); }
        float Compute(float t) const override;
        static const BounceEase kInstance;
    };
}
