#pragma once
// The renderer's one table of texture formats. A format is a 32-bit code: a D3DFORMAT
// number, a FourCC, or a vertex-element code of the renderer. Each row says how many
// bytes a pixel or a block takes in a file and how the device stores and uploads it.
#include <cstdint>

namespace ZemRenderer
{
    constexpr uint32_t MakeFourCC(char a, char b, char c, char d)
    {
        return static_cast<uint32_t>(static_cast<uint8_t>(a)) | (static_cast<uint32_t>(static_cast<uint8_t>(b)) << 8) |
               (static_cast<uint32_t>(static_cast<uint8_t>(c)) << 16) |
               (static_cast<uint32_t>(static_cast<uint8_t>(d)) << 24);
    }

    enum TextureFormatCode : uint32_t
    {
        TFMT_RGB8 = 20,
        TFMT_RGBA8_TYPELESS = 21,
        TFMT_RGBA8 = 22,
        TFMT_RGBA8_UINT = 23,
        TFMT_BGRA8 = 32,
        TFMT_RG16_UINT = 34,
        TFMT_RGBA16_UINT = 36,
        TFMT_R8_UINT = 50,
        TFMT_RGB10A2 = 70,
        TFMT_D24S8 = 75,
        TFMT_D16 = 80,
        TFMT_R16F = 111,
        TFMT_RG16F = 112,
        TFMT_RGBA16F = 113,
        TFMT_R32F = 114,
        TFMT_RG32F = 115,
        TFMT_RGBA32F = 116,
        TFMT_RGB10A2_UINT = 117,
        TFMT_R11G11B10F = 118,
        TFMT_R32_UINT = 10021,
        TFMT_RGBA8_UINT_ELEMENT = 10032,
        TFMT_R16_UINT = 10111,
        TFMT_RGB32F = 10115,
        TFMT_MATRIX = 20002,
        TFMT_MATRIX_INSTANCE = 30002,
        TFMT_FLOAT4X2 = 20003,
        TFMT_FLOAT4X2_INSTANCE = 30003,
        TFMT_FLOAT4X3 = 20004,
        TFMT_FLOAT4X3_INSTANCE = 30004,
        TFMT_BC1 = MakeFourCC('D', 'X', 'T', '1'),
        TFMT_LIN_BC1 = MakeFourCC('D', 'L', 'T', '1'),
        TFMT_BC2 = MakeFourCC('D', 'X', 'T', '2'),
        TFMT_LIN_BC2 = MakeFourCC('D', 'L', 'T', '2'),
        TFMT_BC3 = MakeFourCC('D', 'X', 'T', '5'),
        TFMT_LIN_BC3 = MakeFourCC('D', 'L', 'T', '5'),
        TFMT_BC4 = MakeFourCC('A', 'T', 'I', '1'),
        TFMT_BC5 = MakeFourCC('A', 'T', 'I', '2'),
        TFMT_UYVY = MakeFourCC('U', 'Y', 'V', 'Y'),
        TFMT_DX10 = MakeFourCC('D', 'X', '1', '0'),
    };

    enum TextureFormatFlags : uint32_t
    {
        eTexFmtCompressed = 1u << 0,
        eTexFmtSrgb = 1u << 1,
        eTexFmtDepth = 1u << 2,
        eTexFmtStencil = 1u << 3,
        // Read by shaders as integers: no normalised form of that size exists.
        eTexFmtInteger = 1u << 4,
        eTexFmtFloat = 1u << 5,
        // Can stand in a texture file; vertex-element codes and unsupported ones cannot.
        eTexFmtFile = 1u << 6,
    };

    struct TextureFormatInfo
    {
        uint32_t uCode;
        const char* szName;
        // True bits a pixel, as stored: for block formats the block's bits over its pixels.
        uint16_t uBitsPerPixel;
        // Edge of the block in pixels: 1, or 4 for block-compressed formats.
        uint8_t uBlock;
        // Texels per pixel for the vertex-element codes that span several.
        uint8_t uElements;
        uint32_t uFlags;
        // Device storage and upload: GL internal format, pixel format and type (type 0
        // for compressed formats, which upload as blocks).
        uint32_t uGLInternalFormat;
        uint32_t uGLFormat;
        uint32_t uGLType;
        // Code of the same data in the other colour space (sRGB <-> linear), or 0.
        uint32_t uOtherSpaceCode;

        // Bytes of one block (of one pixel when the block is 1).
        uint32_t GetBlockBytes() const { return uBitsPerPixel * uBlock * uBlock / 8u; }
        bool IsCompressed() const { return (uFlags & eTexFmtCompressed) != 0; }
        bool IsSrgb() const { return (uFlags & eTexFmtSrgb) != 0; }
        bool CanBeFile() const { return (uFlags & eTexFmtFile) != 0; }
    };

    // The row of `code`, or null for a code the renderer does not know.
    const TextureFormatInfo* FindTextureFormat(uint32_t code);
    // Every row, for tools and tests that walk the table.
    const TextureFormatInfo* GetTextureFormats(unsigned int& count);

    // Printable form of a code: the FourCC's characters when they are all printable,
    // else the number. Writes into `out` (at least 16 bytes) and returns it.
    const char* FormatCodeToText(uint32_t code, char* out, unsigned int size);
}
