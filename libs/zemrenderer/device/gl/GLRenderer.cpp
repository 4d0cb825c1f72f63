#include "zemrenderer/device/gl/GLRenderer.h"

#include <SDL2/SDL.h>
#include <epoxy/gl.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/PngImage.h"
#include "zemrenderer/device/RenderViewport.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLDebug.h"
#include "zemrenderer/device/gl/GLFormats.h"
#include "zemrenderer/device/gl/GLPrograms.h"
#include "zemrenderer/device/gl/GLTextureUpload.h"
#include "zemrenderer/thread/ThreadId.h"

namespace ZemRenderer
{
    using namespace GL;

    // What BeginViewport draws into: the window's back buffer made by the device, or the
    // caller's implicit target; a depth buffer of the same size either way.
    struct GLRenderer::View
    {
        RenderViewport* pViewport = nullptr;
        Texture* pBackBuffer = nullptr;
        Texture* pDepth = nullptr;
        bool bWindow = false;
    };

    namespace
    {
        uint64_t NowMs()
        {
            using namespace std::chrono;
            return static_cast<uint64_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
        }

        std::string WideToUtf8(const char16_t* text, size_t capacity)
        {
            std::string out;
            for (size_t i = 0; i < capacity && text[i]; ++i)
            {
                const uint32_t c = text[i];
                if (c < 0x80)
                    out += static_cast<char>(c);
                else if (c < 0x800)
                    out += static_cast<char>(0xC0 | (c >> 6)), out += static_cast<char>(0x80 | (c & 0x3F));
                else
                    out += static_cast<char>(0xE0 | (c >> 12)), out += static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
                        out += static_cast<char>(0x80 | (c & 0x3F));
            }
            return out;
        }

        GLenum TopologyMode(uint32_t topology)
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

        void ColourToFloats(uint32_t colour, float* out)
        {
            for (int i = 0; i < 4; ++i) out[i] = static_cast<float>((colour >> (8 * i)) & 0xFF) / 255.0f;
        }

        uint32_t MipSize(uint32_t size, uint32_t level) { return std::max(1u, size >> level); }

        // What text draws with: blended over the target, no depth, both faces.
        CRenderState TextState()
        {
            return CRenderState::Default()
                .SetCullMode(false)
                .SetDepthEnable(false)
                .SetDepthWrite(false)
                .SetBlendModeAll({BlendType::SrcAlpha, BlendType::InvSrcAlpha, BlendOp::Add});
        }
    }

    GLRenderer::~GLRenderer()
    {
        ZEM_ASSERT(!m_bCreated.load(), "GLRenderer destroyed without Release");
    }

    // ---------------------------------------------------------------- lifetime

    void* GLRenderer::CreateGLWindow(const RendererInitRecord& record)
    {
        std::string reason;
        if (!IsGLAllowed(reason) || std::getenv("ZEM_NO_WINDOW")) return nullptr;
        if (!SDL_WasInit(SDL_INIT_VIDEO) && SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) return nullptr;
        std::string title = WideToUtf8(record.szTitle, sizeof(record.szTitle) / sizeof(record.szTitle[0]));
        if (title.empty()) title = "ZemTech";
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 4);
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 5);
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_CORE);
        const int width = record.uWidth ? static_cast<int>(record.uWidth) : 1280;
        const int height = record.uHeight ? static_cast<int>(record.uHeight) : 720;
        return SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, width, height,
                                SDL_WINDOW_OPENGL | SDL_WINDOW_RESIZABLE);
    }

    bool GLRenderer::Init(const RendererInitRecord& record)
    {
        if (!ZEM_ASSERT(!m_bCreated.load(), "Renderer already initialized")) return false;
        m_kRecord = record;
        m_iThreadId = CurrentThreadId();
#ifdef NDEBUG
        m_bDebug = record.bDebugDevice != 0;
#else
        m_bDebug = true;
#endif
        // The adapters in the order they are tried: the window's own context, then EGL
        // surfaceless (Mesa's software rasteriser on a machine without a GPU).
        std::string reason;
        bool created = false;
        if (record.pWindow)
        {
            m_szAdapter = "SDL window";
            created = m_kContext.CreateForWindow(static_cast<SDL_Window*>(record.pWindow), m_bDebug, reason);
            if (!created) Common::Log("Init device failed with adpater : %s\n", (m_szAdapter + ": " + reason).c_str());
        }
        else
        {
            m_szAdapter = "EGL surfaceless";
            created = m_kContext.CreateSurfaceless(m_bDebug, reason);
            if (!created) Common::Log("Init device failed with adpater : %s\n", (m_szAdapter + ": " + reason).c_str());
        }
        if (!created)
        {
            Common::Log("No valid DX11 Adpater found on this machine.\n");
            return false;
        }
        if (m_bDebug) InstallDebugOutput(&m_uGLErrors);
        if (!CreateSharedObjects(reason))
        {
            Common::Log("Init device failed with adpater : %s\n", (m_szAdapter + ": " + reason).c_str());
            ReleaseSharedObjects();
            if (m_bDebug) RemoveDebugOutput();
            m_kContext.Destroy();
            return false;
        }
        Common::Log("Renderer : %s, %s (%s)\n", reinterpret_cast<const char*>(glGetString(GL_RENDERER)),
                    reinterpret_cast<const char*>(glGetString(GL_VERSION)), m_szAdapter.c_str());
        m_uStartMs = NowMs();
        m_bCreated.store(true, std::memory_order_release);
        if (m_kContext.GetWindow())
        {
            // The window shows black until the first frame.
            glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
            const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
            glClearBufferfv(GL_COLOR, 0, black);
            m_kContext.Swap();
            glBindFramebuffer(GL_FRAMEBUFFER, m_uDrawFramebuffer);
        }
        DrainErrors("Init", &m_uGLErrors);
        return true;
    }

    bool GLRenderer::CreateSharedObjects(std::string& reason)
    {
        // The engine's conventions: row 0 at the top, depth 0 to 1.
        glClipControl(GL_UPPER_LEFT, GL_ZERO_TO_ONE);
        glCreateFramebuffers(1, &m_uDrawFramebuffer);
        glCreateFramebuffers(1, &m_uClearFramebuffer);
        glCreateFramebuffers(1, &m_uReadFramebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, m_uDrawFramebuffer);
        GLint alignment = 256;
        glGetIntegerv(GL_UNIFORM_BUFFER_OFFSET_ALIGNMENT, &alignment);
        m_uUniformAlignment = static_cast<uint32_t>(std::max(alignment, 16));
        if (!m_kVertexRing.Create(4 * kUserPrimitiveBytes) || !m_kUniformRing.Create(1u << 20))
        {
            reason = "cannot map the stream buffers";
            return false;
        }
        std::string log;
        m_uPrimitiveProgram = CreateUserPrimitiveProgram(log);
        if (m_uPrimitiveProgram) m_uTextProgram = CreateTextProgram(log);
        if (!m_uTextProgram)
        {
            reason = "device programs: " + log;
            return false;
        }
        glCreateVertexArrays(1, &m_uPrimitiveVertexArray);
        glEnableVertexArrayAttrib(m_uPrimitiveVertexArray, 0);
        glEnableVertexArrayAttrib(m_uPrimitiveVertexArray, 1);
        glVertexArrayAttribFormat(m_uPrimitiveVertexArray, 0, 3, GL_FLOAT, GL_FALSE, 0);
        glVertexArrayAttribFormat(m_uPrimitiveVertexArray, 1, 4, GL_UNSIGNED_BYTE, GL_TRUE, 12);
        glVertexArrayAttribBinding(m_uPrimitiveVertexArray, 0, 0);
        glVertexArrayAttribBinding(m_uPrimitiveVertexArray, 1, 0);
        glCreateVertexArrays(1, &m_uTextVertexArray);
        glEnableVertexArrayAttrib(m_uTextVertexArray, 0);
        glEnableVertexArrayAttrib(m_uTextVertexArray, 1);
        glVertexArrayAttribFormat(m_uTextVertexArray, 0, 2, GL_FLOAT, GL_FALSE, 0);
        glVertexArrayAttribFormat(m_uTextVertexArray, 1, 2, GL_FLOAT, GL_FALSE, 8);
        glVertexArrayAttribBinding(m_uTextVertexArray, 0, 0);
        glVertexArrayAttribBinding(m_uTextVertexArray, 1, 0);

        m_kStates.Invalidate();
        m_pRequestedState = &m_kStates.Decode(CRenderState::Default());
        m_pTextState = &m_kStates.Decode(TextState());
        ApplyState(*m_pRequestedState);
        return true;
    }

    void GLRenderer::ReleaseSharedObjects()
    {
        m_kText.Release();
        m_kSamplers.Release();
        m_kVertexRing.Release();
        m_kUniformRing.Release();
        glBindVertexArray(0);
        glUseProgram(0);
        m_uBoundProgram = m_uBoundVertexArray = 0;
        for (GLuint* vao : {&m_uPrimitiveVertexArray, &m_uTextVertexArray})
            if (*vao) glDeleteVertexArrays(1, vao), *vao = 0;
        for (GLuint* program : {&m_uPrimitiveProgram, &m_uTextProgram})
            if (*program) glDeleteProgram(*program), *program = 0;
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        for (GLuint* fbo : {&m_uDrawFramebuffer, &m_uClearFramebuffer, &m_uReadFramebuffer})
            if (*fbo) glDeleteFramebuffers(1, fbo), *fbo = 0;
    }

    void GLRenderer::Release()
    {
        if (!m_bCreated.load(std::memory_order_acquire)) return;
        if (!CheckImmediateContextThread()) return;
        while (!m_aViews.empty()) ReleaseViewport(m_aViews.back()->pViewport);
        std::fill(std::begin(m_apTargets), std::end(m_apTargets), nullptr);
        m_pDepthTarget = nullptr;
        m_uTargetCount = 0;
        for (size_t i = 0; i < m_aTextures.size(); ++i)
        {
            Texture* texture = m_aTextures[i];
            const int32_t refs = texture->GetRefCount();
            if (refs > 0 && texture->HasBindFlag(eBindRenderTarget))
                Common::Log("Potential leak on RenderTargetView %s arrayindex %i refcount = %i\n", texture->GetName(),
                            static_cast<int>(i), refs);
            else if (refs > 0 && texture->HasBindFlag(eBindDepthStencil))
                Common::Log("Potential leak on DepthStencilView %s arrayindex %i refcount = %i\n", texture->GetName(),
                            static_cast<int>(i), refs);
            GLuint name = texture->GetDeviceObject();
            glDeleteTextures(1, &name);
            texture->SetDeviceObject(nullptr, 0);
        }
        // Textures whose last reference went while the render thread stopped wait here.
        std::vector<Texture*> textures;
        textures.swap(m_aTextures);
        for (Texture* texture : textures)
            texture->DeleteUnreferenced();
        ReleaseSharedObjects();
        DrainErrors("Release", &m_uGLErrors);
        if (m_bDebug) RemoveDebugOutput();
        m_kContext.Destroy();
        m_sceneopen = false;
        m_pRenderViewport = nullptr;
        m_pRequestedState = m_pTextState = nullptr;
        m_bCreated.store(false, std::memory_order_release);
    }

    void GLRenderer::Flush()
    {
        if (!Ready()) return;
        glFinish();
        DrainErrors("Flush", &m_uGLErrors);
    }

    bool GLRenderer::CheckImmediateContextThread() const
    {
        return ZEM_ASSERT(CurrentThreadId() == m_iThreadId, "Wrong Thread");
    }

    bool GLRenderer::Ready() const { return m_bCreated.load(std::memory_order_acquire) && CheckImmediateContextThread(); }

    uint32_t GLRenderer::GetGLErrorCount()
    {
        if (Ready()) DrainErrors("a check", &m_uGLErrors);
        return m_uGLErrors.load(std::memory_order_relaxed);
    }

    // ---------------------------------------------------------------- frame brackets

    bool GLRenderer::BeginScene(float elapsed, float fixedStep)
    {
        if (!ZEM_ASSERT(m_bCreated.load(std::memory_order_acquire), "Renderer not initialized ! can't swap."))
            return false;
        if (!CheckImmediateContextThread()) return false;
        ZEM_ASSERT(!m_sceneopen, "Scene not closed.");
        ZEM_ASSERT(m_pRenderViewport == nullptr, "Begin/End viewport mismatch");
        if (!m_sceneopen)
        {
            ++m_uFrameCount;
            m_fElapsed = elapsed;
            m_fFixedStep = fixedStep;
            m_sceneopen = true;
        }
        return true;
    }

    bool GLRenderer::EndScene()
    {
        if (!Ready()) return false;
        m_sceneopen = false;
        ZEM_ASSERT(m_pRenderViewport == nullptr, "Begin/End viewport mismatch");
        m_kFrameRate.AddFrame(NowMs() - m_uStartMs);
        DrainErrors("EndScene", &m_uGLErrors);
        return true;
    }

    bool GLRenderer::CreateRenderViewport(RenderViewport* viewport, const RendererInitRecord&)
    {
        if (!Ready() || !ZEM_ASSERT(viewport != nullptr, "Null viewport")) return false;
        if (viewport->GetView()) return true;
        void* window = viewport->GetWindow();
        Texture* implicit = viewport->GetImplicitTarget();
        if (!ZEM_ASSERT(window || implicit, "Implicit rendertarget viewport must exist if no windows handle."))
            return false;
        if (!ZEM_ASSERT(!window || !implicit, "Implicit rendertarget viewport must be null for swapchain."))
            return false;
        if (!ZEM_ASSERT(!window || window == m_kContext.GetWindow(), "Viewport window is not the device's window"))
            return false;
        View* view = new View;
        view->pViewport = viewport;
        view->bWindow = window != nullptr;
        uint32_t width = viewport->GetWidth(), height = viewport->GetHeight();
        if (view->bWindow)
        {
            int w = 0, h = 0;
            if (m_kContext.GetDrawableSize(w, h)) width = static_cast<uint32_t>(w), height = static_cast<uint32_t>(h);
            TextureDesc desc;
            desc.uWidth = width;
            desc.uHeight = height;
            desc.uFormat = eFormatA8B8G8R8;
            desc.uBindFlags = eBindRenderTarget | eBindShaderResource;
            view->pBackBuffer = Texture::Create(desc, "BackBuffer");
        }
        else
        {
            implicit->AddRef();
            view->pBackBuffer = implicit;
            if (implicit->GetWidth() && implicit->GetHeight())
                width = implicit->GetWidth(), height = implicit->GetHeight();
            else
                implicit->SetSize(width, height);
        }
        TextureDesc depth;
        depth.uWidth = width;
        depth.uHeight = height;
        depth.uFormat = eFormatD24S8;
        depth.uBindFlags = eBindDepthStencil;
        view->pDepth = Texture::Create(depth, "DepthBuffer");
        if (!EnsureTexture(view->pBackBuffer) || !EnsureTexture(view->pDepth))
        {
            view->pBackBuffer->Release();
            view->pDepth->Release();
            delete view;
            return false;
        }
        viewport->SetView(view);
        viewport->SetSize(viewport->GetWidth() ? viewport->GetWidth() : width,
                          viewport->GetHeight() ? viewport->GetHeight() : height, width, height);
        m_aViews.push_back(view);
        return true;
    }

    void GLRenderer::ReleaseViewport(RenderViewport* viewport)
    {
        if (!viewport || !viewport->GetView() || !Ready()) return;
        View* view = static_cast<View*>(viewport->GetView());
        if (m_pRenderViewport == viewport) m_pRenderViewport = nullptr;
        for (uint32_t i = 0; i < kMaxRenderTargets; ++i)
            if (m_apTargets[i] == view->pBackBuffer) m_apTargets[i] = nullptr;
        if (m_pDepthTarget == view->pDepth) m_pDepthTarget = nullptr;
        view->pBackBuffer->Release();
        view->pDepth->Release();
        m_aViews.erase(std::remove(m_aViews.begin(), m_aViews.end(), view), m_aViews.end());
        viewport->SetView(nullptr);
        delete view;
    }

    bool GLRenderer::ResizeView(View* view, uint32_t width, uint32_t height)
    {
        const bool ok = ResizeTexture(view->pBackBuffer, width, height) && ResizeTexture(view->pDepth, width, height);
        view->pViewport->SetSize(width, height, view->pBackBuffer->GetWidth(), view->pBackBuffer->GetHeight());
        return ok;
    }

    bool GLRenderer::ResizeViewport(RenderViewport* viewport, uint32_t width, uint32_t height)
    {
        if (!Ready() || !ZEM_ASSERT(viewport != nullptr, "Null viewport")) return false;
        if (!ZEM_ASSERT(width > 0 && height > 0, "ResizeViewport to an empty size %ux%u", width, height)) return false;
        if (!viewport->GetView())
        {
            viewport->SetSize(width, height, width, height);
            if (Texture* implicit = viewport->GetImplicitTarget())
                if (!implicit->GetDeviceObject()) implicit->SetSize(width, height);
            return true;
        }
        return ResizeView(static_cast<View*>(viewport->GetView()), width, height);
    }

    bool GLRenderer::BeginViewport(RenderViewport* viewport)
    {
        if (!Ready() || !ZEM_ASSERT(viewport != nullptr, "Null viewport")) return false;
        if (!ZEM_ASSERT(m_pRenderViewport == nullptr, "Begin/End viewport mismatch")) return false;
        if (!viewport->GetView() && !CreateRenderViewport(viewport, m_kRecord)) return false;
        View* view = static_cast<View*>(viewport->GetView());
        if (view->bWindow)
        {
            // A window resized by its user draws at its new size from the next frame on.
            int w = 0, h = 0;
            if (m_kContext.GetDrawableSize(w, h) &&
                (static_cast<uint32_t>(w) != view->pBackBuffer->GetWidth() ||
                 static_cast<uint32_t>(h) != view->pBackBuffer->GetHeight()))
                ResizeView(view, static_cast<uint32_t>(w), static_cast<uint32_t>(h));
        }
        m_pRenderViewport = viewport;
        SetRenderTargets(&view->pBackBuffer, 1, view->pDepth, nullptr, 0, 0);
        ViewportRect rect;
        rect.fWidth = static_cast<float>(view->pBackBuffer->GetWidth());
        rect.fHeight = static_cast<float>(view->pBackBuffer->GetHeight());
        SetViewport(rect);
        return true;
    }

    bool GLRenderer::EndViewport()
    {
        if (!Ready()) return false;
        if (!ZEM_ASSERT(m_pRenderViewport != nullptr, "Begin/End viewport mismatch")) return false;
        View* view = static_cast<View*>(m_pRenderViewport->GetView());
        m_pRenderViewport = nullptr;
        if (view && view->bWindow)
        {
            int w = 0, h = 0;
            m_kContext.GetDrawableSize(w, h);
            const GLint sw = static_cast<GLint>(view->pBackBuffer->GetWidth());
            const GLint sh = static_cast<GLint>(view->pBackBuffer->GetHeight());
            glNamedFramebufferTexture(m_uReadFramebuffer, GL_COLOR_ATTACHMENT0, view->pBackBuffer->GetDeviceObject(), 0);
            glNamedFramebufferReadBuffer(m_uReadFramebuffer, GL_COLOR_ATTACHMENT0);
            // Blits obey the scissor test; the window's rows run bottom to top.
            glDisable(GL_SCISSOR_TEST);
            m_kStates.ForgetMasksAndScissor();
            glBlitNamedFramebuffer(m_uReadFramebuffer, 0, 0, 0, sw, sh, 0, h, w, 0, GL_COLOR_BUFFER_BIT,
                                   sw == w && sh == h ? GL_NEAREST : GL_LINEAR);
            m_kContext.Swap();
        }
        DrainErrors("EndViewport", &m_uGLErrors);
        return true;
    }

    // ---------------------------------------------------------------- targets and state

    bool GLRenderer::EnsureTexture(Texture* texture)
    {
        if (!texture) return false;
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

    // ---------------------------------------------------------------- draws

    bool GLRenderer::CanDraw()
    {
        if (m_bTargetsComplete) return true;
        Common::Log("Draw without a complete render target: skipped\n");
        return false;
    }

    void GLRenderer::BindProgram(GLuint program, GLuint vao)
    {
        if (program != m_uBoundProgram) glUseProgram(program), m_uBoundProgram = program;
        if (vao != m_uBoundVertexArray) glBindVertexArray(vao), m_uBoundVertexArray = vao;
    }

    void GLRenderer::RenderImmediate(Geometry*, Property*, uint32_t)
    {
        if (!Ready()) return;
        static std::atomic<bool> s_bSaid{false};
        if (!s_bSaid.exchange(true)) Common::Log("RenderImmediate : no geometry can be drawn by this device yet\n");
    }

    void GLRenderer::DrawSortedCommands(const DrawCommand*, uint32_t count)
    {
        if (!Ready() || !count) return;
        static std::atomic<bool> s_bSaid{false};
        if (!s_bSaid.exchange(true)) Common::Log("DrawSortedCommands : no geometry can be drawn by this device yet\n");
    }

    void* GLRenderer::StartUserPrimitive(uint32_t topology, uint32_t vertexStride, uint32_t vertexCount)
    {
        if (!Ready()) return nullptr;
        if (!ZEM_ASSERT(!m_bUserPrimitiveOpen, "Start/End UserPrimitive mismatch")) return nullptr;
        if (!ZEM_ASSERT(TopologyMode(topology) != GL_NONE, "Unknown topology")) return nullptr;
        if (!ZEM_ASSERT(vertexStride >= sizeof(UserPrimitiveVertex) && vertexStride % 4 == 0,
                        "UserPrimitive stride %u: a multiple of 4, 16 at least", vertexStride))
            return nullptr;
        const uint64_t bytes = uint64_t(vertexStride) * vertexCount;
        if (!ZEM_ASSERT(bytes <= kUserPrimitiveBytes,
                        "Too much primitives to handle in one call : split it or increase UserPrimitive buffer size"))
            return nullptr;
        if (!vertexCount) return nullptr;
        uint32_t offset = 0;
        void* data = m_kVertexRing.Allocate(static_cast<uint32_t>(bytes), 16, offset);
        if (!data) return nullptr;
        m_bUserPrimitiveOpen = true;
        m_uUserTopology = topology;
        m_uUserStride = vertexStride;
        m_uUserCount = vertexCount;
        m_uUserOffset = offset;
        return data;
    }

    void GLRenderer::EndUserPrimitive(uint32_t vertexCount)
    {
        if (!Ready()) return;
        if (!ZEM_ASSERT(m_bUserPrimitiveOpen, "Start/End UserPrimitive mismatch")) return;
        m_bUserPrimitiveOpen = false;
        if (!ZEM_ASSERT(vertexCount <= m_uUserCount, "EndUserPrimitive with %u vertices, %u were asked for",
                        vertexCount, m_uUserCount))
            vertexCount = m_uUserCount;
        if (!vertexCount || !CanDraw()) return;
        ApplyState(*m_pRequestedState);
        BindProgram(m_uPrimitiveProgram, m_uPrimitiveVertexArray);
        glVertexArrayVertexBuffer(m_uPrimitiveVertexArray, 0, m_kVertexRing.GetBuffer(), m_uUserOffset,
                                  static_cast<GLsizei>(m_uUserStride));
        glDrawArrays(TopologyMode(m_uUserTopology), 0, static_cast<GLsizei>(vertexCount));
        ++m_uDraws;
    }

    bool GLRenderer::EnsureTextAtlas()
    {
        if (m_kText.IsBuilt()) return true;
        if (m_bTextTried) return false;
        m_bTextTried = true;
        std::string reason;
        if (m_kText.Build(GetScreenFontPath(), kAtlasPixelSize, reason)) return true;
        Common::Log("Screen text : font \"Arial\" unavailable, %s\n", reason.c_str());
        return false;
    }

    void GLRenderer::RenderText(const char* text, float x, float y, float scale, uint32_t colour)
    {
        if (!Ready() || !text || !*text || !EnsureTextAtlas() || !CanDraw()) return;
        m_aTextScratch.clear();
        m_kText.Layout(text, x, y, scale, m_aTextScratch);
        if (m_aTextScratch.empty()) return;
        // A long text goes in pieces of whole glyphs that each fit the stream.
        const uint32_t glyphBytes = 6 * sizeof(TextVertex);
        const uint32_t maxGlyphs = m_kVertexRing.GetMaxAllocation() / glyphBytes;
        GLint width = 0, height = 0;
        Texture* target = m_apTargets[0] ? m_apTargets[0] : m_pDepthTarget;
        width = static_cast<GLint>(target->GetWidth());
        height = static_cast<GLint>(target->GetHeight());
        uint32_t uniformOffset = 0;
        auto* constants = reinterpret_cast<TextConstants*>(
            m_kUniformRing.Allocate(sizeof(TextConstants), m_uUniformAlignment, uniformOffset));
        if (!constants) return;
        constants->afTarget[0] = static_cast<float>(width);
        constants->afTarget[1] = static_cast<float>(height);
        constants->afTarget[2] = 1.0f / static_cast<float>(std::max(width, 1));
        constants->afTarget[3] = 1.0f / static_cast<float>(std::max(height, 1));
        ColourToFloats(colour, constants->afColour);
        glBindBufferRange(GL_UNIFORM_BUFFER, 0, m_kUniformRing.GetBuffer(), uniformOffset, sizeof(TextConstants));
        SamplerDesc sampler;
        sampler.eAddressU = sampler.eAddressV = sampler.eAddressW = SamplerAddress::Clamp;
        glBindTextureUnit(0, m_kText.GetTexture());
        glBindSampler(0, m_kSamplers.Get(sampler));
        ApplyState(*m_pTextState);
        BindProgram(m_uTextProgram, m_uTextVertexArray);
        const uint32_t glyphs = static_cast<uint32_t>(m_aTextScratch.size() / 6);
        for (uint32_t first = 0; first < glyphs; first += maxGlyphs)
        {
            const uint32_t n = std::min(maxGlyphs, glyphs - first);
            uint32_t offset = 0;
            uint8_t* data = m_kVertexRing.Allocate(n * glyphBytes, 16, offset);
            if (!data) return;
            std::memcpy(data, &m_aTextScratch[size_t(first) * 6], size_t(n) * glyphBytes);
            glVertexArrayVertexBuffer(m_uTextVertexArray, 0, m_kVertexRing.GetBuffer(), offset, sizeof(TextVertex));
            glDrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(n * 6));
            ++m_uDraws;
        }
    }

    void GLRenderer::PerfEventBegin(uint32_t colour, const char* name)
    {
        if (!Ready()) return;
        glPushDebugGroup(GL_DEBUG_SOURCE_APPLICATION, colour, -1, name ? name : "");
        ++m_uPerfDepth;
    }

    void GLRenderer::PerfEventEnd()
    {
        if (!Ready()) return;
        if (!ZEM_ASSERT(m_uPerfDepth > 0, "PerfEventEnd without PerfEventBegin")) return;
        glPopDebugGroup();
        --m_uPerfDepth;
    }

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
