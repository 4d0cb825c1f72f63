#include "zemrenderer/loading/PackageMountWorkers.h"

#include "zemrenderer/dataprovider/DataPoviderInterface.h"

namespace ZemRenderer
{
    bool MountPackageWorker::DoWork(RenderThread*)
    {
        if (!m_ppResult) return true;
        DataProvider::DataPoviderInterface* provider = DataProvider::GetDataProvider();
        *m_ppResult = provider ? provider->MountPackage(m_kPath.c_str(), m_uFlag) : nullptr;
        return true;
    }

    bool UnMountPackageWorker::DoWork(RenderThread*)
    {
        if (!m_pHandle) return true;
        if (DataProvider::DataPoviderInterface* provider = DataProvider::GetDataProvider())
            provider->UnMountPackage(m_pHandle);
        return true;
    }
}
