#include "common/utils/Lockable.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>
#include <vector>

#include "common/utils/Salvager.h"
#include "common/utils/TArray.h"

TEST(SelfLocked, ValueReachedOnlyUnderItsLockAcrossThreads)
{
    Common::SelfLocked<ZemRenderer::TArray<int>> shared;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&shared, t] {
            for (int i = 0; i < 2000; ++i)
            {
                auto list = shared.Lock();
                list->Add(t);
                if (list->GetSize() % 3 == 0) list->RemoveLast();
            }
        });
    for (auto& th : threads) th.join();

    const auto& view = shared;
    auto list = view.Lock();
    static_assert(std::is_const_v<std::remove_reference_t<decltype(*list)>>, "const view is read-only");
    unsigned int expected = 0;
    for (int i = 0; i < 8000; ++i) expected = (expected + 1) % 3 == 0 ? expected : expected + 1;
    EXPECT_EQ(list->GetSize(), expected);
    // The mutex is recursive: a nested lock on the same thread goes through.
    auto again = shared.Lock();
    EXPECT_EQ(&again.Get(), &*list);
}

TEST(CScopeLock, HoldsTheLockableForItsScope)
{
    Common::CLockable lockable;
    {
        Common::MT::CScopeLock lock(&lockable);
        bool taken = true;
        std::thread([&] { taken = lockable.TryLock(); if (taken) lockable.Unlock(); }).join();
        EXPECT_FALSE(taken);
    }
    bool taken = false;
    std::thread([&] { taken = lockable.TryLock(); if (taken) lockable.Unlock(); }).join();
    EXPECT_TRUE(taken);
    static_assert(!std::is_copy_constructible_v<Common::MT::CScopeLock<>>, "scope locks are not copied");
}

namespace
{
    struct EventObj
    {
        int iUses = 0;
    };
}

TEST(TSalvager, RecyclesBeforeAllocating)
{
    Common::TSalvager<EventObj> salvager(3);
    salvager.Fill();
    EXPECT_EQ(salvager.GetFreeCount(), 3u);
    EventObj* a = salvager.Create();
    EXPECT_EQ(salvager.GetFreeCount(), 2u);
    a->iUses = 1;
    salvager.Recycle(a);
    EXPECT_EQ(salvager.Create(), a);  // last recycled comes back
    EventObj* more[4];
    for (EventObj*& p : more) p = salvager.Create();  // two kept, then fresh ones
    EXPECT_EQ(salvager.GetFreeCount(), 0u);
    salvager.Recycle(a);
    for (EventObj* p : more) salvager.Recycle(p);
    salvager.Fill();
    EXPECT_EQ(salvager.GetFreeCount(), 5u);
}
