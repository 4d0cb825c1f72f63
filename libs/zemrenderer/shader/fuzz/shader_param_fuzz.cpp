// Shader names and -param texts from arbitrary bytes: parsing never crashes, and what it
// accepts is canonical: written back and parsed again it gives the same defines.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "zemrenderer/shader/ShaderTypes.h"

using namespace ZemRenderer;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error, path;
    ShaderDefines defines;
    if (ShaderDefines::Parse(text, defines, error))
    {
        ShaderDefines again;
        if (!ShaderDefines::Parse(defines.ToString(), again, error) || again.entries != defines.entries) std::abort();
        for (const auto& e : defines.entries)
            if (e.first.empty() || e.second.empty() || e.first == "_GL") std::abort();
    }
    else if (error.empty() || !defines.entries.empty())
        std::abort();
    if (ParseShaderName(text, path, defines, error))
    {
        if (path.empty() || path.front() == ' ' || path.back() == ' ') std::abort();
    }
    return 0;
}
