#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/filesystem/FileSystem.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "common/utils/Hash.h"

using Common::CFileBase;
using Common::CFileSystem;

namespace
{
    struct TempDir
    {
        TempDir()
        {
            char pattern[] = "/tmp/zemfsXXXXXX";
            path = mkdtemp(pattern);
        }
        ~TempDir() { std::system(("chmod -R u+rwx " + path + " 2>/dev/null; rm -rf " + path).c_str()); }
        std::string Write(const char* name, const std::string& bytes) const
        {
            const std::string p = path + "/" + name;
            std::ofstream(p, std::ios::binary) << bytes;
            return p;
        }
        std::string path;
    };

    CFileBase* FromBytes(const std::string& bytes)
    {
        CFileBase* f = MEM_NEW(CFileBase, static_cast<uint32_t>(bytes.size()));
        std::memcpy(f->GetBuffer(), bytes.data(), bytes.size());
        return f;
    }

    int64_t NowMs()
    {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    }
}

TEST(FileBase, ReadLineCases)
{
    struct Line
    {
        const char* text;
        int count;
    };
    struct Case
    {
        const char* name;
        std::string bytes;
        int maxLength;
        std::vector<Line> lines;
    };
    const Case cases[] = {
        {"empty", "", 64, {}},
        {"one line", "ab\n", 64, {{"ab", 3}}},
        {"carriage return stays", "ab\r\ncd\n", 64, {{"ab\r", 4}, {"cd", 3}}},
        {"empty lines", "\n\n", 64, {{"", 1}, {"", 1}}},
        {"last line without feed", "a\nlast", 64, {{"a", 2}, {"last", 4}}},
        {"line longer than the buffer", "abcdef\n", 4, {{"abc", 3}, {"def", 3}, {"", 1}}},
        {"embedded zero", std::string("a\0b\n", 4), 64, {{"a", 4}}},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        CFileBase* f = FromBytes(c.bytes);
        char buffer[64];
        for (const Line& l : c.lines)
        {
            ASSERT_EQ(f->ReadLine(buffer, c.maxLength), l.count);
            EXPECT_STREQ(buffer, l.text);
        }
        EXPECT_EQ(f->ReadLine(buffer, c.maxLength), 0);
        EXPECT_EQ(f->GetPosition(), f->GetSize());
        MEM_DELETE(f);
    }
}

TEST(FileSystem, DirectoriesByType)
{
    CFileSystem fs;
    EXPECT_STREQ(fs.GetDirectory(CFileSystem::AssetsRoot), "./Data/");
    for (int type : {0, 1, 3}) EXPECT_STREQ(fs.GetDirectory(type), "");
    EXPECT_TRUE(fs.SetDirectory("/assets/root/", 2));
    EXPECT_STREQ(fs.GetDirectory(2), "/assets/root/");

    for (int bad : {-1, 4, 1000})
    {
        Common::ScopedLogCapture cap;
        EXPECT_EQ(fs.GetDirectory(bad), nullptr);
        EXPECT_FALSE(fs.SetDirectory("x", bad));
        EXPECT_TRUE(cap.Contains("Unknown System Directory Type"));
    }

    Common::ScopedLogCapture cap;
    EXPECT_FALSE(fs.SetDirectory(std::string(1024, 'd').c_str(), 2));
    EXPECT_STREQ(fs.GetDirectory(2), "/assets/root/");
}

TEST(FileSystem, NormalizePathCases)
{
    struct Case
    {
        const char* in;
        const char* out;
    };
    const Case cases[] = {
        {"a//b\\c", "a/b/c"},
        {"\\\\server\\share", "/server/share"},
        {"a\\/\\b", "a/b"},
        {"./Data//prefabs/", "./Data/prefabs/"},
        {"", ""},
    };
    for (const Case& c : cases)
    {
        char buffer[64];
        std::strcpy(buffer, c.in);
        EXPECT_TRUE(CFileSystem::NormalizePath(buffer));
        EXPECT_STREQ(buffer, c.out) << "from " << c.in;
    }
}

TEST(FileSystem, NormalizePathRefusesATooBigPath)
{
    std::string longest(2047, 'a');
    EXPECT_TRUE(CFileSystem::NormalizePath(longest.data()));

    Common::ScopedLogCapture cap;
    std::string tooBig(2048, 'b');
    tooBig[5] = '\\';
    const std::string before = tooBig;
    EXPECT_FALSE(CFileSystem::NormalizePath(tooBig.data()));
    EXPECT_EQ(tooBig, before);
    EXPECT_TRUE(cap.Contains("Assertion \"_iMaxSize > iPathLen\" failed. Input path string to format is too big !"));

    // The input with its zero must fit, even where the result would be shorter.
    char out[5] = {'x', 'x', 'x', 'x', 'x'};
    EXPECT_FALSE(CFileSystem::NormalizePath("a//bc", out, 5));
    EXPECT_EQ(out[0], 'x');
    EXPECT_TRUE(CFileSystem::NormalizePath("a//b", out, 5));
    EXPECT_STREQ(out, "a/b");
}

TEST(FileSystem, OpenReportsOtherErrorsAtOnce)
{
    TempDir dir;
    Common::ScopedLogCapture cap;
    FILE* f = reinterpret_cast<FILE*>(1);
    const int64_t start = NowMs();
    EXPECT_FALSE(CFileSystem::Open((dir.path + "/missing.txt").c_str(), "rb", &f));
    EXPECT_LT(NowMs() - start, 100); // no retry for a missing file
    EXPECT_EQ(f, nullptr);
    EXPECT_EQ(cap.Text(), "fopen_s has launched an error : 2\n");
}

// Denied access is retried three times. Root is never denied a plain file, so the
// opening thread drops its file-system identity (and with it the override) first.
TEST(FileSystem, OpenRetriesDeniedAccessThreeTimes)
{
    TempDir dir;
    const std::string path = dir.Write("locked.txt", "secret");
    ASSERT_EQ(chmod(path.c_str(), 0), 0);
    chmod(dir.path.c_str(), 0755);

    Common::ScopedLogCapture cap;
    bool denied = false;
    bool opened = true;
    int64_t elapsed = 0;
    std::thread opener([&] {
        if (geteuid() == 0) setfsuid(65534);
        FILE* probe = std::fopen(path.c_str(), "rb");
        denied = !probe && errno == EACCES;
        if (probe) std::fclose(probe);
        if (!denied) return;
        FILE* f = nullptr;
        const int64_t start = NowMs();
        opened = CFileSystem::Open(path.c_str(), "rb", &f);
        elapsed = NowMs() - start;
        if (f) std::fclose(f);
    });
    opener.join();
    if (!denied) GTEST_SKIP() << "this process can't be denied access to a file";
    EXPECT_FALSE(opened);
    EXPECT_GE(elapsed, 300);
    EXPECT_EQ(cap.Text(), "fopen_s has launched an error : 13\n");
}

TEST(FileSystem, LoadFileReadsTheWholeFile)
{
    TempDir dir;
    std::string bytes;
    for (int i = 0; i < 70000; ++i) bytes.push_back(static_cast<char>(i * 7));
    const std::string path = dir.Write("blob.bin", bytes);
    CFileBase* f = CFileSystem::LoadFile(path.c_str());
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(f->GetSize(), bytes.size());
    EXPECT_EQ(std::memcmp(f->GetBuffer(), bytes.data(), bytes.size()), 0);
    EXPECT_EQ(f->GetPosition(), 0u);
    MEM_DELETE(f);

    CFileBase* empty = CFileSystem::LoadFile(dir.Write("empty.txt", "").c_str());
    ASSERT_NE(empty, nullptr);
    char line[8];
    EXPECT_EQ(empty->ReadLine(line, sizeof(line)), 0);
    MEM_DELETE(empty);
}

TEST(FileSystem, LoadFileGivesNullForWhatIsNotAFile)
{
    TempDir dir;
    Common::ScopedLogCapture cap;
    EXPECT_EQ(CFileSystem::LoadFile((dir.path + "/missing").c_str()), nullptr);
    EXPECT_TRUE(cap.Contains("fopen_s has launched an error : 2\n"));
    EXPECT_EQ(CFileSystem::LoadFile(dir.path.c_str()), nullptr);
}

TEST(FileSystem, FileIdIsTheHashOfItsBytes)
{
    TempDir dir;
    EXPECT_EQ(GenerateUIntIdFromFile(dir.Write("name.txt", "hello world").c_str()),
              GenerateUIntIdFromString("hello world"));
    const std::string binary("\x00\x01\xff\x10zz", 6);
    EXPECT_EQ(GenerateUIntIdFromFile(dir.Write("bin", binary).c_str()),
              GenerateUIntIdFromBuffer(binary.data(), binary.size(), 0));

    Common::ScopedLogCapture cap;
    EXPECT_EQ(GenerateUIntIdFromFile((dir.path + "/missing").c_str()), 0xFFFFFFFFu);
    EXPECT_EQ(GenerateUIntIdFromFile(dir.path.c_str()), 0xFFFFFFFFu);
    EXPECT_EQ(cap.Text(), "");
}
