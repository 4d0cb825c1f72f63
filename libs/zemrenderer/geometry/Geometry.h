#pragma once
// Buffer references grouped into the vertex streams and index list of one drawable
// shape. A geometry holds a count on each of its references; it is itself counted by
// the draw geometries over it and goes, with its references, on the render thread.
#include <atomic>
#include <cstdint>

#include "common/utils/pool/TPool.h"
#include "zemrenderer/geometry/GeometryInit.h"
#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class Buffer;
    class BufferReference;
    class Renderer;
    class SerializationManager;
    class Serializer;

    class Geometry
    {
    public:
        ZEM_SERIALIZABLE_CLASS("ZemRenderer::Geometry")
        static constexpr uint32_t kMaxStreams = 8;
        // Draw geometries over one geometry that can be batched together.
        static constexpr uint32_t kMaxInstances = 32;

        Geometry() = default;
        ~Geometry();
        Geometry(const Geometry&) = delete;
        Geometry& operator=(const Geometry&) = delete;

        // Once: "Geometry already initialized" for a second time, "Unknown topology".
        bool Init(const GeometryInit& init);
        bool IsInitialized() const { return m_uTopology != eTopologyUnknown; }

        // Stream `index` takes a count on `reference`. "Bad buffer index", "Null buffer !",
        // "Stream already defined".
        bool SetStream(uint32_t index, BufferReference* reference);
        bool SetIndexBuffer(BufferReference* reference);
        // Swaps in new streams (each counted by the caller) and hands back the old ones,
        // which the caller lets go of. Streams past `count` are cleared.
        void ReplaceStreams(BufferReference* const* streams, uint32_t count, BufferReference** old, uint32_t& oldCount);

        uint32_t GetTopology() const { return m_uTopology; }
        uint32_t GetNumBuffers() const { return m_numbuffers; }
        BufferReference* GetStream(uint32_t index) const { return index < kMaxStreams ? m_pDatas[index] : nullptr; }
        BufferReference* GetIndexBuffer() const { return m_pIndex; }
        bool IsIndexed() const { return m_pIndex != nullptr || m_bIndexed; }
        uint32_t GetVertexCount() const { return m_uVertexCount; }
        uint32_t GetIndexCount() const { return m_uIndexCount; }
        // Stream numbers below GetNumBuffers set the vertex count, GetNumBuffers the index
        // count; any other does nothing. False then.
        bool ChangeCount(uint32_t stream, uint32_t count);

        // The blocks kept by RetrieveAndStoreBuffer, one per stream and one for the index.
        Buffer* GetStoredBlock(uint32_t slot) const { return slot <= kMaxStreams ? m_apStored[slot] : nullptr; }
        void SetStoredBlock(uint32_t slot, Buffer* block);

        // The device's own object for it (a vertex array), set by the device.
        uint64_t GetHandle() const { return m_handle; }
        void SetHandle(uint64_t handle) { m_handle = handle; }

        // A number for one more draw geometry over this geometry: bits 0 to 4 of its id.
        // Past 32 draws it reports and gives 31.
        uint32_t TakeInstance();
        uint32_t GetInstanceCount() const { return m_uInstances.load(std::memory_order_relaxed); }
        // Bits 5 and up of the ids of its draw geometries, taken on first use.
        uint32_t GetDrawNumber();

        void AddRef() { m_iRefCount.fetch_add(1, std::memory_order_relaxed); }
        // At 0, on the render thread: lets go of the references and the device's object,
        // then frees itself. Returns the count.
        int Release(Renderer* renderer);
        int GetRefCount() const { return m_iRefCount.load(std::memory_order_acquire); }
        // The bucket pool it came from, if any; it goes back there.
        void SetPool(TPool<Geometry>* pool) { m_pPool = pool; }

        void Serialize(Serializer& serializer);
        void PostLoad(SerializationManager& manager);

    private:
        void Destroy(Renderer* renderer);

        uint32_t m_uTopology = eTopologyUnknown;
        uint64_t m_handle = 0;
        uint32_t m_numbuffers = 0;
        BufferReference* m_pDatas[kMaxStreams] = {};
        BufferReference* m_pIndex = nullptr;
        Buffer* m_apStored[kMaxStreams + 1] = {};
        uint32_t m_uVertexCount = 0;
        uint32_t m_uIndexCount = 0;
        bool m_bIndexed = false;
        std::atomic<uint32_t> m_uInstances{0};
        std::atomic<uint32_t> m_uDrawNumber{0};
        std::atomic<int> m_iRefCount{0};
        TPool<Geometry>* m_pPool = nullptr;
    };
}
