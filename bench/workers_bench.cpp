// Pooled workers from one producer to the render thread, against std::function jobs
// through a mutex-guarded std::deque consumed by one thread. Both sides count a job
// done when the consumer has run it.
#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "zemrenderer/device/null/NullRenderer.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace
{
    constexpr int kBatch = 20000;

    // Wakes the producer once the consumer has done a whole batch.
    class BatchDone
    {
    public:
        void Signal()
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            m_bDone = true;
            m_kCondition.notify_one();
        }
        void WaitAndReset()
        {
            std::unique_lock<std::mutex> lock(m_kMutex);
            m_kCondition.wait(lock, [this] { return m_bDone; });
            m_bDone = false;
        }

    private:
        std::mutex m_kMutex;
        std::condition_variable m_kCondition;
        bool m_bDone = false;
    };

    struct Sink
    {
        uint64_t uSum = 0;
        BatchDone kDone;
    };

    class BenchWorker : public ZemRenderer::PooledWorker<BenchWorker, ZemRenderer::Renderer>
    {
    public:
        BenchWorker() = default;
        BenchWorker(Sink* sink, uint32_t value, bool last) : m_pSink(sink), m_uValue(value), m_bLast(last) {}
        unsigned int GetQueue() const override { return ZemRenderer::eRenderQueue; }
        bool DoWork(ZemRenderer::Renderer*) override
        {
            m_pSink->uSum += m_uValue;
            if (m_bLast) m_pSink->kDone.Signal();
            return true;
        }

    private:
        Sink* m_pSink = nullptr;
        uint32_t m_uValue = 0;
        bool m_bLast = false;
    };

    void BM_PooledWorkersToRenderThread(benchmark::State& state)
    {
        ZemRenderer::NullRenderer device;
        auto* thread = MEM_NEW(ZemRenderer::RenderThread);
        thread->SetRenderer(&device);
        ZemRenderer::RendererInitRecord record;
        record.bNoWindow = 1;
        thread->SetInitParameters(record);
        if (!thread->Init()) state.SkipWithError("render thread did not start");
        Sink sink;
        for (auto _ : state)
        {
            for (int i = 0; i < kBatch; ++i) thread->AddWork(BenchWorker::New(&sink, 1u, i == kBatch - 1));
            sink.kDone.WaitAndReset();
        }
        benchmark::DoNotOptimize(sink.uSum);
        state.SetItemsProcessed(state.iterations() * kBatch);
        thread->Stop();
        thread->WaitForStop();
        MEM_DELETE(thread);
    }
    BENCHMARK(BM_PooledWorkersToRenderThread)->Unit(benchmark::kMillisecond)->UseRealTime();

    // The baseline: the usual job queue of std::function under one mutex.
    class FunctionQueueThread
    {
    public:
        FunctionQueueThread() : m_kThread([this] { Run(); }) {}
        ~FunctionQueueThread()
        {
            {
                std::lock_guard<std::mutex> lock(m_kMutex);
                m_bStop = true;
            }
            m_kCondition.notify_one();
            m_kThread.join();
        }
        void Push(std::function<void()> job)
        {
            {
                std::lock_guard<std::mutex> lock(m_kMutex);
                m_kJobs.push_back(std::move(job));
            }
            m_kCondition.notify_one();
        }

    private:
        void Run()
        {
            for (;;)
            {
                std::function<void()> job;
                {
                    std::unique_lock<std::mutex> lock(m_kMutex);
                    m_kCondition.wait(lock, [this] { return m_bStop || !m_kJobs.empty(); });
                    if (m_kJobs.empty()) return;
                    job = std::move(m_kJobs.front());
                    m_kJobs.pop_front();
                }
                job();
            }
        }

        std::mutex m_kMutex;
        std::condition_variable m_kCondition;
        std::deque<std::function<void()>> m_kJobs;
        bool m_bStop = false;
        std::thread m_kThread;
    };

    void BM_StdFunctionMutexDequeBaseline(benchmark::State& state)
    {
        FunctionQueueThread consumer;
        Sink sink;
        for (auto _ : state)
        {
            for (int i = 0; i < kBatch; ++i)
            {
                const bool last = i == kBatch - 1;
                consumer.Push([&sink, last] {
                    sink.uSum += 1u;
                    if (last) sink.kDone.Signal();
                });
            }
            sink.kDone.WaitAndReset();
        }
        benchmark::DoNotOptimize(sink.uSum);
        state.SetItemsProcessed(state.iterations() * kBatch);
    }
    BENCHMARK(BM_StdFunctionMutexDequeBaseline)->Unit(benchmark::kMillisecond)->UseRealTime();
}
