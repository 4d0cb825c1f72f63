#include "zemrenderer/thread/LoadingThread.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/loading/ListAssetsWorker.h"
#include "zemrenderer/loading/LoadFileWorker.h"
#include "zemrenderer/loading/LoaderT.h"
#include "zemrenderer/loading/PackageMountWorkers.h"

namespace ZemRenderer
{
    bool LoadingThread::AddWorkWithQuery(WorkerBase<RenderThread>* worker, const QueryPtr& query)
    {
        worker->spQuery = query;
        // A refused worker is cancelled and its query with it.
        return AddWork(worker);
    }

    IOSTreamMemory* LoadingThread::AddSimpleLoadingWork(const char* name, const QueryPtr& query, Bucket* owner)
    {
        if (!ZEM_ASSERT(BaseLoader::FitsName(name), "Asset name too long or null"))
        {
            if (query) query->SetState(Query::eCancelled);
            return nullptr;
        }
        IOSTreamMemory* stream = MEM_NEW(IOSTreamMemory);
        LoaderT<IOSTreamMemory>* worker = stream ? LoaderT<IOSTreamMemory>::New(stream, name, owner, false) : nullptr;
        if (!worker)
        {
            MEM_DELETE(stream);
            if (query) query->SetState(Query::eCancelled);
            return nullptr;
        }
        if (!AddWorkWithQuery(worker, query))
        {
            MEM_DELETE(stream);
            return nullptr;
        }
        return stream;
    }

    bool LoadingThread::AddLoadingFile(IOSTreamBase* stream, const char* name, const QueryPtr& query)
    {
        const bool usable = ZEM_ASSERT(stream != nullptr, "Pointer must be non null") &&
                            ZEM_ASSERT(name && std::strlen(name) < LoadFileWorker::kNameSize, "File name too long or null");
        LoadFileWorker* worker = usable ? LoadFileWorker::New(stream, name) : nullptr;
        if (!worker)
        {
            if (query) query->SetState(Query::eCancelled);
            return false;
        }
        return AddWorkWithQuery(worker, query);
    }

    bool LoadingThread::AddListAssetsWork(const char* platform, const char* filter, TArray<Common::String>* out,
                                          std::atomic<int>* counter)
    {
        ListAssetsWorker* worker = ZEM_ASSERT(out != nullptr, "Pointer must be non null")
                                       ? ListAssetsWorker::New(platform, filter, out, counter)
                                       : nullptr;
        if (!worker)
        {
            if (counter) counter->fetch_sub(1, std::memory_order_acq_rel);
            return false;
        }
        return AddWork(worker);
    }

    bool LoadingThread::AddMountPackageWork(const char* path, unsigned int flag, void** result)
    {
        MountPackageWorker* worker = MountPackageWorker::New(result, path, flag);
        return worker && AddWork(worker);
    }

    bool LoadingThread::AddUnMountPackageWork(void* handle)
    {
        UnMountPackageWorker* worker = UnMountPackageWorker::New(handle);
        return worker && AddWork(worker);
    }
}
