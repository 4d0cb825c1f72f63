#pragma once
// What the render thread tells the animation side about frames and views. The
// animation manager implements it; the render thread calls it from its workers.
#include <cstdint>

namespace ZemRenderer
{
    class RenderThread;

    class IAnimManager
    {
    public:
        virtual ~IAnimManager() = default;
        virtual void BeginFrame(uint32_t frameId, float elapsed, float fixedStep, bool animate) = 0;
        virtual void EndFrame() = 0;
        virtual void BeginSession(uint32_t viewId) = 0;
        virtual void EndSession(uint32_t viewId) = 0;
        // The render thread is stopping: drop every hold on it.
        virtual void ReleaseThread(RenderThread* thread) = 0;
    };
}
