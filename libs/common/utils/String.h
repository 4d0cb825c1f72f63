#pragma once
// A text of fixed capacity, never on the heap: paths, names and remote string arrays.
// Copying copies the whole buffer, so a TArray<String> costs 1024 bytes an element.
#include <cstddef>
#include <cstring>

#include "common/system/debug/Log.h"

namespace Common
{
    class String
    {
    public:
        typedef size_t size_type;
        static constexpr size_type npos = static_cast<size_type>(-1);
        static constexpr size_type kCapacity = 1024;

        String() { m_szText[0] = '\0'; }
        String(const char* text) { Assign(text); }
        String(const char* text, size_type length) { Assign(text, length); }
        String(const String& other) { std::memcpy(m_szText, other.m_szText, kCapacity); }
        String& operator=(const String& other)
        {
            if (this != &other) std::memcpy(m_szText, other.m_szText, kCapacity);
            return *this;
        }
        String& operator=(const char* text)
        {
            Assign(text);
            return *this;
        }
        ~String() = default;

        // Checked copy: a text that does not fit with its terminator is refused and the
        // string is left empty. Returns false then.
        bool Assign(const char* text) { return Assign(text, text ? std::strlen(text) : 0); }
        bool Assign(const char* text, size_type length)
        {
            m_szText[0] = '\0';
            if (!text) return true;
            if (!ZEM_ASSERT(length < kCapacity, "Text too long for a String (%zu bytes)", length)) return false;
            std::memmove(m_szText, text, length);
            m_szText[length] = '\0';
            return true;
        }

        const char* c_str() const { return m_szText; }
        char* data() { return m_szText; }
        size_type length() const { return std::strlen(m_szText); }
        size_type size() const { return length(); }
        bool empty() const { return m_szText[0] == '\0'; }
        static constexpr size_type capacity() { return kCapacity - 1; }

        char operator[](size_type i) const { return m_szText[i]; }
        char& operator[](size_type i) { return m_szText[i]; }

        size_type find(char c, size_type start = 0) const
        {
            const size_type n = length();
            if (start >= n) return npos;
            const void* p = std::memchr(m_szText + start, c, n - start);
            return p ? static_cast<size_type>(static_cast<const char*>(p) - m_szText) : npos;
        }

        size_type rfind(char c) const
        {
            const char* p = std::strrchr(m_szText, c);
            return (p && c != '\0') ? static_cast<size_type>(p - m_szText) : npos;
        }

        // The characters in [begin, end); an end at npos or behind the text stops at its end.
        String substring(size_type begin, size_type end = npos) const
        {
            const size_type n = length();
            if (end > n) end = n;
            if (begin >= end) return String();
            return String(m_szText + begin, end - begin);
        }

        bool operator==(const char* text) const { return text && std::strcmp(m_szText, text) == 0; }
        bool operator!=(const char* text) const { return !(*this == text); }
        bool operator==(const String& other) const { return std::strcmp(m_szText, other.m_szText) == 0; }
        bool operator!=(const String& other) const { return !(*this == other); }
        bool operator<(const String& other) const { return std::strcmp(m_szText, other.m_szText) < 0; }

    private:
        char m_szText[kCapacity];
    };

    static_assert(sizeof(String) == 1024, "String is a fixed 1024-byte value");
}
