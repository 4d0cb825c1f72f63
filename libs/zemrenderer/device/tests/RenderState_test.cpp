// The packed render state's layout, its defaults, and its GL form (decoding needs no context).
#include <gtest/gtest.h>

#include "zemrenderer/device/FrameRateRing.h"
#include "zemrenderer/device/RenderState.h"
#include "zemrenderer/device/gl/GLRenderStateCache.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        uint64_t Bits(unsigned first, unsigned last)
        {
            return ((last == 63 ? ~0ull : (1ull << (last + 1)) - 1)) & ~((1ull << first) - 1);
        }
    }

    TEST(RenderState, EachFieldLandsOnItsBits)
    {
        struct Case
        {
            const char* szName;
            CRenderState kState;
            uint64_t uExpected;
        };
        const Case cases[] = {
            {"Wireframe", CRenderState().SetWireframe(true), 1ull << 0},
            {"CullMode", CRenderState().SetCullMode(true), 1ull << 1},
            {"FrontCCW", CRenderState().SetFrontCCW(true), 1ull << 2},
            {"Scissor", CRenderState().SetScissor(true), 1ull << 3},
            {"Multisample", CRenderState().SetMultisample(true), 1ull << 4},
            {"DepthEnable", CRenderState().SetDepthEnable(true), 1ull << 5},
            {"DepthWrite", CRenderState().SetDepthWrite(true), 1ull << 6},
            {"DepthFunc ALWAYS", CRenderState().SetDepthFunc(ComparisonFunc::Always), 7ull << 7},
            {"StencilEnable", CRenderState().SetStencilEnable(true), 1ull << 11},
            {"StencilMode NODEPTHCLIP", CRenderState().SetStencilMode(StencilMode::NoDepthClip), 3ull << 12},
            {"FixedAlphaOp", CRenderState().SetFixedAlphaOp(true), 1ull << 16},
            {"Alpha2Coverage", CRenderState().SetAlpha2Coverage(true), 1ull << 17},
            {"BlendMode target 0",
             CRenderState().SetBlendMode(0, {BlendType::InvSrcAlpha, BlendType::SrcColor, BlendOp::Max}),
             (5ull << 18) | (2ull << 21) | (4ull << 24)},
            {"BlendMode target 3",
             CRenderState().SetBlendMode(3, {BlendType::One, BlendType::One, BlendOp::RevSubstract}),
             (1ull << 45) | (1ull << 48) | (2ull << 51)},
            // "WriteMask" [15, 3]: bits 54 to 57 all set, then 58 and 59.
            {"WriteMask [15, 3]", CRenderState().SetWriteMask(0, 15).SetWriteMask(1, 3), Bits(54, 59)},
        };
        for (const Case& c : cases) EXPECT_EQ(c.kState.GetValue(), c.uExpected) << c.szName;
        // Fields never spill: every field at its largest value fills bits 0 to 61 exactly.
        CRenderState all;
        all.SetWireframe(true).SetCullMode(true).SetFrontCCW(true).SetScissor(true).SetMultisample(true);
        all.SetDepthEnable(true).SetDepthWrite(true).SetStencilEnable(true).SetFixedAlphaOp(true).SetAlpha2Coverage(true);
        all.SetWriteMask(0, 99).SetWriteMask(1, 15);
        EXPECT_EQ(all.GetWriteMask(0), 99u & 15u);
        EXPECT_EQ(CRenderState::kFullMask, Bits(0, 61));
    }

    TEST(RenderState, FieldsLeftOutOfTheMaskTakeTheDefaults)
    {
        const CRenderState given = CRenderState().SetDepthEnable(false).SetCullMode(false);
        const uint64_t mask = (1ull << RenderStateBits::kDepthEnable);
        const CRenderState merged = CRenderState::Merge(given.GetValue(), mask);
        EXPECT_FALSE(merged.GetDepthEnable());
        EXPECT_TRUE(merged.GetCullMode()) << "not in the mask: the default";
        EXPECT_EQ(merged.GetDepthFuncCode(), static_cast<uint32_t>(ComparisonFunc::Less));
        EXPECT_EQ(merged.GetWriteMask(0), 15u);
        // A full mask keeps the word; WriteMaskExt's bits never reach the state.
        EXPECT_EQ(CRenderState::Merge(given.GetValue(), ~0ull).GetValue(), given.GetValue());
        EXPECT_EQ(CRenderState::Merge(~0ull, ~0ull).GetValue(), CRenderState::kFullMask);
    }

    TEST(RenderState, DecodesIntoGLEnums)
    {
        using GL::DecodeRenderState;
        const GL::GLDecodedState defaults = DecodeRenderState(CRenderState::Default());
        EXPECT_TRUE(defaults.bCull);
        EXPECT_EQ(defaults.eFrontFace, static_cast<GLenum>(GL_CW));
        EXPECT_TRUE(defaults.bDepthTest);
        EXPECT_EQ(defaults.eDepthFunc, static_cast<GLenum>(GL_LESS));
        for (const GL::GLBlendTarget& t : defaults.akTargets) EXPECT_FALSE(t.bEnable) << "ONE, ZERO, ADD blends nothing";

        const GLenum depthFuncs[] = {GL_NEVER, GL_LESS, GL_EQUAL, GL_LEQUAL, GL_GREATER, GL_NOTEQUAL, GL_GEQUAL, GL_ALWAYS};
        for (uint32_t code = 0; code < 8; ++code)
            EXPECT_EQ(DecodeRenderState(CRenderState().SetDepthFunc(static_cast<ComparisonFunc>(code))).eDepthFunc,
                      depthFuncs[code]);

        const GL::GLDecodedState alpha = DecodeRenderState(CRenderState::Default().SetBlendMode(
            0, {BlendType::SrcColor, BlendType::InvSrcColor, BlendOp::Substract}));
        EXPECT_TRUE(alpha.akTargets[0].bEnable);
        EXPECT_FALSE(alpha.akTargets[1].bEnable);
        EXPECT_EQ(alpha.akTargets[0].eSourceColour, static_cast<GLenum>(GL_SRC_COLOR));
        EXPECT_EQ(alpha.akTargets[0].eSourceAlpha, static_cast<GLenum>(GL_SRC_ALPHA)) << "alpha takes the alpha form";
        EXPECT_EQ(alpha.akTargets[0].eDestinationAlpha, static_cast<GLenum>(GL_ONE_MINUS_SRC_ALPHA));
        EXPECT_EQ(alpha.akTargets[0].eOpColour, static_cast<GLenum>(GL_FUNC_SUBTRACT));

        const GL::GLDecodedState fixed = DecodeRenderState(
            CRenderState::Default().SetFixedAlphaOp(true).SetBlendModeAll({BlendType::One, BlendType::One, BlendOp::Max}));
        EXPECT_EQ(fixed.akTargets[2].eOpColour, static_cast<GLenum>(GL_MAX));
        EXPECT_EQ(fixed.akTargets[2].eOpAlpha, static_cast<GLenum>(GL_FUNC_ADD));
        EXPECT_EQ(fixed.akTargets[2].eDestinationAlpha, static_cast<GLenum>(GL_ZERO));

        const GL::GLDecodedState masks = DecodeRenderState(CRenderState().SetWriteMask(0, 1 | 8).SetWriteMask(1, 2));
        EXPECT_EQ(masks.akTargets[0].abWrite[0], GL_TRUE);
        EXPECT_EQ(masks.akTargets[0].abWrite[1], GL_FALSE);
        EXPECT_EQ(masks.akTargets[0].abWrite[3], GL_TRUE);
        for (unsigned t = 1; t < 4; ++t)
        {
            EXPECT_EQ(masks.akTargets[t].abWrite[0], GL_FALSE) << t;
            EXPECT_EQ(masks.akTargets[t].abWrite[1], GL_TRUE) << t;
        }

        const GL::GLDecodedState decalRead =
            DecodeRenderState(CRenderState().SetStencilEnable(true).SetStencilMode(StencilMode::DecalRead));
        EXPECT_TRUE(decalRead.bStencilTest);
        EXPECT_EQ(decalRead.eStencilFunc, static_cast<GLenum>(GL_EQUAL));
        EXPECT_EQ(decalRead.uStencilWriteMask, 0u);
        const GL::GLDecodedState decalWrite =
            DecodeRenderState(CRenderState().SetStencilEnable(true).SetStencilMode(StencilMode::DecalWrite));
        EXPECT_EQ(decalWrite.eStencilPass, static_cast<GLenum>(GL_REPLACE));
        EXPECT_TRUE(DecodeRenderState(CRenderState().SetStencilMode(StencilMode::NoDepthClip)).bDepthClamp);
        EXPECT_EQ(DecodeRenderState(CRenderState().SetWireframe(true)).ePolygonMode, static_cast<GLenum>(GL_LINE));
    }

    TEST(FrameRateRing, ThirtyTwoFramesOverTheirPeriodRoundedDownToATenth)
    {
        // 32 frames whose stamps span `period` ms: the first and the last are 32 apart in the ring.
        auto rateOver = [](uint64_t period) {
            FrameRateRing ring;
            for (uint64_t i = 0; i < 32; ++i) ring.AddFrame(10000 + period * i / 31);
            return ring.GetFramesPerSecond();
        };
        EXPECT_FLOAT_EQ(rateOver(1000), 32.0f) << "32 frames in a period of 1000 ms";
        EXPECT_FLOAT_EQ(rateOver(3000), 10.6f) << "32000 / 3000 = 10.66, down to a tenth";
        EXPECT_FLOAT_EQ(rateOver(500), 64.0f);
        FrameRateRing frozen;
        for (int i = 0; i < 40; ++i) frozen.AddFrame(7);
        EXPECT_EQ(frozen.GetFramesPerSecond(), 0.0f) << "a period of 0 gives 0";
    }
}
