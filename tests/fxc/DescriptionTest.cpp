#include "CompiledEffectFixture.h"

#include <cstring>
#include <vector>

namespace {

struct Expected {
    const char* name;
    const char* semantic;
    D3DXPARAMETER_CLASS cls;
    D3DXPARAMETER_TYPE type;
    UINT rows, columns, elements, annotations;
    DWORD flags;
};

std::vector<uint32_t> bitsOf(std::initializer_list<float> values) {
    std::vector<uint32_t> bits(values.size());
    std::memcpy(bits.data(), values.begin(), bits.size() * 4);
    return bits;
}

}  // namespace

TEST_F(CompiledEffectTest, ParametersAreDescribedAsDeclaredWithTheirDefaultsAndAnnotations) {
    ID3DXEffect* effect = loadFixture("declarations.fx");
    ASSERT_TRUE(effect);
    const Expected expected[] = {
        {"Colour", "DIFFUSE", D3DXPC_VECTOR, D3DXPT_FLOAT, 1, 4, 0, 3, 0},
        {"World", "WORLD", D3DXPC_MATRIX_ROWS, D3DXPT_FLOAT, 4, 4, 0, 0, 0},
        {"Packed", nullptr, D3DXPC_MATRIX_COLUMNS, D3DXPT_FLOAT, 4, 3, 0, 0, 0},
        {"Scale", nullptr, D3DXPC_SCALAR, D3DXPT_FLOAT, 1, 1, 0, 0, 0},
        {"Enabled", nullptr, D3DXPC_SCALAR, D3DXPT_BOOL, 1, 1, 0, 0, 0},
        {"Count", nullptr, D3DXPC_SCALAR, D3DXPT_INT, 1, 1, 0, 0, 0},
        {"Steps", nullptr, D3DXPC_VECTOR, D3DXPT_INT, 1, 3, 0, 0, 0},
        {"Direction", "DIRECTION", D3DXPC_VECTOR, D3DXPT_FLOAT, 1, 3, 0, 0, 0},
        {"Pair", nullptr, D3DXPC_VECTOR, D3DXPT_FLOAT, 1, 2, 0, 0, 0},
        {"Grid", nullptr, D3DXPC_MATRIX_ROWS, D3DXPT_INT, 2, 3, 0, 0, 0},
        {"Bones", nullptr, D3DXPC_MATRIX_ROWS, D3DXPT_FLOAT, 4, 4, 26, 0, 0},
        {"Counts", nullptr, D3DXPC_SCALAR, D3DXPT_INT, 1, 1, 3, 0, 0},
        {"Exposure", nullptr, D3DXPC_SCALAR, D3DXPT_FLOAT, 1, 1, 0, 0, 1},
        {"Label", nullptr, D3DXPC_OBJECT, D3DXPT_STRING, 0, 0, 0, 0, 0},
        {"Diffuse", nullptr, D3DXPC_OBJECT, D3DXPT_TEXTURE, 0, 0, 0, 1, 0},
        {"Sky", nullptr, D3DXPC_OBJECT, D3DXPT_TEXTURECUBE, 0, 0, 0, 0, 0},
        {"DiffuseSampler", nullptr, D3DXPC_OBJECT, D3DXPT_SAMPLER2D, 0, 0, 0, 0, 0},
        {"SkySampler", nullptr, D3DXPC_OBJECT, D3DXPT_SAMPLERCUBE, 0, 0, 0, 0, 0},
        {"Shared", nullptr, D3DXPC_OBJECT, D3DXPT_VERTEXSHADER, 0, 0, 0, 0, 0},
    };
    D3DXEFFECT_DESC effectDesc;
    ASSERT_EQ(D3D_OK, effect->GetDesc(&effectDesc));
    ASSERT_EQ(sizeof(expected) / sizeof(expected[0]), effectDesc.Parameters);
    EXPECT_EQ(0u, effectDesc.Techniques);
    for (UINT i = 0; i < effectDesc.Parameters; ++i) {
        const Expected& e = expected[i];
        D3DXPARAMETER_DESC d = {};
        ASSERT_EQ(D3D_OK, effect->GetParameterDesc(effect->GetParameter(nullptr, i), &d));
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
    }
    D3DXHANDLE colour = effect->GetParameterByName(nullptr, "Colour");
    EXPECT_EQ(colour, effect->GetParameterBySemantic(nullptr, "DIFFUSE"));
    const struct {
        D3DXHANDLE parameter;
        std::vector<uint32_t> words;
        const char* why;
    } values[] = {
        {colour, bitsOf({0.25f, 0.5f, 0.75f, 1.0f}), "constructor"},
        {"World", bitsOf({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}), "rows first"},
        {"Scale", bitsOf({-15.0f}), "exponent and suffix"},
        {"Enabled", {1}, "true"},
        {"Count", {16}, "hexadecimal"},
        {"Steps", {7, 7, 7}, "a single value fills the vector"},
        {"Grid", {1, 2, 3, 4, 5, 6}, "nested lists"},
        {"Counts", {1, 2, 3}, "array"},
        {effect->GetAnnotationByName(colour, "Max"), bitsOf({2.5f}), "float annotation"},
        {effect->GetAnnotationByName(colour, "Steps"), {4}, "int annotation"},
    };
    for (const auto& value : values) {
        std::vector<uint32_t> words(value.words.size(), 0xDEADBEEF);
        EXPECT_EQ(D3D_OK, effect->GetValue(value.parameter, words.data(), static_cast<UINT>(words.size() * 4))) << value.why;
        EXPECT_EQ(value.words, words) << value.why;
    }
    LPCSTR label = nullptr;
    ASSERT_EQ(D3D_OK, effect->GetString("Label", &label));
    EXPECT_STREQ("hello", label);
    IDirect3DVertexShader9* shader = nullptr;
    ASSERT_EQ(D3D_OK, effect->GetVertexShader("Shared", &shader));
    EXPECT_TRUE(shader) << "shader parameters are created with the effect";
    if (shader) shader->Release();
    EXPECT_EQ("Tint", annotationString(effect, colour, "UIName"));
    EXPECT_EQ("diffuse.png", annotationString(effect, effect->GetParameterByName(nullptr, "Diffuse"), "File"));
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
    const char* names[] = {"First", "", "Third"};
    const UINT passCounts[] = {3, 1, 0};
    for (UINT t = 0; t < 3; ++t) {
        D3DXTECHNIQUE_DESC desc;
        ASSERT_EQ(D3D_OK, effect->GetTechniqueDesc(effect->GetTechnique(t), &desc));
        EXPECT_STREQ(names[t], desc.Name);
        EXPECT_EQ(passCounts[t], desc.Passes);
    }
    D3DXHANDLE first = effect->GetTechniqueByName("First");
    EXPECT_EQ("lit", annotationString(effect, first, "Purpose"));
    D3DXTECHNIQUE_DESC firstDesc;
    effect->GetTechniqueDesc(first, &firstDesc);
    EXPECT_EQ(2u, firstDesc.Annotations);

    D3DXPASS_DESC passes[3];
    for (UINT p = 0; p < 3; ++p) ASSERT_EQ(D3D_OK, effect->GetPassDesc(effect->GetPass(first, p), &passes[p]));
    EXPECT_STREQ("Opaque", passes[0].Name);
    EXPECT_EQ(1u, passes[0].Annotations);
    EXPECT_EQ("one", annotationString(effect, effect->GetPass(first, 0), "Mark"));
    EXPECT_TRUE(passes[0].pVertexShaderFunction && !passes[0].pPixelShaderFunction);
    EXPECT_STREQ("", passes[1].Name);
    EXPECT_TRUE(passes[1].pPixelShaderFunction && !passes[1].pVertexShaderFunction);
    EXPECT_STREQ("Last", passes[2].Name);
    EXPECT_EQ(effect->GetPass(first, 2), effect->GetPassByName(first, "Last"));
}
