#pragma once
// Loading-thread work that hands a package to the data provider's mount hooks, so a
// package never changes while the loading thread reads through the package list.
#include "common/utils/String.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    class MountPackageWorker : public PooledWorker<MountPackageWorker, RenderThread>
    {
    public:
        MountPackageWorker() = default;
        MountPackageWorker(void** result, const char* path, unsigned int flag)
            : m_ppResult(result), m_kPath(path ? path : ""), m_uFlag(flag)
        {
        }

        unsigned int GetQueue() const override { return 0; }
        // Stores the hook's handle in the result slot; nothing without a slot.
        bool DoWork(RenderThread* context) override;

    private:
        void** m_ppResult = nullptr;
        Common::String m_kPath;
        unsigned int m_uFlag = 0;
    };

    class UnMountPackageWorker : public PooledWorker<UnMountPackageWorker, RenderThread>
    {
    public:
        UnMountPackageWorker() = default;
        explicit UnMountPackageWorker(void* handle) : m_pHandle(handle) {}

        unsigned int GetQueue() const override { return 0; }
        // Passes the handle to the unmount hook; nothing without a handle.
        bool DoWork(RenderThread* context) override;

    private:
        void* m_pHandle = nullptr;
    };
}
