#include "FrameRenderer.h"

#include <windows.h>

namespace vexilview {

namespace {

// A soft white light from above and behind the default camera: the scene's own three lights are
// dim grey, enough to shade but not to see by.
D3DLIGHT9 keyLight() {
    D3DLIGHT9 light = {};
    light.Type = D3DLIGHT_DIRECTIONAL;
    light.Diffuse = {0.7f, 0.7f, 0.68f, 1.0f};
    light.Direction = kKeyLightDirection;
    return light;
}

const DWORD kKeyLightIndex = 3;
const D3DCOLOR kAmbient = D3DCOLOR_XRGB(96, 96, 104);

}  // namespace

std::wstring programDirectory() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring directory(path);
    return directory.substr(0, directory.find_last_of(L"\\/") + 1);
}

bool FrameRenderer::useSkinEffect(const COMPtr<IDirect3DDevice9>::pointer& device, std::string& problem) {
    const std::wstring file = programDirectory() + L"skinnedMesh.fxo";
    if (!m_effectReady && !m_skinEffect.load(zeb::String(file.c_str()), device)) {
        problem = "the skinning effect skinnedMesh.fxo beside vexil-view did not load";
        return false;
    }
    m_effectReady = true;
    if (!m_scene.meshManager().skinnedMesh().empty() && !m_scene.meshManager().setSkinEffect(BorrowedEffect(&m_skinEffect))) {
        problem = "the skinning effect lacks parameters the skinned meshes need";
        return false;
    }
    return true;
}

void FrameRenderer::setStates(IDirect3DDevice9* device) const {
    device->SetRenderState(D3DRS_ZENABLE, D3DZB_TRUE);
    device->SetRenderState(D3DRS_LIGHTING, TRUE);
    device->SetRenderState(D3DRS_AMBIENT, kAmbient);
    device->SetRenderState(D3DRS_NORMALIZENORMALS, TRUE);
    device->SetRenderState(D3DRS_SPECULARENABLE, FALSE);
    const D3DLIGHT9 light = keyLight();
    device->SetLight(kKeyLightIndex, &light);
    device->LightEnable(kKeyLightIndex, TRUE);
    device->SetSamplerState(0, D3DSAMP_MINFILTER, D3DTEXF_LINEAR);
    device->SetSamplerState(0, D3DSAMP_MAGFILTER, D3DTEXF_LINEAR);
    device->SetSamplerState(0, D3DSAMP_MIPFILTER, D3DTEXF_LINEAR);
    device->SetTransform(D3DTS_PROJECTION, &m_scene.perspectiveViewer().projection());
}

void FrameRenderer::switchOffKeyLight(IDirect3DDevice9* device) const { device->LightEnable(kKeyLightIndex, FALSE); }

bool FrameRenderer::drawRigid(IDirect3DDevice9* device, bool textures) {
    bool drawn = true;
    if (m_shadows && m_lit.hasShadows()) {
        drawn = m_lit.drawShadowed(device, textures);
    } else if (m_lighting == Lighting::BlinnPhong && m_lit.hasLighting()) {
        drawn = m_lit.drawLit(device, textures);
    } else {
        drawn = m_scene.renderRigid(device, textures);
        drawBareMeshes(device);
        return drawn;
    }
    // The effects leave their shaders bound; the skin path after them is fixed-function.
    device->SetVertexShader(nullptr);
    device->SetPixelShader(nullptr);
    return drawn;
}

void FrameRenderer::drawBareMeshes(IDirect3DDevice9* device) const {
    const FrameNodeIndexer& frames = m_scene.meshManager().frameIndex();
    device->SetTexture(0, nullptr);
    device->SetMaterial(&kNeutralMaterial);
    for (const BareMesh& bare : m_scene.bareMeshes()) {
        device->SetTransform(D3DTS_WORLD, &frames[static_cast<int>(bare.frame)].m_combinedTransform);
        for (DWORD id : bare.subsets) bare.mesh->DrawSubset(id);
    }
}

// Each skin through the library, except those whose materials the viewer stands in for: those
// it blends itself, the way the library's fixed-function path does, with its own materials.
bool FrameRenderer::drawSkin(const COMPtr<IDirect3DDevice9>::pointer& device, SkinPath skin, bool textures) {
    const zeb::Array<SkinnedMesh>& skins = m_scene.meshManager().skinnedMesh();
    const FrameNodeIndexer& frames = m_scene.meshManager().frameIndex();
    const bool effect = skin == SkinPath::Effect && m_effectReady;
    zeb::Array<unsigned int> passes;
    passes.append(0);
    bool drawn = true;
    for (unsigned i = 0; i < skins.size(); ++i) {
        const std::vector<D3DMATERIAL9>& materials = m_scene.skinMaterials()[i];
        if (!materials.empty()) {
            drawBlended(device.get(), skins[i], materials, textures);
        } else if (effect) {
            drawn &= skins[i].renderSkin(device, frames, textures, passes, m_scene);
            device->SetVertexShader(nullptr);
            device->SetPixelShader(nullptr);
        } else {
            drawn &= skins[i].renderSkin(device.get(), frames, textures);
        }
    }
    return drawn;
}

void FrameRenderer::drawBlended(IDirect3DDevice9* device, const SkinnedMesh& skin, const std::vector<D3DMATERIAL9>& materials,
                                bool textures) const {
    const FrameNodeIndexer& frames = m_scene.meshManager().frameIndex();
    for (unsigned b = 0; b < skin.boneArrays().size(); ++b) {
        const SkinnedMesh::BoneArray& bones = skin.boneArrays()[b];
        for (const SkinnedMesh::BoneNode& node : bones.nodes) {
            D3DXMATRIX world;
            D3DXMatrixMultiply(&world, &node.offsetMatrix, &frames[static_cast<int>(node.frameIndex)].m_combinedTransform);
            device->SetTransform(D3DTS_WORLDMATRIX(node.influenceIndex), &world);
        }
        device->SetMaterial(&materials[b]);
        device->SetTexture(0, textures ? bones.material.texture : nullptr);
        device->SetRenderState(D3DRS_VERTEXBLEND, bones.nodes.size() - 1);
        skin.mesh()->DrawSubset(b);
    }
    device->SetTexture(0, nullptr);
    device->SetRenderState(D3DRS_VERTEXBLEND, 0);
}

bool FrameRenderer::drawScene(const COMPtr<IDirect3DDevice9>::pointer& device, SkinPath skin, bool textures) {
    device->SetTransform(D3DTS_VIEW, &m_scene.perspectiveViewer().matrixLookAtLH());
    const bool rigid = drawRigid(device.get(), textures);
    return drawSkin(device, skin, textures) && rigid;
}

bool FrameRenderer::draw(const COMPtr<IDirect3DDevice9>::pointer& device, SkinPath skin, bool textures) {
    IDirect3DDevice9* d = device.get();
    if (FAILED(d->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, kBackground, 1.0f, 0)) || FAILED(d->BeginScene()))
        return false;
    setStates(d);
    const bool drawn = drawScene(device, skin, textures);
    d->EndScene();
    return drawn;
}

}  // namespace vexilview
