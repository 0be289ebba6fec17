#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>

#include "EffectFixture.h"
#include "LogCapture.h"

namespace {

class EffectValueTest : public EffectTest {
public:
    // The holders' destructors may throw; the fixture must still match gtest's noexcept one.
    ~EffectValueTest() noexcept override {}

protected:
    void SetUp() override {
        EffectTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(m_effect.load(effectPath("marks.fxo"), deviceHolder()));
    }
    void TearDown() override {
        m_effect = Effect();
        EffectTest::TearDown();
    }
    const char* handle(const char* name) {
        const char* h = nullptr;
        EXPECT_TRUE(getParameterHandle(m_effect, name, h)) << name;
        return h;
    }
    std::string failure(const char* text) { return std::string(text) + "test-effects\\marks.fxo"; }

    Effect m_effect;
};

ULONG referenceCount(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

}  // namespace

TEST_F(EffectValueTest, ScalarsVectorsAndMatricesRoundTrip) {
    float scale = 0.0f;
    ASSERT_TRUE(getParameter(m_effect, handle("Scale"), scale));
    EXPECT_EQ(2.5f, scale) << "default value from the effect file";
    ASSERT_TRUE(setParameter(m_effect, handle("Scale"), 0.25f));
    ASSERT_TRUE(getParameter(m_effect, handle("Scale"), scale));
    EXPECT_EQ(0.25f, scale);

    bool enabled = false;
    ASSERT_TRUE(getParameter(m_effect, handle("Enabled"), enabled));
    EXPECT_TRUE(enabled);
    ASSERT_TRUE(setParameter(m_effect, handle("Enabled"), false));
    ASSERT_TRUE(getParameter(m_effect, handle("Enabled"), enabled));
    EXPECT_FALSE(enabled);
    const int two = 2;  // raw bytes: SetInt/SetBool would normalise the flag
    ASSERT_EQ(D3D_OK, m_effect.effect()->SetValue(handle("Enabled"), &two, sizeof two));
    ASSERT_TRUE(getParameter(m_effect, handle("Enabled"), enabled));
    EXPECT_FALSE(enabled) << "only exactly 1 reads as true";

    ASSERT_TRUE(setParameter(m_effect, handle("FillColour"), D3DXVECTOR3(1.0f, 2.0f, 3.0f)));
    D3DXVECTOR4 wide;
    ASSERT_TRUE(getParameter(m_effect, handle("FillColour"), wide));
    EXPECT_EQ(D3DXVECTOR4(1.0f, 2.0f, 3.0f, 1.0f), wide);
    ASSERT_TRUE(setParameter(m_effect, handle("FillColour"), D3DXVECTOR4(4.0f, 5.0f, 6.0f, 7.0f)));
    D3DXVECTOR3 narrow;
    ASSERT_TRUE(getParameter(m_effect, handle("FillColour"), narrow));
    EXPECT_EQ(D3DXVECTOR3(4.0f, 5.0f, 6.0f), narrow);

    D3DXMATRIX world, back;
    D3DXMatrixRotationYawPitchRoll(&world, 0.3f, 0.2f, 0.1f);
    world._41 = 5.0f;
    ASSERT_TRUE(setParameter(m_effect, handle("World"), world));
    ASSERT_TRUE(getParameter(m_effect, handle("World"), back));
    EXPECT_EQ(world, back) << "no transposition on the way";
}

TEST_F(EffectValueTest, ArraysReadAsManyElementsAsTheyHold) {
    zeb::Array<int> counts;
    counts.resize(2);
    ASSERT_TRUE(getParameter(m_effect, handle("Counts"), counts));
    EXPECT_EQ(1, counts[0]);
    EXPECT_EQ(2, counts[1]);
    EXPECT_EQ(2u, counts.size());
    counts.resize(3);
    counts[2] = 30;
    ASSERT_TRUE(setParameter(m_effect, handle("Counts"), counts));
    zeb::Array<int> back;
    back.resize(3);
    ASSERT_TRUE(getParameter(m_effect, handle("Counts"), back));
    EXPECT_EQ(30, back[2]);

    zeb::Array<D3DXMATRIX> palette;
    palette.resize(26);
    for (unsigned i = 0; i < 26; ++i) D3DXMatrixTranslation(&palette[i], static_cast<float>(i), 0.0f, 0.0f);
    ASSERT_TRUE(setParameter(m_effect, handle("Palette"), palette));
    zeb::Array<D3DXMATRIX> read;
    read.resize(26);
    ASSERT_TRUE(getParameter(m_effect, handle("Palette"), read));
    EXPECT_EQ(25.0f, read[25]._41);
}

TEST_F(EffectValueTest, TexturesAreTwoDimensionalOnly) {
    vexiltest::LogCapture log;
    IDirect3DTexture9* texture = nullptr;
    ASSERT_EQ(D3D_OK, device()->CreateTexture(4, 4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &texture, nullptr));
    IDirect3DBaseTexture9* base = texture;
    ASSERT_TRUE(setParameter(m_effect, handle("Diffuse"), base));
    IDirect3DBaseTexture9* out = nullptr;
    ASSERT_TRUE(getParameter(m_effect, handle("Diffuse"), out));
    EXPECT_EQ(base, out);
    out->Release();

    IDirect3DCubeTexture9* cube = nullptr;
    ASSERT_EQ(D3D_OK, device()->CreateCubeTexture(4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, &cube, nullptr));
    IDirect3DBaseTexture9* cubeBase = cube;
    ASSERT_TRUE(setParameter(m_effect, handle("Diffuse"), cubeBase));
    ULONG before = referenceCount(cube);
    out = nullptr;
    EXPECT_FALSE(getParameter(m_effect, handle("Diffuse"), out));
    EXPECT_EQ(cubeBase, out) << "the cube texture stays in the output";
    EXPECT_EQ(before + 1, referenceCount(cube)) << "with the reference the caller must release";
    out->Release();
    EXPECT_TRUE(log.contains("VexilDX9", 3, "172 Base type of the texture indicates that the resource is not a 2D texture"));

    IDirect3DBaseTexture9* none = nullptr;
    ASSERT_TRUE(setParameter(m_effect, handle("Diffuse"), none));
    texture->Release();
    cube->Release();
}

TEST_F(EffectValueTest, FailuresAreLoggedWithTheEffectFile) {
    vexiltest::LogCapture log;
    const char* missing = reinterpret_cast<const char*>(1);
    EXPECT_FALSE(getParameterHandle(m_effect, "Nope", missing));
    EXPECT_EQ(nullptr, missing);
    EXPECT_TRUE(log.contains("VexilDX9", 3, "37 Cannot load Nope from effect file test-effects\\marks.fxo")) << log.dump();

    zeb::Array<int> empty;
    zeb::Array<D3DXMATRIX> noMatrices;
    EXPECT_FALSE(setParameter(m_effect, handle("Counts"), empty));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "101 Must allocate array storage before calling getParameter "));
    EXPECT_FALSE(getParameter(m_effect, handle("Palette"), noMatrices));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "72 Must allocate array storage before calling getParameter "));

    // Values of the wrong kind for the parameter are refused by D3DX.
    D3DXMATRIX m;
    D3DXMatrixIdentity(&m);
    EXPECT_FALSE(setParameter(m_effect, handle("Diffuse"), m));
    EXPECT_TRUE(log.contains("VexilDX9", 3, failure("67 Unable to set matrix value to effect ")));
    EXPECT_FALSE(setParameter(m_effect, handle("Diffuse"), 1.0f));
    EXPECT_TRUE(log.contains("VexilDX9", 3, failure("77 Unable to set float value to effect ")));
    IDirect3DBaseTexture9* texture = nullptr;
    EXPECT_FALSE(getParameter(m_effect, handle("Scale"), texture));
    EXPECT_TRUE(log.contains("VexilDX9", 3, failure("166 Unable to get texture from effect ")));
    zeb::Array<D3DXMATRIX> tooMany;
    tooMany.resize(40);
    EXPECT_FALSE(setParameter(m_effect, handle("Palette"), tooMany));
    EXPECT_TRUE(log.contains("VexilDX9", 3, failure("111 Unable to set Array from effect ")));

    Effect never;
    try {
        const char* h = nullptr;
        getParameterHandle(never, "Scale", h);
        FAIL() << "no exception";
    } catch (const zeb::AssertionFailure& e) {
        EXPECT_STREQ("VexilDX9/EffectValue", e.file());
        EXPECT_EQ(32u, e.line());
        EXPECT_STREQ("effect.effect().get()", e.expression());
    }
}
