#include "common/utils/Hash.h"

#include <cstdint>
#include <cstring>

namespace
{
    constexpr uint32_t kMul = 0x5BD1E995u;
    constexpr int kShift = 24;

    inline uint32_t LoadLE32(const unsigned char* p)
    {
        uint32_t v;
        std::memcpy(&v, p, sizeof v);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
        v = __builtin_bswap32(v);
#endif
        return v;
    }

    // The length is folded in as 32 bits, as the published algorithm does.
    uint32_t Murmur2(const unsigned char* p, size_t length, uint32_t seed)
    {
        uint32_t h = seed ^ static_cast<uint32_t>(length);
        size_t n = length;
        while (n >= 4)
        {
            uint32_t k = LoadLE32(p);
            k *= kMul;
            k ^= k >> kShift;
            k *= kMul;
            h *= kMul;
            h ^= k;
            p += 4;
            n -= 4;
        }
        switch (n)
        {
        case 3: h ^= static_cast<uint32_t>(p[2]) << 16; [[fallthrough]];
        case 2: h ^= static_cast<uint32_t>(p[1]) << 8; [[fallthrough]];
        case 1: h ^= static_cast<uint32_t>(p[0]); h *= kMul;
        }
        h ^= h >> 13;
        h *= kMul;
        h ^= h >> 15;
        return h;
    }
}

unsigned int GenerateUIntIdFromBuffer(const void* data, size_t length, unsigned int seed)
{
    if (!data) length = 0;
    return Murmur2(static_cast<const unsigned char*>(data), length, seed);
}

unsigned int GenerateUIntIdFromString(const char* text, const char* suffix, unsigned int seed)
{
    if (!text) return 0;
    uint32_t h = Murmur2(reinterpret_cast<const unsigned char*>(text), std::strlen(text), seed);
    if (suffix) h = Murmur2(reinterpret_cast<const unsigned char*>(suffix), std::strlen(suffix), h);
    return h;
}
