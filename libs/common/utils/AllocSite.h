#pragma once
// The caller's source location, handed by every allocating container operation to the
// memory manager. It defaults to the call site, so `a.Add(x)` is charged to the line
// that called Add, not to this library.
#include <source_location>

#include "common/system/memorymanager/MemoryManager.h"

namespace Common
{
    struct AllocSite
    {
        Mem::Location kLocation;

        AllocSite(std::source_location s = std::source_location::current())
            : kLocation{s.file_name(), static_cast<int>(s.line()), s.function_name()}
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
