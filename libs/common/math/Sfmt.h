#pragma once
// SFMT19937: the SIMD-oriented Fast Mersenne Twister, period 2^19937 - 1, state of 156
// 128-bit words. Output matches the published generator word for word.
#include <cstdint>

namespace Common::Math
{
    class CSfmt
    {
    public:
        static constexpr int N = 156;
        static constexpr int N32 = N * 4;

        void Seed(uint32_t seed);
        bool IsSeeded() const { return m_bSeeded; }
        uint32_t Rand32();
        // Two consecutive 32-bit outputs, the first in the low half.
        uint64_t Rand64();

    private:
        void GenerateAll();
        void CertifyPeriod();

        uint32_t m_aState[N32];
        int m_iIndex = N32;
        bool m_bSeeded = false;
    };

    // The process generator, seeded once at engine start. Safe to draw from any thread.
    // Drawing before seeding is reported, and the generator then seeds itself with 0.
    void SeedRandom(uint32_t seed);
    uint32_t Rand32();
    uint64_t Rand64();
}
