#pragma once
// Reads texture files (DDS) into update buffers: whole, a range of mips, a box of the
// file into a box of a texture that exists already, cube maps, volumes, and the
// engine's tiled layout. Runs on the loading or process thread; the device sees the
// bytes only when the target commits them.
#include <cstddef>
#include <cstdint>

#include "zemrenderer/texture/DdsHeader.h"
#include "zemrenderer/texture/TextureUpdate.h"

namespace ZemRenderer
{
    class IOSTreamBase;

    enum TextureKindFlags : uint32_t
    {
        eTextureFlat = 0x20,
        eTextureVolume = 0x40,
        eTextureCube = 0xA0,
    };

    // What the reader knows of a texture and sets when it creates one.
    struct TextureInfo
    {
        uint32_t uWidth = 0;
        uint32_t uHeight = 0;
        uint16_t uDepth = 0;
        uint8_t uFaces = 0;
        uint8_t uLevels = 0;
        uint32_t uFormat = 0;
        uint32_t uFlags = 0;
        // Bytes of all mips of all faces.
        size_t uSize = 0;
        uint8_t aFaceList[Dds::kMaxFaces] = {0, 0, 0, 0, 0, 0};
        // Set once the texture has storage; loading into it afterwards is an update.
        bool bCreated = false;
    };

    struct TextureLoadParams
    {
        uint32_t uFirstMip = 0;
        // 0 loads up to the file's last mip.
        uint32_t uLastMip = 0;
        // The box of the file's first mip to read (null: all), and where it goes in the
        // texture (null: at the texture's origin).
        const TextureBox* pSourceBox = nullptr;
        const TextureBox* pTargetBox = nullptr;
        // Sets the texture's size, format and levels from the file.
        bool bCreate = true;
        // The header is a block the stream keeps for the next reads of the same file.
        bool bCacheHeader = false;
        // A buffer to fill instead of the target's: filled and not committed.
        TextureUpdateBuffer* pUpdateBuffer = nullptr;
    };

    class TextureReader
    {
    public:
        // Bytes of all mips of one face. Each mip counts whole blocks: a 2x2 mip of a
        // 4x4 block format takes one block. Reports and returns 0 for a bad parameter.
        static size_t ComputeFullTextureSize(uint32_t width, uint32_t height, uint32_t depth, uint32_t bitsPerPixel,
                                             uint32_t block, uint32_t mipCount);
        // Bytes of one mip of `format` at the given top size.
        static size_t ComputeMipSize(uint32_t width, uint32_t height, uint32_t depth, const TextureFormatInfo& format);

        static bool LoadTexture(TextureInfo* texture, IOSTreamBase* stream, const TextureLoadParams& params,
                                ITextureUpdateTarget& target);

        // Reads and checks the 128 bytes; the format is the renderer's code.
        static bool ReadHeader(IOSTreamBase* stream, uint32_t& width, uint32_t& height, uint32_t& depth, uint32_t& mips,
                               uint32_t& format);
        // A header with every field checked, for tools.
        static bool ReadDescription(IOSTreamBase* stream, DdsDescription& out);

        // The header of a BC3 (DXT5) file; true when the 128 bytes were written.
        static bool WriteHeader(IOSTreamBase* stream, uint32_t width, uint32_t height, uint32_t depth,
                                uint32_t mipCount, bool tiled);

        // A one-mip texture of the pixels, which are laid out as the format is in a file.
        static bool LoadFromMemory(TextureInfo* texture, const void* pixels, uint32_t width, uint32_t height,
                                   uint32_t format, ITextureUpdateTarget& target);

        // One page of a big texture: `bytes` at `offset` of the stream fill `area` of `mip`.
        static bool UpdatePage(TextureInfo* texture, IOSTreamBase* stream, const TextureBox& area, uint32_t mip,
                               size_t offset, size_t bytes, ITextureUpdateTarget& target);
    };
}
