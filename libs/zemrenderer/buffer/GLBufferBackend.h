#pragma once
// Buffers as OpenGL 4.5 buffer objects. Made on, and used only by, the thread whose
// context is current when the backend is made: the render thread.
//
// Storage by usage: immutable data is given at creation and never changes (no storage
// flags); default buffers are written through the device (glNamedBufferSubData); dynamic
// ones are mapped for writing, the old content invalidated as a write-discard does;
// staging copies stay mapped for reading and writing for their whole life (persistent,
// coherent), a read waiting on a fence for what the device still does.
#include "zemrenderer/buffer/BufferBackend.h"

namespace ZemRenderer
{
    class GLBufferBackend : public BufferBackend
    {
    public:
        // On the thread with the context current.
        GLBufferBackend();

        const char* GetName() const override { return "OpenGL"; }
        bool IsOwnerThread() const override;
        bool Create(BufferReference& reference, const void* initial) override;
        void Destroy(BufferReference& reference) override;
        void* Map(BufferReference& reference, uint32_t offset, uint32_t size, BufferMapMode mode) override;
        void Unmap(BufferReference& reference) override;
        bool Write(BufferReference& reference, uint32_t offset, const void* data, uint32_t size) override;
        bool Read(BufferReference& reference, uint32_t offset, void* dest, uint32_t size) override;

        // The GL name of a reference's object, 0 if it has none.
        static uint32_t GetName(const BufferReference& reference);
        // Storage flags of glNamedBufferStorage for a usage; exposed for tests.
        static uint32_t StorageFlagsOf(uint8_t usage);

    private:
        int m_iOwnerThread;
    };
}
