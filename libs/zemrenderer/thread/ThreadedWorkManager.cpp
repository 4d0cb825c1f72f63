#include "zemrenderer/thread/ThreadedWorkManager.h"

#include <utility>

#include "common/system/debug/Log.h"
#include "zemrenderer/thread/RenderThread.h"
#include "zemrenderer/thread/ThreadId.h"

namespace ZemRenderer
{
    namespace
    {
        // Held wakes: a consumer sleeping on an empty queue is woken at this many.
        constexpr unsigned int kBatchedWakeCount = 32;
        // The manager whose batch this thread runs, and the one whose wake it holds.
        thread_local ThreadedWorkManager* t_pRunningBatch = nullptr;
        thread_local ThreadedWorkManager* t_pHeldWake = nullptr;
    }

    ThreadedWorkManager::ThreadedWorkManager(RenderThread* owner) : m_pOwner(owner)
    {
        m_kEvent.Create(true);
        // Until Start, nothing would run what the chain queues.
        m_bLoopEnded = true;
    }

    ThreadedWorkManager::~ThreadedWorkManager()
    {
        Wait();
        // Work that never ran (added before a Start that never came).
        for (WorkerBase<RenderThread>* worker : m_pending) CancelAndRelease(worker);
        m_pending.Clear();
    }

    bool ThreadedWorkManager::Start(const char* name)
    {
        m_kMutex.Lock();
        m_bLoopEnded = false;
        m_bAlive.store(true, std::memory_order_release);
        m_kMutex.Unlock();
        if (CThread::Start(name)) return true;
        m_kMutex.Lock();
        m_bLoopEnded = true;
        m_bAlive.store(false, std::memory_order_release);
        m_kMutex.Unlock();
        return false;
    }

    ThreadedWorkManager::QueryThreadPair* ThreadedWorkManager::FindPair(int threadId, bool create)
    {
        QueryThreadPair* freePair = nullptr;
        for (QueryThreadPair& pair : m_aQueries)
        {
            if (pair.iThreadId == threadId) return &pair;
            if (!freePair && pair.iThreadId == 0) freePair = &pair;
        }
        if (!create) return nullptr;
        // Pairs are freed when consumed, so the array stays as long as the number of
        // threads with a query pending at once.
        if (!freePair) freePair = &m_aQueries.Add();
        freePair->iThreadId = threadId;
        return freePair;
    }

    bool ThreadedWorkManager::AddWork(WorkerBase<RenderThread>* worker) { return AddWorkImpl(worker, false); }

    bool ThreadedWorkManager::AddWorkBatched(WorkerBase<RenderThread>* worker) { return AddWorkImpl(worker, true); }

    void ThreadedWorkManager::Wake()
    {
        m_kMutex.Lock();
        m_kEvent.Set();
        m_kMutex.Unlock();
    }

    bool ThreadedWorkManager::AddWorkImpl(WorkerBase<RenderThread>* worker, bool batched)
    {
        // Outside a batch nothing would give a held wake.
        const bool hold = batched && t_pRunningBatch && t_pRunningBatch != this;
        if (hold && t_pHeldWake && t_pHeldWake != this) std::exchange(t_pHeldWake, nullptr)->Wake();
        if (!ZEM_ASSERT(worker != nullptr, "Pointer must be non null")) return false;
        const int threadId = CurrentThreadId();
        m_kMutex.Lock();
        if (QueryThreadPair* pair = FindPair(threadId, false))
        {
            if (pair->spQuery) worker->spQuery = std::move(pair->spQuery);
            pair->iThreadId = 0;
        }
        const bool accept = m_bAcceptWork.load(std::memory_order_acquire);
        if (accept)
        {
            if (worker->spQuery) worker->spQuery->SetState(Query::eQueued);
            m_pending.Add(worker);
            if (!hold || m_pending.GetSize() >= kBatchedWakeCount) m_kEvent.Set();
            else t_pHeldWake = this;
        }
        m_kMutex.Unlock();
        if (!ZEM_ASSERT(accept, "ThreadedWorkManager will be released : no more work accepted."))
        {
            CancelAndRelease(worker);
            return false;
        }
        return true;
    }

    void ThreadedWorkManager::SetQuery(const QueryPtr& query)
    {
        const int threadId = CurrentThreadId();
        QueryPtr previous;
        m_kMutex.Lock();
        QueryThreadPair* pair = FindPair(threadId, true);
        previous = std::move(pair->spQuery);
        pair->spQuery = query;
        m_kMutex.Unlock();
        if (!ZEM_ASSERT(!previous, "Query already set")) previous->SetState(Query::eCancelled);
    }

    bool ThreadedWorkManager::HasWork() const { return GetWorkCount() != 0; }

    unsigned int ThreadedWorkManager::GetWorkCount() const
    {
        m_kMutex.Lock();
        const unsigned int count = m_pending.GetSize() + m_uProcessingLeft.load(std::memory_order_acquire);
        m_kMutex.Unlock();
        return count;
    }

    void ThreadedWorkManager::Release(ThreadedWorkManager* next)
    {
        m_kMutex.Lock();
        if (m_bLoopEnded)
        {
            m_bAcceptWork.store(false, std::memory_order_release);
            m_kMutex.Unlock();
            ForwardRelease(next);
            return;
        }
        if (!m_bAcceptWork.load(std::memory_order_acquire))
        {
            // Asked already: its ReleaseWorker is on the way.
            m_kMutex.Unlock();
            return;
        }
        m_bAcceptWork.store(false, std::memory_order_release);
        ReleaseWorker* worker = ReleaseWorker::New(next, m_pOwner);
        if (worker)
        {
            m_pending.Add(worker);
            m_kEvent.Set();
        }
        m_kMutex.Unlock();
        if (!worker) ForwardRelease(next);
    }

    void ThreadedWorkManager::ForwardRelease(ThreadedWorkManager* next)
    {
        if (next) next->Release(nullptr);
        else if (m_pOwner) m_pOwner->AddReleaseRendererWork();
    }

    void ThreadedWorkManager::Run()
    {
        bool keepRunning = true;
        while (keepRunning)
        {
            m_kMutex.Lock();
            m_processing = m_pending;
            m_pending.Clear();
            m_uProcessingLeft.store(m_processing.GetSize(), std::memory_order_release);
            m_kEvent.Reset();
            m_kMutex.Unlock();
            if (m_processing.IsEmpty())
            {
                m_kEvent.Wait();
                continue;
            }
            RunBatch(keepRunning);
        }

        TArray<WorkerBase<RenderThread>*> leftovers;
        m_kMutex.Lock();
        m_bAcceptWork.store(false, std::memory_order_release);
        m_bLoopEnded = true;
        std::swap(leftovers, m_pending);
        m_kMutex.Unlock();
        // A ReleaseWorker among them passes the chain on when cancelled.
        for (WorkerBase<RenderThread>* worker : leftovers) CancelAndRelease(worker);
        m_bAlive.store(false, std::memory_order_release);
    }

    void ThreadedWorkManager::RunBatch(bool& keepRunning)
    {
        const unsigned int count = m_processing.GetSize();
        t_pRunningBatch = this;
        for (unsigned int i = 0; i < count; ++i) m_processing[i]->PrepareWork();
        for (unsigned int i = 0; i < count; ++i)
        {
            WorkerBase<RenderThread>* worker = m_processing[i];
            const bool result = RunWorker(worker, m_pOwner);
            worker->ReleaseToPool();
            m_uProcessingLeft.fetch_sub(1, std::memory_order_acq_rel);
            if (!result)
            {
                // The thread ends here; what came after in the batch will never run.
                for (unsigned int j = i + 1; j < count; ++j)
                {
                    CancelAndRelease(m_processing[j]);
                    m_uProcessingLeft.fetch_sub(1, std::memory_order_acq_rel);
                }
                keepRunning = false;
                break;
            }
        }
        t_pRunningBatch = nullptr;
        if (ThreadedWorkManager* held = std::exchange(t_pHeldWake, nullptr)) held->Wake();
        m_processing.Clear();
    }

    bool ReleaseWorker::DoWork(RenderThread* context)
    {
        Forward(context);
        return false;
    }

    void ReleaseWorker::OnCancel() { Forward(m_pOwner); }

    void ReleaseWorker::Forward(RenderThread* renderThread)
    {
        if (m_bForwarded) return;
        m_bForwarded = true;
        if (m_pNext) m_pNext->Release(nullptr);
        else if (renderThread) renderThread->AddReleaseRendererWork();
    }
}
