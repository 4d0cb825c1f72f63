#include "zemrenderer/io/IOStreamPackageManager.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOPath.h"
#include "zemrenderer/io/IOStreamPackage.h"

namespace ZemRenderer
{
    namespace
    {
        IOStreamPackageManager* s_pInstance = nullptr;
    }

    IOStreamPackageManager* IOStreamPackageManager::Init()
    {
        if (!s_pInstance) s_pInstance = MEM_NEW(IOStreamPackageManager);
        return s_pInstance;
    }

    void IOStreamPackageManager::Release()
    {
        IOStreamPackageManager* manager = s_pInstance;
        s_pInstance = nullptr;
        MEM_DELETE(manager);
    }

    IOStreamPackageManager* IOStreamPackageManager::GetInstance() { return s_pInstance; }
    void IOStreamPackageManager::SetInstance(IOStreamPackageManager* manager) { s_pInstance = manager; }

    IOStreamPackageManager::~IOStreamPackageManager()
    {
        ZEM_ASSERT(m_vecPackages.IsEmpty(), "package not closed");
        while (!m_vecPackages.IsEmpty()) Unmount(m_vecPackages.GetLast());
    }

    IOStreamPackage* IOStreamPackageManager::Mount(const char* path, unsigned int flag)
    {
        char normalized[IOPath::kMaxPackagePath];
        if (!path || !path[0]) return nullptr;
        if (!IOPath::Normalize(path, normalized, sizeof(normalized)))
        {
            Common::Log("Package path too long to mount: %.64s...\n", path);
            return nullptr;
        }
        IOStreamPackage* package = MEM_NEW(IOStreamPackage, normalized, flag);
        if (package) m_vecPackages.Add(package);
        return package;
    }

    bool IOStreamPackageManager::Unmount(IOStreamPackage* package)
    {
        if (!ZEM_ASSERT(package != nullptr, "no package")) return false;
        if (!ZEM_ASSERT(m_vecPackages.RemoveValue(package), "mismatch package")) return false;
        package->Close(m_bLogOrder);
        MEM_DELETE(package);
        return true;
    }

    IOSTreamPackageSingle* IOStreamPackageManager::Open(const char* path)
    {
        if (!path || m_vecPackages.IsEmpty()) return nullptr;
        char normalized[IOPath::kMaxPackagePath];
        // A longer path cannot be below a root of a package.
        if (!IOPath::Normalize(path, normalized, sizeof(normalized))) return nullptr;
        for (unsigned int i = m_vecPackages.GetSize(); i-- > 0;)
            if (IOSTreamPackageSingle* file = m_vecPackages[i]->Open(normalized, m_bLogOrder)) return file;
        return nullptr;
    }
}
