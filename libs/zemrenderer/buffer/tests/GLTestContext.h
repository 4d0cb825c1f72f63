#pragma once
// Test-only: an OpenGL 4.5 core context without any surface (EGL surfaceless, llvmpipe on
// machines without a GPU), current on the thread that made it. Stands in until the
// device's own initialisation can be used by these tests.
#include <gtest/gtest.h>

#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <cstdlib>
#include <string>

#include "zemrenderer/buffer/GLBufferBackend.h"
#include "zemrenderer/device/null/NullRenderer.h"

namespace ZemRenderer::BufferTest
{
    class GLTestContext
    {
    public:
        GLTestContext() = default;
        ~GLTestContext() { Destroy(); }
        GLTestContext(const GLTestContext&) = delete;
        GLTestContext& operator=(const GLTestContext&) = delete;

        // Makes the context current on this thread; false with the reason otherwise.
        bool Create(std::string& why)
        {
            // Two rasterizer threads keep llvmpipe polite on a shared machine.
            setenv("LP_NUM_THREADS", "2", 0);
            m_pDisplay = eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
            EGLint major = 0, minor = 0;
            if (m_pDisplay == EGL_NO_DISPLAY || !eglInitialize(m_pDisplay, &major, &minor))
            {
                why = "no EGL device (surfaceless platform unavailable)";
                m_pDisplay = EGL_NO_DISPLAY;
                return false;
            }
            eglBindAPI(EGL_OPENGL_API);
            const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION, 4, EGL_CONTEXT_MINOR_VERSION, 5,
                                         EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
            m_pContext = eglCreateContext(m_pDisplay, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
            if (m_pContext == EGL_NO_CONTEXT || !eglMakeCurrent(m_pDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, m_pContext))
            {
                why = "no OpenGL 4.5 core context on the EGL device";
                Destroy();
                return false;
            }
            return true;
        }

        void Destroy()
        {
            if (m_pDisplay == EGL_NO_DISPLAY) return;
            eglMakeCurrent(m_pDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            if (m_pContext != EGL_NO_CONTEXT) eglDestroyContext(m_pDisplay, m_pContext);
            // The display stays initialised: terminating it unloads the driver, whose own
            // caches then read as leaks of an unknown module.
            m_pContext = EGL_NO_CONTEXT;
            m_pDisplay = EGL_NO_DISPLAY;
        }

    private:
        EGLDisplay m_pDisplay = EGL_NO_DISPLAY;
        EGLContext m_pContext = EGL_NO_CONTEXT;
    };

    // The null device with its buffers on OpenGL: the context is made by Init, on the
    // render thread, and goes at Release.
    class GLBufferRenderer : public NullRenderer
    {
    public:
        bool Init(const RendererInitRecord& record) override
        {
            if (!m_kContext.Create(m_sWhy)) return false;
            m_pBackend = new GLBufferBackend();
            GetBuffers().SetBackend(m_pBackend);
            return NullRenderer::Init(record);
        }
        void Release() override
        {
            NullRenderer::Release();
            m_iLiveAtRelease = GetBuffers().GetLiveCount();
            m_uErrorAtRelease = m_pBackend ? glGetError() : 0;
            GetBuffers().SetBackend(nullptr);
            delete m_pBackend;
            m_pBackend = nullptr;
            m_kContext.Destroy();
        }
        const std::string& Why() const { return m_sWhy; }
        int LiveAtRelease() const { return m_iLiveAtRelease; }
        unsigned ErrorAtRelease() const { return m_uErrorAtRelease; }

    private:
        GLTestContext m_kContext;
        GLBufferBackend* m_pBackend = nullptr;
        std::string m_sWhy;
        int m_iLiveAtRelease = -1;
        unsigned m_uErrorAtRelease = 0;
    };
}

// Skips the test, with the reason, where no EGL device exists.
#define ZEM_REQUIRE_GL(context)                                         \
    do                                                                  \
    {                                                                   \
        std::string zemWhy_;                                            \
        if (!(context).Create(zemWhy_)) GTEST_SKIP() << "GL test skipped: " << zemWhy_; \
    } while (0)
