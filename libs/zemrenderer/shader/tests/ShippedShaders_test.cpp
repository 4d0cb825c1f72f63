// Every combination of the engine's own shaders that effects ask for compiles, and its
// reflection is what the draw code and the materials rely on.
#include <algorithm>

#include <gtest/gtest.h>
#include <shaderc/shaderc.h>

#include "zemrenderer/shader/ConstantBufferRoles.h"
#include "zemrenderer/shader/ShaderCompiler.h"
#include "zemrenderer/shader/tests/ShaderTestUtil.h"

using namespace ZemRenderer;
using namespace ZemRenderer::ShaderTest;

namespace
{
    const ShaderStageCode& Stage(const CompiledShader& s, ShaderTechnique t, ShaderStage st) { return s.Technique(t).Stage(st); }

    // The GLSL a stage hands to the driver, compiled again by a GLSL front end for GL 4.5:
    // empty when it is valid, the messages otherwise.
    std::string GlslErrors(const std::string& glsl, ShaderStage stage)
    {
        static const shaderc_shader_kind kKinds[] = {shaderc_vertex_shader, shaderc_fragment_shader, shaderc_geometry_shader,
                                                     shaderc_compute_shader};
        shaderc_compiler_t compiler = shaderc_compiler_initialize();
        shaderc_compile_options_t options = shaderc_compile_options_initialize();
        shaderc_compile_options_set_source_language(options, shaderc_source_language_glsl);
        shaderc_compile_options_set_target_env(options, shaderc_target_env_opengl, shaderc_env_version_opengl_4_5);
        shaderc_compilation_result_t r = shaderc_compile_into_spv(compiler, glsl.data(), glsl.size(), kKinds[static_cast<int>(stage)],
                                                                  "generated.glsl", "main", options);
        std::string errors = shaderc_result_get_compilation_status(r) == shaderc_compilation_status_success
                                 ? ""
                                 : shaderc_result_get_error_message(r);
        shaderc_result_release(r);
        shaderc_compile_options_release(options);
        shaderc_compiler_release(compiler);
        return errors;
    }

    CompiledShader CompileShipped(ShaderCompiler& compiler, const std::string& name)
    {
        CompiledShader s = compiler.CompileNamed(ZEM_CONTENT_DIR, name);
        EXPECT_TRUE(s.ok) << name << "\n" << s.ErrorText();
        return s;
    }

    TEST(ShippedShaders, EveryUsedCombinationCompilesWithTheRoleRegisters)
    {
        const char* names[] = {
            "Toolchain/Shaders/Basic.zff",
            "Toolchain/Shaders/Basic.zff -param \"_WIN32=1 _DX11=1 ShaderDefine_force_checkboard_diffuse=1\"",
            "Toolchain/Shaders/fsq_copy.zff",
            "Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=0\"",
            "Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=1\"",
            "Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=2\"",
            "Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=3\"",
            "Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=4\"",
            "Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=5\"",
            "Toolchain/Shaders/fsq_compose.zff",
            "Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1\"",
            "Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1 USE_SRGB=1\"",
            "Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1 CHANNEL_ONLY=1\"",
            "Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1 CHANNEL_ONLY=2\"",
            "Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1 CHANNEL_ONLY=3\"",
            "Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1 CHANNEL_ONLY=4\"",
            "Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1 USE_SRGB=1 DEBUG_COLOR_RANGE=1\"",
        };
        ShaderCompiler compiler;
        ConstantBufferRoles roles;
        for (const char* name : names)
        {
            const CompiledShader s = CompileShipped(compiler, name);
            // Every shipped shader keeps the role at its table position's register.
            EXPECT_EQ(roles.Check(s, name), 0) << name;
            for (const ShaderTechniqueCode& t : s.techniques)
                for (const ShaderStageCode& st : t.stages)
                {
                    if (!st.Present()) continue;
                    EXPECT_NE(st.glsl.find("#version 450"), std::string::npos);
                    const auto stage = static_cast<ShaderStage>(&st - &t.stages[0]);
                    EXPECT_EQ(GlslErrors(st.glsl, stage), "") << name << " " << ShaderStageName(stage) << "\n" << st.glsl;
                    // No clip-space fix-up or y flip: the device keeps D3D's conventions.
                    EXPECT_EQ(st.glsl.find("gl_Position.y = -"), std::string::npos) << name;
                    EXPECT_EQ(st.glsl.find("gl_Position.z = 2.0"), std::string::npos) << name;
                }
        }
        for (int r = 0; r < ConstantBufferRoles::kRoleCount; ++r)
            if (roles.RegisterOf(r) >= 0) EXPECT_EQ(roles.RegisterOf(r), r) << ConstantBufferRoles::RoleName(r);
    }

    TEST(ShippedShaders, BasicHasThreeTechniquesAndItsCheckerboardNeedsNoTexture)
    {
        ShaderCompiler compiler;
        const CompiledShader textured = CompileShipped(compiler, "Toolchain/Shaders/Basic.zff");
        const CompiledShader checker =
            CompileShipped(compiler, "Toolchain/Shaders/Basic.zff -param \"ShaderDefine_force_checkboard_diffuse=1\"");
        ASSERT_TRUE(textured.ok && checker.ok);
        EXPECT_TRUE(textured.Technique(ShaderTechnique::Default).Present());
        EXPECT_TRUE(textured.Technique(ShaderTechnique::Instanced).Present());
        EXPECT_TRUE(textured.Technique(ShaderTechnique::Skinned).Present());
        EXPECT_FALSE(textured.Technique(ShaderTechnique::InstancedSkinned).Present());

        const ShaderStageCode& vs = Stage(textured, ShaderTechnique::Default, ShaderStage::Vertex);
        const ShaderConstantBuffer* perObject = FindBuffer(vs, "DynamicPerObject");
        ASSERT_NE(perObject, nullptr);
        EXPECT_EQ(perObject->registerIndex, 1);
        EXPECT_EQ(perObject->size, 128u);
        ASSERT_EQ(perObject->members.size(), 2u);
        EXPECT_EQ(perObject->members[0].name, "WORLD");
        EXPECT_EQ(perObject->members[1].name, "WORLDVIEWPROJ");
        EXPECT_EQ(perObject->members[1].offset, 64u);
        EXPECT_EQ(perObject->members[1].columns, 4);
        ASSERT_EQ(vs.vertexInputs.size(), 3u);
        const char* semantics[] = {"POSITION", "NORMAL", "TEXCOORD"};
        const int components[] = {3, 3, 2};
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_EQ(vs.vertexInputs[i].semantic, semantics[i]);
            EXPECT_EQ(vs.vertexInputs[i].semanticIndex, 0u);
            EXPECT_EQ(vs.vertexInputs[i].location, i);
            EXPECT_EQ(vs.vertexInputs[i].components, components[i]);
        }

        const ShaderStageCode& ps = Stage(textured, ShaderTechnique::Default, ShaderStage::Pixel);
        const ShaderConstantBuffer* material = FindBuffer(ps, "ConstantPerObject");
        ASSERT_NE(material, nullptr);
        EXPECT_EQ(material->registerIndex, 0);
        EXPECT_EQ(material->size, 16u);
        ASSERT_NE(FindMember(*material, "DiffuseColor"), nullptr);
        EXPECT_EQ(FindMember(*material, "DiffuseColor")->vectorSize, 4);
        ASSERT_EQ(ps.samplerUnits.size(), 1u);
        EXPECT_EQ(ps.samplerUnits[0].texture, "tDiffuse");
        EXPECT_EQ(ps.samplerUnits[0].sampler, "sDiffuse");
        EXPECT_NE(ps.glsl.find("binding = 0) uniform sampler2D tDiffuse_sDiffuse"), std::string::npos) << ps.glsl;

        const ShaderStageCode& checkerPs = Stage(checker, ShaderTechnique::Default, ShaderStage::Pixel);
        EXPECT_TRUE(checkerPs.samplerUnits.empty());
        EXPECT_TRUE(checkerPs.constantBuffers.empty()) << "a mesh without a material still shows its squares";
        EXPECT_EQ(FindResource(checkerPs, "tDiffuse"), nullptr);
        EXPECT_NE(checkerPs.blobHash, ps.blobHash);

        const ShaderStageCode& instanced = Stage(textured, ShaderTechnique::Instanced, ShaderStage::Vertex);
        ASSERT_EQ(instanced.vertexInputs.size(), 7u);
        for (uint32_t i = 0; i < 4; ++i)
        {
            EXPECT_EQ(instanced.vertexInputs[3 + i].semantic, "INSTANCE");
            EXPECT_EQ(instanced.vertexInputs[3 + i].semanticIndex, i);
        }
        ASSERT_NE(FindBuffer(instanced, "DynamicShared"), nullptr);
        EXPECT_EQ(FindBuffer(instanced, "DynamicShared")->registerIndex, 3);

        const ShaderStageCode& skinned = Stage(textured, ShaderTechnique::Skinned, ShaderStage::Vertex);
        ASSERT_NE(FindBuffer(skinned, "SkinBones"), nullptr);
        EXPECT_EQ(FindBuffer(skinned, "SkinBones")->size, 2048u);
        EXPECT_EQ(FindMember(*FindBuffer(skinned, "SkinBones"), "SkinBoneQuat")->arraySize, 128u);
        ASSERT_EQ(skinned.vertexInputs.size(), 5u);
        EXPECT_EQ(skinned.vertexInputs[3].semantic, "BLENDINDICES");
        EXPECT_EQ(skinned.vertexInputs[3].scalar, ShaderScalar::UInt);
        EXPECT_EQ(skinned.vertexInputs[4].semantic, "BLENDWEIGHT");
    }

    TEST(ShippedShaders, CopyReadsTSourceAsAPlaneOrACubeFace)
    {
        ShaderCompiler compiler;
        const CompiledShader plane = CompileShipped(compiler, "Toolchain/Shaders/fsq_copy.zff");
        ASSERT_TRUE(plane.ok);
        const ShaderStageCode& ps = Stage(plane, ShaderTechnique::Default, ShaderStage::Pixel);
        ASSERT_NE(FindBuffer(ps, "ConstantPerObject"), nullptr);
        EXPECT_NE(FindMember(*FindBuffer(ps, "ConstantPerObject"), "BlendTexture"), nullptr);
        ASSERT_NE(FindResource(ps, "tSource"), nullptr);
        EXPECT_NE(ps.glsl.find("sampler2D tSource_sSource"), std::string::npos);
        const ShaderStageCode& vs = Stage(plane, ShaderTechnique::Default, ShaderStage::Vertex);
        ASSERT_EQ(vs.vertexInputs.size(), 1u);
        EXPECT_EQ(vs.vertexInputs[0].semantic, "POSITION");

        std::vector<uint64_t> hashes{ps.blobHash};
        for (int face = 0; face < 6; ++face)
        {
            const CompiledShader cube =
                CompileShipped(compiler, "Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=" + std::to_string(face) + "\"");
            const ShaderStageCode& cps = Stage(cube, ShaderTechnique::Default, ShaderStage::Pixel);
            EXPECT_NE(cps.glsl.find("samplerCube tSource_sSource"), std::string::npos);
            hashes.push_back(cps.blobHash);
        }
        std::sort(hashes.begin(), hashes.end());
        EXPECT_EQ(std::unique(hashes.begin(), hashes.end()), hashes.end()) << "each face samples its own way";
    }

    TEST(ShippedShaders, ComposeFullReadsFiveTexturesOnFiveUnitsAndSimpleOnlyTheScene)
    {
        ShaderCompiler compiler;
        const CompiledShader full = CompileShipped(compiler, "Toolchain/Shaders/fsq_compose.zff");
        const CompiledShader simple = CompileShipped(compiler, "Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1\"");
        ASSERT_TRUE(full.ok && simple.ok);
        const ShaderStageCode& ps = Stage(full, ShaderTechnique::Default, ShaderStage::Pixel);
        ASSERT_EQ(ps.samplerUnits.size(), 5u);
        std::vector<int> units;
        for (const ShaderSamplerUnit& u : ps.samplerUnits) units.push_back(u.unit);
        std::sort(units.begin(), units.end());
        EXPECT_EQ(units, (std::vector<int>{0, 1, 2, 3, 4}));
        for (const char* t : {"tScene", "tLuminance", "tBloom", "tDOFNearField", "tDOFFarField"})
            EXPECT_NE(FindResource(ps, t), nullptr) << t;
        EXPECT_EQ(FindResource(ps, "tBloom")->registerIndex, 2);
        EXPECT_EQ(FindResource(ps, "sLinear")->registerIndex, 1);

        const ShaderStageCode& sps = Stage(simple, ShaderTechnique::Default, ShaderStage::Pixel);
        ASSERT_EQ(sps.samplerUnits.size(), 1u);
        EXPECT_EQ(sps.samplerUnits[0].texture, "tScene");
        EXPECT_EQ(sps.samplerUnits[0].unit, 0);
    }
}
