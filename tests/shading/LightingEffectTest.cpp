#include <LogCapture.h>
#include <TestDevice.h>
#include <VexilDX9/Adapter.h>
#include <VexilDX9/LightingEffect.h>
#include <zeb/Exception.h>

#include <memory>

namespace {

ULONG references(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

// A LightingEffect on the device of a multi-head adapter over the one head Xvfb offers.
class LightingEffectTest : public ::testing::Test {
protected:
    // Holders of Direct3D objects may throw from their destructors; the fixture's base may not.
    ~LightingEffectTest() noexcept override {}
    void SetUp() override {
        zeb::Array<zeb::String> names;
        zeb::Array<HWND> windows;
        windows.append(m_window.handle());
        ASSERT_TRUE(m_adapter.initialize());
        names.append(zeb::String(m_adapter.displayHead(0).identifier.DeviceName));
        ASSERT_TRUE(m_adapter.createSwapChain(names, m_window.handle(), windows, true, D3DDEVTYPE_HAL));
        m_deviceReferences = references(m_adapter.device().get());
    }
    void TearDown() override {
        m_lighting.reset();
        if (m_adapter.device()) {
            EXPECT_EQ(m_deviceReferences, references(m_adapter.device().get())) << "the effect was not released";
        }
    }
    // initialize() with the working directory moved to folder (beside the test programs).
    bool initializeIn(const char* folder) {
        struct Moved {
            char saved[MAX_PATH];
            explicit Moved(const char* to) { GetCurrentDirectoryA(MAX_PATH, saved), SetCurrentDirectoryA(to); }
            ~Moved() { SetCurrentDirectoryA(saved); }
        } moved(folder);
        return m_lighting->initialize(m_adapter);
    }

    vexiltest::LogCapture m_log;
    vexiltest::TestWindow m_window;
    AdapterD3D9 m_adapter;
    std::unique_ptr<LightingEffect> m_lighting = std::make_unique<LightingEffect>();
    ULONG m_deviceReferences = 0;
};

TEST_F(LightingEffectTest, SecondInitializeReleasesTheFirstEffectAndRebindsEveryBlock) {
    ASSERT_TRUE(m_lighting->initialize(m_adapter));
    ID3DXEffect* first = m_lighting->effect().effect().get();
    first->AddRef();
    ASSERT_TRUE(m_lighting->initialize(m_adapter));
    EXPECT_EQ(0u, first->Release()) << "the first effect was released";
    ID3DXEffect* second = m_lighting->effect().effect().get();
    const LightingEffect::PointLightParameter& point = m_lighting->pointLightParameter();
    EXPECT_EQ(second->GetParameterByName(nullptr, "pointLightColor"), point.pointLightColor.m_handle);

    // end() begins the technique again instead of ending it: a pass can still be opened after it.
    const BlinnPhongShading& shading = m_lighting->blinnPhongShading();
    ASSERT_TRUE(shading.isInitialized() && shading.activate() && shading.begin());
    shading.end();
    EXPECT_EQ(D3D_OK, second->BeginPass(0));
    second->EndPass();
    m_lighting->effect().technique(shading.techniqueIndex()).end();
}

TEST_F(LightingEffectTest, EffectFilesAreFoundByRelativeNameAndCheckedWhenBound) {
    EXPECT_FALSE(initializeIn("shading"));
    EXPECT_TRUE(m_log.contains("VexilDX9", 3, "75 Failed to load effect file lightingEffect.fxo")) << m_log.dump();
    EXPECT_FALSE(m_lighting->blinnPhongShading().isInitialized());
    EXPECT_THROW(m_lighting->blinnPhongShading().render(nullptr, 0), zeb::IndexOutOfBounds) << "never initialised";

    EXPECT_TRUE(initializeIn("shading/lower-case")) << "the technique is found whatever its letter case";
    try {
        initializeIn("shading/missing-parameter");
        ADD_FAILURE() << "a missing parameter passed";
    } catch (const zeb::AssertionFailure& failure) {
        EXPECT_STREQ("VexilDX9/EffectValue", failure.file());
        EXPECT_EQ(141u, failure.line());
        EXPECT_STREQ("getParameterHandle(*(effect.get()), name, m_handle)", failure.expression());
    }
    EXPECT_TRUE(m_log.contains("VexilDX9", 3, "37 Cannot load squareDistanceFactor from effect file lightingEffect.fxo"));
}

}  // namespace
