#pragma once
// Pictures as the tool handles them: RGBA, one float a channel, values as stored (a
// picture in sRGB keeps its sRGB values; the conversion is done where averaging needs it).
#include <cstdint>
#include <string>
#include <vector>

namespace ZemTex
{
    struct Image
    {
        uint32_t uWidth = 0;
        uint32_t uHeight = 0;
        std::vector<float> aPixels;

        Image() = default;
        Image(uint32_t width, uint32_t height) : uWidth(width), uHeight(height), aPixels(size_t(width) * height * 4) {}
        float* At(uint32_t x, uint32_t y) { return &aPixels[(size_t(y) * uWidth + x) * 4]; }
        const float* At(uint32_t x, uint32_t y) const { return &aPixels[(size_t(y) * uWidth + x) * 4]; }
        bool IsEmpty() const { return uWidth == 0 || uHeight == 0; }
    };

    float SrgbToLinear(float v);
    float LinearToSrgb(float v);
    // 0..1 to 0..255, rounded and clamped.
    uint8_t ToByte(float v);

    bool LoadPng(const std::string& path, Image& out, std::string& error);
    // Writes 8-bit RGBA; the same picture always gives the same bytes.
    bool SavePng(const std::string& path, const Image& image, std::string& error);

    // The next mip: each texel the mean of the (up to) 2x2 texels under it, in linear
    // light when the values are sRGB. Odd sizes fold their last row or column in.
    Image Downsample(const Image& source, bool srgb);
    // The next mip of a volume: slices averaged in pairs after each is halved.
    std::vector<Image> DownsampleVolume(const std::vector<Image>& slices, bool srgb);

    // `count` equal pictures stacked top to bottom in `strip`.
    bool SplitStrip(const Image& strip, uint32_t count, std::vector<Image>& out, std::string& error);
    // The pictures stacked top to bottom.
    Image JoinStrip(const std::vector<Image>& parts);
    void Blit(const Image& source, Image& target, uint32_t x, uint32_t y);
}
