#include "ShadingScene.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace shadingtest {

Camera::Camera() {
    D3DXVECTOR3 at(0, -0.5f, 0), up(0, 1, 0);
    D3DXMatrixLookAtLH(&view, &eye, &at, &up);
    D3DXMatrixPerspectiveFovLH(&projection, D3DX_PI / 3.5f, 1, 0.5f, 50);
    viewProjection = view * projection;
    D3DXMatrixInverse(&viewInverse, nullptr, &view);
}

ID3DXMesh* makeGround(IDirect3DDevice9* device) {
    struct Vertex {
        float x, y, z, nx, ny, nz, u, v;
    };
    const float h = kGroundHalf;
    const Vertex corners[4] = {{-h, kGround, -h, 0, 1, 0, 0, 1}, {-h, kGround, h, 0, 1, 0, 0, 0},
                               {h, kGround, h, 0, 1, 0, 1, 0},   {h, kGround, -h, 0, 1, 0, 1, 1}};
    const WORD indices[6] = {0, 1, 2, 0, 2, 3};
    ID3DXMesh* mesh = nullptr;
    if (FAILED(D3DXCreateMeshFVF(2, 4, D3DXMESH_MANAGED, D3DFVF_XYZ | D3DFVF_NORMAL | D3DFVF_TEX1, device, &mesh)))
        return nullptr;
    void* data = nullptr;
    mesh->LockVertexBuffer(0, &data);
    std::copy(corners, corners + 4, static_cast<Vertex*>(data));
    mesh->UnlockVertexBuffer();
    mesh->LockIndexBuffer(0, &data);
    std::copy(indices, indices + 6, static_cast<WORD*>(data));
    mesh->UnlockIndexBuffer();
    DWORD* attributes = nullptr;
    mesh->LockAttributeBuffer(0, &attributes);
    attributes[0] = attributes[1] = 0;
    mesh->UnlockAttributeBuffer();
    return mesh;
}

namespace {
int channelDifference(D3DCOLOR a, D3DCOLOR b) {
    int worst = 0;
    for (int shift = 0; shift < 24; shift += 8)
        worst = std::max(worst, std::abs(static_cast<int>((a >> shift) & 0xFF) - static_cast<int>((b >> shift) & 0xFF)));
    return worst;
}

// A pixel whose neighbours see another surface lies on an outline, where coverage decides.
bool onOutline(const Tracer& trace, unsigned x, unsigned y, const Surface& centre) {
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            Surface s = trace(x + dx, y + dy);
            if (s.hit != centre.hit || s.sphere != centre.sphere) return true;
        }
    return false;
}
}  // namespace

int compareWithReference(const vexilsupport::Image& image, const Tracer& trace, const Expectation& expect) {
    int compared = 0;
    for (unsigned y = 2; y + 2 < image.height; y += 3)
        for (unsigned x = 2; x + 2 < image.width; x += 3) {
            Surface surface = trace(x, y);
            D3DCOLOR expected = 0;
            int tolerance = 0;
            if (!surface.hit || onOutline(trace, x, y, surface) || !expect(surface, expected, tolerance)) continue;
            ++compared;
            if (channelDifference(image.at(x, y), expected) > tolerance) {
                std::ostringstream where;
                where << "(" << surface.p.x << ", " << surface.p.y << ", " << surface.p.z << ")";
                EXPECT_TRUE(vexiltest::pixelNear(image, x, y, expected, tolerance, vexiltest::currentTestName()))
                    << "surface point " << where.str();
                return compared;
            }
        }
    return compared;
}

}  // namespace shadingtest
