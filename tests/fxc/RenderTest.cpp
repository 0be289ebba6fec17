#include "CompiledEffectFixture.h"

#include <cstring>

namespace {

const D3DCOLOR kBlack = D3DCOLOR_XRGB(0, 0, 0);

// c0 is the colour, c1 moves the quad; both come from parameters through states or registers.
const char kConstants[] = R"(
float4 Colour = { 1, 0, 0, 1 };
float4 Offset = { 0, 0, 0, 0 };
float4 Bound : register(ps, c3) = { 0, 1, 0, 1 };
float4x4 Bones[26];
technique Draw
{
    pass Explicit
    {
        ZEnable = FALSE;
        CullMode = NONE;
        VertexShaderConstantF[1] = <Offset>;
        PixelShaderConstantF[0] = (Colour);
        VertexShader = asm { vs_2_0 dcl_position v0 add oPos, v0, c1 };
        PixelShader = asm { ps_2_0 mov oC0, c0 };
    }
}
technique ByRegister
{
    pass { ZEnable = FALSE; CullMode = NONE;
           VertexShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 };
           PixelShader = asm { ps_2_0 mov oC0, c3 }; }
}
technique Palette
{
    pass { ZEnable = FALSE; CullMode = NONE;
           VertexShaderConstantF[4] = <Bones>;
           PixelShaderConstantF[0] = <Colour>;
           VertexShader = asm { vs_2_0 dcl_position v0 add oPos, v0, c104 };
           PixelShader = asm { ps_2_0 mov oC0, c0 }; }
}
)";

}  // namespace

TEST_F(CompiledEffectTest, ParameterValuesReachShaderConstantsWhenAPassBegins) {
    ID3DXEffect* effect = load(kConstants);
    ASSERT_TRUE(effect);
    drawQuad(effect);
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, D3DCOLOR_XRGB(255, 0, 0))) << "default value";

    D3DXVECTOR4 colour(0.25f, 0.5f, 0.75f, 1.0f);
    ASSERT_EQ(D3D_OK, effect->SetVector("Colour", &colour));
    drawQuad(effect);
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, D3DCOLOR_XRGB(64, 128, 191)));

    D3DXVECTOR4 offset(1.0f, 0, 0, 0);
    ASSERT_EQ(D3D_OK, effect->SetVector("Offset", &offset));
    drawQuad(effect);
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kBlack)) << "the vertex constant moved the quad right";
    EXPECT_TRUE(renderedPixelIs(kRightEdge, kCentre, D3DCOLOR_XRGB(64, 128, 191)));
}

TEST_F(CompiledEffectTest, RegisterBindingsAndArraysFeedTheirRegisters) {
    ID3DXEffect* effect = load(kConstants);
    ASSERT_TRUE(effect);
    D3DXVECTOR4 bound(0, 0, 1, 1);
    ASSERT_EQ(D3D_OK, effect->SetVector("Bound", &bound));
    ASSERT_EQ(D3D_OK, effect->SetTechnique("ByRegister"));
    UINT passes = 0;
    effect->Begin(&passes, 0);
    effect->BeginPass(0);
    float seen[4] = {};
    device()->GetPixelShaderConstantF(3, seen, 1);
    effect->EndPass();
    effect->End();
    EXPECT_EQ(1.0f, seen[2]) << "register(ps, c3) sets c3 of the pass's pixel shader";

    // Bones[25] starts at c4 + 25 * 4 = c104, where the vertex shader takes its offset.
    D3DXMATRIX bones[26];
    for (D3DXMATRIX& bone : bones) D3DXMatrixIdentity(&bone);
    bones[25]._11 = 0.0f;
    bones[25]._12 = 1.0f;
    ASSERT_EQ(D3D_OK, effect->SetMatrixArray("Bones", bones, 26));
    ASSERT_EQ(D3D_OK, effect->SetTechnique("Palette"));
    effect->Begin(&passes, 0);
    effect->BeginPass(0);
    device()->GetVertexShaderConstantF(104, seen, 1);
    effect->EndPass();
    effect->End();
    EXPECT_EQ(0.0f, seen[0]);
    EXPECT_EQ(1.0f, seen[1]) << "rows of Bones[25] land in c104 onwards";
}

namespace {

// The same sampling pass with the sampler bound by a state or by its register.
const char kSamplerByState[] = R"(
    texture Picture;
    sampler2D PictureSampler = sampler_state { Texture = <Picture>; MinFilter = POINT; MagFilter = POINT;
                                               AddressU = CLAMP; AddressV = MIRROR; };
    technique T { pass { ZEnable = FALSE; CullMode = NONE; Sampler[1] = <PictureSampler>;
        VertexShader = asm { vs_2_0 def c0, 0.5, 0.5, 0, 0 dcl_position v0 mov oPos, v0 mov oT0, c0 };
        PixelShader = asm { ps_2_0 dcl t0.xy dcl_2d s1 texld r0, t0, s1 mov oC0, r0 }; } }
)";
const char kSamplerByRegister[] = R"(
    texture Picture;
    sampler2D PictureSampler : register(s1) = sampler_state { Texture = <Picture>; MinFilter = POINT;
                                               MagFilter = POINT; AddressU = CLAMP; AddressV = MIRROR; };
    technique T { pass { ZEnable = FALSE; CullMode = NONE;
        VertexShader = asm { vs_2_0 def c0, 0.5, 0.5, 0, 0 dcl_position v0 mov oPos, v0 mov oT0, c0 };
        PixelShader = asm { ps_2_0 dcl t0.xy dcl_2d s1 texld r0, t0, s1 mov oC0, r0 }; } }
)";

}  // namespace

class SamplerBindingTest : public CompiledEffectTest, public ::testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(ByStateAndByRegister, SamplerBindingTest, ::testing::Values(kSamplerByState, kSamplerByRegister));

TEST_P(SamplerBindingTest, SamplerParametersBindTheirTextureAndStates) {
    ID3DXEffect* effect = load(GetParam());
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
    UINT passes = 0;
    effect->Begin(&passes, 0);
    effect->BeginPass(0);
    DWORD addressU = 0, addressV = 0;
    device()->GetSamplerState(1, D3DSAMP_ADDRESSU, &addressU);
    device()->GetSamplerState(1, D3DSAMP_ADDRESSV, &addressV);
    effect->EndPass();
    effect->End();
    EXPECT_EQ(static_cast<DWORD>(D3DTADDRESS_CLAMP), addressU);
    EXPECT_EQ(static_cast<DWORD>(D3DTADDRESS_MIRROR), addressV);
    ASSERT_EQ(D3D_OK, effect->SetTexture("Picture", nullptr));
    device()->SetTexture(1, nullptr);
    texture->Release();
}

// Every family of state reaches the device with its symbolic value: a wrong row of the state
// table or a wrong symbol shows up here.
TEST_F(CompiledEffectTest, PassStatesReachTheDevice) {
    ID3DXEffect* effect = load(R"(
        bool Blend = true;
        technique T { pass {
            CullMode = CW; ZFunc = GREATEREQUAL; SrcBlend = INVSRCALPHA; AlphaBlendEnable = <Blend>;
            FogColor = 0x00ff00ff; Wrap1 = 3; Lighting = FALSE; FogStart = 0.25; PointScaleEnable = TRUE;
            AntialiasedLineEnable = TRUE; BlendFactor = 0x11223344; ColorWriteEnable = RED | BLUE;
            StencilFail = INCRSAT; BlendOpAlpha = REVSUBTRACT; DepthBias = -0.5;
            ColorOp[1] = MODULATE2X; ColorArg1[1] = TEXTURE | COMPLEMENT; BumpEnvMat00[1] = 0.75;
            MinFilter[2] = ANISOTROPIC; AddressW[2] = BORDER; MaxAnisotropy[2] = 4;
            LightEnable[0] = TRUE; MaterialPower = 8;
        } }
    )");
    ASSERT_TRUE(effect);
    UINT passes = 0;
    effect->Begin(&passes, D3DXFX_DONOTSAVESTATE);
    ASSERT_EQ(D3D_OK, effect->BeginPass(0));
    auto renderState = [&](D3DRENDERSTATETYPE state) {
        DWORD value = 0;
        device()->GetRenderState(state, &value);
        return value;
    };
    auto asFloat = [](DWORD bits) {
        float value;
        std::memcpy(&value, &bits, sizeof(value));
        return value;
    };
    EXPECT_EQ(static_cast<DWORD>(D3DCULL_CW), renderState(D3DRS_CULLMODE));
    EXPECT_EQ(static_cast<DWORD>(D3DCMP_GREATEREQUAL), renderState(D3DRS_ZFUNC));
    EXPECT_EQ(static_cast<DWORD>(D3DBLEND_INVSRCALPHA), renderState(D3DRS_SRCBLEND));
    EXPECT_EQ(1u, renderState(D3DRS_ALPHABLENDENABLE));
    EXPECT_EQ(0x00ff00ffu, renderState(D3DRS_FOGCOLOR));
    EXPECT_EQ(3u, renderState(D3DRS_WRAP1));
    EXPECT_EQ(0u, renderState(D3DRS_LIGHTING));
    EXPECT_EQ(0.25f, asFloat(renderState(D3DRS_FOGSTART)));
    EXPECT_EQ(1u, renderState(D3DRS_POINTSCALEENABLE));
    EXPECT_EQ(1u, renderState(D3DRS_ANTIALIASEDLINEENABLE));
    EXPECT_EQ(0x11223344u, renderState(D3DRS_BLENDFACTOR));
    EXPECT_EQ(static_cast<DWORD>(D3DCOLORWRITEENABLE_RED | D3DCOLORWRITEENABLE_BLUE),
              renderState(D3DRS_COLORWRITEENABLE));
    EXPECT_EQ(static_cast<DWORD>(D3DSTENCILOP_INCRSAT), renderState(D3DRS_STENCILFAIL));
    EXPECT_EQ(static_cast<DWORD>(D3DBLENDOP_REVSUBTRACT), renderState(D3DRS_BLENDOPALPHA));
    EXPECT_EQ(-0.5f, asFloat(renderState(D3DRS_DEPTHBIAS)));
    DWORD value = 0;
    device()->GetTextureStageState(1, D3DTSS_COLOROP, &value);
    EXPECT_EQ(static_cast<DWORD>(D3DTOP_MODULATE2X), value);
    device()->GetTextureStageState(1, D3DTSS_COLORARG1, &value);
    EXPECT_EQ(static_cast<DWORD>(D3DTA_TEXTURE | D3DTA_COMPLEMENT), value);
    device()->GetTextureStageState(1, D3DTSS_BUMPENVMAT00, &value);
    EXPECT_EQ(0.75f, asFloat(value));
    device()->GetSamplerState(2, D3DSAMP_MINFILTER, &value);
    EXPECT_EQ(static_cast<DWORD>(D3DTEXF_ANISOTROPIC), value);
    device()->GetSamplerState(2, D3DSAMP_ADDRESSW, &value);
    EXPECT_EQ(static_cast<DWORD>(D3DTADDRESS_BORDER), value);
    device()->GetSamplerState(2, D3DSAMP_MAXANISOTROPY, &value);
    EXPECT_EQ(4u, value);
    BOOL lightEnabled = FALSE;
    device()->GetLightEnable(0, &lightEnabled);
    EXPECT_TRUE(lightEnabled);
    D3DMATERIAL9 material;
    device()->GetMaterial(&material);
    EXPECT_EQ(8.0f, material.Power);
    effect->EndPass();
    effect->End();
}
