#pragma once
// A ring of fixed capacity for one writer thread and one reader thread, without a lock.
// The counters run freely and may wrap; a slot is counter & (capacity - 1).
#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/utils/AllocSite.h"

namespace Common
{
    template <class T>
    class FixedLookasideDequeue
    {
    public:
        // A capacity that is not a power of two is raised to the next one.
        explicit FixedLookasideDequeue(uint32_t capacity, AllocSite site = {})
        {
            CheckAligned(&m_uHead);
            CheckAligned(&m_uTail);
            uint32_t c = 1;
            while (c < capacity && c < 0x80000000u) c <<= 1;
            ZEM_ASSERT(c == capacity, "Capacity %u is not a power of two; %u used", capacity, c);
            m_pElements = static_cast<T*>(site.Alloc(sizeof(T) * c, alignof(T)));
            if (!ZEM_ASSERT(m_pElements != nullptr, "FixedLookasideDequeue allocation failed")) return;
            for (uint32_t i = 0; i < c; ++i) new (m_pElements + i) T();
            m_uCapacity = c;
        }
        FixedLookasideDequeue(const FixedLookasideDequeue&) = delete;
        FixedLookasideDequeue& operator=(const FixedLookasideDequeue&) = delete;
        ~FixedLookasideDequeue()
        {
            for (uint32_t i = 0; i < m_uCapacity; ++i) m_pElements[i].~T();
            AllocSite::Free(m_pElements);
        }

        uint32_t GetCapacity() const { return m_uCapacity; }
        // Exact on either end's own thread; a snapshot on any other.
        uint32_t GetCount() const
        {
            return m_uHead.load(std::memory_order_acquire) - m_uTail.load(std::memory_order_acquire);
        }
        bool IsEmpty() const { return GetCount() == 0; }
        bool IsFull() const { return GetCount() >= m_uCapacity; }

        // Writer side. The slot to fill, or null when full; CommitWrite publishes it.
        T* PeekWrite()
        {
            const uint32_t head = m_uHead.load(std::memory_order_relaxed);
            if (head - m_uTail.load(std::memory_order_acquire) >= m_uCapacity) return nullptr;
            return &m_pElements[head & (m_uCapacity - 1)];
        }
        void CommitWrite() { m_uHead.store(m_uHead.load(std::memory_order_relaxed) + 1, std::memory_order_release); }
        bool Push(const T& value)
        {
            T* slot = PeekWrite();
            if (!slot) return false;
            *slot = value;
            CommitWrite();
            return true;
        }
        bool Push(T&& value)
        {
            T* slot = PeekWrite();
            if (!slot) return false;
            *slot = std::move(value);
            CommitWrite();
            return true;
        }

        // Reader side. The slot to read, or null when empty; CommitRead frees it.
        T* PeekRead()
        {
            const uint32_t tail = m_uTail.load(std::memory_order_relaxed);
            if (m_uHead.load(std::memory_order_acquire) == tail) return nullptr;
            return &m_pElements[tail & (m_uCapacity - 1)];
        }
        void CommitRead() { m_uTail.store(m_uTail.load(std::memory_order_relaxed) + 1, std::memory_order_release); }
        bool Pop(T& out)
        {
            T* slot = PeekRead();
            if (!slot) return false;
            out = std::move(*slot);
            CommitRead();
            return true;
        }

        // Both counters set to the same value; only while neither end is in use.
        void ResetCounters(uint32_t start)
        {
            m_uHead.store(start, std::memory_order_relaxed);
            m_uTail.store(start, std::memory_order_relaxed);
        }

    private:
        static void CheckAligned(const void* p)
        {
            const uintptr_t address = reinterpret_cast<uintptr_t>(p);
            ZEM_ASSERT((address & 0x03) == 0, "Counter at %p is not 32-bit aligned", p);
        }

        std::atomic<uint32_t> m_uHead{0};
        std::atomic<uint32_t> m_uTail{0};
        uint32_t m_uCapacity = 0;
        T* m_pElements = nullptr;
    };
}
