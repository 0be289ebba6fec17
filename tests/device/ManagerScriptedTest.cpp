// What Wine cannot show by itself: several adapters and groups, failing drivers, lost devices.
// The library runs on a scripted decorator around the real Direct3D objects.
#include "DeviceFixtures.h"

using namespace VexilDX9;

namespace vexiltest {
namespace {

class ScriptedManager : public ScriptedDirect3DTest {
protected:
    void TearDown() override {
        manager.reset();
        ScriptedDirect3DTest::TearDown();
    }
    RenderDeviceParameterDX9 on(UINT head, const SwapChainParameterDX9& chain) { return parameter(headName(head), {chain}); }
    // A fresh manager on the scripted adapters, filed with params.
    unsigned create(std::initializer_list<RenderDeviceParameterDX9> params, HWND focus) {
        manager.reset(new RenderDeviceManagerDX9());
        return manager->createRenderDevice(D3DDEVTYPE_HAL, parameters(params), focus);
    }
    const CreateDeviceCall& lastCall() const { return d3d->createDeviceCalls().back(); }
    const D3DPRESENT_PARAMETERS& lastParams() const { return lastCall().params[0]; }

    std::unique_ptr<RenderDeviceManagerDX9> manager;
    TestWindows w{3};
};

TEST_F(ScriptedManager, HeadsOfOneCardShareAnAdapterGroupDeviceAndAWindowedSetupMayUseOneHead) {
    setHeads({0, 0, 2});
    const RenderDeviceParameterDX9 lowerCased = parameter(lowerCase(headName(2)), {windowedChain(w[2])});
    EXPECT_EQ(3u, create({on(0, windowedChain(w[0])), on(1, windowedChain(w[1])), lowerCased}, w[0]));
    ASSERT_EQ(2u, d3d->createDeviceCalls().size());
    const CreateDeviceCall &card = d3d->createDeviceCalls()[0], &single = d3d->createDeviceCalls()[1];
    ASSERT_EQ(2u, card.params.size());
    EXPECT_TRUE(card.adapter == 0 && card.params[1].hDeviceWindow == w[1] && single.adapter == 2);
    EXPECT_TRUE(card.flags == (D3DCREATE_ADAPTERGROUP_DEVICE | D3DCREATE_HARDWARE_VERTEXPROCESSING) &&
                single.flags == D3DCREATE_HARDWARE_VERTEXPROCESSING);
    EXPECT_EQ(manager->renderDevice(D3DDEVTYPE_HAL, w[0]).get(), manager->renderDevice(D3DDEVTYPE_HAL, w[1]).get());
    EXPECT_NE(manager->renderDevice(D3DDEVTYPE_HAL, w[0]).get(), manager->renderDevice(D3DDEVTYPE_HAL, w[2]).get());
    IDirect3DDevice9* cardDevice = manager->renderDevice(D3DDEVTYPE_HAL, w[0])->d3dDevice().get();
    EXPECT_EQ((std::vector<UINT>{0, 1}), ScriptedDevice9::of(cardDevice).swapChainsAsked) << "each head gets its own chain";
    EXPECT_TRUE(renderBufferOf(*manager, w[1]).swapChain->swapChain());

    EXPECT_EQ(1u, create({on(1, windowedChain(w[1]))}, w[1]));
    EXPECT_TRUE(lastCall().adapter == 1 && !(lastCall().flags & D3DCREATE_ADAPTERGROUP_DEVICE)) << "a head alone uses its ordinal";
}

TEST_F(ScriptedManager, FullScreenTakesOneHeadOrAllHeadsOfTheGroup) {
    setHeads({0, 1, 1, 1});
    EXPECT_EQ(0u, create({on(1, fullScreenChain(w[0])), on(2, fullScreenChain(w[1]))}, w[0]));
    EXPECT_TRUE(d3d->createDeviceCalls().empty());

    EXPECT_EQ(3u, create({on(1, fullScreenChain(w[0])), on(2, fullScreenChain(w[1])), on(3, fullScreenChain(w[2]))}, w[0]));
    ASSERT_EQ(1u, d3d->createDeviceCalls().size());
    EXPECT_TRUE(lastCall().adapter == 1 && (lastCall().flags & D3DCREATE_ADAPTERGROUP_DEVICE)) << "made on the head ordinal";
    D3DDISPLAYMODE mode = {};
    d3d->real()->GetAdapterDisplayMode(0, &mode);
    for (const D3DPRESENT_PARAMETERS& pp : lastCall().params)
        EXPECT_TRUE(!pp.Windowed && pp.BackBufferWidth == mode.Width && pp.FullScreen_RefreshRateInHz == mode.RefreshRate &&
                    pp.BackBufferFormat == mode.Format);
    // The single adapter's group got nothing; its device stays down but keeps the list aligned.
    expectLogged(log, kDeviceLog, {{3, "98 Cannot initialize RenderDeviceDX9 with no device parameters"},
                                   {3, "116 RenderDeviceDX9 currently restricts full screen adapter size to either only one or "
                                       "all within the device group"}});
    zeb::Array<RenderDeviceManagerDX9::RenderDeviceReference> devices;
    ASSERT_EQ(2u, manager->renderDevices(D3DDEVTYPE_HAL, devices));
    EXPECT_EQ(devices[1].get(), manager->renderDevice(D3DDEVTYPE_HAL, w[2]).get());
}

TEST_F(ScriptedManager, MainSwapChainsAreValidatedTogether) {
    setHeads({0, 0});
    const struct {
        SwapChainParameterDX9 first, second;
        const char* message;
    } cases[] = {
        {windowedChain(w[0]), fullScreenChain(w[1]), "283 All main swap chains must be either windowed or full screen"},
        {fullScreenChain(w[0]), fullScreenChain(w[0]), "294 Each swap chains must have unique windows"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(0u, create({on(0, c.first), on(1, c.second)}, w[0]));
        EXPECT_TRUE(log.contains(kDeviceLog, 3, c.message)) << log.dump();
    }
    EXPECT_EQ(2u, log.count(kDeviceLog, "104 One or more device parameter is not valid"));
    EXPECT_EQ(0u, log.count(kDeviceLog, "308 ")) << "the focus window twice in full screen is a shared window first";
    EXPECT_TRUE(d3d->createDeviceCalls().empty());
    EXPECT_EQ(2u, create({on(0, windowedChain(w[0])), on(1, windowedChain(w[0]))}, w[0])) << "windowed heads may share a window";
}

TEST_F(ScriptedManager, CreationWaitsForBusyDevicesRetriesShortMemoryAndFallsBack) {
    setHeads({0});
    const DWORD kHardware = D3DCREATE_HARDWARE_VERTEXPROCESSING, kMixed = D3DCREATE_MIXED_VERTEXPROCESSING;
    // Each case: scripted results, failing modes and their result; modes tried before success, sleeps, chains made.
    const struct {
        std::deque<HRESULT> results;
        DWORD failingModes;
        HRESULT failure;
        std::vector<DWORD> modes;
        size_t sleeps;
        unsigned chains;
    } cases[] = {
        {{}, kHardware, D3DERR_NOTAVAILABLE, std::vector<DWORD>(10, kHardware), 10, 1},
        {{D3DERR_DEVICELOST, D3DERR_OUTOFVIDEOMEMORY, D3DERR_DEVICELOST, D3DERR_OUTOFVIDEOMEMORY}, 0, D3D_OK,
         std::vector<DWORD>(5, kHardware), 2, 1},
        {{}, ~0u, D3DERR_INVALIDCALL, {kHardware, kMixed, D3DCREATE_SOFTWARE_VERTEXPROCESSING}, 0, 0},
    };
    for (const auto& c : cases) {
        RenderDeviceManagerDX9 fresh;
        d3d->createDeviceResults = c.results;
        d3d->failingVertexMode = c.failingModes;
        d3d->failingVertexModeResult = c.failure;
        const size_t callsBefore = d3d->createDeviceCalls().size(), sleepsBefore = sleeps.calls().size();
        EXPECT_EQ(c.chains, fresh.createRenderDevice(D3DDEVTYPE_HAL, parameters({on(0, windowedChain(w[0]))}), w[0]));
        std::vector<DWORD> modes;
        for (size_t i = callsBefore; i < d3d->createDeviceCalls().size(); ++i) modes.push_back(d3d->createDeviceCalls()[i].flags);
        if (c.chains && c.failingModes) modes.pop_back();  // the mode that finally worked
        EXPECT_EQ(c.modes, modes);
        EXPECT_EQ(c.sleeps, sleeps.calls().size() - sleepsBefore);
        EXPECT_EQ(c.chains != 0, static_cast<bool>(fresh.renderDevice(D3DDEVTYPE_HAL, w[0])->d3dDevice()));
    }
    EXPECT_EQ(std::vector<DWORD>(12, 500), sleeps.calls());
    EXPECT_EQ(10u, log.count(kDeviceLog, "14 IDirect3D9::CreateDevice D3DERR_NOTAVAILABLE"));
    expectLogged(log, kDeviceLog, {{2, "160 Creating Direct3D9 device using vertex processing mode 128"}});
    EXPECT_EQ(2u, log.count(kDeviceLog, "179 Device is lost at creation time"));
    EXPECT_EQ(2u, log.count(kDeviceLog, "14 IDirect3D9::CreateDevice D3DERR_OUTOFVIDEOMEMORY"));
}

TEST_F(ScriptedManager, DepthStencilAndMultisamplingFallBack) {
    setHeads({0});
    // Windowed keeps the request without a format; no implicit buffer comes of it.
    d3d->rejectedDepthChecks = -1;
    ASSERT_EQ(1u, create({on(0, windowedChain(w[0]))}, w[0]));
    EXPECT_TRUE(lastParams().EnableAutoDepthStencil && lastParams().AutoDepthStencilFormat == D3DFMT_UNKNOWN);
    EXPECT_EQ(static_cast<unsigned>(RenderDeviceDX9::MISSING_IMPLICIT_ZSTENCIL), renderBufferOf(*manager, w[0]).status);
    EXPECT_TRUE(log.contains(kDeviceLog, 3,
                             "230 Conflicting render parameter of device 0 with device implicit z-stencil : "
                             "EnableAutoDepthStencil is true but no implicit z-stencil allocated"));
    // Full screen gives the request up, then finds no format for a separate surface either.
    ASSERT_EQ(1u, create({on(0, fullScreenChain(w[0]))}, w[0]));
    EXPECT_FALSE(lastParams().EnableAutoDepthStencil || lastParams().Flags);
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "252 Cannot create a depth stencil surface for device 0"));
    EXPECT_EQ(0u, renderBufferOf(*manager, w[0]).status);
    // When only the first check round fails, a separate surface is made; D16 is flagged.
    for (D3DFORMAT format : {D3DFMT_D24S8, D3DFMT_D16}) {
        d3d->rejectedDepthChecks = 5;
        d3d->acceptedDepthFormat = format;
        ASSERT_EQ(1u, create({on(0, fullScreenChain(w[0]))}, w[0]));
        RenderBuffer buffer = renderBufferOf(*manager, w[0]);
        ASSERT_TRUE(!buffer.implicitZStencil && buffer.depthStencil);
        D3DSURFACE_DESC desc;
        buffer.depthStencil->GetDesc(&desc);
        EXPECT_EQ(format, desc.Format);
        EXPECT_EQ(RenderDeviceDX9::SEPARATE_ZSTENCIL | (format == D3DFMT_D16 ? RenderDeviceDX9::SEPARATE_ZSTENCIL_D16 : 0u),
                  buffer.status);
    }
    d3d->multiSampleResult = D3DERR_NOTAVAILABLE;
    create({on(0, windowedChain(w[0], true, 1, 4))}, w[0]);
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "83 Cannot honor multisample request of type 4 on adapter 0"));
    EXPECT_FALSE(lastParams().MultiSampleType || lastParams().MultiSampleQuality || lastParams().SwapEffect);
}

TEST_F(ScriptedManager, FailedDisplayModeAndSwapChainQueriesAreReported) {
    setHeads({0});
    d3d->adapter(0).displayModeResult = D3DERR_NOTAVAILABLE;
    EXPECT_EQ(0u, create({parameter(lowerCase(headName(0)), {windowedChain(w[0])})}, w[0]));
    expectLogged(log, kDeviceLog, {{3, "14 IDirect3D9::GetAdapterDisplayMode D3DERR_NOTAVAILABLE"},
                                   {3, "128 Cannot create parameter for ordinal " + lowerCase(headName(0))}});
    EXPECT_EQ(0u, manager->currentAdapterFormat(headName(0).c_str())) << "the mode's own result is not examined";

    d3d->adapter(0).displayModeResult = D3D_OK;
    d3d->deviceScript.swapChainResult = D3DERR_INVALIDCALL;
    EXPECT_EQ(1u, create({on(0, windowedChain(w[0]))}, w[0]));
    expectLogged(log, kDeviceLog, {{3, "14 IDirect3DDevice9::GetSwapChain D3DERR_INVALIDCALL"},
                                   {3, "220 Unable to retrieve implicit swap chain from device 0"}});
    EXPECT_FALSE(renderBufferOf(*manager, w[0]).swapChain->swapChain());
}

TEST_F(ScriptedManager, ResetOnlyWhenTheDeviceAsksForItAndFailedQueriesAreDropped) {
    setHeads({0});
    // Without a depth buffer the render buffer holds no surface that would block Reset.
    ASSERT_EQ(1u, create({on(0, windowedChain(w[0], false))}, w[0]));
    RenderDeviceDX9* device = manager->renderDevice(D3DDEVTYPE_HAL, w[0]).get();
    ScriptedDevice9* scripted = d3d->lastDevice();
    ASSERT_NE(nullptr, scripted);
    HRESULT result = E_FAIL;
    scripted->script.cooperativeLevels = {D3DERR_DEVICELOST};
    EXPECT_FALSE(device->reset(result));
    EXPECT_TRUE(result == D3DERR_DEVICELOST && scripted->resetCalls == 0);
    // Wine refuses Reset while a default-pool resource lives.
    IDirect3DTexture9* texture = nullptr;
    ASSERT_EQ(D3D_OK, scripted->device->CreateTexture(8, 8, 1, D3DUSAGE_RENDERTARGET, D3DFMT_A8R8G8B8, D3DPOOL_DEFAULT,
                                                      &texture, nullptr));
    scripted->script.cooperativeLevels = {D3DERR_DEVICENOTRESET};
    EXPECT_FALSE(device->reset(result));
    EXPECT_EQ(D3DERR_INVALIDCALL, result);
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "14 IDirect3DDevice9::Reset D3DERR_INVALIDCALL"));
    texture->Release();
    scripted->script.cooperativeLevels = {D3DERR_DEVICENOTRESET};
    EXPECT_TRUE(device->reset(result));
    EXPECT_TRUE(result == D3D_OK && scripted->resetCalls == 2);

    QueryCommon query;
    ASSERT_EQ(D3D_OK, query.initialize(scripted->device, D3DQUERYTYPE_EVENT));
    scripted->script.createQueryResult = E_OUTOFMEMORY;
    EXPECT_EQ(E_OUTOFMEMORY, query.initialize(scripted->device, D3DQUERYTYPE_EVENT));
    EXPECT_FALSE(query.query()) << "the old query is released before creating";
    EXPECT_EQ(1u, log.count("VexilDX9", "14 CreateQuery E_OUTOFMEMORY"));
}

TEST_F(ScriptedManager, FailingAndMissingAdaptersAreLogged) {
    setHeads({0});
    d3d->adapter(0).capsResult = D3DERR_INVALIDCALL;
    RenderDeviceManagerDX9 failing;  // each list reads the caps of its own type
    EXPECT_TRUE(log.contains("VexilDX9.Common", 3, "69 GetDeviceCaps failed. Invalid device type REF DEVICE for ordinal 0"));

    setHeads({});
    RenderDeviceManagerDX9 empty;
    EXPECT_TRUE(empty.isUsable());
    EXPECT_EQ(0u, empty.createRenderDevice(D3DDEVTYPE_HAL, parameters({on(0, windowedChain(w[0]))}), w[0]));
    expectLogged(log, kManagerLog, {{3, "85 No adapters of type HAL DEVICE enumerated"},
                                    {3, "85 No adapters of type REF DEVICE enumerated"},
                                    {3, "178 Cannot create render device with an empty device group list"}});
    EXPECT_EQ(0xFFFFFFFFu, empty.currentAdapterFormat(headName(0).c_str()));
}

TEST(Direct3DMissing, ManagerAndDirect3DObjectReportIt) {
    LogCapture log;
    Direct3DCreateHook hook([](UINT) { return static_cast<IDirect3D9*>(nullptr); });
    ASSERT_TRUE(hook.ok());
    RenderDeviceManagerDX9 manager;
    EXPECT_FALSE(manager.isUsable());
    EXPECT_EQ((std::vector<UINT>{32, 31}), hook.calls());
    EXPECT_FALSE(direct3D9Object());
    expectLogged(log, kManagerLog, {{3, "22 Fail to initialize IDirect3D9, call to Direct3DCreate9 returns NULL"},
                                    {3, "85 No adapters of type HAL DEVICE enumerated"}});
}

}  // namespace
}  // namespace vexiltest
