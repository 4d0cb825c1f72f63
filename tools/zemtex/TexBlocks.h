#pragma once
// The block formats: BC1 to BC5, 4x4 texels a block. Encoding goes through stb's
// compressor (BC2's alpha is packed here); decoding is our own.
#include <cstdint>

#include "TexImage.h"
#include "zemrenderer/texture/TextureFormat.h"

namespace ZemTex
{
    // Rows of blocks of the picture; edges of sizes that are not a multiple of 4 repeat
    // their last texel. False for a format that is not a block format.
    bool EncodeBlocks(const Image& image, const ZemRenderer::TextureFormatInfo& format, uint8_t* out);
    bool DecodeBlocks(const uint8_t* in, uint32_t width, uint32_t height, const ZemRenderer::TextureFormatInfo& format,
                      Image& out);
}
