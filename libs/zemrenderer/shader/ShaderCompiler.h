#pragma once
// HLSL `.zff` files to GLSL 4.50 with reflection, through SPIR-V, cached on disk.
//
// Every technique's stage starts at a fixed function (ShaderEntryPoint): a file has the
// functions it needs, at least VS_Default or CS_Default, and a pixel or geometry function
// only beside the vertex one of its technique. `_GL=1` is always defined, beside the
// caller's defines. A compile error leaves `ok` false with each message split into file,
// line and text; nothing else is affected. Safe to call from several threads at once.
#include <atomic>
#include <string>

#include "zemrenderer/shader/ShaderCache.h"
#include "zemrenderer/shader/ShaderTypes.h"

namespace ZemRenderer
{
    class ShaderCompiler
    {
    public:
        // An empty directory compiles without a disk cache.
        explicit ShaderCompiler(std::string cacheDirectory = {});
        ~ShaderCompiler();
        ShaderCompiler(const ShaderCompiler&) = delete;
        ShaderCompiler& operator=(const ShaderCompiler&) = delete;

        // `bypassCache` compiles even when a cached result exists (a reload after an edit),
        // and then replaces that result.
        CompiledShader Compile(const ShaderSource& source, const ShaderDefines& defines, bool bypassCache = false);
        // Loads the file of a name as effects write it, `path -param "A=1"`, with paths
        // relative to `root`, and compiles it. Bad names and files come back as errors.
        CompiledShader CompileNamed(const std::string& root, std::string_view name, bool bypassCache = false);

        // Names every part that changes the output; part of each cache key.
        static const std::string& ToolchainVersion();

        struct Counters
        {
            std::atomic<uint32_t> compiled{0};    // compiles that ran the front end
            std::atomic<uint32_t> cacheHits{0};
            std::atomic<uint32_t> cacheRejected{0}; // files present but not trusted, or stale includes
        };
        const Counters& GetCounters() const { return m_counters; }

    private:
        struct Impl;
        Impl* m_pImpl;
        ShaderCache m_cache;
        Counters m_counters;
    };
}
