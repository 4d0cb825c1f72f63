// The texture reader: sizes, header checks, and every way a file reaches update buffers.
#include <gtest/gtest.h>

#include <epoxy/gl.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/texture/tests/TextureTestUtil.h"

using namespace ZemRenderer;
using namespace ZemRenderer::TextureTest;

namespace
{
    DdsWriteDesc Desc(uint32_t w, uint32_t h, uint32_t mips, uint32_t format)
    {
        DdsWriteDesc d;
        d.uWidth = w;
        d.uHeight = h;
        d.uMips = mips;
        d.uFormat = format;
        return d;
    }

    std::vector<uint8_t> Slice(const std::vector<uint8_t>& file, size_t from, size_t bytes)
    {
        return {file.begin() + Dds::kHeaderSize + from, file.begin() + Dds::kHeaderSize + from + bytes};
    }

    bool Load(const std::vector<uint8_t>& file, TextureInfo& tex, CollectingTarget& target,
              const TextureLoadParams& params = {})
    {
        IOSTreamExistingMemory stream(file.data(), file.size());
        return TextureReader::LoadTexture(&tex, &stream, params, target);
    }
}

TEST(TextureFormat, TableGivesTrueSizesAndDeviceForms)
{
    const TextureFormatInfo* bc4 = FindTextureFormat(TFMT_BC4);
    ASSERT_TRUE(bc4);
    EXPECT_EQ(bc4->uBitsPerPixel, 4u);
    EXPECT_EQ(bc4->GetBlockBytes(), 8u);
    EXPECT_EQ(FindTextureFormat(TFMT_BC5)->GetBlockBytes(), 16u);
    EXPECT_EQ(FindTextureFormat(TFMT_BC1)->GetBlockBytes(), 8u);
    EXPECT_EQ(FindTextureFormat(TFMT_BC3)->GetBlockBytes(), 16u);
    EXPECT_EQ(FindTextureFormat(TFMT_BC1)->uGLInternalFormat, GLenum(GL_COMPRESSED_SRGB_ALPHA_S3TC_DXT1_EXT));
    EXPECT_EQ(FindTextureFormat(TFMT_LIN_BC3)->uGLInternalFormat, GLenum(GL_COMPRESSED_RGBA_S3TC_DXT5_EXT));
    EXPECT_EQ(FindTextureFormat(TFMT_BC5)->uGLInternalFormat, GLenum(GL_COMPRESSED_RG_RGTC2));
    const TextureFormatInfo* bgra = FindTextureFormat(TFMT_BGRA8);
    EXPECT_EQ(bgra->uGLInternalFormat, GLenum(GL_RGBA8));
    EXPECT_EQ(bgra->uGLFormat, GLenum(GL_BGRA));
    EXPECT_EQ(FindTextureFormat(TFMT_RG16_UINT)->uGLInternalFormat, GLenum(GL_RG16)) << "normalised, not integer";
    EXPECT_TRUE(FindTextureFormat(TFMT_D24S8)->uFlags & eTexFmtDepth);
    EXPECT_FALSE(FindTextureFormat(TFMT_UYVY)->CanBeFile());
    EXPECT_FALSE(FindTextureFormat(TFMT_MATRIX)->CanBeFile());
    EXPECT_EQ(FindTextureFormat(MakeFourCC('A', 'B', 'C', 'D')), nullptr);

    unsigned int count = 0;
    const TextureFormatInfo* all = GetTextureFormats(count);
    for (unsigned int i = 0; i < count; ++i)
    {
        for (unsigned int j = i + 1; j < count; ++j) EXPECT_NE(all[i].uCode, all[j].uCode) << all[i].szName;
        if (all[i].CanBeFile())
        {
            EXPECT_NE(all[i].uGLInternalFormat, 0u) << all[i].szName;
        }
        if (all[i].uOtherSpaceCode)
        {
            EXPECT_EQ(FindTextureFormat(all[i].uOtherSpaceCode)->uOtherSpaceCode, all[i].uCode) << all[i].szName;
        }
    }
    char text[16];
    EXPECT_STREQ(FormatCodeToText(TFMT_BC1, text, sizeof(text)), "DXT1");
    EXPECT_STREQ(FormatCodeToText(113, text, sizeof(text)), "113");
}

TEST(TextureReader, ComputeFullTextureSizeCountsWholeBlocks)
{
    struct Case
    {
        uint32_t w, h, d, bits, block, mips;
        size_t expected;
    } cases[] = {
        {4, 4, 1, 32, 1, 1, 64},
        {8, 4, 1, 32, 1, 4, 128 + 32 + 8 + 4},      // 8x4, 4x2, 2x1, 1x1
        {8, 8, 1, 4, 4, 4, 32 + 8 + 8 + 8},        // BC1: the 2x2 and 1x1 mips take a block each
        {2, 2, 1, 4, 4, 1, 8},                     // BC4 below one block
        {6, 6, 1, 8, 4, 3, 4 * 16 + 16 + 16},      // BC3, a size that is not a multiple of 4
        {4, 4, 4, 32, 1, 3, 256 + 32 + 4},         // volume: depth halves too
        {1, 1, 1, 128, 1, 1, 16},
    };
    for (const Case& c : cases)
        EXPECT_EQ(TextureReader::ComputeFullTextureSize(c.w, c.h, c.d, c.bits, c.block, c.mips), c.expected)
            << c.w << "x" << c.h << "x" << c.d << " bits " << c.bits;

    Common::ScopedLogCapture log;
    EXPECT_EQ(TextureReader::ComputeFullTextureSize(0, 4, 1, 32, 1, 1), 0u);
    EXPECT_EQ(TextureReader::ComputeFullTextureSize(4, 4, 1, 32, 1, 0), 0u);
    EXPECT_EQ(TextureReader::ComputeFullTextureSize(1u << 20, 4, 1, 32, 1, 1), 0u);
    EXPECT_TRUE(log.Contains("Bad parameter for texture : ComputeFullTextureSize return 0"));
}

TEST(TextureReader, RefusesBadHeadersBeforeAllocating)
{
    auto patch = [](std::vector<uint8_t> f, size_t at, uint32_t v) {
        WriteLE32(f.data() + at, v);
        return f;
    };
    const std::vector<uint8_t> good = MakeDds(Desc(16, 16, 5, TFMT_BGRA8));
    DdsWriteDesc cube = Desc(16, 16, 1, TFMT_BGRA8);
    cube.uFaceMask = 0x3F;
    const std::vector<uint8_t> goodCube = MakeDds(cube);
    std::vector<uint8_t> fourCC = MakeDds(Desc(16, 16, 1, TFMT_BC1));
    // 24-bit pixels are read as 32-bit ones, so their data is too short.
    std::vector<uint8_t> rgb24 = patch(good, 88, 24);
    rgb24.resize(Dds::kHeaderSize + (rgb24.size() - Dds::kHeaderSize) * 3 / 4);
    struct Case
    {
        const char* name;
        std::vector<uint8_t> file;
        const char* message;
    } cases[] = {
        {"truncated header", std::vector<uint8_t>(good.begin(), good.begin() + 100), "Bad DDS file"},
        {"bad magic", patch(good, 0, MakeFourCC('D', 'D', 'S', 'X')), "no \"DDS \" magic"},
        {"zero width", patch(good, 16, 0), "Bad DDS file : size 0x16"},
        {"absurd height", patch(good, 12, 1u << 30), "outside 1 to 16384"},
        {"absurd mip count", patch(good, 28, 40), "40 mips, a 16x16x1 texture has 5 at most"},
        {"absurd depth", patch(good, 24, 100000), "depth 100000 above 2048"},
        {"unknown FourCC", patch(fourCC, 84, MakeFourCC('A', 'B', 'C', 'D')), "Unknown format !"},
        {"DX10 header", patch(fourCC, 84, TFMT_DX10), "\"DX10\" header is not supported"},
        {"UYVY", patch(fourCC, 84, TFMT_UYVY), "format UYVY is not supported"},
        {"vertex element code", patch(fourCC, 84, TFMT_MATRIX), "format 20002 is not supported"},
        {"no pixel format", patch(good, 80, 0), "neither RGB nor a FourCC"},
        {"cube without faces", patch(goodCube, 112, Dds::kCaps2Cube), "cube map without faces"},
        {"cube not square", patch(goodCube, 12, 8), "are not square"},
        {"data too short", std::vector<uint8_t>(good.begin(), good.end() - 1), "bytes of pixels, 1364 needed"},
        {"24-bit RGB", rgb24, "Alpha channel is needed for RGB (RGB unsupported on D3D10)"},
    };
    for (const Case& c : cases)
    {
        Common::ScopedLogCapture log;
        TextureInfo tex;
        CollectingTarget target;
        EXPECT_FALSE(Load(c.file, tex, target)) << c.name;
        EXPECT_TRUE(log.Contains(c.message)) << c.name << ": " << log.Text();
        EXPECT_EQ(target.iAcquired, 0) << c.name;
        EXPECT_TRUE(target.aCommits.empty()) << c.name;
    }

    Common::ScopedLogCapture log;
    CollectingTarget target;
    TextureInfo tex;
    EXPECT_FALSE(TextureReader::LoadTexture(&tex, nullptr, {}, target));
    EXPECT_TRUE(log.Contains("No Stream"));
    IOSTreamExistingMemory stream(good.data(), good.size());
    EXPECT_FALSE(TextureReader::LoadTexture(nullptr, &stream, {}, target));
    EXPECT_TRUE(log.Contains("Buffer reference must be reserved"));
}

TEST(TextureReader, WholeLoadIsOneBufferInFileOrder)
{
    const std::vector<uint8_t> file = MakeDds(Desc(8, 4, 4, TFMT_BGRA8));
    TextureInfo tex;
    CollectingTarget target;
    ASSERT_TRUE(Load(file, tex, target));
    EXPECT_EQ(tex.uWidth, 8u);
    EXPECT_EQ(tex.uHeight, 4u);
    EXPECT_EQ(tex.uLevels, 4u);
    EXPECT_EQ(tex.uFaces, 1u);
    EXPECT_EQ(tex.uFlags, uint32_t(eTextureFlat));
    EXPECT_EQ(tex.uSize, 128u + 32 + 8 + 4);
    ASSERT_EQ(target.aCommits.size(), 1u);
    EXPECT_TRUE(target.aCommits[0].bLast);
    EXPECT_EQ(target.aCommits[0].aBytes, Slice(file, 0, tex.uSize));
    const auto regions = target.Regions();
    ASSERT_EQ(regions.size(), 4u);
    const uint32_t widths[] = {8, 4, 2, 1}, heights[] = {4, 2, 1, 1};
    for (uint32_t m = 0; m < 4; ++m)
    {
        EXPECT_EQ(regions[m].uMip, m);
        EXPECT_EQ(regions[m].kBox.uWidth, widths[m]);
        EXPECT_EQ(regions[m].kBox.uHeight, heights[m]);
        EXPECT_EQ(regions[m].uRowBytes, widths[m] * 4);
    }
}

TEST(TextureReader, FileDetailsThatChangeTheFormat)
{
    // A mip count of 0 reads as 1; FourCC 113 loads with block 1 and 8 bytes a pixel.
    {
        const std::vector<uint8_t> file = MakeDds(Desc(4, 4, 1, TFMT_RGBA16F), nullptr, 0);
        TextureInfo tex;
        CollectingTarget target;
        ASSERT_TRUE(Load(file, tex, target));
        EXPECT_EQ(tex.uLevels, 1u);
        EXPECT_EQ(tex.uFormat, uint32_t(TFMT_RGBA16F));
        EXPECT_EQ(tex.uSize, 4u * 4 * 8);
        EXPECT_EQ(target.Regions()[0].uRowBytes, 32u);
    }
    // The linear bit: DXT1 becomes its linear twin, ATI1 stays what it is.
    struct Case
    {
        uint32_t fourCC;
        uint32_t expected;
    } cases[] = {{TFMT_BC1, TFMT_LIN_BC1}, {TFMT_BC2, TFMT_LIN_BC2}, {TFMT_BC3, TFMT_LIN_BC3},
                 {TFMT_BC4, TFMT_BC4},     {TFMT_BC5, TFMT_BC5},     {TFMT_RGBA16F, TFMT_RGBA16F}};
    for (const Case& c : cases)
    {
        DdsWriteDesc d = Desc(8, 8, 1, c.fourCC);
        d.bLinear = true;
        std::vector<uint8_t> file = MakeDds(d);
        WriteLE32(file.data() + 80, ReadLE32(file.data() + 80) | Dds::kPfLinear);
        TextureInfo tex;
        CollectingTarget target;
        ASSERT_TRUE(Load(file, tex, target));
        EXPECT_EQ(tex.uFormat, c.expected);
    }
    // Without the bit, DXT1 stays sRGB; a writer asked for the linear code writes DXT1 plus the bit.
    DdsWriteDesc lin = Desc(8, 8, 1, TFMT_LIN_BC1);
    std::vector<uint8_t> header(Dds::kHeaderSize);
    ASSERT_TRUE(EncodeDdsHeader(lin, header.data()));
    EXPECT_EQ(ReadLE32(header.data() + 84), uint32_t(TFMT_BC1));
    EXPECT_TRUE(ReadLE32(header.data() + 80) & Dds::kPfLinear);
}

TEST(TextureReader, MipRangeLoadsOnlyThoseMips)
{
    std::vector<size_t> offsets;
    const std::vector<uint8_t> file = MakeDds(Desc(16, 16, 5, TFMT_LIN_BC3), &offsets);
    TextureInfo tex;
    CollectingTarget target;
    TextureLoadParams params;
    params.uFirstMip = 1;
    params.uLastMip = 2;
    ASSERT_TRUE(Load(file, tex, target, params));
    EXPECT_EQ(tex.uLevels, 5u) << "the texture keeps the file's levels";
    ASSERT_EQ(target.aCommits.size(), 2u);
    EXPECT_FALSE(target.aCommits[0].bLast);
    EXPECT_TRUE(target.aCommits[1].bLast);
    EXPECT_EQ(target.RegionBytes(0), Slice(file, offsets[1], 4 * 16));
    EXPECT_EQ(target.RegionBytes(1), Slice(file, offsets[2], 16));
    EXPECT_EQ(target.Regions()[1].uMip, 2u);

    // A last mip of 0 means all of them.
    TextureInfo all;
    CollectingTarget allTarget;
    params = {};
    params.uFirstMip = 3;
    ASSERT_TRUE(Load(file, all, allTarget, params));
    EXPECT_EQ(allTarget.Regions().size(), 2u);
}

TEST(TextureReader, BoxOfTheFileIntoABoxOfTheTexture)
{
    std::vector<size_t> offsets;
    const std::vector<uint8_t> file = MakeDds(Desc(16, 16, 2, TFMT_BGRA8), &offsets);
    TextureInfo tex;
    CollectingTarget first;
    ASSERT_TRUE(Load(file, tex, first));

    TextureBox source{4, 2, 0, 8, 6, 1};
    TextureBox dest{8, 10, 0, 8, 6, 1};
    TextureLoadParams params;
    params.pSourceBox = &source;
    params.pTargetBox = &dest;
    params.bCreate = false;
    CollectingTarget target;
    ASSERT_TRUE(Load(file, tex, target, params));
    const auto regions = target.Regions();
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_EQ(regions[0].kBox.uX, 8u);
    EXPECT_EQ(regions[0].kBox.uY, 10u);
    EXPECT_EQ(regions[0].kBox.uWidth, 8u);
    EXPECT_EQ(regions[0].kBox.uHeight, 6u);
    std::vector<uint8_t> expected;
    for (uint32_t y = 2; y < 8; ++y)
    {
        auto row = Slice(file, offsets[0] + (y * 16 + 4) * 4, 8 * 4);
        expected.insert(expected.end(), row.begin(), row.end());
    }
    EXPECT_EQ(target.RegionBytes(0), expected);
    // The next mip takes the halved boxes: (2,1) 4x3 into (4,5).
    EXPECT_EQ(regions[1].kBox.uX, 4u);
    EXPECT_EQ(regions[1].kBox.uY, 5u);
    EXPECT_EQ(regions[1].kBox.uWidth, 4u);
    EXPECT_EQ(regions[1].kBox.uHeight, 3u);
    EXPECT_EQ(target.RegionBytes(1).front(), file[Dds::kHeaderSize + offsets[1] + (1 * 8 + 2) * 4]);

    // A box that runs out of the texture is cut to it.
    TextureBox edge{0, 0, 0, 16, 16, 1};
    TextureBox corner{12, 12, 0, 100, 100, 1};
    params.pSourceBox = &edge;
    params.pTargetBox = &corner;
    CollectingTarget cut;
    ASSERT_TRUE(Load(file, tex, cut, params));
    EXPECT_EQ(cut.Regions()[0].kBox.uWidth, 4u);
    EXPECT_EQ(cut.RegionBytes(0).size(), 4u * 4 * 4);

    // An update in another format is refused.
    const std::vector<uint8_t> other = MakeDds(Desc(16, 16, 1, TFMT_R8_UINT));
    Common::ScopedLogCapture log;
    CollectingTarget refused;
    EXPECT_FALSE(Load(other, tex, refused, params));
    EXPECT_TRUE(log.Contains("Invalid InputLayout : Format has change between loading/reloading ?"));
}

TEST(TextureReader, CubeMapsAndVolumes)
{
    DdsWriteDesc cube = Desc(8, 8, 4, TFMT_LIN_BC1);
    cube.uFaceMask = 0x15;  // faces 0, 2, 4
    std::vector<size_t> offsets;
    const std::vector<uint8_t> file = MakeDds(cube, &offsets);
    TextureInfo tex;
    CollectingTarget target;
    ASSERT_TRUE(Load(file, tex, target));
    EXPECT_EQ(tex.uFaces, 3u);
    EXPECT_EQ(tex.uFlags, uint32_t(eTextureCube));
    EXPECT_EQ(tex.aFaceList[1], 2u);
    EXPECT_EQ(tex.uSize, 3u * (32 + 8 + 8 + 8));
    const auto regions = target.Regions();
    ASSERT_EQ(regions.size(), 12u);
    EXPECT_EQ(regions[4].uFace, 2u);
    EXPECT_EQ(regions[11].uFace, 4u);
    EXPECT_EQ(regions[11].uMip, 3u);
    EXPECT_EQ(target.aCommits[0].aBytes, Slice(file, 0, tex.uSize));

    // One mip of every face.
    TextureLoadParams params;
    params.uFirstMip = 1;
    params.uLastMip = 1;
    CollectingTarget mipOne;
    TextureInfo tex2;
    ASSERT_TRUE(Load(file, tex2, mipOne, params));
    ASSERT_EQ(mipOne.Regions().size(), 3u);
    EXPECT_EQ(mipOne.RegionBytes(2), Slice(file, offsets[9], 8));

    DdsWriteDesc volume = Desc(4, 4, 3, TFMT_BGRA8);
    volume.uDepth = 4;
    offsets.clear();
    const std::vector<uint8_t> vol = MakeDds(volume, &offsets);
    TextureInfo vtex;
    CollectingTarget vtarget;
    ASSERT_TRUE(Load(vol, vtex, vtarget));
    EXPECT_EQ(vtex.uDepth, 4u);
    EXPECT_EQ(vtex.uFlags, uint32_t(eTextureVolume));
    EXPECT_EQ(vtex.uSize, 256u + 32 + 4);
    EXPECT_EQ(vtarget.Regions()[1].kBox.uDepth, 2u);

    // Slices 1 to 2, columns 1 to 2 of the top mip.
    TextureBox box{1, 0, 1, 2, 4, 2};
    params = {};
    params.pSourceBox = &box;
    params.uLastMip = 1;
    params.uFirstMip = 0;
    CollectingTarget part;
    TextureInfo ptex;
    // Last mip 1 alone would mean "all": load mips 0 to 1 and look at the first.
    ASSERT_TRUE(Load(vol, ptex, part, params));
    std::vector<uint8_t> expected;
    for (uint32_t z = 1; z < 3; ++z)
        for (uint32_t y = 0; y < 4; ++y)
        {
            auto row = Slice(vol, offsets[0] + (z * 16 + y * 4 + 1) * 4, 8);
            expected.insert(expected.end(), row.begin(), row.end());
        }
    EXPECT_EQ(part.RegionBytes(0), expected);
    EXPECT_EQ(part.Regions()[0].kBox.uDepth, 2u);
}

TEST(TextureReader, TiledFilesReadLikeUntiledOnes)
{
    for (uint32_t format : {uint32_t(TFMT_LIN_BC1), uint32_t(TFMT_BGRA8)})
    {
        DdsWriteDesc desc = Desc(768, 512, 4, format);
        const std::vector<uint8_t> rows = MakeDds(desc);
        desc.bTiled = true;
        const std::vector<uint8_t> tiled = MakeDds(desc);
        ASSERT_EQ(rows.size(), tiled.size());
        ASSERT_NE(rows, tiled);

        TextureInfo a, b;
        CollectingTarget ta, tb;
        ASSERT_TRUE(Load(rows, a, ta));
        ASSERT_TRUE(Load(tiled, b, tb));
        EXPECT_EQ(ta.aCommits[0].aBytes, tb.aCommits[0].aBytes);

        // A box of whole tiles, and one that crosses tiles, read the same from both layouts
        // (mip 0 only: the next mips of these boxes are below a tile).
        desc.uMips = 1;
        desc.bTiled = false;
        const std::vector<uint8_t> rows1 = MakeDds(desc);
        const std::vector<uint8_t> tiled1 = [&] {
            DdsWriteDesc t = desc;
            t.bTiled = true;
            return MakeDds(t);
        }();
        for (TextureBox box : {TextureBox{256, 256, 0, 256, 256, 1}, TextureBox{128, 0, 0, 512, 384, 1}})
        {
            TextureLoadParams params;
            params.pSourceBox = &box;
            CollectingTarget ra, rb;
            TextureInfo ia, ib;
            ASSERT_TRUE(Load(rows1, ia, ra, params));
            ASSERT_TRUE(Load(tiled1, ib, rb, params));
            EXPECT_EQ(ra.RegionBytes(0), rb.RegionBytes(0)) << box.uX;
            EXPECT_EQ(ra.RegionBytes(0).size(), size_t(box.uWidth) * box.uHeight * FindTextureFormat(format)->uBitsPerPixel / 8);
        }
        // Below a tile, and a range whose second mip is below a tile: refused.
        for (uint32_t mips : {1u, 2u})
        {
            DdsWriteDesc t = desc;
            t.bTiled = true;
            t.uMips = mips;
            const std::vector<uint8_t> file = MakeDds(t);
            TextureBox box = mips == 1 ? TextureBox{0, 0, 0, 128, 512, 1} : TextureBox{0, 0, 0, 256, 256, 1};
            TextureLoadParams params;
            params.pSourceBox = &box;
            CollectingTarget target;
            TextureInfo tex;
            Common::ScopedLogCapture log;
            EXPECT_FALSE(Load(file, tex, target, params));
            EXPECT_TRUE(log.Contains("Can't load block below tile size : 256")) << mips;
            EXPECT_EQ(target.iAcquired - target.iDiscarded, int(target.aCommits.size()));
        }
    }
}

TEST(TextureReader, GivenBuffersAndPages)
{
    const std::vector<uint8_t> file = MakeDds(Desc(8, 8, 1, TFMT_BGRA8));
    {
        TextureUpdateBuffer small(100);
        TextureLoadParams params;
        params.pUpdateBuffer = &small;
        TextureInfo tex;
        CollectingTarget target;
        Common::ScopedLogCapture log;
        EXPECT_FALSE(Load(file, tex, target, params));
        EXPECT_TRUE(log.Contains("Uncorrect capacity for manual texture loading"));
        EXPECT_TRUE(target.aCommits.empty());
    }
    {
        TextureUpdateBuffer enough(256);
        TextureLoadParams params;
        params.pUpdateBuffer = &enough;
        TextureInfo tex;
        CollectingTarget target;
        ASSERT_TRUE(Load(file, tex, target, params));
        EXPECT_TRUE(target.aCommits.empty()) << "a given buffer is the caller's to commit";
        EXPECT_EQ(enough.GetUsed(), 256u);
        EXPECT_EQ(std::vector<uint8_t>(enough.GetData(), enough.GetData() + 256), Slice(file, 0, 256));
    }

    // A page: bytes at an offset into a box of a created texture.
    TextureInfo tex;
    CollectingTarget target;
    ASSERT_TRUE(Load(file, tex, target));
    std::vector<uint8_t> pages(64 + 4 * 2 * 4);
    for (size_t i = 0; i < pages.size(); ++i) pages[i] = static_cast<uint8_t>(i);
    IOSTreamExistingMemory stream(pages.data(), pages.size());
    CollectingTarget pageTarget;
    ASSERT_TRUE(TextureReader::UpdatePage(&tex, &stream, TextureBox{2, 3, 0, 4, 2, 1}, 0, 64, 32, pageTarget));
    ASSERT_EQ(pageTarget.Regions().size(), 1u);
    EXPECT_EQ(pageTarget.Regions()[0].kBox.uX, 2u);
    EXPECT_EQ(pageTarget.RegionBytes(0), std::vector<uint8_t>(pages.begin() + 64, pages.end()));
    Common::ScopedLogCapture log;
    EXPECT_FALSE(TextureReader::UpdatePage(&tex, &stream, TextureBox{2, 3, 0, 4, 2, 1}, 0, 0, 16, pageTarget));
    EXPECT_TRUE(log.Contains("Uncorrect capacity for manual texture loading"));
    EXPECT_FALSE(TextureReader::UpdatePage(&tex, nullptr, TextureBox{0, 0, 0, 1, 1, 1}, 0, 0, 4, pageTarget));
    EXPECT_TRUE(log.Contains("No Stream"));
}

TEST(TextureReader, LoadFromMemoryMakesOneMip)
{
    const uint8_t pixels[2 * 2 * 4] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    TextureInfo tex;
    CollectingTarget target;
    ASSERT_TRUE(TextureReader::LoadFromMemory(&tex, pixels, 2, 2, TFMT_BGRA8, target));
    EXPECT_EQ(tex.uLevels, 1u);
    EXPECT_EQ(tex.uSize, 16u);
    EXPECT_EQ(target.RegionBytes(0), std::vector<uint8_t>(pixels, pixels + 16));
    Common::ScopedLogCapture log;
    EXPECT_FALSE(TextureReader::LoadFromMemory(&tex, pixels, 2, 2, TFMT_BGRA8, target));
    EXPECT_TRUE(log.Contains("Texture already created => use update texture instead"));
    TextureInfo fresh;
    EXPECT_FALSE(TextureReader::LoadFromMemory(&fresh, pixels, 2, 2, 12345, target));
    EXPECT_TRUE(log.Contains("Unknown format !"));
}

TEST(TextureReader, HeaderWriterAndReaderAgree)
{
    IOSTreamMemory out;
    ASSERT_TRUE(out.OpenToWrite(nullptr));
    ASSERT_TRUE(TextureReader::WriteHeader(&out, 64, 32, 1, 7, true));
    std::vector<uint8_t> zeros(TextureReader::ComputeFullTextureSize(64, 32, 1, 8, 4, 7));
    out.Write(zeros.data(), zeros.size());
    ASSERT_TRUE(out.SwitchToRead());
    uint32_t w = 0, h = 0, d = 0, mips = 0, format = 0;
    ASSERT_TRUE(TextureReader::ReadHeader(&out, w, h, d, mips, format));
    EXPECT_EQ(w, 64u);
    EXPECT_EQ(h, 32u);
    EXPECT_EQ(d, 1u);
    EXPECT_EQ(mips, 7u);
    EXPECT_EQ(format, uint32_t(TFMT_BC3));
    out.Rewind();
    DdsDescription desc;
    ASSERT_TRUE(TextureReader::ReadDescription(&out, desc));
    EXPECT_TRUE(desc.bTiled);

    // The header reader wants a mip count; the loader reads 0 as 1.
    std::vector<uint8_t> noMips = MakeDds(Desc(4, 4, 1, TFMT_BGRA8), nullptr, 0);
    IOSTreamExistingMemory in(noMips.data(), noMips.size());
    Common::ScopedLogCapture log;
    EXPECT_FALSE(TextureReader::ReadHeader(&in, w, h, d, mips, format));
    EXPECT_TRUE(log.Contains("Bad DDS file"));
}

TEST(TextureReader, GeneratedFilesLoadAndBrokenOnesAreRefused)
{
    const std::filesystem::path data = ZEM_TEXTURE_TEST_DATA;
    int good = 0, broken = 0;
    for (const auto& entry : std::filesystem::directory_iterator(data))
    {
        const std::string name = entry.path().filename();
        if (entry.path().extension() != ".dds") continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        TextureInfo tex;
        CollectingTarget target;
        Common::ScopedLogCapture log;
        const bool loaded = Load(file, tex, target);
        if (name.rfind("broken_", 0) == 0)
        {
            ++broken;
            EXPECT_FALSE(loaded) << name;
            EXPECT_FALSE(log.Text().empty()) << name << " is refused without a word";
            EXPECT_EQ(target.iAcquired, 0) << name;
            continue;
        }
        ++good;
        ASSERT_TRUE(loaded) << name << ": " << log.Text();
        EXPECT_EQ(target.aCommits.size(), 1u) << name;
        EXPECT_EQ(tex.uSize, file.size() - Dds::kHeaderSize) << name;
        const std::map<std::string, std::pair<uint32_t, uint32_t>> expected = {
            {"cube3_bgra8.dds", {tex.uFaces, 3u}},
            {"cube_bc1.dds", {tex.uFlags, uint32_t(eTextureCube)}},
            {"volume_bgra8.dds", {tex.uDepth, 4u}},
            {"linear_bc3.dds", {tex.uFormat, uint32_t(TFMT_LIN_BC3)}},
            {"format_bc3_srgb.dds", {tex.uFormat, uint32_t(TFMT_BC3)}},
        };
        const auto it = expected.find(name);
        if (it != expected.end())
        {
            EXPECT_EQ(it->second.first, it->second.second) << name;
        }
    }
    EXPECT_GE(good, 30);
    EXPECT_GE(broken, 8);
}

TEST(TextureUpdateBufferPool, ReusesBuffersOfALikeSizeUpToItsLimit)
{
    TextureUpdateBufferPool pool(1000);
    TextureUpdateBuffer* a = pool.Acquire(400);
    ASSERT_TRUE(a);
    TextureRegion region;
    region.uSize = 100;
    ASSERT_TRUE(a->AddRegion(region));
    pool.Give(a);
    EXPECT_EQ(pool.GetKeptBytes(), 400u);
    EXPECT_NE(pool.Acquire(900), a) << "more than the kept capacity";
    TextureUpdateBuffer* tiny = pool.Acquire(100);
    EXPECT_NE(tiny, a) << "a buffer over twice the size is not handed out";
    TextureUpdateBuffer* again = pool.Acquire(300);
    EXPECT_EQ(again, a);
    EXPECT_EQ(again->GetUsed(), 0u);
    EXPECT_TRUE(again->GetRegions().IsEmpty());
    TextureUpdateBuffer* big = pool.Acquire(700);
    pool.Give(again);
    pool.Give(big);
    EXPECT_EQ(pool.GetKeptBytes(), 400u) << "the limit frees what does not fit";
    pool.Give(tiny);
    EXPECT_EQ(pool.GetKeptBytes(), 500u);
}

TEST(TextureReader, CachedHeaderReadsLikeAPlainOne)
{
    const std::vector<uint8_t> file = MakeDds(Desc(8, 8, 4, TFMT_LIN_BC1));
    TextureLoadParams params;
    params.bCacheHeader = true;
    TextureInfo tex;
    CollectingTarget target;
    ASSERT_TRUE(Load(file, tex, target, params));
    EXPECT_EQ(target.aCommits[0].aBytes, Slice(file, 0, tex.uSize));
    // A stream that reads part of a header is refused, not decoded from what it lacks.
    const std::vector<uint8_t> cut(file.begin(), file.begin() + 100);
    Common::ScopedLogCapture log;
    TextureInfo other;
    EXPECT_FALSE(Load(cut, other, target, params));
    EXPECT_TRUE(log.Contains("header shorter than 128 bytes"));
}
