#include "zemengine/plugins/impl/guiprojectnode/GuiProjectData.h"

#include <cstring>
#include <utility>

#include "common/system/memorymanager/MemoryManager.h"

namespace Plugin
{
    DynString& DynString::operator=(DynString&& other) noexcept
    {
        if (this != &other)
        {
            if (m_pText) MEM_FREE(m_pText);
            m_pText = std::exchange(other.m_pText, nullptr);
        }
        return *this;
    }

    DynString::~DynString()
    {
        if (m_pText) MEM_FREE(m_pText);
    }

    bool DynString::Assign(const char* text)
    {
        if (text == m_pText && text) return true;
        char* copy = nullptr;
        if (text && *text)
        {
            const size_t length = std::strlen(text);
            copy = static_cast<char*>(MEM_ALLOC(length + 1));
            if (copy) std::memcpy(copy, text, length + 1);
        }
        if (m_pText) MEM_FREE(m_pText);
        m_pText = copy;
        return copy || !text || !*text;
    }

    bool DynString::operator==(const char* text) const { return std::strcmp(c_str(), text ? text : "") == 0; }
}
