#include <d3dx9.h>

#include "SkinConvert.h"
#include "SkinInfoWrap.h"
#include "SystemD3DX.h"

// The skin-info factories hand out the completed object around the system one.
namespace {

using CreateSkinInfoFunction = HRESULT(WINAPI*)(DWORD, const D3DVERTEXELEMENT9*, DWORD, ID3DXSkinInfo**);
using CreateSkinInfoFVFFunction = HRESULT(WINAPI*)(DWORD, DWORD, DWORD, ID3DXSkinInfo**);

// Takes over the reference in `system`.
HRESULT handOut(HRESULT hr, ID3DXSkinInfo* system, ID3DXSkinInfo** out)
{
    if (FAILED(hr))
        return hr;
    *out = vexilWrapSkinInfo(system);
    system->Release();
    return *out ? D3D_OK : E_OUTOFMEMORY;
}

HRESULT createSystemSkinInfo(DWORD vertexCount, const D3DVERTEXELEMENT9* declaration, DWORD boneCount,
                             ID3DXSkinInfo** out)
{
    static const auto create = systemD3DXFunction<CreateSkinInfoFunction>("D3DXCreateSkinInfo");
    return create ? create(vertexCount, declaration, boneCount, out) : E_NOTIMPL;
}

}  // namespace

extern "C" HRESULT WINAPI D3DXCreateSkinInfo(DWORD vertexCount, const D3DVERTEXELEMENT9* declaration,
                                             DWORD boneCount, ID3DXSkinInfo** skinInfo)
{
    if (!skinInfo)
        return D3DERR_INVALIDCALL;
    ID3DXSkinInfo* system = nullptr;
    HRESULT hr = createSystemSkinInfo(vertexCount, declaration, boneCount, &system);
    return handOut(hr, system, skinInfo);
}

extern "C" HRESULT WINAPI D3DXCreateSkinInfoFVF(DWORD vertexCount, DWORD fvf, DWORD boneCount,
                                                ID3DXSkinInfo** skinInfo)
{
    static const auto create = systemD3DXFunction<CreateSkinInfoFVFFunction>("D3DXCreateSkinInfoFVF");
    if (!skinInfo)
        return D3DERR_INVALIDCALL;
    if (!create)
        return E_NOTIMPL;
    ID3DXSkinInfo* system = nullptr;
    HRESULT hr = create(vertexCount, fvf, boneCount, &system);
    return handOut(hr, system, skinInfo);
}

extern "C" HRESULT WINAPI D3DXCreateSkinInfoFromBlendedMesh(ID3DXBaseMesh* mesh, DWORD boneCount,
                                                            const D3DXBONECOMBINATION* combinations,
                                                            ID3DXSkinInfo** skinInfo)
{
    if (!mesh || !combinations || !skinInfo)
        return D3DERR_INVALIDCALL;
    D3DVERTEXELEMENT9 declaration[MAX_FVF_DECL_SIZE];
    HRESULT hr = mesh->GetDeclaration(declaration);
    if (FAILED(hr))
        return hr;
    ID3DXSkinInfo* system = nullptr;
    if (FAILED(hr = createSystemSkinInfo(mesh->GetNumVertices(), declaration, boneCount, &system)))
        return hr;
    if (FAILED(hr = skinconvert::influencesFromBlendedMesh(mesh, boneCount, combinations, system))) {
        system->Release();
        return hr;
    }
    return handOut(hr, system, skinInfo);
}

// The skin info of a mesh read from an open X file is the completed one too.
extern "C" HRESULT WINAPI D3DXLoadSkinMeshFromXof(ID3DXFileData* fileData, DWORD flags, IDirect3DDevice9* device,
                                                  ID3DXBuffer** adjacency, ID3DXBuffer** materials,
                                                  ID3DXBuffer** effectInstances, DWORD* materialCount,
                                                  ID3DXSkinInfo** skinInfo, ID3DXMesh** mesh)
{
    using LoadFunction = HRESULT(WINAPI*)(ID3DXFileData*, DWORD, IDirect3DDevice9*, ID3DXBuffer**, ID3DXBuffer**,
                                          ID3DXBuffer**, DWORD*, ID3DXSkinInfo**, ID3DXMesh**);
    static const auto load = systemD3DXFunction<LoadFunction>("D3DXLoadSkinMeshFromXof");
    if (!load)
        return E_NOTIMPL;
    ID3DXSkinInfo* system = nullptr;
    HRESULT hr = load(fileData, flags, device, adjacency, materials, effectInstances, materialCount,
                      skinInfo ? &system : nullptr, mesh);
    if (FAILED(hr) || !skinInfo)
        return hr;
    if (!system) {
        *skinInfo = nullptr;
        return hr;
    }
    *skinInfo = vexilWrapSkinInfo(system);
    system->Release();
    return *skinInfo ? hr : E_OUTOFMEMORY;
}

// The system D3DX reads a mesh object only through its skin loader; the skin info is not asked for.
extern "C" HRESULT WINAPI D3DXLoadMeshFromXof(ID3DXFileData* fileData, DWORD flags, IDirect3DDevice9* device,
                                              ID3DXBuffer** adjacency, ID3DXBuffer** materials,
                                              ID3DXBuffer** effectInstances, DWORD* materialCount, ID3DXMesh** mesh)
{
    return D3DXLoadSkinMeshFromXof(fileData, flags, device, adjacency, materials, effectInstances, materialCount,
                                   nullptr, mesh);
}
