#include <gtest/gtest.h>

#include <atomic>
#include <ctime>
#include <memory>
#include <vector>

#include "common/system/thread/Event.h"
#include "common/system/thread/Thread.h"

namespace
{
    class Waiter : public Common::CThread
    {
    public:
        Waiter(Common::CEvent& e, unsigned int ms, std::atomic<int>& woken) : m_kEvent(e), m_uMs(ms), m_iWoken(woken) {}
        void Run() override
        {
            m_bEntered = true;
            if (m_kEvent.Wait(m_uMs)) ++m_iWoken;
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &m_kCpu);
        }
        Common::CEvent& m_kEvent;
        unsigned int m_uMs;
        std::atomic<int>& m_iWoken;
        std::atomic<bool> m_bEntered{false};
        timespec m_kCpu{};
    };

    // Starts `count` waiters and returns once all of them are about to wait.
    std::vector<std::unique_ptr<Waiter>> StartWaiters(Common::CEvent& e, int count, std::atomic<int>& woken)
    {
        std::vector<std::unique_ptr<Waiter>> waiters;
        for (int i = 0; i < count; ++i)
        {
            waiters.push_back(std::make_unique<Waiter>(e, 10000u, woken));
            waiters.back()->Start("waiter");
        }
        for (auto& w : waiters)
            while (!w->m_bEntered) Common::CThread::Sleep(1);
        Common::CThread::Sleep(20);
        return waiters;
    }

    bool WaitFor(const std::atomic<int>& value, int expected)
    {
        for (int i = 0; i < 2000 && value.load() < expected; ++i) Common::CThread::Sleep(2);
        return value.load() == expected;
    }
}

TEST(Event, SignalledStateByResetMode)
{
    Common::CEvent never;
    EXPECT_FALSE(never.Set());
    EXPECT_FALSE(never.Reset());
    EXPECT_FALSE(never.Wait(0));
    EXPECT_FALSE(never.Wait());

    for (const bool manual : {true, false})
    {
        SCOPED_TRACE(manual ? "manual" : "auto");
        Common::CEvent e;
        ASSERT_TRUE(e.Create(manual));
        EXPECT_FALSE(e.Wait(0));
        e.Set();
        e.Set(); // two sets with nobody waiting make one signal
        EXPECT_TRUE(e.Wait(0));
        EXPECT_EQ(e.Wait(0), manual);
        e.Reset();
        EXPECT_FALSE(e.Wait(30));
    }
}

TEST(Event, ManualResetWakesEveryWaiter)
{
    Common::CEvent e;
    e.Create(true);
    std::atomic<int> woken{0};
    auto waiters = StartWaiters(e, 4, woken);
    EXPECT_EQ(woken, 0);
    e.Set();
    EXPECT_TRUE(WaitFor(woken, 4));
    for (auto& w : waiters) w->Wait();
}

TEST(Event, AutoResetReleasesOneWaiterPerSet)
{
    Common::CEvent e;
    e.Create(false);
    std::atomic<int> woken{0};
    auto waiters = StartWaiters(e, 3, woken);
    for (int expected = 1; expected <= 3; ++expected)
    {
        e.Set();
        EXPECT_TRUE(WaitFor(woken, expected));
        Common::CThread::Sleep(50); // room for a wrong second wake to show
        EXPECT_EQ(woken, expected);
    }
    for (auto& w : waiters) w->Wait();
    EXPECT_FALSE(e.Wait(0)); // every signal was taken
}

TEST(Event, AWaitingThreadSleeps)
{
    Common::CEvent e;
    e.Create(false);
    std::atomic<int> woken{0};
    Waiter w(e, 300u, woken);
    w.Start("sleeper");
    w.Wait();
    EXPECT_EQ(woken, 0);
    // A spinning wait would burn the whole 300 ms of processor time.
    EXPECT_LT(w.m_kCpu.tv_sec * 1e3 + w.m_kCpu.tv_nsec / 1e6, 100.0);
}
