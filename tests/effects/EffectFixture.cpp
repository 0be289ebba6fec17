#include "EffectFixture.h"

void EffectTest::SetUp() {
    vexiltest::DeviceTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(D3D_OK, D3DXCreateMeshFVF(4, 8, D3DXMESH_MANAGED, D3DFVF_XYZ, device(), &m_mesh));
    const float quads[2][4] = {{-0.2f, -0.2f, 0.2f, 0.2f}, {-0.2f, -0.9f, 0.2f, -0.7f}};
    D3DXVECTOR3* vertices = nullptr;
    m_mesh->LockVertexBuffer(0, reinterpret_cast<void**>(&vertices));
    for (int q = 0; q < 2; ++q) {
        const float* r = quads[q];
        vertices[q * 4 + 0] = D3DXVECTOR3(r[0], r[1], 0.5f);
        vertices[q * 4 + 1] = D3DXVECTOR3(r[0], r[3], 0.5f);
        vertices[q * 4 + 2] = D3DXVECTOR3(r[2], r[3], 0.5f);
        vertices[q * 4 + 3] = D3DXVECTOR3(r[2], r[1], 0.5f);
    }
    m_mesh->UnlockVertexBuffer();
    WORD* indices = nullptr;
    m_mesh->LockIndexBuffer(0, reinterpret_cast<void**>(&indices));
    for (WORD q = 0; q < 2; ++q) {
        const WORD base = static_cast<WORD>(q * 4);
        const WORD quad[6] = {base, static_cast<WORD>(base + 1), static_cast<WORD>(base + 2),
                              base, static_cast<WORD>(base + 2), static_cast<WORD>(base + 3)};
        for (int i = 0; i < 6; ++i) indices[q * 6 + i] = quad[i];
    }
    m_mesh->UnlockIndexBuffer();
    DWORD* attributes = nullptr;
    m_mesh->LockAttributeBuffer(0, &attributes);
    attributes[0] = attributes[1] = 0;
    attributes[2] = attributes[3] = 1;
    m_mesh->UnlockAttributeBuffer();
}

void EffectTest::TearDown() {
    if (m_mesh) m_mesh->Release();
    m_mesh = nullptr;
    vexiltest::DeviceTest::TearDown();
}

COMPtr<IDirect3DDevice9>::pointer EffectTest::deviceHolder() const {
    device()->AddRef();
    return COMPtr<IDirect3DDevice9>::pointer(device());
}

zeb::String EffectTest::effectPath(const char* name) { return zeb::String("test-effects\\") + name; }
