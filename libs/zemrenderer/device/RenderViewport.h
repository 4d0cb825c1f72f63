#pragma once
// A view the engine draws: into a window (presented at EndViewport) or into an implicit
// target texture that the caller owns. The device makes its view object at the first
// BeginViewport and keeps it in the viewport.
#include <cstdint>

namespace ZemRenderer
{
    class Texture;
    class Property;

    class RenderViewport
    {
    public:
        // Either a window (a native window of the device's windowing layer) or an implicit
        // target; the viewport holds a reference on the target.
        RenderViewport(void* window, Texture* implicitTarget, uint32_t width, uint32_t height);
        ~RenderViewport();
        RenderViewport(const RenderViewport&) = delete;
        RenderViewport& operator=(const RenderViewport&) = delete;

        void* GetWindow() const { return m_pWindow; }
        Texture* GetImplicitTarget() const { return m_pImplicitTarget; }
        uint32_t GetWidth() const { return m_uWidth; }
        uint32_t GetHeight() const { return m_uHeight; }
        // Given size over the size of what it draws into.
        float GetRatioX() const { return m_fRatioX; }
        float GetRatioY() const { return m_fRatioY; }
        Property* GetSharedProperty() const { return m_pShared; }
        void SetSharedProperty(Property* property) { m_pShared = property; }

        // Device side, on the render thread.
        void* GetView() const { return m_pView; }
        void SetView(void* view) { m_pView = view; }
        void SetSize(uint32_t width, uint32_t height, uint32_t targetWidth, uint32_t targetHeight);

    private:
        void* m_pWindow = nullptr;
        Texture* m_pImplicitTarget = nullptr;
        void* m_pView = nullptr;
        Property* m_pShared = nullptr;
        uint32_t m_uWidth = 0;
        uint32_t m_uHeight = 0;
        float m_fRatioX = 1.0f;
        float m_fRatioY = 1.0f;
    };
}
