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
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &m_kCpuStart);
            m_bResult = m_kEvent.Wait(m_uMs);
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &m_kCpuEnd);
            if (m_bResult) ++m_iWoken;
        }
        double CpuMs() const
        {
            return (m_kCpuEnd.tv_sec - m_kCpuStart.tv_sec) * 1e3 + (m_kCpuEnd.tv_nsec - m_kCpuStart.tv_nsec) / 1e6;
        }

        Common::CEvent& m_kEvent;
        unsigned int m_uMs;
        std::atomic<int>& m_iWoken;
        std::atomic<bool> m_bEntered{false};
        bool m_bResult = false;
        timespec m_kCpuStart{};
        timespec m_kCpuEnd{};
    };

    int64_t NowMs()
    {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    }

    bool WaitFor(const std::atomic<int>& value, int expected)
    {
        for (int i = 0; i < 2000 && value.load() < expected; ++i) Common::CThread::Sleep(2);
        return value.load() == expected;
    }
}

TEST(Event, NeverCreatedEventRefusesEverything)
{
    Common::CEvent e;
    EXPECT_FALSE(e.IsCreated());
    EXPECT_FALSE(e.Set());
    EXPECT_FALSE(e.Reset());
    EXPECT_FALSE(e.Wait(0));
    EXPECT_FALSE(e.Wait());
    EXPECT_FALSE(e.WaitWithMessages());
}

TEST(Event, SignalledStateByResetMode)
{
    struct Case
    {
        bool manual;
        bool secondWait; // a second Wait(0) after one Set
    };
    for (const Case c : {Case{true, true}, Case{false, false}})
    {
        SCOPED_TRACE(c.manual ? "manual" : "auto");
        Common::CEvent e;
        ASSERT_TRUE(e.Create(c.manual));
        EXPECT_FALSE(e.Wait(0));
        ASSERT_TRUE(e.Set());
        EXPECT_TRUE(e.Wait(0));
        EXPECT_EQ(e.Wait(0), c.secondWait);
        ASSERT_TRUE(e.Set());
        ASSERT_TRUE(e.Set()); // two sets with nobody waiting make one signal
        EXPECT_TRUE(e.Wait(0));
        EXPECT_EQ(e.Wait(0), c.secondWait);
        ASSERT_TRUE(e.Reset());
        EXPECT_FALSE(e.Wait(0));
    }
}

TEST(Event, CreateAgainClearsAndChangesMode)
{
    Common::CEvent e;
    ASSERT_TRUE(e.Create(true));
    e.Set();
    ASSERT_TRUE(e.Create(false));
    EXPECT_FALSE(e.Wait(0));
    e.Set();
    EXPECT_TRUE(e.Wait(0));
    EXPECT_FALSE(e.Wait(0));
}

TEST(Event, TimeOutWithoutSignal)
{
    Common::CEvent e;
    ASSERT_TRUE(e.Create(false));
    const int64_t start = NowMs();
    EXPECT_FALSE(e.Wait(60));
    EXPECT_GE(NowMs() - start, 60);
}

TEST(Event, ManualResetWakesEveryWaiter)
{
    Common::CEvent e;
    ASSERT_TRUE(e.Create(true));
    std::atomic<int> woken{0};
    std::vector<std::unique_ptr<Waiter>> waiters;
    for (int i = 0; i < 4; ++i)
    {
        waiters.push_back(std::make_unique<Waiter>(e, 10000u, woken));
        ASSERT_TRUE(waiters.back()->Start("waiter"));
    }
    for (auto& w : waiters)
        while (!w->m_bEntered) Common::CThread::Sleep(1);
    Common::CThread::Sleep(20);
    EXPECT_EQ(woken, 0);
    e.Set();
    EXPECT_TRUE(WaitFor(woken, 4));
    for (auto& w : waiters) w->Wait();
    EXPECT_EQ(woken, 4);
}

TEST(Event, AutoResetReleasesOneWaiterPerSet)
{
    Common::CEvent e;
    ASSERT_TRUE(e.Create(false));
    std::atomic<int> woken{0};
    std::vector<std::unique_ptr<Waiter>> waiters;
    for (int i = 0; i < 3; ++i)
    {
        waiters.push_back(std::make_unique<Waiter>(e, 10000u, woken));
        ASSERT_TRUE(waiters.back()->Start("waiter"));
    }
    for (auto& w : waiters)
        while (!w->m_bEntered) Common::CThread::Sleep(1);
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
    ASSERT_TRUE(e.Create(false));
    std::atomic<int> woken{0};
    Waiter w(e, 300u, woken);
    ASSERT_TRUE(w.Start("sleeper"));
    w.Wait();
    EXPECT_FALSE(w.m_bResult);
    // A spinning wait would burn the whole 300 ms.
    EXPECT_LT(w.CpuMs(), 100.0);
}
