#pragma once
// Bases of every remote class. CClientRefCount counts the references a remote client
// holds; CInstanceManager<T> enters each object in the resolver under a per-class id,
// CSingletonManager<T> makes the object the one instance of its class.
//
// Objects of an instance class that are handed to clients must be made with MEM_NEW:
// the last client release frees them.
#include <atomic>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/core/commandmanager/PointerResolver.h"

namespace ZemEngine
{
    class CClientRefCount
    {
    public:
        CClientRefCount() = default;
        CClientRefCount(const CClientRefCount&) = delete;
        CClientRefCount& operator=(const CClientRefCount&) = delete;

        virtual void OnLastRelease() {}
        virtual ~CClientRefCount() = default;

        int AddRef() { return m_iRefCount.fetch_add(1, std::memory_order_relaxed) + 1; }

        // Returns the count left, read before the release takes effect: 0 on the last
        // one, after which the object may be gone. A release with no reference held is
        // reported and changes nothing, so a confused client can't free an object twice.
        int ReleaseRef()
        {
            int count = m_iRefCount.load(std::memory_order_relaxed);
            do
            {
                if (!ZEM_ASSERT(count > 0, "ReleaseRef without a client reference")) return 0;
            } while (!m_iRefCount.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel));
            const int left = count - 1;
            if (left == 0) OnLastRelease();
            return left;
        }

        int GetRefCount() const { return m_iRefCount.load(std::memory_order_relaxed); }

    protected:
        std::atomic<int> m_iRefCount{0};
    };

    template <class T>
    class CInstanceManager : public CClientRefCount
    {
    public:
        typedef T StubType;
        static constexpr bool kIsSingleton = false;

        CInstanceManager()
        {
            if (CPointerResolver* resolver = CPointerResolver::GetInstance())
                resolver->AddInstance(CPointerResolver::TypeID<T>(), static_cast<CInstanceManager*>(this));
        }
        ~CInstanceManager() override
        {
            if (CPointerResolver* resolver = CPointerResolver::PeekInstance())
                resolver->RemoveInstance(CPointerResolver::TypeID<T>(), static_cast<CInstanceManager*>(this));
        }

        void OnLastRelease() override
        {
            // The allocation starts at the most derived object, not at this base.
            void* block = dynamic_cast<void*>(this);
            this->~CInstanceManager();
            MEM_FREE(block);
        }

        // The object of `id`, or null after "Cannot retreive instance ptr".
        static T* GetInstance(unsigned int id)
        {
            CPointerResolver* resolver = CPointerResolver::GetInstance();
            void* object = resolver ? resolver->FindInstance(CPointerResolver::TypeID<T>(), id) : nullptr;
            if (!ZEM_ASSERT(object != nullptr, "Cannot retreive instance ptr (id %u)", id)) return nullptr;
            return static_cast<T*>(static_cast<CInstanceManager*>(object));
        }

        // The id of `object`, or CPointerResolver::kInvalidID if it is not entered.
        static unsigned int GetInstanceID(const T* object)
        {
            CPointerResolver* resolver = CPointerResolver::GetInstance();
            if (!resolver || !object) return CPointerResolver::kInvalidID;
            CInstanceManager* base = const_cast<CInstanceManager*>(static_cast<const CInstanceManager*>(object));
            return resolver->FindInstanceID(CPointerResolver::TypeID<T>(), base);
        }
    };

    template <class T>
    class CSingletonManager : public CClientRefCount
    {
    public:
        typedef T StubType;
        static constexpr bool kIsSingleton = true;

        // A later singleton of the same class replaces an earlier one.
        CSingletonManager()
        {
            if (CPointerResolver* resolver = CPointerResolver::GetInstance())
                resolver->SetSingleton(CPointerResolver::TypeID<T>(), static_cast<CSingletonManager*>(this));
        }
        ~CSingletonManager() override
        {
            if (CPointerResolver* resolver = CPointerResolver::PeekInstance())
                resolver->ClearSingleton(CPointerResolver::TypeID<T>(), static_cast<CSingletonManager*>(this));
        }

        // The singleton, or null.
        static T* GetInstance()
        {
            CPointerResolver* resolver = CPointerResolver::PeekInstance();
            void* object = resolver ? resolver->GetSingleton(CPointerResolver::TypeID<T>()) : nullptr;
            return object ? static_cast<T*>(static_cast<CSingletonManager*>(object)) : nullptr;
        }
    };
}
