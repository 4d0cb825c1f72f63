#pragma once
// Frames per second over the last 32 frames: EndScene stores its time in a ring of 32
// entries, and the rate is 32 frames over the time since the entry 32 frames back.
#include <cstdint>

namespace ZemRenderer
{
    class FrameRateRing
    {
    public:
        static constexpr uint32_t kSize = 32;

        // Stores `nowMs` and gives the new rate, rounded down to a tenth.
        float AddFrame(uint64_t nowMs);
        float GetFramesPerSecond() const { return m_fFramesPerSecond; }

    private:
        uint64_t m_auTimes[kSize] = {};
        uint32_t m_uIndex = 0;
        float m_fFramesPerSecond = 0.0f;
    };
}
