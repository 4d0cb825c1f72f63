#include "zemrenderer/device/Renderer.h"

#include "common/system/debug/Log.h"

namespace ZemRenderer
{
    const char* GetDeviceOpName(DeviceOp op)
    {
        static const char* const s_aszNames[] = {
#define ZEM_DEVICE_OP_NAME(name) #name,
            ZEM_DEVICE_OPS(ZEM_DEVICE_OP_NAME)
#undef ZEM_DEVICE_OP_NAME
        };
        const unsigned index = static_cast<unsigned>(op);
        return index < static_cast<unsigned>(DeviceOp::Count) ? s_aszNames[index] : "Unknown";
    }

    bool Renderer::RegisterProcessingThread(int threadId)
    {
        // Registration happens once, at the render thread's start, from one thread.
        const int count = m_iProcessingThreadCount.load(std::memory_order_relaxed);
        if (!ZEM_ASSERT(count < NumThreadPool, "Too much processing thread")) return false;
        m_aiProcessingThreads[count].store(threadId, std::memory_order_relaxed);
        m_iProcessingThreadCount.store(count + 1, std::memory_order_release);
        return true;
    }

    int Renderer::GetProcessingThreadSlot(int threadId) const
    {
        const int count = m_iProcessingThreadCount.load(std::memory_order_acquire);
        for (int i = 0; i < count; ++i)
            if (m_aiProcessingThreads[i].load(std::memory_order_relaxed) == threadId) return i;
        return -1;
    }
}
