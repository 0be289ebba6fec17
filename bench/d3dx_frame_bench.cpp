// The frame utilities and the material-list rewrite of d3dx9_37.dll against their obvious
// alternatives: D3DXFrameCalculateBoundingSphere against a plain loop that places every vertex
// and hands them to D3DXComputeBoundingSphere, and loading a file whose material lists give one
// index against the same file listing every face.
#include <d3dx9.h>
#include <windows.h>

#include "BenchDevice.h"
#include "BenchFrames.h"
#include "BenchTimer.h"
#include "XFixtures.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Allocator : vexilbench::FrameAllocator {
    STDMETHOD(CreateMeshContainer)(THIS_ const char*, const D3DXMESHDATA* data, const D3DXMATERIAL*,
                                   const D3DXEFFECTINSTANCE*, DWORD, const DWORD*, ID3DXSkinInfo*,
                                   D3DXMESHCONTAINER** container) override
    {
        *container = new D3DXMESHCONTAINER{};
        (*container)->MeshData = *data;
        data->pMesh->AddRef();
        return S_OK;
    }
    STDMETHOD(DestroyMeshContainer)(THIS_ D3DXMESHCONTAINER* container) override
    {
        container->MeshData.pMesh->Release();
        delete container;
        return S_OK;
    }
};

struct Scene {
    Allocator allocator;
    D3DXFRAME* root = nullptr;
    HRESULT result;
    Scene(const std::string& file, IDirect3DDevice9* device)
    {
        result = D3DXLoadMeshHierarchyFromXInMemory(file.data(), DWORD(file.size()), D3DXMESH_SYSTEMMEM, device,
                                                    &allocator, nullptr, &root, nullptr);
    }
    ~Scene()
    {
        if (root)
            D3DXFrameDestroy(root, &allocator);
    }
};

// What a program does without the utility: every vertex placed by its frame, then one sphere.
void placeVertices(const D3DXFRAME* frame, const D3DXMATRIX& parent, std::vector<D3DXVECTOR3>& placed)
{
    for (; frame; frame = frame->pFrameSibling) {
        D3DXMATRIX combined = frame->TransformationMatrix * parent;
        for (const D3DXMESHCONTAINER* c = frame->pMeshContainer; c; c = c->pNextMeshContainer) {
            ID3DXMesh* mesh = c->MeshData.pMesh;
            BYTE* vertices = nullptr;
            mesh->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&vertices));
            const size_t first = placed.size();
            placed.resize(first + mesh->GetNumVertices());
            D3DXVec3TransformCoordArray(&placed[first], sizeof(D3DXVECTOR3), reinterpret_cast<D3DXVECTOR3*>(vertices),
                                        mesh->GetNumBytesPerVertex(), &combined, mesh->GetNumVertices());
            mesh->UnlockVertexBuffer();
        }
        placeVertices(frame->pFrameFirstChild, combined, placed);
    }
}

void boundingSphere(const char* label, const std::string& file, IDirect3DDevice9* device, int calls)
{
    Scene scene(file, device);
    if (FAILED(scene.result)) {
        vexilbench::note(label, "could not be loaded");
        return;
    }
    D3DXVECTOR3 center;
    float radius;
    const double ours = vexilbench::bestOf(5, [&] {
        for (int i = 0; i < calls; ++i)
            D3DXFrameCalculateBoundingSphere(scene.root, &center, &radius);
    });
    D3DXMATRIX identity;
    D3DXMatrixIdentity(&identity);
    std::vector<D3DXVECTOR3> placed;
    const double loop = vexilbench::bestOf(5, [&] {
        for (int i = 0; i < calls; ++i) {
            placed.clear();
            placeVertices(scene.root, identity, placed);
            D3DXComputeBoundingSphere(placed.data(), DWORD(placed.size()), sizeof(D3DXVECTOR3), &center, &radius);
        }
    });
    const std::string what = std::string("D3DXFrameCalculateBoundingSphere, ") + label;
    vexilbench::report(what.c_str(), ours / calls, loop / calls, "placed vertices and D3DXComputeBoundingSphere", 1.5);
}

void shortListLoad(const char* label, bool binary, bool packed, IDirect3DDevice9* device)
{
    const size_t faces = 20000;
    std::string shortList = xfixtures::materialListFile(faces, {1}, binary);
    std::string fullList = xfixtures::materialListFile(faces, std::vector<uint32_t>(faces, 1), binary);
    if (packed) {
        shortList = xfixtures::compressed(shortList);
        fullList = xfixtures::compressed(fullList);
    }
    const auto load = [&](const std::string& file) {
        return vexilbench::bestOf(5, [&] { Scene scene(file, device); });
    };
    const double ours = load(shortList), reference = load(fullList);
    if (FAILED(Scene(shortList, device).result)) {
        vexilbench::note(label, "could not be loaded");
        return;
    }
    const std::string what = std::string("load, one material index for 20,000 faces, ") + label;
    vexilbench::report(what.c_str(), ours, reference, "the same file listing every face", 1.2);
}

std::string readFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

int main()
{
    vexilbench::BenchDevice device;
    if (!device.create()) {
        vexilbench::note("d3dx_frame_bench", "no Direct3D device");
        return 1;
    }
    const std::string tinyPath = vexilbench::samplePath("sdk\\Tiny\\tiny.x");
    const std::string tiny = readFile(tinyPath);
    if (tiny.empty())
        vexilbench::note("D3DXFrameCalculateBoundingSphere, tiny.x", "skipped: " + tinyPath + " not found");
    else
        boundingSphere("tiny.x", tiny, device.device, 200);
    boundingSphere("a 20,000-quad strip", xfixtures::materialListFile(20000, {0}, true), device.device, 50);
    shortListLoad("text", false, false, device.device);
    shortListLoad("compressed binary", true, true, device.device);
    return 0;
}
