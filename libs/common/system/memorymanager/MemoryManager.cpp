#include "common/system/memorymanager/MemoryManager.h"

#include <sched.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/uio.h>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/utils/CMap.h"
#include "common/utils/Hash.h"

// Under AddressSanitizer every raw block goes straight back to malloc, so that a use
// after free of a managed block is still caught.
#if defined(__SANITIZE_ADDRESS__)
#define ZEM_MEM_CACHE 0
#else
#define ZEM_MEM_CACHE 1
#endif

#define ZEM_LIKELY(x) __builtin_expect(!!(x), 1)
#define ZEM_UNLIKELY(x) __builtin_expect(!!(x), 0)

namespace Common::Mem
{
    static_assert(sizeof(pthread_key_t) == 4, "thread slots are 32-bit");

    namespace
    {
        constexpr size_t kHeaderSize = sizeof(BlockHeader);
        constexpr size_t kReallocExtra = 84;
        // "COMMMEMM" as it lies in memory (little endian).
        constexpr uint64_t MagicWord()
        {
            uint64_t m = 0;
            for (int i = 7; i >= 0; --i) m = (m << 8) | static_cast<unsigned char>(MEMORY_MAGIC[i]);
            return m;
        }
        constexpr uint64_t kMagicWord = MagicWord();
        BlockHeader* HeaderOf(void* ptr) { return reinterpret_cast<BlockHeader*>(static_cast<char*>(ptr) - kHeaderSize); }
        void* PtrOf(BlockHeader* h) { return reinterpret_cast<char*>(h) + kHeaderSize; }
        bool GuardOk(const void* ptr, uint32_t size)
        {
            uint32_t g;
            std::memcpy(&g, static_cast<const char*>(ptr) + size, 4);
            return g == MEMORY_GUARD;
        }
        void WriteGuard(void* ptr, uint32_t size)
        {
            const uint32_t g = MEMORY_GUARD;
            std::memcpy(static_cast<char*>(ptr) + size, &g, 4);
        }
        // Reads the 8 bytes in front of any pointer, which may be a foreign block's
        // bookkeeping: not an error for the sanitizer.
        __attribute__((no_sanitize("address", "thread"))) bool HasMagic(const void* ptr)
        {
            // A foreign block may start a mapping, with nothing readable in front of it:
            // near a page start, read through the kernel, which answers EFAULT instead of
            // faulting. Our own blocks have their header in front; if the kernel refuses
            // the call itself, read directly.
            static const uintptr_t s_uPage = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
            const uintptr_t address = reinterpret_cast<uintptr_t>(ptr);
            if ((address & (s_uPage - 1)) < 8)
            {
                uint64_t probe = 0;
                iovec local{&probe, 8};
                iovec remote{reinterpret_cast<void*>(address - 8), 8};
                const ssize_t n = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
                if (n == 8) return probe == kMagicWord;
                if (errno == EFAULT) return false;
            }
            uint64_t m;
            std::memcpy(&m, static_cast<const char*>(ptr) - 8, 8);
            return m == kMagicWord;
        }
        std::atomic<CMemoryManager*> g_pInstance{nullptr};

        void* const kTagOff = reinterpret_cast<void*>(1);
    }

    void CHeapLock::LockSlow()
    {
        for (int spin = 0;; ++spin)
        {
            if (m_iState.load(std::memory_order_relaxed) == 0 && TryLock()) return;
            if (spin < 100)
            {
#if defined(__x86_64__) || defined(__i386__)
                __builtin_ia32_pause();
#endif
            }
            else
                sched_yield();
        }
    }

    // ---------------------------------------------------------------------------------
    // A heap's raw blocks come from malloc, with a small cache of freed blocks per size
    // class so that a thread's steady alloc/free traffic stays inside its heap. A block's
    // first 4 bytes lie in front of its header, unused by the block; they carry the size
    // class the block can serve.
    namespace
    {
        constexpr size_t kMaxCachedBlock = 64 * 16;
        constexpr size_t kMaxCachedBytes = 256 * 1024;

        [[maybe_unused]] void SetClass(void* raw, uint32_t k) { std::memcpy(raw, &k, 4); }
        // Class of a block from malloc: what it surely holds, 0 when too big to keep.
        void* Mark(void* raw, size_t n)
        {
#if ZEM_MEM_CACHE
            if (raw) SetClass(raw, n <= kMaxCachedBlock ? static_cast<uint32_t>(n >> 4) : 0u);
#else
            (void)n;
#endif
            return raw;
        }
    }

    inline void* RawHeap::Alloc(size_t n)
    {
#if ZEM_MEM_CACHE
        if (n <= kMaxCachedBlock)
        {
            const size_t k = (n + 15) >> 4;
            void* p = m_apBins[k];
            if (p)
            {
                m_apBins[k] = *static_cast<void**>(p);
                m_uCachedBytes -= k << 4;
            }
            else if (!(p = std::malloc(k << 4)))
                return nullptr;
            SetClass(p, static_cast<uint32_t>(k));
            return p;
        }
#endif
        return Mark(std::malloc(n), n);
    }

    inline void* RawHeap::Realloc(void* raw, size_t n) { return Mark(std::realloc(raw, n), n); }

    inline void RawHeap::Free(void* raw)
    {
#if ZEM_MEM_CACHE
        uint32_t k;
        std::memcpy(&k, raw, 4);
        if (k != 0 && k < kBins && m_uCachedBytes + (k << 4) <= kMaxCachedBytes)
        {
            *static_cast<void**>(raw) = m_apBins[k];
            m_apBins[k] = raw;
            m_uCachedBytes += k << 4;
            return;
        }
#endif
        std::free(raw);
    }

    void RawHeap::Release()
    {
        for (void*& head : m_apBins)
            while (head)
            {
                void* p = head;
                head = *static_cast<void**>(p);
                std::free(p);
            }
        m_uCachedBytes = 0;
    }

    // ---------------------------------------------------------------------------------
    // One stack of tags as the accounting sees it: the tags, and the TagMemory slot of
    // each distinct tag, to be charged.
    struct StackRecord
    {
        unsigned int uId = 0;
        unsigned int uCount = 0;
        unsigned int aTags[MAX_TAG_DEPTH] = {};
        int aTagSlot[MAX_TAG_DEPTH] = {};
        // Heap 0's counter of each distinct tag; heap h's is kChunk further per heap.
        unsigned int uChargeCount = 0;
        std::atomic<int64_t>* apCharge[MAX_TAG_DEPTH] = {};
    };

    // Bytes per tag id. A tag's counter has one column per heap, written only under that
    // heap's lock, so charging needs no atomic read-modify-write; a total is the sum of
    // the columns. Slots live in chunks that never move, so the charging path reads them
    // without the table's mutex. Stacks are found by id through a lock-free table.
    class TagMemory
    {
    public:
        static constexpr int kChunk = 512;
        static constexpr int kMaxChunks = 256;
        static constexpr int kNameLength = 48;

        TagMemory()
        {
            for (auto& c : m_apChunks) c.store(nullptr, std::memory_order_relaxed);
            AddChunk();
            GrowIndex(kChunk * 2);
            m_pRecords.store(NewRecordTable(64, nullptr), std::memory_order_release);
        }
        ~TagMemory()
        {
            RecordTable* t = m_pRecords.load(std::memory_order_acquire);
            for (uint32_t i = 0; t && i <= t->uMask; ++i)
                if (const StackRecord* r = t->aSlots[i].load(std::memory_order_relaxed)) std::free(const_cast<StackRecord*>(r));
            while (t)
            {
                RecordTable* older = t->pOlder;
                std::free(t);
                t = older;
            }
            for (auto& c : m_apChunks)
                if (Chunk* p = c.load(std::memory_order_relaxed))
                {
                    p->~Chunk();
                    std::free(p);
                }
            std::free(m_piIndex);
        }

        CMutex& Mutex() { return m_kMutex; }

        // Under Mutex(). -1 when the table is full.
        int FindOrAdd(unsigned int id, const char* name)
        {
            int slot = Find(id);
            if (slot < 0)
            {
                if (m_iCount == m_iCapacity && !AddChunk()) return -1;
                if ((m_iCount + 1) * 2 > static_cast<int>(m_uIndexMask + 1) && !GrowIndex((m_uIndexMask + 1) * 2)) return -1;
                slot = m_iCount++;
                ChunkOf(slot)->aIds[slot % kChunk] = id;
                InsertIndex(id, slot);
            }
            if (name && name[0] && !HasName(slot))
            {
                std::snprintf(ChunkOf(slot)->aNames[slot % kChunk], kNameLength, "%s", name);
                ChunkOf(slot)->aNamed[slot % kChunk].store(true, std::memory_order_release);
            }
            return slot;
        }
        // Under Mutex().
        int Find(unsigned int id) const
        {
            for (uint32_t i = id & m_uIndexMask;; i = (i + 1) & m_uIndexMask)
            {
                const int e = m_piIndex[i];
                if (e == 0) return -1;
                if (ChunkOf(e - 1)->aIds[(e - 1) % kChunk] == id) return e - 1;
            }
        }
        int GetCount() const { return m_iCount; }
        unsigned int GetId(int slot) const { return ChunkOf(slot)->aIds[slot % kChunk]; }
        const char* GetName(int slot) const { return ChunkOf(slot)->aNames[slot % kChunk]; }
        // Without the mutex: a name is written once, before its flag.
        bool HasName(int slot) const
        {
            return slot >= 0 && ChunkOf(slot)->aNamed[slot % kChunk].load(std::memory_order_acquire);
        }

        // The caller holds the lock of `heap`.
        void Charge(int heap, const StackRecord* record, int64_t delta)
        {
            const size_t column = static_cast<size_t>(heap) * kChunk;
            for (unsigned int i = 0; i < record->uChargeCount; ++i)
            {
                std::atomic<int64_t>& c = record->apCharge[i][column];
                c.store(c.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
            }
        }
        int64_t GetBytes(int slot) const
        {
            int64_t total = 0;
            for (int h = 0; h < MAX_HEAPS; ++h)
                total += ChunkOf(slot)->aBytes[static_cast<size_t>(h) * kChunk + slot % kChunk].load(std::memory_order_relaxed);
            return total;
        }

        // Lock-free: every record stays until the table dies.
        const StackRecord* FindRecord(unsigned int id) const
        {
            const RecordTable* t = m_pRecords.load(std::memory_order_acquire);
            for (uint32_t i = id & t->uMask;; i = (i + 1) & t->uMask)
            {
                const StackRecord* r = t->aSlots[i].load(std::memory_order_acquire);
                if (!r || r->uId == id) return r;
            }
        }
        // Under Mutex(). Null when the tables are full.
        const StackRecord* Register(const TagList& list, bool* created)
        {
            *created = false;
            if (const StackRecord* r = FindRecord(list.m_uId))
            {
                ZEM_ASSERT(r->uCount == list.m_uCount &&
                               std::memcmp(r->aTags, list.m_aTags, list.m_uCount * sizeof(unsigned int)) == 0,
                           "Two memory tag stacks share the id 0x%08x", list.m_uId);
                return r;
            }
            StackRecord* r = static_cast<StackRecord*>(std::malloc(sizeof(StackRecord)));
            if (!r) return nullptr;
            new (r) StackRecord();
            r->uId = list.m_uId;
            r->uCount = list.m_uCount;
            for (unsigned int i = 0; i < list.m_uCount; ++i)
            {
                r->aTags[i] = list.m_aTags[i];
                const int slot = FindOrAdd(list.m_aTags[i], nullptr);
                r->aTagSlot[i] = slot;
                if (slot < 0) continue;
                std::atomic<int64_t>* counter = &ChunkOf(slot)->aBytes[slot % kChunk];
                bool seen = false;
                for (unsigned int j = 0; j < r->uChargeCount && !seen; ++j) seen = r->apCharge[j] == counter;
                if (!seen) r->apCharge[r->uChargeCount++] = counter;
            }
            RecordTable* t = m_pRecords.load(std::memory_order_relaxed);
            if ((m_iRecordCount + 1) * 2 > static_cast<int>(t->uMask + 1))
            {
                RecordTable* bigger = NewRecordTable((t->uMask + 1) * 2, t);
                if (!bigger)
                {
                    std::free(r);
                    return nullptr;
                }
                for (uint32_t i = 0; i <= t->uMask; ++i)
                    if (const StackRecord* old = t->aSlots[i].load(std::memory_order_relaxed)) Place(bigger, old);
                m_pRecords.store(bigger, std::memory_order_release);
                t = bigger;
            }
            Place(t, r);
            ++m_iRecordCount;
            *created = true;
            return r;
        }

        size_t GetFootprint() const
        {
            return sizeof(TagMemory) + static_cast<size_t>(m_iCapacity / kChunk) * sizeof(Chunk) +
                   (m_uIndexMask + 1) * sizeof(int) + static_cast<size_t>(m_iRecordCount) * sizeof(StackRecord);
        }

    private:
        struct Chunk
        {
            // One column of kChunk counters per heap.
            std::atomic<int64_t> aBytes[MAX_HEAPS * kChunk] = {};
            unsigned int aIds[kChunk] = {};
            char aNames[kChunk][kNameLength] = {};
            std::atomic<bool> aNamed[kChunk] = {};
        };
        struct RecordTable
        {
            uint32_t uMask;
            RecordTable* pOlder;
            std::atomic<const StackRecord*> aSlots[1];
        };

        Chunk* ChunkOf(int slot) const { return m_apChunks[slot / kChunk].load(std::memory_order_acquire); }

        bool AddChunk()
        {
            const int index = m_iCapacity / kChunk;
            if (!ZEM_ASSERT(index < kMaxChunks, "Too many memory tags (%d)", m_iCapacity)) return false;
            void* mem = std::malloc(sizeof(Chunk));
            if (!mem) return false;
            m_apChunks[index].store(new (mem) Chunk(), std::memory_order_release);
            m_iCapacity += kChunk;
            return true;
        }
        bool GrowIndex(uint32_t capacity)
        {
            int* index = static_cast<int*>(std::calloc(capacity, sizeof(int)));
            if (!index) return false;
            std::free(m_piIndex);
            m_piIndex = index;
            m_uIndexMask = capacity - 1;
            for (int s = 0; s < m_iCount; ++s) InsertIndex(GetId(s), s);
            return true;
        }
        void InsertIndex(unsigned int id, int slot)
        {
            uint32_t i = id & m_uIndexMask;
            while (m_piIndex[i]) i = (i + 1) & m_uIndexMask;
            m_piIndex[i] = slot + 1;
        }
        static RecordTable* NewRecordTable(uint32_t capacity, RecordTable* older)
        {
            const size_t bytes = sizeof(RecordTable) + (capacity - 1) * sizeof(std::atomic<const StackRecord*>);
            RecordTable* t = static_cast<RecordTable*>(std::malloc(bytes));
            if (!t) return nullptr;
            t->uMask = capacity - 1;
            t->pOlder = older;
            for (uint32_t i = 0; i < capacity; ++i) new (&t->aSlots[i]) std::atomic<const StackRecord*>(nullptr);
            return t;
        }
        static void Place(RecordTable* t, const StackRecord* r)
        {
            uint32_t i = r->uId & t->uMask;
            while (t->aSlots[i].load(std::memory_order_relaxed)) i = (i + 1) & t->uMask;
            t->aSlots[i].store(r, std::memory_order_release);
        }

        CMutex m_kMutex;
        std::atomic<Chunk*> m_apChunks[kMaxChunks];
        int m_iCount = 0;
        int m_iCapacity = 0;
        int* m_piIndex = nullptr;
        uint32_t m_uIndexMask = 0;
        std::atomic<RecordTable*> m_pRecords{nullptr};
        int m_iRecordCount = 0;
    };

    // ---------------------------------------------------------------------------------
    // Report text gathered while heaps are locked and logged once they are not: the log
    // may allocate, and a heap lock is never held across a call out.
    class CReport
    {
    public:
        CReport() = default;
        ~CReport() { std::free(m_pText); }
        CReport(const CReport&) = delete;
        CReport& operator=(const CReport&) = delete;

        __attribute__((format(printf, 2, 3))) void Add(const char* format, ...)
        {
            char line[1024];
            va_list args;
            va_start(args, format);
            const int n = std::vsnprintf(line, sizeof(line), format, args);
            va_end(args);
            if (n < 0) return;
            const size_t len = static_cast<size_t>(n) < sizeof(line) ? static_cast<size_t>(n) : sizeof(line) - 1;
            if (m_uLength + len + 1 > m_uCapacity)
            {
                const size_t cap = (m_uCapacity + len + 1) * 2;
                char* text = static_cast<char*>(std::realloc(m_pText, cap));
                if (!text) return;
                m_pText = text;
                m_uCapacity = cap;
            }
            std::memcpy(m_pText + m_uLength, line, len + 1);
            m_uLength += len + 1;
        }
        void Flush()
        {
            for (size_t at = 0; at < m_uLength; at += std::strlen(m_pText + at) + 1) Log("%s", m_pText + at);
            m_uLength = 0;
        }

    private:
        char* m_pText = nullptr;
        size_t m_uLength = 0;
        size_t m_uCapacity = 0;
    };

    namespace
    {
        struct BlockInfo
        {
            const void* pPtr;
            const char* szFile;
            int iLine;
            uint32_t uSize;
            uint32_t uTagId;
            bool bTagged;
            bool bBad;
        };
        struct HeapSnapshot
        {
            BlockInfo* pBlocks = nullptr;
            int iCount = 0;
            HeapStats kStats;
            size_t uCached = 0;
            ~HeapSnapshot() { std::free(pBlocks); }
        };

        bool BlockOk(BlockHeader* h)
        {
            void* ptr = PtrOf(h);
            return HasMagic(ptr) && h->m_pPtr == ptr && GuardOk(ptr, h->m_uSize);
        }

        // Copies a heap's list under its lock. A header whose magic is gone ends the walk:
        // its links cannot be trusted.
        void Snapshot(HeapInfo& heap, HeapSnapshot& out)
        {
            heap.m_kLock.Lock();
            out.kStats = HeapStats{heap.m_iAllocCount, heap.m_iBytesUsed, heap.m_iPeakBytes};
            out.uCached = heap.m_kRawHeap.GetCachedBytes();
            const int n = heap.m_iAllocCount;
            out.pBlocks = n > 0 ? static_cast<BlockInfo*>(std::malloc(sizeof(BlockInfo) * static_cast<size_t>(n))) : nullptr;
            int i = 0;
            for (BlockHeader* h = heap.m_pAllocList; h && out.pBlocks && i < n; h = h->m_pNext)
            {
                const bool magic = HasMagic(PtrOf(h));
                out.pBlocks[i++] = BlockInfo{PtrOf(h), h->m_szFile, h->GetLine(), h->m_uSize, h->m_uTagListId, h->IsTagged(),
                                             !magic || !BlockOk(h)};
                if (!magic) break;
            }
            out.iCount = i;
            heap.m_kLock.Unlock();
        }

        int ToMb(int64_t bytes) { return static_cast<int>(bytes / (1024 * 1024)); }
        int ToKb(int64_t bytes) { return static_cast<int>(bytes / 1024); }

        const char* FileOrUnknown(const char* file) { return file ? file : "(unknown)"; }
    }

    // ---------------------------------------------------------------------------------

    CMemoryManager::CMemoryManager()
    {
        pthread_key_create(&m_uTlsHeapIndex, &CMemoryManager::OnThreadHeapExit);
        pthread_key_create(&m_uTlsTagList, &CMemoryManager::OnThreadTagListExit);
        pthread_key_create(&m_uTlsTagOff, nullptr);
        for (int i = 0; i < MAX_HEAPS; ++i)
        {
            m_kHeaps[i].iIndex = i;
            m_kHeaps[i].m_pOwner = this;
            m_kTagLists[i].m_pOwner = this;
        }
        m_kHeaps[0].m_hHeap = &m_kHeaps[0].m_kRawHeap;
        m_kHeaps[0].m_bInUse = true;

        void* previous = SetTagOff(kTagOff);
        if (void* mem = std::malloc(sizeof(TagMemory))) m_pTagMemory = new (mem) TagMemory();
        // An empty map allocates nothing, so this does not reach back into a manager.
        if (void* mem = std::malloc(sizeof(CMap<unsigned int, TagList>))) m_pTagArray = new (mem) CMap<unsigned int, TagList>();
        SetTagOff(previous);
    }

    CMemoryManager::~CMemoryManager()
    {
        SetTagOff(kTagOff);
        if (m_pTagMemory)
        {
            TagMemory* tags = m_pTagMemory;
            m_pTagMemory = nullptr;
            tags->~TagMemory();
            std::free(tags);
        }
        if (m_pTagArray)
        {
            m_kTagArrayMutex.Lock();
            // Its array goes back to the manager it came from, whichever is current now.
            void* data = m_pTagArray->begin();
            if (data && m_pTagArrayHome) m_pTagArrayHome->Free(data);
            new (m_pTagArray) CMap<unsigned int, TagList>();
            m_pTagArray->~CMap();
            std::free(m_pTagArray);
            m_pTagArray = nullptr;
            m_kTagArrayMutex.Unlock();
        }
        for (HeapInfo& heap : m_kHeaps)
        {
            heap.m_kLock.Lock();
            for (BlockHeader* h = heap.m_pAllocList; h;)
            {
                BlockHeader* next = h->m_pNext;
                std::memset(h->m_acMagic, 0, sizeof(h->m_acMagic));
                heap.m_kRawHeap.Free(h->m_pRaw);
                h = next;
            }
            heap.m_pAllocList = nullptr;
            heap.m_iAllocCount = 0;
            heap.m_iBytesUsed = 0;
            heap.m_kRawHeap.Release();
            heap.m_hHeap = nullptr;
            heap.m_kLock.Unlock();
        }
        pthread_key_delete(m_uTlsHeapIndex);
        pthread_key_delete(m_uTlsTagList);
        pthread_key_delete(m_uTlsTagOff);
    }

    CMemoryManager* CMemoryManager::GetInstance()
    {
        CMemoryManager* p = g_pInstance.load(std::memory_order_acquire);
        if (ZEM_LIKELY(p != nullptr)) return p;
        void* mem = nullptr;
        if (posix_memalign(&mem, alignof(CMemoryManager), sizeof(CMemoryManager)) != 0 || !mem)
        {
            Log("%s\n", GetErrorText(MEMERR_CANNOT_ALLOC_MAIN));
            return nullptr;
        }
        CMemoryManager* made = new (mem) CMemoryManager();
        if (g_pInstance.compare_exchange_strong(p, made, std::memory_order_acq_rel)) return made;
        // Another thread made it first.
        made->~CMemoryManager();
        std::free(made);
        return p;
    }

    void CMemoryManager::SetInstance(CMemoryManager* instance) { g_pInstance.store(instance, std::memory_order_release); }

    void CMemoryManager::DestroyInstance()
    {
        CMemoryManager* p = g_pInstance.load(std::memory_order_acquire);
        if (!p) return;
        p->~CMemoryManager();
        g_pInstance.compare_exchange_strong(p, nullptr, std::memory_order_acq_rel);
        std::free(p);
    }

    const char* CMemoryManager::GetErrorText(int code)
    {
        switch (code)
        {
        case MEMERR_NONE: return "No error";
        case MEMERR_CANNOT_ALLOC_MAIN: return "Cannot alloc main memory";
        case MEMERR_NOT_ENOUGH_MEMORY: return "Not enough memory";
        case MEMERR_INVALID_POINTER: return "Invalid pointer";
        default: return "Undefined error";
        }
    }

    const BlockHeader* CMemoryManager::GetHeader(const void* ptr)
    {
        if (!ptr || !HasMagic(ptr)) return nullptr;
        return reinterpret_cast<const BlockHeader*>(static_cast<const char*>(ptr) - kHeaderSize);
    }

    // ---------------------------------------------------------------------------------
    // Thread slots

    inline HeapInfo* CMemoryManager::HeapFromSlot()
    {
        HeapInfo* heap = static_cast<HeapInfo*>(pthread_getspecific(m_uTlsHeapIndex));
        return heap ? heap : &m_kHeaps[0];
    }

    HeapInfo* CMemoryManager::GetThreadHeap() { return HeapFromSlot(); }
    HeapInfo* CMemoryManager::GetHeap(int index)
    {
        if (!ZEM_ASSERT(index >= 0 && index < MAX_HEAPS, "No heap %d", index)) return nullptr;
        return m_kHeaps[index].m_hHeap ? &m_kHeaps[index] : nullptr;
    }
    int CMemoryManager::GetThreadHeapIndex() { return HeapFromSlot()->iIndex; }

    void* CMemoryManager::SetTagOff(void* value)
    {
        void* previous = pthread_getspecific(m_uTlsTagOff);
        pthread_setspecific(m_uTlsTagOff, value);
        if (ThreadTagList* list = static_cast<ThreadTagList*>(pthread_getspecific(m_uTlsTagList)))
            list->m_uTagOff = value != nullptr;
        return previous;
    }

    int CMemoryManager::InitThread()
    {
        if (HeapInfo* own = static_cast<HeapInfo*>(pthread_getspecific(m_uTlsHeapIndex))) return own->iIndex;
        HeapInfo& main = m_kHeaps[0];
        HeapInfo* found = nullptr;
        main.m_kLock.Lock();
        for (int i = 1; i < MAX_HEAPS && !found; ++i)
        {
            HeapInfo& heap = m_kHeaps[i];
            if (heap.m_bInUse) continue;
            heap.m_hHeap = &heap.m_kRawHeap;
            heap.m_bInUse = true;
            ++m_iNumHeaps;
            found = &heap;
        }
        const int numHeaps = m_iNumHeaps;
        main.m_kLock.Unlock();
        if (!ZEM_ASSERT(found != nullptr, "Limit of thread reached for MemoryManager heaps (%d), the thread stays on heap 0",
                        numHeaps))
            return 0;
        pthread_setspecific(m_uTlsHeapIndex, found);
        if (ThreadTagList* list = static_cast<ThreadTagList*>(pthread_getspecific(m_uTlsTagList)))
            list->m_iHeapIndex = found->iIndex;
        return found->iIndex;
    }

    // The heap stays with its blocks and its cache; the next thread to call InitThread
    // may take it over.
    void CMemoryManager::ReleaseHeap(HeapInfo* heap)
    {
        if (ThreadTagList* list = static_cast<ThreadTagList*>(pthread_getspecific(m_uTlsTagList))) list->m_iHeapIndex = 0;
        HeapInfo& main = m_kHeaps[0];
        main.m_kLock.Lock();
        heap->m_bInUse = false;
        --m_iNumHeaps;
        main.m_kLock.Unlock();
    }

    void CMemoryManager::ReleaseTagList(ThreadTagList* list)
    {
        HeapInfo& main = m_kHeaps[0];
        main.m_kLock.Lock();
        list->m_uCount = 0;
        list->m_uId = 0;
        list->m_pRecord = nullptr;
        list->m_bInUse = false;
        --m_iNumTagLists;
        main.m_kLock.Unlock();
    }

    void CMemoryManager::OnThreadHeapExit(void* value)
    {
        HeapInfo* heap = static_cast<HeapInfo*>(value);
        heap->m_pOwner->ReleaseHeap(heap);
    }

    void CMemoryManager::OnThreadTagListExit(void* value)
    {
        ThreadTagList* list = static_cast<ThreadTagList*>(value);
        list->m_pOwner->ReleaseTagList(list);
    }

    int CMemoryManager::GetNumHeaps()
    {
        m_kHeaps[0].m_kLock.Lock();
        const int n = m_iNumHeaps;
        m_kHeaps[0].m_kLock.Unlock();
        return n;
    }

    int CMemoryManager::GetNumTagLists()
    {
        m_kHeaps[0].m_kLock.Lock();
        const int n = m_iNumTagLists;
        m_kHeaps[0].m_kLock.Unlock();
        return n;
    }

    HeapStats CMemoryManager::GetHeapStats(int index)
    {
        if (!ZEM_ASSERT(index >= 0 && index < MAX_HEAPS, "No heap %d", index)) return HeapStats{};
        HeapInfo& heap = m_kHeaps[index];
        heap.m_kLock.Lock();
        const HeapStats s{heap.m_iAllocCount, heap.m_iBytesUsed, heap.m_iPeakBytes};
        heap.m_kLock.Unlock();
        return s;
    }

    // ---------------------------------------------------------------------------------
    // Blocks

    namespace
    {
        void Link(HeapInfo& heap, BlockHeader* h, uint32_t size)
        {
            h->m_pPrev = nullptr;
            h->m_pNext = heap.m_pAllocList;
            if (heap.m_pAllocList) heap.m_pAllocList->m_pPrev = h;
            heap.m_pAllocList = h;
            ++heap.m_iAllocCount;
            heap.m_iBytesUsed += size;
            if (heap.m_iBytesUsed > heap.m_iPeakBytes) heap.m_iPeakBytes = heap.m_iBytesUsed;
        }
        void Unlink(HeapInfo& heap, BlockHeader* h, uint32_t size)
        {
            BlockHeader* prev = h->m_pPrev;
            BlockHeader* next = h->m_pNext;
            if (prev)
                prev->m_pNext = next;
            else
                heap.m_pAllocList = next;
            if (next) next->m_pPrev = prev;
            --heap.m_iAllocCount;
            heap.m_iBytesUsed -= size;
        }
        void FillHeader(BlockHeader* h, void* ptr, void* raw, uint32_t size, uint32_t tagId, const char* file, int line,
                        int heap, bool tagged)
        {
            h->m_uSize = size;
            h->m_uTagListId = tagId;
            h->m_pPtr = ptr;
            h->m_pRaw = raw;
            h->m_szFile = file;
            h->m_uPacked = BlockHeader::Pack(line, heap, tagged);
            std::memcpy(h->m_acMagic, &kMagicWord, 8);
        }
    }

    // The stack of a block being freed, through a one-entry cache of the heap (a heap's
    // blocks mostly come from one stack). The caller holds the heap's lock.
    inline const StackRecord* CMemoryManager::FindRecordLocked(HeapInfo& heap, unsigned int tagId)
    {
        const StackRecord* record = heap.m_pTagCache;
        if (record && record->uId == tagId) return record;
        record = m_pTagMemory->FindRecord(tagId);
        heap.m_pTagCache = record;
        return record;
    }

    void CMemoryManager::ReportNoMemory(size_t size, bool realloc)
    {
        SetError(MEMERR_NOT_ENOUGH_MEMORY);
        DisplayAllocs(1024);
        if (realloc)
            ZEM_ASSERT(false, "Realloc of %i bytes failed : not enough memory ?", static_cast<int>(size));
        else
            ZEM_ASSERT(false, "Alloc of %i bytes failed : not enough memory ?", static_cast<int>(size));
    }

    inline void* CMemoryManager::AllocImpl(size_t size, size_t alignment, const char* file, int line, HeapInfo* heap)
    {
        if (ZEM_UNLIKELY(size > UINT32_MAX))
        {
            ZEM_ASSERT(size <= UINT32_MAX, "Alloc of %zu bytes: a block holds at most 4Gb", size);
            SetError(MEMERR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }
        ThreadTagList* list = static_cast<ThreadTagList*>(pthread_getspecific(m_uTlsTagList));
        if (ZEM_UNLIKELY(heap != nullptr))
        {
            if (!ZEM_ASSERT(heap->m_hHeap != nullptr, "Heap %i was never created", heap->iIndex)) return nullptr;
        }
        else
            heap = list ? &m_kHeaps[list->m_iHeapIndex] : HeapFromSlot();
        const bool tagged = list && !list->m_uTagOff;
        const StackRecord* record = tagged ? list->m_pRecord : nullptr;

        heap->m_kLock.Lock();
        char* raw = static_cast<char*>(heap->m_kRawHeap.Alloc(size + alignment + BLOCK_RAW_EXTRA));
        if (ZEM_UNLIKELY(!raw))
        {
            heap->m_kLock.Unlock();
            ReportNoMemory(size, false);
            return nullptr;
        }
        const uintptr_t at = (reinterpret_cast<uintptr_t>(raw) + alignment + 63) & ~static_cast<uintptr_t>(alignment - 1);
        void* ptr = reinterpret_cast<void*>(at);
        BlockHeader* h = HeaderOf(ptr);
        FillHeader(h, ptr, raw, static_cast<uint32_t>(size), record ? record->uId : 0, file, line, heap->iIndex, tagged);
        Link(*heap, h, static_cast<uint32_t>(size));
        if (record && m_pTagMemory) m_pTagMemory->Charge(heap->iIndex, record, static_cast<int64_t>(size));
        heap->m_kLock.Unlock();
        WriteGuard(ptr, static_cast<uint32_t>(size));

        ZEM_ASSERT((at & 15) == 0, "Alloc of %zu bytes aligned on %zu gave %p", size, alignment, ptr);
        return ptr;
    }

    void* CMemoryManager::Alloc(size_t size, const char* file, int line) { return AllocImpl(size, 16, file, line, nullptr); }

    void* CMemoryManager::AllocAligned(size_t size, size_t alignment, const char* file, int line, HeapInfo* heap)
    {
        if (!ZEM_ASSERT(alignment != 0 && (alignment & (alignment - 1)) == 0 && alignment <= MAX_ALIGNMENT,
                        "Bad alignment %zu for %zu bytes: a power of two up to 268435456", alignment, size))
            return nullptr;
        return AllocImpl(size, alignment, file, line, heap);
    }

    // Everything Free does not expect: unknown pointers, damaged headers, overruns.
    // Returns true when the block is sound enough to be freed.
    __attribute__((noinline, cold)) bool CMemoryManager::FreeChecks(void* ptr, HeapInfo* heap, int* result)
    {
        *result = MEMERR_INVALID_POINTER;
        SetError(MEMERR_INVALID_POINTER);
        if (!HasMagic(ptr))
        {
            if (heap && heap->m_hHeap)
            {
                heap->m_kLock.Lock();
                std::free(ptr);
                heap->m_kLock.Unlock();
            }
            else
                ZEM_ASSERT(heap != nullptr, "Memory not-allocated with MemoryManager. This should not happen.");
            return false;
        }
        BlockHeader* h = HeaderOf(ptr);
        const int index = h->GetHeapIndex();
        if (!ZEM_ASSERT(h->m_pPtr == ptr, "Internal memroy manager error")) return false;
        if (!ZEM_ASSERT(index < MAX_HEAPS && m_kHeaps[index].m_hHeap, "Fucked heap index %i", index)) return false;
        // Reported; the block is freed all the same.
        ZEM_ASSERT(GuardOk(ptr, h->m_uSize), "BUFFER_OVERRUN");
        return true;
    }

    int CMemoryManager::Free(void* ptr, HeapInfo* heap)
    {
        if (!ptr)
        {
            SetError(MEMERR_NONE);
            return MEMERR_NONE;
        }
        BlockHeader* h = HeaderOf(ptr);
        if (ZEM_UNLIKELY(!HasMagic(ptr) || h->m_pPtr != ptr || h->GetHeapIndex() >= MAX_HEAPS ||
                         !m_kHeaps[h->GetHeapIndex()].m_hHeap || !GuardOk(ptr, h->m_uSize)))
        {
            int result;
            if (!FreeChecks(ptr, heap, &result)) return result;
        }
        const int index = h->GetHeapIndex();
        const uint32_t size = h->m_uSize;
        const uint32_t tagId = h->m_uTagListId;
        const bool tagged = h->IsTagged();

        HeapInfo& owner = m_kHeaps[index];
        owner.m_kLock.Lock();
        Unlink(owner, h, size);
        // A second Free of the same pointer finds no magic.
        std::memset(h->m_acMagic, 0, sizeof(h->m_acMagic));
        if (tagged && tagId && m_pTagMemory)
            if (const StackRecord* record = FindRecordLocked(owner, tagId))
                m_pTagMemory->Charge(index, record, -static_cast<int64_t>(size));
        owner.m_kRawHeap.Free(h->m_pRaw);
        owner.m_kLock.Unlock();
        SetError(MEMERR_NONE);
        return MEMERR_NONE;
    }

    void* CMemoryManager::Realloc(void* ptr, size_t size, const char* file, int line, HeapInfo* heap)
    {
        if (!ptr) return AllocAligned(size, 16, file, line, heap);
        if (!HasMagic(ptr)) return ptr;
        BlockHeader* h = HeaderOf(ptr);
        if (!ZEM_ASSERT(h->m_pPtr == ptr, "Internal memroy manager error"))
        {
            SetError(MEMERR_INVALID_POINTER);
            return nullptr;
        }
        const uint32_t oldSize = h->m_uSize;
        if (!GuardOk(ptr, oldSize)) ZEM_ASSERT(GuardOk(ptr, oldSize), "BUFFER_OVERRUN");
        const int index = h->GetHeapIndex();
        if (!ZEM_ASSERT(index < MAX_HEAPS && m_kHeaps[index].m_hHeap, "Fucked heap index %i", index))
        {
            SetError(MEMERR_INVALID_POINTER);
            return nullptr;
        }
        // Reported, then done on the block's own heap all the same: its lock makes it safe.
        ZEM_ASSERT(index == GetThreadHeapIndex(), "Realloc must be on the same thread as malloc call");
        if (size > UINT32_MAX)
        {
            ZEM_ASSERT(size <= UINT32_MAX, "Realloc of %zu bytes: a block holds at most 4Gb", size);
            SetError(MEMERR_NOT_ENOUGH_MEMORY);
            return nullptr;
        }

        HeapInfo& owner = m_kHeaps[index];
        owner.m_kLock.Lock();
        Unlink(owner, h, oldSize);
        char* oldRaw = static_cast<char*>(h->m_pRaw);
        const size_t oldOffset = static_cast<size_t>(static_cast<char*>(ptr) - oldRaw);
        const uint32_t tagId = h->m_uTagListId;
        const bool tagged = h->IsTagged();
        const size_t keep = oldSize < size ? oldSize : size;
        const size_t rawSize = size + kReallocExtra;

        char* raw = nullptr;
        char* data = nullptr;
        if (oldOffset <= 79)
        {
            // The data still lies inside the first rawSize bytes.
            raw = static_cast<char*>(owner.m_kRawHeap.Realloc(oldRaw, rawSize));
            data = raw ? raw + oldOffset : nullptr;
        }
        else if ((raw = static_cast<char*>(owner.m_kRawHeap.Alloc(rawSize))))
        {
            data = static_cast<char*>(ptr);
        }
        if (!raw)
        {
            Link(owner, h, oldSize);
            owner.m_kLock.Unlock();
            ReportNoMemory(size, true);
            return nullptr;
        }
        char* moved = reinterpret_cast<char*>((reinterpret_cast<uintptr_t>(raw) + 79) & ~static_cast<uintptr_t>(15));
        if (moved != data) std::memmove(moved, data, keep);
        if (raw != oldRaw && oldOffset > 79) owner.m_kRawHeap.Free(oldRaw);

        BlockHeader* nh = HeaderOf(moved);
        FillHeader(nh, moved, raw, static_cast<uint32_t>(size), tagId, file, line, index, tagged);
        Link(owner, nh, static_cast<uint32_t>(size));
        if (tagged && tagId && m_pTagMemory)
            if (const StackRecord* record = FindRecordLocked(owner, tagId))
                m_pTagMemory->Charge(index, record, static_cast<int64_t>(size) - static_cast<int64_t>(oldSize));
        owner.m_kLock.Unlock();
        WriteGuard(moved, static_cast<uint32_t>(size));
        return moved;
    }

    // ---------------------------------------------------------------------------------
    // Tags

    namespace
    {
        unsigned int StackId(const TagList& list)
        {
            if (list.m_uCount == 0) return 0;
            const unsigned int id = GenerateUIntIdFromBuffer(list.m_aTags, list.m_uCount * sizeof(unsigned int));
            return id ? id : 1;
        }
    }

    ThreadTagList* CMemoryManager::AcquireTagList()
    {
        HeapInfo& main = m_kHeaps[0];
        ThreadTagList* found = nullptr;
        main.m_kLock.Lock();
        const int inUse = m_iNumTagLists;
        if (inUse < MAX_HEAPS)
            for (ThreadTagList& list : m_kTagLists)
                if (!list.m_bInUse)
                {
                    found = &list;
                    list.m_bInUse = true;
                    ++m_iNumTagLists;
                    break;
                }
        main.m_kLock.Unlock();
        if (!ZEM_ASSERT(inUse < MAX_HEAPS && found,
                        "Limit of thread reached for MmeoryManager Tag identification. Increase MAX_HEAPS define"))
            return nullptr;
        found->m_uCount = 0;
        found->m_uId = 0;
        found->m_pRecord = nullptr;
        found->m_iHeapIndex = HeapFromSlot()->iIndex;
        found->m_uTagOff = pthread_getspecific(m_uTlsTagOff) != nullptr;
        pthread_setspecific(m_uTlsTagList, found);
        return found;
    }

    // After the stack changed: its id, and its accounting record (made on first sight,
    // together with its entry in TagArray).
    void CMemoryManager::UpdateStack(ThreadTagList* list, const char* name)
    {
        list->m_uId = StackId(*list);
        if (list->m_uCount == 0 || !m_pTagMemory)
        {
            list->m_pRecord = nullptr;
            return;
        }
        const StackRecord* record = m_pTagMemory->FindRecord(list->m_uId);
        bool created = false;
        if (!record || (name && !m_pTagMemory->HasName(record->aTagSlot[list->m_uCount - 1])))
        {
            CMutex& mutex = m_pTagMemory->Mutex();
            mutex.Lock();
            if (name) m_pTagMemory->FindOrAdd(list->m_aTags[list->m_uCount - 1], name);
            if (!record) record = m_pTagMemory->Register(*list, &created);
            mutex.Unlock();
        }
        list->m_pRecord = record;
        if (created && m_pTagArray)
        {
            // The map's array comes from the process's manager; it is only ever grown and
            // freed through that one manager, so a stack seen after the process switched
            // managers (tests do) is not kept.
            const TagList copy = *list;
            CMemoryManager* instance = GetInstance();
            void* homeTagOff = instance != this ? instance->SetTagOff(kTagOff) : nullptr;
            m_kTagArrayMutex.Lock();
            if (!m_pTagArrayHome) m_pTagArrayHome = instance;
            if (m_pTagArrayHome == instance && !m_pTagArray->Contains(copy.m_uId)) m_pTagArray->Insert(copy.m_uId, copy);
            m_kTagArrayMutex.Unlock();
            if (instance != this) instance->SetTagOff(homeTagOff);
        }
    }

    bool CMemoryManager::PushTagImpl(unsigned int id, const char* name)
    {
        void* previous = SetTagOff(kTagOff);
        ThreadTagList* list = static_cast<ThreadTagList*>(pthread_getspecific(m_uTlsTagList));
        if (!list) list = AcquireTagList();
        bool pushed = false;
        if (list && ZEM_ASSERT(list->m_uCount < MAX_TAG_DEPTH, "Memory tags nested deeper than %u", MAX_TAG_DEPTH))
        {
            list->m_aTags[list->m_uCount++] = id;
            UpdateStack(list, name);
            pushed = true;
        }
        SetTagOff(previous);
        return pushed;
    }

    bool CMemoryManager::PushTagId(unsigned int id) { return PushTagImpl(id, nullptr); }

    bool CMemoryManager::PushTag(const char* text)
    {
        if (!ZEM_ASSERT(text != nullptr, "PushTag without a text")) return false;
        return PushTagImpl(GenerateUIntIdFromString(text), text);
    }

    void CMemoryManager::PopTag()
    {
        ThreadTagList* list = static_cast<ThreadTagList*>(pthread_getspecific(m_uTlsTagList));
        if (!ZEM_ASSERT(list && list->m_uCount > 0, "PopTag without a tag pushed on this thread")) return;
        void* previous = SetTagOff(kTagOff);
        --list->m_uCount;
        UpdateStack(list, nullptr);
        SetTagOff(previous);
    }

    void CMemoryManager::ClearTags()
    {
        if (ThreadTagList* list = static_cast<ThreadTagList*>(pthread_getspecific(m_uTlsTagList)))
        {
            list->m_uCount = 0;
            list->m_uId = 0;
            list->m_pRecord = nullptr;
        }
    }

    const TagList* CMemoryManager::GetThreadTagList()
    {
        return static_cast<ThreadTagList*>(pthread_getspecific(m_uTlsTagList));
    }

    int64_t CMemoryManager::GetTagMemory(unsigned int tagId)
    {
        if (!m_pTagMemory) return 0;
        CMutex& mutex = m_pTagMemory->Mutex();
        mutex.Lock();
        const int slot = m_pTagMemory->Find(tagId);
        const int64_t bytes = slot < 0 ? 0 : m_pTagMemory->GetBytes(slot);
        mutex.Unlock();
        return bytes;
    }

    int64_t CMemoryManager::GetTagMemory(const char* text) { return GetTagMemory(GenerateUIntIdFromString(text)); }

    // ---------------------------------------------------------------------------------
    // Reports

    namespace
    {
        // " [Outer/Inner]" for a block's stack; empty when untagged.
        void StackText(TagMemory* tags, unsigned int stackId, char* out, size_t size)
        {
            out[0] = 0;
            if (!tags || !stackId) return;
            const StackRecord* record = tags->FindRecord(stackId);
            if (!record) return;
            size_t at = static_cast<size_t>(std::snprintf(out, size, " ["));
            for (unsigned int i = 0; i < record->uCount && at < size; ++i)
            {
                const int slot = record->aTagSlot[i];
                const char* sep = i ? "/" : "";
                int n;
                if (slot >= 0 && tags->HasName(slot))
                    n = std::snprintf(out + at, size - at, "%s%s", sep, tags->GetName(slot));
                else
                    n = std::snprintf(out + at, size - at, "%s0x%08x", sep, record->aTags[i]);
                if (n < 0) return;
                at += static_cast<size_t>(n);
            }
            if (at < size) std::snprintf(out + at, size - at, "]");
        }

        void BlockLine(CReport& report, TagMemory* tags, const BlockInfo& b)
        {
            char stack[512];
            StackText(tags, b.bTagged ? b.uTagId : 0, stack, sizeof(stack));
            report.Add("%s(%d) : %u bytes at %p%s\n", FileOrUnknown(b.szFile), b.iLine, b.uSize, b.pPtr, stack);
        }

        struct FileTotal
        {
            const char* szFile;
            int iCount;
            int64_t iBytes;
        };
        int CompareFiles(const void* a, const void* b)
        {
            return std::strcmp(FileOrUnknown(static_cast<const FileTotal*>(a)->szFile),
                               FileOrUnknown(static_cast<const FileTotal*>(b)->szFile));
        }
        // Groups blocks by file text (the same file may come through several pointers).
        // Returns the number of groups in `out`, sorted by file.
        int GroupByFile(const HeapSnapshot& snap, FileTotal* out)
        {
            int n = 0;
            for (int i = 0; i < snap.iCount; ++i) out[n++] = FileTotal{snap.pBlocks[i].szFile, 1, snap.pBlocks[i].uSize};
            std::qsort(out, static_cast<size_t>(n), sizeof(FileTotal), CompareFiles);
            int groups = 0;
            for (int i = 0; i < n; ++i)
            {
                if (groups && CompareFiles(&out[groups - 1], &out[i]) == 0)
                {
                    out[groups - 1].iCount += out[i].iCount;
                    out[groups - 1].iBytes += out[i].iBytes;
                }
                else
                    out[groups++] = out[i];
            }
            return groups;
        }
    }

    void CMemoryManager::SummaryLines(CReport& report)
    {
        int64_t used = 0, peak = 0, overhead = static_cast<int64_t>(sizeof(CMemoryManager));
        int count = 0;
        FileTotal* all = nullptr;
        int files = 0, capacity = 0;
        for (HeapInfo& heap : m_kHeaps)
        {
            if (!heap.m_hHeap) continue;
            HeapSnapshot snap;
            Snapshot(heap, snap);
            used += snap.kStats.iBytesUsed;
            peak += snap.kStats.iPeakBytes;
            count += snap.kStats.iAllocCount;
            overhead += static_cast<int64_t>(snap.uCached);
            if (snap.iCount == 0) continue;
            FileTotal* grown = static_cast<FileTotal*>(std::realloc(all, sizeof(FileTotal) * static_cast<size_t>(capacity + snap.iCount)));
            if (!grown) continue;
            all = grown;
            for (int i = 0; i < snap.iCount; ++i)
            {
                const BlockInfo& b = snap.pBlocks[i];
                all[files++] = FileTotal{b.szFile, 1, b.uSize};
                overhead += static_cast<int64_t>(kHeaderSize + 4);
            }
            capacity += snap.iCount;
        }
        if (all)
        {
            std::qsort(all, static_cast<size_t>(files), sizeof(FileTotal), CompareFiles);
            int distinct = 0;
            for (int i = 0; i < files; ++i)
                if (i == 0 || CompareFiles(&all[i - 1], &all[i]) != 0) ++distinct;
            files = distinct;
            std::free(all);
        }
        if (m_pTagMemory) overhead += static_cast<int64_t>(m_pTagMemory->GetFootprint());
        report.Add("CMemoryManager RAM Used=%dMb\n", ToMb(used));
        report.Add("CMemoryManager Peak RAM Used=%dMb\n", ToMb(peak));
        report.Add("CMemoryManager RAM taken by manager=%dMb\n", ToMb(overhead));
        report.Add("CMemoryManager Numbers of allocation=%d\n", count);
        report.Add("CMemoryManager Num Allocating Files=%d\n", files);
    }

    int CMemoryManager::CheckBufferOverrun()
    {
        CReport report;
        int bad = 0;
        for (HeapInfo& heap : m_kHeaps)
        {
            if (!heap.m_hHeap) continue;
            HeapSnapshot snap;
            Snapshot(heap, snap);
            for (int i = 0; i < snap.iCount; ++i)
            {
                const BlockInfo& b = snap.pBlocks[i];
                if (!b.bBad) continue;
                ++bad;
                report.Add("Buffer Overrun at 0x%x\n", static_cast<unsigned int>(reinterpret_cast<uintptr_t>(b.pPtr)));
                report.Add("    %s(%d) : %u bytes at %p\n", FileOrUnknown(b.szFile), b.iLine, b.uSize, b.pPtr);
            }
        }
        report.Add("Memory Manager Check: %d Buffer Overrun\n", bad);
        report.Flush();
        return bad;
    }

    int CMemoryManager::DisplayLeaks()
    {
        CReport list;
        int count = 0;
        int64_t bytes = 0;
        if (m_pTagMemory) m_pTagMemory->Mutex().Lock();
        for (HeapInfo& heap : m_kHeaps)
        {
            if (!heap.m_hHeap) continue;
            HeapSnapshot snap;
            Snapshot(heap, snap);
            for (int i = 0; i < snap.iCount; ++i)
            {
                const BlockInfo& b = snap.pBlocks[i];
                if (!b.bTagged) continue;
                ++count;
                bytes += b.uSize;
                BlockLine(list, m_pTagMemory, b);
            }
        }
        if (m_pTagMemory) m_pTagMemory->Mutex().Unlock();
        CReport report;
        if (count)
        {
            report.Add("Memory Manager C++ Leaks detected ...\n");
            report.Add("Numbers of allocation : %d (%d bytes)\n", count, static_cast<int>(bytes));
            report.Flush();
            list.Flush();
        }
        else
        {
            report.Add("Memory Manager C++ Leak detected : 0 !!! \n");
            report.Flush();
        }
        return count;
    }

    void CMemoryManager::DisplayAllocs(int minimum)
    {
        CReport report;
        if (m_pTagMemory) m_pTagMemory->Mutex().Lock();
        for (HeapInfo& heap : m_kHeaps)
        {
            if (!heap.m_hHeap) continue;
            HeapSnapshot snap;
            Snapshot(heap, snap);
            if (snap.kStats.iAllocCount == 0) continue;
            report.Add("--- Heap %i ---\n", heap.iIndex);
            for (int i = 0; i < snap.iCount; ++i)
                if (static_cast<int64_t>(snap.pBlocks[i].uSize) >= minimum) BlockLine(report, m_pTagMemory, snap.pBlocks[i]);
            const int64_t used = snap.kStats.iBytesUsed;
            report.Add("Total allocated %8dB (%8dKb) (%8dMb)\n", static_cast<int>(used), ToKb(used), ToMb(used));
        }
        if (m_pTagMemory) m_pTagMemory->Mutex().Unlock();
        SummaryLines(report);
        report.Flush();
    }

    void CMemoryManager::DisplayAllocsByFile(int minimum)
    {
        CReport report;
        for (HeapInfo& heap : m_kHeaps)
        {
            if (!heap.m_hHeap) continue;
            HeapSnapshot snap;
            Snapshot(heap, snap);
            if (snap.kStats.iAllocCount == 0) continue;
            report.Add("--- Heap %i ---\n", heap.iIndex);
            FileTotal* files = snap.iCount ? static_cast<FileTotal*>(std::malloc(sizeof(FileTotal) * static_cast<size_t>(snap.iCount))) : nullptr;
            const int groups = files ? GroupByFile(snap, files) : 0;
            for (int i = 0; i < groups; ++i)
                if (files[i].iBytes >= minimum)
                    report.Add("%s : %d allocations, %d bytes\n", FileOrUnknown(files[i].szFile), files[i].iCount,
                               static_cast<int>(files[i].iBytes));
            std::free(files);
            const int64_t used = snap.kStats.iBytesUsed;
            report.Add("Total allocated %8dB (%8dKb) (%8dMb)\n", static_cast<int>(used), ToKb(used), ToMb(used));
        }
        SummaryLines(report);
        report.Flush();
    }

    void CMemoryManager::DisplayTagMemory()
    {
        CReport report;
        if (m_pTagMemory)
        {
            CMutex& mutex = m_pTagMemory->Mutex();
            mutex.Lock();
            for (int slot = 0; slot < m_pTagMemory->GetCount(); ++slot)
            {
                const int64_t bytes = m_pTagMemory->GetBytes(slot);
                if (m_pTagMemory->HasName(slot))
                    report.Add("Memory tag %s : %lld bytes\n", m_pTagMemory->GetName(slot), static_cast<long long>(bytes));
                else
                    report.Add("Memory tag 0x%08x : %lld bytes\n", m_pTagMemory->GetId(slot), static_cast<long long>(bytes));
            }
            mutex.Unlock();
        }
        report.Flush();
    }

    int64_t CMemoryManager::GetTotalAllocated()
    {
        int64_t total = 0;
        for (HeapInfo& heap : m_kHeaps)
        {
            heap.m_kLock.Lock();
            total += heap.m_iBytesUsed;
            heap.m_kLock.Unlock();
        }
        return total;
    }
}
