// Parameter filing into adapter records and device groups.
#include "DeviceFixtures.h"

using namespace VexilDX9;

namespace vexiltest {
namespace {

const char kCommonLog[] = "VexilDX9.Common";

class AdapterRecords : public ScriptedDirect3DTest {
protected:
    void SetUp() override {
        ScriptedDirect3DTest::SetUp();
        setHeads({0, 0});
    }
    // A group with both heads of the scripted card.
    DeviceGroup card() {
        DeviceGroup group;
        group.headOrdinal() = 0;
        group.group() = AdapterInfoList(2);
        for (unsigned i = 0; i < 2; ++i) group.group().adapterInfoList()[i].populateInfo(i, D3DDEVTYPE_HAL, d3d);
        return group;
    }
    TestWindow w0, w1, w2;
};

TEST_F(AdapterRecords, AnUnpopulatedRecordReadsAsAllZero) {
    AdapterInfo empty;
    EXPECT_EQ(0u, empty.caps().AdapterOrdinal);
    EXPECT_EQ('\0', empty.identifier().DeviceName[0]);
    EXPECT_EQ(0u, empty.ordinal(""));
    EXPECT_EQ(0xFFFFFFFFu, empty.ordinal("\\\\.\\HEAD0"));
}

TEST_F(AdapterRecords, ParametersAccumulateOnTheAdapterTheyName) {
    DeviceGroup group = card();
    EXPECT_EQ(1u, group.ordinal("\\\\.\\head1"));
    EXPECT_TRUE(group.group().contains(1));
    EXPECT_FALSE(group.group().contains(2));

    EXPECT_TRUE(group.addParameter(parameter("\\\\.\\head1", {windowedChain(w0.handle()), windowedChain(w1.handle())})));
    EXPECT_TRUE(group.addParameter(parameter("\\\\.\\HEAD1", {windowedChain(w2.handle())})));
    EXPECT_FALSE(group.addParameter(parameter("\\\\.\\HEAD9", {windowedChain(w2.handle())})));

    AdapterInfo found;
    ASSERT_TRUE(group.group().find(1, found));
    EXPECT_EQ(zeb::String("\\\\.\\head1"), found.renderParameter().adapterId) << "the first filed id stays";
    ASSERT_EQ(3u, found.renderParameter().swapChains.size());
    EXPECT_EQ(w2.handle(), found.renderParameter().swapChains[2].window);
    AdapterInfo untouched = found;
    EXPECT_FALSE(group.group().find(5, untouched));
    EXPECT_EQ(3u, untouched.renderParameter().swapChains.size());
    EXPECT_EQ(&found.caps(), &group.group().adapterInfoList()[1].caps()) << "copies share the caps block";

    zeb::Array<unsigned> ordinals;
    zeb::Array<SwapChainParameterDX9> chains;
    ASSERT_EQ(1u, group.mainSwapChainParam(ordinals, chains));
    EXPECT_EQ(1u, ordinals[0]) << "only adapters with parameters contribute";
    EXPECT_EQ(w0.handle(), chains[0].window);
    ASSERT_EQ(2u, group.additionalSwapChainParam(ordinals, chains));
    EXPECT_EQ(w1.handle(), chains[0].window);
    EXPECT_EQ(w2.handle(), chains[1].window);
    EXPECT_EQ(1u, ordinals[1]);

    zeb::Array<HWND> windows;
    EXPECT_EQ(3u, group.listDeviceWindowsHandles(windows));
    EXPECT_EQ(6u, group.listDeviceWindowsHandles(windows)) << "the output is appended to";
}

TEST_F(AdapterRecords, GroupsCompareByHeadOrdinalOnly) {
    DeviceGroup group = card();
    DeviceGroup other;
    other.headOrdinal() = 0;
    EXPECT_TRUE(group == other);
    other.headOrdinal() = 1;
    EXPECT_FALSE(group == other);
    EXPECT_FALSE(other.addParameter(parameter("\\\\.\\HEAD0", {windowedChain(w0.handle())})));
}

TEST_F(AdapterRecords, FailedCapsAreLoggedWithTheTypeName) {
    d3d->adapter(1).capsResult = D3DERR_INVALIDCALL;
    AdapterInfo info;
    const std::pair<int, const char*> types[] = {{3, "SW DEVICE"}, {4, "NULL DEVICE"}, {9, "INVALID CLASSIFICATION"}};
    for (const auto& type : types) {
        info.populateInfo(1, static_cast<D3DDEVTYPE>(type.first), d3d);
        EXPECT_TRUE(log.contains(kCommonLog, 3,
                                 std::string("69 GetDeviceCaps failed. Invalid device type ") + type.second + " for ordinal 1"))
            << log.dump();
    }
    // The identifier was read; the caps block stays zero.
    EXPECT_EQ(0xFFFFFFFFu, info.ordinal("\\\\.\\HEAD0"));
    EXPECT_EQ(0u, info.ordinal("\\\\.\\HEAD1"));
}

TEST(AdapterRecordOnWine, FailedQueriesAreLoggedWithTheType) {
    LogCapture log;
    IDirect3D9* d3d = Direct3DCreate9(D3D_SDK_VERSION);
    ASSERT_NE(nullptr, d3d);
    AdapterInfo info;
    info.populateInfo(0, D3DDEVTYPE_HAL, d3d);
    EXPECT_EQ(0u, info.ordinal(lowerCase(realAdapterName(d3d)).c_str()));
    EXPECT_TRUE(log.entries().empty()) << log.dump();

    info.populateInfo(7, D3DDEVTYPE_HAL, d3d);
    EXPECT_TRUE(log.contains(kCommonLog, 3, "74 GetAdapterIdentifier failed for ordinal 7")) << log.dump();
    EXPECT_EQ('\0', info.identifier().DeviceName[0]) << "the failed block reads as zero";
    EXPECT_EQ(0u, d3d->Release());
}

}  // namespace
}  // namespace vexiltest
