#include "zemrenderer/device/RenderViewport.h"

#include "common/system/debug/Log.h"
#include "zemrenderer/device/Texture.h"

namespace ZemRenderer
{
    RenderViewport::RenderViewport(void* window, Texture* implicitTarget, uint32_t width, uint32_t height)
        : m_pWindow(window), m_pImplicitTarget(implicitTarget), m_uWidth(width), m_uHeight(height)
    {
        if (m_pImplicitTarget) m_pImplicitTarget->AddRef();
    }

    RenderViewport::~RenderViewport()
    {
        ZEM_ASSERT(m_pView == nullptr, "RenderViewport destroyed before its device released its view");
        if (m_pImplicitTarget) m_pImplicitTarget->Release();
    }

    void RenderViewport::SetSize(uint32_t width, uint32_t height, uint32_t targetWidth, uint32_t targetHeight)
    {
        m_uWidth = width;
        m_uHeight = height;
        m_fRatioX = targetWidth ? static_cast<float>(width) / static_cast<float>(targetWidth) : 1.0f;
        m_fRatioY = targetHeight ? static_cast<float>(height) / static_cast<float>(targetHeight) : 1.0f;
    }
}
