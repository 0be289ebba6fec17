#include "ShadingReference.h"

#include <algorithm>
#include <cmath>

namespace shadingtest {
namespace {

D3DXVECTOR3 xyz(const D3DXVECTOR4& v) { return D3DXVECTOR3(v.x, v.y, v.z); }
D3DXVECTOR3 unit(D3DXVECTOR3 v) {
    D3DXVec3Normalize(&v, &v);
    return v;
}
float saturate(float v) { return std::min(1.0f, std::max(0.0f, v)); }

// Adds one light's diffuse and specular parts, coloured by c.
void addLight(const Material& m, const D3DXVECTOR3& l, const D3DXVECTOR3& n, const D3DXVECTOR3& v,
              const D3DXVECTOR3& c, D3DXVECTOR3& diffuse, D3DXVECTOR3& specular) {
    float nl = D3DXVec3Dot(&n, &l);
    D3DXVECTOR3 h = unit(l + v);
    float nh = std::max(0.0f, D3DXVec3Dot(&n, &h));
    diffuse += c * std::max(0.0f, nl);
    specular += c * (std::pow(nh, m.specularPower) * saturate(m.selfShadowPower * nl));
}

float smoothstep(float low, float high, float x) {
    float t = saturate((x - low) / (high - low));
    return t * t * (3 - 2 * t);
}

D3DXVECTOR2 project(const D3DXMATRIX& lamp, const D3DXVECTOR3& p, float* depth = nullptr) {
    D3DXVECTOR4 clip;
    D3DXVec3Transform(&clip, &p, &lamp);
    if (depth) *depth = clip.z / clip.w;
    return D3DXVECTOR2(clip.x / clip.w, clip.y / clip.w);
}

float cross(const D3DXVECTOR2& o, const D3DXVECTOR2& a, const D3DXVECTOR2& b) {
    return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

bool inTriangle(const D3DXVECTOR2& p, const D3DXVECTOR2& a, const D3DXVECTOR2& b, const D3DXVECTOR2& c) {
    float d1 = cross(a, b, p), d2 = cross(b, c, p), d3 = cross(c, a, p);
    return (d1 >= 0 && d2 >= 0 && d3 >= 0) || (d1 <= 0 && d2 <= 0 && d3 <= 0);
}

}  // namespace

D3DXVECTOR4 blinnPhong(const Material& m, const Lights& lights, const D3DXVECTOR3& p, const D3DXVECTOR3& n,
                       const D3DXVECTOR3& eye, const D3DXVECTOR4& base, bool shadowed) {
    D3DXVECTOR3 v = unit(eye - p), diffuse(0, 0, 0), specular(0, 0, 0);
    addLight(m, unit(-xyz(lights.direction)), n, v, xyz(lights.directionalColor), diffuse, specular);

    D3DXVECTOR3 toSpot = unit(xyz(lights.spotPosition) - p), spotAxis = unit(xyz(lights.spotDirection));
    float cone = smoothstep(std::cos(lights.outerAngle), std::cos(lights.innerAngle), -D3DXVec3Dot(&toSpot, &spotAxis));
    addLight(m, toSpot, n, v, xyz(lights.spotColor) * cone, diffuse, specular);

    D3DXVECTOR3 toPoint = xyz(lights.pointPosition) - p;
    float attenuation = 1 / (1 + lights.squareDistanceFactor * D3DXVec3Dot(&toPoint, &toPoint));
    addLight(m, unit(toPoint), n, v, xyz(lights.pointColor) * attenuation, diffuse, specular);

    if (shadowed) diffuse = specular = D3DXVECTOR3(0, 0, 0);
    D3DXVECTOR4 out;
    for (int i = 0; i < 3; ++i)
        out[i] = m.ambientCoeff * m.ambientColor[i] * base[i] + m.diffuseCoeff * m.diffuseColor[i] * base[i] * diffuse[i] +
                 m.specularCoeff * m.specularColor[i] * specular[i];
    out.w = m.diffuseColor.w * base.w;
    return out;
}

D3DCOLOR toColor(const D3DXVECTOR4& c) {
    auto channel = [](float v) { return static_cast<int>(std::lround(saturate(v) * 255)); };
    return D3DCOLOR_XRGB(channel(c.x), channel(c.y), channel(c.z));
}

Ray pixelRay(const D3DXMATRIX& viewProjection, unsigned x, unsigned y, unsigned width, unsigned height) {
    D3DXMATRIX inverse;
    D3DXMatrixInverse(&inverse, nullptr, &viewProjection);
    // Pixel centres lie on whole screen coordinates.
    D3DXVECTOR3 ndcNear(2.0f * x / width - 1, 1 - 2.0f * y / height, 0), ndcFar(ndcNear.x, ndcNear.y, 1), a, b;
    D3DXVec3TransformCoord(&a, &ndcNear, &inverse);
    D3DXVec3TransformCoord(&b, &ndcFar, &inverse);
    return Ray{a, unit(b - a)};
}

float hitSphere(const Ray& ray, const D3DXVECTOR3& centre, float radius) {
    D3DXVECTOR3 o = ray.origin - centre;
    float b = D3DXVec3Dot(&o, &ray.direction), c = D3DXVec3Dot(&o, &o) - radius * radius, d = b * b - c;
    return d < 0 ? -1 : -b - std::sqrt(d);
}

float hitPlane(const Ray& ray, float height) {
    return ray.direction.y == 0 ? -1 : (height - ray.origin.y) / ray.direction.y;
}

float hitBox(const Ray& ray, const D3DXVECTOR3& low, const D3DXVECTOR3& high) {
    float nearest = -1e30f, farthest = 1e30f;
    for (int i = 0; i < 3; ++i) {
        float t1 = (low[i] - ray.origin[i]) / ray.direction[i], t2 = (high[i] - ray.origin[i]) / ray.direction[i];
        nearest = std::max(nearest, std::min(t1, t2));
        farthest = std::min(farthest, std::max(t1, t2));
    }
    return nearest <= farthest && farthest > 0 ? nearest : -1;
}

bool inBoxShadow(const D3DXMATRIX& lampView, const D3DXMATRIX& lampProjection, const D3DXVECTOR3& low,
                 const D3DXVECTOR3& high, const D3DXVECTOR3& p) {
    D3DXMATRIX lamp = lampView * lampProjection;
    float depth = 0, cornerDepth = 1e30f;
    D3DXVECTOR2 point = project(lamp, p, &depth);
    std::vector<D3DXVECTOR2> corners;
    for (int i = 0; i < 8; ++i) {
        D3DXVECTOR3 corner(i & 1 ? high.x : low.x, i & 2 ? high.y : low.y, i & 4 ? high.z : low.z);
        float d = 0;
        corners.push_back(project(lamp, corner, &d));
        cornerDepth = std::min(cornerDepth, d);
    }
    // The outline of a convex body's projection is the union of its corner triangles.
    for (size_t a = 0; a < 8; ++a)
        for (size_t b = a + 1; b < 8; ++b)
            for (size_t c = b + 1; c < 8; ++c)
                if (inTriangle(point, corners[a], corners[b], corners[c])) return cornerDepth < depth;
    return false;
}

}  // namespace shadingtest
