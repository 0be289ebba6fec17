#include "ShadingScene.h"

#include <LogCapture.h>
#include <TestDevice.h>
#include <TestPaths.h>
#include <VexilDX9/Adapter.h>
#include <VexilDX9/LightingEffect.h>
#include <zeb/Exception.h>

#include <cmath>
#include <memory>

using namespace shadingtest;

namespace {

const D3DXVECTOR3 kSphereCentre(0.3f, 0, 0.2f);

struct LightCase {
    const char* name;
    bool directional, spot, point, textured;
};

Lights lightsFor(const LightCase& c) {
    Lights lights;
    if (c.directional) lights.directionalColor = D3DXVECTOR4(0.9f, 0.9f, 1, 1);
    if (c.spot) lights.spotColor = D3DXVECTOR4(1, 0.9f, 0.7f, 1);
    if (c.point) lights.pointColor = D3DXVECTOR4(0.8f, 1, 0.8f, 1);
    lights.direction = D3DXVECTOR4(0.3f, -1, 0.5f, 0);
    lights.spotPosition = D3DXVECTOR4(1, 3, -1, 1);
    lights.spotDirection = D3DXVECTOR4(-1, -3.5f, 1, 0);
    lights.innerAngle = 0.25f;
    lights.outerAngle = 0.45f;
    lights.pointPosition = D3DXVECTOR4(-1.5f, 0.5f, -1, 1);
    lights.squareDistanceFactor = 0.15f;
    return lights;
}

// 2 x 2 texels, sampled bilinearly with wrapping as the effect's sampler does.
const D3DCOLOR kTexels[4] = {D3DCOLOR_XRGB(255, 64, 64), D3DCOLOR_XRGB(64, 255, 64), D3DCOLOR_XRGB(64, 64, 255),
                             D3DCOLOR_XRGB(255, 255, 255)};
D3DXVECTOR4 texel(int i, int j) {
    D3DCOLOR c = kTexels[(j & 1) * 2 + (i & 1)];
    return D3DXVECTOR4(((c >> 16) & 0xFF) / 255.0f, ((c >> 8) & 0xFF) / 255.0f, (c & 0xFF) / 255.0f, 1);
}
D3DXVECTOR4 sampleTexture(float u, float v) {
    float x = u * 2 - 0.5f, y = v * 2 - 0.5f, x0 = std::floor(x), y0 = std::floor(y), fx = x - x0, fy = y - y0;
    int i = static_cast<int>(x0) + 2, j = static_cast<int>(y0) + 2;
    D3DXVECTOR4 top = texel(i, j) * (1 - fx) + texel(i + 1, j) * fx;
    D3DXVECTOR4 bottom = texel(i, j + 1) * (1 - fx) + texel(i + 1, j + 1) * fx;
    return top * (1 - fy) + bottom * fy;
}

// The lighting effect on a real device, its blocks bound as LightingEffect binds them.
class LitSceneTest : public ::testing::TestWithParam<LightCase> {
protected:
    void SetUp() override {
        m_device = std::make_unique<vexiltest::TestDevice>(kSize, kSize);
        ASSERT_TRUE(m_device->ok());
        device()->AddRef();
        m_holder.reset(device());
        ASSERT_TRUE(m_effect.load("lightingEffect.fxo", m_holder));
        BorrowedEffect effect(&m_effect);
        m_general = std::make_unique<LightingEffect::GeneralParameter>(effect);
        m_directional = std::make_unique<LightingEffect::DirectionalLightParameter>(effect);
        m_spot = std::make_unique<LightingEffect::SpotLightParameter>(effect);
        m_point = std::make_unique<LightingEffect::PointLightParameter>(effect);
        ASSERT_EQ(D3D_OK, D3DXCreateSphere(device(), 1, 48, 24, m_sphere.receive(), nullptr));
        m_ground.reset(makeGround(device()));
        ASSERT_TRUE(m_ground);
    }
    void TearDown() override {
        m_sphere.reset();
        m_ground.reset();
        m_texture.reset();
        m_effect = Effect();
        m_holder.reset();
        if (m_device) {
            EXPECT_EQ(0u, m_device->shutdown());
        }
    }
    IDirect3DDevice9* device() const { return m_device->device(); }

    void setValues(const Material& m, const Lights& l, bool textured) {
        const LightingEffect::GeneralParameter& g = *m_general;
        g.ambientCoeff.set(m.ambientCoeff), g.ambientColor.set(m.ambientColor), g.diffuseCoeff.set(m.diffuseCoeff);
        g.diffuseColor.set(m.diffuseColor), g.specularCoeff.set(m.specularCoeff), g.specularPower.set(m.specularPower);
        g.specularColor.set(m.specularColor), g.selfShadowPower.set(m.selfShadowPower);
        g.squareDistanceFactor.set(l.squareDistanceFactor), g.hasTexture.set(textured);
        g.matViewProjection.set(m_camera.viewProjection), g.matViewInv.set(m_camera.viewInverse);
        m_directional->lightDirection.set(l.direction), m_directional->lightColor.set(l.directionalColor);
        m_spot->spotLightPosition.set(l.spotPosition), m_spot->spotLightDirection.set(l.spotDirection);
        m_spot->spotLightColor.set(l.spotColor), m_spot->innerAngle.set(l.innerAngle);
        m_spot->outerAngle.set(l.outerAngle);
        m_point->pointLightPosition.set(l.pointPosition), m_point->pointLightColor.set(l.pointColor);
    }
    void draw(ID3DXMesh* mesh, const D3DXVECTOR3& at) {
        D3DXMATRIX world, inverse, inverseTranspose;
        D3DXMatrixTranslation(&world, at.x, at.y, at.z);
        D3DXMatrixInverse(&inverse, nullptr, &world);
        D3DXMatrixTranspose(&inverseTranspose, &inverse);
        m_general->matWorld.set(world), m_general->matWorldInverseTranspose.set(inverseTranspose);
        EXPECT_TRUE(m_effect.technique(m_effect.techniqueIndex("BlinnPhongShading")).render(mesh, 0));
    }
    void makeTexture() {
        ASSERT_EQ(D3D_OK, device()->CreateTexture(2, 2, 1, 0, D3DFMT_X8R8G8B8, D3DPOOL_MANAGED, m_texture.receive(),
                                                  nullptr));
        D3DLOCKED_RECT locked;
        m_texture->LockRect(0, &locked, nullptr, 0);
        for (int j = 0; j < 2; ++j)
            for (int i = 0; i < 2; ++i)
                reinterpret_cast<D3DCOLOR*>(static_cast<char*>(locked.pBits) + j * locked.Pitch)[i] = kTexels[j * 2 + i];
        m_texture->UnlockRect(0);
        const char* handle = nullptr;
        ASSERT_TRUE(getParameterHandle(m_effect, "textureMap", handle));
        IDirect3DBaseTexture9* base = m_texture.get();
        ASSERT_TRUE(setParameter(m_effect, handle, base));
    }

    Surface trace(unsigned x, unsigned y, bool withSphere) const {
        Ray ray = pixelRay(m_camera.viewProjection, x, y, kSize, kSize);
        Surface s;
        float sphere = withSphere ? hitSphere(ray, kSphereCentre, 1) : -1, ground = hitPlane(ray, kGround);
        D3DXVECTOR3 p = ray.origin + ray.direction * ground;
        if (sphere > 0) {
            s.hit = s.sphere = true;
            s.p = ray.origin + ray.direction * sphere;
            D3DXVECTOR3 outward = s.p - kSphereCentre;
            D3DXVec3Normalize(&s.n, &outward);
        } else if (ground > 0 && std::fabs(p.x) < kGroundHalf && std::fabs(p.z) < kGroundHalf) {
            s.hit = true;
            s.p = p;
            s.n = D3DXVECTOR3(0, 1, 0);
        }
        return s;
    }

    std::unique_ptr<vexiltest::TestDevice> m_device;
    COMPtr<IDirect3DDevice9>::pointer m_holder;
    Effect m_effect;
    std::unique_ptr<LightingEffect::GeneralParameter> m_general;
    std::unique_ptr<LightingEffect::DirectionalLightParameter> m_directional;
    std::unique_ptr<LightingEffect::SpotLightParameter> m_spot;
    std::unique_ptr<LightingEffect::PointLightParameter> m_point;
    COMPtr<ID3DXMesh>::pointer m_sphere, m_ground;
    COMPtr<IDirect3DTexture9>::pointer m_texture;
    Camera m_camera;
};

// The sphere has no texture coordinates, so the textured case draws the ground alone.
TEST_P(LitSceneTest, PixelsFollowTheBlinnPhongEquation) {
    const LightCase& c = GetParam();
    Material material;
    Lights lights = lightsFor(c);
    if (c.textured) makeTexture();
    setValues(material, lights, c.textured);
    device()->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0, 1, 0);
    device()->BeginScene();
    if (!c.textured) draw(m_sphere.get(), kSphereCentre);
    draw(m_ground.get(), D3DXVECTOR3(0, 0, 0));
    device()->EndScene();

    int compared = compareWithReference(
        m_device->readRenderTarget(), [&](unsigned x, unsigned y) { return trace(x, y, !c.textured); },
        [&](const Surface& s, D3DCOLOR& expected, int& tolerance) {
            D3DXVECTOR4 base = c.textured ? sampleTexture((s.p.x + kGroundHalf) / (2 * kGroundHalf),
                                                          (kGroundHalf - s.p.z) / (2 * kGroundHalf))
                                          : D3DXVECTOR4(1, 1, 1, 1);
            expected = toColor(blinnPhong(material, lights, s.p, s.n, m_camera.eye, base));
            tolerance = s.sphere ? 10 : 6;  // the sphere is facetted, its normals interpolated
            return true;
        });
    EXPECT_GT(compared, 500);
}

INSTANTIATE_TEST_SUITE_P(Lights, LitSceneTest,
                         ::testing::Values(LightCase{"Directional", true, false, false, false},
                                           LightCase{"Spot", false, true, false, false},
                                           LightCase{"Point", false, false, true, false},
                                           LightCase{"All", true, true, true, false},
                                           LightCase{"AllTextured", true, true, true, true}),
                         [](const ::testing::TestParamInfo<LightCase>& info) { return info.param.name; });

}  // namespace
