#pragma once
// The one crossing into the GUI from other threads. The GUI takes no locks: its objects,
// its map and its passes belong to the main thread. A loading or render thread that has
// GUI work (a parsed file to turn into objects, a page that arrived) posts it here, and
// the main thread runs it at the start of the GUI's next frame. The queue's own lock is
// held only to add and to take the list.
#include <mutex>

#include "common/utils/TArray.h"

namespace ZemGui
{
    class MainThreadQueue
    {
    public:
        typedef void (*Function)(void* context);

        MainThreadQueue() = default;
        ~MainThreadQueue();
        MainThreadQueue(const MainThreadQueue&) = delete;
        MainThreadQueue& operator=(const MainThreadQueue&) = delete;

        // Any thread. `run` will be called on the main thread with `context`. When the
        // queue is closed, or at close with the task still waiting, `discard` is called
        // instead (on the closing thread), so that the poster can free the context. False
        // when refused.
        bool Post(Function run, void* context, Function discard = nullptr);

        // Main thread: runs, in posting order, what was posted before the call. A task
        // posted by a running task waits for the next drain. Returns the count run.
        unsigned int Drain();

        // Refuses further posts and discards what waits. Drain after Close runs nothing.
        void Close();
        bool IsClosed() const;
        unsigned int GetPendingCount() const;

    private:
        struct Task
        {
            Function pfnRun;
            void* pContext;
            Function pfnDiscard;
        };

        mutable std::mutex m_kMutex;
        ZemRenderer::TArray<Task> m_aPending;
        ZemRenderer::TArray<Task> m_aRunning;  // the drain's copy; only the main thread touches it
        bool m_bClosed = false;
        bool m_bDraining = false;
    };
}
