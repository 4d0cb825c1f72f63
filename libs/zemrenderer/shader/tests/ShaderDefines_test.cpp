#include <gtest/gtest.h>

#include "zemrenderer/shader/ShaderTypes.h"

using namespace ZemRenderer;

namespace
{
    TEST(ShaderDefines, ParsesNamesAndValuesIntoOneSortedForm)
    {
        struct Case
        {
            const char* text;
            const char* canonical;
        } cases[] = {
            {"A=1 B=2", "A=1 B=2"},
            {"B=2 A=1", "A=1 B=2"},
            {"  \tCUBE_FACE=3 \n", "CUBE_FACE=3"},
            {"USE_SIMPLE", "USE_SIMPLE=1"},
            {"_WIN32=1 _DX11=1 ShaderDefine_force_checkboard_diffuse=1", "ShaderDefine_force_checkboard_diffuse=1 _DX11=1 _WIN32=1"},
            {"SCALE=0.5 NEG=-2 EXPR=(1+2)", "EXPR=(1+2) NEG=-2 SCALE=0.5"},
            {"", ""},
        };
        for (const Case& c : cases)
        {
            ShaderDefines d;
            std::string error;
            ASSERT_TRUE(ShaderDefines::Parse(c.text, d, error)) << c.text << ": " << error;
            EXPECT_EQ(d.ToString(), c.canonical) << c.text;
        }
    }

    TEST(ShaderDefines, RefusesMalformedText)
    {
        const char* bad[] = {"1A=2", "A=", "A==1", "A=\"x\"", "A=1 A=2", "A A", "_GL=1", "A-B=1", "A=1,B=2", "A=x#y", "=1"};
        for (const char* text : bad)
        {
            ShaderDefines d;
            d.entries.push_back({"OLD", "1"});
            std::string error;
            EXPECT_FALSE(ShaderDefines::Parse(text, d, error)) << text;
            EXPECT_FALSE(error.empty()) << text;
            EXPECT_TRUE(d.entries.empty()) << text;
        }
    }

    TEST(ShaderDefines, SplitsShaderNamesAsEffectsWriteThem)
    {
        struct Case
        {
            const char* name;
            bool ok;
            const char* path;
            const char* defines;
        } cases[] = {
            {"Toolchain/Shaders/Basic.zff -param \"_WIN32=1 _DX11=1 ShaderDefine_force_checkboard_diffuse=1\"", true,
             "Toolchain/Shaders/Basic.zff", "ShaderDefine_force_checkboard_diffuse=1 _DX11=1 _WIN32=1"},
            {"Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=4\"", true, "Toolchain/Shaders/fsq_copy.zff", "CUBE_FACE=4"},
            {"Toolchain/Shaders/fsq_copy.zff", true, "Toolchain/Shaders/fsq_copy.zff", ""},
            {"  a.zff   -param   \"\"  ", true, "a.zff", ""},
            {"dir-param/a.zff", true, "dir-param/a.zff", ""},
            {"a.zff -param USE_SIMPLE=1", false, "", ""},
            {"a.zff -param \"USE_SIMPLE=1", false, "", ""},
            {"a.zff -param \"A=1\" extra", false, "", ""},
            {"a.zff -param \"A=\"", false, "", ""},
            {" -param \"A=1\"", false, "", ""},
            {"", false, "", ""},
        };
        for (const Case& c : cases)
        {
            std::string path, error;
            ShaderDefines d;
            EXPECT_EQ(ParseShaderName(c.name, path, d, error), c.ok) << c.name << ": " << error;
            if (!c.ok) continue;
            EXPECT_EQ(path, c.path);
            EXPECT_EQ(d.ToString(), c.defines);
        }
    }

    TEST(ShaderDefines, EntryPointsHaveFixedNames)
    {
        EXPECT_EQ(ShaderEntryPoint(ShaderTechnique::Default, ShaderStage::Vertex), "VS_Default");
        EXPECT_EQ(ShaderEntryPoint(ShaderTechnique::InstancedSkinned, ShaderStage::Pixel), "PS_InstancedSkinned");
        EXPECT_EQ(ShaderEntryPoint(ShaderTechnique::Skinned, ShaderStage::Geometry), "GS_Skinned");
        EXPECT_EQ(ShaderEntryPoint(ShaderTechnique::Instanced, ShaderStage::Compute), "CS_Instanced");
    }
}
