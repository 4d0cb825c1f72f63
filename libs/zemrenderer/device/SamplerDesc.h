#pragma once
// How a texture is sampled. Devices cache one sampler object per distinct description.
#include <cstdint>
#include <cstring>

#include "zemrenderer/device/RenderState.h"

namespace ZemRenderer
{
    enum class SamplerFilter : uint8_t
    {
        Point = 0,
        Linear = 1,
        Trilinear = 2,
        Anisotropic = 3,
    };

    // Numbered as the device's texture address modes.
    enum class SamplerAddress : uint8_t
    {
        Wrap = 1,
        Mirror = 2,
        Clamp = 3,
        Border = 4,
    };

    struct SamplerDesc
    {
        SamplerFilter eFilter = SamplerFilter::Linear;
        SamplerAddress eAddressU = SamplerAddress::Wrap;
        SamplerAddress eAddressV = SamplerAddress::Wrap;
        SamplerAddress eAddressW = SamplerAddress::Wrap;
        uint8_t uMaxAnisotropy = 1;
        // A depth comparison sampler when set, with this function.
        uint8_t bCompare = 0;
        ComparisonFunc eCompare = ComparisonFunc::LessEqual;
        uint8_t uPad = 0;
        float fMipLodBias = 0.0f;
        float fMinLod = 0.0f;
        float fMaxLod = 1000.0f;
        float afBorderColour[4] = {0.0f, 0.0f, 0.0f, 0.0f};

        bool operator==(const SamplerDesc& other) const { return std::memcmp(this, &other, sizeof(*this)) == 0; }
    };
    static_assert(sizeof(SamplerDesc) == 36, "sampler descriptions compare as bytes: no padding");
}
