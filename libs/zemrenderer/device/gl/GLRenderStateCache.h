#pragma once
// Render-state words decoded once into GL enums and applied by difference: the cache
// keeps what GL holds now and sets only the fields a new state changes.
#include <epoxy/gl.h>

#include <cstdint>
#include <unordered_map>

#include "zemrenderer/device/RenderState.h"

namespace ZemRenderer::GL
{
    struct GLBlendTarget
    {
        bool bEnable = false;
        GLenum eSourceColour = GL_ONE;
        GLenum eDestinationColour = GL_ZERO;
        GLenum eSourceAlpha = GL_ONE;
        GLenum eDestinationAlpha = GL_ZERO;
        GLenum eOpColour = GL_FUNC_ADD;
        GLenum eOpAlpha = GL_FUNC_ADD;
        GLboolean abWrite[4] = {GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE};
    };

    struct GLDecodedState
    {
        uint64_t uKey = 0;
        GLenum ePolygonMode = GL_FILL;
        bool bCull = true;
        GLenum eFrontFace = GL_CW;
        bool bScissor = false;
        bool bMultisample = false;
        bool bDepthClamp = false;
        bool bDepthTest = true;
        GLboolean bDepthWrite = GL_TRUE;
        GLenum eDepthFunc = GL_LESS;
        bool bStencilTest = false;
        GLenum eStencilFunc = GL_ALWAYS;
        GLenum eStencilPass = GL_KEEP;
        GLuint uStencilWriteMask = 0xFF;
        bool bAlphaToCoverage = false;
        GLBlendTarget akTargets[RenderStateBits::kBlendTargets];
    };

    // The stencil value decals write and test.
    constexpr GLint kDecalStencilRef = 1;

    // The GL form of a complete state word (fields not given already merged in).
    GLDecodedState DecodeRenderState(CRenderState state);

    class GLRenderStateCache
    {
    public:
        // Decoded once per distinct word.
        const GLDecodedState& Decode(CRenderState state);
        // Sets on GL what differs from the state applied last; `scissorForced` turns the
        // scissor test on whatever the state says. Returns the GL calls it made.
        uint32_t Apply(const GLDecodedState& state, bool scissorForced);
        // Every field, whatever GL holds: the reference the difference is measured against.
        uint32_t ApplyAll(const GLDecodedState& state, bool scissorForced);
        // Clears ran with the scissor test off and every write mask on: what the applied
        // state says about those is no longer what GL holds.
        void ForgetMasksAndScissor() { m_bMasksKnown = false; }
        // GL state is unknown (a new context, or foreign calls): the next Apply sets all.
        void Invalidate() { m_bValid = false; }
        size_t GetCachedCount() const { return m_kDecoded.size(); }
        uint64_t GetAppliedKey() const { return m_bValid ? m_kApplied.uKey : ~0ull; }

    private:
        uint32_t ApplyFields(const GLDecodedState& state, bool scissor, bool all);

        std::unordered_map<uint64_t, GLDecodedState> m_kDecoded;
        GLDecodedState m_kApplied;
        bool m_bAppliedScissor = false;
        bool m_bValid = false;
        bool m_bMasksKnown = false;
    };
}
