#pragma once
// Texture files made in memory for the reader tests, and a target that keeps what it
// is given.
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/texture/DdsHeader.h"
#include "zemrenderer/texture/TextureReader.h"
#include "zemrenderer/texture/TextureTiling.h"

namespace ZemRenderer::TextureTest
{
    // A file of `desc` whose data byte i is a pattern of i, with the offset of each mip
    // of each face (untiled order) in `mipOffsets` when given.
    inline std::vector<uint8_t> MakeDds(const DdsWriteDesc& desc, std::vector<size_t>* mipOffsets = nullptr,
                                        uint32_t header28 = ~0u)
    {
        std::vector<uint8_t> file(Dds::kHeaderSize);
        EncodeDdsHeader(desc, file.data());
        if (header28 != ~0u) WriteLE32(file.data() + 28, header28);
        const TextureFormatInfo& f = *FindTextureFormat(desc.uFormat);
        uint32_t faces = 0;
        for (uint32_t i = 0; i < 6; ++i) faces += (desc.uFaceMask >> i) & 1;
        if (!faces) faces = 1;
        for (uint32_t face = 0; face < faces; ++face)
        {
            uint32_t w = desc.uWidth, h = desc.uHeight, d = desc.uDepth > 1 ? desc.uDepth : 1;
            for (uint32_t mip = 0; mip < (desc.uMips ? desc.uMips : 1); ++mip)
            {
                const size_t size = TextureReader::ComputeMipSize(w, h, d, f);
                if (mipOffsets) mipOffsets->push_back(file.size() - Dds::kHeaderSize);
                std::vector<uint8_t> rows(size);
                for (size_t i = 0; i < size; ++i)
                    rows[i] = static_cast<uint8_t>((file.size() + i) * 2654435761u >> 13);
                if (desc.bTiled)
                {
                    std::vector<uint8_t> tiled(size);
                    TileMip(rows.data(), tiled.data(), w, h, d, f);
                    file.insert(file.end(), tiled.begin(), tiled.end());
                    // Keep the untiled form in the file's place for the expectations below.
                }
                else
                    file.insert(file.end(), rows.begin(), rows.end());
                w = w > 1 ? w / 2 : 1, h = h > 1 ? h / 2 : 1, d = d > 1 ? d / 2 : 1;
            }
        }
        return file;
    }

    struct Commit
    {
        std::vector<TextureRegion> aRegions;
        std::vector<uint8_t> aBytes;
        bool bLast = false;
    };

    class CollectingTarget : public ITextureUpdateTarget
    {
    public:
        TextureUpdateBuffer* AcquireUpdateBuffer(size_t bytes) override
        {
            ++iAcquired;
            return ITextureUpdateTarget::AcquireUpdateBuffer(bytes);
        }
        bool Commit(TextureInfo&, TextureUpdateBuffer* buffer, bool last) override
        {
            ZemRenderer::TextureTest::Commit c;
            for (const TextureRegion& r : buffer->GetRegions()) c.aRegions.push_back(r);
            c.aBytes.assign(buffer->GetData(), buffer->GetData() + buffer->GetUsed());
            c.bLast = last;
            aCommits.push_back(std::move(c));
            MEM_DELETE(buffer);
            return true;
        }
        void Discard(TextureUpdateBuffer* buffer) override
        {
            ++iDiscarded;
            ITextureUpdateTarget::Discard(buffer);
        }

        // The bytes of region `index` of all commits, in order.
        std::vector<uint8_t> RegionBytes(size_t index) const
        {
            size_t at = 0;
            for (const auto& c : aCommits)
                for (const auto& r : c.aRegions)
                    if (at++ == index) return {c.aBytes.begin() + r.uOffset, c.aBytes.begin() + r.uOffset + r.uSize};
            return {};
        }
        std::vector<TextureRegion> Regions() const
        {
            std::vector<TextureRegion> all;
            for (const auto& c : aCommits) all.insert(all.end(), c.aRegions.begin(), c.aRegions.end());
            return all;
        }

        std::vector<ZemRenderer::TextureTest::Commit> aCommits;
        int iAcquired = 0;
        int iDiscarded = 0;
    };
}
