// The loader's and processor's machinery on its own: batches, queries, release.
#include <gtest/gtest.h>

#include "zemrenderer/thread/ProcessThread.h"
#include "zemrenderer/thread/ThreadedWorkManager.h"
#include "zemrenderer/thread/tests/WorkerTestKit.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        JobWorker* Job(const char* name, RunLog* log, Counters* counters = nullptr, Latch* gate = nullptr,
                       bool result = true)
        {
            RecordSpec spec;
            spec.szName = name;
            spec.pLog = log;
            spec.pCounters = counters;
            spec.pGate = gate;
            spec.bResult = result;
            return JobWorker::New(spec);
        }

        // A manager with no render thread behind it; released and joined at the end.
        template <class Manager>
        struct Started
        {
            Manager kManager{nullptr};
            Started() { kManager.Start("TestManager"); }
            ~Started()
            {
                kManager.Release(nullptr);
                kManager.Wait();
            }
        };
    }

    TEST(ThreadedWorkManager, RunsABatchInOrderAfterPreparingAllOfIt)
    {
        Started<ThreadedWorkManager> started;
        RunLog log;
        Latch gate;
        started.kManager.AddWork(Job("gate", &log, nullptr, &gate));
        for (const char* name : {"a", "b", "c"}) started.kManager.AddWork(Job(name, &log));
        EXPECT_EQ(started.kManager.GetWorkCount(), 4u);
        gate.Open();
        ASSERT_TRUE(WaitUntil([&] { return !started.kManager.HasWork(); }));
        std::vector<std::string> names;
        for (const RunRecord& r : log.Get())
        {
            names.push_back(r.sName);
            EXPECT_TRUE(r.bPrepared) << r.sName;
        }
        EXPECT_EQ(names, (std::vector<std::string>{"gate", "a", "b", "c"}));
    }

    TEST(ThreadedWorkManager, QueryGoesWithTheNextWorkOfTheSameThreadAndSettingItTwiceCancelsTheFirst)
    {
        Started<ThreadedWorkManager> started;
        RunLog log;
        QueryPtr first(Query::Create());
        QueryPtr second(Query::Create());
        started.kManager.SetQuery(first);
        {
            Common::ScopedLogCapture capture;
            started.kManager.SetQuery(second);
            EXPECT_TRUE(capture.Contains("Query already set"));
        }
        EXPECT_EQ(first->GetState(), Query::eCancelled);

        // Another thread's work doesn't take this thread's query.
        std::thread other([&] { started.kManager.AddWork(Job("other", &log)); });
        other.join();
        EXPECT_EQ(second->GetState(), Query::eNone);

        started.kManager.AddWork(Job("mine", &log));
        ASSERT_TRUE(second->WaitFinished(10000));
        EXPECT_EQ(second->GetState(), Query::eDone);
        // The worker's reference goes when it is back in its pool.
        EXPECT_TRUE(WaitUntil([&] { return second->GetRefCount() == 1; }));
    }

    TEST(ThreadedWorkManager, WorkAfterReleaseIsCancelledAndReturnedToItsPool)
    {
        Counters counters;
        RunLog log;
        ThreadedWorkManager manager(nullptr);
        manager.Start("TestManager");
        manager.AddWork(Job("before", &log, &counters));
        manager.Release(nullptr);
        {
            Common::ScopedLogCapture capture;
            QueryPtr query(Query::Create());
            manager.SetQuery(query);
            EXPECT_FALSE(manager.AddWork(Job("after", &log, &counters)));
            EXPECT_TRUE(capture.Contains("ThreadedWorkManager will be released : no more work accepted."));
            EXPECT_EQ(query->GetState(), Query::eCancelled);
        }
        manager.Wait();
        EXPECT_FALSE(manager.IsAlive());
        EXPECT_EQ(log.IndexOf("before"), 0);
        EXPECT_EQ(counters.iRan.load(), 1);
        EXPECT_EQ(counters.iCancelled.load(), 1);
        EXPECT_EQ(JobWorker::GetUsedCount(), 0u);
    }

    TEST(ThreadedWorkManager, FalseEndsTheThreadAndCancelsWhatCameAfter)
    {
        Counters counters;
        RunLog log;
        ThreadedWorkManager manager(nullptr);
        Latch gate;
        manager.AddWork(Job("gate", &log, &counters, &gate));
        manager.AddWork(Job("stop", &log, &counters, nullptr, false));
        manager.AddWork(Job("cut", &log, &counters));
        manager.Start("TestManager");
        gate.Open();
        manager.Wait();
        EXPECT_EQ(log.IndexOf("cut"), -1);
        EXPECT_EQ(counters.iRan.load(), 2);
        EXPECT_EQ(counters.iCancelled.load(), 1);
        EXPECT_EQ(JobWorker::GetUsedCount(), 0u);
    }

    TEST(ProcessThread, MainThreadWorkRunsOnlyWhenTheMainThreadAsks)
    {
        Started<ProcessThread> started;
        ProcessThread& processor = started.kManager;
        RunLog log;
        Latch gate;
        processor.AddWork(Job("processor-gate", &log, nullptr, &gate));
        processor.AddWork(Job("now", &log), true, false);
        processor.AddWork(Job("deferred", &log), true, true);
        EXPECT_EQ(processor.GetMainThreadWorkCount(), 1u);

        processor.ProcessMainThreadWork(nullptr);
        EXPECT_EQ(log.IndexOf("now"), 0);
        EXPECT_EQ(log.Get()[0].iThreadId, static_cast<int>(gettid()));
        // The deferred one waits behind the processor's own work.
        EXPECT_EQ(processor.GetMainThreadWorkCount(), 0u);
        gate.Open();
        ASSERT_TRUE(WaitUntil([&] { return processor.GetMainThreadWorkCount() == 1u; }));
        processor.ProcessMainThreadWork(nullptr);
        EXPECT_LT(log.IndexOf("processor-gate"), log.IndexOf("deferred"));
        EXPECT_EQ(log.Get().back().iThreadId, static_cast<int>(gettid()));

        processor.CloseMainThreadList();
        Common::ScopedLogCapture capture;
        Counters counters;
        EXPECT_FALSE(processor.AddWork(Job("closed", &log, &counters), true, false));
        EXPECT_EQ(counters.iCancelled.load(), 1);
    }

    namespace
    {
        // On the producer's thread: hands `count` jobs on to the consumer with a held wake.
        class HandOnWorker : public PooledWorker<HandOnWorker, RenderThread>
        {
        public:
            HandOnWorker() = default;
            HandOnWorker(ThreadedWorkManager* consumer, int count, Counters* counters)
                : m_pConsumer(consumer), m_iCount(count), m_pCounters(counters)
            {
            }
            unsigned int GetQueue() const override { return 0; }
            bool DoWork(RenderThread*) override
            {
                for (int i = 0; i < m_iCount; ++i) m_pConsumer->AddWorkBatched(Job("handed", nullptr, m_pCounters));
                return true;
            }

        private:
            ThreadedWorkManager* m_pConsumer = nullptr;
            int m_iCount = 0;
            Counters* m_pCounters = nullptr;
        };
    }

    TEST(ThreadedWorkManager, BatchedHandOnWakesAtACountOrAtTheEndOfTheProducersBatch)
    {
        // Declared first: the managers' threads may still write to it until they stop.
        RunLog log;
        Started<ThreadedWorkManager> consumer;
        Started<ThreadedWorkManager> producer;

        // Outside a batch nothing holds the wake.
        Counters direct;
        consumer.kManager.AddWorkBatched(Job("direct", &log, &direct));
        ASSERT_TRUE(WaitUntil([&] { return direct.iRan.load() == 1; }));

        // A few, then the batch ends: they run without anything else coming.
        Counters few;
        producer.kManager.AddWork(HandOnWorker::New(&consumer.kManager, 3, &few));
        ASSERT_TRUE(WaitUntil([&] { return few.iRan.load() == 3; }));

        // Many, with the producer's batch held behind them: the first wake comes by count.
        Counters many;
        Latch start;
        Latch gate;
        // The producer blocks at `start` while the hand-on and `gate` are added: one batch.
        producer.kManager.AddWork(Job("producer-start", &log, nullptr, &start));
        producer.kManager.AddWork(HandOnWorker::New(&consumer.kManager, 40, &many));
        producer.kManager.AddWork(Job("producer-gate", &log, nullptr, &gate));
        start.Open();
        // Well before the gate's own time-out gives up.
        EXPECT_TRUE(WaitUntil([&] { return many.iRan.load() >= 32; }, 5000));
        gate.Open();
        ASSERT_TRUE(WaitUntil([&] { return many.iRan.load() == 40; }));
    }
}
