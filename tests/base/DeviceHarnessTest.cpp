#include "TestDevice.h"

// The real-device fixture itself: what is drawn is what is read back.
class DeviceHarness : public vexiltest::DeviceTest {};

TEST_F(DeviceHarness, ClearAndRectangleReadBack) {
    testDevice().clear(D3DCOLOR_XRGB(10, 200, 30));
    EXPECT_TRUE(renderedPixelIs(0, 0, D3DCOLOR_XRGB(10, 200, 30), 0));
    testDevice().fillRect(16, 16, 48, 48, D3DCOLOR_XRGB(250, 0, 120));
    EXPECT_TRUE(renderedPixelIs(32, 32, D3DCOLOR_XRGB(250, 0, 120)));
    EXPECT_TRUE(renderedPixelIs(16, 16, D3DCOLOR_XRGB(250, 0, 120)));
    EXPECT_TRUE(renderedPixelIs(15, 32, D3DCOLOR_XRGB(10, 200, 30)));
    EXPECT_TRUE(renderedPixelIs(48, 32, D3DCOLOR_XRGB(10, 200, 30)));
}

TEST_F(DeviceHarness, MismatchSavesAPicture) {
    testDevice().clear(D3DCOLOR_XRGB(0, 0, 255));
    ::testing::AssertionResult result = renderedPixelIs(1, 1, D3DCOLOR_XRGB(255, 0, 0));
    EXPECT_FALSE(result);
    EXPECT_NE(std::string::npos, std::string(result.message()).find("picture saved as"));
}
