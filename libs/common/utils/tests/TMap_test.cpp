#include "common/utils/TMap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "common/utils/CMap.h"

using ZemRenderer::TMap;

TEST(TMap, InsertKeepsKeysSortedAndReplaces)
{
    TMap<unsigned int, int> m;
    const unsigned int keys[] = {50, 10, 30, 20, 40, 0, 60};
    for (unsigned int k : keys) m.Insert(k, static_cast<int>(k) + 1);
    ASSERT_EQ(m.GetSize(), 7u);
    for (unsigned int i = 1; i < m.GetSize(); ++i) EXPECT_LT(m.GetAt(i - 1).key, m.GetAt(i).key);

    auto& pair = m.Insert(30, -5);
    EXPECT_EQ(pair.value, -5);
    EXPECT_EQ(m.GetSize(), 7u);  // replaced, not added
    EXPECT_EQ(m.Find(30), -5);
    EXPECT_EQ(m.Find(31), 0);  // null value
    EXPECT_EQ(m.FindIndex(31), 0xFFFFFFFFu);

    m.RemoveAt(m.FindIndex(0));
    EXPECT_EQ(m.GetAt(0).key, 10u);
    EXPECT_FALSE(m.Contains(0));
}

TEST(TMap, GrowthByAQuarter)
{
    TMap<unsigned int, void*> m;
    std::vector<unsigned int> caps;
    for (unsigned int k = 0; k < 9; ++k)
    {
        m.Insert(k * 3, nullptr);
        caps.push_back(m.GetCapacity());
    }
    EXPECT_EQ(caps, (std::vector<unsigned int>{1, 2, 3, 5, 6, 7, 8, 10, 10}));
}

TEST(TMap, EmptyFindIndexDoesNotTouchTheArray)
{
    TMap<unsigned int, int> m;
    EXPECT_EQ(m.FindIndex(5), 0xFFFFFFFFu);
    m.Insert(5, 1);
    m.RemoveAt(0);
    EXPECT_EQ(m.FindIndex(5), 0xFFFFFFFFu);
}

TEST(TMap, AgreesWithStdMapOnRandomWork)
{
    std::mt19937 rng(7);
    TMap<unsigned int, unsigned int> m;
    Common::CMap<const void*, unsigned int> c;
    std::map<unsigned int, unsigned int> ref;
    for (int i = 0; i < 3000; ++i)
    {
        const unsigned int k = rng() % 500;
        if (rng() % 4 == 0)
        {
            const bool had = ref.erase(k) > 0;
            EXPECT_EQ(m.Remove(k), had);
            EXPECT_EQ(c.Remove(reinterpret_cast<const void*>(uintptr_t(k))), had);
        }
        else
        {
            ref[k] = i;
            m.Insert(k, i);
            c.Insert(reinterpret_cast<const void*>(uintptr_t(k)), i);
        }
    }
    ASSERT_EQ(m.GetSize(), ref.size());
    ASSERT_EQ(c.GetSize(), ref.size());
    unsigned int i = 0;
    for (const auto& [k, v] : ref)
    {
        EXPECT_EQ(m.GetAt(i).key, k);
        EXPECT_EQ(m.Find(k), v);
        EXPECT_EQ(c.Find(reinterpret_cast<const void*>(uintptr_t(k))), v);
        ++i;
    }
    static_assert(sizeof(c.GetSize()) == 8, "CMap counts in 64 bits");
}
