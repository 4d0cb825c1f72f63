#include <filesystem>
#include <map>
#include <regex>

#include <gtest/gtest.h>

#include "common/system/debug/Log.h"
#include "zemrenderer/shader/ConstantBufferRoles.h"
#include "zemrenderer/shader/ShaderCompiler.h"
#include "zemrenderer/shader/tests/ShaderTestUtil.h"

using namespace ZemRenderer;
using namespace ZemRenderer::ShaderTest;

namespace
{
    const char* const kMinimal = R"(cbuffer ConstantPerObject : register(b0) { float4 Color; };
float4 VS_Default(float3 p : POSITION) : SV_Position { return float4(p, 1.0); }
float4 PS_Default() : SV_Target0 { return Color; }
)";

    CompiledShader CompileText(ShaderCompiler& c, const std::string& text, const std::string& defines = "",
                               const std::string& path = "test.zff")
    {
        ShaderDefines d;
        std::string error;
        EXPECT_TRUE(ShaderDefines::Parse(defines, d, error)) << error;
        return c.Compile(ShaderSource{path, text}, d);
    }

    // "location = N) out|in TYPE NAME" of a GLSL text, by the name's last part (the HLSL
    // member name).
    std::map<std::string, int> Varyings(const std::string& glsl, const char* direction)
    {
        std::map<std::string, int> out;
        const std::regex re(std::string(R"(layout\(location = (\d+)\) )") + direction + R"( \w+ (\w+);)");
        for (std::sregex_iterator it(glsl.begin(), glsl.end(), re), end; it != end; ++it)
        {
            const std::string name = (*it)[2];
            out[name.substr(name.rfind('_') + 1)] = std::stoi((*it)[1]);
        }
        return out;
    }

    TEST(ShaderCompiler, CompileErrorsNameFileLineAndMessageAndHurtNothingElse)
    {
        ShaderCompiler compiler;
        const std::string broken = std::string(kMinimal) + "\nfloat4 Helper() { return undeclared_thing; }\n";
        const CompiledShader bad = CompileText(compiler, broken, "", "Shaders/broken.zff");
        EXPECT_FALSE(bad.ok);
        ASSERT_FALSE(bad.errors.empty());
        EXPECT_EQ(bad.errors[0].file, "Shaders/broken.zff");
        EXPECT_EQ(bad.errors[0].line, 5);
        EXPECT_NE(bad.errors[0].message.find("undeclared_thing"), std::string::npos) << bad.ErrorText();
        EXPECT_NE(bad.ErrorText().find("Shaders/broken.zff(5) : "), std::string::npos) << bad.ErrorText();
        for (const ShaderTechniqueCode& t : bad.techniques) EXPECT_FALSE(t.Present()); // unusable as a whole

        // An error inside one entry point only.
        const std::string psError = std::string(kMinimal) + "float4 PS_Instanced() : SV_Target0 { return Colour; }\n"
                                                            "float4 VS_Instanced(float3 p : POSITION) : SV_Position { return 0; }\n";
        const CompiledShader bad2 = CompileText(compiler, psError);
        ASSERT_FALSE(bad2.ok);
        EXPECT_EQ(bad2.errors[0].line, 4);
        EXPECT_NE(bad2.errors[0].message.find("Colour"), std::string::npos);
        // Every entry point's compile meets it; it is reported once.
        int mentions = 0;
        for (const ShaderDiagnostic& d : bad2.errors) mentions += d.message.find("'Colour'") != std::string::npos;
        EXPECT_EQ(mentions, 1) << bad2.ErrorText();

        const CompiledShader good = CompileText(compiler, kMinimal);
        EXPECT_TRUE(good.ok) << good.ErrorText();
    }

    TEST(ShaderCompiler, RefusesFilesWithoutTheEntryPointsItNeeds)
    {
        struct Case
        {
            const char* what;
            std::string text;
            const char* message;
        } cases[] = {
            {"empty", "  \n\t", "empty"},
            {"GLSL", "#version 450\nlayout(location = 0) out vec4 c;\nvoid main() { c = vec4(1.0); }\n", nullptr},
            {"no entry", "float4 Helper(float4 x) { return x; }\n", "no entry point"},
            {"pixel only", "float4 PS_Default() : SV_Target0 { return 1; }\n", "no entry point"},
            {"pixel without its vertex",
             std::string(kMinimal) + "float4 PS_Skinned() : SV_Target0 { return 1; }\n", "PS_Skinned has no VS_Skinned"},
            {"entry hidden by a define", "#ifdef NEVER\n" + std::string(kMinimal) + "#endif\n", "no entry point"},
            {"#error", "#error this file is not for GL\n" + std::string(kMinimal), "not for GL"},
            {"binary", std::string("\x7f" "ELF\x02\x01\x01\0\0\0", 10), nullptr},
        };
        ShaderCompiler compiler;
        for (const Case& c : cases)
        {
            const CompiledShader s = CompileText(compiler, c.text);
            EXPECT_FALSE(s.ok) << c.what;
            ASSERT_FALSE(s.errors.empty()) << c.what;
            if (c.message) EXPECT_NE(s.ErrorText().find(c.message), std::string::npos) << c.what << ": " << s.ErrorText();
        }
    }

    TEST(ShaderCompiler, NamedShadersReportBadNamesAndMissingFiles)
    {
        TempDir dir;
        WriteFile(dir / "Shaders/ok.zff", kMinimal);
        WriteFile(dir / "Shaders/blank.zff", "\n\n");
        ShaderCompiler compiler;
        EXPECT_TRUE(compiler.CompileNamed(dir.Path(), "Shaders/ok.zff -param \"A=1\"").ok);
        struct Case
        {
            const char* name;
            const char* message;
        } cases[] = {
            {"Shaders/missing.zff", "cannot be opened"},
            {"Shaders", "is a folder"},
            {"Shaders/blank.zff", "is empty"},
            {"Shaders/ok.zff -param \"A=\"", "without a value"},
            {"Shaders/ok.zff -param \"A=1", "no closing quote"},
            {"Shaders/ok.zff -param \"_GL=0\"", "the compiler defines it"},
        };
        for (const Case& c : cases)
        {
            const CompiledShader s = compiler.CompileNamed(dir.Path(), c.name);
            EXPECT_FALSE(s.ok) << c.name;
            EXPECT_NE(s.ErrorText().find(c.message), std::string::npos) << c.name << ": " << s.ErrorText();
        }
    }

    TEST(ShaderCompiler, DefinesReachThePreprocessorWithGlAlwaysSet)
    {
        const std::string text = R"(#ifndef _GL
#error _GL must be defined
#endif
#if SCALE != 3
#error SCALE must be 3
#endif
float4 VS_Default(float3 p : POSITION) : SV_Position { return float4(p * SCALE, 1.0); }
)";
        ShaderCompiler compiler;
        EXPECT_TRUE(CompileText(compiler, text, "SCALE=3").ok);
        EXPECT_FALSE(CompileText(compiler, text, "SCALE=2").ok);
        // A vertex stage alone is a technique (depth-only drawing).
        const CompiledShader s = CompileText(compiler, text, "SCALE=3");
        EXPECT_FALSE(s.Technique(ShaderTechnique::Default).Stage(ShaderStage::Pixel).Present());
    }

    TEST(ShaderCompiler, VaryingsMatchBySemanticAcrossStagesAndUnitsAreSharedInATechnique)
    {
        // The pixel stage declares its inputs in another order, and reads a texture the
        // vertex stage also reads: GL matches varyings by location and binds units for the
        // whole pipeline.
        const std::string text = R"(Texture2D tHeight : register(t3);
Texture2D tColor : register(t1);
SamplerState sLinear : register(s2);
struct VSOut { float4 pos : SV_Position; float2 uv : TEXCOORD0; float4 tint : COLOR1; float3 normal : NORMAL; };
struct PSIn { float4 pos : SV_Position; float3 normal : NORMAL; float4 tint : COLOR1; float2 uv : TEXCOORD0; };
VSOut VS_Default(float3 p : POSITION, float2 uv : TEXCOORD0)
{
    VSOut o;
    o.pos = float4(p.xy, tHeight.SampleLevel(sLinear, uv, 0).r, 1);
    o.uv = uv; o.tint = float4(uv, 0, 1); o.normal = p;
    return o;
}
float4 PS_Default(PSIn i) : SV_Target0 { return tColor.Sample(sLinear, i.uv) * i.tint + tHeight.Sample(sLinear, i.uv) + float4(i.normal, 0); }
)";
        ShaderCompiler compiler;
        const CompiledShader s = CompileText(compiler, text);
        ASSERT_TRUE(s.ok) << s.ErrorText();
        const ShaderTechniqueCode& t = s.Technique(ShaderTechnique::Default);
        const auto out = Varyings(t.Stage(ShaderStage::Vertex).glsl, "out");
        const auto in = Varyings(t.Stage(ShaderStage::Pixel).glsl, "in");
        ASSERT_EQ(out.size(), 3u) << t.Stage(ShaderStage::Vertex).glsl;
        EXPECT_EQ(out, in) << t.Stage(ShaderStage::Pixel).glsl;

        const auto& vsUnits = t.Stage(ShaderStage::Vertex).samplerUnits;
        const auto& psUnits = t.Stage(ShaderStage::Pixel).samplerUnits;
        ASSERT_EQ(vsUnits.size(), 1u);
        ASSERT_EQ(psUnits.size(), 2u);
        for (const ShaderSamplerUnit& u : psUnits)
            if (u.texture == "tHeight") EXPECT_EQ(u.unit, vsUnits[0].unit);
            else EXPECT_NE(u.unit, vsUnits[0].unit);
        EXPECT_EQ(FindResource(t.Stage(ShaderStage::Pixel), "tHeight")->registerIndex, 3);
        EXPECT_EQ(FindResource(t.Stage(ShaderStage::Pixel), "sLinear")->registerIndex, 2);
    }

    TEST(ShaderCompiler, ConstantBuffersKeepHlslPackingAndATextureLoadNeedsNoSampler)
    {
        // A float after a float3 shares its 16 bytes; an array element takes 16 bytes.
        const std::string text = R"(cbuffer DynamicShared : register(b3) { float3 Dir; float Power; float Weights[3]; float4x4 M; };
Texture2D<float4> tData : register(t5);
float4 VS_Default(float3 p : POSITION) : SV_Position { return mul(float4(p * Dir * Power * Weights[2], 1), M); }
float4 PS_Default(float4 pos : SV_Position) : SV_Target0 { return tData.Load(int3(pos.xy, 0)); }
)";
        ShaderCompiler compiler;
        const CompiledShader s = CompileText(compiler, text);
        ASSERT_TRUE(s.ok) << s.ErrorText();
        const ShaderConstantBuffer* cb = FindBuffer(s.Technique(ShaderTechnique::Default).Stage(ShaderStage::Vertex), "DynamicShared");
        ASSERT_NE(cb, nullptr);
        EXPECT_EQ(FindMember(*cb, "Dir")->offset, 0u);
        EXPECT_EQ(FindMember(*cb, "Power")->offset, 12u);
        EXPECT_EQ(FindMember(*cb, "Weights")->offset, 16u);
        EXPECT_EQ(FindMember(*cb, "Weights")->arraySize, 3u);
        EXPECT_EQ(FindMember(*cb, "M")->offset, 64u);
        EXPECT_EQ(cb->size, 128u);
        const auto& ps = s.Technique(ShaderTechnique::Default).Stage(ShaderStage::Pixel);
        ASSERT_EQ(ps.samplerUnits.size(), 1u);
        EXPECT_EQ(ps.samplerUnits[0].texture, "tData");
        EXPECT_EQ(ps.samplerUnits[0].sampler, "");
    }

    TEST(ShaderCompiler, SystemValuesAreNotVertexInputsAndGeometryStagesLink)
    {
        const std::string text = R"(struct V { float4 pos : SV_Position; float2 uv : TEXCOORD0; float4 c : COLOR; };
V VS_Default(float3 p : POSITION, uint id : SV_VertexID, uint inst : SV_InstanceID)
{ V o; o.pos = float4(p, id + inst); o.uv = p.xy; o.c = 1; return o; }
struct G { float4 pos : SV_Position; float4 c : COLOR; float2 uv : TEXCOORD0; };
[maxvertexcount(3)]
void GS_Default(triangle V input[3], inout TriangleStream<G> s)
{ for (int i = 0; i < 3; ++i) { G g; g.pos = input[i].pos; g.c = input[i].c; g.uv = input[i].uv; s.Append(g); } }
float4 PS_Default(G i, bool front : SV_IsFrontFace) : SV_Target0 { return float4(i.uv, front, 1) * i.c; }
)";
        ShaderCompiler compiler;
        const CompiledShader s = CompileText(compiler, text);
        ASSERT_TRUE(s.ok) << s.ErrorText();
        const ShaderTechniqueCode& t = s.Technique(ShaderTechnique::Default);
        ASSERT_EQ(t.Stage(ShaderStage::Vertex).vertexInputs.size(), 1u);
        EXPECT_EQ(t.Stage(ShaderStage::Vertex).vertexInputs[0].semantic, "POSITION");
        // D3D's instance id starts at 0 in every draw: no base instance added.
        EXPECT_EQ(t.Stage(ShaderStage::Vertex).glsl.find("BaseInstance"), std::string::npos) << t.Stage(ShaderStage::Vertex).glsl;
        const auto vsOut = Varyings(t.Stage(ShaderStage::Vertex).glsl, "out");
        const auto gsOut = Varyings(t.Stage(ShaderStage::Geometry).glsl, "out");
        const auto psIn = Varyings(t.Stage(ShaderStage::Pixel).glsl, "in");
        ASSERT_EQ(vsOut.size(), 2u);
        EXPECT_EQ(gsOut, psIn);
        EXPECT_EQ(gsOut.at("uv"), vsOut.at("uv"));
        EXPECT_EQ(gsOut.at("c"), vsOut.at("c"));
    }

    TEST(ShaderCompiler, ComputeShadersReportTheirGroupSizeAndStorage)
    {
        const std::string text = R"(RWStructuredBuffer<uint> Counts : register(u2);
RWTexture2D<float4> rwOut : register(u1);
[numthreads(8, 4, 1)]
void CS_Default(uint3 id : SV_DispatchThreadID) { InterlockedAdd(Counts[0], 1); rwOut[id.xy] = 1; }
)";
        ShaderCompiler compiler;
        const CompiledShader s = CompileText(compiler, text);
        ASSERT_TRUE(s.ok) << s.ErrorText();
        const ShaderStageCode& cs = s.Technique(ShaderTechnique::Default).Stage(ShaderStage::Compute);
        EXPECT_EQ(cs.threadGroupSize, (std::array<uint32_t, 3>{8, 4, 1}));
        ASSERT_NE(FindResource(cs, "rwOut"), nullptr);
        EXPECT_EQ(FindResource(cs, "rwOut")->kind, ShaderResourceKind::StorageImage);
        EXPECT_EQ(FindResource(cs, "rwOut")->registerIndex, 1);
        bool counts = false;
        for (const ShaderResource& r : cs.resources) counts = counts || (r.kind == ShaderResourceKind::StorageBuffer && r.registerIndex == 2);
        EXPECT_TRUE(counts);
    }

    TEST(ShaderCompiler, RoleRegistersAreCheckedAgainstTheFirstShaderThatUsedThem)
    {
        ShaderCompiler compiler;
        ConstantBufferRoles roles;
        const CompiledShader first = CompileText(compiler, kMinimal);
        const std::string moved = R"(cbuffer ConstantPerObject : register(b2) { float4 Color; };
cbuffer DynamicShared : register(b3) { float4 TIME; };
float4 VS_Default(float3 p : POSITION) : SV_Position { return float4(p, TIME.x); }
float4 PS_Default() : SV_Target0 { return Color; }
)";
        const CompiledShader second = CompileText(compiler, moved);
        ASSERT_TRUE(first.ok && second.ok);
        Common::ScopedLogCapture log;
        EXPECT_EQ(roles.Check(first, "first.zff"), 0);
        EXPECT_EQ(roles.RegisterOf(0), 0);
        EXPECT_EQ(roles.RegisterOf(3), -1);
        EXPECT_EQ(roles.Check(second, "second.zff"), 1);
        EXPECT_TRUE(log.Contains("Shader second.zff doesn't have same register index for cbuffer ConstantPerObject is register(b2) "
                                 "should be register(b0)\n"))
            << log.Text();
        EXPECT_EQ(roles.RegisterOf(3), 3); // the other role was still learnt
        EXPECT_EQ(ConstantBufferRoles::RoleOf("DynamicPerObject"), 1);
        EXPECT_EQ(ConstantBufferRoles::RoleOf("Material"), -1);
    }

    TEST(ShaderCompiler, UniformBuffersGLCannotExpressAreACompileErrorNotACrash)
    {
        // HLSL packs a float2 right after a float; GL's uniform blocks cannot place it there.
        const std::string text = R"(cbuffer ConstantPerObject : register(b0) { float A; float2 B; };
float4 VS_Default(float3 p : POSITION) : SV_Position { return float4(p * A, B.x); }
)";
        ShaderCompiler compiler;
        const CompiledShader s = CompileText(compiler, text);
        EXPECT_FALSE(s.ok);
        EXPECT_NE(s.ErrorText().find("GLSL generation of VS_Default failed"), std::string::npos) << s.ErrorText();
        EXPECT_NE(s.ErrorText().find("start a float2 on 8 bytes"), std::string::npos) << s.ErrorText();
        EXPECT_TRUE(CompileText(compiler, kMinimal).ok);
    }
}
