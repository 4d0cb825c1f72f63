#pragma once
// Gives a worker class W its own static pool: New takes an object from it, and
// ReleaseToPool gives it back. The pool is a CObjectPool that grows by 16 objects, with
// its own lock, created on first use and registered with PoolStaticManager, which
// clears it with all the others when the render thread ends.
//
// Workers are made on one thread and released on another. So that the two never meet
// on the pool's lock, a released worker is destroyed at once and its block put on a
// lock-free list; a producer takes that whole list into a stash of its class, and the
// pool itself is asked for blocks (under its lock) only when both are dry.
#include <atomic>
#include <concepts>
#include <cstdint>
#include <new>
#include <thread>
#include <utility>

#include "common/system/mutex/Mutex.h"
#include "common/utils/Lockable.h"
#include "common/utils/pool/ObjectPool.h"
#include "common/utils/pool/PoolGrowth.h"
#include "common/utils/pool/PoolStaticManager.h"
#include "common/utils/pool/StaticPool.h"
#include "zemrenderer/thread/WorkerBase.h"

namespace ZemRenderer
{
    template <class W>
    class WorkerPool
    {
    public:
        typedef Common::CObjectPool<W, Common::Mem::DefaultModel, Common::Pool::CPoolGrowthConstantN<16>> Pool;
        typedef Common::SelfLocked<Pool> LockedPool;

        static LockedPool*& GetPoolPointer()
        {
            static LockedPool* s_pPool = nullptr;
            return s_pPool;
        }

        template <class... Args>
        static W* New(Args&&... args)
        {
            if (void* block = TakeRecycled())
                return Common::Mem::DefaultModel::Tructor::template Construct<W>(block, std::forward<Args>(args)...);
            LockedPool* pool = GetPool();
            if (!pool) return nullptr;
            return pool->Lock()->Allocate(std::forward<Args>(args)...);
        }

        // Any thread; takes no lock.
        static void Release(W* object)
        {
            static_assert(sizeof(W) >= sizeof(Block), "a worker block holds a link when idle");
            if (!object) return;
            object->~W();
            Block* block = reinterpret_cast<Block*>(static_cast<void*>(object));
            Block* head = Recycled().load(std::memory_order_relaxed);
            do
            {
                block->pNext = head;
            } while (!Recycled().compare_exchange_weak(head, block, std::memory_order_release,
                                                       std::memory_order_relaxed));
        }

        // Workers of this class, destroyed and given back with one exchange of the list.
        static void ReleaseMany(WorkerFields* const* workers, uint32_t count)
        {
            Block* first = nullptr;
            Block* last = nullptr;
            for (uint32_t i = 0; i < count; ++i)
            {
                W* object = static_cast<W*>(static_cast<WorkerBase<typename W::ContextType>*>(workers[i]));
                object->~W();
                Block* block = reinterpret_cast<Block*>(static_cast<void*>(object));
                block->pNext = first;
                if (!last) last = block;
                first = block;
            }
            if (!first) return;
            Block* head = Recycled().load(std::memory_order_relaxed);
            do
            {
                last->pNext = head;
            } while (!Recycled().compare_exchange_weak(head, first, std::memory_order_release,
                                                       std::memory_order_relaxed));
        }

        // Objects out of the pool and not given back.
        static unsigned int GetUsedCount()
        {
            LockedPool* pool = std::atomic_ref<LockedPool*>(GetPoolPointer()).load(std::memory_order_acquire);
            if (!pool) return 0;
            auto lock = pool->Lock();
            LockStash();
            const unsigned int idle = Length(Stash()) + Length(Recycled().load(std::memory_order_acquire));
            UnlockStash();
            return lock->GetUsedCount() - idle;
        }

    private:
        struct Block
        {
            Block* pNext;
        };

        static std::atomic<Block*>& Recycled()
        {
            static std::atomic<Block*> s_pRecycled{nullptr};
            return s_pRecycled;
        }
        // Blocks taken off the recycled list, under a lock of their own that producers
        // hold for a few instructions.
        static Block*& Stash()
        {
            static Block* s_pStash = nullptr;
            return s_pStash;
        }
        static std::atomic<bool>& StashLock()
        {
            static std::atomic<bool> s_bLocked{false};
            return s_bLocked;
        }
        static void LockStash()
        {
            while (StashLock().exchange(true, std::memory_order_acquire))
                while (StashLock().load(std::memory_order_relaxed)) std::this_thread::yield();
        }
        static void UnlockStash() { StashLock().store(false, std::memory_order_release); }

        static unsigned int Length(const Block* block)
        {
            unsigned int n = 0;
            for (; block; block = block->pNext) ++n;
            return n;
        }

        static void* TakeRecycled()
        {
            LockStash();
            Block*& stash = Stash();
            if (!stash) stash = Recycled().exchange(nullptr, std::memory_order_acquire);
            Block* block = stash;
            if (block) stash = block->pNext;
            UnlockStash();
            return block;
        }

        // Clears the pool when the render thread ends: recycled blocks go back to the pool
        // first, so that it sees them free.
        class Clearer : public ClearPoolBase
        {
        public:
            void Clear() override
            {
                std::atomic_ref<LockedPool*> slot(GetPoolPointer());
                LockedPool* pool = slot.load(std::memory_order_acquire);
                if (!pool) return;
                {
                    auto lock = pool->Lock();
                    while (void* block = TakeRecycled())
                    {
                        // The pool gives a block back by destroying an object in it.
                        static_assert(std::default_initializable<W>, "pooled workers are default constructible");
                        lock->Release(new (block) W());
                    }
                    lock->Clear();
                }
                slot.store(nullptr, std::memory_order_release);
                MEM_DELETE(pool);
            }
        };

        static LockedPool* GetPool()
        {
            LockedPool* pool = std::atomic_ref<LockedPool*>(GetPoolPointer()).load(std::memory_order_acquire);
            return pool ? pool : CreatePool();
        }

        static LockedPool* CreatePool()
        {
            Common::CMutex& mutex = StaticPoolCreationMutex();
            mutex.Lock();
            std::atomic_ref<LockedPool*> slot(GetPoolPointer());
            LockedPool* pool = slot.load(std::memory_order_acquire);
            if (!pool)
            {
                pool = MEM_NEW(LockedPool);
                Clearer* clearer = pool ? MEM_NEW(Clearer) : nullptr;
                if (clearer)
                {
                    slot.store(pool, std::memory_order_release);
                    PoolStaticManager::GetInstance()->Register(clearer);
                }
                else if (pool)
                {
                    MEM_DELETE(pool);
                    pool = nullptr;
                }
            }
            mutex.Unlock();
            return pool;
        }
    };

    template <class W, class Thread>
    class PooledWorker : public WorkerBase<Thread>
    {
    public:
        typedef WorkerPool<W> Pool;

        PooledWorker() { this->m_pfnReleaseMany = &Pool::ReleaseMany; }

        // Null only when memory runs out.
        template <class... Args>
        static W* New(Args&&... args)
        {
            return Pool::New(std::forward<Args>(args)...);
        }

        // Final: the render thread may give workers back through ReleaseMany instead.
        void ReleaseToPool() final { Pool::Release(static_cast<W*>(this)); }

        static typename Pool::LockedPool*& GetPoolPointer() { return Pool::GetPoolPointer(); }
        static unsigned int GetUsedCount() { return Pool::GetUsedCount(); }
    };
}
