#include "common/utils/Hash.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace
{
    // Reference written byte by byte from the published MurmurHash2.
    uint32_t RefMurmur2(const unsigned char* data, uint32_t len, uint32_t seed)
    {
        const uint32_t m = 0x5bd1e995;
        uint32_t h = seed ^ len;
        uint32_t i = 0;
        for (; i + 4 <= len; i += 4)
        {
            uint32_t k = 0;
            for (int b = 3; b >= 0; --b) k = (k << 8) | data[i + b];
            k *= m;
            k ^= k >> 24;
            k *= m;
            h = (h * m) ^ k;
        }
        const uint32_t rest = len - i;
        if (rest >= 3) h ^= uint32_t(data[i + 2]) << 16;
        if (rest >= 2) h ^= uint32_t(data[i + 1]) << 8;
        if (rest >= 1)
        {
            h ^= data[i];
            h *= m;
        }
        h ^= h >> 13;
        h *= m;
        h ^= h >> 15;
        return h;
    }
    uint32_t Ref(const std::string& s, uint32_t seed = 0)
    {
        return RefMurmur2(reinterpret_cast<const unsigned char*>(s.data()), uint32_t(s.size()), seed);
    }
}

TEST(Hash, KnownIds)
{
    EXPECT_EQ(GenerateUIntIdFromString("a"), 0x92685F5Eu);
    // Command keys: the class id seeds the pass over the method name.
    EXPECT_EQ(GenerateUIntIdFromString("Root", "GetRPCSingleton"), 0x58EF814Eu);
    EXPECT_EQ(GenerateUIntIdFromString("GetRPCSingleton", nullptr, GenerateUIntIdFromString("Root")), 0x58EF814Eu);
    EXPECT_EQ(::GenerateUIntIdFromString(nullptr), 0u);
    EXPECT_EQ(GenerateUIntIdFromString(nullptr, "suffix", 77), 0u);
}

TEST(Hash, MatchesReferenceOnTailsAndSeeds)
{
    struct Case { std::string text; uint32_t seed; };
    const Case cases[] = {
        {"", 0}, {"", 0x1234}, {"a", 0}, {"ab", 0}, {"abc", 0}, {"abcd", 0}, {"abcde", 0},
        {"abcdef", 7}, {"abcdefg", 0xFFFFFFFFu}, {"Toolchain/Shaders/Deferred.fx", 0},
        {std::string("\xff\x80\x00\x7f", 4), 0}, {std::string("\xff\xfe\xfd", 3), 42},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(GenerateUIntIdFromBuffer(c.text.data(), c.text.size(), c.seed), Ref(c.text, c.seed));
        if (c.text.find('\0') == std::string::npos)
        {
            EXPECT_EQ(GenerateUIntIdFromString(c.text.c_str(), nullptr, c.seed), Ref(c.text, c.seed));
        }
    }
    // Unaligned starts give the same answer.
    std::vector<unsigned char> buf(1100);
    for (size_t i = 0; i < buf.size(); ++i) buf[i] = static_cast<unsigned char>(i * 131 + 7);
    for (size_t off = 0; off < 4; ++off)
        EXPECT_EQ(GenerateUIntIdFromBuffer(buf.data() + off, 1024, 9), RefMurmur2(buf.data() + off, 1024, 9));
}

TEST(Hash, SuffixIsASecondPassNotAConcatenation)
{
    EXPECT_NE(GenerateUIntIdFromString("abc"), GenerateUIntIdFromString("a", "bc"));
    EXPECT_EQ(GenerateUIntIdFromString("a", "bc", 5), Ref("bc", Ref("a", 5)));
    EXPECT_EQ(GenerateUIntIdFromString("a", "", 0), Ref("", Ref("a")));
    EXPECT_NE(GenerateUIntIdFromString("a", nullptr, 0), GenerateUIntIdFromString("a", nullptr, 1));
}
