#include "ShadingSupport.h"

#include <algorithm>
#include <cmath>

namespace shadingtest {
namespace {

D3DXVECTOR3 unit(D3DXVECTOR3 v) { return *D3DXVec3Normalize(&v, &v); }
D3DXVECTOR3 xyz(const D3DXVECTOR4& v) { return D3DXVECTOR3(v.x, v.y, v.z); }
float saturate(float v) { return std::min(1.0f, std::max(0.0f, v)); }

// Adds one light's diffuse and specular parts, coloured by c.
void addLight(const Material& m, const D3DXVECTOR3& l, const D3DXVECTOR3& n, const D3DXVECTOR3& v,
              const D3DXVECTOR3& c, D3DXVECTOR3& diffuse, D3DXVECTOR3& specular) {
    D3DXVECTOR3 h = unit(l + v);
    float nl = D3DXVec3Dot(&n, &l), nh = std::max(0.0f, D3DXVec3Dot(&n, &h));
    diffuse += c * std::max(0.0f, nl);
    specular += c * (std::pow(nh, m.specularPower) * saturate(m.selfShadowPower * nl));
}

D3DXVECTOR3 project(const D3DXMATRIX& m, const D3DXVECTOR3& p) {
    D3DXVECTOR3 out;
    return *D3DXVec3TransformCoord(&out, &p, &m);
}

bool inTriangle(const D3DXVECTOR3& p, const D3DXVECTOR3& a, const D3DXVECTOR3& b, const D3DXVECTOR3& c) {
    auto side = [&](const D3DXVECTOR3& o, const D3DXVECTOR3& e) { return (e.x - o.x) * (p.y - o.y) - (e.y - o.y) * (p.x - o.x); };
    float d1 = side(a, b), d2 = side(b, c), d3 = side(c, a);
    return (d1 >= 0 && d2 >= 0 && d3 >= 0) || (d1 <= 0 && d2 <= 0 && d3 <= 0);
}

}  // namespace

D3DCOLOR blinnPhong(const Material& m, const Lights& lights, const D3DXVECTOR3& p, const D3DXVECTOR3& n,
                    const D3DXVECTOR3& eye, const D3DXVECTOR4& base, bool inShadow) {
    D3DXVECTOR3 v = unit(eye - p), diffuse(0, 0, 0), specular(0, 0, 0);
    addLight(m, unit(-xyz(lights.direction)), n, v, xyz(lights.directionalColor), diffuse, specular);
    D3DXVECTOR3 toSpot = unit(xyz(lights.spotPosition) - p), axis = unit(xyz(lights.spotDirection));
    float cosOuter = std::cos(lights.outerAngle), cosInner = std::cos(lights.innerAngle);
    float t = saturate((-D3DXVec3Dot(&toSpot, &axis) - cosOuter) / (cosInner - cosOuter));
    addLight(m, toSpot, n, v, xyz(lights.spotColor) * (t * t * (3 - 2 * t)), diffuse, specular);
    D3DXVECTOR3 toPoint = xyz(lights.pointPosition) - p;
    float attenuation = 1 / (1 + lights.squareDistanceFactor * D3DXVec3Dot(&toPoint, &toPoint));
    addLight(m, unit(toPoint), n, v, xyz(lights.pointColor) * attenuation, diffuse, specular);
    if (inShadow) diffuse = specular = D3DXVECTOR3(0, 0, 0);
    int channel[3];
    for (int i = 0; i < 3; ++i)
        channel[i] = std::lround(255 * saturate(m.ambientCoeff * m.ambientColor[i] * base[i] +
                                                m.diffuseCoeff * m.diffuseColor[i] * base[i] * diffuse[i] +
                                                m.specularCoeff * m.specularColor[i] * specular[i]));
    return D3DCOLOR_XRGB(channel[0], channel[1], channel[2]);
}

bool inBoxShadow(const D3DXMATRIX& lampView, const D3DXMATRIX& lampProjection, const D3DXVECTOR3& p) {
    D3DXMATRIX lamp = lampView * lampProjection;
    D3DXVECTOR3 point = project(lamp, p), corners[8];
    float nearest = 1e30f;
    for (int i = 0; i < 8; ++i) {
        corners[i] = project(lamp, D3DXVECTOR3(i & 1 ? kBoxHigh.x : kBoxLow.x, i & 2 ? kBoxHigh.y : kBoxLow.y,
                                               i & 4 ? kBoxHigh.z : kBoxLow.z));
        nearest = std::min(nearest, corners[i].z);
    }
    // The outline of a convex body's projection is the union of its corner triangles.
    for (int a = 0; a < 8; ++a)
        for (int b = a + 1; b < 8; ++b)
            for (int c = b + 1; c < 8; ++c)
                if (inTriangle(point, corners[a], corners[b], corners[c])) return nearest < point.z;
    return false;
}

void SceneTest::SetUp() {
    DeviceTest::SetUp();
    if (HasFatalFailure()) return;
    D3DXMATRIX view, projection;
    D3DXVECTOR3 at(0, -0.5f, 0), up(0, 1, 0);
    m_viewProjection = *D3DXMatrixLookAtLH(&view, &m_eye, &at, &up) *
                       *D3DXMatrixPerspectiveFovLH(&projection, D3DX_PI / 3.5f, 1, 0.5f, 50);
    D3DXMatrixInverse(&m_viewInverse, nullptr, &view);
    ASSERT_EQ(D3D_OK, D3DXCreateSphere(device(), 1, 48, 24, m_sphere.receive(), nullptr));
    ASSERT_EQ(D3D_OK, D3DXCreateBox(device(), 1, 1, 1, m_box.receive(), nullptr));
    // The ground is the top of a thin slab; u runs with x across it.
    COMPtr<ID3DXMesh>::pointer slab;
    ASSERT_EQ(D3D_OK, D3DXCreateBox(device(), 2 * kGroundHalf, 0.01f, 2 * kGroundHalf, slab.receive(), nullptr));
    ASSERT_EQ(D3D_OK, slab->CloneMeshFVF(D3DXMESH_MANAGED, D3DFVF_XYZ | D3DFVF_NORMAL | D3DFVF_TEX1, device(),
                                         m_ground.receive()));
    float* vertex = nullptr;
    m_ground->LockVertexBuffer(0, reinterpret_cast<void**>(&vertex));
    for (DWORD i = 0; i < m_ground->GetNumVertices(); ++i, vertex += 8)
        vertex[1] += kGround - 0.005f, vertex[6] = (vertex[0] + kGroundHalf) / (2 * kGroundHalf);
    m_ground->UnlockVertexBuffer();
}

void SceneTest::TearDown() {
    m_sphere.reset(), m_box.reset(), m_ground.reset();
    DeviceTest::TearDown();
}

D3DXMATRIX SceneTest::translation(const D3DXVECTOR3& at) {
    D3DXMATRIX m;
    return *D3DXMatrixTranslation(&m, at.x, at.y, at.z);
}

Surface SceneTest::trace(unsigned x, unsigned y, bool sphere) const {
    // Pixel centres lie on whole screen coordinates.
    D3DXMATRIX inverse;
    D3DXMatrixInverse(&inverse, nullptr, &m_viewProjection);
    D3DXVECTOR3 ndc(2.0f * x / kSize - 1, 1 - 2.0f * y / kSize, 0), o = project(inverse, ndc);
    ndc.z = 1;
    D3DXVECTOR3 d = unit(project(inverse, ndc) - o), centre = o - kSphereCentre;
    float b = D3DXVec3Dot(&centre, &d), disc = b * b - D3DXVec3Dot(&centre, &centre) + 1;
    float toSphere = sphere && disc >= 0 ? -b - std::sqrt(disc) : -1, toGround = (kGround - o.y) / d.y;
    Surface s;
    if (toSphere > 0) {
        s.what = Seen::Sphere, s.p = o + d * toSphere, s.n = unit(s.p - kSphereCentre);
    } else if (toGround > 0) {
        s.p = o + d * toGround, s.n = D3DXVECTOR3(0, 1, 0);
        if (std::fabs(s.p.x) < kGroundHalf && std::fabs(s.p.z) < kGroundHalf) s.what = Seen::Ground;
    }
    return s;
}

int SceneTest::compareWithReference(bool sphere, const Expectation& expect) {
    vexilsupport::Image image = testDevice().readRenderTarget();
    auto onOutline = [&](unsigned x, unsigned y, Seen what) {
        for (unsigned yy = y - 1; yy <= y + 1; ++yy)
            for (unsigned xx = x - 1; xx <= x + 1; ++xx)
                if (trace(xx, yy, sphere).what != what) return true;
        return false;
    };
    int compared = 0;
    for (unsigned y = 2; y + 2 < kSize; y += 3)
        for (unsigned x = 2; x + 2 < kSize; x += 3) {
            Surface s = trace(x, y, sphere);
            D3DCOLOR expected = 0;
            int tolerance = 0;
            if (s.what == Seen::Nothing || onOutline(x, y, s.what) || !expect(s, expected, tolerance)) continue;
            ++compared;
            ::testing::AssertionResult match = vexiltest::pixelNear(image, x, y, expected, tolerance, vexiltest::currentTestName());
            if (!match) {
                ADD_FAILURE() << match.message() << " at (" << s.p.x << ", " << s.p.y << ", " << s.p.z << ")";
                return compared;
            }
        }
    return compared;
}

}  // namespace shadingtest
