#pragma once
// The GL 4.5 core context of a device: EGL surfaceless when it draws off-screen, or the
// context of an SDL window. Made and used on the render thread only.
#include <string>

struct SDL_Window;

namespace ZemRenderer::GL
{
    class GLContext
    {
    public:
        GLContext() = default;
        ~GLContext() { Destroy(); }
        GLContext(const GLContext&) = delete;
        GLContext& operator=(const GLContext&) = delete;

        // Each leaves the new context current on the calling thread, or says why not.
        bool CreateSurfaceless(bool debug, std::string& reason);
        bool CreateForWindow(SDL_Window* window, bool debug, std::string& reason);
        void Destroy();

        bool IsCreated() const { return m_pEGLContext || m_pSDLContext; }
        SDL_Window* GetWindow() const { return m_pWindow; }
        // Presents the window's default framebuffer; nothing off-screen.
        void Swap();
        // The size of the window's drawable, in pixels.
        bool GetDrawableSize(int& width, int& height) const;

    private:
        void* m_pEGLDisplay = nullptr;
        void* m_pEGLContext = nullptr;
        void* m_pSDLContext = nullptr;
        SDL_Window* m_pWindow = nullptr;
    };

    // False, with the reason, when no EGL can be loaded or the device is turned off for
    // this process (ZEM_NO_GL set in the environment).
    bool IsGLAllowed(std::string& reason);
}
