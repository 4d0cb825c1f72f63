#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamDisk.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/io/IOSTreamPackageSingle.h"
#include "zemrenderer/io/IOStreamPackage.h"
#include "zemrenderer/io/IOStreamPackageManager.h"
#include "zemrenderer/io/tests/IOTestUtil.h"

using namespace ZemRenderer;
using IOTest::TempDir;

namespace
{
    class PackageTest : public ::testing::Test
    {
    protected:
        void SetUp() override { m_pManager = IOStreamPackageManager::Init(); }
        void TearDown() override
        {
            while (m_pManager->GetPackageCount()) m_pManager->Unmount(m_pManager->GetPackage(0));
            m_pManager->SetLogOrder(false);
            IOStreamPackageManager::Release();
        }

        std::string ReadThroughDisk(const std::string& path, bool* fromPackage = nullptr)
        {
            IOSTreamDisk d;
            if (!d.OpenToRead(path.c_str())) return "<missing>";
            if (fromPackage) *fromPackage = d.IsFromPackage();
            std::string out(d.GetSize(), '\0');
            out.resize(d.Read(out.data(), out.size()));
            return out;
        }

        // The package's file list, in directory order.
        static std::vector<std::string> Names(const std::string& path)
        {
            IOStreamPackage p(path.c_str(), 0);
            std::vector<std::string> names;
            if (!p.PostMount()) return names;
            for (unsigned int i = 0; i < p.GetFileCount(); ++i) names.push_back(p.GetFile(i)->szName);
            return names;
        }

        IOStreamPackageManager* m_pManager = nullptr;
        TempDir m_kDir;
    };
}

// Header, one entry for "hello.txt" and the five bytes of "hello": 261 bytes.
TEST_F(PackageTest, GoldenBytesOfAOneFilePackage)
{
    const std::string golden = IOTest::MakePackage("Data", "hello.txt", "hello");
    ASSERT_EQ(golden.size(), 261u);
    const unsigned char head[] = {0x55, 0x98, 0x43, 0x01, 1, 0, 0, 0, 'D', 'a', 't', 'a', 0};
    EXPECT_EQ(golden.compare(0, sizeof(head), std::string(reinterpret_cast<const char*>(head), sizeof(head))), 0);

    IOTest::WriteFile(m_kDir / "Data/hello.txt", "hello");
    const std::string pak = m_kDir / "out.pak";
    ASSERT_TRUE(IOStreamPackage::Create((m_kDir / "Data").c_str(), (m_kDir / "list.txt").c_str(), pak.c_str(), false,
                                        nullptr));
    EXPECT_EQ(IOTest::ReadFile(pak), golden);
    EXPECT_EQ(IOTest::ReadFile(m_kDir / "list.txt"), "hello.txt\n");

    ASSERT_TRUE(IOStreamPackage::Create((m_kDir / "Data").c_str(), (m_kDir / "list.txt").c_str(), pak.c_str(), true,
                                        nullptr));
    EXPECT_EQ(IOTest::ReadFile(pak), IOTest::MakePackage("Data", "hello.txt", "hello", true));
}

TEST_F(PackageTest, BothByteOrdersReadTheSame)
{
    for (bool bigEndian : {false, true})
    {
        const std::string pak = m_kDir / (bigEndian ? "be.pak" : "le.pak");
        IOTest::WriteFile(pak, IOTest::MakePackage("Data", "hello.txt", "hello", bigEndian));
        IOStreamPackage* p = m_pManager->Mount(pak.c_str(), 0);
        bool fromPackage = false;
        EXPECT_EQ(ReadThroughDisk("Data/hello.txt", &fromPackage), "hello");
        EXPECT_TRUE(fromPackage);
        EXPECT_EQ(p->IsSwapped(), bigEndian);
        EXPECT_EQ(p->GetFile(0)->uiOffset, 256u);
        EXPECT_TRUE(m_pManager->Unmount(p));
    }
}

TEST_F(PackageTest, EmptyPackageIsOneRecord)
{
    ASSERT_EQ(mkdir((m_kDir / "Data").c_str(), 0755), 0);
    const std::string pak = m_kDir / "empty.pak";
    ASSERT_TRUE(IOStreamPackage::Create((m_kDir / "Data").c_str(), (m_kDir / "l").c_str(), pak.c_str(), false, nullptr));
    EXPECT_EQ(IOTest::ReadFile(pak).size(), 128u);
    EXPECT_TRUE(Names(pak).empty());
    EXPECT_FALSE(IOStreamPackage::Create((m_kDir / "nope").c_str(), (m_kDir / "l").c_str(), pak.c_str(), false, nullptr));
}

// Every broken package is passed over with a reason, and the disk answers instead.
TEST_F(PackageTest, BadPackagesFallThroughToDisk)
{
    const std::string root = m_kDir.Path();
    IOTest::WriteFile(m_kDir / "f.txt", "disk");
    const std::string good = IOTest::MakePackage(root, "f.txt", "hello");
    struct Case
    {
        const char* name;
        std::string bytes;
        const char* message;
    };
    std::string badMagic = good;
    badMagic[0] = 0x54;
    std::string hugeCount = good;
    IOTest::Put32(hugeCount, 4, 0xFFFFFFF0u);
    std::string pastEnd = good;
    IOTest::Put32(pastEnd, 132, 258);
    std::string noTerminator = good;
    noTerminator.replace(136, 120, std::string(120, 'n'));
    std::string rootNoTerminator = good;
    rootNoTerminator.replace(8, 120, std::string(120, 'r'));
    const Case cases[] = {
        {"bad magic", badMagic, "bad magic 0x01439854"},
        {"shorter than a header", good.substr(0, 100), "shorter than the 128-byte header"},
        {"directory cut", good.substr(0, 200), "the directory of 1 files needs 256 bytes"},
        {"count past the end", hugeCount, "the directory of 4294967280 files"},
        {"entry past the end", pastEnd, "entry 0 (f.txt) points past the end"},
        {"data cut", good.substr(0, 259), "points past the end"},
        {"name without terminator", noTerminator, "the name of entry 0 has no terminator"},
        {"root without terminator", rootNoTerminator, "root path without its terminator"},
        {"empty file", "", "shorter than the 128-byte header"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        const std::string pak = m_kDir / "bad.pak";
        IOTest::WriteFile(pak, c.bytes);
        IOStreamPackage* p = m_pManager->Mount(pak.c_str(), 0);
        Common::ScopedLogCapture log;
        bool fromPackage = true;
        EXPECT_EQ(ReadThroughDisk(root + "/f.txt", &fromPackage), "disk");
        EXPECT_FALSE(fromPackage);
        EXPECT_TRUE(log.Contains(c.message)) << log.Text();
        EXPECT_TRUE(p->IsRejected());
        EXPECT_EQ(p->GetFileCount(), 0u) << "nothing of a rejected directory stays";
        // A rejected package is not read again.
        log.Clear();
        EXPECT_EQ(ReadThroughDisk(root + "/f.txt"), "disk");
        EXPECT_EQ(log.Text(), "");
        m_pManager->Unmount(p);
    }
    // A missing package file is retried at every open and goes live once it exists.
    IOStreamPackage* later = m_pManager->Mount((m_kDir / "later.pak").c_str(), 0);
    EXPECT_EQ(ReadThroughDisk(root + "/f.txt"), "disk");
    IOTest::WriteFile(m_kDir / "later.pak", good);
    EXPECT_EQ(ReadThroughDisk(root + "/f.txt"), "hello");
    EXPECT_TRUE(later->IsLive());
}

TEST_F(PackageTest, RootMatchingRules)
{
    IOTest::WriteFile(m_kDir / "p.pak", IOTest::MakePackage("Data/Sub", "a.txt", "A"));
    m_pManager->Mount((m_kDir / "p.pak").c_str(), 0);
    struct Case
    {
        const char* path;
        bool inPackage;
    };
    const Case cases[] = {
        {"Data/Sub/a.txt", true},   {"Data\\Sub\\\\a.txt", true}, {"Data//Sub/a.txt", true},
        {"Data/Sub", false},        {"Data/Sub/", false},         {"data/Sub/a.txt", false},
        {"Data/Suba.txt", false},   {"Data/Sub/A.TXT", false},    {"Data/Sub/b.txt", false},
    };
    for (const Case& c : cases)
    {
        IOSTreamPackageSingle* s = m_pManager->Open(c.path);
        EXPECT_EQ(s != nullptr, c.inPackage) << c.path;
        MEM_DELETE(s);
    }
}

TEST_F(PackageTest, LaterMountShadowsEarlier)
{
    IOTest::WriteFile(m_kDir / "one.pak", IOTest::MakePackage("Data", "x", "first"));
    IOTest::WriteFile(m_kDir / "two.pak", IOTest::MakePackage("Data", "x", "second"));
    m_pManager->Mount((m_kDir / "one.pak").c_str(), 0);
    IOStreamPackage* two = m_pManager->Mount((m_kDir / "two.pak").c_str(), 0);
    EXPECT_EQ(ReadThroughDisk("Data/x"), "second");
    m_pManager->Unmount(two);
    EXPECT_EQ(ReadThroughDisk("Data/x"), "first");
    // The same file mounted twice: both are live, the later one answers.
    IOStreamPackage* again = m_pManager->Mount((m_kDir / "one.pak").c_str(), 0);
    IOSTreamPackageSingle* s = m_pManager->Open("Data/x");
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->GetPackage(), again);
    MEM_DELETE(s);

    // Within one package, of two entries with one name the later is served.
    std::string twice = IOTest::MakePackage("Dup", "x", "one");
    twice.insert(256, std::string(128, '\0'));
    IOTest::Put32(twice, 4, 2);
    IOTest::Put32(twice, 132, 384);
    IOTest::Put32(twice, 256, 3);
    IOTest::Put32(twice, 260, 384);
    twice[264] = 'x';
    twice += "two";
    IOTest::Put32(twice, 260, 387);
    IOTest::WriteFile(m_kDir / "dup.pak", twice);
    m_pManager->Mount((m_kDir / "dup.pak").c_str(), 0);
    EXPECT_EQ(ReadThroughDisk("Dup/x"), "two");
}

TEST_F(PackageTest, PackageStreamSkipsClampInsideTheFile)
{
    IOTest::WriteFile(m_kDir / "p.pak", IOTest::MakePackage("Data", "d", "0123456789"));
    m_pManager->Mount((m_kDir / "p.pak").c_str(), 0);
    IOSTreamDisk d;
    ASSERT_TRUE(d.OpenToRead("Data/d"));
    EXPECT_EQ(d.GetSize(), 10u);
    EXPECT_EQ(d.Write("x", 1), 0u);
    char c[16] = {};
    d.Skip(4);
    EXPECT_EQ(d.Read(c, 3), 3u);
    EXPECT_EQ(std::string(c, 3), "456");
    EXPECT_TRUE(d.Skip(-static_cast<int64_t>(d.GetPosition())));
    EXPECT_EQ(d.GetPosition(), 0u);
    EXPECT_TRUE(d.Skip(100)) << "past the end clamps and succeeds";
    EXPECT_EQ(d.GetPosition(), 10u);
    EXPECT_EQ(d.Read(c, 1), 0u);
    d.Rewind();
    EXPECT_EQ(d.Read(c, 16), 10u) << "reads stop at the end of the file, not of the package";
    EXPECT_EQ(std::string(c, 10), "0123456789");
}

TEST_F(PackageTest, OneOpenFileAtATimeIsReportedButSafe)
{
    IOTest::WriteFile(m_kDir / "Data/a", "AAAA");
    IOTest::WriteFile(m_kDir / "Data/b", "BBBB");
    const std::string pak = m_kDir / "p.pak";
    ASSERT_TRUE(IOStreamPackage::Create((m_kDir / "Data").c_str(), (m_kDir / "l").c_str(), pak.c_str(), false, nullptr));
    IOStreamPackage* p = m_pManager->Mount(pak.c_str(), 0);
    Common::ScopedLogCapture log;
    IOSTreamPackageSingle* a = m_pManager->Open("Data/a");
    IOSTreamPackageSingle* b = m_pManager->Open("Data/b");
    ASSERT_TRUE(a && b);
    EXPECT_TRUE(log.Contains("forgot to close file"));
    char c[4];
    ASSERT_EQ(a->Read(c, 2), 2u);
    ASSERT_EQ(b->Read(c + 2, 2), 2u);
    EXPECT_EQ(std::string(c, 4), "AABB");
    MEM_DELETE(a);
    EXPECT_TRUE(log.Contains("not same file"));
    // Unmounting under an open file leaves it dead, not dangling.
    m_pManager->Unmount(p);
    EXPECT_EQ(b->Read(c, 2), 0u);
    EXPECT_FALSE(b->IsReadable());
    MEM_DELETE(b);
}

TEST_F(PackageTest, UnmountReportsMisuse)
{
    Common::ScopedLogCapture log;
    EXPECT_FALSE(m_pManager->Unmount(nullptr));
    EXPECT_TRUE(log.Contains("no package"));
    IOStreamPackage stranger("x.pak", 0);
    EXPECT_FALSE(m_pManager->Unmount(&stranger));
    EXPECT_TRUE(log.Contains("mismatch package"));

    IOStreamPackageManager* other = MEM_NEW(IOStreamPackageManager);
    other->Mount("left.pak", 0);
    MEM_DELETE(other);
    EXPECT_TRUE(log.Contains("package not closed"));
}

// Sorted walk, hidden files left out, long names cut at 119, order file first.
TEST_F(PackageTest, CreateIsDeterministicAndFollowsTheOrderFile)
{
    const std::string root = m_kDir / "Data";
    for (const char* f : {"zeta.txt", "b/inner.txt", "a.txt", ".hidden", "b/.git/x", "B.txt"})
        IOTest::WriteFile(root + "/" + f, std::string("content of ") + f);
    const std::string longName(130, 'L');
    IOTest::WriteFile(root + "/" + longName, "long");
    const std::string list = m_kDir / "list.txt";
    const std::string pak = m_kDir / "p.pak";
    ASSERT_TRUE(IOStreamPackage::Create(root.c_str(), list.c_str(), pak.c_str(), false, nullptr));
    const std::vector<std::string> walk = {"B.txt", longName, "a.txt", "b/inner.txt", "zeta.txt"};
    EXPECT_EQ(IOTest::ReadFile(list), "B.txt\n" + longName + "\na.txt\nb/inner.txt\nzeta.txt\n");
    std::vector<std::string> expected = walk;
    expected[1] = longName.substr(0, 119);
    EXPECT_EQ(Names(pak), expected);
    const std::string first = IOTest::ReadFile(pak);
    ASSERT_TRUE(IOStreamPackage::Create(root.c_str(), list.c_str(), pak.c_str(), false, nullptr));
    EXPECT_EQ(IOTest::ReadFile(pak), first) << "the same folder gives the same bytes";

    IOTest::WriteFile(m_kDir / "order.txt", "zeta.txt\r\nb/inner.txt\nzeta.txt\n");
    ASSERT_TRUE(IOStreamPackage::Create(root.c_str(), list.c_str(), pak.c_str(), false,
                                        (m_kDir / "order.txt").c_str()));
    EXPECT_EQ(Names(pak), (std::vector<std::string>{"zeta.txt", "b/inner.txt", "B.txt", longName.substr(0, 119), "a.txt"}));
    m_pManager->Mount(pak.c_str(), 0);
    EXPECT_EQ(ReadThroughDisk("Data/b/inner.txt"), "content of b/inner.txt");
    EXPECT_EQ(ReadThroughDisk("Data/zeta.txt"), "content of zeta.txt");
}

TEST_F(PackageTest, OrderLogFeedsTheNextCreate)
{
    const std::string root = m_kDir / "Data";
    for (const char* f : {"a", "b", "c", "d"}) IOTest::WriteFile(root + "/" + f, f);
    const std::string pak = m_kDir / "p.pak";
    ASSERT_TRUE(IOStreamPackage::Create(root.c_str(), (m_kDir / "l").c_str(), pak.c_str(), false, nullptr));
    m_pManager->SetLogOrder(true);
    IOStreamPackage* p = m_pManager->Mount(pak.c_str(), 0);
    for (const char* f : {"Data/c", "Data/a", "Data/c", "Data/missing"}) ReadThroughDisk(f);
    m_pManager->Unmount(p);
    const std::string log = pak + "_order.txt";
    EXPECT_EQ(IOTest::ReadFile(log), "c\na\nb\nd\n");
    ASSERT_TRUE(IOStreamPackage::Create(root.c_str(), (m_kDir / "l").c_str(), pak.c_str(), false, log.c_str()));
    EXPECT_EQ(Names(pak), (std::vector<std::string>{"c", "a", "b", "d"}));
}

// Restoring a tree is zempack's extract test; here, what must not come out.
TEST_F(PackageTest, UnCompressStaysInsideTheDestination)
{
    std::string evil = IOTest::MakePackage("Data", "../../evil", "bad");
    IOTest::WriteFile(m_kDir / "evil.pak", evil);
    IOStreamPackage e((m_kDir / "evil.pak").c_str(), 0);
    Common::ScopedLogCapture log;
    EXPECT_FALSE(e.UnCompress((m_kDir / "safe").c_str()));
    EXPECT_TRUE(log.Contains("leads outside the destination"));
    EXPECT_FALSE(std::filesystem::exists(m_kDir / "evil"));
}

TEST_F(PackageTest, MemoryStreamLoadsFromAPackage)
{
    std::string big(10000, 'm');
    IOTest::WriteFile(m_kDir / "p.pak", IOTest::MakePackage("Data", "big", big));
    m_pManager->Mount((m_kDir / "p.pak").c_str(), 0);
    IOSTreamMemory m;
    ASSERT_TRUE(m.OpenToRead("Data/big"));
    EXPECT_EQ(m.GetSize(), big.size());
}
