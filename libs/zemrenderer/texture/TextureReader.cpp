#include "zemrenderer/texture/TextureReader.h"

#include <cstdio>
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamBase.h"

namespace ZemRenderer
{
    namespace
    {
        uint32_t Half(uint32_t v) { return v > 1 ? v >> 1 : 1; }
        uint32_t Min(uint32_t a, uint32_t b) { return a < b ? a : b; }
        uint32_t Max(uint32_t a, uint32_t b) { return a > b ? a : b; }
        uint32_t CeilDiv(uint32_t a, uint32_t b) { return (a + b - 1) / b; }
        uint64_t Min64(uint64_t a, uint64_t b) { return a < b ? a : b; }

        // One mip as the file lays it out.
        struct MipShape
        {
            uint32_t uWidth, uHeight, uDepth;
            uint32_t uBlocksWide, uBlocksHigh;
            uint32_t uBlockBytes;
            size_t uRowBytes, uSliceBytes, uSize;
        };

        MipShape ShapeOf(uint32_t width, uint32_t height, uint32_t depth, const TextureFormatInfo& format)
        {
            MipShape s;
            s.uWidth = width;
            s.uHeight = height;
            s.uDepth = depth;
            s.uBlocksWide = CeilDiv(width, format.uBlock);
            s.uBlocksHigh = CeilDiv(height, format.uBlock);
            s.uBlockBytes = format.GetBlockBytes();
            s.uRowBytes = static_cast<size_t>(s.uBlocksWide) * s.uBlockBytes;
            s.uSliceBytes = s.uRowBytes * s.uBlocksHigh;
            s.uSize = s.uSliceBytes * depth;
            return s;
        }

        // A box in pixels, end exclusive.
        struct PixelBox
        {
            uint32_t x0, y0, z0, x1, y1, z1;
        };

        PixelBox HalveBox(const PixelBox& b, uint32_t width, uint32_t height, uint32_t depth)
        {
            PixelBox h;
            h.x0 = Min(b.x0 >> 1, width - 1);
            h.y0 = Min(b.y0 >> 1, height - 1);
            h.z0 = Min(b.z0 >> 1, depth - 1);
            h.x1 = Min(Max((b.x1 + 1) >> 1, h.x0 + 1), width);
            h.y1 = Min(Max((b.y1 + 1) >> 1, h.y0 + 1), height);
            h.z1 = Min(Max((b.z1 + 1) >> 1, h.z0 + 1), depth);
            return h;
        }

        PixelBox ClampBox(const TextureBox& box, uint32_t width, uint32_t height, uint32_t depth)
        {
            PixelBox p;
            p.x0 = Min(box.uX, width - 1);
            p.y0 = Min(box.uY, height - 1);
            p.z0 = Min(box.uZ, depth - 1);
            p.x1 = static_cast<uint32_t>(Min64(uint64_t(box.uX) + box.uWidth, width));
            p.y1 = static_cast<uint32_t>(Min64(uint64_t(box.uY) + box.uHeight, height));
            p.z1 = static_cast<uint32_t>(Min64(uint64_t(box.uZ) + Max(box.uDepth, 1u), depth));
            return p;
        }

        // Reads forward through the stream; positions are counted from where the data starts.
        class Cursor
        {
        public:
            Cursor(IOSTreamBase& stream) : m_kStream(stream) {}
            bool SeekTo(size_t position)
            {
                if (position < m_uPosition) return false;
                if (position > m_uPosition && !m_kStream.Skip(static_cast<int64_t>(position - m_uPosition)))
                    return false;
                m_uPosition = position;
                return true;
            }
            bool Read(void* out, size_t bytes)
            {
                if (bytes == 0) return true;
                if (m_kStream.Read(out, bytes) != bytes) return false;
                m_uPosition += bytes;
                return true;
            }

        private:
            IOSTreamBase& m_kStream;
            size_t m_uPosition = 0;
        };

        // Copies the blocks [x0, x1) x [y0, y1) x [z0, z1) of a mip starting at `mipStart`
        // into `dest`, packed. Tiles are `tileW` x `tileH` blocks (the whole mip when untiled).
        bool ReadBlocks(Cursor& cursor, size_t mipStart, const MipShape& s, uint32_t tileW, uint32_t tileH,
                        uint32_t x0, uint32_t y0, uint32_t z0, uint32_t x1, uint32_t y1, uint32_t z1, uint8_t* dest)
        {
            const size_t bb = s.uBlockBytes;
            const size_t destRow = (x1 - x0) * bb;
            const size_t destSlice = destRow * (y1 - y0);
            const bool untiled = tileW >= s.uBlocksWide && tileH >= s.uBlocksHigh;
            for (uint32_t z = z0; z < z1; ++z)
            {
                const size_t sliceStart = mipStart + z * s.uSliceBytes;
                uint8_t* sliceDest = dest + (z - z0) * destSlice;
                if (untiled && x0 == 0 && x1 == s.uBlocksWide)
                {
                    // Whole rows follow each other: one read for the slice's rows.
                    if (!cursor.SeekTo(sliceStart + y0 * s.uRowBytes) || !cursor.Read(sliceDest, destSlice))
                        return false;
                    continue;
                }
                for (uint32_t bandY = (y0 / tileH) * tileH; bandY < y1; bandY += tileH)
                {
                    const uint32_t bandRows = Min(tileH, s.uBlocksHigh - bandY);
                    const uint32_t ry0 = Max(y0, bandY), ry1 = Min(y1, bandY + bandRows);
                    for (uint32_t tileX = (x0 / tileW) * tileW; tileX < x1; tileX += tileW)
                    {
                        const uint32_t tileCols = Min(tileW, s.uBlocksWide - tileX);
                        const uint32_t cx0 = Max(x0, tileX), cx1 = Min(x1, tileX + tileCols);
                        const size_t tileStart = sliceStart + bandY * s.uRowBytes + tileX * bb * bandRows;
                        for (uint32_t y = ry0; y < ry1; ++y)
                        {
                            const size_t from = tileStart + (y - bandY) * tileCols * bb + (cx0 - tileX) * bb;
                            uint8_t* to = sliceDest + (y - y0) * destRow + (cx0 - x0) * bb;
                            if (!cursor.SeekTo(from) || !cursor.Read(to, (cx1 - cx0) * bb)) return false;
                        }
                    }
                }
            }
            return true;
        }

        bool RefuseReference()
        {
            Common::Log("Buffer reference must be reserved\n");
            printf("LoadGTF BufferReference NULL Filename \n");
            return false;
        }
    }

    size_t TextureReader::ComputeFullTextureSize(uint32_t width, uint32_t height, uint32_t depth,
                                                 uint32_t bitsPerPixel, uint32_t block, uint32_t mipCount)
    {
        size_t sum = 0;
        // Sizes beyond these could overflow and are no texture anyway.
        if (width <= Dds::kMaxDimension && height <= Dds::kMaxDimension && depth <= Dds::kMaxDepth &&
            bitsPerPixel <= 512 && block >= 1 && block <= 16 && mipCount <= 32)
        {
            for (uint32_t mip = 0; mip < mipCount && width && height && depth; ++mip)
            {
                const uint64_t blockBytes = uint64_t(bitsPerPixel) * block * block / 8;
                sum += static_cast<size_t>(uint64_t(CeilDiv(width, block)) * CeilDiv(height, block) * depth * blockBytes);
                width = Half(width);
                height = Half(height);
                depth = Half(depth);
            }
        }
        if (sum == 0) Common::Log("Bad parameter for texture : ComputeFullTextureSize return 0\n");
        return sum;
    }

    size_t TextureReader::ComputeMipSize(uint32_t width, uint32_t height, uint32_t depth,
                                         const TextureFormatInfo& format)
    {
        return ShapeOf(width, height, depth, format).uSize;
    }

    bool TextureReader::ReadDescription(IOSTreamBase* stream, DdsDescription& out)
    {
        if (!stream)
        {
            Common::Log("No Stream\n");
            return false;
        }
        uint8_t header[Dds::kHeaderSize];
        if (stream->Read(header, sizeof(header)) != sizeof(header))
        {
            Common::Log("Bad DDS file : header shorter than %zu bytes\n", Dds::kHeaderSize);
            return false;
        }
        char error[160];
        if (!DecodeDdsHeader(header, out, error, sizeof(error)))
        {
            Common::Log("%s\n", error);
            return false;
        }
        return true;
    }

    bool TextureReader::ReadHeader(IOSTreamBase* stream, uint32_t& width, uint32_t& height, uint32_t& depth,
                                   uint32_t& mips, uint32_t& format)
    {
        DdsDescription d;
        if (!ReadDescription(stream, d)) return false;
        if (d.uFileMips == 0)
        {
            Common::Log("Bad DDS file\n");
            return false;
        }
        width = d.uWidth;
        height = d.uHeight;
        depth = d.uDepth;
        mips = d.uMips;
        format = d.uFormat;
        return true;
    }

    bool TextureReader::WriteHeader(IOSTreamBase* stream, uint32_t width, uint32_t height, uint32_t depth,
                                    uint32_t mipCount, bool tiled)
    {
        if (!stream)
        {
            Common::Log("No Stream\n");
            return false;
        }
        uint8_t header[Dds::kHeaderSize] = {};
        WriteLE32(header, Dds::kMagic);
        WriteLE32(header + 4, Dds::kHeaderStructSize);
        WriteLE32(header + 8, 0xA1007);
        WriteLE32(header + 12, height);
        WriteLE32(header + 16, width);
        WriteLE32(header + 20, CeilDiv(Max(width, 1), 4) * CeilDiv(Max(height, 1), 4) * 16);
        WriteLE32(header + 24, depth > 1 ? depth : 0);
        WriteLE32(header + 28, mipCount);
        WriteLE32(header + 76, Dds::kPixelFormatSize);
        WriteLE32(header + 80, Dds::kPfFourCC | (tiled ? Dds::kPfTiled : 0));
        WriteLE32(header + 84, TFMT_BC3);
        WriteLE32(header + 108, Dds::kCapsTexture | (mipCount > 1 ? Dds::kCapsMipmap : 0));
        return stream->Write(header, sizeof(header)) == sizeof(header);
    }

    bool TextureReader::LoadTexture(TextureInfo* texture, IOSTreamBase* stream, const TextureLoadParams& params,
                                    ITextureUpdateTarget& target)
    {
        if (!stream)
        {
            Common::Log("No Stream\n");
            return false;
        }
        if (!texture) return RefuseReference();

        // 1. The header. A cached read says only whether it read something: the stream's
        // size tells whether all 128 bytes were there.
        uint8_t header[Dds::kHeaderSize] = {};
        const size_t headerAt = stream->GetPosition();
        const bool haveHeader = params.bCacheHeader
                                    ? stream->GetSize() >= headerAt + sizeof(header) &&
                                          stream->ReadAndCache(header, sizeof(header))
                                    : stream->Read(header, sizeof(header)) == sizeof(header);
        if (!haveHeader)
        {
            Common::Log("Bad DDS file : header shorter than %zu bytes\n", Dds::kHeaderSize);
            stream->FreeCache();
            return false;
        }
        DdsDescription d;
        char error[160];
        if (!DecodeDdsHeader(header, d, error, sizeof(error)))
        {
            Common::Log("%s\n", error);
            stream->FreeCache();
            return false;
        }
        const TextureFormatInfo& format = *d.pFormat;

        // 2. The size of the data, checked against the stream before anything is allocated.
        const size_t faceSize =
            ComputeFullTextureSize(d.uWidth, d.uHeight, d.uDepth, format.uBitsPerPixel, format.uBlock, d.uMips);
        if (faceSize == 0) return false;
        const size_t totalSize = faceSize * d.uFaces;
        const size_t position = stream->GetPosition();
        const size_t available = stream->GetSize() > position ? stream->GetSize() - position : 0;
        if (available < totalSize)
        {
            Common::Log("Bad DDS file : %zu bytes of pixels, %zu needed\n", available, totalSize);
            return false;
        }

        // 3. The texture: created from the file, or updated, in which case the file must match it.
        uint32_t flags = eTextureFlat;
        if (d.bCube)
            flags = eTextureCube;
        else if (d.bVolume)
            flags = eTextureVolume;
        if (texture->bCreated && texture->uFormat != d.uFormat)
        {
            Common::Log("Invalid InputLayout : Format has change between loading/reloading ?\n");
            if (!params.bCreate) return false;
        }
        if (params.bCreate)
        {
            texture->uWidth = d.uWidth;
            texture->uHeight = d.uHeight;
            texture->uDepth = static_cast<uint16_t>(d.uDepth);
            texture->uFaces = static_cast<uint8_t>(d.uFaces);
            texture->uLevels = static_cast<uint8_t>(d.uMips);
            texture->uFormat = d.uFormat;
            texture->uFlags = flags;
            texture->uSize = totalSize;
            memcpy(texture->aFaceList, d.aFaceList, sizeof(d.aFaceList));
            texture->bCreated = true;
        }
        else if (!texture->bCreated)
        {
            Common::Log("Bad parameter for texture : update of a texture that was never created\n");
            return false;
        }

        // 4. Mip range and boxes.
        const uint32_t lastFileMip = d.uMips - 1;
        const uint32_t firstMip = Min(params.uFirstMip, lastFileMip);
        const uint32_t lastMip = params.uLastMip == 0 ? lastFileMip : Min(params.uLastMip, lastFileMip);
        if (firstMip > lastMip)
        {
            Common::Log("Bad parameter for texture : first mip %u behind last mip %u\n", firstMip, lastMip);
            return false;
        }
        const bool hasSource = params.pSourceBox && !params.pSourceBox->IsEmpty();
        const bool hasTarget = params.pTargetBox && !params.pTargetBox->IsEmpty();
        const bool whole = firstMip == 0 && lastMip == lastFileMip && !hasSource && !hasTarget;

        // Boxes at the file's top mip and the texture's top mip.
        PixelBox source = {0, 0, 0, d.uWidth, d.uHeight, d.uDepth};
        if (hasSource) source = ClampBox(*params.pSourceBox, d.uWidth, d.uHeight, d.uDepth);
        const uint32_t texW = Max(texture->uWidth, 1), texH = Max(texture->uHeight, 1), texD = Max(texture->uDepth, 1);
        PixelBox dest = {0, 0, 0, source.x1 - source.x0, source.y1 - source.y0, source.z1 - source.z0};
        if (hasTarget) dest = ClampBox(*params.pTargetBox, texW, texH, texD);
        // Mip m of the file lands in level m of the texture: halve both boxes up to the first mip.
        uint32_t fw = d.uWidth, fh = d.uHeight, fd = d.uDepth;
        uint32_t tw = texW, th = texH, td = texD;
        size_t mipStart = 0;
        for (uint32_t mip = 0; mip < firstMip; ++mip)
        {
            mipStart += ShapeOf(fw, fh, fd, format).uSize;
            fw = Half(fw), fh = Half(fh), fd = Half(fd);
            tw = Half(tw), th = Half(th), td = Half(td);
            source = HalveBox(source, fw, fh, fd);
            dest = HalveBox(dest, tw, th, td);
        }

        // 5. Buffers: one for the whole texture, else one for each mip.
        TextureUpdateBuffer* given = params.pUpdateBuffer;
        TextureUpdateBuffer* wholeBuffer = nullptr;
        if (whole && !given)
        {
            wholeBuffer = target.AcquireUpdateBuffer(totalSize);
            if (!wholeBuffer)
            {
                Common::Log("Bad parameter for texture : no update buffer of %zu bytes\n", totalSize);
                return false;
            }
        }
        TextureUpdateBuffer* pending = nullptr;
        auto fail = [&]() {
            if (wholeBuffer) target.Discard(wholeBuffer);
            if (pending) target.Discard(pending);
            return false;
        };

        const uint32_t block = format.uBlock;
        const uint32_t tileBlocks = d.bTiled ? Dds::kTileSize / block : 0xFFFFFFFFu;
        Cursor cursor(*stream);
        for (uint32_t face = 0; face < d.uFaces; ++face)
        {
            uint32_t mw = fw, mh = fh, md = fd, lw = tw, lh = th, ld = td;
            PixelBox src = source, dst = dest;
            size_t at = face * faceSize + mipStart;
            for (uint32_t mip = firstMip; mip <= lastMip; ++mip)
            {
                if (mip >= texture->uLevels) break;
                const MipShape shape = ShapeOf(mw, mh, md, format);
                // The copy: the source box, cut to what the target can take; block-aligned.
                const uint32_t sx0 = src.x0 / block * block, sy0 = src.y0 / block * block;
                const uint32_t tx0 = dst.x0 / block * block, ty0 = dst.y0 / block * block;
                const uint32_t cw = Min(Min(CeilDiv(src.x1, block) * block, mw) - sx0, lw - tx0);
                const uint32_t ch = Min(Min(CeilDiv(src.y1, block) * block, mh) - sy0, lh - ty0);
                const uint32_t cd = Min(src.z1 - src.z0, ld - dst.z0);
                if (d.bTiled && (cw < Min(Dds::kTileSize, mw) || ch < Min(Dds::kTileSize, mh)))
                {
                    Common::Log("Can't load block below tile size : %u\n", Dds::kTileSize);
                    return fail();
                }
                TextureRegion region;
                region.uFace = d.bCube ? d.aFaceList[face] : 0;
                region.uMip = mip;
                region.kBox = {tx0, ty0, dst.z0, cw, ch, cd};
                region.uRowBytes = CeilDiv(cw, block) * shape.uBlockBytes;
                region.uRows = CeilDiv(ch, block);
                region.uSize = size_t(region.uRowBytes) * region.uRows * cd;

                TextureUpdateBuffer* buffer = given ? given : wholeBuffer;
                if (!buffer)
                {
                    buffer = target.AcquireUpdateBuffer(region.uSize);
                    if (!buffer)
                    {
                        Common::Log("Bad parameter for texture : no update buffer of %zu bytes\n", region.uSize);
                        return fail();
                    }
                }
                uint8_t* out = buffer->AddRegion(region);
                if (!out)
                {
                    Common::Log("Uncorrect capacity for manual texture loading\n");
                    if (buffer != given && buffer != wholeBuffer) target.Discard(buffer);
                    return fail();
                }
                const uint32_t bx0 = sx0 / block, by0 = sy0 / block;
                if (!ReadBlocks(cursor, at, shape, Min(tileBlocks, shape.uBlocksWide), Min(tileBlocks, shape.uBlocksHigh),
                                bx0, by0, src.z0, bx0 + CeilDiv(cw, block), by0 + region.uRows, src.z0 + cd, out))
                {
                    Common::Log("Bad DDS file : short read in mip %u of face %u\n", mip, face);
                    if (buffer != given && buffer != wholeBuffer) target.Discard(buffer);
                    return fail();
                }
                // A mip's own buffer goes once the next one is read, so the last one can say so.
                if (buffer != given && buffer != wholeBuffer)
                {
                    if (pending) target.Commit(*texture, pending, false);
                    pending = buffer;
                }
                at += shape.uSize;
                mw = Half(mw), mh = Half(mh), md = Half(md);
                lw = Half(lw), lh = Half(lh), ld = Half(ld);
                src = HalveBox(src, mw, mh, md);
                dst = HalveBox(dst, lw, lh, ld);
            }
        }
        if (wholeBuffer) return target.Commit(*texture, wholeBuffer, true);
        if (pending) return target.Commit(*texture, pending, true);
        return true;
    }

    bool TextureReader::LoadFromMemory(TextureInfo* texture, const void* pixels, uint32_t width, uint32_t height,
                                       uint32_t format, ITextureUpdateTarget& target)
    {
        if (!texture) return RefuseReference();
        if (texture->bCreated)
        {
            Common::Log("Texture already created => use update texture instead\n");
            return false;
        }
        const TextureFormatInfo* info = FindTextureFormat(format);
        if (!info || !info->CanBeFile())
        {
            Common::Log("Unknown format !\n");
            return false;
        }
        const size_t size = ComputeFullTextureSize(width, height, 1, info->uBitsPerPixel, info->uBlock, 1);
        if (size == 0 || !pixels) return false;
        TextureUpdateBuffer* buffer = target.AcquireUpdateBuffer(size);
        if (!buffer) return false;
        TextureRegion region;
        region.kBox = {0, 0, 0, width, height, 1};
        region.uRowBytes = CeilDiv(width, info->uBlock) * info->GetBlockBytes();
        region.uRows = CeilDiv(height, info->uBlock);
        region.uSize = size;
        memcpy(buffer->AddRegion(region), pixels, size);
        texture->uWidth = width;
        texture->uHeight = height;
        texture->uDepth = 1;
        texture->uFaces = 1;
        texture->uLevels = 1;
        texture->uFormat = format;
        texture->uFlags = eTextureFlat;
        texture->uSize = size;
        texture->bCreated = true;
        return target.Commit(*texture, buffer, true);
    }

    bool TextureReader::UpdatePage(TextureInfo* texture, IOSTreamBase* stream, const TextureBox& area, uint32_t mip,
                                   size_t offset, size_t bytes, ITextureUpdateTarget& target)
    {
        if (!stream)
        {
            Common::Log("No Stream\n");
            return false;
        }
        if (!texture) return RefuseReference();
        const TextureFormatInfo* info = FindTextureFormat(texture->uFormat);
        if (!texture->bCreated || !info || mip >= texture->uLevels || area.IsEmpty())
        {
            Common::Log("Bad parameter for texture : page update of mip %u\n", mip);
            return false;
        }
        uint32_t w = texture->uWidth, h = texture->uHeight;
        for (uint32_t m = 0; m < mip; ++m) w = Half(w), h = Half(h);
        const PixelBox box = ClampBox(area, w, h, 1);
        TextureRegion region;
        region.uMip = mip;
        region.kBox = {box.x0, box.y0, 0, box.x1 - box.x0, box.y1 - box.y0, 1};
        region.uRowBytes = CeilDiv(region.kBox.uWidth, info->uBlock) * info->GetBlockBytes();
        region.uRows = CeilDiv(region.kBox.uHeight, info->uBlock);
        region.uSize = size_t(region.uRowBytes) * region.uRows;
        if (bytes != region.uSize)
        {
            Common::Log("Uncorrect capacity for manual texture loading\n");
            return false;
        }
        if (stream->GetPosition() > offset) stream->Rewind();
        const size_t position = stream->GetPosition();
        if (!stream->Skip(static_cast<int64_t>(offset - position)))
        {
            Common::Log("Bad parameter for texture : page offset %zu behind the end of the stream\n", offset);
            return false;
        }
        TextureUpdateBuffer* buffer = target.AcquireUpdateBuffer(bytes);
        if (!buffer) return false;
        uint8_t* out = buffer->AddRegion(region);
        if (!out || stream->Read(out, bytes) != bytes)
        {
            Common::Log("Bad DDS file : short read of a %zu-byte page\n", bytes);
            target.Discard(buffer);
            return false;
        }
        return target.Commit(*texture, buffer, true);
    }
}
