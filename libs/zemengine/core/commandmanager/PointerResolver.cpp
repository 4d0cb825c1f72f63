#include "zemengine/core/commandmanager/PointerResolver.h"

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

namespace ZemEngine
{
    std::atomic<CPointerResolver*> CPointerResolver::s_pInstance{nullptr};

    CPointerResolver::~CPointerResolver()
    {
        ClearInstance(this);
        for (auto& pair : m_kIDToPtr) MEM_DELETE(pair.value);
        for (auto& pair : m_kPtrToID) MEM_DELETE(pair.value);
    }

    void CPointerResolver::SetInstance(CPointerResolver* resolver)
    {
        CPointerResolver* expected = nullptr;
        if (!s_pInstance.compare_exchange_strong(expected, resolver, std::memory_order_acq_rel) && expected != resolver)
            Common::Log("CPointerResolver::SetInstance : Instance has already been set\n");
    }

    CPointerResolver* CPointerResolver::GetInstance()
    {
        CPointerResolver* resolver = s_pInstance.load(std::memory_order_acquire);
        ZEM_ASSERT(resolver != nullptr, "Instance ptr should be set (plugin?)");
        return resolver;
    }

    void CPointerResolver::ClearInstance(CPointerResolver* resolver)
    {
        CPointerResolver* expected = resolver;
        s_pInstance.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel);
    }

    CPointerResolver::IDToPtrTable* CPointerResolver::IDToPtrMap(unsigned int typeID, bool create)
    {
        IDToPtrTable* table = m_kIDToPtr.Find(typeID);
        if (!table && create)
        {
            table = MEM_NEW(IDToPtrTable);
            if (table) m_kIDToPtr.Insert(typeID, table);
        }
        return table;
    }

    CPointerResolver::PtrToIDTable* CPointerResolver::PtrToIDMap(unsigned int typeID, bool create)
    {
        PtrToIDTable* table = m_kPtrToID.Find(typeID);
        if (!table && create)
        {
            table = MEM_NEW(PtrToIDTable);
            if (table) m_kPtrToID.Insert(typeID, table);
        }
        return table;
    }

    unsigned int* CPointerResolver::NextIDSlot(unsigned int typeID)
    {
        unsigned int* slot = m_kNextID.FindPtr(typeID);
        if (!slot)
        {
            m_kNextID.Insert(typeID, 0u);
            slot = m_kNextID.FindPtr(typeID);
        }
        ZEM_ASSERT(slot != nullptr, "coudln't find ID in Map CPointerResolver");
        return slot;
    }

    unsigned int CPointerResolver::AddInstance(unsigned int typeID, void* object)
    {
        Common::MT::CScopeLock lock(this);
        unsigned int* next = NextIDSlot(typeID);
        IDToPtrTable* ids = IDToPtrMap(typeID, true);
        PtrToIDTable* ptrs = PtrToIDMap(typeID, true);
        if (!next || !ids || !ptrs) return kInvalidID;
        // Ids are never reused: a stale id from a client can only miss, never hit
        // another object.
        const unsigned int id = (*next)++;
        ids->Insert(id, object);
        ptrs->Insert(object, id);
        return id;
    }

    bool CPointerResolver::RemoveInstance(unsigned int typeID, void* object)
    {
        Common::MT::CScopeLock lock(this);
        PtrToIDTable* ptrs = PtrToIDMap(typeID, false);
        if (!ptrs) return false;
        const unsigned int index = ptrs->FindIndex(object);
        if (index == PtrToIDTable::npos) return false;
        const unsigned int id = ptrs->GetValueAt(index);
        ptrs->RemoveAt(index);
        if (IDToPtrTable* ids = IDToPtrMap(typeID, false)) ids->Remove(id);
        return true;
    }

    void* CPointerResolver::FindInstance(unsigned int typeID, unsigned int id) const
    {
        Common::MT::CScopeLock lock(this);
        const IDToPtrTable* ids = m_kIDToPtr.Find(typeID);
        return ids ? ids->Find(id) : nullptr;
    }

    unsigned int CPointerResolver::FindInstanceID(unsigned int typeID, void* object) const
    {
        Common::MT::CScopeLock lock(this);
        const PtrToIDTable* ptrs = m_kPtrToID.Find(typeID);
        if (!ptrs) return kInvalidID;
        const unsigned int index = ptrs->FindIndex(object);
        return index == PtrToIDTable::npos ? kInvalidID : ptrs->GetValueAt(index);
    }

    unsigned int CPointerResolver::GetNextID(unsigned int typeID)
    {
        Common::MT::CScopeLock lock(this);
        unsigned int* next = NextIDSlot(typeID);
        return next ? *next : kInvalidID;
    }

    unsigned int CPointerResolver::GetInstanceCount(unsigned int typeID) const
    {
        Common::MT::CScopeLock lock(this);
        const IDToPtrTable* ids = m_kIDToPtr.Find(typeID);
        return ids ? ids->GetSize() : 0;
    }

    void CPointerResolver::SetSingleton(unsigned int typeID, void* object)
    {
        Common::MT::CScopeLock lock(this);
        m_kSingletons.Insert(typeID, object);
    }

    void CPointerResolver::ClearSingleton(unsigned int typeID, void* object)
    {
        Common::MT::CScopeLock lock(this);
        const unsigned int index = m_kSingletons.FindIndex(typeID);
        if (index != decltype(m_kSingletons)::npos && m_kSingletons.GetValueAt(index) == object)
            m_kSingletons.RemoveAt(index);
    }

    void* CPointerResolver::GetSingleton(unsigned int typeID) const
    {
        Common::MT::CScopeLock lock(this);
        return m_kSingletons.Find(typeID);
    }
}
