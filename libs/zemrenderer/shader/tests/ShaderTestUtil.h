#pragma once
// Scratch folders and lookups shared by the shader toolchain tests.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "zemrenderer/shader/ShaderTypes.h"

namespace ZemRenderer::ShaderTest
{
    class TempDir
    {
    public:
        TempDir()
        {
            char pattern[] = "/tmp/zem_shader_XXXXXX";
            const char* made = mkdtemp(pattern);
            m_kPath = made ? made : "";
        }
        ~TempDir()
        {
            std::error_code ec;
            if (!m_kPath.empty()) std::filesystem::remove_all(m_kPath, ec);
        }
        TempDir(const TempDir&) = delete;
        TempDir& operator=(const TempDir&) = delete;
        const std::string& Path() const { return m_kPath; }
        std::string operator/(const std::string& rel) const { return m_kPath + "/" + rel; }

    private:
        std::string m_kPath;
    };

    inline void WriteFile(const std::string& path, const std::string& bytes)
    {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out << bytes;
    }

    inline const ShaderConstantBuffer* FindBuffer(const ShaderStageCode& s, const std::string& name)
    {
        for (const ShaderConstantBuffer& cb : s.constantBuffers)
            if (cb.name == name) return &cb;
        return nullptr;
    }

    inline const ShaderConstant* FindMember(const ShaderConstantBuffer& cb, const std::string& name)
    {
        for (const ShaderConstant& m : cb.members)
            if (m.name == name) return &m;
        return nullptr;
    }

    inline const ShaderResource* FindResource(const ShaderStageCode& s, const std::string& name)
    {
        for (const ShaderResource& r : s.resources)
            if (r.name == name) return &r;
        return nullptr;
    }
}
