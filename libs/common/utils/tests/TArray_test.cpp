#include "common/utils/TArray.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using ZemRenderer::TArray;

namespace
{
    // Counts live objects so that leaks and double destruction show.
    struct Tracked
    {
        static int s_iLive;
        int iValue = -1;
        Tracked() { ++s_iLive; }
        explicit Tracked(int v) : iValue(v) { ++s_iLive; }
        Tracked(const Tracked& o) : iValue(o.iValue) { ++s_iLive; }
        Tracked& operator=(const Tracked&) = default;
        ~Tracked() { --s_iLive; }
        bool operator==(const Tracked& o) const { return iValue == o.iValue; }
    };
    int Tracked::s_iLive = 0;
}

TEST(TArray, CapacityJumpsToMaxThenReportsFull)
{
    TArray<int, unsigned char> a;
    EXPECT_EQ(a.GetData(), nullptr);
    std::vector<unsigned> caps;
    for (int i = 0; i < 255; ++i)
    {
        a.Add(i);
        if (caps.empty() || caps.back() != a.GetCapacity()) caps.push_back(a.GetCapacity());
    }
    // Sixteen, then doubling, then the index type's limit.
    EXPECT_EQ(caps, (std::vector<unsigned>{16, 32, 64, 128, 255}));
    for (int i = 0; i < 255; ++i) ASSERT_EQ(a[i], i);

    Common::ScopedLogCapture cap;
    a.Add(999);
    EXPECT_TRUE(cap.Contains("Assertion \"m_uiSize<uiMaxValue\" failed. TArray capacity is full already"));
    EXPECT_EQ(a.GetSize(), 255u);
    EXPECT_EQ(a[254], 254);  // nothing overwritten
}

TEST(TArray, ObjectsAreConstructedAndDestroyed)
{
    Tracked::s_iLive = 0;
    {
        TArray<Tracked> a;
        for (int i = 0; i < 40; ++i) a.Add(Tracked(i));
        EXPECT_EQ(Tracked::s_iLive, 40);
        a.Add(a[3]);  // aliasing an element across a growth
        EXPECT_EQ(a[40].iValue, 3);
        EXPECT_EQ(a.Remove(0).iValue, 0);
        EXPECT_EQ(Tracked::s_iLive, 40);
        EXPECT_EQ(a[0].iValue, 1);  // order kept
        EXPECT_EQ(a.Find(Tracked(39)), 38u);
        EXPECT_EQ(a.Find(Tracked(1000)), TArray<Tracked>::npos);

        TArray<Tracked> b;
        b = a;
        EXPECT_EQ(b.GetCapacity(), a.GetSize());  // reallocated to the source's size
        EXPECT_EQ(Tracked::s_iLive, 80);
        a.Resize(10);
        EXPECT_EQ(Tracked::s_iLive, 50);
        const unsigned int capBefore = a.GetCapacity();
        a.Clear();
        EXPECT_EQ(a.GetSize(), 0u);
        EXPECT_EQ(a.GetCapacity(), capBefore);  // block kept
        EXPECT_EQ(Tracked::s_iLive, 40);
        a.Insert(0, Tracked(7));
        a.Insert(0, Tracked(5));
        a.Insert(1, Tracked(6));
        EXPECT_EQ(a[0].iValue, 5);
        EXPECT_EQ(a[1].iValue, 6);
        EXPECT_EQ(a[2].iValue, 7);
    }
    EXPECT_EQ(Tracked::s_iLive, 0);
}

TEST(TArray, ReserveAndAssignmentKeepCapacityRules)
{
    TArray<std::string> a;
    a.Reserve(100);
    EXPECT_EQ(a.GetCapacity(), 100u);
    a.Reserve(10);
    EXPECT_EQ(a.GetCapacity(), 100u);  // never falls
    a.Add("x");
    TArray<std::string> small;
    small.Add("1");
    small.Add("2");
    a = small;
    EXPECT_EQ(a.GetCapacity(), 100u);  // big enough: not reallocated
    EXPECT_EQ(a.GetSize(), 2u);
    EXPECT_EQ(a[1], "2");

    TArray<int> raw;
    raw.Reserve(8);
    raw.SetSize(8);
    EXPECT_EQ(raw.GetSize(), 8u);
    Common::ScopedLogCapture cap;
    {
        TArray<int> r;
        r.Remove(0);
    }
    EXPECT_TRUE(cap.Contains("Remove index 0 out of range"));
}
