#include "zemrenderer/buffer/InputLayout.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "zemrenderer/serialization/Serializer.h"

namespace ZemRenderer
{
    uint32_t GetInputElementTypeSize(uint32_t type)
    {
        switch (type)
        {
        case IET_FLOAT:
        case IET_INT:
        case IET_UINT_INDEX: return 4;
        case IET_FLOAT2: return 8;
        case IET_FLOAT3: return 12;
        case IET_FLOAT4: return 16;
        case IET_MATRIX: return 64;
        default: return 0;
        }
    }

    void InputElementDesc::Serialize(Serializer& s)
    {
        s.GetManager().MoveBytes(szSemantic, kSemanticSize);
        s.Serialize(uiOffset);
        s.Serialize(uiType);
        s.Serialize(uiQuantity);
    }

    InputLayout* InputLayout::Create(const InputElementDesc* elements, uint32_t count)
    {
        if (!ZEM_ASSERT(elements != nullptr && count > 0, "Input layout needs elements")) return nullptr;
        if (!ZEM_ASSERT(count <= kMaxElements, "Input layout of %u elements : should be < %u", count, kMaxElements + 1))
            return nullptr;
        InputLayout* layout = MEM_NEW(InputLayout);
        if (!layout) return nullptr;
        layout->m_numelements = count;
        for (uint32_t i = 0; i < count; ++i) layout->m_aElements[i] = elements[i];
        if (!layout->Build())
        {
            MEM_DELETE(layout);
            return nullptr;
        }
        return layout;
    }

    InputLayout* InputLayout::Create(const char* semantic, uint32_t type, uint32_t quantity)
    {
        InputElementDesc element;
        std::strncpy(element.szSemantic, semantic ? semantic : "", InputElementDesc::kSemanticSize - 1);
        element.uiType = type;
        element.uiQuantity = quantity;
        element.uiOffset = 0;
        return Create(&element, 1);
    }

    bool InputLayout::Build()
    {
        uint32_t next = 0;
        uint32_t end = 0;
        for (uint32_t i = 0; i < m_numelements; ++i)
        {
            InputElementDesc& e = m_aElements[i];
            e.szSemantic[InputElementDesc::kSemanticSize - 1] = '\0';
            const uint32_t typeSize = GetInputElementTypeSize(e.uiType);
            if (!ZEM_ASSERT(typeSize != 0, "Unknown format ! (element %s type %u)", e.szSemantic, e.uiType)) return false;
            if (!ZEM_ASSERT(e.uiQuantity >= 1 && e.uiQuantity <= 256, "Bad quantity %u for element %s", e.uiQuantity,
                            e.szSemantic))
                return false;
            if (e.uiOffset == InputElementDesc::kAppend) e.uiOffset = next;
            const uint64_t elementEnd = static_cast<uint64_t>(e.uiOffset) + typeSize * e.uiQuantity;
            if (!ZEM_ASSERT(elementEnd <= 0xFFFFu, "Element %s lies beyond any vertex", e.szSemantic)) return false;
            m_auOffsets[i] = e.uiOffset;
            next = static_cast<uint32_t>(elementEnd);
            if (next > end) end = next;
        }
        m_stride = end;
        m_uiAllElementsId = GenerateUIntIdFromBuffer(m_aElements, sizeof(InputElementDesc) * m_numelements);
        return true;
    }

    void InputLayout::Release()
    {
        if (m_iRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1) MEM_DELETE(this);
    }

    void InputLayout::Destroy(InputLayout* layout)
    {
        if (!layout) return;
        if (!ZEM_ASSERT(layout->GetRefCount() == 0, "Input layout still held %i times", layout->GetRefCount())) return;
        MEM_DELETE(layout);
    }

    int InputLayout::GetOffsetAndSize(const char* name, uint32_t& size, uint32_t index) const
    {
        size = 0;
        if (!name) return -1;
        uint32_t seen = 0;
        for (uint32_t i = 0; i < m_numelements; ++i)
        {
            const InputElementDesc& e = m_aElements[i];
            if (std::strcmp(e.szSemantic, name) != 0) continue;
            if (seen++ != index) continue;
            size = GetInputElementTypeSize(e.uiType) * e.uiQuantity;
            return static_cast<int>(m_auOffsets[i]);
        }
        ZEM_ASSERT(seen == 0 || index < seen, "Invalid index for GetOffsetAndSize layout");
        return -1;
    }

    int InputLayout::GetOffset(uint32_t element) const
    {
        if (!ZEM_ASSERT(element < m_numelements, "Invalid index for GetOffsetAndSize layout")) return -1;
        return static_cast<int>(m_auOffsets[element]);
    }

    void InputLayout::Serialize(Serializer& s)
    {
        SerializationManager& m = s.GetManager();
        uint32_t count = m_numelements;
        m.MoveRaw(&count, sizeof(count));
        if (m.HasFailed()) return;
        if (s.IsLoading())
        {
            if (count == 0 || count > kMaxElements)
                return m.Fail("Input layout of %u elements in Zemora Engine File!", count);
            m_numelements = count;
        }
        for (uint32_t i = 0; i < count && !m.HasFailed(); ++i) m_aElements[i].Serialize(s);
        if (s.IsLoading() && !m.HasFailed() && !Build()) m.Fail("Input layout in Zemora Engine File is not valid!");
    }
}
