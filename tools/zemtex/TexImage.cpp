#include "TexImage.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <stb_image.h>
#include <stb_image_write.h>

namespace ZemTex
{
    float SrgbToLinear(float v)
    {
        if (v <= 0.04045f) return v / 12.92f;
        return std::pow((v + 0.055f) / 1.055f, 2.4f);
    }

    float LinearToSrgb(float v)
    {
        if (v <= 0.0031308f) return v * 12.92f;
        return 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f;
    }

    uint8_t ToByte(float v)
    {
        if (!(v > 0.0f)) return 0;
        if (v >= 1.0f) return 255;
        return static_cast<uint8_t>(std::lround(v * 255.0f));
    }

    bool LoadPng(const std::string& path, Image& out, std::string& error)
    {
        int w = 0, h = 0, channels = 0;
        unsigned char* data = stbi_load(path.c_str(), &w, &h, &channels, 4);
        if (!data)
        {
            error = "cannot read PNG \"" + path + "\": " + (stbi_failure_reason() ? stbi_failure_reason() : "unknown");
            return false;
        }
        out = Image(static_cast<uint32_t>(w), static_cast<uint32_t>(h));
        for (size_t i = 0; i < out.aPixels.size(); ++i) out.aPixels[i] = data[i] / 255.0f;
        stbi_image_free(data);
        return true;
    }

    bool SavePng(const std::string& path, const Image& image, std::string& error)
    {
        std::vector<uint8_t> bytes(image.aPixels.size());
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = ToByte(image.aPixels[i]);
        if (!stbi_write_png(path.c_str(), static_cast<int>(image.uWidth), static_cast<int>(image.uHeight), 4,
                            bytes.data(), static_cast<int>(image.uWidth * 4)))
        {
            error = "cannot write PNG \"" + path + "\"";
            return false;
        }
        return true;
    }

    Image Downsample(const Image& source, bool srgb)
    {
        const uint32_t w = source.uWidth > 1 ? source.uWidth / 2 : 1;
        const uint32_t h = source.uHeight > 1 ? source.uHeight / 2 : 1;
        Image out(w, h);
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x)
            {
                // The source texels under this one: 2x2, with a third row or column folded
                // in at an odd edge.
                const uint32_t x0 = source.uWidth > 1 ? x * 2 : 0, y0 = source.uHeight > 1 ? y * 2 : 0;
                uint32_t x1 = source.uWidth > 1 ? x0 + 2 : 1, y1 = source.uHeight > 1 ? y0 + 2 : 1;
                if (x == w - 1 && source.uWidth > 1 && (source.uWidth & 1)) x1 = source.uWidth;
                if (y == h - 1 && source.uHeight > 1 && (source.uHeight & 1)) y1 = source.uHeight;
                float sum[4] = {0, 0, 0, 0};
                for (uint32_t sy = y0; sy < y1; ++sy)
                    for (uint32_t sx = x0; sx < x1; ++sx)
                    {
                        const float* p = source.At(sx, sy);
                        for (int c = 0; c < 3; ++c) sum[c] += srgb ? SrgbToLinear(p[c]) : p[c];
                        sum[3] += p[3];
                    }
                const float n = static_cast<float>((x1 - x0) * (y1 - y0));
                float* o = out.At(x, y);
                for (int c = 0; c < 3; ++c) o[c] = srgb ? LinearToSrgb(sum[c] / n) : sum[c] / n;
                o[3] = sum[3] / n;
            }
        return out;
    }

    std::vector<Image> DownsampleVolume(const std::vector<Image>& slices, bool srgb)
    {
        std::vector<Image> halved;
        for (const Image& s : slices) halved.push_back(Downsample(s, srgb));
        if (halved.size() <= 1) return halved;
        std::vector<Image> out;
        for (size_t z = 0; z + 1 < halved.size(); z += 2)
        {
            Image merged = halved[z];
            for (size_t i = 0; i < merged.aPixels.size(); ++i)
            {
                const bool colour = (i & 3) != 3;
                const float a = halved[z].aPixels[i], b = halved[z + 1].aPixels[i];
                merged.aPixels[i] = (srgb && colour) ? LinearToSrgb((SrgbToLinear(a) + SrgbToLinear(b)) * 0.5f)
                                                     : (a + b) * 0.5f;
            }
            out.push_back(std::move(merged));
        }
        return out;
    }

    bool SplitStrip(const Image& strip, uint32_t count, std::vector<Image>& out, std::string& error)
    {
        if (count == 0 || strip.uHeight % count != 0)
        {
            error = "a strip of " + std::to_string(strip.uHeight) + " lines does not split into " +
                    std::to_string(count) + " equal parts";
            return false;
        }
        const uint32_t h = strip.uHeight / count;
        out.clear();
        for (uint32_t i = 0; i < count; ++i)
        {
            Image part(strip.uWidth, h);
            memcpy(part.aPixels.data(), strip.At(0, i * h), part.aPixels.size() * sizeof(float));
            out.push_back(std::move(part));
        }
        return true;
    }

    Image JoinStrip(const std::vector<Image>& parts)
    {
        if (parts.empty()) return Image();
        Image out(parts[0].uWidth, parts[0].uHeight * static_cast<uint32_t>(parts.size()));
        for (size_t i = 0; i < parts.size(); ++i) Blit(parts[i], out, 0, static_cast<uint32_t>(i) * parts[0].uHeight);
        return out;
    }

    void Blit(const Image& source, Image& target, uint32_t x, uint32_t y)
    {
        for (uint32_t sy = 0; sy < source.uHeight && y + sy < target.uHeight; ++sy)
        {
            const uint32_t n = std::min(source.uWidth, target.uWidth > x ? target.uWidth - x : 0);
            memcpy(target.At(x, y + sy), source.At(0, sy), size_t(n) * 4 * sizeof(float));
        }
    }
}
