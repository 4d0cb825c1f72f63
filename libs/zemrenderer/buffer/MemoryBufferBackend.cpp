#include "zemrenderer/buffer/MemoryBufferBackend.h"

#include <cstring>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/buffer/BufferReference.h"

namespace ZemRenderer
{
    namespace
    {
        unsigned char* Bytes(const BufferReference& reference)
        {
            return reinterpret_cast<unsigned char*>(static_cast<uintptr_t>(reference.GetHandle()));
        }
        bool InRange(const BufferReference& reference, uint32_t offset, uint32_t size)
        {
            return reference.IsAllocated() && static_cast<uint64_t>(offset) + size <= reference.GetSize();
        }
    }

    bool MemoryBufferBackend::Create(BufferReference& reference, const void* initial)
    {
        const uint32_t size = reference.GetSize();
        void* memory = Common::Mem::CMemoryManager::GetInstance()->AllocAligned(size ? size : 1, 16, __FILE__, __LINE__);
        if (!memory) return false;
        if (initial && size)
            std::memcpy(memory, initial, size);
        else
            std::memset(memory, 0, size ? size : 1);
        reference.SetDeviceObject(reinterpret_cast<uintptr_t>(memory), nullptr);
        return true;
    }

    void MemoryBufferBackend::Destroy(BufferReference& reference)
    {
        if (reference.IsAllocated()) MEM_FREE(Bytes(reference));
        reference.SetDeviceObject(0, nullptr);
    }

    void* MemoryBufferBackend::Map(BufferReference& reference, uint32_t offset, uint32_t size, BufferMapMode)
    {
        return InRange(reference, offset, size) ? Bytes(reference) + offset : nullptr;
    }

    void MemoryBufferBackend::Unmap(BufferReference&) {}

    bool MemoryBufferBackend::Write(BufferReference& reference, uint32_t offset, const void* data, uint32_t size)
    {
        if (!InRange(reference, offset, size)) return false;
        if (size) std::memcpy(Bytes(reference) + offset, data, size);
        return true;
    }

    bool MemoryBufferBackend::Read(BufferReference& reference, uint32_t offset, void* dest, uint32_t size)
    {
        if (!InRange(reference, offset, size)) return false;
        if (size) std::memcpy(dest, Bytes(reference) + offset, size);
        return true;
    }
}
