#pragma once
// Scratch folders and small file helpers for the stream and package tests.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace ZemRenderer::IOTest
{
    class TempDir
    {
    public:
        TempDir()
        {
            char pattern[] = "/tmp/zem_io_XXXXXX";
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
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    inline std::string ReadFile(const std::string& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }

    inline void Put32(std::string& s, size_t at, unsigned int v, bool bigEndian = false)
    {
        for (int i = 0; i < 4; ++i)
            s[at + i] = static_cast<char>((v >> (bigEndian ? 24 - 8 * i : 8 * i)) & 0xFF);
    }

    // The smallest useful package: the header, one entry and its data.
    inline std::string MakePackage(const std::string& root, const std::string& name, const std::string& data,
                                   bool bigEndian = false)
    {
        std::string p(256, '\0');
        Put32(p, 0, 0x01439855, bigEndian);
        Put32(p, 4, 1, bigEndian);
        p.replace(8, root.size(), root);
        Put32(p, 128, static_cast<unsigned int>(data.size()), bigEndian);
        Put32(p, 132, 256, bigEndian);
        p.replace(136, name.size(), name);
        return p + data;
    }
}
