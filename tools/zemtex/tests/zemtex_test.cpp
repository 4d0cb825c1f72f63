// zemtex: pictures through every format and back, the command line, cube maps,
// volumes, tiles and atlases.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <string>

#include <tinyxml.h>

#include "TexAtlas.h"
#include "TexDds.h"
#include "zemrenderer/texture/TextureFormat.h"

using namespace ZemTex;
using namespace ZemRenderer;

namespace
{
    // Smooth colours with a little structure, and an alpha ramp.
    Image MakePicture(uint32_t w, uint32_t h, uint32_t seed = 0)
    {
        Image img(w, h);
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x)
            {
                float* p = img.At(x, y);
                p[0] = std::round(255.0f * (0.5f + 0.5f * std::sin((x + seed) * 0.1f))) / 255.0f;
                p[1] = std::round(255.0f * y / std::max(1u, h - 1)) / 255.0f;
                p[2] = std::round(255.0f * ((x + y + seed * 5) % (w + h)) / float(w + h)) / 255.0f;
                p[3] = std::round(255.0f * x / std::max(1u, w - 1)) / 255.0f;
            }
        return img;
    }

    struct Diff
    {
        int max = 0;
        double mean = 0;
    };

    Diff Compare(const Image& a, const Image& b, int channels)
    {
        Diff d;
        EXPECT_EQ(a.uWidth, b.uWidth);
        EXPECT_EQ(a.uHeight, b.uHeight);
        if (a.uWidth != b.uWidth || a.uHeight != b.uHeight) return {255, 255};
        double sum = 0;
        size_t n = 0;
        for (size_t i = 0; i < a.aPixels.size(); ++i)
        {
            if (int(i & 3) >= channels) continue;
            const int e = std::abs(int(ToByte(a.aPixels[i])) - int(ToByte(b.aPixels[i])));
            d.max = std::max(d.max, e);
            sum += e;
            ++n;
        }
        d.mean = sum / n;
        return d;
    }

    std::string Scratch()
    {
        char pattern[] = "/tmp/zemtex_test_XXXXXX";
        return mkdtemp(pattern);
    }

    int RunTool(const std::string& args, std::string* output = nullptr)
    {
        const std::string command = std::string(ZEMTEX_BINARY) + " " + args + " 2>&1";
        FILE* pipe = popen(command.c_str(), "r");
        if (!pipe) return -1;
        std::string text;
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) text.append(buffer, n);
        const int status = pclose(pipe);
        if (output) *output = text;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    Image DecodeFile(const std::string& path, uint32_t face = 0, uint32_t mip = 0)
    {
        std::vector<uint8_t> file;
        std::string error;
        DdsContents contents;
        Image out;
        EXPECT_TRUE(ReadFile(path, file, error)) << error;
        EXPECT_TRUE(ReadDds(file, contents, error)) << error;
        EXPECT_TRUE(DecodeDds(contents, face, mip, out, error)) << error;
        return out;
    }

    class ZemTexFiles : public ::testing::Test
    {
    protected:
        void SetUp() override { m_kDir = Scratch(); }
        void TearDown() override { std::filesystem::remove_all(m_kDir); }
        std::string Path(const std::string& name) const { return m_kDir + "/" + name; }
        std::string m_kDir;
    };
}

TEST(ZemTex, EveryFormatRoundTripsWithinItsTolerance)
{
    // Tolerances in 8-bit steps: the largest error, and the mean.
    struct Case
    {
        const char* name;
        int channels;
        int maxError;
        double meanError;
    } cases[] = {
        {"bgra8", 4, 0, 0},          {"rgba8", 4, 0, 0},      {"rgba8_typeless", 4, 0, 0},
        {"rgba8_uint", 4, 0, 0},     {"rgba8_uint_element", 4, 0, 0},
        {"rgb8", 3, 0, 0},           {"r8", 1, 0, 0},         {"rg16", 2, 0, 0},
        {"rgba16", 4, 0, 0},         {"r16", 1, 0, 0},        {"d16", 1, 0, 0},
        {"rgb10a2", 3, 1, 1},        {"rgb10a2_uint", 3, 1, 1},
        {"d24s8", 2, 0, 0},          {"r16f", 1, 0, 0},       {"rg16f", 2, 0, 0},
        {"rgba16f", 4, 0, 0},        {"r32f", 1, 0, 0},       {"rg32f", 2, 0, 0},
        {"rgb32f", 3, 0, 0},         {"rgba32f", 4, 0, 0},    {"r11g11b10f", 3, 3, 1.0},
        {"r32_uint", 1, 0, 0},       {"bc1", 3, 24, 5.0},     {"bc2", 4, 24, 5.0},
        {"bc3", 4, 24, 5.0},         {"bc4", 1, 4, 1.0},      {"bc5", 2, 4, 1.0},
    };
    const Image picture = MakePicture(50, 30);
    for (const Case& c : cases)
    {
        for (bool srgb : {false, true})
        {
            EncodeOptions options;
            ASSERT_TRUE(ParseFormatName(c.name, srgb, options.uFormat)) << c.name;
            options.bMips = true;
            options.bSrgb = srgb;
            std::vector<uint8_t> file;
            std::string error;
            ASSERT_TRUE(EncodeDds({picture}, options, file, error)) << c.name << ": " << error;
            DdsContents contents;
            ASSERT_TRUE(ReadDds(file, contents, error)) << c.name << ": " << error;
            EXPECT_EQ(contents.kDesc.uFormat, options.uFormat) << c.name;
            EXPECT_EQ(contents.kDesc.uMips, 6u) << c.name;
            Image back;
            ASSERT_TRUE(DecodeDds(contents, 0, 0, back, error)) << c.name << ": " << error;
            const Diff d = Compare(picture, back, c.channels);
            EXPECT_LE(d.max, c.maxError) << c.name;
            EXPECT_LE(d.mean, c.meanError) << c.name;
            if (getenv("ZEMTEX_TEST_VERBOSE")) printf("%s max %d mean %.2f\n", c.name, d.max, d.mean);
            Image last;
            ASSERT_TRUE(DecodeDds(contents, 0, 5, last, error)) << c.name;
            EXPECT_EQ(last.uWidth, 1u);
            EXPECT_EQ(last.uHeight, 1u);
        }
    }
}

TEST(ZemTex, SrgbMarksBlockFormatsAndFiltersInLinearLight)
{
    uint32_t code = 0;
    ASSERT_TRUE(ParseFormatName("bc1", true, code));
    EXPECT_EQ(code, uint32_t(TFMT_BC1));
    ASSERT_TRUE(ParseFormatName("BC3", false, code));
    EXPECT_EQ(code, uint32_t(TFMT_LIN_BC3));
    ASSERT_TRUE(ParseFormatName("bc4", true, code));
    EXPECT_EQ(code, uint32_t(TFMT_BC4)) << "no sRGB form";
    EXPECT_FALSE(ParseFormatName("uyvy", false, code));
    EXPECT_FALSE(ParseFormatName("matrix", false, code));

    // Black and white columns: the mean in linear light is brighter than the mean of the values.
    Image stripes(2, 1);
    stripes.At(1, 0)[0] = stripes.At(1, 0)[1] = stripes.At(1, 0)[2] = 1.0f;
    const Image lin = Downsample(stripes, false), srgb = Downsample(stripes, true);
    EXPECT_NEAR(lin.At(0, 0)[0], 0.5f, 1e-6);
    EXPECT_NEAR(srgb.At(0, 0)[0], 0.7354f, 1e-3);
}

TEST_F(ZemTexFiles, CommandLineRoundTripsAndIsDeterministic)
{
    std::string error;
    ASSERT_TRUE(SavePng(Path("in.png"), MakePicture(64, 40), error));
    Image source;
    ASSERT_TRUE(LoadPng(Path("in.png"), source, error));
    struct Case
    {
        const char* format;
        int channels;
        int maxError;
    } cases[] = {{"bgra8", 4, 0}, {"bc1", 3, 24}, {"bc3", 4, 24}, {"bc4", 1, 8}, {"bc5", 2, 8}};
    for (const Case& c : cases)
    {
        const std::string dds = Path(std::string(c.format) + ".dds");
        std::string out;
        ASSERT_EQ(RunTool("encode " + Path("in.png") + " " + dds + " --mips --format " + c.format, &out), 0) << out;
        ASSERT_EQ(RunTool("encode " + Path("in.png") + " " + dds + "2 --mips --format " + c.format), 0);
        std::vector<uint8_t> a, b;
        ASSERT_TRUE(ReadFile(dds, a, error));
        ASSERT_TRUE(ReadFile(dds + "2", b, error));
        EXPECT_EQ(a, b) << c.format << ": same input, same bytes";

        ASSERT_EQ(RunTool("decode " + dds + " " + Path("out.png"), &out), 0) << out;
        Image back;
        ASSERT_TRUE(LoadPng(Path("out.png"), back, error));
        EXPECT_LE(Compare(source, back, c.channels).max, c.maxError) << c.format;

        ASSERT_EQ(RunTool("decode " + dds + " " + Path("mip2.png") + " --mip 2", &out), 0) << out;
        Image mip2;
        ASSERT_TRUE(LoadPng(Path("mip2.png"), mip2, error));
        EXPECT_EQ(mip2.uWidth, 16u);
        EXPECT_EQ(mip2.uHeight, 10u);
    }
    std::string info;
    ASSERT_EQ(RunTool("info " + Path("bc1.dds"), &info), 0);
    EXPECT_NE(info.find("size: 64x40"), std::string::npos) << info;
    EXPECT_NE(info.find("format: bc1 (code DLT1), linear, 4 bits a texel, block 4"), std::string::npos) << info;
    EXPECT_NE(info.find("mips: 7"), std::string::npos) << info;
    EXPECT_NE(info.find("mip 6: 1x1x1, 8 bytes"), std::string::npos) << info;

    std::string help;
    ASSERT_EQ(RunTool("--help", &help), 0);
    for (const char* word : {"encode", "decode", "info", "atlas", "--format", "--mips", "--srgb", "--mip", "--face",
                             "bc4", "rgba16f"})
        EXPECT_NE(help.find(word), std::string::npos) << word;
}

TEST_F(ZemTexFiles, BadInputFailsWithAReason)
{
    std::string error, out;
    ASSERT_TRUE(SavePng(Path("in.png"), MakePicture(8, 8), error));
    EXPECT_EQ(RunTool("encode " + Path("in.png") + " " + Path("x.dds") + " --format bc9", &out), 2);
    EXPECT_NE(out.find("unknown format \"bc9\""), std::string::npos) << out;
    EXPECT_EQ(RunTool("encode " + Path("missing.png") + " " + Path("x.dds"), &out), 1);
    EXPECT_NE(out.find("cannot read PNG"), std::string::npos) << out;
    EXPECT_EQ(RunTool("encode " + Path("in.png"), &out), 2);
    EXPECT_EQ(RunTool("frobnicate", &out), 2);
    EXPECT_EQ(RunTool("encode " + Path("in.png") + " " + Path("x.dds") + " --cube", &out), 1) << "8x8 is not 6 faces";
    EXPECT_FALSE(std::filesystem::exists(Path("x.dds")));

    ASSERT_TRUE(WriteFile(Path("bad.dds"), {'D', 'D', 'S', ' ', 1, 2, 3}, error));
    EXPECT_EQ(RunTool("info " + Path("bad.dds"), &out), 1);
    EXPECT_NE(out.find("Bad DDS file"), std::string::npos) << out;
    ASSERT_EQ(RunTool("encode " + Path("in.png") + " " + Path("ok.dds"), &out), 0);
    EXPECT_EQ(RunTool("decode " + Path("ok.dds") + " " + Path("o.png") + " --mip 3", &out), 1);
    EXPECT_NE(out.find("mip 3 asked, the file has 1"), std::string::npos) << out;
}

TEST_F(ZemTexFiles, CubeMapsVolumesAndTiles)
{
    std::string error, out;
    const std::vector<Image> faces = {MakePicture(16, 16, 1), MakePicture(16, 16, 2), MakePicture(16, 16, 3)};
    ASSERT_TRUE(SavePng(Path("cube.png"), JoinStrip(faces), error));
    ASSERT_EQ(RunTool("encode " + Path("cube.png") + " " + Path("cube.dds") + " --cube --faces 0,2,4 --mips", &out), 0)
        << out;
    ASSERT_EQ(RunTool("info " + Path("cube.dds"), &out), 0);
    EXPECT_NE(out.find("cube map, faces: 0 2 4"), std::string::npos) << out;
    EXPECT_EQ(Compare(faces[1], DecodeFile(Path("cube.dds"), 2), 4).max, 0);
    EXPECT_EQ(RunTool("decode " + Path("cube.dds") + " " + Path("f.png") + " --face 1", &out), 1);
    EXPECT_NE(out.find("face 1 is not in the file (faces: 0 2 4)"), std::string::npos) << out;

    const std::vector<Image> slices = {MakePicture(8, 4, 5), MakePicture(8, 4, 6), MakePicture(8, 4, 7),
                                       MakePicture(8, 4, 8)};
    ASSERT_TRUE(SavePng(Path("vol.png"), JoinStrip(slices), error));
    ASSERT_EQ(RunTool("encode " + Path("vol.png") + " " + Path("vol.dds") + " --volume 4 --mips", &out), 0) << out;
    EXPECT_EQ(Compare(JoinStrip(slices), DecodeFile(Path("vol.dds")), 4).max, 0);
    const Image mip1 = DecodeFile(Path("vol.dds"), 0, 1);
    EXPECT_EQ(mip1.uWidth, 4u);
    EXPECT_EQ(mip1.uHeight, 2u * 2) << "two slices of 4x2";

    ASSERT_TRUE(SavePng(Path("big.png"), MakePicture(600, 300), error));
    for (const char* format : {"bgra8", "bc1"})
    {
        const std::string f = std::string(" --mips --format ") + format;
        ASSERT_EQ(RunTool("encode " + Path("big.png") + " " + Path("rows.dds") + f), 0);
        ASSERT_EQ(RunTool("encode " + Path("big.png") + " " + Path("tiles.dds") + f + " --tiled"), 0);
        std::vector<uint8_t> rows, tiles;
        ASSERT_TRUE(ReadFile(Path("rows.dds"), rows, error));
        ASSERT_TRUE(ReadFile(Path("tiles.dds"), tiles, error));
        EXPECT_NE(rows, tiles);
        EXPECT_EQ(Compare(DecodeFile(Path("rows.dds")), DecodeFile(Path("tiles.dds")), 4).max, 0) << format;
    }
}

TEST_F(ZemTexFiles, AtlasPacksPicturesAndNamesTheirRectangles)
{
    std::string error, out;
    const Image a = MakePicture(30, 10, 1), b = MakePicture(12, 25, 2), c = MakePicture(7, 7, 3);
    ASSERT_TRUE(SavePng(Path("button.png"), a, error));
    ASSERT_TRUE(SavePng(Path("arrow.png"), b, error));
    ASSERT_TRUE(SavePng(Path("dot.png"), c, error));
    const std::string args = "atlas " + Path("skin.dds") + " " + Path("button.png") + " " + Path("arrow.png") + " " +
                             Path("dot.png") + " --padding 2";
    ASSERT_EQ(RunTool(args, &out), 0) << out;
    std::vector<uint8_t> first, second;
    ASSERT_TRUE(ReadFile(Path("skin.imageset"), first, error));
    ASSERT_EQ(RunTool(args), 0);
    ASSERT_TRUE(ReadFile(Path("skin.imageset"), second, error));
    EXPECT_EQ(first, second);
    EXPECT_EQ(std::string(first.begin(), first.begin() + 40), "<?xml version=\"1.0f\" encoding=\"UTF-8\" ?>");

    TiXmlDocument doc;
    ASSERT_TRUE(doc.LoadFile(Path("skin.imageset").c_str()));
    TiXmlElement* root = doc.FirstChildElement("Imageset");
    ASSERT_TRUE(root);
    EXPECT_STREQ(root->Attribute("name"), "skin");
    EXPECT_STREQ(root->Attribute("texture"), "skin.dds");
    const Image atlas = DecodeFile(Path("skin.dds"));
    std::map<std::string, const Image*> sources = {{"button", &a}, {"arrow", &b}, {"dot", &c}};
    int count = 0;
    std::vector<std::array<int, 4>> rects;
    for (TiXmlElement* e = root->FirstChildElement("Image"); e; e = e->NextSiblingElement("Image"), ++count)
    {
        const Image* src = sources[e->Attribute("name")];
        ASSERT_TRUE(src) << e->Attribute("name");
        int l = 0, t = 0, r = 0, bt = 0;
        e->QueryIntAttribute("left", &l), e->QueryIntAttribute("top", &t);
        e->QueryIntAttribute("right", &r), e->QueryIntAttribute("bottom", &bt);
        ASSERT_EQ(uint32_t(r - l), src->uWidth);
        ASSERT_EQ(uint32_t(bt - t), src->uHeight);
        for (uint32_t y = 0; y < src->uHeight; ++y)
            for (uint32_t x = 0; x < src->uWidth; ++x)
                for (int ch = 0; ch < 4; ++ch)
                    ASSERT_EQ(ToByte(atlas.At(l + x, t + y)[ch]), ToByte(src->At(x, y)[ch])) << e->Attribute("name");
        for (const auto& o : rects)
            EXPECT_TRUE(r + 2 <= o[0] || o[2] + 2 <= l || bt + 2 <= o[1] || o[3] + 2 <= t) << "rectangles overlap";
        rects.push_back({l, t, r, bt});
    }
    EXPECT_EQ(count, 3);
    EXPECT_EQ(atlas.uWidth % 4, 0u);
    EXPECT_EQ(atlas.uHeight % 4, 0u);

    std::vector<AtlasItem> twins(2);
    twins[0].szName = twins[1].szName = "same";
    twins[0].kImage = twins[1].kImage = c;
    uint32_t w, h;
    EXPECT_FALSE(PackAtlas(twins, 1, 0, w, h, error));
    EXPECT_NE(error.find("two pictures are named \"same\""), std::string::npos);
}

TEST_F(ZemTexFiles, CheckedInTestFilesAreWhatTheScriptMakes)
{
    const std::string data = std::string(ZEM_SOURCE_DIR) + "/libs/zemrenderer/texture/tests/data";
    const std::string command = std::string(ZEM_SOURCE_DIR) + "/scripts/make-texture-testdata.sh " + ZEMTEX_BINARY +
                                " " + Path("made") + " 2>&1";
    ASSERT_EQ(system(command.c_str()), 0) << command;
    std::vector<std::string> made, kept;
    for (const auto& e : std::filesystem::directory_iterator(Path("made"))) made.push_back(e.path().filename());
    for (const auto& e : std::filesystem::directory_iterator(data))
        if (e.path().extension() != ".md") kept.push_back(e.path().filename());
    std::sort(made.begin(), made.end());
    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(made, kept);
    std::string error;
    for (const std::string& name : made)
    {
        std::vector<uint8_t> a, b;
        ASSERT_TRUE(ReadFile(Path("made") + "/" + name, a, error));
        if (!ReadFile(data + "/" + name, b, error)) continue;
        EXPECT_EQ(a, b) << name << " differs: run scripts/make-texture-testdata.sh again";
    }
}
