#pragma once
// Gives a worker class W its own static pool: New takes an object from it, and
// ReleaseToPool gives it back. The pool grows by 16 objects, has its own lock (workers
// are made on one thread and released on another) and is cleared with all others when
// the render thread ends.
#include <utility>

#include "common/utils/pool/StaticPool.h"
#include "zemrenderer/thread/WorkerBase.h"

namespace ZemRenderer
{
    template <class W, class Thread>
    class PooledWorker : public WorkerBase<Thread>
    {
    public:
        typedef StaticPool<W, Common::Pool::CPoolGrowthConstantN<16>> Pool;

        // Null only when memory runs out.
        template <class... Args>
        static W* New(Args&&... args)
        {
            return Pool::Allocate(std::forward<Args>(args)...);
        }

        void ReleaseToPool() override { Pool::Release(static_cast<W*>(this)); }

        static typename Pool::LockedPool*& GetPoolPointer() { return Pool::GetPoolPointer(); }
        static unsigned int GetUsedCount() { return Pool::GetUsedCount(); }
    };
}
