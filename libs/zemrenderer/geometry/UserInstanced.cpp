#include "zemrenderer/geometry/UserInstanced.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/buffer/InputLayout.h"

namespace ZemRenderer
{
    UserInstanced::~UserInstanced()
    {
        if (m_Datas.pData) MEM_FREE(m_Datas.pData);
        if (m_pDataLayout) m_pDataLayout->Release();
    }

    bool UserInstanced::SetDataLayout(InputLayout* layout)
    {
        if (!ZEM_ASSERT(m_pDataLayout == nullptr, "Data layout already declared !")) return false;
        if (!ZEM_ASSERT(layout != nullptr && layout->GetStride() > 0, "Data layout needs elements")) return false;
        layout->AddRef();
        m_pDataLayout = layout;
        return true;
    }

    bool UserInstanced::AllocateData(uint32_t count)
    {
        if (!ZEM_ASSERT(m_pDataLayout != nullptr, "Data layout needs to be declared before its data")) return false;
        if (!ZEM_ASSERT(m_Datas.pData == nullptr, "UserInstancing Data buffer already allocated with size %i !",
                        static_cast<int>(m_Datas.uiSize)))
            return false;
        const uint64_t size = static_cast<uint64_t>(count) * m_pDataLayout->GetStride();
        void* data = size && size < 0x80000000ull ? MEM_ALLOC(size) : nullptr;
        if (!ZEM_ASSERT(data != nullptr, "Data buffer allocation problem !")) return false;
        std::memset(data, 0, size);
        m_Datas.pData = static_cast<unsigned char*>(data);
        m_Datas.uiSize = static_cast<uint32_t>(size);
        m_Datas.uiCount = count;
        return true;
    }

    bool UserInstanced::SetData(const void* bytes, uint32_t count)
    {
        if (!ZEM_ASSERT(m_Datas.pData != nullptr && bytes != nullptr, "Data buffer allocation problem !")) return false;
        if (!ZEM_ASSERT(count <= m_Datas.uiCount, "UserInstancing Data buffer already allocated with size %i !",
                        static_cast<int>(m_Datas.uiSize)))
            count = m_Datas.uiCount;
        std::memcpy(m_Datas.pData, bytes, static_cast<size_t>(count) * m_pDataLayout->GetStride());
        m_uiQuantity = count;
        return true;
    }

    void UserInstanced::SetQuantity(uint32_t quantity) { m_uiQuantity = quantity < m_Datas.uiCount ? quantity : m_Datas.uiCount; }

    bool UserInstanced::UpdateInstance(void* dest, const InputLayout& destLayout, uint32_t first, uint32_t count) const
    {
        if (!m_pDataLayout || !dest) return false;
        if (static_cast<uint64_t>(first) + count > m_uiQuantity) return false;
        const uint32_t srcStride = m_pDataLayout->GetStride();
        const uint32_t dstStride = destLayout.GetStride();
        const unsigned char* src = m_Datas.pData + static_cast<size_t>(first) * srcStride;
        unsigned char* out = static_cast<unsigned char*>(dest);
        if (m_pDataLayout->IsSameAs(destLayout) && srcStride == dstStride)
        {
            std::memcpy(out, src, static_cast<size_t>(count) * srcStride);
            return true;
        }
        // One copy command per element of the destination, found by semantic.
        struct Copy
        {
            uint32_t uiSrc, uiDst, uiSize;
        } commands[InputLayout::kMaxElements];
        uint32_t commandCount = 0;
        for (uint32_t e = 0; e < destLayout.GetNumElements(); ++e)
        {
            const InputElementDesc& element = destLayout.GetElement(e);
            uint32_t index = 0;
            for (uint32_t k = 0; k < e; ++k)
                if (std::strcmp(destLayout.GetElement(k).szSemantic, element.szSemantic) == 0) ++index;
            uint32_t srcSize = 0;
            const int srcOffset = m_pDataLayout->GetOffsetAndSize(element.szSemantic, srcSize, index);
            const uint32_t dstSize = GetInputElementTypeSize(element.uiType) * element.uiQuantity;
            if (srcOffset < 0 || srcSize != dstSize) return false;
            commands[commandCount++] = {static_cast<uint32_t>(srcOffset), static_cast<uint32_t>(destLayout.GetOffset(e)),
                                        dstSize};
        }
        for (uint32_t i = 0; i < count; ++i, src += srcStride, out += dstStride)
            for (uint32_t c = 0; c < commandCount; ++c)
                std::memcpy(out + commands[c].uiDst, src + commands[c].uiSrc, commands[c].uiSize);
        return true;
    }
}
