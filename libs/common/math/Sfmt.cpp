#include "common/math/Sfmt.h"

#include <mutex>

#include "common/system/debug/Log.h"

namespace Common::Math
{
    namespace
    {
        constexpr int kPos1 = 122;
        constexpr int kSl1 = 18;
        constexpr int kSl2 = 1;
        constexpr int kSr1 = 11;
        constexpr int kSr2 = 1;
        constexpr uint32_t kMask[4] = {0xdfffffefu, 0xddfecb7fu, 0xbffaffffu, 0xbffffff6u};
        constexpr uint32_t kParity[4] = {0x00000001u, 0x00000000u, 0x00000000u, 0x13c9c08bu};

        // 128-bit shifts by whole bytes, the words taken as little-endian.
        void LeftShift128(uint32_t out[4], const uint32_t in[4], int bytes)
        {
            const uint64_t th = (static_cast<uint64_t>(in[3]) << 32) | in[2];
            const uint64_t tl = (static_cast<uint64_t>(in[1]) << 32) | in[0];
            const int bits = bytes * 8;
            const uint64_t oh = (th << bits) | (tl >> (64 - bits));
            const uint64_t ol = tl << bits;
            out[0] = static_cast<uint32_t>(ol);
            out[1] = static_cast<uint32_t>(ol >> 32);
            out[2] = static_cast<uint32_t>(oh);
            out[3] = static_cast<uint32_t>(oh >> 32);
        }

        void RightShift128(uint32_t out[4], const uint32_t in[4], int bytes)
        {
            const uint64_t th = (static_cast<uint64_t>(in[3]) << 32) | in[2];
            const uint64_t tl = (static_cast<uint64_t>(in[1]) << 32) | in[0];
            const int bits = bytes * 8;
            const uint64_t oh = th >> bits;
            const uint64_t ol = (tl >> bits) | (th << (64 - bits));
            out[0] = static_cast<uint32_t>(ol);
            out[1] = static_cast<uint32_t>(ol >> 32);
            out[2] = static_cast<uint32_t>(oh);
            out[3] = static_cast<uint32_t>(oh >> 32);
        }

        void Recursion(uint32_t r[4], const uint32_t a[4], const uint32_t b[4], const uint32_t c[4],
                       const uint32_t d[4])
        {
            uint32_t x[4];
            uint32_t y[4];
            LeftShift128(x, a, kSl2);
            RightShift128(y, c, kSr2);
            for (int i = 0; i < 4; ++i)
                r[i] = a[i] ^ x[i] ^ ((b[i] >> kSr1) & kMask[i]) ^ y[i] ^ (d[i] << kSl1);
        }
    }

    void CSfmt::Seed(uint32_t seed)
    {
        m_aState[0] = seed;
        for (int i = 1; i < N32; ++i)
            m_aState[i] = 1812433253u * (m_aState[i - 1] ^ (m_aState[i - 1] >> 30)) + static_cast<uint32_t>(i);
        m_iIndex = N32;
        CertifyPeriod();
        m_bSeeded = true;
    }

    // Fixes the state so that the period is the full 2^19937 - 1.
    void CSfmt::CertifyPeriod()
    {
        uint32_t inner = 0;
        for (int i = 0; i < 4; ++i) inner ^= m_aState[i] & kParity[i];
        for (int i = 16; i > 0; i >>= 1) inner ^= inner >> i;
        if (inner & 1) return;
        for (int i = 0; i < 4; ++i)
        {
            uint32_t work = 1;
            for (int j = 0; j < 32; ++j, work <<= 1)
            {
                if (work & kParity[i])
                {
                    m_aState[i] ^= work;
                    return;
                }
            }
        }
    }

    void CSfmt::GenerateAll()
    {
        uint32_t* state = m_aState;
        const uint32_t* r1 = state + 4 * (N - 2);
        const uint32_t* r2 = state + 4 * (N - 1);
        int i = 0;
        for (; i < N - kPos1; ++i)
        {
            Recursion(state + 4 * i, state + 4 * i, state + 4 * (i + kPos1), r1, r2);
            r1 = r2;
            r2 = state + 4 * i;
        }
        for (; i < N; ++i)
        {
            Recursion(state + 4 * i, state + 4 * i, state + 4 * (i + kPos1 - N), r1, r2);
            r1 = r2;
            r2 = state + 4 * i;
        }
    }

    uint32_t CSfmt::Rand32()
    {
        if (!ZEM_ASSERT(m_bSeeded, "Random generator used before it was seeded")) Seed(0);
        if (m_iIndex >= N32)
        {
            GenerateAll();
            m_iIndex = 0;
        }
        return m_aState[m_iIndex++];
    }

    uint64_t CSfmt::Rand64()
    {
        const uint64_t low = Rand32();
        return low | (static_cast<uint64_t>(Rand32()) << 32);
    }

    namespace
    {
        std::mutex s_kProcessMutex;
        CSfmt s_kProcessGenerator;
    }

    void SeedRandom(uint32_t seed)
    {
        std::lock_guard<std::mutex> lock(s_kProcessMutex);
        s_kProcessGenerator.Seed(seed);
    }

    uint32_t Rand32()
    {
        std::lock_guard<std::mutex> lock(s_kProcessMutex);
        return s_kProcessGenerator.Rand32();
    }

    uint64_t Rand64()
    {
        std::lock_guard<std::mutex> lock(s_kProcessMutex);
        return s_kProcessGenerator.Rand64();
    }
}
