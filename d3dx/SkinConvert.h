#pragma once
#include <d3dx9.h>

#include <vector>

#include "SkinBlend.h"

// The skin-info operations the system D3DX leaves unimplemented, written against its public
// interfaces so they work on any ID3DXSkinInfo.
namespace skinconvert {

HRESULT readBones(ID3DXSkinInfo* skin, std::vector<skinblend::BoneWeights>& bones);

HRESULT maxVertexInfluences(ID3DXSkinInfo* skin, DWORD* result);

HRESULT maxFaceInfluences(ID3DXSkinInfo* skin, IDirect3DIndexBuffer9* indexBuffer, DWORD faceCount,
                          DWORD* result);

HRESULT convertToBlendedMesh(ID3DXSkinInfo* skin, ID3DXMesh* meshIn, DWORD options,
                             const DWORD* adjacencyIn, DWORD* adjacencyOut, DWORD* faceRemap,
                             ID3DXBuffer** vertexRemap, DWORD* maxFaceInfl,
                             DWORD* boneCombinationCount, ID3DXBuffer** boneCombinationTable,
                             ID3DXMesh** meshOut);

// Reads the influences back out of a blended mesh and its combination table (one entry per
// attribute-table entry) into `skin`, which must have `boneCount` bones.
HRESULT influencesFromBlendedMesh(ID3DXBaseMesh* mesh, DWORD boneCount,
                                  const D3DXBONECOMBINATION* combinations, ID3DXSkinInfo* skin);

}  // namespace skinconvert
