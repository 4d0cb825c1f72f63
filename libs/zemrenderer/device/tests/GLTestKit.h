#pragma once
// A GL device for tests: one off-screen EGL device per test program (llvmpipe, two
// threads, 256x256 targets), pictures read back and compared with references kept in
// golden/ beside the tests. A test skips, saying why, only where no EGL device exists.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "zemrenderer/device/PngImage.h"
#include "zemrenderer/device/RenderState.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLRenderer.h"

namespace ZemRenderer::Testing
{
    constexpr uint32_t kCardSize = 256;

    inline void UseSmallSoftwareRasteriser() { setenv("LP_NUM_THREADS", "2", 0); }

    // Texture::Create with a name and a size.
    inline Texture* MakeTarget(uint32_t format, uint32_t flags, uint32_t size = kCardSize, const char* name = "target")
    {
        TextureDesc desc;
        desc.uWidth = desc.uHeight = size;
        desc.uFormat = format;
        desc.uBindFlags = flags;
        return Texture::Create(desc, name);
    }

    // A colour in the vertices' 0xAABBGGRR form.
    constexpr uint32_t Rgba(uint32_t r, uint32_t g, uint32_t b, uint32_t a = 255)
    {
        return r | (g << 8) | (b << 16) | (a << 24);
    }

    // An axis-aligned rectangle in pixels of a kCardSize target, as a triangle strip at depth z.
    // `clockwise` orders it clockwise on screen (the engine's front faces).
    inline void DrawRect(Renderer& device, float x0, float y0, float x1, float y1, float z, uint32_t colour,
                         bool clockwise = true, float size = kCardSize)
    {
        auto* v = static_cast<UserPrimitiveVertex*>(device.StartUserPrimitive(eTopologyTriangleList, 16, 6));
        if (!v) return;
        auto cx = [&](float x) { return x / size * 2.0f - 1.0f; };
        auto cy = [&](float y) { return 1.0f - y / size * 2.0f; };
        // Top-left, top-right, bottom-right is clockwise on screen.
        const float corners[4][2] = {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
        const int cw[6] = {0, 1, 2, 0, 2, 3};
        const int ccw[6] = {0, 2, 1, 0, 3, 2};
        for (int i = 0; i < 6; ++i)
        {
            const int c = clockwise ? cw[i] : ccw[i];
            v[i] = {{cx(corners[c][0]), cy(corners[c][1]), z}, colour};
        }
        device.EndUserPrimitive(6);
    }

    // The device every GL test of a program shares, made on the main thread.
    class GLDeviceTest : public ::testing::Test
    {
    public:
        static void SetUpTestSuite();
        static void TearDownTestSuite();

    protected:
        void SetUp() override;
        void TearDown() override;

        // A fresh 256x256 colour and depth target pair, bound, cleared, full viewport.
        void BeginCard(const float clear[4] = nullptr, float depth = 1.0f);
        RgbaImage ReadColour(Texture* texture = nullptr);

        static inline GLRenderer* s_pDevice = nullptr;
        static inline std::string s_szSkipReason;
        GLRenderer& Device() { return *s_pDevice; }
        Texture* m_pColour = nullptr;
        Texture* m_pDepth = nullptr;
        uint32_t m_uErrorsBefore = 0;
    };

    // Pixels where a channel differs by more than `tolerance`; fills `diff` with them in
    // red over a faded copy of `a`. Images of different sizes differ everywhere.
    inline uint32_t CountDifferingPixels(const RgbaImage& a, const RgbaImage& b, int tolerance, RgbaImage* diff)
    {
        if (a.uWidth != b.uWidth || a.uHeight != b.uHeight) return std::max(a.uWidth * a.uHeight, 1u);
        if (diff)
        {
            diff->uWidth = a.uWidth;
            diff->uHeight = a.uHeight;
            diff->aPixels.assign(a.aPixels.size(), 0);
        }
        uint32_t count = 0;
        for (size_t p = 0; p < a.aPixels.size(); p += 4)
        {
            bool differs = false;
            for (int c = 0; c < 4; ++c) differs = differs || std::abs(int(a.aPixels[p + c]) - int(b.aPixels[p + c])) > tolerance;
            count += differs;
            if (diff)
            {
                for (int c = 0; c < 3; ++c) diff->aPixels[p + c] = static_cast<uint8_t>(a.aPixels[p + c] / 4);
                if (differs) diff->aPixels[p] = 255;
                diff->aPixels[p + 3] = 255;
            }
        }
        return count;
    }

    inline std::filesystem::path GoldenDirectoryOf(const char* sourceFile)
    {
        return std::filesystem::path(sourceFile).parent_path() / "golden";
    }

    inline void GLDeviceTest::SetUpTestSuite()
    {
        if (s_pDevice || !s_szSkipReason.empty()) return;
        UseSmallSoftwareRasteriser();
        std::string reason;
        if (!GL::IsGLAllowed(reason))
        {
            s_szSkipReason = "no EGL device on this machine (" + reason + ")";
            return;
        }
        auto* device = new GLRenderer;
        RendererInitRecord record;
        record.bNoWindow = 1;
        record.uWidth = record.uHeight = kCardSize;
        if (!device->Init(record))
        {
            delete device;
            s_szSkipReason = "no EGL device on this machine (see the log)";
            return;
        }
        s_pDevice = device;
    }

    inline void GLDeviceTest::TearDownTestSuite()
    {
        if (!s_pDevice) return;
        s_pDevice->Release();
        delete s_pDevice;
        s_pDevice = nullptr;
    }

    inline void GLDeviceTest::SetUp()
    {
        if (!s_pDevice) GTEST_SKIP() << "GL test skipped: " << s_szSkipReason;
        m_uErrorsBefore = s_pDevice->GetGLErrorCount();
    }

    inline void GLDeviceTest::TearDown()
    {
        if (!s_pDevice) return;
        EXPECT_EQ(s_pDevice->GetGLErrorCount(), m_uErrorsBefore) << "GL errors were raised (see the log)";
        s_pDevice->SetScissorTest(false, ScissorRect{});
        s_pDevice->SetRenderState(CRenderState::Default().GetValue(), CRenderState::kFullMask);
        s_pDevice->SetRenderTargets(nullptr, 0, nullptr, nullptr, 0, 0);
        if (m_pColour) m_pColour->Release();
        if (m_pDepth) m_pDepth->Release();
        m_pColour = m_pDepth = nullptr;
    }

    inline void GLDeviceTest::BeginCard(const float clear[4], float depth)
    {
        m_pColour = MakeTarget(eFormatA8B8G8R8, eBindRenderTarget | eBindShaderResource, kCardSize, "colour");
        m_pDepth = MakeTarget(eFormatD24S8, eBindDepthStencil, kCardSize, "depth");
        ASSERT_TRUE(Device().SetRenderTargets(&m_pColour, 1, m_pDepth, nullptr, 0, 0));
        ViewportRect rect;
        rect.fWidth = rect.fHeight = static_cast<float>(kCardSize);
        Device().SetViewport(rect);
        ClearRequest request;
        request.apColourTargets[0] = m_pColour;
        request.uColourCount = 1;
        request.pDepthTarget = m_pDepth;
        const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
        std::copy(clear ? clear : black, (clear ? clear : black) + 4, request.afColour);
        request.fDepth = depth;
        request.uFlags = eClearColour | eClearDepth | eClearStencil;
        Device().Clear(request);
    }

    inline RgbaImage GLDeviceTest::ReadColour(Texture* texture)
    {
        if (!texture) texture = m_pColour;
        RgbaImage image;
        image.uWidth = texture->GetWidth();
        image.uHeight = texture->GetHeight();
        image.aPixels.resize(size_t(image.uWidth) * image.uHeight * 4);
        EXPECT_TRUE(Device().RetrieveDeviceData(texture, 0, image.aPixels.data(),
                                                static_cast<uint32_t>(image.aPixels.size())));
        return image;
    }

    // Compares with <directory>/<name>.png: at most `maxDiffering` pixels may differ by more
    // than `tolerance` in a channel. On failure the picture and a difference image are
    // written to golden-out/ in the working directory; ZEM_UPDATE_GOLDEN=1 writes the
    // reference instead.
    // The golden directory is the one beside the test that calls this (its __FILE__).
#define ZEM_EXPECT_GOLDEN(name, image, ...) ExpectMatchesGoldenIn(GoldenDirectoryOf(__FILE__), name, image, ##__VA_ARGS__)

    inline void ExpectMatchesGoldenIn(const std::filesystem::path& directory, const char* name, const RgbaImage& image,
                                      int tolerance = 3, uint32_t maxDiffering = 16)
    {
        const std::filesystem::path golden = directory / (std::string(name) + ".png");
        const char* update = std::getenv("ZEM_UPDATE_GOLDEN");
        if (update && *update == '1')
        {
            std::filesystem::create_directories(directory);
            ASSERT_TRUE(WritePng(golden.c_str(), image.aPixels.data(), image.uWidth, image.uHeight));
            return;
        }
        RgbaImage reference;
        std::string error;
        const bool found = ReadPng(golden.c_str(), reference, &error);
        RgbaImage diff;
        const uint32_t differing = found ? CountDifferingPixels(image, reference, tolerance, &diff) : ~0u;
        if (found && differing <= maxDiffering) return;
        const std::filesystem::path out = std::filesystem::current_path() / "golden-out";
        std::filesystem::create_directories(out);
        const std::string actual = (out / (std::string(name) + ".actual.png")).string();
        WritePng(actual.c_str(), image.aPixels.data(), image.uWidth, image.uHeight);
        if (found)
        {
            const std::string diffPath = (out / (std::string(name) + ".diff.png")).string();
            WritePng(diffPath.c_str(), diff.aPixels.data(), diff.uWidth, diff.uHeight);
        }
        ADD_FAILURE() << name << ": " << (found ? std::to_string(differing) + " pixels differ by more than " +
                                                      std::to_string(tolerance) + " (at most " +
                                                      std::to_string(maxDiffering) + " may)"
                                                : "no reference (" + error + ")")
                      << "; the picture is in " << actual;
    }
}
