// GPU queries on a real wined3d device.
#include "DeviceFixtures.h"

namespace vexiltest {
namespace {

class QueryOnWine : public DeviceTest {
protected:
    template <class T> HRESULT waitForData(const QueryCommon& query, T& data) {
        HRESULT hr;
        int tries = 1000;
        while ((hr = query.query()->GetData(&data, sizeof data, D3DGETDATA_FLUSH)) == S_FALSE && --tries > 0) Sleep(1);
        return hr;
    }
};

TEST_F(QueryOnWine, SupportedQueriesMarkTheCommandStream) {
    LogCapture log;
    QueryCommon event(deviceHolder(), D3DQUERYTYPE_EVENT);
    ASSERT_TRUE(event.query());
    EXPECT_EQ(D3DQUERYTYPE_EVENT, event.query()->GetType());
    testDevice().clear(0xFF000000);
    event.mark(D3DISSUE_END);
    BOOL done = FALSE;
    EXPECT_TRUE(waitForData(event, done) == S_OK && done);
    // Every issue's result goes through the Direct3D result logger.
    EXPECT_TRUE(log.contains("VexilDX9", 3, "14 IDirect3DQuery9::Issue S_OK")) << log.dump();

    // Occlusion counts the pixels drawn between the two marks.
    QueryCommon occlusion(deviceHolder(), D3DQUERYTYPE_OCCLUSION);
    occlusion.mark(D3DISSUE_BEGIN);
    testDevice().fillRect(0, 0, 16, 8, 0xFFFFFFFF);
    occlusion.mark(D3DISSUE_END);
    DWORD pixels = 0;
    EXPECT_TRUE(waitForData(occlusion, pixels) == S_OK && pixels == 128) << pixels;
}

TEST_F(QueryOnWine, UnsupportedTypeKeepsTheHeldQuery) {
    LogCapture log;
    QueryCommon query;
    ASSERT_EQ(D3D_OK, query.initialize(deviceHolder(), D3DQUERYTYPE_EVENT));
    IDirect3DQuery9* held = query.query().get();

    const HRESULT probe = device()->CreateQuery(D3DQUERYTYPE_VCACHE, nullptr);
    ASSERT_TRUE(FAILED(probe)) << "this Wine supports VCACHE queries";
    EXPECT_EQ(probe, query.initialize(device(), D3DQUERYTYPE_VCACHE));
    EXPECT_EQ(held, query.query().get());
    EXPECT_TRUE(log.contains("VexilDX9", 2, "24 Query is not supported"));
    EXPECT_EQ(1u, log.count("VexilDX9", "14 CreateQuery D3DERR_NOTAVAILABLE")) << log.dump();

    expectAssertion([&] { QueryCommon unsupported(deviceHolder(), D3DQUERYTYPE_VCACHE); }, 18,
                    "SUCCEEDED(initialize(device, query))", "VexilDX9/Query");
    expectAssertion([] { QueryCommon query(COMPtr<IDirect3DDevice9>::pointer(), D3DQUERYTYPE_EVENT); }, 17, "device.get()",
                    "VexilDX9/Query");
    expectAssertion([] { QueryCommon().mark(D3DISSUE_END); }, 44, "m_query.get()", "VexilDX9/Query");
}

}  // namespace
}  // namespace vexiltest
