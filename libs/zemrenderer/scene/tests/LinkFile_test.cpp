// Link files: round trips, walks, bad bytes, and loading through the library.
#include <atomic>
#include <cstring>
#include <vector>

#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"
#include "zemrenderer/thread/LoadingThread.h"

namespace ZemRenderer::SceneTest
{
    namespace
    {
        bool LoadBytes(Link& link, const std::vector<unsigned char>& bytes, bool boundsChanged = true)
        {
            IOSTreamExistingMemory in(bytes.data(), bytes.size());
            return link.Load(in, link.GetBucket(), boundsChanged);
        }

        void Put32(std::vector<unsigned char>& v, uint32_t x) { v.insert(v.end(), {(unsigned char)x, (unsigned char)(x >> 8), (unsigned char)(x >> 16), (unsigned char)(x >> 24)}); }
        void Put64(std::vector<unsigned char>& v, uint64_t x)
        {
            Put32(v, static_cast<uint32_t>(x));
            Put32(v, static_cast<uint32_t>(x >> 32));
        }
        std::vector<unsigned char> Header()
        {
            std::vector<unsigned char> v = {'Z', 'E', 'F', 1, 2, 3, 0};
            Put32(v, Link::GetStaticClassId());
            return v;
        }

        // Holds the loading thread until opened.
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

    TEST(LinkFile, RoundTripsInBothByteOrders)
    {
        const std::vector<unsigned char> plain = SavedLink(false);
        const std::vector<unsigned char> swapped = SavedLink(true);
        ASSERT_GE(plain.size(), 11u);
        EXPECT_EQ(std::memcmp(plain.data(), "ZEF\x01\x02\x03\x00", 7), 0);
        EXPECT_EQ(swapped[6], 1);
        uint32_t type = 0;
        std::memcpy(&type, plain.data() + 7, 4);
        EXPECT_EQ(type, GenerateUIntIdFromString("ZemRenderer::Link"));
        ASSERT_EQ(plain.size(), swapped.size());
        // The node count, first field after the header, in both orders; then the nodes'
        // array key, the flags byte and bit and the user-data key; the nodes follow.
        EXPECT_EQ(plain[11], 2);
        EXPECT_EQ(swapped[14], 2);
        uint64_t arrayKey = 0;
        std::memcpy(&arrayKey, plain.data() + 15, 8);
        EXPECT_NE(arrayKey, 0u);
        EXPECT_EQ(plain[23], 0x5A);
        float x = 0;
        std::memcpy(&x, plain.data() + 15 + 8 + 2 + 8, 4);
        EXPECT_EQ(x, 1.5f);

        Bucket bucket(nullptr, "reader");
        Link original(&bucket, "original");
        FillLink(original);
        for (const std::vector<unsigned char>* file : {&plain, &swapped})
        {
            Link link(&bucket, "read");
            link.SetFlags(Link::eLoading);
            ASSERT_TRUE(LoadBytes(link, *file, false));
            EXPECT_TRUE(SameNodes(link, original));
            EXPECT_EQ(UserDataOf(link), UserDataOf(original));
            EXPECT_EQ(link.GetFlags() & 0x1FFu, 0x15Au);
            EXPECT_TRUE(link.IsLoaded());
            EXPECT_TRUE(link.HasFlags(Link::eUserDataRead));
            EXPECT_FALSE(link.HasFlags(Link::eBoundsChanged | Link::eUnloaded));
            // Blocks read from a file belong to the link like its own.
            EXPECT_TRUE(link.AddUserData(UserData::Create(&bucket, UserDataTag::CAME, 1)));
        }
        EXPECT_EQ(bucket.GetUserDataPool().GetUsedCount(), 2u) << "only the blocks made by hand come from the pool";
    }

    TEST(LinkFile, AWalkUnloadsTheLinkAndTheDirectionsAreGuarded)
    {
        const std::vector<unsigned char> file = SavedLink(false);
        Bucket bucket(nullptr, "walk");
        RecordingHandler handler;
        ScopedHandler scoped(nullptr, &handler);
        Link link(&bucket, "walked");
        ASSERT_TRUE(LoadBytes(link, file));
        EXPECT_TRUE(link.HasFlags(Link::eBoundsChanged));
        EXPECT_EQ(handler.aCalls, (std::vector<std::string>{"walked/LIGH", "walked/MESH"}));
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(LoadBytes(link, file));
            EXPECT_TRUE(capture.Contains("Link walked is already loaded : can't serialize it"));
        }
        EXPECT_TRUE(link.Walk());
        EXPECT_TRUE(link.IsUnloaded());
        EXPECT_EQ(link.GetNodeCount(), 2u) << "a walk moves no data";
        {
            Common::ScopedLogCapture capture;
            IOSTreamMemory out;
            out.OpenToWrite(nullptr);
            EXPECT_FALSE(link.Save(out));
            EXPECT_TRUE(capture.Contains("Link walked is not loaded : can't deserialize it"));
            EXPECT_EQ(out.GetSize(), 0u);
        }
        // Streamed back in.
        ASSERT_TRUE(LoadBytes(link, file));
        EXPECT_FALSE(link.IsUnloaded());
        EXPECT_EQ(UserDataOf(link).size(), 2u);
    }

    TEST(LinkFile, BadBytesFailWithAClearReportAndLeaveTheLinkAsItWas)
    {
        const std::vector<unsigned char> good = SavedLink(false);
        struct Case
        {
            const char* name;
            std::vector<unsigned char> bytes;
            const char* message;
        };
        std::vector<Case> cases;
        cases.push_back({"empty", {}, "Link target : nothing to read, the stream is not open for reading."});
        {
            std::vector<unsigned char> v = good;
            v[0] = 'X';
            cases.push_back({"mark", v, "Not a valid Zemora Engine File!"});
            v = good;
            v[7] ^= 1;
            cases.push_back({"type", v, "Wrong Object Type in Zemora Engine File!"});
            v = good;
            v[5] = 4;
            cases.push_back({"version", v, "Wrong Zemora Engine File version!"});
        }
        {
            std::vector<unsigned char> v = Header();
            Put32(v, 0x40000000u);
            Put64(v, 0x2000);
            cases.push_back({"node count", v, "A link of 1073741824 nodes runs past the end"});
        }
        {
            // The user-data key promises a block that never comes.
            std::vector<unsigned char> v = Header();
            Put32(v, 0);
            Put64(v, 0);
            v.insert(v.end(), {0, 0});
            Put64(v, 0x1000);
            cases.push_back({"dangling key", v, "Unexpected end of Zemora Engine File!"});
            std::vector<unsigned char> w = v;
            Put32(w, UserDataTag::MESH);
            Put32(w, 0x7FFFFFFF);
            cases.push_back({"user data size", w, "User data of 2147483647 bytes runs past the end"});
            // A block whose next is itself.
            std::vector<unsigned char> loop = v;
            Put32(loop, UserDataTag::MESH);
            Put32(loop, 0);
            Put64(loop, 0x1000);
            cases.push_back({"loop", loop, "loops in Zemora Engine File!"});
        }
        {
            std::vector<unsigned char> v = Header();
            Put32(v, 1);
            Put64(v, 0x2000);
            v.insert(v.end(), {0, 0});
            Put64(v, 0);
            v.insert(v.end(), 12 + 16 + 4, 0);
            Put64(v, 0xDEAD);
            v.insert(v.end(), 4 + 4 + 2 + 2 + 4, 0);
            // The node names a draw geometry that the file never holds.
            cases.push_back({"dangling draw geometry", v, "Unexpected end of Zemora Engine File!"});
            // Nodes announced, but the array's key is null.
            std::vector<unsigned char> w = Header();
            Put32(w, 1);
            Put64(w, 0);
            w.insert(w.end(), 2 + 8 + 56, 0);
            cases.push_back({"no array", w, "Link target : 1 nodes without their array"});
        }
        {
            // The nodes written in place after their count, without an array key: the
            // file is too short for the array that its first bytes would announce.
            std::vector<unsigned char> v = Header();
            Put32(v, 2);
            for (int i = 0; i < 2; ++i)
            {
                Put32(v, 0x3F800000u);
                v.insert(v.end(), 8 + 16 + 4 + 8 + 4 + 4 + 2 + 2, 0);
                Put32(v, Node::eVisible);
            }
            v.insert(v.end(), {0, 0});
            Put64(v, 0);
            cases.push_back({"nodes in place", v, "A link of 2 nodes runs past the end"});
        }
        // Every cut of a good file.
        for (size_t n = 1; n < good.size(); ++n)
            cases.push_back({"truncated", std::vector<unsigned char>(good.begin(), good.begin() + n), nullptr});

        Bucket bucket(nullptr, "bad");
        RecordingHandler handler;
        ScopedHandler scoped(nullptr, &handler);
        for (const Case& c : cases)
        {
            Link link(&bucket, "target");
            link.SetFlags(Link::eLoading | 0x11);
            const uint32_t before = link.GetFlags();
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(LoadBytes(link, c.bytes)) << c.name << " " << c.bytes.size();
            if (c.message)
            {
                EXPECT_TRUE(capture.Contains(c.message)) << c.name;
            }
            EXPECT_EQ(link.GetFlags(), before) << c.name;
            EXPECT_EQ(link.GetNodeCount(), 0u) << c.name;
            EXPECT_EQ(link.GetUserData(), nullptr) << c.name;
        }
        EXPECT_TRUE(handler.aCalls.empty());
        EXPECT_EQ(bucket.GetUserDataPool().GetUsedCount(), 0u);
    }

    TEST(LinkFile, ALoadKeepsItsCountedBucketAliveUntilItEnds)
    {
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        TempFile file("link_held");
        file.Write(SavedLink(false));
        Bucket* bucket = MEM_NEW(Bucket, engine.Get(), "held");
        bucket->InitReference();
        std::atomic<bool> deleted{false};
        bucket->SetDoneFlag(&deleted);
        std::atomic<bool> open{false};
        ASSERT_TRUE(engine.Get()->GetLoader()->AddWork(GateWorker::New(&open)));
        Link link(nullptr, "held");
        QueryPtr query(Query::Create());
        ASSERT_TRUE(bucket->AddLinkLoading(&link, file.Path(), query));
        EXPECT_EQ(bucket->GetRefCount(), 2);
        std::thread owner([&] { bucket->Release(); });
        owner.join();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(deleted.load()) << "the load still holds it";
        open.store(true);
        ASSERT_TRUE(query->WaitFinished(5000));
        EXPECT_EQ(query->GetState(), Query::eDone);
        EXPECT_TRUE(WaitUntil([&] { return deleted.load(); }));
        EXPECT_EQ(link.GetNodeCount(), 2u);
        engine.Stop();
    }

    TEST(LinkLibrary, RetrievingOneFileTwiceReadsItOnceAndSharesItsMaster)
    {
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        RecordingHandler handler;
        ScopedHandler scoped(engine.Get(), &handler);
        TempFile file("link_library");
        file.Write(SavedLink(false));
        Bucket bucket(engine.Get(), "world");
        LOctreeRoot* octree = bucket.CreateLOctree(100.0f, 3);
        LinkLibrary& library = octree->GetLinkLibrary();

        std::atomic<bool> open{false};
        ASSERT_TRUE(engine.Get()->GetLoader()->AddWork(GateWorker::New(&open)));
        QueryPtr first;
        QueryPtr second;
        Link* a = bucket.RetrieveLink(octree, file.Path(), &first);
        Link* b = bucket.RetrieveLink(octree, file.Path(), &second);
        ASSERT_TRUE(a && b && first && second);
        EXPECT_NE(a, b);
        EXPECT_STREQ(a->GetName(), "Unnamed");
        EXPECT_TRUE(a->HasFlags(Link::eInstance | Link::eLoading));
        EXPECT_EQ(library.GetFileCount(), 1u);
        EXPECT_EQ(library.GetPendingCount(), 2u);
        // An instance that ends while it waits leaves the library.
        QueryPtr dropped;
        bucket.DestroyLink(bucket.RetrieveLink(octree, file.Path(), &dropped));
        EXPECT_EQ(library.GetPendingCount(), 2u);
        EXPECT_EQ(dropped->GetState(), Query::eCancelled);
        Link* master = library.FindMaster(file.Path());
        ASSERT_NE(master, nullptr);
        EXPECT_TRUE(master->HasFlags(Link::eMaster));
        EXPECT_FALSE(master->HasFlags(Link::eInstance));
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(library.Remove(file.Path()));
            EXPECT_TRUE(capture.Contains("is still loading : can't remove it"));
        }

        open.store(true);
        ASSERT_TRUE(master->GetQuery()->WaitFinished(5000));
        EXPECT_EQ(first->GetState(), Query::eQueued) << "instances wait for the main thread";
        octree->ExecuteCommands();
        for (Link* instance : {a, b})
        {
            EXPECT_TRUE(instance->IsLoaded());
            EXPECT_FALSE(instance->HasFlags(Link::eInstance));
            EXPECT_TRUE(instance->HasFlags(Link::eInTree));
            EXPECT_TRUE(SameNodes(*instance, *master));
            EXPECT_EQ(instance->GetUserData(), master->GetUserData()) << "user data is shared, not copied";
        }
        EXPECT_EQ(first->GetState(), Query::eDone);
        EXPECT_EQ(second->GetState(), Query::eDone);
        EXPECT_EQ(library.GetPendingCount(), 0u);
        EXPECT_FALSE(master->HasFlags(Link::eInTree));
        EXPECT_EQ(handler.aCalls, (std::vector<std::string>{"Unnamed/LIGH", "Unnamed/MESH", "Unnamed/LIGH", "Unnamed/MESH"}));

        // Once read, the file is not read again: a third instance is made at once.
        file.Write({});
        QueryPtr third;
        Link* c = bucket.RetrieveLink(octree, file.Path(), &third);
        EXPECT_EQ(third->GetState(), Query::eDone);
        EXPECT_TRUE(SameNodes(*c, *master));
        EXPECT_EQ(library.GetFileCount(), 1u);
        EXPECT_EQ(octree->GetTreeNode(0)->aLinks.GetSize(), 3u);

        for (Link* instance : {a, b, c}) bucket.DestroyLink(instance);
        EXPECT_TRUE(library.Remove(file.Path()));
        EXPECT_EQ(library.GetFileCount(), 0u);
        EXPECT_EQ(bucket.GetUserDataPool().GetUsedCount(), 0u);
        bucket.DestroyLOctree(octree);
        engine.Stop();
    }

    TEST(LinkLibrary, AFailedFileCancelsItsInstancesAndIsTriedAgainOnTheNextRequest)
    {
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        TempFile file("link_retry");
        Bucket bucket(engine.Get(), "retry");
        LOctreeRoot* octree = bucket.CreateLOctree(100.0f, 3);
        QueryPtr query;
        Link* lost = nullptr;
        {
            Common::ScopedLogCapture capture;
            lost = bucket.RetrieveLink(octree, file.Path(), &query);
            ASSERT_TRUE(octree->GetLinkLibrary().FindMaster(file.Path())->GetQuery()->WaitFinished(5000));
        }
        octree->ExecuteCommands();
        EXPECT_EQ(query->GetState(), Query::eCancelled);
        EXPECT_FALSE(lost->IsLoaded());
        EXPECT_EQ(octree->GetLinkLibrary().GetFileCount(), 1u) << "the record stays";

        file.Write(SavedLink(false));
        Link* found = bucket.RetrieveLink(octree, file.Path(), &query, lost);
        EXPECT_EQ(found, lost);
        ASSERT_TRUE(octree->GetLinkLibrary().FindMaster(file.Path())->GetQuery()->WaitFinished(5000));
        octree->ExecuteCommands();
        EXPECT_EQ(query->GetState(), Query::eDone);
        EXPECT_TRUE(found->IsLoaded());
        EXPECT_EQ(found->GetNodeCount(), 2u);
        bucket.DestroyLink(found);
        engine.Stop();
    }
}
