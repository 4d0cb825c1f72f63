#pragma once
// What the engine tells the device at start: 208 bytes, copied by the render thread.
#include <cstdint>

namespace ZemRenderer
{
    struct RendererInitRecord
    {
        static constexpr uint32_t kAnyProcessor = 0xFFFFFFFFu;

        void* pWindow = nullptr;        // native window, or null
        uint32_t bNoWindow = 0;         // render off-screen, make no window
        uint32_t bDebugDevice = 0;
        uint32_t uWidth = 0;
        uint32_t uHeight = 0;
        uint32_t uLoaderProcessor = kAnyProcessor;
        uint32_t uProcessorProcessor = kAnyProcessor;
        uint32_t uRenderProcessor = kAnyProcessor;
        uint32_t bChildWindow = 0;      // the window is a child of the host's and keeps its size
        char16_t szTitle[84] = {};
    };
    static_assert(sizeof(RendererInitRecord) == 208, "the renderer initialisation record is 208 bytes");
}
