#pragma once
// Remote clients hold 32-bit instance ids, never pointers. The resolver keeps, per
// remote class, the tables between ids and objects and the class's singleton. It is
// reached from connection threads and the main thread at once, so every table access
// happens under its lock.
#include <atomic>
#include <typeinfo>

#include "common/utils/Hash.h"
#include "common/utils/Lockable.h"
#include "common/utils/TMap.h"

namespace ZemEngine
{
    class CPointerResolver : public Common::CLockable
    {
    public:
        typedef ZemRenderer::TMap<unsigned int, void*> IDToPtrTable;
        typedef ZemRenderer::TMap<void*, unsigned int> PtrToIDTable;

        static constexpr unsigned int kInvalidID = 0xFFFFFFFFu;

        CPointerResolver() = default;
        ~CPointerResolver() override;

        // The process's resolver. A plugin sets the host's one before anything registers.
        static void SetInstance(CPointerResolver* resolver);
        static CPointerResolver* GetInstance();
        // The same without the report, for paths that run during teardown.
        static CPointerResolver* PeekInstance() { return s_pInstance.load(std::memory_order_acquire); }
        // Forgets `resolver` as the process's resolver if it is the one set.
        static void ClearInstance(CPointerResolver* resolver);

        // The type id of a remote class: any stable text per class will do, it never
        // leaves the process.
        template <class T>
        static unsigned int TypeID()
        {
            static const unsigned int s_uID = GenerateUIntIdFromString(typeid(T).name());
            return s_uID;
        }

        // Enters `object` under the next id of the type and returns that id.
        unsigned int AddInstance(unsigned int typeID, void* object);
        // Takes `object` out of both tables of the type; false if it was not there.
        bool RemoveInstance(unsigned int typeID, void* object);
        // The object of `id`, or null.
        void* FindInstance(unsigned int typeID, unsigned int id) const;
        // The id of `object`, or kInvalidID.
        unsigned int FindInstanceID(unsigned int typeID, void* object) const;
        // The id the next object of the type will get.
        unsigned int GetNextID(unsigned int typeID);
        // Number of live objects of the type.
        unsigned int GetInstanceCount(unsigned int typeID) const;

        void SetSingleton(unsigned int typeID, void* object);
        // Forgets the singleton of the type if it is still `object`.
        void ClearSingleton(unsigned int typeID, void* object);
        void* GetSingleton(unsigned int typeID) const;

        template <class T>
        unsigned int GetNextID()
        {
            return GetNextID(TypeID<T>());
        }
        template <class T>
        void SetSingleton(T* object)
        {
            SetSingleton(TypeID<T>(), object);
        }
        template <class T>
        T* GetSingleton() const
        {
            return static_cast<T*>(GetSingleton(TypeID<T>()));
        }

    private:
        // Callers hold the lock.
        IDToPtrTable* IDToPtrMap(unsigned int typeID, bool create);
        PtrToIDTable* PtrToIDMap(unsigned int typeID, bool create);
        unsigned int* NextIDSlot(unsigned int typeID);

        ZemRenderer::TMap<unsigned int, IDToPtrTable*> m_kIDToPtr;
        ZemRenderer::TMap<unsigned int, PtrToIDTable*> m_kPtrToID;
        ZemRenderer::TMap<unsigned int, unsigned int> m_kNextID;
        ZemRenderer::TMap<unsigned int, void*> m_kSingletons;

        static std::atomic<CPointerResolver*> s_pInstance;
    };
}
