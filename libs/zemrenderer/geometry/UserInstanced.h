#pragma once
// Per-instance data that a user supplies for a batch of one geometry: a layout declared
// once, a data buffer allocated once, and how many instances it holds. At a draw the
// instances are copied, element by element, into the layout the shader asks for.
// It becomes a modifier of the draw's property once properties exist; the data side
// stands on its own.
#include <cstdint>

namespace ZemRenderer
{
    class InputLayout;

    class UserInstanced
    {
    public:
        UserInstanced() = default;
        ~UserInstanced();
        UserInstanced(const UserInstanced&) = delete;
        UserInstanced& operator=(const UserInstanced&) = delete;

        // Once: "Data layout already declared !". Takes a count on the layout.
        bool SetDataLayout(InputLayout* layout);
        InputLayout* GetDataLayout() const { return m_pDataLayout; }

        // Room for `count` instances with the layout's stride, once.
        bool AllocateData(uint32_t count);
        // Copies `count` instances of the layout's stride; at most what was allocated.
        bool SetData(const void* bytes, uint32_t count);
        uint32_t GetQuantity() const { return m_uiQuantity; }
        void SetQuantity(uint32_t quantity);
        const void* GetData() const { return m_Datas.pData; }
        uint32_t GetDataSize() const { return m_Datas.uiSize; }
        uint32_t GetCapacity() const { return m_Datas.uiCount; }

        // Writes the instances into `dest`, laid out as `destLayout`: each element of the
        // destination takes the element of the same semantic; one copy per instance when
        // the strides and layouts agree. False if an element of the destination is missing.
        bool UpdateInstance(void* dest, const InputLayout& destLayout, uint32_t first, uint32_t count) const;

        // For culling: a box of 16 bytes and an id.
        float m_afBoundingBox[4] = {};
        uint32_t m_uiId = 0;

    private:
        struct DataBuffer
        {
            unsigned char* pData = nullptr;
            uint32_t uiSize = 0;
            uint32_t uiCount = 0;
        };

        InputLayout* m_pDataLayout = nullptr;
        DataBuffer m_Datas;
        uint32_t m_uiQuantity = 0;
    };
}
