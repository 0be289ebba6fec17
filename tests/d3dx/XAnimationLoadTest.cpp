// Defines the D3DX interface identifiers this test asks for.
#include <initguid.h>

#include <d3dx9.h>
#include <gtest/gtest.h>

#include "TestDevice.h"
#include "TestHierarchy.h"
#include "TestPaths.h"

#include <cstdio>
#include <string>

namespace {

using vexiltest::LoadedScene;
using vexiltest::matrixNear;
using vexiltest::srtMatrix;

const D3DXVECTOR3 kY(0, 1, 0);

// Fixtures write floats with a decimal point: Wine reads "1" as an integer where a float is due.
const char* const kFrames = R"(
Frame Root {
  FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
  Frame Arm {
    FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,7.0,8.0,9.0,1.0;; }
  }
  Frame Still {
    FrameTransformMatrix { 2.0,0.0,0.0,0.0,0.0,2.0,0.0,0.0,0.0,0.0,2.0,0.0,1.0,2.0,3.0,1.0;; }
  }
}
)";

// "Wave": Arm by position (type 2), scale (type 1) and rotation (type 0) keys, Root by matrix
// keys (type 4). The file stores rotations as w, x, y, z of the inverse rotation: a turn of
// +90 degrees about Y, as D3DX matrices apply it, is written 0.7071068, 0, -0.7071068, 0.
// "Idle": open (played once), 3 seconds at 10 ticks per second.
const char* const kWaveAndIdle = R"(
AnimationSet Wave {
  Animation Anim-Arm {
    { Arm }
    AnimationKey pos { 2; 2; 0;3;0.0,0.0,0.0;;, 10;3;10.0,20.0,0.0;;; }
    AnimationKey { 1; 2; 0;3;1.0,1.0,1.0;;, 20;3;3.0,1.0,1.0;;; }
    AnimationKey { 0; 2; 0;4;1.0,0.0,0.0,0.0;;, 10;4;0.7071068,0.0,-0.7071068,0.0;;; }
  }
  Animation {
    { Root }
    AnimationKey { 4; 2; 0;16;1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;;, 20;16;1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,40.0,1.0;;; }
  }
}
AnimationSet Idle {
  Animation {
    AnimationOptions { 1; 0; }
    { Arm }
    AnimationKey { 2; 2; 0;3;1.0,1.0,1.0;;, 30;3;4.0,1.0,1.0;;; }
  }
}
)";

std::string xFile(const std::string& ticks, const std::string& body)
{
    return "xof 0303txt 0032\n" + ticks + kFrames + body;
}

const std::string kTenTicks = "AnimTicksPerSecond { 10; }\n";

class XAnimationLoad : public vexiltest::DeviceTest {
protected:
    double period(ID3DXAnimationController* controller, UINT index)
    {
        ID3DXAnimationSet* set = nullptr;
        EXPECT_EQ(S_OK, controller->GetAnimationSet(index, &set));
        if (!set)
            return -1;
        double seconds = set->GetPeriod();
        set->Release();
        return seconds;
    }
};

TEST_F(XAnimationLoad, BuildsSetsOutputsAndKeysOfEveryType)
{
    LoadedScene scene;
    vexiltest::loadFromText(scene, device(), xFile(kTenTicks, kWaveAndIdle));
    ASSERT_EQ(S_OK, scene.result);
    ASSERT_NE(nullptr, scene.controller);
    ASSERT_EQ(2u, scene.controller->GetNumAnimationSets());
    EXPECT_EQ(2u, scene.controller->GetMaxNumAnimationOutputs()) << "Arm and Root; Still is not animated";
    EXPECT_DOUBLE_EQ(2.0, period(scene.controller, 0));
    EXPECT_DOUBLE_EQ(3.0, period(scene.controller, 1));

    ID3DXAnimationSet* first = nullptr;
    ASSERT_EQ(S_OK, scene.controller->GetTrackAnimationSet(0, &first));
    ASSERT_NE(nullptr, first);
    EXPECT_STREQ("Wave", first->GetName());
    first->Release();

    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(scene.frame("Arm")->TransformationMatrix, srtMatrix({1.5f, 1, 1}, kY, 45, {5, 10, 0})));
    EXPECT_TRUE(matrixNear(scene.frame("Root")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {0, 0, 10})));
    D3DXMATRIX still;
    D3DXMatrixScaling(&still, 2, 2, 2);
    still._41 = 1;
    still._42 = 2;
    still._43 = 3;
    EXPECT_TRUE(matrixNear(scene.frame("Still")->TransformationMatrix, still));

    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(2.0, nullptr));  // 2.5 s loops to 0.5 s
    EXPECT_TRUE(matrixNear(scene.frame("Arm")->TransformationMatrix, srtMatrix({1.5f, 1, 1}, kY, 45, {5, 10, 0})));
}

TEST_F(XAnimationLoad, OpenAnimationsPlayOnceAndSetsCanSwapTracks)
{
    LoadedScene scene;
    vexiltest::loadFromText(scene, device(), xFile(kTenTicks, kWaveAndIdle));
    ASSERT_NE(nullptr, scene.controller);
    ID3DXAnimationSet* idle = nullptr;
    ASSERT_EQ(S_OK, scene.controller->GetAnimationSetByName("Idle", &idle));
    EXPECT_DOUBLE_EQ(3.0, idle->GetPeriodicPosition(10.0));
    ASSERT_EQ(S_OK, scene.controller->SetTrackAnimationSet(0, idle));
    idle->Release();
    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(1.5, nullptr));
    EXPECT_TRUE(matrixNear(scene.frame("Arm")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {2.5f, 1, 1})));
    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(10.0, nullptr));
    EXPECT_TRUE(matrixNear(scene.frame("Arm")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {4, 1, 1})));
}

TEST_F(XAnimationLoad, TicksPerSecondDefaultTo4800WhenAbsentOrZero)
{
    for (const std::string& ticks : {std::string(), std::string("AnimTicksPerSecond { 0; }\n")}) {
        LoadedScene scene;
        vexiltest::loadFromText(scene, device(), xFile(ticks, kWaveAndIdle));
        ASSERT_EQ(S_OK, scene.result) << ticks;
        ASSERT_NE(nullptr, scene.controller) << ticks;
        EXPECT_DOUBLE_EQ(20.0 / 4800.0, period(scene.controller, 0)) << ticks;
    }
}

TEST_F(XAnimationLoad, FileLoadersReadTheSameAsMemory)
{
    std::string path = vexiltest::outputDir() + "\\wave.x";
    std::string text = xFile(kTenTicks, kWaveAndIdle);
    FILE* file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(nullptr, file);
    std::fwrite(text.data(), 1, text.size(), file);
    std::fclose(file);

    LoadedScene narrow;
    vexiltest::loadFromFile(narrow, device(), path);
    ASSERT_EQ(S_OK, narrow.result);
    ASSERT_NE(nullptr, narrow.controller);
    EXPECT_EQ(2u, narrow.controller->GetNumAnimationSets());

    std::wstring widePath(path.begin(), path.end());
    LoadedScene wide;
    wide.result = D3DXLoadMeshHierarchyFromXW(widePath.c_str(), D3DXMESH_SYSTEMMEM, device(), &wide.allocator, nullptr,
                                              &wide.root, &wide.controller);
    ASSERT_EQ(S_OK, wide.result);
    ASSERT_NE(nullptr, wide.controller);
    ASSERT_EQ(S_OK, wide.controller->AdvanceTime(1.0, nullptr));
    EXPECT_TRUE(matrixNear(wide.frame("Arm")->TransformationMatrix, srtMatrix({2, 1, 1}, kY, 90, {10, 20, 0})));

    LoadedScene missing;
    vexiltest::loadFromFile(missing, device(), vexiltest::outputDir() + "\\no-such-file.x");
    EXPECT_TRUE(FAILED(missing.result));
    EXPECT_EQ(nullptr, missing.controller);
}

TEST_F(XAnimationLoad, FilesWithoutAnimationHaveNoController)
{
    LoadedScene scene;
    vexiltest::loadFromText(scene, device(), xFile(kTenTicks, ""));
    ASSERT_EQ(S_OK, scene.result);
    EXPECT_EQ(nullptr, scene.controller);
}

// Bad input: keys naming a frame that does not exist, empty key lists, keys out of order,
// a key with the wrong number of values, a file cut short.
TEST_F(XAnimationLoad, BadAnimationDataLoadsWhatIsUsable)
{
    const char* const body = R"(
AnimationSet Broken {
  Animation { { Ghost } AnimationKey { 2; 1; 0;3;5.0,5.0,5.0;;; } }
  Animation { { Arm } AnimationKey { 2; 2; 10;3;10.0,20.0,0.0;;, 0;3;0.0,0.0,0.0;;; } AnimationKey { 1; 1; 0;2;9.0,9.0;;; } }
  Animation { { Still } AnimationKey { 0; 0; } }
  Animation { AnimationKey { 2; 1; 0;3;1.0,1.0,1.0;;; } }
}
)";
    LoadedScene scene;
    vexiltest::loadFromText(scene, device(), xFile(kTenTicks, body));
    ASSERT_EQ(S_OK, scene.result);
    ASSERT_NE(nullptr, scene.controller);
    EXPECT_EQ(2u, scene.controller->GetMaxNumAnimationOutputs()) << "Ghost has no frame to drive";
    ID3DXAnimationSet* set = nullptr;
    ASSERT_EQ(S_OK, scene.controller->GetAnimationSet(0, &set));
    EXPECT_EQ(3u, set->GetNumAnimations()) << "the animation naming no frame is dropped";
    set->Release();

    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
    // Keys sorted by time; the two-value scale key ignored.
    EXPECT_TRUE(matrixNear(scene.frame("Arm")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {5, 10, 0})));
    // No keys at all: the frame rests at the identity.
    D3DXMATRIX identity;
    D3DXMatrixIdentity(&identity);
    EXPECT_TRUE(matrixNear(scene.frame("Still")->TransformationMatrix, identity));

    std::string cut = xFile(kTenTicks, body);
    cut.resize(cut.size() - 10);
    LoadedScene truncated;
    vexiltest::loadFromText(truncated, device(), cut);
    EXPECT_TRUE(FAILED(truncated.result)) << "a file cut short fails to load, as in D3DX";
    EXPECT_EQ(nullptr, truncated.controller);
}

// A skinned triangle whose file declares none of the skin templates.
TEST_F(XAnimationLoad, SkinTemplatesAreKnownWithoutDeclaration)
{
    const char* const body = R"(
Frame Body {
  FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
  Mesh Triangle {
    3; 0.0;0.0;0.0;, 1.0;0.0;0.0;, 0.0;1.0;0.0;;
    1; 3;0,1,2;;
    XSkinMeshHeader { 1; 1; 1; }
    VertexDuplicationIndices { 3; 3; 0, 1, 2; }
    SkinWeights { "Bone"; 3; 0,1,2; 1.0,1.0,1.0; 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
  }
  Frame Bone { FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; } }
}
AnimationSet Sway { Animation { { Bone } AnimationKey { 2; 2; 0;3;0.0,0.0,0.0;;, 4800;3;0.0,2.0,0.0;;; } } }
)";
    LoadedScene scene;
    vexiltest::loadFromText(scene, device(), std::string("xof 0303txt 0032\n") + body);
    ASSERT_EQ(S_OK, scene.result);
    EXPECT_EQ(1, scene.allocator.meshContainers);
    EXPECT_EQ(1, scene.allocator.skinnedContainers);
    EXPECT_EQ(1u, scene.allocator.bonesSeen);
    ASSERT_NE(nullptr, scene.controller);
    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
    EXPECT_FLOAT_EQ(1.0f, scene.frame("Bone")->TransformationMatrix._42);

    // The mesh container's reference is the only one left once loading is over.
    D3DXFrameDestroy(scene.root, &scene.allocator);
    scene.root = nullptr;
    EXPECT_EQ(0u, scene.allocator.skinReferencesLeft);
}

// Third-party samples: checks skip when ../shared/samples is absent.
class SampleAnimation : public XAnimationLoad {
protected:
    void load(LoadedScene& scene, const char* relative)
    {
        vexiltest::loadFromFile(scene, device(), vexiltest::samplesDir() + "\\" + relative);
        ASSERT_EQ(S_OK, scene.result) << relative;
        ASSERT_NE(nullptr, scene.controller) << relative;
    }

    static std::string setNames(ID3DXAnimationController* controller)
    {
        std::string names;
        for (UINT i = 0; i < controller->GetNumAnimationSets(); ++i) {
            ID3DXAnimationSet* set = nullptr;
            controller->GetAnimationSet(i, &set);
            names += (i ? "," : "") + std::string(set->GetName());
            set->Release();
        }
        return names;
    }

    // Advancing time moves the named bone.
    void expectMoves(LoadedScene& scene, const char* bone, double seconds)
    {
        D3DXFRAME* frame = scene.frame(bone);
        ASSERT_NE(nullptr, frame) << bone;
        ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.0, nullptr));
        D3DXMATRIX before = frame->TransformationMatrix;
        ASSERT_EQ(S_OK, scene.controller->AdvanceTime(seconds, nullptr));
        EXPECT_FALSE(matrixNear(frame->TransformationMatrix, before, 1e-3f)) << bone << " did not move";
    }
};

TEST_F(SampleAnimation, TinyHasOneLoopingSetDrivingItsBones)
{
    VEXIL_REQUIRE_SAMPLES();
    LoadedScene scene;
    load(scene, "sdk\\Tiny\\tiny.x");
    EXPECT_EQ(1u, scene.controller->GetNumAnimationSets());
    EXPECT_EQ(47u, scene.controller->GetMaxNumAnimationOutputs());
    EXPECT_NEAR(4960.0 / 4800.0, period(scene.controller, 0), 1e-9);
    EXPECT_EQ(1, scene.allocator.skinnedContainers);
    EXPECT_EQ(35u, scene.allocator.bonesSeen);
    expectMoves(scene, "Bip01_L_Thigh", 0.3);
}

TEST_F(SampleAnimation, TinyWithFourSetsLoadsWithoutDeclaredSkinTemplates)
{
    VEXIL_REQUIRE_SAMPLES();
    LoadedScene scene;
    load(scene, "sdk\\MultiAnimation\\tiny_4anim.x");
    EXPECT_EQ("Loiter,Walk,Jog,Wave", setNames(scene.controller));
    EXPECT_GE(scene.allocator.skinnedContainers, 1);
    ID3DXAnimationSet* jog = nullptr;
    ASSERT_EQ(S_OK, scene.controller->GetAnimationSetByName("Jog", &jog));
    ASSERT_EQ(S_OK, scene.controller->SetTrackAnimationSet(0, jog));
    jog->Release();
    expectMoves(scene, "Bip01_R_Calf", 0.2);
}

TEST_F(SampleAnimation, WusonHasThreeSetsAtItsOwnTickRate)
{
    VEXIL_REQUIRE_SAMPLES();
    LoadedScene scene;
    load(scene, "assimp\\Testwuson.X");
    EXPECT_EQ("Wuson_Run,Wuson_Walk,Wuson_Bind", setNames(scene.controller));
    ID3DXAnimationSet* run = nullptr;
    ASSERT_EQ(S_OK, scene.controller->GetAnimationSet(0, &run));
    ID3DXKeyframedAnimationSet* keyed = nullptr;
    ASSERT_EQ(S_OK, run->QueryInterface(IID_ID3DXKeyframedAnimationSet, reinterpret_cast<void**>(&keyed)));
    EXPECT_GT(keyed->GetPeriod(), 0.0);
    keyed->Release();
    run->Release();
    expectMoves(scene, "Tail02", 0.3);
}

TEST_F(SampleAnimation, AnimTestWithUndeclaredTemplatesLoadsAndPlays)
{
    VEXIL_REQUIRE_SAMPLES();
    LoadedScene scene;
    load(scene, "assimp\\anim_test.x");
    EXPECT_EQ("cylinder_test", setNames(scene.controller));
    for (int step = 0; step < 50; ++step)
        ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.1, nullptr));
}

}  // namespace

namespace {

// Writes the binary encoding of X files token by token.
class BinaryX {
public:
    BinaryX() : m_bytes("xof 0303bin 0032") {}

    BinaryX& name(const std::string& text)
    {
        word(1);
        dword(uint32_t(text.size()));
        m_bytes += text;
        return *this;
    }
    BinaryX& string(const std::string& text)
    {
        word(2);
        dword(uint32_t(text.size()));
        m_bytes += text;
        return word(20);
    }
    BinaryX& integers(std::initializer_list<uint32_t> values)
    {
        word(6);
        dword(uint32_t(values.size()));
        for (uint32_t v : values)
            dword(v);
        return *this;
    }
    BinaryX& floats(std::initializer_list<float> values)
    {
        word(7);
        dword(uint32_t(values.size()));
        for (float v : values)
            m_bytes.append(reinterpret_cast<const char*>(&v), sizeof v);
        return *this;
    }
    BinaryX& open() { return word(10); }
    BinaryX& close() { return word(11); }
    BinaryX& object(const std::string& type, const std::string& objectName = std::string())
    {
        name(type);
        if (!objectName.empty())
            name(objectName);
        return open();
    }
    BinaryX& reference(const std::string& target) { return open().name(target).close(); }
    BinaryX& matrix(float x, float y, float z)
    {
        return object("FrameTransformMatrix").floats({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1}).close();
    }
    const std::string& bytes() const { return m_bytes; }

private:
    BinaryX& word(uint16_t v)
    {
        m_bytes.append(reinterpret_cast<const char*>(&v), sizeof v);
        return *this;
    }
    BinaryX& dword(uint32_t v)
    {
        m_bytes.append(reinterpret_cast<const char*>(&v), sizeof v);
        return *this;
    }
    std::string m_bytes;
};

// The binary twin of the text fixtures: a skinned triangle with no template declarations and a
// translation animation at 10 ticks per second.
TEST_F(XAnimationLoad, BinaryFilesGetTemplatesAndAnimations)
{
    BinaryX x;
    x.object("AnimTicksPerSecond").integers({10}).close();
    x.object("Frame", "Body").matrix(0, 0, 0);
    x.object("Mesh", "Triangle").integers({3}).floats({0, 0, 0, 1, 0, 0, 0, 1, 0}).integers({1, 3, 0, 1, 2});
    x.object("XSkinMeshHeader").integers({1, 1, 1}).close();
    x.object("SkinWeights").string("Arm").integers({3, 0, 1, 2});
    x.floats({1, 1, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}).close();
    x.close();  // Mesh
    x.object("Frame", "Arm").matrix(7, 8, 9).close();
    x.close();  // Body
    x.object("AnimationSet", "Wave").object("Animation").reference("Arm");
    x.object("AnimationKey").integers({2, 2}).integers({0, 3}).floats({0, 0, 0}).integers({10, 3}).floats({10, 20, 0});
    x.close().close().close();

    LoadedScene scene;
    vexiltest::loadFromText(scene, device(), x.bytes());
    ASSERT_EQ(S_OK, scene.result);
    EXPECT_EQ(1, scene.allocator.skinnedContainers);
    ASSERT_NE(nullptr, scene.controller);
    EXPECT_EQ(1u, scene.controller->GetMaxNumAnimationOutputs());
    ASSERT_EQ(S_OK, scene.controller->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(scene.frame("Arm")->TransformationMatrix, srtMatrix({1, 1, 1}, kY, 0, {5, 10, 0})));
}

}  // namespace
