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

TEST_F(WalkSet, InterpolatesBetweenKeysAndHoldsOnThem)
{
    make(D3DXPLAY_LOOP);
    EXPECT_DOUBLE_EQ(2.0, m_set->GetPeriod());
    expectPose(0.0, {1, 1, 1}, 0, {0, 0, 0});
    expectPose(0.5, {1.5f, 1, 1}, 45, {5, 10, 0});  // halfway: lerp, and slerp to 45 degrees
    expectPose(1.0, {2, 1, 1}, 90, {10, 20, 0});    // exactly on a key
    expectPose(1.5, {2.5f, 1, 1}, 90, {10, 20, -20});  // past the last rotation key: held
    expectPose(7.0, {3, 1, 1}, 90, {10, 20, -40});     // beyond every key: the last ones
    expectPose(-1.0, {1, 1, 1}, 0, {0, 0, 0});         // before every key: the first ones
}

TEST_F(WalkSet, KeysGivenOutOfOrderPlayInTimeOrder)
{
    make(D3DXPLAY_LOOP, true);
    expectPose(0.5, {1.5f, 1, 1}, 45, {5, 10, 0});
    expectPose(1.5, {2.5f, 1, 1}, 90, {10, 20, -20});
    D3DXKEY_VECTOR3 first;
    ASSERT_EQ(S_OK, m_set->GetTranslationKey(0, 0, &first));
    EXPECT_EQ(0.0f, first.Time);
}

TEST_F(WalkSet, PeriodicPositionFollowsThePlaybackType)
{
    make(D3DXPLAY_LOOP);
    EXPECT_NEAR(0.5, m_set->GetPeriodicPosition(2.5), 1e-9);
    EXPECT_NEAR(1.5, m_set->GetPeriodicPosition(-0.5), 1e-9);  // backwards past the start wraps to the end
    EXPECT_NEAR(0.0, m_set->GetPeriodicPosition(4.0), 1e-9);
    m_set->Release();
    m_set = nullptr;

    make(D3DXPLAY_PINGPONG);
    EXPECT_NEAR(1.5, m_set->GetPeriodicPosition(2.5), 1e-9);  // on the way back
    EXPECT_NEAR(0.5, m_set->GetPeriodicPosition(4.5), 1e-9);  // forward again
    EXPECT_NEAR(0.5, m_set->GetPeriodicPosition(-0.5), 1e-9);
    m_set->Release();
    m_set = nullptr;

    make(D3DXPLAY_ONCE);
    EXPECT_NEAR(2.0, m_set->GetPeriodicPosition(2.5), 1e-9);
    EXPECT_NEAR(0.0, m_set->GetPeriodicPosition(-1.0), 1e-9);
    EXPECT_NEAR(1.25, m_set->GetPeriodicPosition(1.25), 1e-9);
}

TEST_F(WalkSet, PeriodFollowsKeyEditsAndAnimationsWithoutKeysRestAtIdentity)
{
    make(D3DXPLAY_LOOP);
    D3DXKEY_VECTOR3 late = {50, {0, 0, 0}};
    ASSERT_EQ(S_OK, m_set->SetTranslationKey(0, 2, &late));
    EXPECT_DOUBLE_EQ(5.0, m_set->GetPeriod());
    ASSERT_EQ(S_OK, m_set->UnregisterTranslationKey(0, 2));
    EXPECT_DOUBLE_EQ(2.0, m_set->GetPeriod());

    ASSERT_EQ(S_OK, m_set->RegisterAnimationSRTKeys("empty", 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
    UINT index = 0;
    ASSERT_EQ(S_OK, m_set->GetAnimationIndexByName("empty", &index));
    EXPECT_EQ(1u, index);
    D3DXVECTOR3 s, t;
    D3DXQUATERNION r;
    ASSERT_EQ(S_OK, m_set->GetSRT(0.7, index, &s, &r, &t));
    EXPECT_TRUE(sameVector(s, {1, 1, 1}));
    EXPECT_TRUE(sameRotation(r, aboutY(0)));
    EXPECT_TRUE(sameVector(t, {0, 0, 0}));
}

TEST_F(WalkSet, RefusesWhatCannotBeRegistered)
{
    make(D3DXPLAY_LOOP);
    EXPECT_EQ(D3DERR_INVALIDCALL, m_set->RegisterAnimationSRTKeys("bone", 0, 0, 0, nullptr, nullptr, nullptr, nullptr))
        << "a second animation of the same name";
    ASSERT_EQ(S_OK, m_set->RegisterAnimationSRTKeys("other", 0, 0, 0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(D3DERR_INVALIDCALL, m_set->RegisterAnimationSRTKeys("third", 0, 0, 0, nullptr, nullptr, nullptr, nullptr))
        << "more animations than the set was made for";
    EXPECT_EQ(D3DERR_INVALIDCALL, m_set->GetSRT(0, 7, nullptr, nullptr, nullptr));
    UINT index;
    EXPECT_EQ(D3DERR_NOTFOUND, m_set->GetAnimationIndexByName("nobody", &index));

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
