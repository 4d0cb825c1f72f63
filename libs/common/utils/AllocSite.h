#pragma once
// The caller's source location, handed by every allocating container operation to the
// memory manager. It defaults to the call site, so `a.Add(x)` is charged to the line
// that called Add, not to this library.
#include "common/system/memorymanager/MemoryManager.h"

namespace Common
{
    struct AllocSite
    {
        // Keeps a text argument of a container call from converting into a site.
        struct CallSite
        {
        };

        Mem::Location kLocation;

        // The builtins rather than std::source_location: clang with libstdc++ 12 (the
        // fuzz build) has no std::source_location, and both compilers have these.
        AllocSite(CallSite = {}, const char* file = __builtin_FILE(), int line = __builtin_LINE(),
                  const char* function = __builtin_FUNCTION())
            : kLocation{file, line, function}
        {
        }
        explicit AllocSite(const Mem::Location& location) : kLocation(location) {}

        void* Alloc(size_t bytes, size_t alignment) const
        {
            if (alignment < 16) alignment = 16;
            return Mem::CMemoryManager::GetInstance()->AllocAligned(bytes, alignment, kLocation.file,
                                                                   kLocation.line);
        }
        static void Free(void* p)
        {
            if (p) Mem::CMemoryManager::GetInstance()->Free(p);
        }
    };
}
