#include "zemrenderer/device/gl/GLRenderer.h"

#include <SDL2/SDL.h>
#include <epoxy/gl.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/RenderViewport.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLDebug.h"
#include "zemrenderer/device/gl/GLFormats.h"
#include "zemrenderer/device/gl/GLPrograms.h"
#include "zemrenderer/device/gl/GLRendererInternal.h"
#include "zemrenderer/thread/ThreadId.h"

namespace ZemRenderer
{
    using namespace GL;

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
        // A window the size of the desktop's mode has no frame.
        Uint32 flags = SDL_WINDOW_OPENGL | SDL_WINDOW_RESIZABLE;
        SDL_DisplayMode mode;
        if (SDL_GetDesktopDisplayMode(0, &mode) == 0 && mode.w == width && mode.h == height)
            flags = SDL_WINDOW_OPENGL | SDL_WINDOW_BORDERLESS;
        return SDL_CreateWindow(title.c_str(), SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, width, height, flags);
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
        // The adapters in the order they are tried: the window's own context; without a
        // window, EGL surfaceless (Mesa, its software rasteriser on a machine without a
        // GPU), then each device the driver lists.
        std::string reason;
        bool created = false;
        auto failed = [&]() {
            Common::Log("Init device failed with adpater : %s\n", (m_szAdapter + ": " + reason).c_str());
        };
        if (record.pWindow)
        {
            m_szAdapter = "SDL window";
            created = m_kContext.CreateForWindow(static_cast<SDL_Window*>(record.pWindow), m_bDebug, reason);
            if (!created) failed();
        }
        else
        {
            m_szAdapter = "EGL surfaceless";
            created = m_kContext.CreateSurfaceless(m_bDebug, reason);
            if (!created) failed();
            const int devices = created ? 0 : GLContext::CountDevices();
            for (int i = 0; i < devices && !created; ++i)
            {
                m_szAdapter = "EGL device " + std::to_string(i);
                created = m_kContext.CreateOnDevice(i, m_bDebug, reason);
                if (!created) failed();
            }
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
        // Only a robust context can tell; the others always answer no reset.
        const GLenum reset = glGetGraphicsResetStatus();
        if (reset != GL_NO_ERROR)
        {
            Common::Log("device removed reason: %d\n", static_cast<int>(reset));
            return false;
        }
        return true;
    }
}
