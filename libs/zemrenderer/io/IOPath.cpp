#include "zemrenderer/io/IOPath.h"

namespace ZemRenderer
{
    namespace IOPath
    {
        bool Normalize(const char* path, char* out, size_t outSize)
        {
            if (!out || outSize == 0) return false;
            size_t n = 0;
            bool fits = true;
            if (path)
            {
                for (const char* p = path; *p; ++p)
                {
                    char c = *p;
                    if (IsSeparator(c))
                    {
                        if (n > 0 && out[n - 1] == kSeparator) continue;
                        c = kSeparator;
                    }
                    if (n + 1 >= outSize)
                    {
                        fits = false;
                        break;
                    }
                    out[n++] = c;
                }
            }
            out[n] = '\0';
            return fits;
        }
    }
}
