// The zemcard program: its usage, its exit statuses, and the same bytes on every run.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "zemrenderer/device/PngImage.h"

namespace
{
    int RunZemCard(const std::string& arguments)
    {
        const std::string command = std::string("LP_NUM_THREADS=2 ") + ZEMCARD_BIN + " " + arguments + " >/dev/null 2>&1";
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string Bytes(const std::filesystem::path& path)
    {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
}

TEST(ZemCardTool, UsageAndExitStatuses)
{
    EXPECT_EQ(RunZemCard("--help"), 0);
    EXPECT_EQ(RunZemCard("--frobnicate"), 1);
    EXPECT_EQ(RunZemCard("--size 12"), 1) << "below 64";
    EXPECT_EQ(RunZemCard("--size 64x"), 1);
    EXPECT_EQ(RunZemCard("--size 64 --output /nonexistent-dir/card.png"), 3);
    EXPECT_EQ(RunZemCard("--size 64 --output /tmp/zem_card_no_gl.png ZEM_NO_GL"), 1) << "a stray word is bad usage";
    const std::string noGL = "ZEM_NO_GL=1 " + std::string(ZEMCARD_BIN) + " --size 64 --output /tmp/zem_card_no_gl.png >/dev/null 2>&1";
    const int status = std::system(noGL.c_str());
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, 2) << "no OpenGL device";
}

TEST(ZemCardTool, WritesTheSameBytesEveryRun)
{
    const std::filesystem::path dir = std::filesystem::path(::testing::TempDir()) / "zem_card_tool";
    std::filesystem::create_directories(dir);
    const std::filesystem::path first = dir / "a.png", second = dir / "b.png";
    const int status = RunZemCard("--size 128 --output " + first.string());
    if (status == 2) GTEST_SKIP() << "no EGL device on this machine";
    ASSERT_EQ(status, 0);
    ASSERT_EQ(RunZemCard("--size 128 --output " + second.string()), 0);
    const std::string a = Bytes(first);
    EXPECT_FALSE(a.empty());
    EXPECT_EQ(a, Bytes(second));
    ZemRenderer::RgbaImage image;
    ASSERT_TRUE(ZemRenderer::ReadPng(first.c_str(), image));
    EXPECT_EQ(image.uWidth, 128u);
    EXPECT_EQ(image.uHeight, 128u);
    std::filesystem::remove_all(dir);
}
