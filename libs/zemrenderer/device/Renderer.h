#pragma once
// The seam between the engine and a graphics device. The render thread owns one
// Renderer and is the only thread that calls it; everything above this class is written
// against these operations and never knows which backend runs.
#include <atomic>
#include <cstdint>

#include "zemrenderer/buffer/BufferDevice.h"
#include "zemrenderer/device/DeviceOp.h"
#include "zemrenderer/device/PrimitiveTopology.h"
#include "zemrenderer/device/RendererInitRecord.h"

namespace ZemRenderer
{
    class Buffer;
    class BufferReference;
    class RenderThread;
    class RenderViewport;
    class Texture;
    class TextureUpdateBuffer;
    class Geometry;
    class Property;
    struct DrawCommand;

    struct ViewportRect
    {
        float fX = 0.0f;
        float fY = 0.0f;
        float fWidth = 0.0f;
        float fHeight = 0.0f;
        float fMinDepth = 0.0f;
        float fMaxDepth = 1.0f;
    };

    struct ScissorRect
    {
        int32_t iLeft = 0;
        int32_t iTop = 0;
        int32_t iRight = 0;
        int32_t iBottom = 0;
    };

    // What a user primitive's vertex starts with: a clip-space position (y up, depth 0
    // to 1) and a colour 0xAABBGGRR. A larger stride carries more after it.
    struct UserPrimitiveVertex
    {
        float afPosition[3];
        uint32_t uColour;
    };
    static_assert(sizeof(UserPrimitiveVertex) == 16, "user primitive vertices are 16 bytes");

    enum ClearFlags : uint32_t
    {
        eClearColour = 1,
        eClearDepth = 2,
        eClearStencil = 4,
    };

    // No target at all clears the targets bound now.
    struct ClearRequest
    {
        static constexpr uint32_t kMaxTargets = 4;
        Texture* apColourTargets[kMaxTargets] = {};
        uint32_t uColourCount = 0;
        Texture* pDepthTarget = nullptr;
        float afColour[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        float fDepth = 1.0f;
        uint8_t uStencil = 0;
        uint32_t uFlags = 0;
    };

    class Renderer
    {
    public:
        // Deferred contexts, one per worker thread.
        static constexpr int NumThreadPool = 4;

        Renderer() = default;
        virtual ~Renderer() = default;
        Renderer(const Renderer&) = delete;
        Renderer& operator=(const Renderer&) = delete;

        // Lifetime. Init creates the device; false if none could be made.
        virtual bool Init(const RendererInitRecord& record) = 0;
        virtual void Release() = 0;
        // On the caller's thread; returns the native window, or null.
        virtual void* CreateWindow(const RendererInitRecord& record) = 0;
        virtual bool IsDeviceCreated() const = 0;
        // Waits until the device has finished what it was given.
        virtual void Flush() = 0;
        virtual bool CanReset() const { return false; }

        // Frame and view brackets. EndViewport presents.
        virtual bool BeginScene(float elapsed, float fixedStep) = 0;
        virtual bool EndScene() = 0;
        virtual bool BeginViewport(RenderViewport* viewport) = 0;
        virtual bool EndViewport() = 0;
        virtual bool CreateRenderViewport(RenderViewport* viewport, const RendererInitRecord& record) = 0;
        virtual bool ResizeViewport(RenderViewport* viewport, uint32_t width, uint32_t height) = 0;
        // Frees the view the device made for a viewport; before the viewport is destroyed.
        virtual void ReleaseViewport(RenderViewport* viewport) = 0;

        // Targets and fixed state.
        virtual void Clear(const ClearRequest& request) = 0;
        virtual bool SetRenderTargets(Texture* const* colour, uint32_t count, Texture* depth, Texture* const* uavs,
                                      uint32_t uavCount, uint32_t firstUav) = 0;
        virtual void SetViewport(const ViewportRect& rect) = 0;
        virtual void SetScissorTest(bool enable, const ScissorRect& rect) = 0;
        virtual void SetBlendFactor(float r, float g, float b, float a) = 0;
        // The packed render state of the following draws (see RenderState.h); the fields
        // that `mask` leaves out take their defaults.
        virtual void SetRenderState(uint64_t state, uint64_t mask) = 0;

        // Textures.
        virtual void GenerateMips(Texture* texture) = 0;
        virtual void CopyResource(Texture* dest, uint32_t destSub, Texture* source, uint32_t sourceSub, uint32_t x,
                                  uint32_t y, uint32_t z) = 0;
        virtual void ResolveTexture(Texture* texture, uint32_t subresource) = 0;
        virtual bool ResizeTexture(Texture* texture, uint32_t width, uint32_t height) = 0;
        virtual void DeleteTexture(Texture* texture) = 0;
        virtual bool UpdateTexture(Texture* texture, uint32_t subresource, const void* data, uint32_t size) = 0;
        // The regions of a texture file's update buffer. `create` makes the texture's
        // storage anew from its file description first.
        virtual bool UploadTexture(Texture* texture, const TextureUpdateBuffer& buffer, bool create) = 0;

        // Draws.
        virtual void RenderImmediate(Geometry* geometry, Property* property, uint32_t flags) = 0;
        virtual void DrawSortedCommands(const DrawCommand* commands, uint32_t count) = 0;
        // Text at a pixel position of the current target (top-left origin); `scale` is the
        // font's size in pixels, `colour` 0xAABBGGRR.
        virtual void RenderText(const char* text, float x, float y, float scale, uint32_t colour) = 0;
        // A scratch vertex buffer for a few primitives drawn at once.
        virtual void* StartUserPrimitive(uint32_t topology, uint32_t vertexStride, uint32_t vertexCount) = 0;
        virtual void EndUserPrimitive(uint32_t vertexCount) = 0;

        // Markers for GPU profilers.
        virtual void PerfEventBegin(uint32_t colour, const char* name) = 0;
        virtual void PerfEventEnd() = 0;

        // Read-back.
        virtual bool SaveScreenshot(const char* path) = 0;
        virtual bool SaveTextureToFile(Texture* texture, const char* path) = 0;
        virtual bool RetrieveDeviceData(Texture* source, uint32_t subresource, void* dest, uint32_t size) = 0;

        // The host's cursor wish; a device may ignore it.
        virtual bool SetCursor(int32_t cursor) = 0;

        // Seconds of the frame the open scene covers; a delayed worker counts down by it.
        virtual float GetFrameTime() const = 0;
        // While set, a producer waiting on the render thread dispatches window messages.
        virtual bool IsPumpingMessages() const { return false; }
        // Removes and dispatches one pending window message of any window; false if none.
        virtual bool PumpMessage() { return false; }

        // Buffers, on the render thread. A device whose buffers live in its own memory sets
        // its backend at Init (SetBackend); the others keep them in CPU memory.
        BufferDevice& GetBuffers() { return m_kBuffers; }
        bool AllocateDeviceBuffer(BufferReference* reference) { return m_kBuffers.AllocateDeviceBuffer(reference); }
        void* LockBuffer(BufferReference* reference, uint16_t sub1 = 0, uint16_t sub2 = 0)
        {
            return m_kBuffers.LockBuffer(reference, sub1, sub2);
        }
        void UnlockBuffer(BufferReference* reference) { m_kBuffers.UnlockBuffer(reference); }
        void DeleteBuffer(BufferReference* reference) { m_kBuffers.DeleteBuffer(reference); }
        bool UpdateBuffer(Buffer* block, bool reload, uint32_t mode = eMapWriteDiscard)
        {
            return m_kBuffers.UpdateBuffer(block, reload, mode);
        }
        // The device's own objects of a geometry (vertex arrays) go with it.
        virtual void ReleaseGeometry(Geometry*) {}

        // The render thread that drives this device.
        void SetRenderThread(RenderThread* thread) { m_pRenderThread.store(thread, std::memory_order_release); }
        RenderThread* GetRenderThread() const { return m_pRenderThread.load(std::memory_order_acquire); }

        // The worker threads that may record on a deferred context, at most NumThreadPool.
        bool RegisterProcessingThread(int threadId);
        // The deferred context slot of a thread, or -1.
        int GetProcessingThreadSlot(int threadId) const;
        int GetProcessingThreadCount() const { return m_iProcessingThreadCount.load(std::memory_order_acquire); }

    private:
        std::atomic<RenderThread*> m_pRenderThread{nullptr};
        BufferDevice m_kBuffers{this};
        std::atomic<int> m_aiProcessingThreads[NumThreadPool] = {};
        std::atomic<int> m_iProcessingThreadCount{0};
    };
}
