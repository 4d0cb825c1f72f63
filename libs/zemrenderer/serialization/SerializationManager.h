#pragma once
// Reads and writes object graphs. A pointer is written as a 64-bit key (the writer's
// address) and its object follows only after the whole object that holds it, so a
// file is the graph breadth first, one generation after another, and an object that
// several pointers share is written once and stays shared on reading.
//
// A read that fails (short file, unknown class, inconsistent keys) frees everything it
// made and leaves every pointer it had set null: nothing half-built stays reachable.
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

#include "common/utils/TArray.h"
#include "common/utils/pool/PoolMemory.h"
#include "zemrenderer/io/IOSTreamBase.h"
#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class Bucket;
    class Serializer;

    // Identity of a pointee type, to tell two uses of one key apart.
    template <class U>
    const void* SerializationTypeTag()
    {
        static const char s_cTag = 0;
        return &s_cTag;
    }

    class SerializationManager
    {
    public:
        // One pending pointer.
        class Node
        {
        public:
            virtual ~Node() = default;
            virtual void Serialize(SerializationManager& manager, Serializer& serializer, unsigned long long key,
                                   Node* existing) = 0;

            unsigned int m_uiCount = 0;
            bool m_bArray = false;
            bool m_bText = false;
            // The pointer field (a T**), and the value it ended with.
            void* m_pField = nullptr;
            void* m_pValue = nullptr;
            // The value as a BaseObject for polymorphic types, for checks on sharing.
            BaseObject* m_pObject = nullptr;
            const void* m_pType = nullptr;
        };
        template <class T>
        class NodeT;

        struct stNodeKey
        {
            unsigned long long uiKey;
            Node* pNode;
        };

        SerializationManager();
        ~SerializationManager();
        SerializationManager(const SerializationManager&) = delete;
        SerializationManager& operator=(const SerializationManager&) = delete;

        // Runs the root's routine on the stream and flushes its pointers. The direction is
        // the stream's. False on failure, or after an earlier failure of this manager.
        template <class T>
        bool Serialize(T& root, IOSTreamBase* stream, Bucket* owner, bool swap);

        // An engine file: the ZEF header of `fileType`, then the object. Reading closes
        // the stream and frees its cache; writing leaves the stream open.
        template <class T>
        static bool ReadFile(IOSTreamBase& stream, T& object, Bucket* owner = nullptr,
                             unsigned int fileType = T::GetStaticClassId());
        template <class T>
        static bool WriteFile(IOSTreamBase& stream, T& object, bool swap = false,
                              unsigned int fileType = T::GetStaticClassId());
        // Visits every routine of a live graph without moving data.
        template <class T>
        static bool Walk(T& object, unsigned int fileType = T::GetStaticClassId());

        // Reads an engine file into `object` with this manager (see ReadFile); with
        // SetKeepObjects the caller can free what it made through ReleaseObjects.
        template <class T>
        bool ReadObject(IOSTreamBase& stream, T& object, Bucket* owner = nullptr,
                        unsigned int fileType = T::GetStaticClassId());

        // When set, successful reads remember every object they made, until ReleaseObjects.
        void SetKeepObjects(bool keep) { m_bKeepObjects = keep; }
        // Unhooks every pointer the kept reads set, then frees every object they made.
        void ReleaseObjects();

        // With raw set, values move even on a stream that skips data.
        void SetRaw(bool raw) { m_bRaw = raw; }
        bool IsRaw() const { return m_bRaw; }
        bool IsSkipping() const { return m_bSkipsData && !m_bRaw; }
        bool IsReading() const { return m_bReading; }
        // Reading real values into objects (not walking).
        bool IsLoading() const { return m_bReading && !IsSkipping(); }
        bool IsSwapping() const { return m_bSwap; }
        bool HasFailed() const { return m_bFailed; }
        Bucket* GetOwner() const { return m_pOwner; }
        IOSTreamBase* GetStream() const { return m_pStream; }

        // Reports the first failure of a pass; everything after it is passed over.
        void Fail(const char* format, ...) __attribute__((format(printf, 2, 3)));

        // A value of 1, 2, 4 or 8 bytes; skipped on a stream that skips data.
        void MoveValue(void* value, size_t size);
        // A plain block of bytes; in a swapped file each 4-byte word of a block whose size
        // is a multiple of 4 is swapped.
        void MoveBlock(void* value, size_t size);
        // Counts, keys and class ids: read even while skipping, but then left unchanged.
        void MoveRaw(void* value, size_t size);
        // An opaque run of bytes of any length, in one stream call: bytes have no order
        // to swap. Skipped on a stream that skips data.
        void MoveBytes(void* data, size_t size);
        // Bytes left to read, or all ones when the stream cannot tell.
        uint64_t GetRemainingBytes() const;

        template <class T>
        Node* NewNode(T** field, bool array, unsigned int count, bool text);
        void AddPending(unsigned long long key, Node* node);
        void Flush(Serializer& serializer);

        void TrackField(void** field);
        void TrackAllocation(void* object, void (*destroy)(void*));
        void DeferPostLoad(void* object, void (*postLoad)(void*, SerializationManager&));

        // Arrays made by reading carry their count, so that anyone can free them.
        template <class T>
        static T* AllocateArray(size_t count);
        template <class T>
        static void FreeArray(T* array);

        // Nodes that stay in the key table (first sights), for tests and statistics.
        size_t GetKnownKeyCount() const { return m_aMain.GetSize() + m_aRecent.GetSize(); }

    private:
        struct stAllocation
        {
            void* pObject;
            void (*pfnDestroy)(void*);
        };
        struct stPostLoad
        {
            void* pObject;
            void (*pfnPostLoad)(void*, SerializationManager&);
        };

        bool Begin(IOSTreamBase* stream, Bucket* owner, bool swap);
        bool End();
        void ReleaseNode(Node* node);
        void Unhook(unsigned int firstField, unsigned int firstAllocation);
        void ReleaseAllNodes();

        // The key table: a large sorted array and a small sorted one that takes new keys
        // and is merged into the large one once it grows past about the square root of
        // its size. Both are searched by bisection, and a key inserted in rising order
        // (the usual case: addresses in allocation order) goes straight to the end.
        Node* FindKey(unsigned long long key) const;
        void InsertKey(unsigned long long key, Node* node);

        Common::PoolMemory<Common::Pool::CPoolGrowthConstantN<256>> m_kNodePool;
        Bucket* m_pOwner = nullptr;
        IOSTreamBase* m_pStream = nullptr;
        TArray<stNodeKey> m_pending;
        TArray<stNodeKey> m_batch;
        TArray<stNodeKey> m_aMain;
        TArray<stNodeKey> m_aRecent;
        TArray<stNodeKey> m_aMerge;
        unsigned int m_uiRecentLimit = 64;
        bool m_bSwap = false;
        bool m_bRaw = false;
        bool m_bReading = false;
        bool m_bSkipsData = false;
        bool m_bFailed = false;
        // A failed read leaves freed objects behind its keys: the manager takes no more work.
        bool m_bBroken = false;
        bool m_bKeepObjects = false;
        unsigned int m_uiPassFirstField = 0;
        unsigned int m_uiPassFirstAllocation = 0;
        TArray<void**> m_aFields;
        TArray<stAllocation> m_aAllocations;
        TArray<stPostLoad> m_aPostLoads;
    };

    template <class T>
    T* SerializationManager::AllocateArray(size_t count)
    {
        typedef std::remove_cv_t<T> U;
        static_assert(alignof(U) <= 16, "over-aligned arrays are not read from files");
        constexpr size_t kHeader = 16;
        if (count == 0 || count > (SIZE_MAX - kHeader) / sizeof(U)) return nullptr;
        unsigned char* raw = static_cast<unsigned char*>(Common::Mem::CMemoryManager::GetInstance()->AllocAligned(
            kHeader + count * sizeof(U), 16, __FILE__, __LINE__));
        if (!raw) return nullptr;
        *reinterpret_cast<uint64_t*>(raw) = count;
        U* array = reinterpret_cast<U*>(raw + kHeader);
        for (size_t i = 0; i < count; ++i) new (array + i) U();
        return array;
    }

    template <class T>
    void SerializationManager::FreeArray(T* array)
    {
        typedef std::remove_cv_t<T> U;
        if (!array) return;
        U* a = const_cast<U*>(array);
        unsigned char* raw = reinterpret_cast<unsigned char*>(a) - 16;
        const uint64_t count = *reinterpret_cast<uint64_t*>(raw);
        if constexpr (!std::is_trivially_destructible_v<U>)
            for (uint64_t i = 0; i < count; ++i) a[i].~U();
        MEM_FREE(raw);
    }
}
