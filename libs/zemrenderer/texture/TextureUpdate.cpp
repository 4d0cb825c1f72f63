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
}
