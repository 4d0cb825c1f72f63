// Links: flags, nodes, user data and its dispatch.
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"

namespace ZemRenderer::SceneTest
{
    TEST(Link, NodeOperationsSetTheirBitsAndReportTheirOwnNameOutOfRange)
    {
        Bucket bucket(nullptr, "nodes");
        Link link(&bucket, "n");
        link.GetRenderNode().m_nodes.Resize(2);
        link.HideNode(1);
        EXPECT_FALSE(link.IsNodeVisible(1));
        EXPECT_TRUE(link.IsNodeVisible(0));
        link.ShowNode(1);
        EXPECT_TRUE(link.IsNodeVisible(1));
        link.SetNodeAlwaysVisible(0);
        link.SetNodeForceRenderCommand(0);
        EXPECT_EQ(link.GetNode(0)->m_uiFlags, uint32_t(Node::eVisible | Node::eAlwaysVisible | Node::eForceRenderCommand));

        struct Case
        {
            void (*call)(Link&);
            const char* message;
        };
        const Case cases[] = {
            {[](Link& l) { l.HideNode(2); }, "HideNode : node index out of range"},
            {[](Link& l) { l.ShowNode(2); }, "ShowNode : node index out of range"},
            {[](Link& l) { l.SetNodeAlwaysVisible(2); }, "SetNodeAlwaysVisible : node index out of range"},
            {[](Link& l) { l.SetNodeForceRenderCommand(2); }, "SetNodeForceRenderCommand : node index out of range"},
            {[](Link& l) { (void)l.IsNodeVisible(2); }, "IsNodeVisible : node index out of range"},
        };
        for (const Case& c : cases)
        {
            Common::ScopedLogCapture capture;
            c.call(link);
            EXPECT_TRUE(capture.Contains(c.message)) << c.message;
        }
        EXPECT_EQ(link.GetNode(2), nullptr);
    }

    TEST(Link, UserDataIsAListNewestFirst)
    {
        Bucket bucket(nullptr, "ud");
        Link link(&bucket, "u");
        UserData* first = UserData::Create(&bucket, UserDataTag::MESH, 4);
        UserData* second = UserData::Create(&bucket, UserDataTag::MESH, 4);
        UserData* light = UserData::Create(&bucket, UserDataTag::LIGH, 0);
        EXPECT_TRUE(link.AddUserData(first));
        EXPECT_TRUE(link.AddUserData(light));
        EXPECT_TRUE(link.AddUserData(second));
        EXPECT_EQ(link.FindUserData(UserDataTag::MESH), second);
        EXPECT_EQ(link.FindUserData(UserDataTag::LIGH), light);
        EXPECT_EQ(link.FindUserData(UserDataTag::CAME), nullptr);
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(link.AddUserData(light));
            EXPECT_TRUE(capture.Contains("New UserData should have null next"));
        }
        UserData* lone = UserData::Create(&bucket, UserDataTag::CAME, 0);
        Link other(&bucket, "o");
        ASSERT_TRUE(other.AddUserData(lone));
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(other.AddUserData(lone));
            EXPECT_TRUE(capture.Contains("UserData already added"));
        }
        EXPECT_EQ(bucket.GetUserDataPool().GetUsedCount(), 4u);
    }

    TEST(UserDataHelper, GrowsOneTaggedArrayPerLink)
    {
        Bucket bucket(nullptr, "helper");
        Link link(&bucket, "gui");
        const unsigned char mark = 0;
        UserData* block = UserDataHelper::Add(&link, nullptr, UserDataTag::GPRO, mark);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->m_uiTag, 0x4F525047u);
        EXPECT_EQ(block->m_uiSize, 9u);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block->m_pBuffer) % 16, 0u);
        uint32_t head[2];
        std::memcpy(head, block->m_pBuffer, 8);
        EXPECT_EQ(head[0], 0x4F525047u);
        EXPECT_EQ(head[1], 1u);
        EXPECT_EQ(block->m_pPool, &bucket.GetUserDataPool());

        const uint32_t values[] = {10, 20, 30};
        UserData* words = nullptr;
        for (uint32_t v : values) words = UserDataHelper::Add(&link, &bucket, UserDataTag::USRI, v);
        EXPECT_EQ(UserDataHelper::GetCount(words), 3u);
        EXPECT_EQ(words->m_uiSize, 8u + 12u);
        EXPECT_EQ(std::memcmp(UserDataHelper::GetElements(words), values, sizeof(values)), 0);
        // The GPRO block is still the one found, and is untouched.
        EXPECT_EQ(link.FindUserData(UserDataTag::GPRO), block);
        EXPECT_EQ(UserDataHelper::GetCount(block), 1u);
        UserDataHelper::Add(&link, nullptr, UserDataTag::GPRO, mark);
        EXPECT_EQ(UserDataHelper::GetCount(block), 2u);
        EXPECT_EQ(block->m_uiSize, 10u);
        EXPECT_EQ(bucket.GetUserDataPool().GetUsedCount(), 2u);

        Common::ScopedLogCapture capture;
        EXPECT_EQ(UserDataHelper::AddElement(nullptr, &bucket, UserDataTag::GPRO, &mark, 1), nullptr);
        EXPECT_EQ(UserDataHelper::AddElement(&link, &bucket, UserDataTag::GPRO, &mark, 0), nullptr);
        EXPECT_EQ(UserDataHelper::GetCount(block), 2u);
    }

    TEST(Link, DispatchGoesToTheRenderThreadsHandlerOnlyForReadNonMasterLinks)
    {
        Bucket bucket(nullptr, "dispatch");
        Link link(&bucket, "lamp");
        FillLink(link);
        RecordingHandler handler;
        link.DispatchUserData();
        {
            ScopedHandler scoped(nullptr, &handler);
            link.DispatchUserData();
            EXPECT_TRUE(handler.aCalls.empty()) << "user data not read yet";
            link.SetFlags(Link::eUserDataRead);
            link.DispatchUserData();
            EXPECT_EQ(handler.aCalls, (std::vector<std::string>{"lamp/LIGH", "lamp/MESH"}));
            // The bit stays set: a link can be dispatched again.
            link.DispatchUserData();
            EXPECT_EQ(handler.aCalls.size(), 4u);
            link.SetFlags(Link::eMaster);
            link.DispatchUserData();
            EXPECT_EQ(handler.aCalls.size(), 4u);
        }
        link.ClearFlags(Link::eMaster);
        link.DispatchUserData();
        EXPECT_EQ(handler.aCalls.size(), 4u);
    }

    TEST(Link, CopyKeepsOwnBlocksInFrontAndSharesTheSourcesList)
    {
        Bucket bucket(nullptr, "copy");
        Link* master = bucket.CreateLink("master");
        FillLink(*master);
        Link* instance = bucket.CreateLink("instance");
        UserDataHelper::Add(instance, nullptr, UserDataTag::GPRO, static_cast<unsigned char>(0));
        instance->CopyDataFrom(*master);
        EXPECT_TRUE(SameNodes(*instance, *master));
        EXPECT_EQ(instance->GetFlags() & 0x1FFu, master->GetFlags() & 0x1FFu);
        EXPECT_EQ(UserDataOf(*instance).size(), 3u);
        EXPECT_EQ(instance->GetUserData()->m_uiTag, UserDataTag::GPRO);
        EXPECT_EQ(instance->GetUserData()->m_pNext, master->GetUserData());
        // A second copy replaces the shared tail only.
        instance->CopyDataFrom(*master);
        EXPECT_EQ(UserDataOf(*instance).size(), 3u);
        EXPECT_EQ(bucket.GetUserDataPool().GetUsedCount(), 3u);
        bucket.DestroyLink(instance);
        EXPECT_EQ(bucket.GetUserDataPool().GetUsedCount(), 2u);
        EXPECT_EQ(UserDataOf(*master).size(), 2u);
        bucket.DestroyLink(master);
        EXPECT_EQ(bucket.GetUserDataPool().GetUsedCount(), 0u);
    }
}
