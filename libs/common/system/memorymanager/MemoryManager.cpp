// Provisional body over malloc so that the rest of Common builds; replaced by the
// real per-thread heaps.
#include "common/system/memorymanager/MemoryManager.h"

#include <cstdlib>
#include <cstring>

namespace Common::Mem
{
    namespace
    {
        CMemoryManager* g_pInstance = nullptr;
        struct Raw { void* raw; size_t size; };
    }
    CMemoryManager* CMemoryManager::GetInstance()
    {
        static CMemoryManager s_kDefault;
        if (!g_pInstance) g_pInstance = &s_kDefault;
        return g_pInstance;
    }
    void CMemoryManager::SetInstance(CMemoryManager* instance) { g_pInstance = instance; }
    void* CMemoryManager::Alloc(size_t size, const char* file, int line) { return AllocAligned(size, 16, file, line); }
    void* CMemoryManager::AllocAligned(size_t size, size_t alignment, const char*, int, HeapInfo*)
    {
        if (alignment < 16) alignment = 16;
        char* raw = static_cast<char*>(std::malloc(size + alignment + sizeof(Raw)));
        if (!raw) return nullptr;
        uintptr_t p = (reinterpret_cast<uintptr_t>(raw) + sizeof(Raw) + alignment - 1) & ~(uintptr_t)(alignment - 1);
        reinterpret_cast<Raw*>(p)[-1] = Raw{raw, size};
        return reinterpret_cast<void*>(p);
    }
    void* CMemoryManager::Realloc(void* ptr, size_t size, const char* file, int line, HeapInfo*)
    {
        void* n = Alloc(size, file, line);
        if (ptr && n) {
            size_t old = static_cast<Raw*>(ptr)[-1].size;
            std::memcpy(n, ptr, old < size ? old : size);
            Free(ptr);
        }
        return n;
    }
    int CMemoryManager::Free(void* ptr, HeapInfo*)
    {
        if (ptr) std::free(static_cast<Raw*>(ptr)[-1].raw);
        return 0;
    }
}
