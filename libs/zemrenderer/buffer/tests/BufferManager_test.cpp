// The buffer manager: pools by class and rounded size, and the frame a buffer waits
// before it is handed out again.
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/BufferDevice.h"
#include "zemrenderer/buffer/BufferReference.h"

namespace ZemRenderer::BufferTest
{
    TEST(BufferManager, ABufferGivenBackIsReusedFromTheNextFrameOnly)
    {
        BufferDevice device;
        BufferManager& manager = device.GetManager();
        const uint32_t flags = BBF_CONSTANT | BBF_CPU_WRITEACCESS;
        std::set<BufferReference*> frameN;
        for (int i = 0; i < 8; ++i) frameN.insert(manager.Allocate(64, 0, flags));
        ASSERT_EQ(frameN.size(), 8u);
        for (BufferReference* b : frameN) ASSERT_TRUE(manager.Release(b, 64, 0, flags));
        EXPECT_EQ(manager.GetPendingCount(64, 0, flags), 8u);
        EXPECT_EQ(manager.GetFreeCount(64, 0, flags), 0u);

        // Still frame N: what was given back is in flight, so new ones are made.
        BufferReference* sameFrame = manager.Allocate(64, 0, flags);
        EXPECT_EQ(frameN.count(sameFrame), 0u);
        EXPECT_EQ(manager.GetCreatedCount(), 9u);
        manager.Release(sameFrame, 64, 0, flags);

        manager.EndOfFrame();
        EXPECT_EQ(manager.GetPendingCount(64, 0, flags), 0u);
        EXPECT_EQ(manager.GetFreeCount(64, 0, flags), 9u);
        // Frame N+1: every buffer comes from the pool, none is made.
        std::set<BufferReference*> frameN1;
        for (int i = 0; i < 9; ++i) frameN1.insert(manager.Allocate(64, 0, flags));
        EXPECT_EQ(manager.GetCreatedCount(), 9u);
        frameN.insert(sameFrame);
        EXPECT_EQ(frameN1, frameN);
        for (BufferReference* b : frameN1) manager.Release(b, 64, 0, flags);
        manager.Clear();
        EXPECT_EQ(device.GetLiveCount(), 0);
    }

    TEST(BufferManager, PoolsByClassRoundedSizeAndStructuredStride)
    {
        BufferDevice device;
        BufferManager& manager = device.GetManager();
        struct Request
        {
            uint32_t size, stride, flags;
        };
        // Each pair shares a pool: sizes round up to 16.
        const Request shared[][2] = {
            {{20, 0, BBF_CONSTANT}, {32, 0, BBF_CONSTANT}},
            {{100, 0, BBF_TEXTURE_BUFFER}, {112, 0, BBF_TEXTURE_BUFFER}},
            {{17, 0, BBF_VERTEX}, {30, 0, BBF_INDEX}},
            {{64, 16, BBF_STRUCTURED}, {60, 16, BBF_STRUCTURED}},
        };
        for (const auto& pair : shared)
        {
            BufferReference* b = manager.Allocate(pair[0].size, pair[0].stride, pair[0].flags);
            ASSERT_NE(b, nullptr);
            EXPECT_GE(b->GetSize(), pair[0].size);
            EXPECT_TRUE(manager.Release(b, pair[1].size, pair[1].stride, pair[1].flags));
            manager.EndOfFrame();
            EXPECT_EQ(manager.Allocate(pair[1].size, pair[1].stride, pair[1].flags), b);
            manager.Release(b, pair[0].size, pair[0].stride, pair[0].flags);
        }
        const unsigned int pools = manager.GetPoolCount();
        EXPECT_EQ(pools, 4u);
        // Other classes, sizes and strides are other pools.
        const Request apart[] = {{32, 0, BBF_TEXTURE_BUFFER}, {48, 0, BBF_CONSTANT}, {64, 32, BBF_STRUCTURED},
                                 {64, 0, BBF_VERTEX}};
        for (const Request& r : apart)
        {
            manager.EndOfFrame();
            const unsigned int before = manager.GetFreeCount(r.size, r.stride, r.flags);
            BufferReference* b = manager.Allocate(r.size, r.stride, r.flags);
            EXPECT_EQ(before, 0u);
            manager.Release(b, r.size, r.stride, r.flags);
        }
        EXPECT_EQ(manager.GetPoolCount(), pools + 4);

        Common::ScopedLogCapture capture;
        BufferReference* b = manager.Allocate(16, 0, BBF_CONSTANT);
        EXPECT_FALSE(manager.Release(b, 4096, 0, BBF_CONSTANT));
        EXPECT_TRUE(capture.Contains("Pool of constant buffer doesn't know this size..."));
        EXPECT_FALSE(manager.Release(b, 64, 8, BBF_STRUCTURED));
        EXPECT_TRUE(capture.Contains("Pool of structured constant buffer doesn't know 64 size stride 8..."));
        EXPECT_FALSE(manager.Release(nullptr, 16, 0, BBF_CONSTANT));
        EXPECT_TRUE(manager.Release(b, 16, 0, BBF_CONSTANT));
        manager.Clear();
        EXPECT_EQ(device.GetLiveCount(), 0);
    }

    TEST(BufferManager, ContextIsSetOnceAndOtherThreadsTakeOnlyFreeBuffers)
    {
        BufferDevice device;
        BufferManager& manager = device.GetManager();
        int a = 0, b = 0;
        EXPECT_TRUE(manager.SetContext(&a));
        EXPECT_TRUE(manager.SetContext(&a));
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(manager.SetContext(&b));
            EXPECT_TRUE(capture.Contains("Do not change context"));
            EXPECT_EQ(manager.GetContext(), &a);
        }
        // Buffers made on the device's thread are handed out to recording threads.
        const uint32_t flags = BBF_CONSTANT;
        std::vector<BufferReference*> made;
        for (int i = 0; i < 64; ++i) made.push_back(manager.Allocate(256, 0, flags));
        for (BufferReference* r : made) manager.Release(r, 256, 0, flags);
        manager.EndOfFrame();
        std::vector<BufferReference*> taken[4];
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] {
                for (int i = 0; i < 16; ++i) taken[t].push_back(manager.Allocate(256, 0, flags));
            });
        for (std::thread& t : threads) t.join();
        std::set<BufferReference*> all;
        for (auto& list : taken)
            for (BufferReference* r : list) all.insert(r);
        EXPECT_EQ(all, std::set<BufferReference*>(made.begin(), made.end()));
        for (BufferReference* r : made) manager.Release(r, 256, 0, flags);
        manager.Clear();
        EXPECT_EQ(device.GetLiveCount(), 0);
    }
}
