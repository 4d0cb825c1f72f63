#include "zemengine/dataprovider/EngineDataProvider.h"

#include <ctime>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "common/system/thread/Thread.h"
#include "zemengine/dataprovider/DataProviderImpl.h"

namespace DataProvider
{
    namespace
    {
        int64_t NowMs()
        {
            timespec ts;
            clock_gettime(CLOCK_MONOTONIC, &ts);
            return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
        }
    }

    DataPoviderInterface* CreateEngineDataProvider(const char* address)
    {
        DataProviderImpl* provider = MEM_NEW(DataProviderImpl);
        if (!provider) return nullptr;
        if (address && address[0]) provider->SetAddress(address);
        SetDataProvider(provider);
        return provider;
    }

    bool WaitForDataProvider(DataPoviderInterface* provider, unsigned int pollMs, unsigned int logEveryMs,
                             unsigned int limitMs)
    {
        if (!ZEM_ASSERT(provider != nullptr, "DataProvider is not instanciated !!!")) return false;
        const int64_t start = NowMs();
        int64_t nextLog = start + logEveryMs;
        while (!provider->IsReady())
        {
            const int64_t now = NowMs();
            if (limitMs && now - start >= static_cast<int64_t>(limitMs)) return false;
            if (now >= nextLog)
            {
                char what[1024] = "the asset manager";
                if (DataProviderImpl* impl = dynamic_cast<DataProviderImpl*>(provider)) impl->DescribeWait(what, sizeof(what));
                Common::Log("[Engine] Waiting for the data provider (%lld s): %s\n",
                            static_cast<long long>((now - start) / 1000), what);
                nextLog = now + logEveryMs;
            }
            Common::CThread::Sleep(pollMs);
        }
        return true;
    }

    void DestroyEngineDataProvider(DataPoviderInterface* provider)
    {
        if (!provider) return;
        if (GetDataProvider() == provider) SetDataProvider(nullptr);
        MEM_DELETE(provider);
    }
}
