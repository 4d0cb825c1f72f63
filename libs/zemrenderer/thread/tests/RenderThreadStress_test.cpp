// The whole thread set started and stopped many times while several producers push
// work to every queue, refusals included: every worker ends run or cancelled, once.
#include <gtest/gtest.h>

#include <random>

#include "zemrenderer/thread/LoadingThread.h"
#include "zemrenderer/thread/ProcessThread.h"
#include "zemrenderer/thread/tests/WorkerTestKit.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        constexpr int kCycles = 100;
        constexpr int kProducers = 3;
        constexpr int kPushesPerProducer = 60;

        void Produce(RenderThread* thread, Counters* counters, unsigned int seed)
        {
            std::minstd_rand random(seed);
            RecordSpec spec;
            spec.pCounters = counters;
            spec.pThread = thread;
            bool renderClosed = false;
            for (int i = 0; (!renderClosed || i < kPushesPerProducer) && i < 100000; ++i)
            {
                // Once the burst is out, trickle until the stop has closed the render thread.
                if (i >= kPushesPerProducer) std::this_thread::sleep_for(std::chrono::milliseconds(1));
                switch (random() % 5)
                {
                case 0:
                case 1:
                    spec.uQueue = random() % 3;
                    thread->AddWork(RecordWorker::New(spec));
                    break;
                case 2:
                    thread->GetLoader()->AddWork(JobWorker::New(spec));
                    break;
                case 3:
                    thread->GetProcessor()->AddWork(JobWorker::New(spec), random() % 2 == 0, random() % 2 == 0);
                    break;
                default:
                    thread->AddWorkerThreadWork(JobWorker::New(spec));
                    break;
                }
                if (!renderClosed && !thread->IsAcceptingWork())
                {
                    EXPECT_FALSE(thread->AddWork(RecordWorker::New(spec)));
                    renderClosed = true;
                }
            }
        }
    }

    TEST(RenderThreadStress, StartAndStopWithProducersOnEveryQueue)
    {
        Common::ScopedLogCapture quiet;
        for (int cycle = 0; cycle < kCycles; ++cycle)
        {
            SCOPED_TRACE(cycle);
            Counters counters;
            Engine engine;
            ASSERT_TRUE(engine.IsStarted());
            RenderThread* thread = engine.Get();

            std::vector<std::thread> producers;
            for (int p = 0; p < kProducers; ++p)
                producers.emplace_back(Produce, thread, &counters, static_cast<unsigned>(cycle * 31 + p));
            for (int frame = 1; frame <= 3; ++frame)
            {
                thread->AddBeginSceneWork(false, frame, 0.016f, 0.016f);
                thread->AddEndSceneWork(false);
                thread->GetProcessor()->ProcessMainThreadWork(thread);
                thread->WaitForOverhead(1);
            }

            // Hold the render loop so that the pools outlive every producer: they keep
            // pushing across the stop until their work is refused.
            Latch entered, gate;
            ParkRenderThread(thread, entered, gate);
            thread->Stop();
            for (std::thread& producer : producers) producer.join();
            gate.Open();
            engine.StopAndDelete();

            EXPECT_EQ(counters.iRan.load() + counters.iCancelled.load(), counters.iMade.load());
            EXPECT_EQ(RecordWorker::GetPoolPointer(), nullptr);
            EXPECT_EQ(JobWorker::GetPoolPointer(), nullptr);
        }
    }
}
