// The picture comparison the golden tests rest on: tolerance, count, and what a failure leaves.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "zemrenderer/device/tests/GLTestKit.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        RgbaImage Flat(uint32_t w, uint32_t h, uint8_t value)
        {
            RgbaImage image;
            image.uWidth = w;
            image.uHeight = h;
            image.aPixels.assign(size_t(w) * h * 4, value);
            return image;
        }
    }

    TEST(GoldenKit, CountsPixelsBeyondTheTolerancePerChannel)
    {
        RgbaImage a = Flat(4, 4, 100), b = Flat(4, 4, 100);
        b.aPixels[0] = 103;       // pixel 0, within 3
        b.aPixels[4 * 5 + 2] = 96;  // pixel 5, blue off by 4
        b.aPixels[4 * 9 + 3] = 0;   // pixel 9, alpha
        RgbaImage diff;
        EXPECT_EQ(CountDifferingPixels(a, b, 3, &diff), 2u);
        EXPECT_EQ(diff.Pixel(1, 1)[0], 255) << "pixel 5 marked red";
        EXPECT_EQ(diff.Pixel(0, 0)[0], 25) << "the rest faded";
        EXPECT_EQ(CountDifferingPixels(a, b, 200, nullptr), 0u);
        EXPECT_EQ(CountDifferingPixels(a, Flat(4, 3, 100), 3, nullptr), 16u) << "another size differs everywhere";
    }

    TEST(GoldenKit, AFailureLeavesThePictureAndTheDifferenceInTheBuildTree)
    {
        const std::filesystem::path scratch = std::filesystem::path(::testing::TempDir()) / "zem_golden_kit";
        std::filesystem::create_directories(scratch);
        const RgbaImage reference = Flat(8, 8, 50);
        ASSERT_TRUE(WritePng((scratch / "flat.png").c_str(), reference.aPixels.data(), 8, 8));
        ExpectMatchesGoldenIn(scratch, "flat", reference);

        RgbaImage changed = reference;
        for (int i = 0; i < 20; ++i) changed.aPixels[size_t(i) * 4] = 200;
        EXPECT_NONFATAL_FAILURE(ExpectMatchesGoldenIn(scratch, "flat", changed), "20 pixels differ by more than 3");
        const std::filesystem::path out = std::filesystem::current_path() / "golden-out";
        RgbaImage actual, diff;
        EXPECT_TRUE(ReadPng((out / "flat.actual.png").c_str(), actual));
        EXPECT_EQ(actual.aPixels, changed.aPixels);
        EXPECT_TRUE(ReadPng((out / "flat.diff.png").c_str(), diff));
        EXPECT_NONFATAL_FAILURE(ExpectMatchesGoldenIn(scratch, "missing", changed), "no reference");
        std::filesystem::remove_all(scratch);
        for (const char* f : {"flat.actual.png", "flat.diff.png", "missing.actual.png"}) std::filesystem::remove(out / f);
    }
}
