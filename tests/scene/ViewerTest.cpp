#include "SceneSupport.h"

#include <VexilDX9/Viewer.h>

using vexiltest::same;

namespace {
const float kPi = 3.14159265f;
}  // namespace

// Rotations turn the look-at point and the up vector about the eye; the matrices follow the setters.
TEST(PerspectiveViewer, RotationsTurnAboutTheEyeAndMatricesFollowTheSetters) {
    struct Case {
        float eyeZ;
        D3DXVECTOR3 pitchYawRoll;
        unsigned turns;  // successive calls accumulate
        D3DXVECTOR3 lookAt, up;
    };
    const Case cases[] = {{0, {0, kPi / 2, 0}, 1, {1, 0, 0}, {0, 1, 0}},
                          {-5, {0, kPi / 2, 0}, 1, {6, 0, -5}, {5, 1, -5}},
                          {0, {kPi / 4, 0, 0}, 2, {0, -1, 0}, {0, 0, 1}},
                          {0, {0, 0, kPi / 2}, 1, {0, 0, 1}, {-1, 0, 0}}};
    for (const Case& c : cases) {
        PerspectiveViewer viewer;
        viewer.setTranslation(D3DXVECTOR3(0, 0, c.eyeZ));
        for (unsigned i = 0; i < c.turns; ++i) viewer.setRotation(c.pitchYawRoll.x, c.pitchYawRoll.y, c.pitchYawRoll.z);
        EXPECT_TRUE(same(viewer.lookAtVector(), c.lookAt)) << "case " << &c - cases;
        EXPECT_TRUE(same(viewer.upVector(), c.up)) << "case " << &c - cases;
    }

    PerspectiveViewer viewer;
    D3DXVECTOR3 eye(3, 4, -10), at(1, 0, 2), up(0.1f, 1, 0);
    viewer.setTranslation(eye), viewer.setLookAt(at), viewer.setUpVector(up);
    viewer.setFOVHalfAngle(1.1f), viewer.setAspectRatio(16.0f / 9.0f), viewer.setZPlane(0.5f, 250.0f);
    D3DXMATRIX view, projection;
    D3DXMatrixLookAtLH(&view, &eye, &at, &up);
    D3DXMatrixPerspectiveFovLH(&projection, 1.1f, 16.0f / 9.0f, 0.5f, 250.0f);
    EXPECT_TRUE(same(viewer.matrixLookAtLH(), view));
    EXPECT_TRUE(same(viewer.matrixPerspectiveFovLH(), projection));
    viewer.calculateViewInverse();  // the inverse puts the eye back where it was
    EXPECT_TRUE(same(D3DXVECTOR3(viewer.viewInverse()._41, viewer.viewInverse()._42, viewer.viewInverse()._43), eye));
    const D3DXMATRIX product = viewer.calculateViewProjectionLH();
    viewer.setTranslation(D3DXVECTOR3(0, 0, 0));
    EXPECT_TRUE(same(PerspectiveViewer(viewer).viewProjection(), product)) << "copied as last computed";
}
