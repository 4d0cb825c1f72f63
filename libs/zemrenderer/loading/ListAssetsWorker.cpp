#include "zemrenderer/loading/ListAssetsWorker.h"

#include "zemrenderer/dataprovider/DataPoviderInterface.h"

namespace ZemRenderer
{
    bool ListAssetsWorker::DoWork(RenderThread*)
    {
        if (m_pOut) DataProvider::ListAssets(m_kPlatform.c_str(), m_kFilter.c_str(), *m_pOut);
        if (m_pCounter) std::exchange(m_pCounter, nullptr)->fetch_sub(1, std::memory_order_acq_rel);
        return true;
    }

    void ListAssetsWorker::OnCancel()
    {
        if (m_pCounter) std::exchange(m_pCounter, nullptr)->fetch_sub(1, std::memory_order_acq_rel);
    }
}
