#include "zemrenderer/shader/ShaderCompiler.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <glslang/build_info.h>
#include <shaderc/shaderc.h>
#include <spirv_cross_c.h>

#include "zemrenderer/shader/SpirvToGlsl.h"

#ifndef ZEM_SHADERC_VERSION
#define ZEM_SHADERC_VERSION "unknown"
#endif

namespace ZemRenderer
{
    namespace
    {
        // Bump when anything this file or SpirvToGlsl does changes the output.
        constexpr int kToolchainRevision = 2;

        shaderc_shader_kind KindOf(ShaderStage stage)
        {
            switch (stage)
            {
                case ShaderStage::Vertex: return shaderc_vertex_shader;
                case ShaderStage::Pixel: return shaderc_fragment_shader;
                case ShaderStage::Geometry: return shaderc_geometry_shader;
                default: return shaderc_compute_shader;
            }
        }

        bool ReadFile(const std::string& path, std::string& out)
        {
            std::ifstream in(path, std::ios::binary);
            if (!in) return false;
            std::ostringstream s;
            s << in.rdbuf();
            out = s.str();
            return !in.bad();
        }

        // #include resolution for one compile: relative to the including file, with every
        // file read recorded so that a cached result can tell when an include changed.
        struct Includes
        {
            std::vector<ShaderDependency> deps;
            struct Result
            {
                shaderc_include_result result{};
                std::string name, content;
            };

            static shaderc_include_result* Resolve(void* self, const char* requested, int, const char* requesting, size_t)
            {
                auto* inc = static_cast<Includes*>(self);
                auto* r = new Result;
                const std::filesystem::path base = std::filesystem::path(requesting).parent_path();
                const std::string path = (base / requested).lexically_normal().string();
                if (ReadFile(path, r->content))
                {
                    r->name = path;
                    bool known = false;
                    for (const ShaderDependency& d : inc->deps) known = known || d.path == path;
                    if (!known) inc->deps.push_back({path, HashBytes(r->content)});
                }
                else
                    r->content = "cannot open included file " + path; // an empty name marks a failure
                r->result = {r->name.data(), r->name.size(), r->content.data(), r->content.size(), r};
                return &r->result;
            }
            static void Release(void*, shaderc_include_result* result) { delete static_cast<Result*>(result->user_data); }
        };

        // Messages come as "file:line: error: text" (or without the line); summaries such as
        // "1 error generated." and warnings are not errors.
        void ParseDiagnostics(const std::string& text, const std::string& fallbackFile, std::vector<ShaderDiagnostic>& out)
        {
            std::istringstream lines(text);
            std::string line;
            while (std::getline(lines, line))
            {
                const size_t tag = line.find(": error: ");
                if (tag == std::string::npos)
                {
                    if (line.rfind("error: ", 0) == 0) out.push_back({fallbackFile, 0, line.substr(7)});
                    continue;
                }
                ShaderDiagnostic d;
                d.message = line.substr(tag + 9);
                std::string where = line.substr(0, tag);
                const size_t colon = where.rfind(':');
                if (colon != std::string::npos && colon + 1 < where.size() &&
                    std::all_of(where.begin() + static_cast<long>(colon) + 1, where.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
                {
                    d.line = std::atoi(where.c_str() + colon + 1);
                    where.resize(colon);
                }
                d.file = where.empty() ? fallbackFile : where;
                out.push_back(std::move(d));
            }
            if (out.empty() && !text.empty()) out.push_back({fallbackFile, 0, text});
        }

        // Which fixed entry functions the preprocessed text defines (or at least names as a
        // call), so that only those are compiled.
        std::set<std::string> FindEntryPoints(std::string_view text)
        {
            std::set<std::string> wanted, found;
            for (int t = 0; t < kShaderTechniqueCount; ++t)
                for (int s = 0; s < kShaderStageCount; ++s)
                    wanted.insert(ShaderEntryPoint(static_cast<ShaderTechnique>(t), static_cast<ShaderStage>(s)));
            size_t i = 0;
            while (i < text.size())
            {
                if (!(std::isalpha(static_cast<unsigned char>(text[i])) || text[i] == '_'))
                {
                    ++i;
                    continue;
                }
                const size_t start = i;
                while (i < text.size() && (std::isalnum(static_cast<unsigned char>(text[i])) || text[i] == '_')) ++i;
                size_t j = i;
                while (j < text.size() && std::isspace(static_cast<unsigned char>(text[j]))) ++j;
                if (j < text.size() && text[j] == '(')
                {
                    std::string word(text.substr(start, i - start));
                    if (wanted.count(word)) found.insert(std::move(word));
                }
            }
            return found;
        }

        std::string DisplayName(const ShaderSource& source, const ShaderDefines& defines)
        {
            return defines.entries.empty() ? source.path : source.path + " -param \"" + defines.ToString() + "\"";
        }
    }

    struct ShaderCompiler::Impl
    {
        shaderc_compiler_t compiler = shaderc_compiler_initialize();
        ~Impl() { shaderc_compiler_release(compiler); }

        shaderc_compile_options_t Options(const ShaderDefines& defines, Includes& includes) const
        {
            shaderc_compile_options_t o = shaderc_compile_options_initialize();
            shaderc_compile_options_set_source_language(o, shaderc_source_language_hlsl);
            shaderc_compile_options_set_target_env(o, shaderc_target_env_opengl, shaderc_env_version_opengl_4_5);
            // Bindings are the HLSL registers, offset per class, so reflection gives the
            // registers back and the role check can compare them.
            shaderc_compile_options_set_hlsl_io_mapping(o, true);
            shaderc_compile_options_set_auto_bind_uniforms(o, true);
            shaderc_compile_options_set_binding_base(o, shaderc_uniform_kind_buffer, 0);
            shaderc_compile_options_set_binding_base(o, shaderc_uniform_kind_texture, kTextureBindingBase);
            shaderc_compile_options_set_binding_base(o, shaderc_uniform_kind_sampler, kSamplerBindingBase);
            shaderc_compile_options_set_binding_base(o, shaderc_uniform_kind_unordered_access_view, kUavBindingBase);
            shaderc_compile_options_set_hlsl_offsets(o, true);
            // Keeps each input's and output's semantic in the code for layout matching.
            shaderc_compile_options_set_hlsl_functionality1(o, true);
            shaderc_compile_options_set_auto_map_locations(o, true);
            for (const auto& d : defines.entries)
                shaderc_compile_options_add_macro_definition(o, d.first.data(), d.first.size(), d.second.data(), d.second.size());
            shaderc_compile_options_add_macro_definition(o, "_GL", 3, "1", 1);
            shaderc_compile_options_set_include_callbacks(o, &Includes::Resolve, &Includes::Release, &includes);
            return o;
        }
    };

    ShaderCompiler::ShaderCompiler(std::string cacheDirectory) : m_pImpl(new Impl), m_cache(std::move(cacheDirectory)) {}
    ShaderCompiler::~ShaderCompiler() { delete m_pImpl; }

    const std::string& ShaderCompiler::ToolchainVersion()
    {
        static const std::string s_kVersion = [] {
            unsigned major = 0, minor = 0, patch = 0;
            spvc_get_version(&major, &minor, &patch);
            unsigned spv = 0, spvRevision = 0;
            shaderc_get_spv_version(&spv, &spvRevision);
            std::ostringstream s;
            s << "zemshader " << kToolchainRevision << "; shaderc " << ZEM_SHADERC_VERSION << " spv " << std::hex << spv << std::dec
              << "." << spvRevision << "; glslang " << GLSLANG_VERSION_MAJOR << "." << GLSLANG_VERSION_MINOR << "."
              << GLSLANG_VERSION_PATCH << "; spirv-cross-c " << major << "." << minor << "." << patch;
            return s.str();
        }();
        return s_kVersion;
    }

    CompiledShader ShaderCompiler::Compile(const ShaderSource& source, const ShaderDefines& defines, bool bypassCache)
    {
        CompiledShader result;
        result.name = DisplayName(source, defines);
        const std::string file = source.path.empty() ? std::string("<memory>") : source.path;
        if (std::all_of(source.text.begin(), source.text.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); }))
        {
            result.errors.push_back({file, 0, "the shader is empty"});
            return result;
        }

        const uint64_t key = ShaderCache::Key(ToolchainVersion(), source.path, source.text, defines);
        if (!bypassCache && m_cache.Enabled())
        {
            CompiledShader cached;
            std::vector<ShaderDependency> deps;
            if (m_cache.Load(key, ToolchainVersion(), cached, deps))
            {
                bool current = true;
                for (const ShaderDependency& d : deps)
                {
                    std::string bytes;
                    current = current && ReadFile(d.path, bytes) && HashBytes(bytes) == d.hash;
                }
                if (current)
                {
                    ++m_counters.cacheHits;
                    cached.name = result.name;
                    return cached;
                }
            }
            if (std::filesystem::exists(m_cache.PathOf(key))) ++m_counters.cacheRejected;
        }

        ++m_counters.compiled;
        Includes includes;
        shaderc_compile_options_t options = m_pImpl->Options(defines, includes);

        std::set<std::string> entries;
        {
            shaderc_compilation_result_t pre = shaderc_compile_into_preprocessed_text(
                m_pImpl->compiler, source.text.data(), source.text.size(), shaderc_vertex_shader, file.c_str(), "main", options);
            if (shaderc_result_get_compilation_status(pre) != shaderc_compilation_status_success)
                ParseDiagnostics(shaderc_result_get_error_message(pre), file, result.errors);
            else
                entries = FindEntryPoints(std::string_view(shaderc_result_get_bytes(pre), shaderc_result_get_length(pre)));
            shaderc_result_release(pre);
        }
        if (result.errors.empty())
        {
            if (!entries.count("VS_Default") && !entries.count("CS_Default"))
                result.errors.push_back({file, 0, "no entry point: a shader needs VS_Default (with PS_Default to draw) or CS_Default"});
            for (int t = 0; t < kShaderTechniqueCount; ++t)
            {
                const auto technique = static_cast<ShaderTechnique>(t);
                const bool hasVertex = entries.count(ShaderEntryPoint(technique, ShaderStage::Vertex)) != 0;
                for (ShaderStage s : {ShaderStage::Pixel, ShaderStage::Geometry})
                    if (!hasVertex && entries.count(ShaderEntryPoint(technique, s)))
                        result.errors.push_back({file, 0, ShaderEntryPoint(technique, s) + " has no " +
                                                              ShaderEntryPoint(technique, ShaderStage::Vertex) + " beside it"});
            }
        }

        for (int t = 0; t < kShaderTechniqueCount && result.errors.empty(); ++t)
        {
            TechniqueLinks links;
            // Vertex first, then geometry, then pixel: varyings get their locations in the
            // order data flows.
            for (ShaderStage stage : {ShaderStage::Vertex, ShaderStage::Geometry, ShaderStage::Pixel, ShaderStage::Compute})
            {
                const std::string entry = ShaderEntryPoint(static_cast<ShaderTechnique>(t), stage);
                if (!entries.count(entry)) continue;
                shaderc_compilation_result_t r = shaderc_compile_into_spv(m_pImpl->compiler, source.text.data(), source.text.size(),
                                                                          KindOf(stage), file.c_str(), entry.c_str(), options);
                if (shaderc_result_get_compilation_status(r) != shaderc_compilation_status_success)
                {
                    // Each entry point's compile parses the whole file, so an error outside
                    // the entry functions comes once per entry point: keep the first.
                    std::vector<ShaderDiagnostic> found;
                    ParseDiagnostics(shaderc_result_get_error_message(r), file, found);
                    for (ShaderDiagnostic& d : found)
                    {
                        bool seen = false;
                        for (const ShaderDiagnostic& e : result.errors)
                            seen = seen || (e.file == d.file && e.line == d.line && e.message == d.message);
                        if (!seen) result.errors.push_back(std::move(d));
                    }
                    shaderc_result_release(r);
                    continue;
                }
                const auto* words = reinterpret_cast<const uint32_t*>(shaderc_result_get_bytes(r));
                std::vector<uint32_t> spirv(words, words + shaderc_result_get_length(r) / sizeof(uint32_t));
                shaderc_result_release(r);
                std::string error;
                ShaderStageCode& code = result.techniques[t].stages[static_cast<int>(stage)];
                if (!SpirvToGlsl(spirv, stage, links, code, error))
                {
                    if (error.find("Buffer block cannot be expressed") != std::string::npos)
                        error += " (a GL uniform block needs std140 offsets: start a float2 on 8 bytes, a float3 or float4 on 16)";
                    result.errors.push_back({file, 0, "GLSL generation of " + entry + " failed: " + error});
                    code = ShaderStageCode{};
                }
            }
        }
        shaderc_compile_options_release(options);

        if (!result.errors.empty())
        {
            // Half a shader must not be drawn with.
            result.techniques = {};
            return result;
        }
        result.ok = true;
        m_cache.Store(key, ToolchainVersion(), result, includes.deps);
        return result;
    }

    CompiledShader ShaderCompiler::CompileNamed(const std::string& root, std::string_view name, bool bypassCache)
    {
        std::string path, error;
        ShaderDefines defines;
        CompiledShader failed;
        failed.name = std::string(name);
        if (!ParseShaderName(name, path, defines, error))
        {
            failed.errors.push_back({std::string(name), 0, error});
            return failed;
        }
        ShaderSource source;
        const std::string full = root.empty() || std::filesystem::path(path).is_absolute() ? path : (std::filesystem::path(root) / path).string();
        if (!ShaderSource::Load(full, source, error))
        {
            failed.errors.push_back({full, 0, error});
            return failed;
        }
        return Compile(source, defines, bypassCache);
    }
}
