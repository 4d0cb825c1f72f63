#pragma once
// A typed pool over PoolMemory: the model says how blocks are aligned and how objects
// are built in them.
#include <new>
#include <utility>

#include "common/utils/pool/PoolGrowth.h"
#include "common/utils/pool/PoolMemory.h"

namespace Common::Mem
{
    namespace Alloc
    {
        // Blocks aligned for the type (and at least for a pointer).
        struct Aligned
        {
            template <class T>
            static constexpr size_t Alignment()
            {
                return alignof(T) > alignof(void*) ? alignof(T) : alignof(void*);
            }
        };
    }
    namespace Tructor
    {
        // Objects are built and destroyed in place.
        struct PlacementNew
        {
            template <class T, class... Args>
            static T* Construct(void* p, Args&&... args)
            {
                return new (p) T(std::forward<Args>(args)...);
            }
            template <class T>
            static void Destruct(T* p)
            {
                p->~T();
            }
        };
    }

    template <class AllocPolicy, class TructorPolicy>
    struct Model
    {
        typedef AllocPolicy Allocator;
        typedef TructorPolicy Tructor;
    };

    typedef Model<Alloc::Aligned, Tructor::PlacementNew> DefaultModel;
}

namespace Common
{
    template <class T, class Model = Mem::DefaultModel, class Growth = Pool::CPoolGrowthConstantN<16>>
    class CObjectPool
    {
    public:
        typedef T ValueType;

        explicit CObjectPool(Growth growth = Growth(), const char* file = __builtin_FILE(), int line = __builtin_LINE())
            : m_kMemory(static_cast<unsigned int>(sizeof(T)), Model::Allocator::template Alignment<T>(),
                        std::move(growth), file, line)
        {
        }
        CObjectPool(const CObjectPool&) = delete;
        CObjectPool& operator=(const CObjectPool&) = delete;

        // Null when memory runs out.
        template <class... Args>
        T* Allocate(Args&&... args)
        {
            void* p = m_kMemory.Allocate();
            return p ? Model::Tructor::template Construct<T>(p, std::forward<Args>(args)...) : nullptr;
        }

        void Release(T* object)
        {
            if (!object) return;
            // A pool with nothing out cannot own the object: report, and leave it alone.
            if (m_kMemory.GetUsedCount() == 0)
            {
                m_kMemory.Free(object);
                return;
            }
            Model::Tructor::Destruct(object);
            m_kMemory.Free(object);
        }

        // Objects still out are not destroyed; see PoolMemory::Clear.
        void Clear() { m_kMemory.Clear(); }

        unsigned int GetUsedCount() const { return m_kMemory.GetUsedCount(); }
        unsigned int GetBlockCount() const { return m_kMemory.GetBlockCount(); }
        const PoolMemory<Growth>& GetMemory() const { return m_kMemory; }

    private:
        PoolMemory<Growth> m_kMemory;
    };
}
