#include "EffectFixture.h"

#include <VexilDX9/EffectValue.h>
#include "TestPaths.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

void EffectTest::SetUp() {
    vexiltest::DeviceTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(D3D_OK, D3DXCreateMeshFVF(4, 8, D3DXMESH_MANAGED, D3DFVF_XYZ, device(), m_mesh.receive()));
    const D3DXVECTOR3 vertices[] = {{-0.2f, -0.2f, 0.5f}, {-0.2f, 0.2f, 0.5f}, {0.2f, 0.2f, 0.5f}, {0.2f, -0.2f, 0.5f},
                                    {-0.2f, -0.9f, 0.5f}, {-0.2f, -0.7f, 0.5f}, {0.2f, -0.7f, 0.5f}, {0.2f, -0.9f, 0.5f}};
    const WORD indices[] = {0, 1, 2, 0, 2, 3, 4, 5, 6, 4, 6, 7};
    const DWORD attributes[] = {0, 0, 1, 1};
    void *vertexData = nullptr, *indexData = nullptr;
    DWORD* attributeData = nullptr;
    ASSERT_TRUE(SUCCEEDED(m_mesh->LockVertexBuffer(0, &vertexData)) && SUCCEEDED(m_mesh->LockIndexBuffer(0, &indexData)) &&
                SUCCEEDED(m_mesh->LockAttributeBuffer(0, &attributeData)));
    std::memcpy(vertexData, vertices, sizeof(vertices));
    std::memcpy(indexData, indices, sizeof(indices));
    std::memcpy(attributeData, attributes, sizeof(attributes));
    m_mesh->UnlockVertexBuffer(), m_mesh->UnlockIndexBuffer(), m_mesh->UnlockAttributeBuffer();
    ASSERT_TRUE(m_marks.load(effectPath("marks.fxo"), deviceHolder()));
}

const char* EffectTest::handle(const char* name) {
    const char* h = nullptr;
    EXPECT_TRUE(getParameterHandle(m_marks, name, h)) << name;
    return h;
}

void EffectTest::TearDown() {
    m_marks = Effect();
    m_mesh.reset();
    vexiltest::DeviceTest::TearDown();
}

zeb::String EffectTest::effectPath(const char* name) { return zeb::String("test-effects\\") + name; }

Bytes fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string writeFile(const std::string& name, const Bytes& bytes, size_t length) {
    std::string path = vexiltest::outputDir() + "\\" + name;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(std::min(length, bytes.size())));
    return path;
}

namespace {
const unsigned kEffectMethods = 79;  // IUnknown, ID3DXBaseEffect and ID3DXEffect
void* g_methods[kEffectMethods];
EffectCreationHook* g_creationHook = nullptr;
}  // namespace

void* overrideEffectMethod(ID3DXEffect* effect, EffectMethod method, void* replacement) {
    void**& table = *reinterpret_cast<void***>(effect);
    if (table != g_methods) std::memcpy(g_methods, table, sizeof(g_methods));
    table = g_methods;
    void* replaced = g_methods[method];
    g_methods[method] = replacement;
    return replaced;
}

EffectCreationHook::EffectCreationHook(std::function<void(ID3DXEffect*)> script)
    : m_patch("VexilDX9.dll", "d3dx9_37.dll", "D3DXCreateEffectFromFileW", reinterpret_cast<void*>(&hooked)),
      m_script(std::move(script)) {
    g_creationHook = this;
}

EffectCreationHook::~EffectCreationHook() { g_creationHook = nullptr; }

HRESULT WINAPI EffectCreationHook::hooked(IDirect3DDevice9* device, const wchar_t* file, const D3DXMACRO* macros,
                                          ID3DXInclude* include, DWORD flags, ID3DXEffectPool* pool,
                                          ID3DXEffect** effect, ID3DXBuffer** errors) {
    EffectCreationHook& hook = *g_creationHook;
    ++hook.m_calls;
    hook.macros = macros, hook.include = include, hook.pool = pool;
    HRESULT hr = reinterpret_cast<decltype(&hooked)>(hook.m_patch.original())(device, file, macros, include, flags,
                                                                             pool, effect, errors);
    if (SUCCEEDED(hr) && hook.m_script) hook.m_script(*effect);
    return hr;
}
