#include "common/utils/FixedLookasideDequeue.h"

#include <gtest/gtest.h>

#include <thread>

using Common::FixedLookasideDequeue;

TEST(FixedLookasideDequeue, CountAcrossTheCounterWrap)
{
    FixedLookasideDequeue<int> q(8);
    q.ResetCounters(0xFFFFFFFDu);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(q.Push(i));
    EXPECT_EQ(q.GetCount(), 8u);
    EXPECT_FALSE(q.Push(99));  // full across the wrap
    int v = -1;
    for (int i = 0; i < 5; ++i)
    {
        ASSERT_TRUE(q.Pop(v));
        EXPECT_EQ(v, i);
    }
    EXPECT_EQ(q.GetCount(), 3u);
    EXPECT_TRUE(q.Push(8));
    EXPECT_EQ(q.GetCount(), 4u);
    for (int i = 5; i <= 8; ++i)
    {
        ASSERT_TRUE(q.Pop(v));
        EXPECT_EQ(v, i);
    }
    EXPECT_FALSE(q.Pop(v));
    EXPECT_EQ(q.GetCount(), 0u);
}

TEST(FixedLookasideDequeue, CapacityIsAPowerOfTwo)
{
    Common::ScopedLogCapture cap;
    FixedLookasideDequeue<int> q(5);
    EXPECT_EQ(q.GetCapacity(), 8u);
    EXPECT_TRUE(cap.Contains("Capacity 5 is not a power of two"));
}

TEST(FixedLookasideDequeue, OneWriterOneReaderInOrder)
{
    FixedLookasideDequeue<unsigned long long> q(64);
    q.ResetCounters(0xFFFFFF00u);  // wraps during the run
    constexpr unsigned long long kCount = 200000;
    std::thread writer([&] {
        for (unsigned long long i = 1; i <= kCount;)
        {
            if (unsigned long long* slot = q.PeekWrite())
            {
                *slot = i * 3;
                q.CommitWrite();
                ++i;
            }
            else
                std::this_thread::yield();
        }
    });
    unsigned long long expected = 1, bad = 0;
    while (expected <= kCount)
    {
        unsigned long long v;
        if (q.Pop(v))
        {
            bad += v != expected * 3;
            ++expected;
        }
        else
            std::this_thread::yield();
    }
    writer.join();
    EXPECT_EQ(bad, 0u);
    EXPECT_EQ(q.GetCount(), 0u);
}
