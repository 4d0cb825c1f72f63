// Start, the stop chain, and every way work can be refused or cut short.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/thread/LoadingThread.h"
#include "zemrenderer/thread/ProcessThread.h"
#include "zemrenderer/thread/WorkerThread.h"
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
            spec.uQueue = eUpdateQueue;
            spec.pLog = log;
            spec.pCounters = counters;
            spec.pGate = gate;
            spec.bResult = result;
            return JobWorker::New(spec);
        }
    }

    TEST(RenderThreadLifecycle, InitCreatesTheDeviceOnTheRenderThreadAndRegistersWorkerThreads)
    {
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        EXPECT_TRUE(engine->IsAcceptingWork());
        EXPECT_EQ(engine.Device().GetRenderThread(), engine.Get());
        EXPECT_EQ(engine.Device().GetProcessingThreadCount(), 4);
        for (unsigned int i = 0; i < RenderThread::kWorkerThreadCount; ++i)
            EXPECT_EQ(engine.Device().GetProcessingThreadSlot(engine->GetWorkerThread(i)->GetThreadId()),
                      static_cast<int>(i));
        const TArray<DeviceCall> calls = engine.Device().GetCalls();
        ASSERT_GE(calls.GetSize(), 1u);
        EXPECT_EQ(calls[0].eOp, DeviceOp::Init);
        EXPECT_EQ(calls[0].iThreadId, engine->GetThreadId());
        EXPECT_NE(calls[0].iThreadId, static_cast<int>(gettid()));
    }

    TEST(RenderThreadLifecycle, DeviceCreationFailureRefusesWorkAndStillStops)
    {
        Common::ScopedLogCapture capture;
        Counters counters;
        Engine engine(false);
        EXPECT_FALSE(engine.IsStarted());
        EXPECT_FALSE(engine->IsAcceptingWork());
        EXPECT_FALSE(engine->AddWork(Record(engine.Get(), "refused", eRenderQueue, nullptr, &counters)));
        EXPECT_TRUE(capture.Contains("During release, RenderThread doesn't accept more work from other thread."));
        EXPECT_EQ(counters.iCancelled.load(), 1);
        EXPECT_EQ(RecordWorker::GetUsedCount(), 0u);
        NullRenderer& device = engine.Device();
        engine.StopAndDelete();
        EXPECT_EQ(device.CountCalls(DeviceOp::BeginScene), 0u);
        EXPECT_EQ(device.GetCalls().GetLast().eOp, DeviceOp::Release);
    }

    TEST(RenderThreadLifecycle, StopChainRunsLoaderThenProcessorThenTheRenderLoop)
    {
        RunLog log;
        Counters counters;
        Latch loaderGate;
        Engine engine;
        NullRenderer& device = engine.Device();
        RenderThread* thread = engine.Get();
        ASSERT_TRUE(thread->GetLoader()->AddWork(Job("loader", &log, &counters, &loaderGate)));
        thread->Stop();

        // While the loader holds its last job, the processor and the render thread still
        // take work: each is released only by the one before it.
        EXPECT_FALSE(thread->GetLoader()->IsAcceptingWork());
        EXPECT_TRUE(thread->GetProcessor()->AddWork(Job("processor", &log, &counters)));
        EXPECT_TRUE(thread->AddWork(Record(thread, "release-queue", eReleaseQueue, &log, &counters)));
        EXPECT_TRUE(thread->IsAcceptingWork());
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(thread->GetLoader()->AddWork(Job("late-loader", &log, &counters)));
            EXPECT_TRUE(capture.Contains("ThreadedWorkManager will be released : no more work accepted."));
        }
        loaderGate.Open();
        thread->WaitForStop();

        EXPECT_FALSE(thread->GetLoader()->IsAlive());
        EXPECT_FALSE(thread->GetProcessor()->IsAlive());
        EXPECT_FALSE(thread->IsAcceptingWork());
        EXPECT_GE(log.IndexOf("loader"), 0);
        EXPECT_GE(log.IndexOf("processor"), 0);
        EXPECT_GE(log.IndexOf("release-queue"), 0);
        EXPECT_EQ(counters.iRan.load(), 3);
        EXPECT_EQ(counters.iCancelled.load(), 1);
        const TArray<DeviceCall> calls = device.GetCalls();
        ASSERT_GE(calls.GetSize(), 2u);
        EXPECT_EQ(calls[calls.GetSize() - 2].eOp, DeviceOp::Flush);
        EXPECT_EQ(calls.GetLast().eOp, DeviceOp::Release);
        EXPECT_EQ(thread->GetRenderer(), nullptr);
        // Every pool was cleared at the end.
        EXPECT_EQ(RecordWorker::GetPoolPointer(), nullptr);
        EXPECT_EQ(JobWorker::GetPoolPointer(), nullptr);

        Common::ScopedLogCapture capture;
        Counters late;
        EXPECT_FALSE(thread->AddWork(Record(thread, "after", eRenderQueue, nullptr, &late)));
        EXPECT_TRUE(capture.Contains("During release, RenderThread doesn't accept more work from other thread."));
        EXPECT_EQ(late.iCancelled.load(), 1);
        EXPECT_EQ(RecordWorker::GetUsedCount(), 0u);
    }

    TEST(RenderThreadLifecycle, CancelledWorkerPassesItsQueueWithoutRunning)
    {
        Engine engine;
        Counters counters;
        RecordWorker* worker = Record(engine.Get(), "cancelled", eRenderQueue, nullptr, &counters);
        QueryPtr query(Query::Create());
        worker->spQuery = query;
        worker->Cancel();
        worker->Cancel();
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        EXPECT_TRUE(engine->AddWork(worker));
        engine->AddEndSceneWork(false);
        engine->WaitForOverhead(0);
        EXPECT_EQ(counters.iRan.load(), 0);
        EXPECT_EQ(counters.iCancelled.load(), 1);
        EXPECT_EQ(query->GetState(), Query::eCancelled);
        EXPECT_EQ(RecordWorker::GetUsedCount(), 0u);
    }

    TEST(RenderThreadLifecycle, FullRenderQueueRefusesAndReturnsTheWorker)
    {
        Engine engine;
        Counters counters;
        Latch entered, gate;
        ParkRenderThread(engine.Get(), entered, gate);
        for (uint32_t i = 0; i < RenderThread::kRenderQueueCapacity; ++i)
            ASSERT_TRUE(engine->AddWork(Record(engine.Get(), "fill", eRenderQueue, nullptr, &counters)));
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(engine->AddWork(Record(engine.Get(), "overflow", eRenderQueue, nullptr, &counters)));
            EXPECT_TRUE(capture.Contains("Worker stack is full !"));
        }
        EXPECT_EQ(counters.iCancelled.load(), 1);
        gate.Open();
        EXPECT_TRUE(WaitUntil([&] { return counters.iRan.load() == static_cast<int>(RenderThread::kRenderQueueCapacity); }));
        EXPECT_TRUE(WaitUntil([] { return RecordWorker::GetUsedCount() == 0u; }));
    }

    TEST(RenderThreadLifecycle, LoaderJobReturningFalseEndsTheLoaderButNotTheStop)
    {
        RunLog log;
        Counters counters;
        Engine engine;
        LoadingThread* loader = engine->GetLoader();
        Latch gate;
        loader->AddWork(Job("gate", &log, &counters, &gate));
        loader->AddWork(Job("stopper", &log, &counters, nullptr, false));
        loader->AddWork(Job("never", &log, &counters));
        gate.Open();
        ASSERT_TRUE(WaitUntil([&] { return !loader->IsAlive(); }));
        EXPECT_EQ(log.IndexOf("never"), -1);
        EXPECT_EQ(counters.iCancelled.load(), 1);
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(loader->AddWork(Job("late", &log, &counters)));
            EXPECT_TRUE(capture.Contains("ThreadedWorkManager will be released : no more work accepted."));
        }
        engine.StopAndDelete();
        EXPECT_EQ(counters.iRan.load() + counters.iCancelled.load(), counters.iMade.load());
    }

    TEST(RenderThreadLifecycle, RenderWorkerReturningFalseEndsTheLoopWithoutHangingTheProducer)
    {
        Engine engine;
        NullRenderer& device = engine.Device();
        Counters counters;
        RecordSpec stopper;
        stopper.uQueue = eUpdateQueue;
        stopper.bResult = false;
        stopper.pCounters = &counters;
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        engine->AddWork(RecordWorker::New(stopper));
        engine->AddEndSceneWork(false);
        // Its frame will never be drawn; the wait must still come back.
        engine->WaitForOverhead(0);
        engine->WaitForStop();
        EXPECT_FALSE(engine->IsAcceptingWork());
        EXPECT_FALSE(engine->GetLoader()->IsAlive());
        EXPECT_FALSE(engine->GetProcessor()->IsAlive());
        EXPECT_EQ(device.GetCalls().GetLast().eOp, DeviceOp::Release);
        EXPECT_EQ(counters.iRan.load(), 1);
        engine.StopAndDelete();
    }

    TEST(RenderThreadLifecycle, BucketsByNameWithHolesReusedAndLeftoversReported)
    {
        Engine engine;
        RenderThread* thread = engine.Get();
        Bucket* defaultBucket = thread->FindBucket(nullptr);
        ASSERT_NE(defaultBucket, nullptr);
        EXPECT_STREQ(defaultBucket->GetName(), "Default");
        {
            Common::ScopedLogCapture capture;
            EXPECT_EQ(thread->CreateBucket(nullptr), nullptr);
            EXPECT_TRUE(capture.Contains("User Bucket need a name"));
        }
        Bucket* a = thread->CreateBucket("A");
        Bucket* b = thread->CreateBucket("B");
        EXPECT_EQ(thread->FindBucket("B"), b);
        EXPECT_EQ(thread->FindBucket("missing"), nullptr);
        EXPECT_EQ(thread->GetBucketCount(), 3u);
        b->AddPending();
        EXPECT_EQ(thread->GetNotLoadedBucketCount(), 1u);

        Counters counters;
        a->Release();
        {
            Common::ScopedLogCapture capture;
            thread->AddDeleteBucketWork(a);
            thread->AddDeleteBucketWork(b);
            thread->AddWork(Record(thread, "marker", eReleaseQueue, nullptr, &counters));
            ASSERT_TRUE(WaitUntil([&] { return counters.iRan.load() == 1; }));
            EXPECT_TRUE(capture.Contains("Bucket A deleted.\n"));
            EXPECT_TRUE(capture.Contains("Delete bucket while RefCount >0"));
            EXPECT_FALSE(capture.Contains("Bucket B deleted."));
        }
        EXPECT_EQ(thread->FindBucket("A"), nullptr);
        EXPECT_EQ(thread->FindBucket("B"), b);
        EXPECT_STREQ(thread->GetBucketName(1), nullptr);
        Bucket* c = thread->CreateBucket("C");
        EXPECT_STREQ(thread->GetBucketName(1), "C");
        c->Release();
        thread->AddDeleteBucketWork(c);

        Common::ScopedLogCapture capture;
        engine.StopAndDelete();
        EXPECT_TRUE(capture.Contains("1 bucket were not released."));
        EXPECT_TRUE(capture.Contains("Bucket B not released"));
        EXPECT_FALSE(capture.Contains("Bucket C not released"));
    }

    TEST(RenderThreadLifecycle, RetrieveDeviceDataOnlyOnTheRenderThread)
    {
        Engine engine;
        Common::ScopedLogCapture capture;
        unsigned char bytes[4] = {1, 2, 3, 4};
        EXPECT_FALSE(engine->RetrieveDeviceData(nullptr, 0, bytes, sizeof(bytes)));
        EXPECT_TRUE(capture.Contains("Uncorrect thread for RetrieveDeviceData"));
        EXPECT_EQ(engine.Device().CountCalls(DeviceOp::RetrieveDeviceData), 0u);
    }

    TEST(RenderThreadLifecycle, IdleThreadsSleepInsteadOfSpinning)
    {
        Engine engine;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        auto cpuSeconds = [] {
            rusage usage{};
            getrusage(RUSAGE_SELF, &usage);
            return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
                   (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
        };
        const double before = cpuSeconds();
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::milliseconds(1000));
        const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        const double share = (cpuSeconds() - before) / wall;
        // A spinning thread alone would be near 1.0; the bench measures the real figure.
        EXPECT_LT(share, 0.05);
    }
}
