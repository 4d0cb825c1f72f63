#include "common/utils/VectorUnsized.h"

#include <gtest/gtest.h>

#include <string>

using Common::VectorUnsized;

TEST(VectorUnsized, ErasedSlotIsReusedAndOthersStayPut)
{
    VectorUnsized<std::string> v(4);
    v.PushBack("a");
    v.PushBack("b");
    v.PushBack("c");
    std::string* pb = &v.Get(1);
    std::string* pc = &v.Get(2);
    std::string* pa = &v.Get(0);

    EXPECT_EQ(v.Erase(0), "a");
    EXPECT_EQ(v.GetSize(), 2u);
    EXPECT_EQ(&v.Get(0), pb);  // position moved, slot did not
    EXPECT_EQ(&v.Get(1), pc);

    EXPECT_TRUE(v.Insert("z", 1));
    EXPECT_EQ(&v.Get(1), pa);  // the freed slot comes back
    EXPECT_EQ(v.Get(0), "b");
    EXPECT_EQ(v.Get(1), "z");
    EXPECT_EQ(v.Get(2), "c");
    EXPECT_EQ(&v.Get(2), pc);
}

TEST(VectorUnsized, ReportsItsLimits)
{
    struct Case { const char* message; bool (*act)(VectorUnsized<int>&); };
    const Case cases[] = {
        {"Position out of Max Range", [](VectorUnsized<int>& v) { return &v.Get(5) == &v.Get(9); }},
        {"Position out of Range", [](VectorUnsized<int>& v) { return v.Get(1) == 10 && v.Insert(1, 2) == false; }},
        {"Cannot add more element", [](VectorUnsized<int>& v) {
             v.PushBack(1); v.PushBack(2);
             return !v.PushBack(3) && !v.Insert(3, 0) && v.GetSize() == 2; }},
        {"Position out of range", [](VectorUnsized<int>& v) { return v.Erase(2) == 0 && v.GetSize() == 1; }},
        {"Nothing to erase", [](VectorUnsized<int>& v) { return v.Erase(1) == 0 && v.GetSize() == 1; }},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.message);
        VectorUnsized<int> v(2);
        v.PushBack(10);
        Common::ScopedLogCapture cap;
        EXPECT_TRUE(c.act(v));
        EXPECT_TRUE(cap.Contains(c.message));
    }
}
