#pragma once
// A vector of fixed maximum size whose elements never move: positions map to slots
// through an index table, and a slot (so the element's address) stays until erased.
#include <cstdint>
#include <new>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/utils/AllocSite.h"

namespace Common
{
    template <class T>
    class VectorUnsized
    {
    public:
        struct Slot
        {
            T kValue;
            uint8_t bFree;
        };

        explicit VectorUnsized(uint32_t maxSize, AllocSite site = {}) : m_uMaxSize(maxSize)
        {
            // At least one slot exists, so that a bad Get always has a first slot to yield.
            const uint32_t slots = maxSize ? maxSize : 1;
            m_pIndices = static_cast<uint32_t*>(site.Alloc(sizeof(uint32_t) * slots, alignof(uint32_t)));
            m_pSlots = static_cast<Slot*>(site.Alloc(sizeof(Slot) * slots, alignof(Slot)));
            if (!ZEM_ASSERT(m_pIndices && m_pSlots, "VectorUnsized allocation failed"))
            {
                AllocSite::Free(m_pIndices);
                AllocSite::Free(m_pSlots);
                m_pIndices = nullptr;
                m_pSlots = nullptr;
                m_uMaxSize = 0;
                return;
            }
            for (uint32_t i = 0; i < slots; ++i)
            {
                new (&m_pSlots[i]) Slot{T(), 1};
                m_pIndices[i] = 0;
            }
            m_uSlotCount = slots;
        }
        VectorUnsized(const VectorUnsized&) = delete;
        VectorUnsized& operator=(const VectorUnsized&) = delete;
        ~VectorUnsized()
        {
            for (uint32_t i = 0; i < m_uSlotCount; ++i) m_pSlots[i].~Slot();
            AllocSite::Free(m_pIndices);
            AllocSite::Free(m_pSlots);
        }

        uint32_t GetSize() const { return m_uSize; }
        uint32_t GetMaxSize() const { return m_uMaxSize; }
        bool IsFull() const { return m_uSize >= m_uMaxSize; }

        T& Get(uint32_t position)
        {
            if (!ZEM_ASSERT(position < m_uMaxSize, "Position out of Max Range")) return m_pSlots[0].kValue;
            if (!ZEM_ASSERT(position < m_uSize, "Position out of Range")) return m_pSlots[0].kValue;
            return m_pSlots[m_pIndices[position]].kValue;
        }
        const T& Get(uint32_t position) const { return const_cast<VectorUnsized*>(this)->Get(position); }
        T& operator[](uint32_t position) { return Get(position); }
        const T& operator[](uint32_t position) const { return Get(position); }

        // False when nothing was inserted. A position behind the used range is refused.
        bool Insert(const T& value, uint32_t position)
        {
            if (!ZEM_ASSERT(position < m_uMaxSize, "Position out of Range")) return false;
            if (!ZEM_ASSERT(m_uSize < m_uMaxSize, "Cannot add more element")) return false;
            if (!ZEM_ASSERT(position <= m_uSize, "Position out of Range")) return false;
            uint32_t slot = 0;
            while (slot < m_uMaxSize && !m_pSlots[slot].bFree) ++slot;
            if (!ZEM_ASSERT(slot < m_uMaxSize, "No empty Slot found!")) return false;
            for (uint32_t i = m_uSize; i > position; --i) m_pIndices[i] = m_pIndices[i - 1];
            m_pIndices[position] = slot;
            m_pSlots[slot].kValue = value;
            m_pSlots[slot].bFree = 0;
            ++m_uSize;
            return true;
        }
        bool PushBack(const T& value)
        {
            if (!ZEM_ASSERT(m_uSize < m_uMaxSize, "Cannot add more element")) return false;
            return Insert(value, m_uSize);
        }

        // Returns a copy of the erased value (a default value when nothing was erased).
        T Erase(uint32_t position)
        {
            if (!ZEM_ASSERT(position < m_uMaxSize, "Position out of range")) return T();
            if (!ZEM_ASSERT(position < m_uSize, "Nothing to erase")) return T();
            Slot& slot = m_pSlots[m_pIndices[position]];
            T out(std::move(slot.kValue));
            slot.kValue = T();
            slot.bFree = 1;
            for (uint32_t i = position + 1; i < m_uSize; ++i) m_pIndices[i - 1] = m_pIndices[i];
            --m_uSize;
            return out;
        }

        void Clear()
        {
            while (m_uSize) Erase(m_uSize - 1);
        }

    private:
        uint32_t* m_pIndices = nullptr;
        Slot* m_pSlots = nullptr;
        uint32_t m_uSize = 0;
        uint32_t m_uMaxSize = 0;
        uint32_t m_uSlotCount = 0;
    };
}
