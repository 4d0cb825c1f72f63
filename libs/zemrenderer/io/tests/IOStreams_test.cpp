#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/statvfs.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamDisk.h"
#include "zemrenderer/io/IOSTreamDiskBigFile.h"
#include "zemrenderer/io/IOSTreamDiskNoPackage.h"
#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/io/IOSTreamNull.h"
#include "zemrenderer/io/tests/IOTestUtil.h"

using namespace ZemRenderer;
using ZemRenderer::IOTest::TempDir;

TEST(IOSTreamMemory, FullBlockAddsNoBlockUntilTheNextWrite)
{
    IOSTreamMemory m;
    ASSERT_TRUE(m.OpenToWrite(nullptr));
    std::string block(4096, 'x');
    EXPECT_EQ(m.Write(block.data(), block.size()), 4096u);
    EXPECT_EQ(m.GetBlockCount(), 1u);
    EXPECT_EQ(m.Write("y", 1), 1u);
    EXPECT_EQ(m.GetBlockCount(), 2u);
    EXPECT_EQ(m.GetSize(), 4097u);
}

TEST(IOSTreamMemory, TextInOneBlockReadsAsCString)
{
    IOSTreamMemory m;
    m.OpenToWrite(nullptr);
    m.Write("abc", 3);
    m.Write("de", 2);
    EXPECT_STREQ(reinterpret_cast<const char*>(m.GetFirstBlock()->aData), "abcde");
}

TEST(IOSTreamMemory, ReadsAcrossBlocksAndSkipsBothWays)
{
    IOSTreamMemory m;
    m.OpenToWrite(nullptr);
    std::string data;
    for (int i = 0; i < 10000; ++i) data.push_back(static_cast<char>(i * 7));
    // Odd write sizes so that writes straddle block boundaries.
    for (size_t at = 0; at < data.size(); at += 333) m.Write(data.data() + at, std::min<size_t>(333, data.size() - at));
    EXPECT_EQ(m.Read(data.data(), 1), 0u) << "a stream open for writing does not read";
    ASSERT_TRUE(m.SwitchToRead());
    EXPECT_EQ(m.Write("z", 1), 0u) << "a stream open for reading does not write";

    std::string back(data.size(), '\0');
    EXPECT_EQ(m.Read(back.data(), back.size()), data.size());
    EXPECT_EQ(back, data);
    EXPECT_EQ(m.Read(back.data(), 1), 0u);

    struct Case { int64_t skip; size_t position; bool ok; };
    const Case cases[] = {{-10000, 0, true}, {4096, 4096, true}, {-1, 4095, true}, {5000, 9095, true},
                          {-9096, 0, false}, {8192, 8192, true}, {5000, 10000, false}};
    for (const Case& c : cases)
    {
        EXPECT_EQ(m.Skip(c.skip), c.ok) << c.skip;
        EXPECT_EQ(m.GetPosition(), c.position) << c.skip;
        char byte = 0;
        if (c.position < data.size())
        {
            ASSERT_EQ(m.Read(&byte, 1), 1u);
            EXPECT_EQ(byte, data[c.position]);
            m.Skip(-1);
        }
    }
    m.Close();
    EXPECT_EQ(m.GetSize(), 0u);
    EXPECT_FALSE(m.IsReadable());
}

TEST(IOSTreamMemory, OpenToReadLoadsAWholeFile)
{
    TempDir dir;
    std::string data(9000, 'q');
    data[8999] = 'e';
    IOTest::WriteFile(dir / "f.bin", data);
    IOSTreamMemory m;
    ASSERT_TRUE(m.OpenToRead((dir / "f.bin").c_str()));
    EXPECT_EQ(m.GetSize(), 9000u);
    EXPECT_EQ(m.GetBlockCount(), 3u);
    std::string back(9000, '\0');
    EXPECT_EQ(m.Read(back.data(), 9000), 9000u);
    EXPECT_EQ(back, data);
    EXPECT_FALSE(m.OpenToRead((dir / "missing").c_str()));
    EXPECT_FALSE(m.IsReadable());
}

TEST(IOSTreamExistingMemory, BoundsAndDirections)
{
    char buffer[8] = "1234567";
    IOSTreamExistingMemory r(buffer, 8);
    EXPECT_FALSE(r.OpenToRead("x"));
    EXPECT_FALSE(r.OpenToWrite("x"));
    EXPECT_EQ(r.Write("a", 1), 0u);
    EXPECT_TRUE(r.Skip(3));
    char out[16] = {};
    EXPECT_EQ(r.Read(out, 16), 5u);
    EXPECT_STREQ(out, "4567");
    EXPECT_FALSE(r.Skip(1)) << "past the end clamps and fails";
    EXPECT_EQ(r.GetPosition(), 8u);
    EXPECT_FALSE(r.Skip(-20));
    EXPECT_EQ(r.GetPosition(), 0u);

    char target[4] = {};
    IOSTreamExistingMemory w(target, 4, false, false);
    EXPECT_EQ(w.Read(out, 1), 0u);
    EXPECT_EQ(w.Write("abcdef", 6), 4u) << "a write stops at the end of the buffer";
    EXPECT_EQ(std::string(target, 4), "abcd");

    void* owned = MEM_ALLOC(32);
    IOSTreamExistingMemory o(owned, 32, true);
    EXPECT_TRUE(o.Close());  // frees the owned buffer; a leak or double free shows under ASan
    EXPECT_EQ(o.GetSize(), 0u);
}

TEST(IOSTreamNull, ReadsReportSizeWritesCount)
{
    IOSTreamNull n(true);
    EXPECT_TRUE(n.SkipsData());
    n.OpenToWrite("Dummy");
    EXPECT_EQ(n.Write(nullptr, 10), 10u);
    EXPECT_TRUE(n.Skip(5));
    EXPECT_EQ(n.GetSize(), 15u);
    EXPECT_EQ(n.Read(nullptr, 4), 0u);
    n.OpenToRead("Dummy");
    int value = 42;
    EXPECT_EQ(n.Read(&value, sizeof(value)), sizeof(value));
    EXPECT_EQ(value, 42) << "no data moves";
    EXPECT_FALSE(IOSTreamNull().SkipsData());
}

TEST(IOSTreamDiskNoPackage, PendingSkipsApplyAtTheNextRead)
{
    TempDir dir;
    IOTest::WriteFile(dir / "digits", "0123456789");
    IOSTreamDiskNoPackage d;
    ASSERT_TRUE(d.OpenToRead((dir / "digits").c_str()));
    EXPECT_EQ(d.GetSize(), 10u);
    char c[4] = {};
    EXPECT_TRUE(d.Skip(3));
    EXPECT_TRUE(d.Skip(2));
    EXPECT_EQ(d.GetPosition(), 5u);
    EXPECT_EQ(d.Read(c, 2), 2u);
    EXPECT_EQ(std::string(c, 2), "56");
    EXPECT_TRUE(d.Rewind());
    EXPECT_EQ(d.GetPosition(), 0u);
    EXPECT_EQ(d.Read(c, 1), 1u);
    EXPECT_EQ(c[0], '0');
    EXPECT_FALSE(d.Skip(-5)) << "before the start";
    EXPECT_EQ(d.GetPosition(), 0u);
    d.Skip(8);
    EXPECT_EQ(d.Read(c, 4), 2u);
    EXPECT_EQ(d.Read(c, 4), 0u) << "at the end";
    EXPECT_EQ(d.GetPosition(), 10u);
    EXPECT_EQ(d.Write("x", 1), 0u);

    IOSTreamDiskNoPackage w;
    ASSERT_TRUE(w.OpenToWrite((dir / "out").c_str()));
    EXPECT_EQ(w.GetSize(), static_cast<size_t>(-1));
    EXPECT_EQ(w.Read(c, 1), 0u);
    w.Write("ab", 2);
    w.Skip(2);
    w.Write("cd", 2);
    w.Close();
    EXPECT_EQ(IOTest::ReadFile(dir / "out"), std::string("ab\0\0cd", 6));
    EXPECT_FALSE(IOSTreamDiskNoPackage().OpenToRead((dir / "missing").c_str()));
}

TEST(IOSTreamDiskNoPackage, ReadAndCacheServesOneBlockAgain)
{
    TempDir dir;
    IOTest::WriteFile(dir / "f", "abcdefgh");
    IOSTreamDiskNoPackage d;
    ASSERT_TRUE(d.OpenToRead((dir / "f").c_str()));
    char a[4] = {};
    char b[4] = {};
    EXPECT_TRUE(d.ReadAndCache(a, 4));
    EXPECT_FALSE(d.ReadAndCache(b, 3)) << "another size than the held block";
    EXPECT_TRUE(d.ReadAndCache(b, 4));
    EXPECT_EQ(std::string(b, 4), "abcd");
    EXPECT_EQ(d.GetPosition(), 8u);
    d.FreeCache();
    EXPECT_FALSE(d.ReadAndCache(b, 4)) << "nothing left to read";
}

TEST(IOSTreamDisk, SeparatorsAreNormalised)
{
    TempDir dir;
    IOTest::WriteFile(dir / "a/b.txt", "ok");
    IOSTreamDisk d;
    const std::string messy = dir.Path() + "//a\\\\b.txt";
    ASSERT_TRUE(d.OpenToRead(messy.c_str()));
    EXPECT_FALSE(d.IsFromPackage());
    char c[2];
    EXPECT_EQ(d.Read(c, 2), 2u);
    EXPECT_TRUE(d.Close());
    EXPECT_EQ(d.Read(c, 2), 0u);
}

TEST(IOSTreamDiskBigFile, PositionsPastFourGigabytes)
{
    TempDir dir;
    struct statvfs fs;
    ASSERT_EQ(statvfs(dir.Path().c_str(), &fs), 0);
    const std::string path = dir / "big";
    const uint64_t far = (5ull << 30) + 123;
    IOSTreamDiskBigFile w;
    ASSERT_TRUE(w.OpenToWrite(path.c_str()));
    ASSERT_TRUE(w.Skip(static_cast<int64_t>(far)));
    EXPECT_EQ(w.GetPosition(), far);
    if (w.Write("page", 4) != 4) GTEST_SKIP() << "this file system does not hold sparse files past 4 GB";
    EXPECT_EQ(w.GetPosition(), far + 4);
    w.Close();

    IOSTreamDiskBigFile r;
    ASSERT_TRUE(r.OpenToRead(path.c_str()));
    EXPECT_EQ(r.GetSize(), far + 4);
    r.Skip(static_cast<int64_t>(far + 2));
    char c[8] = {};
    EXPECT_EQ(r.Read(c, 8), 2u);
    EXPECT_EQ(std::string(c, 2), "ge");
    r.Rewind();
    r.Skip(static_cast<int64_t>(far));
    EXPECT_EQ(r.Read(c, 4), 4u);
    EXPECT_EQ(std::string(c, 4), "page");
    EXPECT_FALSE(r.Skip(-static_cast<int64_t>(far) - 100));
    EXPECT_EQ(r.GetPosition(), 0u);
    EXPECT_EQ(r.Write("x", 1), 0u);
}
