#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "zemrenderer/shader/ShaderCache.h"
#include "zemrenderer/shader/ShaderCompiler.h"
#include "zemrenderer/shader/tests/ShaderTestUtil.h"

using namespace ZemRenderer;
using namespace ZemRenderer::ShaderTest;

namespace
{
    const char* const kShader = R"(cbuffer ConstantPerObject : register(b0) { float4 Color; };
Texture2D tColor : register(t0);
SamplerState sColor : register(s0);
struct V { float4 pos : SV_Position; float2 uv : TEXCOORD0; };
V VS_Default(float3 p : POSITION, float2 uv : TEXCOORD0) { V o; o.pos = float4(p, 1.0); o.uv = uv; return o; }
float4 PS_Default(V i) : SV_Target0 { return tColor.Sample(sColor, i.uv) * Color; }
)";

    ShaderDefines Defines(const char* text)
    {
        ShaderDefines d;
        std::string error;
        EXPECT_TRUE(ShaderDefines::Parse(text, d, error)) << error;
        return d;
    }

    std::string Bytes(const CompiledShader& s) { return ShaderCache::Serialize(1, "v", s, {}); }

    struct Counts
    {
        uint32_t compiled, hits, rejected;
    };
    Counts Of(const ShaderCompiler& c)
    {
        return {c.GetCounters().compiled.load(), c.GetCounters().cacheHits.load(), c.GetCounters().cacheRejected.load()};
    }

    TEST(ShaderCache, ASecondStartCompilesNothingAndGetsTheSameResult)
    {
        TempDir dir;
        const ShaderSource source{"a.zff", kShader};
        ShaderCompiler first(dir / "cache");
        const CompiledShader cold = first.Compile(source, Defines("B=2 A=1"));
        ASSERT_TRUE(cold.ok) << cold.ErrorText();
        EXPECT_FALSE(cold.fromCache);

        ShaderCompiler second(dir / "cache");
        const CompiledShader warm = second.Compile(source, Defines("A=1 B=2")); // same set, other order
        EXPECT_TRUE(warm.ok);
        EXPECT_TRUE(warm.fromCache);
        EXPECT_EQ(Of(second).compiled, 0u);
        EXPECT_EQ(Of(second).hits, 1u);
        EXPECT_EQ(Bytes(warm), Bytes(cold));
        EXPECT_EQ(warm.name, "a.zff -param \"A=1 B=2\"");

        // Anything in the key that changes compiles again.
        second.Compile(source, Defines("A=1 B=3"));
        second.Compile(ShaderSource{"a.zff", std::string(kShader) + " "}, Defines("A=1 B=2"));
        EXPECT_EQ(Of(second).compiled, 2u);
        // A reload bypasses the cache and rewrites the entry.
        second.Compile(source, Defines("A=1 B=2"), true);
        EXPECT_EQ(Of(second).compiled, 3u);
        EXPECT_TRUE(second.Compile(source, Defines("A=1 B=2")).fromCache);
    }

    TEST(ShaderCache, DamagedOrForeignFilesAreIgnoredAndRebuilt)
    {
        TempDir dir;
        const ShaderSource source{"a.zff", kShader};
        const ShaderDefines none;
        ShaderCompiler compiler(dir / "cache");
        ASSERT_TRUE(compiler.Compile(source, none).ok);
        const ShaderCache cache(dir / "cache");
        const uint64_t key = ShaderCache::Key(ShaderCompiler::ToolchainVersion(), source.path, source.text, none);
        const std::string path = cache.PathOf(key);
        const std::string good = [&] {
            std::ifstream in(path, std::ios::binary);
            return std::string(std::istreambuf_iterator<char>(in), {});
        }();
        ASSERT_GT(good.size(), 100u);

        std::string flipped = good;
        flipped[flipped.size() / 2] ^= 0x20;
        std::string otherVersion;
        {
            CompiledShader s;
            std::vector<ShaderDependency> deps;
            ASSERT_TRUE(ShaderCache::Deserialize(good, key, ShaderCompiler::ToolchainVersion(), s, deps));
            otherVersion = ShaderCache::Serialize(key, "zemshader 0; an older compiler", s, deps);
        }
        const std::string damaged[] = {good.substr(0, 0), good.substr(0, 3), good.substr(0, 20), good.substr(0, good.size() / 2),
                                       good.substr(0, good.size() - 1), good + "x", flipped, otherVersion};
        uint32_t expectedCompiles = 1;
        for (const std::string& bytes : damaged)
        {
            WriteFile(path, bytes);
            const CompiledShader s = compiler.Compile(source, none);
            ++expectedCompiles;
            EXPECT_TRUE(s.ok);
            EXPECT_FALSE(s.fromCache) << bytes.size();
            EXPECT_EQ(Of(compiler).compiled, expectedCompiles);
            // Rebuilt: the next one is a hit again.
            EXPECT_TRUE(compiler.Compile(source, none).fromCache) << bytes.size();
        }
        EXPECT_EQ(Of(compiler).rejected, std::size(damaged));
        // The toolchain version is part of the key as well as of the file.
        EXPECT_NE(ShaderCache::Key("other", source.path, source.text, none), key);
        EXPECT_NE(ShaderCache::Key(ShaderCompiler::ToolchainVersion(), "b.zff", source.text, none), key);
    }

    TEST(ShaderCache, AChangedIncludeMakesTheEntryStale)
    {
        TempDir dir;
        WriteFile(dir / "Shaders/common.hlsli", "float4 Tint() { return float4(1, 0, 0, 1); }\n");
        const std::string text = std::string("#include \"common.hlsli\"\n") +
                                 "float4 VS_Default(float3 p : POSITION) : SV_Position { return float4(p, 1) * Tint(); }\n";
        const ShaderSource source{dir / "Shaders/inc.zff", text};
        ShaderCompiler compiler(dir / "cache");
        const CompiledShader a = compiler.Compile(source, {});
        ASSERT_TRUE(a.ok) << a.ErrorText();
        EXPECT_TRUE(compiler.Compile(source, {}).fromCache);

        WriteFile(dir / "Shaders/common.hlsli", "float4 Tint() { return float4(0, 0.25, 0, 1); }\n");
        const CompiledShader b = compiler.Compile(source, {});
        EXPECT_TRUE(b.ok);
        EXPECT_FALSE(b.fromCache);
        EXPECT_NE(b.Technique(ShaderTechnique::Default).Stage(ShaderStage::Vertex).blobHash,
                  a.Technique(ShaderTechnique::Default).Stage(ShaderStage::Vertex).blobHash);

        std::filesystem::remove(dir / "Shaders/common.hlsli");
        const CompiledShader c = compiler.Compile(source, {});
        EXPECT_FALSE(c.ok);
        EXPECT_NE(c.ErrorText().find("common.hlsli"), std::string::npos) << c.ErrorText();
    }

    TEST(ShaderCache, ThreadsCompilingAtOnceShareOneCompilerAndOneFolder)
    {
        TempDir dir;
        ShaderCompiler compiler(dir / "cache");
        std::vector<std::thread> threads;
        std::atomic<int> good{0};
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&, i] {
                // Two threads on each variant: they race to write the same entry.
                const std::string defines = "VARIANT=" + std::to_string(i / 2);
                for (int round = 0; round < 3; ++round)
                    good += compiler.Compile(ShaderSource{"a.zff", kShader}, Defines(defines.c_str())).ok;
            });
        for (std::thread& t : threads) t.join();
        EXPECT_EQ(good.load(), 12);
        EXPECT_EQ(Of(compiler).compiled + Of(compiler).hits, 12u);
        EXPECT_GE(Of(compiler).hits, 8u);
        size_t files = 0;
        for (const auto& e : std::filesystem::directory_iterator(dir / "cache")) files += e.path().extension() == ".zsc" ? 1 : 100;
        EXPECT_EQ(files, 2u); // no temporary left behind
    }

    TEST(ShaderCache, AnUnwritableFolderOnlyCostsTheCache)
    {
        TempDir dir;
        WriteFile(dir / "cache", "a file where the folder should be");
        ShaderCompiler compiler(dir / "cache");
        const ShaderSource source{"a.zff", kShader};
        EXPECT_TRUE(compiler.Compile(source, {}).ok);
        EXPECT_TRUE(compiler.Compile(source, {}).ok);
        EXPECT_EQ(Of(compiler).compiled, 2u);
        ShaderCompiler noCache;
        EXPECT_TRUE(noCache.Compile(source, {}).ok);
        EXPECT_FALSE(noCache.Compile(source, {}).fromCache);
    }

    TEST(ShaderCache, RoundTripKeepsEveryField)
    {
        ShaderCompiler compiler;
        const CompiledShader s = compiler.CompileNamed(ZEM_CONTENT_DIR, "Toolchain/Shaders/Basic.zff");
        ASSERT_TRUE(s.ok);
        const std::vector<ShaderDependency> deps{{"x/common.hlsli", 42}};
        const std::string bytes = ShaderCache::Serialize(7, "v1", s, deps);
        CompiledShader back;
        std::vector<ShaderDependency> backDeps;
        ASSERT_TRUE(ShaderCache::Deserialize(bytes, 7, "v1", back, backDeps));
        EXPECT_EQ(ShaderCache::Serialize(7, "v1", back, backDeps), bytes);
        ASSERT_EQ(backDeps.size(), 1u);
        EXPECT_EQ(backDeps[0].hash, 42u);
        const ShaderStageCode& vs = back.Technique(ShaderTechnique::Skinned).Stage(ShaderStage::Vertex);
        EXPECT_EQ(vs.vertexInputs.size(), 5u);
        EXPECT_EQ(vs.glsl, s.Technique(ShaderTechnique::Skinned).Stage(ShaderStage::Vertex).glsl);
        EXPECT_FALSE(ShaderCache::Deserialize(bytes, 8, "v1", back, backDeps)); // another key
        EXPECT_FALSE(ShaderCache::Deserialize(bytes, 7, "v2", back, backDeps)); // another toolchain
    }
}
