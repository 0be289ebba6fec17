#pragma once
// The scene the shading checks draw: a sphere resting over a ground quad, a box for shadows, a
// camera above and in front, and the comparison of every few pixels with the CPU reference.
#include "ShadingReference.h"

#include <Png.h>
#include <TestDevice.h>

#include <d3dx9.h>

#include <functional>

namespace shadingtest {

const unsigned kSize = 128;
const float kGround = -1, kGroundHalf = 3;

struct Camera {
    D3DXVECTOR3 eye{0, 3, -5};
    D3DXMATRIX view, projection, viewProjection, viewInverse;
    Camera();
};

// Ground quad at y = kGround, facing up, u = (x + half) / 2half and v = (half - z) / 2half.
ID3DXMesh* makeGround(IDirect3DDevice9* device);

struct Surface {
    bool hit = false;
    bool sphere = false;
    D3DXVECTOR3 p, n;
};
// What the pixel sees; trace decides for one pixel.
typedef std::function<Surface(unsigned x, unsigned y)> Tracer;
// The reference colour of a surface point and the tolerance it is held to.
typedef std::function<bool(const Surface& surface, D3DCOLOR& expected, int& tolerance)> Expectation;

// Compares every third pixel away from silhouettes with the expectation; returns how many were
// compared. A mismatch fails the test and saves the picture.
int compareWithReference(const vexilsupport::Image& image, const Tracer& trace, const Expectation& expect);

}  // namespace shadingtest
