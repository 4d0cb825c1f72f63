#pragma once
// Buffers of a device that has no memory of its own (the null device): each object is a
// block of CPU memory, so that everything above the backend runs and can be checked.
#include "zemrenderer/buffer/BufferBackend.h"

namespace ZemRenderer
{
    class MemoryBufferBackend : public BufferBackend
    {
    public:
        const char* GetName() const override { return "memory"; }
        bool IsOwnerThread() const override { return true; }
        bool Create(BufferReference& reference, const void* initial) override;
        void Destroy(BufferReference& reference) override;
        void* Map(BufferReference& reference, uint32_t offset, uint32_t size, BufferMapMode mode) override;
        void Unmap(BufferReference& reference) override;
        bool Write(BufferReference& reference, uint32_t offset, const void* data, uint32_t size) override;
        bool Read(BufferReference& reference, uint32_t offset, void* dest, uint32_t size) override;
    };
}
