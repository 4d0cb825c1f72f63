#pragma once
// Texels of the uncompressed formats to and from pictures.
#include <cstdint>

#include "TexImage.h"
#include "zemrenderer/texture/TextureFormat.h"

namespace ZemTex
{
    uint16_t FloatToHalf(float value);
    float HalfToFloat(uint16_t half);

    // Rows of the picture as the format lays them out in a file. False for a block format.
    bool EncodePixels(const Image& image, const ZemRenderer::TextureFormatInfo& format, uint8_t* out);
    // The reverse; one-channel formats come back grey, two-channel ones as red and green.
    bool DecodePixels(const uint8_t* in, uint32_t width, uint32_t height, const ZemRenderer::TextureFormatInfo& format,
                      Image& out);
}
