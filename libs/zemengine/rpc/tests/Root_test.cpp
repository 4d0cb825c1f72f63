#include <gtest/gtest.h>

#include <cmath>

#include "common/system/debug/Log.h"
#include "zemengine/rpc/Root.h"

namespace
{
    TEST(Root, GetPositionFromStartIsTheStartInTheLocalFrame)
    {
        const float h = std::sqrt(0.5f);
        const struct
        {
            Math::LocalVector3 position;
            Math::Quaternion rotation;
            Math::LocalVector3 start;
            Math::LocalVector3 expected;
        } cases[] = {
            {{1, 2, 3}, {0, 0, 0, 1}, {4, 6, 8}, {3, 4, 5}},
            // A quarter turn about z: the frame's x axis points along world y.
            {{1, 2, 3}, {0, 0, h, h}, {1, 3, 3}, {1, 0, 0}},
            // The same turn, not normalised.
            {{1, 2, 3}, {0, 0, 2 * h, 2 * h}, {1, 3, 3}, {1, 0, 0}},
            // Half a turn about x: y and z change sign.
            {{0, 0, 0}, {1, 0, 0, 0}, {1, 2, 3}, {1, -2, -3}},
        };
        RPC::CRoot root;
        for (const auto& c : cases)
        {
            const Math::LocalVector3 r = root.GetPositionFromStart(c.position, c.rotation, c.start);
            EXPECT_NEAR(r.x, c.expected.x, 1e-5f);
            EXPECT_NEAR(r.y, c.expected.y, 1e-5f);
            EXPECT_NEAR(r.z, c.expected.z, 1e-5f);
        }

        Common::ScopedLogCapture log;
        const Math::LocalVector3 r = root.GetPositionFromStart({1, 1, 1}, {0, 0, 0, 0}, {2, 3, 4});
        EXPECT_TRUE(r.x == 1 && r.y == 2 && r.z == 3);
        EXPECT_TRUE(log.Contains("the rotation has no length"));
    }
}
