// The multi-head adapter on one scripted card set-up that Wine cannot show: a three-head card,
// a two-head card and a head without a monitor. The head list is built once per process, so
// every test of this suite sees the same topology.
#include "DeviceFixtures.h"

namespace vexiltest {
namespace {

const std::vector<UINT> kMasters = {0, 0, 0, 3, 3, 5};  // heads 0-2, heads 3-4, head 5 alone
const UINT kNoMonitor = 5, kNoModes = 3;
const std::vector<std::pair<UINT, UINT>> kHead0Modes = {{640, 480}, {800, 600}, {1024, 768}, {1280, 1024}};

class AdapterScripted : public AdapterTest<ScriptedDirect3DTest> {
protected:
    void setUpHeads() override {
        setHeads(kMasters);
        d3d->adapter(kNoMonitor).monitor = false;
        d3d->adapter(kNoModes).noModes = true;
        for (const auto& size : kHead0Modes) d3d->adapter(0).modes.push_back({size.first, size.second, 60, D3DFMT_X8R8G8B8});
    }
    const CreateDeviceCall& lastCall() const { return d3d->createDeviceCalls().back(); }
};

TEST_F(AdapterScripted, HeadsAreEnumeratedOnceAndNamedWithoutRegardToCase) {
    ASSERT_EQ(kMasters.size(), adapter.headCount());
    EXPECT_TRUE(AdapterD3D9().initialize());
    EXPECT_EQ(kHead0Modes.size(), adapter.displayHead(0).modes.size());
    EXPECT_THROW(adapter.displayHead(6), zeb::IndexOutOfBounds);

    EXPECT_EQ(4u, adapter.osLocatorHeadIndex(lowerCase(headName(4)).c_str()));
    EXPECT_EQ(kNotFound, adapter.osLocatorHeadIndex("\\\\.\\NOWHERE"));

    const std::pair<std::vector<UINT>, unsigned> masters[] = {{{1}, 1}, {{1, 0}, 0}, {{4, 3, 0}, 3}, {{1, 2}, kNotFound}};
    for (const auto& c : masters) EXPECT_EQ(c.second, adapter.masterHeadIndex(names(c.first))) << c.first[0];
    expectAssertion([&] { adapter.masterHeadIndex(zeb::Array<zeb::String>()); }, 805, "osLocatorList.size() > 0");

    EXPECT_EQ((std::vector<unsigned>{1, 2}), toVector(adapter.listSubordinateHeadIndex(adapter.displayHead(0))));
    EXPECT_EQ((std::vector<unsigned>{4}), toVector(adapter.listSubordinateHeadIndex(adapter.displayHead(3))));
    EXPECT_FALSE(adapter.isSubordinateHead(adapter.displayHead(4), adapter.displayHead(0)) ||
                 adapter.isSubordinateHead(adapter.displayHead(3), adapter.displayHead(3)));
    expectAssertion([&] { adapter.listSubordinateHeadIndex(adapter.displayHead(1)); }, 812, "isMasterHead(masterHead)");

    D3DCAPS9 caps;
    D3DADAPTER_IDENTIFIER9 identifier;
    EXPECT_TRUE(adapter.adapterCaps(4, caps) && adapter.adapterIdentifier(4, identifier) && caps.MasterAdapterOrdinal == 3);
    EXPECT_FALSE(adapter.adapterIdentifier(6, identifier) || adapter.adapterCaps(7, caps));
    // A second initialize lets the device and the first Direct3D object go.
    const ULONG held = referencesOf(d3d);
    ASSERT_TRUE(create({0}, true) && adapter.initialize());
    EXPECT_TRUE(referencesOf(d3d) == held && ledger->liveDevices == 0 && !adapter.device());
    expectLogged(log, "VexilDX9", {{1, "69 Head list already created"}, {1, "1056 Comparing \\\\.\\HEAD0 with \\\\.\\NOWHERE"},
                                   {4, "224 Adapter index 6 out of bound"}, {4, "236 Adapter index 7 out of bound"}});
}

TEST_F(AdapterScripted, PresentParametersFollowTheHeadAndTheSwitches) {
    EXPECT_TRUE(adapter.formatBitDepth(D3DFMT_X1R5G5B5) == 16 && adapter.formatBitDepth(D3DFMT_A4R4G4B4) == 0);
    D3DCAPS9 caps = {};
    for (const auto& c : std::vector<std::pair<DWORD, unsigned long>>{
             {D3DPRESENT_INTERVAL_ONE | D3DPRESENT_INTERVAL_IMMEDIATE, D3DPRESENT_INTERVAL_IMMEDIATE},
             {D3DPRESENT_INTERVAL_FOUR | D3DPRESENT_INTERVAL_TWO, D3DPRESENT_INTERVAL_TWO}, {0, kNotFound}}) {
        caps.PresentationIntervals = c.first;
        EXPECT_EQ(c.second, adapter.getFastestPresentationInterval(caps)) << c.first;
    }

    // Windowed: copied, default interval; a format is chosen even when no automatic buffer is asked for.
    const D3DPRESENT_PARAMETERS windowed = adapter.createDevicePresentParam(1, true, windows[0], false);
    EXPECT_TRUE(windowed.SwapEffect == D3DSWAPEFFECT_COPY && windowed.PresentationInterval == D3DPRESENT_INTERVAL_DEFAULT);
    EXPECT_TRUE(!windowed.EnableAutoDepthStencil && windowed.AutoDepthStencilFormat == D3DFMT_D24S8);
    EXPECT_EQ(D3DSWAPEFFECT_FLIP, adapter.createDevicePresentParam(1, false, windows[0], true).SwapEffect);

    d3d->adapter(1).displayFormat = D3DFMT_A4R4G4B4;
    d3d->acceptedDepthFormat = D3DFMT_D16;
    D3DPRESENT_PARAMETERS pp = adapter.createDevicePresentParam(1, true, windows[0], true);
    EXPECT_TRUE(pp.BackBufferFormat == D3DFMT_R5G6B5 && pp.AutoDepthStencilFormat == D3DFMT_D16);
    d3d->rejectedDepthChecks = -1;
    EXPECT_EQ(D3DFMT_UNKNOWN, adapter.createDevicePresentParam(1, true, windows[0], true).AutoDepthStencilFormat);

    EXPECT_FALSE(adapter.toggleMultiSampling());
    const std::pair<DWORD, DWORD> multisampleLevels[] = {{1, 0}, {2, 1}, {5, 2}};
    for (const auto& levels : multisampleLevels) {
        d3d->multiSampleLevels = levels.first;
        pp = adapter.createDevicePresentParam(1, true, windows[0], true);
        EXPECT_TRUE(pp.MultiSampleType == D3DMULTISAMPLE_NONMASKABLE && pp.SwapEffect == D3DSWAPEFFECT_DISCARD);
        EXPECT_EQ(levels.second, pp.MultiSampleQuality) << levels.first << " levels";
        EXPECT_TRUE(log.contains("VexilDX9", 2, "360 MultiSampleQuality supported = " + std::to_string(levels.first)));
    }
    d3d->multiSampleResult = D3DERR_NOTAVAILABLE;
    pp = adapter.createDevicePresentParam(1, true, windows[0], true);
    EXPECT_TRUE(pp.MultiSampleType == D3DMULTISAMPLE_NONE && pp.SwapEffect == D3DSWAPEFFECT_COPY);
    EXPECT_TRUE(adapter.toggleMultiSampling());
    expectLogged(log, "VexilDX9", {{4, "1139 Format not recognized, please update code"}, {2, "497 Using ZStencil buffer format 75"},
                                   {1, "314 defaulting to D3DFMT_R5G6B5"},
                                   {2, "505 IDirect3DDevice9 will be created without a depth-stencil buffer"},
                                   {2, "378 Multisample anti aliasing is not supported by the device"}});

    const UINT downgrades[][4] = {{1024, 768, 800, 600}, {640, 480, 640, 480}, {1920, 1200, 1280, 1024}};
    for (const auto& c : downgrades) {
        pp.BackBufferWidth = c[0];
        pp.BackBufferHeight = c[1];
        adapter.downgradeResolution(0, pp);
        EXPECT_TRUE(pp.BackBufferWidth == c[2] && pp.BackBufferHeight == c[3]) << c[0] << " to " << pp.BackBufferWidth;
    }
    expectAssertion([&] { adapter.downgradeResolution(6, pp); }, 1005, "headIndex < m_headList.size()");
}

TEST_F(AdapterScripted, CreationDowngradesOnShortMemoryAndWaitsForLostDevices) {
    d3d->createDeviceResults = {D3DERR_OUTOFVIDEOMEMORY, D3DERR_OUTOFVIDEOMEMORY, D3DERR_DEVICELOST, D3DERR_NOTAVAILABLE};
    ASSERT_TRUE(create({0}, false)) << log.dump();
    const std::vector<CreateDeviceCall>& calls = d3d->createDeviceCalls();
    ASSERT_EQ(5u, calls.size());
    EXPECT_TRUE(calls[1].params[0].BackBufferWidth == 1024 && calls[2].params[0].BackBufferWidth == 800 &&
                calls[4].params[0].BackBufferWidth == 800);
    EXPECT_EQ(std::vector<DWORD>(2, 500), sleeps.calls());
    EXPECT_EQ(1u, log.count("VexilDX9", "14 IDirect3D9::CreateDevice S_OK"));
    EXPECT_EQ(static_cast<unsigned>(D3DCREATE_HARDWARE_VERTEXPROCESSING), adapter.vertexProcessingMode());
    EXPECT_EQ(static_cast<unsigned long>(D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL), adapter.clearFlag());

    // Ten lost results end a vertex-processing mode; the next one is tried.
    d3d->failingVertexMode = D3DCREATE_HARDWARE_VERTEXPROCESSING;
    d3d->failingVertexModeResult = D3DERR_DEVICELOST;
    ASSERT_TRUE(create({0}, true));
    EXPECT_EQ(2u + 10u, sleeps.calls().size());
    EXPECT_EQ(static_cast<unsigned>(D3DCREATE_MIXED_VERTEXPROCESSING), adapter.vertexProcessingMode());

    // Every head of a group shrinks to the creating head's modes; a head without modes ends the retry.
    d3d->failingVertexMode = 0;
    d3d->createDeviceResults = {D3DERR_OUTOFVIDEOMEMORY};
    ASSERT_TRUE(create({0, 1, 2}, false));
    for (const D3DPRESENT_PARAMETERS& pp : calls.back().params)
        EXPECT_TRUE(pp.BackBufferWidth < calls[calls.size() - 2].params[0].BackBufferWidth && pp.BackBufferWidth >= 640);
    d3d->createDeviceResults = {D3DERR_OUTOFVIDEOMEMORY};
    ASSERT_TRUE(create({kNoModes}, true));
    EXPECT_EQ(static_cast<unsigned>(D3DCREATE_MIXED_VERTEXPROCESSING), adapter.vertexProcessingMode());
    EXPECT_EQ(1u, log.count("VexilDX9", "No display mode to downgrade to on head 3", 4)) << log.dump();

    d3d->failingVertexMode = ~0u;
    d3d->failingVertexModeResult = D3DERR_INVALIDCALL;
    EXPECT_FALSE(create({0}, true));
    expectLogged(log, "VexilDX9", {{2, "901 Downgraded dimension 800 x 600"}, {4, "907 Device is lost at creation time"},
                                   {1, "871 Creating Direct3D9 device using vertex processing mode 128"},
                                   {4, "947 Unable to create a Direct3DDevice9 object from adapter index 0, HRESULT = " +
                                           std::to_string(D3DERR_INVALIDCALL)},
                                   {3, "633 Unable to create swap chain mapping"}});
    EXPECT_FALSE(adapter.isInitialized());
    expectAssertion([&] { adapter.defaultD3DDevice(0, windows[0], true, D3DDEVTYPE_SW); }, 832,
                    "(deviceType == D3DDEVTYPE_HAL) || (deviceType == D3DDEVTYPE_REF)");
}

TEST_F(AdapterScripted, OneChainAndOneDepthBufferPerNamedHead) {
    // Full screen: one group device, the card's own chains, windows in subordinate order.
    ASSERT_TRUE(create({2, 0, 1}, false)) << log.dump();
    EXPECT_TRUE(lastCall().flags & D3DCREATE_ADAPTERGROUP_DEVICE);
    ASSERT_EQ(3u, lastCall().params.size());
    for (UINT k = 0; k < 3; ++k)
        EXPECT_TRUE(lastCall().params[k].hDeviceWindow == windows[k] && !lastCall().params[k].EnableAutoDepthStencil) << k;
    EXPECT_TRUE(adapter.isInitialized() && adapter.numActiveChain() == 3 && adapter.currentAdapterIndex() == 0);
    EXPECT_EQ(1u, adapter.chainIndex(lowerCase(headName(0)).c_str()));
    for (UINT head : {0, 1, 2})
        EXPECT_TRUE(adapter.swapChain(name(head)) && adapter.depthBuffer(name(head)) && adapter.displayHead(head).renderFlag) << head;
    EXPECT_EQ((std::vector<UINT>{2, 0, 1}), d3d->lastDevice()->swapChainsAsked) << "chain k is head k's own";
    D3DSURFACE_DESC depth;  // as large as the chain, on a display that is wider than high
    adapter.depthBuffer(name(1))->GetDesc(&depth);
    EXPECT_TRUE(depth.Width == lastCall().params[1].BackBufferWidth && depth.Height == lastCall().params[1].BackBufferHeight);
    EXPECT_FALSE(adapter.swapChain("\\\\.\\NOWHERE") || adapter.depthBuffer(name(3)));
    EXPECT_TRUE(adapter.isSameRenderingOSLocator(names({1, 2, 0})));
    EXPECT_FALSE(adapter.isSameRenderingOSLocator(names({1, 2, 3})) || adapter.isSameRenderingOSLocator(names({1, 2})));
    EXPECT_EQ(0u, adapter.adapterIndex(""));
    adapter.resetHeadRenderFlag();
    EXPECT_FALSE(adapter.displayHead(0).renderFlag || adapter.displayHead(2).renderFlag);
    expectAssertion([&] { adapter.createSwapChain(names({0, 1}), windows[0], windows.list(2), false, D3DDEVTYPE_HAL); },
                    763, "deviceWindow.size() >= (subordinate.size() + 1)");

    // Windowed: an ordinary device with an additional chain per other head. The depth buffers
    // take the size of windowed present parameters, 0 x 0, which Direct3D refuses.
    EXPECT_FALSE(create({4, 3}, true, D3DDEVTYPE_REF));
    EXPECT_EQ(1u, log.count("VexilDX9", "719 Unable to create a depth buffer for swap chain ")) << log.dump();
    EXPECT_TRUE(!(lastCall().flags & D3DCREATE_ADAPTERGROUP_DEVICE) && lastCall().adapter == 3);
    EXPECT_EQ(D3DDEVTYPE_REF, adapter.deviceType());
    EXPECT_TRUE(adapter.swapChain(name(4)) && adapter.swapChain(name(4)).get() != adapter.swapChain(name(3)).get());

    // Unknown names and heads without a monitor are dropped; with none left, head 0 stands in.
    ASSERT_TRUE(create({kNoMonitor}, true));
    EXPECT_TRUE(lastCall().adapter == 0 && adapter.activeChainOSLocator().size() == 1);
    EXPECT_TRUE(adapter.swapChain(name(kNoMonitor)) && adapter.depthBuffer(name(kNoMonitor)));
    EXPECT_TRUE(adapter.isZStencilBufferSupported());
    // Names of a card's heads without its master: no master index, and the parameters cannot be made.
    EXPECT_THROW(create({1, 2}, false), zeb::IndexOutOfBounds);

    EXPECT_FALSE(create({}, true));
    expectLogged(log, "VexilDX9", {{1, "1271 os locator \\\\.\\head0 index= 1"}, {1, "757 Master head index 0"},
                                   {1, "245 m_swapChainGroup.m_renderingHeadIndex.size() = 3"},
                                   {1, "733 CreateDepthStencilBuffer succeeded"},
                                   {1, "612 No monitor attached to video head, using default"},
                                   {1, "577 osLocatorList[locator] = \\\\.\\HEAD5"}, {3, "563 Zero size os locator list passed"}});
    expectAssertion([&] { adapter.createDevicePresentParam(zeb::Array<zeb::String>(), windows.list(1), true); }, 743,
                    "osLocatorList.size() > 0");
}

TEST_F(AdapterScripted, FailedChainsAndBuffersAreReportedAndReleased) {
    const struct {
        HRESULT DeviceScript::*result;
        std::vector<UINT> heads;
        bool created;
        int priority;
        const char* message;
    } cases[] = {
        {&DeviceScript::swapChainResult, {0}, false, 4, "665 GetSwapChain fails "},
        {&DeviceScript::additionalSwapChainResult, {3, 4}, false, 4, "658 CreateAdditionalSwapChain fails "},
        {&DeviceScript::depthStencilSurfaceResult, {0}, true, 3, "729 Device does not have a depth stencil buffer "},
    };
    for (const auto& c : cases) {
        d3d->deviceScript = DeviceScript();
        d3d->deviceScript.*c.result = D3DERR_INVALIDCALL;
        EXPECT_EQ(c.created, create(c.heads, true));
        EXPECT_TRUE(log.contains("VexilDX9", c.priority, c.message)) << log.dump();
        adapter.cleanup();
        EXPECT_EQ(0, ledger->liveDevices) << c.message;
        ASSERT_TRUE(adapter.initialize());
    }
    EXPECT_FALSE(adapter.createDepthStencilBuffer());
    EXPECT_TRUE(log.contains("VexilDX9", 2, "691 Number of active chain = 0"));
}

TEST_F(AdapterScripted, ReleaseWaitsOutALostDeviceAndResetRecoversIt) {
    ASSERT_TRUE(create({0}, true));
    ScriptedDevice9* device = d3d->lastDevice();
    device->script.cooperativeLevels = {D3DERR_DEVICELOST, D3DERR_DEVICELOST, D3DERR_DEVICENOTRESET, D3DERR_DEVICENOTRESET};
    EXPECT_EQ(D3D_OK, adapter.reset());
    EXPECT_EQ(3u, device->resetCalls);
    EXPECT_TRUE(adapter.depthBuffer(name(0))) << "rebuilt after the reset";
    EXPECT_TRUE(sleeps.calls().empty()) << "reset does not wait";

    device->script.cooperativeLevels = {D3DERR_DEVICENOTRESET, D3DERR_DEVICENOTRESET};
    device->script.resetResult = D3DERR_INVALIDCALL;
    EXPECT_EQ(E_FAIL, adapter.reset());

    // Healthy: logged and returned, no reset; the depth buffers are gone until the next creation.
    EXPECT_EQ(D3D_OK, adapter.reset());
    EXPECT_TRUE(log.contains("VexilDX9", 3, "14 IDirect3DDevice9::TestCooperativeLevel() S_OK"));
    EXPECT_FALSE(adapter.depthBuffer(name(0)));
    EXPECT_EQ(4u, device->resetCalls);

    // A focus window that cannot be brought forward is reported; the reset stands.
    ASSERT_TRUE(adapter.createSwapChain(names({0}), nullptr, windows.list(1), true, D3DDEVTYPE_HAL));
    device = d3d->lastDevice();
    device->script.cooperativeLevels = {D3DERR_DEVICENOTRESET, D3DERR_DEVICENOTRESET};
    {
        ImportPatch refused("VexilDX9.dll", "user32.dll", "SetActiveWindow", reinterpret_cast<void*>(+[](HWND) -> HWND {
                                return SetLastError(ERROR_ACCESS_DENIED), nullptr;
                            }));
        EXPECT_EQ(D3D_OK, adapter.reset());
    }
    EXPECT_EQ(1u, log.count("VexilDX9", "1194 SetForegroundWindow fails ", 3));
    EXPECT_EQ(1u, log.count("VexilDX9", "1202 SetActivceWindow fails 5", 3));

    device->script.resetResult = D3D_OK;
    device->script.cooperativeLevels = std::deque<HRESULT>(10, D3DERR_DEVICELOST);
    device->script.cooperativeLevels.push_back(D3DERR_DEVICENOTRESET);
    adapter.cleanup();
    EXPECT_EQ(std::vector<DWORD>(9, 500), sleeps.calls());
    EXPECT_EQ(9u, log.count("VexilDX9", "1233 Device in lost state, sleeping 500 ms"));
    expectLogged(log, "VexilDX9", {{1, "1240 Device is in not reset state"}, {3, "14 IDirect3DDevice9::Reset S_OK"},
                                   {1, "1218 Releasing depth stencil"}, {1, "1221 Releasing swap chain"},
                                   {1, "1224 Testing device validity"}, {1, "1229 Testing device cooperative level for lost device"},
                                   {1, "1237 Testing device cooperative level for device reset"}, {1, "1244 Releasing device"}});
    EXPECT_FALSE(adapter.device());
}

TEST(NoDirect3D, AdapterAndShaderQueriesFailCleanly) {
    LogCapture log;
    std::vector<UINT> asked;
    Direct3DCreateHook hook([&](UINT sdk) { return asked.push_back(sdk), static_cast<IDirect3D9*>(nullptr); });
    ASSERT_TRUE(hook.ok());
    AdapterD3D9 adapter;
    EXPECT_FALSE(adapter.initialize());
    EXPECT_FALSE(adapter.enumerateAllHeads());
    expectAssertion([] { AdapterD3D9 failing(true); }, 1034, "initialize()");
    TestWindows windows(1);
    EXPECT_FALSE(adapter.createSwapChain(zeb::Array<zeb::String>(), windows[0], windows.list(1), true, D3DDEVTYPE_HAL));
    EXPECT_EQ(D3DERR_INVALIDCALL, adapter.reset());

    unsigned version = 7;
    EXPECT_FALSE(vertexShaderVersion("\\\\.\\DISPLAY1", &version) || pixelShaderVersion("\\\\.\\DISPLAY1", &version));
    EXPECT_FALSE(vertexShaderVersion("\\\\.\\DISPLAY1", nullptr) || pixelShaderVersion("\\\\.\\DISPLAY1", nullptr));
    EXPECT_EQ(7u, version);
    EXPECT_EQ((std::vector<UINT>{32, 31}), std::vector<UINT>(asked.begin(), asked.begin() + 2)) << "SDK 32, then 31";
    expectLogged(log, "VexilDX9", {{4, "50 Fail to initialize IDirect3D9, call to Direct3DCreate9 returns NULL"},
                                   {1, "63 enumerateAllHeads called before calling initialize"},
                                   {3, "26 Fail to initialize IDirect3D9, call to Direct3DCreate9 returns NULL"}});
    EXPECT_EQ(1u, log.count("VexilDX9", "No device to reset: createSwapChain has not made one", 3));
}

}  // namespace
}  // namespace vexiltest
