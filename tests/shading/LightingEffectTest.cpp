#include <LogCapture.h>
#include <TestDevice.h>
#include <TestPaths.h>
#include <VexilDX9/Adapter.h>
#include <VexilDX9/LightingEffect.h>
#include <zeb/Exception.h>

#include <memory>
#include <string>

namespace {

ULONG references(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

// A LightingEffect on the device of a multi-head adapter over the one head Xvfb offers.
class LightingEffectTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_adapter.initialize());
        zeb::Array<zeb::String> names;
        names.append(zeb::String(m_adapter.displayHead(0).identifier.DeviceName));
        zeb::Array<HWND> windows;
        windows.append(m_window.handle());
        ASSERT_TRUE(m_adapter.createSwapChain(names, m_window.handle(), windows, true, D3DDEVTYPE_HAL));
        m_deviceReferences = references(m_adapter.device().get());
    }
    void TearDown() override {
        m_lighting.reset();
        if (m_adapter.device()) {
            EXPECT_EQ(m_deviceReferences, references(m_adapter.device().get()));
        }
    }
    // Runs body with the working directory moved to folder (under the test programs' folder).
    template <class Body> void inFolder(const char* folder, Body body) {
        char saved[MAX_PATH];
        GetCurrentDirectoryA(MAX_PATH, saved);
        CreateDirectoryA(folder, nullptr);
        ASSERT_TRUE(SetCurrentDirectoryA(folder));
        body();
        SetCurrentDirectoryA(saved);
    }

    vexiltest::LogCapture m_log;
    vexiltest::TestWindow m_window;
    AdapterD3D9 m_adapter;
    std::unique_ptr<LightingEffect> m_lighting = std::make_unique<LightingEffect>();
    ULONG m_deviceReferences = 0;
};

TEST_F(LightingEffectTest, SecondInitializeReplacesTheEffectAndEveryBlock) {
    ASSERT_TRUE(m_lighting->initialize(m_adapter));
    EXPECT_TRUE(m_lighting->blinnPhongShading().isInitialized());
    ID3DXEffect* first = m_lighting->effect().effect().get();
    first->AddRef();
    D3DXHANDLE firstHandle = m_lighting->pointLightParameter().pointLightColor.m_handle;

    ASSERT_TRUE(m_lighting->initialize(m_adapter));
    EXPECT_EQ(0u, first->Release()) << "the first effect was released";
    ID3DXEffect* second = m_lighting->effect().effect().get();
    EXPECT_NE(first, second);
    const LightingEffect::PointLightParameter& point = m_lighting->pointLightParameter();
    EXPECT_NE(firstHandle, point.pointLightColor.m_handle);
    EXPECT_EQ(second->GetParameterByName(nullptr, "pointLightColor"), point.pointLightColor.m_handle);
    EXPECT_TRUE(point.pointLightColor.set(D3DXVECTOR4(1, 2, 3, 4)));
}

TEST_F(LightingEffectTest, AMissingEffectFileFailsAndKeepsTheBlocksUnbuilt) {
    inFolder("shading", [&] { EXPECT_FALSE(m_lighting->initialize(m_adapter)); });
    EXPECT_TRUE(m_log.contains("VexilDX9", 3, "75 Failed to load effect file lightingEffect.fxo")) << m_log.dump();
    EXPECT_EQ(1u, m_log.count("VexilDX9", "D3DXCreateEffectFromFile"));
    EXPECT_FALSE(m_lighting->blinnPhongShading().isInitialized());
    EXPECT_THROW(m_lighting->blinnPhongShading().render(nullptr, 0), zeb::IndexOutOfBounds);
}

TEST_F(LightingEffectTest, TheTechniqueIsFoundWhateverItsLetterCase) {
    inFolder("shading/lower-case", [&] { EXPECT_TRUE(m_lighting->initialize(m_adapter)); });
    EXPECT_EQ(0u, m_lighting->blinnPhongShading().techniqueIndex());
    EXPECT_TRUE(m_lighting->blinnPhongShading().isInitialized());
}

TEST_F(LightingEffectTest, AParameterMissingFromTheEffectFailsTheBindingAssertion) {
    inFolder("shading/missing-parameter", [&] {
        try {
            m_lighting->initialize(m_adapter);
            ADD_FAILURE() << "no assertion";
        } catch (const zeb::AssertionFailure& failure) {
            EXPECT_STREQ("VexilDX9/EffectValue", failure.file());
            EXPECT_EQ(141u, failure.line());
            EXPECT_STREQ("getParameterHandle(*(effect.get()), name, m_handle)", failure.expression());
        }
    });
    EXPECT_TRUE(m_log.contains("VexilDX9", 3, "37 Cannot load squareDistanceFactor from effect file lightingEffect.fxo"));
}

TEST_F(LightingEffectTest, EndBeginsTheTechniqueAgain) {
    ASSERT_TRUE(m_lighting->initialize(m_adapter));
    const BlinnPhongShading& shading = m_lighting->blinnPhongShading();
    ASSERT_TRUE(shading.activate());
    ASSERT_TRUE(shading.begin());
    shading.end();
    EXPECT_TRUE(m_log.contains("VexilDX9", 3, "72 Cannot begin technique BlinnPhongShading")) << m_log.dump();
    m_lighting->effect().technique(shading.techniqueIndex()).end();
}

TEST(LightingEffectUnused, RenderingBeforeInitializeThrows) {
    LightingEffect lighting;
    EXPECT_FALSE(lighting.blinnPhongShading().isInitialized());
    EXPECT_THROW(lighting.blinnPhongShading().render(nullptr, 0), zeb::IndexOutOfBounds);
    EXPECT_THROW(lighting.blinnPhongShading().begin(), zeb::IndexOutOfBounds);
}

}  // namespace
