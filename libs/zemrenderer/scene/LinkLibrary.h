#pragma once
// Shares the data of one link file between all links of a scene that show it: the file
// is read once into a master copy, which never stands in the tree, and every link asked
// for by that name is an instance that takes the master's data by a copy command.
#include <cstdint>

#include "common/system/mutex/Mutex.h"
#include "common/utils/TArray.h"
#include "common/utils/TMap.h"
#include "zemrenderer/thread/Query.h"

namespace ZemRenderer
{
    class Bucket;
    class Link;
    class LOctreeRoot;

    class LinkLibrary
    {
    public:
        LinkLibrary() = default;
        // Destroys the masters; instances still waiting for one get their query cancelled.
        ~LinkLibrary();
        LinkLibrary(const LinkLibrary&) = delete;
        LinkLibrary& operator=(const LinkLibrary&) = delete;

        // An instance of the file `name`. With no `link` given, one named "Unnamed" is made
        // in `bucket`. The caller's query, if given, is replaced by the instance's, which is
        // done once the instance holds the master's data. Null on bad arguments.
        Link* RetrieveLink(Bucket* bucket, LOctreeRoot* octree, const char* name, QueryPtr* query = nullptr,
                           Link* link = nullptr, uint32_t flags = 0);
        // Makes `master` (already filled) the master copy for `name`. False if the name is
        // taken. The library owns the master from then on.
        bool Add(const char* name, Link* master);
        // Forgets the file and destroys its master; its waiting instances are cancelled.
        // Instances that took its data must be gone first: they share its user data.
        bool Remove(const char* name);

        // Main thread, from ExecuteCommands: finished loads give their waiting instances the
        // master's data; failed ones cancel them.
        void Update(LOctreeRoot* octree);

        // The link no longer waits for a master: its query is cancelled.
        void ForgetInstance(Link* instance);

        Link* FindMaster(const char* name) const;
        unsigned int GetFileCount() const;
        unsigned int GetPendingCount() const;

    private:
        struct Record
        {
            Link* pMaster = nullptr;
            // The master's load while it runs; null once it finished well.
            QueryPtr spQuery;
        };
        struct Pending
        {
            Link* pInstance = nullptr;
            unsigned int uiHash = 0;
            QueryPtr spQuery;
        };

        void CancelPendingOf(unsigned int hash);
        static void DestroyMaster(Link* master);

        mutable Common::CMutex m_kMutex;
        TMap<unsigned int, Record*> m_dFiles;
        TArray<Pending> m_aPending;
    };
}
