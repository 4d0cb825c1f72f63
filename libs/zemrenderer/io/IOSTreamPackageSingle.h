#pragma once
// One file of a mounted package, read through the package's own disk stream. It keeps
// its own position, so reads of two files of one package cannot disturb each other,
// and it goes dead (reads return 0) if its package is unmounted under it.
#include "zemrenderer/io/IOSTreamBase.h"

namespace ZemRenderer
{
    class IOStreamPackage;
    struct stFileDesc;

    class IOSTreamPackageSingle : public IOSTreamBase
    {
    public:
        IOSTreamPackageSingle(IOStreamPackage* package, const stFileDesc* desc);
        ~IOSTreamPackageSingle() override;
        IOSTreamPackageSingle(const IOSTreamPackageSingle&) = delete;
        IOSTreamPackageSingle& operator=(const IOSTreamPackageSingle&) = delete;

        bool OpenToRead(const char*) override { return true; }
        bool OpenToWrite(const char*) override { return false; }
        // Tells the package that its file is closed.
        bool Close() override;
        bool Rewind() override
        {
            m_iPendingSkip = -static_cast<int64_t>(m_uiPosition);
            return true;
        }
        bool IsReadable() override { return m_pPackage != nullptr; }
        size_t Read(void* out, size_t bytes) override;
        size_t Write(const void*, size_t) override { return 0; }
        // Clamps to [0, size] and still returns true.
        bool Skip(int64_t bytes) override;
        size_t GetSize() override { return m_uiSize; }
        size_t GetPosition() override { return static_cast<size_t>(static_cast<int64_t>(m_uiPosition) + m_iPendingSkip); }

        IOStreamPackage* GetPackage() const { return m_pPackage; }
        const stFileDesc* GetDesc() const { return m_pDesc; }
        // Called by the package when it goes away first.
        void Detach()
        {
            m_pPackage = nullptr;
            m_pDesc = nullptr;
        }

    private:
        IOStreamPackage* m_pPackage;
        const stFileDesc* m_pDesc;
        uint64_t m_uiOffset;
        size_t m_uiSize;
        size_t m_uiPosition = 0;
        int64_t m_iPendingSkip = 0;
    };
}
