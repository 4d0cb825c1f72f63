#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "common/utils/pool/ObjectPool.h"
#include "common/utils/pool/PoolMemory.h"
#include "common/utils/pool/PoolStaticManager.h"
#include "common/utils/pool/StaticPool.h"
#include "common/utils/pool/TPool.h"

using Common::PoolMemory;
using Common::Pool::CPoolGrowthConstantN;

TEST(PoolMemory, LazyFirstChunkAscendingThenLifo)
{
    PoolMemory<CPoolGrowthConstantN<4>> pool(24);
    EXPECT_EQ(pool.GetChunkCount(), 0u);  // nothing before the first Allocate
    EXPECT_EQ(pool.GetBlockCount(), 0u);

    char* b[4];
    for (char*& p : b) p = static_cast<char*>(pool.Allocate());
    EXPECT_EQ(pool.GetChunkCount(), 1u);
    EXPECT_EQ(pool.GetBlockCount(), 4u);  // the growth, not more
    for (int i = 1; i < 4; ++i) EXPECT_EQ(b[i], b[i - 1] + 24);  // ascending within the chunk

    void* fifth = pool.Allocate();
    EXPECT_EQ(pool.GetChunkCount(), 2u);
    pool.Free(b[1]);
    pool.Free(b[3]);
    EXPECT_EQ(pool.Allocate(), b[3]);  // freed last, back first
    EXPECT_EQ(pool.Allocate(), b[1]);
    EXPECT_EQ(pool.GetUsedCount(), 5u);

    for (char* p : b) pool.Free(p);
    pool.Free(fifth);
    pool.Clear();
    EXPECT_EQ(pool.GetChunkCount(), 0u);
}

TEST(PoolMemory, ReportsBadUse)
{
    Common::ScopedLogCapture cap;
    PoolMemory<CPoolGrowthConstantN<2>> pool(3);
    EXPECT_TRUE(cap.Contains("Assertion \"uiSize >= sizeof(CFreeBlock*)\" failed."));
    EXPECT_EQ(pool.GetBlockSize(), 8u);

    int foreign = 0;
    EXPECT_FALSE(pool.Free(&foreign));
    EXPECT_TRUE(cap.Contains("This memory chunk wasn't allocated by this pool !"));

    void* p = pool.Allocate();
    pool.Clear();  // still in use: chunks forgotten, the block stays usable
    EXPECT_TRUE(cap.Contains("Memory pool chunks are still in use !"));
    EXPECT_EQ(pool.GetChunkCount(), 0u);
    std::memset(p, 0xAB, 8);
    pool.Free(p);
    // The forgotten chunk stays reachable for the leak checker.
    static void* volatile s_pKept;
    s_pKept = p;
    EXPECT_EQ(s_pKept, p);
}

namespace
{
    struct alignas(32) Widget
    {
        static int s_iLive;
        int iValue = 5;
        Widget() { ++s_iLive; }
        explicit Widget(int v) : iValue(v) { ++s_iLive; }
        ~Widget() { --s_iLive; }
    };
    int Widget::s_iLive = 0;
}

TEST(ObjectPool, BuildsAlignedObjectsInPlace)
{
    Widget::s_iLive = 0;
    Common::CObjectPool<Widget> pool;
    std::vector<Widget*> out;
    for (int i = 0; i < 20; ++i) out.push_back(pool.Allocate());
    EXPECT_EQ(pool.GetBlockCount(), 32u);  // two growths of 16
    EXPECT_EQ(Widget::s_iLive, 20);
    for (Widget* w : out)
    {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(w) % 32, 0u);
        EXPECT_EQ(w->iValue, 5);
    }
    for (Widget* w : out) pool.Release(w);
    EXPECT_EQ(Widget::s_iLive, 0);
    EXPECT_EQ(pool.GetUsedCount(), 0u);
    EXPECT_EQ(pool.Allocate(7), out.back());
    pool.Release(out.back());
}

TEST(PoolStaticManager, ClearAllNullsTheStaticPointer)
{
    typedef Common::SelfLocked<Common::CObjectPool<Widget>> Locked;
    static Locked* s_pPool = nullptr;
    s_pPool = MEM_NEW(Locked);
    Widget* w = s_pPool->Lock()->Allocate();
    s_pPool->Lock()->Release(w);

    ZemRenderer::PoolStaticManager manager;
    manager.RegisterPool(&s_pPool);
    EXPECT_EQ(manager.GetCount(), 1u);
    manager.ClearAll();
    EXPECT_EQ(s_pPool, nullptr);
    EXPECT_EQ(manager.GetCount(), 0u);
    manager.ClearAll();  // nothing left to do twice
}

namespace
{
    struct PooledJob
    {
        int iPayload[6] = {};
    };
}

TEST(StaticPool, OnePoolCreatedUnderConcurrentFirstUse)
{
    typedef ZemRenderer::StaticPool<PooledJob> Pool;
    ASSERT_EQ(Pool::GetPoolPointer(), nullptr);
    const unsigned int registeredBefore = ZemRenderer::PoolStaticManager::GetInstance()->GetCount();
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    std::vector<std::vector<PooledJob*>> got(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            while (!go.load()) std::this_thread::yield();
            for (int i = 0; i < 200; ++i) got[t].push_back(Pool::Allocate());
        });
    go = true;
    for (auto& th : threads) th.join();

    EXPECT_EQ(ZemRenderer::PoolStaticManager::GetInstance()->GetCount(), registeredBefore + 1);
    std::set<PooledJob*> unique;
    for (auto& v : got) unique.insert(v.begin(), v.end());
    EXPECT_EQ(unique.size(), 800u);
    EXPECT_EQ(Pool::GetUsedCount(), 800u);
    for (PooledJob* j : unique) Pool::Release(j);
    EXPECT_EQ(Pool::GetUsedCount(), 0u);
}

TEST(TPool, GrowsBySlabsAndRejectsForeignElements)
{
    ZemRenderer::TPool<Widget> pool(3);
    Widget* w[4];
    for (int i = 0; i < 4; ++i) w[i] = pool.Allocate(i);
    EXPECT_EQ(pool.GetSlabCount(), 2u);
    EXPECT_EQ(w[2]->iValue, 2);
    EXPECT_TRUE(pool.Release(w[1]));
    EXPECT_EQ(pool.Allocate(9), w[1]);  // reused before carving further

    Common::ScopedLogCapture cap;
    Widget outsider;
    EXPECT_FALSE(pool.Release(&outsider));
    EXPECT_TRUE(cap.Contains("Buffer alloc problem or overwritten"));
    EXPECT_EQ(pool.GetUsedCount(), 4u);
    for (Widget* p : w) pool.Release(p);
    EXPECT_EQ(pool.GetUsedCount(), 0u);
}
