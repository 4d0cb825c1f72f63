#include <gtest/gtest.h>

#include <atomic>
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
            m_kGate.Wait(10000);
            ++m_iRuns;
        }
        Common::CEvent m_kGate;
        std::string m_sOsName;
        std::atomic<int> m_iRuns{0};
    };
}

TEST(Thread, NamesGoWholeToTheObjectAndCutToTheSystem)
{
    const char* cases[][3] = {{nullptr, "Thread", "Thread"}, {"EngineNetListener", "EngineNetListener", "EngineNetListen"}};
    for (auto& c : cases)
    {
        GateThread t;
        ASSERT_TRUE(t.Start(c[0]));
        t.m_kGate.Set();
        t.Wait();
        EXPECT_STREQ(t.GetName(), c[1]);
        EXPECT_EQ(t.m_sOsName, c[2]);
    }
}

TEST(Thread, NeverStartedThreadIsInert)
{
    GateThread t;
    EXPECT_FALSE(t.IsRunning());
    EXPECT_FALSE(t.SetPriority(3));
    EXPECT_EQ(t.GetThreadId(), 0);
    for (uint64_t mask : {uint64_t{0}, ~uint64_t{0}}) EXPECT_TRUE(t.SetAffinity(mask));
    t.Wait();
    t.Stop();
}

TEST(Thread, WaitStopAndRestartInAnyOrder)
{
    GateThread t;
    for (int round = 1; round <= 3; ++round)
    {
        ASSERT_TRUE(t.Start("again"));
        EXPECT_NE(t.GetThreadId(), static_cast<int>(gettid()));
        EXPECT_TRUE(t.IsRunning());
        t.m_kGate.Set();
        if (round == 2) // reaped by IsRunning: Wait and Stop find nothing left
            while (t.IsRunning()) Common::CThread::Sleep(1);
        t.Wait();
        EXPECT_FALSE(t.IsRunning());
        t.Stop();
        EXPECT_EQ(t.m_iRuns, round);
        t.m_kGate.Reset();
    }
}

TEST(Thread, StopForgetsTheThreadWithoutEndingIt)
{
    GateThread t;
    ASSERT_TRUE(t.Start("detached"));
    t.Stop();
    EXPECT_FALSE(t.IsRunning());
    t.Wait(); // returns at once: nothing is held
    EXPECT_EQ(t.m_iRuns, 0);
    t.m_kGate.Set();
    for (int i = 0; i < 2000 && t.m_iRuns == 0; ++i) Common::CThread::Sleep(2);
    EXPECT_EQ(t.m_iRuns, 1); // the thread's last touch of the object
}

TEST(Thread, SetPriorityFollowsTheLevelTable)
{
    errno = 0;
    if (getpriority(PRIO_PROCESS, 0) != 0 || errno != 0) GTEST_SKIP() << "tests run with a non-default nice value";
    struct Case
    {
        int level;
        bool accepted;
        bool raises; // above normal: without the privilege the old priority stays
    };
    const Case cases[] = {{3, true, false}, {4, true, false}, {6, true, false}, {1, true, true},
                          {0, true, true},  {7, false, false}, {-1, false, false}};
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.level);
        GateThread t;
        ASSERT_TRUE(t.Start("prio"));
        EXPECT_EQ(t.SetPriority(c.level), c.accepted);
        const int now = t.GetPriority();
        if (!c.accepted) EXPECT_EQ(now, 3);
        else if (c.raises) EXPECT_TRUE(now == c.level || now == 3) << now;
        else EXPECT_EQ(now, c.level);
        if (c.level == 6)
        {
            EXPECT_FALSE(t.SetPriority(7));
            EXPECT_EQ(t.GetPriority(), 6);
        }
        t.m_kGate.Set();
        t.Wait();
    }
}
