#pragma once
// A text the object owns, allocated through the memory manager. Empty is "" (never null
// to readers); a text may be absent (null) where the owner needs the difference.
#include <cstring>

#include "common/system/memorymanager/MemoryManager.h"

namespace ZemGui
{
    class OwnedText
    {
    public:
        OwnedText() = default;
        explicit OwnedText(const char* text) { Set(text); }
        OwnedText(const OwnedText& o) { Set(o.m_pText); }
        OwnedText& operator=(const OwnedText& o)
        {
            if (this != &o) Set(o.m_pText);
            return *this;
        }
        ~OwnedText() { Free(); }

        // Null clears to absent. The source may be this text's own buffer.
        void Set(const char* text)
        {
            if (text == m_pText) return;
            char* copy = nullptr;
            if (text)
            {
                const size_t n = std::strlen(text);
                copy = static_cast<char*>(MEM_ALLOC(n + 1));
                if (copy) std::memcpy(copy, text, n + 1);
            }
            Free();
            m_pText = copy;
        }
        const char* Get() const { return m_pText ? m_pText : ""; }
        const char* GetOrNull() const { return m_pText; }
        bool IsEmpty() const { return !m_pText || !m_pText[0]; }
        bool Equals(const char* text) const { return std::strcmp(Get(), text ? text : "") == 0; }

    private:
        void Free()
        {
            if (m_pText) MEM_FREE(m_pText);
            m_pText = nullptr;
        }
        char* m_pText = nullptr;
    };

    // Copies a text into a fixed buffer; false (and the buffer left alone) when it does not fit.
    template <size_t N>
    inline bool CopyFixedText(char (&dst)[N], const char* text)
    {
        if (!text) text = "";
        const size_t n = std::strlen(text);
        if (n >= N) return false;
        std::memcpy(dst, text, n + 1);
        return true;
    }
}
