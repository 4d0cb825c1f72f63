#include "common/system/mutex/Mutex.h"

#include "common/system/debug/Log.h"

namespace Common
{
    CMutex::CMutex()
    {
        pthread_mutexattr_t attr;
        pthread_mutexattr_init(&attr);
        pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
        const int rc = pthread_mutex_init(&m_kMutex, &attr);
        pthread_mutexattr_destroy(&attr);
        ZEM_ASSERT(rc == 0, "Unable to initialize critical section");
    }
    CMutex::~CMutex() { pthread_mutex_destroy(&m_kMutex); }
    void CMutex::Lock() { pthread_mutex_lock(&m_kMutex); }
    void CMutex::Unlock() { pthread_mutex_unlock(&m_kMutex); }
    bool CMutex::TryLock() { return pthread_mutex_trylock(&m_kMutex) == 0; }
}
