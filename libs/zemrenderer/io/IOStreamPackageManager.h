#pragma once
// The mounted packages. A disk stream asks the manager first, from the last mounted
// package to the first, so a later mount shadows an earlier one. No lock: packages
// are read on the loading thread only.
#include "common/utils/TArray.h"

namespace ZemRenderer
{
    class IOStreamPackage;
    class IOSTreamPackageSingle;

    class IOStreamPackageManager
    {
    public:
        // Creates the manager once and returns it.
        static IOStreamPackageManager* Init();
        // Unmounts what is left and deletes the manager.
        static void Release();
        // Null until Init: without a manager every disk stream goes straight to disk.
        static IOStreamPackageManager* GetInstance();
        // A plugin adopts the host's manager.
        static void SetInstance(IOStreamPackageManager* manager);

        // Registers a package file; nothing is read until the first Open reaches it.
        IOStreamPackage* Mount(const char* path, unsigned int flag);
        // "no package" for null, "mismatch package" for one not mounted here.
        bool Unmount(IOStreamPackage* package);
        // A new stream for the file, which the caller deletes; null if no package has it.
        IOSTreamPackageSingle* Open(const char* path);

        // When set, every package writes "<path>_order.txt" as it is unmounted.
        void SetLogOrder(bool logOrder) { m_bLogOrder = logOrder; }
        bool GetLogOrder() const { return m_bLogOrder; }
        unsigned int GetPackageCount() const { return m_vecPackages.GetSize(); }
        IOStreamPackage* GetPackage(unsigned int index) const
        {
            return index < m_vecPackages.GetSize() ? m_vecPackages[index] : nullptr;
        }

        IOStreamPackageManager() = default;
        ~IOStreamPackageManager();
        IOStreamPackageManager(const IOStreamPackageManager&) = delete;
        IOStreamPackageManager& operator=(const IOStreamPackageManager&) = delete;

    private:
        TArray<IOStreamPackage*> m_vecPackages;
        bool m_bLogOrder = false;
    };
}
