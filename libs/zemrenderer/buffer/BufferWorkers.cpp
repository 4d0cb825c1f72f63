#include "zemrenderer/buffer/BufferWorkers.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/geometry/Geometry.h"

namespace ZemRenderer
{
    namespace BufferWork
    {
        namespace
        {
            Renderer* Own(RenderThread* thread) { return thread && thread->IsInMyThread() ? thread->GetRenderer() : nullptr; }

            // The last count of an object with device state ends on the render thread: off it,
            // a delete worker takes the count over.
            template <class T, class Add>
            void Drop(RenderThread* thread, T* object, bool mayQueue, Add add)
            {
                if (!object) return;
                if (Renderer* renderer = Own(thread))
                {
                    object->Release(renderer);
                    return;
                }
                if (object->GetRefCount() > 1 || !thread || !mayQueue || !add(thread, object)) object->Release(nullptr);
            }
        }

        void Release(RenderThread* thread, BufferReference* reference, bool mayQueue)
        {
            if (!reference) return;
            if (Renderer* renderer = Own(thread))
            {
                reference->ReleaseRef(renderer);
                return;
            }
            if (reference->GetRefCount() > 1 || !thread || !mayQueue || !thread->AddDeleteBufferWork(reference))
                reference->ReleaseRef(nullptr);
        }

        void Release(RenderThread* thread, Geometry* geometry, bool mayQueue)
        {
            Drop(thread, geometry, mayQueue, [](RenderThread* t, Geometry* g) { return t->AddDeleteGeometryWork(g); });
        }

        void Release(RenderThread* thread, DrawGeometry* draw, bool mayQueue)
        {
            Drop(thread, draw, mayQueue, [](RenderThread* t, DrawGeometry* d) { return t->AddDeleteDrawGeometryWork(d); });
        }
    }

    bool UpdateBufferWorker::DoWork(Renderer* renderer)
    {
        Buffer* block = std::exchange(m_pBlock, nullptr);
        BufferReference* reference = block ? block->GetReference() : nullptr;
        renderer->UpdateBuffer(block, m_bReload, m_uUsage);
        if (reference) reference->ReleaseRef(renderer);
        return true;
    }

    void UpdateBufferWorker::OnCancel()
    {
        Buffer* block = std::exchange(m_pBlock, nullptr);
        BufferReference* reference = block ? block->GetReference() : nullptr;
        Buffer::Destroy(block);
        BufferWork::Release(m_pThread, reference);
    }

    bool AllocateDeviceBufferWorker::DoWork(Renderer* renderer)
    {
        renderer->AllocateDeviceBuffer(m_pReference);
        std::exchange(m_pReference, nullptr)->ReleaseRef(renderer);
        return true;
    }

    bool ClearBufferWorker::DoWork(Renderer* renderer)
    {
        BufferReference* reference = std::exchange(m_pReference, nullptr);
        const uint32_t size = reference->GetSize();
        if (Buffer* block = Buffer::Create(reference, size, 0))
        {
            uint32_t* words = static_cast<uint32_t*>(block->GetData());
            for (uint32_t i = 0; i < size / 4; ++i) words[i] = m_uValue;
            std::memcpy(static_cast<unsigned char*>(block->GetData()) + (size & ~3u), &m_uValue, size & 3u);
            renderer->UpdateBuffer(block, false, eMapWriteDiscard);
        }
        reference->ReleaseRef(renderer);
        return true;
    }

    bool UpdateBufferStatusWorker::DoWork(Renderer* renderer)
    {
        m_pReference->SetStreamStatus(m_uStatus);
        std::exchange(m_pReference, nullptr)->ReleaseRef(renderer);
        return true;
    }

    bool DeleteBufferWorker::DoWork(Renderer* renderer)
    {
        std::exchange(m_pReference, nullptr)->ReleaseRef(renderer);
        return true;
    }

    bool ReleaseBufferReferenceHandleWorker::DoWork(Renderer* renderer)
    {
        renderer->GetBuffers().ReleaseHandle(m_pReference);
        std::exchange(m_pReference, nullptr)->ReleaseRef(renderer);
        return true;
    }

    bool ReleaseBufferWorker::DoWork(Renderer* renderer)
    {
        renderer->GetBuffers().GetManager().Release(m_pBuffer, m_uSize, m_uStride, m_uFlags);
        return true;
    }

    ReplaceBuffersWorker::ReplaceBuffersWorker(RenderThread* thread, Geometry* geometry, BufferReference* const* streams,
                                               uint32_t count)
        : GeometryWorker(thread, geometry), m_uCount(count < kMaxStreams ? count : kMaxStreams)
    {
        for (uint32_t i = 0; i < m_uCount; ++i) m_apStreams[i] = streams[i];
    }

    bool ReplaceBuffersWorker::DoWork(Renderer* renderer)
    {
        BufferReference* old[Geometry::kMaxStreams] = {};
        uint32_t oldCount = 0;
        m_pGeometry->ReplaceStreams(m_apStreams, m_uCount, old, oldCount);
        m_uCount = 0;
        for (uint32_t i = 0; i < oldCount; ++i)
            if (old[i]) old[i]->ReleaseRef(renderer);
        std::exchange(m_pGeometry, nullptr)->Release(renderer);
        return true;
    }

    void ReplaceBuffersWorker::OnCancel()
    {
        for (uint32_t i = 0; i < m_uCount; ++i) BufferWork::Release(m_pThread, m_apStreams[i]);
        m_uCount = 0;
        GeometryWorker::OnCancel();
    }

    bool ChangeGeometryCountWorker::DoWork(Renderer* renderer)
    {
        // A stream beyond the geometry's leaves it as it is.
        m_pGeometry->ChangeCount(m_uStream, m_uCount);
        std::exchange(m_pGeometry, nullptr)->Release(renderer);
        return true;
    }

    bool DeleteGeometryWorker::DoWork(Renderer* renderer)
    {
        std::exchange(m_pGeometry, nullptr)->Release(renderer);
        return true;
    }

    bool RenderImmediateWorker::DoWork(Renderer* renderer)
    {
        renderer->RenderImmediate(m_pGeometry, m_pProperty, m_uFlags);
        std::exchange(m_pGeometry, nullptr)->Release(renderer);
        return true;
    }

    bool DeleteDrawGeometryWorker::DoWork(Renderer* renderer)
    {
        std::exchange(m_pDraw, nullptr)->Release(renderer);
        return true;
    }

    bool UpdateDeviceWorker::DoWork(Renderer* renderer)
    {
        // Nothing here restores a lost device: a device that could would say so.
        if (!renderer->CanReset())
            Common::Log("UpdateDeviceWorker : the device can't be reset (%u, %u)\n", m_uA, m_uB);
        return true;
    }
}
