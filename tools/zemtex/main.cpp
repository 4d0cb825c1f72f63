// zemtex: makes texture files from PNG pictures, reads them back, describes them, and
// packs pictures into a GUI atlas.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "TexAtlas.h"
#include "TexDds.h"

using namespace ZemTex;

namespace
{
    const char* kUsage =
        "zemtex: texture files (DDS) for the engine, from and to PNG pictures.\n"
        "\n"
        "Usage:\n"
        "  zemtex encode IN.png OUT.dds [--format NAME] [--mips] [--srgb] [--tiled]\n"
        "                               [--cube [--faces LIST]] [--volume N]\n"
        "  zemtex decode IN.dds OUT.png [--mip N] [--face N]\n"
        "  zemtex info IN.dds\n"
        "  zemtex atlas OUT.dds IN.png [IN.png ...] [--imageset FILE] [--name NAME]\n"
        "                               [--format NAME] [--srgb] [--padding N] [--width N]\n"
        "  zemtex pattern OUT.png --size WxH [--seed N]\n"
        "  zemtex --help\n"
        "\n"
        "encode   Writes IN.png as a texture file.\n"
        "  --format NAME  the texel format (default bgra8): bc1 bc2 bc3 (colour, BC3 with\n"
        "                 alpha), bc4 (red), bc5 (red and green), bgra8, r8, the float formats\n"
        "                 and the others listed below.\n"
        "  --mips         writes every mip down to 1x1 (box filter).\n"
        "  --srgb         the picture holds sRGB colours: mips are averaged in linear light,\n"
        "                 and bc1, bc2, bc3 are marked sRGB so that the device decodes them to\n"
        "                 linear values. Without it they are marked linear.\n"
        "  --tiled        writes the engine's tiled layout (256x256 tiles), for textures that\n"
        "                 are streamed by rectangles.\n"
        "  --cube         IN.png is a vertical strip of square faces, in the order +X -X +Y\n"
        "                 -Y +Z -Z, one face per picture height; a cube map is written.\n"
        "  --faces LIST   with --cube: the faces the strip holds, as face numbers 0 to 5\n"
        "                 separated by commas (default 0,1,2,3,4,5).\n"
        "  --volume N     IN.png is a vertical strip of N slices; a volume texture is\n"
        "                 written (mips halve the depth too).\n"
        "\n"
        "decode   Writes one mip of one face of IN.dds as an 8-bit RGBA PNG. Block formats\n"
        "         are decoded here. Float values are clamped to 0..1; one-channel formats\n"
        "         come out grey, two-channel ones red and green. Values are written as\n"
        "         stored: an sRGB file gives its sRGB values back.\n"
        "  --mip N        the mip (default 0).\n"
        "  --face N       the face of a cube map, 0 to 5 (default: the first in the file).\n"
        "         A volume's slices are written stacked top to bottom.\n"
        "\n"
        "info     Prints the size, format, mips, faces, layout and the bytes of each mip.\n"
        "\n"
        "atlas    Packs the PNG pictures into OUT.dds and writes the GUI imageset that names\n"
        "         each picture's rectangle: <Imageset name=\"NAME\" texture=\"OUT.dds\"> with one\n"
        "         <Image name left top right bottom> for each picture, named after its file\n"
        "         without folder and extension (right and bottom exclusive).\n"
        "  --imageset FILE  where the imageset goes (default: OUT with .imageset).\n"
        "  --name NAME      the imageset's name (default: OUT's file name without extension).\n"
        "  --format, --srgb as for encode (default bgra8).\n"
        "  --padding N      texels between pictures (default 1).\n"
        "  --width N        the atlas's width (default: the smallest power of two that makes\n"
        "                   it about square).\n"
        "\n"
        "pattern  Writes a test picture: red rises left to right, green top to bottom, blue\n"
        "         along the diagonal, alpha falls from 1 to 0.5 left to right; --seed N\n"
        "         shifts the blue diagonal so that pictures of one size differ.\n"
        "\n"
        "The same inputs always give the same bytes. Exit status: 0 done, 1 failed (the\n"
        "reason is printed), 2 wrong command line.\n";

    int Usage(const char* problem)
    {
        fprintf(stderr, "zemtex: %s\nRun \"zemtex --help\" for the commands.\n", problem);
        return 2;
    }

    int Fail(const std::string& error)
    {
        fprintf(stderr, "zemtex: %s\n", error.c_str());
        return 1;
    }

    struct Args
    {
        std::vector<std::string> aPositional;
        std::string szFormat = "bgra8";
        bool bMips = false, bSrgb = false, bTiled = false, bCube = false;
        std::string szFaces = "0,1,2,3,4,5";
        uint32_t uVolume = 0, uMip = 0, uPadding = 1, uWidth = 0;
        int iFace = -1;
        std::string szImageset, szName, szSize;
        uint32_t uSeed = 0;
        std::string szError;
    };

    bool ParseNumber(const char* text, uint32_t& out)
    {
        char* end = nullptr;
        const unsigned long v = strtoul(text, &end, 10);
        if (!*text || *end || v > 1000000) return false;
        out = static_cast<uint32_t>(v);
        return true;
    }

    bool ParseArgs(int argc, char** argv, Args& a)
    {
        for (int i = 2; i < argc; ++i)
        {
            const std::string arg = argv[i];
            auto value = [&](const char*& out) {
                if (i + 1 >= argc)
                {
                    a.szError = arg + " needs a value";
                    return false;
                }
                out = argv[++i];
                return true;
            };
            auto number = [&](uint32_t& out) {
                const char* text = nullptr;
                if (!value(text)) return false;
                if (!ParseNumber(text, out))
                {
                    a.szError = arg + " wants a number, not \"" + text + "\"";
                    return false;
                }
                return true;
            };
            const char* text = nullptr;
            uint32_t n = 0;
            if (arg == "--format")
            {
                if (!value(text)) return false;
                a.szFormat = text;
            }
            else if (arg == "--mips")
                a.bMips = true;
            else if (arg == "--srgb")
                a.bSrgb = true;
            else if (arg == "--tiled")
                a.bTiled = true;
            else if (arg == "--cube")
                a.bCube = true;
            else if (arg == "--faces")
            {
                if (!value(text)) return false;
                a.szFaces = text;
            }
            else if (arg == "--volume")
            {
                if (!number(a.uVolume)) return false;
            }
            else if (arg == "--mip")
            {
                if (!number(a.uMip)) return false;
            }
            else if (arg == "--face")
            {
                if (!number(n)) return false;
                a.iFace = static_cast<int>(n);
            }
            else if (arg == "--padding")
            {
                if (!number(a.uPadding)) return false;
            }
            else if (arg == "--width")
            {
                if (!number(a.uWidth)) return false;
            }
            else if (arg == "--size")
            {
                if (!value(text)) return false;
                a.szSize = text;
            }
            else if (arg == "--seed")
            {
                if (!number(a.uSeed)) return false;
            }
            else if (arg == "--imageset")
            {
                if (!value(text)) return false;
                a.szImageset = text;
            }
            else if (arg == "--name")
            {
                if (!value(text)) return false;
                a.szName = text;
            }
            else if (arg.size() > 1 && arg[0] == '-')
            {
                a.szError = "unknown option " + arg;
                return false;
            }
            else
                a.aPositional.push_back(arg);
        }
        return true;
    }

    bool ParseFaces(const std::string& text, uint32_t& mask, std::string& error)
    {
        mask = 0;
        size_t at = 0;
        while (at <= text.size())
        {
            const size_t comma = text.find(',', at);
            const std::string part = text.substr(at, comma == std::string::npos ? std::string::npos : comma - at);
            uint32_t face = 0;
            if (!ParseNumber(part.c_str(), face) || face > 5 || (mask & (1u << face)))
            {
                error = "--faces wants distinct face numbers 0 to 5 separated by commas, not \"" + text + "\"";
                return false;
            }
            mask |= 1u << face;
            if (comma == std::string::npos) break;
            at = comma + 1;
        }
        return true;
    }

    std::string Stem(const std::string& path)
    {
        const size_t slash = path.find_last_of('/');
        std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
        const size_t dot = name.find_last_of('.');
        return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
    }

    std::string BaseName(const std::string& path)
    {
        const size_t slash = path.find_last_of('/');
        return slash == std::string::npos ? path : path.substr(slash + 1);
    }

    int Encode(const Args& a)
    {
        if (a.aPositional.size() != 2) return Usage("encode wants IN.png and OUT.dds");
        if (a.bCube && a.uVolume) return Usage("--cube and --volume cannot go together");
        EncodeOptions options;
        if (!ParseFormatName(a.szFormat, a.bSrgb, options.uFormat))
            return Usage(("unknown format \"" + a.szFormat + "\"; formats: " + ListFormatNames()).c_str());
        options.bMips = a.bMips;
        options.bSrgb = a.bSrgb;
        options.bTiled = a.bTiled;
        std::string error;
        Image picture;
        if (!LoadPng(a.aPositional[0], picture, error)) return Fail(error);
        std::vector<Image> pictures{picture};
        if (a.bCube)
        {
            if (!ParseFaces(a.szFaces, options.uFaceMask, error)) return Usage(error.c_str());
            uint32_t count = 0;
            for (uint32_t i = 0; i < 6; ++i) count += (options.uFaceMask >> i) & 1;
            if (!SplitStrip(picture, count, pictures, error)) return Fail(error);
        }
        else if (a.uVolume)
        {
            if (a.uVolume > 2048) return Usage("--volume takes at most 2048 slices");
            options.uSlices = a.uVolume;
            if (!SplitStrip(picture, a.uVolume, pictures, error)) return Fail(error);
        }
        std::vector<uint8_t> file;
        if (!EncodeDds(pictures, options, file, error)) return Fail(error);
        if (!WriteFile(a.aPositional[1], file, error)) return Fail(error);
        return 0;
    }

    int Decode(const Args& a)
    {
        if (a.aPositional.size() != 2) return Usage("decode wants IN.dds and OUT.png");
        std::string error;
        std::vector<uint8_t> file;
        DdsContents contents;
        if (!ReadFile(a.aPositional[0], file, error)) return Fail(error);
        if (!ReadDds(file, contents, error)) return Fail(a.aPositional[0] + ": " + error);
        const uint32_t face = a.iFace >= 0 ? static_cast<uint32_t>(a.iFace) : contents.kDesc.aFaceList[0];
        Image picture;
        if (!DecodeDds(contents, contents.kDesc.bCube ? face : 0, a.uMip, picture, error)) return Fail(error);
        if (!contents.kDesc.bCube && a.iFace > 0) return Fail("the file is not a cube map: it has face 0 only");
        if (!SavePng(a.aPositional[1], picture, error)) return Fail(error);
        return 0;
    }

    int Info(const Args& a)
    {
        if (a.aPositional.size() != 1) return Usage("info wants IN.dds");
        std::string error;
        std::vector<uint8_t> file;
        DdsContents contents;
        if (!ReadFile(a.aPositional[0], file, error)) return Fail(error);
        if (!ReadDds(file, contents, error)) return Fail(a.aPositional[0] + ": " + error);
        printf("file: %s\n%s", a.aPositional[0].c_str(), DescribeDds(contents, file.size()).c_str());
        return 0;
    }

    int Pattern(const Args& a)
    {
        if (a.aPositional.size() != 1) return Usage("pattern wants OUT.png");
        unsigned w = 0, h = 0;
        char extra = 0;
        if (sscanf(a.szSize.c_str(), "%ux%u%c", &w, &h, &extra) != 2 || w == 0 || h == 0 || w > 16384 || h > 16384)
            return Usage("pattern wants --size WxH, 1 to 16384 each");
        Image picture(w, h);
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x)
            {
                float* p = picture.At(x, y);
                p[0] = w > 1 ? float(x) / float(w - 1) : 0.0f;
                p[1] = h > 1 ? float(y) / float(h - 1) : 0.0f;
                p[2] = float((x + y + a.uSeed * 3) % (w + h)) / float(w + h);
                p[3] = 1.0f - 0.5f * p[0];
            }
        std::string error;
        if (!SavePng(a.aPositional[0], picture, error)) return Fail(error);
        return 0;
    }

    int Atlas(const Args& a)
    {
        if (a.aPositional.size() < 2) return Usage("atlas wants OUT.dds and at least one IN.png");
        EncodeOptions options;
        if (!ParseFormatName(a.szFormat, a.bSrgb, options.uFormat))
            return Usage(("unknown format \"" + a.szFormat + "\"; formats: " + ListFormatNames()).c_str());
        options.bMips = a.bMips;
        options.bSrgb = a.bSrgb;
        const std::string& out = a.aPositional[0];
        std::string error;
        std::vector<AtlasItem> items;
        for (size_t i = 1; i < a.aPositional.size(); ++i)
        {
            AtlasItem item;
            item.szName = Stem(a.aPositional[i]);
            if (!LoadPng(a.aPositional[i], item.kImage, error)) return Fail(error);
            items.push_back(std::move(item));
        }
        uint32_t width = 0, height = 0;
        if (!PackAtlas(items, a.uPadding, a.uWidth, width, height, error)) return Fail(error);
        std::vector<uint8_t> file;
        if (!EncodeDds({ComposeAtlas(items, width, height)}, options, file, error)) return Fail(error);
        const std::string imageset = a.szImageset.empty() ? Stem(out) + ".imageset" : a.szImageset;
        const std::string imagesetPath =
            a.szImageset.empty() ? out.substr(0, out.size() - BaseName(out).size()) + imageset : imageset;
        const std::string xml = ImagesetXml(a.szName.empty() ? Stem(out) : a.szName, BaseName(out), items);
        if (!WriteFile(out, file, error)) return Fail(error);
        if (!WriteFile(imagesetPath, std::vector<uint8_t>(xml.begin(), xml.end()), error)) return Fail(error);
        return 0;
    }
}

int main(int argc, char** argv)
{
    if (argc < 2) return Usage("no command");
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help")
    {
        fputs(kUsage, stdout);
        printf("\nFormats: %s\n", ListFormatNames().c_str());
        return 0;
    }
    Args a;
    if (!ParseArgs(argc, argv, a)) return Usage(a.szError.c_str());
    if (command == "encode") return Encode(a);
    if (command == "decode") return Decode(a);
    if (command == "info") return Info(a);
    if (command == "atlas") return Atlas(a);
    if (command == "pattern") return Pattern(a);
    return Usage(("unknown command \"" + command + "\"").c_str());
}
