// The device-information snapshot and the shader-version lookups.
#include "DeviceFixtures.h"

namespace vexiltest {
namespace {

using DeviceInfoOnScriptedAdapters = ScriptedDirect3DTest;

TEST_F(DeviceInfoOnScriptedAdapters, LooksAdaptersUpByNameIgnoringCase) {
    setHeads({0, 0});
    d3d->adapter(0).vertexShaderVersion = D3DVS_VERSION(3, 0);
    d3d->adapter(0).pixelShaderVersion = D3DPS_VERSION(3, 0);
    d3d->adapter(1).vertexShaderVersion = D3DVS_VERSION(2, 1);
    d3d->AddRef();
    const COMPtr<IDirect3D9>::pointer held(d3d);  // the test's own reference
    DeviceInfo info(held, D3DDEVTYPE_HAL);
    ASSERT_TRUE(info.numDevices() == 2 && info.deviceNames().size() == 2);
    EXPECT_EQ(zeb::String("\\\\.\\HEAD1"), info.deviceNames()[1]);

    unsigned ordinal = 99, master = 99, inGroup = 99;
    EXPECT_TRUE(info.deviceOrdinal("\\\\.\\head1", ordinal) && info.groupInfo("\\\\.\\Head1", master, inGroup));
    EXPECT_EQ((std::vector<unsigned>{1, 0, 1}), (std::vector<unsigned>{ordinal, master, inGroup}));

    // The vertex form keeps the type bits in major; the pixel form does not.
    unsigned v[8] = {};
    EXPECT_TRUE(info.vertexShaderVersion("\\\\.\\HEAD0", v[0]) && info.vertexShaderVersion("\\\\.\\HEAD0", v[1], v[2]) &&
                info.pixelShaderVersion("\\\\.\\HEAD0", v[3]) && info.pixelShaderVersion("\\\\.\\HEAD0", v[4], v[5]) &&
                info.vertexShaderVersion("\\\\.\\HEAD1", v[6], v[7]));
    EXPECT_EQ((std::vector<unsigned>{0xFFFE0300u, 0xFFFE03u, 0, 0xFFFF0300u, 3, 0, 0xFFFE02u, 1}), std::vector<unsigned>(v, v + 8));

    // Unknown names leave every output alone.
    unsigned a = 7, b = 8;
    EXPECT_FALSE(info.deviceOrdinal("\\\\.\\DISPLAY9", a) || info.groupInfo("\\\\.\\DISPLAY9", a, b) ||
                 info.vertexShaderVersion("\\\\.\\DISPLAY9", a) || info.pixelShaderVersion("", a, b));
    EXPECT_TRUE(a == 7 && b == 8) << a << ", " << b;

    // A second initialize starts both arrays afresh.
    d3d->setAdapters({ScriptedAdapter()});
    d3d->adapter(0).deviceName = "\\\\.\\OTHER";
    EXPECT_EQ(1u, info.initialize(held, D3DDEVTYPE_HAL));
    EXPECT_FALSE(info.deviceNames().size() != 1 || info.deviceOrdinal("\\\\.\\HEAD0", ordinal));
}

TEST(DeviceInfo, SharedHalSnapshotIsBuiltOnceAndServesTheExportedQueries) {
    LogCapture log;
    Direct3DCreateHook hook;
    ASSERT_TRUE(hook.ok());
    SharedDeviceInfo& first = enumerateHALDeviceInformation();
    const size_t callsForFirst = hook.calls().size();
    EXPECT_LE(callsForFirst, 1u);
    EXPECT_EQ(&first, &enumerateHALDeviceInformation());
    EXPECT_EQ(callsForFirst, hook.calls().size()) << "the snapshot is not enumerated again";
    ASSERT_TRUE(first);

    IDirect3D9* real = hook.createReal(D3D_SDK_VERSION);
    D3DCAPS9 caps = {};
    real->GetDeviceCaps(0, D3DDEVTYPE_HAL, &caps);
    const std::string name = lowerCase(realAdapterName(real));
    real->Release();

    unsigned vertex = 0, pixel = 0, version = 5;
    EXPECT_TRUE(vertexShaderVersion(name.c_str(), &vertex) && pixelShaderVersion(name.c_str(), &pixel));
    EXPECT_TRUE(vertex == caps.VertexShaderVersion && pixel == caps.PixelShaderVersion) << vertex << ", " << pixel;
    EXPECT_FALSE(pixelShaderVersion("\\\\.\\NOWHERE", &version));
    EXPECT_EQ(5u, version);
    expectAssertion([] { DeviceInfo info(COMPtr<IDirect3D9>::pointer(), D3DDEVTYPE_HAL); }, 0, "d3d9Obj.get() != NULL",
                    "VexilDX9/DeviceInfo");

    // The exported Direct3D object is a fresh one each time, owned by the caller.
    COMPtr<IDirect3D9>::pointer one = direct3D9Object(), other = direct3D9Object();
    ASSERT_TRUE(one && other);
    EXPECT_NE(one.get(), other.get());
    EXPECT_EQ(0u, one.release()->Release());
}

}  // namespace
}  // namespace vexiltest
