// Reference pictures and any PNG a tool hands over go through the PNG reader.
#include <cstddef>
#include <cstdint>

#include "zemrenderer/device/PngImage.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ZemRenderer::RgbaImage image;
    if (ZemRenderer::ReadPngMemory(data, size, image))
    {
        // What comes back is exactly width x height RGBA pixels.
        if (image.aPixels.size() != size_t(image.uWidth) * image.uHeight * 4) __builtin_trap();
    }
    return 0;
}
