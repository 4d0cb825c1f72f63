#pragma once
// What a renderer does with buffers on the render thread: allocation, locks, the update
// of a block, deletion and read-back. The rules live here and the device calls in a
// BufferBackend, so that any device (the null one included) follows the same rules.
//
// Every operation belongs to the render thread; on another thread it is refused with a
// report and changes nothing, so a buffer is never half made.
#include <atomic>
#include <cstdint>

#include "zemrenderer/buffer/BufferBackend.h"
#include "zemrenderer/buffer/BufferManager.h"
#include "zemrenderer/buffer/MemoryBufferBackend.h"

namespace ZemRenderer
{
    class Buffer;
    class BufferReference;
    class Renderer;

    class BufferDevice
    {
    public:
        explicit BufferDevice(Renderer* owner = nullptr);
        ~BufferDevice();
        BufferDevice(const BufferDevice&) = delete;
        BufferDevice& operator=(const BufferDevice&) = delete;

        // The device's backend; null goes back to buffers in CPU memory. Only while no
        // device object exists.
        void SetBackend(BufferBackend* backend);
        BufferBackend& GetBackend() { return *m_pBackend; }

        // True on the thread that may call the device: the render thread once one drives
        // the renderer, and always the backend's own thread.
        bool IsDeviceThread() const;

        // Makes the device object. An immutable buffer waits for its data: it is made by
        // the first update or at the end of its one lock.
        bool AllocateDeviceBuffer(BufferReference* reference);
        // An address to the whole buffer for writing (or reading, for staging copies); null
        // with a report for misuse. `mode` is a BufferMapMode.
        void* LockBuffer(BufferReference* reference, uint16_t sub1 = 0, uint16_t sub2 = 0,
                         uint32_t mode = eMapWriteDiscard);
        void UnlockBuffer(BufferReference* reference);
        // The device object and the record.
        void DeleteBuffer(BufferReference* reference);
        // The device object only; the record stays, not allocated.
        void ReleaseHandle(BufferReference* reference);
        // Puts a block's data into its reference's object, making it first if needed, and
        // gives the block back (with `reload`, the reference keeps it as its CPU copy).
        bool UpdateBuffer(Buffer* block, bool reload = false, uint32_t mode = eMapWriteDiscard);
        // Copies out of the device object; waits for the device.
        bool ReadBuffer(BufferReference* reference, uint32_t offset, void* dest, uint32_t size);

        // May a caller on this thread update without a worker (immutable data at creation)?
        bool MayUpdateAtCall() const { return IsDeviceThread(); }

        BufferManager& GetManager() { return m_kManager; }
        // For the manager: a new buffer with one count, made on the device.
        BufferReference* CreateManagedBuffer(uint32_t size, uint32_t stride, uint32_t flags);
        // Device objects alive.
        int GetLiveCount() const { return m_iLive.load(std::memory_order_relaxed); }

    private:
        bool CheckThread(const char* operation) const;
        bool CheckCreation(BufferReference& reference) const;
        bool CreateObject(BufferReference& reference, const void* initial);
        bool WriteRange(BufferReference& reference, uint32_t offset, const void* data, uint32_t size, uint32_t mode);

        Renderer* m_pOwner;
        MemoryBufferBackend m_kMemoryBackend;
        BufferBackend* m_pBackend;
        BufferManager m_kManager;
        std::atomic<int> m_iLive{0};
    };
}
