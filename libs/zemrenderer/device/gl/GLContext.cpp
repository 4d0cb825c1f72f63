#include "zemrenderer/device/gl/GLContext.h"

#include <SDL2/SDL.h>
#include <epoxy/egl.h>
#include <epoxy/gl.h>

#include <cstdlib>

namespace ZemRenderer::GL
{
    namespace
    {
        std::string EGLErrorText(const char* call)
        {
            char text[96];
            std::snprintf(text, sizeof(text), "%s failed (EGL error 0x%x)", call, static_cast<unsigned>(eglGetError()));
            return text;
        }

        // The version a device needs; older contexts are refused with it in the reason.
        bool CheckVersion(std::string& reason)
        {
            const int version = epoxy_gl_version();
            if (version >= 45) return true;
            const char* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
            reason = "OpenGL 4.5 core needed, " + std::string(renderer ? renderer : "the driver") + " gives " +
                     std::to_string(version / 10) + "." + std::to_string(version % 10);
            return false;
        }
    }

    bool IsGLAllowed(std::string& reason)
    {
        const char* off = std::getenv("ZEM_NO_GL");
        if (off && *off && *off != '0')
        {
            reason = "OpenGL turned off by ZEM_NO_GL";
            return false;
        }
        if (!epoxy_has_egl())
        {
            reason = "no EGL library";
            return false;
        }
        return true;
    }

    bool GLContext::CreateSurfaceless(bool debug, std::string& reason)
    {
        if (!IsGLAllowed(reason)) return false;
        const char* clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
        if (!clientExtensions || !epoxy_extension_in_string(clientExtensions, "EGL_MESA_platform_surfaceless"))
        {
            reason = "EGL has no surfaceless platform";
            return false;
        }
        EGLDisplay display = eglGetPlatformDisplayEXT(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
        EGLint major = 0, minor = 0;
        if (display == EGL_NO_DISPLAY || !eglInitialize(display, &major, &minor))
        {
            reason = EGLErrorText("eglInitialize");
            return false;
        }
        if (!eglBindAPI(EGL_OPENGL_API))
        {
            reason = EGLErrorText("eglBindAPI");
            return false;
        }
        const EGLint attributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                     4,
                                     EGL_CONTEXT_MINOR_VERSION,
                                     5,
                                     EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                     EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                     EGL_CONTEXT_OPENGL_DEBUG,
                                     debug ? EGL_TRUE : EGL_FALSE,
                                     EGL_NONE};
        EGLContext context = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, attributes);
        if (context == EGL_NO_CONTEXT)
        {
            reason = EGLErrorText("eglCreateContext (4.5 core)");
            return false;
        }
        if (!eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context))
        {
            reason = EGLErrorText("eglMakeCurrent");
            eglDestroyContext(display, context);
            return false;
        }
        m_pEGLDisplay = display;
        m_pEGLContext = context;
        if (!CheckVersion(reason))
        {
            Destroy();
            return false;
        }
        return true;
    }

    bool GLContext::CreateForWindow(SDL_Window* window, bool debug, std::string& reason)
    {
        if (!IsGLAllowed(reason)) return false;
        if (!window)
        {
            reason = "no window";
            return false;
        }
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 4);
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 5);
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_CORE);
        SDL_GL_SetAttribute(SDL_GL_CONTEXT_FLAGS, debug ? SDL_GL_CONTEXT_DEBUG_FLAG : 0);
        SDL_GLContext context = SDL_GL_CreateContext(window);
        if (!context)
        {
            reason = std::string("SDL_GL_CreateContext: ") + SDL_GetError();
            return false;
        }
        m_pSDLContext = context;
        m_pWindow = window;
        if (SDL_GL_MakeCurrent(window, context) != 0)
        {
            reason = std::string("SDL_GL_MakeCurrent: ") + SDL_GetError();
            Destroy();
            return false;
        }
        // Presenting never waits for the display.
        SDL_GL_SetSwapInterval(0);
        if (!CheckVersion(reason))
        {
            Destroy();
            return false;
        }
        return true;
    }

    void GLContext::Destroy()
    {
        if (m_pSDLContext)
        {
            SDL_GL_MakeCurrent(m_pWindow, nullptr);
            SDL_GL_DeleteContext(static_cast<SDL_GLContext>(m_pSDLContext));
            m_pSDLContext = nullptr;
            m_pWindow = nullptr;
        }
        if (m_pEGLContext)
        {
            // The display stays initialised: other devices of the process may share it.
            eglMakeCurrent(m_pEGLDisplay, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            eglDestroyContext(m_pEGLDisplay, m_pEGLContext);
            eglReleaseThread();
            m_pEGLContext = nullptr;
            m_pEGLDisplay = nullptr;
        }
    }

    void GLContext::Swap()
    {
        if (m_pWindow && m_pSDLContext) SDL_GL_SwapWindow(m_pWindow);
    }

    bool GLContext::GetDrawableSize(int& width, int& height) const
    {
        if (!m_pWindow) return false;
        SDL_GL_GetDrawableSize(m_pWindow, &width, &height);
        return width > 0 && height > 0;
    }
}
