// Read-back and screenshots of the GL device.
#include "zemrenderer/device/gl/GLRenderer.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/PngImage.h"
#include "zemrenderer/device/RenderViewport.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLDebug.h"
#include "zemrenderer/device/gl/GLFormats.h"
#include "zemrenderer/device/gl/GLRendererInternal.h"

namespace ZemRenderer
{
    using namespace GL;

    // ---------------------------------------------------------------- read-back

    bool GLRenderer::SaveScreenshot(const char* path)
    {
        if (!Ready()) return false;
        if (!ZEM_ASSERT(m_pRenderViewport && m_pRenderViewport->GetView(), "SaveScreenshot outside a viewport"))
            return false;
        return SaveTextureToFile(static_cast<View*>(m_pRenderViewport->GetView())->pBackBuffer, path);
    }

    bool GLRenderer::SaveTextureToFile(Texture* texture, const char* path)
    {
        if (!Ready() || !ZEM_ASSERT(texture && path && *path, "SaveTextureToFile without texture or path"))
            return false;
        GLFormat format;
        if (!ZEM_ASSERT(FindFormat(texture->GetFormat(), format), "Unknown format !")) return false;
        if (!ZEM_ASSERT(!format.bDepth, "Unsupported format !")) return false;
        if (!EnsureTexture(texture)) return false;
        const uint32_t width = texture->GetWidth(), height = texture->GetHeight();
        std::vector<uint8_t> pixels(size_t(width) * height * 4);
        // GL converts any colour format to 8-bit RGBA on the way out.
        glPixelStorei(GL_PACK_ALIGNMENT, 4);
        glGetTextureImage(texture->GetDeviceObject(), 0, GL_RGBA, GL_UNSIGNED_BYTE, static_cast<GLsizei>(pixels.size()),
                          pixels.data());
        return WritePng(path, pixels.data(), width, height);
    }

    bool GLRenderer::RetrieveDeviceData(Texture* source, uint32_t subresource, void* dest, uint32_t size)
    {
        if (!Ready() || !ZEM_ASSERT(source && dest, "RetrieveDeviceData without texture or destination")) return false;
        if (!EnsureTexture(source)) return false;
        GLFormat format;
        FindFormat(source->GetFormat(), format);
        const uint32_t level = subresource % std::max(1u, source->GetDesc().uMipLevels);
        const uint64_t needed = uint64_t(MipSize(source->GetWidth(), level)) * MipSize(source->GetHeight(), level) *
                                format.uBytesPerPixel;
        if (!ZEM_ASSERT(size >= needed, "RetrieveDeviceData %s: %u bytes for %llu", source->GetName(), size,
                        static_cast<unsigned long long>(needed)))
            return false;
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        glGetTextureImage(source->GetDeviceObject(), level, format.eFormat, format.eType, static_cast<GLsizei>(size),
                          dest);
        glPixelStorei(GL_PACK_ALIGNMENT, 4);
        return DrainErrors("RetrieveDeviceData", &m_uGLErrors) == 0;
    }

    // The cursor belongs to the host's window; the wish is kept by the worker.
    bool GLRenderer::SetCursor(int32_t) { return true; }
}
