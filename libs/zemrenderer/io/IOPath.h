#pragma once
// Path text as the streams and packages compare it: every '/' or '\\' becomes the
// platform separator and runs of separators collapse into one.
#include <cstddef>

namespace ZemRenderer
{
    namespace IOPath
    {
        constexpr char kSeparator = '/';
        // Package roots, package paths and names compare within this many characters.
        constexpr size_t kMaxPackagePath = 260;

        // Writes the normalised text of `path` to `out` (outSize bytes with the NUL).
        // False, with `out` holding the cut text, when the path does not fit.
        bool Normalize(const char* path, char* out, size_t outSize);

        inline bool IsSeparator(char c) { return c == '/' || c == '\\'; }
    }
}
