#pragma once
// Every engine allocation goes through one CMemoryManager per process: per-thread
// heaps, a checked header and trailing guard on every block, and memory tags.
// The global operator new is left alone: on Linux it is shared by every library in
// the process, so engine objects are made with MEM_NEW / MEM_DELETE instead.
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace Common::Mem
{
    // Where an allocation was asked for; containers and pools carry one to the manager.
    struct Location
    {
        const char* file = nullptr;
        int line = 0;
        const char* function = nullptr;
    };

    struct HeapInfo;

    class CMemoryManager
    {
    public:
        static CMemoryManager* GetInstance();
        // A plugin adopts the host's manager before its first allocation.
        static void SetInstance(CMemoryManager* instance);

        void* Alloc(size_t size, const char* file, int line);
        void* AllocAligned(size_t size, size_t alignment, const char* file, int line, HeapInfo* heap = nullptr);
        void* Realloc(void* ptr, size_t size, const char* file, int line, HeapInfo* heap = nullptr);
        // Returns the error code (0 "No error", 3 "Invalid pointer", ...).
        int Free(void* ptr, HeapInfo* heap = nullptr);
    };

    template <class T, class... Args>
    T* New(const char* file, int line, Args&&... args)
    {
        void* p = CMemoryManager::GetInstance()->AllocAligned(sizeof(T), alignof(T) > 16 ? alignof(T) : 16, file, line);
        return p ? new (p) T(std::forward<Args>(args)...) : nullptr;
    }

    template <class T>
    void Delete(T* p)
    {
        if (!p) return;
        p->~T();
        CMemoryManager::GetInstance()->Free(const_cast<void*>(static_cast<const volatile void*>(p)));
    }
}

#define ZEM_LOCATION (::Common::Mem::Location{__FILE__, __LINE__, __func__})
#define MEM_ALLOC(size) (::Common::Mem::CMemoryManager::GetInstance()->Alloc((size), __FILE__, __LINE__))
#define MEM_FREE(ptr) (::Common::Mem::CMemoryManager::GetInstance()->Free(ptr))
#define MEM_NEW(T, ...) (::Common::Mem::New<T>(__FILE__, __LINE__ __VA_OPT__(, ) __VA_ARGS__))
#define MEM_DELETE(ptr) (::Common::Mem::Delete(ptr))
