#pragma once
// A package: one flat file standing in for a directory tree. A 128-byte header (magic,
// count, root) is followed by one 128-byte record per file (size, offset, name) and the
// files' bytes back to back. Integers are in the writer's byte order; a reader that
// sees the magic reversed swaps them.
#include <cstddef>
#include <cstdint>

#include "common/utils/TArray.h"
#include "zemrenderer/io/IOPath.h"
#include "zemrenderer/io/IOSTreamDiskNoPackage.h"

namespace ZemRenderer
{
    class IOSTreamPackageSingle;

    constexpr unsigned int kPackageMagic = 0x01439855;
    constexpr unsigned int kPackageMagicSwapped = 0x55984301;
    constexpr size_t kPackageRecordSize = 128;
    constexpr size_t kPackageNameSize = 120;

    struct stPackageHeader
    {
        unsigned int uiMagic;
        unsigned int uiCount;
        char szRoot[kPackageNameSize];
    };

    // A directory entry, used in place inside the directory image.
    struct stFileDesc
    {
        unsigned int uiSize;
        unsigned int uiOffset;
        char szName[kPackageNameSize];
    };
    static_assert(sizeof(stPackageHeader) == kPackageRecordSize && sizeof(stFileDesc) == kPackageRecordSize,
                  "package records are 128 bytes");

    class IOStreamPackage
    {
    public:
        // `path` is the package file; nothing is read until PostMount.
        IOStreamPackage(const char* path, unsigned int flag);
        ~IOStreamPackage();
        IOStreamPackage(const IOStreamPackage&) = delete;
        IOStreamPackage& operator=(const IOStreamPackage&) = delete;

        // Builds a package of every file below rootDir: the walk is written to listFile,
        // and files named in orderFile come first, in its order. False on any failure,
        // in which case no package file is left behind.
        static bool Create(const char* rootDir, const char* listFile, const char* packagePath, bool swapBytes,
                           const char* orderFile);

        // Reads and checks the directory once. A package file that cannot be opened is
        // tried again next time; one whose content is wrong is passed over for good.
        bool PostMount();
        bool IsLive() const { return m_eState == eLive; }
        bool IsRejected() const { return m_eState == eRejected; }

        // The package's stream for a normalised path below its root, or null. With
        // logOrder the file's first use is noted for the order log.
        IOSTreamPackageSingle* Open(const char* normalizedPath, bool logOrder = false);
        // The stream of one entry; the package serves one open file at a time.
        IOSTreamPackageSingle* OpenEntry(const stFileDesc* desc);
        // The entry of a name relative to the root, or null.
        const stFileDesc* FindFile(const char* name) const;

        // Writes every file to <destDir or the working directory>/<root>/<name>.
        bool UnCompress(const char* destDir = nullptr);

        // Writes the order log when asked, detaches open files and drops the directory.
        void Close(bool logOrder = false);
        // Writes "<package path>_order.txt": used names in order of first use, then the rest.
        bool WriteOrderLog() const;

        unsigned int GetFileCount() const;
        const stFileDesc* GetFile(unsigned int index) const;
        const char* GetRoot() const { return m_szRoot; }
        const char* GetPath() const { return m_szPath; }
        unsigned int GetFlag() const { return m_uiFlag; }
        bool IsSwapped() const { return m_bSwapped; }
        uint64_t GetFileSize() const { return m_uiFileSize; }

        // For IOSTreamPackageSingle.
        size_t ReadAt(uint64_t offset, void* out, size_t bytes);
        void CloseFile(IOSTreamPackageSingle* file);

    private:
        enum EState
        {
            eUnmounted,
            eLive,
            eRejected,
        };
        struct stFileKey
        {
            unsigned int uiHash;
            stFileDesc* pDesc;
        };
        bool Reject(const char* format, ...) __attribute__((format(printf, 2, 3)));
        void DropDirectory();
        const stFileDesc* FindHash(unsigned int hash) const;

        unsigned char* m_pDirectory = nullptr;
        IOSTreamDiskNoPackage m_kStream;
        char m_szRoot[IOPath::kMaxPackagePath] = {};
        unsigned int m_uiFlag;
        char m_szPath[IOPath::kMaxPackagePath] = {};
        IOSTreamPackageSingle* m_pCurrent = nullptr;
        // Entries by name hash, sorted once at mount and searched by bisection; where two
        // entries share a name the later one is kept.
        TArray<stFileKey> m_dFiles;
        // The order log: a used mark per entry, and entries in order of first use.
        TArray<unsigned char> m_aUsedFlags;
        TArray<unsigned int> m_aUsed;
        // Every stream still open on this package, so that none outlives it.
        TArray<IOSTreamPackageSingle*> m_aOpenFiles;
        EState m_eState = eUnmounted;
        bool m_bSwapped = false;
        uint64_t m_uiFileSize = 0;
    };
}
