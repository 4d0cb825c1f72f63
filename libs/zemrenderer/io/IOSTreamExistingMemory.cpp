#include "zemrenderer/io/IOSTreamExistingMemory.h"

#include <cstring>

#include "common/system/memorymanager/MemoryManager.h"

namespace ZemRenderer
{
    bool IOSTreamExistingMemory::Close()
    {
        FreeCache();
        m_pBuffer = nullptr;
        m_uiSize = m_uiPosition = 0;
        m_bReadable = false;
        return true;
    }

    void IOSTreamExistingMemory::FreeCache()
    {
        if (m_bOwned && m_pBuffer)
        {
            MEM_FREE(m_pBuffer);
            m_pBuffer = nullptr;
            m_uiSize = m_uiPosition = 0;
        }
        m_bOwned = false;
    }

    size_t IOSTreamExistingMemory::Read(void* out, size_t bytes)
    {
        if (!m_bReadable || !m_pBuffer || !out) return 0;
        if (bytes > m_uiSize - m_uiPosition) bytes = m_uiSize - m_uiPosition;
        std::memcpy(out, m_pBuffer + m_uiPosition, bytes);
        m_uiPosition += bytes;
        return bytes;
    }

    size_t IOSTreamExistingMemory::Write(const void* in, size_t bytes)
    {
        if (m_bReadable || !m_pBuffer || !in) return 0;
        if (bytes > m_uiSize - m_uiPosition) bytes = m_uiSize - m_uiPosition;
        std::memcpy(m_pBuffer + m_uiPosition, in, bytes);
        m_uiPosition += bytes;
        return bytes;
    }

    bool IOSTreamExistingMemory::Skip(int64_t bytes)
    {
        const int64_t target = static_cast<int64_t>(m_uiPosition) + bytes;
        if (target < 0)
        {
            m_uiPosition = 0;
            return false;
        }
        if (static_cast<uint64_t>(target) > m_uiSize)
        {
            m_uiPosition = m_uiSize;
            return false;
        }
        m_uiPosition = static_cast<size_t>(target);
        return true;
    }
}
