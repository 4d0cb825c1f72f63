// CPU use of an idle engine thread set (render, loader, processor and four worker
// threads) over a few seconds, by getrusage, against a process that only sleeps.
#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "zemrenderer/device/null/NullRenderer.h"
#include "zemrenderer/thread/RenderThread.h"

namespace
{
    constexpr int kIdleMs = 3000;

    double ProcessCpuSeconds()
    {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    }

    // Share of one core used while the process does nothing but `idle`.
    template <class Idle>
    void MeasureIdle(benchmark::State& state, Idle idle)
    {
        for (auto _ : state)
        {
            const double cpuBefore = ProcessCpuSeconds();
            const auto start = std::chrono::steady_clock::now();
            idle();
            const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            state.counters["core_share_percent"] = 100.0 * (ProcessCpuSeconds() - cpuBefore) / wall;
        }
    }

    void BM_IdleEngineThreads(benchmark::State& state)
    {
        ZemRenderer::NullRenderer device;
        auto* thread = MEM_NEW(ZemRenderer::RenderThread);
        thread->SetRenderer(&device);
        ZemRenderer::RendererInitRecord record;
        record.bNoWindow = 1;
        thread->SetInitParameters(record);
        if (!thread->Init()) state.SkipWithError("render thread did not start");
        // Let the start settle: one frame through, then nothing.
        thread->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        thread->AddEndSceneWork(false);
        thread->WaitForOverhead(0);
        MeasureIdle(state, [] { std::this_thread::sleep_for(std::chrono::milliseconds(kIdleMs)); });
        thread->Stop();
        thread->WaitForStop();
        MEM_DELETE(thread);
    }
    BENCHMARK(BM_IdleEngineThreads)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

    void BM_SleepingProcessBaseline(benchmark::State& state)
    {
        MeasureIdle(state, [] { std::this_thread::sleep_for(std::chrono::milliseconds(kIdleMs)); });
    }
    BENCHMARK(BM_SleepingProcessBaseline)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
}
