#pragma once
// Every engine allocation goes through one CMemoryManager per process: per-thread
// heaps, a checked header and trailing guard on every block, and memory tags.
// The global operator new is left alone: on Linux it is shared by every library in
// the process, so engine objects are made with MEM_NEW / MEM_DELETE instead.
//
// A plugin library carries its own copy of this code; after SetInstance it works on the
// host's manager. Everything per thread therefore lives in pthread keys owned by the
// manager object, never in the library's own thread_local storage.
#include <pthread.h>
#include <sys/single_threaded.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "common/system/mutex/Mutex.h"

namespace Common
{
    template <class K, class V>
    class CMap;
}

namespace Common::Mem
{
    // Where an allocation was asked for; containers and pools carry one to the manager.
    struct Location
    {
        const char* file = nullptr;
        int line = 0;
        const char* function = nullptr;
    };

    // One heap and one tag list per thread at most.
    constexpr int MAX_HEAPS = 16;
    constexpr unsigned int MAX_TAG_DEPTH = 32;
    constexpr size_t MAX_ALIGNMENT = 268435456;
    constexpr uint32_t MEMORY_GUARD = 0x12345678;
    constexpr char MEMORY_MAGIC[8] = {'C', 'O', 'M', 'M', 'M', 'E', 'M', 'M'};
    // A raw block is the size requested + BLOCK_RAW_EXTRA + the alignment.
    constexpr size_t BLOCK_RAW_EXTRA = 4 + 64;

    enum EMemError
    {
        MEMERR_NONE = 0,
        MEMERR_CANNOT_ALLOC_MAIN = 1,
        MEMERR_NOT_ENOUGH_MEMORY = 2,
        MEMERR_INVALID_POINTER = 3,
    };

    struct HeapInfo;

#pragma pack(push, 1)
    // Stands directly in front of the pointer the caller receives; the 4-byte guard
    // follows the caller's data.
    struct BlockHeader
    {
        uint32_t m_uSize;
        uint32_t m_uTagListId;
        void* m_pPtr;
        void* m_pRaw;
        const char* m_szFile;
        // Bits 0-23 the line, 24-30 the heap index, 31 set if the block is tagged.
        uint32_t m_uPacked;
        BlockHeader* m_pPrev;
        BlockHeader* m_pNext;
        char m_acMagic[8];

        int GetLine() const { return static_cast<int>(m_uPacked & 0xFFFFFFu); }
        int GetHeapIndex() const { return static_cast<int>((m_uPacked >> 24) & 0x7Fu); }
        bool IsTagged() const { return (m_uPacked & 0x80000000u) != 0; }
        static uint32_t Pack(int line, int heap, bool tagged)
        {
            return (static_cast<uint32_t>(line) & 0xFFFFFFu) | ((static_cast<uint32_t>(heap) & 0x7Fu) << 24) |
                   (tagged ? 0x80000000u : 0u);
        }
    };
#pragma pack(pop)
    static_assert(sizeof(BlockHeader) == 60, "the block header layout is fixed");

    // Guards one heap. Its holder never calls out (no log, no managed allocation), so
    // it needs no recursion. While the process has a single thread there is nobody to
    // exclude: no thread can start inside a critical section, so Lock does nothing and
    // Unlock's store finds the state already free.
    class CHeapLock
    {
    public:
        void Lock()
        {
            if (__libc_single_threaded) return;
            int expected = 0;
            if (!m_iState.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed))
                LockSlow();
        }
        bool TryLock()
        {
            int expected = 0;
            return m_iState.compare_exchange_strong(expected, 1, std::memory_order_acquire, std::memory_order_relaxed);
        }
        void Unlock() { m_iState.store(0, std::memory_order_release); }

    private:
        void LockSlow();
        std::atomic<int> m_iState{0};
    };

    class CMemoryManager;
    class CReport;
    struct StackRecord;
    class TagMemory;

    // The allocator behind a heap, used under the heap's lock. Part of HeapInfo so that
    // the allocation path reaches its cache without one more pointer.
    class RawHeap
    {
    public:
        RawHeap() = default;
        ~RawHeap() { Release(); }
        RawHeap(const RawHeap&) = delete;
        RawHeap& operator=(const RawHeap&) = delete;

        void* Alloc(size_t n);
        void* Realloc(void* raw, size_t n);
        void Free(void* raw);
        // Gives every cached block back to the system.
        void Release();
        size_t GetCachedBytes() const { return m_uCachedBytes; }

    private:
        static constexpr size_t kBins = 65;
        void* m_apBins[kBins] = {};
        size_t m_uCachedBytes = 0;
    };

    struct alignas(64) HeapInfo
    {
        int iIndex = 0;
        RawHeap* m_hHeap = nullptr;
        BlockHeader* m_pAllocList = nullptr;
        int m_iAllocCount = 0;
        int64_t m_iBytesUsed = 0;
        int64_t m_iPeakBytes = 0;
        CHeapLock m_kLock;
        // Bound to a live thread (heap 0 always is).
        bool m_bInUse = false;
        CMemoryManager* m_pOwner = nullptr;
        // Stack of the last tagged block freed here.
        const StackRecord* m_pTagCache = nullptr;
        // m_hHeap points here once the heap is created.
        RawHeap m_kRawHeap;
    };

    struct HeapStats
    {
        int iAllocCount = 0;
        int64_t iBytesUsed = 0;
        int64_t iPeakBytes = 0;
    };

    // The stack of tags of one thread; m_uId is the hash of the stack, 0 when empty.
    struct TagList
    {
        unsigned int m_uCount = 0;
        unsigned int m_aTags[MAX_TAG_DEPTH] = {};
        unsigned int m_uId = 0;
    };

    // A TagList bound to its thread. The heap index and the tag-off flag mirror the
    // thread's key values (written together, only by the thread itself) so that the
    // allocation path reads one key.
    struct ThreadTagList : TagList
    {
        CMemoryManager* m_pOwner = nullptr;
        const StackRecord* m_pRecord = nullptr;
        int m_iHeapIndex = 0;
        unsigned int m_uTagOff = 0;
        bool m_bInUse = false;
    };

    class CMemoryManager
    {
    public:
        // Usable as a plain object (tests, tools); the process's one is GetInstance().
        CMemoryManager();
        // Drops the tag tables, frees every block still listed, destroys the private heaps.
        ~CMemoryManager();
        CMemoryManager(const CMemoryManager&) = delete;
        CMemoryManager& operator=(const CMemoryManager&) = delete;

        // Made on first use from the process heap, never from a managed heap.
        static CMemoryManager* GetInstance();
        // A plugin adopts the host's manager before its first allocation.
        static void SetInstance(CMemoryManager* instance);
        // Destroys the process's manager (last thing at shutdown); the next use makes a new one.
        static void DestroyInstance();

        void* Alloc(size_t size, const char* file, int line);
        // alignment: a power of two up to MAX_ALIGNMENT; heap null means the thread's own.
        void* AllocAligned(size_t size, size_t alignment, const char* file, int line, HeapInfo* heap = nullptr);
        // Must run on the thread that owns the block's heap. A pointer the manager does
        // not know is returned as it is.
        void* Realloc(void* ptr, size_t size, const char* file, int line, HeapInfo* heap = nullptr);
        // Any thread. Returns the error code (0 "No error", 3 "Invalid pointer", ...).
        int Free(void* ptr, HeapInfo* heap = nullptr);

        // Gives the calling thread a heap of its own; returns its index (0 when none is left).
        int InitThread();
        HeapInfo* GetThreadHeap();
        // A heap to allocate from explicitly; null when it was never created.
        HeapInfo* GetHeap(int index);
        int GetThreadHeapIndex();
        HeapStats GetHeapStats(int index);
        int GetNumHeaps();
        int GetNumTagLists();

        // Tags charge what this thread allocates to every tag of its stack. Push returns
        // false (after an assertion) when the thread can get no tag list or the stack is full.
        bool PushTag(const char* text);
        bool PushTagId(unsigned int id);
        void PopTag();
        void ClearTags();
        // This thread's stack, or null when it never pushed a tag.
        const TagList* GetThreadTagList();
        // Bytes live under a tag (every tag of the stack is charged).
        int64_t GetTagMemory(unsigned int tagId);
        int64_t GetTagMemory(const char* text);
        // Every stack seen, by id. Take GetTagListMutex() around any use.
        CMap<unsigned int, TagList>* GetTagListMap() { return m_pTagArray; }
        CMutex& GetTagListMutex() { return m_kTagArrayMutex; }

        // Reports, through the log. Return the number of bad blocks / leaks.
        int CheckBufferOverrun();
        int DisplayLeaks();
        void DisplayAllocs(int minimum);
        void DisplayAllocsByFile(int minimum);
        void DisplayTagMemory();
        int64_t GetTotalAllocated();

        int GetLastError() const { return m_eLastError.load(std::memory_order_relaxed); }
        const char* GetErrorText() const { return GetErrorText(GetLastError()); }
        static const char* GetErrorText(int code);

        // The header of a managed block, or null when the 8 bytes in front of ptr are not
        // the magic. ptr must have 8 readable bytes in front of it.
        static const BlockHeader* GetHeader(const void* ptr);

    private:
        void* AllocImpl(size_t size, size_t alignment, const char* file, int line, HeapInfo* heap);
        HeapInfo* HeapFromSlot();
        const StackRecord* FindRecordLocked(HeapInfo& heap, unsigned int tagId);
        void* SetTagOff(void* value);
        ThreadTagList* AcquireTagList();
        bool PushTagImpl(unsigned int id, const char* name);
        void UpdateStack(ThreadTagList* list, const char* name);
        void ReportNoMemory(size_t size, bool realloc);
        bool FreeChecks(void* ptr, HeapInfo* heap, int* result);
        void SetError(int code)
        {
            if (m_eLastError.load(std::memory_order_relaxed) != code) m_eLastError.store(code, std::memory_order_relaxed);
        }
        void ReleaseHeap(HeapInfo* heap);
        void ReleaseTagList(ThreadTagList* list);
        static void OnThreadHeapExit(void* value);
        static void OnThreadTagListExit(void* value);
        void SummaryLines(CReport& report);

        pthread_key_t m_uTlsHeapIndex;
        pthread_key_t m_uTlsTagList;
        pthread_key_t m_uTlsTagOff;
        std::atomic<int> m_eLastError{MEMERR_NONE};
        HeapInfo m_kHeaps[MAX_HEAPS];
        ThreadTagList m_kTagLists[MAX_HEAPS];
        int m_iNumHeaps = 1;
        int m_iNumTagLists = 0;
        TagMemory* m_pTagMemory = nullptr;
        CMap<unsigned int, TagList>* m_pTagArray = nullptr;
        CMemoryManager* m_pTagArrayHome = nullptr;
        CMutex m_kTagArrayMutex;
    };

    // Scope guard of a tag: what is allocated inside it is charged to the tag.
    class MemoryTag
    {
    public:
        explicit MemoryTag(const char* text, CMemoryManager* manager = CMemoryManager::GetInstance())
            : m_pManager(manager), m_bPushed(manager->PushTag(text))
        {
        }
        explicit MemoryTag(unsigned int id, CMemoryManager* manager = CMemoryManager::GetInstance())
            : m_pManager(manager), m_bPushed(manager->PushTagId(id))
        {
        }
        ~MemoryTag()
        {
            if (m_bPushed) m_pManager->PopTag();
        }
        MemoryTag(const MemoryTag&) = delete;
        MemoryTag& operator=(const MemoryTag&) = delete;

    private:
        CMemoryManager* m_pManager;
        bool m_bPushed;
    };

    template <class T, class... Args>
    T* New(const char* file, int line, Args&&... args)
    {
        void* p = CMemoryManager::GetInstance()->AllocAligned(sizeof(T), alignof(T) > 16 ? alignof(T) : 16, file, line);
        return p ? new (p) T(std::forward<Args>(args)...) : nullptr;
    }

    template <class T>
    void Delete(T* p)
    {
        if (!p) return;
        p->~T();
        CMemoryManager::GetInstance()->Free(const_cast<void*>(static_cast<const volatile void*>(p)));
    }
}

#define ZEM_LOCATION (::Common::Mem::Location{__FILE__, __LINE__, __func__})
#define MEM_ALLOC(size) (::Common::Mem::CMemoryManager::GetInstance()->Alloc((size), __FILE__, __LINE__))
#define MEM_FREE(ptr) (::Common::Mem::CMemoryManager::GetInstance()->Free(ptr))
#define MEM_NEW(T, ...) (::Common::Mem::New<T>(__FILE__, __LINE__ __VA_OPT__(, ) __VA_ARGS__))
#define MEM_DELETE(ptr) (::Common::Mem::Delete(ptr))
