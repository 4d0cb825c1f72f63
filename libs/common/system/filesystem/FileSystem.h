#pragma once
// Files on disk: named system directories, path normalisation, an open that rides out
// a file briefly locked by another process, and whole-file loading.
#include <cstddef>
#include <cstdio>

#include "common/system/filesystem/FileBase.h"

namespace Common
{
    class CFileSystem
    {
    public:
        static constexpr int DirectoryTypeCount = 4;
        static constexpr int AssetsRoot = 2;
        static constexpr int DirectorySize = 1024;
        static constexpr int PathBufferSize = 2048;

        CFileSystem();

        // The process's file system; a plugin adopts the host's before first use.
        static CFileSystem* GetInstance();
        static void SetInstance(CFileSystem* instance);

        // A path that does not fit in DirectorySize bytes is refused and the old one kept.
        bool SetDirectory(const char* path, int type);
        // Null for a type outside 0..3.
        const char* GetDirectory(int type) const;

        // Makes every separator '/' and collapses runs of them into one, in place. A path
        // that does not fit in PathBufferSize bytes is left as it was and false returned.
        static bool NormalizePath(char* path);
        // The same into `out` of `_iMaxSize` bytes.
        static bool NormalizePath(const char* path, char* out, int _iMaxSize);

        // fopen that retries a denied access 3 times, 100 ms apart. On failure logs the
        // error code and sets *outFile to null.
        static bool Open(const char* path, const char* mode, FILE** outFile);

        // The whole file in memory, or null if it can't be read. The caller owns the
        // result and releases it with MEM_DELETE.
        static CFileBase* LoadFile(const char* path);

        // The folder of the running program (no trailing '/'), from /proc/self/exe.
        // False if it can't be read or does not fit in `size` bytes.
        static bool GetProgramDirectory(char* out, size_t size);
        // True if `path` names a folder.
        static bool IsDirectory(const char* path);

    private:
        char m_aDirectories[DirectoryTypeCount][DirectorySize];
    };
}

// The 32-bit id of a file's bytes (seed 0); 0xFFFFFFFF for a file that can't be read.
unsigned int GenerateUIntIdFromFile(const char* path);
