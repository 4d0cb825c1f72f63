#include "zemrenderer/thread/ProcessThread.h"

#include <utility>

#include "common/system/debug/Log.h"

namespace ZemRenderer
{
    ProcessThread::ProcessThread(RenderThread* owner) : ThreadedWorkManager(owner) {}

    ProcessThread::~ProcessThread()
    {
        for (WorkerBase<RenderThread>* worker : m_aMainThreadWork) CancelAndRelease(worker);
        m_aMainThreadWork.Clear();
    }

    bool ProcessThread::AddWork(WorkerBase<RenderThread>* worker, bool onMainThread, bool deferred)
    {
        if (!onMainThread) return ThreadedWorkManager::AddWork(worker);
        if (!ZEM_ASSERT(worker != nullptr, "Pointer must be non null")) return false;
        if (deferred)
        {
            AddProcessWorkWorker* carrier = AddProcessWorkWorker::New(this, worker);
            if (!carrier)
            {
                CancelAndRelease(worker);
                return false;
            }
            return ThreadedWorkManager::AddWork(carrier);
        }
        m_kMainThreadMutex.Lock();
        const bool accept = !m_bMainThreadListClosed;
        if (accept) m_aMainThreadWork.Add(worker);
        m_kMainThreadMutex.Unlock();
        if (!ZEM_ASSERT(accept, "ThreadedWorkManager will be released : no more work accepted."))
        {
            CancelAndRelease(worker);
            return false;
        }
        return true;
    }

    void ProcessThread::ProcessMainThreadWork(RenderThread* context)
    {
        std::lock_guard<std::mutex> run(m_kMainThreadRunMutex);
        m_kMainThreadMutex.Lock();
        std::swap(m_aMainThreadRunning, m_aMainThreadWork);
        m_kMainThreadMutex.Unlock();
        for (WorkerBase<RenderThread>* worker : m_aMainThreadRunning) RunWorker(worker, context);
        for (WorkerBase<RenderThread>* worker : m_aMainThreadRunning) worker->ReleaseToPool();
        m_aMainThreadRunning.Clear();
    }

    unsigned int ProcessThread::GetMainThreadWorkCount() const
    {
        m_kMainThreadMutex.Lock();
        const unsigned int count = m_aMainThreadWork.GetSize();
        m_kMainThreadMutex.Unlock();
        return count;
    }

    void ProcessThread::CloseMainThreadList()
    {
        m_kMainThreadMutex.Lock();
        m_bMainThreadListClosed = true;
        m_kMainThreadMutex.Unlock();
    }

    bool AddProcessWorkWorker::DoWork(RenderThread*)
    {
        WorkerBase<RenderThread>* worker = std::exchange(m_pWorker, nullptr);
        if (worker && m_pProcessor) m_pProcessor->AddWork(worker, true, false);
        else if (worker) CancelAndRelease(worker);
        return true;
    }

    void AddProcessWorkWorker::OnCancel()
    {
        if (WorkerBase<RenderThread>* worker = std::exchange(m_pWorker, nullptr)) CancelAndRelease(worker);
    }
}
