#include "TexPixels.h"

#include <cmath>
#include <cstring>

namespace ZemTex
{
    using namespace ZemRenderer;

    uint16_t FloatToHalf(float value)
    {
        uint32_t bits;
        memcpy(&bits, &value, 4);
        const uint32_t sign = (bits >> 16) & 0x8000;
        const int32_t exponent = static_cast<int32_t>((bits >> 23) & 0xFF) - 127 + 15;
        uint32_t mantissa = bits & 0x7FFFFF;
        if (((bits >> 23) & 0xFF) == 0xFF) return static_cast<uint16_t>(sign | 0x7C00 | (mantissa ? 0x200 : 0));
        if (exponent >= 31) return static_cast<uint16_t>(sign | 0x7C00);
        if (exponent <= 0)
        {
            if (exponent < -10) return static_cast<uint16_t>(sign);
            mantissa |= 0x800000;
            const uint32_t shift = static_cast<uint32_t>(14 - exponent);
            uint32_t half = mantissa >> shift;
            const uint32_t rest = mantissa & ((1u << shift) - 1), halfway = 1u << (shift - 1);
            if (rest > halfway || (rest == halfway && (half & 1))) ++half;
            return static_cast<uint16_t>(sign | half);
        }
        uint32_t half = (static_cast<uint32_t>(exponent) << 10) | (mantissa >> 13);
        const uint32_t rest = mantissa & 0x1FFF;
        if (rest > 0x1000 || (rest == 0x1000 && (half & 1))) ++half;
        return static_cast<uint16_t>(sign | half);
    }

    float HalfToFloat(uint16_t half)
    {
        const uint32_t sign = (half & 0x8000u) << 16;
        const uint32_t exponent = (half >> 10) & 0x1F;
        const uint32_t mantissa = half & 0x3FF;
        float value;
        if (exponent == 0)
            value = std::ldexp(static_cast<float>(mantissa), -24);
        else if (exponent == 31)
            value = mantissa ? NAN : INFINITY;
        else
            value = std::ldexp(static_cast<float>(mantissa | 0x400), static_cast<int>(exponent) - 25);
        uint32_t bits;
        memcpy(&bits, &value, 4);
        bits |= sign;
        memcpy(&value, &bits, 4);
        return value;
    }

    namespace
    {
        uint32_t Unorm(float v, uint32_t max)
        {
            if (!(v > 0.0f)) return 0;
            if (v >= 1.0f) return max;
            return static_cast<uint32_t>(std::lround(static_cast<double>(v) * max));
        }

        // A small unsigned float of `mantissaBits` (5-bit exponent) from a half: the packed
        // red-green-blue float format.
        uint32_t SmallFloat(float v, uint32_t mantissaBits)
        {
            if (!(v > 0.0f)) return 0;
            const uint32_t half = FloatToHalf(v) & 0x7FFF;
            const uint32_t shift = 10 - mantissaBits;
            uint32_t packed = (half + (1u << (shift - 1))) >> shift;
            const uint32_t maxFinite = (30u << mantissaBits) | ((1u << mantissaBits) - 1);
            return packed > maxFinite ? maxFinite : packed;
        }
        float FromSmallFloat(uint32_t bits, uint32_t mantissaBits)
        {
            return HalfToFloat(static_cast<uint16_t>(bits << (10 - mantissaBits)));
        }

        template <class T>
        void Put(uint8_t*& out, T v)
        {
            memcpy(out, &v, sizeof(T));
            out += sizeof(T);
        }
        template <class T>
        T Get(const uint8_t*& in)
        {
            T v;
            memcpy(&v, in, sizeof(T));
            in += sizeof(T);
            return v;
        }
    }

    bool EncodePixels(const Image& image, const TextureFormatInfo& format, uint8_t* out)
    {
        if (format.IsCompressed()) return false;
        const size_t count = size_t(image.uWidth) * image.uHeight;
        for (size_t i = 0; i < count; ++i)
        {
            const float* p = &image.aPixels[i * 4];
            switch (format.uCode)
            {
            case TFMT_BGRA8:
                Put<uint8_t>(out, ToByte(p[2])), Put<uint8_t>(out, ToByte(p[1]));
                Put<uint8_t>(out, ToByte(p[0])), Put<uint8_t>(out, ToByte(p[3]));
                break;
            case TFMT_RGBA8_TYPELESS:
            case TFMT_RGBA8:
            case TFMT_RGBA8_UINT:
            case TFMT_RGBA8_UINT_ELEMENT:
                for (int c = 0; c < 4; ++c) Put<uint8_t>(out, ToByte(p[c]));
                break;
            case TFMT_RGB8:
                for (int c = 0; c < 3; ++c) Put<uint8_t>(out, ToByte(p[c]));
                break;
            case TFMT_R8_UINT: Put<uint8_t>(out, ToByte(p[0])); break;
            case TFMT_RG16_UINT:
                for (int c = 0; c < 2; ++c) Put<uint16_t>(out, static_cast<uint16_t>(Unorm(p[c], 0xFFFF)));
                break;
            case TFMT_RGBA16_UINT:
                for (int c = 0; c < 4; ++c) Put<uint16_t>(out, static_cast<uint16_t>(Unorm(p[c], 0xFFFF)));
                break;
            case TFMT_R16_UINT:
            case TFMT_D16: Put<uint16_t>(out, static_cast<uint16_t>(Unorm(p[0], 0xFFFF))); break;
            case TFMT_RGB10A2:
            case TFMT_RGB10A2_UINT:
                Put<uint32_t>(out, Unorm(p[0], 1023) | (Unorm(p[1], 1023) << 10) | (Unorm(p[2], 1023) << 20) |
                                       (Unorm(p[3], 3) << 30));
                break;
            // Depth in the high 24 bits, stencil (from green) in the low 8: the words the
            // device takes as they are.
            case TFMT_D24S8: Put<uint32_t>(out, (Unorm(p[0], 0xFFFFFF) << 8) | Unorm(p[1], 255)); break;
            case TFMT_R16F: Put<uint16_t>(out, FloatToHalf(p[0])); break;
            case TFMT_RG16F:
                for (int c = 0; c < 2; ++c) Put<uint16_t>(out, FloatToHalf(p[c]));
                break;
            case TFMT_RGBA16F:
                for (int c = 0; c < 4; ++c) Put<uint16_t>(out, FloatToHalf(p[c]));
                break;
            case TFMT_R32F: Put<float>(out, p[0]); break;
            case TFMT_RG32F:
                for (int c = 0; c < 2; ++c) Put<float>(out, p[c]);
                break;
            case TFMT_RGB32F:
                for (int c = 0; c < 3; ++c) Put<float>(out, p[c]);
                break;
            case TFMT_RGBA32F:
                for (int c = 0; c < 4; ++c) Put<float>(out, p[c]);
                break;
            case TFMT_R11G11B10F:
                Put<uint32_t>(out, SmallFloat(p[0], 6) | (SmallFloat(p[1], 6) << 11) | (SmallFloat(p[2], 5) << 22));
                break;
            case TFMT_R32_UINT: Put<uint32_t>(out, Unorm(p[0], 0xFFFFFFFFu)); break;
            default: return false;
            }
        }
        return true;
    }

    bool DecodePixels(const uint8_t* in, uint32_t width, uint32_t height, const TextureFormatInfo& format, Image& out)
    {
        if (format.IsCompressed()) return false;
        out = Image(width, height);
        const size_t count = size_t(width) * height;
        for (size_t i = 0; i < count; ++i)
        {
            float* p = &out.aPixels[i * 4];
            p[3] = 1.0f;
            int channels = 4;
            switch (format.uCode)
            {
            case TFMT_BGRA8:
                p[2] = Get<uint8_t>(in) / 255.0f, p[1] = Get<uint8_t>(in) / 255.0f;
                p[0] = Get<uint8_t>(in) / 255.0f, p[3] = Get<uint8_t>(in) / 255.0f;
                break;
            case TFMT_RGBA8_TYPELESS:
            case TFMT_RGBA8:
            case TFMT_RGBA8_UINT:
            case TFMT_RGBA8_UINT_ELEMENT:
                for (int c = 0; c < 4; ++c) p[c] = Get<uint8_t>(in) / 255.0f;
                break;
            case TFMT_RGB8:
                for (int c = 0; c < 3; ++c) p[c] = Get<uint8_t>(in) / 255.0f;
                break;
            case TFMT_R8_UINT: p[0] = Get<uint8_t>(in) / 255.0f, channels = 1; break;
            case TFMT_RG16_UINT:
                for (int c = 0; c < 2; ++c) p[c] = Get<uint16_t>(in) / 65535.0f;
                channels = 2;
                break;
            case TFMT_RGBA16_UINT:
                for (int c = 0; c < 4; ++c) p[c] = Get<uint16_t>(in) / 65535.0f;
                break;
            case TFMT_R16_UINT:
            case TFMT_D16: p[0] = Get<uint16_t>(in) / 65535.0f, channels = 1; break;
            case TFMT_RGB10A2:
            case TFMT_RGB10A2_UINT:
            {
                const uint32_t v = Get<uint32_t>(in);
                p[0] = (v & 1023) / 1023.0f, p[1] = ((v >> 10) & 1023) / 1023.0f;
                p[2] = ((v >> 20) & 1023) / 1023.0f, p[3] = (v >> 30) / 3.0f;
                break;
            }
            case TFMT_D24S8:
            {
                const uint32_t v = Get<uint32_t>(in);
                p[0] = (v >> 8) / 16777215.0f, p[1] = (v & 255) / 255.0f, p[2] = 0.0f;
                break;
            }
            case TFMT_R16F: p[0] = HalfToFloat(Get<uint16_t>(in)), channels = 1; break;
            case TFMT_RG16F:
                for (int c = 0; c < 2; ++c) p[c] = HalfToFloat(Get<uint16_t>(in));
                channels = 2;
                break;
            case TFMT_RGBA16F:
                for (int c = 0; c < 4; ++c) p[c] = HalfToFloat(Get<uint16_t>(in));
                break;
            case TFMT_R32F: p[0] = Get<float>(in), channels = 1; break;
            case TFMT_RG32F:
                for (int c = 0; c < 2; ++c) p[c] = Get<float>(in);
                channels = 2;
                break;
            case TFMT_RGB32F:
                for (int c = 0; c < 3; ++c) p[c] = Get<float>(in);
                break;
            case TFMT_RGBA32F:
                for (int c = 0; c < 4; ++c) p[c] = Get<float>(in);
                break;
            case TFMT_R11G11B10F:
            {
                const uint32_t v = Get<uint32_t>(in);
                p[0] = FromSmallFloat(v & 0x7FF, 6), p[1] = FromSmallFloat((v >> 11) & 0x7FF, 6);
                p[2] = FromSmallFloat(v >> 22, 5);
                break;
            }
            case TFMT_R32_UINT: p[0] = static_cast<float>(Get<uint32_t>(in) / 4294967295.0), channels = 1; break;
            default: return false;
            }
            if (channels == 1) p[1] = p[2] = p[0];
            if (channels == 2) p[2] = 0.0f;
        }
        return true;
    }
}
