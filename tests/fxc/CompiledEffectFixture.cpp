#include "CompiledEffectFixture.h"
#include "TestPaths.h"

#include <fstream>
#include <iterator>

void CompiledEffectTest::TearDown() {
    for (ID3DXEffect*& effect : m_effects) {
        if (effect) effect->Release();
        effect = nullptr;
    }
    vexiltest::DeviceTest::TearDown();
}

ID3DXEffect* CompiledEffectTest::load(const std::string& source, ID3DXEffectPool* pool) {
    std::vector<uint8_t> binary;
    try {
        binary = fxc::compileEffectText(source, "test.fx", fxc::PreprocessorOptions());
    } catch (const fxc::CompileError& error) {
        ADD_FAILURE() << error.describe();
        return nullptr;
    }
    for (ID3DXEffect*& slot : m_effects) {
        if (slot) continue;
        HRESULT hr = D3DXCreateEffect(device(), binary.data(), static_cast<UINT>(binary.size()), nullptr, nullptr, 0,
                                      pool, &slot, nullptr);
        EXPECT_EQ(D3D_OK, hr);
        return slot;
    }
    ADD_FAILURE() << "too many effects in one test";
    return nullptr;
}

ID3DXEffect* CompiledEffectTest::loadFixture(const char* name) {
    std::ifstream in(vexiltest::sourcePath(std::string("tests/fxc/fixtures/") + name), std::ios::binary);
    return load(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
}

void CompiledEffectTest::drawQuad(ID3DXEffect* effect) {
    struct Vertex {
        float x, y, z;
    };
    const Vertex quad[4] = {{-0.5f, -0.5f, 0.5f}, {-0.5f, 0.5f, 0.5f}, {0.5f, -0.5f, 0.5f}, {0.5f, 0.5f, 0.5f}};
    testDevice().clear(D3DCOLOR_XRGB(0, 0, 0));
    device()->BeginScene();
    device()->SetFVF(D3DFVF_XYZ);
    ASSERT_EQ(D3D_OK, effect->SetTechnique(effect->GetTechnique(0)));
    UINT passes = 0;
    ASSERT_EQ(D3D_OK, effect->Begin(&passes, 0));
    for (UINT pass = 0; pass < passes; ++pass) {
        EXPECT_EQ(D3D_OK, effect->BeginPass(pass));
        device()->DrawPrimitiveUP(D3DPT_TRIANGLESTRIP, 2, quad, sizeof(Vertex));
        effect->EndPass();
    }
    effect->End();
    device()->EndScene();
}

void CompiledEffectTest::inPass(ID3DXEffect* effect, D3DXHANDLE technique, const std::function<void()>& read) {
    ASSERT_EQ(D3D_OK, effect->SetTechnique(technique));
    UINT passes = 0;
    effect->Begin(&passes, D3DXFX_DONOTSAVESTATE);
    EXPECT_EQ(D3D_OK, effect->BeginPass(0));
    read();
    effect->EndPass();
    effect->End();
}

std::string annotationString(ID3DXEffect* effect, D3DXHANDLE object, const char* name) {
    LPCSTR text = nullptr;
    D3DXHANDLE annotation = effect->GetAnnotationByName(object, name);
    if (!annotation || FAILED(effect->GetString(annotation, &text)) || !text) return "<none>";
    return text;
}
