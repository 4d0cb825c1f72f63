#pragma once
// The name part of every load request. The name is copied, so that the caller's text
// may go as soon as the request is queued.
#include <cstring>

namespace ZemRenderer
{
    class BaseLoader
    {
    public:
        static constexpr unsigned int kNameSize = 2048;

        BaseLoader() = default;
        virtual ~BaseLoader() = default;
        BaseLoader(const BaseLoader&) = delete;
        BaseLoader& operator=(const BaseLoader&) = delete;

        const char* GetName() const { return m_szName; }
        // False for a null name or one of kNameSize characters or more: nothing is kept.
        static bool FitsName(const char* name) { return name && std::strlen(name) < kNameSize; }

    protected:
        void SetName(const char* name)
        {
            if (FitsName(name)) std::memcpy(m_szName, name, std::strlen(name) + 1);
        }

        char m_szName[kNameSize] = {};
    };
}
