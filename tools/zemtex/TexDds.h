#pragma once
// Texture files made from pictures and pictures read back from texture files. Reading
// goes through the engine's own reader, so the tool sees a file as the engine does.
#include <cstdint>
#include <string>
#include <vector>

#include "TexImage.h"
#include "zemrenderer/texture/DdsHeader.h"
#include "zemrenderer/texture/TextureUpdate.h"

namespace ZemTex
{
    // A format by its name ("bgra8", "bc1", "rgba16f", ...). With `srgb`, a block format
    // that has an sRGB form takes it. False for an unknown name.
    bool ParseFormatName(const std::string& name, bool srgb, uint32_t& code);
    // The names, for help texts.
    std::string ListFormatNames();
    std::string FormatName(uint32_t code);

    struct EncodeOptions
    {
        uint32_t uFormat = ZemRenderer::TFMT_BGRA8;
        bool bMips = false;
        // The pictures hold sRGB colours: mips are filtered in linear light.
        bool bSrgb = false;
        bool bTiled = false;
        // A cube map with these faces (bit i for face i), one picture each in face order.
        uint32_t uFaceMask = 0;
        // A volume of this many slices, one picture each.
        uint32_t uSlices = 0;
    };

    // The whole file: header, then each face's mips.
    bool EncodeDds(const std::vector<Image>& pictures, const EncodeOptions& options, std::vector<uint8_t>& out,
                   std::string& error);

    struct DdsContents
    {
        ZemRenderer::DdsDescription kDesc;
        // Every mip of every face, untiled, and where each one lies.
        std::vector<uint8_t> aData;
        std::vector<ZemRenderer::TextureRegion> aRegions;
    };

    // Reads a whole file through the engine's reader; its log lines say what is wrong.
    bool ReadDds(const std::vector<uint8_t>& file, DdsContents& out, std::string& error);
    // One mip of one face (a face number, 0 to 5, for cube maps); a volume's slices come
    // stacked top to bottom.
    bool DecodeDds(const DdsContents& contents, uint32_t face, uint32_t mip, Image& out, std::string& error);
    // A report of the header and the size of each mip.
    std::string DescribeDds(const DdsContents& contents, size_t fileSize);

    bool ReadFile(const std::string& path, std::vector<uint8_t>& out, std::string& error);
    bool WriteFile(const std::string& path, const std::vector<uint8_t>& bytes, std::string& error);
}
