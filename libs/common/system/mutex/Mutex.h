#pragma once
// A recursive mutex: its owner may take it again.
#include <pthread.h>

namespace Common
{
    class CMutex
    {
    public:
        CMutex();
        ~CMutex();
        CMutex(const CMutex&) = delete;
        CMutex& operator=(const CMutex&) = delete;

        void Lock();
        void Unlock();
        bool TryLock();

    private:
        pthread_mutex_t m_kMutex;
    };
}
