// Cost of one Alloc+Free pair of the memory manager against glibc malloc+free of the
// same size, in the same binary. The budget is a tagged pair at most twice the
// glibc pair.
//
// glibc and the manager both skip atomic instructions while the process has a single
// thread, so the pairs are measured twice: first as registered (one thread), then with
// a second, idle thread alive ("MT"), where each uncontended heap lock costs an atomic
// read-modify-write.
#include <benchmark/benchmark.h>

#include <pthread.h>

#include <unistd.h>

#include <cstdlib>

#include "common/system/memorymanager/MemoryManager.h"

using Common::Mem::CMemoryManager;
using Common::Mem::MemoryTag;

namespace
{
    constexpr size_t kSize = 64;

    void GlibcPair(benchmark::State& state)
    {
        for (auto _ : state)
        {
            void* p = std::malloc(kSize);
            benchmark::DoNotOptimize(p);
            std::free(p);
        }
    }

    void ManagerPair(benchmark::State& state, CMemoryManager* mm)
    {
        for (auto _ : state)
        {
            void* p = mm->Alloc(kSize, __FILE__, __LINE__);
            benchmark::DoNotOptimize(p);
            mm->Free(p);
        }
    }

    void BM_GlibcMallocFree(benchmark::State& state) { GlibcPair(state); }

    void BM_AllocFree_Untagged(benchmark::State& state) { ManagerPair(state, CMemoryManager::GetInstance()); }

    void BM_AllocFree_Tagged(benchmark::State& state)
    {
        MemoryTag tag("Bench");
        ManagerPair(state, CMemoryManager::GetInstance());
    }

    void BM_AllocFree_Tagged3Deep(benchmark::State& state)
    {
        MemoryTag a("BenchOuter");
        MemoryTag b("BenchMiddle");
        MemoryTag c("BenchInner");
        ManagerPair(state, CMemoryManager::GetInstance());
    }

    // A second thread that only sleeps, so that the process is no longer single-threaded.
    void EnsureSecondThread()
    {
        static const bool s_bStarted = [] {
            pthread_t thread;
            const bool ok = pthread_create(&thread, nullptr, [](void*) -> void* {
                for (;;) pause();
            }, nullptr) == 0;
            if (ok) pthread_detach(thread);
            return ok;
        }();
        benchmark::DoNotOptimize(s_bStarted);
    }

    void BM_MT_GlibcMallocFree(benchmark::State& state)
    {
        EnsureSecondThread();
        GlibcPair(state);
    }
    void BM_MT_AllocFree_Untagged(benchmark::State& state)
    {
        EnsureSecondThread();
        ManagerPair(state, CMemoryManager::GetInstance());
    }
    void BM_MT_AllocFree_Tagged(benchmark::State& state)
    {
        EnsureSecondThread();
        MemoryTag tag("Bench");
        ManagerPair(state, CMemoryManager::GetInstance());
    }

    // The floor under a heap that another thread may lock: the two uncontended lock
    // takes (one in Alloc, one in Free) that a pair costs, and nothing else.
    void BM_MT_LockTakePair(benchmark::State& state)
    {
        EnsureSecondThread();
        static Common::Mem::CHeapLock s_kLock;
        for (auto _ : state)
        {
            s_kLock.Lock();
            s_kLock.Unlock();
            s_kLock.Lock();
            s_kLock.Unlock();
            benchmark::ClobberMemory();
        }
    }
}

BENCHMARK(BM_GlibcMallocFree);
BENCHMARK(BM_AllocFree_Untagged);
BENCHMARK(BM_AllocFree_Tagged);
BENCHMARK(BM_AllocFree_Tagged3Deep);
BENCHMARK(BM_MT_GlibcMallocFree);
BENCHMARK(BM_MT_AllocFree_Untagged);
BENCHMARK(BM_MT_AllocFree_Tagged);
BENCHMARK(BM_MT_LockTakePair);
