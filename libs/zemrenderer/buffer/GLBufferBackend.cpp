#include "zemrenderer/buffer/GLBufferBackend.h"

#include <epoxy/gl.h>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/thread/ThreadId.h"

namespace ZemRenderer
{
    namespace
    {
        constexpr GLbitfield kPersistentMap = GL_MAP_READ_BIT | GL_MAP_WRITE_BIT | GL_MAP_PERSISTENT_BIT | GL_MAP_COHERENT_BIT;
        constexpr uint64_t kFenceTimeoutNs = 5'000'000'000ull;

        bool InRange(const BufferReference& reference, uint32_t offset, uint32_t size)
        {
            return reference.IsAllocated() &&
                   static_cast<uint64_t>(offset) + size <= DeviceSizeOf(reference.GetSize(), reference.GetFlags());
        }

        // Everything the device was given before has been done.
        void WaitForDevice()
        {
            GLsync fence = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
            if (!fence) return;
            glClientWaitSync(fence, GL_SYNC_FLUSH_COMMANDS_BIT, kFenceTimeoutNs);
            glDeleteSync(fence);
        }
    }

    GLBufferBackend::GLBufferBackend() : m_iOwnerThread(CurrentThreadId()) {}

    bool GLBufferBackend::IsOwnerThread() const { return CurrentThreadId() == m_iOwnerThread; }

    uint32_t GLBufferBackend::GetName(const BufferReference& reference)
    {
        return static_cast<uint32_t>(reference.GetHandle());
    }

    uint32_t GLBufferBackend::StorageFlagsOf(uint8_t usage)
    {
        switch (static_cast<BufferUsage>(usage))
        {
        case BufferUsage::Immutable: return 0;
        case BufferUsage::Default: return GL_DYNAMIC_STORAGE_BIT;
        case BufferUsage::Dynamic: return GL_DYNAMIC_STORAGE_BIT | GL_MAP_WRITE_BIT;
        case BufferUsage::Staging: return GL_DYNAMIC_STORAGE_BIT | GL_CLIENT_STORAGE_BIT | kPersistentMap;
        case BufferUsage::CpuMemory: break;
        }
        return 0;
    }

    bool GLBufferBackend::Create(BufferReference& reference, const void* initial)
    {
        const uint32_t size = DeviceSizeOf(reference.GetSize(), reference.GetFlags());
        if (size == 0 || reference.GetUsage() == BufferUsage::CpuMemory) return false;
        const GLbitfield storage = StorageFlagsOf(static_cast<uint8_t>(reference.GetUsage()));
        GLuint name = 0;
        glCreateBuffers(1, &name);
        if (!name) return false;
        // A constant buffer rounded up gets its data without reading past the caller's block.
        const bool padded = initial && size != reference.GetSize();
        glNamedBufferStorage(name, size, padded ? nullptr : initial, storage | (padded ? GL_DYNAMIC_STORAGE_BIT : 0));
        if (padded) glNamedBufferSubData(name, 0, reference.GetSize(), initial);
        void* mapped = nullptr;
        if (storage & GL_MAP_PERSISTENT_BIT) mapped = glMapNamedBufferRange(name, 0, size, kPersistentMap);
        const GLenum error = glGetError();
        if (error != GL_NO_ERROR || ((storage & GL_MAP_PERSISTENT_BIT) && !mapped))
        {
            Common::Log("glNamedBufferStorage of %u bytes failed : GL error 0x%X\n", size, error);
            glDeleteBuffers(1, &name);
            return false;
        }
        reference.SetDeviceObject(name, mapped);
        return true;
    }

    void GLBufferBackend::Destroy(BufferReference& reference)
    {
        GLuint name = GetName(reference);
        if (name)
        {
            if (reference.GetMapped()) glUnmapNamedBuffer(name);
            glDeleteBuffers(1, &name);
        }
        reference.SetDeviceObject(0, nullptr);
    }

    void* GLBufferBackend::Map(BufferReference& reference, uint32_t offset, uint32_t size, BufferMapMode mode)
    {
        if (!InRange(reference, offset, size) || size == 0) return nullptr;
        if (void* mapped = reference.GetMapped())
        {
            // A persistent copy: reading waits until the device has written it.
            if (mode == eMapRead || mode == eMapReadWrite) WaitForDevice();
            return static_cast<unsigned char*>(mapped) + offset;
        }
        GLbitfield access = GL_MAP_WRITE_BIT;
        if (mode == eMapWriteDiscard)
            access |= (offset == 0 && size == reference.GetSize()) ? GL_MAP_INVALIDATE_BUFFER_BIT
                                                                   : GL_MAP_INVALIDATE_RANGE_BIT;
        else if (mode == eMapWriteNoOverwrite)
            access |= GL_MAP_UNSYNCHRONIZED_BIT;
        return glMapNamedBufferRange(GetName(reference), offset, size, access);
    }

    void GLBufferBackend::Unmap(BufferReference& reference)
    {
        if (reference.GetMapped() || !reference.IsAllocated()) return;
        glUnmapNamedBuffer(GetName(reference));
    }

    bool GLBufferBackend::Write(BufferReference& reference, uint32_t offset, const void* data, uint32_t size)
    {
        if (!InRange(reference, offset, size)) return false;
        if (reference.GetUsage() == BufferUsage::Immutable) return false;
        if (size) glNamedBufferSubData(GetName(reference), offset, size, data);
        return true;
    }

    bool GLBufferBackend::Read(BufferReference& reference, uint32_t offset, void* dest, uint32_t size)
    {
        if (!InRange(reference, offset, size)) return false;
        if (size) glGetNamedBufferSubData(GetName(reference), offset, size, dest);
        return true;
    }
}
