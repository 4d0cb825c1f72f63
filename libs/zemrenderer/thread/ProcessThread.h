#pragma once
// The thread that builds objects from what the loader read. Some of that work must run
// on the main thread: it waits in a list that the main thread runs at the start of each
// frame.
#include <mutex>

#include "zemrenderer/thread/ThreadedWorkManager.h"

namespace ZemRenderer
{
    class ProcessThread : public ThreadedWorkManager
    {
    public:
        explicit ProcessThread(RenderThread* owner);
        ~ProcessThread() override;

        // onMainThread clear: the processor runs it. Set: the main thread runs it, at once
        // in the next frame, or with `deferred` only after the processor has done all that
        // was queued before it.
        bool AddWork(WorkerBase<RenderThread>* worker, bool onMainThread = false, bool deferred = false);

        // Main thread, start of each frame: runs the whole list in order, then releases it.
        void ProcessMainThreadWork(RenderThread* context);
        unsigned int GetMainThreadWorkCount() const;
        // After the last run: later main-thread work is refused.
        void CloseMainThreadList();

    private:
        mutable Common::CMutex m_kMainThreadMutex;
        TArray<WorkerBase<RenderThread>*> m_aMainThreadWork;
        bool m_bMainThreadListClosed = false;
        // Only one caller at a time walks the list taken out.
        std::mutex m_kMainThreadRunMutex;
        TArray<WorkerBase<RenderThread>*> m_aMainThreadRunning;
    };

    // Carries main-thread work through the processor's queue, so that it is handed to the
    // main thread only once the processor got there.
    class AddProcessWorkWorker : public PooledWorker<AddProcessWorkWorker, RenderThread>
    {
    public:
        AddProcessWorkWorker() = default;
        AddProcessWorkWorker(ProcessThread* processor, WorkerBase<RenderThread>* worker)
            : m_pProcessor(processor), m_pWorker(worker)
        {
        }

        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(RenderThread* context) override;
        void OnCancel() override;

    private:
        ProcessThread* m_pProcessor = nullptr;
        WorkerBase<RenderThread>* m_pWorker = nullptr;
    };
}
