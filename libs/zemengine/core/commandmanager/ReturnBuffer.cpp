#include "zemengine/core/commandmanager/ReturnBuffer.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

namespace ZemEngine
{
    CReturnBuffer::CReturnBuffer() { Allocate(kInitialCapacity); }

    CReturnBuffer::CReturnBuffer(const CReturnBuffer& other) : CJSonRetWriter()
    {
        Allocate(kInitialCapacity);
        *this = other;
    }

    CReturnBuffer::~CReturnBuffer() { MEM_FREE(m_pBuffer); }

    bool CReturnBuffer::Allocate(uint64_t capacity)
    {
        char* block = static_cast<char*>(MEM_ALLOC(capacity));
        if (!ZEM_ASSERT(block != nullptr, "CReturnBuffer allocation of %llu bytes failed",
                        static_cast<unsigned long long>(capacity)))
            return false;
        std::memset(block, 0, capacity);
        MEM_FREE(m_pBuffer);
        m_pBuffer = block;
        m_uCapacity = capacity;
        m_uPosition = 0;
        return true;
    }

    void CReturnBuffer::Clear()
    {
        // The common case keeps its block: a reply rarely outgrows the first one.
        if (m_pBuffer && m_uCapacity == kInitialCapacity)
        {
            std::memset(m_pBuffer, 0, m_uPosition);
            m_uPosition = 0;
            return;
        }
        Allocate(kInitialCapacity);
    }

    CReturnBuffer& CReturnBuffer::operator=(const CReturnBuffer& other)
    {
        if (this == &other) return *this;
        if (m_uCapacity < other.m_uCapacity && !Allocate(other.m_uCapacity)) return *this;
        if (!m_pBuffer) return *this;
        // Copy the text and clear what an older, longer text left behind.
        const uint64_t length = other.m_pBuffer ? other.m_uPosition : 0;
        if (length) std::memcpy(m_pBuffer, other.m_pBuffer, length);
        if (m_uPosition > length) std::memset(m_pBuffer + length, 0, m_uPosition - length);
        m_pBuffer[length] = '\0';
        m_uPosition = length;
        return *this;
    }

    void CReturnBuffer::Put(char c)
    {
        if (!m_pBuffer) return;
        if (m_uPosition >= m_uCapacity - 1)
        {
            const uint64_t capacity = m_uCapacity * 2;
            char* block = static_cast<char*>(MEM_ALLOC(capacity));
            if (!ZEM_ASSERT(block != nullptr, "CReturnBuffer growth to %llu bytes failed",
                            static_cast<unsigned long long>(capacity)))
                return;
            std::memcpy(block, m_pBuffer, m_uPosition);
            std::memset(block + m_uPosition, 0, capacity - m_uPosition);
            MEM_FREE(m_pBuffer);
            m_pBuffer = block;
            m_uCapacity = capacity;
        }
        m_pBuffer[m_uPosition++] = c;
    }
}
