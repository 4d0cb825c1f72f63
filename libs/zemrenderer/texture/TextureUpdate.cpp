#include "zemrenderer/texture/TextureUpdate.h"

#include "common/system/memorymanager/MemoryManager.h"

namespace ZemRenderer
{
    TextureUpdateBuffer::TextureUpdateBuffer(size_t capacity)
    {
        if (capacity == 0) return;
        m_pData = static_cast<uint8_t*>(MEM_ALLOC(capacity));
        if (m_pData) m_uCapacity = capacity;
    }

    TextureUpdateBuffer::~TextureUpdateBuffer()
    {
        if (m_pData) MEM_FREE(m_pData);
    }

    uint8_t* TextureUpdateBuffer::AddRegion(const TextureRegion& region)
    {
        if (region.uSize > m_uCapacity - m_uUsed) return nullptr;
        TextureRegion& added = m_aRegions.Add(region);
        added.uOffset = m_uUsed;
        m_uUsed += region.uSize;
        return m_pData + added.uOffset;
    }

    void TextureUpdateBuffer::Reset()
    {
        m_aRegions.Clear();
        m_uUsed = 0;
    }

    TextureUpdateBuffer* ITextureUpdateTarget::AcquireUpdateBuffer(size_t bytes)
    {
        TextureUpdateBuffer* buffer = MEM_NEW(TextureUpdateBuffer, bytes);
        if (buffer && !buffer->IsValid())
        {
            MEM_DELETE(buffer);
            return nullptr;
        }
        return buffer;
    }

    void ITextureUpdateTarget::Discard(TextureUpdateBuffer* buffer) { MEM_DELETE(buffer); }

    TextureUpdateBufferPool::~TextureUpdateBufferPool()
    {
        for (TextureUpdateBuffer* b : m_aFree) MEM_DELETE(b);
    }

    TextureUpdateBuffer* TextureUpdateBufferPool::Acquire(size_t bytes)
    {
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            unsigned int best = m_aFree.GetSize();
            for (unsigned int i = 0; i < m_aFree.GetSize(); ++i)
            {
                const size_t capacity = m_aFree[i]->GetCapacity();
                if (capacity >= bytes && capacity / 2 <= bytes &&
                    (best == m_aFree.GetSize() || capacity < m_aFree[best]->GetCapacity()))
                    best = i;
            }
            if (best < m_aFree.GetSize())
            {
                TextureUpdateBuffer* buffer = m_aFree.Remove(best);
                m_uKept -= buffer->GetCapacity();
                buffer->Reset();
                return buffer;
            }
        }
        TextureUpdateBuffer* buffer = MEM_NEW(TextureUpdateBuffer, bytes);
        if (buffer && !buffer->IsValid())
        {
            MEM_DELETE(buffer);
            return nullptr;
        }
        return buffer;
    }

    void TextureUpdateBufferPool::Give(TextureUpdateBuffer* buffer)
    {
        if (!buffer) return;
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            if (m_uKept + buffer->GetCapacity() <= m_uMaxKept)
            {
                m_aFree.Add(buffer);
                m_uKept += buffer->GetCapacity();
                return;
            }
        }
        MEM_DELETE(buffer);
    }

    size_t TextureUpdateBufferPool::GetKeptBytes() const
    {
        std::lock_guard<std::mutex> lock(m_kMutex);
        return m_uKept;
    }
}
