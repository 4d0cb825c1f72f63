#pragma once
// One of the threads that run short parallel jobs (culling, draw batches) from the
// shared queue. It sleeps while the queue is empty.
#include <atomic>

#include "common/system/thread/Thread.h"
#include "zemrenderer/thread/FlowQueue.h"
#include "zemrenderer/thread/WorkerBase.h"

namespace ZemRenderer
{
    class WorkerThread : public Common::CThread
    {
    public:
        typedef FlowQueue<WorkerBase<RenderThread>> Queue;

        WorkerThread(RenderThread* owner, Queue* queue);
        ~WorkerThread() override;

        bool Start(const char* name) override;
        void Run() override;

        // Cleared, the thread ends after the job it is running.
        void SetRunning(bool running);
        bool IsRunningFlagSet() const { return m_bRunning.load(std::memory_order_acquire); }
        // True from Start until Run has returned.
        bool IsAlive() const { return m_bAlive.load(std::memory_order_acquire); }

    private:
        RenderThread* m_pOwner;
        Queue* m_pQueue;
        std::atomic<bool> m_bRunning{false};
        std::atomic<bool> m_bAlive{false};
    };
}
