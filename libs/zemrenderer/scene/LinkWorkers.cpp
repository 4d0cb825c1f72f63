#include "zemrenderer/scene/LinkWorkers.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/LOctreeRoot.h"
#include "zemrenderer/scene/Link.h"
#include "zemrenderer/thread/LoadingThread.h"
#include "zemrenderer/thread/ProcessThread.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    namespace
    {
        // A load keeps a counted bucket alive until it ends.
        bool BeginLoad(Bucket* owner)
        {
            owner->AddPending();
            if (owner->GetRefCount() <= 0) return false;
            owner->Reference();
            return true;
        }
        void EndLoad(Bucket* owner, bool held)
        {
            owner->RemovePending();
            if (held) owner->Release();
        }
    }

    // ---------------------------------------------------------------- loading

    bool LinkLoadWorker::Post(Bucket* owner, Link* link, const char* name, const QueryPtr& request)
    {
        const bool held = BeginLoad(owner);
        RenderThread* thread = owner->GetRenderThread();
        LoadingThread* loader = thread ? thread->GetLoader() : nullptr;
        LinkLoadWorker* worker = loader ? New(owner, link, name, request, held) : nullptr;
        if (!worker)
        {
            Common::Log("No loading thread for link %s\n", name);
            if (request) request->SetState(Query::eCancelled);
            EndLoad(owner, held);
            return false;
        }
        // A refused worker is cancelled, which gives the count and the query back.
        return loader->AddWork(worker);
    }

    LinkLoadWorker::LinkLoadWorker(Bucket* owner, Link* link, const char* name, const QueryPtr& request, bool held)
        : m_pOwner(owner), m_pLink(link), m_spRequest(request), m_bHeld(held)
    {
        std::strncpy(m_szName, name, kNameSize - 1);
    }

    void LinkLoadWorker::Abort()
    {
        if (!m_pOwner) return;
        if (m_spRequest) m_spRequest->SetState(Query::eCancelled);
        EndLoad(m_pOwner, m_bHeld);
        m_pOwner = nullptr;
    }

    void LinkLoadWorker::OnCancel() { Abort(); }

    bool LinkLoadWorker::DoWork(RenderThread* context)
    {
        if (m_pOwner->IsClosing())
        {
            Abort();
            return true;
        }
        IOSTreamMemory* stream = MEM_NEW(IOSTreamMemory);
        if (!stream || !stream->OpenToRead(m_szName))
        {
            Common::Log("File not found: \"%s\" \n", m_szName);
            MEM_DELETE(stream);
            Abort();
            return true;
        }
        ProcessThread* processor = context ? context->GetProcessor() : nullptr;
        LinkProcessWorker* next = processor ? LinkProcessWorker::New(m_pOwner, m_pLink, stream, m_spRequest, m_bHeld) : nullptr;
        if (!next)
        {
            MEM_DELETE(stream);
            Abort();
            return true;
        }
        next->spQuery = m_spRequest;
        // From here the process worker owns the pending count, the reference and the stream.
        m_pOwner = nullptr;
        processor->AddWork(next);
        return true;
    }

    LinkProcessWorker::~LinkProcessWorker() { MEM_DELETE(m_pStream); }

    void LinkProcessWorker::Finish()
    {
        if (m_bFinished) return;
        m_bFinished = true;
        MEM_DELETE(m_pStream);
        m_pStream = nullptr;
        if (m_pOwner) EndLoad(m_pOwner, m_bHeld);
    }

    void LinkProcessWorker::OnCancel()
    {
        if (m_spRequest) m_spRequest->SetState(Query::eCancelled);
        Finish();
    }

    bool LinkProcessWorker::DoWork(RenderThread*)
    {
        if (m_pOwner->IsClosing() || !m_pLink->Load(*m_pStream, m_pOwner))
        {
            if (!m_pOwner->IsClosing()) Common::Log("Failed to process\n");
            if (m_spRequest) m_spRequest->SetState(Query::eCancelled);
        }
        Finish();
        return true;
    }

    // ---------------------------------------------------------------- deleting

    void DeleteLinkWorker::DeleteNow(Link* link)
    {
        if (!link) return;
        if (LOctreeRoot* octree = link->GetOwner()) octree->RemoveLink(link);
        if (Bucket* bucket = link->GetBucket())
            bucket->DestroyLink(link);
        else
            MEM_DELETE(link);
    }

    bool DeleteLinkWorker::Post(Link* link)
    {
        if (!ZEM_ASSERT(link != nullptr, "Pointer must be non null")) return false;
        LOctreeRoot* octree = link->GetOwner();
        RenderThread* thread = link->GetBucket() ? link->GetBucket()->GetRenderThread() : nullptr;
        if (!octree && !thread)
        {
            DeleteNow(link);
            return true;
        }
        DeleteLinkWorker* worker = New(link);
        if (!ZEM_ASSERT(worker != nullptr, "No memory left !")) return false;
        if (octree)
        {
            LinkCommand command;
            command.uiKind = LinkCommand::eRunWorker;
            command.pTarget = link;
            command.pWorker = worker;
            octree->AddCommand(command);
            return true;
        }
        return thread->AddWork(worker);
    }

    bool DeleteLinkWorker::DoWork(RenderThread*)
    {
        DeleteNow(m_pLink);
        m_pLink = nullptr;
        return true;
    }

    void DeleteLinkWorker::OnCancel()
    {
        DeleteNow(m_pLink);
        m_pLink = nullptr;
    }
}
