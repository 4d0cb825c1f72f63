#pragma once
// The system id of the calling thread, read once per thread.
#include <unistd.h>

namespace ZemRenderer
{
    inline int CurrentThreadId()
    {
        static thread_local const int s_iThreadId = static_cast<int>(gettid());
        return s_iThreadId;
    }
}
