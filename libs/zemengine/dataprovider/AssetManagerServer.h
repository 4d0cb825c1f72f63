#pragma once
// The asset manager's side: the remote class "AssetManagerInterface" served with the
// engine's frame protocol, cooking source files into the assets root. Cooking copies the
// source file to its cooked path (every type the engine loads so far is stored as it is
// loaded); a copy is written aside and renamed, so no engine ever reads half a file.
#include <atomic>
#include <mutex>

#include "common/utils/String.h"
#include "common/utils/TArray.h"
#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/dataprovider/AssetTypes.h"
#include "zemrenderer/dataprovider/DataPoviderInterface.h"

namespace ZemEngine
{
    class CEngineHost;
}

namespace DataProvider
{
    class IRPCStub_AssetManagerInterface : public ZemEngine::CSingletonManager<IRPCStub_AssetManagerInterface>
    {
    public:
        virtual AssetResult QueryAssetData(AssetQuery query) = 0;
        virtual void CookAsset(AssetQuery query) = 0;
        virtual ZemRenderer::TArray<Common::String> GetCookedAssetsList(const char* platform) = 0;

        static void Register(ZemEngine::CommandManager& manager);
    };

    class CAssetManagerServer
    {
    public:
        static constexpr int kDefaultPort = 27674;

        CAssetManagerServer();
        ~CAssetManagerServer();
        CAssetManagerServer(const CAssetManagerServer&) = delete;
        CAssetManagerServer& operator=(const CAssetManagerServer&) = delete;

        // Reads the type table under `root` and listens on `host`:`port` (0: any free
        // port). `source` null or empty: the root is the source folder too.
        bool Start(const char* source, const char* root, const char* host, int port);
        // Ends the listener and every connection.
        void Stop();
        int GetPort() const;

        // Cooks one asset: on success `out` holds the cooked path relative to the root.
        bool Cook(const AssetQuery& query, AssetResult& out);
        ZemRenderer::TArray<Common::String> GetCookedKeyTexts();
        unsigned int GetCopyCount() const { return m_uCopies.load(std::memory_order_relaxed); }
        const CAssetTypeTable& GetTypes() const { return m_kTypes; }

    private:
        bool CopyFile(const char* from, const char* to);

        ZemEngine::CommandManager* m_pCommands = nullptr;
        ZemEngine::CEngineHost* m_pHost = nullptr;
        IRPCStub_AssetManagerInterface* m_pInterface = nullptr;
        CAssetTypeTable m_kTypes;
        std::mutex m_kLock;
        ZemRenderer::TArray<Common::String> m_aCooked;
        std::atomic<unsigned int> m_uCopies{0};
        char m_szSource[1024] = {};
        char m_szRoot[1024] = {};
    };
}
