#pragma once
// The thread that reads files. Loaders queue their workers here; the stop chain starts
// here too.
#include "zemrenderer/thread/ThreadedWorkManager.h"

namespace ZemRenderer
{
    class LoadingThread : public ThreadedWorkManager
    {
    public:
        explicit LoadingThread(RenderThread* owner) : ThreadedWorkManager(owner) {}
    };
}
