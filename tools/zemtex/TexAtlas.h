#pragma once
// Many small pictures packed into one texture, and the GUI imageset that names each
// one's rectangle in it.
#include <cstdint>
#include <string>
#include <vector>

#include "TexImage.h"

namespace ZemTex
{
    struct AtlasItem
    {
        std::string szName;
        Image kImage;
        uint32_t uX = 0;
        uint32_t uY = 0;
    };

    // Places the items on shelves, tallest first (ties by name), `padding` texels apart,
    // in a width of `width` (0: the smallest power of two that makes the atlas about
    // square). The atlas's size is a multiple of 4 in both directions. Same items, same
    // places.
    bool PackAtlas(std::vector<AtlasItem>& items, uint32_t padding, uint32_t width, uint32_t& outWidth,
                   uint32_t& outHeight, std::string& error);
    Image ComposeAtlas(const std::vector<AtlasItem>& items, uint32_t width, uint32_t height);
    // The imageset file: `Imageset` with `name` and `texture`, one `Image` per item with
    // `name`, `left`, `top`, `right`, `bottom` (right and bottom exclusive), in name order.
    std::string ImagesetXml(const std::string& name, const std::string& texture, const std::vector<AtlasItem>& items);
}
