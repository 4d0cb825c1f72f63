#pragma once
// The CPU record of something that lives in device memory: its usage flags, layout,
// sizes and the device's handle. Several holders count it; the last ReleaseRef on the
// render thread deletes the device object and the record.
#include <atomic>
#include <cstdint>

#include "zemrenderer/buffer/BufferFlags.h"
#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class Buffer;
    class InputLayout;
    class Renderer;
    class SerializationManager;
    class Serializer;

    class BufferReference
    {
    public:
        ZEM_SERIALIZABLE_CLASS("ZemRenderer::BufferReference")

        // Made through the memory manager with a count of 0: CreateBufferReference of the
        // render thread, or a file read, hands out the first count.
        static BufferReference* Create(uint32_t size, uint32_t flags, InputLayout* layout);
        // Frees the record; the device object must be gone already.
        static void Destroy(BufferReference* reference);

        BufferReference() = default;
        ~BufferReference();
        BufferReference(const BufferReference&) = delete;
        BufferReference& operator=(const BufferReference&) = delete;

        void AddRef() { m_refcount.fetch_add(1, std::memory_order_relaxed); }
        // Lowers the count; at 0 the renderer deletes the device object and the record.
        // Without a renderer (no device any more) the record alone goes. Returns the count.
        int ReleaseRef(Renderer* renderer);
        int GetRefCount() const { return m_refcount.load(std::memory_order_acquire); }

        uint32_t GetFlags() const { return m_flags; }
        InputLayout* GetLayout() const { return m_pLayout; }
        // Takes a count on the new layout and lets go of the old one.
        void SetLayout(InputLayout* layout);
        uint32_t GetSize() const { return m_size; }
        // What was set, or else the element count.
        uint32_t GetQuantity() const { return m_quantity ? m_quantity : GetElementCount(); }
        void SetQuantity(uint32_t quantity) { m_quantity = quantity; }
        // Elements in the buffer, by the layout's stride; the size in bytes without layout.
        uint32_t GetElementCount() const;

        BufferUsage GetUsage() const { return m_eUsage; }
        bool IsAllocated() const { return m_handle != 0; }
        uint64_t GetHandle() const { return m_handle; }
        uint32_t GetStreamStatus() const { return m_streamstatus.load(std::memory_order_acquire); }
        void SetStreamStatus(uint32_t status) { m_streamstatus.store(status, std::memory_order_release); }

        // What the device set when it made the object: its handle and, for storage the CPU
        // keeps mapped, the address of the mapping.
        void SetDeviceObject(uint64_t handle, void* mapped)
        {
            m_handle = handle;
            m_pMapped = mapped;
        }
        void* GetMapped() const { return m_pMapped; }
        uint32_t GetLockCount() const { return m_uiLockCount; }
        void SetLockCount(uint32_t count) { m_uiLockCount = count; }
        bool IsLocked() const { return m_bLocked; }
        void SetLocked(bool locked) { m_bLocked = locked; }

        // The block a lock of a not yet made immutable buffer writes into.
        Buffer* GetLockBlock() const { return m_pLockBlock; }
        void SetLockBlock(Buffer* block) { m_pLockBlock = block; }

        // The content kept on the CPU for a reload or a save, or null.
        Buffer* GetCpuCopy() const { return m_pCpuCopy; }
        // Takes the block; an earlier one is given back.
        void SetCpuCopy(Buffer* block);

        // Texture fields, kept for the texture side of the engine.
        uint16_t m_width = 0;
        uint16_t m_height = 0;
        uint16_t m_depth = 0;
        uint16_t m_mipcount = 0;
        uint32_t m_format = 0;

        // Flags, the layout, the texture fields and the size; then the content as bytes,
        // unless the reference is never serialized or the walk skips data. Read content
        // goes to the device through the reader's render thread.
        void Serialize(Serializer& serializer);
        void PostLoad(SerializationManager& manager);

    private:
        void Init(uint32_t size, uint32_t flags, InputLayout* layout);

        uint32_t m_flags = 0;
        InputLayout* m_pLayout = nullptr;
        uint32_t m_size = 0;
        uint32_t m_quantity = 0;
        uint64_t m_handle = 0;
        void* m_pMapped = nullptr;
        BufferUsage m_eUsage = BufferUsage::Immutable;
        bool m_bLocked = false;
        uint32_t m_uiLockCount = 0;
        std::atomic<int> m_refcount{0};
        std::atomic<uint32_t> m_streamstatus{BSS_EMPTY};
        Buffer* m_pCpuCopy = nullptr;
        Buffer* m_pLockBlock = nullptr;
        // The content read from a file, until PostLoad hands it on.
        Buffer* m_pReadBlock = nullptr;
    };
}
