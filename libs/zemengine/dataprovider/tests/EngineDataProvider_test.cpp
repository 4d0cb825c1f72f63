// The data provider inside CEngine::Init and Destroy: made, published, set for the
// loaders, waited for, and gone after Destroy.
#include <gtest/gtest.h>

#include "common/system/debug/Log.h"
#include "common/system/filesystem/FileSystem.h"
#include "zemengine/dataprovider/AssetManagerServer.h"
#include "zemengine/dataprovider/tests/DataProviderTestKit.h"
#include "zemengine/engine/Engine.h"

using namespace DataProvider;
using namespace DataProviderTest;

namespace
{
    // Runs one engine on `root` and resolves `name` through the loaders' adapter.
    void RunEngine(const CTempRoot& root, bool useAssetManager, const std::string& address, const char* name,
                   const std::string& expectedContent, const char* expectedLine)
    {
        Common::CFileSystem* files = Common::CFileSystem::GetInstance();
        const std::string oldRoot = files->GetDirectory(Common::CFileSystem::AssetsRoot);

        ZemEngine::NativeHandle handle = 0;
        ZemEngine::EngineInitDesc desc;
        desc.m_pHandle = &handle;
        desc.m_bLoadPlugins = false;
        desc.m_bUseDataProvider = useAssetManager;
        std::snprintf(desc.m_szAssetsRoot, sizeof(desc.m_szAssetsRoot), "%s", root.Str().c_str());
        std::snprintf(desc.m_szDataProviderAddress, sizeof(desc.m_szDataProviderAddress), "%s", address.c_str());

        ZemEngine::CEngine* engine = ZemEngine::CEngine::GetInstance();
        Common::ScopedLogCapture log;
        ASSERT_TRUE(engine->Init(desc));
        EXPECT_TRUE(log.Contains(expectedLine)) << log.Text();
        DataPoviderInterface* provider = engine->GetRegisteredInstance<DataPoviderInterface>();
        ASSERT_NE(provider, nullptr);
        EXPECT_EQ(GetDataProvider(), provider);
        EXPECT_TRUE(provider->IsReady());

        AssetQuery query;
        MakeAssetQuery(query, kLinkType, name);
        AssetResult result;
        EXPECT_TRUE(ResolveOrReport(result, query)) << log.Text();
        EXPECT_EQ(ReadFile(result.m_szFilePath), expectedContent);

        engine->Destroy();
        EXPECT_EQ(GetDataProvider(), nullptr);
        files->SetDirectory(oldRoot.c_str(), Common::CFileSystem::AssetsRoot);
    }

    TEST(EngineDataProvider, WithoutAnAssetManager)
    {
        CTempRoot root;
        WriteFile(root.Path() / "Meshes/Box_0.zef", "on disk");
        RunEngine(root, false, "", "Meshes\\Box.zef", "on disk", "[Engine] data provider without an asset manager (-nodp)");
    }

    TEST(EngineDataProvider, WithTheAssetManagerAtTheGivenAddress)
    {
        CTempRoot root;
        CTempRoot source("dpsource");
        WriteFile(source.Path() / "Meshes/Box.zef", "cooked");
        CAssetManagerServer server;
        ASSERT_TRUE(server.Start(source.Str().c_str(), root.Str().c_str(), "127.0.0.1", 0));
        // The configuration names another port: "-dpaddress" wins.
        root.WriteConfig(1);
        RunEngine(root, true, "127.0.0.1:" + std::to_string(server.GetPort()), "Meshes/Box.zef", "cooked",
                  "Connected to the asset manager at 127.0.0.1");
        server.Stop();
    }
}
