#pragma once
// The loaders' templates of LoadingThread; include where assets are asked for by name.
#include <utility>

#include "common/system/debug/Log.h"
#include "zemrenderer/loading/LoaderT.h"
#include "zemrenderer/thread/LoadingThread.h"

namespace ZemRenderer
{
    template <class T>
    bool LoadingThread::AddLoaderWork(T* object, const char* name, Bucket* owner, bool skipData)
    {
        return AddLoaderWork<T>(object, name, owner, skipData, QueryPtr());
    }

    template <class T>
    bool LoadingThread::AddLoaderWork(T* object, const char* name, Bucket* owner, bool skipData,
                                      const QueryPtr& query, void (*callback)(T*, bool, void*), void* userData)
    {
        LoadTicket<T> ticket;
        ticket.pObject = object;
        ticket.spQuery = query;
        ticket.pfnCallback = callback;
        ticket.pUserData = userData;
        const bool usable = ZEM_ASSERT(owner != nullptr, "you have to provide a bucket for loading!!") &&
                            ZEM_ASSERT(object != nullptr, "Pointer must be non null") &&
                            ZEM_ASSERT(BaseLoader::FitsName(name), "Asset name too long or null");
        if (!usable)
        {
            ticket.SetQueryState(Query::eCancelled);
            ticket.End(false);
            return false;
        }
        ticket.pOwner = owner;
        ticket.Begin();
        ticket.SetQueryState(Query::eQueued);
        LoaderT<T>* worker = LoaderT<T>::New(std::move(ticket), name, skipData);
        if (!worker)
        {
            // The ticket did not move: the pool had no block to build the loader in.
            Common::Log("No memory left to load %s\n", name);
            ticket.SetQueryState(Query::eCancelled);
            ticket.End(false);
            return false;
        }
        // A refused worker is cancelled, which ends the ticket.
        return AddWork(worker);
    }
}
