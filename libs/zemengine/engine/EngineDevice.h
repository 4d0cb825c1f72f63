#pragma once
// The engine's drawing until its render contexts come: the render thread with the OpenGL
// device, and the main view "mainview" presented each frame, in the host's window or
// off-screen. A machine without a usable device runs the engine without drawing.
#include <atomic>
#include <cstdint>

namespace ZemRenderer
{
    class GLRenderer;
    class RenderThread;
    class RenderViewport;
    class Texture;
}

namespace ZemEngine
{
    class CEngineDevice
    {
    public:
        CEngineDevice() = default;
        ~CEngineDevice() { Stop(); }
        CEngineDevice(const CEngineDevice&) = delete;
        CEngineDevice& operator=(const CEngineDevice&) = delete;

        // On the main thread, which becomes the render thread's producer. `window` is the
        // host's SDL window made for OpenGL, or null to draw off-screen at width x height.
        // False, logged, when no device could be made.
        bool Start(void* window, uint32_t width, uint32_t height);
        // One frame of the main view; waits while too many frames are queued.
        void Frame(float elapsedSeconds, float fixedStepSeconds);
        // Ends the render thread after the frames queued; the device goes with it.
        void Stop();

        bool IsRunning() const { return m_pThread != nullptr; }
        uint32_t GetPresentedFrames() const { return m_uPresented.load(std::memory_order_acquire); }

    private:
        static void OnPresented(void* self);

        ZemRenderer::GLRenderer* m_pDevice = nullptr;
        ZemRenderer::RenderThread* m_pThread = nullptr;
        ZemRenderer::RenderViewport* m_pMainView = nullptr;
        uint32_t m_uFrameId = 0;
        bool m_bDrew = false;
        std::atomic<uint32_t> m_uPresented{0};
    };
}
