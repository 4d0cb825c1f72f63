// The test card read back off-screen and compared with its reference beside this test.
#include <gtest/gtest.h>

#include "TestCard.h"
#include "zemrenderer/device/tests/GLTestKit.h"

namespace ZemRenderer::Testing
{
    using TestCard = GLDeviceTest;

    TEST_F(TestCard, MatchesItsReference)
    {
        BeginCard();
        ASSERT_TRUE(ZemCard::DrawTestCard(Device(), m_pColour, m_pDepth));
        const RgbaImage image = ReadColour();
        // Spot checks that hold whatever the reference: the marker is top-left, red.
        EXPECT_GT(image.Pixel(3, 3)[0], 200);
        EXPECT_LT(image.Pixel(3, 3)[1], 60);
        EXPECT_LT(image.Pixel(252, 252)[0], 60) << "the marker is not mirrored into another corner";
        ZEM_EXPECT_GOLDEN("testcard", image);
    }
}
