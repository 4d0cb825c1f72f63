// RenderThread's operations on buffers and geometry: blocks to fill, and the workers that
// carry them and every change of a buffer or a geometry to the render thread.
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/buffer/BufferWorkers.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/geometry/Geometry.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    namespace
    {
        template <class W, class... Args>
        bool Post(RenderThread* thread, Args&&... args)
        {
            W* worker = W::New(std::forward<Args>(args)...);
            if (!worker) return false;
            return thread->AddWork(worker);
        }
    }

    BufferReference* RenderThread::CreateBufferReference(uint32_t size, uint32_t flags, InputLayout* layout)
    {
        BufferReference* reference = BufferReference::Create(size, flags, layout);
        if (reference) reference->AddRef();
        return reference;
    }

    Buffer* RenderThread::RetrieveBuffer(BufferReference* reference, uint32_t size, uint32_t offset, uint16_t sub1,
                                         uint16_t sub2)
    {
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !")) return nullptr;
        if (size == 0) size = reference->GetSize();
        if (!ZEM_ASSERT(static_cast<uint64_t>(offset) + size <= reference->GetSize(),
                        "RetrieveBuffer : %u bytes at %u past a buffer of %u bytes", size, offset, reference->GetSize()))
            return nullptr;
        return Buffer::Create(reference, size, offset, sub1, sub2);
    }

    namespace
    {
        BufferReference* StreamOf(Geometry* geometry, uint32_t stream)
        {
            if (!ZEM_ASSERT(geometry != nullptr, "Null geometry")) return nullptr;
            if (!ZEM_ASSERT(stream < geometry->GetNumBuffers(), "RetrieveBuffer : Invalid buffer index %u", stream))
                return nullptr;
            BufferReference* reference = geometry->GetStream(stream);
            if (!ZEM_ASSERT(reference != nullptr, "Null buffer at index %u", stream)) return nullptr;
            return reference;
        }

        Buffer* ElementBlock(RenderThread* thread, BufferReference* reference, uint32_t first, uint32_t count)
        {
            if (!reference) return nullptr;
            InputLayout* layout = reference->GetLayout();
            if (!ZEM_ASSERT(layout != nullptr && layout->GetStride() > 0, "Buffer has no layout")) return nullptr;
            const uint64_t stride = layout->GetStride();
            const uint64_t offset = first * stride;
            const uint64_t size = count * stride;
            if (!ZEM_ASSERT(offset + size <= reference->GetSize(), "RetrieveBuffer : elements %u to %u past the buffer",
                            first, first + count))
                return nullptr;
            return thread->RetrieveBuffer(reference, static_cast<uint32_t>(size), static_cast<uint32_t>(offset));
        }
    }

    Buffer* RenderThread::RetrieveBuffer(Geometry* geometry, uint32_t stream, uint32_t first, uint32_t count)
    {
        return ElementBlock(this, StreamOf(geometry, stream), first, count);
    }

    Buffer* RenderThread::RetrieveIndexBuffer(Geometry* geometry, uint32_t first, uint32_t count)
    {
        if (!ZEM_ASSERT(geometry != nullptr, "Null geometry")) return nullptr;
        BufferReference* index = geometry->GetIndexBuffer();
        if (!ZEM_ASSERT(index != nullptr, "Null buffer at index %u", Geometry::kMaxStreams)) return nullptr;
        return ElementBlock(this, index, first, count);
    }

    Buffer* RenderThread::RetrieveAndStoreBuffer(Geometry* geometry, uint32_t stream)
    {
        BufferReference* reference = StreamOf(geometry, stream);
        if (!reference) return nullptr;
        if (!ZEM_ASSERT(reference->GetLayout() != nullptr, "Buffer has no layout")) return nullptr;
        Buffer* stored = geometry->GetStoredBlock(stream);
        if (stored && stored->GetReference() == reference && stored->IsWhole()) return stored;
        stored = RetrieveBuffer(reference);
        if (stored)
        {
            std::memset(stored->GetData(), 0, stored->GetSize());
            stored->m_uiStoredStream = stream;
            stored->m_uiStoredCount = reference->GetElementCount();
        }
        geometry->SetStoredBlock(stream, stored);
        return stored;
    }

    void RenderThread::GiveBackBuffer(Buffer* block) { Buffer::Destroy(block); }

    bool RenderThread::AddUpdateBufferWork(Buffer* block, bool reload, bool copy, const QueryPtr& query, uint32_t usage,
                                           bool toRenderQueue)
    {
        if (!ZEM_ASSERT(block != nullptr, "Null buffer !")) return false;
        BufferReference* reference = block->GetReference();
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !"))
        {
            if (!copy) Buffer::Destroy(block);
            return false;
        }
        Buffer* sent = copy ? Buffer::Clone(*block) : block;
        if (!sent) return false;
        // Immutable data made here goes up at once, with the data at creation.
        Renderer* renderer = RendererUnchecked();
        if (!HasCpuWriteUsage(reference->GetFlags()) && !reference->IsAllocated() && renderer && IsInMyThread() &&
            renderer->GetBuffers().MayUpdateAtCall())
        {
            const bool done = renderer->UpdateBuffer(sent, reload, usage);
            if (query) query->SetState(done ? Query::eDone : Query::eCancelled);
            return done;
        }
        reference->AddRef();
        UpdateBufferWorker* worker = UpdateBufferWorker::New(this, sent, reload, usage, toRenderQueue);
        if (!worker)
        {
            Buffer::Destroy(sent);
            BufferWork::Release(this, reference);
            return false;
        }
        if (query)
        {
            worker->spQuery = query;
            query->SetState(Query::eQueued);
        }
        return AddWork(worker);
    }

    namespace
    {
        template <class W, class T, class... Args>
        bool PostCounted(RenderThread* thread, T* object, Args&&... args)
        {
            if (!ZEM_ASSERT(object != nullptr, "Pointer must be non null")) return false;
            object->AddRef();
            W* worker = W::New(thread, object, std::forward<Args>(args)...);
            if (!worker)
            {
                BufferWork::Release(thread, object);
                return false;
            }
            return thread->AddWork(worker);
        }
    }

    bool RenderThread::AddAllocateDeviceBufferWork(BufferReference* reference)
    {
        return PostCounted<AllocateDeviceBufferWorker>(this, reference);
    }

    bool RenderThread::AddClearBufferWork(BufferReference* reference, uint32_t value)
    {
        return PostCounted<ClearBufferWorker>(this, reference, value);
    }

    bool RenderThread::AddUpdateBufferStatusWork(BufferReference* reference, uint32_t status)
    {
        return PostCounted<UpdateBufferStatusWorker>(this, reference, status);
    }

    bool RenderThread::AddReplaceBuffersWork(Geometry* geometry, BufferReference* const* streams, uint32_t count)
    {
        if (!ZEM_ASSERT(geometry != nullptr, "Null geometry")) return false;
        if (geometry->GetNumBuffers() >= ReplaceBuffersWorker::kMaxStreams) return false;
        if (!ZEM_ASSERT(count <= ReplaceBuffersWorker::kMaxStreams && (count == 0 || streams), "Bad buffer index"))
            return false;
        return PostCounted<ReplaceBuffersWorker>(this, geometry, streams, count);
    }

    bool RenderThread::AddChangeGeometryCountWork(Geometry* geometry, uint32_t stream, uint32_t count)
    {
        return PostCounted<ChangeGeometryCountWorker>(this, geometry, stream, count);
    }

    bool RenderThread::AddReleaseBufferWork(BufferReference* buffer, uint32_t size, uint32_t stride, uint32_t flags)
    {
        if (!ZEM_ASSERT(buffer != nullptr, "Null buffer !")) return false;
        return Post<ReleaseBufferWorker>(this, buffer, size, stride, flags);
    }

    bool RenderThread::AddDeleteBufferWork(BufferReference* reference)
    {
        if (!ZEM_ASSERT(reference != nullptr, "Null buffer !")) return false;
        return Post<DeleteBufferWorker>(this, this, reference);
    }

    bool RenderThread::AddReleaseBufferReferenceHandleWork(BufferReference* reference)
    {
        return PostCounted<ReleaseBufferReferenceHandleWorker>(this, reference);
    }

    bool RenderThread::AddDeleteGeometryWork(Geometry* geometry)
    {
        if (!ZEM_ASSERT(geometry != nullptr, "Null geometry")) return false;
        return Post<DeleteGeometryWorker>(this, this, geometry);
    }

    bool RenderThread::AddDeleteDrawGeometryWork(DrawGeometry* draw)
    {
        if (!ZEM_ASSERT(draw != nullptr, "Pointer must be non null")) return false;
        return Post<DeleteDrawGeometryWorker>(this, this, draw);
    }

    bool RenderThread::AddUpdateDeviceWork(uint32_t a, uint32_t b) { return Post<UpdateDeviceWorker>(this, a, b); }

    bool RenderThread::AddRenderImmediateWork(Geometry* geometry, Property* property, uint32_t flags)
    {
        const bool added = PostCounted<RenderImmediateWorker>(this, geometry, property, flags);
        ZEM_ASSERT(m_bSceneOpened.load(std::memory_order_relaxed), "AddRenderImmediateWork : Scene not opened");
        return added;
    }

    bool RenderThread::AddRenderImmediateWork(DrawGeometry* draw, uint32_t flags)
    {
        if (!ZEM_ASSERT(draw != nullptr, "Pointer must be non null")) return false;
        return AddRenderImmediateWork(draw->GetGeometry(), draw->GetProperty(), flags);
    }
}
