#pragma once
// The thread that reads files. Loaders queue their workers here; the stop chain starts
// here too.
#include <atomic>

#include "common/utils/String.h"
#include "common/utils/TArray.h"
#include "zemrenderer/thread/ThreadedWorkManager.h"

namespace ZemRenderer
{
    class Bucket;
    class IOSTreamBase;
    class IOSTreamMemory;
    template <class T>
    struct LoadTicket;

    class LoadingThread : public ThreadedWorkManager
    {
    public:
        explicit LoadingThread(RenderThread* owner) : ThreadedWorkManager(owner) {}

        // ---- assets by name (LoadingThread.hpp) ----------------------------------------
        // `object` of class T, named `name`, read for `owner`, which must be given: the
        // owner's pending count covers the load until the object lands on the render
        // thread. `query` goes 1 (queued), 2 (running, being built), 3 (built) or 4 (not
        // found, not built, or the owner closed); `callback` then runs on the render
        // thread. False (query 4, callback told) when the request cannot be queued.
        template <class T>
        bool AddLoaderWork(T* object, const char* name, Bucket* owner, bool skipData = false);
        template <class T>
        bool AddLoaderWork(T* object, const char* name, Bucket* owner, bool skipData, const QueryPtr& query,
                           void (*callback)(T* object, bool loaded, void* userData) = nullptr,
                           void* userData = nullptr);

        // ---- streams -----------------------------------------------------------------------
        // A new stream, at once, that the loading thread fills with the file the provider
        // gives for `name` ("path -params" form). The caller owns it, and may read it once
        // `query` (if given) has finished and IsReadable says so; it must not delete it
        // before. Null when the request cannot be queued.
        IOSTreamMemory* AddSimpleLoadingWork(const char* name, const QueryPtr& query = QueryPtr(),
                                             Bucket* owner = nullptr);
        // Opens the file `name`, as it is on disk, into `stream`; names of 260 characters
        // or more are refused. `query` ends in 4 when the file could not be opened.
        bool AddLoadingFile(IOSTreamBase* stream, const char* name, const QueryPtr& query = QueryPtr());
        // The provider's cooked assets of `platform` whose path starts with `filter` into
        // `out`; `counter` (if given) falls by one when done, or when the work is dropped.
        bool AddListAssetsWork(const char* platform, const char* filter, TArray<Common::String>* out,
                               std::atomic<int>* counter = nullptr);
        // Hands a package to the data provider's mount hook on this thread; the handle
        // lands in `*result`. The unmount passes a handle back to its hook.
        bool AddMountPackageWork(const char* path, unsigned int flag, void** result);
        bool AddUnMountPackageWork(void* handle);

    private:
        // Queues `worker` with `query` as the worker's own.
        bool AddWorkWithQuery(WorkerBase<RenderThread>* worker, const QueryPtr& query);
    };
}
