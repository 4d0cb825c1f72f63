// The GL device's contracts: thread check, target limits, brackets, user primitives,
// states applied by difference, samplers by description, textures read back and saved.
#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/RenderViewport.h"
#include "zemrenderer/device/tests/GLTestKit.h"

namespace ZemRenderer::Testing
{
    using GLDevice = GLDeviceTest;

    TEST_F(GLDevice, CallsFromAnotherThreadAreRefusedWithoutTouchingGL)
    {
        BeginCard();
        Common::ScopedLogCapture log;
        bool began = true;
        void* scratch = reinterpret_cast<void*>(1);
        std::thread other([&] {
            began = Device().BeginScene(0.1f, 0.0f);
            scratch = Device().StartUserPrimitive(eTopologyTriangleList, 16, 3);
            Device().Clear(ClearRequest{});
        });
        other.join();
        EXPECT_FALSE(began);
        EXPECT_EQ(scratch, nullptr);
        EXPECT_TRUE(log.Contains("Wrong Thread"));
        EXPECT_FALSE(Device().IsSceneOpen());
    }

    TEST_F(GLDevice, SceneAndViewportBracketsReportMisuseAndKeepTheirState)
    {
        Common::ScopedLogCapture log;
        const uint32_t frames = Device().GetFrameCount();
        EXPECT_TRUE(Device().BeginScene(0.5f, 0.25f));
        EXPECT_TRUE(Device().BeginScene(0.7f, 0.25f)) << "a second BeginScene reports and still answers true";
        EXPECT_TRUE(log.Contains("Scene not closed."));
        EXPECT_EQ(Device().GetFrameCount(), frames + 1) << "the open scene keeps its frame";
        EXPECT_FLOAT_EQ(Device().GetFrameTime(), 0.5f);
        EXPECT_FALSE(Device().EndViewport());
        EXPECT_TRUE(log.Contains("Begin/End viewport mismatch"));

        Texture* target = MakeTarget(eFormatA8B8G8R8, eBindRenderTarget | eBindShaderResource, 64, "implicit");
        RenderViewport viewport(nullptr, target, 64, 64);
        EXPECT_TRUE(Device().BeginViewport(&viewport));
        log.Clear();
        EXPECT_FALSE(Device().BeginViewport(&viewport));
        EXPECT_TRUE(log.Contains("Begin/End viewport mismatch"));
        EXPECT_TRUE(Device().EndScene());
        EXPECT_TRUE(log.Contains("Begin/End viewport mismatch")) << "EndScene inside a viewport";
        EXPECT_TRUE(Device().EndViewport());
        EXPECT_FALSE(Device().IsSceneOpen());

        RenderViewport orphan(nullptr, nullptr, 32, 32);
        log.Clear();
        EXPECT_FALSE(Device().BeginViewport(&orphan));
        EXPECT_TRUE(log.Contains("Implicit rendertarget viewport must exist if no windows handle."));
        Device().ReleaseViewport(&viewport);
        target->Release();
    }

    TEST_F(GLDevice, AtMostFourRenderTargetsAndOnlyTexturesMadeForIt)
    {
        Texture* targets[5];
        for (Texture*& t : targets) t = MakeTarget(eFormatA8B8G8R8, eBindRenderTarget, 16);
        Common::ScopedLogCapture log;
        EXPECT_FALSE(Device().SetRenderTargets(targets, 5, nullptr, nullptr, 0, 0));
        EXPECT_TRUE(log.Contains("Unvalid RenderTarget index 4 must be <4"));
        EXPECT_TRUE(Device().SetRenderTargets(targets, 4, nullptr, nullptr, 0, 0)) << "four are fine";
        Texture* plain = MakeTarget(eFormatA8B8G8R8, eBindShaderResource, 16, "plain");
        EXPECT_FALSE(Device().SetRenderTargets(&plain, 1, nullptr, nullptr, 0, 0));
        Texture* unknown = MakeTarget(12345, eBindRenderTarget, 16, "odd");
        log.Clear();
        EXPECT_FALSE(Device().SetRenderTargets(&unknown, 1, nullptr, nullptr, 0, 0));
        EXPECT_TRUE(log.Contains("Unknown format !"));
        Device().SetRenderTargets(nullptr, 0, nullptr, nullptr, 0, 0);
        for (Texture* t : targets) t->Release();
        plain->Release();
        unknown->Release();
    }

    TEST_F(GLDevice, UserPrimitivesPairUpAndStayWithinTheirBuffer)
    {
        BeginCard();
        Common::ScopedLogCapture log;
        Device().EndUserPrimitive(3);
        EXPECT_TRUE(log.Contains("Start/End UserPrimitive mismatch"));
        void* first = Device().StartUserPrimitive(eTopologyTriangleList, 16, 3);
        ASSERT_NE(first, nullptr);
        log.Clear();
        EXPECT_EQ(Device().StartUserPrimitive(eTopologyTriangleList, 16, 3), nullptr);
        EXPECT_TRUE(log.Contains("Start/End UserPrimitive mismatch"));
        std::memset(first, 0, 48);
        Device().EndUserPrimitive(3);
        EXPECT_EQ(Device().StartUserPrimitive(eTopologyTriangleList, 16, GLRenderer::kUserPrimitiveBytes / 16 + 1),
                  nullptr);
        EXPECT_TRUE(log.Contains("Too much primitives to handle in one call"));
        EXPECT_EQ(Device().StartUserPrimitive(99, 16, 3), nullptr);
        EXPECT_TRUE(log.Contains("Unknown topology"));
        EXPECT_EQ(Device().StartUserPrimitive(eTopologyLineList, 8, 2), nullptr) << "too small a vertex";
    }

    TEST_F(GLDevice, RenderStatesAreDecodedOnceAndAppliedByDifference)
    {
        BeginCard();
        const CRenderState base = CRenderState::Default();
        const CRenderState blended = CRenderState(base).SetBlendMode(0, {BlendType::SrcAlpha, BlendType::InvSrcAlpha, BlendOp::Add});
        const size_t cachedBefore = Device().GetCachedStateCount();
        auto callsFor = [&](CRenderState state) {
            const uint64_t before = Device().GetStateCallCount();
            Device().SetRenderState(state.GetValue(), CRenderState::kFullMask);
            DrawRect(Device(), 0, 0, 8, 8, 0.5f, Rgba(255, 0, 0));
            return Device().GetStateCallCount() - before;
        };
        callsFor(base);
        EXPECT_EQ(callsFor(base), 0u) << "the same state again costs nothing";
        EXPECT_EQ(callsFor(blended), 3u) << "enable, factors and equation of one target";
        EXPECT_EQ(callsFor(blended), 0u);
        EXPECT_EQ(callsFor(base), 1u) << "only the enable goes back";
        EXPECT_EQ(callsFor(CRenderState(base).SetDepthFunc(ComparisonFunc::Greater)), 1u);
        EXPECT_LE(Device().GetCachedStateCount(), cachedBefore + 2) << "each distinct word decoded once";
        Device().SetApplyEveryField(true);
        EXPECT_GT(callsFor(base), 20u) << "the reference sets every field";
        Device().SetApplyEveryField(false);
    }

    TEST_F(GLDevice, SamplersAreSharedByDescription)
    {
        Texture* texture = MakeTarget(eFormatA8B8G8R8, eBindShaderResource, 4);
        const size_t before = Device().GetCachedSamplerCount();
        SamplerDesc point;
        point.eFilter = SamplerFilter::Point;
        SamplerDesc clamp = point;
        clamp.eAddressU = SamplerAddress::Clamp;
        Device().BindTexture(1, texture, point);
        Device().BindTexture(2, texture, point);
        Device().BindTexture(3, texture, clamp);
        EXPECT_EQ(Device().GetCachedSamplerCount(), before + 2);
        Device().BindTexture(1, nullptr, point);
        Device().BindTexture(2, nullptr, point);
        Device().BindTexture(3, nullptr, point);
        texture->Release();
    }

    TEST_F(GLDevice, TexturesRoundTripThroughUpdateReadBackAndPng)
    {
        Texture* texture = MakeTarget(eFormatA8B8G8R8, eBindShaderResource | eBindRenderTarget, 8, "pattern");
        std::vector<uint8_t> pixels(8 * 8 * 4);
        for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * 7 + 3);
        Common::ScopedLogCapture log;
        EXPECT_FALSE(Device().UpdateTexture(texture, 0, pixels.data(), 10)) << "too few bytes";
        ASSERT_TRUE(Device().UpdateTexture(texture, 0, pixels.data(), static_cast<uint32_t>(pixels.size())));
        std::vector<uint8_t> back(pixels.size());
        EXPECT_FALSE(Device().RetrieveDeviceData(texture, 0, back.data(), 16));
        ASSERT_TRUE(Device().RetrieveDeviceData(texture, 0, back.data(), static_cast<uint32_t>(back.size())));
        EXPECT_EQ(back, pixels) << "row 0 written is row 0 read";

        const std::string path = ::testing::TempDir() + "zem_texture_roundtrip.png";
        ASSERT_TRUE(Device().SaveTextureToFile(texture, path.c_str()));
        RgbaImage image;
        ASSERT_TRUE(ReadPng(path.c_str(), image));
        EXPECT_EQ(image.aPixels, pixels);
        std::remove(path.c_str());

        // A copy lands at its offset; a resize keeps the texture usable at its new size.
        Texture* big = MakeTarget(eFormatA8B8G8R8, eBindShaderResource | eBindRenderTarget, 16, "big");
        ClearRequest clear;
        clear.apColourTargets[0] = big;
        clear.uColourCount = 1;
        clear.uFlags = eClearColour;
        Device().Clear(clear);
        Device().CopyResource(big, 0, texture, 0, 4, 2, 0);
        std::vector<uint8_t> bigPixels(16 * 16 * 4);
        ASSERT_TRUE(Device().RetrieveDeviceData(big, 0, bigPixels.data(), static_cast<uint32_t>(bigPixels.size())));
        EXPECT_EQ(0, std::memcmp(&bigPixels[(2 * 16 + 4) * 4], &pixels[0], 8 * 4));
        EXPECT_EQ(bigPixels[0], 0);
        EXPECT_TRUE(Device().ResizeTexture(big, 32, 8));
        EXPECT_EQ(big->GetWidth(), 32u);
        std::vector<uint8_t> resized(32 * 8 * 4);
        EXPECT_TRUE(Device().RetrieveDeviceData(big, 0, resized.data(), static_cast<uint32_t>(resized.size())));
        Texture* depth = MakeTarget(eFormatD24S8, eBindDepthStencil, 8, "depth");
        log.Clear();
        EXPECT_FALSE(Device().SaveTextureToFile(depth, path.c_str()));
        EXPECT_TRUE(log.Contains("Unsupported format !"));
        depth->Release();
        big->Release();
        texture->Release();
    }

    TEST_F(GLDevice, ScreenshotOfAViewportIsItsTarget)
    {
        Texture* target = MakeTarget(eFormatA8B8G8R8, eBindRenderTarget | eBindShaderResource, 32, "implicit");
        RenderViewport viewport(nullptr, target, 32, 32);
        ASSERT_TRUE(Device().BeginScene(0.0f, 0.0f));
        ASSERT_TRUE(Device().BeginViewport(&viewport));
        ClearRequest clear;
        clear.apColourTargets[0] = target;
        clear.uColourCount = 1;
        clear.uFlags = eClearColour;
        clear.afColour[1] = 1.0f;
        clear.afColour[3] = 1.0f;
        Device().Clear(clear);
        const std::string path = ::testing::TempDir() + "zem_screenshot.png";
        ASSERT_TRUE(Device().SaveScreenshot(path.c_str()));
        EXPECT_TRUE(Device().EndViewport());
        EXPECT_TRUE(Device().EndScene());
        RgbaImage image;
        ASSERT_TRUE(ReadPng(path.c_str(), image));
        EXPECT_EQ(image.uWidth, 32u);
        EXPECT_EQ(image.Pixel(5, 5)[1], 255);
        EXPECT_EQ(image.Pixel(5, 5)[0], 0);
        std::remove(path.c_str());
        EXPECT_TRUE(Device().ResizeViewport(&viewport, 48, 40));
        EXPECT_EQ(target->GetWidth(), 48u) << "the implicit target follows its viewport";
        EXPECT_EQ(target->GetHeight(), 40u);
        Device().ReleaseViewport(&viewport);
        target->Release();
    }

    // A device of its own, on a thread of its own: its context is current there only.
    TEST(GLDeviceLifetime, ReleaseReportsTargetsStillHeldAndNoGLMeansTheInitMessage)
    {
        UseSmallSoftwareRasteriser();
        Common::ScopedLogCapture log;
        bool initialised = false;
        Texture* held = nullptr;
        std::thread thread([&] {
            GLRenderer device;
            RendererInitRecord record;
            record.bNoWindow = 1;
            initialised = device.Init(record);
            if (!initialised) return;
            held = MakeTarget(eFormatA8B8G8R8, eBindRenderTarget, 16, "Kept");
            device.SetRenderTargets(&held, 1, nullptr, nullptr, 0, 0);
            device.Release();
        });
        thread.join();
        if (!initialised) GTEST_SKIP() << "GL test skipped: no EGL device on this machine";
        EXPECT_TRUE(log.Contains("Potential leak on RenderTargetView Kept arrayindex 0 refcount = 1"));
        EXPECT_EQ(held->GetDeviceObject(), 0u);
        held->Release();

        setenv("ZEM_NO_GL", "1", 1);
        std::thread refused([&] {
            GLRenderer device;
            RendererInitRecord record;
            record.bNoWindow = 1;
            initialised = device.Init(record);
        });
        refused.join();
        unsetenv("ZEM_NO_GL");
        EXPECT_FALSE(initialised);
        EXPECT_TRUE(log.Contains("Init device failed with adpater : EGL surfaceless: OpenGL turned off by ZEM_NO_GL"));
        EXPECT_TRUE(log.Contains("No valid DX11 Adpater found on this machine."));
    }

    TEST(PngImage, RefusesWhatIsNotAPicture)
    {
        RgbaImage image;
        std::string error;
        const uint8_t junk[] = {0x89, 'P', 'N', 'G', 0, 1, 2, 3};
        EXPECT_FALSE(ReadPngMemory(junk, sizeof(junk), image, &error));
        EXPECT_FALSE(error.empty());
        EXPECT_FALSE(ReadPng("/nonexistent/zem.png", image, &error));
        EXPECT_EQ(image.uWidth, 0u);
    }
}
