#pragma once
// The per-type static pool: created on first use as one heap SelfLocked<CObjectPool<T>>
// and registered with PoolStaticManager. Only the allocation itself takes the pool's
// lock; the first use is guarded so that two threads create one pool.
//
//   MyWorker* w = ZemRenderer::StaticPool<MyWorker>::Allocate();
//   ZemRenderer::StaticPool<MyWorker>::Release(w);
#include <atomic>
#include <utility>

#include "common/system/mutex/Mutex.h"
#include "common/utils/Lockable.h"
#include "common/utils/pool/ObjectPool.h"
#include "common/utils/pool/PoolStaticManager.h"

namespace ZemRenderer
{
    Common::CMutex& StaticPoolCreationMutex();

    template <class T, class Growth = Common::Pool::CPoolGrowthConstantN<16>>
    class StaticPool
    {
    public:
        typedef Common::CObjectPool<T, Common::Mem::DefaultModel, Growth> Pool;
        typedef Common::SelfLocked<Pool> LockedPool;

        // The static pointer that PoolStaticManager nulls when it clears the pool.
        static LockedPool*& GetPoolPointer()
        {
            static LockedPool* s_pPool = nullptr;
            return s_pPool;
        }

        // Creates and registers the pool on first use. Null only when memory runs out.
        static LockedPool* GetPool()
        {
            LockedPool*& slot = GetPoolPointer();
            LockedPool* pool = std::atomic_ref<LockedPool*>(slot).load(std::memory_order_acquire);
            if (pool) return pool;
            return CreatePool();
        }

        template <class... Args>
        static T* Allocate(Args&&... args)
        {
            LockedPool* pool = GetPool();
            if (!pool) return nullptr;
            return pool->Lock()->Allocate(std::forward<Args>(args)...);
        }

        static void Release(T* object)
        {
            if (!object) return;
            LockedPool* pool = std::atomic_ref<LockedPool*>(GetPoolPointer()).load(std::memory_order_acquire);
            if (!ZEM_ASSERT(pool != nullptr, "Object released after its pool was cleared")) return;
            pool->Lock()->Release(object);
        }

        static unsigned int GetUsedCount()
        {
            LockedPool* pool = std::atomic_ref<LockedPool*>(GetPoolPointer()).load(std::memory_order_acquire);
            return pool ? pool->Lock()->GetUsedCount() : 0;
        }

    private:
        static LockedPool* CreatePool()
        {
            Common::CMutex& mutex = StaticPoolCreationMutex();
            mutex.Lock();
            LockedPool*& slot = GetPoolPointer();
            std::atomic_ref<LockedPool*> ref(slot);
            LockedPool* pool = ref.load(std::memory_order_acquire);
            if (!pool)
            {
                pool = MEM_NEW(LockedPool);
                if (pool)
                {
                    ref.store(pool, std::memory_order_release);
                    PoolStaticManager::GetInstance()->RegisterPool(&slot);
                }
            }
            mutex.Unlock();
            return pool;
        }
    };
}
