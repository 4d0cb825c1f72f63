// A window viewport: drawn into the device's back buffer and presented right way up into
// the window (SDL's off-screen video driver, which has OpenGL through EGL).
#include <gtest/gtest.h>

#include <SDL2/SDL.h>

#include <thread>

#include "zemrenderer/device/RenderViewport.h"
#include "zemrenderer/device/tests/GLTestKit.h"

namespace ZemRenderer::Testing
{
    TEST(GLWindow, PresentsTheViewUprightAndFollowsTheWindowSize)
    {
        UseSmallSoftwareRasteriser();
        setenv("SDL_VIDEODRIVER", "offscreen", 1);
        std::string skip;
        uint8_t topLeft[4] = {}, bottomLeft[4] = {};
        uint32_t resizedWidth = 0;
        uint32_t errors = 0;
        // A thread of its own: the window's context is current there only.
        std::thread thread([&] {
            if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
            {
                skip = std::string("no SDL video: ") + SDL_GetError();
                return;
            }
            RendererInitRecord record;
            record.uWidth = 64;
            record.uHeight = 48;
            void* window = GLRenderer::CreateGLWindow(record);
            GLRenderer device;
            record.pWindow = window;
            if (!window || !device.Init(record))
            {
                skip = "no OpenGL window on this machine";
                if (window) SDL_DestroyWindow(static_cast<SDL_Window*>(window));
                SDL_QuitSubSystem(SDL_INIT_VIDEO);
                return;
            }
            RenderViewport viewport(window, nullptr, 64, 48);
            device.BeginScene(0.0f, 0.0f);
            device.BeginViewport(&viewport);
            device.Clear(ClearRequest{});
            device.SetRenderState(CRenderState::Default().SetDepthEnable(false).GetValue(), CRenderState::kFullMask);
            // Red over the top-left quarter of the view.
            auto* v = static_cast<UserPrimitiveVertex*>(device.StartUserPrimitive(eTopologyTriangleStrip, 16, 4));
            v[0] = {{-1.0f, 1.0f, 0.5f}, Rgba(255, 0, 0)};
            v[1] = {{0.0f, 1.0f, 0.5f}, Rgba(255, 0, 0)};
            v[2] = {{-1.0f, 0.0f, 0.5f}, Rgba(255, 0, 0)};
            v[3] = {{0.0f, 0.0f, 0.5f}, Rgba(255, 0, 0)};
            device.EndUserPrimitive(4);
            device.EndViewport();
            device.EndScene();
            // The window's own framebuffer: its row 0 is the bottom of the window.
            glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
            glReadPixels(4, 44, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, topLeft);
            glReadPixels(4, 4, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, bottomLeft);

            SDL_SetWindowSize(static_cast<SDL_Window*>(window), 80, 40);
            device.BeginScene(0.0f, 0.0f);
            device.BeginViewport(&viewport);
            device.EndViewport();
            device.EndScene();
            resizedWidth = viewport.GetWidth();
            errors = device.GetGLErrorCount();
            device.ReleaseViewport(&viewport);
            device.Release();
            SDL_DestroyWindow(static_cast<SDL_Window*>(window));
            SDL_QuitSubSystem(SDL_INIT_VIDEO);
        });
        thread.join();
        unsetenv("SDL_VIDEODRIVER");
        if (!skip.empty()) GTEST_SKIP() << "GL test skipped: " << skip;
        EXPECT_EQ(topLeft[0], 255) << "the view's top-left shows at the window's top-left";
        EXPECT_EQ(bottomLeft[0], 0);
        EXPECT_EQ(resizedWidth, 80u) << "the view follows the window's size";
        EXPECT_EQ(errors, 0u);
    }
}
