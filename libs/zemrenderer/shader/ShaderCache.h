#pragma once
// Compiled shaders on disk, one file per (source, defines, toolchain version). A file is
// only ever trusted whole: a wrong magic, version, key, length or checksum, or a field that
// runs past the end, makes it a miss, and the caller compiles and writes it again.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "zemrenderer/shader/ShaderTypes.h"

namespace ZemRenderer
{
    // A file the source pulled in with #include, and the hash of its bytes when compiled.
    struct ShaderDependency
    {
        std::string path;
        uint64_t hash = 0;
    };

    uint64_t HashBytes(std::string_view bytes, uint64_t seed = 14695981039346656037ull);

    class ShaderCache
    {
    public:
        // An empty directory disables the disk: every lookup misses and nothing is written.
        explicit ShaderCache(std::string directory) : m_directory(std::move(directory)) {}

        // The path is part of the key because #include resolves relative to it: equal text
        // in two folders may pull in different files.
        static uint64_t Key(std::string_view toolchainVersion, std::string_view path, std::string_view source,
                            const ShaderDefines& defines);
        std::string PathOf(uint64_t key) const;
        bool Enabled() const { return !m_directory.empty(); }

        bool Load(uint64_t key, std::string_view toolchainVersion, CompiledShader& out, std::vector<ShaderDependency>& deps) const;
        // Writes beside the final name and renames, so that a reader never sees half a file.
        bool Store(uint64_t key, std::string_view toolchainVersion, const CompiledShader& shader,
                   const std::vector<ShaderDependency>& deps) const;

        static std::string Serialize(uint64_t key, std::string_view toolchainVersion, const CompiledShader& shader,
                                     const std::vector<ShaderDependency>& deps);
        static bool Deserialize(std::string_view bytes, uint64_t key, std::string_view toolchainVersion, CompiledShader& out,
                                std::vector<ShaderDependency>& deps);

    private:
        std::string m_directory;
    };
}
