#include "zemrenderer/texture/DdsHeader.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "common/system/debug/Log.h"

namespace ZemRenderer
{
    namespace
    {
        uint32_t FullMipCount(uint32_t width, uint32_t height, uint32_t depth)
        {
            uint32_t largest = width > height ? width : height;
            if (depth > largest) largest = depth;
            uint32_t count = 1;
            while (largest > 1)
            {
                largest >>= 1;
                ++count;
            }
            return count;
        }

        bool Fail(char* buffer, size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));
        bool Fail(char* buffer, size_t size, const char* format, ...)
        {
            if (buffer && size)
            {
                va_list args;
                va_start(args, format);
                vsnprintf(buffer, size, format, args);
                va_end(args);
            }
            return false;
        }
    }

    bool DecodeDdsHeader(const uint8_t* bytes, DdsDescription& out, char* err, size_t errSize)
    {
        out = DdsDescription();
        if (ReadLE32(bytes) != Dds::kMagic) return Fail(err, errSize, "Bad DDS file : no \"DDS \" magic");

        const uint32_t height = ReadLE32(bytes + 12);
        const uint32_t width = ReadLE32(bytes + 16);
        const uint32_t depthField = ReadLE32(bytes + 24);
        const uint32_t mipField = ReadLE32(bytes + 28);
        const uint32_t pfFlags = ReadLE32(bytes + 80);
        const uint32_t fourCC = ReadLE32(bytes + 84);
        const uint32_t bitCount = ReadLE32(bytes + 88);
        const uint32_t caps2 = ReadLE32(bytes + 112);

        if (width == 0 || height == 0 || width > Dds::kMaxDimension || height > Dds::kMaxDimension)
            return Fail(err, errSize, "Bad DDS file : size %ux%u outside 1 to %u", width, height, Dds::kMaxDimension);

        // Pixel format: uncompressed by bit count, else a FourCC that is a format code.
        uint32_t format = 0;
        if (pfFlags & (Dds::kPfAlpha | Dds::kPfRgb | 0x20000u))
        {
            out.bUncompressed = true;
            if (bitCount == 8)
                format = TFMT_R8_UINT;
            else
            {
                if (bitCount != 32) Common::Log("Alpha channel is needed for RGB (RGB unsupported on D3D10)\n");
                format = TFMT_BGRA8;
            }
        }
        else if (pfFlags & Dds::kPfFourCC)
        {
            if (fourCC == TFMT_DX10)
                return Fail(err, errSize, "Bad DDS file : the extended \"DX10\" header is not supported");
            format = fourCC;
        }
        else
            return Fail(err, errSize, "Bad DDS file : pixel format is neither RGB nor a FourCC (flags 0x%x)", pfFlags);

        out.bLinear = (pfFlags & Dds::kPfLinear) != 0;
        out.bTiled = (pfFlags & Dds::kPfTiled) != 0;
        const TextureFormatInfo* info = FindTextureFormat(format);
        // The linear bit turns an sRGB block format into its linear twin; formats
        // without a twin (BC4, BC5, the numbered codes) are linear already.
        if (info && out.bLinear && info->IsSrgb() && info->uOtherSpaceCode)
        {
            format = info->uOtherSpaceCode;
            info = FindTextureFormat(format);
        }
        if (!info) return Fail(err, errSize, "Unknown format !");
        if (!info->CanBeFile())
        {
            char text[16];
            return Fail(err, errSize, "Bad DDS file : format %s is not supported for textures",
                        FormatCodeToText(format, text, sizeof(text)));
        }
        out.uFormat = format;
        out.pFormat = info;

        // Volume: a depth above 1, or a depth of 1 that the caps call a volume.
        out.bVolume = depthField > 1 || (depthField == 1 && (caps2 & Dds::kCaps2Volume));
        out.uDepth = out.bVolume ? depthField : 1;
        if (out.uDepth > Dds::kMaxDepth)
            return Fail(err, errSize, "Bad DDS file : depth %u above %u", out.uDepth, Dds::kMaxDepth);

        out.uWidth = width;
        out.uHeight = height;
        out.uFileMips = mipField;
        out.uMips = mipField ? mipField : 1;
        const uint32_t fullMips = FullMipCount(width, height, out.uDepth);
        if (out.uMips > fullMips)
            return Fail(err, errSize, "Bad DDS file : %u mips, a %ux%ux%u texture has %u at most", out.uMips, width,
                        height, out.uDepth, fullMips);

        if (caps2 & Dds::kCaps2Cube)
        {
            out.bCube = true;
            out.uFaces = 0;
            for (uint32_t face = 0; face < Dds::kMaxFaces; ++face)
                if (caps2 & (Dds::kCaps2FirstFace << face)) out.aFaceList[out.uFaces++] = static_cast<uint8_t>(face);
            if (out.uFaces == 0) return Fail(err, errSize, "Bad DDS file : cube map without faces");
            if (out.bVolume) return Fail(err, errSize, "Bad DDS file : a cube map cannot be a volume");
            if (width != height) return Fail(err, errSize, "Bad DDS file : cube faces of %ux%u are not square", width, height);
        }
        return true;
    }

    bool EncodeDdsHeader(const DdsWriteDesc& desc, uint8_t* out)
    {
        const TextureFormatInfo* info = FindTextureFormat(desc.uFormat);
        if (!info || !info->CanBeFile()) return false;
        // A linear block format is written as its sRGB FourCC plus the linear bit.
        uint32_t code = desc.uFormat;
        bool linear = desc.bLinear;
        if (info->IsCompressed() && !info->IsSrgb() && info->uOtherSpaceCode)
        {
            code = info->uOtherSpaceCode;
            linear = true;
        }
        const bool volume = desc.uDepth > 1;

        memset(out, 0, Dds::kHeaderSize);
        WriteLE32(out, Dds::kMagic);
        WriteLE32(out + 4, Dds::kHeaderStructSize);
        uint32_t flags = Dds::kFlagCaps | Dds::kFlagHeight | Dds::kFlagWidth | Dds::kFlagPixelFormat;
        if (desc.uMips > 1) flags |= Dds::kFlagMipCount;
        if (volume) flags |= Dds::kFlagDepth;
        const uint32_t block = info->uBlock;
        uint32_t pitch;
        if (info->IsCompressed())
        {
            flags |= Dds::kFlagLinearSize;
            pitch = ((desc.uWidth + block - 1) / block) * ((desc.uHeight + block - 1) / block) * info->GetBlockBytes();
        }
        else
        {
            flags |= Dds::kFlagPitch;
            pitch = desc.uWidth * info->GetBlockBytes();
        }
        WriteLE32(out + 8, flags);
        WriteLE32(out + 12, desc.uHeight);
        WriteLE32(out + 16, desc.uWidth);
        WriteLE32(out + 20, pitch);
        WriteLE32(out + 24, volume ? desc.uDepth : 0);
        WriteLE32(out + 28, desc.uMips);

        WriteLE32(out + 76, Dds::kPixelFormatSize);
        uint32_t pfFlags = 0;
        if (code == TFMT_BGRA8)
        {
            pfFlags = Dds::kPfRgb | Dds::kPfAlphaPixels;
            WriteLE32(out + 88, 32);
            WriteLE32(out + 92, 0x00FF0000);
            WriteLE32(out + 96, 0x0000FF00);
            WriteLE32(out + 100, 0x000000FF);
            WriteLE32(out + 104, 0xFF000000);
        }
        else if (code == TFMT_R8_UINT)
        {
            pfFlags = Dds::kPfRgb;
            WriteLE32(out + 88, 8);
            WriteLE32(out + 92, 0xFF);
        }
        else
        {
            pfFlags = Dds::kPfFourCC;
            WriteLE32(out + 84, code);
        }
        if (desc.bTiled) pfFlags |= Dds::kPfTiled;
        if (linear && info->IsCompressed()) pfFlags |= Dds::kPfLinear;
        WriteLE32(out + 80, pfFlags);

        uint32_t caps = Dds::kCapsTexture;
        if (desc.uMips > 1) caps |= Dds::kCapsMipmap | Dds::kCapsComplex;
        uint32_t caps2 = 0;
        if (desc.uFaceMask)
        {
            caps |= Dds::kCapsComplex;
            caps2 = Dds::kCaps2Cube | ((desc.uFaceMask & 0x3F) * Dds::kCaps2FirstFace);
        }
        if (volume)
        {
            caps |= Dds::kCapsComplex;
            caps2 |= Dds::kCaps2Volume;
        }
        WriteLE32(out + 108, caps);
        WriteLE32(out + 112, caps2);
        return true;
    }
}
