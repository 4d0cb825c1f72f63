#pragma once
// The stream almost all code uses: a path is first looked up in the mounted packages
// and only then opened on disk. Writing always goes to disk.
#include "zemrenderer/io/IOSTreamBase.h"

namespace ZemRenderer
{
    class IOSTreamDiskNoPackage;
    class IOSTreamPackageSingle;

    class IOSTreamDisk : public IOSTreamBase
    {
    public:
        IOSTreamDisk() = default;
        ~IOSTreamDisk() override;
        IOSTreamDisk(const IOSTreamDisk&) = delete;
        IOSTreamDisk& operator=(const IOSTreamDisk&) = delete;

        bool OpenToRead(const char* path) override;
        bool OpenToWrite(const char* path) override;
        bool Close() override;
        bool Rewind() override;
        bool IsReadable() override;
        size_t Read(void* out, size_t bytes) override;
        size_t Write(const void* in, size_t bytes) override;
        bool Skip(int64_t bytes) override;
        size_t GetSize() override;
        bool ReadAndCache(void* out, size_t bytes) override;
        void FreeCache() override;
        size_t GetPosition() override;

        bool IsFromPackage() const { return m_pPackage != nullptr; }

    private:
        IOSTreamBase* Active() const;
        void Release();

        IOSTreamDiskNoPackage* m_pDisk = nullptr;
        IOSTreamPackageSingle* m_pPackage = nullptr;
    };
}
