#pragma once
// An animated property: an updater that stays dirty while its ease runs and applies each
// step through the owner's ordinary setter, so an ease raises the same marks as a set.
#include "zemgui/GuiTypes.h"
#include "zemgui/updaters/EaseFunction.h"
#include "zemgui/updaters/ObjUpdater.h"

namespace ZemGui
{
    struct PositionSetter
    {
        typedef UDim2 Value;
        static void Apply(BaseObj* owner, const Value& v);
        static Value Lerp(const Value& a, const Value& b, float e)
        {
            return UDim2(a.x.scale + (b.x.scale - a.x.scale) * e, a.x.offset + (b.x.offset - a.x.offset) * e,
                         a.y.scale + (b.y.scale - a.y.scale) * e, a.y.offset + (b.y.offset - a.y.offset) * e);
        }
    };

    struct SizeSetter
    {
        typedef UDim2 Value;
        static void Apply(BaseObj* owner, const Value& v);
        static Value Lerp(const Value& a, const Value& b, float e) { return PositionSetter::Lerp(a, b, e); }
    };

    struct AlphaSetter
    {
        typedef float Value;
        static void Apply(BaseObj* owner, const Value& v);
        static Value Lerp(Value a, Value b, float e) { return a + (b - a) * e; }
    };

    struct RotationSetter
    {
        typedef float Value;
        static void Apply(BaseObj* owner, const Value& v);
        static Value Lerp(Value a, Value b, float e) { return a + (b - a) * e; }
    };

    // Seconds of the current frame, and the end-of-ease notice to the owner.
    float GetEaseFrameSeconds();
    void NotifyEaseEnded(BaseObj* owner);

    template <class Setter, class Owner = BaseObj>
    class EaseValueUpdater : public ObjUpdater
    {
    public:
        typedef typename Setter::Value Value;
        explicit EaseValueUpdater(Owner* owner) : ObjUpdater(owner) {}

        // A duration of 0 (or below, or not finite) applies the start value and runs nothing.
        void Start(float seconds, const Value& from, const Value& to, const EaseFunction* ease, unsigned int mode)
        {
            m_fElapsed = 0.0f;
            m_fDuration = seconds;
            m_kStart = from;
            m_kEnd = to;
            m_pEase = ease ? ease : EaseFunction::GetDefault();
            m_uEaseMode = mode;
            if (m_fDuration > 0.0f && std::isfinite(m_fDuration))
                SetDirty();
            else
                TakeDirty();
            Setter::Apply(m_pOwner, m_kStart);
        }

        void Stop() { TakeDirty(); }

        void Update() override
        {
            if (!m_bDirty) return;
            m_fElapsed += GetEaseFrameSeconds();
            float t = m_fElapsed / m_fDuration;
            if (t > 1.0f) t = 1.0f;
            const float e = m_pEase->Ease(m_uEaseMode, t);
            // Cleared before the value goes out: the setter may mark, and a handler of the
            // end may start the next ease.
            const bool running = m_fDuration > m_fElapsed;
            if (!running) TakeDirty();
            Setter::Apply(m_pOwner, Setter::Lerp(m_kStart, m_kEnd, e));
            if (!running) NotifyEaseEnded(m_pOwner);
        }

        bool IsRunning() const { return m_bDirty; }
        float GetElapsed() const { return m_fElapsed; }
        float GetDuration() const { return m_fDuration; }
        const Value& GetStart() const { return m_kStart; }
        const Value& GetEnd() const { return m_kEnd; }

    private:
        Value m_kStart{};
        Value m_kEnd{};
        float m_fDuration = 0.0f;
        float m_fElapsed = 0.0f;
        const EaseFunction* m_pEase = EaseFunction::GetDefault();
        unsigned int m_uEaseMode = eEaseIn;
    };
}
