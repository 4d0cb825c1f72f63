#pragma once
// In-place byte reversal of values of 2, 4 and 8 bytes.
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ZemRenderer
{
    inline uint32_t ByteSwap32(uint32_t v) { return __builtin_bswap32(v); }

    inline void ByteSwapInPlace(void* value, size_t size)
    {
        unsigned char* p = static_cast<unsigned char*>(value);
        switch (size)
        {
        case 2: { uint16_t v; std::memcpy(&v, p, 2); v = __builtin_bswap16(v); std::memcpy(p, &v, 2); break; }
        case 4: { uint32_t v; std::memcpy(&v, p, 4); v = __builtin_bswap32(v); std::memcpy(p, &v, 4); break; }
        case 8: { uint64_t v; std::memcpy(&v, p, 8); v = __builtin_bswap64(v); std::memcpy(p, &v, 8); break; }
        default:
            for (size_t i = 0, j = size ? size - 1 : 0; i < j; ++i, --j)
            {
                const unsigned char t = p[i];
                p[i] = p[j];
                p[j] = t;
            }
            break;
        }
    }
}
