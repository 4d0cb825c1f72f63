// Id packing and world coordinates.
#include <gtest/gtest.h>

#include <cmath>

#include "common/math/WorldVector3.h"
#include "common/system/debug/Log.h"
#include "zemrenderer/scene/RUserID.h"

namespace ZemRenderer
{
    TEST(RUserID, PacksEachKindInItsFields)
    {
        struct Case
        {
            RUserID::Type type;
            uint32_t a, b, c;
            uint32_t raw;
        };
        const Case cases[] = {
            {RUserID::Link, 12345, RUserID::kInvalid, RUserID::kInvalid, 0x10000000u | 12345},
            {RUserID::Light, 0x0FFFFFFF, RUserID::kInvalid, RUserID::kInvalid, 0x3FFFFFFFu},
            {RUserID::Node, 5, 17, RUserID::kInvalid, 0x20000000u | (5u << 13) | 17},
            {RUserID::Bone, 0x7FFF, 0x1FFF, RUserID::kInvalid, 0x9FFFFFFFu},
            {RUserID::Socket, 3, 100, 63, 0x60000000u | (3u << 13) | (100u << 6) | 63},
            // Values wider than their fields are cut to them.
            {RUserID::Node, 0x8001, 0x2002, RUserID::kInvalid, 0x20000000u | (1u << 13) | 2},
        };
        Common::ScopedLogCapture capture;
        for (const Case& c : cases)
        {
            const RUserID id(c.type, c.a, c.b, c.c);
            EXPECT_EQ(id.GetRaw(), c.raw) << c.type;
            EXPECT_EQ(id.GetType(), c.type);
        }
        EXPECT_FALSE(capture.Contains("look alike a bad init"));

        const RUserID socket(RUserID::Socket, 3, 100, 63);
        EXPECT_EQ(socket.GetLinkIndex(), 3u);
        EXPECT_EQ(socket.GetSocketIndex(), 100u);
        EXPECT_EQ(socket.GetSubObjectIndex(), 63u);
        const RUserID node(RUserID::Node, 5, 17);
        EXPECT_EQ(node.GetLinkIndex(), 5u);
        EXPECT_EQ(node.GetNodeIndex(), 17u);
        EXPECT_TRUE(node.HasLinkAndIndex());
        EXPECT_FALSE(RUserID(RUserID::Probe, 4).HasLinkAndIndex());
    }

    TEST(RUserID, ReportsIdsThatLookLikeABadInit)
    {
        struct Case
        {
            RUserID::Type type;
            uint32_t b, c;
            const char* message;
        };
        const Case cases[] = {
            {RUserID::Node, RUserID::kInvalid, RUserID::kInvalid, "RUserId : look alike a bad init (Node with infinite id)"},
            {RUserID::Bone, RUserID::kInvalid, RUserID::kInvalid, "RUserId : look alike a bad init (Bone with infinite id)"},
            {RUserID::Socket, 2, RUserID::kInvalid,
             "RUserId : look alike a bad init (SocketIndex or SubPrefabIndex with infinite id)"},
            {RUserID::Socket, RUserID::kInvalid, 2,
             "RUserId : look alike a bad init (SocketIndex or SubPrefabIndex with infinite id)"},
            {RUserID::Link, 4, RUserID::kInvalid,
             "RUserId : look alike a bad init (there are only two parameters for node)"},
        };
        for (const Case& c : cases)
        {
            Common::ScopedLogCapture capture;
            const RUserID id(c.type, 1, c.b, c.c);
            EXPECT_TRUE(capture.Contains(c.message)) << c.message;
            EXPECT_EQ(id.GetType(), c.type);
        }
    }

    TEST(WorldVector3, RoundsHalfAwayFromZeroAndSubtractsInIntegers)
    {
        struct Case
        {
            double value;
            int64_t millionths;
        };
        const Case cases[] = {{0.0, 0},
                              {1.0, 1000000},
                              {-1.0, -1000000},
                              {3.0000007, 3000001},
                              {-3.0000007, -3000001},
                              {3.0000003, 3000000},
                              {-3.0000003, -3000000},
                              {123456.789, 123456789000},
                              {1e300, INT64_MAX},
                              {-1e300, INT64_MIN}};
        for (const Case& c : cases) EXPECT_EQ(Math::WorldVector3::FromFloat(c.value), c.millionths) << c.value;
        EXPECT_EQ(Math::WorldVector3::FromFloat(std::nan("")), 0);

        // Far from the origin a float position loses the metre; the difference does not.
        const Math::WorldVector3 far{9000000000000000, 0, 0};
        const Math::WorldVector3 near{9000000000250000, -1500000, 0};
        const Math::LocalVector3 d = near.RelativeTo(far);
        EXPECT_FLOAT_EQ(d.x, 0.25f);
        EXPECT_FLOAT_EQ(d.y, -1.5f);
        EXPECT_FLOAT_EQ(d.z, 0.0f);
        // Saturating arithmetic at the ends of the range.
        const Math::WorldVector3 top{INT64_MAX, INT64_MIN, 0};
        const Math::WorldVector3 moved = top.Offset({1.0f, -1.0f, 2.0f});
        EXPECT_EQ(moved.x, INT64_MAX);
        EXPECT_EQ(moved.y, INT64_MIN);
        EXPECT_EQ(moved.z, 2000000);
    }
}
