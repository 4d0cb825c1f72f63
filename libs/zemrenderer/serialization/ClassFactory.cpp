#include "zemrenderer/serialization/ClassFactory.h"

#include "common/system/debug/Log.h"

namespace ZemRenderer
{
    namespace
    {
        ClassFactory* s_pFactory = nullptr;
    }

    ClassFactory* ClassFactory::GetInstance()
    {
        static ClassFactory s_kDefault;
        if (!s_pFactory) s_pFactory = &s_kDefault;
        return s_pFactory;
    }

    void ClassFactory::SetInstance(ClassFactory* factory) { s_pFactory = factory; }

    bool ClassFactory::Register(unsigned int classId, CreateFunction function)
    {
        if (!function) return false;
        m_kLock.Lock();
        const CreateFunction known = m_dFunctions.Find(classId);
        if (!known) m_dFunctions.Insert(classId, function);
        m_kLock.Unlock();
        return ZEM_ASSERT(!known || known == function, "class id 0x%08X is registered twice", classId);
    }

    bool ClassFactory::Unregister(unsigned int classId)
    {
        m_kLock.Lock();
        const bool removed = m_dFunctions.Remove(classId);
        m_kLock.Unlock();
        return removed;
    }

    bool ClassFactory::IsRegistered(unsigned int classId) const
    {
        m_kLock.Lock();
        const bool known = m_dFunctions.Contains(classId);
        m_kLock.Unlock();
        return known;
    }

    BaseObject* ClassFactory::Create(unsigned int classId) const
    {
        m_kLock.Lock();
        const CreateFunction pFunc = m_dFunctions.Find(classId);
        m_kLock.Unlock();
        if (!ZEM_ASSERT(pFunc != 0, "no class is registered for id 0x%08X", classId)) return nullptr;
        return pFunc();
    }
}
