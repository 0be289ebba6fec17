#include "Compiler.h"
#include "TestDevice.h"
#include "TestPaths.h"

#include <d3dx9.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
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

// A parameter's description and the words of its default, when the declaration gives one.
struct Expected {
    const char *name, *semantic;
    D3DXPARAMETER_CLASS cls;
    D3DXPARAMETER_TYPE type;
    UINT rows, columns, elements, annotations;
    DWORD flags;
    std::vector<uint32_t> value;
};

std::vector<uint32_t> bitsOf(std::initializer_list<float> values) {
    std::vector<uint32_t> bits(values.size());
    std::memcpy(bits.data(), values.begin(), bits.size() * 4);
    return bits;
}

enum StateKind { Render, Stage, Sampler };

// A state by its Direct3D name, which the effect's name matches but for letter case.
struct DeviceState { const char* name; StateKind kind; DWORD state; bool isFloat; };

#define RS(name) {#name, Render, D3DRS_##name, false}
#define RF(name) {#name, Render, D3DRS_##name, true}
#define TS(name) {#name, Stage, D3DTSS_##name, false}
#define TF(name) {#name, Stage, D3DTSS_##name, true}
#define SS(name) {#name, Sampler, D3DSAMP_##name, false}

// Every render, texture-stage and sampler state a pass can set.
const DeviceState kDeviceStates[] = {
    RS(ZENABLE), RS(FILLMODE), RS(SHADEMODE), RS(ZWRITEENABLE), RS(ALPHATESTENABLE), RS(LASTPIXEL), RS(SRCBLEND),
    RS(DESTBLEND), RS(CULLMODE), RS(ZFUNC), RS(ALPHAREF), RS(ALPHAFUNC), RS(DITHERENABLE), RS(ALPHABLENDENABLE),
    RS(FOGENABLE), RS(SPECULARENABLE), RS(FOGCOLOR), RS(FOGTABLEMODE), RF(FOGSTART), RF(FOGEND), RF(FOGDENSITY),
    RS(RANGEFOGENABLE), RS(STENCILENABLE), RS(STENCILFAIL), RS(STENCILZFAIL), RS(STENCILPASS), RS(STENCILFUNC),
    RS(STENCILREF), RS(STENCILMASK), RS(STENCILWRITEMASK), RS(TEXTUREFACTOR), RS(WRAP0), RS(WRAP1), RS(WRAP2),
    RS(WRAP3), RS(WRAP4), RS(WRAP5), RS(WRAP6), RS(WRAP7), RS(WRAP8), RS(WRAP9), RS(WRAP10), RS(WRAP11), RS(WRAP12),
    RS(WRAP13), RS(WRAP14), RS(WRAP15), RS(CLIPPING), RS(LIGHTING), RS(AMBIENT), RS(FOGVERTEXMODE), RS(COLORVERTEX),
    RS(LOCALVIEWER), RS(NORMALIZENORMALS), RS(DIFFUSEMATERIALSOURCE), RS(SPECULARMATERIALSOURCE),
    RS(AMBIENTMATERIALSOURCE), RS(EMISSIVEMATERIALSOURCE), RS(VERTEXBLEND), RS(CLIPPLANEENABLE), RF(POINTSIZE),
    RF(POINTSIZE_MIN), RF(POINTSIZE_MAX), RS(POINTSPRITEENABLE), RS(POINTSCALEENABLE), RF(POINTSCALE_A),
    RF(POINTSCALE_B), RF(POINTSCALE_C), RS(MULTISAMPLEANTIALIAS), RS(MULTISAMPLEMASK), RS(PATCHEDGESTYLE),
    RS(DEBUGMONITORTOKEN), RS(INDEXEDVERTEXBLENDENABLE), RS(COLORWRITEENABLE), RF(TWEENFACTOR), RS(BLENDOP),
    RS(POSITIONDEGREE), RS(NORMALDEGREE), RS(SCISSORTESTENABLE), RF(SLOPESCALEDEPTHBIAS), RS(ANTIALIASEDLINEENABLE),
    RF(MINTESSELLATIONLEVEL), RF(MAXTESSELLATIONLEVEL), RF(ADAPTIVETESS_X), RF(ADAPTIVETESS_Y), RF(ADAPTIVETESS_Z),
    RF(ADAPTIVETESS_W), RS(ENABLEADAPTIVETESSELLATION), RS(TWOSIDEDSTENCILMODE), RS(CCW_STENCILFAIL),
    RS(CCW_STENCILZFAIL), RS(CCW_STENCILPASS), RS(CCW_STENCILFUNC), RS(COLORWRITEENABLE1), RS(COLORWRITEENABLE2),
    RS(COLORWRITEENABLE3), RS(BLENDFACTOR), RS(SRGBWRITEENABLE), RF(DEPTHBIAS), RS(SEPARATEALPHABLENDENABLE),
    RS(SRCBLENDALPHA), RS(DESTBLENDALPHA), RS(BLENDOPALPHA),
    TS(COLOROP), TS(COLORARG0), TS(COLORARG1), TS(COLORARG2), TS(ALPHAOP), TS(ALPHAARG0), TS(ALPHAARG1),
    TS(ALPHAARG2), TS(RESULTARG), TF(BUMPENVMAT00), TF(BUMPENVMAT01), TF(BUMPENVMAT10), TF(BUMPENVMAT11),
    TS(TEXCOORDINDEX), TF(BUMPENVLSCALE), TF(BUMPENVLOFFSET), TS(TEXTURETRANSFORMFLAGS), TS(CONSTANT),
    SS(ADDRESSU), SS(ADDRESSV), SS(ADDRESSW), SS(BORDERCOLOR), SS(MAGFILTER), SS(MINFILTER), SS(MIPFILTER),
    {"MIPMAPLODBIAS", Sampler, D3DSAMP_MIPMAPLODBIAS, true}, SS(MAXMIPLEVEL), SS(MAXANISOTROPY), SS(SRGBTEXTURE),
    SS(ELEMENTINDEX), SS(DMAPOFFSET),
};

// Light and material states in the order of the fields of D3DLIGHT9 (after Type) and D3DMATERIAL9,
// with the number of values each takes.
const std::pair<const char*, int> kLightAndMaterial[] = {
    {"LightDiffuse[0]", 4}, {"LightSpecular[0]", 4}, {"LightAmbient[0]", 4}, {"LightPosition[0]", 3},
    {"LightDirection[0]", 3}, {"LightRange[0]", 1}, {"LightFallOff[0]", 1}, {"LightAttenuation0[0]", 1},
    {"LightAttenuation1[0]", 1}, {"LightAttenuation2[0]", 1}, {"LightTheta[0]", 1}, {"LightPhi[0]", 1},
    {"MaterialDiffuse", 4}, {"MaterialAmbient", 4}, {"MaterialSpecular", 4}, {"MaterialEmissive", 4}, {"MaterialPower", 1}};

}  // namespace

TEST_F(CompiledEffectTest, ParametersTechniquesAndPassesAreDescribedAsDeclared) {
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
    ASSERT_EQ(3u, effectDesc.Techniques);
    // Unnamed techniques and passes read as "": D3DX compares names without checking for null.
    const struct { const char* name; UINT passes, annotations; } techniques[] = {{"First", 3, 2}, {"", 1, 0}, {"Third", 0, 0}};
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
    EXPECT_TRUE(passes[0].pVertexShaderFunction && !passes[0].pPixelShaderFunction);
    EXPECT_STREQ("", passes[1].Name);
    EXPECT_TRUE(passes[1].pPixelShaderFunction && !passes[1].pVertexShaderFunction);
    EXPECT_EQ(effect->GetPass("First", 2), effect->GetPassByName("First", "Last"));
    DWORD address = 0;
    inPass(effect->GetTechnique(1),
           [&] { device()->GetSamplerState(D3DVERTEXTEXTURESAMPLER0, D3DSAMP_ADDRESSU, &address); });
    EXPECT_EQ(static_cast<DWORD>(D3DTADDRESS_MIRROR), address) << "register(vs, s0) in the pass of a shader parameter";
}

TEST_F(CompiledEffectTest, ParametersFeedTheRegistersAndSamplersTheyAreBoundTo) {
    // Through register(...) in one technique, through states in the other.
    ID3DXEffect* effect = load(R"(
        float4 Colour = { 1, 0, 0, 1 };
        float4 Bound : register(ps, c3) = { 0, 1, 0, 1 };
        float4x3 Bones[26];
        bool Flag : register(vs, b3) = true;
        texture Picture;
        sampler2D ByRegister : register(s1) = sampler_state { Texture = <Picture>; AddressU = CLAMP; };
        sampler2D ByState = sampler_state { Texture = <Picture>; AddressV = MIRROR; };
        technique Registers { pass { VertexShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 };
            PixelShader = asm { ps_2_0 dcl t0.xy dcl_2d s1 texld r0, t0, s1 add r0, r0, c3 mov oC0, r0 }; } }
        technique States { pass {
            VertexShaderConstantF[4] = <Bones>; PixelShaderConstantF[0] = (Colour); Sampler[2] = <ByState>;
            VertexShaderConstantB[2] = true; VertexShaderConstantI[1] = { 1, 2, 3, 4 };
            PixelShaderConstantB[4] = true; PixelShaderConstantI[5] = { 1, 2, 3, 4 };
            VertexShader = asm { vs_2_0 dcl_position v0 add oPos, v0, c104 };
            PixelShader = asm { ps_2_0 dcl t0.xy dcl_2d s2 texld r0, t0, s2 add r0, r0, c0 mov oC0, r0 }; } }
    )");
    ASSERT_TRUE(effect);
    IDirect3DTexture9* texture = nullptr;
    ASSERT_EQ(D3D_OK, device()->CreateTexture(1, 1, 1, 0, D3DFMT_X8R8G8B8, D3DPOOL_MANAGED, &texture, nullptr));
    ASSERT_EQ(D3D_OK, effect->SetTexture("Picture", texture));
    D3DXVECTOR4 bound(0, 0, 1, 1);
    ASSERT_EQ(D3D_OK, effect->SetVector("Bound", &bound));
    // A 4x3 matrix takes a register a row, so Bones[25] starts at c4 + 25 * 4 = c104.
    D3DXMATRIX bones[26];
    std::fill(bones, bones + 26, D3DXMATRIX(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16));
    ASSERT_EQ(D3D_OK, effect->SetMatrixArray("Bones", bones, 26));
    float constant[4] = {}, rows[4][4] = {};
    BOOL flags[3] = {};
    int integers[8] = {};
    IDirect3DBaseTexture9* sampled[2] = {};
    DWORD addressU = 0, addressV = 0;
    inPass("Registers", [&] {
        device()->GetPixelShaderConstantF(3, constant, 1);
        device()->GetTexture(1, &sampled[0]);
        device()->GetSamplerState(1, D3DSAMP_ADDRESSU, &addressU);
        device()->GetVertexShaderConstantB(3, &flags[1], 1);
    });
    inPass("States", [&] {
        device()->GetVertexShaderConstantF(104, rows[0], 4);
        device()->GetTexture(2, &sampled[1]);
        device()->GetSamplerState(2, D3DSAMP_ADDRESSV, &addressV);
        device()->GetVertexShaderConstantB(2, &flags[0], 1);
        device()->GetVertexShaderConstantI(1, integers, 1);
        device()->GetPixelShaderConstantB(4, &flags[2], 1);
        device()->GetPixelShaderConstantI(5, integers + 4, 1);
    });
    EXPECT_EQ(1.0f, constant[2]) << "register(ps, c3) sets c3 of the pass's pixel shader";
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 3; ++c) EXPECT_EQ(4.0f * r + c + 1, rows[r][c]) << "rows of Bones[25] in c104 onwards";
    EXPECT_TRUE(flags[0] && flags[1] && flags[2]) << "bool constants, literal and bound";
    EXPECT_TRUE(integers[2] == 3 && integers[6] == 3) << "int constants of both shaders";
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

// Each state gets its own value, a whole number or a float as the state takes, so a state table row
// that names the wrong state shows; values of two terms are or-ed.
TEST_F(CompiledEffectTest, EveryPassStateReachesItsDeviceState) {
    std::string source = "bool Lit = true;\ntechnique T { pass {\n LightEnable[0] = Lit; LightType[0] = DIRECTIONAL;\n";
    int counted = 0;  // light and material values count up from 1, in field order
    for (const auto& field : kLightAndMaterial) {
        std::string values;
        for (int i = 0; i < field.second; ++i) values += (i ? ", " : "") + std::to_string(++counted);
        source += std::string(" ") + field.first + " = { " + values + " };\n";
    }
    for (size_t k = 0; k < std::size(kDeviceStates); ++k) {
        const DeviceState& row = kDeviceStates[k];
        source += std::string(" ") + row.name + (row.kind == Render ? "" : "[1]") + " = " +
                  (row.isFloat ? std::to_string(k + 0.5) : "256 | " + std::to_string(k)) + ";\n";
    }
    ID3DXEffect* effect = load(source + "} }");
    ASSERT_TRUE(effect);
    BOOL lightEnabled = FALSE;
    D3DLIGHT9 light = {};
    D3DMATERIAL9 material = {};
    float fields[42] = {};
    inPass("T", [&] {
        for (size_t k = 0; k < std::size(kDeviceStates); ++k) {
            const DeviceState& row = kDeviceStates[k];
            DWORD value = 0xDEADBEEF;
            if (row.kind == Render) device()->GetRenderState(static_cast<D3DRENDERSTATETYPE>(row.state), &value);
            if (row.kind == Stage) device()->GetTextureStageState(1, static_cast<D3DTEXTURESTAGESTATETYPE>(row.state), &value);
            if (row.kind == Sampler) device()->GetSamplerState(1, static_cast<D3DSAMPLERSTATETYPE>(row.state), &value);
            EXPECT_EQ(row.isFloat ? bitsOf({k + 0.5f})[0] : 0x100 | static_cast<DWORD>(k), value) << row.name;
        }
        device()->GetLightEnable(0, &lightEnabled);
        device()->GetLight(0, &light);
        device()->GetMaterial(&material);
    });
    EXPECT_TRUE(lightEnabled);
    EXPECT_EQ(D3DLIGHT_DIRECTIONAL, light.Type);
    std::memcpy(fields, &light.Diffuse, 25 * sizeof(float));
    std::memcpy(fields + 25, &material, sizeof(material));
    for (int i = 0; i < 42; ++i) EXPECT_EQ(i + 1.0f, fields[i]) << "field " << i << " of the light, then the material";
}

// An initializer lists a matrix row by row whatever its packing; a column_major matrix takes a
// register a column, so its registers hold the listed values a column each.
TEST_F(CompiledEffectTest, MatrixDefaultsReachTheirRegistersInTheirPacking) {
    ID3DXEffect* effect = load(R"(
        column_major float4x3 Columns : register(vs, c8) = { 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12 };
        row_major float4x3 Rows : register(vs, c12) = { 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12 };
        technique T { pass { VertexShader = asm { vs_2_0 dcl_position v0 add r0, v0, c8 add r0, r0, c10
            add r0, r0, c12 add r0, r0, c15 mov oPos, r0 }; } }
    )");
    ASSERT_TRUE(effect);
    float columns[3][4] = {}, rows[4][4] = {};
    inPass("T", [&] {
        device()->GetVertexShaderConstantF(8, columns[0], 3);
        device()->GetVertexShaderConstantF(12, rows[0], 4);
    });
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(3.0f * r + c + 1, columns[c][r]) << "column " << c << " of Columns in c" << 8 + c;
            EXPECT_EQ(3.0f * r + c + 1, rows[r][c]) << "row " << r << " of Rows in c" << 12 + r;
        }
}
