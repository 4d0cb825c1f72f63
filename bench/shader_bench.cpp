// Shader loading: a cold compile against a cache hit for the same shader, and the whole
// shipped set of shader variants cold and warm. Baseline: reading the source file alone,
// which a cache hit must do anyway to compute its key.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "zemrenderer/shader/ShaderCompiler.h"

using namespace ZemRenderer;

namespace
{
    const char* const kBasic = "Toolchain/Shaders/Basic.zff";

    const std::vector<std::string>& ShippedSet()
    {
        static const std::vector<std::string> s_kNames = [] {
            std::vector<std::string> n{"Toolchain/Shaders/Basic.zff",
                                       "Toolchain/Shaders/Basic.zff -param \"_WIN32=1 _DX11=1 ShaderDefine_force_checkboard_diffuse=1\"",
                                       "Toolchain/Shaders/fsq_copy.zff", "Toolchain/Shaders/fsq_compose.zff"};
            for (int f = 0; f < 6; ++f) n.push_back("Toolchain/Shaders/fsq_copy.zff -param \"CUBE_FACE=" + std::to_string(f) + "\"");
            for (const char* p : {"", " USE_SRGB=1", " CHANNEL_ONLY=1", " CHANNEL_ONLY=2", " CHANNEL_ONLY=3", " CHANNEL_ONLY=4",
                                  " DEBUG_COLOR_RANGE=1"})
                n.push_back(std::string("Toolchain/Shaders/fsq_compose.zff -param \"USE_SIMPLE=1") + p + "\"");
            return n;
        }();
        return s_kNames;
    }

    std::string CacheDir()
    {
        static const std::string s_kDir = [] {
            char pattern[] = "/tmp/zem_shader_bench_XXXXXX";
            const char* made = mkdtemp(pattern);
            std::atexit([] {
                std::error_code ec;
                std::filesystem::remove_all(CacheDir(), ec);
            });
            return std::string(made ? made : "");
        }();
        return s_kDir;
    }

    void BM_ReadSourceOnly(benchmark::State& state)
    {
        for (auto _ : state)
        {
            std::ifstream in(std::string(ZEM_CONTENT_DIR) + "/" + kBasic, std::ios::binary);
            std::ostringstream s;
            s << in.rdbuf();
            benchmark::DoNotOptimize(s.str());
        }
    }
    BENCHMARK(BM_ReadSourceOnly)->Unit(benchmark::kMicrosecond);

    void BM_BasicColdCompile(benchmark::State& state)
    {
        ShaderCompiler compiler;
        for (auto _ : state)
        {
            CompiledShader s = compiler.CompileNamed(ZEM_CONTENT_DIR, kBasic);
            if (!s.ok) state.SkipWithError("compile failed");
            benchmark::DoNotOptimize(s);
        }
    }
    BENCHMARK(BM_BasicColdCompile)->Unit(benchmark::kMillisecond);

    void BM_BasicCacheHit(benchmark::State& state)
    {
        ShaderCompiler warmUp(CacheDir());
        warmUp.CompileNamed(ZEM_CONTENT_DIR, kBasic);
        for (auto _ : state)
        {
            // A fresh compiler each time: what a new start of the engine sees.
            ShaderCompiler compiler(CacheDir());
            CompiledShader s = compiler.CompileNamed(ZEM_CONTENT_DIR, kBasic);
            if (!s.fromCache) state.SkipWithError("not a cache hit");
            benchmark::DoNotOptimize(s);
        }
    }
    BENCHMARK(BM_BasicCacheHit)->Unit(benchmark::kMicrosecond);

    void BM_ShippedSetCold(benchmark::State& state)
    {
        ShaderCompiler compiler;
        for (auto _ : state)
            for (const std::string& name : ShippedSet())
                if (!compiler.CompileNamed(ZEM_CONTENT_DIR, name).ok) state.SkipWithError("compile failed");
        state.counters["variants"] = static_cast<double>(ShippedSet().size());
    }
    BENCHMARK(BM_ShippedSetCold)->Unit(benchmark::kMillisecond);

    void BM_ShippedSetWarm(benchmark::State& state)
    {
        {
            ShaderCompiler warmUp(CacheDir());
            for (const std::string& name : ShippedSet()) warmUp.CompileNamed(ZEM_CONTENT_DIR, name);
        }
        for (auto _ : state)
        {
            ShaderCompiler compiler(CacheDir());
            for (const std::string& name : ShippedSet())
                if (!compiler.CompileNamed(ZEM_CONTENT_DIR, name).fromCache) state.SkipWithError("not a cache hit");
        }
        state.counters["variants"] = static_cast<double>(ShippedSet().size());
    }
    BENCHMARK(BM_ShippedSetWarm)->Unit(benchmark::kMillisecond);
}
