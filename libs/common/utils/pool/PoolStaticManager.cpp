#include "common/utils/pool/PoolStaticManager.h"

#include "common/utils/pool/StaticPool.h"

namespace ZemRenderer
{
    PoolStaticManager* PoolStaticManager::GetInstance()
    {
        // Never destroyed: pools may be released by other statics' destructors.
        static PoolStaticManager* s_pInstance = MEM_NEW(PoolStaticManager);
        return s_pInstance;
    }

    PoolStaticManager::~PoolStaticManager() { ClearAll(); }

    void PoolStaticManager::Register(ClearPoolBase* entry)
    {
        if (!entry) return;
        m_kMutex.Lock();
        m_aPools.Add(entry);
        m_kMutex.Unlock();
    }

    void PoolStaticManager::ClearAll()
    {
        // Taken out under the lock, cleared outside it, so a pool's Clear can't deadlock
        // with a registration.
        TArray<ClearPoolBase*> pools;
        m_kMutex.Lock();
        pools = std::move(m_aPools);
        m_kMutex.Unlock();
        for (ClearPoolBase* entry : pools)
        {
            entry->Clear();
            MEM_DELETE(entry);
        }
    }

    unsigned int PoolStaticManager::GetCount() const
    {
        m_kMutex.Lock();
        const unsigned int n = m_aPools.GetSize();
        m_kMutex.Unlock();
        return n;
    }

    Common::CMutex& StaticPoolCreationMutex()
    {
        static Common::CMutex s_kMutex;
        return s_kMutex;
    }
}
