#include "Compiler.h"
#include "TestDevice.h"
#include "TestPaths.h"

#include <d3dx9.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace {

// A real device and an effect compiled in-process from source text, loaded by D3DX from memory.
class CompiledEffectTest : public vexiltest::DeviceTest {
protected:
    void TearDown() override {
        if (m_effect) m_effect->Release();
        vexiltest::DeviceTest::TearDown();
    }

    // Compiles and loads; fails the test (and returns null) when either step fails.
    ID3DXEffect* load(const std::string& source) {
        std::vector<uint8_t> binary;
        try {
            binary = fxc::compileEffectText(source, "test.fx", fxc::PreprocessorOptions());
        } catch (const fxc::CompileError& error) {
            ADD_FAILURE() << error.describe();
            return nullptr;
        }
        EXPECT_EQ(D3D_OK, D3DXCreateEffect(device(), binary.data(), static_cast<UINT>(binary.size()), nullptr,
                                           nullptr, 0, nullptr, &m_effect, nullptr));
        return m_effect;
    }

    // Runs read inside pass 0 of the technique, with the pass's state on the device.
    void inPass(D3DXHANDLE technique, const std::function<void()>& read) {
        ASSERT_EQ(D3D_OK, m_effect->SetTechnique(technique));
        UINT passes = 0;
        m_effect->Begin(&passes, D3DXFX_DONOTSAVESTATE);
        EXPECT_EQ(D3D_OK, m_effect->BeginPass(0));
        read();
        m_effect->EndPass();
        m_effect->End();
    }

    // The string an annotation (or a string parameter when name is null) holds, "<none>" when absent.
    std::string text(D3DXHANDLE object, const char* name = nullptr) {
        LPCSTR value = nullptr;
        D3DXHANDLE handle = name ? m_effect->GetAnnotationByName(object, name) : object;
        if (!handle || FAILED(m_effect->GetString(handle, &value)) || !value) return "<none>";
        return value;
    }

    ID3DXEffect* m_effect = nullptr;
};

struct Expected {
    const char* name;
    const char* semantic;
    D3DXPARAMETER_CLASS cls;
    D3DXPARAMETER_TYPE type;
    UINT rows, columns, elements, annotations;
    DWORD flags;
    std::vector<uint32_t> value;  // the default's words, when the declaration gives one
};

std::vector<uint32_t> bitsOf(std::initializer_list<float> values) {
    std::vector<uint32_t> bits(values.size());
    std::memcpy(bits.data(), values.begin(), bits.size() * 4);
    return bits;
}

enum StateKind { Render, Stage, Sampler };

struct PassState {
    const char* source;
    StateKind kind;
    DWORD state, index, expected;
};

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
    {"FogStart = 0.25", Render, D3DRS_FOGSTART, 0, bitsOf({0.25f})[0]},
    {"PointScaleEnable = TRUE", Render, D3DRS_POINTSCALEENABLE, 0, TRUE},
    {"AntialiasedLineEnable = TRUE", Render, D3DRS_ANTIALIASEDLINEENABLE, 0, TRUE},
    {"BlendFactor = 0x11223344", Render, D3DRS_BLENDFACTOR, 0, 0x11223344},
    {"ColorWriteEnable = RED | BLUE", Render, D3DRS_COLORWRITEENABLE, 0, D3DCOLORWRITEENABLE_RED | D3DCOLORWRITEENABLE_BLUE},
    {"StencilFail = INCRSAT", Render, D3DRS_STENCILFAIL, 0, D3DSTENCILOP_INCRSAT},
    {"BlendOpAlpha = REVSUBTRACT", Render, D3DRS_BLENDOPALPHA, 0, D3DBLENDOP_REVSUBTRACT},
    {"DepthBias = -0.5", Render, D3DRS_DEPTHBIAS, 0, bitsOf({-0.5f})[0]},
    {"ColorOp[1] = MODULATE2X", Stage, D3DTSS_COLOROP, 1, D3DTOP_MODULATE2X},
    {"ColorArg1[1] = TEXTURE | COMPLEMENT", Stage, D3DTSS_COLORARG1, 1, D3DTA_TEXTURE | D3DTA_COMPLEMENT},
    {"BumpEnvMat00[1] = 0.75", Stage, D3DTSS_BUMPENVMAT00, 1, bitsOf({0.75f})[0]},
    {"TextureTransformFlags[3] = COUNT3", Stage, D3DTSS_TEXTURETRANSFORMFLAGS, 3, D3DTTFF_COUNT3},
    {"MinFilter[2] = ANISOTROPIC", Sampler, D3DSAMP_MINFILTER, 2, D3DTEXF_ANISOTROPIC},
    {"AddressW[2] = BORDER", Sampler, D3DSAMP_ADDRESSW, 2, D3DTADDRESS_BORDER},
    {"MaxAnisotropy[2] = 4", Sampler, D3DSAMP_MAXANISOTROPY, 2, 4},
};

}  // namespace

TEST_F(CompiledEffectTest, ParametersAreDescribedAsDeclaredWithTheirDefaultsAndAnnotations) {
    std::ifstream in(vexiltest::sourcePath("tests/fxc/fixtures/declarations.fx"), std::ios::binary);
    ID3DXEffect* effect = load(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
    ASSERT_TRUE(effect);
    const Expected expected[] = {
        {"Colour", "DIFFUSE", D3DXPC_VECTOR, D3DXPT_FLOAT, 1, 4, 0, 3, 0, bitsOf({0.25f, 0.5f, 0.75f, 1.0f})},
        {"World", "WORLD", D3DXPC_MATRIX_ROWS, D3DXPT_FLOAT, 4, 4, 0, 0, 0,
         bitsOf({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16})},  // rows first
        {"Packed", nullptr, D3DXPC_MATRIX_COLUMNS, D3DXPT_FLOAT, 4, 3, 0, 0, 0, {}},
        {"Scale", nullptr, D3DXPC_SCALAR, D3DXPT_FLOAT, 1, 1, 0, 0, 0, bitsOf({-15.0f})},
        {"Enabled", nullptr, D3DXPC_SCALAR, D3DXPT_BOOL, 1, 1, 0, 0, 0, {1}},
        {"Count", nullptr, D3DXPC_SCALAR, D3DXPT_INT, 1, 1, 0, 0, 0, {16}},
        {"Steps", nullptr, D3DXPC_VECTOR, D3DXPT_INT, 1, 3, 0, 0, 0, {7, 7, 7}},  // one value fills the vector
        {"Direction", "DIRECTION", D3DXPC_VECTOR, D3DXPT_FLOAT, 1, 3, 0, 0, 0, bitsOf({0, -1, 0})},
        {"Pair", nullptr, D3DXPC_VECTOR, D3DXPT_FLOAT, 1, 2, 0, 0, 0, bitsOf({3, 4})},
        {"Grid", nullptr, D3DXPC_MATRIX_ROWS, D3DXPT_INT, 2, 3, 0, 0, 0, {1, 2, 3, 4, 5, 6}},
        {"Bones", nullptr, D3DXPC_MATRIX_ROWS, D3DXPT_FLOAT, 4, 4, 26, 0, 0, {}},
        {"Counts", nullptr, D3DXPC_SCALAR, D3DXPT_INT, 1, 1, 3, 0, 0, {1, 2, 3}},
        {"Exposure", nullptr, D3DXPC_SCALAR, D3DXPT_FLOAT, 1, 1, 0, 0, 1, bitsOf({2})},
        {"Label", nullptr, D3DXPC_OBJECT, D3DXPT_STRING, 0, 0, 0, 0, 0, {}},
        {"Diffuse", nullptr, D3DXPC_OBJECT, D3DXPT_TEXTURE, 0, 0, 0, 1, 0, {}},
        {"Sky", nullptr, D3DXPC_OBJECT, D3DXPT_TEXTURECUBE, 0, 0, 0, 0, 0, {}},
        {"DiffuseSampler", nullptr, D3DXPC_OBJECT, D3DXPT_SAMPLER2D, 0, 0, 0, 0, 0, {}},
        {"SkySampler", nullptr, D3DXPC_OBJECT, D3DXPT_SAMPLERCUBE, 0, 0, 0, 0, 0, {}},
        {"Shared", nullptr, D3DXPC_OBJECT, D3DXPT_VERTEXSHADER, 0, 0, 0, 0, 0, {}},
    };
    D3DXEFFECT_DESC effectDesc;
    ASSERT_EQ(D3D_OK, effect->GetDesc(&effectDesc));
    ASSERT_EQ(sizeof(expected) / sizeof(expected[0]), effectDesc.Parameters);
    EXPECT_EQ(0u, effectDesc.Techniques);
    for (UINT i = 0; i < effectDesc.Parameters; ++i) {
        const Expected& e = expected[i];
        D3DXHANDLE parameter = effect->GetParameter(nullptr, i);
        D3DXPARAMETER_DESC d = {};
        ASSERT_EQ(D3D_OK, effect->GetParameterDesc(parameter, &d));
        SCOPED_TRACE(e.name);
        EXPECT_STREQ(e.name, d.Name) << "declaration order";
        EXPECT_STREQ(e.semantic, d.Semantic);
        EXPECT_EQ(e.cls, d.Class);
        EXPECT_EQ(e.type, d.Type);
        if (e.cls != D3DXPC_OBJECT) {
            EXPECT_EQ(e.rows, d.Rows);
            EXPECT_EQ(e.columns, d.Columns);
        }
        EXPECT_EQ(e.elements, d.Elements);
        EXPECT_EQ(e.annotations, d.Annotations);
        EXPECT_EQ(e.flags, d.Flags);
        if (e.value.empty()) continue;
        std::vector<uint32_t> words(e.value.size(), 0xDEADBEEF);
        EXPECT_EQ(D3D_OK, effect->GetValue(parameter, words.data(), static_cast<UINT>(words.size() * 4)));
        EXPECT_EQ(e.value, words);
    }
    D3DXHANDLE colour = effect->GetParameterByName(nullptr, "Colour");
    EXPECT_EQ(colour, effect->GetParameterBySemantic(nullptr, "DIFFUSE"));
    uint32_t max = 0, steps = 0;
    effect->GetValue(effect->GetAnnotationByName(colour, "Max"), &max, 4);
    effect->GetValue(effect->GetAnnotationByName(colour, "Steps"), &steps, 4);
    EXPECT_EQ(bitsOf({2.5f})[0], max);
    EXPECT_EQ(4u, steps);
    EXPECT_EQ("hello", text("Label"));
    EXPECT_EQ("Tint", text(colour, "UIName"));
    EXPECT_EQ("diffuse.png", text("Diffuse", "File"));
    IDirect3DVertexShader9* shader = nullptr;
    ASSERT_EQ(D3D_OK, effect->GetVertexShader("Shared", &shader));
    EXPECT_TRUE(shader) << "shader parameters are created with the effect";
    if (shader) shader->Release();
}

TEST_F(CompiledEffectTest, TechniquesAndPassesKeepSourceOrderNamesAndAnnotations) {
    ID3DXEffect* effect = load(R"(
        technique First < string Purpose = "lit"; int Order = 1; >
        {
            pass Opaque < string Mark = "one"; > { VertexShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 }; }
            pass { PixelShader = asm { ps_2_0 def c0, 1, 0, 0, 1 mov oC0, c0 }; }
            pass Last { CullMode = NONE; }
        }
        technique { pass Only { } }
        technique Third { }
    )");
    ASSERT_TRUE(effect);
    D3DXEFFECT_DESC effectDesc;
    effect->GetDesc(&effectDesc);
    ASSERT_EQ(3u, effectDesc.Techniques);
    // Unnamed techniques and passes read as "": D3DX compares names without checking for null.
    const struct {
        const char* name;
        UINT passes, annotations;
    } techniques[] = {{"First", 3, 2}, {"", 1, 0}, {"Third", 0, 0}};
    for (UINT t = 0; t < 3; ++t) {
        D3DXTECHNIQUE_DESC desc;
        ASSERT_EQ(D3D_OK, effect->GetTechniqueDesc(effect->GetTechnique(t), &desc));
        EXPECT_STREQ(techniques[t].name, desc.Name);
        EXPECT_EQ(techniques[t].passes, desc.Passes);
        EXPECT_EQ(techniques[t].annotations, desc.Annotations);
    }
    EXPECT_EQ("lit", text("First", "Purpose"));
    EXPECT_EQ("one", text(effect->GetPass("First", 0), "Mark"));
    D3DXPASS_DESC passes[3];
    for (UINT p = 0; p < 3; ++p) ASSERT_EQ(D3D_OK, effect->GetPassDesc(effect->GetPass("First", p), &passes[p]));
    EXPECT_STREQ("Opaque", passes[0].Name);
    EXPECT_EQ(1u, passes[0].Annotations);
    EXPECT_TRUE(passes[0].pVertexShaderFunction && !passes[0].pPixelShaderFunction);
    EXPECT_STREQ("", passes[1].Name);
    EXPECT_TRUE(passes[1].pPixelShaderFunction && !passes[1].pVertexShaderFunction);
    EXPECT_EQ(effect->GetPass("First", 2), effect->GetPassByName("First", "Last"));
}

TEST_F(CompiledEffectTest, ParametersFeedTheRegistersAndSamplersTheyAreBoundTo) {
    // Through register(...) in one technique, through states in the other.
    ID3DXEffect* effect = load(R"(
        float4 Colour = { 1, 0, 0, 1 };
        float4 Bound : register(ps, c3) = { 0, 1, 0, 1 };
        float4x4 Bones[26];
        texture Picture;
        sampler2D ByRegister : register(s1) = sampler_state { Texture = <Picture>; AddressU = CLAMP; };
        sampler2D ByState = sampler_state { Texture = <Picture>; AddressV = MIRROR; };
        technique Registers { pass { VertexShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 };
            PixelShader = asm { ps_2_0 dcl t0.xy dcl_2d s1 texld r0, t0, s1 add r0, r0, c3 mov oC0, r0 }; } }
        technique States { pass {
            VertexShaderConstantF[4] = <Bones>; PixelShaderConstantF[0] = (Colour); Sampler[2] = <ByState>;
            VertexShader = asm { vs_2_0 dcl_position v0 add oPos, v0, c104 };
            PixelShader = asm { ps_2_0 dcl t0.xy dcl_2d s2 texld r0, t0, s2 add r0, r0, c0 mov oC0, r0 }; } }
    )");
    ASSERT_TRUE(effect);
    IDirect3DTexture9* texture = nullptr;
    ASSERT_EQ(D3D_OK, device()->CreateTexture(1, 1, 1, 0, D3DFMT_X8R8G8B8, D3DPOOL_MANAGED, &texture, nullptr));
    ASSERT_EQ(D3D_OK, effect->SetTexture("Picture", texture));
    D3DXVECTOR4 bound(0, 0, 1, 1);
    ASSERT_EQ(D3D_OK, effect->SetVector("Bound", &bound));
    // Bones[25] starts at c4 + 25 * 4 = c104, where the vertex shader takes its offset.
    D3DXMATRIX bones[26];
    for (D3DXMATRIX& bone : bones) D3DXMatrixIdentity(&bone);
    bones[25]._11 = 0.0f;
    bones[25]._12 = 1.0f;
    ASSERT_EQ(D3D_OK, effect->SetMatrixArray("Bones", bones, 26));
    float constant[4] = {}, row[4] = {};
    IDirect3DBaseTexture9* sampled[2] = {};
    DWORD addressU = 0, addressV = 0;
    inPass("Registers", [&] {
        device()->GetPixelShaderConstantF(3, constant, 1);
        device()->GetTexture(1, &sampled[0]);
        device()->GetSamplerState(1, D3DSAMP_ADDRESSU, &addressU);
    });
    inPass("States", [&] {
        device()->GetVertexShaderConstantF(104, row, 1);
        device()->GetTexture(2, &sampled[1]);
        device()->GetSamplerState(2, D3DSAMP_ADDRESSV, &addressV);
    });
    EXPECT_EQ(1.0f, constant[2]) << "register(ps, c3) sets c3 of the pass's pixel shader";
    EXPECT_TRUE(row[0] == 0.0f && row[1] == 1.0f) << "rows of Bones[25] land in c104 onwards";
    for (IDirect3DBaseTexture9* seen : sampled) {
        EXPECT_EQ(texture, seen) << "the texture reaches the sampler the pixel shader reads";
        if (seen) seen->Release();
    }
    EXPECT_EQ(static_cast<DWORD>(D3DTADDRESS_CLAMP), addressU);
    EXPECT_EQ(static_cast<DWORD>(D3DTADDRESS_MIRROR), addressV);
    ASSERT_EQ(D3D_OK, effect->SetTexture("Picture", nullptr));
    device()->SetTexture(1, nullptr);
    device()->SetTexture(2, nullptr);
    texture->Release();
}

TEST_F(CompiledEffectTest, PassStatesReachTheDevice) {
    std::string source = "bool Blend = true;\ntechnique T { pass {\n LightEnable[0] = TRUE; MaterialPower = 8;\n";
    for (const PassState& row : kPassStates) source += std::string(" ") + row.source + ";\n";
    ID3DXEffect* effect = load(source + "} }");
    ASSERT_TRUE(effect);
    BOOL lightEnabled = FALSE;
    D3DMATERIAL9 material = {};
    inPass("T", [&] {
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
