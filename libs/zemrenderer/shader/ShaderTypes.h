#pragma once
// What the shader toolchain hands out: plain structs, no GL objects. A compiled shader is
// up to four techniques of up to four stages, each stage as GLSL 4.50 text for a separable
// program plus what the stage reads (constant buffers, textures, samplers, vertex inputs).
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ZemRenderer
{
    enum class ShaderStage : uint8_t
    {
        Vertex,
        Pixel,
        Geometry,
        Compute,
    };
    constexpr int kShaderStageCount = 4;

    // Index order is the draw code's technique numbering.
    enum class ShaderTechnique : uint8_t
    {
        Default,
        Instanced,
        Skinned,
        InstancedSkinned,
    };
    constexpr int kShaderTechniqueCount = 4;

    const char* ShaderStageName(ShaderStage stage);          // "Vertex", ...
    const char* ShaderTechniqueName(ShaderTechnique technique); // "Default", ...
    // The fixed HLSL function a technique's stage starts at: "VS_Default", "PS_Skinned", ...
    std::string ShaderEntryPoint(ShaderTechnique technique, ShaderStage stage);

    // One HLSL file. `path` names it in messages and is where relative #includes start.
    struct ShaderSource
    {
        std::string path;
        std::string text;

        // Reads a file; false with a message for a missing, unreadable or empty one.
        static bool Load(const std::string& path, ShaderSource& out, std::string& error);
    };

    // Preprocessor defines, sorted by name, each name once.
    struct ShaderDefines
    {
        std::vector<std::pair<std::string, std::string>> entries;

        // `A=1 B=2 C`: names separated by blanks, each with an optional value (a name alone
        // is 1). False with a message for anything else; `out` is left empty then.
        static bool Parse(std::string_view text, ShaderDefines& out, std::string& error);
        // The canonical text, "A=1 B=2": equal for equal sets of defines.
        std::string ToString() const;
    };

    // Splits a shader name as effects and materials write it:
    //   Toolchain/Shaders/Basic.zff -param "A=1 B=2"
    bool ParseShaderName(std::string_view name, std::string& path, ShaderDefines& defines, std::string& error);

    enum class ShaderScalar : uint8_t
    {
        Float,
        Int,
        UInt,
        Bool,
        Struct,
        Other,
    };

    struct ShaderConstant
    {
        std::string name;
        uint32_t offset = 0; // bytes from the start of the buffer, HLSL packing
        uint32_t size = 0;   // bytes the member declares
        ShaderScalar scalar = ShaderScalar::Float;
        uint8_t vectorSize = 1; // components in a row
        uint8_t columns = 1;    // 4 for a 4x4 matrix
        uint32_t arraySize = 0; // 0 when not an array
    };

    struct ShaderConstantBuffer
    {
        std::string name;
        int registerIndex = 0; // b#; also the uniform-buffer binding in GL
        uint32_t size = 0;     // rounded up to 16 bytes, as a constant buffer is sized
        std::vector<ShaderConstant> members;
    };

    enum class ShaderResourceKind : uint8_t
    {
        Texture,       // t#, sampled
        Sampler,       // s#
        StorageBuffer, // structured buffers (t# or u#); GL binding = register
        StorageImage,  // RW textures (u#); GL image unit = register
    };

    struct ShaderResource
    {
        std::string name;
        ShaderResourceKind kind = ShaderResourceKind::Texture;
        int registerIndex = 0;
    };

    // GL has no separate samplers in GLSL: each texture-sampler pair a stage uses becomes
    // one sampler uniform on its own texture unit, where the device binds the texture and a
    // sampler object. Units are numbered across the stages of a technique. A texture read
    // without a sampler (Load) pairs with an empty sampler name.
    struct ShaderSamplerUnit
    {
        std::string texture;
        std::string sampler;
        int unit = 0;
    };

    struct ShaderVertexInput
    {
        std::string semantic; // upper case without the index: "POSITION", "TEXCOORD"
        uint32_t semanticIndex = 0;
        int location = 0;
        ShaderScalar scalar = ShaderScalar::Float;
        uint8_t components = 4;
    };

    struct ShaderStageCode
    {
        std::string glsl;          // empty when the technique lacks the stage
        uint64_t blobHash = 0;     // of the GLSL: equal code, equal device object
        std::vector<ShaderConstantBuffer> constantBuffers;
        std::vector<ShaderResource> resources;
        std::vector<ShaderSamplerUnit> samplerUnits;
        std::vector<ShaderVertexInput> vertexInputs; // vertex stage only
        std::array<uint32_t, 3> threadGroupSize{};   // compute stage only

        bool Present() const { return !glsl.empty(); }
    };

    struct ShaderTechniqueCode
    {
        std::array<ShaderStageCode, kShaderStageCount> stages;
        bool Present() const { return stages[0].Present() || stages[3].Present(); }
        const ShaderStageCode& Stage(ShaderStage s) const { return stages[static_cast<int>(s)]; }
    };

    // One compiler message, split so that tools can jump to it.
    struct ShaderDiagnostic
    {
        std::string file;
        int line = 0; // 0 when the message names no line
        std::string message;
    };

    struct CompiledShader
    {
        bool ok = false;
        bool fromCache = false;
        std::string name; // path and defines, for messages
        std::array<ShaderTechniqueCode, kShaderTechniqueCount> techniques;
        std::vector<ShaderDiagnostic> errors;

        const ShaderTechniqueCode& Technique(ShaderTechnique t) const { return techniques[static_cast<int>(t)]; }
        // Every error as "file(line) : message" lines.
        std::string ErrorText() const;
    };
}
