#pragma once
// The device half of buffers: the few calls that make, fill, map, read and delete a
// device object. Everything that decides when to call them (usage rules, locks, the
// update road, recycling) sits above in BufferDevice and works the same on any backend.
#include <cstdint>

namespace ZemRenderer
{
    class BufferReference;

    // Map codes as the engine passes them.
    enum BufferMapMode : uint32_t
    {
        eMapRead = 1,
        eMapWrite = 2,
        eMapReadWrite = 3,
        eMapWriteDiscard = 4,
        eMapWriteNoOverwrite = 5,
    };

    class BufferBackend
    {
    public:
        virtual ~BufferBackend() = default;
        virtual const char* GetName() const = 0;
        // Only the thread that owns the device may call the rest.
        virtual bool IsOwnerThread() const = 0;

        // Makes the object of the reference's size and usage, with `initial` as its content
        // when given; sets the reference's handle. False leaves the reference without one.
        virtual bool Create(BufferReference& reference, const void* initial) = 0;
        virtual void Destroy(BufferReference& reference) = 0;
        // An address for `size` bytes at `offset`; null when the map failed.
        virtual void* Map(BufferReference& reference, uint32_t offset, uint32_t size, BufferMapMode mode) = 0;
        virtual void Unmap(BufferReference& reference) = 0;
        // Through the device, for storage the CPU does not map.
        virtual bool Write(BufferReference& reference, uint32_t offset, const void* data, uint32_t size) = 0;
        // Waits for what the device still does with it, then copies out.
        virtual bool Read(BufferReference& reference, uint32_t offset, void* dest, uint32_t size) = 0;
    };
}
