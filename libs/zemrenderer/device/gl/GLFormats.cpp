#include "zemrenderer/device/gl/GLFormats.h"

#include "zemrenderer/device/Texture.h"
#include "zemrenderer/texture/TextureFormat.h"

namespace ZemRenderer::GL
{
    bool FindFormat(uint32_t format, GLFormat& out)
    {
        switch (format)
        {
            // Both 8-bit formats keep their bytes in R, G, B, A order in GL; the A8R8G8B8
            // one is uploaded and read as BGRA.
            case eFormatA8R8G8B8: out = {GL_RGBA8, GL_BGRA, GL_UNSIGNED_BYTE, 4, false, false}; return true;
            case eFormatA8B8G8R8: out = {GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4, false, false}; return true;
            case eFormatD24S8:
                out = {GL_DEPTH24_STENCIL8, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, 4, true, true};
                return true;
            case eFormatD16: out = {GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT, GL_UNSIGNED_SHORT, 2, true, false}; return true;
            case eFormatR16F: out = {GL_R16F, GL_RED, GL_HALF_FLOAT, 2, false, false}; return true;
            case eFormatG16R16F: out = {GL_RG16F, GL_RG, GL_HALF_FLOAT, 4, false, false}; return true;
            case eFormatA16B16G16R16F: out = {GL_RGBA16F, GL_RGBA, GL_HALF_FLOAT, 8, false, false}; return true;
            case eFormatR32F:
            case eFormatR32FUnordered: out = {GL_R32F, GL_RED, GL_FLOAT, 4, false, false}; return true;
            case eFormatG32R32F: out = {GL_RG32F, GL_RG, GL_FLOAT, 8, false, false}; return true;
            case eFormatA32B32G32R32F: out = {GL_RGBA32F, GL_RGBA, GL_FLOAT, 16, false, false}; return true;
            default: break;
        }
        // Texture files: the renderer's table. Block formats read back decoded, as RGBA8.
        const TextureFormatInfo* info = FindTextureFormat(format);
        if (!info || !info->CanBeFile()) return false;
        if (info->IsCompressed())
            out = {info->uGLInternalFormat, GL_RGBA, GL_UNSIGNED_BYTE, 4, false, false};
        else
            out = {info->uGLInternalFormat, info->uGLFormat, info->uGLType, info->uBitsPerPixel / 8u,
                   (info->uFlags & eTexFmtDepth) != 0, (info->uFlags & eTexFmtStencil) != 0};
        return true;
    }
}
