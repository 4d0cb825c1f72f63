#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/io/IOSTreamNull.h"
#include "zemrenderer/serialization/tests/SerializationTestTypes.h"

using namespace ZemRenderer;
using namespace ZemRenderer::SerializationTest;

namespace
{
    std::string Contents(IOSTreamMemory& m)
    {
        m.SwitchToRead();
        std::string bytes(m.GetSize(), '\0');
        m.Read(bytes.data(), bytes.size());
        m.Rewind();
        return bytes;
    }

    template <class T>
    std::string WriteToBytes(T& object, bool swap = false)
    {
        IOSTreamMemory m;
        m.OpenToWrite(nullptr);
        EXPECT_TRUE(SerializationManager::WriteFile(m, object, swap));
        return Contents(m);
    }

    template <class T>
    bool ReadFromBytes(const std::string& bytes, T& object)
    {
        IOSTreamExistingMemory in(bytes.data(), bytes.size());
        return SerializationManager::ReadFile(in, object);
    }

    std::string Header(unsigned int type, char swap = 0)
    {
        std::string h("ZEF\x01\x02\x03", 6);
        h.push_back(swap);
        h.append(reinterpret_cast<const char*>(&type), 4);
        return h;
    }
    template <class T>
    void Append(std::string& s, T value)
    {
        s.append(reinterpret_cast<const char*>(&value), sizeof(value));
    }

    struct Empty
    {
        ZEM_SERIALIZABLE_CLASS("ZemRenderer::Link")
        void Serialize(Serializer&) {}
    };
    struct OnePointer
    {
        ZEM_SERIALIZABLE_CLASS("ZemRendererTest::OnePointer")
        Leaf* p = nullptr;
        void Serialize(Serializer& s) { s.SerializePointer(p); }
    };
    struct OneShape
    {
        ZEM_SERIALIZABLE_CLASS("ZemRendererTest::OneShape")
        Shape* p = nullptr;
        void Serialize(Serializer& s) { s.SerializePointer(p); }
    };
    struct Other
    {
        int x = 0;
        void Serialize(Serializer& s) { s.Serialize(x); }
    };
    // Two pointers whose keys a hostile file may make equal.
    struct Pair
    {
        ZEM_SERIALIZABLE_CLASS("ZemRendererTest::Pair")
        Leaf* pArray = nullptr;
        unsigned int uiCount = 0;
        Leaf* pOne = nullptr;
        Other* pOther = nullptr;
        char* szText = nullptr;
        bool bFlag = false;
        void Serialize(Serializer& s)
        {
            s.SerializeArray(pArray, uiCount);
            s.SerializePointer(pOne);
            s.SerializePointer(pOther);
            s.SerializeText(szText);
            s.Serialize(bFlag);
        }
        void Release()
        {
            if (pOne != pArray) MEM_DELETE(pOne);
            SerializationManager::FreeArray(pArray);
            MEM_DELETE(pOther);
            SerializationManager::FreeArray(szText);
        }
    };

    class SerializationTest : public ::testing::Test
    {
    protected:
        static void SetUpTestSuite() { RegisterTestClasses(); }
    };
}

TEST_F(SerializationTest, GraphRoundTripsInBothByteOrders)
{
    for (bool swap : {false, true})
    {
        SCOPED_TRACE(swap ? "swapped" : "native");
        Graph g = BuildGraph();
        const std::string bytes = WriteToBytes(g, swap);
        // The first value behind the header is uiId, in the order asked for.
        const std::string id = bytes.substr(11, 4);
        EXPECT_EQ(id, swap ? std::string("\x11\x22\x33\x44", 4) : std::string("\x44\x33\x22\x11", 4));

        Graph r;
        ASSERT_TRUE(ReadFromBytes(bytes, r));
        EXPECT_EQ(r.uiId, g.uiId);
        EXPECT_EQ(r.dReal, g.dReal);
        EXPECT_TRUE(r.bFlag);
        EXPECT_EQ(r.uiBig, g.uiBig);
        EXPECT_EQ(r.kVector.w, 4.0f);
        EXPECT_EQ(std::string(r.kTag.c, 7), "TAG7abc");
        ASSERT_NE(r.pFirst, nullptr);
        EXPECT_NE(r.pFirst, g.pFirst);
        EXPECT_EQ(r.pFirst->iValue, 7);
        EXPECT_EQ(r.pFirst->sSmall, -3);
        EXPECT_EQ(r.pSecond, r.pFirst) << "a shared object stays shared";
        EXPECT_EQ(r.pFirst->iPostLoads, 1);
        EXPECT_EQ(r.pNone, nullptr);
        ASSERT_EQ(r.uiLeafCount, 3u);
        EXPECT_EQ(r.pLeaves[1].iValue, 101);
        EXPECT_EQ(r.pIntoLeaves, r.pLeaves) << "an array and a pointer with its key are one object";
        ASSERT_NE(r.pLeaves[2].pNext, nullptr);
        EXPECT_EQ(r.pLeaves[2].pNext->iValue, 999);
        EXPECT_STREQ(r.szName, "graph");
        EXPECT_EQ(r.pBytes[1], 0xCD);
        Circle* c = dynamic_cast<Circle*>(r.pShape);
        ASSERT_NE(c, nullptr) << "made by the factory from its class id";
        EXPECT_EQ(c->m_dRadius, 4.25);
        EXPECT_EQ(c->m_fScale, 0.5f);
        EXPECT_EQ(c->m_pCenter->iValue, 55);
        EXPECT_EQ(r.pSameShape, r.pShape);
        EXPECT_EQ(r.pNoShape, nullptr);
        r.Release();
        g.Release();
    }
}

TEST_F(SerializationTest, PointeesFollowInGenerations)
{
    struct Tree
    {
        ZEM_SERIALIZABLE_CLASS("ZemRendererTest::Tree")
        Leaf* a = nullptr;
        Leaf* b = nullptr;
        void Serialize(Serializer& s)
        {
            s.SerializePointer(a);
            s.SerializePointer(b);
        }
    };
    Leaf a, b, c, d;
    a.iValue = 1;
    b.iValue = 2;
    c.iValue = 3;
    d.iValue = 4;
    a.pNext = &c;
    b.pNext = &d;
    c.pNext = &a;  // a cycle costs only a key
    Tree t{&a, &b};
    std::vector<int> visits;
    Leaf::s_pVisits = &visits;
    WriteToBytes(t);
    Leaf::s_pVisits = nullptr;
    EXPECT_EQ(visits, (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(SerializationTest, NullPointerCost)
{
    OnePointer plain;
    OneShape polymorphic;
    EXPECT_EQ(WriteToBytes(plain).size(), 11u + 8u);
    EXPECT_EQ(WriteToBytes(polymorphic).size(), 11u + 8u + 4u) << "a class id of 0 follows in the flush";
    OneShape back;
    back.p = reinterpret_cast<Shape*>(0x1234);
    ASSERT_TRUE(ReadFromBytes(WriteToBytes(polymorphic), back));
    EXPECT_EQ(back.p, nullptr);
}

// Magic, then type, then version; the object stays untouched on any of them.
TEST_F(SerializationTest, HeaderChecksInOrder)
{
    const unsigned int type = OnePointer::GetStaticClassId();
    std::string body;
    Append<unsigned long long>(body, 0);
    std::string badVersion = Header(type);
    badVersion[5] = 4;
    std::string typeAndVersion = Header(type + 1);
    typeAndVersion[3] = 9;
    struct Case
    {
        const char* name;
        std::string bytes;
        const char* message;
    };
    const Case cases[] = {
        {"bad magic", "ZEG" + Header(type).substr(3) + body, "Not a valid Zemora Engine File!"},
        {"wrong type", Header(type + 1) + body, "Wrong Object Type in Zemora Engine File!"},
        {"wrong version", badVersion + body, "Wrong Zemora Engine File version!"},
        {"type before version", typeAndVersion + body, "Wrong Object Type in Zemora Engine File!"},
        {"shorter than a header", Header(type).substr(0, 5), "Not a valid Zemora Engine File!"},
        {"empty", "", "Not a valid Zemora Engine File!"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        Common::ScopedLogCapture log;
        OnePointer o;
        Leaf sentinel;
        o.p = &sentinel;
        EXPECT_FALSE(ReadFromBytes(c.bytes, o));
        EXPECT_TRUE(log.Contains(c.message)) << log.Text();
        EXPECT_EQ(o.p, &sentinel) << "no object routine runs";
    }
}

TEST_F(SerializationTest, UnknownClassIdLeavesNothingBehind)
{
    Graph g = BuildGraph();
    Square* square = MEM_NEW(Square);
    DeleteBaseObject(g.pShape);
    g.pShape = g.pSameShape = square;
    const std::string bytes = WriteToBytes(g);
    ASSERT_TRUE(ClassFactory::GetInstance()->Unregister(Square::GetStaticClassId()));
    Common::ScopedLogCapture log;
    Graph r;
    EXPECT_FALSE(ReadFromBytes(bytes, r));
    ClassFactory::GetInstance()->Register<Square>();
    EXPECT_TRUE(log.Contains("Assertion \"pFunc != 0\" failed.")) << log.Text();
    EXPECT_TRUE(log.Contains("Unknown class id"));
    // Everything the read made is gone again (ASan would see a leak) and nothing points at it.
    for (void* p : {static_cast<void*>(r.pFirst), static_cast<void*>(r.pSecond), static_cast<void*>(r.pLeaves),
                    static_cast<void*>(r.pIntoLeaves), static_cast<void*>(r.szName), static_cast<void*>(r.pBytes),
                    static_cast<void*>(r.pShape), static_cast<void*>(r.pSameShape)})
        EXPECT_EQ(p, nullptr);
    EXPECT_EQ(r.uiId, g.uiId) << "the values before the failure were read";
    g.Release();
}

TEST_F(SerializationTest, EveryTruncationFailsCleanly)
{
    Graph g = BuildGraph();
    const std::string bytes = WriteToBytes(g);
    for (size_t n = 11; n < bytes.size(); ++n)
    {
        Common::ScopedLogCapture log;
        Graph r;
        ASSERT_FALSE(ReadFromBytes(bytes.substr(0, n), r)) << n;
        EXPECT_TRUE(log.Contains("Unexpected end of Zemora Engine File!") || log.Contains("runs past the end"))
            << n << ": " << log.Text();
        EXPECT_TRUE(r.pFirst == nullptr && r.pLeaves == nullptr && r.pShape == nullptr && r.szName == nullptr) << n;
    }
    g.Release();
}

// Files that no writer makes: each is refused with its reason, and the layout read whole.
TEST_F(SerializationTest, InconsistentFilesAreRefused)
{
    const std::string head = Header(Pair::GetStaticClassId());
    struct Case
    {
        const char* name;
        std::string body;
        const char* message;
    };
    // The root's fields: array count and key, two keys, text count and key, the bool.
    auto root = [](unsigned int count, unsigned long long array, unsigned long long one, unsigned long long other,
                   unsigned int textCount, unsigned long long text) {
        std::string b;
        Append(b, count);
        Append(b, array);
        Append(b, one);
        Append(b, other);
        Append(b, textCount);
        Append(b, text);
        b.push_back(0);
        return b;
    };
    std::string leaf;
    Append<int>(leaf, 1);
    Append<short>(leaf, 2);
    Append<unsigned long long>(leaf, 0);
    const Case cases[] = {
        // An empty array and a single pointer with the same key: the object never comes.
        {"key without its object", root(0, 0x50, 0x50, 0, 0, 0), "Pointer key 0x50 never gets its object"},
        {"one key, two types", root(0, 0, 0x60, 0x60, 0, 0) + leaf, "Pointer key 0x60 stands for objects of two types"},
        {"count past the end", root(0xFFFFFFFFu, 0x80, 0, 0, 0, 0), "An array of 4294967295 elements runs past the end"},
        {"text without terminator", root(0, 0, 0, 0, 3, 0x90) + "abc", "Text without its terminator"},
    };
    // The same layout read whole: a bool is any non-zero byte.
    std::string two = root(0, 0, 0, 0, 0, 0);
    two.back() = 2;
    Pair flag;
    ASSERT_TRUE(ReadFromBytes(head + two, flag));
    EXPECT_TRUE(flag.bFlag);
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.name);
        Common::ScopedLogCapture log;
        Pair p;
        EXPECT_FALSE(ReadFromBytes(head + c.body, p));
        EXPECT_TRUE(log.Contains(c.message)) << log.Text();
        EXPECT_TRUE(p.pArray == nullptr && p.pOne == nullptr && p.pOther == nullptr && p.szText == nullptr);
    }
}

TEST_F(SerializationTest, WalkVisitsLiveObjectsWithoutData)
{
    Graph g = BuildGraph();
    const Leaf* first = g.pFirst;
    std::vector<int> visits;
    Leaf::s_pVisits = &visits;
    EXPECT_TRUE(SerializationManager::Walk(g));
    Leaf::s_pVisits = nullptr;
    std::sort(visits.begin(), visits.end());
    EXPECT_EQ(visits, (std::vector<int>{7, 55, 100, 101, 102, 999})) << "each live object once";
    EXPECT_EQ(g.pFirst, first);
    EXPECT_EQ(g.uiId, 0x11223344u);
    EXPECT_EQ(g.pFirst->iPostLoads, 0);
    g.Release();
}

// Thousands of objects at addresses in no order: every key is found again.
TEST_F(SerializationTest, LargeGraphWithScatteredAddresses)
{
    struct Chain
    {
        ZEM_SERIALIZABLE_CLASS("ZemRendererTest::Chain")
        Leaf** ppLeaves = nullptr;
        unsigned int uiCount = 0;
        void Serialize(Serializer& s) { s.SerializeArray(ppLeaves, uiCount); }
    };
    const unsigned int n = 20000;
    std::vector<Leaf*> leaves(n);
    for (unsigned int i = 0; i < n; ++i)
    {
        leaves[i] = MEM_NEW(Leaf);
        leaves[i]->iValue = static_cast<int>(i);
    }
    std::shuffle(leaves.begin(), leaves.end(), std::mt19937(7));
    for (unsigned int i = 0; i < n; ++i) leaves[i]->pNext = leaves[(i * 7919u) % n];
    Chain c;
    c.uiCount = n;
    c.ppLeaves = SerializationManager::AllocateArray<Leaf*>(n);
    std::copy(leaves.begin(), leaves.end(), c.ppLeaves);
    const std::string bytes = WriteToBytes(c);
    EXPECT_EQ(bytes.size(), 11u + 4 + 8 + n * 8u + n * (4 + 2 + 8u));

    Chain r;
    ASSERT_TRUE(ReadFromBytes(bytes, r));
    ASSERT_EQ(r.uiCount, n);
    for (unsigned int i = 0; i < n; ++i)
    {
        ASSERT_EQ(r.ppLeaves[i]->iValue, leaves[i]->iValue);
        ASSERT_EQ(r.ppLeaves[i]->pNext, r.ppLeaves[(i * 7919u) % n]) << i;
    }
    for (unsigned int i = 0; i < n; ++i)
    {
        MEM_DELETE(r.ppLeaves[i]);
        MEM_DELETE(leaves[i]);
    }
    SerializationManager::FreeArray(r.ppLeaves);
    SerializationManager::FreeArray(c.ppLeaves);
}

// A kept read frees exactly what it made, however the pointers alias.
TEST_F(SerializationTest, KeptObjectsAreReleasedOnce)
{
    Graph g = BuildGraph();
    SerializationManager::FreeArray(g.pLeaves);
    g.pLeaves = g.pIntoLeaves = g.pFirst;  // a single object seen again as an array of one
    g.uiLeafCount = 1;
    const std::string bytes = WriteToBytes(g);
    g.pLeaves = g.pIntoLeaves = nullptr;
    g.uiLeafCount = 0;

    SerializationManager m;
    m.SetKeepObjects(true);
    Graph r;
    IOSTreamExistingMemory in(bytes.data(), bytes.size());
    ASSERT_TRUE(m.ReadObject(in, r));
    EXPECT_EQ(r.pLeaves, r.pFirst);
    EXPECT_EQ(r.pFirst->iPostLoads, 1);
    m.ReleaseObjects();
    EXPECT_TRUE(r.pFirst == nullptr && r.pLeaves == nullptr && r.pShape == nullptr && r.szName == nullptr);
    g.Release();
}
