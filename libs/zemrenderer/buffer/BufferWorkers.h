#pragma once
// The workers behind the buffer and geometry operations of the render thread. A worker
// that names a counted object holds one count from the call to its DoWork (or OnCancel).
#include <cstdint>
#include <utility>

#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    class Buffer;
    class BufferReference;
    class DrawGeometry;
    class Geometry;

    namespace BufferWork
    {
        // The renderer when called on the render thread; a count dropped elsewhere that
        // would end an object goes to the release queue instead.
        // `mayQueue` is false for the delete workers themselves.
        void Release(RenderThread* thread, BufferReference* reference, bool mayQueue = true);
        void Release(RenderThread* thread, Geometry* geometry, bool mayQueue = true);
        void Release(RenderThread* thread, DrawGeometry* draw, bool mayQueue = true);
    }

    // Base of the workers that hold one count on a buffer reference.
    template <class W>
    class BufferRefWorker : public PooledWorker<W, Renderer>
    {
    public:
        BufferRefWorker() = default;
        BufferRefWorker(RenderThread* thread, BufferReference* reference) : m_pThread(thread), m_pReference(reference) {}
        void OnCancel() override { BufferWork::Release(m_pThread, std::exchange(m_pReference, nullptr)); }
        void* GetTarget() const override { return m_pReference; }

    protected:
        RenderThread* m_pThread = nullptr;
        BufferReference* m_pReference = nullptr;
    };

    class UpdateBufferWorker : public PooledWorker<UpdateBufferWorker, Renderer>
    {
    public:
        UpdateBufferWorker() = default;
        UpdateBufferWorker(RenderThread* thread, Buffer* block, bool reload, uint32_t usage, bool toRenderQueue)
            : m_pThread(thread), m_pBlock(block), m_bReload(reload), m_uUsage(usage), m_bRenderQueue(toRenderQueue)
        {
        }
        unsigned int GetQueue() const override { return m_bRenderQueue ? eRenderQueue : eUpdateQueue; }
        bool DoWork(Renderer* renderer) override;
        void OnCancel() override;

    private:
        RenderThread* m_pThread = nullptr;
        Buffer* m_pBlock = nullptr;
        bool m_bReload = false;
        uint32_t m_uUsage = 0;
        bool m_bRenderQueue = false;
    };

    class AllocateDeviceBufferWorker : public BufferRefWorker<AllocateDeviceBufferWorker>
    {
    public:
        using BufferRefWorker::BufferRefWorker;
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override;
    };

    class ClearBufferWorker : public BufferRefWorker<ClearBufferWorker>
    {
    public:
        ClearBufferWorker() = default;
        ClearBufferWorker(RenderThread* thread, BufferReference* reference, uint32_t value)
            : BufferRefWorker(thread, reference), m_uValue(value)
        {
        }
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        uint32_t m_uValue = 0;
    };

    class UpdateBufferStatusWorker : public BufferRefWorker<UpdateBufferStatusWorker>
    {
    public:
        UpdateBufferStatusWorker() = default;
        UpdateBufferStatusWorker(RenderThread* thread, BufferReference* reference, uint32_t status)
            : BufferRefWorker(thread, reference), m_uStatus(status)
        {
        }
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        uint32_t m_uStatus = 0;
    };

    // Takes over the caller's count: the last one deletes the buffer.
    class DeleteBufferWorker : public BufferRefWorker<DeleteBufferWorker>
    {
    public:
        using BufferRefWorker::BufferRefWorker;
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer* renderer) override;
        void OnCancel() override { BufferWork::Release(m_pThread, std::exchange(m_pReference, nullptr), false); }
    };

    class ReleaseBufferReferenceHandleWorker : public BufferRefWorker<ReleaseBufferReferenceHandleWorker>
    {
    public:
        using BufferRefWorker::BufferRefWorker;
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer* renderer) override;
    };

    // Back to the BufferManager; the manager holds the buffer, so no count moves.
    class ReleaseBufferWorker : public PooledWorker<ReleaseBufferWorker, Renderer>
    {
    public:
        ReleaseBufferWorker() = default;
        ReleaseBufferWorker(BufferReference* buffer, uint32_t size, uint32_t stride, uint32_t flags)
            : m_pBuffer(buffer), m_uSize(size), m_uStride(stride), m_uFlags(flags)
        {
        }
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        BufferReference* m_pBuffer = nullptr;
        uint32_t m_uSize = 0;
        uint32_t m_uStride = 0;
        uint32_t m_uFlags = 0;
    };

    // Base of the workers that hold one count on a geometry.
    template <class W>
    class GeometryWorker : public PooledWorker<W, Renderer>
    {
    public:
        GeometryWorker() = default;
        GeometryWorker(RenderThread* thread, Geometry* geometry) : m_pThread(thread), m_pGeometry(geometry) {}
        void OnCancel() override { BufferWork::Release(m_pThread, std::exchange(m_pGeometry, nullptr)); }
        void* GetTarget() const override { return m_pGeometry; }

    protected:
        RenderThread* m_pThread = nullptr;
        Geometry* m_pGeometry = nullptr;
    };

    class ReplaceBuffersWorker : public GeometryWorker<ReplaceBuffersWorker>
    {
    public:
        static constexpr uint32_t kMaxStreams = 4;
        ReplaceBuffersWorker() = default;
        ReplaceBuffersWorker(RenderThread* thread, Geometry* geometry, BufferReference* const* streams, uint32_t count);
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override;
        void OnCancel() override;

    private:
        BufferReference* m_apStreams[kMaxStreams] = {};
        uint32_t m_uCount = 0;
    };

    class ChangeGeometryCountWorker : public GeometryWorker<ChangeGeometryCountWorker>
    {
    public:
        ChangeGeometryCountWorker() = default;
        ChangeGeometryCountWorker(RenderThread* thread, Geometry* geometry, uint32_t stream, uint32_t count)
            : GeometryWorker(thread, geometry), m_uStream(stream), m_uCount(count)
        {
        }
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        uint32_t m_uStream = 0;
        uint32_t m_uCount = 0;
    };

    // Takes over the caller's count.
    class DeleteGeometryWorker : public GeometryWorker<DeleteGeometryWorker>
    {
    public:
        using GeometryWorker::GeometryWorker;
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer* renderer) override;
        void OnCancel() override { BufferWork::Release(m_pThread, std::exchange(m_pGeometry, nullptr), false); }
    };

    class RenderImmediateWorker : public GeometryWorker<RenderImmediateWorker>
    {
    public:
        RenderImmediateWorker() = default;
        RenderImmediateWorker(RenderThread* thread, Geometry* geometry, Property* property, uint32_t flags)
            : GeometryWorker(thread, geometry), m_pProperty(property), m_uFlags(flags)
        {
        }
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        Property* m_pProperty = nullptr;
        uint32_t m_uFlags = 0;
    };

    // Takes over the caller's count.
    class DeleteDrawGeometryWorker : public PooledWorker<DeleteDrawGeometryWorker, Renderer>
    {
    public:
        DeleteDrawGeometryWorker() = default;
        DeleteDrawGeometryWorker(RenderThread* thread, DrawGeometry* draw) : m_pThread(thread), m_pDraw(draw) {}
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer* renderer) override;
        void OnCancel() override { BufferWork::Release(m_pThread, std::exchange(m_pDraw, nullptr), false); }
        void* GetTarget() const override { return m_pDraw; }

    private:
        RenderThread* m_pThread = nullptr;
        DrawGeometry* m_pDraw = nullptr;
    };

    // Meant for a lost device; no device here can be reset, so it reports and ends.
    class UpdateDeviceWorker : public PooledWorker<UpdateDeviceWorker, Renderer>
    {
    public:
        UpdateDeviceWorker() = default;
        UpdateDeviceWorker(uint32_t a, uint32_t b) : m_uA(a), m_uB(b) {}
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        uint32_t m_uA = 0;
        uint32_t m_uB = 0;
    };
}
