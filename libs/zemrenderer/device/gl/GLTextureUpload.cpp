#include "zemrenderer/device/gl/GLTextureUpload.h"

#include "common/system/debug/Log.h"

namespace ZemRenderer::GL
{
    namespace
    {
        uint32_t MipSize(uint32_t size, uint32_t level)
        {
            size >>= level;
            return size ? size : 1;
        }
    }

    GLenum TextureTarget(const TextureInfo& info)
    {
        if (info.uFlags == eTextureCube) return GL_TEXTURE_CUBE_MAP;
        if (info.uFlags == eTextureVolume) return GL_TEXTURE_3D;
        return GL_TEXTURE_2D;
    }

    GLuint CreateTextureStorage(const TextureInfo& info)
    {
        const TextureFormatInfo* format = FindTextureFormat(info.uFormat);
        if (!format || !format->CanBeFile() || !info.uWidth || !info.uHeight)
        {
            Common::Log("Unknown format !\n");
            return 0;
        }
        const GLenum target = TextureTarget(info);
        const GLsizei levels = info.uLevels ? info.uLevels : 1;
        GLuint name = 0;
        glCreateTextures(target, 1, &name);
        if (!name) return 0;
        if (target == GL_TEXTURE_3D)
            glTextureStorage3D(name, levels, format->uGLInternalFormat, info.uWidth, info.uHeight, info.uDepth);
        else
            glTextureStorage2D(name, levels, format->uGLInternalFormat, info.uWidth, info.uHeight);
        glTextureParameteri(name, GL_TEXTURE_MAX_LEVEL, levels - 1);
        return name;
    }

    bool UploadRegions(GLuint name, const TextureInfo& info, const TextureUpdateBuffer& buffer)
    {
        const TextureFormatInfo* format = FindTextureFormat(info.uFormat);
        if (!name || !format) return false;
        const GLenum target = TextureTarget(info);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
        bool ok = true;
        for (const TextureRegion& r : buffer.GetRegions())
        {
            const TextureBox& b = r.kBox;
            const uint32_t w = MipSize(info.uWidth, r.uMip), h = MipSize(info.uHeight, r.uMip);
            const uint32_t d = target == GL_TEXTURE_3D ? MipSize(info.uDepth, r.uMip) : 1;
            if (r.uMip >= info.uLevels || b.uX + b.uWidth > w || b.uY + b.uHeight > h || b.uZ + b.uDepth > d ||
                r.uOffset + r.uSize > buffer.GetUsed())
            {
                Common::Log("Texture upload: region of mip %u (%u,%u %ux%u) outside the texture\n", r.uMip, b.uX, b.uY,
                            b.uWidth, b.uHeight);
                ok = false;
                break;
            }
            const void* data = buffer.GetData() + r.uOffset;
            // Cube faces are the layers of the cube map for the direct-state calls.
            const GLint z = target == GL_TEXTURE_CUBE_MAP ? GLint(r.uFace) : GLint(b.uZ);
            const GLsizei depth = target == GL_TEXTURE_2D ? 1 : GLsizei(b.uDepth);
            if (format->IsCompressed())
            {
                if (target == GL_TEXTURE_2D)
                    glCompressedTextureSubImage2D(name, r.uMip, b.uX, b.uY, b.uWidth, b.uHeight,
                                                  format->uGLInternalFormat, GLsizei(r.uSize), data);
                else
                    glCompressedTextureSubImage3D(name, r.uMip, b.uX, b.uY, z, b.uWidth, b.uHeight, depth,
                                                  format->uGLInternalFormat, GLsizei(r.uSize), data);
            }
            else if (target == GL_TEXTURE_2D)
                glTextureSubImage2D(name, r.uMip, b.uX, b.uY, b.uWidth, b.uHeight, format->uGLFormat, format->uGLType,
                                    data);
            else
                glTextureSubImage3D(name, r.uMip, b.uX, b.uY, z, b.uWidth, b.uHeight, depth, format->uGLFormat,
                                    format->uGLType, data);
        }
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        return ok;
    }
}
