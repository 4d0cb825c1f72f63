#include "zemrenderer/device/gl/GLRenderStateCache.h"

#include "common/system/debug/Log.h"

namespace ZemRenderer::GL
{
    namespace
    {
        GLenum BlendFactor(uint32_t code, bool forAlpha, uint64_t key)
        {
            switch (static_cast<BlendType>(code))
            {
                case BlendType::Zero: return GL_ZERO;
                case BlendType::One: return GL_ONE;
                // The alpha channel has no colour factors; it takes their alpha form.
                case BlendType::SrcColor: return forAlpha ? GL_SRC_ALPHA : GL_SRC_COLOR;
                case BlendType::InvSrcColor: return forAlpha ? GL_ONE_MINUS_SRC_ALPHA : GL_ONE_MINUS_SRC_COLOR;
                case BlendType::SrcAlpha: return GL_SRC_ALPHA;
                case BlendType::InvSrcAlpha: return GL_ONE_MINUS_SRC_ALPHA;
            }
            Common::Log("Unknown blend type %u in render state 0x%016llx: ONE\n", code,
                        static_cast<unsigned long long>(key));
            return GL_ONE;
        }

        GLenum BlendEquation(uint32_t code, uint64_t key)
        {
            switch (static_cast<BlendOp>(code))
            {
                case BlendOp::Add: return GL_FUNC_ADD;
                case BlendOp::Substract: return GL_FUNC_SUBTRACT;
                case BlendOp::RevSubstract: return GL_FUNC_REVERSE_SUBTRACT;
                case BlendOp::Min: return GL_MIN;
                case BlendOp::Max: return GL_MAX;
            }
            Common::Log("Unknown blend operation %u in render state 0x%016llx: ADD\n", code,
                        static_cast<unsigned long long>(key));
            return GL_FUNC_ADD;
        }
    }

    GLDecodedState DecodeRenderState(CRenderState state)
    {
        const uint64_t key = state.GetValue();
        GLDecodedState d;
        d.uKey = key;
        d.ePolygonMode = state.GetWireframe() ? GL_LINE : GL_FILL;
        d.bCull = state.GetCullMode();
        d.eFrontFace = state.GetFrontCCW() ? GL_CCW : GL_CW;
        d.bScissor = state.GetScissor();
        d.bMultisample = state.GetMultisample();
        d.bDepthTest = state.GetDepthEnable();
        d.bDepthWrite = state.GetDepthWrite() ? GL_TRUE : GL_FALSE;
        const uint32_t depthFunc = state.GetDepthFuncCode();
        if (depthFunc > static_cast<uint32_t>(ComparisonFunc::Always))
            Common::Log("Unknown comparison code %u in render state 0x%016llx: ALWAYS\n", depthFunc,
                        static_cast<unsigned long long>(key));
        // The codes follow the order of GL's comparison functions.
        d.eDepthFunc = depthFunc <= 7 ? GL_NEVER + depthFunc : GL_ALWAYS;

        const auto stencil = static_cast<StencilMode>(state.GetStencilModeCode());
        d.bDepthClamp = stencil == StencilMode::NoDepthClip;
        d.bStencilTest = state.GetStencilEnable();
        if (d.bStencilTest && stencil == StencilMode::DecalRead)
        {
            d.eStencilFunc = GL_EQUAL;
            d.uStencilWriteMask = 0;
        }
        else if (d.bStencilTest && stencil == StencilMode::DecalWrite)
        {
            d.eStencilFunc = GL_ALWAYS;
            d.eStencilPass = GL_REPLACE;
        }
        else if (state.GetStencilModeCode() > static_cast<uint32_t>(StencilMode::NoDepthClip))
        {
            Common::Log("Unknown stencil mode %u in render state 0x%016llx: NONE\n", state.GetStencilModeCode(),
                        static_cast<unsigned long long>(key));
        }
        d.bAlphaToCoverage = state.GetAlpha2Coverage();

        for (unsigned t = 0; t < RenderStateBits::kBlendTargets; ++t)
        {
            GLBlendTarget& b = d.akTargets[t];
            const uint32_t source = state.GetBlendSourceCode(t);
            const uint32_t destination = state.GetBlendDestinationCode(t);
            const uint32_t op = state.GetBlendOpCode(t);
            // ONE, ZERO, ADD writes the source as it is: no blending at all.
            b.bEnable = !(source == static_cast<uint32_t>(BlendType::One) &&
                          destination == static_cast<uint32_t>(BlendType::Zero) && op == 0);
            b.eSourceColour = BlendFactor(source, false, key);
            b.eDestinationColour = BlendFactor(destination, false, key);
            b.eOpColour = BlendEquation(op, key);
            if (state.GetFixedAlphaOp())
            {
                b.eSourceAlpha = GL_ONE;
                b.eDestinationAlpha = GL_ZERO;
                b.eOpAlpha = GL_FUNC_ADD;
            }
            else
            {
                b.eSourceAlpha = BlendFactor(source, true, key);
                b.eDestinationAlpha = BlendFactor(destination, true, key);
                b.eOpAlpha = b.eOpColour;
            }
            // Value 0 of the write mask is target 0's, value 1 every other target's.
            const uint32_t channels = state.GetWriteMask(t == 0 ? 0 : 1);
            for (unsigned c = 0; c < 4; ++c) b.abWrite[c] = (channels >> c) & 1u ? GL_TRUE : GL_FALSE;
        }
        return d;
    }

    const GLDecodedState& GLRenderStateCache::Decode(CRenderState state)
    {
        auto found = m_kDecoded.find(state.GetValue());
        if (found != m_kDecoded.end()) return found->second;
        return m_kDecoded.emplace(state.GetValue(), DecodeRenderState(state)).first->second;
    }

    uint32_t GLRenderStateCache::Apply(const GLDecodedState& state, bool scissorForced)
    {
        const bool scissor = state.bScissor || scissorForced;
        if (m_bValid && m_bMasksKnown && state.uKey == m_kApplied.uKey && scissor == m_bAppliedScissor) return 0;
        return ApplyFields(state, scissor, !m_bValid);
    }

    uint32_t GLRenderStateCache::ApplyAll(const GLDecodedState& state, bool scissorForced)
    {
        return ApplyFields(state, state.bScissor || scissorForced, true);
    }

    namespace
    {
        void Toggle(GLenum cap, bool on)
        {
            if (on)
                glEnable(cap);
            else
                glDisable(cap);
        }
    }

    uint32_t GLRenderStateCache::ApplyFields(const GLDecodedState& s, bool scissor, bool all)
    {
        const GLDecodedState& a = m_kApplied;
        const bool masks = all || !m_bMasksKnown;
        uint32_t calls = 0;
#define ZEM_CHANGED(field) (all || s.field != a.field)
        if (ZEM_CHANGED(ePolygonMode)) glPolygonMode(GL_FRONT_AND_BACK, s.ePolygonMode), ++calls;
        if (ZEM_CHANGED(bCull)) Toggle(GL_CULL_FACE, s.bCull), ++calls;
        if (ZEM_CHANGED(eFrontFace)) glFrontFace(s.eFrontFace), ++calls;
        if (masks || scissor != m_bAppliedScissor) Toggle(GL_SCISSOR_TEST, scissor), ++calls;
        if (ZEM_CHANGED(bMultisample)) Toggle(GL_MULTISAMPLE, s.bMultisample), ++calls;
        if (ZEM_CHANGED(bDepthClamp)) Toggle(GL_DEPTH_CLAMP, s.bDepthClamp), ++calls;
        if (ZEM_CHANGED(bDepthTest)) Toggle(GL_DEPTH_TEST, s.bDepthTest), ++calls;
        if (masks || s.bDepthWrite != a.bDepthWrite) glDepthMask(s.bDepthWrite), ++calls;
        if (ZEM_CHANGED(eDepthFunc)) glDepthFunc(s.eDepthFunc), ++calls;
        if (ZEM_CHANGED(bStencilTest)) Toggle(GL_STENCIL_TEST, s.bStencilTest), ++calls;
        if (ZEM_CHANGED(eStencilFunc)) glStencilFunc(s.eStencilFunc, kDecalStencilRef, 0xFF), ++calls;
        if (ZEM_CHANGED(eStencilPass)) glStencilOp(GL_KEEP, GL_KEEP, s.eStencilPass), ++calls;
        if (masks || s.uStencilWriteMask != a.uStencilWriteMask) glStencilMask(s.uStencilWriteMask), ++calls;
        if (ZEM_CHANGED(bAlphaToCoverage)) Toggle(GL_SAMPLE_ALPHA_TO_COVERAGE, s.bAlphaToCoverage), ++calls;
#undef ZEM_CHANGED
        for (unsigned t = 0; t < RenderStateBits::kBlendTargets; ++t)
        {
            const GLBlendTarget& n = s.akTargets[t];
            const GLBlendTarget& o = a.akTargets[t];
            if (all || n.bEnable != o.bEnable)
            {
                if (n.bEnable)
                    glEnablei(GL_BLEND, t);
                else
                    glDisablei(GL_BLEND, t);
                ++calls;
            }
            // Factors of a target that does not blend are left as they are.
            if (n.bEnable &&
                (all || !o.bEnable || n.eSourceColour != o.eSourceColour ||
                 n.eDestinationColour != o.eDestinationColour || n.eSourceAlpha != o.eSourceAlpha ||
                 n.eDestinationAlpha != o.eDestinationAlpha))
                glBlendFuncSeparatei(t, n.eSourceColour, n.eDestinationColour, n.eSourceAlpha, n.eDestinationAlpha),
                    ++calls;
            if (n.bEnable && (all || !o.bEnable || n.eOpColour != o.eOpColour || n.eOpAlpha != o.eOpAlpha))
                glBlendEquationSeparatei(t, n.eOpColour, n.eOpAlpha), ++calls;
            if (masks || n.abWrite[0] != o.abWrite[0] || n.abWrite[1] != o.abWrite[1] ||
                n.abWrite[2] != o.abWrite[2] || n.abWrite[3] != o.abWrite[3])
                glColorMaski(t, n.abWrite[0], n.abWrite[1], n.abWrite[2], n.abWrite[3]), ++calls;
        }
        // Factors of a target that does not blend may differ from GL's; enabling it sets them.
        m_kApplied = s;
        m_bAppliedScissor = scissor;
        m_bValid = true;
        m_bMasksKnown = true;
        return calls;
    }
}
