// The viewer's framing camera and its shadow lamp, on a floor with a plate floating over it.
#include <FrameRenderer.h>
#include <TestDevice.h>
#include <XText.h>

#include <cmath>
#include <string>

namespace {

using namespace vexilview;
using namespace vexiltest::xtext;

// A square facing up (front side and normal), side long, centred over the origin at that height.
std::string square(const std::string& name, float side, float height) {
    D3DXMATRIX place, turn;
    D3DXMatrixMultiply(&place, D3DXMatrixTranslation(&place, -0.5f, -0.5f, 0), D3DXMatrixScaling(&turn, side, side, 1));
    D3DXMatrixMultiply(&place, &place, D3DXMatrixRotationX(&turn, -D3DX_PI / 2));
    place._42 = height;
    const std::string normals = "MeshNormals { 1; 0.0;0.0;1.0;; 2; 3;0,0,0;, 3;0,0,0;; }\n";
    return frame(name, transform(place) + quadMesh(name, "", normals));
}

class ViewerSceneTest : public vexiltest::DeviceTest {
protected:
    ViewerSceneTest() : DeviceTest(128) {}
    ~ViewerSceneTest() noexcept override {}  // the scene's holders may throw; gtest's fixture may not
    void TearDown() override {
        scene.cleanup();
        DeviceTest::TearDown();
    }
    bool load(const std::string& text) {
        const std::string path = writeFixture("viewer.x", text);
        return scene.loadVirtualReality("", path.c_str(), device(), zeb::Array<zeb::String>());
    }
    bool loadPlate() { return load("xof 0303txt 0032\n" + square("Floor", 8, 0) + square("Plate", 1.5f, 2)); }
    // Where a point of the scene lands in normalized device coordinates.
    D3DXVECTOR3 projected(const D3DXVECTOR3& point) {
        D3DXVECTOR3 ndc;
        return *D3DXVec3TransformCoord(&ndc, &point, &scene.perspectiveViewer().viewProjection());
    }
    ViewerScene scene;
};

// The framing sphere fills the narrower side of the picture, however wide or tall it is.
TEST_F(ViewerSceneTest, FramingFitsTheSphereToTheNarrowerSide) {
    ASSERT_TRUE(loadPlate());
    for (float aspect : {2.0f, 0.5f}) {
        scene.prepare(device(), aspect);
        scene.placeCamera(Orbit());
        const D3DXMATRIX& camera = scene.perspectiveViewer().viewInverse();
        const D3DXVECTOR3 right(camera._11, camera._12, camera._13), up(camera._21, camera._22, camera._23);
        const float across = projected(scene.centre() + right * scene.radius()).x;
        const float high = projected(scene.centre() + up * scene.radius()).y;
        const float narrow = aspect > 1 ? high : across, wide = aspect > 1 ? across : high;
        EXPECT_TRUE(narrow > 0.7f && narrow < 1.0f && wide < narrow) << aspect << ": " << across << " x " << high;
    }
}

// A skin is framed where its bones put it: each vertex through the bone's offset, then the bone's frame.
TEST_F(ViewerSceneTest, FramingTakesEachBoneOffsetBeforeItsFrame) {
    D3DXMATRIX turn, offset;
    ASSERT_TRUE(load(xHeader() + frame("Bone", transform(*D3DXMatrixRotationZ(&turn, D3DX_PI / 2))) +
                     frame("Body", quadMesh("Skin", "", skin({"Bone"}, *D3DXMatrixTranslation(&offset, -1, 0, 0))))));
    scene.prepare(device(), 1.0f);
    // The offset moves vertices (0,0,0) and (1,0,0) to (-1,0,0) and the origin; the bone turns them to (0,-1,0) and the origin.
    EXPECT_TRUE(vexiltest::same(scene.centre(), D3DXVECTOR3(0, -0.5f, 0)) && std::fabs(scene.radius() - 0.5f) < 1e-5f);
}

// The lamp shines along the key light: the plate's shadow falls on the floor down that way.
TEST_F(ViewerSceneTest, ThePlateShadowsTheFloorDownTheKeyLight) {
    ASSERT_TRUE(loadPlate());
    scene.prepare(device(), 1.0f);
    scene.placeCamera(Orbit());
    {
        FrameRenderer renderer(scene);
        std::string problem;
        ASSERT_TRUE(renderer.lit().loadShadows(deviceHolder(), problem)) << problem;
        renderer.setLighting(Lighting::Fixed, true);
        ASSERT_TRUE(renderer.draw(deviceHolder(), SkinPath::Fixed, false));
    }
    const vexilsupport::Image image = testDevice().readRenderTarget();
    auto brightness = [&](const D3DXVECTOR3& point) {
        const D3DXVECTOR3 ndc = projected(point);
        const uint32_t pixel = image.at(unsigned((ndc.x + 1) * 64), unsigned((1 - ndc.y) * 64));
        return int(pixel & 0xFF) + int(pixel >> 8 & 0xFF) + int(pixel >> 16 & 0xFF);
    };
    const D3DXVECTOR3 shadow = D3DXVECTOR3(0, 2, 0) + kKeyLightDirection * (2 / -kKeyLightDirection.y);
    const D3DXVECTOR3 mirrored(-shadow.x, 0, -shadow.z);
    EXPECT_LT(brightness(shadow) * 10, brightness(mirrored) * 8) << "in the shadow, against across the plate";
}

}  // namespace
