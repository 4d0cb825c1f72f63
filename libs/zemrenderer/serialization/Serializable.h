#pragma once
// What engine files are made of. A class is serializable by one routine,
// `void Serialize(Serializer&)`, that serves reading, writing and walking alike.
// Classes that derive from BaseObject are polymorphic in a file: their class id is
// written beside every pointer to them, and the factory makes them on reading.
#include <type_traits>

#include "common/system/memorymanager/MemoryManager.h"
#include "common/utils/Hash.h"

namespace ZemRenderer
{
    class Serializable
    {
    };

    class BaseObject : public Serializable
    {
    public:
        virtual ~BaseObject() = default;
        virtual unsigned int GetClassId() const = 0;
    };

    template <class T>
    inline constexpr bool IsPolymorphicSerializable = std::is_base_of_v<BaseObject, std::remove_cv_t<T>>;

    // Releases an object made by MEM_NEW through a pointer to any of its bases.
    inline void DeleteBaseObject(BaseObject* object)
    {
        if (!object) return;
        void* block = dynamic_cast<void*>(object);
        object->~BaseObject();
        MEM_FREE(block);
    }
}

// The class's id: the hash of its full name, computed once. It is both the factory id
// and, for a class that is the root of an engine file, the file's object type.
#define ZEM_SERIALIZABLE_CLASS(FullName)                                           \
    static const char* GetStaticClassName() { return FullName; }                  \
    static unsigned int GetStaticClassId()                                         \
    {                                                                              \
        static const unsigned int s_uiClassId = ::GenerateUIntIdFromString(FullName); \
        return s_uiClassId;                                                        \
    }
