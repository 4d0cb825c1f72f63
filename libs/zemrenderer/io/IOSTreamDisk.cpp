#include "zemrenderer/io/IOSTreamDisk.h"

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamDiskNoPackage.h"
#include "zemrenderer/io/IOSTreamPackageSingle.h"
#include "zemrenderer/io/IOStreamPackageManager.h"

namespace ZemRenderer
{
    IOSTreamDisk::~IOSTreamDisk() { Release(); }

    IOSTreamBase* IOSTreamDisk::Active() const
    {
        if (m_pDisk) return m_pDisk;
        return m_pPackage;
    }

    void IOSTreamDisk::Release()
    {
        MEM_DELETE(m_pDisk);
        MEM_DELETE(m_pPackage);
        m_pDisk = nullptr;
        m_pPackage = nullptr;
    }

    bool IOSTreamDisk::OpenToRead(const char* path)
    {
        Release();
        if (IOStreamPackageManager* manager = IOStreamPackageManager::GetInstance())
        {
            m_pPackage = manager->Open(path);
            if (m_pPackage) return true;
        }
        m_pDisk = MEM_NEW(IOSTreamDiskNoPackage);
        return m_pDisk && m_pDisk->OpenToRead(path);
    }

    bool IOSTreamDisk::OpenToWrite(const char* path)
    {
        Release();
        m_pDisk = MEM_NEW(IOSTreamDiskNoPackage);
        return m_pDisk && m_pDisk->OpenToWrite(path);
    }

    bool IOSTreamDisk::Close()
    {
        IOSTreamBase* s = Active();
        const bool ok = s && s->Close();
        Release();
        return ok;
    }

    bool IOSTreamDisk::Rewind()
    {
        IOSTreamBase* s = Active();
        return s && s->Rewind();
    }
    bool IOSTreamDisk::IsReadable()
    {
        IOSTreamBase* s = Active();
        return s && s->IsReadable();
    }
    size_t IOSTreamDisk::Read(void* out, size_t bytes)
    {
        IOSTreamBase* s = Active();
        return s ? s->Read(out, bytes) : 0;
    }
    size_t IOSTreamDisk::Write(const void* in, size_t bytes)
    {
        IOSTreamBase* s = Active();
        return s ? s->Write(in, bytes) : 0;
    }
    bool IOSTreamDisk::Skip(int64_t bytes)
    {
        IOSTreamBase* s = Active();
        return s && s->Skip(bytes);
    }
    size_t IOSTreamDisk::GetSize()
    {
        IOSTreamBase* s = Active();
        return s ? s->GetSize() : static_cast<size_t>(-1);
    }
    bool IOSTreamDisk::ReadAndCache(void* out, size_t bytes)
    {
        IOSTreamBase* s = Active();
        return s && s->ReadAndCache(out, bytes);
    }
    void IOSTreamDisk::FreeCache()
    {
        if (IOSTreamBase* s = Active()) s->FreeCache();
    }
    size_t IOSTreamDisk::GetPosition()
    {
        IOSTreamBase* s = Active();
        return s ? s->GetPosition() : 0;
    }
}
