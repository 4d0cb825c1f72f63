#pragma once
// A bounded first-in first-out ring of non-null pointers, safe for any number of
// producers and consumers. Each cell carries a sequence number: a producer claims the
// next cell by advancing the write counter, fills it, then publishes it; a consumer
// takes a published cell the same way. No lock is taken, so a producer never waits on
// the consumer. A full queue refuses.
#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>

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
            if (!ZEM_ASSERT(capacity >= 2 && capacity <= 0x40000000u && (capacity & (capacity - 1)) == 0,
                            "FlowQueue capacity must be a power of two (%u)", capacity))
            {
                uint32_t rounded = 2;
                while (rounded < capacity && rounded < 0x40000000u) rounded <<= 1;
                capacity = rounded;
            }
            m_aCells = static_cast<Cell*>(Common::Mem::CMemoryManager::GetInstance()->AllocAligned(
                sizeof(Cell) * capacity, 64, __FILE__, __LINE__));
            if (!m_aCells) return;
            // All zero is the empty ring: see Sequence.
            std::memset(static_cast<void*>(m_aCells), 0, sizeof(Cell) * capacity);
            m_uCapacity = capacity;
        }
        ~FlowQueue()
        {
            if (m_aCells) Common::Mem::CMemoryManager::GetInstance()->Free(m_aCells);
        }
        FlowQueue(const FlowQueue&) = delete;
        FlowQueue& operator=(const FlowQueue&) = delete;

        static constexpr uint32_t kNoTicket = 0xFFFFFFFFu;

        // False, and nothing changes, if the queue is full or the pointer null.
        bool Push(T* item)
        {
            if (!ZEM_ASSERT(item != nullptr, "Pointer must be non null")) return false;
            const uint32_t ticket = Claim();
            if (ticket == kNoTicket) return false;
            Publish(ticket, item);
            return true;
        }

        // A push in two steps, for a caller that decides after it holds its place: Claim
        // takes the next cell (kNoTicket if full); Publish fills it, or Abandon leaves it
        // empty for consumers to step over. Claim is a full barrier.
        uint32_t Claim()
        {
            if (!m_uCapacity) return kNoTicket;
            uint32_t position = m_uWrite.load(std::memory_order_relaxed);
            for (;;)
            {
                const uint32_t index = position & (m_uCapacity - 1);
                const int32_t lag = static_cast<int32_t>(LoadSequence(index, std::memory_order_acquire) - position);
                if (lag == 0)
                {
                    if (m_uWrite.compare_exchange_weak(position, position + 1, std::memory_order_seq_cst,
                                                       std::memory_order_relaxed))
                        return position;
                }
                else if (lag < 0)
                {
                    return kNoTicket;
                }
                else
                {
                    position = m_uWrite.load(std::memory_order_relaxed);
                }
            }
        }
        void Publish(uint32_t ticket, T* item)
        {
            const uint32_t index = ticket & (m_uCapacity - 1);
            m_aCells[index].pItem = item;
            // Published before a sleeping consumer is looked for: see WakeSignal.
            StoreSequence(index, ticket + 1, std::memory_order_seq_cst);
            m_pSignal->Notify();
        }
        void Abandon(uint32_t ticket)
        {
            const uint32_t index = ticket & (m_uCapacity - 1);
            m_aCells[index].pItem = nullptr;
            StoreSequence(index, ticket + 1, std::memory_order_seq_cst);
        }

        // Blocks until every cell claimed so far is published or abandoned. For the last
        // consumer, before its final drain.
        void WaitForClaims()
        {
            const uint32_t end = m_uWrite.load(std::memory_order_seq_cst);
            for (uint32_t position = m_uRead.load(std::memory_order_acquire); position != end; ++position)
            {
                const uint32_t index = position & (m_uCapacity - 1);
                while (static_cast<int32_t>(LoadSequence(index, std::memory_order_acquire) - (position + 1)) < 0)
                    std::this_thread::yield();
            }
        }

        // Null if nothing is published yet.
        T* Pop()
        {
            T* item = nullptr;
            return PopBatch(&item, 1) ? item : nullptr;
        }

        // Takes up to `max` in order; 0 if none. Abandoned cells are stepped over.
        uint32_t PopBatch(T** out, uint32_t max)
        {
            if (!m_uCapacity || !max) return 0;
            uint32_t taken = 0;
            while (taken < max)
            {
                uint32_t position = m_uRead.load(std::memory_order_relaxed);
                uint32_t count = 0;
                for (;;)
                {
                    count = 0;
                    while (count < max - taken)
                    {
                        const uint32_t index = (position + count) & (m_uCapacity - 1);
                        if (LoadSequence(index, std::memory_order_acquire) != position + count + 1) break;
                        ++count;
                    }
                    if (!count) return taken;
                    if (m_uRead.compare_exchange_weak(position, position + count, std::memory_order_relaxed)) break;
                }
                for (uint32_t i = 0; i < count; ++i)
                {
                    const uint32_t index = (position + i) & (m_uCapacity - 1);
                    if (T* item = m_aCells[index].pItem) out[taken++] = item;
                    StoreSequence(index, position + i + m_uCapacity, std::memory_order_release);
                }
            }
            return taken;
        }

        // What was pushed and not yet popped; exact once producers and consumers rest.
        uint32_t GetCount() const
        {
            return m_uWrite.load(std::memory_order_acquire) - m_uRead.load(std::memory_order_acquire);
        }
        uint32_t GetCapacity() const { return m_uCapacity; }
        // True if the next cell is published: Pop would return something.
        bool HasPublished() const
        {
            if (!m_uCapacity) return false;
            const uint32_t position = m_uRead.load(std::memory_order_seq_cst);
            return LoadSequence(position & (m_uCapacity - 1), std::memory_order_seq_cst) == position + 1;
        }

        // Sleeps until something was published, or alsoReady() holds, or `ms` pass.
        template <class Ready>
        void WaitNotEmpty(Ready alsoReady, unsigned int ms)
        {
            m_pSignal->Wait([&] { return HasPublished() || alsoReady(); }, ms);
        }
        void WaitNotEmpty(unsigned int ms = 0xFFFFFFFFu)
        {
            WaitNotEmpty([] { return false; }, ms);
        }
        // Wakes every sleeper, e.g. to let it see a stop flag.
        void WakeAll() { m_pSignal->Notify(true); }

    private:
        // A cell's sequence is the position it waits for: its index when the ring is new,
        // the position + 1 once published, the position + capacity once taken. It is kept
        // less the index, so that a ring of zeros is a new one.
        struct Cell
        {
            uint32_t uSequence;
            T* pItem;
        };
        uint32_t LoadSequence(uint32_t index, std::memory_order order) const
        {
            return std::atomic_ref<uint32_t>(m_aCells[index].uSequence).load(order) + index;
        }
        void StoreSequence(uint32_t index, uint32_t sequence, std::memory_order order)
        {
            std::atomic_ref<uint32_t>(m_aCells[index].uSequence).store(sequence - index, order);
        }

        // Producers and consumers each keep their counter on a line of their own.
        alignas(64) std::atomic<uint32_t> m_uWrite{0};
        alignas(64) std::atomic<uint32_t> m_uRead{0};
        alignas(64) Cell* m_aCells = nullptr;
        uint32_t m_uCapacity = 0;
        WakeSignal* m_pSignal;
        WakeSignal m_kOwnSignal;
    };
}
