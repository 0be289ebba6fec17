// The device manager and render devices on the real Direct3D of wined3d.
#include "DeviceFixtures.h"

using namespace VexilDX9;

namespace vexiltest {
namespace {

const char kManagerLog[] = "VexilDX9.RenderDeviceManagerDX9";
const char kDeviceLog[] = "VexilDX9.RenderDeviceDX9";

class ManagerOnWine : public RealDirect3DTest {
protected:
    // Colour of the device's back buffer at (x, y).
    D3DCOLOR backBufferPixel(IDirect3DDevice9* device, unsigned x, unsigned y) {
        IDirect3DSurface9* back = nullptr;
        device->GetBackBuffer(0, 0, D3DBACKBUFFER_TYPE_MONO, &back);
        D3DSURFACE_DESC desc;
        back->GetDesc(&desc);
        IDirect3DSurface9* copy = nullptr;
        device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy, nullptr);
        device->GetRenderTargetData(back, copy);
        D3DLOCKED_RECT locked;
        copy->LockRect(&locked, nullptr, D3DLOCK_READONLY);
        D3DCOLOR pixel = reinterpret_cast<const D3DCOLOR*>(static_cast<const char*>(locked.pBits) + y * locked.Pitch)[x];
        copy->UnlockRect();
        copy->Release();
        back->Release();
        return pixel & 0xFFFFFF;
    }
};

TEST_F(ManagerOnWine, CreatesDirect3DOnceAndKnowsAdaptersByNameIgnoringCase) {
    RenderDeviceManagerDX9 manager;
    EXPECT_TRUE(manager.isUsable());
    EXPECT_EQ(std::vector<UINT>{32}, createHook().calls());

    D3DDISPLAYMODE mode = {};
    IDirect3D9* d3d = createHook().createReal(D3D_SDK_VERSION);
    d3d->GetAdapterDisplayMode(0, &mode);
    d3d->Release();
    EXPECT_EQ(static_cast<unsigned>(mode.Format), manager.currentAdapterFormat(lowerCase(adapterName()).c_str()));

    EXPECT_EQ(0xFFFFFFFFu, manager.currentAdapterFormat("\\\\.\\NOWHERE"));
    EXPECT_TRUE(log.contains(kManagerLog, 3, "158 Cannot verify that \\\\.\\NOWHERE is an active device")) << log.dump();
}

TEST_F(ManagerOnWine, WindowedDeviceComesUpDrawsAndKeepsItsRenderBuffer) {
    TestWindow window;
    RenderDeviceManagerDX9 manager;
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(adapterName(), {windowedChain(window.handle())})}),
                                             window.handle()));
    RenderDeviceManagerDX9::RenderDeviceReference device = manager.renderDevice(D3DDEVTYPE_HAL, window.handle());
    ASSERT_TRUE(device);
    IDirect3DDevice9* d3dDevice = device->d3dDevice().get();
    watch(d3dDevice);

    ASSERT_EQ(D3D_OK, d3dDevice->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFF2080C0, 1.0f, 0));
    EXPECT_EQ(0x2080C0u, backBufferPixel(d3dDevice, 5, 7));
    EXPECT_EQ(D3D_OK, d3dDevice->Present(nullptr, nullptr, nullptr, nullptr));

    RenderBuffer buffer;
    ASSERT_TRUE(device->findRenderBuffer(window.handle(), buffer));
    EXPECT_TRUE(buffer.implicitZStencil);
    EXPECT_EQ(0u, buffer.status);
    ASSERT_TRUE(buffer.depthStencil);
    D3DSURFACE_DESC depth;
    buffer.depthStencil->GetDesc(&depth);
    EXPECT_EQ(D3DFMT_D24S8, depth.Format);
    D3DPRESENT_PARAMETERS pp = swapChainPresentParameters(buffer);
    EXPECT_EQ(window.handle(), pp.hDeviceWindow);
    EXPECT_EQ(D3DSWAPEFFECT_DISCARD, pp.SwapEffect);
    EXPECT_FALSE(device->findRenderBuffer(nullptr, buffer));

    EXPECT_TRUE(log.contains(kDeviceLog, 2, "160 Creating Direct3D9 device using vertex processing mode 64"));
    EXPECT_TRUE(log.contains(kDeviceLog, 2, "360 Using ZStencil buffer format 75"));
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "14 IDirect3D9::CreateDevice S_OK")) << log.dump();

    HRESULT result = E_FAIL;
    EXPECT_FALSE(device->reset(result));
    EXPECT_EQ(D3D_OK, result);

    for (const char* scope : {"RenderDeviceManagerDX9::RenderDeviceManagerDX9", "RenderDeviceManagerDX9::createDirect3D9",
                              "RenderDeviceManagerDX9::createRenderDevice"})
        EXPECT_LE(1u, log.count(kManagerLog, scope)) << "no trace " << scope;
    for (const char* scope : {"RenderDeviceDX9::initialize", "RenderDeviceDX9::validateMainSwapChainParam",
                              "RenderDeviceDX9::createPresentParam", "RenderDeviceDX9::reset"})
        EXPECT_LE(1u, log.count(kDeviceLog, scope)) << "no trace " << scope;
}

TEST_F(ManagerOnWine, BackBufferCountIsClampedToThree) {
    for (unsigned asked : {5u, 0u}) {
        TestWindow window;
        RenderDeviceManagerDX9 manager;
        ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                                 parameters({parameter(adapterName(), {windowedChain(window.handle(), false, asked)})}),
                                                 window.handle()));
        RenderBuffer buffer;
        ASSERT_TRUE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())->findRenderBuffer(window.handle(), buffer));
        // 0 asks for Direct3D's default of one.
        EXPECT_EQ(asked == 5 ? 3u : 1u, swapChainPresentParameters(buffer).BackBufferCount) << "asked for " << asked;
        EXPECT_FALSE(buffer.depthStencil);
    }
}

TEST_F(ManagerOnWine, TwoWindowsOnOneAdapterShareTheDeviceOfTheFirst) {
    TestWindow first, second, third;
    RenderDeviceManagerDX9 manager;
    ASSERT_EQ(1u, manager.createRenderDevice(
                      D3DDEVTYPE_HAL,
                      parameters({parameter(adapterName(), {windowedChain(first.handle())}),
                                  parameter(lowerCase(adapterName()), {windowedChain(second.handle())})}),
                      first.handle()));
    RenderDeviceManagerDX9::RenderDeviceReference device = manager.renderDevice(D3DDEVTYPE_HAL, first.handle());
    ASSERT_TRUE(device);
    EXPECT_EQ(device.get(), manager.renderDevice(D3DDEVTYPE_HAL, second.handle()).get());
    RenderBuffer buffer;
    EXPECT_FALSE(device->findRenderBuffer(second.handle(), buffer)) << "only the main swap chain is brought up";

    // The second window is drawn through the device's window override.
    IDirect3DDevice9* d3dDevice = device->d3dDevice().get();
    watch(d3dDevice);
    d3dDevice->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFFFF0000, 1.0f, 0);
    EXPECT_EQ(D3D_OK, d3dDevice->Present(nullptr, nullptr, nullptr, nullptr));
    d3dDevice->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF0000FF, 1.0f, 0);
    EXPECT_EQ(D3D_OK, d3dDevice->Present(nullptr, nullptr, second.handle(), nullptr));

    // Parameters accumulate; the index only knows the latest call; the old device goes.
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({parameter(adapterName(), {windowedChain(third.handle())})}),
                                             first.handle()));
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_HAL, first.handle()));
    RenderDeviceManagerDX9::RenderDeviceReference rebuilt = manager.renderDevice(D3DDEVTYPE_HAL, third.handle());
    ASSERT_TRUE(rebuilt);
    EXPECT_TRUE(rebuilt->findRenderBuffer(first.handle(), buffer)) << "the first filed chain stays the main one";
    watch(rebuilt->d3dDevice().get());
}

TEST_F(ManagerOnWine, DevicesListedPerTypeAndDroppedByClear) {
    TestWindow window;
    RenderDeviceManagerDX9 manager;
    const zeb::Array<RenderDeviceParameterDX9> params = parameters({parameter(adapterName(), {windowedChain(window.handle())})});
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_REF, params, window.handle()));
    RenderDeviceDX9* refDevice = manager.renderDevice(D3DDEVTYPE_REF, window.handle()).get();
    ASSERT_TRUE(refDevice);
    watch(refDevice->d3dDevice().get());

    zeb::Array<RenderDeviceManagerDX9::RenderDeviceReference> devices;
    EXPECT_EQ(1u, manager.renderDevices(D3DDEVTYPE_REF, devices));
    EXPECT_EQ(0u, manager.renderDevices(D3DDEVTYPE_HAL, devices));
    EXPECT_EQ(0u, devices.size()) << "the output is replaced, not appended to";

    // Asked for the other type, the index reads the other list, here still empty.
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle()));
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, params, window.handle()));
    watch(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())->d3dDevice().get());
    EXPECT_EQ(refDevice, manager.renderDevice(D3DDEVTYPE_REF, window.handle()).get());
    EXPECT_NE(refDevice, manager.renderDevice(D3DDEVTYPE_HAL, window.handle()).get());

    manager.clear();
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_REF, window.handle()));
    EXPECT_EQ(0u, manager.renderDevices(D3DDEVTYPE_REF, devices));
    // Groups and filed parameters survive clear.
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, params, window.handle()));
    RenderBuffer buffer;
    EXPECT_TRUE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())->findRenderBuffer(window.handle(), buffer));
}

TEST_F(ManagerOnWine, CopiesTakeTheGroupsAndShareTheDevices) {
    TestWindow window;
    const zeb::Array<RenderDeviceParameterDX9> params = parameters({parameter(adapterName(), {windowedChain(window.handle())})});
    RenderDeviceManagerDX9 manager;
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, params, window.handle()));
    watch(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())->d3dDevice().get());

    RenderDeviceManagerDX9 copy(manager);
    EXPECT_EQ(manager.renderDevice(D3DDEVTYPE_HAL, window.handle()).get(), copy.renderDevice(D3DDEVTYPE_HAL, window.handle()).get());
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, params, window.handle())) << "the copy took the groups";
    EXPECT_TRUE(log.contains(kManagerLog, 3, "178 Cannot create render device with an empty device group list"));
    RenderDeviceManagerDX9 assigned;
    assigned = copy;
    EXPECT_EQ(0u, copy.createRenderDevice(D3DDEVTYPE_HAL, params, window.handle()));
    ASSERT_EQ(1u, assigned.createRenderDevice(D3DDEVTYPE_HAL, params, window.handle()));
    watch(assigned.renderDevice(D3DDEVTYPE_HAL, window.handle())->d3dDevice().get());
}

TEST_F(ManagerOnWine, MultisamplingIsHonouredWhenTheAdapterCanAndDroppedWhenNot) {
    IDirect3D9* d3d = createHook().createReal(D3D_SDK_VERSION);
    D3DDISPLAYMODE mode = {};
    d3d->GetAdapterDisplayMode(0, &mode);
    unsigned supported = 0, refused = 0;
    for (unsigned type = 2; type <= 16; ++type) {
        bool ok = SUCCEEDED(d3d->CheckDeviceMultiSampleType(0, D3DDEVTYPE_HAL, mode.Format, TRUE,
                                                            static_cast<D3DMULTISAMPLE_TYPE>(type), nullptr));
        if (ok && !supported) supported = type;
        if (!ok && !refused) refused = type;
    }
    d3d->Release();

    if (supported) {
        TestWindow window;
        RenderDeviceManagerDX9 manager;
        ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                                 parameters({parameter(adapterName(), {windowedChain(window.handle(), true, 1, supported)})}),
                                                 window.handle()));
        RenderBuffer buffer;
        ASSERT_TRUE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())->findRenderBuffer(window.handle(), buffer));
        EXPECT_EQ(static_cast<D3DMULTISAMPLE_TYPE>(supported), swapChainPresentParameters(buffer).MultiSampleType);
    }
    if (refused) {
        TestWindow window;
        RenderDeviceManagerDX9 manager;
        // No swap effect is set for a refused request, which Direct3D does not accept.
        EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                                 parameters({parameter(adapterName(), {windowedChain(window.handle(), true, 1, refused)})}),
                                                 window.handle()));
        EXPECT_TRUE(log.contains(kDeviceLog, 3,
                                 "83 Cannot honor multisample request of type " + std::to_string(refused) + " on adapter 0"))
            << log.dump();
    }
    if (!supported || !refused) GTEST_SKIP() << "adapter supports " << supported << ", refuses " << refused;
}

TEST_F(ManagerOnWine, RequestsThatCannotBeFiledOrValidatedAreLogged) {
    TestWindow window;
    RenderDeviceManagerDX9 manager;
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, zeb::Array<RenderDeviceParameterDX9>(), window.handle()));
    EXPECT_TRUE(log.contains(kManagerLog, 3, "184 Need at least one device parameter to create a device"));

    // Unknown adapters are dropped; the only group then has nothing and its device stays down.
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                             parameters({parameter("\\\\.\\NOWHERE", {windowedChain(window.handle())})}),
                                             window.handle()));
    EXPECT_TRUE(log.contains(kManagerLog, 1, "131 Unable to associate device param 0 with a device"));
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "98 Cannot initialize RenderDeviceDX9 with no device parameters"));
    zeb::Array<RenderDeviceManagerDX9::RenderDeviceReference> devices;
    EXPECT_EQ(1u, manager.renderDevices(D3DDEVTYPE_HAL, devices)) << "one device per group, up or not";
    EXPECT_FALSE(devices[0]->d3dDevice());
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle()));

    // A known adapter next to an unknown one is still used.
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                             parameters({parameter("\\\\.\\NOWHERE", {windowedChain(window.handle())}),
                                                         parameter(adapterName(), {windowedChain(window.handle())})}),
                                             nullptr));
    EXPECT_TRUE(log.contains(kManagerLog, 1, "131 Unable to associate device param 0 with a device"));
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "273 Invalid parameter"));
    EXPECT_TRUE(log.contains(kDeviceLog, 3, "104 One or more device parameter is not valid"));
    EXPECT_TRUE(manager.renderDevice(D3DDEVTYPE_HAL, window.handle())) << "filed, though its device failed";
}

}  // namespace
}  // namespace vexiltest
