#pragma once
// The scene the shading checks draw (a sphere and a box over a ground quad, seen from above and
// in front) and the CPU references its pixels are held to: the lighting equation of the
// library's effects and the shadow a box casts through a lamp's matrices.
#include <TestDevice.h>
#include <zeb/ComPtr.h>

#include <d3dx9.h>

#include <functional>

namespace shadingtest {

const unsigned kSize = 128;
const float kGround = -1, kGroundHalf = 3;
const D3DXVECTOR3 kSphereCentre(0.3f, 0, 0.2f), kBoxLow(-0.5f, 0, -0.5f), kBoxHigh(0.5f, 1, 0.5f);

struct Material {
    float ambientCoeff = 0.2f, diffuseCoeff = 0.7f, specularCoeff = 0.5f, specularPower = 8, selfShadowPower = 4;
    D3DXVECTOR4 ambientColor{0.5f, 0.6f, 1, 1}, diffuseColor{1, 0.8f, 0.6f, 1}, specularColor{1, 1, 1, 1};
};
// A light with a black colour is off.
struct Lights {
    D3DXVECTOR4 direction{0.3f, -1, 0.5f, 0}, directionalColor{0, 0, 0, 1};
    D3DXVECTOR4 spotPosition{1, 3, -1, 1}, spotDirection{-1, -3.5f, 1, 0}, spotColor{0, 0, 0, 1};
    float innerAngle = 0.25f, outerAngle = 0.45f;
    D3DXVECTOR4 pointPosition{-1.5f, 0.5f, -1, 1}, pointColor{0, 0, 0, 1};
    float squareDistanceFactor = 0.15f;
};

// The colour of point p with unit normal n seen from eye under base (the texel, or white);
// in shadow only the ambient term remains.
D3DCOLOR blinnPhong(const Material& material, const Lights& lights, const D3DXVECTOR3& p, const D3DXVECTOR3& n,
                    const D3DXVECTOR3& eye, const D3DXVECTOR4& base, bool inShadow = false);
// Whether the box lies between the lamp and p: p projected through the lamp's matrices falls in
// the outline of the projected box corners, nearer to the lamp than p.
bool inBoxShadow(const D3DXMATRIX& lampView, const D3DXMATRIX& lampProjection, const D3DXVECTOR3& p);

enum class Seen { Nothing, Ground, Sphere };
struct Surface {
    Seen what = Seen::Nothing;
    D3DXVECTOR3 p, n;
};
// The reference colour of a surface and its tolerance; false when the surface is not judged.
typedef std::function<bool(const Surface& surface, D3DCOLOR& expected, int& tolerance)> Expectation;

// A real device with the scene's meshes and camera.
class SceneTest : public vexiltest::DeviceTest {
protected:
    SceneTest() : DeviceTest(kSize) {}
    // Holders of Direct3D objects may throw from their destructors; the fixture's base may not.
    ~SceneTest() noexcept override {}
    void SetUp() override;
    void TearDown() override;
    // What the pixel's ray meets first: the sphere (when drawn) or the ground.
    Surface trace(unsigned x, unsigned y, bool sphere) const;
    // Compares every third pixel off the outlines with the expectation, failing at the first
    // mismatch (the picture is saved); returns how many were compared.
    int compareWithReference(bool sphere, const Expectation& expect);
    static D3DXMATRIX translation(const D3DXVECTOR3& at);

    COMPtr<ID3DXMesh>::pointer m_sphere, m_box, m_ground;
    D3DXVECTOR3 m_eye{0, 3, -5};
    D3DXMATRIX m_viewProjection, m_viewInverse;
};

}  // namespace shadingtest
