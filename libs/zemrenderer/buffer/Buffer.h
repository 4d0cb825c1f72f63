#pragma once
// A block of CPU memory that carries data to one buffer reference: a head of 64 bytes
// and the data right behind it, 16-byte aligned. One owner fills it, then hands it to
// the render thread with AddUpdateBufferWork, which gives it back once the data is up.
#include <cstdint>

namespace ZemRenderer
{
    class BufferReference;

    class Buffer
    {
    public:
        static constexpr uint32_t kHeadSize = 64;

        // A block of `size` bytes for `reference` at `offset`; null when memory runs out.
        static Buffer* Create(BufferReference* reference, uint32_t size, uint32_t offset, uint16_t sub1 = 0,
                              uint16_t sub2 = 0);
        static void Destroy(Buffer* block);
        // A second block with the same head and data.
        static Buffer* Clone(const Buffer& block);

        uint32_t GetOffset() const { return m_uiOffset; }
        uint32_t GetSize() const { return m_uiSize; }
        uint16_t GetSubresource1() const { return m_usSub1; }
        uint16_t GetSubresource2() const { return m_usSub2; }
        BufferReference* GetReference() const { return m_pReference; }
        void* GetData() const { return m_pData; }
        // Covers the reference's whole size from its start.
        bool IsWhole() const;

        // Bookkeeping of whoever holds the block: the geometry stream it is stored for.
        uint32_t m_uiStoredStream = 0;
        uint32_t m_uiStoredFirst = 0;
        uint32_t m_uiStoredCount = 0;

    private:
        Buffer() = default;

        uint32_t m_uiOffset = 0;
        uint32_t m_uiSize = 0;
        uint16_t m_usSub1 = 0;
        uint16_t m_usSub2 = 0;
        BufferReference* m_pReference = nullptr;
        void* m_pData = nullptr;
    };
    static_assert(sizeof(Buffer) <= Buffer::kHeadSize, "the head of a block fits in 64 bytes");
}
