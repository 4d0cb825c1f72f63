#include "zemrenderer/buffer/Buffer.h"

#include <cstring>
#include <new>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/buffer/BufferReference.h"

namespace ZemRenderer
{
    Buffer* Buffer::Create(BufferReference* reference, uint32_t size, uint32_t offset, uint16_t sub1, uint16_t sub2)
    {
        void* memory = Common::Mem::CMemoryManager::GetInstance()->AllocAligned(
            static_cast<size_t>(kHeadSize) + (size ? size : 1), 16, __FILE__, __LINE__);
        if (!memory) return nullptr;
        Buffer* block = new (memory) Buffer();
        block->m_uiOffset = offset;
        block->m_uiSize = size;
        block->m_usSub1 = sub1;
        block->m_usSub2 = sub2;
        block->m_pReference = reference;
        block->m_pData = static_cast<unsigned char*>(memory) + kHeadSize;
        ZEM_ASSERT((reinterpret_cast<uintptr_t>(block->m_pData) & 15u) == 0,
                   "Buffer Data not 16 bytes aligned ! Check Buffer size or alloc func");
        return block;
    }

    void Buffer::Destroy(Buffer* block)
    {
        if (!block) return;
        block->~Buffer();
        MEM_FREE(block);
    }

    Buffer* Buffer::Clone(const Buffer& block)
    {
        Buffer* copy = Create(block.m_pReference, block.m_uiSize, block.m_uiOffset, block.m_usSub1, block.m_usSub2);
        if (!copy) return nullptr;
        if (block.m_uiSize) std::memcpy(copy->m_pData, block.m_pData, block.m_uiSize);
        copy->m_uiStoredStream = block.m_uiStoredStream;
        copy->m_uiStoredFirst = block.m_uiStoredFirst;
        copy->m_uiStoredCount = block.m_uiStoredCount;
        return copy;
    }

    bool Buffer::IsWhole() const { return m_pReference && m_uiOffset == 0 && m_uiSize == m_pReference->GetSize(); }
}
