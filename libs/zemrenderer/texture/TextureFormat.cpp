#include "zemrenderer/texture/TextureFormat.h"

#include <cstdio>

// Only the enum values are taken from here; nothing in this file calls GL.
#include <epoxy/gl.h>

namespace ZemRenderer
{
    namespace
    {
        constexpr uint32_t kFile = eTexFmtFile;
        constexpr uint32_t kBC = eTexFmtFile | eTexFmtCompressed;
        constexpr uint32_t kFloat = eTexFmtFile | eTexFmtFloat;

        // Unsigned-integer codes of 8 and 16 bits are read as normalised values: the
        // engine samples them as colours. 32-bit ones have no normalised form.
        const TextureFormatInfo s_aFormats[] = {
            {TFMT_RGB8, "RGB8", 24, 1, 1, kFile, GL_RGB8, GL_RGB, GL_UNSIGNED_BYTE, 0},
            {TFMT_RGBA8_TYPELESS, "RGBA8_TYPELESS", 32, 1, 1, kFile, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 0},
            {TFMT_RGBA8, "RGBA8", 32, 1, 1, kFile, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 0},
            {TFMT_RGBA8_UINT, "RGBA8_UINT", 32, 1, 1, kFile, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 0},
            // Files keep blue first; the device stores RGBA and swaps on upload.
            {TFMT_BGRA8, "BGRA8", 32, 1, 1, kFile, GL_RGBA8, GL_BGRA, GL_UNSIGNED_BYTE, 0},
            {TFMT_RG16_UINT, "RG16", 32, 1, 1, kFile, GL_RG16, GL_RG, GL_UNSIGNED_SHORT, 0},
            {TFMT_RGBA16_UINT, "RGBA16", 64, 1, 1, kFile, GL_RGBA16, GL_RGBA, GL_UNSIGNED_SHORT, 0},
            {TFMT_R8_UINT, "R8", 8, 1, 1, kFile, GL_R8, GL_RED, GL_UNSIGNED_BYTE, 0},
            {TFMT_RGB10A2, "RGB10A2", 32, 1, 1, kFile, GL_RGB10_A2, GL_RGBA, GL_UNSIGNED_INT_2_10_10_10_REV, 0},
            {TFMT_D24S8, "D24S8", 32, 1, 1, kFile | eTexFmtDepth | eTexFmtStencil, GL_DEPTH24_STENCIL8,
             GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, 0},
            {TFMT_D16, "D16", 16, 1, 1, kFile | eTexFmtDepth, GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT,
             GL_UNSIGNED_SHORT, 0},
            {TFMT_R16F, "R16F", 16, 1, 1, kFloat, GL_R16F, GL_RED, GL_HALF_FLOAT, 0},
            {TFMT_RG16F, "RG16F", 32, 1, 1, kFloat, GL_RG16F, GL_RG, GL_HALF_FLOAT, 0},
            {TFMT_RGBA16F, "RGBA16F", 64, 1, 1, kFloat, GL_RGBA16F, GL_RGBA, GL_HALF_FLOAT, 0},
            {TFMT_R32F, "R32F", 32, 1, 1, kFloat, GL_R32F, GL_RED, GL_FLOAT, 0},
            {TFMT_RG32F, "RG32F", 64, 1, 1, kFloat, GL_RG32F, GL_RG, GL_FLOAT, 0},
            {TFMT_RGBA32F, "RGBA32F", 128, 1, 1, kFloat, GL_RGBA32F, GL_RGBA, GL_FLOAT, 0},
            {TFMT_RGB10A2_UINT, "RGB10A2_UINT", 32, 1, 1, kFile, GL_RGB10_A2, GL_RGBA, GL_UNSIGNED_INT_2_10_10_10_REV,
             0},
            {TFMT_R11G11B10F, "R11G11B10F", 32, 1, 1, kFloat, GL_R11F_G11F_B10F, GL_RGB,
             GL_UNSIGNED_INT_10F_11F_11F_REV, 0},
            {TFMT_R32_UINT, "R32_UINT", 32, 1, 1, kFile | eTexFmtInteger, GL_R32UI, GL_RED_INTEGER, GL_UNSIGNED_INT,
             0},
            {TFMT_RGBA8_UINT_ELEMENT, "RGBA8_UINT_ELEMENT", 32, 1, 1, kFile, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 0},
            {TFMT_R16_UINT, "R16", 16, 1, 1, kFile, GL_R16, GL_RED, GL_UNSIGNED_SHORT, 0},
            {TFMT_RGB32F, "RGB32F", 96, 1, 1, kFloat, GL_RGB32F, GL_RGB, GL_FLOAT, 0},
            // Vertex-element codes: several RGBA32F texels a pixel, never a file.
            {TFMT_MATRIX, "MATRIX", 512, 1, 4, eTexFmtFloat, GL_RGBA32F, GL_RGBA, GL_FLOAT, 0},
            {TFMT_MATRIX_INSTANCE, "MATRIX_INSTANCE", 512, 1, 4, eTexFmtFloat, GL_RGBA32F, GL_RGBA, GL_FLOAT, 0},
            {TFMT_FLOAT4X2, "FLOAT4X2", 256, 1, 2, eTexFmtFloat, GL_RGBA32F, GL_RGBA, GL_FLOAT, 0},
            {TFMT_FLOAT4X2_INSTANCE, "FLOAT4X2_INSTANCE", 256, 1, 2, eTexFmtFloat, GL_RGBA32F, GL_RGBA, GL_FLOAT, 0},
            {TFMT_FLOAT4X3, "FLOAT4X3", 384, 1, 3, eTexFmtFloat, GL_RGBA32F, GL_RGBA, GL_FLOAT, 0},
            {TFMT_FLOAT4X3_INSTANCE, "FLOAT4X3_INSTANCE", 384, 1, 3, eTexFmtFloat, GL_RGBA32F, GL_RGBA, GL_FLOAT, 0},
            // Block formats. The plain FourCCs hold colours in sRGB; 'L' as the second
            // character marks the linear form.
            {TFMT_BC1, "BC1_SRGB", 4, 4, 1, kBC | eTexFmtSrgb, GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT1_EXT, 0, 0,
             TFMT_LIN_BC1},
            {TFMT_LIN_BC1, "BC1", 4, 4, 1, kBC, GL_COMPRESSED_RGBA_S3TC_DXT1_EXT, 0, 0, TFMT_BC1},
            {TFMT_BC2, "BC2_SRGB", 8, 4, 1, kBC | eTexFmtSrgb, GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT3_EXT, 0, 0,
             TFMT_LIN_BC2},
            {TFMT_LIN_BC2, "BC2", 8, 4, 1, kBC, GL_COMPRESSED_RGBA_S3TC_DXT3_EXT, 0, 0, TFMT_BC2},
            {TFMT_BC3, "BC3_SRGB", 8, 4, 1, kBC | eTexFmtSrgb, GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT5_EXT, 0, 0,
             TFMT_LIN_BC3},
            {TFMT_LIN_BC3, "BC3", 8, 4, 1, kBC, GL_COMPRESSED_RGBA_S3TC_DXT5_EXT, 0, 0, TFMT_BC3},
            // One 8-byte block of 16 pixels: 4 bits a pixel.
            {TFMT_BC4, "BC4", 4, 4, 1, kBC, GL_COMPRESSED_RED_RGTC1, 0, 0, 0},
            {TFMT_BC5, "BC5", 8, 4, 1, kBC, GL_COMPRESSED_RG_RGTC2, 0, 0, 0},
            // Known, and refused: no device form.
            {TFMT_UYVY, "UYVY", 16, 1, 1, 0, 0, 0, 0, 0},
        };
    }

    const TextureFormatInfo* FindTextureFormat(uint32_t code)
    {
        for (const TextureFormatInfo& info : s_aFormats)
            if (info.uCode == code) return &info;
        return nullptr;
    }

    const TextureFormatInfo* GetTextureFormats(unsigned int& count)
    {
        count = sizeof(s_aFormats) / sizeof(s_aFormats[0]);
        return s_aFormats;
    }

    const char* FormatCodeToText(uint32_t code, char* out, unsigned int size)
    {
        if (!out || size == 0) return "";
        bool printable = code > 0xFFFFFF;
        for (int i = 0; i < 4 && printable; ++i)
        {
            const unsigned char c = static_cast<unsigned char>(code >> (8 * i));
            printable = c >= 32 && c < 127;
        }
        if (printable)
            snprintf(out, size, "%c%c%c%c", static_cast<char>(code), static_cast<char>(code >> 8),
                     static_cast<char>(code >> 16), static_cast<char>(code >> 24));
        else
            snprintf(out, size, "%u", code);
        return out;
    }
}
