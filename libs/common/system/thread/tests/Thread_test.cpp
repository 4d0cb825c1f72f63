#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

#include "common/system/thread/Event.h"
#include "common/system/thread/Thread.h"

namespace
{
    // Runs until released, and records what the system calls it.
    class GateThread : public Common::CThread
    {
    public:
        GateThread() { m_kGate.Create(true); }
        void Run() override
        {
            char name[32] = {};
            pthread_getname_np(pthread_self(), name, sizeof(name));
            m_sOsName = name;
            m_bStarted = true;
            m_kGate.Wait(10000);
            ++m_iRuns;
        }
        void Release() { m_kGate.Set(); }

        Common::CEvent m_kGate;
        std::string m_sOsName;
        std::atomic<bool> m_bStarted{false};
        std::atomic<int> m_iRuns{0};
    };

    bool EventuallyStopped(const Common::CThread& t)
    {
        for (int i = 0; i < 1000 && t.IsRunning(); ++i) Common::CThread::Sleep(5);
        return !t.IsRunning();
    }

    int64_t NowMs()
    {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    }
}

TEST(Thread, NamesGoToTheObjectAndShortenedToTheSystem)
{
    struct Case
    {
        const char* given;
        const char* kept;
        const char* system;
    };
    const Case cases[] = {
        {nullptr, "Thread", "Thread"},
        {"EngineNetListener", "EngineNetListener", "EngineNetListen"},
        {"connection", "connection", "connection"},
    };
    for (const Case& c : cases)
    {
        GateThread t;
        ASSERT_TRUE(t.Start(c.given));
        t.Release();
        t.Wait();
        EXPECT_STREQ(t.GetName(), c.kept);
        EXPECT_EQ(t.m_sOsName, c.system);
    }
}

TEST(Thread, NeverStartedThreadIsInertAndSafe)
{
    GateThread t;
    EXPECT_FALSE(t.IsRunning());
    EXPECT_FALSE(t.SetPriority(3));
    EXPECT_EQ(t.GetPriority(), -1);
    EXPECT_EQ(t.GetThreadId(), 0);
    t.Wait();
    t.Stop();
    EXPECT_STREQ(t.GetName(), "");
}

TEST(Thread, RunningUntilRunReturns)
{
    GateThread t;
    ASSERT_TRUE(t.Start("gate"));
    EXPECT_NE(t.GetThreadId(), 0);
    EXPECT_NE(t.GetThreadId(), static_cast<int>(gettid()));
    EXPECT_TRUE(t.IsRunning());
    t.Release();
    EXPECT_TRUE(EventuallyStopped(t));
    // Already reaped by IsRunning: Wait and Stop have nothing left to do.
    t.Wait();
    t.Stop();
    EXPECT_EQ(t.m_iRuns, 1);
}

TEST(Thread, StopForgetsTheThreadWithoutEndingIt)
{
    GateThread t;
    ASSERT_TRUE(t.Start("detached"));
    t.Stop();
    EXPECT_FALSE(t.IsRunning());
    t.Wait(); // returns at once: nothing is held
    EXPECT_EQ(t.m_iRuns, 0);
    t.Release();
    for (int i = 0; i < 1000 && t.m_iRuns == 0; ++i) Common::CThread::Sleep(5);
    EXPECT_EQ(t.m_iRuns, 1); // the last touch of the object by the thread
}

TEST(Thread, WaitThenStopAndRestart)
{
    GateThread t;
    for (int round = 1; round <= 3; ++round)
    {
        ASSERT_TRUE(t.Start("again"));
        t.Release();
        t.Wait();
        EXPECT_FALSE(t.IsRunning());
        t.Stop();
        EXPECT_EQ(t.m_iRuns, round);
        t.m_kGate.Reset();
    }
}

TEST(Thread, SetPriorityFollowsTheLevelTable)
{
    errno = 0;
    if (getpriority(PRIO_PROCESS, 0) != 0 || errno != 0) GTEST_SKIP() << "tests run with a non-default nice value";

    struct Case
    {
        int level;
        bool accepted;
        bool raises; // above normal: an unprivileged process keeps the old priority
    };
    const Case cases[] = {
        {3, true, false}, {4, true, false}, {5, true, false}, {6, true, false}, {2, true, true},
        {1, true, true},  {0, true, true},  {7, false, false}, {-1, false, false}, {100, false, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.level);
        GateThread t;
        ASSERT_TRUE(t.Start("prio"));
        EXPECT_EQ(t.GetPriority(), 3);
        EXPECT_EQ(t.SetPriority(c.level), c.accepted);
        const int now = t.GetPriority();
        if (!c.accepted) EXPECT_EQ(now, 3);
        else if (c.raises) EXPECT_TRUE(now == c.level || now == 3) << now;
        else EXPECT_EQ(now, c.level);
        t.Release();
        t.Wait();
    }
}

TEST(Thread, InvalidLevelLeavesALoweredPriority)
{
    GateThread t;
    ASSERT_TRUE(t.Start("prio"));
    ASSERT_TRUE(t.SetPriority(5));
    EXPECT_FALSE(t.SetPriority(7));
    EXPECT_EQ(t.GetPriority(), 5);
    t.Release();
    t.Wait();
    EXPECT_FALSE(t.SetPriority(3));
}

TEST(Thread, SetAffinityAcceptsAnyMask)
{
    GateThread t;
    for (uint64_t mask : {uint64_t{0}, uint64_t{1}, uint64_t{0xF0}, ~uint64_t{0}}) EXPECT_TRUE(t.SetAffinity(mask));
}

TEST(Thread, SleepWaitsAtLeastTheTimeAsked)
{
    const int64_t start = NowMs();
    Common::CThread::Sleep(30);
    EXPECT_GE(NowMs() - start, 30);
    Common::CThread::SleepMs(0); // a yield: returns
}
