#pragma once
// What the GL device's source files share: the view behind a viewport and small helpers.
#include <epoxy/gl.h>

#include <algorithm>
#include <cstdint>

#include "zemrenderer/device/RenderState.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/device/gl/GLRenderer.h"

namespace ZemRenderer
{
    // What BeginViewport draws into: the window's back buffer made by the device, or the
    // caller's implicit target; a depth buffer of the same size either way.
    struct GLRenderer::View
    {
        RenderViewport* pViewport = nullptr;
        Texture* pBackBuffer = nullptr;
        Texture* pDepth = nullptr;
        bool bWindow = false;
    };

    namespace GL
    {
        inline GLenum TopologyMode(uint32_t topology)
        {
            switch (topology)
            {
                case eTopologyPointList: return GL_POINTS;
                case eTopologyLineList: return GL_LINES;
                case eTopologyLineStrip: return GL_LINE_STRIP;
                case eTopologyTriangleList: return GL_TRIANGLES;
                case eTopologyTriangleStrip: return GL_TRIANGLE_STRIP;
                default: return GL_NONE;
            }
        }

        // 0xAABBGGRR to four floats 0 to 1.
        inline void ColourToFloats(uint32_t colour, float* out)
        {
            for (int i = 0; i < 4; ++i) out[i] = static_cast<float>((colour >> (8 * i)) & 0xFF) / 255.0f;
        }

        inline uint32_t MipSize(uint32_t size, uint32_t level) { return std::max(1u, size >> level); }

        // What text draws with: blended over the target, no depth, both faces.
        inline CRenderState TextState()
        {
            return CRenderState::Default()
                .SetCullMode(false)
                .SetDepthEnable(false)
                .SetDepthWrite(false)
                .SetBlendModeAll({BlendType::SrcAlpha, BlendType::InvSrcAlpha, BlendOp::Add});
        }
    }
}
