#include "CompiledEffectFixture.h"

#include <cstring>

namespace {

// Parameters reach the registers of a pass's shaders through register(...) and through states.
const char kConstants[] = R"(
float4 Colour = { 1, 0, 0, 1 };
float4 Bound : register(ps, c3) = { 0, 1, 0, 1 };
float4x4 Bones[26];
technique ByRegister { pass { VertexShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 };
                              PixelShader = asm { ps_2_0 mov oC0, c3 }; } }
technique Palette { pass { VertexShaderConstantF[4] = <Bones>; PixelShaderConstantF[0] = (Colour);
                           VertexShader = asm { vs_2_0 dcl_position v0 add oPos, v0, c104 };
                           PixelShader = asm { ps_2_0 mov oC0, c0 }; } }
)";

}  // namespace

TEST_F(CompiledEffectTest, RegisterBindingsAndArraysFeedTheirRegisters) {
    ID3DXEffect* effect = load(kConstants);
    ASSERT_TRUE(effect);
    D3DXVECTOR4 bound(0, 0, 1, 1);
    ASSERT_EQ(D3D_OK, effect->SetVector("Bound", &bound));
    float seen[4] = {};
    inPass(effect, "ByRegister", [&] { device()->GetPixelShaderConstantF(3, seen, 1); });
    EXPECT_EQ(1.0f, seen[2]) << "register(ps, c3) sets c3 of the pass's pixel shader";

    // Bones[25] starts at c4 + 25 * 4 = c104, where the vertex shader takes its offset.
    D3DXMATRIX bones[26];
    for (D3DXMATRIX& bone : bones) D3DXMatrixIdentity(&bone);
    bones[25]._11 = 0.0f;
    bones[25]._12 = 1.0f;
    ASSERT_EQ(D3D_OK, effect->SetMatrixArray("Bones", bones, 26));
    inPass(effect, "Palette", [&] { device()->GetVertexShaderConstantF(104, seen, 1); });
    EXPECT_EQ(0.0f, seen[0]);
    EXPECT_EQ(1.0f, seen[1]) << "rows of Bones[25] land in c104 onwards";
}

namespace {

// The same sampling pass with the sampler bound by a state or by its register.
std::string samplerEffect(bool byRegister) {
    return std::string("texture Picture;\nsampler2D PictureSampler") + (byRegister ? " : register(s1)" : "") +
           " = sampler_state { Texture = <Picture>; MinFilter = POINT; MagFilter = POINT; AddressU = CLAMP;\n"
           " AddressV = MIRROR; };\ntechnique T { pass { ZEnable = FALSE; CullMode = NONE;" +
           (byRegister ? "" : " Sampler[1] = <PictureSampler>;") +
           "\n VertexShader = asm { vs_2_0 def c0, 0.5, 0.5, 0, 0 dcl_position v0 mov oPos, v0 mov oT0, c0 };\n"
           " PixelShader = asm { ps_2_0 dcl t0.xy dcl_2d s1 texld r0, t0, s1 mov oC0, r0 }; } }";
}

}  // namespace

class SamplerBindingTest : public CompiledEffectTest, public ::testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(ByStateAndByRegister, SamplerBindingTest, ::testing::Values(false, true));

TEST_P(SamplerBindingTest, SamplerParametersBindTheirTextureAndStates) {
    ID3DXEffect* effect = load(samplerEffect(GetParam()));
    ASSERT_TRUE(effect);
    IDirect3DTexture9* texture = nullptr;
    ASSERT_EQ(D3D_OK, device()->CreateTexture(1, 1, 1, 0, D3DFMT_X8R8G8B8, D3DPOOL_MANAGED, &texture, nullptr));
    D3DLOCKED_RECT locked;
    texture->LockRect(0, &locked, nullptr, 0);
    *static_cast<DWORD*>(locked.pBits) = D3DCOLOR_XRGB(10, 200, 30);
    texture->UnlockRect(0);
    ASSERT_EQ(D3D_OK, effect->SetTexture("Picture", texture));
    drawQuad(effect);
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, D3DCOLOR_XRGB(10, 200, 30)));
    DWORD addressU = 0, addressV = 0;
    inPass(effect, effect->GetTechnique(0), [&] {
        device()->GetSamplerState(1, D3DSAMP_ADDRESSU, &addressU);
        device()->GetSamplerState(1, D3DSAMP_ADDRESSV, &addressV);
    });
    EXPECT_EQ(static_cast<DWORD>(D3DTADDRESS_CLAMP), addressU);
    EXPECT_EQ(static_cast<DWORD>(D3DTADDRESS_MIRROR), addressV);
    ASSERT_EQ(D3D_OK, effect->SetTexture("Picture", nullptr));
    device()->SetTexture(1, nullptr);
    texture->Release();
}

namespace {

enum StateKind { Render, Stage, Sampler };

struct PassState {
    const char* source;
    StateKind kind;
    DWORD state;
    DWORD index;
    DWORD expected;
};

DWORD floatBits(float value) {
    DWORD bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

// A row of every family of state and of every table of symbolic values: a wrong row of the state
// table or a wrong symbol shows up here.
const PassState kPassStates[] = {
    {"CullMode = CW", Render, D3DRS_CULLMODE, 0, D3DCULL_CW},
    {"ZFunc = GREATEREQUAL", Render, D3DRS_ZFUNC, 0, D3DCMP_GREATEREQUAL},
    {"SrcBlend = INVSRCALPHA", Render, D3DRS_SRCBLEND, 0, D3DBLEND_INVSRCALPHA},
    {"AlphaBlendEnable = <Blend>", Render, D3DRS_ALPHABLENDENABLE, 0, TRUE},
    {"FillMode = WIREFRAME", Render, D3DRS_FILLMODE, 0, D3DFILL_WIREFRAME},
    {"ShadeMode = FLAT", Render, D3DRS_SHADEMODE, 0, D3DSHADE_FLAT},
    {"FogTableMode = LINEAR", Render, D3DRS_FOGTABLEMODE, 0, D3DFOG_LINEAR},
    {"DiffuseMaterialSource = COLOR2", Render, D3DRS_DIFFUSEMATERIALSOURCE, 0, D3DMCS_COLOR2},
    {"FogColor = 0x00ff00ff", Render, D3DRS_FOGCOLOR, 0, 0x00ff00ff},
    {"Wrap1 = 3", Render, D3DRS_WRAP1, 0, 3},
    {"Lighting = FALSE", Render, D3DRS_LIGHTING, 0, FALSE},
    {"FogStart = 0.25", Render, D3DRS_FOGSTART, 0, floatBits(0.25f)},
    {"PointScaleEnable = TRUE", Render, D3DRS_POINTSCALEENABLE, 0, TRUE},
    {"AntialiasedLineEnable = TRUE", Render, D3DRS_ANTIALIASEDLINEENABLE, 0, TRUE},
    {"BlendFactor = 0x11223344", Render, D3DRS_BLENDFACTOR, 0, 0x11223344},
    {"ColorWriteEnable = RED | BLUE", Render, D3DRS_COLORWRITEENABLE, 0, D3DCOLORWRITEENABLE_RED | D3DCOLORWRITEENABLE_BLUE},
    {"StencilFail = INCRSAT", Render, D3DRS_STENCILFAIL, 0, D3DSTENCILOP_INCRSAT},
    {"BlendOpAlpha = REVSUBTRACT", Render, D3DRS_BLENDOPALPHA, 0, D3DBLENDOP_REVSUBTRACT},
    {"DepthBias = -0.5", Render, D3DRS_DEPTHBIAS, 0, floatBits(-0.5f)},
    {"ColorOp[1] = MODULATE2X", Stage, D3DTSS_COLOROP, 1, D3DTOP_MODULATE2X},
    {"ColorArg1[1] = TEXTURE | COMPLEMENT", Stage, D3DTSS_COLORARG1, 1, D3DTA_TEXTURE | D3DTA_COMPLEMENT},
    {"BumpEnvMat00[1] = 0.75", Stage, D3DTSS_BUMPENVMAT00, 1, floatBits(0.75f)},
    {"TextureTransformFlags[3] = COUNT3", Stage, D3DTSS_TEXTURETRANSFORMFLAGS, 3, D3DTTFF_COUNT3},
    {"MinFilter[2] = ANISOTROPIC", Sampler, D3DSAMP_MINFILTER, 2, D3DTEXF_ANISOTROPIC},
    {"AddressW[2] = BORDER", Sampler, D3DSAMP_ADDRESSW, 2, D3DTADDRESS_BORDER},
    {"MaxAnisotropy[2] = 4", Sampler, D3DSAMP_MAXANISOTROPY, 2, 4},
};

}  // namespace

TEST_F(CompiledEffectTest, PassStatesReachTheDevice) {
    std::string source = "bool Blend = true;\ntechnique T { pass {\n LightEnable[0] = TRUE; MaterialPower = 8;\n";
    for (const PassState& row : kPassStates) source += std::string(" ") + row.source + ";\n";
    ID3DXEffect* effect = load(source + "} }");
    ASSERT_TRUE(effect);
    BOOL lightEnabled = FALSE;
    D3DMATERIAL9 material = {};
    inPass(effect, effect->GetTechnique(0), [&] {
        for (const PassState& row : kPassStates) {
            DWORD value = 0xDEADBEEF;
            if (row.kind == Render) device()->GetRenderState(static_cast<D3DRENDERSTATETYPE>(row.state), &value);
            if (row.kind == Stage)
                device()->GetTextureStageState(row.index, static_cast<D3DTEXTURESTAGESTATETYPE>(row.state), &value);
            if (row.kind == Sampler) device()->GetSamplerState(row.index, static_cast<D3DSAMPLERSTATETYPE>(row.state), &value);
            EXPECT_EQ(row.expected, value) << row.source;
        }
        device()->GetLightEnable(0, &lightEnabled);
        device()->GetMaterial(&material);
    });
    EXPECT_TRUE(lightEnabled);
    EXPECT_EQ(8.0f, material.Power);
}
