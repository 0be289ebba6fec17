// Keyframed animation sets and the controller that plays them.
#include <d3dx9.h>
#include <gtest/gtest.h>

#include "TestHierarchy.h"

#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace {

using vexiltest::matrixNear;
using vexiltest::srtMatrix;

const D3DXVECTOR3 kY(0, 1, 0);

D3DXQUATERNION aboutY(float degrees)
{
    D3DXQUATERNION q;
    D3DXQuaternionRotationAxis(&q, &kY, D3DXToRadian(degrees));
    return q;
}

// q and -q rotate alike.
::testing::AssertionResult sameRotation(const D3DXQUATERNION& a, const D3DXQUATERNION& b)
{
    const float dot = std::fabs(D3DXQuaternionDot(&a, &b));
    return std::fabs(dot - 1.0f) < 1e-4f ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << "dot " << dot;
}

::testing::AssertionResult sameVector(const D3DXVECTOR3& a, const D3DXVECTOR3& b)
{
    const D3DXVECTOR3 d = a - b;
    return D3DXVec3Length(&d) < 1e-4f ? ::testing::AssertionSuccess()
                                      : ::testing::AssertionFailure() << "(" << a.x << "," << a.y << "," << a.z << ")";
}

// "walk" moves "bone" over 2 seconds at 10 ticks per second: translation (0,0,0) -> (10,20,0) ->
// (10,20,-40) at ticks 0, 10, 20; scale x 1 -> 3 over ticks 0..20; rotation about Y 0 -> 90
// degrees over ticks 0..10.
ID3DXKeyframedAnimationSet* makeWalk(D3DXPLAYBACK_TYPE playback, UINT room, bool keysOutOfOrder = false)
{
    ID3DXKeyframedAnimationSet* set = nullptr;
    EXPECT_EQ(S_OK, D3DXCreateKeyframedAnimationSet("walk", 10.0, playback, room, 0, nullptr, &set));
    D3DXKEY_VECTOR3 translation[3] = {{0, {0, 0, 0}}, {10, {10, 20, 0}}, {20, {10, 20, -40}}};
    if (keysOutOfOrder)
        std::swap(translation[0], translation[2]);
    D3DXKEY_VECTOR3 scale[2] = {{0, {1, 1, 1}}, {20, {3, 1, 1}}};
    D3DXKEY_QUATERNION rotation[2] = {{0, aboutY(0)}, {10, aboutY(90)}};
    DWORD index = 99;
    EXPECT_EQ(S_OK, set->RegisterAnimationSRTKeys("bone", 2, 2, 3, scale, rotation, translation, &index));
    EXPECT_EQ(0u, index);
    return set;
}

class WalkSet : public ::testing::Test {
protected:
    void make(D3DXPLAYBACK_TYPE playback, bool keysOutOfOrder = false)
    {
        if (m_set)
            m_set->Release();
        m_set = makeWalk(playback, 2, keysOutOfOrder);
    }

    void TearDown() override
    {
        if (m_set)
            m_set->Release();
    }

    void expectPose(double seconds, const D3DXVECTOR3& scale, float degrees, const D3DXVECTOR3& translation)
    {
        D3DXVECTOR3 s, t;
        D3DXQUATERNION r;
        ASSERT_EQ(S_OK, m_set->GetSRT(seconds, 0, &s, &r, &t));
        EXPECT_TRUE(sameVector(s, scale)) << "scale at " << seconds;
        EXPECT_TRUE(sameRotation(r, aboutY(degrees))) << "rotation at " << seconds;
        EXPECT_TRUE(sameVector(t, translation)) << "translation at " << seconds;
    }

    ID3DXKeyframedAnimationSet* m_set = nullptr;
};

TEST_F(WalkSet, InterpolatesBetweenKeysAndHoldsOnThemWhateverTheKeyOrder)
{
    for (bool outOfOrder : {false, true}) {
        SCOPED_TRACE(outOfOrder ? "keys given out of order" : "keys in order");
        make(D3DXPLAY_LOOP, outOfOrder);
        EXPECT_DOUBLE_EQ(2.0, m_set->GetPeriod());
        expectPose(0.0, {1, 1, 1}, 0, {0, 0, 0});
        expectPose(0.5, {1.5f, 1, 1}, 45, {5, 10, 0});     // halfway: lerp, and slerp to 45 degrees
        expectPose(1.0, {2, 1, 1}, 90, {10, 20, 0});       // exactly on a key
        expectPose(1.5, {2.5f, 1, 1}, 90, {10, 20, -20});  // past the last rotation key: held
        expectPose(7.0, {3, 1, 1}, 90, {10, 20, -40});     // beyond every key: the last ones
        expectPose(-1.0, {1, 1, 1}, 0, {0, 0, 0});         // before every key: the first ones
    }
}

TEST_F(WalkSet, PeriodicPositionFollowsThePlaybackType)
{
    const struct {
        D3DXPLAYBACK_TYPE playback;
        double position, expected;
    } cases[] = {{D3DXPLAY_LOOP, 2.5, 0.5},     {D3DXPLAY_LOOP, -0.5, 1.5},     {D3DXPLAY_LOOP, 4.0, 0.0},
                 {D3DXPLAY_PINGPONG, 2.5, 1.5}, {D3DXPLAY_PINGPONG, 4.5, 0.5}, {D3DXPLAY_PINGPONG, -0.5, 0.5},
                 {D3DXPLAY_ONCE, 2.5, 2.0},     {D3DXPLAY_ONCE, -1.0, 0.0},     {D3DXPLAY_ONCE, 1.25, 1.25}};
    for (const auto& test : cases) {
        make(test.playback);
        EXPECT_NEAR(test.expected, m_set->GetPeriodicPosition(test.position), 1e-9)
            << "playback " << test.playback << " at " << test.position;
    }
}

// The scale, rotation and translation key lists answer alike: editing a list's last key moves
// the period, removing it moves it back, and indices past either end are refused.
template <class Key>
void checkKeyList(ID3DXKeyframedAnimationSet* set, UINT (ID3DXKeyframedAnimationSet::*count)(UINT),
                  HRESULT (ID3DXKeyframedAnimationSet::*get)(UINT, UINT, Key*),
                  HRESULT (ID3DXKeyframedAnimationSet::*replace)(UINT, UINT, Key*),
                  HRESULT (ID3DXKeyframedAnimationSet::*remove)(UINT, UINT))
{
    const UINT keys = (set->*count)(0);
    ASSERT_GT(keys, 0u);
    Key key;
    ASSERT_EQ(S_OK, (set->*get)(0, keys - 1, &key));
    key.Time = 50;
    ASSERT_EQ(S_OK, (set->*replace)(0, keys - 1, &key));
    EXPECT_DOUBLE_EQ(5.0, set->GetPeriod());
    EXPECT_EQ(D3DERR_INVALIDCALL, (set->*get)(0, keys, &key));
    EXPECT_EQ(D3DERR_INVALIDCALL, (set->*get)(7, 0, &key));
    EXPECT_EQ(D3DERR_INVALIDCALL, (set->*replace)(0, keys, &key));
    EXPECT_EQ(D3DERR_INVALIDCALL, (set->*remove)(7, 0));
    EXPECT_EQ(0u, (set->*count)(7));
    ASSERT_EQ(S_OK, (set->*remove)(0, keys - 1));
    EXPECT_EQ(keys - 1, (set->*count)(0));
    EXPECT_DOUBLE_EQ(2.0, set->GetPeriod());
}

TEST_F(WalkSet, EveryKeyListEditsAlike)
{
    using Set = ID3DXKeyframedAnimationSet;
    make(D3DXPLAY_LOOP);
    checkKeyList<D3DXKEY_VECTOR3>(m_set, &Set::GetNumScaleKeys, &Set::GetScaleKey, &Set::SetScaleKey,
                                  &Set::UnregisterScaleKey);
    make(D3DXPLAY_LOOP);
    checkKeyList<D3DXKEY_QUATERNION>(m_set, &Set::GetNumRotationKeys, &Set::GetRotationKey, &Set::SetRotationKey,
                                     &Set::UnregisterRotationKey);
    make(D3DXPLAY_LOOP);
    checkKeyList<D3DXKEY_VECTOR3>(m_set, &Set::GetNumTranslationKeys, &Set::GetTranslationKey,
                                  &Set::SetTranslationKey, &Set::UnregisterTranslationKey);
}

TEST_F(WalkSet, RegistrationKeepsItsLimitsAndEmptyAnimationsRestAtIdentity)
{
    make(D3DXPLAY_LOOP);
    EXPECT_EQ(D3DERR_INVALIDCALL, m_set->RegisterAnimationSRTKeys("bone", 0, 0, 0, nullptr, nullptr, nullptr, nullptr))
        << "a second animation of the same name";
    ASSERT_EQ(S_OK, m_set->RegisterAnimationSRTKeys("empty", 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(D3DERR_INVALIDCALL, m_set->RegisterAnimationSRTKeys("third", 0, 0, 0, nullptr, nullptr, nullptr, nullptr))
        << "more animations than the set was made for";
    UINT index = 0;
    ASSERT_EQ(S_OK, m_set->GetAnimationIndexByName("empty", &index));
    EXPECT_EQ(1u, index);
    EXPECT_EQ(D3DERR_NOTFOUND, m_set->GetAnimationIndexByName("nobody", &index));
    D3DXVECTOR3 s, t;
    D3DXQUATERNION r;
    ASSERT_EQ(S_OK, m_set->GetSRT(0.7, index, &s, &r, &t));
    EXPECT_TRUE(sameVector(s, {1, 1, 1}));
    EXPECT_TRUE(sameRotation(r, aboutY(0)));
    EXPECT_TRUE(sameVector(t, {0, 0, 0}));
    EXPECT_EQ(D3DERR_INVALIDCALL, m_set->GetSRT(0, 7, nullptr, nullptr, nullptr));

    ID3DXKeyframedAnimationSet* broken = nullptr;
    EXPECT_EQ(D3DERR_INVALIDCALL, D3DXCreateKeyframedAnimationSet("x", 0.0, D3DXPLAY_LOOP, 1, 0, nullptr, &broken))
        << "zero ticks per second";
    EXPECT_EQ(nullptr, broken);
}

TEST(KeyframedAnimationSet, EqualKeyTimesDoNotDivideByZero)
{
    ID3DXKeyframedAnimationSet* set = nullptr;
    ASSERT_EQ(S_OK, D3DXCreateKeyframedAnimationSet("same", 1.0, D3DXPLAY_LOOP, 1, 0, nullptr, &set));
    D3DXKEY_VECTOR3 keys[3] = {{1, {1, 0, 0}}, {1, {2, 0, 0}}, {1, {3, 0, 0}}};
    ASSERT_EQ(S_OK, set->RegisterAnimationSRTKeys("a", 0, 0, 3, nullptr, nullptr, keys, nullptr));
    D3DXVECTOR3 t;
    for (double at : {0.0, 0.5, 1.0, 1.5}) {
        ASSERT_EQ(S_OK, set->GetSRT(at, 0, nullptr, nullptr, &t));
        EXPECT_TRUE(std::isfinite(t.x)) << at;
    }
    set->Release();
}

// "walk" on track 0; "lift" holds "bone" at (0,100,0), unscaled, unrotated.
class Controller : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_walk = makeWalk(D3DXPLAY_LOOP, 1);

        ASSERT_EQ(S_OK, D3DXCreateKeyframedAnimationSet("lift", 10.0, D3DXPLAY_LOOP, 1, 0, nullptr, &m_lift));
        D3DXKEY_VECTOR3 up = {0, {0, 100, 0}};
        ASSERT_EQ(S_OK, m_lift->RegisterAnimationSRTKeys("bone", 0, 0, 1, nullptr, nullptr, &up, nullptr));

        ASSERT_EQ(S_OK, D3DXCreateAnimationController(2, 2, 2, 1, &m_controller));
        ASSERT_NE(nullptr, m_controller);
        D3DXMatrixIdentity(&m_bone);
        D3DXMatrixScaling(&m_still, 2, 2, 2);
        ASSERT_EQ(S_OK, m_controller->RegisterAnimationOutput("bone", &m_bone, &m_boneScale, &m_boneRotation,
                                                              &m_boneTranslation));
        ASSERT_EQ(S_OK, m_controller->RegisterAnimationOutput("still", &m_still, nullptr, nullptr, nullptr));
        ASSERT_EQ(S_OK, m_controller->RegisterAnimationSet(m_walk));
        ASSERT_EQ(S_OK, m_controller->RegisterAnimationSet(m_lift));
        ASSERT_EQ(S_OK, m_controller->SetTrackAnimationSet(0, m_walk));
    }

    void TearDown() override
    {
        EXPECT_EQ(0u, m_controller->Release());
        EXPECT_EQ(0u, m_walk->Release()) << "the controller gave back every reference it took";
        EXPECT_EQ(0u, m_lift->Release());
    }

    double trackPosition(UINT track)
    {
        D3DXTRACK_DESC desc;
        EXPECT_EQ(S_OK, m_controller->GetTrackDesc(track, &desc));
        return desc.Position;
    }

    ID3DXKeyframedAnimationSet* m_walk = nullptr;
    ID3DXKeyframedAnimationSet* m_lift = nullptr;
    ID3DXAnimationController* m_controller = nullptr;
    D3DXMATRIX m_bone, m_still;
    D3DXVECTOR3 m_boneScale, m_boneTranslation;
    D3DXQUATERNION m_boneRotation;
};

TEST_F(Controller, AdvanceTimeWritesScaleRotationTranslationAndLoopsPastTheEnd)
{
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    EXPECT_DOUBLE_EQ(0.5, m_controller->GetTime());
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({1.5f, 1, 1}, kY, 45, {5, 10, 0})));
    EXPECT_FLOAT_EQ(1.5f, m_boneScale.x);
    EXPECT_FLOAT_EQ(10.0f, m_boneTranslation.y);

    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));  // on the key at tick 10
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({2, 1, 1}, kY, 90, {10, 20, 0})));

    ASSERT_EQ(S_OK, m_controller->AdvanceTime(1.5, nullptr));  // 2.5 s: round again to 0.5 s
    EXPECT_DOUBLE_EQ(2.5, trackPosition(0));
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({1.5f, 1, 1}, kY, 45, {5, 10, 0})));

    D3DXMATRIX stillExpected;
    D3DXMatrixScaling(&stillExpected, 2, 2, 2);
    EXPECT_TRUE(matrixNear(m_still, stillExpected)) << "an output no set animates keeps its matrix";

    ASSERT_EQ(S_OK, m_controller->ResetTime());
    EXPECT_DOUBLE_EQ(0.0, m_controller->GetTime());
    EXPECT_DOUBLE_EQ(2.5, trackPosition(0)) << "ResetTime leaves the tracks where they are";
}

TEST_F(Controller, NegativeSpeedPlaysBackwardsAndTrackPositionCanBeSet)
{
    ASSERT_EQ(S_OK, m_controller->SetTrackSpeed(0, -1.0f));
    ASSERT_EQ(S_OK, m_controller->SetTrackPosition(0, 1.0));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    EXPECT_DOUBLE_EQ(0.5, trackPosition(0));
    EXPECT_DOUBLE_EQ(0.5, m_controller->GetTime()) << "global time runs forward whatever the track speed";
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({1.5f, 1, 1}, kY, 45, {5, 10, 0})));

    ASSERT_EQ(S_OK, m_controller->AdvanceTime(1.0, nullptr));  // -0.5 s wraps to 1.5 s
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({2.5f, 1, 1}, kY, 90, {10, 20, -20})));

    ASSERT_EQ(S_OK, m_controller->SetTrackSpeed(0, 2.0f));
    ASSERT_EQ(S_OK, m_controller->SetTrackPosition(0, 0.0));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.25, nullptr));
    EXPECT_DOUBLE_EQ(0.5, trackPosition(0));
}

TEST_F(Controller, TwoTracksBlendByWeight)
{
    ASSERT_EQ(S_OK, m_controller->SetTrackAnimationSet(1, m_lift));
    ASSERT_EQ(S_OK, m_controller->SetTrackWeight(0, 0.25f));
    ASSERT_EQ(S_OK, m_controller->SetTrackWeight(1, 0.75f));
    ASSERT_EQ(S_OK, m_controller->SetTrackEnable(1, TRUE));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(1.0, nullptr));
    // walk at 1 s: scale 2, 90 degrees, (10,20,0); lift: scale 1, 0 degrees, (0,100,0).
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({1.25f, 1, 1}, kY, 22.5f, {2.5f, 80, 0})));

    // Weights that do not add up to one blend in the same proportions.
    ASSERT_EQ(S_OK, m_controller->SetTrackWeight(0, 1.0f));
    ASSERT_EQ(S_OK, m_controller->SetTrackWeight(1, 3.0f));
    ASSERT_EQ(S_OK, m_controller->SetTrackPosition(0, 1.0));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.0, nullptr));
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({1.25f, 1, 1}, kY, 22.5f, {2.5f, 80, 0})));

    // A disabled track neither counts nor moves.
    ASSERT_EQ(S_OK, m_controller->SetTrackEnable(1, FALSE));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.0, nullptr));
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({2, 1, 1}, kY, 90, {10, 20, 0})));
    double lifted = trackPosition(1);
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    EXPECT_DOUBLE_EQ(lifted, trackPosition(1));
}

TEST_F(Controller, PriorityBlendMixesHighAndLowGroups)
{
    ASSERT_EQ(S_OK, m_controller->SetTrackAnimationSet(1, m_lift));
    ASSERT_EQ(S_OK, m_controller->SetTrackPriority(0, D3DXPRIORITY_HIGH));
    ASSERT_EQ(S_OK, m_controller->SetTrackPriority(1, D3DXPRIORITY_LOW));
    ASSERT_EQ(S_OK, m_controller->SetTrackPosition(0, 1.0));
    ASSERT_EQ(S_OK, m_controller->SetPriorityBlend(1.0f));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.0, nullptr));
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({2, 1, 1}, kY, 90, {10, 20, 0})));
    ASSERT_EQ(S_OK, m_controller->SetPriorityBlend(0.0f));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.0, nullptr));
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({1, 1, 1}, kY, 0, {0, 100, 0})));
    EXPECT_EQ(0.0f, m_controller->GetPriorityBlend());
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->SetTrackPriority(0, D3DXPRIORITY_TYPE(7)));
}

TEST_F(Controller, RegistryOfSetsAndOutputsKeepsItsLimits)
{
    EXPECT_EQ(2u, m_controller->GetMaxNumAnimationOutputs());
    EXPECT_EQ(2u, m_controller->GetMaxNumAnimationSets());
    EXPECT_EQ(2u, m_controller->GetMaxNumTracks());
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->RegisterAnimationSet(m_walk)) << "already registered";
    D3DXMATRIX extra;
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->RegisterAnimationOutput("third", &extra, nullptr, nullptr, nullptr));
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->SetTrackSpeed(2, 1.0f)) << "past the last track";

    ID3DXAnimationSet* found = nullptr;
    ASSERT_EQ(S_OK, m_controller->GetAnimationSetByName("lift", &found));
    EXPECT_EQ(static_cast<ID3DXAnimationSet*>(m_lift), found);
    found->Release();
    EXPECT_EQ(D3DERR_NOTFOUND, m_controller->GetAnimationSetByName("swim", &found));
    ASSERT_EQ(S_OK, m_controller->GetAnimationSet(1, &found));
    EXPECT_STREQ("lift", found->GetName());
    found->Release();
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->GetAnimationSet(2, &found));

    // A set taken out of the registry still plays on the track that holds it.
    ASSERT_EQ(S_OK, m_controller->UnregisterAnimationSet(m_walk));
    EXPECT_EQ(1u, m_controller->GetNumAnimationSets());
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({1.5f, 1, 1}, kY, 45, {5, 10, 0})));

    // Outputs registered after the track was set are found by name all the same.
    D3DXMATRIX rebound;
    D3DXMatrixIdentity(&rebound);
    ASSERT_EQ(S_OK, m_controller->RegisterAnimationOutput("bone", &rebound, nullptr, nullptr, nullptr));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(rebound, srtMatrix({2, 1, 1}, kY, 90, {10, 20, 0})));
}

TEST_F(Controller, CloneCarriesTracksButAdvancesOnItsOwn)
{
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    ID3DXAnimationController* clone = nullptr;
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->CloneAnimationController(1, 2, 2, 0, &clone))
        << "fewer outputs than registered";
    ASSERT_EQ(S_OK, m_controller->CloneAnimationController(2, 4, 4, 0, &clone));
    EXPECT_EQ(4u, clone->GetMaxNumTracks());
    EXPECT_EQ(2u, clone->GetNumAnimationSets());
    EXPECT_DOUBLE_EQ(0.5, clone->GetTime());
    ID3DXAnimationSet* onTrack = nullptr;
    ASSERT_EQ(S_OK, clone->GetTrackAnimationSet(0, &onTrack));
    EXPECT_EQ(static_cast<ID3DXAnimationSet*>(m_walk), onTrack);
    onTrack->Release();

    ASSERT_EQ(S_OK, clone->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(m_bone, srtMatrix({2, 1, 1}, kY, 90, {10, 20, 0}))) << "the clone writes the same outputs";
    EXPECT_DOUBLE_EQ(0.5, trackPosition(0)) << "the original's track did not move";
    clone->Release();
}

// As Wine's conformance suite expects of D3DX: no room for something means no controller, and
// success; a set must have room for an animation.
TEST(ControllerCreation, ZeroMaximaMakeNothingAndSucceed)
{
    EXPECT_EQ(D3D_OK, D3DXCreateAnimationController(0, 0, 0, 0, nullptr));
    const UINT cases[][4] = {{0, 1, 1, 1}, {1, 0, 1, 1}, {1, 1, 0, 1}, {1, 1, 1, 0}};
    for (const auto& maxima : cases) {
        ID3DXAnimationController* untouched = reinterpret_cast<ID3DXAnimationController*>(0x1234);
        EXPECT_EQ(D3D_OK, D3DXCreateAnimationController(maxima[0], maxima[1], maxima[2], maxima[3], &untouched));
        EXPECT_EQ(reinterpret_cast<ID3DXAnimationController*>(0x1234), untouched);
    }
    ID3DXKeyframedAnimationSet* set = nullptr;
    EXPECT_EQ(D3DERR_INVALIDCALL, D3DXCreateKeyframedAnimationSet("none", 10.0, D3DXPLAY_LOOP, 0, 0, nullptr, &set));
    EXPECT_EQ(nullptr, set);
}

struct RecordingHandler : ID3DXAnimationCallbackHandler {
    STDMETHOD(HandleCallback)(THIS_ UINT track, void* data) override
    {
        calls.push_back({track, static_cast<const char*>(data)});
        return S_OK;
    }
    std::vector<std::pair<UINT, std::string>> calls;
};

// Callback keys at 0.5 s ("step") and 1.5 s ("land") of a 2-second loop.
TEST(ControllerCallbacks, HandlerHearsEachKeyPassedInEitherDirection)
{
    static char step[] = "step";
    static char land[] = "land";
    D3DXKEY_CALLBACK keys[2] = {{15, land}, {5, step}};  // out of order on purpose
    ID3DXKeyframedAnimationSet* set = nullptr;
    ASSERT_EQ(S_OK, D3DXCreateKeyframedAnimationSet("steps", 10.0, D3DXPLAY_LOOP, 1, 2, keys, &set));
    D3DXKEY_VECTOR3 ends[2] = {{0, {0, 0, 0}}, {20, {1, 0, 0}}};
    ASSERT_EQ(S_OK, set->RegisterAnimationSRTKeys("bone", 0, 0, 2, nullptr, nullptr, ends, nullptr));
    ID3DXAnimationController* controller = nullptr;
    ASSERT_EQ(S_OK, D3DXCreateAnimationController(1, 1, 1, 1, &controller));
    ASSERT_EQ(S_OK, controller->SetTrackAnimationSet(0, set));

    RecordingHandler handler;
    using Calls = std::vector<std::pair<UINT, std::string>>;
    ASSERT_EQ(S_OK, controller->AdvanceTime(0.4, &handler));
    EXPECT_EQ(Calls{}, handler.calls);
    ASSERT_EQ(S_OK, controller->AdvanceTime(0.2, &handler));
    EXPECT_EQ((Calls{{0, "step"}}), handler.calls);
    ASSERT_EQ(S_OK, controller->AdvanceTime(2.0, &handler));  // 2.6 s: "land", then "step" of the next loop
    EXPECT_EQ((Calls{{0, "step"}, {0, "land"}, {0, "step"}}), handler.calls);

    handler.calls.clear();
    ASSERT_EQ(S_OK, controller->SetTrackSpeed(0, -1.0f));
    ASSERT_EQ(S_OK, controller->AdvanceTime(0.2, &handler));  // 2.6 -> 2.4 s passes 2.5 s backwards
    EXPECT_EQ((Calls{{0, "step"}}), handler.calls);

    handler.calls.clear();
    ASSERT_EQ(S_OK, controller->AdvanceTime(1.0, nullptr));  // no handler: nothing to report to
    EXPECT_TRUE(handler.calls.empty());
    controller->Release();
    set->Release();
}

}  // namespace
