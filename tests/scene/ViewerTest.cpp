#include <VexilDX9/Viewer.h>

#include <LogCapture.h>

#include <gtest/gtest.h>

#include <cmath>

namespace {

const float kPi = 3.14159265f;

::testing::AssertionResult closeTo(const D3DXVECTOR3& actual, const D3DXVECTOR3& expected, float tolerance = 1e-5f) {
    D3DXVECTOR3 d = actual - expected;
    if (std::fabs(d.x) <= tolerance && std::fabs(d.y) <= tolerance && std::fabs(d.z) <= tolerance)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "(" << actual.x << ", " << actual.y << ", " << actual.z << ") vs ("
                                         << expected.x << ", " << expected.y << ", " << expected.z << ")";
}

::testing::AssertionResult closeTo(const D3DXMATRIX& actual, const D3DXMATRIX& expected, float tolerance = 1e-5f) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            if (std::fabs(actual.m[r][c] - expected.m[r][c]) > tolerance * (1.0f + std::fabs(expected.m[r][c])))
                return ::testing::AssertionFailure() << "element " << r << "," << c << ": " << actual.m[r][c]
                                                     << " vs " << expected.m[r][c];
    return ::testing::AssertionSuccess();
}

D3DXMATRIX identity() {
    D3DXMATRIX m;
    D3DXMatrixIdentity(&m);
    return m;
}

}  // namespace

TEST(PerspectiveViewer, StartsAtTheOriginLookingDownZ) {
    PerspectiveViewer viewer;
    EXPECT_TRUE(closeTo(viewer.worldPosition(), D3DXVECTOR3(0, 0, 0)));
    EXPECT_TRUE(closeTo(viewer.lookAtVector(), D3DXVECTOR3(0, 0, 1)));
    EXPECT_TRUE(closeTo(viewer.upVector(), D3DXVECTOR3(0, 1, 0)));
    EXPECT_EQ(viewer.fovHalfAngle(), 0.7853982f);
    EXPECT_EQ(viewer.aspectRatio(), 1.33f);
    float znear = 0, zfar = 0;
    viewer.zPlane(znear, zfar);
    EXPECT_EQ(znear, 1.0f);
    EXPECT_EQ(zfar, 10000.0f);
    EXPECT_TRUE(closeTo(viewer.matrixLookAtLH(), identity()));
    EXPECT_EQ(&viewer.view(), &viewer.matrixLookAtLH());
}

TEST(PerspectiveViewer, RotationTurnsLookAtAndUpAboutTheEyeAsPoints) {
    PerspectiveViewer fresh;
    fresh.setRotation(0, kPi / 2, 0);
    EXPECT_TRUE(closeTo(fresh.lookAtVector(), D3DXVECTOR3(1, 0, 0)));
    EXPECT_TRUE(closeTo(fresh.upVector(), D3DXVECTOR3(0, 1, 0)));

    PerspectiveViewer back;
    back.setTranslation(D3DXVECTOR3(0, 0, -5));
    back.setRotation(0, kPi / 2, 0);
    EXPECT_TRUE(closeTo(back.lookAtVector(), D3DXVECTOR3(6, 0, -5)));
    EXPECT_TRUE(closeTo(back.upVector(), D3DXVECTOR3(5, 1, -5)));
    EXPECT_TRUE(closeTo(back.worldPosition(), D3DXVECTOR3(0, 0, -5)));

    // First argument pitch (about x), second yaw (about y); calls accumulate.
    PerspectiveViewer pitched;
    pitched.setRotation(kPi / 4, 0, 0);
    pitched.setRotation(kPi / 4, 0, 0);
    EXPECT_TRUE(closeTo(pitched.lookAtVector(), D3DXVECTOR3(0, -1, 0)));
    EXPECT_TRUE(closeTo(pitched.upVector(), D3DXVECTOR3(0, 0, 1)));
    PerspectiveViewer rolled;
    rolled.setRotation(0, 0, kPi / 2);
    EXPECT_TRUE(closeTo(rolled.upVector(), D3DXVECTOR3(-1, 0, 0)));
}

TEST(PerspectiveViewer, MatricesMatchD3DX) {
    vexiltest::LogCapture log;
    PerspectiveViewer viewer;
    D3DXVECTOR3 eye(3, 4, -10), at(1, 0, 2), up(0.1f, 1, 0);
    viewer.setTranslation(eye);
    viewer.setLookAt(at);
    viewer.setUpVector(up);
    viewer.setFOVHalfAngle(1.1f);
    viewer.setAspectRatio(16.0f / 9.0f);
    viewer.setZPlane(0.5f, 250.0f);

    D3DXMATRIX view, rhView, projection, inverse, product;
    D3DXMatrixLookAtLH(&view, &eye, &at, &up);
    D3DXMatrixLookAtRH(&rhView, &eye, &at, &up);
    D3DXMatrixPerspectiveFovLH(&projection, 1.1f, 16.0f / 9.0f, 0.5f, 250.0f);
    D3DXMatrixInverse(&inverse, nullptr, &view);
    D3DXMatrixMultiply(&product, &view, &projection);

    EXPECT_TRUE(closeTo(viewer.matrixLookAtRH(), rhView));
    EXPECT_TRUE(closeTo(viewer.matrixLookAtLH(), view));
    EXPECT_TRUE(closeTo(viewer.matrixPerspectiveFovLH(), projection));
    EXPECT_TRUE(closeTo(viewer.calculateViewInverse(), inverse));
    EXPECT_TRUE(closeTo(viewer.calculateViewProjectionLH(), product));
    // The inverse view puts the camera back where it stands.
    EXPECT_FLOAT_EQ(viewer.viewInverse()._41, 3.0f);
    EXPECT_FLOAT_EQ(viewer.viewInverse()._42, 4.0f);
    EXPECT_FLOAT_EQ(viewer.viewInverse()._43, -10.0f);
    EXPECT_EQ(log.count("VexilDX9", "m_fovY "), 1u) << log.dump();
    EXPECT_EQ(log.count("VexilDX9", " m_aspectRatio "), 1u);
    EXPECT_EQ(log.count("VexilDX9", " m_zFar 250"), 1u) << log.dump();

    // Nothing is recomputed until asked: a moved eye leaves the stored matrices alone.
    viewer.setTranslation(D3DXVECTOR3(0, 0, 0));
    EXPECT_TRUE(closeTo(viewer.view(), view));
    EXPECT_TRUE(closeTo(viewer.viewProjection(), product));
    PerspectiveViewer copy(viewer);
    EXPECT_TRUE(closeTo(copy.projection(), projection));
}
