#include "common/system/thread/Event.h"

#include <cerrno>
#include <ctime>
#include <pthread.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

namespace Common
{
    namespace Posix
    {
        class CEvent
        {
        public:
            CEvent()
            {
                pthread_mutex_init(&m_kMutex, nullptr);
                pthread_condattr_t attr;
                pthread_condattr_init(&attr);
                // Time-outs must not move when the wall clock is set.
                pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
                pthread_cond_init(&m_kCondition, &attr);
                pthread_condattr_destroy(&attr);
            }
            ~CEvent()
            {
                pthread_cond_destroy(&m_kCondition);
                pthread_mutex_destroy(&m_kMutex);
            }

            pthread_mutex_t m_kMutex;
            pthread_cond_t m_kCondition;
            bool m_bSignalled = false;
            bool m_bManualReset = false;
        };
    }

    CEvent::~CEvent() { MEM_DELETE(m_pEvent); }

    bool CEvent::Create(bool manualReset)
    {
        if (!m_pEvent) m_pEvent = MEM_NEW(Posix::CEvent);
        if (!m_pEvent) return false;
        pthread_mutex_lock(&m_pEvent->m_kMutex);
        m_pEvent->m_bManualReset = manualReset;
        m_pEvent->m_bSignalled = false;
        pthread_mutex_unlock(&m_pEvent->m_kMutex);
        return true;
    }

    bool CEvent::Set()
    {
        if (!m_pEvent) return false;
        pthread_mutex_lock(&m_pEvent->m_kMutex);
        m_pEvent->m_bSignalled = true;
        // One waker is enough for automatic reset: the first waiter to run takes the
        // signal, any other woken one finds it gone and sleeps again.
        if (m_pEvent->m_bManualReset) pthread_cond_broadcast(&m_pEvent->m_kCondition);
        else pthread_cond_signal(&m_pEvent->m_kCondition);
        pthread_mutex_unlock(&m_pEvent->m_kMutex);
        return true;
    }

    bool CEvent::Reset()
    {
        if (!m_pEvent) return false;
        pthread_mutex_lock(&m_pEvent->m_kMutex);
        m_pEvent->m_bSignalled = false;
        pthread_mutex_unlock(&m_pEvent->m_kMutex);
        return true;
    }

    bool CEvent::Wait(unsigned int ms)
    {
        if (!m_pEvent) return false;
        timespec deadline{};
        if (ms != Infinite)
        {
            clock_gettime(CLOCK_MONOTONIC, &deadline);
            deadline.tv_sec += ms / 1000;
            deadline.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
            if (deadline.tv_nsec >= 1000000000L)
            {
                deadline.tv_sec += 1;
                deadline.tv_nsec -= 1000000000L;
            }
        }
        pthread_mutex_lock(&m_pEvent->m_kMutex);
        int rc = 0;
        while (!m_pEvent->m_bSignalled && rc != ETIMEDOUT)
        {
            if (ms == Infinite) rc = pthread_cond_wait(&m_pEvent->m_kCondition, &m_pEvent->m_kMutex);
            else rc = pthread_cond_timedwait(&m_pEvent->m_kCondition, &m_pEvent->m_kMutex, &deadline);
        }
        const bool signalled = m_pEvent->m_bSignalled;
        if (signalled && !m_pEvent->m_bManualReset) m_pEvent->m_bSignalled = false;
        pthread_mutex_unlock(&m_pEvent->m_kMutex);
        return signalled;
    }
}
