#pragma once
// Where texture bytes go on their way to the device. A reader fills update buffers in
// memory, each with the list of regions (face, mip, box) its bytes are for, and hands
// them to a target; the target commits them to the device on the render thread, so a
// texture under update stays drawable with its old content until then.
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "common/utils/TArray.h"

namespace ZemRenderer
{
    // A box of texels, its end exclusive. An empty box (no width) means "all".
    struct TextureBox
    {
        uint32_t uX = 0;
        uint32_t uY = 0;
        uint32_t uZ = 0;
        uint32_t uWidth = 0;
        uint32_t uHeight = 0;
        uint32_t uDepth = 1;

        bool IsEmpty() const { return uWidth == 0 || uHeight == 0 || uDepth == 0; }
    };

    // The bytes of one box of one mip of one face, rows of blocks packed one after another.
    struct TextureRegion
    {
        uint32_t uFace = 0;
        uint32_t uMip = 0;
        TextureBox kBox;
        size_t uOffset = 0;
        size_t uSize = 0;
        uint32_t uRowBytes = 0;
        // Rows of blocks in one slice.
        uint32_t uRows = 0;
    };

    class TextureUpdateBuffer
    {
    public:
        explicit TextureUpdateBuffer(size_t capacity);
        ~TextureUpdateBuffer();
        TextureUpdateBuffer(const TextureUpdateBuffer&) = delete;
        TextureUpdateBuffer& operator=(const TextureUpdateBuffer&) = delete;

        // False when the memory could not be had.
        bool IsValid() const { return m_pData != nullptr || m_uCapacity == 0; }
        uint8_t* GetData() { return m_pData; }
        const uint8_t* GetData() const { return m_pData; }
        size_t GetCapacity() const { return m_uCapacity; }
        size_t GetUsed() const { return m_uUsed; }
        const TArray<TextureRegion>& GetRegions() const { return m_aRegions; }

        // Room for `region.uSize` bytes behind what is used; null when it does not fit.
        uint8_t* AddRegion(const TextureRegion& region);
        // Forgets the regions, keeps the memory.
        void Reset();

    private:
        uint8_t* m_pData = nullptr;
        size_t m_uCapacity = 0;
        size_t m_uUsed = 0;
        TArray<TextureRegion> m_aRegions;
    };

    struct TextureInfo;

    class ITextureUpdateTarget
    {
    public:
        virtual ~ITextureUpdateTarget() = default;
        // A buffer of at least `bytes`, or null.
        virtual TextureUpdateBuffer* AcquireUpdateBuffer(size_t bytes);
        // Takes the buffer. `last` is set on the buffer that ends a load.
        virtual bool Commit(TextureInfo& texture, TextureUpdateBuffer* buffer, bool last) = 0;
        // Takes back a buffer that a failed load will not commit.
        virtual void Discard(TextureUpdateBuffer* buffer);
    };

    // Keeps update buffers that were committed and uploaded, so that the next load of a
    // like size takes memory that is already mapped instead of faulting in fresh pages.
    // Thread-safe: loads fill buffers on the process thread, uploads give them back on
    // the render thread.
    class TextureUpdateBufferPool
    {
    public:
        explicit TextureUpdateBufferPool(size_t maxKeptBytes = size_t(256) << 20) : m_uMaxKept(maxKeptBytes) {}
        ~TextureUpdateBufferPool();
        TextureUpdateBufferPool(const TextureUpdateBufferPool&) = delete;
        TextureUpdateBufferPool& operator=(const TextureUpdateBufferPool&) = delete;

        // A kept buffer of at least `bytes` and at most twice that, emptied; else a new one.
        TextureUpdateBuffer* Acquire(size_t bytes);
        // Keeps the buffer while the pool holds less than its limit; else frees it.
        void Give(TextureUpdateBuffer* buffer);
        size_t GetKeptBytes() const;

    private:
        mutable std::mutex m_kMutex;
        TArray<TextureUpdateBuffer*> m_aFree;
        size_t m_uKept = 0;
        size_t m_uMaxKept;
    };
}
