#include <VexilDX9/SceneLoaderX.h>
#include <zeb/Array.h>
#include <zeb/Logger.h>

#include <objbase.h>

#include <cstring>
#include <string>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

unsigned int SceneLoaderX::m_namelessFrameCount = 0;

namespace {

template <class T> T* allocateZeroed() {
    T* record = static_cast<T*>(CoTaskMemAlloc(sizeof(T)));
    if (record) std::memset(static_cast<void*>(record), 0, sizeof(T));
    return record;
}

// A terminated single-byte copy of the text, or null when the allocation fails.
char* allocateNarrowCopy(const zeb::String& text) {
    zeb::CString bytes = text.getLowerByteString();
    char* copy = static_cast<char*>(CoTaskMemAlloc(bytes.size() + 1));
    if (!copy) return nullptr;
    std::memcpy(copy, bytes.c_str(), bytes.size());
    copy[bytes.size()] = 0;
    return copy;
}

void freeBlock(void* block) {
    if (block) CoTaskMemFree(block);
}

bool isKnownMeshType(D3DXMESHDATATYPE type) {
    return type == D3DXMESHTYPE_MESH || type == D3DXMESHTYPE_PMESH || type == D3DXMESHTYPE_PATCHMESH;
}

// The mesh interface of the record, whichever member of the union the type names.
IUnknown* meshInterface(const D3DXMESHDATA& data) {
    switch (data.Type) {
    case D3DXMESHTYPE_MESH: return data.pMesh;
    case D3DXMESHTYPE_PMESH: return data.pPMesh;
    case D3DXMESHTYPE_PATCHMESH: return data.pPatchMesh;
    default: return nullptr;
    }
}

}  // namespace

SceneLoaderX::SceneLoaderX() {}

void SceneLoaderX::setTextureFileRootDirectory(const zeb::String& directory) { m_textureFileRootDirectory = directory; }

void SceneLoaderX::assignNamelessFrameToName(const zeb::String& prefix) { m_namelessFramePrefix = prefix; }

void SceneLoaderX::resetDummyFrameCounter() { m_namelessFrameCount = 0; }

zeb::String SceneLoaderX::nextNamelessFrameName() {
    unsigned int number = m_namelessFrameCount++;
    zeb::String name(m_namelessFramePrefix);
    name.append(std::to_string(number).c_str());
    return name;
}

HRESULT SceneLoaderX::CreateFrame(const char* name, D3DXFRAME** newFrame) {
    ZEB_TRACE(fileLogger, "SceneLoaderX::CreateFrame");
    D3DXFRAME* frame = allocateZeroed<D3DXFRAME>();
    if (!frame) {
        ZEB_LOG(fileLogger, 3, __LINE__, "Unable to allocate anymore D3DXFRAME object");
        return E_OUTOFMEMORY;
    }
    zeb::String frameName(name);
    if (frameName.empty()) frameName = nextNamelessFrameName();
    frame->Name = allocateNarrowCopy(frameName);
    if (!frame->Name) {
        DestroyFrame(frame);
        ZEB_LOG(fileLogger, 4, __LINE__, "Cannot create frame name");
        return E_OUTOFMEMORY;
    }
    *newFrame = frame;
    return S_OK;
}

char* SceneLoaderX::copyTextureFileName(const char* fileName) {
    zeb::String path(fileName);
    if (!path.empty()) replaceRootDirectory(path);
    return allocateNarrowCopy(path);
}

bool SceneLoaderX::copyMaterials(D3DXMESHCONTAINER* container, const D3DXMATERIAL* materials, DWORD numMaterials) {
    container->NumMaterials = numMaterials;
    if (!materials || numMaterials == 0) return true;
    container->pMaterials = static_cast<D3DXMATERIAL*>(CoTaskMemAlloc(sizeof(D3DXMATERIAL) * numMaterials));
    if (!container->pMaterials) return false;
    std::memset(static_cast<void*>(container->pMaterials), 0, sizeof(D3DXMATERIAL) * numMaterials);
    for (DWORD i = 0; i < numMaterials; ++i) {
        D3DXMATERIAL& target = container->pMaterials[i];
        target.MatD3D = materials[i].MatD3D;
        // The renderers light with the diffuse colour alone and a fixed, soft highlight.
        target.MatD3D.Ambient = target.MatD3D.Diffuse;
        target.MatD3D.Power = 1.5f;
        // A failed name copy leaves the entry null; the load goes on without that texture.
        target.pTextureFilename = copyTextureFileName(materials[i].pTextureFilename);
    }
    return true;
}

HRESULT SceneLoaderX::CreateMeshContainer(const char* name, const D3DXMESHDATA* meshData,
                                          const D3DXMATERIAL* materials, const D3DXEFFECTINSTANCE* effectInstances,
                                          DWORD numMaterials, const DWORD* adjacency, ID3DXSkinInfo* skinInfo,
                                          D3DXMESHCONTAINER** newMeshContainer) {
    ZEB_TRACE(fileLogger, "SceneLoaderX::CreateMeshContainer");
    (void)effectInstances;
    D3DXMESHCONTAINER* container = allocateZeroed<D3DXMESHCONTAINER>();
    if (!container) {
        ZEB_LOG(fileLogger, 3, __LINE__, "Cannot allocate anymore D3DXMESHCONTAINER");
        return E_OUTOFMEMORY;
    }

    zeb::String containerName(name);
    container->Name = allocateNarrowCopy(containerName);
    if (!container->Name && !containerName.empty()) {
        DestroyMeshContainer(container);
        return E_OUTOFMEMORY;
    }

    if (!copyMaterials(container, materials, numMaterials)) {
        DestroyMeshContainer(container);
        return E_OUTOFMEMORY;
    }

    if (meshData) {
        container->MeshData.Type = meshData->Type;
        DWORD numFaces = 0;
        switch (meshData->Type) {
        case D3DXMESHTYPE_MESH:
            container->MeshData.pMesh = meshData->pMesh;
            container->MeshData.pMesh->AddRef();
            numFaces = container->MeshData.pMesh->GetNumFaces();
            break;
        case D3DXMESHTYPE_PMESH:
            container->MeshData.pPMesh = meshData->pPMesh;
            container->MeshData.pPMesh->AddRef();
            numFaces = container->MeshData.pPMesh->GetNumFaces();
            break;
        case D3DXMESHTYPE_PATCHMESH:
            container->MeshData.pPatchMesh = meshData->pPatchMesh;
            container->MeshData.pPatchMesh->AddRef();
            break;
        default:
            DestroyMeshContainer(container);
            return E_INVALIDARG;
        }

        ZEB_LOG(fileLogger, 2, __LINE__, "Copying adjacency data numFaces =" + numFaces);
        if (adjacency && numFaces > 0) {
            size_t bytes = sizeof(DWORD) * 3 * static_cast<size_t>(numFaces);
            container->pAdjacency = static_cast<DWORD*>(CoTaskMemAlloc(bytes));
            if (!container->pAdjacency) {
                DestroyMeshContainer(container);
                return E_OUTOFMEMORY;
            }
            std::memcpy(container->pAdjacency, adjacency, bytes);
        }
    }

    if (skinInfo) {
        container->pSkinInfo = skinInfo;
        skinInfo->AddRef();
    }

    *newMeshContainer = container;
    return S_OK;
}

HRESULT SceneLoaderX::DestroyFrame(D3DXFRAME* frame) {
    ZEB_TRACE(fileLogger, "SceneLoaderX::DestroyFrame");
    if (!frame) return E_INVALIDARG;
    // Children, siblings and the mesh container are destroyed by calls of their own.
    freeBlock(frame->Name);
    freeBlock(frame);
    return S_OK;
}

HRESULT SceneLoaderX::DestroyMeshContainer(D3DXMESHCONTAINER* meshContainer) {
    ZEB_TRACE(fileLogger, "SceneLoaderX::DestroyMeshContainer");
    if (!meshContainer) return E_INVALIDARG;
    freeBlock(meshContainer->Name);
    if (meshContainer->pMaterials) {
        for (DWORD i = 0; i < meshContainer->NumMaterials; ++i) freeBlock(meshContainer->pMaterials[i].pTextureFilename);
        freeBlock(meshContainer->pMaterials);
    }
    if (isKnownMeshType(meshContainer->MeshData.Type)) {
        if (IUnknown* mesh = meshInterface(meshContainer->MeshData)) mesh->Release();
        meshContainer->MeshData.pMesh = nullptr;
    }
    freeBlock(meshContainer->pAdjacency);
    if (meshContainer->pSkinInfo) meshContainer->pSkinInfo->Release();
    freeBlock(meshContainer);
    return S_OK;
}

void SceneLoaderX::replaceRootDirectory(zeb::String& path) {
    if (path.empty()) {
        ZEB_LOG(fileLogger, 2, __LINE__, "User passes an empty string to replaceRootDirectory");
        return;
    }
    // Only the file name survives; forward slashes are not separators.
    zeb::Array<zeb::String> pieces = path.tokenize("\\");
    zeb::String rerooted(m_textureFileRootDirectory);
    rerooted.append("\\");
    if (!pieces.empty()) rerooted.append(pieces.last());
    path = rerooted;
}
