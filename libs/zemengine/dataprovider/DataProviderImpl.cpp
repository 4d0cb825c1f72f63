#include "zemengine/dataprovider/DataProviderImpl.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/filesystem/FileSystem.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "common/system/net/TcpSocket.h"
#include "common/system/thread/Thread.h"
#include "common/utils/Hash.h"
#include "zemengine/dataprovider/AssetManagerProcess.h"
#include "zemengine/dataprovider/AssetQueryJson.h"
#include "zemengine/dataprovider/DataProviderConfig.h"

namespace DataProvider
{
    namespace
    {
        // The first reply may take long only when something cooks; the greeting may not.
        constexpr unsigned int kGreetingTimeoutMs = 5000;
        constexpr unsigned int kStartPollMs = 20;

        int64_t NowMs()
        {
            timespec ts;
            clock_gettime(CLOCK_MONOTONIC, &ts);
            return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
        }

        // Size of a regular file, or -1.
        long long RegularFileSize(const char* path)
        {
            struct stat st;
            if (stat(path, &st) != 0 || !S_ISREG(st.st_mode)) return -1;
            return static_cast<long long>(st.st_size);
        }

        class CScopedLock
        {
        public:
            explicit CScopedLock(Common::CMutex& m) : m_kMutex(m) { m_kMutex.Lock(); }
            ~CScopedLock() { m_kMutex.Unlock(); }
            CScopedLock(const CScopedLock&) = delete;
            CScopedLock& operator=(const CScopedLock&) = delete;

        private:
            Common::CMutex& m_kMutex;
        };

        const char* ExtensionOf(const char* path)
        {
            const char* slash = std::strrchr(path, '/');
            const char* dot = std::strrchr(slash ? slash + 1 : path, '.');
            return dot ? dot + 1 : "";
        }
    }

    void CAssetManagerSockets::Adopt(Common::TcpSocket* socket)
    {
        socket->SetNoDelay(true);
        m_aSockets.Add(socket);
    }

    DataProviderImpl::DataProviderImpl() = default;

    DataProviderImpl::~DataProviderImpl()
    {
        {
            CScopedLock net(m_kNetLock);
            MEM_DELETE(m_pClient);
            m_pClient = nullptr;
            m_pInterface = nullptr;
            m_bConnected.store(false, std::memory_order_release);
        }
        if (m_pPackageLog) std::fclose(m_pPackageLog);
        m_pPackageLog = nullptr;
        // The asset manager lives on; only a start that already ended is collected.
        ReapIfExited(m_iStartedPid);
    }

    void DataProviderImpl::SetAssetsRoot(const char* root) { std::snprintf(m_szAssetsRoot, sizeof(m_szAssetsRoot), "%s", root ? root : ""); }

    void DataProviderImpl::SetAddress(const char* address)
    {
        std::snprintf(m_szAddress, sizeof(m_szAddress), "%s", address ? address : "");
    }

    // ---- start ---------------------------------------------------------------------------

    bool DataProviderImpl::Init(void*, bool useAssetManager, unsigned int retries)
    {
        if (!ZEM_ASSERT(!m_bInitialised, "DataProvider::Init called twice")) return IsReady();
        m_bInitialised = true;
        m_bUseAssetManager = useAssetManager;
        if (!m_szAssetsRoot[0])
        {
            const char* root = Common::CFileSystem::GetInstance()->GetDirectory(Common::CFileSystem::AssetsRoot);
            SetAssetsRoot(root && root[0] ? root : ".");
        }
        InitAmInfo();
        // The table is read in every case: without a connection the provider still
        // serves the cooked files on disk.
        InitializeAssetsExtensionsList();
        if (!m_bUseAssetManager)
        {
            Common::Log(":::: [DP] No asset manager: serving the cooked files under %s ::: \n", m_szAssetsRoot);
            return true;
        }

        CScopedLock net(m_kNetLock);
        if (!IsAssetManagerRunning(m_szBinary)) StartAssetManager();
        const unsigned int tries = retries ? retries : kDefaultRetries;
        for (unsigned int attempt = 0; attempt < tries && !m_bConnected.load(std::memory_order_acquire); ++attempt)
        {
            if (attempt > 0)
            {
                // Every other try: one line a second while the engine waits here.
                if (attempt % 2 == 0)
                    Common::Log(":::: [DP] Waiting for the asset manager at %s:%u (try %u of %u) ::: \n", m_szHost,
                                m_uPort, attempt + 1, tries);
                Common::CThread::Sleep(kRetryDelayMs);
            }
            TryConnect();
        }
        m_iLastTryMs = NowMs();
        if (!m_bConnected.load(std::memory_order_acquire))
        {
            Common::Log(":::: [DP] Unable to connect to interface at %s port %u ! ::: \n", m_szHost, m_uPort);
            Common::Log(":::: [DP] could not connect data provider interface to %s:%u, retrying in the background ::: \n",
                        m_szHost, m_uPort);
            return false;
        }
        return true;
    }

    bool DataProviderImpl::InitAmInfo()
    {
        DataProviderConfig config;
        char path[Common::CFileSystem::PathBufferSize];
        JoinPath(m_szAssetsRoot, DataProviderConfig::kFileName, path, sizeof(path));
        const ConfigStatus status = LoadDataProviderConfig(path, config);
        std::snprintf(m_szBinary, sizeof(m_szBinary), "%s", config.m_szBinary);
        std::snprintf(m_szHost, sizeof(m_szHost), "%s", config.m_szHost);
        m_uPort = config.m_uPort;
        m_bLogPackage = config.m_bLogPackage;
        // A relative log path belongs to the project: it is taken under the assets root.
        if (config.m_szLogPackagePath[0] == '/')
            std::snprintf(m_szPackageLogPath, sizeof(m_szPackageLogPath), "%s", config.m_szLogPackagePath);
        else
            JoinPath(m_szAssetsRoot, config.m_szLogPackagePath, m_szPackageLogPath, sizeof(m_szPackageLogPath));

        if (m_szAddress[0])
        {
            char host[sizeof(m_szAddress)];
            std::memcpy(host, m_szAddress, sizeof(host));
            if (char* colon = std::strrchr(host, ':'))
            {
                char* end = nullptr;
                const unsigned long port = std::strtoul(colon + 1, &end, 10);
                if (ZEM_ASSERT(end != colon + 1 && *end == '\0' && port >= 1 && port <= 65535,
                               "Data provider address %s: the port must be a number from 1 to 65535", m_szAddress))
                    m_uPort = static_cast<uint32_t>(port);
                *colon = '\0';
            }
            if (host[0] && ZEM_ASSERT(std::strlen(host) < sizeof(m_szHost), "Data provider address %s is too long", host))
                std::memcpy(m_szHost, host, std::strlen(host) + 1);
        }
        if (m_bLogPackage) InitPackageLogFile();
        return status == ConfigStatus::Read || status == ConfigStatus::Absent;
    }

    void DataProviderImpl::InitializeAssetsExtensionsList()
    {
        m_kTypes.Clear();
        m_kTypes.LoadFromRoot(m_szAssetsRoot);
    }

    bool DataProviderImpl::InitPackageLogFile()
    {
        m_pPackageLog = std::fopen(m_szPackageLogPath, "ae");
        if (!ZEM_ASSERT(m_pPackageLog != nullptr, "Couldn't open package log %s (%s)", m_szPackageLogPath,
                        std::strerror(errno)))
        {
            m_bLogPackage = false;
            return false;
        }
        return true;
    }

    void DataProviderImpl::StartAssetManager()
    {
        char cwd[PATH_MAX];
        if (!getcwd(cwd, sizeof(cwd))) std::snprintf(cwd, sizeof(cwd), "%s", ".");
        Common::Log(":::: [DP] Starting Asset Manager process... ::: \n");
        Common::Log(":::: [DP] Using directory '%s' ::: \n", cwd);

        char folder[PATH_MAX];
        char program[PATH_MAX + 32];
        if (!GetProgramDirectory(folder, sizeof(folder))) std::snprintf(folder, sizeof(folder), "%s", cwd);
        std::snprintf(program, sizeof(program), "%s/%s", folder, DataProviderConfig::kDefaultBinary);
        char port[16];
        std::snprintf(port, sizeof(port), "%u", m_uPort);
        // Its output goes beside the engine's log, or beside the program without one.
        char output[PATH_MAX + 32];
        const char* logFolder = Common::GetLogDirectory();
        if (logFolder && logFolder[0])
            std::snprintf(output, sizeof(output), "%sAssetManagerApp.log", logFolder);
        else
            std::snprintf(output, sizeof(output), "%s/AssetManagerApp.log", folder);
        char* argv[] = {program,         const_cast<char*>("--root"), m_szAssetsRoot, const_cast<char*>("--host"),
                        m_szHost,        const_cast<char*>("--port"), port,           nullptr};

        const pid_t pid = SpawnDetached(program, argv, output);
        if (pid < 0)
        {
            const int error = errno;
            m_bStartFailed = true;
            Common::Log(":::: [DP] Asset Manager process failed ! ::: \n");
            Common::Log("error: %s\n", std::strerror(error));
            Common::Log("%s(%i): Couldn't start AssetManager.\n", __FILE__, __LINE__);
            return;
        }
        m_iStartedPid = pid;
        // Ready means listening: the first connection that gets through is kept.
        const int64_t end = NowMs() + kStartWaitMs;
        int status = 0;
        while (NowMs() < end)
        {
            if (TryConnect())
            {
                Common::Log(":::: [DP] Asset Manager process started. ::: \n");
                return;
            }
            if (ReapIfExited(pid, &status))
            {
                m_iStartedPid = 0;
                Common::Log(":::: [DP] Asset Manager process failed ! ::: \n");
                Common::Log("error: %s ended at once with status %d (see %s)\n", program,
                            WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), output);
                Common::Log("%s(%i): Couldn't start AssetManager.\n", __FILE__, __LINE__);
                return;
            }
            Common::CThread::Sleep(kStartPollMs);
        }
        Common::Log(":::: [DP] Asset Manager process started (process %d) but not listening on %s:%u yet ::: \n",
                    static_cast<int>(pid), m_szHost, m_uPort);
    }

    // ---- connection ----------------------------------------------------------------------

    bool DataProviderImpl::TryConnect()
    {
        if (m_bConnected.load(std::memory_order_acquire)) return true;
        Common::TcpSocket* socket = MEM_NEW(Common::TcpSocket);
        if (!socket) return false;
        if (!socket->Connect(static_cast<int>(m_uPort), m_szHost))
        {
            MEM_DELETE(socket);
            return false;
        }
        CAssetManagerSockets* client = MEM_NEW(CAssetManagerSockets);
        if (!client)
        {
            MEM_DELETE(socket);
            return false;
        }
        client->Adopt(socket);
        client->SetTimeout(m_uReplyTimeoutMs && m_uReplyTimeoutMs < kGreetingTimeoutMs ? m_uReplyTimeoutMs
                                                                                      : kGreetingTimeoutMs);
        m_pClient = client;

        // The greeting tells an asset manager from anything else on that port.
        ZemEngine::Json::StringBuffer text;
        ZemEngine::Json::Document reply;
        WriteAssetManagerCommand(text, "GetRPCSingleton", 0, nullptr, nullptr);
        const ZemEngine::Json::Value* res = nullptr;
        const ZemEngine::Json::Value* id = nullptr;
        if (client->CallMethod(text.GetString(), &reply)) res = ZemEngine::Json::FindMember(reply, "Res");
        if (res) id = ZemEngine::Json::FindMember(*res, "InstanceID");
        if (!id || !id->IsUint())
        {
            Common::Log(":::: [DP] %s:%u does not answer as an asset manager ::: \n", m_szHost, m_uPort);
            Disconnect(nullptr);
            return false;
        }
        m_uInstanceId = id->GetUint();
        client->SetTimeout(m_uReplyTimeoutMs);
        m_pInterface = client;
        m_bConnected.store(true, std::memory_order_release);
        if (!FillCookedKeys()) return false;
        m_bFallbackReported.store(false, std::memory_order_release);
        Common::Log(":::: [DP] Connected to the asset manager at %s:%u (%u cooked assets) ::: \n", m_szHost, m_uPort,
                    GetCookedKeyCount());
        return true;
    }

    bool DataProviderImpl::EnsureConnected()
    {
        if (m_bConnected.load(std::memory_order_acquire)) return true;
        if (!m_bUseAssetManager) return false;
        const int64_t now = NowMs();
        if (now - m_iLastTryMs < static_cast<int64_t>(kRetryDelayMs)) return false;
        m_iLastTryMs = now;
        if (TryConnect()) return true;
        // The one we started has gone (or was never started because another process had
        // the name): start again, unless starting is known to fail.
        if (m_iStartedPid > 0 && ReapIfExited(m_iStartedPid)) m_iStartedPid = 0;
        if (!m_bStartFailed && m_iStartedPid == 0 && !IsAssetManagerRunning(m_szBinary)) StartAssetManager();
        return m_bConnected.load(std::memory_order_acquire);
    }

    void DataProviderImpl::Disconnect(const char* why)
    {
        if (why) Common::Log(":::: [DP] Asset manager connection at %s:%u dropped: %s ::: \n", m_szHost, m_uPort, why);
        m_bConnected.store(false, std::memory_order_release);
        MEM_DELETE(m_pClient);
        m_pClient = nullptr;
        m_pInterface = nullptr;
        m_iLastTryMs = NowMs();
    }

    bool DataProviderImpl::Call(const char* json, ZemEngine::Json::Document* reply)
    {
        if (!m_pInterface) return false;
        if (m_pInterface->CallMethod(json, reply)) return true;
        // After a short, broken or unreadable reply the stream can't be trusted.
        Disconnect(reply ? "no valid reply" : "the request could not be sent");
        return false;
    }

    bool DataProviderImpl::FillCookedKeys()
    {
        ZemEngine::Json::StringBuffer text;
        ZemEngine::Json::Document reply;
        WriteAssetManagerCommand(text, "GetCookedAssetsList", m_uInstanceId, nullptr, kPlatform);
        if (!Call(text.GetString(), &reply)) return false;
        const ZemEngine::Json::Value* res = ZemEngine::Json::FindMember(reply, "Res");
        if (!ZEM_ASSERT(res && res->IsArray(), "GetCookedAssetsList: the asset manager's reply holds no list"))
            return true;
        CScopedLock lock(m_kLock);
        m_kCookedKeys.Clear();
        for (const ZemEngine::Json::Value& v : res->GetArray())
            if (v.IsString()) AddCookedKey(GenerateUIntIdFromString(v.GetString()));
        return true;
    }

    bool DataProviderImpl::IsReady()
    {
        if (!m_bUseAssetManager || m_bConnected.load(std::memory_order_acquire)) return true;
        // A query in flight holds the connection: it will tell.
        if (!m_bInitialised || !m_kNetLock.TryLock()) return false;
        EnsureConnected();
        m_kNetLock.Unlock();
        return m_bConnected.load(std::memory_order_acquire);
    }

    void DataProviderImpl::DescribeWait(char* out, size_t size)
    {
        if (!size) return;
        out[0] = '\0';
        if (!m_bUseAssetManager || IsConnected()) return;
        const bool running = IsAssetManagerRunning(m_szBinary);
        std::snprintf(out, size,
                      "no asset manager answers at %s:%u (%s); start AssetManagerApp --root %s --port %u, "
                      "or run the engine with -nodp to use only the cooked files on disk",
                      m_szHost, m_uPort,
                      running ? "a process of that name runs but does not answer there"
                              : (m_bStartFailed ? "it could not be started" : "no such process runs"),
                      m_szAssetsRoot, m_uPort);
    }

    // ---- keys ------------------------------------------------------------------------------

    void DataProviderImpl::AddCookedKey(unsigned int key)
    {
        unsigned int lo = 0;
        unsigned int hi = m_kCookedKeys.GetSize();
        while (lo < hi)
        {
            const unsigned int mid = lo + (hi - lo) / 2;
            if (m_kCookedKeys[mid] < key)
                lo = mid + 1;
            else
                hi = mid;
        }
        if (lo < m_kCookedKeys.GetSize() && m_kCookedKeys[lo] == key) return;
        m_kCookedKeys.Insert(lo, key);
    }

    void DataProviderImpl::RemoveCookedKey(unsigned int key)
    {
        CScopedLock lock(m_kLock);
        const unsigned int i = m_kCookedKeys.Find(key);
        if (i != ZemRenderer::TArray<unsigned int>::npos) m_kCookedKeys.Remove(i);
    }

    bool DataProviderImpl::IsKeyCooked(unsigned int key)
    {
        CScopedLock lock(m_kLock);
        unsigned int lo = 0;
        unsigned int hi = m_kCookedKeys.GetSize();
        while (lo < hi)
        {
            const unsigned int mid = lo + (hi - lo) / 2;
            if (m_kCookedKeys[mid] < key)
                lo = mid + 1;
            else
                hi = mid;
        }
        return lo < m_kCookedKeys.GetSize() && m_kCookedKeys[lo] == key;
    }

    unsigned int DataProviderImpl::GetCookedKeyCount()
    {
        CScopedLock lock(m_kLock);
        return m_kCookedKeys.GetSize();
    }

    void DataProviderImpl::SetBusy(bool busy)
    {
        CScopedLock lock(m_kLock);
        m_bBusy = busy;
    }

    bool DataProviderImpl::IsBusy()
    {
        CScopedLock lock(m_kLock);
        return m_bBusy;
    }

    bool DataProviderImpl::DescribeQuery(const AssetQuery& query, AssetKeyInfo& info) const
    {
        char path[kPathBufferSize];
        return NormalizeAssetPath(query.m_szFilePath, path, sizeof(path)) &&
               m_kTypes.Describe(path, query.m_szParams, query.m_uTypeId, info);
    }

    // ---- queries ---------------------------------------------------------------------------

    DataProviderImpl::Lookup DataProviderImpl::LocalLookup(AssetResult& result, const AssetQuery& query, char* path,
                                                           AssetKeyInfo& info)
    {
        if (query.m_uTypeId == kAnimationTypeId)
        {
            const char* ext = ExtensionOf(query.m_szFilePath);
            ZEM_ASSERT(strcasecmp(ext, "animset") == 0, "Querying Animation data with .FBX, should be a .animset file");
        }
        result.m_bSucceeded = false;
        if (!ZEM_ASSERT(NormalizeAssetPath(query.m_szFilePath, path, kPathBufferSize),
                        "Asset path of %zu characters is too long", std::strlen(query.m_szFilePath)))
            return Lookup::Done;
        if (!m_kTypes.Describe(path, query.m_szParams, query.m_uTypeId, info)) return Lookup::Done;

        char cooked[Common::CFileSystem::PathBufferSize];
        if (!JoinPath(m_szAssetsRoot, info.m_szCookedPath, cooked, sizeof(cooked))) return Lookup::Done;
        const bool exists = RegularFileSize(cooked) >= 0;
        const bool known = !m_bUseAssetManager || IsKeyCooked(info.m_uKey);
        if (!known) return Lookup::AskAssetManager;
        if (exists)
        {
            if (!ZEM_ASSERT(std::strlen(cooked) < sizeof(result.m_szFilePath), "Cooked path %s is too long", cooked))
                return Lookup::Done;
            result.m_bSucceeded = true;
            std::memcpy(result.m_szFilePath, cooked, std::strlen(cooked) + 1);
            return Lookup::Done;
        }
        // Listed, but gone from the disk: the asset manager has to make it again.
        if (m_bUseAssetManager) RemoveCookedKey(info.m_uKey);
        return m_bUseAssetManager ? Lookup::AskAssetManager : Lookup::Done;
    }

    bool DataProviderImpl::QueryAsset(AssetResult& result, const AssetQuery& query)
    {
        SetBusy(true);
        result = AssetResult();
        char path[kPathBufferSize];
        AssetKeyInfo info;
        if (LocalLookup(result, query, path, info) == Lookup::AskAssetManager)
        {
            bool asked = false;
            AssetResult reply;
            {
                CScopedLock net(m_kNetLock);
                if (EnsureConnected())
                {
                    AssetQuery copy = query;
                    std::memcpy(copy.m_szFilePath, path, std::strlen(path) + 1);
                    ZemEngine::Json::StringBuffer text;
                    ZemEngine::Json::Document document;
                    WriteAssetManagerCommand(text, "QueryAssetData", m_uInstanceId, &copy);
                    if (Call(text.GetString(), &document))
                    {
                        asked = true;
                        const ZemEngine::Json::Value* res = ZemEngine::Json::FindMember(document, "Res");
                        const char* expected = nullptr;
                        if (!res || !DecodeAssetResult(*res, reply, expected))
                            Common::Log(":::: [DP] QueryAssetData %s: the reply is not %s ::: \n", path,
                                        expected ? expected : "an object {\"Res\": result}");
                    }
                }
            }
            if (asked && reply.m_bSucceeded)
            {
                char full[Common::CFileSystem::PathBufferSize];
                if (ZEM_ASSERT(JoinPath(m_szAssetsRoot, reply.m_szFilePath, full, sizeof(full)) &&
                                   std::strlen(full) < sizeof(result.m_szFilePath),
                               "Cooked path of %s is too long", path))
                {
                    {
                        CScopedLock lock(m_kLock);
                        AddCookedKey(info.m_uKey);
                    }
                    result.m_bSucceeded = true;
                    result.m_uListenPort = reply.m_uListenPort;
                    std::memcpy(result.m_szFilePath, full, std::strlen(full) + 1);
                }
            }
            else if (!asked)
            {
                // Without an asset manager the engine goes on with what the disk holds.
                char cooked[Common::CFileSystem::PathBufferSize];
                if (info.m_szCookedPath[0] && JoinPath(m_szAssetsRoot, info.m_szCookedPath, cooked, sizeof(cooked)) &&
                    RegularFileSize(cooked) >= 0 && std::strlen(cooked) < sizeof(result.m_szFilePath))
                {
                    if (!m_bFallbackReported.exchange(true, std::memory_order_acq_rel))
                        Common::Log(":::: [DP] No asset manager at %s:%u: cooked files on disk are served as they are ::: \n",
                                    m_szHost, m_uPort);
                    result.m_bSucceeded = true;
                    std::memcpy(result.m_szFilePath, cooked, std::strlen(cooked) + 1);
                }
            }
        }
        SetBusy(false);
        AppendPackageLog(query, result);
        return result.m_bSucceeded;
    }

    void DataProviderImpl::CookAsset(const AssetQuery& query)
    {
        // Nobody to cook for: the lookup would only stat the file, and the query that
        // follows reports whatever is wrong with the name.
        if (!m_bUseAssetManager) return;
        AssetResult result;
        char path[kPathBufferSize];
        AssetKeyInfo info;
        if (LocalLookup(result, query, path, info) != Lookup::AskAssetManager) return;
        CScopedLock net(m_kNetLock);
        if (!EnsureConnected()) return;
        AssetQuery copy = query;
        copy.m_bSynchronous = false;
        std::memcpy(copy.m_szFilePath, path, std::strlen(path) + 1);
        ZemEngine::Json::StringBuffer text;
        WriteAssetManagerCommand(text, "CookAsset", m_uInstanceId, &copy);
        Call(text.GetString(), nullptr);
    }

    void DataProviderImpl::AppendPackageLog(const AssetQuery& query, const AssetResult& result)
    {
        if (!m_bLogPackage || !m_pPackageLog) return;
        const long long size = result.m_bSucceeded ? RegularFileSize(result.m_szFilePath) : 0;
        CScopedLock lock(m_kLock);
        std::fprintf(m_pPackageLog, "%s:%s:%i:%4.2f\n", query.m_szFilePath, query.m_szParams,
                     static_cast<int>(query.m_uTypeId), static_cast<double>(size > 0 ? size : 0) / 1000000.0);
        std::fflush(m_pPackageLog);
    }
}
