#include "zemrenderer/device/RendererAccessor.h"

#include "common/system/debug/Log.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    bool RendererAccessor::CheckThread() const
    {
        return ZEM_ASSERT(m_pThread && m_pThread->IsInMyThread(), "Wrong thread access ! must be called by RenderThread only");
    }

    Renderer* RendererAccessor::GetRenderer() const { return CheckThread() ? m_pThread->GetRenderer() : nullptr; }

    bool RendererAccessor::CopyResource(Texture* dest, uint32_t destSub, Texture* source, uint32_t sourceSub,
                                        uint32_t x, uint32_t y, uint32_t z) const
    {
        Renderer* renderer = GetRenderer();
        if (!renderer) return false;
        renderer->CopyResource(dest, destSub, source, sourceSub, x, y, z);
        return true;
    }

    bool RendererAccessor::RunComponent(Component component, void* userData) const
    {
        Renderer* renderer = GetRenderer();
        if (!renderer || !component) return false;
        component(*renderer, userData);
        return true;
    }
}
