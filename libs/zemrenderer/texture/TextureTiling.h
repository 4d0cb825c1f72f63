#pragma once
// The tiled layout of texture files: each band of 256 lines holds its tiles of 256
// columns one after another, each tile in rows of blocks. Tiles at the right and bottom
// edges are cut to the mip, so a mip smaller than a tile is laid out as an untiled one.
#include <cstddef>
#include <cstdint>

#include "zemrenderer/texture/TextureFormat.h"

namespace ZemRenderer
{
    // Rearranges one mip (all its slices) from rows of blocks to tiles; `tiled` takes as
    // many bytes as `rows`.
    void TileMip(const uint8_t* rows, uint8_t* tiled, uint32_t width, uint32_t height, uint32_t depth,
                 const TextureFormatInfo& format);
    // The reverse.
    void UntileMip(const uint8_t* tiled, uint8_t* rows, uint32_t width, uint32_t height, uint32_t depth,
                   const TextureFormatInfo& format);
}
