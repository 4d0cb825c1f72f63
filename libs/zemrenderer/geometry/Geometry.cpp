#include "zemrenderer/geometry/Geometry.h"

#include <utility>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/serialization/Serializer.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    Geometry::~Geometry()
    {
        for (Buffer*& block : m_apStored)
        {
            Buffer::Destroy(block);
            block = nullptr;
        }
    }

    bool Geometry::Init(const GeometryInit& init)
    {
        if (!ZEM_ASSERT(!IsInitialized(), "Geometry already initialized")) return false;
        if (!GeometryInit::IsKnownTopology(init.uTopology)) return false;
        m_uTopology = init.uTopology;
        m_uVertexCount = init.uVertexCount;
        m_uIndexCount = init.uIndexCount;
        m_bIndexed = init.bIndexed;
        return true;
    }

    bool Geometry::SetStream(uint32_t index, BufferReference* reference)
    {
        if (!ZEM_ASSERT(index < kMaxStreams, "Bad buffer index")) return false;
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !")) return false;
        if (!ZEM_ASSERT(m_pDatas[index] == nullptr, "Stream already defined")) return false;
        reference->AddRef();
        m_pDatas[index] = reference;
        if (index >= m_numbuffers) m_numbuffers = index + 1;
        return true;
    }

    bool Geometry::SetIndexBuffer(BufferReference* reference)
    {
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !")) return false;
        if (!ZEM_ASSERT(m_pIndex == nullptr, "Stream already defined")) return false;
        reference->AddRef();
        m_pIndex = reference;
        m_bIndexed = true;
        return true;
    }

    void Geometry::ReplaceStreams(BufferReference* const* streams, uint32_t count, BufferReference** old,
                                  uint32_t& oldCount)
    {
        oldCount = m_numbuffers;
        for (uint32_t i = 0; i < kMaxStreams; ++i)
        {
            if (i < oldCount) old[i] = m_pDatas[i];
            m_pDatas[i] = i < count ? streams[i] : nullptr;
        }
        m_numbuffers = count < kMaxStreams ? count : kMaxStreams;
    }

    bool Geometry::ChangeCount(uint32_t stream, uint32_t count)
    {
        if (stream < m_numbuffers)
            m_uVertexCount = count;
        else if (stream == m_numbuffers)
            m_uIndexCount = count;
        else
            return false;
        return true;
    }

    void Geometry::SetStoredBlock(uint32_t slot, Buffer* block)
    {
        if (!ZEM_ASSERT(slot <= kMaxStreams, "Bad buffer index")) return;
        if (m_apStored[slot] != block) Buffer::Destroy(m_apStored[slot]);
        m_apStored[slot] = block;
    }

    uint32_t Geometry::TakeInstance()
    {
        const uint32_t instance = m_uInstances.fetch_add(1, std::memory_order_relaxed);
        if (!ZEM_ASSERT(instance < kMaxInstances, "Batch render can only render 32 differents instances of the same Geometry"))
            return kMaxInstances - 1;
        return instance;
    }

    uint32_t Geometry::GetDrawNumber()
    {
        uint32_t number = m_uDrawNumber.load(std::memory_order_acquire);
        if (number) return number;
        const uint32_t fresh = RenderThread::GetNewDrawGeometryID();
        // Two first draws at once keep the one number that won.
        return m_uDrawNumber.compare_exchange_strong(number, fresh, std::memory_order_acq_rel) ? fresh : number;
    }

    int Geometry::Release(Renderer* renderer)
    {
        const int count = m_iRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (count > 0) return count;
        if (!ZEM_ASSERT(count == 0, "Too much Geometry Release"))
        {
            m_iRefCount.store(0);
            return 0;
        }
        Destroy(renderer);
        return 0;
    }

    void Geometry::Destroy(Renderer* renderer)
    {
        for (BufferReference*& stream : m_pDatas)
            if (BufferReference* r = std::exchange(stream, nullptr)) r->ReleaseRef(renderer);
        if (BufferReference* r = std::exchange(m_pIndex, nullptr)) r->ReleaseRef(renderer);
        if (renderer) renderer->ReleaseGeometry(this);
        if (TPool<Geometry>* pool = m_pPool)
            pool->Release(this);
        else
            MEM_DELETE(this);
    }

    void Geometry::Serialize(Serializer& s)
    {
        SerializationManager& m = s.GetManager();
        s.Serialize(m_uTopology);
        s.Serialize(m_uVertexCount);
        s.Serialize(m_uIndexCount);
        s.Serialize(m_bIndexed);
        uint32_t count = m_numbuffers;
        m.MoveRaw(&count, sizeof(count));
        if (m.HasFailed()) return;
        if (s.IsLoading())
        {
            if (count > kMaxStreams) return m.Fail("Geometry of %u streams in Zemora Engine File!", count);
            if (!GeometryInit::IsKnownTopology(m_uTopology)) return m.Fail("Unknown topology in Zemora Engine File!");
            m_numbuffers = count;
        }
        for (uint32_t i = 0; i < count && !m.HasFailed(); ++i) s.SerializePointer(m_pDatas[i]);
        s.SerializePointer(m_pIndex);
    }

    void Geometry::PostLoad(SerializationManager&)
    {
        // Each pointer the file gave counts, even to a reference another geometry shares.
        for (uint32_t i = 0; i < m_numbuffers; ++i)
            if (m_pDatas[i]) m_pDatas[i]->AddRef();
        if (m_pIndex) m_pIndex->AddRef();
    }
}
