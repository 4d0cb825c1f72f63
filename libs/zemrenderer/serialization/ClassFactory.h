#pragma once
// Makes polymorphic objects of engine files from their class ids.
#include "common/system/mutex/Mutex.h"
#include "common/utils/TMap.h"
#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class ClassFactory
    {
    public:
        typedef BaseObject* (*CreateFunction)();

        static ClassFactory* GetInstance();
        // A plugin adopts the host's factory.
        static void SetInstance(ClassFactory* factory);

        // False, with a report, when the id already names another function.
        bool Register(unsigned int classId, CreateFunction function);
        template <class T>
        bool Register()
        {
            return Register(T::GetStaticClassId(), &CreateObject<T>);
        }
        bool Unregister(unsigned int classId);
        bool IsRegistered(unsigned int classId) const;

        // A new object (made with MEM_NEW), or null with a report for an unknown id.
        BaseObject* Create(unsigned int classId) const;

        template <class T>
        static BaseObject* CreateObject()
        {
            return MEM_NEW(T);
        }

        ClassFactory() = default;
        ClassFactory(const ClassFactory&) = delete;
        ClassFactory& operator=(const ClassFactory&) = delete;

    private:
        mutable Common::CMutex m_kLock;
        TMap<unsigned int, CreateFunction> m_dFunctions;
    };
}
