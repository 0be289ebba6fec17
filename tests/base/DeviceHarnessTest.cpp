#include "TestDevice.h"

// The real-device fixture itself: what is drawn is what is read back, and a mismatch is saved.
class DeviceHarness : public vexiltest::DeviceTest {};

TEST_F(DeviceHarness, RectangleReadBackAndMismatchPicture) {
    const D3DCOLOR back = D3DCOLOR_XRGB(10, 200, 30), front = D3DCOLOR_XRGB(250, 0, 120);
    testDevice().clear(back);
    testDevice().fillRect(16, 16, 48, 48, front);
    for (unsigned x : {16u, 32u, 47u}) EXPECT_TRUE(renderedPixelIs(x, 32, front));
    for (unsigned x : {15u, 48u}) EXPECT_TRUE(renderedPixelIs(x, 32, back));
    ::testing::AssertionResult result = renderedPixelIs(1, 1, front);
    EXPECT_FALSE(result);
    EXPECT_NE(std::string::npos, std::string(result.message()).find("picture saved as"));
}
