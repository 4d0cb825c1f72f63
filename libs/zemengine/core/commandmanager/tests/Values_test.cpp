#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/core/commandmanager/RPCTypes.h"
#include "zemengine/core/commandmanager/ReturnBuffer.h"

using namespace ZemEngine;

TEST(ReturnBuffer, GrowsByDoublingAndStaysATerminatedText)
{
    CReturnBuffer buffer;
    EXPECT_EQ(buffer.GetCapacity(), 256u);
    EXPECT_STREQ(buffer.GetText(), "");
    for (int i = 0; i < 255; ++i) buffer.Put('a');
    EXPECT_EQ(buffer.GetCapacity(), 256u);
    buffer.Put('b');  // 256 bytes of text need a terminator beyond them
    EXPECT_EQ(buffer.GetCapacity(), 512u);
    EXPECT_EQ(std::string(buffer.GetText()), std::string(255, 'a') + "b");

    CReturnBuffer copy;
    copy.Put('z');
    copy.Put('z');
    copy = buffer;
    EXPECT_EQ(std::string(copy.GetText()), std::string(buffer.GetText()));
    CReturnBuffer shorter;
    shorter.Put('q');
    copy = shorter;
    EXPECT_STREQ(copy.GetText(), "q");
    EXPECT_EQ(copy.GetLength(), 1u);
    buffer.Clear();
    EXPECT_EQ(buffer.GetCapacity(), 256u);
    EXPECT_STREQ(buffer.GetText(), "");
}

TEST(RUserID, PacksByKindAndReportsBadInits)
{
    struct Row
    {
        unsigned int type, a, b, c;
        unsigned int id;
        const char* report;
    } rows[] = {
        {RPC::RUserID::Link, 5, RPC::RUserID::kInfinite, RPC::RUserID::kInfinite, 0x10000005u, nullptr},
        {RPC::RUserID::Node, 3, 7, RPC::RUserID::kInfinite, 0x20000000u | (3u << 13) | 7u, nullptr},
        {RPC::RUserID::Socket, 2, 5, 9, 0x60000000u | (2u << 13) | (5u << 6) | 9u, nullptr},
        {RPC::RUserID::Bone, 1, 0, RPC::RUserID::kInfinite, 0x90000000u | (1u << 13), nullptr},
        {RPC::RUserID::Node, 3, RPC::RUserID::kInfinite, 0, 0x20000000u | (3u << 13) | 0x1FFFu, "(Node with infinite id)"},
        {RPC::RUserID::Bone, 3, RPC::RUserID::kInfinite, 0, 0x90000000u | (3u << 13) | 0x1FFFu, "(Bone with infinite id)"},
        {RPC::RUserID::Socket, 1, 2, RPC::RUserID::kInfinite, 0x60000000u | (1u << 13) | (2u << 6) | 0x3Fu,
         "(SocketIndex or SubPrefabIndex with infinite id)"},
        {RPC::RUserID::Light, 4, 1, 0, 0x30000004u, "(there are only two parameters for node)"},
    };
    for (const Row& row : rows)
    {
        Common::ScopedLogCapture log;
        const RPC::RUserID id(row.type, row.a, row.b, row.c);
        EXPECT_EQ(id.GetID(), row.id) << row.type;
        if (row.report)
            EXPECT_TRUE(log.Contains((std::string("RUserId : look alike a bad init ") + row.report).c_str())) << log.Text();
        else
            EXPECT_EQ(log.Text(), "");
    }
    unsigned int params[3];
    EXPECT_EQ(RPC::RUserID(RPC::RUserID::Socket, 2, 5, 9).GetParams(params), 3u);
    EXPECT_EQ(params[1], 5u);
    EXPECT_EQ(RPC::RUserID::TypeFromName("Camera"), 14u);
    EXPECT_EQ(RPC::RUserID::TypeFromName("camera"), 0u);
}

namespace
{
    class IRPCStub_Thing : public CInstanceManager<IRPCStub_Thing>
    {
    };
    class IRPCStub_Other : public CInstanceManager<IRPCStub_Other>
    {
    };
}

TEST(PointerResolver, IdsArePerClassNeverReusedAndSafeAcrossThreads)
{
    CommandManager manager;
    manager.Init();
    {
        Common::ScopedLogCapture log;
        CPointerResolver late;
        CPointerResolver::SetInstance(&late);  // refused: the first stays
        EXPECT_TRUE(log.Contains("Instance has already been set")) << log.Text();
    }
    EXPECT_EQ(CPointerResolver::GetInstance(), manager.GetResolver());

    IRPCStub_Thing* first = MEM_NEW(IRPCStub_Thing);
    IRPCStub_Other* other = MEM_NEW(IRPCStub_Other);
    EXPECT_EQ(CInstanceManager<IRPCStub_Thing>::GetInstanceID(first), 0u);
    EXPECT_EQ(CInstanceManager<IRPCStub_Other>::GetInstanceID(other), 0u);
    MEM_DELETE(first);
    {
        Common::ScopedLogCapture log;
        EXPECT_EQ(CInstanceManager<IRPCStub_Thing>::GetInstance(0), nullptr);
        EXPECT_TRUE(log.Contains("Cannot retreive instance ptr")) << log.Text();
    }

    // Threads create, look up and destroy at once; every object finds itself.
    std::vector<std::thread> threads;
    std::atomic<int> misses{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 500; ++i)
            {
                IRPCStub_Thing* thing = MEM_NEW(IRPCStub_Thing);
                const unsigned int id = CInstanceManager<IRPCStub_Thing>::GetInstanceID(thing);
                if (id == CPointerResolver::kInvalidID || CInstanceManager<IRPCStub_Thing>::GetInstance(id) != thing)
                    ++misses;
                thing->AddRef();
                thing->ReleaseRef();  // the last release frees it
            }
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(misses.load(), 0);
    const unsigned int type = CPointerResolver::TypeID<IRPCStub_Thing>();
    EXPECT_EQ(manager.GetResolver()->GetInstanceCount(type), 0u);
    EXPECT_EQ(manager.GetResolver()->GetNextID(type), 2001u);
    MEM_DELETE(other);
}
