#pragma once
// The shape of one vertex (or instance) of a stream: named elements at byte offsets,
// and the stride from one vertex to the next. Layouts are shared by the buffer
// references that use them and counted: the last reference that lets go frees it.
#include <atomic>
#include <cstdint>

#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class Serializer;

    // Type codes of elements.
    enum InputElementType : uint32_t
    {
        IET_FLOAT = 114,
        IET_FLOAT2 = 115,
        IET_FLOAT4 = 116,
        IET_INT = 10021,
        IET_UINT_INDEX = 10111,
        IET_FLOAT3 = 10115,
        IET_MATRIX = 20002,
    };

    // Bytes of one element of a type code, 0 for a code that is not one.
    uint32_t GetInputElementTypeSize(uint32_t type);

    // 44 bytes: the semantic text, the offset, the type code, the quantity (array length).
    struct InputElementDesc
    {
        static constexpr uint32_t kSemanticSize = 32;
        // An offset that follows the element before.
        static constexpr uint32_t kAppend = 0xFFFFFFFFu;

        char szSemantic[kSemanticSize] = {};
        uint32_t uiOffset = kAppend;
        uint32_t uiType = IET_FLOAT4;
        uint32_t uiQuantity = 1;

        void Serialize(Serializer& serializer);
    };
    static_assert(sizeof(InputElementDesc) == 44, "an input element is 44 bytes");

    class InputLayout
    {
    public:
        ZEM_SERIALIZABLE_CLASS("ZemRenderer::InputLayout")
        // Shaders take at most 31 elements per vertex.
        static constexpr uint32_t kMaxElements = 31;

        // A layout of the given elements, its offsets filled where they follow on, with a
        // count of 0; null (with a report) for a bad element list.
        static InputLayout* Create(const InputElementDesc* elements, uint32_t count);
        // One element: the common case of index lists and single-semantic streams.
        static InputLayout* Create(const char* semantic, uint32_t type, uint32_t quantity = 1);

        InputLayout() = default;
        InputLayout(const InputLayout&) = delete;
        InputLayout& operator=(const InputLayout&) = delete;

        void AddRef() { m_iRefCount.fetch_add(1, std::memory_order_relaxed); }
        // Frees the layout when the last holder goes. A layout nobody took is freed by
        // whoever made it with Release after AddRef, or with Destroy.
        void Release();
        static void Destroy(InputLayout* layout);
        int GetRefCount() const { return m_iRefCount.load(std::memory_order_relaxed); }

        uint32_t GetNumElements() const { return m_numelements; }
        uint32_t GetStride() const { return m_stride; }
        const InputElementDesc& GetElement(uint32_t index) const { return m_aElements[index]; }
        uint32_t GetAllElementsId() const { return m_uiAllElementsId; }

        // Offset of the `index`-th element named `name` and its size in bytes; -1 if none.
        int GetOffsetAndSize(const char* name, uint32_t& size, uint32_t index = 0) const;
        // The element's offset by its position in the layout, or -1.
        int GetOffset(uint32_t element) const;
        bool IsSameAs(const InputLayout& other) const { return m_uiAllElementsId == other.m_uiAllElementsId; }

        void Serialize(Serializer& serializer);

    private:
        bool Build();

        std::atomic<int> m_iRefCount{0};
        uint32_t m_numelements = 0;
        uint32_t m_stride = 0;
        InputElementDesc m_aElements[kMaxElements];
        uint32_t m_auOffsets[kMaxElements] = {};
        uint32_t m_uiAllElementsId = 0;
    };
}
