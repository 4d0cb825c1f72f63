#pragma once
// A recycler of small objects (events): Create takes a kept one, Recycle gives it back,
// Fill tops the stock up to the wanted size. Not thread-safe.
#include "common/system/memorymanager/MemoryManager.h"
#include "common/utils/TArray.h"

namespace Common
{
    template <class T>
    class TSalvager
    {
    public:
        explicit TSalvager(unsigned int wantedSize = 0) : m_uiWantedSize(wantedSize) {}
        TSalvager(const TSalvager&) = delete;
        TSalvager& operator=(const TSalvager&) = delete;
        ~TSalvager()
        {
            for (T* p : m_aFree) MEM_DELETE(p);
        }

        T* Create()
        {
            if (!m_aFree.IsEmpty()) return m_aFree.RemoveLast();
            return MEM_NEW(T);
        }

        // Kept for reuse up to twice the wanted size; beyond that it is deleted.
        void Recycle(T* object)
        {
            if (!object) return;
            if (m_aFree.GetSize() >= 2 * m_uiWantedSize && m_aFree.GetSize() >= 16)
                MEM_DELETE(object);
            else
                m_aFree.Add(object);
        }

        void Fill()
        {
            while (m_aFree.GetSize() < m_uiWantedSize)
            {
                T* p = MEM_NEW(T);
                if (!p) return;
                m_aFree.Add(p);
            }
        }

        unsigned int GetFreeCount() const { return m_aFree.GetSize(); }
        unsigned int GetWantedSize() const { return m_uiWantedSize; }
        void SetWantedSize(unsigned int n) { m_uiWantedSize = n; }

    private:
        ZemRenderer::TArray<T*> m_aFree;
        unsigned int m_uiWantedSize;
    };
}
