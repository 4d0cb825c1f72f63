#pragma once
// A test card drawn through the device seam only: what a person looks at to see that a
// device clears, blends, tests depth, culls, scissors, draws lines and text the right way
// up. The same picture is the reference of the device's golden test.
#include <cstdint>

namespace ZemRenderer
{
    class Renderer;
    class Texture;
}

namespace ZemCard
{
    // Draws the card into `colour` (a square render target) with `depth` (a depth target of
    // the same size); both are bound and left bound.
    bool DrawTestCard(ZemRenderer::Renderer& device, ZemRenderer::Texture* colour, ZemRenderer::Texture* depth);
}
