// What Wine cannot show by itself: several adapters and groups, failing drivers, lost devices.
// The library runs on a scripted decorator around the real Direct3D objects.
#include "DeviceFixtures.h"

using namespace VexilDX9;

namespace vexiltest {
namespace {

const char kManagerLog[] = "VexilDX9.RenderDeviceManagerDX9";
const char kDeviceLog[] = "VexilDX9.RenderDeviceDX9";
const char kCommonLog[] = "VexilDX9.Common";

class ScriptedManager : public ScriptedDirect3DTest {
protected:
    std::vector<DWORD> vertexModesTried() const {
        std::vector<DWORD> modes;
        for (const CreateDeviceCall& call : d3d->createDeviceCalls())
            modes.push_back(call.flags & ~static_cast<DWORD>(D3DCREATE_ADAPTERGROUP_DEVICE));
        return modes;
    }
    RenderBuffer renderBufferOf(RenderDeviceManagerDX9& manager, HWND window) {
        RenderBuffer buffer;
        RenderDeviceManagerDX9::RenderDeviceReference device = manager.renderDevice(D3DDEVTYPE_HAL, window);
        EXPECT_TRUE(device && device->findRenderBuffer(window, buffer));
        return buffer;
    }
};

TEST_F(ScriptedManager, HeadsOfOneCardBecomeOneAdapterGroupDevice) {
    setHeads({0, 0, 2});
    TestWindow w0, w1, w2;
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(3u, manager.createRenderDevice(
                      D3DDEVTYPE_HAL,
                      parameters({parameter(headName(0), {windowedChain(w0.handle())}),
                                  parameter(headName(1), {windowedChain(w1.handle())}),
                                  parameter(lowerCase(headName(2)), {windowedChain(w2.handle())})}),
                      w0.handle()));
    ASSERT_EQ(2u, d3d->createDeviceCalls().size());
    const CreateDeviceCall& card = d3d->createDeviceCalls()[0];
    EXPECT_EQ(0u, card.adapter);
    EXPECT_EQ(static_cast<DWORD>(D3DCREATE_ADAPTERGROUP_DEVICE | D3DCREATE_HARDWARE_VERTEXPROCESSING), card.flags);
    ASSERT_EQ(2u, card.params.size());
    EXPECT_EQ(w1.handle(), card.params[1].hDeviceWindow);
    EXPECT_EQ(2u, d3d->createDeviceCalls()[1].adapter);
    EXPECT_EQ(static_cast<DWORD>(D3DCREATE_HARDWARE_VERTEXPROCESSING), d3d->createDeviceCalls()[1].flags);

    EXPECT_EQ(manager.renderDevice(D3DDEVTYPE_HAL, w0.handle()).get(), manager.renderDevice(D3DDEVTYPE_HAL, w1.handle()).get());
    EXPECT_NE(manager.renderDevice(D3DDEVTYPE_HAL, w0.handle()).get(), manager.renderDevice(D3DDEVTYPE_HAL, w2.handle()).get());
    zeb::Array<RenderDeviceManagerDX9::RenderDeviceReference> devices;
    EXPECT_EQ(2u, manager.renderDevices(D3DDEVTYPE_HAL, devices));
    RenderBuffer second = renderBufferOf(manager, w1.handle());
    EXPECT_TRUE(second.swapChain && second.swapChain->swapChain()) << "each head has its implicit swap chain";
}

TEST_F(ScriptedManager, AWindowedSetupMayUseOneHeadOfAGroup) {
    setHeads({0, 0});
    TestWindow window;
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(1), {windowedChain(window.handle())})}),
                                             window.handle()));
    ASSERT_EQ(1u, d3d->createDeviceCalls().size());
    EXPECT_EQ(1u, d3d->createDeviceCalls()[0].adapter) << "a single head is created on its own ordinal";
    EXPECT_EQ(0u, d3d->createDeviceCalls()[0].flags & D3DCREATE_ADAPTERGROUP_DEVICE);
}

TEST_F(ScriptedManager, FullScreenTakesOneHeadOrAllHeadsOfTheGroup) {
    setHeads({0, 1, 1, 1});
    TestWindow w1, w2, w3;
    {
        RenderDeviceManagerDX9 manager;
        EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                                 parameters({parameter(headName(1), {fullScreenChain(w1.handle())}),
                                                             parameter(headName(2), {fullScreenChain(w2.handle())})}),
                                                 w1.handle()));
        EXPECT_TRUE(log.contains(kDeviceLog, 3,
                                 "116 RenderDeviceDX9 currently restricts full screen adapter size to either only one or "
                                 "all within the device group"))
            << log.dump();
        EXPECT_TRUE(d3d->createDeviceCalls().empty());
    }
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(3u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                             parameters({parameter(headName(1), {fullScreenChain(w1.handle())}),
                                                         parameter(headName(2), {fullScreenChain(w2.handle())}),
                                                         parameter(headName(3), {fullScreenChain(w3.handle())})}),
                                             w1.handle()));
    ASSERT_EQ(1u, d3d->createDeviceCalls().size());
    const CreateDeviceCall& call = d3d->createDeviceCalls()[0];
    EXPECT_EQ(1u, call.adapter) << "an adapter-group device is created on the head ordinal";
    EXPECT_TRUE(call.flags & D3DCREATE_ADAPTERGROUP_DEVICE);
    D3DDISPLAYMODE mode = {};
    d3d->real()->GetAdapterDisplayMode(0, &mode);
    for (const D3DPRESENT_PARAMETERS& pp : call.params) {
        EXPECT_FALSE(pp.Windowed);
        EXPECT_EQ(mode.Width, pp.BackBufferWidth);
        EXPECT_EQ(mode.Height, pp.BackBufferHeight);
        EXPECT_EQ(mode.RefreshRate, pp.FullScreen_RefreshRateInHz);
        EXPECT_EQ(mode.Format, pp.BackBufferFormat);
    }
    // The single adapter's group got nothing; its device stays down but keeps the list aligned.
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "98 Cannot initialize RenderDeviceDX9 with no device parameters"));
    zeb::Array<RenderDeviceManagerDX9::RenderDeviceReference> devices;
    ASSERT_EQ(2u, manager.renderDevices(D3DDEVTYPE_HAL, devices));
    EXPECT_EQ(devices[1].get(), manager.renderDevice(D3DDEVTYPE_HAL, w3.handle()).get());
}

TEST_F(ScriptedManager, MainSwapChainsAreValidatedTogether) {
    setHeads({0, 0});
    TestWindow w0, w1;
    const struct {
        SwapChainParameterDX9 first, second;
        const char* message;
    } cases[] = {
        {windowedChain(w0.handle()), fullScreenChain(w1.handle()), "283 All main swap chains must be either windowed or full screen"},
        {fullScreenChain(w0.handle()), fullScreenChain(w0.handle()), "294 Each swap chains must have unique windows"},
    };
    for (const auto& c : cases) {
        log.clear();
        RenderDeviceManagerDX9 manager;
        EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                                 parameters({parameter(headName(0), {c.first}), parameter(headName(1), {c.second})}),
                                                 w0.handle()));
        EXPECT_TRUE(log.contains(kDeviceLog, 3, c.message)) << log.dump();
        EXPECT_TRUE(log.contains(kDeviceLog, 3, "104 One or more device parameter is not valid"));
    }
    EXPECT_TRUE(d3d->createDeviceCalls().empty());

    // Windowed heads may share a window.
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(2u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                             parameters({parameter(headName(0), {windowedChain(w0.handle())}),
                                                         parameter(headName(1), {windowedChain(w0.handle())})}),
                                             w0.handle()));
}

TEST_F(ScriptedManager, VertexProcessingFallsBackAndBusyDevicesAreWaitedForTenTimes) {
    setHeads({0});
    TestWindow window;
    d3d->failingVertexMode = D3DCREATE_HARDWARE_VERTEXPROCESSING;
    d3d->failingVertexModeResult = D3DERR_NOTAVAILABLE;
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(0), {windowedChain(window.handle())})}),
                                             window.handle()));
    std::vector<DWORD> expected(10, D3DCREATE_HARDWARE_VERTEXPROCESSING);
    expected.push_back(D3DCREATE_MIXED_VERTEXPROCESSING);
    EXPECT_EQ(expected, vertexModesTried());
    EXPECT_EQ(std::vector<DWORD>(10, 500), sleeps->calls());
    EXPECT_EQ(10u, log.count(kDeviceLog, "14 IDirect3D9::CreateDevice D3DERR_NOTAVAILABLE"));
    EXPECT_TRUE(log.contains(kDeviceLog, 2, "160 Creating Direct3D9 device using vertex processing mode 128"));
    ASSERT_TRUE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())->d3dDevice());
}

TEST_F(ScriptedManager, LostDevicesAreRetriedWithWaitsAndShortMemoryAtOnce) {
    setHeads({0});
    TestWindow window;
    d3d->createDeviceResults = {D3DERR_DEVICELOST, D3DERR_OUTOFVIDEOMEMORY, D3DERR_DEVICELOST, D3DERR_OUTOFVIDEOMEMORY};
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(0), {windowedChain(window.handle())})}),
                                             window.handle()));
    EXPECT_EQ(std::vector<DWORD>(5, D3DCREATE_HARDWARE_VERTEXPROCESSING), vertexModesTried());
    EXPECT_EQ(std::vector<DWORD>(2, 500), sleeps->calls()) << "no wait for short video memory";
    EXPECT_EQ(2u, log.count(kDeviceLog, "179 Device is lost at creation time"));
    EXPECT_EQ(2u, log.count(kDeviceLog, "14 IDirect3D9::CreateDevice D3DERR_OUTOFVIDEOMEMORY"));
}

TEST_F(ScriptedManager, NoDeviceWhenEveryVertexProcessingModeFails) {
    setHeads({0});
    TestWindow window;
    d3d->failingVertexMode = D3DCREATE_HARDWARE_VERTEXPROCESSING | D3DCREATE_MIXED_VERTEXPROCESSING |
                             D3DCREATE_SOFTWARE_VERTEXPROCESSING;
    d3d->failingVertexModeResult = D3DERR_INVALIDCALL;
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(0), {windowedChain(window.handle())})}),
                                             window.handle()));
    EXPECT_EQ((std::vector<DWORD>{D3DCREATE_HARDWARE_VERTEXPROCESSING, D3DCREATE_MIXED_VERTEXPROCESSING,
                                  D3DCREATE_SOFTWARE_VERTEXPROCESSING}),
              vertexModesTried());
    EXPECT_TRUE(sleeps->calls().empty());
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())->d3dDevice());
    RenderBuffer buffer;
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())->findRenderBuffer(window.handle(), buffer));
}

TEST_F(ScriptedManager, DepthStencilFallsBackPerWindowMode) {
    setHeads({0});
    TestWindow window;
    const zeb::Array<RenderDeviceParameterDX9> windowed = parameters({parameter(headName(0), {windowedChain(window.handle())})});
    const zeb::Array<RenderDeviceParameterDX9> fullScreen = parameters({parameter(headName(0), {fullScreenChain(window.handle())})});
    {
        // Windowed keeps the request without a format; no implicit buffer comes of it.
        d3d->rejectedDepthChecks = -1;
        RenderDeviceManagerDX9 manager;
        ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, windowed, window.handle()));
        const D3DPRESENT_PARAMETERS& pp = d3d->createDeviceCalls().back().params[0];
        EXPECT_TRUE(pp.EnableAutoDepthStencil);
        EXPECT_EQ(D3DFMT_UNKNOWN, pp.AutoDepthStencilFormat);
        RenderBuffer buffer = renderBufferOf(manager, window.handle());
        EXPECT_EQ(static_cast<unsigned>(RenderDeviceDX9::MISSING_IMPLICIT_ZSTENCIL), buffer.status);
        EXPECT_TRUE(log.contains(kDeviceLog, 3,
                                 "230 Conflicting render parameter of device 0 with device implicit z-stencil : "
                                 "EnableAutoDepthStencil is true but no implicit z-stencil allocated"))
            << log.dump();
    }
    {
        // Full screen gives the request up, then finds no format for a separate surface either.
        RenderDeviceManagerDX9 manager;
        ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, fullScreen, window.handle()));
        const D3DPRESENT_PARAMETERS& pp = d3d->createDeviceCalls().back().params[0];
        EXPECT_FALSE(pp.EnableAutoDepthStencil);
        EXPECT_EQ(0u, pp.Flags);
        EXPECT_TRUE(log.contains(kDeviceLog, 3, "252 Cannot create a depth stencil surface for device 0"));
        EXPECT_EQ(0u, renderBufferOf(manager, window.handle()).status);
    }
    // When only the first check round fails, a separate surface is made; D16 is flagged.
    for (D3DFORMAT format : {D3DFMT_D24S8, D3DFMT_D16}) {
        d3d->rejectedDepthChecks = 5;
        d3d->acceptedDepthFormat = format;
        RenderDeviceManagerDX9 manager;
        ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, fullScreen, window.handle()));
        RenderBuffer buffer = renderBufferOf(manager, window.handle());
        EXPECT_FALSE(buffer.implicitZStencil);
        ASSERT_TRUE(buffer.depthStencil);
        D3DSURFACE_DESC desc;
        buffer.depthStencil->GetDesc(&desc);
        EXPECT_EQ(format, desc.Format);
        const unsigned expected = format == D3DFMT_D16 ? RenderDeviceDX9::SEPARATE_ZSTENCIL | RenderDeviceDX9::SEPARATE_ZSTENCIL_D16
                                                       : RenderDeviceDX9::SEPARATE_ZSTENCIL;
        EXPECT_EQ(expected, buffer.status);
    }
}

TEST_F(ScriptedManager, RefusedMultisamplingLeavesNoSwapEffect) {
    setHeads({0});
    TestWindow window;
    d3d->multiSampleResult = D3DERR_NOTAVAILABLE;
    RenderDeviceManagerDX9 manager;
    manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(0), {windowedChain(window.handle(), true, 1, 4)})}),
                               window.handle());
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "83 Cannot honor multisample request of type 4 on adapter 0"));
    ASSERT_FALSE(d3d->createDeviceCalls().empty());
    const D3DPRESENT_PARAMETERS& pp = d3d->createDeviceCalls()[0].params[0];
    EXPECT_EQ(D3DMULTISAMPLE_NONE, pp.MultiSampleType);
    EXPECT_EQ(0u, pp.MultiSampleQuality);
    EXPECT_EQ(0, pp.SwapEffect);
}

TEST_F(ScriptedManager, FailedDisplayModeAndSwapChainQueriesAreReported) {
    setHeads({0});
    TestWindow window;
    d3d->adapter(0).displayModeResult = D3DERR_NOTAVAILABLE;
    {
        RenderDeviceManagerDX9 manager;
        EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(lowerCase(headName(0)), {windowedChain(window.handle())})}),
                                                 window.handle()));
        EXPECT_TRUE(log.contains(kDeviceLog, 3, "14 IDirect3D9::GetAdapterDisplayMode D3DERR_NOTAVAILABLE"));
        EXPECT_TRUE(log.contains(kDeviceLog, 3, "128 Cannot create parameter for ordinal " + lowerCase(headName(0))))
            << log.dump();
        EXPECT_EQ(0u, manager.currentAdapterFormat(headName(0).c_str())) << "the mode's own result is not examined";
    }
    d3d->adapter(0).displayModeResult = D3D_OK;
    d3d->deviceScript.swapChainResult = D3DERR_INVALIDCALL;
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(0), {windowedChain(window.handle())})}),
                                             window.handle()));
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "14 IDirect3DDevice9::GetSwapChain D3DERR_INVALIDCALL"));
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "220 Unable to retrieve implicit swap chain from device 0"));
    RenderBuffer buffer = renderBufferOf(manager, window.handle());
    ASSERT_TRUE(buffer.swapChain);
    EXPECT_FALSE(buffer.swapChain->swapChain());
}

TEST_F(ScriptedManager, ResetOnlyWhenTheDeviceAsksForIt) {
    setHeads({0});
    TestWindow window;
    RenderDeviceManagerDX9 manager;
    // Without a depth buffer the render buffer holds no surface that would block Reset.
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(0), {windowedChain(window.handle(), false)})}),
                                             window.handle()));
    RenderDeviceDX9* device = manager.renderDevice(D3DDEVTYPE_HAL, window.handle()).get();
    ScriptedDevice9* scripted = d3d->lastDevice();
    ASSERT_NE(nullptr, scripted);

    HRESULT result = E_FAIL;
    scripted->script.cooperativeLevels = {D3DERR_DEVICELOST};
    EXPECT_FALSE(device->reset(result));
    EXPECT_EQ(D3DERR_DEVICELOST, result);
    EXPECT_EQ(0u, scripted->resetCalls);

    // Wine refuses Reset while a default-pool resource lives.
    IDirect3DTexture9* texture = nullptr;
    ASSERT_EQ(D3D_OK, scripted->device->CreateTexture(8, 8, 1, D3DUSAGE_RENDERTARGET, D3DFMT_A8R8G8B8, D3DPOOL_DEFAULT, &texture, nullptr));
    scripted->script.cooperativeLevels = {D3DERR_DEVICENOTRESET};
    EXPECT_FALSE(device->reset(result));
    EXPECT_EQ(D3DERR_INVALIDCALL, result);
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "14 IDirect3DDevice9::Reset D3DERR_INVALIDCALL")) << log.dump();
    texture->Release();

    scripted->script.cooperativeLevels = {D3DERR_DEVICENOTRESET};
    EXPECT_TRUE(device->reset(result));
    EXPECT_EQ(D3D_OK, result);
    EXPECT_EQ(2u, scripted->resetCalls);
}

TEST_F(ScriptedManager, QueryWhoseCreationFailsIsDropped) {
    setHeads({0});
    TestWindow window;
    RenderDeviceManagerDX9 manager;
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(0), {windowedChain(window.handle())})}),
                                             window.handle()));
    ScriptedDevice9* scripted = d3d->lastDevice();
    QueryCommon query;
    ASSERT_EQ(D3D_OK, query.initialize(scripted->device, D3DQUERYTYPE_EVENT));
    scripted->script.createQueryResult = E_OUTOFMEMORY;
    EXPECT_EQ(E_OUTOFMEMORY, query.initialize(scripted->device, D3DQUERYTYPE_EVENT));
    EXPECT_FALSE(query.query()) << "the old query is released before creating";
    EXPECT_EQ(1u, log.count("VexilDX9", "14 CreateQuery E_OUTOFMEMORY")) << log.dump();
}

TEST_F(ScriptedManager, AdapterQueriesThatFailAreLoggedPerType) {
    setHeads({0, 1});
    d3d->adapter(0).capsResult = D3DERR_INVALIDCALL;
    d3d->adapter(1).identifierResult = D3DERR_INVALIDCALL;
    RenderDeviceManagerDX9 manager;
    EXPECT_TRUE(log.contains(kCommonLog, 3, "69 GetDeviceCaps failed. Invalid device type HAL DEVICE for ordinal 0"));
    EXPECT_TRUE(log.contains(kCommonLog, 3, "69 GetDeviceCaps failed. Invalid device type REF DEVICE for ordinal 0"));
    EXPECT_EQ(2u, log.count(kCommonLog, "74 GetAdapterIdentifier failed for ordinal 1")) << log.dump();
}

TEST_F(ScriptedManager, WithoutAdaptersNothingCanBeCreated) {
    setHeads({});
    TestWindow window;
    RenderDeviceManagerDX9 manager;
    EXPECT_TRUE(manager.isUsable());
    EXPECT_TRUE(log.contains(kManagerLog, 3, "85 No adapters of type HAL DEVICE enumerated"));
    EXPECT_TRUE(log.contains(kManagerLog, 3, "85 No adapters of type REF DEVICE enumerated"));
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(headName(0), {windowedChain(window.handle())})}),
                                             window.handle()));
    EXPECT_TRUE(log.contains(kManagerLog, 3, "178 Cannot create render device with an empty device group list"));
    EXPECT_EQ(0xFFFFFFFFu, manager.currentAdapterFormat(headName(0).c_str()));
}

TEST(Direct3DMissing, ManagerAndDirect3DObjectReportIt) {
    LogCapture log;
    Direct3DCreateHook hook([](UINT) { return static_cast<IDirect3D9*>(nullptr); });
    ASSERT_TRUE(hook.ok());
    RenderDeviceManagerDX9 manager;
    EXPECT_FALSE(manager.isUsable());
    EXPECT_EQ((std::vector<UINT>{32, 31}), hook.calls());
    EXPECT_TRUE(log.contains(kManagerLog, 3, "22 Fail to initialize IDirect3D9, call to Direct3DCreate9 returns NULL"));
    EXPECT_TRUE(log.contains(kManagerLog, 3, "85 No adapters of type HAL DEVICE enumerated"));

    EXPECT_FALSE(direct3D9Object());
    EXPECT_TRUE(log.contains("VexilDX9", 3, "26 Fail to initialize IDirect3D9, call to Direct3DCreate9 returns NULL"));
}

}  // namespace
}  // namespace vexiltest
