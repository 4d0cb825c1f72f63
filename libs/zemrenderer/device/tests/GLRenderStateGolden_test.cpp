// Each family of render states drawn off-screen and compared with its reference picture:
// one tile per setting, over stripes that show what the setting does with what lies below.
#include <gtest/gtest.h>

#include "zemrenderer/device/tests/GLTestKit.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        // Tile i of a 4-column grid of 64-pixel cells; the drawn square is 8..56 inside it.
        void Tile(int i, float& x, float& y)
        {
            x = static_cast<float>(i % 4) * 64.0f;
            y = static_cast<float>(i / 4) * 64.0f;
        }

        void Stripes(Renderer& device, float x, float y)
        {
            const CRenderState flat = CRenderState::Default().SetDepthEnable(false).SetCullMode(false);
            device.SetRenderState(flat.GetValue(), CRenderState::kFullMask);
            DrawRect(device, x, y, x + 64, y + 32, 0.0f, Rgba(200, 200, 60, 255));
            DrawRect(device, x, y + 32, x + 64, y + 64, 0.0f, Rgba(40, 80, 200, 128));
        }

        void Set(Renderer& device, CRenderState state)
        {
            device.SetRenderState(state.GetValue(), CRenderState::kFullMask);
        }
    }

    class GLRenderStateGolden : public GLDeviceTest
    {
    };

    TEST_F(GLRenderStateGolden, BlendModes)
    {
        BeginCard();
        const BlendModeDesc modes[] = {
            {BlendType::One, BlendType::Zero, BlendOp::Add},
            {BlendType::SrcAlpha, BlendType::InvSrcAlpha, BlendOp::Add},
            {BlendType::One, BlendType::One, BlendOp::Add},
            {BlendType::One, BlendType::One, BlendOp::Substract},
            {BlendType::One, BlendType::One, BlendOp::RevSubstract},
            {BlendType::One, BlendType::One, BlendOp::Min},
            {BlendType::One, BlendType::One, BlendOp::Max},
            {BlendType::Zero, BlendType::SrcColor, BlendOp::Add},
            {BlendType::SrcColor, BlendType::InvSrcColor, BlendOp::Add},
            {BlendType::InvSrcAlpha, BlendType::SrcAlpha, BlendOp::Add},
            {BlendType::Zero, BlendType::InvSrcColor, BlendOp::Add},
            {BlendType::SrcAlpha, BlendType::One, BlendOp::Add},
        };
        for (int i = 0; i < 12; ++i)
        {
            float x, y;
            Tile(i, x, y);
            Stripes(Device(), x, y);
            Set(Device(), CRenderState::Default().SetBlendMode(0, modes[i]));
            DrawRect(Device(), x + 8, y + 8, x + 56, y + 56, 0.5f, Rgba(230, 90, 40, 160));
        }
        // FixedAlphaOp keeps the source alpha whatever the colour blend does.
        float x, y;
        Tile(12, x, y);
        Stripes(Device(), x, y);
        Set(Device(), CRenderState::Default().SetFixedAlphaOp(true).SetBlendMode(
                          0, {BlendType::SrcAlpha, BlendType::InvSrcAlpha, BlendOp::Add}));
        DrawRect(Device(), x + 8, y + 8, x + 56, y + 56, 0.5f, Rgba(230, 90, 40, 160));
        const RgbaImage image = ReadColour();
        // Alpha blending over the yellow stripe: 230*a + 200*(1-a) with a = 160/255.
        const uint8_t* blended = image.Pixel(64 + 20, 16);
        EXPECT_NEAR(blended[0], 230 * 160 / 255 + 200 * 95 / 255, 2);
        EXPECT_EQ(image.Pixel(x + 20, y + 40)[3], 160) << "fixed alpha writes the source alpha";
        ZEM_EXPECT_GOLDEN("blend_modes", image);
    }

    TEST_F(GLRenderStateGolden, DepthFunctions)
    {
        // Depth cleared to 0.5; each tile draws a near square (0.25) then a far one (0.75),
        // both with the tile's function: which of them show tells the function.
        BeginCard(nullptr, 0.5f);
        for (int f = 0; f < 8; ++f)
        {
            float x, y;
            Tile(f, x, y);
            const CRenderState state = CRenderState::Default().SetDepthFunc(static_cast<ComparisonFunc>(f));
            Set(Device(), CRenderState(state).SetDepthWrite(false));
            DrawRect(Device(), x + 4, y + 4, x + 40, y + 40, 0.25f, Rgba(40, 220, 60));
            Set(Device(), state);
            DrawRect(Device(), x + 24, y + 24, x + 60, y + 60, 0.75f, Rgba(230, 40, 40));
        }
        // Depth writes off: the far square drawn after a near one without writes still shows.
        const RgbaImage image = ReadColour();
        EXPECT_EQ(image.Pixel(10, 10)[1], 0) << "NEVER draws nothing";
        EXPECT_EQ(image.Pixel(64 + 10, 10)[1], 220) << "LESS passes 0.25 against 0.5";
        EXPECT_EQ(image.Pixel(64 + 50, 50)[0], 0) << "LESS fails 0.75";
        EXPECT_EQ(image.Pixel(4 * 64 + 50 - 256, 64 + 50)[0], 230) << "GREATER passes 0.75";
        ZEM_EXPECT_GOLDEN("depth_functions", image);
    }

    TEST_F(GLRenderStateGolden, CullModes)
    {
        BeginCard();
        struct Case
        {
            CRenderState kState;
        };
        const CRenderState states[] = {
            CRenderState::Default().SetCullMode(false),
            CRenderState::Default(),
            CRenderState::Default().SetFrontCCW(true),
            CRenderState::Default().SetWireframe(true).SetCullMode(false),
        };
        for (int i = 0; i < 4; ++i)
        {
            float x, y;
            Tile(i, x, y);
            Set(Device(), states[i]);
            DrawRect(Device(), x + 4, y + 8, x + 30, y + 56, 0.5f, Rgba(60, 200, 255), true);
            DrawRect(Device(), x + 34, y + 8, x + 60, y + 56, 0.5f, Rgba(255, 60, 200), false);
        }
        const RgbaImage image = ReadColour();
        EXPECT_EQ(image.Pixel(64 + 16, 30)[2], 255) << "clockwise is the front by default";
        EXPECT_EQ(image.Pixel(64 + 46, 30)[0], 0) << "counter-clockwise is culled by default";
        EXPECT_EQ(image.Pixel(128 + 16, 30)[2], 0) << "with FrontCCW the clockwise one goes";
        EXPECT_EQ(image.Pixel(128 + 46, 30)[0], 255);
        ZEM_EXPECT_GOLDEN("cull_modes", image);
    }

    TEST_F(GLRenderStateGolden, Scissor)
    {
        BeginCard();
        const ScissorRect band{16, 40, 240, 88};
        // The state's scissor bit alone cuts to the rectangle last given.
        Device().SetScissorTest(false, band);
        Set(Device(), CRenderState::Default().SetScissor(true));
        DrawRect(Device(), 0, 0, 256, 128, 0.5f, Rgba(255, 220, 0));
        // SetScissorTest turns it on whatever the state says.
        Device().SetScissorTest(true, ScissorRect{64, 150, 192, 230});
        Set(Device(), CRenderState::Default());
        DrawRect(Device(), 32, 136, 224, 248, 0.5f, Rgba(0, 200, 255));
        // A clear ignores the scissor: it would cover everything, so clear a second target.
        Texture* other = MakeTarget(eFormatA8B8G8R8, eBindRenderTarget | eBindShaderResource, 16, "other");
        ClearRequest clear;
        clear.apColourTargets[0] = other;
        clear.uColourCount = 1;
        clear.uFlags = eClearColour;
        clear.afColour[0] = 1.0f;
        Device().Clear(clear);
        Device().SetScissorTest(false, ScissorRect{});
        const RgbaImage small = ReadColour(other);
        EXPECT_EQ(small.Pixel(0, 0)[0], 255);
        EXPECT_EQ(small.Pixel(15, 15)[0], 255) << "cleared outside the scissor rectangle too";
        other->Release();
        const RgbaImage image = ReadColour();
        EXPECT_EQ(image.Pixel(8, 60)[0], 0);
        EXPECT_EQ(image.Pixel(20, 60)[0], 255);
        EXPECT_EQ(image.Pixel(40, 140)[2], 0);
        EXPECT_EQ(image.Pixel(70, 160)[2], 255);
        ZEM_EXPECT_GOLDEN("scissor", image);
    }

    TEST_F(GLRenderStateGolden, WriteMasks)
    {
        const float grey[4] = {0.5f, 0.5f, 0.5f, 0.5f};
        BeginCard(grey);
        const uint32_t masks[8] = {15, 1, 2, 4, 8, 1 | 2, 2 | 4 | 8, 0};
        for (int i = 0; i < 8; ++i)
        {
            float x, y;
            Tile(i, x, y);
            Set(Device(), CRenderState::Default().SetWriteMask(0, masks[i]));
            DrawRect(Device(), x + 8, y + 8, x + 56, y + 56, 0.5f, Rgba(255, 255, 255, 255));
        }
        // Depth writes are a mask too: a square drawn with no depth write leaves nothing
        // that stops a farther one drawn later.
        float x, y;
        Tile(8, x, y);
        Set(Device(), CRenderState::Default().SetDepthWrite(false));
        DrawRect(Device(), x + 8, y + 8, x + 40, y + 40, 0.2f, Rgba(40, 220, 60));
        Set(Device(), CRenderState::Default());
        DrawRect(Device(), x + 24, y + 24, x + 56, y + 56, 0.6f, Rgba(230, 40, 40));

        // Value 1 of the mask is every target after the first.
        Texture* second = MakeTarget(eFormatA8B8G8R8, eBindRenderTarget | eBindShaderResource, kCardSize, "second");
        Texture* both[2] = {m_pColour, second};
        ClearRequest clear;
        clear.apColourTargets[0] = second;
        clear.uColourCount = 1;
        clear.uFlags = eClearColour;
        Device().Clear(clear);
        ASSERT_TRUE(Device().SetRenderTargets(both, 2, m_pDepth, nullptr, 0, 0));
        Tile(9, x, y);
        Set(Device(), CRenderState::Default().SetWriteMask(0, 15).SetWriteMask(1, 2).SetDepthEnable(false));
        DrawRect(Device(), x + 8, y + 8, x + 56, y + 56, 0.5f, Rgba(255, 255, 255, 255));
        const RgbaImage secondImage = ReadColour(second);
        EXPECT_EQ(secondImage.Pixel(x + 30, y + 30)[0], 0);
        EXPECT_EQ(secondImage.Pixel(x + 30, y + 30)[1], 255);
        EXPECT_EQ(secondImage.Pixel(x + 30, y + 30)[2], 0);
        Device().SetRenderTargets(&m_pColour, 1, m_pDepth, nullptr, 0, 0);
        second->Release();

        const RgbaImage image = ReadColour();
        const uint8_t* red = image.Pixel(64 + 30, 30);
        EXPECT_EQ(red[0], 255);
        EXPECT_NEAR(red[1], 128, 1);
        EXPECT_NEAR(image.Pixel(4 * 64 - 256 + 30, 64 + 30)[3], 255, 0) << "alpha only";
        EXPECT_NEAR(image.Pixel(7 * 64 - 256 + 30, 64 + 30)[0], 128, 1) << "nothing written";
        ZEM_EXPECT_GOLDEN("write_masks", image);
    }
}
