#include "SkinInfoWrap.h"
#include "SystemD3DX.h"
#include "XAnimation.h"

#include <d3dx9.h>

#include <cstdio>
#include <vector>

namespace {

using LoadFromMemory = HRESULT(WINAPI*)(const void*, DWORD, DWORD, IDirect3DDevice9*, ID3DXAllocateHierarchy*,
                                        ID3DXLoadUserData*, D3DXFRAME**, ID3DXAnimationController**);

// Stands between the system loader and the caller's allocator so that mesh containers receive
// the completed skin info. The wrapper reference is ours: the caller AddRefs what it keeps.
class SkinWrappingAllocator : public ID3DXAllocateHierarchy {
public:
    explicit SkinWrappingAllocator(ID3DXAllocateHierarchy* inner) : m_inner(inner) {}

    STDMETHOD(CreateFrame)(THIS_ const char* name, D3DXFRAME** newFrame) override
    {
        return m_inner->CreateFrame(name, newFrame);
    }

    STDMETHOD(CreateMeshContainer)(THIS_ const char* name, const D3DXMESHDATA* meshData,
                                   const D3DXMATERIAL* materials, const D3DXEFFECTINSTANCE* effectInstances,
                                   DWORD materialCount, const DWORD* adjacency, ID3DXSkinInfo* skinInfo,
                                   D3DXMESHCONTAINER** newMeshContainer) override
    {
        ID3DXSkinInfo* wrapped = vexilWrapSkinInfo(skinInfo);
        HRESULT hr = m_inner->CreateMeshContainer(name, meshData, materials, effectInstances, materialCount,
                                                  adjacency, wrapped, newMeshContainer);
        if (wrapped)
            wrapped->Release();
        return hr;
    }

    STDMETHOD(DestroyFrame)(THIS_ D3DXFRAME* frame) override { return m_inner->DestroyFrame(frame); }

    STDMETHOD(DestroyMeshContainer)(THIS_ D3DXMESHCONTAINER* meshContainer) override
    {
        return m_inner->DestroyMeshContainer(meshContainer);
    }

private:
    ID3DXAllocateHierarchy* m_inner;
};

bool readWholeFile(const wchar_t* fileName, std::vector<char>& contents)
{
    FILE* file = _wfopen(fileName, L"rb");
    if (!file)
        return false;
    char chunk[65536];
    size_t got;
    while ((got = fread(chunk, 1, sizeof chunk, file)) > 0)
        contents.insert(contents.end(), chunk, chunk + got);
    fclose(file);
    return true;
}

// A file name in the ANSI code page, widened.
std::vector<wchar_t> wideName(const char* fileName)
{
    const int length = MultiByteToWideChar(CP_ACP, 0, fileName, -1, nullptr, 0);
    std::vector<wchar_t> wide(length > 0 ? length : 1);
    MultiByteToWideChar(CP_ACP, 0, fileName, -1, wide.data(), length);
    return wide;
}

// Reads the file and hands its bytes to `load`, as the in-memory loaders take them.
template <class Load>
HRESULT fromFile(const wchar_t* fileName, Load load)
{
    if (!fileName)
        return D3DERR_INVALIDCALL;
    std::vector<char> contents;
    if (!readWholeFile(fileName, contents) || contents.empty())
        return D3DXERR_INVALIDDATA;
    return load(contents.data(), static_cast<DWORD>(contents.size()));
}

} // namespace

extern "C" HRESULT WINAPI D3DXLoadMeshHierarchyFromXInMemory(const void* data, DWORD dataSize, DWORD flags,
                                                             IDirect3DDevice9* device, ID3DXAllocateHierarchy* allocator,
                                                             ID3DXLoadUserData* userDataLoader, D3DXFRAME** frameRoot,
                                                             ID3DXAnimationController** controller)
{
    auto systemLoad = systemD3DXFunction<LoadFromMemory>("D3DXLoadMeshHierarchyFromXInMemory");
    if (!systemLoad)
        return E_FAIL;
    if (controller)
        *controller = nullptr;
    if (!data || !dataSize)
        return D3DERR_INVALIDCALL;
    XAnimationContent animation;
    const XPreparation preparation = prepareXFile(static_cast<const char*>(data), dataSize, animation);
    if (preparation == XPreparation::Damaged)
        return D3DXERR_INVALIDDATA;
    SkinWrappingAllocator wrapper(allocator);
    ID3DXAllocateHierarchy* callbacks = allocator ? &wrapper : nullptr;
    if (preparation == XPreparation::Foreign)
        return systemLoad(data, dataSize, flags, device, callbacks, userDataLoader, frameRoot, nullptr);
    // One attempt only: the caller's allocator sees every frame the system loader makes.
    const HRESULT hr = systemLoad(animation.loadableFile.data(), DWORD(animation.loadableFile.size()), flags, device,
                                  callbacks, userDataLoader, frameRoot, nullptr);
    if (SUCCEEDED(hr) && controller && frameRoot)
        *controller = createXAnimationController(animation, *frameRoot);
    return hr;
}

extern "C" HRESULT WINAPI D3DXLoadMeshHierarchyFromXW(const WCHAR* fileName, DWORD flags, IDirect3DDevice9* device,
                                                      ID3DXAllocateHierarchy* allocator,
                                                      ID3DXLoadUserData* userDataLoader, D3DXFRAME** frameRoot,
                                                      ID3DXAnimationController** controller)
{
    return fromFile(fileName, [&](const void* data, DWORD size) {
        return D3DXLoadMeshHierarchyFromXInMemory(data, size, flags, device, allocator, userDataLoader, frameRoot,
                                                  controller);
    });
}

extern "C" HRESULT WINAPI D3DXLoadMeshHierarchyFromXA(const char* fileName, DWORD flags, IDirect3DDevice9* device,
                                                      ID3DXAllocateHierarchy* allocator,
                                                      ID3DXLoadUserData* userDataLoader, D3DXFRAME** frameRoot,
                                                      ID3DXAnimationController** controller)
{
    if (!fileName)
        return D3DERR_INVALIDCALL;
    return D3DXLoadMeshHierarchyFromXW(wideName(fileName).data(), flags, device, allocator, userDataLoader, frameRoot,
                                       controller);
}

// The single-mesh loaders read the same files: they get the same prepared copy (animation objects
// out of it, which they would not read anyway).
extern "C" HRESULT WINAPI D3DXLoadMeshFromXInMemory(const void* data, DWORD dataSize, DWORD flags,
                                                    IDirect3DDevice9* device, ID3DXBuffer** adjacency,
                                                    ID3DXBuffer** materials, ID3DXBuffer** effectInstances,
                                                    DWORD* materialCount, ID3DXMesh** mesh)
{
    using LoadMesh = HRESULT(WINAPI*)(const void*, DWORD, DWORD, IDirect3DDevice9*, ID3DXBuffer**, ID3DXBuffer**,
                                      ID3DXBuffer**, DWORD*, ID3DXMesh**);
    static const auto systemLoad = systemD3DXFunction<LoadMesh>("D3DXLoadMeshFromXInMemory");
    if (!systemLoad)
        return E_FAIL;
    XAnimationContent prepared;
    const XPreparation preparation =
        data && dataSize ? prepareXFile(static_cast<const char*>(data), dataSize, prepared) : XPreparation::Foreign;
    if (preparation == XPreparation::Damaged)
        return D3DXERR_INVALIDDATA;
    if (preparation == XPreparation::Ready) {
        data = prepared.loadableFile.data();
        dataSize = DWORD(prepared.loadableFile.size());
    }
    return systemLoad(data, dataSize, flags, device, adjacency, materials, effectInstances, materialCount, mesh);
}

extern "C" HRESULT WINAPI D3DXLoadMeshFromXW(const WCHAR* fileName, DWORD flags, IDirect3DDevice9* device,
                                             ID3DXBuffer** adjacency, ID3DXBuffer** materials,
                                             ID3DXBuffer** effectInstances, DWORD* materialCount, ID3DXMesh** mesh)
{
    return fromFile(fileName, [&](const void* data, DWORD size) {
        return D3DXLoadMeshFromXInMemory(data, size, flags, device, adjacency, materials, effectInstances,
                                         materialCount, mesh);
    });
}

extern "C" HRESULT WINAPI D3DXLoadMeshFromXA(const char* fileName, DWORD flags, IDirect3DDevice9* device,
                                             ID3DXBuffer** adjacency, ID3DXBuffer** materials,
                                             ID3DXBuffer** effectInstances, DWORD* materialCount, ID3DXMesh** mesh)
{
    if (!fileName)
        return D3DERR_INVALIDCALL;
    return D3DXLoadMeshFromXW(wideName(fileName).data(), flags, device, adjacency, materials, effectInstances,
                              materialCount, mesh);
}
