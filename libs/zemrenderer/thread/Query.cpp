#include "zemrenderer/thread/Query.h"

#include <chrono>

#include "common/system/memorymanager/MemoryManager.h"

namespace ZemRenderer
{
    Query* Query::Create() { return MEM_NEW(Query); }

    void Query::Release()
    {
        if (m_iRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1) MEM_DELETE(this);
    }

    void Query::SetState(State state)
    {
        {
            // Under the wait mutex so that a waiter can't miss the change between its
            // test and its sleep.
            std::lock_guard<std::mutex> lock(m_kWaitMutex);
            m_uState.store(state, std::memory_order_release);
        }
        if (state >= eDone) m_kFinished.notify_all();
    }

    bool Query::WaitFinished(unsigned int ms)
    {
        std::unique_lock<std::mutex> lock(m_kWaitMutex);
        return m_kFinished.wait_for(lock, std::chrono::milliseconds(ms), [this] { return IsFinished(); });
    }
}
