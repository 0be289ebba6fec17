#include "SceneSupport.h"

#include "../device/DeviceFixtures.h"

#include <VexilDX9/VirtualRealityDX9.h>

#include <LogCapture.h>
#include <Png.h>
#include <TestDevice.h>
#include <TestPaths.h>

#include <algorithm>
#include <cstring>
#include <deque>

using namespace scenetest;

namespace {

const D3DCOLOR kBackground = 0x404040, kTexture = 0x3080C0;

// Material colours as the fixed-function pipeline shows them under a white ambient light with no
// lamps: diffuse (the loader copies it to ambient) plus the emissive (0.1, 0.2, 0.3) of material().
const D3DCOLOR kGreen = 0x1AFF4D, kRed = 0xFF334D, kWhite = 0xFFFFFF, kMagenta = 0xFF33FF;

// One scene for most checks: a camera frame, two rigid quads sharing a texture file with an
// untextured subset each, a quad whose texture file is missing, a skinned quad whose top edge
// follows the animated Bone1, and a skinned container whose bone weighs nothing (it cannot be
// built) and whose "k2m" entry hides the frame StubPart.
std::string sceneText() {
    auto quad = [](const std::string& name, const std::vector<std::string>& materials, const std::string& extra = "") {
        return quadMesh(name, materialList(materials, 0, materials.size() - 1), extra);
    };
    std::string normals = "MeshNormals { 1; 0.0;0.0;-1.0;; 2; 3;0,0,0;, 3;0,0,0;; }\n";
    std::string magenta = material(1, 0, 1, 1, 1, "");
    std::string weightless = "SkinWeights { \"StubPart\"; 1; 0; 0.0; 1.0,0.0,0.0,0.0, 0.0,1.0,0.0,0.0, 0.0,0.0,1.0,0.0, 0.0,0.0,0.0,1.0;; }\n";
    return xHeader() + "AnimTicksPerSecond { 1; }\n" +
           frame("Root", translation(0, 0, 0) + frame("CameraDummy", translation(0, 0, -5)) +
                             frame("Left", translation(-2.5f, 0.5f, 0) +
                                               quad("Left", {material(1, 1, 1, 1, 1, "tex.png"), material(0, 1, 0, 1, 1, "")})) +
                             frame("Right", translation(1.5f, 0.5f, 0) +
                                                quad("Right", {material(1, 1, 1, 1, 1, "tex.png"), material(1, 0, 0, 1, 1, "")})) +
                             frame("Broken", translation(-0.5f, 0.5f, 0) + quad("Broken", {material(1, 1, 1, 1, 1, "missing.png")})) +
                             frame("Bone0", translation(-0.5f, -1.5f, 0) + frame("Bone1", translation(0, 0, 0))) +
                             frame("Body", translation(0, 0, 0) + quad("Skin", {magenta}, normals + skin({"Bone0", "Bone1"}))) +
                             frame("Stub", translation(0, 0, 0) + quad("Stub", {magenta}, "XSkinMeshHeader { 1; 1; 1; }\n" + weightless) +
                                               frame("StubPart", translation(1.5f, -1.5f, 0) +
                                                                     quad("Part", {material(1, 1, 0, 1, 1, "")})))) +
           "AnimationSet Lift { Animation { {Bone1} AnimationKey { 2; 2; 0;3;0.0,0.0,0.0;;, 4;3;0.0,1.0,0.0;;; } } }\n";
}

// D3DXLoadMeshHierarchyFromXW as VexilDX9.dll calls it: the scripted results first, then the real one.
std::deque<HRESULT> g_loadResults;
void* g_realLoad = nullptr;
HRESULT WINAPI scriptedLoad(const WCHAR* file, DWORD options, IDirect3DDevice9* device, ID3DXAllocateHierarchy* allocator,
                            ID3DXLoadUserData* userData, D3DXFRAME** root, ID3DXAnimationController** animation) {
    if (g_loadResults.empty())
        return reinterpret_cast<decltype(&scriptedLoad)>(g_realLoad)(file, options, device, allocator, userData, root, animation);
    HRESULT hr = g_loadResults.front();
    g_loadResults.pop_front();
    return hr;
}

class SceneTest : public vexiltest::DeviceTest {
protected:
    // The device holder may throw from its destructor; the fixture's base may not.
    ~SceneTest() noexcept override {}
    void SetUp() override {
        DeviceTest::SetUp();
        vexilsupport::Image texture{4, 4, std::vector<uint32_t>(16, kTexture)};
        ASSERT_TRUE(vexilsupport::writePng(vexiltest::outputDir() + "\\tex.png", texture));
        path = zeb::String(writeFixture("vr.x", sceneText()).c_str());
        frameList.append("1:StubPart");
        firstPass.append(0);
        holder.reset(device());
        device()->AddRef();
    }
    bool load(VirtualRealityDX9& scene) {
        return scene.loadVirtualReality(zeb::String(vexiltest::outputDir().c_str()), path, device(), frameList);
    }
    // Fixed-function state under which subsets show their material colours.
    void prepare(VirtualRealityDX9& scene) {
        device()->SetRenderState(D3DRS_AMBIENT, 0xFFFFFFFF);
        device()->SetRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
        device()->SetTransform(D3DTS_VIEW, &scene.perspectiveViewer().view());
        device()->SetTransform(D3DTS_PROJECTION, &scene.perspectiveViewer().matrixPerspectiveFovLH());
        testDevice().clear(kBackground);
        device()->BeginScene();
    }
    vexilsupport::Image finish() {
        device()->EndScene();
        return testDevice().readRenderTarget();
    }
    // Pixel where a point of the scene lands, through the viewer's matrices.
    static std::pair<unsigned, unsigned> pixelOf(VirtualRealityDX9& scene, float x, float y) {
        D3DXVECTOR3 ndc, point(x, y, 0);
        D3DXVec3TransformCoord(&ndc, &point, &scene.perspectiveViewer().viewProjection());
        return {unsigned((ndc.x + 1) * 32), unsigned((1 - ndc.y) * 32)};
    }
    ::testing::AssertionResult colourAt(const vexilsupport::Image& image, VirtualRealityDX9& scene, float x, float y,
                                        D3DCOLOR expected) {
        auto p = pixelOf(scene, x, y);
        return vexiltest::pixelNear(image, p.first, p.second, expected, 3, vexiltest::currentTestName());
    }
    static bool drawn(uint32_t pixel) { return (pixel & 0xFFFFFF) != kBackground; }
    static long covered(const vexilsupport::Image& image) { return std::count_if(image.pixels.begin(), image.pixels.end(), drawn); }
    void TearDown() override {
        holder.reset();
        DeviceTest::TearDown();
    }
    zeb::String path;
    zeb::Array<zeb::String> frameList;
    zeb::Array<unsigned int> firstPass;
    COMPtr<IDirect3DDevice9>::pointer holder;
};

}  // namespace

TEST_F(SceneTest, LoadBuildsTexturesGroupsSkinsAndHidesTheFramesOfAFailedSkin) {
    vexiltest::LogCapture log;
    VirtualRealityDX9 scene;
    ASSERT_TRUE(load(scene)) << log.dump();
    const MeshManagerD3DX9& manager = scene.meshManager();
    zeb::String tex = zeb::String(vexiltest::outputDir().c_str()) + "\\tex.png";
    zeb::String missing = zeb::String(vexiltest::outputDir().c_str()) + "\\missing.png";
    ASSERT_EQ(manager.textureResources().size(), 1u);  // one texture for the two materials naming tex.png
    IDirect3DTexture9* texture = manager.textureResources()[tex].get();
    EXPECT_EQ(manager.failedTextures().size(), 1u);
    EXPECT_EQ(log.count("meshManagerD3DX9", "Fail to create texture" + std::string(missing.getUTF8String()), 4), 1u);
    EXPECT_EQ(log.count("meshManagerD3DX9", "Texture fails to load ", 1), 1u);
    for (const char* name : {"Left", "Right"}) {
        const zeb::Array<COMPtr<IDirect3DTexture9>::pointer>& list = scene.frameRefByName(name).m_containerTextures[0].m_textureList;
        ASSERT_EQ(list.size(), 2u);
        EXPECT_EQ(list[0].get(), texture);
        EXPECT_EQ(list[1].get(), nullptr);
    }
    const ULONG held = referencesOf(texture);  // a copied frame node holds a reference of its own
    EXPECT_EQ(referencesOf(FrameNode(scene.frameRefByName("Left")).m_containerTextures[0].m_textureList[0].get()), held + 1);
    EXPECT_EQ(referencesOf(texture), held);
    const auto& groups = scene.textureTable();
    ASSERT_EQ(groups.size(), 3u);
    EXPECT_EQ(groups.keys()[0], tex);
    EXPECT_EQ(groups.keys()[1], zeb::String("NULL"));
    EXPECT_EQ(groups.keys()[2], missing);
    EXPECT_EQ(groups[tex].texture(), texture);
    EXPECT_EQ(groups[missing].texture(), nullptr);
    EXPECT_EQ(groups[zeb::String("NULL")].frameTable().keys().size(), 3u);  // Left, Right, StubPart

    // Bone frames resolved by name; the boneless container was dropped and its frame list hid StubPart.
    ASSERT_EQ(manager.skinnedMesh().size(), 1u);
    const SkinnedMesh& skinned = manager.skinnedMesh()[0];
    EXPECT_EQ(skinned.numBoneInfluencePerVertex(), 2u);
    EXPECT_EQ(skinned.fvf() & D3DFVF_POSITION_MASK, unsigned(D3DFVF_XYZB1));
    const zeb::Array<SkinnedMesh::BoneNode>& nodes = skinned.boneArrays()[0].nodes;
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[1].frameIndex, manager.frameIndex().frameListIndex()[zeb::String("Bone1")]);
    EXPECT_EQ(nodes[1].influenceIndex, 1u);
    EXPECT_EQ(log.count("VexilDX9", "111 ConvertToBlendedMesh fails", 4), 1u);
    EXPECT_FALSE(scene.frameRefByName("StubPart").m_renderFrame);
    EXPECT_TRUE(scene.frameRefByName("Stub").m_renderFrame);

    // A copy's texture groups point into the copy's own frame table.
    MeshManagerD3DX9 copy(manager);
    copy = manager;
    const FrameNode* first = &copy.frameIndex()[0];
    for (const TextureTuple& group : copy.textureTable().values())
        for (const FrameTuple& f : group.frameTable().values())
            EXPECT_TRUE(f.frame() >= first && f.frame() < first + copy.frameIndex().size());
    EXPECT_EQ(copy.textureTable()[tex].texture(), texture);
}

TEST_F(SceneTest, FrameListEntriesFillOneListPerSkinnedContainer) {
    vexiltest::LogCapture log;
    MeshManagerD3DX9 manager;
    zeb::Array<zeb::String> entries;
    for (const char* entry : {"0:A", "2:B", "4294967295:X", "99999999999:Y", "3:Z", "2:C", "bad", "1:D"}) entries.append(entry);
    // Three mesh containers: entries past them are refused and the rest read, up to "bad".
    EXPECT_FALSE(manager.parseSkinnedFrameExternalFrame(entries, 3));
    ASSERT_EQ(manager.externalFrameLists().size(), 3u);
    EXPECT_EQ(manager.externalFrameLists()[0].size(), 1u);
    EXPECT_EQ(manager.externalFrameLists()[1].size(), 0u);
    EXPECT_EQ(manager.externalFrameLists()[2][1], zeb::String("C"));
    EXPECT_EQ(log.count("meshManagerD3DX9", "refused: the scene has 3 mesh containers", 3), 3u);
    EXPECT_EQ(log.count("meshManagerD3DX9", "Frame list in k2m is malformed", 2), 1u);
    zeb::Array<zeb::String> twoColons;
    twoColons.append("0:A:B");
    EXPECT_FALSE(manager.parseSkinnedFrameExternalFrame(twoColons));
    EXPECT_TRUE(manager.parseSkinnedFrameExternalFrame(zeb::Array<zeb::String>()));
    EXPECT_EQ(log.count("meshManagerD3DX9", "Frame list is empty in the k2m", 2), 1u);
}

TEST_F(SceneTest, AnimateUpdatesWorldMatricesParentsFirstAndPlacesTheCamera) {
    VirtualRealityDX9 scene;
    ASSERT_TRUE(load(scene));
    FrameNode& root = scene.frameRefByName("Root");
    D3DXMatrixScaling(&root.m_inverseTransform, 7, 7, 7);  // a top-level frame keeps its inverses
    // Tracks run backwards through the 4-second loop: positions 0, -1, -2, -3 read keys at 0, 3, 2, 1.
    for (float lift : {0.0f, 0.75f, 0.5f, 0.25f}) {
        EXPECT_TRUE(scene.animate(lift == 0 ? 0 : 1));
        const FrameNode& bone = scene.frameRefByName("Bone1");
        D3DXMATRIX expected, product;
        D3DXMatrixTranslation(&expected, -0.5f, -1.5f + lift, 0);
        EXPECT_TRUE(same(bone.m_combinedTransform, expected)) << "lift " << lift;
        D3DXMatrixMultiply(&product, &bone.m_combinedTransform, &bone.m_inverseTransform);
        EXPECT_NEAR(product._42, 0.0f, 1e-5);
        EXPECT_NEAR(bone.m_invTransposeTransform._24, bone.m_inverseTransform._42, 1e-6);
    }
    EXPECT_EQ(root.m_inverseTransform._11, 7.0f);
    EXPECT_TRUE(scene.perspectiveViewer().worldPosition() == D3DXVECTOR3(0, 0, -5));
    D3DXMATRIX viewProjection;
    D3DXMatrixMultiply(&viewProjection, &scene.perspectiveViewer().view(), &scene.perspectiveViewer().projection());
    EXPECT_TRUE(viewProjection == scene.perspectiveViewer().viewProjection());

    // The fixed camera and projection, and three grey lights set and switched on.
    ASSERT_TRUE(scene.setupAnimation(device()));
    D3DXMATRIX view, projection;
    device()->GetTransform(D3DTS_VIEW, &view), device()->GetTransform(D3DTS_PROJECTION, &projection);
    EXPECT_NEAR(D3DXMatrixInverse(&view, nullptr, &view)->_43, -30.78054f, 1e-4f);
    EXPECT_TRUE(projection == scene.perspectiveViewer().matrixPerspectiveFovLH());
    ASSERT_EQ(scene.numberOfLights(), 3u);
    for (DWORD i = 0; i < 3; ++i) {
        D3DLIGHT9 light;
        BOOL on = FALSE;
        EXPECT_TRUE(SUCCEEDED(device()->GetLight(i, &light)) && SUCCEEDED(device()->GetLightEnable(i, &on)) && on);
        EXPECT_TRUE(std::memcmp(&light, &scene.light(i), sizeof light) == 0) << i;
    }

    // Without "CameraDummy" the transforms are updated before the look-up fails.
    std::string lone = xHeader() + frame("Lone", translation(0, 0, 0)) +
                       "AnimationSet S { Animation { {Lone} AnimationKey { 2; 1; 0;3;4.0,0.0,0.0;;; } } }\n";
    ASSERT_TRUE(scene.loadVirtualReality("", writeFixture("lone.x", lone).c_str(), device(), zeb::Array<zeb::String>()));
    EXPECT_THROW(scene.animate(0), zeb::HashKeyMissing);
    EXPECT_EQ(scene.frameRefByName("Lone").m_combinedTransform._41, 4.0f);
}

// Under rotations and uneven scales the other orders give other matrices: a frame's world is its own
// matrix, then its parent's world; a bone's is its offset, then its frame's world, on both skin paths.
TEST_F(SceneTest, WorldsTakeTheChildBeforeTheParentAndTheOffsetBeforeTheBone) {
    D3DXMATRIX parent, child, offset, turn;
    D3DXMatrixMultiply(&parent, D3DXMatrixScaling(&parent, 2, 1, 0.5f), D3DXMatrixRotationZ(&turn, 0.5f));
    D3DXMatrixMultiply(&child, D3DXMatrixRotationX(&child, 0.7f), D3DXMatrixScaling(&turn, 1, 3, 1));
    D3DXMatrixMultiply(&offset, D3DXMatrixRotationY(&offset, 0.3f), D3DXMatrixTranslation(&turn, 0, 0, 2));
    parent._41 = 1, child._42 = 2;
    const std::string text = xHeader() + frame("Parent", transform(parent) + frame("Child", transform(child))) +
                             frame("Body", quadMesh("Skin", "", skin({"Child"}, offset)));
    VirtualRealityDX9 scene;
    Effect effect;
    ASSERT_TRUE(scene.loadVirtualReality("", writeFixture("turned.x", text).c_str(), device(), frameList) &&
                effect.load("skinnedMesh.fxo", holder) && scene.meshManager().setSkinEffect(BorrowedEffect(&effect)));
    scene.meshManager().updateTransformation();
    D3DXFRAME* root = scene.frameRoot();
    const D3DXMATRIX world = D3DXFrameFind(root, "Child")->TransformationMatrix * D3DXFrameFind(root, "Parent")->TransformationMatrix;
    const D3DXMATRIX bone = *D3DXFrameFind(root, "Body")->pMeshContainer->pSkinInfo->GetBoneOffsetMatrix(0) * world;
    EXPECT_TRUE(same(scene.frameRefByName("Child").m_combinedTransform, world));
    device()->BeginScene();
    ASSERT_TRUE(scene.renderSkin(device(), false) && scene.meshManager().renderSkin(holder, scene, false, firstPass));
    device()->EndScene();
    D3DXMATRIX fixedFunction;
    zeb::Array<D3DXMATRIX> palette;
    palette.resize(3);
    device()->GetTransform(D3DTS_WORLDMATRIX(0), &fixedFunction);
    ASSERT_TRUE(scene.meshManager().skinnedMesh()[0].vertexBlend()->m_blendMatrices.get(palette));
    EXPECT_TRUE(same(fixedFunction, bone));
    EXPECT_TRUE(same(palette[0], bone));
}

TEST_F(SceneTest, RenderDrawsMaterialsTexturesAndMovesExactlyTheVerticesOfAMovedBone) {
    VirtualRealityDX9 scene;
    ASSERT_TRUE(load(scene));
    ASSERT_TRUE(scene.animate(0));
    for (bool textured : {true, false}) {
        prepare(scene);
        ASSERT_TRUE(scene.render(device(), textured));
        vexilsupport::Image image = finish();
        SCOPED_TRACE(textured ? "textured" : "untextured");
        EXPECT_TRUE(colourAt(image, scene, -1.75f, 0.75f, textured ? kTexture : kWhite));  // Left, face 0
        EXPECT_TRUE(colourAt(image, scene, -2.25f, 1.25f, kGreen));                       // Left, face 1
        EXPECT_TRUE(colourAt(image, scene, 2.25f, 0.75f, textured ? kTexture : kWhite));
        EXPECT_TRUE(colourAt(image, scene, 1.75f, 1.25f, kRed));
        EXPECT_TRUE(colourAt(image, scene, 0.0f, 1.0f, kWhite));  // the missing texture draws untextured
        EXPECT_TRUE(colourAt(image, scene, 2.0f, -1.0f, kBackground));  // StubPart is hidden
        EXPECT_TRUE(colourAt(image, scene, 0.0f, -1.25f, kMagenta));
        EXPECT_TRUE(colourAt(image, scene, 0.0f, -0.25f, kBackground));
    }
    ASSERT_TRUE(scene.animate(1));  // Bone1 and the top edge rise by 0.75; the bottom edge stays
    prepare(scene);
    ASSERT_TRUE(scene.render(device(), true));
    vexilsupport::Image moved = finish();
    EXPECT_TRUE(colourAt(moved, scene, 0.0f, -0.25f, kMagenta));
    EXPECT_TRUE(colourAt(moved, scene, 0.0f, 0.15f, kMagenta));
    EXPECT_TRUE(colourAt(moved, scene, 0.0f, 0.4f, kBackground));
    EXPECT_TRUE(colourAt(moved, scene, 0.0f, -1.6f, kBackground));
    EXPECT_TRUE(colourAt(moved, scene, 0.0f, -1.4f, kMagenta));
}

TEST_F(SceneTest, TheSkinningEffectDrawsTheFixedFunctionSilhouette) {
    vexiltest::LogCapture log;
    VirtualRealityDX9 scene;
    ASSERT_TRUE(load(scene));
    Effect effect;
    ASSERT_TRUE(effect.load("skinnedMesh.fxo", holder));  // compiled beside the test program
    EXPECT_TRUE(scene.meshManager().setSkinEffect(BorrowedEffect(&effect)));
    EXPECT_FALSE(MeshManagerD3DX9().setSkinEffect(BorrowedEffect(&effect))) << "no skinned mesh to take it";
    for (unsigned step : {0u, 1u}) {
        ASSERT_TRUE(scene.animate(step));
        prepare(scene);
        ASSERT_TRUE(scene.renderSkin(device(), true));
        vexilsupport::Image fixedFunction = finish();
        prepare(scene);
        ASSERT_TRUE(scene.meshManager().renderSkin(holder, scene, true, firstPass));
        vexilsupport::Image image = finish();
        long differing = 0;
        for (size_t i = 0; i < image.pixels.size(); ++i) differing += drawn(image.pixels[i]) != drawn(fixedFunction.pixels[i]);
        EXPECT_GT(covered(image), 50) << "step " << step;
        EXPECT_LE(differing, covered(image) / 10) << "step " << step;  // edge pixels may round either way
        auto p = pixelOf(scene, 0.0f, -1.25f);
        EXPECT_EQ((image.at(p.first, p.second) >> 8) & 0xFF, 0u) << "magenta has no green";
    }
    // What the last combination uploaded: two bones, the third slot unused.
    const SkinnedMesh& skinned = scene.meshManager().skinnedMesh()[0];
    zeb::Array<int> indices;
    indices.resize(3);
    ASSERT_TRUE(skinned.vertexBlend()->m_blendIndices.get(indices));
    EXPECT_EQ(std::vector<int>(indices.begin(), indices.end()), (std::vector<int>{0, 1, -1}));
    float power = 0;
    D3DXVECTOR4 diffuse;
    EXPECT_TRUE(skinned.material()->m_specularPower.get(power) && skinned.material()->m_diffuseColor.get(diffuse));
    EXPECT_EQ(power, 90.0f);
    EXPECT_EQ(diffuse, D3DXVECTOR4(1, 0, 1, 1)) << "an untextured combination's own colour";

    firstPass.append(7);  // no such pass: the draw fails and reports a constant
    EXPECT_FALSE(scene.meshManager().renderSkin(holder, scene, true, firstPass));
    EXPECT_EQ(log.count("VexilDX9", "284 Skinned mesh draw subset failed 0x", 3), 1u) << log.dump();
    effect.technique(0).end();

    // A textured skin whose faces take three bones: the palette fills and the texture is drawn.
    std::string normals = "MeshNormals { 1; 0.0;0.0;-1.0;; 2; 3;0,0,0;, 3;0,0,0;; }\n";
    std::string three = xHeader() + frame("B0", frame("B1", frame("B2", ""))) +
                        frame("Body", quadMesh("Skin", materialList({material(1, 1, 1, 1, 1, "tex.png")}, 0, 0),
                                               normals + skin({"B0", "B1", "B2"})));
    ASSERT_TRUE(scene.loadVirtualReality(vexiltest::outputDir().c_str(), writeFixture("three.x", three).c_str(), device(), frameList));
    scene.meshManager().updateTransformation();
    prepare(scene);
    firstPass.removeAt(1);
    ASSERT_TRUE(scene.meshManager().renderSkin(holder, scene, true, firstPass));
    const SkinnedMesh& textured = scene.meshManager().skinnedMesh()[0];
    ASSERT_TRUE(textured.vertexBlend()->m_blendIndices.get(indices));
    EXPECT_EQ(std::vector<int>(indices.begin(), indices.end()), (std::vector<int>{0, 1, 2}));
    auto p = pixelOf(scene, 0.5f, 0.5f);
    uint32_t texel = finish().at(p.first, p.second);
    EXPECT_GT(texel & 0xFF, (texel >> 16) & 0xFF) << std::hex << texel << ": the texture's blue over its red";
}

// An application's reset, cycle after cycle: the scene and the skinning effect let go of the device,
// Reset, the scene is loaded, lit and animated again. Every cycle draws the first pictures of both
// skin paths (under the scene's own lights) and leaves what the first cycle left: device
// references and heap blocks.
TEST_F(SceneTest, ResetCyclesDrawTheFirstPicturesAndLeaveNothingBehind) {
    VirtualRealityDX9 scene;
    Effect effect;
    ASSERT_TRUE(load(scene) && effect.load("skinnedMesh.fxo", holder));
    ASSERT_TRUE(scene.meshManager().setSkinEffect(BorrowedEffect(&effect)));  // once: the reloads keep it
    auto pictures = [&] {
        scene.setupAnimation(device());
        scene.animate(1);
        device()->SetRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
        std::vector<uint32_t> pixels;
        for (bool throughEffect : {false, true}) {
            testDevice().clear(kBackground);
            device()->BeginScene();
            EXPECT_TRUE(throughEffect ? scene.renderRigid(device(), true) && scene.meshManager().renderSkin(holder, scene, true, firstPass)
                                      : scene.render(device(), true));
            const std::vector<uint32_t> image = finish().pixels;
            pixels.insert(pixels.end(), image.begin(), image.end());
        }
        return pixels;
    };
    const std::vector<uint32_t> first = pictures();
    ULONG references = 0;
    std::pair<size_t, size_t> heap;
    for (unsigned cycle = 1; cycle <= vexiltest::resetCycles(); ++cycle) {
        scene.cleanup();
        effect.effect()->OnLostDevice();
        ASSERT_EQ(vexiltest::resetDevice(device()), D3D_OK);
        effect.effect()->OnResetDevice();
        ASSERT_TRUE(scene.reallocateRenderResources(holder, frameList));
        ASSERT_TRUE(pictures() == first) << "cycle " << cycle;
        if (cycle == 1) references = vexiltest::referencesOf(device()), heap = vexiltest::runtimeHeapInUse();
    }
    EXPECT_EQ(vexiltest::referencesOf(device()), references);
    EXPECT_EQ(vexiltest::runtimeHeapInUse(), heap);
}

TEST_F(SceneTest, LoadsLeaveTheSceneWholeOrEmptyAndNothingBehind) {
    vexiltest::LogCapture log;
    AllocationSpy spy;
    ASSERT_TRUE(spy.registered());
    {
        VirtualRealityDX9 scene;
        EXPECT_FALSE(scene.loadVirtualReality("", "", device(), frameList));
        EXPECT_FALSE(scene.loadVirtualReality("", path, nullptr, frameList));
        EXPECT_EQ(log.count("VexilDX9", "Cannot load a file without a filename", 3), 1u);
        EXPECT_EQ(log.count("VexilDX9", "NULL render device not allowed", 3), 1u);
        vexiltest::ImportPatch patch("VexilDX9.dll", "d3dx9_37.dll", "D3DXLoadMeshHierarchyFromXW", reinterpret_cast<void*>(&scriptedLoad));
        ASSERT_TRUE(patch.ok());
        g_realLoad = patch.original();
        g_loadResults = {E_OUTOFMEMORY, D3DERR_INVALIDCALL, E_OUTOFMEMORY};  // the last is followed by a real load
        EXPECT_FALSE(load(scene));
        ASSERT_TRUE(load(scene));
        EXPECT_EQ(log.count("VexilDX9", "D3DXLoadMeshHierarcyFromX runs out of memory", 4), 2u);
        EXPECT_EQ(log.count("VexilDX9", "D3DXLoadMeshHierarcyFromX returned D3DERR_INVALIDCALL", 4), 1u);
        EXPECT_EQ(log.count("VexilDX9", "failed to load " + std::string(path.getUTF8String()) + " -2005530516", 4), 1u);
        ASSERT_TRUE(load(scene));  // a reload lets the indexes go before the first tree
        vexiltest::expectAssertion([&] { scene.renderRigid(nullptr, true); }, 359, "renderDevice != NULL", "VexilDX9/VirtualRealityDX9");
        vexiltest::expectAssertion([&] { scene.meshManager().skinnedMesh()[0].renderSkin(nullptr, scene.meshManager().frameIndex(), true); },
                                   155, "renderDevice != NULL", "VexilDX9/SkinnedMesh");
        // A container that lost its mesh is left out of the drawing.
        ID3DXMesh*& leftMesh = D3DXFrameFind(scene.frameRoot(), "Left")->pMeshContainer->MeshData.pMesh;
        ID3DXMesh* kept = std::exchange(leftMesh, nullptr);
        scene.animate(0);
        prepare(scene);
        EXPECT_TRUE(scene.render(device(), true));
        EXPECT_TRUE(colourAt(finish(), scene, -2.25f, 1.25f, kBackground));
        leftMesh = kept;

        // A skinned mesh that cannot be built without a frame list entry throws; the scene is empty.
        EXPECT_THROW(scene.loadVirtualReality("", path, device(), zeb::Array<zeb::String>()), zeb::IndexOutOfBounds);
        EXPECT_TRUE(!scene.frameRoot() && scene.textureTable().empty() && scene.meshManager().skinnedMesh().empty());
        prepare(scene);
        EXPECT_TRUE(scene.render(device(), true) && scene.renderSkin(device(), true));
        EXPECT_EQ(covered(finish()), 0);
        EXPECT_FALSE(scene.loadVirtualReality("", "nowhere.x", device(), frameList));
        EXPECT_EQ(log.count("VexilDX9", "Switching to system memory", 3), 5u);
        EXPECT_EQ(log.count("VexilDX9", "failed to load nowhere.x", 4), 1u);
        EXPECT_EQ(scene.frameRoot(), nullptr);

        // A skinned mesh without a material list draws in white.
        std::string bare = xHeader() + frame("Bone", quadMesh("Bare", "", skin({"Bone"}))) +
                           frame("Tiled", quadMesh("Tiled", materialList({material(1, 1, 1, 1, 1, "tex.png")}, 0, 0)));
        const std::string barePath = writeFixture("bare.x", bare);
        ASSERT_TRUE(scene.loadVirtualReality(vexiltest::outputDir().c_str(), barePath.c_str(), device(), frameList));
        ASSERT_EQ(scene.meshManager().skinnedMesh().size(), 1u);
        EXPECT_EQ(scene.meshManager().skinnedMesh()[0].boneArrays()[0].material.material.Diffuse.g, 1.0f);
        EXPECT_TRUE(scene.renderSkin(device(), true));
        ASSERT_TRUE(scene.reallocateRenderResources(holder, frameList));
        EXPECT_STREQ(scene.frameRoot()->Name, "dummy_0") << "a reload numbers the nameless frames afresh";
        ASSERT_TRUE(DeleteFileA(barePath.c_str()));  // a scene that can no longer be read leaves nothing
        EXPECT_FALSE(scene.reallocateRenderResources(holder, frameList));
        EXPECT_EQ(log.count("VexilDX9", "Failed to reload virtual reality", 4), 1u);
        EXPECT_EQ(scene.frameRoot(), nullptr);
    }
    EXPECT_EQ(spy.liveBlocks(), 0u);
}
