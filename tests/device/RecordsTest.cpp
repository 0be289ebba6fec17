// Parameter filing into adapter records and device groups.
#include "DeviceFixtures.h"

using namespace VexilDX9;

namespace vexiltest {
namespace {

const char kCommonLog[] = "VexilDX9.Common";

using AdapterRecords = ScriptedDirect3DTest;

TEST_F(AdapterRecords, ParametersAccumulateOnTheAdapterTheyName) {
    setHeads({0, 0});
    TestWindows w(3);
    DeviceGroup group;  // both heads of the scripted card
    group.headOrdinal() = 0;
    group.group() = AdapterInfoList(2);
    for (unsigned i = 0; i < 2; ++i) group.group().adapterInfoList()[i].populateInfo(i, D3DDEVTYPE_HAL, d3d);
    EXPECT_TRUE(log.entries().empty()) << log.dump();
    EXPECT_EQ(1u, group.ordinal("\\\\.\\head1"));
    EXPECT_TRUE(group.group().contains(1) && !group.group().contains(2));

    EXPECT_TRUE(group.addParameter(parameter("\\\\.\\head1", {windowedChain(w[0]), windowedChain(w[1])})));
    EXPECT_TRUE(group.addParameter(parameter("\\\\.\\HEAD1", {windowedChain(w[2])})));
    EXPECT_FALSE(group.addParameter(parameter("\\\\.\\HEAD9", {windowedChain(w[2])})));
    DeviceGroup other;  // without records, equal to group by its head ordinal alone
    other.headOrdinal() = 0;
    EXPECT_TRUE(group == other);
    other.headOrdinal() = 1;
    EXPECT_FALSE(group == other || other.addParameter(parameter("\\\\.\\HEAD0", {windowedChain(w[0])})));

    AdapterInfo found;
    ASSERT_TRUE(group.group().find(1, found));
    EXPECT_EQ(zeb::String("\\\\.\\head1"), found.renderParameter().adapterId) << "the first filed id stays";
    ASSERT_EQ(3u, found.renderParameter().swapChains.size());
    EXPECT_EQ(w[2], found.renderParameter().swapChains[2].window);
    AdapterInfo untouched = found;
    EXPECT_FALSE(group.group().find(5, untouched));
    EXPECT_EQ(3u, untouched.renderParameter().swapChains.size());

    zeb::Array<unsigned> ordinals;
    zeb::Array<SwapChainParameterDX9> chains;
    ASSERT_EQ(1u, group.mainSwapChainParam(ordinals, chains));
    EXPECT_EQ(1u, ordinals[0]) << "only adapters with parameters contribute";
    EXPECT_EQ(w[0], chains[0].window);
    ASSERT_EQ(2u, group.additionalSwapChainParam(ordinals, chains));
    EXPECT_TRUE(chains[0].window == w[1] && chains[1].window == w[2] && ordinals[1] == 1);

    zeb::Array<HWND> windows;
    EXPECT_EQ(3u, group.listDeviceWindowsHandles(windows));
    EXPECT_EQ(6u, group.listDeviceWindowsHandles(windows)) << "the output is appended to";
}

TEST_F(AdapterRecords, FailedQueriesAreLoggedAndLeaveTheRecordEmpty) {
    setHeads({0, 0});
    d3d->adapter(1).capsResult = D3DERR_INVALIDCALL;
    AdapterInfo info;
    info.populateInfo(1, D3DDEVTYPE_SW, d3d);
    EXPECT_TRUE(log.contains(kCommonLog, 3, "69 GetDeviceCaps failed. Invalid device type SW DEVICE for ordinal 1")) << log.dump();
    // The identifier was read; the caps block stays zero.
    EXPECT_EQ(0xFFFFFFFFu, info.ordinal("\\\\.\\HEAD0"));
    EXPECT_EQ(0u, info.ordinal("\\\\.\\HEAD1"));
    // A failed identifier wipes the one read before.
    d3d->adapter(1).identifierResult = D3DERR_INVALIDCALL;
    info.populateInfo(1, D3DDEVTYPE_HAL, d3d);
    EXPECT_TRUE(log.contains(kCommonLog, 3, "74 GetAdapterIdentifier failed for ordinal 1")) << log.dump();
    EXPECT_EQ('\0', info.identifier().DeviceName[0]);
}

}  // namespace
}  // namespace vexiltest
