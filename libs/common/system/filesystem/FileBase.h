#pragma once
// A whole file in memory, read front to back.
#include <cstdint>

namespace Common
{
    class CFileBase
    {
    public:
        // The block comes from the memory manager, charged to the caller's tag.
        explicit CFileBase(uint32_t size);
        ~CFileBase();
        CFileBase(const CFileBase&) = delete;
        CFileBase& operator=(const CFileBase&) = delete;

        // Copies the next line into `buffer`, its line feed replaced by a zero, and returns
        // the bytes consumed (line feed included); 0 at the end. A carriage return stays.
        // A line longer than maxLength - 1 bytes comes in pieces; a last line without a
        // line feed is returned whole.
        int ReadLine(char* buffer, int maxLength);

        uint32_t GetSize() const { return m_uiSize; }
        uint32_t GetPosition() const { return m_uiPosition; }
        uint8_t* GetBuffer() { return m_pBuffer; }
        const uint8_t* GetBuffer() const { return m_pBuffer; }
        const uint8_t* GetCursor() const { return m_pCursor; }
        bool IsValid() const { return m_pBuffer != nullptr; }

    private:
        uint32_t m_uiSize;
        uint32_t m_uiPosition;
        uint8_t* m_pBuffer;
        uint8_t* m_pCursor;
    };
}
