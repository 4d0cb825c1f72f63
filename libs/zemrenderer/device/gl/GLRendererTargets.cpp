// Render targets, clears, fixed state and textures of the GL device.
#include "zemrenderer/device/gl/GLRenderer.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/RenderViewport.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLDebug.h"
#include "zemrenderer/device/gl/GLFormats.h"
#include "zemrenderer/device/gl/GLRendererInternal.h"
#include "zemrenderer/device/gl/GLTextureUpload.h"

namespace ZemRenderer
{
    using namespace GL;

    // ---------------------------------------------------------------- targets and state

    bool GLRenderer::EnsureTexture(Texture* texture)
    {
        if (!texture || !Ready()) return false;
        if (texture->GetDeviceObject()) return true;
        return MakeStorage(texture);
    }

    bool GLRenderer::MakeStorage(Texture* texture)
    {
        GLFormat format;
        if (!ZEM_ASSERT(FindFormat(texture->GetFormat(), format), "Unknown format !")) return false;
        const TextureDesc& desc = texture->GetDesc();
        if (!ZEM_ASSERT(desc.uWidth > 0 && desc.uHeight > 0, "Texture %s has no size", texture->GetName()))
            return false;
        uint32_t levels = std::max(1u, desc.uMipLevels);
        uint32_t most = 1;
        while ((std::max(desc.uWidth, desc.uHeight) >> most) > 0) ++most;
        levels = std::min(levels, most);
        GLuint name = 0;
        if (desc.uArraySize > 1)
        {
            glCreateTextures(GL_TEXTURE_2D_ARRAY, 1, &name);
            glTextureStorage3D(name, levels, format.eInternal, desc.uWidth, desc.uHeight, desc.uArraySize);
        }
        else
        {
            glCreateTextures((desc.uBindFlags & eBindCube) ? GL_TEXTURE_CUBE_MAP : GL_TEXTURE_2D, 1, &name);
            glTextureStorage2D(name, levels, format.eInternal, desc.uWidth, desc.uHeight);
        }
        texture->SetDeviceObject(this, name);
        m_aTextures.push_back(texture);
        return true;
    }

    void GLRenderer::FreeStorage(Texture* texture)
    {
        GLuint name = texture->GetDeviceObject();
        if (!name) return;
        for (uint32_t i = 0; i < kMaxRenderTargets; ++i)
            if (m_apTargets[i] == texture)
            {
                glNamedFramebufferTexture(m_uDrawFramebuffer, GL_COLOR_ATTACHMENT0 + i, 0, 0);
                m_apTargets[i] = nullptr;
            }
        if (m_pDepthTarget == texture)
        {
            glNamedFramebufferTexture(m_uDrawFramebuffer, GL_DEPTH_STENCIL_ATTACHMENT, 0, 0);
            m_pDepthTarget = nullptr;
        }
        glDeleteTextures(1, &name);
        texture->SetDeviceObject(nullptr, 0);
        m_aTextures.erase(std::remove(m_aTextures.begin(), m_aTextures.end(), texture), m_aTextures.end());
    }

    bool GLRenderer::SetRenderTargets(Texture* const* colour, uint32_t count, Texture* depth, Texture* const* uavs,
                                      uint32_t uavCount, uint32_t firstUav)
    {
        if (!Ready()) return false;
        bool ok = true;
        if (count > kMaxRenderTargets)
        {
            ZEM_ASSERT(count <= kMaxRenderTargets, "Unvalid RenderTarget index %d must be <4",
                       static_cast<int>(kMaxRenderTargets));
            count = kMaxRenderTargets;
            ok = false;
        }
        for (uint32_t i = 0; i < kMaxRenderTargets; ++i)
        {
            Texture* target = i < count && colour ? colour[i] : nullptr;
            if (target && (!ZEM_ASSERT(target->HasBindFlag(eBindRenderTarget), "Texture %s is not a render target",
                                       target->GetName()) ||
                           !EnsureTexture(target)))
                target = nullptr, ok = false;
            m_apTargets[i] = target;
        }
        m_uTargetCount = count;
        if (depth && (!ZEM_ASSERT(depth->HasBindFlag(eBindDepthStencil), "Texture %s is not a depth target",
                                  depth->GetName()) ||
                      !EnsureTexture(depth)))
            depth = nullptr, ok = false;
        m_pDepthTarget = depth;
        AttachTargets();
        for (uint32_t i = 0; uavs && i < uavCount; ++i)
        {
            GLFormat format;
            Texture* uav = uavs[i];
            if (uav && EnsureTexture(uav) && FindFormat(uav->GetFormat(), format))
                glBindImageTexture(firstUav + i, uav->GetDeviceObject(), 0, GL_TRUE, 0, GL_READ_WRITE, format.eInternal);
            else
                glBindImageTexture(firstUav + i, 0, 0, GL_FALSE, 0, GL_READ_WRITE, GL_R32F);
        }
        return ok;
    }

    void GLRenderer::AttachTargets()
    {
        GLenum buffers[kMaxRenderTargets];
        for (uint32_t i = 0; i < kMaxRenderTargets; ++i)
        {
            const GLuint name = m_apTargets[i] ? m_apTargets[i]->GetDeviceObject() : 0;
            glNamedFramebufferTexture(m_uDrawFramebuffer, GL_COLOR_ATTACHMENT0 + i, name, 0);
            buffers[i] = name ? GL_COLOR_ATTACHMENT0 + i : GL_NONE;
        }
        glNamedFramebufferDrawBuffers(m_uDrawFramebuffer, kMaxRenderTargets, buffers);
        GLFormat format;
        const bool stencil = m_pDepthTarget && FindFormat(m_pDepthTarget->GetFormat(), format) && format.bStencil;
        // One attachment point at a time: a depth-only texture leaves the stencil empty.
        glNamedFramebufferTexture(m_uDrawFramebuffer, GL_DEPTH_STENCIL_ATTACHMENT, 0, 0);
        if (m_pDepthTarget)
            glNamedFramebufferTexture(m_uDrawFramebuffer, stencil ? GL_DEPTH_STENCIL_ATTACHMENT : GL_DEPTH_ATTACHMENT,
                                      m_pDepthTarget->GetDeviceObject(), 0);
        const GLenum status = glCheckNamedFramebufferStatus(m_uDrawFramebuffer, GL_DRAW_FRAMEBUFFER);
        bool any = m_pDepthTarget != nullptr;
        for (Texture* t : m_apTargets) any = any || t != nullptr;
        m_bTargetsComplete = any && status == GL_FRAMEBUFFER_COMPLETE;
        if (any && status != GL_FRAMEBUFFER_COMPLETE)
            Common::Log("Render targets can't be drawn together (framebuffer status 0x%x)\n", status);
    }

    void GLRenderer::SetViewport(const ViewportRect& rect)
    {
        if (!Ready()) return;
        glViewportIndexedf(0, rect.fX, rect.fY, rect.fWidth, rect.fHeight);
        glDepthRangeIndexed(0, rect.fMinDepth, rect.fMaxDepth);
    }

    void GLRenderer::SetScissorTest(bool enable, const ScissorRect& rect)
    {
        if (!Ready()) return;
        m_bScissorForced = enable;
        // The window rows of the target run top to bottom, as the engine's do.
        glScissor(rect.iLeft, rect.iTop, std::max(0, rect.iRight - rect.iLeft), std::max(0, rect.iBottom - rect.iTop));
    }

    void GLRenderer::SetBlendFactor(float r, float g, float b, float a)
    {
        if (!Ready()) return;
        glBlendColor(r, g, b, a);
    }

    void GLRenderer::SetRenderState(uint64_t state, uint64_t mask)
    {
        if (!Ready()) return;
        m_pRequestedState = &m_kStates.Decode(CRenderState::Merge(state, mask));
    }

    void GLRenderer::ApplyState(const GLDecodedState& state)
    {
        m_uStateCalls += m_bApplyEveryField ? m_kStates.ApplyAll(state, m_bScissorForced)
                                            : m_kStates.Apply(state, m_bScissorForced);
    }

    void GLRenderer::BindTexture(uint32_t unit, Texture* texture, const SamplerDesc& sampler)
    {
        if (!Ready()) return;
        const GLuint name = texture && EnsureTexture(texture) ? texture->GetDeviceObject() : 0;
        glBindTextureUnit(unit, name);
        glBindSampler(unit, name ? m_kSamplers.Get(sampler) : 0);
    }

    void GLRenderer::Clear(const ClearRequest& given)
    {
        if (!Ready()) return;
        ClearRequest request = given;
        if (!request.uColourCount && !request.pDepthTarget)
        {
            std::copy(std::begin(m_apTargets), std::end(m_apTargets), request.apColourTargets);
            request.uColourCount = m_uTargetCount;
            request.pDepthTarget = m_pDepthTarget;
        }
        uint32_t count = request.uColourCount;
        if (!ZEM_ASSERT(count <= kMaxRenderTargets, "Unvalid RenderTarget index %d must be <4", static_cast<int>(count)))
            count = kMaxRenderTargets;
        const bool clearColour = (request.uFlags & eClearColour) != 0;
        const bool clearDepth = (request.uFlags & eClearDepth) != 0;
        const bool clearStencil = (request.uFlags & eClearStencil) != 0;
        GLenum buffers[kMaxRenderTargets];
        uint32_t attached = 0;
        for (uint32_t i = 0; i < kMaxRenderTargets; ++i)
        {
            Texture* target = clearColour && i < count ? request.apColourTargets[i] : nullptr;
            GLFormat format;
            if (target && (!EnsureTexture(target) || !FindFormat(target->GetFormat(), format) || format.bDepth))
                target = nullptr;
            glNamedFramebufferTexture(m_uClearFramebuffer, GL_COLOR_ATTACHMENT0 + i,
                                      target ? target->GetDeviceObject() : 0, 0);
            buffers[i] = target ? GL_COLOR_ATTACHMENT0 + i : GL_NONE;
            attached |= target ? 1u << i : 0u;
        }
        glNamedFramebufferDrawBuffers(m_uClearFramebuffer, kMaxRenderTargets, buffers);
        Texture* depth = (clearDepth || clearStencil) ? request.pDepthTarget : nullptr;
        GLFormat depthFormat;
        if (depth && (!EnsureTexture(depth) || !FindFormat(depth->GetFormat(), depthFormat) || !depthFormat.bDepth))
            depth = nullptr;
        glNamedFramebufferTexture(m_uClearFramebuffer, GL_DEPTH_STENCIL_ATTACHMENT, 0, 0);
        if (depth)
            glNamedFramebufferTexture(m_uClearFramebuffer,
                                      depthFormat.bStencil ? GL_DEPTH_STENCIL_ATTACHMENT : GL_DEPTH_ATTACHMENT,
                                      depth->GetDeviceObject(), 0);
        if (!attached && !depth) return;
        if (glCheckNamedFramebufferStatus(m_uClearFramebuffer, GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE)
        {
            Common::Log("Clear: these targets can't be cleared together\n");
            return;
        }
        // A clear covers the whole target whatever the scissor and write masks say.
        glDisable(GL_SCISSOR_TEST);
        for (uint32_t i = 0; i < kMaxRenderTargets; ++i) glColorMaski(i, GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
        glDepthMask(GL_TRUE);
        glStencilMask(0xFF);
        m_kStates.ForgetMasksAndScissor();
        for (uint32_t i = 0; i < kMaxRenderTargets; ++i)
            if (attached & (1u << i)) glClearNamedFramebufferfv(m_uClearFramebuffer, GL_COLOR, i, request.afColour);
        if (depth)
        {
            const bool stencil = clearStencil && depthFormat.bStencil;
            if (clearDepth && stencil)
                glClearNamedFramebufferfi(m_uClearFramebuffer, GL_DEPTH_STENCIL, 0, request.fDepth, request.uStencil);
            else if (clearDepth)
                glClearNamedFramebufferfv(m_uClearFramebuffer, GL_DEPTH, 0, &request.fDepth);
            else if (stencil)
            {
                const GLint value = request.uStencil;
                glClearNamedFramebufferiv(m_uClearFramebuffer, GL_STENCIL, 0, &value);
            }
        }
    }

    // ---------------------------------------------------------------- textures

    void GLRenderer::GenerateMips(Texture* texture)
    {
        if (!Ready() || !texture || !texture->GetDeviceObject()) return;
        if (texture->GetDesc().uMipLevels > 1) glGenerateTextureMipmap(texture->GetDeviceObject());
    }

    void GLRenderer::CopyResource(Texture* dest, uint32_t destSub, Texture* source, uint32_t sourceSub, uint32_t x,
                                  uint32_t y, uint32_t z)
    {
        if (!Ready() || !ZEM_ASSERT(dest && source, "CopyResource with a null texture")) return;
        if (!EnsureTexture(dest) || !EnsureTexture(source)) return;
        GLFormat from, to;
        FindFormat(source->GetFormat(), from);
        FindFormat(dest->GetFormat(), to);
        if (!ZEM_ASSERT(from.uBytesPerPixel == to.uBytesPerPixel && from.bDepth == to.bDepth,
                        "CopyResource between formats %u and %u", source->GetFormat(), dest->GetFormat()))
            return;
        const uint32_t sourceMips = std::max(1u, source->GetDesc().uMipLevels);
        const uint32_t destMips = std::max(1u, dest->GetDesc().uMipLevels);
        const uint32_t sourceLevel = sourceSub % sourceMips, destLevel = destSub % destMips;
        const uint32_t destWidth = MipSize(dest->GetWidth(), destLevel);
        const uint32_t destHeight = MipSize(dest->GetHeight(), destLevel);
        if (!ZEM_ASSERT(x < destWidth && y < destHeight && z == 0, "CopyResource outside its destination")) return;
        const uint32_t width = std::min(MipSize(source->GetWidth(), sourceLevel), destWidth - x);
        const uint32_t height = std::min(MipSize(source->GetHeight(), sourceLevel), destHeight - y);
        glCopyImageSubData(source->GetDeviceObject(), GL_TEXTURE_2D, sourceLevel, 0, 0, 0, dest->GetDeviceObject(),
                           GL_TEXTURE_2D, destLevel, x, y, 0, width, height, 1);
    }

    // Targets here are never multisampled, so there is nothing to resolve.
    void GLRenderer::ResolveTexture(Texture*, uint32_t) { (void)Ready(); }

    bool GLRenderer::ResizeTexture(Texture* texture, uint32_t width, uint32_t height)
    {
        if (!Ready() || !ZEM_ASSERT(texture != nullptr, "ResizeTexture of a null texture")) return false;
        if (!ZEM_ASSERT(width > 0 && height > 0, "ResizeTexture %s to an empty size", texture->GetName())) return false;
        if (texture->GetWidth() == width && texture->GetHeight() == height && texture->GetDeviceObject()) return true;
        if (!ZEM_ASSERT(!texture->HasBindFlag(eBindFixedSize), "Texture %s has a fixed size", texture->GetName()))
            return false;
        Texture* targets[kMaxRenderTargets];
        std::copy(std::begin(m_apTargets), std::end(m_apTargets), targets);
        Texture* depth = m_pDepthTarget;
        FreeStorage(texture);
        texture->SetSize(width, height);
        const bool ok = MakeStorage(texture);
        // Still bound where it was, at its new size.
        bool bound = depth == texture;
        for (Texture* t : targets) bound = bound || t == texture;
        if (bound)
        {
            std::copy(std::begin(targets), std::end(targets), m_apTargets);
            m_pDepthTarget = depth;
            AttachTargets();
        }
        return ok;
    }

    void GLRenderer::DeleteTexture(Texture* texture)
    {
        if (!texture || !Ready()) return;
        FreeStorage(texture);
    }

    bool GLRenderer::UpdateTexture(Texture* texture, uint32_t subresource, const void* data, uint32_t size)
    {
        if (!Ready() || !ZEM_ASSERT(texture && data, "UpdateTexture without texture or data")) return false;
        if (!EnsureTexture(texture)) return false;
        GLFormat format;
        FindFormat(texture->GetFormat(), format);
        const uint32_t level = subresource % std::max(1u, texture->GetDesc().uMipLevels);
        const uint32_t width = MipSize(texture->GetWidth(), level), height = MipSize(texture->GetHeight(), level);
        const uint64_t needed = uint64_t(width) * height * format.uBytesPerPixel;
        if (!ZEM_ASSERT(size >= needed, "UpdateTexture %s: %u bytes for %llu", texture->GetName(), size,
                        static_cast<unsigned long long>(needed)))
            return false;
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glTextureSubImage2D(texture->GetDeviceObject(), level, 0, 0, width, height, format.eFormat, format.eType, data);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        return true;
    }

    bool GLRenderer::UploadTexture(Texture* texture, const TextureUpdateBuffer& buffer, bool create)
    {
        if (!Ready() || !ZEM_ASSERT(texture, "UploadTexture without texture")) return false;
        if (create || !texture->GetDeviceObject())
        {
            // A file's texture takes the shape its file gives: made anew, never resized.
            if (texture->GetDeviceObject()) FreeStorage(texture);
            texture->ApplyFileInfo();
            const GLuint name = CreateTextureStorage(texture->GetFileInfo());
            if (!name) return false;
            texture->SetDeviceObject(this, name);
            m_aTextures.push_back(texture);
        }
        const bool ok = UploadRegions(texture->GetDeviceObject(), texture->GetFileInfo(), buffer);
        return DrainErrors("UploadTexture", &m_uGLErrors) == 0 && ok;
    }
}
