// Texture files on the GL device: every generated file uploads and reads back
// (glGetTextureImage, which decodes block formats) to the picture it was made from.
#include <gtest/gtest.h>

#include <epoxy/gl.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "zemrenderer/device/PngImage.h"
#include "zemrenderer/device/tests/GLTestKit.h"
#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/texture/TextureReader.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        std::vector<uint8_t> ReadData(const std::string& name)
        {
            std::ifstream in(std::string(ZEM_TEXTURE_TEST_DATA) + "/" + name, std::ios::binary);
            return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        }

        RgbaImage ReadPattern(const std::string& name)
        {
            RgbaImage image;
            std::string error;
            EXPECT_TRUE(ReadPng((std::string(ZEM_TEXTURE_TEST_DATA) + "/" + name).c_str(), image, &error)) << error;
            return image;
        }

        // Uploads each buffer at once: the test runs on the device's thread.
        class DirectTarget : public ITextureUpdateTarget
        {
        public:
            DirectTarget(Renderer& device, Texture* texture) : m_rDevice(device), m_pTexture(texture) {}
            bool Commit(TextureInfo&, TextureUpdateBuffer* buffer, bool) override
            {
                const bool ok = m_rDevice.UploadTexture(m_pTexture, *buffer, m_bCreate);
                m_bCreate = false;
                MEM_DELETE(buffer);
                return ok;
            }
            bool m_bCreate = true;

        private:
            Renderer& m_rDevice;
            Texture* m_pTexture;
        };

        // 8-bit RGBA of one level (one face, or all slices), as GL converts it.
        std::vector<uint8_t> ReadBack(Texture* texture, uint32_t level, uint32_t face = 0)
        {
            const TextureInfo& info = texture->GetFileInfo();
            const uint32_t w = std::max(1u, info.uWidth >> level), h = std::max(1u, info.uHeight >> level);
            const uint32_t d = info.uFlags == eTextureVolume ? std::max(1u, uint32_t(info.uDepth) >> level) : 1;
            std::vector<uint8_t> out(size_t(w) * h * d * 4);
            glPixelStorei(GL_PACK_ALIGNMENT, 1);
            if (info.uFlags == eTextureCube)
                glGetTextureSubImage(texture->GetDeviceObject(), level, 0, 0, face, w, h, 1, GL_RGBA, GL_UNSIGNED_BYTE,
                                     GLsizei(out.size()), out.data());
            else
                glGetTextureImage(texture->GetDeviceObject(), level, GL_RGBA, GL_UNSIGNED_BYTE, GLsizei(out.size()),
                                  out.data());
            glPixelStorei(GL_PACK_ALIGNMENT, 4);
            return out;
        }

        // The largest difference over the first `channels` channels, and the mean in `mean`.
        int MaxDifference(const std::vector<uint8_t>& a, const uint8_t* b, size_t pixels, int channels,
                          double* mean = nullptr)
        {
            int worst = 0;
            double sum = 0;
            for (size_t p = 0; p < pixels; ++p)
                for (int c = 0; c < channels; ++c)
                {
                    const int e = std::abs(int(a[p * 4 + c]) - int(b[p * 4 + c]));
                    worst = std::max(worst, e);
                    sum += e;
                }
            if (mean) *mean = sum / double(pixels * channels);
            return worst;
        }

        Texture* LoadDirect(Renderer& device, const std::vector<uint8_t>& file, const char* name)
        {
            TextureDesc desc;
            desc.uWidth = desc.uHeight = 1;
            Texture* texture = Texture::Create(desc, name);
            DirectTarget target(device, texture);
            IOSTreamExistingMemory stream(file.data(), file.size());
            EXPECT_TRUE(TextureReader::LoadTexture(&texture->GetFileInfo(), &stream, {}, target)) << name;
            return texture;
        }
    }

    using TextureDevice = GLDeviceTest;

    TEST_F(TextureDevice, EveryGeneratedFormatReadsBackToItsPicture)
    {
        const RgbaImage pattern = ReadPattern("pattern_8x8.png");
        ASSERT_EQ(pattern.uWidth, 8u);
        // Channels the format keeps, and the largest and mean 8-bit differences its encoding
        // allows on this picture (its gradients are steep: each 4x4 block spans three
        // sevenths of red and of green, which a block format's line of four colours can't follow).
        struct Case
        {
            const char* file;
            int channels;
            int tolerance;
            double meanTolerance = 0.5;
        } cases[] = {
            {"format_bgra8.dds", 4, 0},        {"format_rgba8.dds", 4, 0},       {"format_rgba8_typeless.dds", 4, 0},
            {"format_rgba8_uint.dds", 4, 0},   {"format_rgba8_uint_element.dds", 4, 0},
            {"format_rgb8.dds", 3, 0},         {"format_r8.dds", 1, 0},          {"format_rg16.dds", 2, 0},
            {"format_rgba16.dds", 4, 0},       {"format_r16.dds", 1, 0},         {"format_rgb10a2.dds", 3, 1},
            {"format_rgb10a2_uint.dds", 3, 1}, {"format_r16f.dds", 1, 0},        {"format_rg16f.dds", 2, 0},
            {"format_rgba16f.dds", 4, 0},      {"format_r32f.dds", 1, 0},        {"format_rg32f.dds", 2, 0},
            {"format_rgb32f.dds", 3, 0},       {"format_rgba32f.dds", 4, 0},     {"format_r11g11b10f.dds", 3, 3},
            {"format_bc1.dds", 3, 72, 20.0},         {"format_bc2.dds", 4, 72, 20.0},        {"format_bc3.dds", 4, 72, 20.0},
            {"format_bc1_srgb.dds", 3, 72, 20.0},    {"format_bc2_srgb.dds", 4, 72, 20.0},   {"format_bc3_srgb.dds", 4, 72, 20.0},
            {"format_bc4.dds", 1, 6, 3.0},          {"format_bc5.dds", 2, 6, 3.0},         {"linear_bc3.dds", 4, 72, 20.0},
        };
        for (const Case& c : cases)
        {
            Texture* texture = LoadDirect(Device(), ReadData(c.file), c.file);
            ASSERT_NE(texture->GetDeviceObject(), 0u) << c.file;
            EXPECT_EQ(texture->GetWidth(), 8u) << "the device description follows the file";
            EXPECT_EQ(texture->GetDesc().uMipLevels, 4u);
            const std::vector<uint8_t> pixels = ReadBack(texture, 0);
            double mean = 0;
            EXPECT_LE(MaxDifference(pixels, pattern.aPixels.data(), 64, c.channels, &mean), c.tolerance) << c.file;
            EXPECT_LE(mean, c.meanTolerance) << c.file;
            if (getenv("ZEM_TEXTURE_TEST_VERBOSE")) printf("%s mean %.2f\n", c.file, mean);
            texture->Release();
        }
    }

    TEST_F(TextureDevice, MipsCubeFacesAndVolumeSlicesLandWhereTheFileSays)
    {
        // Every mip of the BGRA8 file is its bytes, blue and red swapped.
        const std::vector<uint8_t> file = ReadData("format_bgra8.dds");
        Texture* flat = LoadDirect(Device(), file, "flat");
        size_t at = Dds::kHeaderSize;
        for (uint32_t level = 0; level < 4; ++level)
        {
            const std::vector<uint8_t> pixels = ReadBack(flat, level);
            for (size_t p = 0; p < pixels.size() / 4; ++p, at += 4)
            {
                ASSERT_EQ(pixels[p * 4 + 0], file[at + 2]) << level;
                ASSERT_EQ(pixels[p * 4 + 2], file[at + 0]) << level;
                ASSERT_EQ(pixels[p * 4 + 3], file[at + 3]) << level;
            }
        }
        flat->Release();

        // Faces 0, 2, 4 of the three-face cube are the strip's three squares.
        const RgbaImage strip = ReadPattern("pattern_cube3.png");
        Texture* cube = LoadDirect(Device(), ReadData("cube3_bgra8.dds"), "cube3");
        EXPECT_TRUE(cube->HasBindFlag(eBindCube));
        for (uint32_t i = 0; i < 3; ++i)
            EXPECT_EQ(MaxDifference(ReadBack(cube, 0, i * 2), strip.Pixel(0, i * 8), 64, 4), 0) << "face " << i * 2;
        cube->Release();

        const RgbaImage slices = ReadPattern("pattern_volume.png");
        Texture* volume = LoadDirect(Device(), ReadData("volume_bgra8.dds"), "volume");
        EXPECT_EQ(MaxDifference(ReadBack(volume, 0), slices.aPixels.data(), 8 * 32, 4), 0);
        volume->Release();

        const RgbaImage big = ReadPattern("pattern_tiled.png");
        Texture* tiled = LoadDirect(Device(), ReadData("tiled_bc1.dds"), "tiled");
        EXPECT_LE(MaxDifference(ReadBack(tiled, 0), big.aPixels.data(), size_t(384) * 320, 3), 24);
        tiled->Release();
    }
}
