// zemcard: draws the device test card off-screen and writes it as a PNG.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "TestCard.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLRenderer.h"

namespace
{
    void Usage(FILE* out)
    {
        std::fprintf(out,
                     "usage: zemcard [--output FILE.png] [--size PIXELS]\n"
                     "Draws the device test card off-screen (OpenGL through EGL) and writes it as PNG.\n"
                     "  --output FILE  where the picture goes (testcard.png)\n"
                     "  --size N       width and height in pixels, 64 to 4096 (512)\n"
                     "Exit status: 0 written, 1 bad usage, 2 no OpenGL device, 3 the file could not be written.\n");
    }
}

int main(int argc, char** argv)
{
    std::string output = "testcard.png";
    long size = 512;
    for (int i = 1; i < argc; ++i)
    {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h"))
        {
            Usage(stdout);
            return 0;
        }
        if (!std::strcmp(argv[i], "--output") && i + 1 < argc)
            output = argv[++i];
        else if (!std::strcmp(argv[i], "--size") && i + 1 < argc)
        {
            char* end = nullptr;
            size = std::strtol(argv[++i], &end, 10);
            if (*end || size < 64 || size > 4096)
            {
                std::fprintf(stderr, "zemcard: --size takes 64 to 4096\n");
                return 1;
            }
        }
        else
        {
            Usage(stderr);
            return 1;
        }
    }
    setenv("LP_NUM_THREADS", "2", 0);
    ZemRenderer::GLRenderer device;
    ZemRenderer::RendererInitRecord record;
    record.bNoWindow = 1;
    record.uWidth = record.uHeight = static_cast<uint32_t>(size);
    if (!device.Init(record))
    {
        std::fprintf(stderr, "zemcard: no OpenGL device (see above)\n");
        return 2;
    }
    ZemRenderer::TextureDesc desc;
    desc.uWidth = desc.uHeight = static_cast<uint32_t>(size);
    desc.uBindFlags = ZemRenderer::eBindRenderTarget | ZemRenderer::eBindShaderResource;
    ZemRenderer::Texture* colour = ZemRenderer::Texture::Create(desc, "card");
    desc.uFormat = ZemRenderer::eFormatD24S8;
    desc.uBindFlags = ZemRenderer::eBindDepthStencil;
    ZemRenderer::Texture* depth = ZemRenderer::Texture::Create(desc, "card depth");
    const bool drawn = ZemCard::DrawTestCard(device, colour, depth);
    const bool written = drawn && device.SaveTextureToFile(colour, output.c_str());
    const uint32_t errors = device.GetGLErrorCount();
    device.SetRenderTargets(nullptr, 0, nullptr, nullptr, 0, 0);
    colour->Release();
    depth->Release();
    device.Release();
    if (!written)
    {
        std::fprintf(stderr, "zemcard: could not write %s\n", output.c_str());
        return 3;
    }
    std::printf("%s: %ldx%ld test card%s\n", output.c_str(), size, size, errors ? " (with GL errors, see above)" : "");
    return errors ? 3 : 0;
}
