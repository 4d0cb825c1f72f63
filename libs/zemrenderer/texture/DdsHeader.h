#pragma once
// The 128 bytes in front of every texture file: the magic "DDS ", the classic header
// and its pixel format, with the engine's own pixel-format bits for tiled files and
// for block formats kept out of sRGB.
#include <cstddef>
#include <cstdint>

#include "zemrenderer/texture/TextureFormat.h"

namespace ZemRenderer
{
    namespace Dds
    {
        constexpr uint32_t kMagic = MakeFourCC('D', 'D', 'S', ' ');
        constexpr size_t kHeaderSize = 128;
        constexpr uint32_t kHeaderStructSize = 124;
        constexpr uint32_t kPixelFormatSize = 32;

        // Header flags.
        constexpr uint32_t kFlagCaps = 0x1, kFlagHeight = 0x2, kFlagWidth = 0x4, kFlagPitch = 0x8;
        constexpr uint32_t kFlagPixelFormat = 0x1000, kFlagMipCount = 0x20000, kFlagLinearSize = 0x80000;
        constexpr uint32_t kFlagDepth = 0x800000;
        // Pixel-format flags.
        constexpr uint32_t kPfAlphaPixels = 0x1, kPfAlpha = 0x2, kPfFourCC = 0x4, kPfRgb = 0x40;
        constexpr uint32_t kPfTiled = 0x100000, kPfLinear = 0x400000;
        // Caps.
        constexpr uint32_t kCapsComplex = 0x8, kCapsTexture = 0x1000, kCapsMipmap = 0x400000;
        constexpr uint32_t kCaps2Cube = 0x200, kCaps2FirstFace = 0x400, kCaps2Volume = 0x200000;

        // Lines and columns of one tile of a tiled file.
        constexpr uint32_t kTileSize = 256;
        // Beyond these a header is refused before anything is allocated.
        constexpr uint32_t kMaxDimension = 16384;
        constexpr uint32_t kMaxDepth = 2048;
        constexpr uint32_t kMaxFaces = 6;
    }

    // What a header says, once checked.
    struct DdsDescription
    {
        uint32_t uWidth = 0;
        uint32_t uHeight = 0;
        // 1 for anything but a volume.
        uint32_t uDepth = 1;
        // At least 1: a count of 0 in the file reads as 1.
        uint32_t uMips = 1;
        uint32_t uFileMips = 0;
        uint32_t uFormat = 0;
        const TextureFormatInfo* pFormat = nullptr;
        uint32_t uFaces = 1;
        // Face numbers (0 to 5) in file order.
        uint8_t aFaceList[Dds::kMaxFaces] = {0, 0, 0, 0, 0, 0};
        bool bCube = false;
        bool bVolume = false;
        bool bTiled = false;
        bool bLinear = false;
        bool bUncompressed = false;
    };

    // Decodes and checks the 128 bytes. False with a message naming what is wrong in
    // `error` (a static text, or written into `errorBuffer`).
    bool DecodeDdsHeader(const uint8_t* bytes, DdsDescription& out, char* errorBuffer, size_t errorSize);

    // What a writer puts into a header.
    struct DdsWriteDesc
    {
        uint32_t uWidth = 0;
        uint32_t uHeight = 0;
        // 0 or 1 for a flat texture; more makes a volume.
        uint32_t uDepth = 0;
        uint32_t uMips = 1;
        uint32_t uFormat = TFMT_BGRA8;
        // Faces of a cube map (bit i for face i), 0 for none.
        uint32_t uFaceMask = 0;
        bool bTiled = false;
        // A block format kept out of sRGB: the FourCC stays the sRGB one and the bit says so.
        bool bLinear = false;
    };

    // The 128 bytes for `desc`; false for a format that cannot stand in a file.
    bool EncodeDdsHeader(const DdsWriteDesc& desc, uint8_t* out);

    inline uint32_t ReadLE32(const uint8_t* p)
    {
        return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
               (static_cast<uint32_t>(p[3]) << 24);
    }
    inline void WriteLE32(uint8_t* p, uint32_t v)
    {
        p[0] = static_cast<uint8_t>(v);
        p[1] = static_cast<uint8_t>(v >> 8);
        p[2] = static_cast<uint8_t>(v >> 16);
        p[3] = static_cast<uint8_t>(v >> 24);
    }
}
