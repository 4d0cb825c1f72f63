#pragma once
// A disk file through stdio, never looked up in packages. Skips and rewinds are only
// remembered: the one seek they add up to happens at the next read or write.
#include <cstdio>

#include "zemrenderer/io/IOSTreamBase.h"

namespace ZemRenderer
{
    class IOSTreamDiskNoPackage : public IOSTreamBase
    {
    public:
        IOSTreamDiskNoPackage() = default;
        ~IOSTreamDiskNoPackage() override;
        IOSTreamDiskNoPackage(const IOSTreamDiskNoPackage&) = delete;
        IOSTreamDiskNoPackage& operator=(const IOSTreamDiskNoPackage&) = delete;

        bool OpenToRead(const char* path) override;
        bool OpenToWrite(const char* path) override;
        bool Close() override;
        bool Rewind() override;
        bool IsReadable() override { return m_bReadable; }
        size_t Read(void* out, size_t bytes) override;
        size_t Write(const void* in, size_t bytes) override;
        bool Skip(int64_t bytes) override;
        // All ones when the stream is not open for reading.
        size_t GetSize() override;
        bool ReadAndCache(void* out, size_t bytes) override;
        void FreeCache() override;
        size_t GetPosition() override { return static_cast<size_t>(static_cast<int64_t>(m_uiPosition) + m_iPendingSkip); }

        bool IsOpen() const { return m_pFile != nullptr; }
        // Reads at an absolute offset with one system call, leaving the position and any
        // pending skip as they are. A package serves its files this way.
        size_t ReadAt(uint64_t offset, void* out, size_t bytes);

    private:
        bool Open(const char* path, const char* mode);
        bool ApplyPendingSkip();

        FILE* m_pFile = nullptr;
        // stdio's own buffer would cost a file status call and an allocation per open.
        char m_acBuffer[4096];
        size_t m_uiPosition = 0;
        int64_t m_iPendingSkip = 0;
        bool m_bReadable = false;
        bool m_bWritable = false;
        size_t m_uiCacheSize = 0;
        void* m_pCache = nullptr;
    };
}
