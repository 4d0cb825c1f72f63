#pragma once
// One stage's SPIR-V, reflected and turned into GLSL 4.50 for a separable program.
// Stages of one technique share a `TechniqueLinks`, so that a varying has one location in
// every stage (GL matches by location where HLSL matched by semantic) and each
// texture-sampler pair one texture unit.
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "zemrenderer/shader/ShaderTypes.h"

namespace ZemRenderer
{
    // Binding numbers the HLSL front end gives each register class: register + base.
    constexpr uint32_t kTextureBindingBase = 1000;
    constexpr uint32_t kSamplerBindingBase = 2000;
    constexpr uint32_t kUavBindingBase = 3000;

    struct TechniqueLinks
    {
        std::map<std::string, int> varyingLocations; // by semantic, "TEXCOORD3"
        int nextLocation = 0;
        std::map<std::pair<std::string, std::string>, int> samplerUnits;
    };

    bool SpirvToGlsl(const std::vector<uint32_t>& spirv, ShaderStage stage, TechniqueLinks& links, ShaderStageCode& out,
                     std::string& error);
}
