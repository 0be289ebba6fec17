// Defines the D3DX interface identifiers this test asks for.
#include <initguid.h>

#include <d3dx9.h>
#include <gtest/gtest.h>

#include "TestDevice.h"
#include "TestHierarchy.h"
#include "TestPaths.h"
#include "XFixtures.h"

#include <cstring>
#include <fstream>
#include <string>

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

double period(ID3DXAnimationController* controller, UINT index)
{
    Ref<ID3DXAnimationSet> set;
    EXPECT_EQ(S_OK, controller->GetAnimationSet(index, set.out()));
    return set ? set->GetPeriod() : -1;
}

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
    EXPECT_DOUBLE_EQ(2.0, period(scene.controller, 0));
    EXPECT_DOUBLE_EQ(3.0, period(scene.controller, 1));

    const D3DXMATRIX& arm = scene.frame("Arm")->TransformationMatrix;
    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(arm, srtMatrix({1.5f, 1, 1}, kY, 45, {5, 10, 0})));
    EXPECT_TRUE(matrixNear(scene.frame("Root")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {0, 0, 10})));

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

    LoadedScene missing(device(), vexiltest::FromFile{vexiltest::outputDir() + "\\no-such-file.x"});
    EXPECT_TRUE(FAILED(missing.result));
    EXPECT_EQ(nullptr, missing.controller);
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
                 {"compressed text in whole 32 KB chunks", compressed(waveFile() + std::string(40000, ' ')), 2, 2.0, 0, 5},
                 {"compressed binary", compressed(binarySkinnedScene()), 1, 1.0, 1, 5}};
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        LoadedScene scene(device(), test.file);
        ASSERT_EQ(S_OK, scene.result);
        EXPECT_EQ(test.skinned, scene.allocator.skinnedContainers);
        ASSERT_NE(nullptr, scene.controller);
        EXPECT_EQ(test.sets, scene.controller->GetNumAnimationSets());
        EXPECT_DOUBLE_EQ(test.period, period(scene.controller, 0));
        if (!test.armX)
            continue;
        ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
        const D3DXMATRIX& arm = scene.frame("Arm")->TransformationMatrix;
        EXPECT_TRUE(arm._41 == test.armX && arm._42 == 2 * test.armX && arm._43 == 0);
    }
    LoadedScene still(device(), textFile({kFrames}));
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
        EXPECT_EQ(DWORD(test.skinned), scene.allocator.bonesSeen);
        ASSERT_NE(nullptr, scene.controller);
        ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
        EXPECT_FLOAT_EQ(test.height, scene.frame(test.animated)->TransformationMatrix._42);
        D3DXFrameDestroy(scene.root, &scene.allocator);
        scene.root = nullptr;
        if (test.skinned) {
            EXPECT_EQ(0u, scene.allocator.skinReferencesLeft);
        }
    }
    // A frame inside an animation set naming the mesh too: the set goes with what it holds.
    LoadedScene odd(device(), textFile({kReferencedCube, "AnimationSet Odd { Animation { Frame F { {CubeMesh} } } }"}));
    EXPECT_EQ(S_OK, odd.result);
}

std::string nested(const std::string& open, const std::string& close, int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += open;
    for (int i = 0; i < depth; ++i)
        text += close;
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
        LoadedScene scene(device(), test.file);
        EXPECT_EQ(D3DXERR_INVALIDDATA, scene.result) << test.what;
        EXPECT_EQ(nullptr, scene.controller) << test.what;
        EXPECT_EQ(0, scene.allocator.framesCreated) << test.what;
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

// A file the drop-in reads but the system loader refuses part-way is loaded once: the caller's
// allocator sees each frame made (and destroyed) once.
TEST_F(XAnimationLoad, FailedLoadIsNotRepeated)
{
    const char* const badFace = R"(
Frame Outer { Frame Inner {
  Mesh Bad { 3; 0.0;0.0;0.0;, 1.0;0.0;0.0;, 0.0;1.0;0.0;; 1; 3;0,1,7;; }
} }
)";
    LoadedScene scene(device(), textFile({badFace}));
    ASSERT_TRUE(FAILED(scene.result));
    EXPECT_EQ(2, scene.allocator.framesCreated) << "Outer and Inner, once";
}

// D3DXLoadSkinMeshFromXof hands out the completed skin info.
TEST_F(XAnimationLoad, SkinMeshFromAnOpenFileHasCompletedSkinInfo)
{
    // Wine's file reader knows no template of its own; the skin ones build on these.
    const std::string templates = textFile({R"(
template Vector { <3D82AB5E-62DA-11cf-AB39-0020AF71E433> FLOAT x; FLOAT y; FLOAT z; }
template Matrix4x4 { <F6F23F45-7686-11cf-8F52-0040333594A3> array FLOAT matrix[16]; }
template MeshFace { <3D82AB5F-62DA-11cf-AB39-0020AF71E433> DWORD nFaceVertexIndices; array DWORD faceVertexIndices[nFaceVertexIndices]; }
template Mesh { <3D82AB44-62DA-11cf-AB39-0020AF71E433> DWORD nVertices; array Vector vertices[nVertices]; DWORD nFaces; array MeshFace faces[nFaces]; [...] }
)"});
    const std::string file = textFile({R"(
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
    ASSERT_EQ(S_OK, xfile->RegisterTemplates(templates.data(), templates.size()));
    ASSERT_EQ(S_OK, xfile->RegisterTemplates(XSKINEXP_TEMPLATES, sizeof XSKINEXP_TEMPLATES - 1));
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

}  // namespace
