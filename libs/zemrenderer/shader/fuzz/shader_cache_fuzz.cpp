// Shader cache files from arbitrary bytes: reading must never crash, allocate without
// bound or accept a file it cannot fully account for. With an odd first byte the rest is
// taken as the body of a file with a correct header and checksum, so that the fuzzer gets
// past the checksum into the field parsing.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zemrenderer/shader/ShaderCache.h"

using namespace ZemRenderer;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::string kVersion = "fuzz toolchain";
    constexpr uint64_t kKey = 0x1234;
    std::string bytes(reinterpret_cast<const char*>(data), size);
    if (size > 0 && (data[0] & 1) == 1)
    {
        // Build the header the way Serialize does, around the given body.
        const std::string body = bytes.substr(1);
        // Magic, format version, key and toolchain version come first, then length and hash.
        std::string header = ShaderCache::Serialize(kKey, kVersion, CompiledShader{}, {});
        header.resize(4 + 4 + 8 + 4 + kVersion.size());
        const uint64_t n = body.size();
        const uint64_t h = HashBytes(body);
        header.append(reinterpret_cast<const char*>(&n), sizeof n);
        header.append(reinterpret_cast<const char*>(&h), sizeof h);
        bytes = header + body;
    }
    CompiledShader shader;
    std::vector<ShaderDependency> deps;
    if (ShaderCache::Deserialize(bytes, kKey, kVersion, shader, deps))
    {
        // What was accepted writes back to the same bytes.
        if (ShaderCache::Serialize(kKey, kVersion, shader, deps) != bytes) std::abort();
        if (!shader.ok || !shader.techniques[0].Present()) std::abort();
    }
    return 0;
}
