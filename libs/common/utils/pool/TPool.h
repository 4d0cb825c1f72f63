#pragma once
// A locked pool that grows by fixed slabs of elements; released elements are reused
// before the last slab is carved further. Slabs live until the pool goes.
#include <cstdint>
#include <new>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/system/mutex/Mutex.h"
#include "common/utils/AllocSite.h"
#include "common/utils/TArray.h"

namespace ZemRenderer
{
    template <class T>
    class TPool
    {
        union Element
        {
            Element* pNext;
            alignas(T) unsigned char aStorage[sizeof(T)];
        };

    public:
        explicit TPool(unsigned int elementsPerSlab = 64, Common::AllocSite site = {})
            : m_uiSlabElements(elementsPerSlab), m_kSite(site)
        {
        }
        TPool(const TPool&) = delete;
        TPool& operator=(const TPool&) = delete;
        ~TPool()
        {
            for (Element* slab : m_aSlabs) Common::AllocSite::Free(slab);
        }

        // Null when memory runs out.
        template <class... Args>
        T* Allocate(Args&&... args)
        {
            m_kMutex.Lock();
            Element* e = m_pFreeList;
            if (e)
                m_pFreeList = e->pNext;
            else
            {
                if (m_uiSlabCount == 0 || m_uiNextFree >= m_uiSlabElements) Grow();
                if (m_uiSlabCount && m_uiNextFree < m_uiSlabElements) e = &m_aSlabs[m_uiSlabCount - 1][m_uiNextFree++];
            }
            if (e) ++m_uiUsed;
            m_kMutex.Unlock();
            return e ? new (e->aStorage) T(std::forward<Args>(args)...) : nullptr;
        }

        // False (and nothing done) for an element that isn't this pool's.
        bool Release(T* object)
        {
            if (!object) return true;
            m_kMutex.Lock();
            const bool owned = ZEM_ASSERT(m_uiSlabCount != 0, "NULL Pool") &&
                               ZEM_ASSERT(Owns(object), "Buffer alloc problem or overwritten");
            if (owned)
            {
                object->~T();
                Element* e = reinterpret_cast<Element*>(object);
                e->pNext = m_pFreeList;
                m_pFreeList = e;
                --m_uiUsed;
            }
            m_kMutex.Unlock();
            return owned;
        }

        // Adds one slab; false when memory runs out.
        bool Grow()
        {
            if (!ZEM_ASSERT(m_uiSlabElements != 0, "NULL Pool")) return false;
            Element* slab = static_cast<Element*>(
                m_kSite.Alloc(static_cast<size_t>(m_uiSlabElements) * sizeof(Element), alignof(Element)));
            if (!ZEM_ASSERT(slab != nullptr, "No memory left !")) return false;
            m_aSlabs.Add(slab, m_kSite);
            ++m_uiSlabCount;
            m_uiNextFree = 0;
            return true;
        }

        unsigned int GetUsedCount() const { return m_uiUsed; }
        unsigned int GetSlabCount() const { return m_uiSlabCount; }
        unsigned int GetSlabElements() const { return m_uiSlabElements; }

    private:
        bool Owns(const T* object) const
        {
            const uintptr_t p = reinterpret_cast<uintptr_t>(object);
            for (Element* slab : m_aSlabs)
            {
                const uintptr_t begin = reinterpret_cast<uintptr_t>(slab);
                if (p >= begin && p < begin + static_cast<uintptr_t>(m_uiSlabElements) * sizeof(Element))
                    return (p - begin) % sizeof(Element) == 0;
            }
            return false;
        }

        TArray<Element*> m_aSlabs;
        unsigned int m_uiSlabCount = 0;
        unsigned int m_uiNextFree = 0;
        unsigned int m_uiSlabElements;
        unsigned int m_uiUsed = 0;
        Element* m_pFreeList = nullptr;
        Common::AllocSite m_kSite;
        Common::CMutex m_kMutex;
    };
}
