#include "zemengine/dataprovider/AssetManagerServer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/filesystem/FileSystem.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/dataprovider/AssetQueryJson.h"
#include "zemengine/engine/EngineHost.h"

namespace DataProvider
{
    namespace
    {
        class CAssetManagerInterface : public IRPCStub_AssetManagerInterface
        {
        public:
            explicit CAssetManagerInterface(CAssetManagerServer* server) : m_pServer(server) {}

            AssetResult QueryAssetData(AssetQuery query) override
            {
                AssetResult result;
                m_pServer->Cook(query, result);
                return result;
            }
            void CookAsset(AssetQuery query) override
            {
                AssetResult ignored;
                m_pServer->Cook(query, ignored);
            }
            ZemRenderer::TArray<Common::String> GetCookedAssetsList(const char*) override
            {
                return m_pServer->GetCookedKeyTexts();
            }

        private:
            CAssetManagerServer* m_pServer;
        };

        // Creates every missing folder above `path`.
        bool MakeParentFolders(const char* path)
        {
            char folder[Common::CFileSystem::PathBufferSize];
            std::snprintf(folder, sizeof(folder), "%s", path);
            char* last = std::strrchr(folder, '/');
            if (!last || last == folder) return true;
            *last = '\0';
            for (char* p = folder + 1; *p; ++p)
            {
                if (*p != '/') continue;
                *p = '\0';
                if (mkdir(folder, 0755) != 0 && errno != EEXIST) return false;
                *p = '/';
            }
            return mkdir(folder, 0755) == 0 || errno == EEXIST;
        }
    }

    void IRPCStub_AssetManagerInterface::Register(ZemEngine::CommandManager& m)
    {
        typedef IRPCStub_AssetManagerInterface A;
        m.RegisterSingleton<A>(kAssetManagerClass);
        m.RegisterReleaseRef<A>(kAssetManagerClass);
        m.Register(kAssetManagerClass, "QueryAssetData", &A::QueryAssetData);
        m.Register(kAssetManagerClass, "CookAsset", &A::CookAsset);
        m.Register(kAssetManagerClass, "GetCookedAssetsList", &A::GetCookedAssetsList);
    }

    CAssetManagerServer::CAssetManagerServer() = default;

    CAssetManagerServer::~CAssetManagerServer() { Stop(); }

    bool CAssetManagerServer::Start(const char* source, const char* root, const char* host, int port)
    {
        if (!ZEM_ASSERT(!m_pHost, "The asset manager is already started")) return false;
        std::snprintf(m_szRoot, sizeof(m_szRoot), "%s", root && root[0] ? root : ".");
        std::snprintf(m_szSource, sizeof(m_szSource), "%s", source && source[0] ? source : m_szRoot);
        m_kTypes.Clear();
        const unsigned int files = m_kTypes.LoadFromRoot(m_szRoot);
        Common::Log("[AM] %u asset type files, %u import extensions; source %s, root %s\n", files, m_kTypes.GetSize(),
                    m_szSource, m_szRoot);

        m_pCommands = MEM_NEW(ZemEngine::CommandManager);
        m_pCommands->Init();
        IRPCStub_AssetManagerInterface::Register(*m_pCommands);
        m_pInterface = MEM_NEW(CAssetManagerInterface, this);
        m_pHost = MEM_NEW(ZemEngine::CEngineHost);
        if (!m_pHost->Start(m_pCommands, port, host && host[0] ? host : "127.0.0.1"))
        {
            Stop();
            return false;
        }
        Common::Log("[AM] Listening on %s:%d\n", host && host[0] ? host : "127.0.0.1", m_pHost->GetPort());
        return true;
    }

    void CAssetManagerServer::Stop()
    {
        if (m_pHost) m_pHost->Stop();
        MEM_DELETE(m_pHost);
        m_pHost = nullptr;
        MEM_DELETE(m_pInterface);
        m_pInterface = nullptr;
        MEM_DELETE(m_pCommands);
        m_pCommands = nullptr;
    }

    int CAssetManagerServer::GetPort() const { return m_pHost ? m_pHost->GetPort() : 0; }

    ZemRenderer::TArray<Common::String> CAssetManagerServer::GetCookedKeyTexts()
    {
        std::lock_guard<std::mutex> lock(m_kLock);
        return m_aCooked;
    }

    bool CAssetManagerServer::CopyFile(const char* from, const char* to)
    {
        char temporary[Common::CFileSystem::PathBufferSize + 32];
        std::snprintf(temporary, sizeof(temporary), "%s.cooking.%d", to, static_cast<int>(getpid()));
        const int in = open(from, O_RDONLY | O_CLOEXEC);
        const int out = in < 0 ? -1 : open(temporary, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        bool ok = in >= 0 && out >= 0;
        char buffer[64 * 1024];
        while (ok)
        {
            const ssize_t n = read(in, buffer, sizeof(buffer));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0)
            {
                ok = n == 0;
                break;
            }
            for (ssize_t done = 0; ok && done < n;)
            {
                const ssize_t w = write(out, buffer + done, static_cast<size_t>(n - done));
                if (w < 0 && errno == EINTR) continue;
                ok = w > 0;
                done += w > 0 ? w : 0;
            }
        }
        const int error = errno;
        if (in >= 0) close(in);
        if (out >= 0 && close(out) != 0) ok = false;
        if (ok && rename(temporary, to) != 0) ok = false;
        if (!ok)
        {
            Common::Log("[AM] Could not copy %s to %s: %s\n", from, to, std::strerror(error ? error : errno));
            if (out >= 0) unlink(temporary);
        }
        return ok;
    }

    bool CAssetManagerServer::Cook(const AssetQuery& query, AssetResult& out)
    {
        out = AssetResult();
        char path[1000];
        if (!NormalizeAssetPath(query.m_szFilePath, path, sizeof(path)) || !path[0] || !IsContainedPath(path))
        {
            Common::Log("[AM] Refused \"%.600s\": not a path below the source folder\n", query.m_szFilePath);
            return false;
        }
        AssetKeyInfo info;
        if (!m_kTypes.Describe(path, query.m_szParams, query.m_uTypeId, info)) return false;
        char source[Common::CFileSystem::PathBufferSize];
        char cooked[Common::CFileSystem::PathBufferSize];
        if (!JoinPath(m_szSource, path, source, sizeof(source)) ||
            !JoinPath(m_szRoot, info.m_szCookedPath, cooked, sizeof(cooked)) ||
            std::strlen(info.m_szCookedPath) >= sizeof(out.m_szFilePath))
        {
            Common::Log("[AM] Refused %s: path too long\n", path);
            return false;
        }

        struct stat from;
        if (stat(source, &from) != 0 || !S_ISREG(from.st_mode))
        {
            Common::Log("[AM] Not found: %s (no source file %s)\n", path, source);
            return false;
        }
        {
            std::lock_guard<std::mutex> lock(m_kLock);
            struct stat to;
            const bool present = stat(cooked, &to) == 0 && S_ISREG(to.st_mode);
            const bool same = present && to.st_dev == from.st_dev && to.st_ino == from.st_ino;
            const bool newer = to.st_mtim.tv_sec > from.st_mtim.tv_sec ||
                               (to.st_mtim.tv_sec == from.st_mtim.tv_sec && to.st_mtim.tv_nsec >= from.st_mtim.tv_nsec);
            const bool current = same || (present && to.st_size == from.st_size && newer);
            if (!current)
            {
                if (!MakeParentFolders(cooked) || !CopyFile(source, cooked))
                {
                    Common::Log("[AM] Cook failed: %s\n", path);
                    return false;
                }
                ++m_uCopies;
                Common::Log("[AM] Cooked %s -> %s (%lld bytes)\n", path, info.m_szCookedPath,
                            static_cast<long long>(from.st_size));
            }
            bool listed = false;
            for (const Common::String& text : m_aCooked)
                if (text == info.m_szKeyText) listed = true;
            // A key text too long for the list is only left out of it: the engine then
            // asks again next time, which costs a query, not an asset.
            if (!listed && std::strlen(info.m_szKeyText) < Common::String::kCapacity) m_aCooked.Add(Common::String(info.m_szKeyText));
        }
        out.m_bSucceeded = true;
        std::memcpy(out.m_szFilePath, info.m_szCookedPath, std::strlen(info.m_szCookedPath) + 1);
        return true;
    }
}
