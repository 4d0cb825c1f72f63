#pragma once
// The engine's data provider: finds the cooked file of an asset on disk when it is known
// to be current, and otherwise asks the asset manager process over TCP, starting that
// process when none runs. With no asset manager it serves what is on disk.
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <sys/types.h>

#include "common/system/mutex/Mutex.h"
#include "common/utils/TArray.h"
#include "zemengine/core/json/Json.h"
#include "zemengine/dataprovider/AssetTypes.h"
#include "zemengine/engine/EngineClientBroadcast.h"
#include "zemrenderer/dataprovider/DataPoviderInterface.h"

namespace Common
{
    class TcpSocket;
}

namespace DataProvider
{
    // Tag of the asset manager's connection set.
    class AssetManagerInterface;

    class CAssetManagerSockets : public ZemEngine::CEngineClientBroadcast::CInterfaceSockets<AssetManagerInterface>
    {
    public:
        // Takes over a socket that is already connected.
        void Adopt(Common::TcpSocket* socket);
    };

    class DataProviderImpl : public DataPoviderInterface
    {
    public:
        static constexpr unsigned int kRetryDelayMs = 500;
        // Connection tries of Init when it is given 0.
        static constexpr unsigned int kDefaultRetries = 10;
        static constexpr unsigned int kDefaultReplyTimeoutMs = 60000;
        // How long a freshly started asset manager gets to open its port.
        static constexpr unsigned int kStartWaitMs = 5000;
        // The type id of animation sets.
        static constexpr uint32_t kAnimationTypeId = 0x68D0AE19u;
        // Paths are normalized into a buffer of this size.
        static constexpr size_t kPathBufferSize = 1000;

        DataProviderImpl();
        ~DataProviderImpl() override;
        DataProviderImpl(const DataProviderImpl&) = delete;
        DataProviderImpl& operator=(const DataProviderImpl&) = delete;

        bool Init(void* reserved, bool useAssetManager, unsigned int retries) override;
        // Without a connection, makes one connection try at most every kRetryDelayMs, so
        // an asset manager that comes up late is still found.
        bool IsReady() override;
        bool QueryAsset(AssetResult& result, const AssetQuery& query) override;
        void CookAsset(const AssetQuery& query) override;
        bool IsBusy();

        // ---- set before Init ------------------------------------------------------------
        // Default: the file system's assets root at Init.
        void SetAssetsRoot(const char* root);
        // "host" or "host:port", over what the configuration says ("-dpaddress").
        void SetAddress(const char* address);
        // Limit on each reply of the asset manager; 0 waits without limit.
        void SetReplyTimeout(unsigned int ms) { m_uReplyTimeoutMs = ms; }

        // ---- state --------------------------------------------------------------------
        // One line on what IsReady waits for (empty when ready).
        void DescribeWait(char* out, size_t size);
        bool UsesAssetManager() const { return m_bUseAssetManager; }
        bool IsConnected() const { return m_bConnected.load(std::memory_order_acquire); }
        const char* GetHost() const { return m_szHost; }
        unsigned int GetPort() const { return m_uPort; }
        const char* GetBinary() const { return m_szBinary; }
        const char* GetAssetsRoot() const { return m_szAssetsRoot; }
        bool IsPackageLogOpen() const { return m_pPackageLog != nullptr; }
        const CAssetTypeTable& GetTypes() const { return m_kTypes; }
        // The asset manager this provider started, or 0.
        pid_t GetStartedProcess() const { return m_iStartedPid; }
        bool IsKeyCooked(unsigned int key);
        unsigned int GetCookedKeyCount();

        // Key and cooked path of a query as the lookup computes them.
        bool DescribeQuery(const AssetQuery& query, AssetKeyInfo& info) const;

    private:
        enum class Lookup
        {
            Done,
            AskAssetManager,
        };

        bool InitAmInfo();
        void InitializeAssetsExtensionsList();
        bool InitPackageLogFile();
        void StartAssetManager();
        Lookup LocalLookup(AssetResult& result, const AssetQuery& query, char* path, AssetKeyInfo& info);

        // Callers hold m_kNetLock.
        bool TryConnect();
        bool EnsureConnected();
        void Disconnect(const char* why);
        bool Call(const char* json, ZemEngine::Json::Document* reply);
        bool FillCookedKeys();

        void AddCookedKey(unsigned int key);
        void RemoveCookedKey(unsigned int key);
        void SetBusy(bool busy);
        void AppendPackageLog(const AssetQuery& query, const AssetResult& result);

        bool m_bUseAssetManager = false;
        bool m_bBusy = false;
        CAssetManagerSockets* m_pClient = nullptr;
        ZemEngine::CEngineClientBroadcast::IInterfaceSockets* m_pInterface = nullptr;
        CAssetTypeTable m_kTypes;
        Common::CMutex m_kLock;
        ZemRenderer::TArray<unsigned int> m_kCookedKeys;
        char m_szBinary[1024] = {};
        char m_szPackageLogPath[1024] = {};
        char m_szHost[128] = {};
        uint32_t m_uPort = 0;
        bool m_bLogPackage = false;
        FILE* m_pPackageLog = nullptr;

        // One request on the connection at a time, and one thread changing it.
        Common::CMutex m_kNetLock;
        std::atomic<bool> m_bConnected{false};
        unsigned int m_uInstanceId = 0;
        unsigned int m_uReplyTimeoutMs = kDefaultReplyTimeoutMs;
        int64_t m_iLastTryMs = 0;
        pid_t m_iStartedPid = 0;
        bool m_bStartFailed = false;
        std::atomic<bool> m_bFallbackReported{false};
        bool m_bInitialised = false;
        char m_szAssetsRoot[1024] = {};
        char m_szAddress[256] = {};
    };
}
