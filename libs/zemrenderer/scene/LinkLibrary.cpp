#include "zemrenderer/scene/LinkLibrary.h"

#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/LOctreeRoot.h"
#include "zemrenderer/scene/Link.h"

namespace ZemRenderer
{
    namespace
    {
        constexpr unsigned int kLoadWaitMs = 10000;

        bool IsLoading(const QueryPtr& query) { return query && !query->IsFinished(); }
    }

    LinkLibrary::~LinkLibrary()
    {
        m_kMutex.Lock();
        for (Pending& pending : m_aPending)
        {
            if (pending.spQuery) pending.spQuery->SetState(Query::eCancelled);
        }
        m_aPending.Clear();
        for (auto& entry : m_dFiles)
        {
            Record* record = entry.value;
            // A load in flight still writes into its master.
            if (IsLoading(record->spQuery) && !record->spQuery->WaitFinished(kLoadWaitMs))
                Common::Log("Link file master %s still loading at the end of its library: left alive\n",
                            record->pMaster->GetName());
            else
                DestroyMaster(record->pMaster);
            MEM_DELETE(record);
        }
        m_dFiles.ClearAndFree();
        m_kMutex.Unlock();
    }

    void LinkLibrary::DestroyMaster(Link* master)
    {
        if (!master) return;
        if (Bucket* bucket = master->GetBucket())
            bucket->DestroyLink(master);
        else
            MEM_DELETE(master);
    }

    Link* LinkLibrary::RetrieveLink(Bucket* bucket, LOctreeRoot* octree, const char* name, QueryPtr* query, Link* link,
                                    uint32_t flags)
    {
        if (query) query->Reset();
        if (!ZEM_ASSERT(bucket != nullptr && octree != nullptr && name != nullptr && name[0] != '\0',
                        "RetrieveLink needs a bucket, an octree and a name"))
            return nullptr;
        if (!link)
        {
            link = bucket->CreateLink("Unnamed");
            if (!ZEM_ASSERT(link != nullptr, "No memory left !")) return nullptr;
            link->SetFlags(Link::eInstance);
        }
        link->SetFlags(flags | Link::eLoading);
        if (!link->GetOwner()) octree->Adopt(link);
        QueryPtr instanceQuery(Query::Create());
        if (instanceQuery) instanceQuery->SetState(Query::eQueued);

        const unsigned int hash = GenerateUIntIdFromString(name);
        bool startLoad = false;
        bool copyNow = false;
        Link* master = nullptr;
        QueryPtr loadQuery;
        m_kMutex.Lock();
        Record* record = m_dFiles.Find(hash);
        if (!record)
        {
            record = MEM_NEW(Record);
            master = bucket->CreateLink(name);
            if (!record || !master)
            {
                m_kMutex.Unlock();
                MEM_DELETE(record);
                DestroyMaster(master);
                ZEM_ASSERT(false, "No memory left !");
                if (instanceQuery) instanceQuery->SetState(Query::eCancelled);
                if (query) *query = instanceQuery;
                return link;
            }
            // The master never stands in the tree and is never dispatched.
            master->SetFlags(Link::eMaster);
            master->ClearFlags(Link::eInstance);
            record->pMaster = master;
            record->spQuery = QueryPtr(Query::Create());
            m_dFiles.Insert(hash, record);
            startLoad = true;
        }
        else if (!record->spQuery || record->spQuery->GetState() == Query::eDone)
        {
            record->spQuery.Reset();
            copyNow = true;
        }
        else if (record->spQuery->GetState() == Query::eCancelled)
        {
            // An earlier load failed: this request tries the file again.
            record->spQuery = QueryPtr(Query::Create());
            startLoad = true;
        }
        if (!copyNow) m_aPending.Add(Pending{link, hash, instanceQuery});
        master = record->pMaster;
        loadQuery = record->spQuery;
        m_kMutex.Unlock();

        if (query) *query = instanceQuery;
        if (startLoad) bucket->AddLinkLoading(master, name, loadQuery);
        if (copyNow)
        {
            LinkCommand command;
            command.uiKind = LinkCommand::eCopy;
            command.pTarget = link;
            command.pSource = master;
            command.pQuery = instanceQuery.Get();
            octree->AddCommand(command);
        }
        return link;
    }

    bool LinkLibrary::Add(const char* name, Link* master)
    {
        if (!ZEM_ASSERT(name != nullptr && master != nullptr, "Pointer must be non null")) return false;
        const unsigned int hash = GenerateUIntIdFromString(name);
        m_kMutex.Lock();
        const bool taken = m_dFiles.Contains(hash);
        Record* record = taken ? nullptr : MEM_NEW(Record);
        if (record)
        {
            master->SetFlags(Link::eMaster);
            master->ClearFlags(Link::eInstance);
            record->pMaster = master;
            m_dFiles.Insert(hash, record);
        }
        m_kMutex.Unlock();
        ZEM_ASSERT(!taken, "Link file %s already in the library", name);
        return record != nullptr;
    }

    bool LinkLibrary::Remove(const char* name)
    {
        if (!ZEM_ASSERT(name != nullptr, "Pointer must be non null")) return false;
        const unsigned int hash = GenerateUIntIdFromString(name);
        m_kMutex.Lock();
        const unsigned int index = m_dFiles.FindIndex(hash);
        Record* record = index == decltype(m_dFiles)::npos ? nullptr : m_dFiles.GetValueAt(index);
        const bool loading = record && IsLoading(record->spQuery);
        if (record && !loading)
        {
            m_dFiles.RemoveAt(index);
            CancelPendingOf(hash);
        }
        m_kMutex.Unlock();
        if (!record) return false;
        if (!ZEM_ASSERT(!loading, "Link file %s is still loading : can't remove it", name)) return false;
        DestroyMaster(record->pMaster);
        MEM_DELETE(record);
        return true;
    }

    void LinkLibrary::CancelPendingOf(unsigned int hash)
    {
        for (unsigned int i = m_aPending.GetSize(); i-- > 0;)
        {
            if (m_aPending[i].uiHash != hash) continue;
            if (m_aPending[i].spQuery) m_aPending[i].spQuery->SetState(Query::eCancelled);
            m_aPending.Remove(i);
        }
    }

    void LinkLibrary::ForgetInstance(Link* instance)
    {
        m_kMutex.Lock();
        for (unsigned int i = m_aPending.GetSize(); i-- > 0;)
        {
            if (m_aPending[i].pInstance != instance) continue;
            if (m_aPending[i].spQuery) m_aPending[i].spQuery->SetState(Query::eCancelled);
            m_aPending.Remove(i);
        }
        m_kMutex.Unlock();
    }

    void LinkLibrary::Update(LOctreeRoot* octree)
    {
        struct Ready
        {
            Link* pInstance;
            Link* pMaster;
            Query* pQuery;
        };
        TArray<Ready> ready;
        m_kMutex.Lock();
        unsigned int kept = 0;
        for (unsigned int i = 0; i < m_aPending.GetSize(); ++i)
        {
            Pending& pending = m_aPending[i];
            Record* record = m_dFiles.Find(pending.uiHash);
            const Query::State state = !record              ? Query::eCancelled
                                       : record->spQuery    ? record->spQuery->GetState()
                                                            : Query::eDone;
            if (state == Query::eDone)
            {
                Query* query = pending.spQuery.Get();
                if (query) query->AddRef();
                ready.Add(Ready{pending.pInstance, record->pMaster, query});
            }
            else if (state == Query::eCancelled)
            {
                if (pending.spQuery) pending.spQuery->SetState(Query::eCancelled);
            }
            else
            {
                if (kept != i) m_aPending[kept] = static_cast<Pending&&>(pending);
                ++kept;
            }
        }
        m_aPending.Resize(kept);
        // Finished loads: their masters are plain sources from now on.
        for (auto& entry : m_dFiles)
            if (entry.value->spQuery && entry.value->spQuery->GetState() == Query::eDone) entry.value->spQuery.Reset();
        m_kMutex.Unlock();

        // Outside the lock: dispatching the user data may come back here.
        for (const Ready& r : ready)
        {
            LinkCommand command;
            command.uiKind = LinkCommand::eCopy;
            command.pTarget = r.pInstance;
            command.pSource = r.pMaster;
            command.pQuery = r.pQuery;
            octree->ExecuteCommand(command);
        }
    }

    Link* LinkLibrary::FindMaster(const char* name) const
    {
        if (!name) return nullptr;
        m_kMutex.Lock();
        Record* record = m_dFiles.Find(GenerateUIntIdFromString(name));
        Link* master = record ? record->pMaster : nullptr;
        m_kMutex.Unlock();
        return master;
    }

    unsigned int LinkLibrary::GetFileCount() const
    {
        m_kMutex.Lock();
        const unsigned int count = m_dFiles.GetSize();
        m_kMutex.Unlock();
        return count;
    }

    unsigned int LinkLibrary::GetPendingCount() const
    {
        m_kMutex.Lock();
        const unsigned int count = m_aPending.GetSize();
        m_kMutex.Unlock();
        return count;
    }
}
