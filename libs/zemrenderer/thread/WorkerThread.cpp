#include "zemrenderer/thread/WorkerThread.h"

namespace ZemRenderer
{
    namespace
    {
        // Sleeps end on a push or on SetRunning(false); this only bounds a lost wake-up.
        constexpr unsigned int kIdleWaitMs = 1000;
    }

    WorkerThread::WorkerThread(RenderThread* owner, Queue* queue) : m_pOwner(owner), m_pQueue(queue) {}

    WorkerThread::~WorkerThread()
    {
        SetRunning(false);
        Wait();
    }

    bool WorkerThread::Start(const char* name)
    {
        m_bRunning.store(true, std::memory_order_seq_cst);
        m_bAlive.store(true, std::memory_order_release);
        if (CThread::Start(name)) return true;
        m_bAlive.store(false, std::memory_order_release);
        return false;
    }

    void WorkerThread::SetRunning(bool running)
    {
        m_bRunning.store(running, std::memory_order_seq_cst);
        if (!running) m_pQueue->WakeAll();
    }

    void WorkerThread::Run()
    {
        bool result = true;
        while (result && m_bRunning.load(std::memory_order_seq_cst))
        {
            WorkerBase<RenderThread>* worker = m_pQueue->Pop();
            if (!worker)
            {
                m_pQueue->WaitNotEmpty([this] { return !m_bRunning.load(std::memory_order_seq_cst); }, kIdleWaitMs);
                continue;
            }
            result = RunWorker(worker, m_pOwner);
            worker->ReleaseToPool();
        }
        m_bAlive.store(false, std::memory_order_release);
    }
}
