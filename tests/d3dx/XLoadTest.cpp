// What the drop-in D3DX completes around X files: animation sets, damaged files, material lists,
// the frame utilities and mesh concatenation.

// Defines the D3DX interface identifiers this test asks for.
#include <initguid.h>

#include <d3dx9.h>
#include <gtest/gtest.h>

#include "TestDevice.h"
#include "TestHierarchy.h"
#include "TestPaths.h"
#include "XFixtures.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

using namespace xfixtures;
using vexiltest::LoadedScene;
using vexiltest::matrixNear;
using vexiltest::Ref;
using vexiltest::srtMatrix;

const D3DXVECTOR3 kY(0, 1, 0);
const int kDeepest = 4096;          // frames nested in one another
const size_t kLongestName = 99;     // bytes of a name or string
const std::string kTenTicks = "# a comment { with a brace\n// and another\nAnimTicksPerSecond { 10; }\n";

std::string waveFile(const std::string& ticks = kTenTicks)
{
    return textFile({ticks, kFrames, kWaveAndIdle});
}

class XAnimationLoad : public vexiltest::DeviceTest {};

// Read from a file (memory is what every other test reads from). The open "Idle" plays once.
TEST_F(XAnimationLoad, BuildsSetsOutputsAndKeysOfEveryType)
{
    const std::string path = vexiltest::outputDir() + "\\wave.x";
    ASSERT_TRUE(std::ofstream(path, std::ios::binary) << waveFile());
    LoadedScene scene(device(), vexiltest::FromFile{path});
    ASSERT_EQ(S_OK, scene.result);
    ASSERT_NE(nullptr, scene.controller);
    ASSERT_EQ(2u, scene.controller->GetNumAnimationSets());
    EXPECT_EQ(2u, scene.controller->GetMaxNumAnimationOutputs()) << "Arm and Root; Still is not animated";
    EXPECT_EQ(2u, scene.controller->GetMaxNumTracks());

    const D3DXMATRIX& arm = scene.frame("Arm")->TransformationMatrix;
    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.25, nullptr));
    EXPECT_TRUE(matrixNear(arm, srtMatrix({1.25f, 1, 1}, kY, 22.5f, {2.5f, 5, 0})));
    EXPECT_TRUE(matrixNear(scene.frame("Root")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {0, 0, 5})));

    Ref<ID3DXAnimationSet> wave, idle;
    ASSERT_EQ(S_OK, scene.controller->GetTrackAnimationSet(0, wave.out()));
    ASSERT_EQ(S_OK, scene.controller->GetAnimationSetByName("Idle", idle.out()));
    EXPECT_STREQ("Wave", wave->GetName());
    ASSERT_EQ(S_OK, scene.controller->SetTrackAnimationSet(0, idle.get()));
    ASSERT_EQ(S_OK, scene.controller->SetTrackPosition(0, 0.0));
    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(1.5, nullptr));
    EXPECT_TRUE(matrixNear(arm, srtMatrix({1, 1, 1}, kY, 0, {2.5f, 1, 1})));
    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(10.0, nullptr));
    EXPECT_TRUE(matrixNear(arm, srtMatrix({1, 1, 1}, kY, 0, {4, 1, 1})));
}

// The binary encoding and both encodings compressed (inflated by the drop-in) read as the text
// does; the tick rate is 4800 when absent or 0.
TEST_F(XAnimationLoad, EveryEncodingAndTickRateReadsAlike)
{
    const struct {
        const char* what;
        std::string file;
        UINT sets;
        double period;
        int skinned;
        float armX;  // Arm's x after half a second, y twice that; 0: not checked
    } cases[] = {{"no tick rate", waveFile(""), 2, 20.0 / 4800.0, 0, 0},
                 {"a tick rate of 0", waveFile("AnimTicksPerSecond { 0; }\n"), 2, 20.0 / 4800.0, 0, 0},
                 {"binary", binarySkinnedScene(), 1, 1.0, 1, 5},
                 {"compressed text in 100-byte chunks", compressed(waveFile(), 100), 2, 2.0, 0, 5},
                 {"compressed text in whole 32 KB chunks", compressed(waveFile() + std::string(40000, ' ')), 2, 2.0, 0, 5}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        LoadedScene scene(device(), test.file);
        ASSERT_EQ(S_OK, scene.result);
        EXPECT_EQ(test.skinned, scene.allocator.skinnedContainers);
        ASSERT_NE(nullptr, scene.controller);
        EXPECT_EQ(test.sets, scene.controller->GetNumAnimationSets());
        Ref<ID3DXAnimationSet> first;
        ASSERT_EQ(S_OK, scene.controller->GetAnimationSet(0, first.out()));
        EXPECT_DOUBLE_EQ(test.period, first->GetPeriod());
        if (!test.armX)
            continue;
        ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
        const D3DXMATRIX& arm = scene.frame("Arm")->TransformationMatrix;
        EXPECT_TRUE(arm._41 == test.armX && arm._42 == 2 * test.armX && arm._43 == 0);
    }
    LoadedScene still(device(), textFile({kFrames, "Frame 2nd {}\n"}));  // a name may start with a digit
    ASSERT_EQ(S_OK, still.result);
    EXPECT_EQ(nullptr, still.controller) << "no animation set, no controller";
}

// Keys naming a frame that does not exist, empty key lists, keys out of order, keys with one
// value too few or too many.
TEST_F(XAnimationLoad, BadAnimationDataLoadsWhatIsUsable)
{
    const char* const body = R"(
AnimationSet Broken {
  Animation { { Ghost } AnimationKey { 2; 1; 0;3;5.0,5.0,5.0;;; } }
  Animation { { Arm } AnimationKey { 2; 2; 10;3;10.0,20.0,0.0;;, 0;3;0.0,0.0,0.0;;; } AnimationKey { 1; 2; 0;2;9.0,9.0;;, 0;4;9.0,9.0,9.0,9.0;;; } }
  Animation { { Still } AnimationKey { 0; 0; } }
  Animation { AnimationKey { 2; 1; 0;3;1.0,1.0,1.0;;; } }
}
AnimationSet Haunted { Animation { { Ghost } AnimationKey { 2; 1; 0;3;5.0,5.0,5.0;;; } } }
)";
    LoadedScene scene(device(), textFile({kTenTicks, kFrames, body}));
    ASSERT_EQ(S_OK, scene.result);
    ASSERT_NE(nullptr, scene.controller);
    EXPECT_EQ(2u, scene.controller->GetMaxNumAnimationOutputs()) << "Ghost has no frame to drive";
    EXPECT_EQ(2u, scene.controller->GetNumAnimationSets()) << "a set driving nothing is still a set";
    Ref<ID3DXAnimationSet> set;
    ASSERT_EQ(S_OK, scene.controller->GetAnimationSet(0, set.out()));
    EXPECT_EQ(3u, set->GetNumAnimations()) << "the animation naming no frame is dropped";

    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(scene.frame("Arm")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {5, 10, 0})));
    EXPECT_TRUE(matrixNear(scene.frame("Still")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {0, 0, 0})))
        << "no keys: rests at identity";
}

// A skinned triangle whose file declares none of the skin templates, and a frame naming a
// top-level mesh, which it holds once. A skin's mesh container holds the only reference left to
// the skin info once loading is over.
TEST_F(XAnimationLoad, UndeclaredSkinTemplatesAndReferencedMeshesLoad)
{
    const struct {
        const char* file;
        const char *meshFrame, *animated;
        int skinned;
        float height;
    } cases[] = {{kSkinnedTriangle, "Body", "Bone", 1, 1.0f}, {kReferencedCube, "CubeFrame", "CubeFrame", 0, 1.5f}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.meshFrame);
        LoadedScene scene(device(), textFile({test.file}));
        ASSERT_EQ(S_OK, scene.result);
        ASSERT_NE(nullptr, scene.frame(test.meshFrame)->pMeshContainer);
        EXPECT_EQ(1, scene.allocator.meshContainers);
        EXPECT_EQ(test.skinned, scene.allocator.skinnedContainers);
        ASSERT_NE(nullptr, scene.controller);
        ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
        EXPECT_FLOAT_EQ(test.height, scene.frame(test.animated)->TransformationMatrix._42);
        D3DXFrameDestroy(scene.root, &scene.allocator);
        scene.root = nullptr;
        if (test.skinned) {
            EXPECT_EQ(0u, scene.allocator.skinReferencesLeft);
        }
    }
}

std::string nested(const std::string& open, const std::string& close, int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
        text.insert(i * open.size(), open + close);
    return text;
}

template <class T>
std::string patched(std::string file, size_t at, T value)
{
    std::memcpy(&file[at], &value, sizeof value);
    return file;
}

// Reproducers of damaged files that crashed or hung the system loader: each is refused before
// it gets there, with no frame made.
TEST_F(XAnimationLoad, DamagedFilesAreRefusedCleanly)
{
    const std::string text = waveFile();
    const std::string binary = binarySkinnedScene();
    const std::string packed = compressed(text, 100);
    const size_t firstData = 16 + 4 + 4 + 2;  // header, plain size, chunk sizes, "CK"
    const BinaryX deepFrame = BinaryX().name("Frame").open();
    const struct {
        const char* what;
        std::string file;
    } cases[] = {
        {"text cut short inside an object", text.substr(0, text.size() - 10)},
        {"text nested a frame deeper than the limit", textFile({nested("Frame f {\n", "}\n", kDeepest + 1)})},
        {"binary nested a frame deeper than the limit",
         "xof 0303bin 0032" + nested(deepFrame.bytes().substr(16), std::string("\x0b\0", 2), kDeepest + 1)},
        {"binary with an unknown token", patched(binary, binary.size() - 2, char(0x7f))},
        {"binary cut inside a float list", binary.substr(0, binary.size() / 2)},
        {"compressed, first 28 bytes only", packed.substr(0, 28)},
        {"compressed with a chunk larger than the file", patched(packed, 16 + 4, 0xFFFF0100u)},
        {"compressed with a damaged deflate stream", patched(packed, firstData + 3, char(packed[firstData + 3] ^ 0x55))},
        {"compressed with a plain size a byte short", patched(packed, 16, uint32_t(text.size() - 1))},
        {"compressed with a plain size a byte long", patched(packed, 16, uint32_t(text.size() + 1))},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(D3DXERR_INVALIDDATA, LoadedScene(device(), test.file).result) << test.what;
    }
    LoadedScene deepest(device(), textFile({nested("Frame f {\n", "}\n", kDeepest)}));
    EXPECT_NE(D3DXERR_INVALIDDATA, deepest.result) << "as deep as the limit: Wine's loader decides";
}

// Names and strings of the longest length taken go on to Wine's loader (which loads such strings
// but refuses names past 40-odd bytes itself), in either encoding; a byte more is refused here.
TEST_F(XAnimationLoad, NamesAndStringsUpToTheLongestLengthGoOn)
{
    for (size_t length : {kLongestName, kLongestName + 1}) {
        const std::string text(length, 'n');
        const std::string files[] = {
            textFile({"Frame " + text + " {}\n"}), textFile({"Frame F {}\nTextureFilename { \"" + text + "\"; }\n"}),
            BinaryX().object("Frame", "F").close().object("TextureFilename").string(text).close().bytes()};
        for (const std::string& file : files) {
            LoadedScene scene(device(), file);
            EXPECT_EQ(length > kLongestName, scene.result == D3DXERR_INVALIDDATA) << length << " bytes, file " << &file - files;
        }
    }
}

// D3DXLoadSkinMeshFromXof hands out the completed skin info.
TEST_F(XAnimationLoad, SkinMeshFromAnOpenFileHasCompletedSkinInfo)
{
    // Wine's file reader knows no template of its own: the file declares the ones it uses.
    const std::string file = textFile({R"(
template Vector { <3D82AB5E-62DA-11cf-AB39-0020AF71E433> FLOAT x; FLOAT y; FLOAT z; }
template Matrix4x4 { <F6F23F45-7686-11cf-8F52-0040333594A3> array FLOAT matrix[16]; }
template MeshFace { <3D82AB5F-62DA-11cf-AB39-0020AF71E433> DWORD nFaceVertexIndices; array DWORD faceVertexIndices[nFaceVertexIndices]; }
template Mesh { <3D82AB44-62DA-11cf-AB39-0020AF71E433> DWORD nVertices; array Vector vertices[nVertices]; DWORD nFaces; array MeshFace faces[nFaces]; [...] }
)", std::string(XSKINEXP_TEMPLATES).substr(16), R"(
Mesh Triangle {
  3; 0.0;0.0;0.0;, 1.0;0.0;0.0;, 0.0;1.0;0.0;;
  1; 3;0,1,2;;
  XSkinMeshHeader { 2; 2; 2; }
  SkinWeights { "A"; 3; 0,1,2; 0.5,0.5,1.0; 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
  SkinWeights { "B"; 2; 0,1; 0.5,0.5; 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
}
)"});
    Ref<ID3DXFile> xfile;
    ASSERT_EQ(S_OK, D3DXFileCreate(xfile.out()));
    D3DXF_FILELOADMEMORY memory = {file.data(), file.size()};
    Ref<ID3DXFileEnumObject> objects;
    ASSERT_EQ(S_OK, xfile->CreateEnumObject(&memory, D3DXF_FILELOAD_FROMMEMORY, objects.out()));
    Ref<ID3DXFileData> mesh;
    ASSERT_EQ(S_OK, objects->GetChild(0, mesh.out()));
    Ref<ID3DXSkinInfo> skin;
    Ref<ID3DXMesh> loaded;
    ASSERT_EQ(S_OK, D3DXLoadSkinMeshFromXof(mesh.get(), D3DXMESH_SYSTEMMEM, device(), nullptr, nullptr, nullptr,
                                            nullptr, skin.out(), loaded.out()));
    ASSERT_TRUE(skin);
    DWORD influences = 0;
    EXPECT_EQ(S_OK, skin->GetMaxVertexInfluences(&influences));
    EXPECT_EQ(2u, influences);
    EXPECT_EQ(0u, skin.releaseCount());
}

class XMeshLoad : public vexiltest::DeviceTest {};

// The material of each quad of the strip, told by its vertices (quad i has 2i to 2i + 3; the loader
// sorts faces by material); 99 for a quad whose two triangles differ.
std::vector<DWORD> quadMaterials(ID3DXMesh* mesh)
{
    DWORD* attributes = nullptr;
    WORD* indices = nullptr;
    std::vector<DWORD> quads(mesh->GetNumFaces() / 2, 98);
    if (FAILED(mesh->LockAttributeBuffer(D3DLOCK_READONLY, &attributes)) ||
        FAILED(mesh->LockIndexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&indices))))
        return {};
    for (DWORD face = 0; face < mesh->GetNumFaces(); ++face) {
        DWORD& quad = quads.at(*std::min_element(indices + 3 * face, indices + 3 * face + 3) / 2);
        quad = quad == 98 || quad == attributes[face] ? attributes[face] : 99;
    }
    mesh->UnlockIndexBuffer();
    mesh->UnlockAttributeBuffer();
    return quads;
}

// Short and long material lists read as Microsoft's loader reads them, in every encoding and
// with the mesh inside its frame or named by it from the top level.
TEST_F(XMeshLoad, ShortMaterialListsGiveTheLastIndexToTheRemainingFaces)
{
    const struct {
        const char* what;
        std::vector<uint32_t> listed;
        std::vector<DWORD> expected;  // of the 4 quads
    } lists[] = {{"one index", {1}, {1, 1, 1, 1}},
                 {"one fewer than faces", {0, 0, 1}, {0, 0, 1, 1}},
                 {"one a face", {1, 0, 1, 0}, {1, 0, 1, 0}},
                 {"one more than faces", {0, 1, 1, 0, 1}, {0, 1, 1, 0}},
                 {"none", {}, {0, 0, 0, 0}}};
    for (const auto& list : lists) {
        for (int variant = 0; variant < 6; ++variant) {
            const bool binary = variant % 2, packed = variant / 2 == 1, referenced = variant / 2 == 2;
            SCOPED_TRACE(std::string(list.what) + (binary ? ", binary" : ", text") + (packed ? ", compressed" : "") +
                         (referenced ? ", referenced" : ""));
            const std::string plain = materialListFile(4, list.listed, binary, referenced);
            LoadedScene scene(device(), packed ? compressed(plain, 64) : plain);
            ASSERT_EQ(S_OK, scene.result);
            const D3DXMESHCONTAINER* container = scene.frame("Strip")->pMeshContainer;
            ASSERT_NE(nullptr, container);
            EXPECT_EQ(2u, container->NumMaterials);
            EXPECT_EQ(list.expected, quadMaterials(container->MeshData.pMesh));
        }
    }
}

// Root turned a quarter about z and moved to x = 10 holds Big (stretched 2 along x, moved 3
// along x) with the six points at unit distance on the axes, and Small (moved -6 along x) with
// the points 0, 3 and 6 of its y axis and an unnamed frame. In the world Big's points lie around
// (10, 3, 0), out to (10, 5, 0); Small's at (10, -6, 0), (7, -6, 0) and (4, -6, 0).
const char* const kTwoBalls = R"(
Frame Root {
  FrameTransformMatrix { 0.0,1.0,0.0,0.0,-1.0,0.0,0.0,0.0,0.0,0.0,1.0,0.0,10.0,0.0,0.0,1.0;; }
  Frame Big {
    FrameTransformMatrix { 2.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,3.0,0.0,0.0,1.0;; }
    Mesh { 6; 1.0;0.0;0.0;, -1.0;0.0;0.0;, 0.0;1.0;0.0;, 0.0;-1.0;0.0;, 0.0;0.0;1.0;, 0.0;0.0;-1.0;;
           2; 3;0,2,4;, 3;1,3,5;; }
  }
  Frame Small {
    FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,-6.0,0.0,0.0,1.0;; }
    Mesh { 3; 0.0;0.0;0.0;, 0.0;3.0;0.0;, 0.0;6.0;0.0;; 1; 3;0,1,2;; }
    Frame { FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; } }
  }
}
)";

// The sphere holds every vertex where its frame and then the frame's parents place it: centred
// on the mean of the nine, (9, 0, 0), out to Small's farthest one.
TEST_F(XMeshLoad, FrameUtilitiesMeasureCountAndRegisterTheHierarchy)
{
    LoadedScene scene(device(), textFile({kTwoBalls}));
    ASSERT_EQ(S_OK, scene.result);
    D3DXVECTOR3 center;
    float radius = 0;
    ASSERT_EQ(D3D_OK, D3DXFrameCalculateBoundingSphere(scene.root, &center, &radius));
    EXPECT_NEAR(9, center.x, 1e-5);
    EXPECT_NEAR(0, std::fabs(center.y) + std::fabs(center.z), 1e-5);
    EXPECT_NEAR(std::sqrt(61.0f), radius, 1e-5);

    EXPECT_EQ(3u, D3DXFrameNumNamedMatrices(scene.root)) << "the unnamed frame does not count";
    D3DXFRAME* leaf = nullptr;
    ASSERT_EQ(S_OK, scene.allocator.CreateFrame("Leaf", &leaf));
    ASSERT_EQ(D3D_OK, D3DXFrameAppendChild(scene.root, leaf));
    EXPECT_EQ(leaf, scene.frame("Small")->pFrameSibling) << "after Root's last child";

    // Registered outputs are what a keyframed set drives, the set put on its track before or
    // after; a controller too small refuses the rest.
    Ref<ID3DXAnimationController> small, controller;
    ASSERT_EQ(D3D_OK, D3DXCreateAnimationController(2, 1, 1, 1, small.out()));
    EXPECT_EQ(D3DERR_INVALIDCALL, D3DXFrameRegisterNamedMatrices(scene.root, small.get()));
    ASSERT_EQ(D3D_OK, D3DXCreateAnimationController(4, 1, 1, 1, controller.out()));
    Ref<ID3DXKeyframedAnimationSet> set;
    const D3DXKEY_VECTOR3 keys[2] = {{0, D3DXVECTOR3(0, 0, 0)}, {1, D3DXVECTOR3(0, 8, 0)}};
    ASSERT_EQ(D3D_OK, D3DXCreateKeyframedAnimationSet("Lift", 1, D3DXPLAY_ONCE, 1, 0, nullptr, set.out()));
    ASSERT_EQ(D3D_OK, set->RegisterAnimationSRTKeys("Leaf", 0, 0, 2, nullptr, nullptr, keys, nullptr));
    ASSERT_EQ(D3D_OK, controller->RegisterAnimationSet(set.get()));
    ASSERT_EQ(D3D_OK, controller->SetTrackAnimationSet(0, set.get()));
    ASSERT_EQ(D3D_OK, D3DXFrameRegisterNamedMatrices(scene.root, controller.get()));
    ASSERT_EQ(D3D_OK, controller->AdvanceTime(0.5, nullptr));
    EXPECT_FLOAT_EQ(4, leaf->TransformationMatrix._42);
}

float distance(const float* point, const D3DXVECTOR3& expected)
{
    const D3DXVECTOR3 offset = *reinterpret_cast<const D3DXVECTOR3*>(point) - expected;
    return D3DXVec3Length(&offset);
}

// A unit quad with texture coordinates whose one-index material list puts both triangles in
// material 1 (read by the single-mesh loader).
const char* const kQuad = R"(
Mesh { 4; 0.0;0.0;0.0;, 1.0;0.0;0.0;, 1.0;1.0;0.0;, 0.0;1.0;0.0;; 2; 3;0,1,2;, 3;0,2,3;;
  MeshTextureCoords { 4; 0.0;0.0;, 1.0;0.0;, 1.0;1.0;, 0.0;1.0;; }
  MeshMaterialList { 2; 1; 1;; Material { 1.0;0.0;0.0;1.0;; 0.0; 0.0;0.0;0.0;; 0.0;0.0;0.0;; }
                               Material { 0.0;0.0;1.0;1.0;; 0.0; 0.0;0.0;0.0;; 0.0;0.0;0.0;; } }
}
)";

// A box (position, normal; material 0) turned and then stretched along y, and the quad moved 5
// along x, its coordinates scaled by 2: one mesh holding both, the quad's indices after the box's
// vertices, the declaration the union of theirs, both attribute tables.
TEST_F(XMeshLoad, ConcatenatedMeshesKeepEveryVertexFaceAndMaterial)
{
    Ref<ID3DXMesh> box, quad, joined;
    const std::string quadFile = textFile({kQuad});
    ASSERT_EQ(D3D_OK, D3DXCreateBox(device(), 2, 2, 2, box.out(), nullptr));
    ASSERT_EQ(D3D_OK, D3DXLoadMeshFromXInMemory(quadFile.data(), DWORD(quadFile.size()), D3DXMESH_SYSTEMMEM, device(),
                                                nullptr, nullptr, nullptr, nullptr, quad.out()));
    float* v = nullptr;
    float boxCorner[6];  // position and normal of the box's first vertex
    box->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&v));
    std::copy(v, v + 6, boxCorner);
    box->UnlockVertexBuffer();

    ID3DXMesh* both[2] = {box.get(), quad.get()};
    D3DXMATRIX geometry[2], texture[2], turn, stretch;
    D3DXMatrixRotationYawPitchRoll(&turn, 0.5f, 0.5f, 0.5f);
    D3DXMatrixMultiply(&geometry[0], &turn, D3DXMatrixScaling(&stretch, 1, 2, 1));
    D3DXMatrixTranslation(&geometry[1], 5, 0, 0);
    D3DXMatrixScaling(&texture[1], 2, 2, 1);
    D3DXMatrixIdentity(&texture[0]);
    ASSERT_EQ(D3D_OK, D3DXConcatenateMeshes(both, 2, D3DXMESH_SYSTEMMEM, geometry, texture, nullptr, device(),
                                            joined.out()));
    ASSERT_EQ(28u, joined->GetNumVertices());
    ASSERT_EQ(14u, joined->GetNumFaces());
    EXPECT_EQ(D3DFVF_XYZ | D3DFVF_NORMAL | D3DFVF_TEX1, joined->GetFVF());
    joined->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&v));
    const float* corner = v + 8 * 26;  // the quad's (1, 1): x, y, z, normal, u, v
    EXPECT_TRUE(corner[0] == 6 && corner[1] == 1 && corner[6] == 2 && corner[7] == 2);
    // A normal goes by the inverse transpose: turned, then divided by the stretch, then made unit.
    D3DXVECTOR3 position, normal;
    D3DXVec3TransformCoord(&position, reinterpret_cast<const D3DXVECTOR3*>(boxCorner), &geometry[0]);
    D3DXVec3TransformNormal(&normal, reinterpret_cast<const D3DXVECTOR3*>(boxCorner + 3), &turn);
    normal.y /= 2;
    D3DXVec3Normalize(&normal, &normal);
    EXPECT_LT(distance(v, position), 1e-5f);
    EXPECT_LT(distance(v + 3, normal), 1e-5f);
    joined->UnlockVertexBuffer();
    D3DXATTRIBUTERANGE table[2] = {};
    DWORD entries = 2;
    ASSERT_EQ(D3D_OK, joined->GetAttributeTable(table, &entries));
    ASSERT_EQ(2u, entries);
    EXPECT_TRUE(table[1].AttribId == 1 && table[1].FaceStart == 12 && table[1].VertexStart == 24 &&
                table[1].VertexCount == 4);
}

}  // namespace
