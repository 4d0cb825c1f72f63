#pragma once
// A bounded first-in first-out ring of non-null pointers. Push and pop are serialised by
// the queue's mutex; an empty queue is seen without taking it. A full queue refuses.
#include <atomic>
#include <cstdint>
#include <mutex>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/thread/WakeSignal.h"

namespace ZemRenderer
{
    template <class T>
    class FlowQueue
    {
    public:
        // capacity: a power of two. signal: shared by queues that one consumer waits on
        // together; the queue's own one otherwise.
        explicit FlowQueue(uint32_t capacity, WakeSignal* signal = nullptr)
            : m_pSignal(signal ? signal : &m_kOwnSignal)
        {
            if (!ZEM_ASSERT(capacity != 0 && (capacity & (capacity - 1)) == 0,
                            "FlowQueue capacity must be a power of two (%u)", capacity))
            {
                uint32_t rounded = 1;
                while (rounded < capacity && rounded < 0x80000000u) rounded <<= 1;
                capacity = rounded;
            }
            m_apSlots = static_cast<T**>(Common::Mem::CMemoryManager::GetInstance()->AllocAligned(
                sizeof(T*) * capacity, 64, __FILE__, __LINE__));
            m_uCapacity = m_apSlots ? capacity : 0;
        }
        ~FlowQueue()
        {
            if (m_apSlots) Common::Mem::CMemoryManager::GetInstance()->Free(m_apSlots);
        }
        FlowQueue(const FlowQueue&) = delete;
        FlowQueue& operator=(const FlowQueue&) = delete;

        // False, and nothing changes, if the queue is full or the pointer null.
        bool Push(T* item)
        {
            if (!ZEM_ASSERT(item != nullptr, "Pointer must be non null")) return false;
            {
                std::lock_guard<std::mutex> lock(m_kMutex);
                const uint32_t write = m_uWrite.load(std::memory_order_relaxed);
                if (write - m_uRead.load(std::memory_order_relaxed) >= m_uCapacity) return false;
                m_apSlots[write & (m_uCapacity - 1)] = item;
                m_uWrite.store(write + 1, std::memory_order_release);
            }
            m_pSignal->Notify();
            return true;
        }

        // Null if empty.
        T* Pop()
        {
            if (m_uWrite.load(std::memory_order_acquire) == m_uRead.load(std::memory_order_relaxed)) return nullptr;
            std::lock_guard<std::mutex> lock(m_kMutex);
            const uint32_t read = m_uRead.load(std::memory_order_relaxed);
            if (m_uWrite.load(std::memory_order_relaxed) == read) return nullptr;
            T* item = m_apSlots[read & (m_uCapacity - 1)];
            m_uRead.store(read + 1, std::memory_order_relaxed);
            return item;
        }

        // Exact under the mutex, so that a sleeper's last test can't miss a push.
        uint32_t GetCount() const
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            return m_uWrite.load(std::memory_order_relaxed) - m_uRead.load(std::memory_order_relaxed);
        }
        uint32_t GetCapacity() const { return m_uCapacity; }

        // Sleeps until something was pushed, or alsoReady() holds, or `ms` pass.
        template <class Ready>
        void WaitNotEmpty(Ready alsoReady, unsigned int ms)
        {
            m_pSignal->Wait([&] { return GetCount() != 0 || alsoReady(); }, ms);
        }
        void WaitNotEmpty(unsigned int ms = 0xFFFFFFFFu)
        {
            WaitNotEmpty([] { return false; }, ms);
        }
        // Wakes every sleeper, e.g. to let it see a stop flag.
        void WakeAll() { m_pSignal->Notify(true); }

    private:
        std::atomic<uint32_t> m_uWrite{0};
        std::atomic<uint32_t> m_uRead{0};
        uint32_t m_uCapacity = 0;
        T** m_apSlots = nullptr;
        mutable std::mutex m_kMutex;
        WakeSignal m_kOwnSignal;
        WakeSignal* m_pSignal;
    };
}
