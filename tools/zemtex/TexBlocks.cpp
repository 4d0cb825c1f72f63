#include "TexBlocks.h"

#include <algorithm>
#include <cstring>

#include <stb_dxt.h>

namespace ZemTex
{
    using namespace ZemRenderer;

    namespace
    {
        enum class Kind
        {
            BC1,
            BC2,
            BC3,
            BC4,
            BC5,
            None
        };

        Kind KindOf(uint32_t code)
        {
            switch (code)
            {
            case TFMT_BC1:
            case TFMT_LIN_BC1: return Kind::BC1;
            case TFMT_BC2:
            case TFMT_LIN_BC2: return Kind::BC2;
            case TFMT_BC3:
            case TFMT_LIN_BC3: return Kind::BC3;
            case TFMT_BC4: return Kind::BC4;
            case TFMT_BC5: return Kind::BC5;
            default: return Kind::None;
            }
        }

        void Expand565(uint16_t c, int out[3])
        {
            const int r = (c >> 11) & 31, g = (c >> 5) & 63, b = c & 31;
            out[0] = (r << 3) | (r >> 2);
            out[1] = (g << 2) | (g >> 4);
            out[2] = (b << 3) | (b >> 2);
        }

        // Colours of a BC1-style block into rgba[16][4]; `fourColours` for BC2 and BC3.
        void DecodeColour(const uint8_t* block, bool fourColours, uint8_t rgba[16][4])
        {
            const uint16_t c0 = static_cast<uint16_t>(block[0] | (block[1] << 8));
            const uint16_t c1 = static_cast<uint16_t>(block[2] | (block[3] << 8));
            int palette[4][4];
            Expand565(c0, palette[0]);
            Expand565(c1, palette[1]);
            palette[0][3] = palette[1][3] = 255;
            if (fourColours || c0 > c1)
            {
                for (int c = 0; c < 3; ++c)
                {
                    palette[2][c] = (2 * palette[0][c] + palette[1][c] + 1) / 3;
                    palette[3][c] = (palette[0][c] + 2 * palette[1][c] + 1) / 3;
                }
                palette[2][3] = palette[3][3] = 255;
            }
            else
            {
                for (int c = 0; c < 3; ++c)
                {
                    palette[2][c] = (palette[0][c] + palette[1][c]) / 2;
                    palette[3][c] = 0;
                }
                palette[2][3] = 255;
                palette[3][3] = 0;
            }
            const uint32_t indices = static_cast<uint32_t>(block[4]) | (static_cast<uint32_t>(block[5]) << 8) |
                                     (static_cast<uint32_t>(block[6]) << 16) | (static_cast<uint32_t>(block[7]) << 24);
            for (int i = 0; i < 16; ++i)
                for (int c = 0; c < 4; ++c) rgba[i][c] = static_cast<uint8_t>(palette[(indices >> (2 * i)) & 3][c]);
        }

        // One channel of a BC4-style block (BC3 alpha, BC4, each half of BC5).
        void DecodeChannel(const uint8_t* block, uint8_t out[16])
        {
            const int a0 = block[0], a1 = block[1];
            int values[8] = {a0, a1};
            if (a0 > a1)
                for (int i = 1; i < 7; ++i) values[i + 1] = ((7 - i) * a0 + i * a1 + 3) / 7;
            else
            {
                for (int i = 1; i < 5; ++i) values[i + 1] = ((5 - i) * a0 + i * a1 + 2) / 5;
                values[6] = 0;
                values[7] = 255;
            }
            uint64_t bits = 0;
            for (int i = 0; i < 6; ++i) bits |= static_cast<uint64_t>(block[2 + i]) << (8 * i);
            for (int i = 0; i < 16; ++i) out[i] = static_cast<uint8_t>(values[(bits >> (3 * i)) & 7]);
        }
    }

    bool EncodeBlocks(const Image& image, const TextureFormatInfo& format, uint8_t* out)
    {
        const Kind kind = KindOf(format.uCode);
        if (kind == Kind::None) return false;
        const uint32_t bw = (image.uWidth + 3) / 4, bh = (image.uHeight + 3) / 4;
        for (uint32_t by = 0; by < bh; ++by)
            for (uint32_t bx = 0; bx < bw; ++bx)
            {
                uint8_t rgba[16 * 4], red[16], rg[32];
                for (uint32_t i = 0; i < 16; ++i)
                {
                    const uint32_t x = std::min(bx * 4 + (i & 3), image.uWidth - 1);
                    const uint32_t y = std::min(by * 4 + (i >> 2), image.uHeight - 1);
                    const float* p = image.At(x, y);
                    for (int c = 0; c < 4; ++c) rgba[i * 4 + c] = ToByte(p[c]);
                    red[i] = rgba[i * 4];
                    rg[i * 2] = rgba[i * 4];
                    rg[i * 2 + 1] = rgba[i * 4 + 1];
                }
                switch (kind)
                {
                case Kind::BC1:
                    stb_compress_dxt_block(out, rgba, 0, STB_DXT_HIGHQUAL);
                    out += 8;
                    break;
                case Kind::BC2:
                    // Explicit alpha, 4 bits a texel, then a colour block.
                    for (int i = 0; i < 8; ++i)
                        out[i] = static_cast<uint8_t>(((rgba[(2 * i) * 4 + 3] * 15 + 127) / 255) |
                                                      (((rgba[(2 * i + 1) * 4 + 3] * 15 + 127) / 255) << 4));
                    stb_compress_dxt_block(out + 8, rgba, 0, STB_DXT_HIGHQUAL);
                    out += 16;
                    break;
                case Kind::BC3:
                    stb_compress_dxt_block(out, rgba, 1, STB_DXT_HIGHQUAL);
                    out += 16;
                    break;
                case Kind::BC4:
                    stb_compress_bc4_block(out, red);
                    out += 8;
                    break;
                case Kind::BC5:
                    stb_compress_bc5_block(out, rg);
                    out += 16;
                    break;
                case Kind::None: break;
                }
            }
        return true;
    }

    bool DecodeBlocks(const uint8_t* in, uint32_t width, uint32_t height, const TextureFormatInfo& format, Image& out)
    {
        const Kind kind = KindOf(format.uCode);
        if (kind == Kind::None) return false;
        out = Image(width, height);
        const uint32_t bw = (width + 3) / 4, bh = (height + 3) / 4;
        for (uint32_t by = 0; by < bh; ++by)
            for (uint32_t bx = 0; bx < bw; ++bx)
            {
                uint8_t rgba[16][4];
                uint8_t channel[16];
                switch (kind)
                {
                case Kind::BC1:
                    DecodeColour(in, false, rgba);
                    in += 8;
                    break;
                case Kind::BC2:
                    DecodeColour(in + 8, true, rgba);
                    for (int i = 0; i < 16; ++i) rgba[i][3] = static_cast<uint8_t>(((in[i / 2] >> (4 * (i & 1))) & 15) * 17);
                    in += 16;
                    break;
                case Kind::BC3:
                    DecodeColour(in + 8, true, rgba);
                    DecodeChannel(in, channel);
                    for (int i = 0; i < 16; ++i) rgba[i][3] = channel[i];
                    in += 16;
                    break;
                case Kind::BC4:
                    DecodeChannel(in, channel);
                    for (int i = 0; i < 16; ++i) rgba[i][0] = rgba[i][1] = rgba[i][2] = channel[i], rgba[i][3] = 255;
                    in += 8;
                    break;
                case Kind::BC5:
                    DecodeChannel(in, channel);
                    for (int i = 0; i < 16; ++i) rgba[i][0] = channel[i], rgba[i][2] = 0, rgba[i][3] = 255;
                    DecodeChannel(in + 8, channel);
                    for (int i = 0; i < 16; ++i) rgba[i][1] = channel[i];
                    in += 16;
                    break;
                case Kind::None: break;
                }
                for (uint32_t i = 0; i < 16; ++i)
                {
                    const uint32_t x = bx * 4 + (i & 3), y = by * 4 + (i >> 2);
                    if (x >= width || y >= height) continue;
                    float* p = out.At(x, y);
                    for (int c = 0; c < 4; ++c) p[c] = rgba[i][c] / 255.0f;
                }
            }
        return true;
    }
}
