// The multi-head adapter on Wine's real heads: the default one-head display, and the harness's
// two-screen display (VEXIL_WINE_HEADS=2), where Wine reports two heads of one group.
#include "DeviceFixtures.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace vexiltest {
namespace {

// What action writes to standard output, line ends as "\n".
std::string captureStdout(const std::function<void()>& action) {
    std::fflush(stdout);
    ::testing::internal::CaptureStdout();
    action();
    std::fflush(stdout);
    std::string text = ::testing::internal::GetCapturedStdout();
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    return text;
}

class AdapterOnWine : public AdapterTest<RealDirect3DTest> {
protected:
    // Clears every chain to its own colour and presents it.
    void clearAndPresent(const std::vector<unsigned>& heads) {
        D3DCOLOR colour = 0xFF204060;
        for (unsigned head : heads) {
            COMPtr<IDirect3DSwapChain9>::pointer chain = adapter.swapChain(name(head));
            IDirect3DSurface9* back = nullptr;
            ASSERT_TRUE(chain && SUCCEEDED(chain->GetBackBuffer(0, D3DBACKBUFFER_TYPE_MONO, &back))) << head;
            adapter.device()->SetRenderTarget(0, back);
            back->Release();
            EXPECT_EQ(D3D_OK, adapter.device()->Clear(0, nullptr, D3DCLEAR_TARGET, colour += 0x10, 1.0f, 0));
            EXPECT_EQ(D3D_OK, chain->Present(nullptr, nullptr, nullptr, nullptr, 0)) << head;
        }
    }
};

using AdapterOneHead = AdapterOnWine;

TEST_F(AdapterOneHead, WindowedAndFullScreenChainsDrawAndReset) {
    ASSERT_EQ(1u, adapter.headCount());
    EXPECT_TRUE(adapter.listSubordinateHeadIndex(adapter.displayHead(0)).empty());
    EXPECT_EQ(0u, adapter.masterHeadIndex(names({0})));

    ASSERT_TRUE(create({0}, true)) << log.dump();
    watch(adapter.device().get());
    clearAndPresent({0});
    ASSERT_TRUE(adapter.depthBuffer(name(0)));
    D3DSURFACE_DESC depth;
    adapter.depthBuffer(name(0))->GetDesc(&depth);
    EXPECT_TRUE(depth.Format == D3DFMT_D24S8 && adapter.d3dDeviceParams().AutoDepthStencilFormat == D3DFMT_D24S8);
    EXPECT_EQ(D3D_OK, adapter.reset());

    // Full screen comes up on Xvfb too, in the display's mode, presenting at once.
    ASSERT_TRUE(create({0}, false)) << log.dump();
    D3DDISPLAYMODE mode = {};
    adapter.direct3D9()->GetAdapterDisplayMode(0, &mode);
    EXPECT_EQ(mode.Width, adapter.d3dDeviceParams().BackBufferWidth);
    EXPECT_EQ(static_cast<UINT>(D3DPRESENT_INTERVAL_IMMEDIATE), adapter.d3dDeviceParams().PresentationInterval);
    clearAndPresent({0});
}

TEST_F(AdapterOneHead, ReportsPrintTheMasksWhateverTheThresholdAndLogTheRest) {
    const AdapterD3D9::DisplayHead& head = adapter.displayHead(0);
    const GUID& id = head.identifier.DeviceIdentifier;
    char identifier[64];
    std::snprintf(identifier, sizeof identifier, "    Device Identifier %08lX-%04X-%04X-%02X%02X%02X%02X%02X%02X%02X%02X",
                  id.Data1, id.Data2, id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3], id.Data4[4], id.Data4[5],
                  id.Data4[6], id.Data4[7]);
    EXPECT_EQ(identifier, captureStdout([&] { adapter.displayInfo(lowerCase(headName(0)).c_str()); }));
    const std::string masks = captureStdout([&] { adapter.displayCaps(head); });
    const D3DCAPS9& caps = head.caps;
    char first[192], last[64];
    std::snprintf(first, sizeof first,
                  " Alpha comparison caps %08lX\n Caps %08lX\n Caps2 %08lX\n Caps3 %08lX\n Cursor transparency cap %08lX\n",
                  caps.AlphaCmpCaps, caps.Caps, caps.Caps2, caps.Caps3, caps.CursorCaps);
    std::snprintf(last, sizeof last, " Vertex shader texture filter caps %08lX\n", caps.VertexTextureFilterCaps);
    EXPECT_EQ(first, masks.substr(0, std::strlen(first)));
    EXPECT_NE(std::string::npos, masks.find(last));
    EXPECT_EQ(30, std::count(masks.begin(), masks.end(), '\n'));
    expectLogged(log, "VexilDX9", {{2, "188     Device Name         " + headName(0)}, {2, "103 Adapter Capabilities"},
                                   {2, "195     Adapter ID          " + std::to_string(head.identifier.VendorId)},
                                   {2, "104  Adapter Ordinal 0"}});

    // Above priority 2 only the masks remain; an unknown name gives one line and nothing else.
    LogCapture quiet(3);
    EXPECT_EQ(masks, captureStdout([&] { adapter.displayCaps(head); }));
    EXPECT_TRUE(quiet.entries().empty());
    EXPECT_EQ("", captureStdout([&] { adapter.displayInfo("\\\\.\\NOWHERE"); }));
    ASSERT_EQ(1u, quiet.entries().size());
    EXPECT_EQ("208 OS Locator \\\\.\\NOWHERE has not been enumerated at initialize()", quiet.entries()[0].text);
}

class AdapterTwoHeads : public AdapterOnWine {
protected:
    void SetUp() override {
        AdapterOnWine::SetUp();
        if (adapter.headCount() < 2) GTEST_SKIP() << "one head on this display: the two-screen display has VEXIL_WINE_HEADS=2";
    }
};

TEST_F(AdapterTwoHeads, BothHeadsFormOneGroupAndDrawWindowedButNotFullScreen) {
    ASSERT_EQ(2u, adapter.headCount());
    EXPECT_EQ(std::vector<unsigned>{1}, toVector(adapter.listSubordinateHeadIndex(adapter.displayHead(0))));
    EXPECT_EQ(0u, adapter.masterHeadIndex(names({1, 0})));

    // Windowed, each head alone and both together draw, the second in R5G6B5 for want of a display format.
    const std::vector<unsigned> windowedHeads[] = {{0}, {1, 0}, {1}};
    for (const std::vector<unsigned>& heads : windowedHeads) {
        ASSERT_TRUE(create(heads, true)) << log.dump();
        EXPECT_EQ(heads.size(), adapter.numActiveChain());
        clearAndPresent(heads);
    }
    EXPECT_TRUE(log.contains("VexilDX9", 1, "314 defaulting to D3DFMT_R5G6B5"));

    // Full screen, Direct3D refuses a device on the second head alone, and the group device it
    // makes on the master has a single swap chain.
    EXPECT_FALSE(create({1}, false));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "14 IDirect3D9::CreateDevice D3DERR_INVALIDCALL"));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "633 Unable to create swap chain mapping"));
    EXPECT_FALSE(create({0, 1}, false));
    EXPECT_TRUE(log.contains("VexilDX9", 4, "665 GetSwapChain fails "));
    EXPECT_FALSE(adapter.isInitialized() && adapter.swapChain(name(1)));
}

}  // namespace
}  // namespace vexiltest
