#pragma once
// The registry of static pools: each lazily created pool registers the address of its
// static pointer, and ClearAll, at the end of the process, clears and deletes them all.
#include <atomic>

#include "common/system/memorymanager/MemoryManager.h"
#include "common/system/mutex/Mutex.h"
#include "common/utils/TArray.h"

namespace ZemRenderer
{
    class ClearPoolBase
    {
    public:
        virtual ~ClearPoolBase() = default;
        virtual void Clear() = 0;
    };

    // Pool is a SelfLocked<CObjectPool<...>> made with MEM_NEW.
    template <class Pool>
    class ClearPool : public ClearPoolBase
    {
    public:
        explicit ClearPool(Pool** ppPool) : m_ppPool(ppPool) {}

        void Clear() override
        {
            std::atomic_ref<Pool*> slot(*m_ppPool);
            Pool* pool = slot.load(std::memory_order_acquire);
            if (!pool) return;
            {
                auto lock = pool->Lock();
                lock->Clear();
            }
            slot.store(nullptr, std::memory_order_release);
            MEM_DELETE(pool);
        }

    private:
        Pool** m_ppPool;
    };

    class PoolStaticManager
    {
    public:
        // One per process; created on first use.
        static PoolStaticManager* GetInstance();

        PoolStaticManager() = default;
        ~PoolStaticManager();
        PoolStaticManager(const PoolStaticManager&) = delete;
        PoolStaticManager& operator=(const PoolStaticManager&) = delete;

        template <class Pool>
        void RegisterPool(Pool** ppPool)
        {
            Register(MEM_NEW(ClearPool<Pool>, ppPool));
        }
        void Register(ClearPoolBase* entry);

        // Clears every registered pool, then deletes the entries. A pool created later
        // registers again.
        void ClearAll();

        unsigned int GetCount() const;

    private:
        mutable Common::CMutex m_kMutex;
        TArray<ClearPoolBase*> m_aPools;
    };
}
