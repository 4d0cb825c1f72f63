#pragma once
// A thread that runs batches of workers in the order they were added: the loader and
// the processor are made of it. Its mutex is held only to move the arrays and to attach
// a query, never while a worker runs.
#include <atomic>

#include "common/system/mutex/Mutex.h"
#include "common/system/thread/Event.h"
#include "common/system/thread/Thread.h"
#include "common/utils/TArray.h"
#include "zemrenderer/thread/PooledWorker.h"

namespace ZemRenderer
{
    class ThreadedWorkManager : public Common::CThread
    {
    public:
        struct QueryThreadPair
        {
            int iThreadId = 0;
            QueryPtr spQuery;
        };

        explicit ThreadedWorkManager(RenderThread* owner);
        ~ThreadedWorkManager() override;

        // Refused once Release was asked: the worker is cancelled and back in its pool.
        bool AddWork(WorkerBase<RenderThread>* worker);
        // As AddWork, but when called from a worker of another manager's batch, the wake
        // waits until a few more have come or that batch ends: one wake-up per asset
        // costs the producer more than reading a small file.
        bool AddWorkBatched(WorkerBase<RenderThread>* worker);
        // The calling thread's next AddWork carries this query.
        void SetQuery(const QueryPtr& query);
        bool HasWork() const;
        unsigned int GetWorkCount() const;
        // Ends the thread after what is queued now: a ReleaseWorker that releases `next`
        // (or, with none, the render thread) goes last, and no more work is accepted.
        void Release(ThreadedWorkManager* next);

        bool IsAcceptingWork() const { return m_bAcceptWork.load(std::memory_order_acquire); }
        // True from Start until Run has returned.
        bool IsAlive() const { return m_bAlive.load(std::memory_order_acquire); }
        RenderThread* GetOwner() const { return m_pOwner; }

        bool Start(const char* name) override;
        void Run() override;

    protected:
        RenderThread* m_pOwner;
        mutable Common::CMutex m_kMutex;
        TArray<WorkerBase<RenderThread>*> m_pending;
        TArray<WorkerBase<RenderThread>*> m_processing;
        TArray<QueryThreadPair> m_aQueries;
        Common::CEvent m_kEvent;
        std::atomic<bool> m_bAcceptWork{true};
        // Set under the mutex when Run leaves its loop: nothing queued afterwards would run.
        bool m_bLoopEnded = false;
        std::atomic<bool> m_bAlive{false};
        // Workers of the running batch not yet run.
        std::atomic<unsigned int> m_uProcessingLeft{0};

    private:
        QueryThreadPair* FindPair(int threadId, bool create);
        bool AddWorkImpl(WorkerBase<RenderThread>* worker, bool batched);
        void Wake();
        void RunBatch(bool& keepRunning);
        void ForwardRelease(ThreadedWorkManager* next);
    };

    // The last worker of a manager: it releases the next manager of the stop chain, or
    // asks the render thread to end, and ends its own thread by returning false.
    class ReleaseWorker : public PooledWorker<ReleaseWorker, RenderThread>
    {
    public:
        ReleaseWorker() = default;
        ReleaseWorker(ThreadedWorkManager* next, RenderThread* owner) : m_pNext(next), m_pOwner(owner) {}

        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(RenderThread* context) override;
        // Cancelled, it still passes the chain on, so that a stop never stalls.
        void OnCancel() override;

    private:
        void Forward(RenderThread* renderThread);

        ThreadedWorkManager* m_pNext = nullptr;
        RenderThread* m_pOwner = nullptr;
        bool m_bForwarded = false;
    };
}
