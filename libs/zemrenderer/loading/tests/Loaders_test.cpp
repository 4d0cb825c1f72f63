#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/loading/LinkLoadTraits.h"
#include "zemrenderer/loading/tests/LoadingTestKit.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"
#include "zemrenderer/thread/LoadingThread.hpp"

namespace ZemRenderer
{
    using SceneTest::Engine;
    using SceneTest::FillLink;
    using SceneTest::SavedLink;
    using SceneTest::WaitUntil;
    using LoadingTest::FolderProvider;

    namespace
    {
        // What the requester's callback saw.
        struct Landing
        {
            RenderThread* pThread = nullptr;
            std::atomic<int> iCalls{0};
            std::atomic<bool> bLoaded{false};
            std::atomic<bool> bOnRenderThread{false};
            std::atomic<unsigned int> uNodes{0};
            std::atomic<int> iPendingSeen{-1};
            Bucket* pOwner = nullptr;

            static void OnLoaded(Link* link, bool loaded, void* user)
            {
                Landing* self = static_cast<Landing*>(user);
                self->bLoaded = loaded;
                self->bOnRenderThread = self->pThread && self->pThread->IsInMyThread();
                self->uNodes = link->GetNodeCount();
                if (self->pOwner) self->iPendingSeen = self->pOwner->GetPendingCount();
                self->iCalls.fetch_add(1);
            }
            bool Wait() { return WaitUntil([&] { return iCalls.load() > 0; }); }
        };

        std::string QueryName(const DataProvider::AssetQuery& query) { return query.m_szFilePath; }
    }

    TEST(Loaders, ALinkByNameGoesTheWholeRoadAndLandsOnTheRenderThread)
    {
        FolderProvider provider;
        const std::vector<unsigned char> file = SavedLink();
        provider.Write("links/tower.zef", file.data(), file.size());
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        Bucket bucket(engine.Get(), "level");
        Link* link = bucket.CreateLink("tower");
        Landing landing;
        landing.pThread = engine.Get();
        landing.pOwner = &bucket;
        QueryPtr query(Query::Create());
        {
            std::string name = "links/tower.zef";
            ASSERT_TRUE(engine.Get()->GetLoader()->AddLoaderWork(link, name.c_str(), &bucket, false, query,
                                                                 &Landing::OnLoaded, &landing));
            name.assign(name.size(), 'x');  // the request keeps its own copy of the name
        }
        ASSERT_TRUE(landing.Wait());
        EXPECT_TRUE(landing.bLoaded);
        EXPECT_TRUE(landing.bOnRenderThread);
        EXPECT_EQ(landing.uNodes.load(), 2u);
        EXPECT_EQ(landing.iPendingSeen.load(), 1) << "the object lands before its owner counts it loaded";
        EXPECT_EQ(query->GetState(), Query::eDone);
        EXPECT_TRUE(WaitUntil([&] { return bucket.IsLoaded(); }));
        EXPECT_EQ(landing.iCalls.load(), 1);
        ASSERT_NE(link->FindUserData(UserDataTag::MESH), nullptr);

        // The provider was told ahead, then asked, in the engine's terms.
        const auto prefetched = provider.Prefetched();
        const auto queries = provider.Queries();
        ASSERT_EQ(prefetched.size(), 1u);
        ASSERT_EQ(queries.size(), 1u);
        for (const auto& q : {prefetched[0], queries[0]})
        {
            EXPECT_STREQ(q.m_szPlatform, "PC");
            EXPECT_EQ(q.m_uTypeId, Link::GetStaticClassId());
            EXPECT_EQ(QueryName(q), "links/tower.zef");
        }
        bucket.DestroyLink(link);
        engine.Stop();
    }

    TEST(Loaders, LoadsThatCannotEndWellEndInStateFourWithTheirMessage)
    {
        struct Case
        {
            const char* label;
            const char* name;
            bool pathOnMiss;
            bool alwaysFound;
            bool closing;
            const char* file;  // content written under the name, or null
            std::string expected;
            const char* absent;
        };
        FolderProvider provider;
        const std::vector<Case> cases = {
            {"missing, provider gives no path", "links/none.zef", false, false, false, nullptr,
             "File not found: \"links/none.zef\" \n", nullptr},
            {"missing, provider names the file", "links/none.zef", true, false, false, nullptr,
             "File not found: \"" + provider.PathOf("links/none.zef") + "\" \n", nullptr},
            {"found but unreadable", "links/gone.zef", true, true, false, nullptr,
             "File not found 2: \"" + provider.PathOf("links/gone.zef") + "\"\n", nullptr},
            {"not a link file", "links/junk.zef", false, false, false, "not a link at all", "Failed to process\n",
             nullptr},
            {"owner closing, file there", "links/ok.zef", false, false, true, "", "", "File not found"},
        };
        const std::vector<unsigned char> good = SavedLink();
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        for (const Case& c : cases)
        {
            SCOPED_TRACE(c.label);
            provider.SetPathOnMiss(c.pathOnMiss);
            provider.SetAlwaysFound(c.alwaysFound);
            if (c.file && *c.file) provider.Write(c.name, c.file, std::strlen(c.file));
            if (c.file && !*c.file) provider.Write(c.name, good.data(), good.size());
            Bucket bucket(engine.Get(), "faults");
            if (c.closing) bucket.SetClosing();
            Link* link = bucket.CreateLink("victim");
            Landing landing;
            QueryPtr query(Query::Create());
            Common::ScopedLogCapture capture;
            ASSERT_TRUE(
                engine.Get()->GetLoader()->AddLoaderWork(link, c.name, &bucket, false, query, &Landing::OnLoaded, &landing));
            ASSERT_TRUE(landing.Wait());
            EXPECT_FALSE(landing.bLoaded);
            EXPECT_EQ(query->GetState(), Query::eCancelled);
            if (!c.expected.empty())
            {
                EXPECT_TRUE(capture.Contains(c.expected.c_str())) << capture.Text();
            }
            if (c.absent)
            {
                EXPECT_FALSE(capture.Contains(c.absent));
            }
            EXPECT_EQ(link->GetNodeCount(), 0u);
            EXPECT_TRUE(WaitUntil([&] { return bucket.IsLoaded(); }));
            EXPECT_EQ(landing.iCalls.load(), 1);
            bucket.DestroyLink(link);
        }
        engine.Stop();
    }

    TEST(Loaders, RequestsWithoutOwnerOrProviderAreRefusedOrReportedByName)
    {
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        Bucket bucket(engine.Get(), "b");
        Link* link = bucket.CreateLink("l");
        {
            Common::ScopedLogCapture capture;
            QueryPtr query(Query::Create());
            Landing landing;
            EXPECT_FALSE(engine.Get()->GetLoader()->AddLoaderWork(link, "a.zef", nullptr, false, query,
                                                                  &Landing::OnLoaded, &landing));
            EXPECT_TRUE(capture.Contains("you have to provide a bucket for loading!!"));
            EXPECT_EQ(query->GetState(), Query::eCancelled);
            EXPECT_EQ(landing.iCalls.load(), 1);
            EXPECT_FALSE(landing.bLoaded);
        }
        {
            ASSERT_EQ(DataProvider::GetDataProvider(), nullptr);
            Common::ScopedLogCapture capture;
            QueryPtr query(Query::Create());
            ASSERT_TRUE(engine.Get()->GetLoader()->AddLoaderWork(link, "nobody/serves.zef", &bucket, false, query));
            ASSERT_TRUE(query->WaitFinished(5000));
            EXPECT_EQ(query->GetState(), Query::eCancelled);
            EXPECT_TRUE(capture.Contains("DataProvider is not instanciated !!!"));
            EXPECT_TRUE(capture.Contains("File not found: \"nobody/serves.zef\" \n"));
            EXPECT_TRUE(WaitUntil([&] { return bucket.IsLoaded(); }));
        }
        bucket.DestroyLink(link);
        engine.Stop();
    }

    namespace
    {
        // Holds the loading thread until opened, so that what follows is one batch.
        class GateWorker : public PooledWorker<GateWorker, RenderThread>
        {
        public:
            GateWorker() = default;
            explicit GateWorker(std::atomic<bool>* open) : m_pOpen(open) {}
            unsigned int GetQueue() const override { return eUpdateQueue; }
            bool DoWork(RenderThread*) override
            {
                while (!m_pOpen->load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
                return true;
            }

        private:
            std::atomic<bool>* m_pOpen = nullptr;
        };
    }

    TEST(Loaders, ABatchIsAnnouncedToTheProviderBeforeItsFirstResolve)
    {
        FolderProvider provider;
        const std::vector<unsigned char> file = SavedLink();
        const char* names[] = {"a.zef", "b.zef", "c.zef"};
        for (const char* name : names) provider.Write(name, file.data(), file.size());
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        Bucket bucket(engine.Get(), "batch");
        std::atomic<bool> open{false};
        ASSERT_TRUE(engine.Get()->GetLoader()->AddWork(GateWorker::New(&open)));
        std::vector<Link*> links;
        std::vector<QueryPtr> queries;
        for (const char* name : names)
        {
            links.push_back(bucket.CreateLink(name));
            queries.emplace_back(Query::Create());
            ASSERT_TRUE(engine.Get()->GetLoader()->AddLoaderWork(links.back(), name, &bucket, false, queries.back()));
            EXPECT_EQ(queries.back()->GetState(), Query::eQueued);
        }
        EXPECT_EQ(bucket.GetPendingCount(), 3);
        open.store(true);
        for (const QueryPtr& query : queries)
        {
            ASSERT_TRUE(query->WaitFinished(5000));
            EXPECT_EQ(query->GetState(), Query::eDone);
        }
        EXPECT_TRUE(WaitUntil([&] { return bucket.IsLoaded(); }));
        const std::vector<std::string> expected = {"prefetch a.zef", "prefetch b.zef", "prefetch c.zef",
                                                   "resolve a.zef",  "resolve b.zef",  "resolve c.zef"};
        EXPECT_EQ(provider.Events(), expected);
        for (Link* link : links)
        {
            EXPECT_EQ(link->GetNodeCount(), 2u);
            bucket.DestroyLink(link);
        }
        engine.Stop();
    }

    TEST(Loaders, ALoadHoldsItsCountedOwnerAndDropsItsWorkWhenTheOwnerCloses)
    {
        FolderProvider provider;
        const std::vector<unsigned char> file = SavedLink();
        provider.Write("held.zef", file.data(), file.size());
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        Bucket* bucket = MEM_NEW(Bucket, engine.Get(), "counted");
        bucket->InitReference();
        std::atomic<bool> deleted{false};
        bucket->SetDoneFlag(&deleted);
        std::atomic<bool> open{false};
        ASSERT_TRUE(engine.Get()->GetLoader()->AddWork(GateWorker::New(&open)));
        Link link(nullptr, "held");
        Landing landing;
        QueryPtr query(Query::Create());
        ASSERT_TRUE(engine.Get()->GetLoader()->AddLoaderWork(&link, "held.zef", bucket, false, query,
                                                             &Landing::OnLoaded, &landing));
        EXPECT_EQ(bucket->GetRefCount(), 2);
        // The owner lets go and closes while the load waits in the queue.
        bucket->SetClosing();
        bucket->Release();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(deleted.load()) << "the load still holds it";
        open.store(true);
        ASSERT_TRUE(landing.Wait());
        EXPECT_FALSE(landing.bLoaded);
        EXPECT_EQ(query->GetState(), Query::eCancelled);
        EXPECT_EQ(link.GetNodeCount(), 0u);
        EXPECT_TRUE(WaitUntil([&] { return deleted.load(); })) << "the load's end let the bucket go";
        engine.Stop();
    }

    TEST(Loaders, EveryLoadInFlightWhenTheEngineStopsIsToldOnce)
    {
        FolderProvider provider;
        const std::vector<unsigned char> file = SavedLink();
        provider.Write("s.zef", file.data(), file.size());
        constexpr int kLoads = 200;
        Landing landing;
        {
            std::vector<Link*> links;
            Engine engine;
            ASSERT_TRUE(engine.IsStarted());
            Bucket bucket(engine.Get(), "stopping");
            for (int i = 0; i < kLoads; ++i)
            {
                links.push_back(MEM_NEW(Link, nullptr, "s"));
                engine.Get()->GetLoader()->AddLoaderWork(links.back(), i % 2 ? "s.zef" : "none.zef", &bucket, false,
                                                         QueryPtr(), &Landing::OnLoaded, &landing);
            }
            Common::ScopedLogCapture quiet;
            engine.Stop();
            EXPECT_EQ(landing.iCalls.load(), kLoads);
            EXPECT_EQ(bucket.GetPendingCount(), 0);
            for (Link* link : links) MEM_DELETE(link);
        }
    }
}
