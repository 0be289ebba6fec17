#include "ShadingSupport.h"

#include "../device/DeviceFixtures.h"

#include <VexilDX9/ShadowMap.h>

using namespace shadingtest;

namespace {

const float kZNear = 1, kZFar = 20;

// The box over the ground, drawn into the lamp's map and then as the camera sees it.
class ShadowMapTest : public SceneTest {
protected:
    void SetUp() override {
        SceneTest::SetUp();
        m_lights.direction = D3DXVECTOR4(0.5f, -1, 0.3f, 0);
        m_lights.directionalColor = D3DXVECTOR4(1, 1, 1, 1);
        D3DXVECTOR3 eye = D3DXVECTOR3(-m_lights.direction.x, -m_lights.direction.y, -m_lights.direction.z) * 8, at(0, 0, 0),
                    up(0, 1, 0);
        D3DXMatrixLookAtLH(&m_lampView, &eye, &at, &up);
        D3DXMatrixOrthoLH(&m_lampProjection, 8, 8, kZNear, kZFar);
    }
    void TearDown() override {
        m_map.reset();
        SceneTest::TearDown();
    }
    // The box only casts: the camera sees the ground alone.
    void drawScene(const Technique& technique, bool withBox) {
        D3DXMATRIX identity;
        m_map->transformation().m_matWorldInverseTranspose.set(*D3DXMatrixIdentity(&identity));
        device()->BeginScene();
        m_map->transformation().m_matWorld.set(translation((kBoxLow + kBoxHigh) / 2));
        EXPECT_TRUE(!withBox || technique.render(m_box.get(), 0));
        m_map->transformation().m_matWorld.set(identity);
        EXPECT_TRUE(technique.render(m_ground.get(), 0));
        device()->EndScene();
    }
    void render() {
        const ShadowMapSingleLamp& lamp = m_map->shadowMapResource();
        const GeneralMaterial& material = m_map->material();
        lamp.lampView.set(m_lampView), lamp.lampProjection.set(m_lampProjection), lamp.zBias.set(0.01f);
        lamp.zNear.set(kZNear), lamp.zFar.set(kZFar);
        m_map->light().m_lightDirection.set(D3DXVECTOR3(m_lights.direction.x, m_lights.direction.y, m_lights.direction.z));
        material.m_ambientCoeff.set(m_material.ambientCoeff), material.m_ambientColor.set(m_material.ambientColor);
        material.m_diffuseCoeff.set(m_material.diffuseCoeff), material.m_diffuseColor.set(m_material.diffuseColor);
        material.m_specularCoeff.set(m_material.specularCoeff), material.m_specularPower.set(m_material.specularPower);
        material.m_specularColor.set(m_material.specularColor), material.m_selfShadowPower.set(m_material.selfShadowPower);
        m_map->transformation().m_matViewProjection.set(m_viewProjection);
        m_map->transformation().m_matViewInverse.set(m_viewInverse);

        COMPtr<IDirect3DSurface9>::pointer backBuffer, depth;
        device()->GetRenderTarget(0, backBuffer.receive());
        device()->GetDepthStencilSurface(depth.receive());
        device()->SetRenderTarget(0, m_map->shadowDepthMapSurface().get());
        device()->SetDepthStencilSurface(m_map->zStencil().get());
        device()->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFFFFFFFF, 1, 0);
        drawScene(m_map->effect().technique(0), true);
        device()->SetRenderTarget(0, backBuffer.get());
        device()->SetDepthStencilSurface(depth.get());
        device()->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0, 1, 0);
        drawScene(m_map->effect().technique(1), false);
    }
    // Ground pixels are lit or ambient only as the box's projection through the lamp decides;
    // points within the filter's reach of the shadow's outline are not judged.
    void expectShadowOfTheBox() {
        render();
        int shadowed = 0;
        int compared = compareWithReference(false, [&](const Surface& s, D3DCOLOR& expected, int& tolerance) {
            bool inShadow = inBoxShadow(m_lampView, m_lampProjection, s.p);
            const float m = 0.12f;
            for (const D3DXVECTOR3& step : {D3DXVECTOR3(m, 0, 0), D3DXVECTOR3(-m, 0, 0), D3DXVECTOR3(0, 0, m), D3DXVECTOR3(0, 0, -m)})
                if (inBoxShadow(m_lampView, m_lampProjection, s.p + step) != inShadow) return false;
            shadowed += inShadow;
            expected = blinnPhong(m_material, m_lights, s.p, s.n, m_eye, D3DXVECTOR4(1, 1, 1, 1), inShadow);
            tolerance = 6;
            return true;
        });
        EXPECT_GT(shadowed, 20);
        EXPECT_GT(compared - shadowed, 300);
    }

    std::unique_ptr<ShadowMap> m_map = std::make_unique<ShadowMap>();
    D3DXMATRIX m_lampView, m_lampProjection;
    Material m_material;
    Lights m_lights;
};

// Made, replaced, and dropped and made again around device resets, the map shadows the ground, also
// through a copy that outlives the original and under a perspective lamp.
TEST_F(ShadowMapTest, TheBoxDarkensTheGroundWhereTheLampProjectsItAlsoAfterResets) {
    EXPECT_THROW(m_map->light(), zeb::AssertionFailure) << "no blocks before initialize";
    EXPECT_FALSE(m_map->allocateShadowMapResources(COMPtr<IDirect3DDevice9>::pointer(), 64));
    ASSERT_TRUE(m_map->initialize(deviceHolder()));
    EXPECT_FALSE(m_map->isInitialized()) << "no map yet";
    ASSERT_TRUE(m_map->allocateShadowMapResources(deviceHolder(), 200));
    EXPECT_TRUE(m_map->isInitialized());
    IDirect3DTexture9* first = m_map->shadowDepthMap().get();
    first->AddRef();
    ASSERT_TRUE(m_map->allocateShadowMapResources(deviceHolder(), 256));
    EXPECT_EQ(0u, first->Release()) << "the first map was released when replaced";
    D3DSURFACE_DESC desc;
    m_map->shadowDepthMapSurface()->GetDesc(&desc);
    EXPECT_TRUE(desc.Format == D3DFMT_R32F && desc.Width == 256 && desc.Height == 256);
    expectShadowOfTheBox();

    // Dropped for a device reset and made again, cycle after cycle: the first picture every time,
    // and no more device references than after the first cycle.
    const std::vector<uint32_t> picture = vexiltest::readRenderTarget(device()).pixels;
    ULONG references = 0;
    for (unsigned cycle = 1; cycle <= vexiltest::resetCycles(); ++cycle) {
        m_map->releaseShadowMapResources();  // it lets go of the map itself; under Wine OnLostDevice would as well
        IDirect3DBaseTexture9* held = nullptr;
        ASSERT_TRUE(SUCCEEDED(m_map->effect().effect()->GetTexture("colorBuffer", &held)) && !held) << "a reset would be refused";
        m_map->effect().effect()->OnLostDevice();
        ASSERT_EQ(D3D_OK, vexiltest::resetDevice(device()));
        m_map->effect().effect()->OnResetDevice();
        ASSERT_TRUE(m_map->allocateShadowMapResources(deviceHolder(), m_map->shadowMapDimension()));
        render();
        ASSERT_TRUE(vexiltest::readRenderTarget(device()).pixels == picture) << "cycle " << cycle;
        if (cycle == 1) references = vexiltest::referencesOf(device());
    }
    EXPECT_EQ(vexiltest::referencesOf(device()), references);
    m_map = std::make_unique<ShadowMap>(ShadowMap(*m_map));
    EXPECT_EQ(&m_map->effect(), m_map->light().m_lightDirection.m_effect.get()) << "the copy binds its own effect";
    D3DXMatrixPerspectiveFovLH(&m_lampProjection, D3DX_PI / 4, 1, kZNear, kZFar);
    expectShadowOfTheBox();
}

class ShadowMapScriptedTest : public vexiltest::ScriptedDirect3DTest {};

TEST_F(ShadowMapScriptedTest, ADeviceWithoutFloatTargetsKeepsTheDepthSurfaceAndTheDimension) {
    vexiltest::TestWindow window;
    d3d->refusedFormat = D3DFMT_R32F;
    D3DPRESENT_PARAMETERS parameters = {};
    parameters.Windowed = TRUE;
    parameters.SwapEffect = D3DSWAPEFFECT_DISCARD;
    parameters.hDeviceWindow = window.handle();
    COMPtr<IDirect3DDevice9>::pointer device;
    ASSERT_EQ(D3D_OK, d3d->CreateDevice(0, D3DDEVTYPE_HAL, window.handle(), D3DCREATE_HARDWARE_VERTEXPROCESSING,
                                        &parameters, device.receive()));
    {
        ShadowMap map(device);
        ASSERT_TRUE(map.allocateShadowMapResources(device, 512));
        vexiltest::ScriptedDevice9::of(device.get()).script.createTextureResult = D3DERR_OUTOFVIDEOMEMORY;
        EXPECT_FALSE(map.allocateShadowMapResources(device, 1024));
        D3DSURFACE_DESC depth;
        map.zStencil()->GetDesc(&depth);
        EXPECT_TRUE(depth.Width == 1024 && !map.shadowDepthMap() && !map.isInitialized()) << "nothing of 512 is left";
        EXPECT_EQ(1024u, map.shadowMapDimension());
    }
    const char* expected[] = {"14 IDirect3D9::CheckDeviceFormat D3DERR_NOTAVAILABLE",
                              "14 IDirect3DDevice9::CreateTexture D3DERR_OUTOFVIDEOMEMORY",
                              "80 D3DUSAGE_RENDERTARGET m_shadowMapDimension 1024 m_shadowDepthMapFormat 114"};
    size_t next = 0;
    for (const vexiltest::LogEntry& entry : log.entries())
        next += next < 3 && entry.logger == "VexilDX9" && entry.text == expected[next];
    EXPECT_EQ(3u, next) << "these lines in this order:\n" << log.dump();
}

}  // namespace
