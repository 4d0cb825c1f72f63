// The octree's link commands: what each kind does, the double buffer, the stall rule.
#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

#include "common/math/QuaternionMath.h"
#include "common/system/debug/Log.h"
#include "zemrenderer/scene/LinkWorkers.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"

namespace ZemRenderer::SceneTest
{
    namespace
    {
        class CountingWorker : public PooledWorker<CountingWorker, RenderThread>
        {
        public:
            CountingWorker() = default;
            CountingWorker(std::atomic<int>* runs, LOctreeRoot* requeue = nullptr, Link* link = nullptr)
                : m_pRuns(runs), m_pRequeue(requeue), m_pLink(link)
            {
            }
            unsigned int GetQueue() const override { return eUpdateQueue; }
            bool DoWork(RenderThread*) override
            {
                m_pRuns->fetch_add(1);
                // A command of the main thread while the commands run waits for the next run.
                if (m_pRequeue) m_pRequeue->SetPosition(m_pLink, {7, 7, 7});
                return true;
            }

        private:
            std::atomic<int>* m_pRuns = nullptr;
            LOctreeRoot* m_pRequeue = nullptr;
            Link* m_pLink = nullptr;
        };

        LinkCommand Move(Link* link, int64_t x)
        {
            LinkCommand c;
            c.uiKind = LinkCommand::eSetPosition;
            c.pTarget = link;
            c.kPosition = {x, 0, 0};
            return c;
        }

        struct Scene
        {
            Bucket bucket{nullptr, "scene"};
            LOctreeRoot* octree = bucket.CreateLOctree(1000.0f, 4);
        };
    }

    TEST(LOctreeRoot, RootHalfIsAPowerOfTwoCoveringSizeAndDepth)
    {
        Bucket bucket(nullptr, "sizes");
        struct Case
        {
            float size;
            unsigned short depth;
            int64_t half;
        };
        const Case cases[] = {{1000.0f, 4, int64_t(1) << 30}, {0.000001f, 3, 8}, {0.0f, 10, 1024}, {1.0f, 0, 1 << 20}};
        for (const Case& c : cases)
        {
            LOctreeRoot* octree = bucket.CreateLOctree(c.size, c.depth);
            EXPECT_EQ(octree->GetRootHalf(), c.half) << c.size;
            EXPECT_EQ(octree->GetTreeNodeCount(), 1u);
            EXPECT_TRUE(octree->GetTreeNode(0)->IsLeaf());
            bucket.DestroyLOctree(octree);
        }
        // Allocation grows by 9, then doubles.
        LOctreeRoot* octree = bucket.CreateLOctree(1.0f, 2);
        for (int i = 0; i < 9; ++i) octree->Allocate();
        EXPECT_EQ(octree->GetTreeNodeCount(), 10u);
    }

    TEST(LOctreeRoot, KindsWithoutAParentSetWhatTheyNameAndFinishTheirQuery)
    {
        Scene s;
        Link* link = s.bucket.CreateLink("l");
        s.octree->AddLink(link);
        EXPECT_TRUE(link->HasFlags(Link::eInTree));
        const Math::Quaternion turn{0.0f, 1.0f, 0.0f, 0.0f};
        QueryPtr query(Query::Create());
        // From the main thread each command runs at once.
        s.octree->SetPosition(link, {1, 2, 3}, nullptr, query.Get());
        EXPECT_EQ(query->GetState(), Query::eDone);
        EXPECT_EQ(link->GetPosition(), (Math::WorldVector3{1, 2, 3}));
        s.octree->SetRotation(link, turn);
        EXPECT_EQ(link->GetRotation().y, 1.0f);
        EXPECT_EQ(link->GetPosition(), (Math::WorldVector3{1, 2, 3}));
        s.octree->SetScale(link, {2.0f, 2.0f, 2.0f});
        EXPECT_EQ(link->GetScale().x, 2.0f);
        EXPECT_EQ(link->GetRotation().y, 1.0f);
        s.octree->SetTransform(link, {9, 9, 9}, Math::Quaternion{}, {1.0f, 1.0f, 1.0f});
        EXPECT_EQ(link->GetPosition(), (Math::WorldVector3{9, 9, 9}));
        EXPECT_EQ(link->GetRotation().w, 1.0f);
        EXPECT_EQ(link->GetScale().y, 1.0f);
        EXPECT_FALSE(link->HasFlags(Link::ePositionChanged | Link::eBoundsChanged));
        EXPECT_EQ(query->GetRefCount(), 1);
        s.bucket.DestroyLink(link);
    }

    TEST(LOctreeRoot, WithAParentEveryKindComposesTheWholeTransform)
    {
        Scene s;
        Link* parent = s.bucket.CreateLink("parent");
        Link* child = s.bucket.CreateLink("child");
        const float h = std::sqrt(0.5f);
        parent->SetPosition({10000000, 0, 0});
        parent->SetRotation({0.0f, 0.0f, h, h}); // +90 degrees about z
        parent->SetScale({2.0f, 3.0f, 4.0f});

        s.octree->SetPosition(child, {1000000, 0, 0}, parent);
        EXPECT_EQ(child->GetPosition(), (Math::WorldVector3{10000000, 1000000, 0}));
        EXPECT_NEAR(child->GetRotation().z, h, 1e-6f);
        EXPECT_EQ(child->GetScale().z, 4.0f);

        // Scale alone still sets position and rotation: the local position is the origin.
        child->SetRotation({});
        s.octree->SetScale(child, {0.5f, 0.5f, 0.5f}, parent);
        EXPECT_EQ(child->GetPosition(), (Math::WorldVector3{10000000, 0, 0}));
        EXPECT_NEAR(child->GetRotation().w, h, 1e-6f);
        EXPECT_FLOAT_EQ(child->GetScale().x, 1.0f);
        EXPECT_FLOAT_EQ(child->GetScale().y, 1.5f);

        // The rotation is the parent's applied after the child's.
        const Math::Quaternion aboutX{h, 0.0f, 0.0f, h};
        s.octree->SetTransform(child, {0, 2000000, 0}, aboutX, {1.0f, 1.0f, 1.0f}, parent);
        EXPECT_EQ(child->GetPosition(), (Math::WorldVector3{8000000, 0, 0}));
        const Math::LocalVector3 y = Math::Rotate(child->GetRotation(), {0.0f, 1.0f, 0.0f});
        EXPECT_NEAR(y.z, 1.0f, 1e-6f);
        // x: about x stays x, then about z goes to y (the other order would give z).
        const Math::LocalVector3 x = Math::Rotate(child->GetRotation(), {1.0f, 0.0f, 0.0f});
        EXPECT_NEAR(x.y, 1.0f, 1e-6f);
        s.bucket.DestroyLink(child);
        s.bucket.DestroyLink(parent);
    }

    TEST(LOctreeRoot, ABufferOf128DoesNotStallAProducerAndOneOf129Does)
    {
        Scene s;
        Link* link = s.bucket.CreateLink("moved");
        s.octree->AddLink(link);
        std::atomic<int> added{0};
        std::thread producer([&] {
            for (int i = 1; i <= 129; ++i)
            {
                s.octree->AddCommand(Move(link, i));
                added.store(i);
            }
        });
        ASSERT_TRUE(WaitUntil([&] { return added.load() >= 128; }));
        ASSERT_TRUE(WaitUntil([&] { return s.octree->GetCommandCount() == 129; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(added.load(), 128) << "the 129th command must wait for the main thread";
        EXPECT_EQ(link->GetPosition().x, 0) << "nothing runs before the main thread flips";

        const uint32_t frame = s.octree->GetFrameCount();
        EXPECT_TRUE(s.octree->ExecuteCommands());
        producer.join();
        EXPECT_EQ(added.load(), 129);
        EXPECT_EQ(s.octree->GetFrameCount(), frame + 1);
        EXPECT_EQ(link->GetPosition().x, 129) << "commands run in order";
        EXPECT_EQ(s.octree->GetCommandCount(), 0u);
        EXPECT_EQ(s.octree->GetTreeNode(0)->auiChangeCounters[0], frame + 1);
        s.octree->RemoveLink(link);
        s.bucket.DestroyLink(link);
    }

    TEST(LOctreeRoot, OnlyTheMainThreadRunsCommandsAndLargeBuffersGiveTheirStorageBack)
    {
        Scene s;
        Link* link = s.bucket.CreateLink("big");
        std::vector<LinkCommand> many;
        for (int i = 0; i < 3000; ++i) many.push_back(Move(link, i));

        std::thread producer([&] {
            {
                Common::ScopedLogCapture capture;
                EXPECT_FALSE(s.octree->ExecuteCommands());
                EXPECT_TRUE(capture.Contains("ExecuteCommands must be called by main thread"));
            }
            s.octree->AddCommands(many.data(), 3000);
            s.octree->AddCommands(many.data(), 2000);
        });
        ASSERT_TRUE(WaitUntil([&] { return s.octree->GetCommandCount() == 3000; }));
        ASSERT_TRUE(s.octree->ExecuteCommands());
        EXPECT_EQ(link->GetPosition().x, 2999);
        ASSERT_TRUE(WaitUntil([&] { return s.octree->GetCommandCount() == 2000; }));
        EXPECT_EQ(s.octree->GetBufferCapacity(0), 0u) << "3000 commands: storage freed";
        ASSERT_TRUE(s.octree->ExecuteCommands());
        producer.join();
        EXPECT_EQ(link->GetPosition().x, 1999);
        EXPECT_GE(s.octree->GetBufferCapacity(1), 2000u) << "2000 commands: storage kept";
        s.bucket.DestroyLink(link);
    }

    TEST(LOctreeRoot, UpdateIgnoresUnmovedLoadingAndMasterLinksAndKeepsCounters)
    {
        Scene s;
        Link* master = s.bucket.CreateLink("master");
        master->SetFlags(Link::eMaster);
        s.octree->AddLink(master);
        EXPECT_FALSE(master->HasFlags(Link::eInTree));
        EXPECT_TRUE(s.octree->GetTreeNode(0)->aLinks.IsEmpty());

        Link* loading = s.bucket.CreateLink("loading");
        loading->SetFlags(Link::eLoading);
        s.octree->AddLink(loading);
        EXPECT_FALSE(loading->HasFlags(Link::eInTree));
        loading->ClearFlags(Link::eLoading);
        s.octree->UpdateLink(loading);
        EXPECT_TRUE(loading->HasFlags(Link::eInTree));

        // A link with bit 8 keeps its node always changed while it stands there.
        Link* marked = s.bucket.CreateLink("marked");
        marked->SetFlags(Link::eStoredBit);
        s.octree->AddLink(marked);
        TreeNode* root = s.octree->GetTreeNode(0);
        EXPECT_EQ(root->auiChangeCounters[0], TreeNode::kAlwaysChanged);
        s.octree->ExecuteCommands();
        loading->SetFlags(Link::ePositionChanged);
        s.octree->UpdateLink(loading);
        EXPECT_EQ(root->auiChangeCounters[0], TreeNode::kAlwaysChanged);
        s.octree->RemoveLink(marked);
        EXPECT_EQ(root->auiChangeCounters[0], 0u);

        // Unmoved: the counters stay; moved: they take the frame.
        const uint32_t frame = s.octree->GetFrameCount();
        s.octree->ExecuteCommands();
        s.octree->UpdateLink(loading);
        EXPECT_EQ(root->auiChangeCounters[0], 0u);
        loading->SetFlags(Link::eDynamic);
        loading->SetPosition({1, 1, 1});
        s.octree->UpdateLink(loading);
        EXPECT_EQ(root->auiChangeCounters[0], frame + 1);
        EXPECT_EQ(root->auiChangeCounters[1], frame + 1);
        for (Link* l : {master, loading, marked}) DeleteLinkWorker::Post(l);
        EXPECT_TRUE(root->aLinks.IsEmpty());
    }

    TEST(LOctreeRoot, StreamStatusAndStoredWorkersRunInCommandOrder)
    {
        Scene s;
        Link* link = s.bucket.CreateLink("worked");
        Link* other = s.bucket.CreateLink("other");
        s.octree->AddLink(link);
        s.octree->AddLink(other);
        std::atomic<int> runs{0};
        LinkCommand status;
        status.uiKind = LinkCommand::eSetStreamStatus;
        status.uiArgument = 0;
        status.uiValue = 2;
        LinkCommand work;
        work.uiKind = LinkCommand::eRunWorker;
        work.pWorker = CountingWorker::New(&runs, s.octree, other);
        std::thread producer([&] {
            s.octree->AddCommand(Move(link, 5));
            s.octree->AddCommand(status);
            s.octree->AddCommand(work);
            DeleteLinkWorker::Post(link);
        });
        producer.join();
        EXPECT_EQ(s.octree->GetCommandCount(), 4u);
        EXPECT_EQ(s.octree->GetTreeNode(0)->aLinks.GetSize(), 2u);
        s.octree->ExecuteCommands();
        EXPECT_EQ(s.octree->GetTreeNode(0)->GetStreamStatus(), 2u);
        EXPECT_EQ(runs.load(), 1);
        EXPECT_EQ(CountingWorker::GetUsedCount(), 0u);
        EXPECT_EQ(DeleteLinkWorker::GetUsedCount(), 0u);
        EXPECT_EQ(s.octree->GetTreeNode(0)->aLinks.GetSize(), 1u) << "the deleted link left the tree";
        // The worker's own command waited for the next run.
        EXPECT_EQ(s.octree->GetCommandCount(), 1u);
        EXPECT_EQ(other->GetPosition().x, 0);
        s.octree->ExecuteCommands();
        EXPECT_EQ(other->GetPosition().x, 7);
        s.bucket.DestroyLink(other);
        EXPECT_TRUE(s.octree->GetTreeNode(0)->aLinks.IsEmpty());
    }

    TEST(LOctreeRoot, LinksThatOutliveTheirOctreeAreLetGo)
    {
        Bucket bucket(nullptr, "outlive");
        Link* loading = bucket.CreateLink("loading");
        loading->SetFlags(Link::eLoading);
        Link* placed = bucket.CreateLink("placed");
        LOctreeRoot* octree = bucket.CreateLOctree(10.0f, 2);
        octree->AddLink(loading);
        octree->AddLink(placed);
        EXPECT_EQ(octree->GetLinkCount(), 2u);
        EXPECT_TRUE(placed->HasFlags(Link::eInTree));
        bucket.DestroyLOctree(octree);
        EXPECT_EQ(loading->GetOwner(), nullptr);
        EXPECT_EQ(placed->GetOwner(), nullptr);
        EXPECT_FALSE(placed->HasFlags(Link::eInTree));
        bucket.DestroyLink(loading);
        bucket.DestroyLink(placed);
    }
}
