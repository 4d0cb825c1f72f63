#pragma once
// What travels with one load from the loading thread to the render thread: the object,
// its owner and whether the load holds a reference on it, the request's query and the
// requester's callback.
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/thread/Query.h"

namespace ZemRenderer
{
    template <class T>
    struct LoadTicket
    {
        // Render thread, once per load, loaded or not.
        typedef void (*Callback)(T* object, bool loaded, void* userData);

        T* pObject = nullptr;
        Bucket* pOwner = nullptr;
        bool bHeld = false;
        QueryPtr spQuery;
        Callback pfnCallback = nullptr;
        void* pUserData = nullptr;

        // On the calling thread: the owner's pending count rises, and a counted owner is
        // held until the load ends, so that it cannot go under the threads.
        void Begin()
        {
            if (!pOwner) return;
            pOwner->AddPending();
            bHeld = pOwner->GetRefCount() > 0;
            if (bHeld) pOwner->Reference();
        }

        // Exactly once: the callback, then the owner's count and reference.
        void End(bool loaded)
        {
            if (pfnCallback) pfnCallback(pObject, loaded, pUserData);
            pfnCallback = nullptr;
            Bucket* owner = pOwner;
            pOwner = nullptr;
            if (!owner) return;
            owner->RemovePending();
            if (bHeld) owner->Release();
        }

        bool IsOwnerClosing() const { return pOwner && pOwner->IsClosing(); }

        void SetQueryState(Query::State state)
        {
            if (spQuery) spQuery->SetState(state);
        }
    };
}
