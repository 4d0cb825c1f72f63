#include "zemgui/MainThreadQueue.h"
#include "zemgui/GuiAssert.h"

#include <utility>

namespace ZemGui
{
    MainThreadQueue::~MainThreadQueue() { Close(); }

    bool MainThreadQueue::Post(Function run, void* context, Function discard)
    {
        if (!GUI_CHECK(run != nullptr, "Invalid parameters")) return false;
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            if (!m_bClosed)
            {
                m_aPending.Add(Task{run, context, discard});
                return true;
            }
        }
        if (discard) discard(context);
        return false;
    }

    unsigned int MainThreadQueue::Drain()
    {
        // A task that drains again finds nothing to do: its own list is being walked.
        if (m_bDraining) return 0;
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            if (m_aPending.IsEmpty()) return 0;
            std::swap(m_aPending, m_aRunning);
        }
        m_bDraining = true;
        const unsigned int n = m_aRunning.GetSize();
        for (unsigned int i = 0; i < n; ++i) m_aRunning[i].pfnRun(m_aRunning[i].pContext);
        m_aRunning.Clear();
        m_bDraining = false;
        return n;
    }

    void MainThreadQueue::Close()
    {
        ZemRenderer::TArray<Task> left;
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            m_bClosed = true;
            std::swap(left, m_aPending);
        }
        for (const Task& t : left)
            if (t.pfnDiscard) t.pfnDiscard(t.pContext);
    }

    bool MainThreadQueue::IsClosed() const
    {
        std::lock_guard<std::mutex> lock(m_kMutex);
        return m_bClosed;
    }

    unsigned int MainThreadQueue::GetPendingCount() const
    {
        std::lock_guard<std::mutex> lock(m_kMutex);
        return m_aPending.GetSize();
    }
}
