#include "zemrenderer/shader/ShaderCache.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace ZemRenderer
{
    namespace
    {
        constexpr char kMagic[4] = {'Z', 'S', 'H', 'C'};
        constexpr uint32_t kFormatVersion = 1;

        class Writer
        {
        public:
            std::string bytes;
            template <class T> void Pod(T v) { bytes.append(reinterpret_cast<const char*>(&v), sizeof v); }
            void Str(std::string_view s)
            {
                Pod(static_cast<uint32_t>(s.size()));
                bytes.append(s);
            }
        };

        // Every read checks what is left; after the first failure everything reads as zero
        // and `ok` stays false, so parsing code needs no checks of its own between fields.
        class Reader
        {
        public:
            explicit Reader(std::string_view b) : m_bytes(b) {}
            bool ok = true;

            template <class T> T Pod()
            {
                T v{};
                if (!ok || m_bytes.size() - m_at < sizeof v)
                {
                    ok = false;
                    return T{};
                }
                std::memcpy(&v, m_bytes.data() + m_at, sizeof v);
                m_at += sizeof v;
                return v;
            }
            std::string Str()
            {
                const uint32_t n = Pod<uint32_t>();
                if (!ok || m_bytes.size() - m_at < n)
                {
                    ok = false;
                    return {};
                }
                std::string s(m_bytes.substr(m_at, n));
                m_at += n;
                return s;
            }
            // A count of items that take at least `minBytes` each cannot exceed what is left,
            // so a corrupt count never drives a huge allocation.
            uint32_t Count(size_t minBytes)
            {
                const uint32_t n = Pod<uint32_t>();
                if (ok && static_cast<uint64_t>(n) * minBytes > m_bytes.size() - m_at) ok = false;
                return ok ? n : 0;
            }
            template <class E> E Enum(E last)
            {
                const uint8_t v = Pod<uint8_t>();
                if (v > static_cast<uint8_t>(last)) ok = false;
                return static_cast<E>(ok ? v : 0);
            }
            bool AtEnd() const { return m_at == m_bytes.size(); }

        private:
            std::string_view m_bytes;
            size_t m_at = 0;
        };

        void WriteStage(Writer& w, const ShaderStageCode& s)
        {
            w.Pod<uint8_t>(s.Present() ? 1 : 0);
            if (!s.Present()) return;
            w.Str(s.glsl);
            w.Pod(s.blobHash);
            w.Pod(static_cast<uint32_t>(s.constantBuffers.size()));
            for (const ShaderConstantBuffer& cb : s.constantBuffers)
            {
                w.Str(cb.name);
                w.Pod<int32_t>(cb.registerIndex);
                w.Pod(cb.size);
                w.Pod(static_cast<uint32_t>(cb.members.size()));
                for (const ShaderConstant& m : cb.members)
                {
                    w.Str(m.name);
                    w.Pod(m.offset);
                    w.Pod(m.size);
                    w.Pod(static_cast<uint8_t>(m.scalar));
                    w.Pod(m.vectorSize);
                    w.Pod(m.columns);
                    w.Pod(m.arraySize);
                }
            }
            w.Pod(static_cast<uint32_t>(s.resources.size()));
            for (const ShaderResource& r : s.resources)
            {
                w.Str(r.name);
                w.Pod(static_cast<uint8_t>(r.kind));
                w.Pod<int32_t>(r.registerIndex);
            }
            w.Pod(static_cast<uint32_t>(s.samplerUnits.size()));
            for (const ShaderSamplerUnit& u : s.samplerUnits)
            {
                w.Str(u.texture);
                w.Str(u.sampler);
                w.Pod<int32_t>(u.unit);
            }
            w.Pod(static_cast<uint32_t>(s.vertexInputs.size()));
            for (const ShaderVertexInput& v : s.vertexInputs)
            {
                w.Str(v.semantic);
                w.Pod(v.semanticIndex);
                w.Pod<int32_t>(v.location);
                w.Pod(static_cast<uint8_t>(v.scalar));
                w.Pod(v.components);
            }
            for (uint32_t g : s.threadGroupSize) w.Pod(g);
        }

        void ReadStage(Reader& r, ShaderStageCode& s)
        {
            if (r.Pod<uint8_t>() == 0) return;
            s.glsl = r.Str();
            if (s.glsl.empty()) r.ok = false; // a present stage has code
            s.blobHash = r.Pod<uint64_t>();
            s.constantBuffers.resize(r.Count(16));
            for (ShaderConstantBuffer& cb : s.constantBuffers)
            {
                cb.name = r.Str();
                cb.registerIndex = r.Pod<int32_t>();
                cb.size = r.Pod<uint32_t>();
                cb.members.resize(r.Count(19));
                for (ShaderConstant& m : cb.members)
                {
                    m.name = r.Str();
                    m.offset = r.Pod<uint32_t>();
                    m.size = r.Pod<uint32_t>();
                    m.scalar = r.Enum(ShaderScalar::Other);
                    m.vectorSize = r.Pod<uint8_t>();
                    m.columns = r.Pod<uint8_t>();
                    m.arraySize = r.Pod<uint32_t>();
                }
            }
            s.resources.resize(r.Count(9));
            for (ShaderResource& res : s.resources)
            {
                res.name = r.Str();
                res.kind = r.Enum(ShaderResourceKind::StorageImage);
                res.registerIndex = r.Pod<int32_t>();
            }
            s.samplerUnits.resize(r.Count(12));
            for (ShaderSamplerUnit& u : s.samplerUnits)
            {
                u.texture = r.Str();
                u.sampler = r.Str();
                u.unit = r.Pod<int32_t>();
            }
            s.vertexInputs.resize(r.Count(14));
            for (ShaderVertexInput& v : s.vertexInputs)
            {
                v.semantic = r.Str();
                v.semanticIndex = r.Pod<uint32_t>();
                v.location = r.Pod<int32_t>();
                v.scalar = r.Enum(ShaderScalar::Other);
                v.components = r.Pod<uint8_t>();
            }
            for (uint32_t& g : s.threadGroupSize) g = r.Pod<uint32_t>();
        }
    }

    uint64_t HashBytes(std::string_view bytes, uint64_t seed)
    {
        // FNV-1a, 64 bits.
        uint64_t h = seed;
        for (unsigned char c : bytes)
        {
            h ^= c;
            h *= 1099511628211ull;
        }
        return h;
    }

    uint64_t ShaderCache::Key(std::string_view toolchainVersion, std::string_view path, std::string_view source,
                              const ShaderDefines& defines)
    {
        // Each part is hashed with its length in front, so that no shift of bytes from one
        // part to the next gives the same key.
        uint64_t h = HashBytes({});
        const std::string defineText = defines.ToString();
        for (std::string_view part : {toolchainVersion, path, source, std::string_view(defineText)})
        {
            const uint64_t n = part.size();
            h = HashBytes(std::string_view(reinterpret_cast<const char*>(&n), sizeof n), h);
            h = HashBytes(part, h);
        }
        return h;
    }

    std::string ShaderCache::PathOf(uint64_t key) const
    {
        char name[32];
        std::snprintf(name, sizeof name, "%016llx.zsc", static_cast<unsigned long long>(key));
        return (std::filesystem::path(m_directory) / name).string();
    }

    std::string ShaderCache::Serialize(uint64_t key, std::string_view toolchainVersion, const CompiledShader& shader,
                                       const std::vector<ShaderDependency>& deps)
    {
        Writer body;
        body.Pod(static_cast<uint32_t>(deps.size()));
        for (const ShaderDependency& d : deps)
        {
            body.Str(d.path);
            body.Pod(d.hash);
        }
        for (const ShaderTechniqueCode& t : shader.techniques)
            for (const ShaderStageCode& s : t.stages) WriteStage(body, s);

        Writer w;
        w.bytes.append(kMagic, sizeof kMagic);
        w.Pod(kFormatVersion);
        w.Pod(key);
        w.Str(toolchainVersion);
        w.Pod(static_cast<uint64_t>(body.bytes.size()));
        w.Pod(HashBytes(body.bytes));
        w.bytes += body.bytes;
        return std::move(w.bytes);
    }

    bool ShaderCache::Deserialize(std::string_view bytes, uint64_t key, std::string_view toolchainVersion, CompiledShader& out,
                                  std::vector<ShaderDependency>& deps)
    {
        if (bytes.size() < sizeof kMagic || std::memcmp(bytes.data(), kMagic, sizeof kMagic) != 0) return false;
        Reader header(bytes.substr(sizeof kMagic));
        if (header.Pod<uint32_t>() != kFormatVersion || header.Pod<uint64_t>() != key || header.Str() != toolchainVersion)
            return false;
        const uint64_t size = header.Pod<uint64_t>();
        const uint64_t hash = header.Pod<uint64_t>();
        if (!header.ok) return false;
        if (size > bytes.size()) return false;
        const size_t headerSize = bytes.size() - static_cast<size_t>(size);
        const std::string_view body = bytes.substr(headerSize);
        // The header must end exactly where the body starts.
        if (headerSize != sizeof kMagic + sizeof(uint32_t) + sizeof(uint64_t) * 3 + sizeof(uint32_t) + toolchainVersion.size())
            return false;
        if (HashBytes(body) != hash) return false;

        Reader r(body);
        CompiledShader shader;
        std::vector<ShaderDependency> d(r.Count(12));
        for (ShaderDependency& dep : d)
        {
            dep.path = r.Str();
            dep.hash = r.Pod<uint64_t>();
        }
        for (ShaderTechniqueCode& t : shader.techniques)
            for (ShaderStageCode& s : t.stages) ReadStage(r, s);
        if (!r.ok || !r.AtEnd() || !shader.techniques[0].Present()) return false;
        shader.ok = true;
        shader.fromCache = true;
        out = std::move(shader);
        deps = std::move(d);
        return true;
    }

    bool ShaderCache::Load(uint64_t key, std::string_view toolchainVersion, CompiledShader& out,
                           std::vector<ShaderDependency>& deps) const
    {
        if (!Enabled()) return false;
        std::ifstream in(PathOf(key), std::ios::binary);
        if (!in) return false;
        std::ostringstream bytes;
        bytes << in.rdbuf();
        return Deserialize(bytes.str(), key, toolchainVersion, out, deps);
    }

    bool ShaderCache::Store(uint64_t key, std::string_view toolchainVersion, const CompiledShader& shader,
                            const std::vector<ShaderDependency>& deps) const
    {
        if (!Enabled()) return false;
        std::error_code ec;
        std::filesystem::create_directories(m_directory, ec);
        const std::string path = PathOf(key);
        // A name of its own per process and call, so that two writers never share a file.
        static std::atomic<uint32_t> s_counter{0};
        const std::string temp = path + "." + std::to_string(getpid()) + "." + std::to_string(s_counter++) + ".tmp";
        {
            std::ofstream out(temp, std::ios::binary | std::ios::trunc);
            if (!out) return false;
            const std::string bytes = Serialize(key, toolchainVersion, shader, deps);
            out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
            if (!out)
            {
                out.close();
                std::filesystem::remove(temp, ec);
                return false;
            }
        }
        std::filesystem::rename(temp, path, ec);
        if (ec) std::filesystem::remove(temp, ec);
        return !ec;
    }
}
