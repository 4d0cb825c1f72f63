#include "zemengine/core/commandmanager/TextParamReader.h"

namespace ZemEngine
{
    CTextParamReader::CTextParamReader(const char* line)
    {
        // A longer line is cut at the buffer: its tail is never read.
        std::snprintf(m_szBuffer, sizeof(m_szBuffer), "%s", line ? line : "");
        m_pCursor = m_szBuffer;
    }

    const char* CTextParamReader::NextToken()
    {
        ++m_uArgIndex;
        while (*m_pCursor == ' ' || *m_pCursor == '\t' || *m_pCursor == '\r' || *m_pCursor == '\n') ++m_pCursor;
        if (!*m_pCursor) return nullptr;
        char* token = m_pCursor;
        while (*m_pCursor && *m_pCursor != ' ' && *m_pCursor != '\t' && *m_pCursor != '\r' && *m_pCursor != '\n')
            ++m_pCursor;
        if (*m_pCursor) *m_pCursor++ = '\0';
        return token;
    }
}
