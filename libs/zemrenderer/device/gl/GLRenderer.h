#pragma once
// The OpenGL 4.5 core device. Off-screen through EGL surfaceless, or in an SDL2 window
// whose context is current on the render thread only. Everything is drawn into textures
// behind framebuffer objects with an upper-left, zero-to-one clip convention, so rows,
// viewports and scissors are those of the engine; a window is presented by a flipped blit.
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "zemrenderer/device/FrameRateRing.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/device/RenderState.h"
#include "zemrenderer/device/SamplerDesc.h"
#include "zemrenderer/device/gl/GLContext.h"
#include "zemrenderer/device/gl/GLRenderStateCache.h"
#include "zemrenderer/device/gl/GLSamplerCache.h"
#include "zemrenderer/device/gl/GLStreamRing.h"
#include "zemrenderer/device/gl/GLTextAtlas.h"

namespace ZemRenderer
{
    class GLRenderer : public Renderer
    {
    public:
        static constexpr uint32_t kMaxRenderTargets = 4;
        // The most bytes one user primitive call may hold.
        static constexpr uint32_t kUserPrimitiveBytes = 1u << 20;
        // The size screen text is rendered at into its atlas.
        static constexpr uint32_t kAtlasPixelSize = 48;

        GLRenderer() = default;
        ~GLRenderer() override;

        // Window creation on the caller's thread: an SDL window with an OpenGL context
        // class, or null when there is no display.
        static void* CreateGLWindow(const RendererInitRecord& record);

        bool Init(const RendererInitRecord& record) override;
        void Release() override;
        void* CreateWindow(const RendererInitRecord& record) override { return CreateGLWindow(record); }
        bool IsDeviceCreated() const override { return m_bCreated.load(std::memory_order_acquire); }
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

        float GetFrameTime() const override { return m_fElapsed; }

        // "Wrong Thread" unless the caller is the thread that made the device.
        bool CheckImmediateContextThread() const;
        // A texture's device object, made on first use; false for a format without one.
        bool EnsureTexture(Texture* texture);
        // A sampler object of this description on a texture unit, with the texture.
        void BindTexture(uint32_t unit, Texture* texture, const SamplerDesc& sampler);

        // What tests and tools read.
        uint32_t GetFrameCount() const { return m_uFrameCount; }
        float GetFramesPerSecond() const { return m_kFrameRate.GetFramesPerSecond(); }
        bool IsSceneOpen() const { return m_sceneopen; }
        // GL errors seen since the device was made (debug output and drained glGetError).
        uint32_t GetGLErrorCount();
        // GL calls made by applying render states since the device was made.
        uint64_t GetStateCallCount() const { return m_uStateCalls; }
        uint64_t GetDrawCount() const { return m_uDraws; }
        size_t GetCachedStateCount() const { return m_kStates.GetCachedCount(); }
        size_t GetCachedSamplerCount() const { return m_kSamplers.GetCount(); }
        // Sets every field of the render state at each draw instead of what changed; the
        // reference the benchmarks measure the difference against.
        void SetApplyEveryField(bool every) { m_bApplyEveryField = every; }
        // The name of the adapter in use ("EGL surfaceless", "SDL window").
        const std::string& GetAdapterName() const { return m_szAdapter; }

    private:
        struct View;

        bool Ready() const;
        bool CreateSharedObjects(std::string& reason);
        void ReleaseSharedObjects();
        bool MakeStorage(Texture* texture);
        void FreeStorage(Texture* texture);
        void AttachTargets();
        void ApplyState(const GL::GLDecodedState& state);
        bool CanDraw();
        void BindProgram(GLuint program, GLuint vao);
        bool EnsureTextAtlas();
        bool ResizeView(View* view, uint32_t width, uint32_t height);

        RendererInitRecord m_kRecord;
        std::atomic<bool> m_bCreated{false};
        int m_iThreadId = 0;
        bool m_bDebug = false;
        std::string m_szAdapter;
        GL::GLContext m_kContext;
        std::atomic<uint32_t> m_uGLErrors{0};

        // The frame.
        bool m_sceneopen = false;
        uint32_t m_uFrameCount = 0;
        float m_fElapsed = 0.0f;
        float m_fFixedStep = 0.0f;
        FrameRateRing m_kFrameRate;
        uint64_t m_uStartMs = 0;
        RenderViewport* m_pRenderViewport = nullptr;
        std::vector<View*> m_aViews;
        uint32_t m_uPerfDepth = 0;

        // Targets.
        GLuint m_uDrawFramebuffer = 0;
        GLuint m_uClearFramebuffer = 0;
        GLuint m_uReadFramebuffer = 0;
        Texture* m_apTargets[kMaxRenderTargets] = {};
        uint32_t m_uTargetCount = 0;
        Texture* m_pDepthTarget = nullptr;
        bool m_bTargetsComplete = false;
        // Every texture that has a device object, for the leak report of Release.
        std::vector<Texture*> m_aTextures;

        // State.
        GL::GLRenderStateCache m_kStates;
        const GL::GLDecodedState* m_pRequestedState = nullptr;
        const GL::GLDecodedState* m_pTextState = nullptr;
        bool m_bScissorForced = false;
        bool m_bApplyEveryField = false;
        uint64_t m_uStateCalls = 0;
        uint64_t m_uDraws = 0;
        GL::GLSamplerCache m_kSamplers;

        // Streams and programs.
        GL::GLStreamRing m_kVertexRing;
        GL::GLStreamRing m_kUniformRing;
        uint32_t m_uUniformAlignment = 256;
        GLuint m_uPrimitiveProgram = 0;
        GLuint m_uTextProgram = 0;
        GLuint m_uPrimitiveVertexArray = 0;
        GLuint m_uTextVertexArray = 0;
        GLuint m_uBoundProgram = 0;
        GLuint m_uBoundVertexArray = 0;

        // The open user primitive.
        bool m_bUserPrimitiveOpen = false;
        uint32_t m_uUserTopology = 0;
        uint32_t m_uUserStride = 0;
        uint32_t m_uUserCount = 0;
        uint32_t m_uUserOffset = 0;

        GL::GLTextAtlas m_kText;
        bool m_bTextTried = false;
        std::vector<GL::TextVertex> m_aTextScratch;
    };
}
