#include "common/system/memorymanager/MemoryManager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "common/utils/CMap.h"
#include "common/utils/Hash.h"

using namespace Common::Mem;

namespace
{
    // Most tests use a manager of their own, so that counts and limits are theirs alone.
    std::unique_ptr<CMemoryManager> NewManager() { return std::make_unique<CMemoryManager>(); }

    template <class F>
    void OnThread(F&& f)
    {
        std::thread t(std::forward<F>(f));
        t.join();
    }

    std::string Format(const char* format, unsigned long long value)
    {
        char text[128];
        std::snprintf(text, sizeof(text), format, value);
        return text;
    }
}

TEST(MemoryManager, AlignmentsPutTheHeaderDirectlyInFront)
{
    auto mm = NewManager();
    const size_t alignments[] = {1, 2, 4, 8, 16, 32, 64, 128, 256, 4096, 65536, 1u << 20, MAX_ALIGNMENT};
    const size_t sizes[] = {0, 1, 13, 100};
    for (size_t align : alignments)
        for (size_t size : sizes)
        {
            if (align == MAX_ALIGNMENT && size) continue;  // one huge block is enough
            SCOPED_TRACE(testing::Message() << "align " << align << " size " << size);
            const int line = __LINE__ + 1;
            char* p = static_cast<char*>(mm->AllocAligned(size, align, "align.cpp", line));
            ASSERT_NE(p, nullptr);
            const uintptr_t at = reinterpret_cast<uintptr_t>(p);
            EXPECT_EQ(at % (align < 16 ? 16 : align), 0u);
            EXPECT_EQ(std::memcmp(p - 8, "COMMMEMM", 8), 0);

            const BlockHeader* h = CMemoryManager::GetHeader(p);
            ASSERT_EQ(reinterpret_cast<const char*>(h), p - 60);
            // Copies: the header is packed, its fields cannot be bound by reference.
            const void* const copy = h->m_pPtr;
            const uint32_t recorded = h->m_uSize;
            EXPECT_EQ(copy, p);
            EXPECT_EQ(recorded, size);
            EXPECT_STREQ(h->m_szFile, "align.cpp");
            EXPECT_EQ(h->GetLine(), line);
            EXPECT_EQ(h->GetHeapIndex(), 0);
            // The raw block is size + 4 + alignment + 64 and holds header, data and guard.
            const char* raw = static_cast<const char*>(h->m_pRaw);
            EXPECT_LE(raw, p - 60);
            EXPECT_LE(p + size + 4, raw + size + 4 + align + 64);
            uint32_t guard;
            std::memcpy(&guard, p + size, 4);
            EXPECT_EQ(guard, 0x12345678u);

            std::memset(p, 0xAB, size);
            EXPECT_EQ(mm->Free(p), MEMERR_NONE);
        }
    EXPECT_EQ(mm->GetHeapStats(0).iAllocCount, 0);
    EXPECT_EQ(mm->GetTotalAllocated(), 0);
}

TEST(MemoryManager, BadAlignmentIsReportedAndGivesNull)
{
    auto mm = NewManager();
    for (size_t align : {size_t(0), size_t(3), size_t(24), size_t(48), MAX_ALIGNMENT * 2})
    {
        Common::ScopedLogCapture cap;
        EXPECT_EQ(mm->AllocAligned(32, align, __FILE__, __LINE__), nullptr) << align;
        EXPECT_TRUE(cap.Contains("Bad alignment")) << align;
    }
    {
        Common::ScopedLogCapture cap;
        EXPECT_EQ(mm->Alloc(size_t(1) << 33, __FILE__, __LINE__), nullptr);  // a header holds 32 bits of size
        EXPECT_STREQ(mm->GetErrorText(), "Not enough memory");
        EXPECT_TRUE(cap.Contains("Assertion"));
    }
    EXPECT_EQ(mm->GetHeapStats(0).iAllocCount, 0);
}

TEST(MemoryManager, OneByteOverrunIsFoundByCheckAndAtFree)
{
    auto mm = NewManager();
    char* good = static_cast<char*>(mm->Alloc(32, __FILE__, __LINE__));
    char* bad = static_cast<char*>(mm->Alloc(10, __FILE__, __LINE__));
    std::memset(good, 1, 32);
    bad[10] = 0;
    {
        Common::ScopedLogCapture cap;
        EXPECT_EQ(mm->CheckBufferOverrun(), 1);
        const std::string line = Format("Buffer Overrun at 0x%llx\n", static_cast<unsigned int>(reinterpret_cast<uintptr_t>(bad)));
        EXPECT_TRUE(cap.Contains(line.c_str())) << cap.Text();
        EXPECT_TRUE(cap.Contains("Memory Manager Check: 1 Buffer Overrun\n"));
    }
    {
        Common::ScopedLogCapture cap;
        EXPECT_EQ(mm->Free(bad), MEMERR_NONE);
        EXPECT_TRUE(cap.Contains("BUFFER_OVERRUN"));
    }
    // The block was freed all the same.
    EXPECT_EQ(mm->GetHeapStats(0).iAllocCount, 1);
    Common::ScopedLogCapture cap;
    EXPECT_EQ(mm->CheckBufferOverrun(), 0);
    EXPECT_TRUE(cap.Contains("Memory Manager Check: 0 Buffer Overrun\n"));
    EXPECT_EQ(mm->Free(good), MEMERR_NONE);
}

TEST(MemoryManager, ConcurrentFreesIntoOneHeapKeepItsListWhole)
{
    auto mm = NewManager();
    constexpr int kBlocks = 4000;
    std::vector<void*> blocks(kBlocks);
    int heap = 0;
    OnThread([&] {
        heap = mm->InitThread();
        for (int i = 0; i < kBlocks; ++i) blocks[i] = mm->Alloc(16 + i % 300, __FILE__, __LINE__);
    });
    // Two threads free into the owner's heap while a third keeps allocating there.
    std::latch start(3);
    std::vector<void*> extra;
    std::thread a([&] {
        start.arrive_and_wait();
        for (int i = 0; i < kBlocks; i += 2) mm->Free(blocks[i]);
    });
    std::thread b([&] {
        start.arrive_and_wait();
        for (int i = 1; i < kBlocks; i += 2) mm->Free(blocks[i]);
    });
    std::thread c([&] {
        HeapInfo* owners = mm->GetHeap(heap);
        start.arrive_and_wait();
        for (int i = 0; i < 1000; ++i) extra.push_back(mm->AllocAligned(24, 16, __FILE__, __LINE__, owners));
    });
    a.join();
    b.join();
    c.join();
    EXPECT_GT(heap, 0);
    EXPECT_EQ(mm->GetHeapStats(heap).iAllocCount, 1000);
    EXPECT_EQ(mm->GetHeapStats(heap).iBytesUsed, 24000);
    EXPECT_EQ(mm->GetHeapStats(0).iAllocCount, 0);
    EXPECT_EQ(mm->CheckBufferOverrun(), 0);
    for (void* p : extra) EXPECT_EQ(mm->Free(p), MEMERR_NONE);
    EXPECT_EQ(mm->GetTotalAllocated(), 0);
}

TEST(MemoryManager, ReallocOnAnotherThreadIsReportedAndKeepsTheData)
{
    auto mm = NewManager();
    char* p = nullptr;
    int heap = 0;
    OnThread([&] {
        heap = mm->InitThread();
        p = static_cast<char*>(mm->Alloc(64, __FILE__, __LINE__));
        for (int i = 0; i < 64; ++i) p[i] = static_cast<char>(i);
    });
    Common::ScopedLogCapture cap;
    char* q = static_cast<char*>(mm->Realloc(p, 4000, __FILE__, __LINE__));
    EXPECT_TRUE(cap.Contains("Realloc must be on the same thread as malloc call"));
    ASSERT_NE(q, nullptr);
    for (int i = 0; i < 64; ++i) ASSERT_EQ(q[i], static_cast<char>(i));
    EXPECT_EQ(CMemoryManager::GetHeader(q)->GetHeapIndex(), heap);
    EXPECT_EQ(mm->GetHeapStats(heap).iBytesUsed, 4000);
    EXPECT_EQ(mm->Free(q), MEMERR_NONE);

    // On its own thread there is nothing to report.
    cap.Clear();
    void* r = mm->Alloc(8, __FILE__, __LINE__);
    r = mm->Realloc(r, 16, __FILE__, __LINE__);
    EXPECT_FALSE(cap.Contains("Realloc must be on the same thread"));
    EXPECT_EQ(mm->Free(r), MEMERR_NONE);
}

TEST(MemoryManager, SeventeenthThreadMeetsTheTagListLimit)
{
    auto mm = NewManager();
    std::latch pushed(MAX_HEAPS + 1);
    std::latch done(1);
    std::vector<std::thread> threads;
    std::atomic<int> ok{0};
    for (int i = 0; i < MAX_HEAPS; ++i)
        threads.emplace_back([&] {
            MemoryTag tag("Worker", mm.get());
            if (mm->GetThreadTagList()) ++ok;
            pushed.count_down();
            done.wait();
        });
    pushed.arrive_and_wait();
    EXPECT_EQ(ok.load(), MAX_HEAPS);
    EXPECT_EQ(mm->GetNumTagLists(), MAX_HEAPS);
    {
        Common::ScopedLogCapture cap;
        bool pushedSeventeenth = true;
        OnThread([&] { pushedSeventeenth = mm->PushTag("OneTooMany"); });
        EXPECT_FALSE(pushedSeventeenth);
        EXPECT_TRUE(cap.Contains(
            "Limit of thread reached for MmeoryManager Tag identification. Increase MAX_HEAPS define"));
    }
    done.count_down();
    for (auto& t : threads) t.join();
    // Lists of threads that ended are free again.
    EXPECT_EQ(mm->GetNumTagLists(), 0);
    bool again = false;
    OnThread([&] {
        again = mm->PushTag("Later");
        if (again) mm->PopTag();
    });
    EXPECT_TRUE(again);
}

TEST(MemoryManager, HeapsBeyondTheLimitFallBackToHeapZero)
{
    auto mm = NewManager();
    std::latch ready(MAX_HEAPS);
    std::latch done(1);
    std::vector<std::thread> threads;
    std::vector<int> indices(MAX_HEAPS - 1);
    for (int i = 0; i < MAX_HEAPS - 1; ++i)
        threads.emplace_back([&, i] {
            indices[i] = mm->InitThread();
            ready.count_down();
            done.wait();
        });
    ready.arrive_and_wait();
    std::sort(indices.begin(), indices.end());
    for (int i = 0; i < MAX_HEAPS - 1; ++i) EXPECT_EQ(indices[i], i + 1);
    EXPECT_EQ(mm->GetNumHeaps(), MAX_HEAPS);
    int extra = -1;
    void* p = nullptr;
    {
        Common::ScopedLogCapture cap;
        OnThread([&] {
            extra = mm->InitThread();
            p = mm->Alloc(8, __FILE__, __LINE__);
        });
        EXPECT_TRUE(cap.Contains("Limit of thread reached"));
    }
    EXPECT_EQ(extra, 0);
    EXPECT_EQ(CMemoryManager::GetHeader(p)->GetHeapIndex(), 0);
    EXPECT_EQ(mm->Free(p), MEMERR_NONE);
    done.count_down();
    for (auto& t : threads) t.join();
    EXPECT_EQ(mm->GetNumHeaps(), 1);
    int reused = 0;
    OnThread([&] { reused = mm->InitThread(); });
    EXPECT_GT(reused, 0);
}

TEST(MemoryManager, LeakReportCountsTaggedBlocksOnly)
{
    auto mm = NewManager();
    std::vector<void*> blocks;
    void* untagged = nullptr;
    OnThread([&] { untagged = mm->Alloc(1000, __FILE__, __LINE__); });  // a thread that never tags
    OnThread([&] {
        MemoryTag tag("LeakTest", mm.get());
        for (int size : {10, 20, 30}) blocks.push_back(mm->Alloc(static_cast<size_t>(size), "leaky.cpp", size));
    });
    {
        Common::ScopedLogCapture cap;
        EXPECT_EQ(mm->DisplayLeaks(), 3);
        EXPECT_TRUE(cap.Contains("Memory Manager C++ Leaks detected ...\n"));
        EXPECT_TRUE(cap.Contains("Numbers of allocation : 3 (60 bytes)\n")) << cap.Text();
        EXPECT_TRUE(cap.Contains("leaky.cpp(20) : 20 bytes at "));
        EXPECT_TRUE(cap.Contains("[LeakTest]"));
        EXPECT_FALSE(cap.Contains("(1000 bytes"));
    }
    for (void* p : blocks) EXPECT_EQ(mm->Free(p), MEMERR_NONE);
    Common::ScopedLogCapture cap;
    EXPECT_EQ(mm->DisplayLeaks(), 0);
    EXPECT_TRUE(cap.Contains("Memory Manager C++ Leak detected : 0 !!! \n"));
    EXPECT_EQ(mm->Free(untagged), MEMERR_NONE);
}

TEST(MemoryManager, NestedTagsChargeEveryTagOfTheStack)
{
    auto mm = NewManager();
    void* outerBlock = nullptr;
    void* innerBlock = nullptr;
    void* afterPop = nullptr;
    void* grown = nullptr;
    OnThread([&] {
        MemoryTag outer("Outer", mm.get());
        outerBlock = mm->Alloc(100, __FILE__, __LINE__);
        {
            MemoryTag inner("Inner", mm.get());
            MemoryTag again("Outer", mm.get());  // a tag nested in itself is charged once
            innerBlock = mm->Alloc(50, __FILE__, __LINE__);
        }
        afterPop = mm->Alloc(7, __FILE__, __LINE__);
        grown = mm->Alloc(10, __FILE__, __LINE__);
        grown = mm->Realloc(grown, 30, __FILE__, __LINE__);
    });
    EXPECT_EQ(mm->GetTagMemory("Outer"), 100 + 50 + 7 + 30);
    EXPECT_EQ(mm->GetTagMemory("Inner"), 50);
    EXPECT_EQ(mm->GetTagMemory(GenerateUIntIdFromString("Inner")), 50);

    // Freed on another thread, under the stack stored in the block.
    EXPECT_EQ(mm->Free(innerBlock), MEMERR_NONE);
    EXPECT_EQ(mm->GetTagMemory("Inner"), 0);
    EXPECT_EQ(mm->GetTagMemory("Outer"), 137);
    for (void* p : {outerBlock, afterPop, grown}) EXPECT_EQ(mm->Free(p), MEMERR_NONE);
    EXPECT_EQ(mm->GetTagMemory("Outer"), 0);

    // Every stack seen is kept, by the hash of its tags.
    const unsigned int stack[3] = {GenerateUIntIdFromString("Outer"), GenerateUIntIdFromString("Inner"),
                                   GenerateUIntIdFromString("Outer")};
    const unsigned int id = GenerateUIntIdFromBuffer(stack, sizeof(stack));
    mm->GetTagListMutex().Lock();
    const TagList found = mm->GetTagListMap()->Find(id);
    mm->GetTagListMutex().Unlock();
    EXPECT_EQ(found.m_uId, id);
    ASSERT_EQ(found.m_uCount, 3u);
    EXPECT_EQ(found.m_aTags[1], stack[1]);
}

TEST(MemoryManager, ClearTagsEmptiesTheStack)
{
    auto mm = NewManager();
    void* p = nullptr;
    bool popRefused = false;
    OnThread([&] {
        mm->PushTag("A");
        mm->PushTag("B");
        mm->ClearTags();
        EXPECT_EQ(mm->GetThreadTagList()->m_uCount, 0u);
        EXPECT_EQ(mm->GetThreadTagList()->m_uId, 0u);
        p = mm->Alloc(64, __FILE__, __LINE__);
        Common::ScopedLogCapture cap;
        mm->PopTag();
        popRefused = cap.Contains("PopTag without a tag");
    });
    EXPECT_TRUE(popRefused);
    EXPECT_EQ(mm->GetTagMemory("A"), 0);
    EXPECT_EQ(mm->GetTagMemory("B"), 0);
    EXPECT_EQ(CMemoryManager::GetHeader(p)->m_uTagListId, 0u);
    EXPECT_EQ(mm->Free(p), MEMERR_NONE);
}

TEST(MemoryManager, TagTablesDoNotChargeThemselves)
{
    // The process's manager: its tag tables are blocks of its own heaps.
    CMemoryManager* mm = CMemoryManager::GetInstance();
    const int64_t before = mm->GetTotalAllocated();
    OnThread([&] {
        MemoryTag tag("TagTablesSelf", mm);
        // Many distinct stacks make the tables grow while the tag is active.
        for (unsigned int i = 0; i < 300; ++i)
        {
            mm->PushTagId(1000 + i);
            mm->PopTag();
        }
    });
    EXPECT_EQ(mm->GetTagMemory("TagTablesSelf"), 0);
    EXPECT_GT(mm->GetTotalAllocated(), before);  // the tables did grow
}

TEST(MemoryManager, AdoptedManagerSharesBlocksAndTags)
{
    CMemoryManager* previous = CMemoryManager::GetInstance();
    auto host = NewManager();
    CMemoryManager::SetInstance(host.get());
    ASSERT_EQ(CMemoryManager::GetInstance(), host.get());
    void* p = nullptr;
    int* object = nullptr;
    {
        MemoryTag tag("Plugin");
        p = MEM_ALLOC(40);
        object = MEM_NEW(int, 42);
    }
    CMemoryManager::SetInstance(previous);
    const HeapStats made = host->GetHeapStats(0);
    EXPECT_EQ(host->GetTagMemory("Plugin"), 40 + static_cast<int64_t>(sizeof(int)));
    EXPECT_EQ(*object, 42);
    // The host frees what the adopting side made.
    EXPECT_EQ(host->Free(p), MEMERR_NONE);
    EXPECT_EQ(host->Free(object), MEMERR_NONE);
    EXPECT_EQ(host->GetTagMemory("Plugin"), 0);
    EXPECT_EQ(host->GetHeapStats(0).iAllocCount, made.iAllocCount - 2);
    EXPECT_EQ(host->GetTotalAllocated(), made.iBytesUsed - 40 - static_cast<int64_t>(sizeof(int)));
}

TEST(MemoryManager, ReallocMovesAndKeepsContents)
{
    auto mm = NewManager();
    const struct
    {
        size_t align;
        size_t from;
        size_t to;
    } cases[] = {{16, 10, 20}, {16, 100, 5000}, {16, 5000, 100}, {16, 64, 64}, {16, 1, 0},
                 {4096, 300, 600}, {4096, 300, 10}, {65536, 2000, 100000}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.align << ": " << c.from << " -> " << c.to);
        unsigned char* p = static_cast<unsigned char*>(mm->AllocAligned(c.from, c.align, __FILE__, __LINE__));
        for (size_t i = 0; i < c.from; ++i) p[i] = static_cast<unsigned char>(i * 7 + 3);
        Common::ScopedLogCapture cap;
        unsigned char* q = static_cast<unsigned char*>(mm->Realloc(p, c.to, "moved.cpp", 77));
        ASSERT_NE(q, nullptr);
        EXPECT_EQ(cap.Text(), "");
        EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 16, 0u);
        const size_t keep = c.from < c.to ? c.from : c.to;
        for (size_t i = 0; i < keep; ++i) ASSERT_EQ(q[i], static_cast<unsigned char>(i * 7 + 3)) << i;
        const BlockHeader* h = CMemoryManager::GetHeader(q);
        ASSERT_NE(h, nullptr);
        const uint32_t recorded = h->m_uSize;
        EXPECT_EQ(recorded, c.to);
        EXPECT_STREQ(h->m_szFile, "moved.cpp");
        EXPECT_EQ(h->GetLine(), 77);
        EXPECT_EQ(mm->GetHeapStats(0).iBytesUsed, static_cast<int64_t>(c.to));
        EXPECT_EQ(mm->CheckBufferOverrun(), 0);
        EXPECT_EQ(mm->Free(q), MEMERR_NONE);
    }
    // Null is an allocation; a pointer the manager does not know comes back as it is.
    void* fresh = mm->Realloc(nullptr, 24, __FILE__, __LINE__);
    ASSERT_NE(CMemoryManager::GetHeader(fresh), nullptr);
    EXPECT_EQ(mm->Free(fresh), MEMERR_NONE);
    void* foreign = std::malloc(32);
    EXPECT_EQ(mm->Realloc(foreign, 64, __FILE__, __LINE__), foreign);
    std::free(foreign);
}

TEST(MemoryManager, ForeignAndDamagedPointersAreRefused)
{
    auto mm = NewManager();
    EXPECT_EQ(mm->Free(nullptr), MEMERR_NONE);
    {
        void* foreign = std::malloc(32);
        Common::ScopedLogCapture cap;
        EXPECT_EQ(mm->Free(foreign), MEMERR_INVALID_POINTER);
        EXPECT_TRUE(cap.Contains("Memory not-allocated with MemoryManager. This should not happen."));
        EXPECT_STREQ(mm->GetErrorText(), "Invalid pointer");
        // Given a heap, it is freed there (the sanitizer would see a leak otherwise).
        cap.Clear();
        EXPECT_EQ(mm->Free(foreign, mm->GetThreadHeap()), MEMERR_INVALID_POINTER);
        EXPECT_FALSE(cap.Contains("not-allocated"));
    }
    {
        void* p = mm->Alloc(16, __FILE__, __LINE__);
        EXPECT_EQ(mm->Free(p), MEMERR_NONE);
        Common::ScopedLogCapture cap;
        EXPECT_EQ(mm->Free(p), MEMERR_INVALID_POINTER);  // twice
        EXPECT_TRUE(cap.Contains("not-allocated"));
        EXPECT_EQ(mm->GetHeapStats(0).iAllocCount, 0);
    }
    {
        void* p = mm->Alloc(16, __FILE__, __LINE__);
        BlockHeader* h = const_cast<BlockHeader*>(CMemoryManager::GetHeader(p));
        void* saved = h->m_pPtr;
        h->m_pPtr = static_cast<char*>(p) + 1;
        Common::ScopedLogCapture cap;
        EXPECT_EQ(mm->Free(p), MEMERR_INVALID_POINTER);
        EXPECT_TRUE(cap.Contains("Internal memroy manager error"));
        EXPECT_EQ(mm->Realloc(p, 32, __FILE__, __LINE__), nullptr);
        h->m_pPtr = saved;

        const uint32_t packed = h->m_uPacked;
        h->m_uPacked = BlockHeader::Pack(h->GetLine(), 99, h->IsTagged());
        cap.Clear();
        EXPECT_EQ(mm->Realloc(p, 32, __FILE__, __LINE__), nullptr);
        EXPECT_TRUE(cap.Contains("Fucked heap index 99"));
        EXPECT_EQ(mm->Free(p), MEMERR_INVALID_POINTER);
        h->m_uPacked = packed;
        EXPECT_EQ(mm->Free(p), MEMERR_NONE);
    }
}

TEST(MemoryManager, AllocationReportsByFile)
{
    auto mm = NewManager();
    void* a = mm->Alloc(1000, "alpha.cpp", 1);
    void* b = mm->Alloc(2000, "alpha.cpp", 2);
    void* c = mm->Alloc(30, "beta.cpp", 3);
    EXPECT_EQ(mm->GetTotalAllocated(), 3030);
    {
        Common::ScopedLogCapture cap;
        mm->DisplayAllocsByFile(100);
        EXPECT_TRUE(cap.Contains("--- Heap 0 ---\n"));
        EXPECT_TRUE(cap.Contains("alpha.cpp : 2 allocations, 3000 bytes\n")) << cap.Text();
        EXPECT_FALSE(cap.Contains("beta.cpp"));  // under the minimum
        EXPECT_TRUE(cap.Contains("CMemoryManager Numbers of allocation=3\n"));
        EXPECT_TRUE(cap.Contains("CMemoryManager Num Allocating Files=2\n"));
    }
    {
        Common::ScopedLogCapture cap;
        mm->DisplayAllocs(1500);
        EXPECT_TRUE(cap.Contains("alpha.cpp(2) : 2000 bytes at "));
        EXPECT_FALSE(cap.Contains("alpha.cpp(1)"));
    }
    for (void* p : {a, b, c}) mm->Free(p);
    EXPECT_EQ(mm->GetHeapStats(0).iPeakBytes, 3030);
}

