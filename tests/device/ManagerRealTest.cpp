// The device manager and render devices on the real Direct3D of wined3d.
#include "DeviceFixtures.h"

using namespace VexilDX9;

namespace vexiltest {
namespace {

class ManagerOnWine : public RealDirect3DTest {
protected:
    zeb::Array<RenderDeviceParameterDX9> on(std::initializer_list<SwapChainParameterDX9> chains) {
        return parameters({parameter(adapterName(), chains)});
    }
    TestWindows w{3};
};

TEST_F(ManagerOnWine, WindowedDeviceComesUpDrawsAndKeepsItsRenderBuffer) {
    RenderDeviceManagerDX9 manager;
    EXPECT_TRUE(manager.isUsable());
    EXPECT_EQ(std::vector<UINT>{32}, createHook().calls());
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, on({windowedChain(w[0])}), w[0]));
    RenderDeviceManagerDX9::RenderDeviceReference device = manager.renderDevice(D3DDEVTYPE_HAL, w[0]);
    IDirect3DDevice9* d3dDevice = device->d3dDevice().get();
    watch(d3dDevice);
    EXPECT_EQ(D3D_OK, d3dDevice->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFF2080C0, 1.0f, 0));
    EXPECT_EQ(D3D_OK, d3dDevice->Present(nullptr, nullptr, nullptr, nullptr));

    RenderBuffer buffer = renderBufferOf(manager, w[0]);
    EXPECT_TRUE(buffer.implicitZStencil && buffer.status == 0);
    ASSERT_TRUE(buffer.depthStencil);
    D3DSURFACE_DESC depth;
    buffer.depthStencil->GetDesc(&depth);
    EXPECT_EQ(D3DFMT_D24S8, depth.Format);
    const D3DPRESENT_PARAMETERS pp = swapChainPresentParameters(buffer);
    EXPECT_TRUE(pp.hDeviceWindow == w[0] && pp.SwapEffect == D3DSWAPEFFECT_DISCARD);
    EXPECT_FALSE(device->findRenderBuffer(nullptr, buffer));
    HRESULT result = E_FAIL;
    EXPECT_FALSE(device->reset(result));
    EXPECT_EQ(D3D_OK, result);
    expectLogged(log, kDeviceLog, {{2, "160 Creating Direct3D9 device using vertex processing mode 64"},
                                   {2, "360 Using ZStencil buffer format 75"}, {3, "14 IDirect3D9::CreateDevice S_OK"}});

    // Back buffers are clamped to three; 0 asks for Direct3D's default of one.
    for (unsigned asked : {5u, 0u}) {
        RenderDeviceManagerDX9 fresh;
        ASSERT_EQ(1u, fresh.createRenderDevice(D3DDEVTYPE_HAL, on({windowedChain(w[1], false, asked)}), w[1]));
        const RenderBuffer chain = renderBufferOf(fresh, w[1]);
        EXPECT_EQ(asked == 5 ? 3u : 1u, swapChainPresentParameters(chain).BackBufferCount) << asked;
        EXPECT_FALSE(chain.depthStencil);
    }
}

TEST_F(ManagerOnWine, TwoWindowsOnOneAdapterShareTheDeviceOfTheFirst) {
    RenderDeviceManagerDX9 manager;
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL,
                                             parameters({parameter(adapterName(), {windowedChain(w[0])}),
                                                         parameter(lowerCase(adapterName()), {windowedChain(w[1])})}),
                                             w[0]));
    RenderDeviceManagerDX9::RenderDeviceReference device = manager.renderDevice(D3DDEVTYPE_HAL, w[0]);
    ASSERT_TRUE(device);
    EXPECT_EQ(device.get(), manager.renderDevice(D3DDEVTYPE_HAL, w[1]).get());
    RenderBuffer buffer;
    EXPECT_FALSE(device->findRenderBuffer(w[1], buffer)) << "only the main swap chain is brought up";
    // The second window is drawn through the device's window override.
    watch(device->d3dDevice().get());
    EXPECT_EQ(D3D_OK, device->d3dDevice()->Present(nullptr, nullptr, w[1], nullptr));

    // Parameters accumulate; the index only knows the latest call; the old device goes.
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, on({windowedChain(w[2])}), w[0]));
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_HAL, w[0]));
    RenderDeviceManagerDX9::RenderDeviceReference rebuilt = manager.renderDevice(D3DDEVTYPE_HAL, w[2]);
    ASSERT_TRUE(rebuilt);
    EXPECT_TRUE(rebuilt->findRenderBuffer(w[0], buffer)) << "the first filed chain stays the main one";
    watch(rebuilt->d3dDevice().get());
}

TEST_F(ManagerOnWine, DevicesListedPerTypeAndDroppedByClear) {
    RenderDeviceManagerDX9 manager;
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_REF, on({windowedChain(w[0])}), w[0]));
    RenderDeviceDX9* refDevice = manager.renderDevice(D3DDEVTYPE_REF, w[0]).get();
    ASSERT_TRUE(refDevice);
    watch(refDevice->d3dDevice().get());
    zeb::Array<RenderDeviceManagerDX9::RenderDeviceReference> devices;
    EXPECT_EQ(1u, manager.renderDevices(D3DDEVTYPE_REF, devices));
    EXPECT_FALSE(manager.renderDevices(D3DDEVTYPE_HAL, devices) || devices.size()) << "the output is replaced, not appended to";

    // Asked for the other type, the index reads the other list, here still empty.
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_HAL, w[0]));
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, on({windowedChain(w[0])}), w[0]));
    watch(manager.renderDevice(D3DDEVTYPE_HAL, w[0])->d3dDevice().get());
    EXPECT_EQ(refDevice, manager.renderDevice(D3DDEVTYPE_REF, w[0]).get());
    EXPECT_NE(refDevice, manager.renderDevice(D3DDEVTYPE_HAL, w[0]).get());

    manager.clear();
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_REF, w[0]) || manager.renderDevices(D3DDEVTYPE_REF, devices));
    // Groups and filed parameters survive clear.
    const zeb::Array<RenderDeviceParameterDX9> params = on({windowedChain(w[0])});
    ASSERT_EQ(1u, manager.createRenderDevice(D3DDEVTYPE_HAL, params, w[0]));
    watch(manager.renderDevice(D3DDEVTYPE_HAL, w[0])->d3dDevice().get());
    // Copies share the devices and take the groups.
    RenderDeviceManagerDX9 copy(manager);
    EXPECT_EQ(manager.renderDevice(D3DDEVTYPE_HAL, w[0]).get(), copy.renderDevice(D3DDEVTYPE_HAL, w[0]).get());
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, params, w[0])) << "the copy took the groups";
    EXPECT_TRUE(log.contains(kManagerLog, 3, "178 Cannot create render device with an empty device group list"));
    RenderDeviceManagerDX9 assigned;
    assigned = copy;
    EXPECT_EQ(0u, copy.createRenderDevice(D3DDEVTYPE_HAL, params, w[0]));
    ASSERT_EQ(1u, assigned.createRenderDevice(D3DDEVTYPE_HAL, params, w[0]));
    watch(assigned.renderDevice(D3DDEVTYPE_HAL, w[0])->d3dDevice().get());
}

TEST_F(ManagerOnWine, MultisamplingIsHonouredWhenTheAdapterCanAndBadRequestsAreLogged) {
    IDirect3D9* d3d = createHook().createReal(D3D_SDK_VERSION);
    unsigned samples = 16;
    while (samples > 1 && FAILED(d3d->CheckDeviceMultiSampleType(0, D3DDEVTYPE_HAL, displayMode().Format, TRUE,
                                                                  static_cast<D3DMULTISAMPLE_TYPE>(samples), nullptr)))
        --samples;
    d3d->Release();
    if (samples > 1) {
        RenderDeviceManagerDX9 sampled;
        ASSERT_EQ(1u, sampled.createRenderDevice(D3DDEVTYPE_HAL, on({windowedChain(w[0], true, 1, samples)}), w[0]));
        EXPECT_EQ(samples, static_cast<unsigned>(swapChainPresentParameters(renderBufferOf(sampled, w[0])).MultiSampleType));
    }

    RenderDeviceManagerDX9 manager;

    EXPECT_EQ(static_cast<unsigned>(displayMode().Format), manager.currentAdapterFormat(lowerCase(adapterName()).c_str()));
    EXPECT_EQ(0xFFFFFFFFu, manager.currentAdapterFormat("\\\\.\\NOWHERE"));
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, zeb::Array<RenderDeviceParameterDX9>(), w[0]));
    // Unknown adapters are dropped; the only group then has nothing and its device stays down.
    const RenderDeviceParameterDX9 nowhere = parameter("\\\\.\\NOWHERE", {windowedChain(w[0])});
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({nowhere}), w[0]));
    zeb::Array<RenderDeviceManagerDX9::RenderDeviceReference> devices;
    EXPECT_EQ(1u, manager.renderDevices(D3DDEVTYPE_HAL, devices)) << "one device per group, up or not";
    EXPECT_FALSE(devices[0]->d3dDevice());
    EXPECT_FALSE(manager.renderDevice(D3DDEVTYPE_HAL, w[0]));
    // A known adapter next to an unknown one is still used.
    EXPECT_EQ(0u, manager.createRenderDevice(D3DDEVTYPE_HAL, parameters({nowhere, parameter(adapterName(), {windowedChain(w[0])})}),
                                             nullptr));
    expectLogged(log, kManagerLog, {{3, "158 Cannot verify that \\\\.\\NOWHERE is an active device"},
                                    {3, "184 Need at least one device parameter to create a device"},
                                    {1, "131 Unable to associate device param 0 with a device"}});
    expectLogged(log, kDeviceLog, {{3, "98 Cannot initialize RenderDeviceDX9 with no device parameters"},
                                   {3, "273 Invalid parameter"}, {3, "104 One or more device parameter is not valid"}});
    EXPECT_TRUE(manager.renderDevice(D3DDEVTYPE_HAL, w[0])) << "filed, though its device failed";
}

}  // namespace
}  // namespace vexiltest
