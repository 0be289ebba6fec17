#include <d3dx9.h>
#include <gtest/gtest.h>

#include <cmath>

namespace {

const D3DXVECTOR3 kYAxis(0, 1, 0);

D3DXQUATERNION aboutY(float degrees)
{
    D3DXQUATERNION q;
    D3DXQuaternionRotationAxis(&q, &kYAxis, D3DXToRadian(degrees));
    return q;
}

::testing::AssertionResult sameRotation(const D3DXQUATERNION& a, const D3DXQUATERNION& b)
{
    float dot = std::fabs(a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w);  // q and -q rotate alike
    if (std::fabs(dot - 1.0f) < 1e-4f)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "(" << a.x << "," << a.y << "," << a.z << "," << a.w << ") vs (" << b.x
                                         << "," << b.y << "," << b.z << "," << b.w << ")";
}

::testing::AssertionResult sameVector(const D3DXVECTOR3& a, const D3DXVECTOR3& b)
{
    if (std::fabs(a.x - b.x) < 1e-4f && std::fabs(a.y - b.y) < 1e-4f && std::fabs(a.z - b.z) < 1e-4f)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "(" << a.x << "," << a.y << "," << a.z << ") vs (" << b.x << "," << b.y
                                         << "," << b.z << ")";
}

// 10 ticks per second. Translation keys at 0, 10, 20 ticks; scale keys at 0 and 20; rotation
// about Y from 0 to 90 degrees between ticks 0 and 10. Period: 2 seconds.
class WalkSet : public ::testing::Test {
protected:
    void make(D3DXPLAYBACK_TYPE playback, bool keysOutOfOrder = false)
    {
        ASSERT_EQ(S_OK, D3DXCreateKeyframedAnimationSet("walk", 10.0, playback, 2, 0, nullptr, &m_set));
        D3DXKEY_VECTOR3 translation[3] = {{0, {0, 0, 0}}, {10, {10, 20, 0}}, {20, {10, 20, -40}}};
        if (keysOutOfOrder)
            std::swap(translation[0], translation[2]);
        D3DXKEY_VECTOR3 scale[2] = {{0, {1, 1, 1}}, {20, {3, 1, 1}}};
        D3DXKEY_QUATERNION rotation[2] = {{0, aboutY(0)}, {10, aboutY(90)}};
        DWORD index = 99;
        ASSERT_EQ(S_OK, m_set->RegisterAnimationSRTKeys("bone", 2, 2, 3, scale, rotation, translation, &index));
        EXPECT_EQ(0u, index);
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
        if (m_set)
            m_set->Release();
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
        if (m_set)
            m_set->Release();
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
    m_set->Release();
    make(D3DXPLAY_LOOP);
    checkKeyList<D3DXKEY_QUATERNION>(m_set, &Set::GetNumRotationKeys, &Set::GetRotationKey, &Set::SetRotationKey,
                                     &Set::UnregisterRotationKey);
    m_set->Release();
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

}  // namespace
