#pragma once
// The narrow gate through which code outside the device layer reaches the Renderer. Every
// operation checks that it runs on the render thread and refuses, with a report, when it
// does not, so a device object is never half-made or touched from the wrong thread.
#include <cstdint>

namespace ZemRenderer
{
    class Renderer;
    class RenderThread;
    class Texture;

    class RendererAccessor
    {
    public:
        typedef void (*Component)(Renderer& renderer, void* userData);

        explicit RendererAccessor(RenderThread* thread) : m_pThread(thread) {}

        // "Wrong thread access ! must be called by RenderThread only" off the render thread.
        bool CheckThread() const;
        // The render thread's device, or null (reported) off the render thread.
        Renderer* GetRenderer() const;

        bool CopyResource(Texture* dest, uint32_t destSub, Texture* source, uint32_t sourceSub, uint32_t x = 0,
                          uint32_t y = 0, uint32_t z = 0) const;
        // Runs a piece of device work now, on the render thread.
        bool RunComponent(Component component, void* userData) const;

    private:
        RenderThread* m_pThread = nullptr;
    };
}
