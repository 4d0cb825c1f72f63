#include "zemrenderer/device/FrameRateRing.h"

#include <cmath>

namespace ZemRenderer
{
    float FrameRateRing::AddFrame(uint64_t nowMs)
    {
        m_uIndex = (m_uIndex + 1) & (kSize - 1);
        m_auTimes[m_uIndex] = nowMs;
        const uint64_t oldest = m_auTimes[(m_uIndex + 1) & (kSize - 1)];
        const uint64_t period = nowMs - oldest;
        const double rate = period ? 32000.0 / static_cast<double>(period) : 0.0;
        m_fFramesPerSecond = static_cast<float>(std::floor(rate * 10.0) / 10.0);
        return m_fFramesPerSecond;
    }
}
