// Parsing of the `-param` text and of shader names, and the small naming helpers.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "zemrenderer/shader/ShaderTypes.h"

namespace ZemRenderer
{
    namespace
    {
        bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
        bool IsNameStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
        bool IsNameChar(char c) { return IsNameStart(c) || (c >= '0' && c <= '9'); }
        // A value is one token the preprocessor can take: no quotes, no blanks, no
        // characters that would end or change a #define line.
        bool IsValueChar(char c)
        {
            return static_cast<unsigned char>(c) > ' ' && static_cast<unsigned char>(c) < 0x7F && c != '"' && c != '\'' &&
                   c != '\\' && c != '#' && c != '=';
        }
        std::string Quoted(std::string_view s) { return "\"" + std::string(s.substr(0, 64)) + (s.size() > 64 ? "...\"" : "\""); }
    }

    const char* ShaderStageName(ShaderStage stage)
    {
        static const char* const kNames[] = {"Vertex", "Pixel", "Geometry", "Compute"};
        return kNames[static_cast<int>(stage)];
    }

    const char* ShaderTechniqueName(ShaderTechnique technique)
    {
        static const char* const kNames[] = {"Default", "Instanced", "Skinned", "InstancedSkinned"};
        return kNames[static_cast<int>(technique)];
    }

    std::string ShaderEntryPoint(ShaderTechnique technique, ShaderStage stage)
    {
        static const char* const kPrefix[] = {"VS_", "PS_", "GS_", "CS_"};
        return std::string(kPrefix[static_cast<int>(stage)]) + ShaderTechniqueName(technique);
    }

    bool ShaderSource::Load(const std::string& path, ShaderSource& out, std::string& error)
    {
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec))
        {
            error = "Shader file " + path + " is a folder";
            return false;
        }
        std::ifstream in(path, std::ios::binary);
        if (!in)
        {
            error = "Shader file " + path + " cannot be opened";
            return false;
        }
        std::ostringstream text;
        text << in.rdbuf();
        if (in.bad())
        {
            error = "Shader file " + path + " cannot be read";
            return false;
        }
        out.path = path;
        out.text = text.str();
        if (std::all_of(out.text.begin(), out.text.end(), IsBlank))
        {
            error = "Shader file " + path + " is empty";
            return false;
        }
        return true;
    }

    bool ShaderDefines::Parse(std::string_view text, ShaderDefines& out, std::string& error)
    {
        out.entries.clear();
        size_t i = 0;
        while (true)
        {
            while (i < text.size() && IsBlank(text[i])) ++i;
            if (i == text.size()) break;
            const size_t nameStart = i;
            if (!IsNameStart(text[i]))
            {
                error = "Bad shader parameter at " + Quoted(text.substr(i)) + ": a define name must start with a letter or _";
                out.entries.clear();
                return false;
            }
            while (i < text.size() && IsNameChar(text[i])) ++i;
            std::string name(text.substr(nameStart, i - nameStart));
            std::string value = "1";
            if (i < text.size() && text[i] == '=')
            {
                const size_t valueStart = ++i;
                while (i < text.size() && IsValueChar(text[i])) ++i;
                value.assign(text.substr(valueStart, i - valueStart));
                if (value.empty())
                {
                    error = "Bad shader parameter " + Quoted(name) + ": '=' without a value";
                    out.entries.clear();
                    return false;
                }
            }
            if (i < text.size() && !IsBlank(text[i]))
            {
                error = "Bad shader parameter at " + Quoted(text.substr(nameStart)) + ": unexpected character '" +
                        std::string(1, text[i]) + "'";
                out.entries.clear();
                return false;
            }
            if (name == "_GL")
            {
                error = "Bad shader parameter _GL: the compiler defines it";
                out.entries.clear();
                return false;
            }
            for (const auto& e : out.entries)
                if (e.first == name)
                {
                    error = "Bad shader parameter " + Quoted(name) + ": defined twice";
                    out.entries.clear();
                    return false;
                }
            out.entries.emplace_back(std::move(name), std::move(value));
        }
        std::sort(out.entries.begin(), out.entries.end());
        return true;
    }

    std::string ShaderDefines::ToString() const
    {
        std::string s;
        for (const auto& e : entries)
        {
            if (!s.empty()) s += ' ';
            s += e.first + '=' + e.second;
        }
        return s;
    }

    bool ParseShaderName(std::string_view name, std::string& path, ShaderDefines& defines, std::string& error)
    {
        defines.entries.clear();
        static constexpr std::string_view kParam = "-param";
        size_t at = name.find(kParam);
        // "-param" only counts as a word of its own, after a blank.
        while (at != std::string_view::npos && (at == 0 || !IsBlank(name[at - 1])))
            at = name.find(kParam, at + 1);
        std::string_view file = name.substr(0, at);
        while (!file.empty() && IsBlank(file.back())) file.remove_suffix(1);
        while (!file.empty() && IsBlank(file.front())) file.remove_prefix(1);
        if (file.empty())
        {
            error = "Bad shader name " + Quoted(name) + ": no file";
            return false;
        }
        path.assign(file);
        if (at == std::string_view::npos) return true;

        std::string_view rest = name.substr(at + kParam.size());
        size_t i = 0;
        while (i < rest.size() && IsBlank(rest[i])) ++i;
        if (i == rest.size() || rest[i] != '"')
        {
            error = "Bad shader name " + Quoted(name) + ": -param must be followed by a quoted text";
            return false;
        }
        const size_t close = rest.find('"', i + 1);
        if (close == std::string_view::npos)
        {
            error = "Bad shader name " + Quoted(name) + ": -param text has no closing quote";
            return false;
        }
        for (size_t j = close + 1; j < rest.size(); ++j)
            if (!IsBlank(rest[j]))
            {
                error = "Bad shader name " + Quoted(name) + ": text after the -param quote";
                return false;
            }
        return ShaderDefines::Parse(rest.substr(i + 1, close - i - 1), defines, error);
    }

    std::string CompiledShader::ErrorText() const
    {
        std::string s;
        for (const ShaderDiagnostic& d : errors)
        {
            s += d.file;
            if (d.line > 0) s += "(" + std::to_string(d.line) + ")";
            s += " : " + d.message + "\n";
        }
        return s;
    }
}
