#pragma once
// The front that class routines see. Every routine is written once and serves
// reading, writing and walking:
//
//   void Mesh::Serialize(Serializer& s)
//   {
//       s.Serialize(m_uiFlags);                        // scalars of 1, 2, 4, 8 bytes
//       s.Serialize(m_kBounds);                        // plain blocks of 7, 16, 36, 52 bytes
//       s.SerializePointer(m_pMaterial);               // the object follows later in the file
//       s.SerializeArray(m_pVertices, m_uiVertexCount); // counted arrays
//       s.SerializeText(m_szName);                     // NUL-terminated text
//   }
//
// A class may add `void PostLoad(SerializationManager&)`: it runs after a successful
// read of the whole graph, in the order the objects were met.
#include <cstring>
#include <type_traits>

#include "common/utils/SortedFlatMap.h"
#include "zemrenderer/serialization/ClassFactory.h"
#include "zemrenderer/serialization/SerializationManager.h"
#include "zemrenderer/serialization/ZefHeader.h"
#include "zemrenderer/io/IOSTreamNull.h"

namespace ZemRenderer
{
    namespace SerializationDetail
    {
        template <class T>
        inline constexpr bool kDependentFalse = false;

        template <class T>
        struct IsMapPair : std::false_type
        {
        };
        template <class K, class V>
        struct IsMapPair<Common::TMapPair<K, V>> : std::true_type
        {
        };

        template <class T>
        inline constexpr bool kIsBlock = std::is_trivially_copyable_v<T> && std::is_class_v<T> &&
                                         (sizeof(T) == 7 || sizeof(T) == 16 || sizeof(T) == 36 || sizeof(T) == 52);

        template <class U>
        concept HasPostLoad = requires(U& u, SerializationManager& m) { u.PostLoad(m); };

        template <class U>
        void DestroyArray(void* p)
        {
            SerializationManager::FreeArray(static_cast<U*>(p));
        }
        template <class U>
        void DestroyObject(void* p)
        {
            MEM_DELETE(static_cast<U*>(p));
        }
        inline void DestroyBaseObject(void* p) { DeleteBaseObject(static_cast<BaseObject*>(p)); }
        template <class U>
        void RunPostLoad(void* p, SerializationManager& m)
        {
            static_cast<U*>(p)->PostLoad(m);
        }
    }

    class Serializer
    {
    public:
        explicit Serializer(SerializationManager& manager) : m_rManager(manager) {}
        ~Serializer() { Flush(); }
        Serializer(const Serializer&) = delete;
        Serializer& operator=(const Serializer&) = delete;

        template <class T>
        void Serialize(T& value)
        {
            using namespace SerializationDetail;
            static_assert(!std::is_pointer_v<T>, "pointers go through SerializePointer or SerializeArray");
            if constexpr (std::is_same_v<T, bool>)
            {
                // Any byte other than 0 reads as true; a bool never holds another value.
                unsigned char byte = value ? 1 : 0;
                m_rManager.MoveValue(&byte, 1);
                if (m_rManager.IsLoading() && !m_rManager.HasFailed()) value = byte != 0;
            }
            else if constexpr (std::is_arithmetic_v<T> || std::is_enum_v<T>)
            {
                static_assert(sizeof(T) == 1 || sizeof(T) == 2 || sizeof(T) == 4 || sizeof(T) == 8,
                              "scalars are 1, 2, 4 or 8 bytes");
                m_rManager.MoveValue(&value, sizeof(T));
            }
            else if constexpr (requires(T& v, Serializer& s) { v.Serialize(s); })
                value.Serialize(*this);
            else if constexpr (IsMapPair<T>::value)
            {
                Serialize(value.key);
                SerializeElement(value.value);
            }
            else if constexpr (kIsBlock<T>)
                m_rManager.MoveBlock(&value, sizeof(T));
            else
                static_assert(kDependentFalse<T>, "no way to serialize this type");
        }

        // A value or, for an element that is itself a pointer, one pointer.
        template <class T>
        void SerializeElement(T& value)
        {
            if constexpr (std::is_pointer_v<T>)
                SerializePointer(value);
            else
                Serialize(value);
        }

        template <class T>
        void SerializePointer(T*& pointer)
        {
            Reference(pointer, false, 1, false);
        }

        template <class T>
        void SerializeArray(T*& pointer, unsigned int& count)
        {
            if (m_rManager.HasFailed()) return;
            unsigned int c = count;
            m_rManager.MoveRaw(&c, sizeof(c));
            if (m_rManager.HasFailed()) return;
            if (m_rManager.IsLoading()) count = c;
            Reference(pointer, true, count, false);
        }

        // Text with its terminator, stored as a counted array; a text read from a file
        // must end in its terminator.
        template <class T>
        void SerializeText(T*& text)
        {
            static_assert(std::is_same_v<std::remove_cv_t<T>, char>, "text is char");
            if (m_rManager.HasFailed()) return;
            unsigned int count = text ? static_cast<unsigned int>(std::strlen(text) + 1) : 0;
            m_rManager.MoveRaw(&count, sizeof(count));
            if (m_rManager.HasFailed()) return;
            Reference(text, true, count, true);
        }

        void Flush() { m_rManager.Flush(*this); }
        bool IsReading() const { return m_rManager.IsReading(); }
        bool IsLoading() const { return m_rManager.IsLoading(); }
        bool IsSkipping() const { return m_rManager.IsSkipping(); }
        SerializationManager& GetManager() { return m_rManager; }

    private:
        template <class T>
        void Reference(T*& pointer, bool array, unsigned int count, bool text)
        {
            if (m_rManager.HasFailed()) return;
            unsigned long long key = static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pointer));
            m_rManager.MoveRaw(&key, sizeof(key));
            if (m_rManager.HasFailed()) return;
            if (m_rManager.IsLoading())
            {
                // Never left holding a value from before the read.
                pointer = nullptr;
                m_rManager.TrackField(reinterpret_cast<void**>(const_cast<std::remove_cv_t<T>**>(&pointer)));
            }
            m_rManager.AddPending(key, m_rManager.NewNode(&pointer, array, count, text));
        }

        SerializationManager& m_rManager;
    };

    template <class T>
    class SerializationManager::NodeT final : public SerializationManager::Node
    {
        typedef std::remove_cv_t<T> U;
        static constexpr bool kPolymorphic = IsPolymorphicSerializable<T>;

    public:
        NodeT(T** field, bool array, unsigned int count, bool text)
        {
            m_pField = field;
            m_bArray = array;
            m_uiCount = count;
            m_bText = text;
            m_pType = SerializationTypeTag<U>();
        }

        void Serialize(SerializationManager& m, Serializer& s, unsigned long long key, Node* existing) override
        {
            T** field = static_cast<T**>(m_pField);
            const bool loading = m.IsLoading();
            unsigned int classId = 0;
            if constexpr (kPolymorphic)
            {
                if (!loading && key && *field && (!m_bArray || m_uiCount)) classId = (*field)->GetClassId();
                m.MoveRaw(&classId, sizeof(classId));
                if (m.HasFailed()) return;
            }
            if (existing && key && !m.IsSkipping())
            {
                T* shared = nullptr;
                if (!Adopt(m, key, existing, shared)) return;
                if (loading) *field = shared;
            }
            else if (loading)
            {
                if (key == 0)
                    *field = nullptr;
                else if (!Allocate(m, classId, field))
                    return;
            }
            if (key && !existing && *field)
            {
                U* object = const_cast<U*>(*field);
                if (m_bArray)
                {
                    for (unsigned int i = 0; i < m_uiCount && !m.HasFailed(); ++i) s.SerializeElement(object[i]);
                    if constexpr (std::is_same_v<U, char>)
                        if (loading && m_bText && m_uiCount && object[m_uiCount - 1] != '\0')
                            m.Fail("Text without its terminator in Zemora Engine File!");
                }
                else
                {
                    s.SerializeElement(*object);
                    if constexpr (SerializationDetail::HasPostLoad<U>)
                        if (loading) m.DeferPostLoad(object, &SerializationDetail::RunPostLoad<U>);
                }
            }
            m_pValue = const_cast<U*>(*field);
            if constexpr (kPolymorphic) m_pObject = const_cast<U*>(*field);
        }

    private:
        // A second pointer to a known key takes the first one's object, if it is of the
        // same kind and holds as many elements as this pointer needs.
        bool Adopt(SerializationManager& m, unsigned long long key, Node* existing, T*& shared)
        {
            const unsigned int needed = m_bArray ? m_uiCount : 1;
            if constexpr (kPolymorphic)
            {
                if (existing->m_pType != m_pType && (needed > 1 || existing->m_bArray || !existing->m_pObject ||
                                                     !dynamic_cast<U*>(existing->m_pObject)))
                {
                    m.Fail("Pointer key 0x%llX stands for objects of two types in Zemora Engine File!", key);
                    return false;
                }
                shared = existing->m_pObject ? dynamic_cast<U*>(existing->m_pObject) : static_cast<U*>(existing->m_pValue);
            }
            else
            {
                if (existing->m_pType != m_pType)
                {
                    m.Fail("Pointer key 0x%llX stands for objects of two types in Zemora Engine File!", key);
                    return false;
                }
                shared = static_cast<U*>(existing->m_pValue);
            }
            const unsigned int available = existing->m_bArray ? existing->m_uiCount : 1;
            if (needed > available || (needed && !existing->m_pValue))
            {
                m.Fail("Pointer key 0x%llX never gets its object in Zemora Engine File!", key);
                return false;
            }
            return true;
        }

        bool Allocate(SerializationManager& m, unsigned int classId, T** field)
        {
            if (m_bArray)
            {
                if constexpr (std::is_abstract_v<U> || !std::is_default_constructible_v<U>)
                {
                    m.Fail("An array of objects that cannot be made in Zemora Engine File!");
                    return false;
                }
                else
                {
                    if (m_uiCount == 0)
                    {
                        *field = nullptr;
                        return true;
                    }
                    // Every element takes at least one byte of the file.
                    if (m_uiCount > m.GetRemainingBytes())
                    {
                        m.Fail("An array of %u elements runs past the end of the Zemora Engine File!", m_uiCount);
                        return false;
                    }
                    U* array = SerializationManager::AllocateArray<U>(m_uiCount);
                    if (!array)
                    {
                        m.Fail("No memory for an array of %u elements of a Zemora Engine File!", m_uiCount);
                        return false;
                    }
                    m.TrackAllocation(array, &SerializationDetail::DestroyArray<U>);
                    *field = array;
                    return true;
                }
            }
            if constexpr (kPolymorphic)
            {
                if (classId != 0)
                {
                    BaseObject* made = ClassFactory::GetInstance()->Create(classId);
                    if (!made)
                    {
                        m.Fail("Unknown class id 0x%08X in Zemora Engine File!", classId);
                        return false;
                    }
                    U* object = dynamic_cast<U*>(made);
                    if (!object)
                    {
                        DeleteBaseObject(made);
                        m.Fail("Class id 0x%08X does not fit its pointer in Zemora Engine File!", classId);
                        return false;
                    }
                    m.TrackAllocation(made, &SerializationDetail::DestroyBaseObject);
                    *field = object;
                    return true;
                }
            }
            if constexpr (std::is_abstract_v<U> || !std::is_default_constructible_v<U>)
            {
                m.Fail("An object without a class id that cannot be made in Zemora Engine File!");
                return false;
            }
            else
            {
                U* object = MEM_NEW(U);
                if (!object)
                {
                    m.Fail("No memory for an object of a Zemora Engine File!");
                    return false;
                }
                m.TrackAllocation(object, &SerializationDetail::DestroyObject<U>);
                *field = object;
                return true;
            }
        }
    };

    template <class T>
    SerializationManager::Node* SerializationManager::NewNode(T** field, bool array, unsigned int count, bool text)
    {
        static_assert(sizeof(NodeT<T>) == sizeof(Node), "every node fits the pool's blocks");
        void* block = m_kNodePool.Allocate();
        if (!block)
        {
            Fail("No memory for the pointers of a Zemora Engine File!");
            return nullptr;
        }
        return new (block) NodeT<T>(field, array, count, text);
    }

    template <class T>
    bool SerializationManager::Serialize(T& root, IOSTreamBase* stream, Bucket* owner, bool swap)
    {
        if (!Begin(stream, owner, swap)) return false;
        {
            Serializer serializer(*this);
            serializer.Serialize(root);
        }
        return End();
    }

    template <class T>
    bool SerializationManager::ReadObject(IOSTreamBase& stream, T& object, Bucket* owner, unsigned int fileType)
    {
        ZefHeader header(fileType);
        SetRaw(true);
        Serialize(header, &stream, owner, false);
        SetRaw(false);
        bool ok = header.IsValid();
        if (ok) ok = Serialize(object, &stream, owner, header.GetSwap());
        stream.Close();
        stream.FreeCache();
        return ok;
    }

    template <class T>
    bool SerializationManager::ReadFile(IOSTreamBase& stream, T& object, Bucket* owner, unsigned int fileType)
    {
        SerializationManager manager;
        return manager.ReadObject(stream, object, owner, fileType);
    }

    template <class T>
    bool SerializationManager::WriteFile(IOSTreamBase& stream, T& object, bool swap, unsigned int fileType)
    {
        SerializationManager manager;
        ZefHeader header(fileType, swap);
        manager.SetRaw(true);
        const bool headerOk = manager.Serialize(header, &stream, nullptr, false);
        manager.SetRaw(false);
        return headerOk && manager.Serialize(object, &stream, nullptr, swap);
    }

    template <class T>
    bool SerializationManager::Walk(T& object, unsigned int fileType)
    {
        IOSTreamNull stream(true);
        stream.OpenToRead("Dummy");
        SerializationManager manager;
        ZefHeader header(fileType);
        manager.SetRaw(true);
        manager.Serialize(header, &stream, nullptr, false);
        manager.SetRaw(false);
        return manager.Serialize(object, &stream, nullptr, false);
    }
}
