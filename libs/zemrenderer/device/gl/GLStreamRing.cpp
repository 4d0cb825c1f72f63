#include "zemrenderer/device/gl/GLStreamRing.h"

#include "common/system/debug/Log.h"

namespace ZemRenderer::GL
{
    bool GLStreamRing::Create(uint32_t size)
    {
        m_uSize = size - size % (kQuarters * 256);
        glCreateBuffers(1, &m_uBuffer);
        const GLbitfield flags = GL_MAP_WRITE_BIT | GL_MAP_PERSISTENT_BIT | GL_MAP_COHERENT_BIT;
        glNamedBufferStorage(m_uBuffer, m_uSize, nullptr, flags);
        m_pMapped = static_cast<uint8_t*>(glMapNamedBufferRange(m_uBuffer, 0, m_uSize, flags));
        m_uHead = 0;
        m_uQuarter = 0;
        return m_pMapped != nullptr;
    }

    void GLStreamRing::Release()
    {
        for (GLsync& fence : m_aFences)
            if (fence) glDeleteSync(fence), fence = nullptr;
        if (m_uBuffer)
        {
            if (m_pMapped) glUnmapNamedBuffer(m_uBuffer);
            glDeleteBuffers(1, &m_uBuffer);
        }
        m_uBuffer = 0;
        m_pMapped = nullptr;
    }

    void GLStreamRing::Enter(uint32_t quarter)
    {
        if (quarter == m_uQuarter) return;
        if (m_aFences[m_uQuarter]) glDeleteSync(m_aFences[m_uQuarter]);
        m_aFences[m_uQuarter] = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
        if (GLsync fence = m_aFences[quarter])
        {
            // A whole ring of draws ago: this is almost never a wait.
            const GLenum result = glClientWaitSync(fence, GL_SYNC_FLUSH_COMMANDS_BIT, 5000000000ull);
            if (result == GL_TIMEOUT_EXPIRED || result == GL_WAIT_FAILED)
                Common::Log("Stream ring: the GPU still reads quarter %u after 5 s\n", quarter);
            glDeleteSync(fence);
            m_aFences[quarter] = nullptr;
        }
        m_uQuarter = quarter;
    }

    uint8_t* GLStreamRing::Allocate(uint32_t size, uint32_t alignment, uint32_t& offset)
    {
        const uint32_t quarter = m_uSize / kQuarters;
        if (!m_pMapped || size == 0 || size > quarter) return nullptr;
        uint32_t head = (m_uHead + alignment - 1) / alignment * alignment;
        if (head + size > m_uSize) head = 0;
        // The range may start in one quarter and end in the next: enter both in order.
        Enter(head / quarter);
        Enter((head + size - 1) / quarter);
        offset = head;
        m_uHead = head + size;
        return m_pMapped + head;
    }
}
