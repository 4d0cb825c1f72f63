// The frame stamp and the consumer's order, with the real threads.
#include <gtest/gtest.h>

#include <algorithm>

#include "zemrenderer/thread/tests/WorkerTestKit.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        const RunRecord& Find(const std::vector<RunRecord>& records, const std::string& name)
        {
            static const RunRecord missing{"<missing>"};
            for (const RunRecord& r : records)
                if (r.sName == name) return r;
            return missing;
        }
    }

    TEST(RenderThreadOrder, WorkAddedBetweenEndAndNextBeginCarriesTheClosedFrame)
    {
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        RunLog log;
        Latch entered, gate;
        ParkRenderThread(engine.Get(), entered, gate);

        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        engine->AddWork(Record(engine.Get(), "inside1", eRenderQueue, &log));
        engine->AddEndSceneWork(false);
        engine->AddWork(Record(engine.Get(), "between", eRenderQueue, &log));
        engine->AddBeginSceneWork(false, 2, 0.016f, 0.016f);
        engine->AddWork(Record(engine.Get(), "inside2", eRenderQueue, &log));
        engine->AddEndSceneWork(false);
        gate.Open();
        engine->WaitForOverhead(0);

        const std::vector<RunRecord> records = log.Get();
        const RunRecord& between = Find(records, "between");
        EXPECT_EQ(between.uStamp, 1u);
        EXPECT_EQ(between.uCurrentFrame, 1u);
        EXPECT_EQ(Find(records, "inside2").uStamp, 2u);
        EXPECT_EQ(Find(records, "inside2").uCurrentFrame, 2u);
        EXPECT_LT(log.IndexOf("inside1"), log.IndexOf("between"));
        EXPECT_LT(log.IndexOf("between"), log.IndexOf("inside2"));
    }

    TEST(RenderThreadOrder, UpdateSlotAheadMovesTheFrameAndRunsBeforeTheDueRenderWorker)
    {
        Engine engine;
        RunLog log;
        Latch entered, gate;
        // Park the consumer at frame 1, so that it finds the update slot at 3 and the
        // render slot at 2 with nothing due.
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        ParkRenderThread(engine.Get(), entered, gate);
        engine->AddEndSceneWork(false);
        engine->AddBeginSceneWork(false, 2, 0.016f, 0.016f);
        engine->AddWork(Record(engine.Get(), "render@2", eRenderQueue, &log));
        engine->AddEndSceneWork(false);
        engine->AddBeginSceneWork(false, 3, 0.016f, 0.016f);
        engine->AddWork(Record(engine.Get(), "update@3", eUpdateQueue, &log));
        engine->AddEndSceneWork(false);
        gate.Open();
        engine->WaitForOverhead(0);

        const std::vector<RunRecord> records = log.Get();
        ASSERT_EQ(records.size(), 2u);
        EXPECT_EQ(records[0].sName, "update@3");
        EXPECT_EQ(records[0].uCurrentFrame, 3u);
        EXPECT_EQ(records[1].sName, "render@2");
        EXPECT_EQ(records[1].uStamp, 2u);
        EXPECT_EQ(records[1].uCurrentFrame, 3u);
    }

    TEST(RenderThreadOrder, WithinAFrameUpdateThenRenderThenRelease)
    {
        Engine engine;
        RunLog log;
        Latch entered, gate;
        ParkRenderThread(engine.Get(), entered, gate);
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        engine->AddWork(Record(engine.Get(), "release", eReleaseQueue, &log));
        engine->AddWork(Record(engine.Get(), "release-any-other-number", 7, &log));
        engine->AddWork(Record(engine.Get(), "render", eRenderQueue, &log));
        engine->AddWork(Record(engine.Get(), "update", eUpdateQueue, &log));
        engine->AddEndSceneWork(false);
        engine->AddBeginSceneWork(false, 2, 0.016f, 0.016f);
        engine->AddWork(Record(engine.Get(), "update-next-frame", eUpdateQueue, &log));
        engine->AddEndSceneWork(false);
        gate.Open();
        engine->WaitForOverhead(0);
        ASSERT_TRUE(WaitUntil([&] { return log.Get().size() == 5; }));

        std::vector<std::string> names;
        for (const RunRecord& r : log.Get()) names.push_back(r.sName);
        EXPECT_EQ(names, (std::vector<std::string>{"update", "render", "release", "release-any-other-number",
                                                   "update-next-frame"}));
    }

    TEST(RenderThreadOrder, DelayedWorkerIsRestampedWithItsOwnFramePlusOne)
    {
        Engine engine;
        RunLog log;
        Counters counters;
        const float frameTime = 1.0f;
        const float delay = 2.5f;
        const int frames = 8;
        for (int frame = 1; frame <= frames; ++frame)
        {
            engine->AddBeginSceneWork(false, frame, frameTime, frameTime);
            if (frame == 1)
            {
                RecordWorker* delayed = Record(engine.Get(), "delayed", eRenderQueue, &log, &counters);
                delayed->SetDelay(delay);
                engine->AddWork(delayed);
            }
            engine->AddEndSceneWork(false);
            engine->WaitForOverhead(0);
        }

        // One run per consumer frame while the delay is above 0, then one with 0.
        std::vector<float> expectedDelays;
        for (float d = delay; d > 0.0f; d -= frameTime) expectedDelays.push_back(d);
        expectedDelays.push_back(0.0f);

        const std::vector<RunRecord> records = log.Get();
        ASSERT_EQ(records.size(), expectedDelays.size());
        for (size_t i = 0; i < records.size(); ++i)
        {
            SCOPED_TRACE(i);
            EXPECT_EQ(records[i].uStamp, 1u + i);
            EXPECT_EQ(records[i].uCurrentFrame, records[i].uStamp);
            EXPECT_FLOAT_EQ(records[i].fDelayAtRun, expectedDelays[i]);
        }
        EXPECT_EQ(counters.iTicks.load(), static_cast<int>(expectedDelays.size()) - 1);
        EXPECT_EQ(RecordWorker::GetUsedCount(), 0u);
    }

    TEST(RenderThreadOrder, OverheadNeverAboveMaxOverheadAndZeroFlushes)
    {
        Engine engine;
        std::atomic<uint32_t> maxSeenOnRenderThread{0};
        uint32_t maxSeenByProducer = 0;
        const int frames = 40;
        for (int frame = 1; frame <= frames; ++frame)
        {
            maxSeenByProducer = std::max(maxSeenByProducer, engine->GetOverhead());
            engine->AddBeginSceneWork(false, frame, 0.016f, 0.016f);
            RecordSpec slow;
            slow.uQueue = eRenderQueue;
            slow.iSleepMs = 2;
            slow.pThread = engine.Get();
            slow.pMaxOverhead = &maxSeenOnRenderThread;
            engine->AddWork(RecordWorker::New(slow));
            engine->AddEndSceneWork(false);
            // Asked for more than the limit, it waits as for the limit.
            engine->WaitForOverhead(9);
            EXPECT_LE(engine->GetOverhead(), RenderThread::MaxOverhead);
        }
        EXPECT_LE(maxSeenByProducer, RenderThread::MaxOverhead);
        EXPECT_LE(maxSeenOnRenderThread.load(), RenderThread::MaxOverhead + 1);
        // The producer did get ahead, so the wait was a real one.
        EXPECT_GE(maxSeenOnRenderThread.load(), 2u);

        engine->WaitForOverhead(0);
        EXPECT_EQ(engine->GetOverhead(), 0u);
        EXPECT_EQ(engine.Device().CountCalls(DeviceOp::EndScene), static_cast<unsigned>(frames));
    }

    TEST(RenderThreadOrder, WaitForOverheadFromAnotherThreadReportsAndReturns)
    {
        Engine engine;
        Latch entered, gate;
        ParkRenderThread(engine.Get(), entered, gate);
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        engine->AddEndSceneWork(false);
        {
            Common::ScopedLogCapture capture;
            std::thread other([&] { engine->WaitForOverhead(0); });
            other.join();
            EXPECT_TRUE(capture.Contains("Only the thread which pump message must call WaitForOverhead"));
        }
        EXPECT_EQ(engine->GetOverhead(), 1u);
        gate.Open();
        engine->WaitForOverhead(0);
        EXPECT_EQ(engine->GetOverhead(), 0u);
    }
}
