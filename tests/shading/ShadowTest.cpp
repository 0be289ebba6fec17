#include "ShadingScene.h"

#include "../device/ScriptedDirect3D.h"

#include <LogCapture.h>
#include <TestDevice.h>
#include <VexilDX9/ShadowMap.h>

#include <cmath>
#include <memory>

using namespace shadingtest;

namespace {

const D3DXVECTOR3 kBoxLow(-0.5f, 0, -0.5f), kBoxHigh(0.5f, 1, 0.5f);
const D3DXVECTOR4 kLightDirection(0.5f, -1, 0.3f, 0);
const float kZNear = 1, kZFar = 20;

struct Lamp {
    D3DXMATRIX view, projection;
    Lamp() {
        D3DXVECTOR3 direction(kLightDirection.x, kLightDirection.y, kLightDirection.z), at(0, 0, 0), up(0, 1, 0);
        D3DXVec3Normalize(&direction, &direction);
        D3DXVECTOR3 eye = -direction * 10;
        D3DXMatrixLookAtLH(&view, &eye, &at, &up);
        D3DXMatrixOrthoLH(&projection, 8, 8, kZNear, kZFar);
    }
};

// A box over the ground, drawn into the lamp's map and then as seen by the camera.
class ShadowMapTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_device = std::make_unique<vexiltest::TestDevice>(kSize, kSize);
        ASSERT_TRUE(m_device->ok());
        device()->AddRef();
        m_holder.reset(device());
        ASSERT_EQ(D3D_OK, D3DXCreateBox(device(), 1, 1, 1, m_box.receive(), nullptr));
        m_ground.reset(makeGround(device()));
    }
    void TearDown() override {
        m_map.reset();
        m_box.reset();
        m_ground.reset();
        m_holder.reset();
        if (m_device) {
            EXPECT_EQ(0u, m_device->shutdown());
        }
    }
    IDirect3DDevice9* device() const { return m_device->device(); }

    void drawWith(const Technique& technique, ID3DXMesh* mesh, const D3DXVECTOR3& at) {
        D3DXMATRIX world;
        D3DXMatrixTranslation(&world, at.x, at.y, at.z);
        m_map->transformation().m_matWorld.set(world);
        m_map->transformation().m_matWorldInverseTranspose.set(*D3DXMatrixIdentity(&world));
        EXPECT_TRUE(technique.render(mesh, 0));
    }
    void renderScene(const Material& m) {
        ShadowMap& map = *m_map;
        map.shadowMapResource().lampView.set(m_lamp.view), map.shadowMapResource().lampProjection.set(m_lamp.projection);
        map.shadowMapResource().zNear.set(kZNear), map.shadowMapResource().zFar.set(kZFar);
        map.shadowMapResource().zBias.set(0.01f);
        map.light().m_lightDirection.set(D3DXVECTOR3(kLightDirection.x, kLightDirection.y, kLightDirection.z));
        map.material().m_ambientCoeff.set(m.ambientCoeff), map.material().m_ambientColor.set(m.ambientColor);
        map.material().m_diffuseCoeff.set(m.diffuseCoeff), map.material().m_diffuseColor.set(m.diffuseColor);
        map.material().m_specularCoeff.set(m.specularCoeff), map.material().m_specularPower.set(m.specularPower);
        map.material().m_specularColor.set(m.specularColor), map.material().m_selfShadowPower.set(m.selfShadowPower);
        map.transformation().m_matViewProjection.set(m_camera.viewProjection);
        map.transformation().m_matViewInverse.set(m_camera.viewInverse);

        COMPtr<IDirect3DSurface9>::pointer backBuffer, depth;
        device()->GetRenderTarget(0, backBuffer.receive());
        device()->GetDepthStencilSurface(depth.receive());
        device()->SetRenderTarget(0, map.shadowDepthMapSurface().get());
        device()->SetDepthStencilSurface(map.zStencil().get());
        device()->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFFFFFFFF, 1, 0);
        device()->BeginScene();
        drawWith(map.effect().technique(0), m_box.get(), D3DXVECTOR3(0, 0.5f, 0));
        drawWith(map.effect().technique(0), m_ground.get(), D3DXVECTOR3(0, 0, 0));
        device()->EndScene();
        device()->SetRenderTarget(0, backBuffer.get());
        device()->SetDepthStencilSurface(depth.get());

        device()->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0, 1, 0);
        device()->BeginScene();
        drawWith(map.effect().technique(1), m_box.get(), D3DXVECTOR3(0, 0.5f, 0));
        drawWith(map.effect().technique(1), m_ground.get(), D3DXVECTOR3(0, 0, 0));
        device()->EndScene();
    }

    // Ground pixels match the lit or the ambient-only reference as the box's projection through
    // the lamp decides; points within the filter's reach of the outline are not judged.
    void expectShadowOfTheBox() {
        Material material;
        renderScene(material);
        Lights lights;
        lights.direction = kLightDirection;
        lights.directionalColor = D3DXVECTOR4(1, 1, 1, 1);
        int shadowed = 0;
        auto shadow = [&](const D3DXVECTOR3& p) { return inBoxShadow(m_lamp.view, m_lamp.projection, kBoxLow, kBoxHigh, p); };
        int compared = compareWithReference(
            m_device->readRenderTarget(),
            [&](unsigned x, unsigned y) {
                Ray ray = pixelRay(m_camera.viewProjection, x, y, kSize, kSize);
                Surface s;
                float t = hitPlane(ray, kGround);
                s.p = ray.origin + ray.direction * t;
                s.n = D3DXVECTOR3(0, 1, 0);
                s.hit = t > 0 && hitBox(ray, kBoxLow, kBoxHigh) < 0 && std::fabs(s.p.x) < kGroundHalf &&
                        std::fabs(s.p.z) < kGroundHalf;
                return s;
            },
            [&](const Surface& s, D3DCOLOR& expected, int& tolerance) {
                const float m = 0.12f;
                bool inShadow = shadow(s.p);
                for (const D3DXVECTOR3& step : {D3DXVECTOR3(m, 0, 0), D3DXVECTOR3(-m, 0, 0), D3DXVECTOR3(0, 0, m),
                                                D3DXVECTOR3(0, 0, -m)})
                    if (shadow(s.p + step) != inShadow) return false;
                shadowed += inShadow;
                expected = toColor(blinnPhong(material, lights, s.p, s.n, m_camera.eye, D3DXVECTOR4(1, 1, 1, 1), inShadow));
                tolerance = 6;
                return true;
            });
        EXPECT_GT(shadowed, 20);
        EXPECT_GT(compared - shadowed, 300);
    }

    std::unique_ptr<vexiltest::TestDevice> m_device;
    COMPtr<IDirect3DDevice9>::pointer m_holder;
    COMPtr<ID3DXMesh>::pointer m_box, m_ground;
    std::unique_ptr<ShadowMap> m_map = std::make_unique<ShadowMap>();
    Camera m_camera;
    Lamp m_lamp;
};

TEST_F(ShadowMapTest, TheBoxDarkensTheGroundWhereTheLampProjectsIt) {
    ASSERT_TRUE(m_map->initialize(m_holder));
    EXPECT_FALSE(m_map->isInitialized()) << "no map yet";
    EXPECT_EQ(zeb::String("shadowMap.fxo"), m_map->fileName());
    ASSERT_TRUE(m_map->allocateShadowMapResources(m_holder, 256));
    EXPECT_TRUE(m_map->isInitialized());
    D3DSURFACE_DESC desc;
    m_map->shadowDepthMapSurface()->GetDesc(&desc);
    EXPECT_EQ(D3DFMT_R32F, desc.Format);
    EXPECT_EQ(256u, desc.Width);
    expectShadowOfTheBox();
}

TEST_F(ShadowMapTest, ReallocationAfterAResetBringsTheShadowBack) {
    ASSERT_TRUE(m_map->initialize(m_holder));
    ASSERT_TRUE(m_map->allocateShadowMapResources(m_holder, 200));
    IDirect3DTexture9* first = m_map->shadowDepthMap().get();
    first->AddRef();
    ASSERT_TRUE(m_map->allocateShadowMapResources(m_holder, 256));
    EXPECT_EQ(0u, first->Release()) << "the first map was released when replaced";

    m_map->effect().effect()->OnLostDevice();
    m_map->releaseShadowMapResources();
    COMPtr<IDirect3DSwapChain9>::pointer chain;
    device()->GetSwapChain(0, chain.receive());
    D3DPRESENT_PARAMETERS parameters;
    chain->GetPresentParameters(&parameters);
    chain.reset();
    ASSERT_EQ(D3D_OK, device()->Reset(&parameters));
    m_map->effect().effect()->OnResetDevice();
    ASSERT_TRUE(m_map->allocateShadowMapResources(m_holder, m_map->shadowMapDimension()));
    expectShadowOfTheBox();
}

TEST(ShadowMapScriptedTest, ADeviceWithoutFloatTargetsKeepsTheDepthSurfaceAndTheDimension) {
    vexiltest::LogCapture log;
    auto ledger = std::make_shared<vexiltest::ComLedger>();
    vexiltest::TestWindow window;
    auto* d3d = new vexiltest::ScriptedDirect3D9(Direct3DCreate9(D3D_SDK_VERSION), ledger);
    d3d->refusedFormat = D3DFMT_R32F;
    d3d->deviceScript.createTextureResult = D3DERR_OUTOFVIDEOMEMORY;
    D3DPRESENT_PARAMETERS parameters = {};
    parameters.Windowed = TRUE;
    parameters.SwapEffect = D3DSWAPEFFECT_DISCARD;
    parameters.BackBufferFormat = D3DFMT_X8R8G8B8;
    parameters.hDeviceWindow = window.handle();
    COMPtr<IDirect3DDevice9>::pointer device;
    ASSERT_EQ(D3D_OK, d3d->CreateDevice(0, D3DDEVTYPE_HAL, window.handle(), D3DCREATE_HARDWARE_VERTEXPROCESSING,
                                        &parameters, device.receive()));
    {
        ShadowMap map(device);
        EXPECT_FALSE(map.allocateShadowMapResources(device, 1024));
        EXPECT_TRUE(map.zStencil());
        EXPECT_FALSE(map.shadowDepthMap());
        EXPECT_EQ(1024u, map.shadowMapDimension());
        EXPECT_FALSE(map.isInitialized());
    }
    device.reset();
    d3d->Release();
    EXPECT_TRUE(ledger->allReleasedToZero());

    std::vector<std::string> expected = {"14 IDirect3D9::CheckDeviceFormat D3DERR_NOTAVAILABLE",
                                         "14 IDirect3DDevice9::CreateTexture D3DERR_OUTOFVIDEOMEMORY",
                                         "80 D3DUSAGE_RENDERTARGET m_shadowMapDimension 1024 m_shadowDepthMapFormat 114"};
    auto next = expected.begin();
    for (const vexiltest::LogEntry& entry : log.entries())
        if (next != expected.end() && entry.logger == "VexilDX9" && entry.text == *next) ++next;
    EXPECT_EQ(expected.size(), static_cast<size_t>(next - expected.begin())) << "in this order:\n" << log.dump();
}

}  // namespace
