#pragma once
// Arguments of a text command: blank-separated tokens of one line, read in order. Only
// scalars and words have a text form; any other argument type fails the call.
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

#include "common/system/debug/Log.h"
#include "common/utils/String.h"

namespace ZemEngine
{
    class CTextParamReader
    {
    public:
        static constexpr size_t kBufferSize = 4096;

        explicit CTextParamReader(const char* line);

        template <class T>
        bool Read(T& out)
        {
            const char* token = NextToken();
            if (!token)
            {
                Common::Log("[RPC] text command : argument %u is missing\n", m_uArgIndex - 1);
                return false;
            }
            if (Convert(token, out)) return true;
            Common::Log("[RPC] text command : argument %u \"%.64s\" can't be read as this argument's type\n",
                        m_uArgIndex - 1, token);
            return false;
        }

        bool WantsReturn() const { return false; }

    private:
        const char* NextToken();

        static bool Convert(const char* token, bool& out)
        {
            if (!std::strcmp(token, "true") || !std::strcmp(token, "1")) out = true;
            else if (!std::strcmp(token, "false") || !std::strcmp(token, "0")) out = false;
            else return false;
            return true;
        }
        static bool Convert(const char* token, const char*& out)
        {
            out = token;
            return true;
        }
        static bool Convert(const char* token, Common::String& out)
        {
            return std::strlen(token) < Common::String::kCapacity && out.Assign(token);
        }
        template <class T>
        static bool Convert(const char* token, T& out)
        {
            char* end = nullptr;
            errno = 0;
            if constexpr (std::is_floating_point_v<T>)
            {
                const double d = std::strtod(token, &end);
                if (*end || errno || !std::isfinite(d) || std::fabs(d) > static_cast<double>(std::numeric_limits<T>::max()))
                    return false;
                out = static_cast<T>(d);
                return true;
            }
            else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>)
            {
                const long long x = std::strtoll(token, &end, 0);
                if (*end || errno || x < std::numeric_limits<T>::min() || x > std::numeric_limits<T>::max()) return false;
                out = static_cast<T>(x);
                return true;
            }
            else if constexpr (std::is_integral_v<T>)
            {
                if (token[0] == '-') return false;
                const unsigned long long x = std::strtoull(token, &end, 0);
                if (*end || errno || x > std::numeric_limits<T>::max()) return false;
                out = static_cast<T>(x);
                return true;
            }
            else if constexpr (std::is_enum_v<T>)
            {
                int value = 0;
                if (!Convert(token, value)) return false;
                out = static_cast<T>(value);
                return true;
            }
            else
            {
                (void)out;
                return false;
            }
        }

        char m_szBuffer[kBufferSize];
        char* m_pCursor;
        unsigned int m_uArgIndex = 0;
    };
}
