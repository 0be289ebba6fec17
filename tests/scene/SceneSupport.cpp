#include "SceneSupport.h"

#include <TestPaths.h>

#include <fstream>
#include <functional>

namespace scenetest {

static AllocationSpy* activeSpy = nullptr;

AllocationSpy::AllocationSpy()
    : m_allocate("VexilDX9.dll", "ole32.dll", "CoTaskMemAlloc", reinterpret_cast<void*>(&AllocationSpy::allocate)),
      m_free("VexilDX9.dll", "ole32.dll", "CoTaskMemFree", reinterpret_cast<void*>(&AllocationSpy::free)) {
    activeSpy = this;
}

AllocationSpy::~AllocationSpy() { activeSpy = nullptr; }

void* WINAPI AllocationSpy::allocate(SIZE_T bytes) {
    if (++activeSpy->m_allocations == activeSpy->m_failAt) return nullptr;
    void* block = CoTaskMemAlloc(bytes);
    if (block) activeSpy->m_live.insert(block);
    return block;
}

void WINAPI AllocationSpy::free(void* block) {
    activeSpy->m_live.erase(block);
    CoTaskMemFree(block);
}

std::string xHeader() {
    return "xof 0303txt 0032\n"
           "template XSkinMeshHeader { <3cf169ce-ff7c-44ab-93c0-f78f62d172e2>\n"
           " WORD nMaxSkinWeightsPerVertex; WORD nMaxSkinWeightsPerFace; WORD nBones; }\n"
           "template SkinWeights { <6f0d123b-bad2-4167-a0d0-80224f25fabb>\n"
           " STRING transformNodeName; DWORD nWeights; array DWORD vertexIndices[nWeights];\n"
           " array FLOAT weights[nWeights]; Matrix4x4 matrixOffset; }\n";
}

std::string frame(const std::string& name, const std::string& body) { return "Frame " + name + " {\n" + body + "}\n"; }

// The sixteen numbers row by row, as a Matrix4x4.
static std::string matrixText(const D3DXMATRIX& m) {
    std::string text;
    for (int i = 0; i < 16; ++i) text += std::to_string(m[i]) + (i < 15 ? "," : ";;");
    return text;
}

std::string transform(const D3DXMATRIX& matrix) { return "FrameTransformMatrix { " + matrixText(matrix) + " }\n"; }

std::string translation(float x, float y, float z) {
    D3DXMATRIX m;
    return transform(*D3DXMatrixTranslation(&m, x, y, z));
}

std::string quadMesh(const std::string& name, const std::string& materials, const std::string& extra) {
    return "Mesh " + name + " {\n 4; 0.0;0.0;0.0;, 1.0;0.0;0.0;, 1.0;1.0;0.0;, 0.0;1.0;0.0;;\n 2; 3;0,1,2;, 3;0,2,3;;\n" + materials + extra +
           "}\n";
}

std::string material(float r, float g, float b, float a, float power, const std::string& textureFile) {
    std::string text = "Material { " + std::to_string(r) + ";" + std::to_string(g) + ";" + std::to_string(b) + ";" +
                       std::to_string(a) + ";; " + std::to_string(power) + "; 0.25;0.5;0.75;; 0.1;0.2;0.3;;\n";
    if (!textureFile.empty()) text += " TextureFilename { \"" + textureFile + "\"; }\n";
    return text + "}\n";
}

std::string materialList(const std::vector<std::string>& materials, unsigned face0, unsigned face1) {
    std::string text = "MeshMaterialList { " + std::to_string(materials.size()) + "; 2; " + std::to_string(face0) + ", " +
                       std::to_string(face1) + ";;\n";
    for (const std::string& m : materials) text += m;
    return text + "}\n";
}

std::string skin(const std::vector<std::string>& bones, const D3DXMATRIX& offset) {
    std::string text = "XSkinMeshHeader { 2; 2; " + std::to_string(bones.size()) + "; }\n";
    for (size_t b = 0; b < bones.size(); ++b)
        text += "SkinWeights { \"" + bones[b] + "\"; 2; " + std::to_string(2 * b % 4) + "," + std::to_string(2 * b % 4 + 1) +
                "; 1.0,1.0; " + matrixText(offset) + " }\n";
    return text;
}

std::string writeFixture(const std::string& fileName, const std::string& text) {
    std::string path = vexiltest::outputDir() + "\\" + fileName;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

LoadedHierarchy::LoadedHierarchy(IDirect3DDevice9* device, const std::string& path, SceneLoaderX& loader)
    : m_loader(loader) {
    std::wstring wide(path.begin(), path.end());
    m_result = D3DXLoadMeshHierarchyFromXW(wide.c_str(), D3DXMESH_MANAGED, device, &loader, nullptr, &m_root,
                                           &m_animation);
}

HRESULT LoadedHierarchy::destroy() {
    if (m_animation) m_animation->Release();
    m_animation = nullptr;
    HRESULT hr = m_root ? D3DXFrameDestroy(m_root, &m_loader) : S_OK;
    m_root = nullptr;
    return hr;
}

std::vector<D3DXMESHCONTAINER*> containersOf(const D3DXFRAME* frame) {
    std::vector<D3DXMESHCONTAINER*> result;
    for (D3DXMESHCONTAINER* c = frame->pMeshContainer; c; c = c->pNextMeshContainer) result.push_back(c);
    return result;
}

std::vector<D3DXFRAME*> framesPreOrder(D3DXFRAME* root) {
    std::vector<D3DXFRAME*> result;
    std::function<void(D3DXFRAME*)> visit = [&](D3DXFRAME* f) {
        for (; f; f = f->pFrameSibling) {
            result.push_back(f);
            visit(f->pFrameFirstChild);
        }
    };
    visit(root);
    return result;
}

std::vector<FrameRow> tableOf(const FrameNodeIndexer& index) {
    std::vector<FrameRow> rows;
    for (unsigned i = 0; i < index.size(); ++i) rows.push_back({index[int(i)].m_frame->Name, index[int(i)].m_parentIndex});
    return rows;
}

}  // namespace scenetest
