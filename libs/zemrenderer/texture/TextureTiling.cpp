#include "zemrenderer/texture/TextureTiling.h"

#include <cstring>

#include "zemrenderer/texture/DdsHeader.h"

namespace ZemRenderer
{
    namespace
    {
        template <bool ToTiles>
        void Rearrange(const uint8_t* from, uint8_t* to, uint32_t width, uint32_t height, uint32_t depth,
                       const TextureFormatInfo& format)
        {
            const uint32_t block = format.uBlock;
            const size_t bb = format.GetBlockBytes();
            const uint32_t bw = (width + block - 1) / block, bh = (height + block - 1) / block;
            const uint32_t tile = Dds::kTileSize / block;
            const size_t rowBytes = bw * bb, sliceBytes = rowBytes * bh;
            for (uint32_t z = 0; z < depth; ++z)
            {
                size_t tiledAt = z * sliceBytes;
                for (uint32_t bandY = 0; bandY < bh; bandY += tile)
                {
                    const uint32_t bandRows = bh - bandY < tile ? bh - bandY : tile;
                    for (uint32_t tileX = 0; tileX < bw; tileX += tile)
                    {
                        const uint32_t cols = bw - tileX < tile ? bw - tileX : tile;
                        for (uint32_t y = bandY; y < bandY + bandRows; ++y)
                        {
                            const size_t rowAt = z * sliceBytes + y * rowBytes + tileX * bb;
                            if (ToTiles)
                                memcpy(to + tiledAt, from + rowAt, cols * bb);
                            else
                                memcpy(to + rowAt, from + tiledAt, cols * bb);
                            tiledAt += cols * bb;
                        }
                    }
                }
            }
        }
    }

    void TileMip(const uint8_t* rows, uint8_t* tiled, uint32_t width, uint32_t height, uint32_t depth,
                 const TextureFormatInfo& format)
    {
        Rearrange<true>(rows, tiled, width, height, depth, format);
    }

    void UntileMip(const uint8_t* tiled, uint8_t* rows, uint32_t width, uint32_t height, uint32_t depth,
                   const TextureFormatInfo& format)
    {
        Rearrange<false>(tiled, rows, width, height, depth, format);
    }
}
