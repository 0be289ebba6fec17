#include "../device/DeviceFixtures.h"
#include <VexilDX9/Adapter.h>
#include <VexilDX9/LightingEffect.h>
#include <zeb/Exception.h>

#include <memory>

namespace {

// A LightingEffect on the device of a multi-head adapter over the one head Xvfb offers. At teardown
// the device must be released to zero, so the effect must have let go of it.
class LightingEffectTest : public vexiltest::AdapterTest<vexiltest::RealDirect3DTest> {
protected:
    // Holders of Direct3D objects may throw from their destructors; the fixture's base may not.
    ~LightingEffectTest() noexcept override {}
    void SetUp() override {
        AdapterTest::SetUp();
        ASSERT_TRUE(create({0}, true));
    }
    void TearDown() override {
        m_lighting.reset();
        AdapterTest::TearDown();
    }
    // initialize() with the working directory moved to folder (beside the test programs).
    bool initializeIn(const char* folder) {
        struct Moved {
            char saved[MAX_PATH];
            explicit Moved(const char* to) { GetCurrentDirectoryA(MAX_PATH, saved), SetCurrentDirectoryA(to); }
            ~Moved() { SetCurrentDirectoryA(saved); }
        } moved(folder);
        return m_lighting->initialize(adapter);
    }

    std::unique_ptr<LightingEffect> m_lighting = std::make_unique<LightingEffect>();
};

TEST_F(LightingEffectTest, SecondInitializeReleasesTheFirstEffectAndRebindsEveryBlock) {
    ASSERT_TRUE(m_lighting->initialize(adapter));
    ID3DXEffect* first = m_lighting->effect().effect().get();
    first->AddRef();
    ASSERT_TRUE(m_lighting->initialize(adapter));
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
    EXPECT_TRUE(log.contains("VexilDX9", 3, "75 Failed to load effect file lightingEffect.fxo")) << log.dump();
    EXPECT_FALSE(m_lighting->blinnPhongShading().isInitialized());
    EXPECT_THROW(m_lighting->spotLightParameter(), zeb::AssertionFailure) << "no blocks yet";
    EXPECT_THROW(m_lighting->blinnPhongShading().render(nullptr, 0), zeb::IndexOutOfBounds) << "never initialised";

    EXPECT_TRUE(initializeIn("shading/lower-case")) << "the technique is found whatever its letter case";
    vexiltest::expectAssertion([&] { initializeIn("shading/missing-parameter"); }, 141,
                               "getParameterHandle(*(effect.get()), name, m_handle)", "VexilDX9/EffectValue");
    EXPECT_TRUE(log.contains("VexilDX9", 3, "37 Cannot load squareDistanceFactor from effect file lightingEffect.fxo"));
}

}  // namespace
