#include "ShadingSupport.h"

#include <VexilDX9/LightingEffect.h>

#include <algorithm>
#include <cmath>

using namespace shadingtest;

namespace {

struct LightCase {
    const char* name;
    bool directional, spot, point, textured;
};

// Two texels along u, read linearly with wrapping as the effect's sampler does.
const D3DCOLOR kTexels[2] = {D3DCOLOR_XRGB(255, 64, 64), D3DCOLOR_XRGB(64, 96, 255)};
D3DXVECTOR4 sampleTexture(float u) {
    float x = u * 2 + 1.5f, f = x - std::floor(x);
    D3DXCOLOR a(kTexels[static_cast<int>(x) & 1]), b(kTexels[(static_cast<int>(x) + 1) & 1]);
    return D3DXVECTOR4(a.r, a.g, a.b, 1) * (1 - f) + D3DXVECTOR4(b.r, b.g, b.b, 1) * f;
}

// The lighting effect on a real device, its blocks bound as LightingEffect binds them.
class LitSceneTest : public SceneTest, public ::testing::WithParamInterface<LightCase> {
protected:
    // Holders of Direct3D objects may throw from their destructors; the fixture's base may not.
    ~LitSceneTest() noexcept override {}
    void SetUp() override {
        SceneTest::SetUp();
        ASSERT_TRUE(m_effect.load("lightingEffect.fxo", deviceHolder()));
        m_general = std::make_unique<LightingEffect::GeneralParameter>(BorrowedEffect(&m_effect));
    }
    void TearDown() override {
        m_texture.reset();
        m_effect = Effect();
        SceneTest::TearDown();
    }
    void setValues(const Material& m, const Lights& l, bool textured) {
        const LightingEffect::GeneralParameter& g = *m_general;
        g.ambientCoeff.set(m.ambientCoeff), g.ambientColor.set(m.ambientColor), g.diffuseCoeff.set(m.diffuseCoeff);
        g.diffuseColor.set(m.diffuseColor), g.specularCoeff.set(m.specularCoeff), g.specularPower.set(m.specularPower);
        g.specularColor.set(m.specularColor), g.selfShadowPower.set(m.selfShadowPower);
        g.squareDistanceFactor.set(l.squareDistanceFactor), g.hasTexture.set(textured);
        g.matViewProjection.set(m_viewProjection), g.matViewInv.set(m_viewInverse);
        LightingEffect::DirectionalLightParameter directional{BorrowedEffect(&m_effect)};
        LightingEffect::SpotLightParameter spot{BorrowedEffect(&m_effect)};
        LightingEffect::PointLightParameter point{BorrowedEffect(&m_effect)};
        directional.lightDirection.set(l.direction), directional.lightColor.set(l.directionalColor);
        spot.spotLightPosition.set(l.spotPosition), spot.spotLightDirection.set(l.spotDirection);
        spot.spotLightColor.set(l.spotColor), spot.innerAngle.set(l.innerAngle), spot.outerAngle.set(l.outerAngle);
        point.pointLightPosition.set(l.pointPosition), point.pointLightColor.set(l.pointColor);
    }
    // The world matrix, and the inverse transpose that carries normals, as an application sets them.
    void draw(ID3DXMesh* mesh, const D3DXMATRIX& world) {
        D3DXMATRIX inverseTranspose;
        D3DXMatrixTranspose(&inverseTranspose, D3DXMatrixInverse(&inverseTranspose, nullptr, &world));
        m_general->matWorld.set(world), m_general->matWorldInverseTranspose.set(inverseTranspose);
        EXPECT_TRUE(m_effect.technique(m_effect.techniqueIndex("BlinnPhongShading")).render(mesh, 0));
    }
    // The sphere squashed by the inverse of a rotation with uneven scaling, its normals made to
    // match: drawn through that rotation and scaling it is the round sphere again, lit right
    // only when the effect carries normals by the inverse transpose.
    void squashSphere(const D3DXMATRIX& turn) {
        D3DXMATRIX inverse, transpose;  // points go back by the inverse, normals by the transpose
        D3DXMatrixInverse(&inverse, nullptr, &turn), D3DXMatrixTranspose(&transpose, &turn);
        D3DXVECTOR3* vertex = nullptr;  // position, then normal
        m_sphere->LockVertexBuffer(0, reinterpret_cast<void**>(&vertex));
        for (DWORD i = 0; i < m_sphere->GetNumVertices(); ++i, vertex += 2) {
            D3DXVec3TransformCoord(&vertex[0], &vertex[0], &inverse);
            D3DXVec3Normalize(&vertex[1], D3DXVec3TransformNormal(&vertex[1], &vertex[1], &transpose));
        }
        m_sphere->UnlockVertexBuffer();
    }
    void makeTexture() {
        ASSERT_EQ(D3D_OK, device()->CreateTexture(2, 1, 1, 0, D3DFMT_X8R8G8B8, D3DPOOL_MANAGED, m_texture.receive(), nullptr));
        D3DLOCKED_RECT locked;
        m_texture->LockRect(0, &locked, nullptr, 0);
        std::copy(kTexels, kTexels + 2, static_cast<D3DCOLOR*>(locked.pBits));
        m_texture->UnlockRect(0);
        ASSERT_TRUE(EffectValue<IDirect3DBaseTexture9*>(BorrowedEffect(&m_effect), "textureMap").set(m_texture.get()));
    }

    Effect m_effect;
    std::unique_ptr<LightingEffect::GeneralParameter> m_general;
    COMPtr<IDirect3DTexture9>::pointer m_texture;
};

// The sphere has no texture coordinates, so the textured case draws the ground alone.
TEST_P(LitSceneTest, PixelsFollowTheBlinnPhongEquation) {
    const LightCase& c = GetParam();
    Material material;
    Lights lights;
    lights.directionalColor = c.directional ? D3DXVECTOR4(0.9f, 0.9f, 1, 1) : lights.directionalColor;
    lights.spotColor = c.spot ? D3DXVECTOR4(1, 0.9f, 0.7f, 1) : lights.spotColor;
    lights.pointColor = c.point ? D3DXVECTOR4(0.8f, 1, 0.8f, 1) : lights.pointColor;
    if (c.textured) makeTexture();
    setValues(material, lights, c.textured);
    D3DXMATRIX scale, turn;
    D3DXMatrixMultiply(&turn, D3DXMatrixScaling(&scale, 1.6f, 0.5f, 1.2f), D3DXMatrixRotationYawPitchRoll(&turn, 0.7f, 0.4f, -0.3f));
    squashSphere(turn);
    auto drawScene = [&] {
        device()->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0, 1, 0);
        device()->BeginScene();
        if (!c.textured) draw(m_sphere.get(), turn * translation(kSphereCentre));
        draw(m_ground.get(), translation(D3DXVECTOR3(0, 0, 0)));
        device()->EndScene();
    };
    drawScene();
    int compared = compareWithReference(!c.textured, [&](const Surface& s, D3DCOLOR& expected, int& tolerance) {
        D3DXVECTOR4 base = c.textured ? sampleTexture((s.p.x + kGroundHalf) / (2 * kGroundHalf)) : D3DXVECTOR4(1, 1, 1, 1);
        expected = blinnPhong(material, lights, s.p, s.n, m_eye, base);
        tolerance = s.what == Seen::Sphere ? 10 : 6;  // the sphere is facetted, its normals interpolated
        return true;
    });
    EXPECT_GT(compared, 500);

    // The effect lets go of the device before each reset and takes it back after, as
    // LightingEffect's owner does: the same picture every cycle.
    const std::vector<uint32_t> picture = vexiltest::readRenderTarget(device()).pixels;
    for (unsigned cycle = 1; c.textured && cycle <= vexiltest::resetCycles(); ++cycle) {
        m_effect.effect()->OnLostDevice();
        ASSERT_EQ(D3D_OK, vexiltest::resetDevice(device()));
        m_effect.effect()->OnResetDevice();
        drawScene();
        ASSERT_TRUE(vexiltest::readRenderTarget(device()).pixels == picture) << "cycle " << cycle;
    }
}

INSTANTIATE_TEST_SUITE_P(Lights, LitSceneTest,
                         ::testing::Values(LightCase{"Directional", true, false, false, false},
                                           LightCase{"Spot", false, true, false, false},
                                           LightCase{"Point", false, false, true, false},
                                           LightCase{"All", true, true, true, false},
                                           LightCase{"AllTextured", true, true, true, true}),
                         [](const ::testing::TestParamInfo<LightCase>& info) { return info.param.name; });

}  // namespace
