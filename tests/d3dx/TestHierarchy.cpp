#include <gtest/gtest.h>

#include "TestHierarchy.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace vexiltest {

HRESULT TestAllocator::CreateFrame(const char* name, D3DXFRAME** newFrame)
{
    D3DXFRAME* frame = new D3DXFRAME{};
    frame->Name = name ? _strdup(name) : nullptr;
    D3DXMatrixIdentity(&frame->TransformationMatrix);
    *newFrame = frame;
    return S_OK;
}

HRESULT TestAllocator::CreateMeshContainer(const char* name, const D3DXMESHDATA* meshData, const D3DXMATERIAL*,
                                           const D3DXEFFECTINSTANCE*, DWORD materialCount, const DWORD*,
                                           ID3DXSkinInfo* skinInfo, D3DXMESHCONTAINER** newMeshContainer)
{
    D3DXMESHCONTAINER* container = new D3DXMESHCONTAINER{};
    container->Name = name ? _strdup(name) : nullptr;
    container->NumMaterials = materialCount;  // the count only: the materials are not kept
    container->MeshData = *meshData;
    if (container->MeshData.pMesh)
        container->MeshData.pMesh->AddRef();
    container->pSkinInfo = skinInfo;
    ++meshContainers;
    if (skinInfo) {
        skinInfo->AddRef();
        DWORD influences = 0;  // Wine's own skin info cannot tell
        if (skinInfo->GetNumBones() > 0 && SUCCEEDED(skinInfo->GetMaxVertexInfluences(&influences)))
            ++skinnedContainers;
    }
    *newMeshContainer = container;
    return S_OK;
}

HRESULT TestAllocator::DestroyFrame(D3DXFRAME* frame)
{
    std::free(frame->Name);
    delete frame;
    return S_OK;
}

HRESULT TestAllocator::DestroyMeshContainer(D3DXMESHCONTAINER* container)
{
    if (container->MeshData.pMesh)
        container->MeshData.pMesh->Release();
    if (container->pSkinInfo)
        skinReferencesLeft = container->pSkinInfo->Release();
    std::free(container->Name);
    delete container;
    return S_OK;
}

LoadedScene::~LoadedScene()
{
    if (controller)
        controller->Release();
    if (root)
        D3DXFrameDestroy(root, &allocator);
}

LoadedScene::LoadedScene(IDirect3DDevice9* device, const std::string& text)
{
    result = D3DXLoadMeshHierarchyFromXInMemory(text.data(), DWORD(text.size()), D3DXMESH_SYSTEMMEM, device,
                                                &allocator, nullptr, &root, &controller);
}

LoadedScene::LoadedScene(IDirect3DDevice9* device, const FromFile& file)
{
    result = D3DXLoadMeshHierarchyFromXA(file.path.c_str(), D3DXMESH_SYSTEMMEM, device, &allocator, nullptr, &root,
                                         &controller);
}

D3DXMATRIX srtMatrix(const D3DXVECTOR3& scale, const D3DXVECTOR3& axis, float degrees, const D3DXVECTOR3& translation)
{
    D3DXQUATERNION rotation;
    D3DXMATRIX out;
    D3DXQuaternionRotationAxis(&rotation, &axis, D3DXToRadian(degrees));
    return *D3DXMatrixTransformation(&out, nullptr, nullptr, &scale, nullptr, &rotation, &translation);
}

::testing::AssertionResult matrixNear(const D3DXMATRIX& actual, const D3DXMATRIX& expected, float tolerance)
{
    for (int i = 0; i < 16; ++i) {
        if (std::fabs(actual.m[i / 4][i % 4] - expected.m[i / 4][i % 4]) > tolerance)
            return ::testing::AssertionFailure() << "element " << i / 4 << "," << i % 4 << " is "
                                                 << actual.m[i / 4][i % 4] << ", not " << expected.m[i / 4][i % 4];
    }
    return ::testing::AssertionSuccess();
}

}  // namespace vexiltest
