// The OpenGL device on this machine's GL (llvmpipe without a GPU):
// - render states applied by difference against setting every field at each draw, with a
//   state change every eighth draw: CPU time and GL state calls per draw;
// - a 1920x1080 frame read back and written as PNG by the device, against glReadPixels and
//   libpng with its default settings written by hand.
#include <benchmark/benchmark.h>
#include <epoxy/gl.h>
#include <png.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "zemrenderer/device/RenderState.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLRenderer.h"

namespace
{
    using namespace ZemRenderer;

    // One device for the whole program, on the thread benchmarks run on.
    GLRenderer* Device()
    {
        static GLRenderer* s_pDevice = [] {
            setenv("LP_NUM_THREADS", "2", 0);
            auto* device = new GLRenderer;
            RendererInitRecord record;
            record.bNoWindow = 1;
            if (!device->Init(record))
            {
                delete device;
                return static_cast<GLRenderer*>(nullptr);
            }
            return device;
        }();
        return s_pDevice;
    }

    Texture* Target(uint32_t width, uint32_t height, uint32_t format, uint32_t flags)
    {
        TextureDesc desc;
        desc.uWidth = width;
        desc.uHeight = height;
        desc.uFormat = format;
        desc.uBindFlags = flags;
        return Texture::Create(desc, "bench");
    }

    void Quad(GLRenderer& device, float x0, float y0, float x1, float y1, float z, uint32_t colour)
    {
        auto* v = static_cast<UserPrimitiveVertex*>(device.StartUserPrimitive(eTopologyTriangleStrip, 16, 4));
        if (!v) return;
        v[0] = {{x0, y0, z}, colour};
        v[1] = {{x1, y0, z}, colour};
        v[2] = {{x0, y1, z}, colour};
        v[3] = {{x1, y1, z}, colour};
        device.EndUserPrimitive(4);
    }

    // 1,000 one-pixel draws; every eighth changes the render state among four typical ones.
    void DrawsWithStateChanges(benchmark::State& state, bool everyField)
    {
        GLRenderer* device = Device();
        if (!device)
        {
            state.SkipWithError("no OpenGL device");
            return;
        }
        Texture* colour = Target(64, 64, eFormatA8B8G8R8, eBindRenderTarget);
        Texture* depth = Target(64, 64, eFormatD24S8, eBindDepthStencil);
        device->SetRenderTargets(&colour, 1, depth, nullptr, 0, 0);
        ViewportRect rect;
        rect.fWidth = rect.fHeight = 64.0f;
        device->SetViewport(rect);
        const CRenderState base = CRenderState::Default();
        const uint64_t states[4] = {
            base.GetValue(),
            CRenderState(base).SetBlendModeAll({BlendType::SrcAlpha, BlendType::InvSrcAlpha, BlendOp::Add}).SetDepthWrite(false).GetValue(),
            CRenderState(base).SetCullMode(false).SetDepthFunc(ComparisonFunc::LessEqual).GetValue(),
            CRenderState(base).SetBlendModeAll({BlendType::One, BlendType::One, BlendOp::Add}).SetDepthEnable(false).GetValue(),
        };
        device->SetApplyEveryField(everyField);
        constexpr int kDraws = 1000;
        const uint64_t callsBefore = device->GetStateCallCount();
        for (auto _ : state)
        {
            for (int i = 0; i < kDraws; ++i)
            {
                if (i % 8 == 0) device->SetRenderState(states[(i / 8) % 4], CRenderState::kFullMask);
                const float x = -1.0f + static_cast<float>(i % 64) / 32.0f;
                Quad(*device, x, 0.0f, x + 1.0f / 32.0f, 1.0f / 32.0f, 0.5f, 0xFF8040C0u);
            }
            device->Flush();
        }
        device->SetApplyEveryField(false);
        const double draws = static_cast<double>(state.iterations()) * kDraws;
        state.counters["gl_state_calls_per_draw"] = static_cast<double>(device->GetStateCallCount() - callsBefore) / draws;
        state.counters["us_per_draw"] =
            benchmark::Counter(draws, benchmark::Counter::kIsRate | benchmark::Counter::kInvert, benchmark::Counter::kIs1000);
        state.SetItemsProcessed(static_cast<int64_t>(draws));
        device->SetRenderTargets(nullptr, 0, nullptr, nullptr, 0, 0);
        colour->Release();
        depth->Release();
    }

    void BM_RenderStatesByDifference(benchmark::State& state) { DrawsWithStateChanges(state, false); }
    void BM_RenderStatesEveryField(benchmark::State& state) { DrawsWithStateChanges(state, true); }
    BENCHMARK(BM_RenderStatesByDifference)->Unit(benchmark::kMillisecond);
    BENCHMARK(BM_RenderStatesEveryField)->Unit(benchmark::kMillisecond);

    constexpr uint32_t kFrameWidth = 1920, kFrameHeight = 1080;

    // A frame with the kind of content a screenshot holds: flat areas, gradients, text.
    Texture* DrawFrame(GLRenderer& device)
    {
        Texture* colour = Target(kFrameWidth, kFrameHeight, eFormatA8B8G8R8, eBindRenderTarget | eBindShaderResource);
        device.SetRenderTargets(&colour, 1, nullptr, nullptr, 0, 0);
        ViewportRect rect;
        rect.fWidth = kFrameWidth;
        rect.fHeight = kFrameHeight;
        device.SetViewport(rect);
        ClearRequest clear;
        clear.afColour[0] = 0.1f, clear.afColour[1] = 0.12f, clear.afColour[2] = 0.15f, clear.afColour[3] = 1.0f;
        clear.uFlags = eClearColour;
        device.Clear(clear);
        device.SetRenderState(CRenderState::Default().SetDepthEnable(false).SetCullMode(false).GetValue(),
                              CRenderState::kFullMask);
        for (int i = 0; i < 40; ++i)
        {
            const float x = -1.0f + static_cast<float>(i % 8) * 0.25f, y = 1.0f - static_cast<float>(i / 8) * 0.4f;
            auto* v = static_cast<UserPrimitiveVertex*>(device.StartUserPrimitive(eTopologyTriangleStrip, 16, 4));
            v[0] = {{x, y, 0.5f}, 0xFF000000u | static_cast<uint32_t>(i * 0x050A13)};
            v[1] = {{x + 0.2f, y, 0.5f}, 0xFF2080FFu};
            v[2] = {{x, y - 0.3f, 0.5f}, 0xFF40FF80u};
            v[3] = {{x + 0.2f, y - 0.3f, 0.5f}, 0xFFFFFFFFu};
            device.EndUserPrimitive(4);
        }
        for (int line = 0; line < 20; ++line)
            device.RenderText("Zemora screenshot benchmark: text over the frame 0123456789", 40.0f,
                              40.0f + static_cast<float>(line) * 50.0f, 28.0f, 0xFFE0E0E0u);
        device.Flush();
        return colour;
    }

    void BM_ScreenshotByDevice(benchmark::State& state)
    {
        GLRenderer* device = Device();
        if (!device)
        {
            state.SkipWithError("no OpenGL device");
            return;
        }
        Texture* frame = DrawFrame(*device);
        const std::string path = "/tmp/zem_bench_device.png";
        for (auto _ : state)
            if (!device->SaveTextureToFile(frame, path.c_str())) state.SkipWithError("not written");
        std::FILE* f = std::fopen(path.c_str(), "rb");
        if (f)
        {
            std::fseek(f, 0, SEEK_END);
            state.counters["png_bytes"] = static_cast<double>(std::ftell(f));
            std::fclose(f);
        }
        std::remove(path.c_str());
        device->SetRenderTargets(nullptr, 0, nullptr, nullptr, 0, 0);
        frame->Release();
    }

    // What one writes without thinking about it: glReadPixels of the framebuffer and
    // libpng with its defaults.
    void BM_ScreenshotByHand(benchmark::State& state)
    {
        GLRenderer* device = Device();
        if (!device)
        {
            state.SkipWithError("no OpenGL device");
            return;
        }
        Texture* frame = DrawFrame(*device);
        GLuint fbo = 0;
        glCreateFramebuffers(1, &fbo);
        glNamedFramebufferTexture(fbo, GL_COLOR_ATTACHMENT0, frame->GetDeviceObject(), 0);
        std::vector<uint8_t> pixels(size_t(kFrameWidth) * kFrameHeight * 4);
        std::vector<png_bytep> rows(kFrameHeight);
        const std::string path = "/tmp/zem_bench_hand.png";
        size_t bytes = 0;
        for (auto _ : state)
        {
            glBindFramebuffer(GL_READ_FRAMEBUFFER, fbo);
            glReadPixels(0, 0, kFrameWidth, kFrameHeight, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
            std::FILE* f = std::fopen(path.c_str(), "wb");
            png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
            png_infop info = png_create_info_struct(png);
            if (setjmp(png_jmpbuf(png)) == 0)
            {
                png_init_io(png, f);
                png_set_IHDR(png, info, kFrameWidth, kFrameHeight, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                             PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
                for (uint32_t y = 0; y < kFrameHeight; ++y) rows[y] = &pixels[size_t(y) * kFrameWidth * 4];
                png_set_rows(png, info, rows.data());
                png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
            }
            png_destroy_write_struct(&png, &info);
            bytes = static_cast<size_t>(std::ftell(f));
            std::fclose(f);
        }
        state.counters["png_bytes"] = static_cast<double>(bytes);
        std::remove(path.c_str());
        glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
        glDeleteFramebuffers(1, &fbo);
        device->SetRenderTargets(nullptr, 0, nullptr, nullptr, 0, 0);
        frame->Release();
    }
    BENCHMARK(BM_ScreenshotByDevice)->Unit(benchmark::kMillisecond);
    BENCHMARK(BM_ScreenshotByHand)->Unit(benchmark::kMillisecond);
}
