#pragma once
// CPU references for the shading tests: the lighting equation of the library's effects, rays
// through pixels, and the shadow a box casts through a lamp's matrices.
#include <d3dx9.h>

#include <vector>

namespace shadingtest {

struct Material {
    float ambientCoeff = 0.2f, diffuseCoeff = 0.7f, specularCoeff = 0.5f, specularPower = 8, selfShadowPower = 4;
    D3DXVECTOR4 ambientColor{0.5f, 0.6f, 1, 1}, diffuseColor{1, 0.8f, 0.6f, 1}, specularColor{1, 1, 1, 1};
};

// Light colours of zero switch a light off.
struct Lights {
    D3DXVECTOR4 direction{0, -1, 0, 0}, directionalColor{0, 0, 0, 1};
    D3DXVECTOR4 spotPosition{0, 4, 0, 1}, spotDirection{0, -1, 0, 0}, spotColor{0, 0, 0, 1};
    float innerAngle = 0.3f, outerAngle = 0.6f;
    D3DXVECTOR4 pointPosition{0, 3, 0, 1}, pointColor{0, 0, 0, 1};
    float squareDistanceFactor = 0.1f;
};

// The colour of surface point p with unit normal n seen from eye; base is the texel (white
// without a texture). shadowed drops everything but the ambient term.
D3DXVECTOR4 blinnPhong(const Material& material, const Lights& lights, const D3DXVECTOR3& p, const D3DXVECTOR3& n,
                       const D3DXVECTOR3& eye, const D3DXVECTOR4& base, bool shadowed = false);
D3DCOLOR toColor(const D3DXVECTOR4& colour);

struct Ray {
    D3DXVECTOR3 origin, direction;  // direction of unit length
};
// The ray through the centre of pixel (x, y) of a width x height target.
Ray pixelRay(const D3DXMATRIX& viewProjection, unsigned x, unsigned y, unsigned width, unsigned height);
// Distance along the ray to the sphere or to the plane y = height; negative when missed.
float hitSphere(const Ray& ray, const D3DXVECTOR3& centre, float radius);
float hitPlane(const Ray& ray, float height);
// Distance to the axis-aligned box; negative when missed.
float hitBox(const Ray& ray, const D3DXVECTOR3& low, const D3DXVECTOR3& high);

// Whether the lamp sees the box in front of point p: p projected through lampView and
// lampProjection falls inside the outline of the projected box corners, the box being nearer.
bool inBoxShadow(const D3DXMATRIX& lampView, const D3DXMATRIX& lampProjection, const D3DXVECTOR3& low,
                 const D3DXVECTOR3& high, const D3DXVECTOR3& p);

}  // namespace shadingtest
