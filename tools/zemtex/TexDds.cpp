#include "TexDds.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "TexBlocks.h"
#include "TexPixels.h"
#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/texture/TextureReader.h"
#include "zemrenderer/texture/TextureTiling.h"

namespace ZemTex
{
    using namespace ZemRenderer;

    namespace
    {
        std::string Lower(const char* text)
        {
            std::string s(text);
            for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            return s;
        }

        class KeepTarget : public ITextureUpdateTarget
        {
        public:
            explicit KeepTarget(DdsContents& out) : m_kOut(out) {}
            bool Commit(TextureInfo&, TextureUpdateBuffer* buffer, bool) override
            {
                const size_t base = m_kOut.aData.size();
                m_kOut.aData.insert(m_kOut.aData.end(), buffer->GetData(), buffer->GetData() + buffer->GetUsed());
                for (const TextureRegion& r : buffer->GetRegions())
                {
                    TextureRegion copy = r;
                    copy.uOffset += base;
                    m_kOut.aRegions.push_back(copy);
                }
                MEM_DELETE(buffer);
                return true;
            }

        private:
            DdsContents& m_kOut;
        };
    }

    bool ParseFormatName(const std::string& name, bool srgb, uint32_t& code)
    {
        unsigned int count = 0;
        const TextureFormatInfo* all = GetTextureFormats(count);
        const std::string wanted = Lower(name.c_str());
        for (unsigned int i = 0; i < count; ++i)
        {
            if (!all[i].CanBeFile() || Lower(all[i].szName) != wanted) continue;
            code = all[i].uCode;
            if (srgb && !all[i].IsSrgb() && all[i].uOtherSpaceCode) code = all[i].uOtherSpaceCode;
            return true;
        }
        return false;
    }

    std::string ListFormatNames()
    {
        unsigned int count = 0;
        const TextureFormatInfo* all = GetTextureFormats(count);
        std::string names;
        for (unsigned int i = 0; i < count; ++i)
        {
            // The sRGB rows are reached through --srgb.
            if (!all[i].CanBeFile() || all[i].IsSrgb()) continue;
            if (!names.empty()) names += ' ';
            names += Lower(all[i].szName);
        }
        return names;
    }

    std::string FormatName(uint32_t code)
    {
        const TextureFormatInfo* info = FindTextureFormat(code);
        return info ? Lower(info->szName) : "unknown";
    }

    bool EncodeDds(const std::vector<Image>& pictures, const EncodeOptions& options, std::vector<uint8_t>& out,
                   std::string& error)
    {
        const TextureFormatInfo* format = FindTextureFormat(options.uFormat);
        if (!format || !format->CanBeFile())
        {
            error = "format cannot be written to a texture file";
            return false;
        }
        if (pictures.empty() || pictures[0].IsEmpty())
        {
            error = "no picture to encode";
            return false;
        }
        for (const Image& p : pictures)
            if (p.uWidth != pictures[0].uWidth || p.uHeight != pictures[0].uHeight)
            {
                error = "the pictures of a cube map or a volume must all have one size";
                return false;
            }
        const uint32_t width = pictures[0].uWidth, height = pictures[0].uHeight;
        if (width > Dds::kMaxDimension || height > Dds::kMaxDimension)
        {
            error = "pictures above " + std::to_string(Dds::kMaxDimension) + " texels a side cannot be textures";
            return false;
        }
        const bool volume = options.uSlices > 1;
        uint32_t faces = 1;
        if (options.uFaceMask)
        {
            faces = 0;
            for (uint32_t i = 0; i < 6; ++i) faces += (options.uFaceMask >> i) & 1;
            if (width != height)
            {
                error = "cube faces must be square, not " + std::to_string(width) + "x" + std::to_string(height);
                return false;
            }
        }
        if ((volume ? 1 : faces) != pictures.size() && !(volume && pictures.size() == options.uSlices))
        {
            error = "expected " + std::to_string(volume ? options.uSlices : faces) + " pictures";
            return false;
        }

        uint32_t mips = 1;
        if (options.bMips)
        {
            uint32_t largest = std::max(width, height);
            if (volume) largest = std::max(largest, options.uSlices);
            while (largest > 1) largest >>= 1, ++mips;
        }

        DdsWriteDesc desc;
        desc.uWidth = width;
        desc.uHeight = height;
        desc.uDepth = volume ? options.uSlices : 0;
        desc.uMips = mips;
        desc.uFormat = options.uFormat;
        desc.uFaceMask = options.uFaceMask;
        desc.bTiled = options.bTiled;
        out.assign(Dds::kHeaderSize, 0);
        if (!EncodeDdsHeader(desc, out.data()))
        {
            error = "format cannot be written to a texture file";
            return false;
        }

        auto appendMip = [&](const std::vector<Image>& slices) {
            const uint32_t w = slices[0].uWidth, h = slices[0].uHeight, d = static_cast<uint32_t>(slices.size());
            const size_t sliceBytes = TextureReader::ComputeMipSize(w, h, 1, *format);
            std::vector<uint8_t> rows(sliceBytes * d);
            for (uint32_t z = 0; z < d; ++z)
            {
                if (format->IsCompressed())
                    EncodeBlocks(slices[z], *format, rows.data() + z * sliceBytes);
                else
                    EncodePixels(slices[z], *format, rows.data() + z * sliceBytes);
            }
            if (options.bTiled)
            {
                std::vector<uint8_t> tiled(rows.size());
                TileMip(rows.data(), tiled.data(), w, h, d, *format);
                rows.swap(tiled);
            }
            out.insert(out.end(), rows.begin(), rows.end());
        };

        if (volume)
        {
            std::vector<Image> level = pictures;
            for (uint32_t m = 0; m < mips; ++m)
            {
                appendMip(level);
                if (m + 1 < mips) level = DownsampleVolume(level, options.bSrgb);
            }
            return true;
        }
        for (const Image& picture : pictures)
        {
            Image level = picture;
            for (uint32_t m = 0; m < mips; ++m)
            {
                appendMip({level});
                if (m + 1 < mips) level = Downsample(level, options.bSrgb);
            }
        }
        return true;
    }

    bool ReadDds(const std::vector<uint8_t>& file, DdsContents& out, std::string& error)
    {
        out = DdsContents();
        Common::ScopedLogCapture log;
        {
            IOSTreamExistingMemory stream(file.data(), file.size());
            if (!TextureReader::ReadDescription(&stream, out.kDesc))
            {
                error = log.Text();
                return false;
            }
        }
        IOSTreamExistingMemory stream(file.data(), file.size());
        TextureInfo texture;
        KeepTarget target(out);
        if (!TextureReader::LoadTexture(&texture, &stream, {}, target))
        {
            error = log.Text();
            return false;
        }
        return true;
    }

    bool DecodeDds(const DdsContents& contents, uint32_t face, uint32_t mip, Image& out, std::string& error)
    {
        const DdsDescription& d = contents.kDesc;
        if (mip >= d.uMips)
        {
            error = "mip " + std::to_string(mip) + " asked, the file has " + std::to_string(d.uMips);
            return false;
        }
        for (const TextureRegion& r : contents.aRegions)
        {
            if (r.uMip != mip || r.uFace != face) continue;
            const uint8_t* bytes = contents.aData.data() + r.uOffset;
            const size_t sliceBytes = size_t(r.uRowBytes) * r.uRows;
            std::vector<Image> slices;
            for (uint32_t z = 0; z < r.kBox.uDepth; ++z)
            {
                Image slice;
                const bool ok = d.pFormat->IsCompressed()
                                    ? DecodeBlocks(bytes + z * sliceBytes, r.kBox.uWidth, r.kBox.uHeight, *d.pFormat, slice)
                                    : DecodePixels(bytes + z * sliceBytes, r.kBox.uWidth, r.kBox.uHeight, *d.pFormat, slice);
                if (!ok)
                {
                    error = "cannot decode format " + FormatName(d.uFormat);
                    return false;
                }
                slices.push_back(std::move(slice));
            }
            out = slices.size() == 1 ? std::move(slices[0]) : JoinStrip(slices);
            return true;
        }
        std::string faces;
        for (uint32_t i = 0; i < d.uFaces; ++i) faces += (i ? " " : "") + std::to_string(d.aFaceList[i]);
        error = "face " + std::to_string(face) + " is not in the file (faces: " + faces + ")";
        return false;
    }

    std::string DescribeDds(const DdsContents& contents, size_t fileSize)
    {
        const DdsDescription& d = contents.kDesc;
        char line[256];
        std::string text;
        char code[16];
        snprintf(line, sizeof(line), "size: %ux%u", d.uWidth, d.uHeight);
        text += line;
        if (d.bVolume) text += "x" + std::to_string(d.uDepth) + " (volume)";
        text += "\n";
        snprintf(line, sizeof(line), "format: %s (code %s), %s, %u bits a texel, block %u\n", FormatName(d.uFormat).c_str(),
                 FormatCodeToText(d.uFormat, code, sizeof(code)), d.pFormat->IsSrgb() ? "sRGB" : "linear",
                 d.pFormat->uBitsPerPixel, d.pFormat->uBlock);
        text += line;
        snprintf(line, sizeof(line), "mips: %u (the file says %u)\n", d.uMips, d.uFileMips);
        text += line;
        if (d.bCube)
        {
            text += "cube map, faces:";
            for (uint32_t i = 0; i < d.uFaces; ++i) text += " " + std::to_string(d.aFaceList[i]);
            text += "\n";
        }
        text += std::string("layout: ") + (d.bTiled ? "tiled (256x256 tiles)" : "rows") + "\n";
        snprintf(line, sizeof(line), "bytes: %zu in the file, %zu of pixels\n", fileSize, contents.aData.size());
        text += line;
        for (const TextureRegion& r : contents.aRegions)
        {
            if (r.uFace != d.aFaceList[0]) continue;
            snprintf(line, sizeof(line), "mip %u: %ux%ux%u, %zu bytes\n", r.uMip, r.kBox.uWidth, r.kBox.uHeight,
                     r.kBox.uDepth, r.uSize);
            text += line;
        }
        return text;
    }

    bool ReadFile(const std::string& path, std::vector<uint8_t>& out, std::string& error)
    {
        FILE* f = fopen(path.c_str(), "rb");
        if (!f)
        {
            error = "cannot open \"" + path + "\"";
            return false;
        }
        out.clear();
        uint8_t buffer[65536];
        size_t n;
        while ((n = fread(buffer, 1, sizeof(buffer), f)) > 0) out.insert(out.end(), buffer, buffer + n);
        const bool ok = !ferror(f);
        fclose(f);
        if (!ok) error = "cannot read \"" + path + "\"";
        return ok;
    }

    bool WriteFile(const std::string& path, const std::vector<uint8_t>& bytes, std::string& error)
    {
        // Written aside and renamed, so that a failed write never leaves half a file.
        const std::string temp = path + ".part";
        FILE* f = fopen(temp.c_str(), "wb");
        if (!f)
        {
            error = "cannot write \"" + path + "\"";
            return false;
        }
        const bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
        if (fclose(f) != 0 || !ok || rename(temp.c_str(), path.c_str()) != 0)
        {
            remove(temp.c_str());
            error = "cannot write \"" + path + "\"";
            return false;
        }
        return true;
    }
}
