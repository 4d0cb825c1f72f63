#include "common/utils/String.h"

#include <gtest/gtest.h>

#include <string>

#include "common/utils/TArray.h"

TEST(String, SearchAndSubstring)
{
    const Common::String s("Toolchain/Shaders/Deferred.fx");
    EXPECT_EQ(s.find('/'), 9u);
    EXPECT_EQ(s.find('/', 10), 17u);
    EXPECT_EQ(s.find('/', 100), Common::String::npos);
    EXPECT_EQ(s.find('#'), Common::String::npos);
    EXPECT_EQ(s.rfind('/'), 17u);
    EXPECT_EQ(s.rfind('#'), Common::String::npos);
    EXPECT_TRUE(s.substring(10, 17) == "Shaders");
    EXPECT_TRUE(s.substring(s.rfind('.') + 1) == "fx");
    EXPECT_TRUE(s.substring(5, 3).empty());
    EXPECT_EQ(Common::String::npos, static_cast<size_t>(-1));
    // Comparison is exact and case-sensitive.
    EXPECT_TRUE(Common::String("Root") == "Root");
    EXPECT_FALSE(Common::String("Root") == "root");
    EXPECT_FALSE(Common::String("Root") == "Roo");
    EXPECT_FALSE(Common::String("Root") == nullptr);
    EXPECT_TRUE(Common::String() == "");
}

TEST(String, TooLongTextIsRejectedAndLeavesItEmpty)
{
    const std::string fits(1023, 'x');
    EXPECT_EQ(Common::String(fits.c_str()).length(), 1023u);

    Common::ScopedLogCapture cap;
    const std::string tooLong(1024, 'y');
    Common::String s("keep");
    EXPECT_FALSE(s.Assign(tooLong.c_str()));
    EXPECT_TRUE(s.empty());
    EXPECT_TRUE(cap.Contains("Assertion \"length < kCapacity\" failed."));
}

