// The whole road of an asset with the engine's own data provider: a link engine file
// asked for by name is found (cooked by the asset manager, or on disk with -nodp), read
// on the loading thread, built on the process thread and handed over on the render
// thread, where the requester's callback sees it.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "zemengine/dataprovider/AssetManagerServer.h"
#include "zemengine/dataprovider/DataProviderImpl.h"
#include "zemengine/dataprovider/tests/DataProviderTestKit.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/loading/LinkLoadTraits.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"
#include "zemrenderer/thread/LoadingThread.hpp"

using namespace ZemRenderer;

namespace
{
    struct Landing
    {
        RenderThread* pThread = nullptr;
        std::atomic<int> iCalls{0};
        std::atomic<bool> bLoaded{false};
        std::atomic<bool> bOnRenderThread{false};
        std::atomic<unsigned int> uNodes{0};

        static void OnLoaded(Link* link, bool loaded, void* user)
        {
            Landing* self = static_cast<Landing*>(user);
            self->bLoaded = loaded;
            self->bOnRenderThread = self->pThread->IsInMyThread();
            self->uNodes = link->GetNodeCount();
            self->iCalls.fetch_add(1);
        }
    };

    // Loads `name` into a fresh bucket with `provider` as the process's data provider.
    void LoadThroughTheRoad(DataProvider::DataPoviderInterface* provider, const char* name, bool expectLoaded)
    {
        DataProvider::SetDataProvider(provider);
        SceneTest::Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        Bucket bucket(engine.Get(), "level");
        Link* link = bucket.CreateLink("tower");
        Landing landing;
        landing.pThread = engine.Get();
        QueryPtr query(Query::Create());
        ASSERT_TRUE(engine.Get()->GetLoader()->AddLoaderWork(link, name, &bucket, false, query, &Landing::OnLoaded,
                                                             &landing));
        ASSERT_TRUE(query->WaitFinished(10000));
        ASSERT_TRUE(SceneTest::WaitUntil([&] { return landing.iCalls.load() > 0; }));
        EXPECT_EQ(landing.bLoaded.load(), expectLoaded);
        EXPECT_TRUE(landing.bOnRenderThread);
        EXPECT_EQ(query->GetState(), expectLoaded ? Query::eDone : Query::eCancelled);
        if (expectLoaded)
        {
            EXPECT_EQ(landing.uNodes.load(), 2u);
        }
        bucket.DestroyLink(link);
        engine.Stop();
        DataProvider::SetDataProvider(nullptr);
    }
}

TEST(AssetRoad, ALinkCookedByTheAssetManagerThenFromDiskWithoutIt)
{
    using namespace DataProviderTest;
    CTempRoot root;
    CTempRoot source("roadsrc");
    const std::vector<unsigned char> file = SceneTest::SavedLink();
    WriteFile(source.Path() / "links/tower.zef", std::string(file.begin(), file.end()));
    root.WriteConfig(1);

    DataProvider::CAssetManagerServer server;
    ASSERT_TRUE(server.Start(source.Str().c_str(), root.Str().c_str(), "127.0.0.1", 0));
    {
        DataProvider::DataProviderImpl provider;
        provider.SetAssetsRoot(root.Str().c_str());
        provider.SetAddress(("127.0.0.1:" + std::to_string(server.GetPort())).c_str());
        ASSERT_TRUE(provider.Init(nullptr, true, 3));
        LoadThroughTheRoad(&provider, "links/tower.zef", true);
    }
    server.Stop();

    // The cooked file stays under the root: an engine without an asset manager finds it.
    DataProvider::DataProviderImpl offline;
    offline.SetAssetsRoot(root.Str().c_str());
    ASSERT_TRUE(offline.Init(nullptr, false, 0));
    LoadThroughTheRoad(&offline, "links/tower.zef", true);

    Common::ScopedLogCapture log;
    LoadThroughTheRoad(&offline, "links/missing.zef", false);
    EXPECT_TRUE(log.Contains("File not found")) << log.Text();
}
