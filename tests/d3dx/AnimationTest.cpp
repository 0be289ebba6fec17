// Keyframed animation sets and the controller that plays them.
#include <d3dx9.h>
#include <gtest/gtest.h>

#include "TestHierarchy.h"

#include <string>
#include <utility>
#include <vector>

namespace {

using vexiltest::matrixNear;
using vexiltest::Ref;
using vexiltest::srtMatrix;
using Set = ID3DXKeyframedAnimationSet;

const D3DXVECTOR3 kY(0, 1, 0);
char kStep[] = "step";
char kLand[] = "land";

// "walk" moves "bone" over 2 seconds at 10 ticks per second: translation (0,0,0) -> (10,20,0) ->
// (10,20,-40) at ticks 0, 10, 20; scale x 1 -> 3 over ticks 0..20; rotation about Y 0 -> 90
// degrees over ticks 0..10. Its callback keys are "step" at tick 5 and "land" at 15, and its
// translation keys, given out of order on purpose.
Ref<Set> makeWalk(D3DXPLAYBACK_TYPE playback, UINT room = 1)
{
    Ref<Set> set;
    D3DXKEY_CALLBACK callbacks[2] = {{15, kLand}, {5, kStep}};
    EXPECT_EQ(S_OK, D3DXCreateKeyframedAnimationSet("walk", 10.0, playback, room, 2, callbacks, set.out()));
    D3DXKEY_VECTOR3 translation[3] = {{20, {10, 20, -40}}, {0, {0, 0, 0}}, {10, {10, 20, 0}}};
    D3DXKEY_VECTOR3 scale[2] = {{0, {1, 1, 1}}, {20, {3, 1, 1}}};
    D3DXQUATERNION quarterTurn;
    D3DXQuaternionRotationAxis(&quarterTurn, &kY, D3DXToRadian(90));
    D3DXKEY_QUATERNION rotation[2] = {{0, {0, 0, 0, 1}}, {10, quarterTurn}};
    DWORD index = 99;
    EXPECT_EQ(S_OK, set->RegisterAnimationSRTKeys("bone", 2, 2, 3, scale, rotation, translation, &index));
    EXPECT_EQ(0u, index);
    return set;
}

// Walk's pose after 0, 0.5, 1, 1.5 and 2 or more seconds.
D3DXMATRIX walkPose(int halfSeconds)
{
    const struct {
        float scale, degrees;
        D3DXVECTOR3 translation;
    } poses[] = {{1, 0, {0, 0, 0}}, {1.5f, 45, {5, 10, 0}}, {2, 90, {10, 20, 0}}, {2.5f, 90, {10, 20, -20}},
                 {3, 90, {10, 20, -40}}};
    const auto& p = poses[halfSeconds];
    return srtMatrix({p.scale, 1, 1}, kY, p.degrees, p.translation);
}

TEST(AnimationSet, PeriodicPositionFollowsThePlaybackType)
{
    const struct {
        D3DXPLAYBACK_TYPE playback;
        double position, expected;
    } cases[] = {{D3DXPLAY_LOOP, 4.0, 0.0},      {D3DXPLAY_PINGPONG, 2.5, 1.5}, {D3DXPLAY_PINGPONG, 4.5, 0.5},
                 {D3DXPLAY_PINGPONG, -0.5, 0.5}, {D3DXPLAY_ONCE, 2.5, 2.0},     {D3DXPLAY_ONCE, -1.0, 0.0}};
    for (const auto& test : cases) {
        EXPECT_NEAR(test.expected, makeWalk(test.playback)->GetPeriodicPosition(test.position), 1e-9)
            << "playback " << test.playback << " at " << test.position;
    }
}

// Editing a list's last key moves the period, removing it moves it back; indices past either end
// are refused. The three lists share their code: each answers its own count.
TEST(AnimationSet, KeyListsEditAndKeepTheirLimits)
{
    Ref<Set> walk = makeWalk(D3DXPLAY_LOOP);
    EXPECT_EQ((std::vector<UINT>{2, 2, 3}), (std::vector<UINT>{walk->GetNumScaleKeys(0), walk->GetNumRotationKeys(0),
                                                               walk->GetNumTranslationKeys(0)}));
    D3DXKEY_QUATERNION key;
    ASSERT_EQ(S_OK, walk->GetRotationKey(0, 1, &key));
    key.Time = 50;
    ASSERT_EQ(S_OK, walk->SetRotationKey(0, 1, &key));
    EXPECT_DOUBLE_EQ(5.0, walk->GetPeriod());
    EXPECT_EQ(D3DERR_INVALIDCALL, walk->GetRotationKey(0, 2, &key));
    EXPECT_EQ(D3DERR_INVALIDCALL, walk->GetRotationKey(1, 0, &key)) << "walk has one animation";
    EXPECT_EQ(D3DERR_INVALIDCALL, walk->SetRotationKey(0, 2, &key));
    EXPECT_EQ(D3DERR_INVALIDCALL, walk->UnregisterRotationKey(0, 2));
    EXPECT_EQ(0u, walk->GetNumRotationKeys(1));
    ASSERT_EQ(S_OK, walk->UnregisterRotationKey(0, 1));
    EXPECT_EQ(1u, walk->GetNumRotationKeys(0));
    EXPECT_DOUBLE_EQ(2.0, walk->GetPeriod());
}

TEST(AnimationSet, RegistrationKeepsItsLimitsAndEmptyAnimationsRestAtIdentity)
{
    Ref<Set> set = makeWalk(D3DXPLAY_LOOP, 2);
    EXPECT_EQ(D3DERR_INVALIDCALL, set->RegisterAnimationSRTKeys("bone", 0, 0, 0, nullptr, nullptr, nullptr, nullptr))
        << "a second animation of the same name";
    ASSERT_EQ(S_OK, set->RegisterAnimationSRTKeys("empty", 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(D3DERR_INVALIDCALL, set->RegisterAnimationSRTKeys("third", 0, 0, 0, nullptr, nullptr, nullptr, nullptr))
        << "more animations than the set was made for";
    UINT index = 0;
    ASSERT_EQ(S_OK, set->GetAnimationIndexByName("empty", &index));
    EXPECT_EQ(1u, index);
    EXPECT_EQ(D3DERR_NOTFOUND, set->GetAnimationIndexByName("nobody", &index));
    D3DXVECTOR3 s, t;
    D3DXQUATERNION r;
    ASSERT_EQ(S_OK, set->GetSRT(0.7, index, &s, &r, &t));
    EXPECT_TRUE(s == D3DXVECTOR3(1, 1, 1) && r == D3DXQUATERNION(0, 0, 0, 1) && t == D3DXVECTOR3(0, 0, 0));
    EXPECT_EQ(D3DERR_INVALIDCALL, set->GetSRT(0, 2, nullptr, nullptr, nullptr));
}

// "walk" on track 0; "lift" holds "bone" at (0,100,0), unscaled, unrotated.
class Controller : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(S_OK, D3DXCreateKeyframedAnimationSet("lift", 10.0, D3DXPLAY_LOOP, 1, 0, nullptr, m_lift.out()));
        D3DXKEY_VECTOR3 up = {0, {0, 100, 0}};
        ASSERT_EQ(S_OK, m_lift->RegisterAnimationSRTKeys("bone", 0, 0, 1, nullptr, nullptr, &up, nullptr));

        ASSERT_EQ(S_OK, D3DXCreateAnimationController(2, 2, 2, 1, m_controller.out()));
        D3DXMatrixIdentity(&m_bone);
        D3DXMatrixScaling(&m_still, 2, 2, 2);
        ASSERT_EQ(S_OK, m_controller->RegisterAnimationOutput("bone", &m_bone, &m_boneScale, nullptr,
                                                              &m_boneTranslation));
        ASSERT_EQ(S_OK, m_controller->RegisterAnimationOutput("still", &m_still, nullptr, nullptr, nullptr));
        ASSERT_EQ(S_OK, m_controller->RegisterAnimationSet(m_walk.get()));
        ASSERT_EQ(S_OK, m_controller->RegisterAnimationSet(m_lift.get()));
        ASSERT_EQ(S_OK, m_controller->SetTrackAnimationSet(0, m_walk.get()));
    }

    void TearDown() override
    {
        EXPECT_EQ(0u, m_controller.releaseCount());
        EXPECT_EQ(0u, m_walk.releaseCount()) << "the controller gave back every reference it took";
        EXPECT_EQ(0u, m_lift.releaseCount());
    }

    double trackPosition(UINT track)
    {
        D3DXTRACK_DESC desc;
        EXPECT_EQ(S_OK, m_controller->GetTrackDesc(track, &desc));
        return desc.Position;
    }

    ::testing::AssertionResult advancedTo(double seconds, const D3DXMATRIX& bone)
    {
        const HRESULT result = m_controller->AdvanceTime(seconds, nullptr);
        return result == S_OK ? matrixNear(m_bone, bone) : ::testing::AssertionFailure() << "AdvanceTime " << result;
    }

    Ref<Set> m_walk = makeWalk(D3DXPLAY_LOOP);
    Ref<Set> m_lift;
    Ref<ID3DXAnimationController> m_controller;
    D3DXMATRIX m_bone, m_still;
    D3DXVECTOR3 m_boneScale, m_boneTranslation;
};

TEST_F(Controller, TracksPlayAtTheirSpeedFromTheirPositionAndLoop)
{
    EXPECT_TRUE(advancedTo(0.5, walkPose(1)));
    EXPECT_FLOAT_EQ(1.5f, m_boneScale.x);
    EXPECT_FLOAT_EQ(10.0f, m_boneTranslation.y);
    EXPECT_TRUE(matrixNear(m_still, srtMatrix({2, 2, 2}, kY, 0, {0, 0, 0}))) << "an output no set animates keeps its matrix";
    EXPECT_TRUE(advancedTo(2.0, walkPose(1))) << "2.5 s: round again to 0.5 s";
    EXPECT_DOUBLE_EQ(2.5, trackPosition(0));
    EXPECT_DOUBLE_EQ(2.5, m_controller->GetTime());

    ASSERT_EQ(S_OK, m_controller->ResetTime());
    EXPECT_DOUBLE_EQ(0.0, m_controller->GetTime());
    EXPECT_DOUBLE_EQ(2.5, trackPosition(0)) << "ResetTime leaves the tracks where they are";

    ASSERT_EQ(S_OK, m_controller->SetTrackSpeed(0, -1.0f));
    ASSERT_EQ(S_OK, m_controller->SetTrackPosition(0, 1.0));
    EXPECT_TRUE(advancedTo(0.5, walkPose(1)));
    EXPECT_DOUBLE_EQ(0.5, m_controller->GetTime()) << "global time runs forward whatever the track speed";
    EXPECT_TRUE(advancedTo(1.0, walkPose(3))) << "-0.5 s wraps to 1.5 s";

    ASSERT_EQ(S_OK, m_controller->SetTrackSpeed(0, 2.0f));
    ASSERT_EQ(S_OK, m_controller->SetTrackPosition(0, 0.0));
    EXPECT_TRUE(advancedTo(0.25, walkPose(1)));
}

// Walk at 1 s: scale 2, 90 degrees, (10,20,0); lift: scale 1, 0 degrees, (0,100,0).
TEST_F(Controller, TracksBlendByWeightWithinAPriorityAndByThePriorityBlendAcross)
{
    ASSERT_EQ(S_OK, m_controller->SetTrackPosition(0, 1.0));
    EXPECT_TRUE(advancedTo(0.0, walkPose(2))) << "track 1 holds no set";
    ASSERT_EQ(S_OK, m_controller->SetTrackAnimationSet(1, m_lift.get()));  // after the tracks were bound
    for (float total : {1.0f, 4.0f}) {  // weights need not add up to one
        ASSERT_EQ(S_OK, m_controller->SetTrackWeight(0, 0.25f * total));
        ASSERT_EQ(S_OK, m_controller->SetTrackWeight(1, 0.75f * total));
        EXPECT_TRUE(advancedTo(0.0, srtMatrix({1.25f, 1, 1}, kY, 22.5f, {2.5f, 80, 0}))) << total;
    }

    // A disabled track neither counts nor moves.
    ASSERT_EQ(S_OK, m_controller->SetTrackEnable(1, FALSE));
    EXPECT_TRUE(advancedTo(0.0, walkPose(2)));
    const double lifted = trackPosition(1);
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    EXPECT_DOUBLE_EQ(lifted, trackPosition(1));

    ASSERT_EQ(S_OK, m_controller->SetTrackEnable(1, TRUE));
    ASSERT_EQ(S_OK, m_controller->SetTrackPriority(0, D3DXPRIORITY_HIGH));
    ASSERT_EQ(S_OK, m_controller->SetTrackPriority(1, D3DXPRIORITY_LOW));
    ASSERT_EQ(S_OK, m_controller->SetTrackPosition(0, 1.0));
    ASSERT_EQ(S_OK, m_controller->SetPriorityBlend(1.0f));
    EXPECT_TRUE(advancedTo(0.0, walkPose(2))) << "all high";
    ASSERT_EQ(S_OK, m_controller->SetPriorityBlend(0.0f));
    EXPECT_TRUE(advancedTo(0.0, srtMatrix({1, 1, 1}, kY, 0, {0, 100, 0}))) << "all low";
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->SetTrackPriority(0, D3DXPRIORITY_TYPE(7)));
}

TEST_F(Controller, RegistryOfSetsAndOutputsKeepsItsLimits)
{
    D3DXMATRIX extra;
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->RegisterAnimationOutput("third", &extra, nullptr, nullptr, nullptr));
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->SetTrackSpeed(2, 1.0f)) << "past the last track";
    ID3DXAnimationSet* found = nullptr;
    EXPECT_EQ(D3DERR_NOTFOUND, m_controller->GetAnimationSetByName("swim", &found));
    ASSERT_EQ(S_OK, m_controller->GetAnimationSet(1, &found));
    EXPECT_STREQ("lift", found->GetName());
    found->Release();
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->GetAnimationSet(2, &found));

    // A set taken out of the registry still plays on the track that holds it.
    ASSERT_EQ(S_OK, m_controller->UnregisterAnimationSet(m_walk.get()));
    EXPECT_EQ(1u, m_controller->GetNumAnimationSets());
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->RegisterAnimationSet(m_lift.get())) << "already registered";
    EXPECT_TRUE(advancedTo(0.5, walkPose(1)));

    // Outputs registered after the track was set are found by name all the same.
    D3DXMATRIX rebound;
    D3DXMatrixIdentity(&rebound);
    ASSERT_EQ(S_OK, m_controller->RegisterAnimationOutput("bone", &rebound, nullptr, nullptr, nullptr));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(rebound, walkPose(2)));
}

TEST_F(Controller, CloneCarriesTracksButAdvancesOnItsOwn)
{
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, nullptr));
    Ref<ID3DXAnimationController> clone;
    EXPECT_EQ(D3DERR_INVALIDCALL, m_controller->CloneAnimationController(1, 2, 2, 0, clone.out()))
        << "fewer outputs than registered";
    ASSERT_EQ(S_OK, m_controller->CloneAnimationController(2, 4, 4, 0, clone.out()));
    EXPECT_EQ(4u, clone->GetMaxNumTracks());
    EXPECT_EQ(2u, clone->GetNumAnimationSets());
    EXPECT_DOUBLE_EQ(0.5, clone->GetTime());

    ASSERT_EQ(S_OK, clone->AdvanceTime(0.5, nullptr));
    EXPECT_TRUE(matrixNear(m_bone, walkPose(2))) << "the clone writes the same outputs";
    EXPECT_DOUBLE_EQ(0.5, trackPosition(0)) << "the original's track did not move";
    EXPECT_EQ(0u, clone.releaseCount());
}

// Writes down "track:data " for each callback.
struct RecordingHandler : ID3DXAnimationCallbackHandler {
    STDMETHOD(HandleCallback)(THIS_ UINT track, void* data) override
    {
        heard += std::to_string(track) + ":" + static_cast<const char*>(data) + " ";
        return S_OK;
    }
    std::string heard;
};

// Walk's callback keys are at 0.5 s ("step") and 1.5 s ("land") of its 2-second loop. A key is
// heard when a step ends exactly on it, and not again when the next step starts there.
TEST_F(Controller, HandlerHearsEachCallbackKeyPassedInEitherDirection)
{
    RecordingHandler handler;
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.5, &handler));
    EXPECT_EQ("0:step ", handler.heard);
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(0.75, &handler));
    EXPECT_EQ("0:step ", handler.heard);
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(1.25, &handler));  // 2.5 s: "land", then "step" of the next loop
    EXPECT_EQ("0:step 0:land 0:step ", handler.heard);

    handler.heard.clear();
    ASSERT_EQ(S_OK, m_controller->SetTrackSpeed(0, -1.0f));
    ASSERT_EQ(S_OK, m_controller->AdvanceTime(2.0, &handler));  // back from 2.5 s to 0.5 s, nearest key first
    EXPECT_EQ("0:land 0:step ", handler.heard);
}

// As Wine's conformance suite expects of D3DX: no room for something means no controller, and
// success; a set must have room for an animation and a positive tick rate.
TEST(ControllerCreation, ZeroMaximaMakeNothingAndSucceed)
{
    const UINT cases[][4] = {{0, 1, 1, 1}, {1, 0, 1, 1}, {1, 1, 0, 1}, {1, 1, 1, 0}};
    for (const auto& maxima : cases) {
        ID3DXAnimationController* untouched = reinterpret_cast<ID3DXAnimationController*>(0x1234);
        EXPECT_EQ(D3D_OK, D3DXCreateAnimationController(maxima[0], maxima[1], maxima[2], maxima[3], &untouched));
        EXPECT_EQ(reinterpret_cast<ID3DXAnimationController*>(0x1234), untouched);
    }
    for (const auto& [ticks, room] : {std::pair<double, UINT>{10.0, 0}, {0.0, 1}}) {
        ID3DXKeyframedAnimationSet* set = nullptr;
        EXPECT_EQ(D3DERR_INVALIDCALL, D3DXCreateKeyframedAnimationSet("no", ticks, D3DXPLAY_LOOP, room, 0, nullptr, &set));
        EXPECT_EQ(nullptr, set);
    }
}

}  // namespace
