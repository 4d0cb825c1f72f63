// User primitives, screen text and profiler markers of the GL device.
#include "zemrenderer/device/gl/GLRenderer.h"

#include <epoxy/gl.h>

#include <algorithm>
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/RenderViewport.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLDebug.h"
#include "zemrenderer/device/gl/GLFormats.h"
#include "zemrenderer/device/gl/GLPrograms.h"
#include "zemrenderer/device/gl/GLRendererInternal.h"

namespace ZemRenderer
{
    using namespace GL;

    // ---------------------------------------------------------------- draws

    bool GLRenderer::CanDraw()
    {
        if (m_bTargetsComplete) return true;
        Common::Log("Draw without a complete render target: skipped\n");
        return false;
    }

    void GLRenderer::BindProgram(GLuint program, GLuint vao)
    {
        if (program != m_uBoundProgram) glUseProgram(program), m_uBoundProgram = program;
        if (vao != m_uBoundVertexArray) glBindVertexArray(vao), m_uBoundVertexArray = vao;
    }

    void GLRenderer::RenderImmediate(Geometry*, Property*, uint32_t)
    {
        if (!Ready()) return;
        static std::atomic<bool> s_bSaid{false};
        if (!s_bSaid.exchange(true)) Common::Log("RenderImmediate : no geometry can be drawn by this device yet\n");
    }

    void GLRenderer::DrawSortedCommands(const DrawCommand*, uint32_t count)
    {
        if (!Ready() || !count) return;
        static std::atomic<bool> s_bSaid{false};
        if (!s_bSaid.exchange(true)) Common::Log("DrawSortedCommands : no geometry can be drawn by this device yet\n");
    }

    void* GLRenderer::StartUserPrimitive(uint32_t topology, uint32_t vertexStride, uint32_t vertexCount)
    {
        if (!Ready()) return nullptr;
        if (!ZEM_ASSERT(!m_bUserPrimitiveOpen, "Start/End UserPrimitive mismatch")) return nullptr;
        if (!ZEM_ASSERT(TopologyMode(topology) != GL_NONE, "Unknown topology")) return nullptr;
        if (!ZEM_ASSERT(vertexStride >= sizeof(UserPrimitiveVertex) && vertexStride % 4 == 0,
                        "UserPrimitive stride %u: a multiple of 4, 16 at least", vertexStride))
            return nullptr;
        const uint64_t bytes = uint64_t(vertexStride) * vertexCount;
        if (!ZEM_ASSERT(bytes <= kUserPrimitiveBytes,
                        "Too much primitives to handle in one call : split it or increase UserPrimitive buffer size"))
            return nullptr;
        if (!vertexCount) return nullptr;
        uint32_t offset = 0;
        void* data = m_kVertexRing.Allocate(static_cast<uint32_t>(bytes), 16, offset);
        if (!data) return nullptr;
        m_bUserPrimitiveOpen = true;
        m_uUserTopology = topology;
        m_uUserStride = vertexStride;
        m_uUserCount = vertexCount;
        m_uUserOffset = offset;
        return data;
    }

    void GLRenderer::EndUserPrimitive(uint32_t vertexCount)
    {
        if (!Ready()) return;
        if (!ZEM_ASSERT(m_bUserPrimitiveOpen, "Start/End UserPrimitive mismatch")) return;
        m_bUserPrimitiveOpen = false;
        if (!ZEM_ASSERT(vertexCount <= m_uUserCount, "EndUserPrimitive with %u vertices, %u were asked for",
                        vertexCount, m_uUserCount))
            vertexCount = m_uUserCount;
        if (!vertexCount || !CanDraw()) return;
        ApplyState(*m_pRequestedState);
        BindProgram(m_uPrimitiveProgram, m_uPrimitiveVertexArray);
        glVertexArrayVertexBuffer(m_uPrimitiveVertexArray, 0, m_kVertexRing.GetBuffer(), m_uUserOffset,
                                  static_cast<GLsizei>(m_uUserStride));
        glDrawArrays(TopologyMode(m_uUserTopology), 0, static_cast<GLsizei>(vertexCount));
        ++m_uDraws;
    }

    bool GLRenderer::EnsureTextAtlas()
    {
        if (m_kText.IsBuilt()) return true;
        if (m_bTextTried) return false;
        m_bTextTried = true;
        std::string reason;
        if (m_kText.Build(GetScreenFontPath(), kAtlasPixelSize, reason)) return true;
        Common::Log("Screen text : font \"Arial\" unavailable, %s\n", reason.c_str());
        return false;
    }

    void GLRenderer::RenderText(const char* text, float x, float y, float scale, uint32_t colour)
    {
        if (!Ready() || !text || !*text || !EnsureTextAtlas() || !CanDraw()) return;
        m_aTextScratch.clear();
        m_kText.Layout(text, x, y, scale, m_aTextScratch);
        if (m_aTextScratch.empty()) return;
        // A long text goes in pieces of whole glyphs that each fit the stream.
        const uint32_t glyphBytes = 6 * sizeof(TextVertex);
        const uint32_t maxGlyphs = m_kVertexRing.GetMaxAllocation() / glyphBytes;
        GLint width = 0, height = 0;
        Texture* target = m_apTargets[0] ? m_apTargets[0] : m_pDepthTarget;
        width = static_cast<GLint>(target->GetWidth());
        height = static_cast<GLint>(target->GetHeight());
        uint32_t uniformOffset = 0;
        auto* constants = reinterpret_cast<TextConstants*>(
            m_kUniformRing.Allocate(sizeof(TextConstants), m_uUniformAlignment, uniformOffset));
        if (!constants) return;
        constants->afTarget[0] = static_cast<float>(width);
        constants->afTarget[1] = static_cast<float>(height);
        constants->afTarget[2] = 1.0f / static_cast<float>(std::max(width, 1));
        constants->afTarget[3] = 1.0f / static_cast<float>(std::max(height, 1));
        ColourToFloats(colour, constants->afColour);
        glBindBufferRange(GL_UNIFORM_BUFFER, 0, m_kUniformRing.GetBuffer(), uniformOffset, sizeof(TextConstants));
        SamplerDesc sampler;
        sampler.eAddressU = sampler.eAddressV = sampler.eAddressW = SamplerAddress::Clamp;
        glBindTextureUnit(0, m_kText.GetTexture());
        glBindSampler(0, m_kSamplers.Get(sampler));
        ApplyState(*m_pTextState);
        BindProgram(m_uTextProgram, m_uTextVertexArray);
        const uint32_t glyphs = static_cast<uint32_t>(m_aTextScratch.size() / 6);
        for (uint32_t first = 0; first < glyphs; first += maxGlyphs)
        {
            const uint32_t n = std::min(maxGlyphs, glyphs - first);
            uint32_t offset = 0;
            uint8_t* data = m_kVertexRing.Allocate(n * glyphBytes, 16, offset);
            if (!data) return;
            std::memcpy(data, &m_aTextScratch[size_t(first) * 6], size_t(n) * glyphBytes);
            glVertexArrayVertexBuffer(m_uTextVertexArray, 0, m_kVertexRing.GetBuffer(), offset, sizeof(TextVertex));
            glDrawArrays(GL_TRIANGLES, 0, static_cast<GLsizei>(n * 6));
            ++m_uDraws;
        }
    }

    void GLRenderer::PerfEventBegin(uint32_t colour, const char* name)
    {
        if (!Ready()) return;
        glPushDebugGroup(GL_DEBUG_SOURCE_APPLICATION, colour, -1, name ? name : "");
        ++m_uPerfDepth;
    }

    void GLRenderer::PerfEventEnd()
    {
        if (!Ready()) return;
        if (!ZEM_ASSERT(m_uPerfDepth > 0, "PerfEventEnd without PerfEventBegin")) return;
        glPopDebugGroup();
        --m_uPerfDepth;
    }
}
