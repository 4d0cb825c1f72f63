#pragma once
// A pool of equal blocks carved from chunks. A chunk stays with its pool until Clear;
// free blocks are chained through their first bytes, the last freed handed out first.
#include <cstdint>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "common/utils/TArray.h"
#include "common/utils/pool/PoolGrowth.h"

namespace Common
{
    template <class Growth = Pool::CPoolGrowthConstantN<16>>
    class PoolMemory
    {
        struct CFreeBlock
        {
            CFreeBlock* pNext;
        };

    public:
        // `alignment` is the alignment of every block (a power of two); the link of a free
        // block needs at least that of a pointer.
        explicit PoolMemory(unsigned int uiSize, size_t alignment = alignof(void*), Growth growth = Growth(),
                            const char* file = __builtin_FILE(), int line = __builtin_LINE())
            : m_kGrowth(std::move(growth)),
              m_uiAlignment(alignment < alignof(CFreeBlock) ? alignof(CFreeBlock) : alignment), m_szFile(file),
              m_iLine(line)
        {
            if (!ZEM_ASSERT(uiSize >= sizeof(CFreeBlock*), "Block size %u raised to %u", uiSize,
                            static_cast<unsigned int>(sizeof(CFreeBlock*))))
                uiSize = sizeof(CFreeBlock*);
            m_uiBlockSize = static_cast<unsigned int>((uiSize + m_uiAlignment - 1) / m_uiAlignment * m_uiAlignment);
            AddChunk(m_kGrowth.GetInitialCount());
        }
        PoolMemory(const PoolMemory&) = delete;
        PoolMemory& operator=(const PoolMemory&) = delete;
        ~PoolMemory() { Clear(); }

        void* Allocate()
        {
            if (!m_pFreeList)
            {
                AddChunk(m_kGrowth.GetGrowth(m_uiNbBlocksUsed));
                if (!m_pFreeList) return nullptr;
            }
            CFreeBlock* block = m_pFreeList;
            m_pFreeList = block->pNext;
            ++m_uiNbBlocksUsed;
            return block;
        }

        // False when the block cannot be this pool's.
        bool Free(void* block)
        {
            if (!block) return true;
            if (!ZEM_ASSERT(m_uiNbBlocksUsed != 0, "This memory chunk wasn't allocated by this pool !")) return false;
            --m_uiNbBlocksUsed;
            CFreeBlock* b = static_cast<CFreeBlock*>(block);
            b->pNext = m_pFreeList;
            m_pFreeList = b;
            return true;
        }

        // Gives every chunk back. With blocks in use the chunks are only forgotten, so
        // that the blocks still held stay valid.
        void Clear()
        {
            if (!ZEM_ASSERT(m_uiNbBlocksUsed == 0, "Memory pool chunks are still in use !"))
            {
                m_aChunks.Clear();
                return;
            }
            for (void* chunk : m_aChunks) Mem::CMemoryManager::GetInstance()->Free(chunk);
            m_aChunks.ClearAndFree();
            m_pFreeList = nullptr;
            m_uiNbBlocks = 0;
        }

        unsigned int GetBlockSize() const { return m_uiBlockSize; }
        unsigned int GetUsedCount() const { return m_uiNbBlocksUsed; }
        unsigned int GetBlockCount() const { return m_uiNbBlocks; }
        unsigned int GetChunkCount() const { return m_aChunks.GetSize(); }
        const Growth& GetGrowthPolicy() const { return m_kGrowth; }

    private:
        void AddChunk(unsigned int n)
        {
            if (n < 1) return;
            char* chunk = nullptr;
            // Short of memory, settle for fewer blocks.
            for (; n >= 1; --n)
            {
                chunk = static_cast<char*>(Mem::CMemoryManager::GetInstance()->AllocAligned(
                    static_cast<size_t>(n) * m_uiBlockSize, m_uiAlignment < 16 ? 16 : m_uiAlignment, m_szFile,
                    m_iLine));
                if (chunk) break;
            }
            if (!chunk) return;
            m_uiNbBlocks += n;
            for (unsigned int i = n; i-- > 0;)
            {
                CFreeBlock* b = reinterpret_cast<CFreeBlock*>(chunk + static_cast<size_t>(i) * m_uiBlockSize);
                b->pNext = m_pFreeList;
                m_pFreeList = b;
            }
            m_aChunks.Add(chunk, AllocSite(Mem::Location{m_szFile, m_iLine, nullptr}));
        }

        unsigned int m_uiBlockSize = 0;
        ZemRenderer::TArray<void*> m_aChunks;
        CFreeBlock* m_pFreeList = nullptr;
        Growth m_kGrowth;
        unsigned int m_uiNbBlocksUsed = 0;
        unsigned int m_uiNbBlocks = 0;
        size_t m_uiAlignment;
        const char* m_szFile;
        int m_iLine;
    };
}
