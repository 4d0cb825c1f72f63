#pragma once
// A device that draws nothing and remembers every call it received, with its arguments
// and the calling thread, so that tests can check what reached the device.
#include <atomic>
#include <cstdint>
#include <mutex>

#include "common/utils/TArray.h"
#include "zemrenderer/device/Renderer.h"

namespace ZemRenderer
{
    struct DeviceCall
    {
        static constexpr unsigned kMaxArgs = 6;
        static constexpr unsigned kTextSize = 260;

        DeviceOp eOp = DeviceOp::Count;
        int iThreadId = 0;
        // Integers and pointers in call order, then floats in call order.
        uint64_t auArgs[kMaxArgs] = {};
        float afArgs[kMaxArgs] = {};
        char szText[kTextSize] = {};
    };

    class NullRenderer : public Renderer
    {
    public:
        NullRenderer() = default;

        // What Init, BeginScene and EndScene answer (true by default).
        void SetInitResult(bool result) { m_bInitResult.store(result); }
        void SetSceneResult(bool result) { m_bSceneResult.store(result); }

        TArray<DeviceCall> GetCalls() const;
        unsigned int GetCallCount() const;
        unsigned int CountCalls(DeviceOp op) const;
        // Index of the first call of `op` at or after `from`, or -1.
        int FindCall(DeviceOp op, unsigned int from = 0) const;
        void ClearCalls();

        bool Init(const RendererInitRecord& record) override;
        void Release() override;
        void* CreateWindow(const RendererInitRecord& record) override;
        bool IsDeviceCreated() const override { return m_bDeviceCreated.load(std::memory_order_acquire); }
        void Flush() override;

        bool BeginScene(float elapsed, float fixedStep) override;
        bool EndScene() override;
        bool BeginViewport(RenderViewport* viewport) override;
        bool EndViewport() override;
        bool CreateRenderViewport(RenderViewport* viewport, const RendererInitRecord& record) override;
        bool ResizeViewport(RenderViewport* viewport, uint32_t width, uint32_t height) override;
        void ReleaseViewport(RenderViewport* viewport) override;

        void Clear(const ClearRequest& request) override;
        bool SetRenderTargets(Texture* const* colour, uint32_t count, Texture* depth, Texture* const* uavs,
                              uint32_t uavCount, uint32_t firstUav) override;
        void SetViewport(const ViewportRect& rect) override;
        void SetScissorTest(bool enable, const ScissorRect& rect) override;
        void SetBlendFactor(float r, float g, float b, float a) override;
        void SetRenderState(uint64_t state, uint64_t mask) override;

        void GenerateMips(Texture* texture) override;
        void CopyResource(Texture* dest, uint32_t destSub, Texture* source, uint32_t sourceSub, uint32_t x, uint32_t y,
                          uint32_t z) override;
        void ResolveTexture(Texture* texture, uint32_t subresource) override;
        bool ResizeTexture(Texture* texture, uint32_t width, uint32_t height) override;
        void DeleteTexture(Texture* texture) override;
        bool UpdateTexture(Texture* texture, uint32_t subresource, const void* data, uint32_t size) override;
        bool UploadTexture(Texture* texture, const TextureUpdateBuffer& buffer, bool create) override;

        void RenderImmediate(Geometry* geometry, Property* property, uint32_t flags) override;
        void DrawSortedCommands(const DrawCommand* commands, uint32_t count) override;
        void RenderText(const char* text, float x, float y, float scale, uint32_t colour) override;
        void* StartUserPrimitive(uint32_t topology, uint32_t vertexStride, uint32_t vertexCount) override;
        void EndUserPrimitive(uint32_t vertexCount) override;

        void PerfEventBegin(uint32_t colour, const char* name) override;
        void PerfEventEnd() override;

        bool SaveScreenshot(const char* path) override;
        bool SaveTextureToFile(Texture* texture, const char* path) override;
        bool RetrieveDeviceData(Texture* source, uint32_t subresource, void* dest, uint32_t size) override;
        bool SetCursor(int32_t cursor) override;

        float GetFrameTime() const override { return m_fFrameTime.load(std::memory_order_relaxed); }

    private:
        struct Args;
        void Record(DeviceOp op, const Args& args, const char* text = nullptr);

        mutable std::mutex m_kMutex;
        TArray<DeviceCall> m_aCalls;
        std::atomic<bool> m_bInitResult{true};
        std::atomic<bool> m_bSceneResult{true};
        std::atomic<bool> m_bDeviceCreated{false};
        std::atomic<float> m_fFrameTime{0.0f};
        // Room for the user primitives of one call.
        alignas(16) unsigned char m_aScratch[4096] = {};
    };
}
