#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>

#include "EffectFixture.h"
#include "LogCapture.h"

#include <functional>
namespace {

// Sets a value of a parameter and reads it back as Out.
template <class Out, class In> Out roundTrip(const Effect& effect, const char* handle, const In& value) {
    Out out{};
    EXPECT_TRUE(setParameter(effect, handle, value) && getParameter(effect, handle, out));
    return out;
}

}  // namespace

TEST_F(EffectTest, ScalarsVectorsMatricesAndArraysRoundTrip) {
    float scale = 0.0f;
    ASSERT_TRUE(getParameter(m_marks, handle("Scale"), scale));
    EXPECT_EQ(2.5f, scale) << "default value from the effect file";
    EXPECT_EQ(0.25f, roundTrip<float>(m_marks, handle("Scale"), 0.25f));
    EXPECT_TRUE(roundTrip<bool>(m_marks, handle("Enabled"), true));
    EXPECT_FALSE(roundTrip<bool>(m_marks, handle("Enabled"), false));
    const int two = 2;  // raw bytes: SetInt/SetBool would normalise the flag
    ASSERT_EQ(D3D_OK, m_marks.effect()->SetValue(handle("Enabled"), &two, sizeof two));
    bool enabled = true;
    ASSERT_TRUE(getParameter(m_marks, handle("Enabled"), enabled));
    EXPECT_FALSE(enabled) << "only exactly 1 reads as true";
    EXPECT_EQ(D3DXVECTOR4(1, 2, 3, 1), roundTrip<D3DXVECTOR4>(m_marks, handle("FillColour"), D3DXVECTOR3(1, 2, 3)));
    EXPECT_EQ(D3DXVECTOR3(4, 5, 6), roundTrip<D3DXVECTOR3>(m_marks, handle("FillColour"), D3DXVECTOR4(4, 5, 6, 7)));
    D3DXMATRIX world;
    D3DXMatrixRotationYawPitchRoll(&world, 0.3f, 0.2f, 0.1f);
    world._41 = 5.0f;
    EXPECT_EQ(world, roundTrip<D3DXMATRIX>(m_marks, handle("World"), world)) << "no transposition on the way";

    // Arrays read as many elements as they hold.
    zeb::Array<int> counts, back;
    counts.resize(2);
    ASSERT_TRUE(getParameter(m_marks, handle("Counts"), counts));
    EXPECT_TRUE(counts[0] == 1 && counts[1] == 2) << "the file's defaults";
    counts.resize(3);
    counts[2] = 30;
    ASSERT_TRUE(setParameter(m_marks, handle("Counts"), counts));
    back.resize(3);
    ASSERT_TRUE(getParameter(m_marks, handle("Counts"), back));
    EXPECT_EQ(30, back[2]);

    zeb::Array<D3DXMATRIX> palette, read;
    palette.resize(26);
    read.resize(26);
    for (unsigned i = 0; i < 26; ++i) D3DXMatrixTranslation(&palette[i], static_cast<float>(i), 0.0f, 0.0f);
    ASSERT_TRUE(setParameter(m_marks, handle("Palette"), palette));
    ASSERT_TRUE(getParameter(m_marks, handle("Palette"), read));
    EXPECT_EQ(25.0f, read[25]._41);
}

// Textures read back only when two-dimensional; wrong values and missing storage fail logged.
TEST_F(EffectTest, TexturesReadBackAsTwoDimensionalOnlyAndFailuresAreLoggedWithTheEffectFile) {
    vexiltest::LogCapture log;
    COMPtr<IDirect3DTexture9>::pointer texture;
    COMPtr<IDirect3DVolumeTexture9>::pointer volume;
    ASSERT_EQ(D3D_OK, device()->CreateTexture(4, 4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, texture.receive(), nullptr));
    ASSERT_EQ(D3D_OK, device()->CreateVolumeTexture(4, 4, 4, 1, 0, D3DFMT_A8R8G8B8, D3DPOOL_MANAGED, volume.receive(), nullptr));
    IDirect3DBaseTexture9 *flat = texture.get(), *volumeBase = volume.get(), *out = nullptr;
    ASSERT_TRUE(setParameter(m_marks, handle("Diffuse"), flat));
    ASSERT_TRUE(getParameter(m_marks, handle("Diffuse"), out));
    EXPECT_EQ(flat, out);
    out->Release();
    ASSERT_TRUE(setParameter(m_marks, handle("Diffuse"), volumeBase));
    ULONG before = referencesOf(volumeBase);
    out = nullptr;
    EXPECT_FALSE(getParameter(m_marks, handle("Diffuse"), out));
    EXPECT_EQ(volumeBase, out) << "the volume texture stays in the output";
    EXPECT_EQ(before + 1, referencesOf(volumeBase)) << "with the reference the caller must release";
    out->Release();
    EXPECT_TRUE(log.contains("VexilDX9", 3, "172 Base type of the texture indicates that the resource is not a 2D texture"));
    IDirect3DBaseTexture9* none = nullptr;
    ASSERT_TRUE(setParameter(m_marks, handle("Diffuse"), none));

    const char* missing = reinterpret_cast<const char*>(1);
    EXPECT_FALSE(getParameterHandle(m_marks, "Nope", missing));
    EXPECT_EQ(nullptr, missing);
    EXPECT_TRUE(log.contains("VexilDX9", 3, "37 Cannot load Nope from effect file test-effects\\marks.fxo")) << log.dump();

    zeb::Array<int> noInts;
    zeb::Array<D3DXMATRIX> noMatrices, tooMany, kept;
    tooMany.resize(40);
    kept.resize(3);
    for (unsigned i = 0; i < 3; ++i) D3DXMatrixTranslation(&kept[i], 1.0f + i, 0.0f, 0.0f);
    D3DXMATRIX matrix;
    D3DXMatrixIdentity(&matrix);
    IDirect3DBaseTexture9* noTexture = nullptr;
    // Values of the wrong kind for the parameter are refused by D3DX.
    const struct {
        std::function<bool()> call;
        std::string message;
    } failures[] = {
        {[&] { return setParameter(m_marks, handle("Counts"), noInts); }, "101 Must allocate array storage before calling getParameter "},
        {[&] { return getParameter(m_marks, handle("Palette"), noMatrices); }, "72 Must allocate array storage before calling getParameter "},
        {[&] { return setParameter(m_marks, handle("Diffuse"), matrix); }, failure("67 Unable to set matrix value to effect ")},
        {[&] { return setParameter(m_marks, handle("Diffuse"), 1.0f); }, failure("77 Unable to set float value to effect ")},
        {[&] { return getParameter(m_marks, handle("Scale"), noTexture); }, failure("166 Unable to get texture from effect ")},
        {[&] { return setParameter(m_marks, handle("Palette"), tooMany); }, failure("111 Unable to set Array from effect ")},
        {[&] { return getParameter(m_marks, handle("Diffuse"), kept); }, failure("84 Unable to get Array from effect ")},
    };
    for (const auto& expected : failures) {
        EXPECT_FALSE(expected.call()) << expected.message;
        EXPECT_TRUE(log.contains("VexilDX9", 3, expected.message)) << log.dump();
    }
    for (unsigned i = 0; i < 3; ++i) EXPECT_EQ(1.0f + i, kept[i]._41) << "a failed read leaves the array as it was";

    Effect never;
    const char* h = nullptr;
    expectAssertion([&] { getParameterHandle(never, "Scale", h); }, 32, "effect.effect().get()", "VexilDX9/EffectValue");
}
