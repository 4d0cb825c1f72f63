#pragma once
// Screenshots and reference pictures: 8-bit RGBA images, rows top first, as PNG files.
#include <cstdint>
#include <string>
#include <vector>

namespace ZemRenderer
{
    struct RgbaImage
    {
        uint32_t uWidth = 0;
        uint32_t uHeight = 0;
        std::vector<uint8_t> aPixels;  // uWidth * uHeight * 4

        const uint8_t* Pixel(uint32_t x, uint32_t y) const { return &aPixels[(size_t(y) * uWidth + x) * 4]; }
    };

    // Fast compression (screenshots are written while frames run); false, with the
    // reason logged, when the file can't be written.
    bool WritePng(const char* path, const uint8_t* rgba, uint32_t width, uint32_t height, uint32_t stride = 0);
    // Any PNG, converted to 8-bit RGBA. False, with `error`, for a file that isn't one.
    bool ReadPng(const char* path, RgbaImage& out, std::string* error = nullptr);
    bool ReadPngMemory(const uint8_t* data, size_t size, RgbaImage& out, std::string* error = nullptr);
}
