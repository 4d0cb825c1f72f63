#include "common/system/filesystem/FileBase.h"

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

namespace Common
{
    CFileBase::CFileBase(uint32_t size)
        : m_uiSize(size), m_uiPosition(0), m_pBuffer(static_cast<uint8_t*>(MEM_ALLOC(size ? size : 1))),
          m_pCursor(m_pBuffer)
    {
        // Without a block the file reads as empty.
        if (!m_pBuffer) m_uiSize = 0;
    }

    CFileBase::~CFileBase()
    {
        if (m_pBuffer) MEM_FREE(m_pBuffer);
        m_pBuffer = nullptr;
        m_pCursor = nullptr;
    }

    int CFileBase::ReadLine(char* buffer, int maxLength)
    {
        if (!ZEM_ASSERT(buffer != nullptr && maxLength > 1, "ReadLine needs a buffer of at least 2 bytes"))
            return 0;
        if (m_uiPosition >= m_uiSize) return 0;
        int count = 0;
        const int limit = maxLength - 1;
        while (m_uiPosition < m_uiSize && count < limit)
        {
            const uint8_t c = *m_pCursor++;
            ++m_uiPosition;
            buffer[count++] = static_cast<char>(c);
            if (c == '\n') break;
        }
        if (buffer[count - 1] == '\n') buffer[count - 1] = '\0';
        else buffer[count] = '\0';
        return count;
    }
}
