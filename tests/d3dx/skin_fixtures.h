#pragma once
// Skinned meshes with known weights, conversion through the drop-in D3DX and the checks every
// converted mesh must pass.
#include "TestHierarchy.h"

#include <d3dx9.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace skintest {

using vexiltest::Ref;

struct Weight {
    DWORD bone;
    DWORD vertex;
    float weight;
};

constexpr DWORD kMeshFVF = D3DFVF_XYZ | D3DFVF_NORMAL | D3DFVF_TEX1;

// kMeshFVF vertices, each with distinct values, faces as given; 16- or 32-bit indices as
// `options` say.
Ref<ID3DXMesh> makeMesh(IDirect3DDevice9* device, DWORD vertexCount, const std::vector<DWORD>& indices,
                        const std::vector<DWORD>& attributes = {}, DWORD options = D3DXMESH_MANAGED);
Ref<ID3DXSkinInfo> makeSkin(DWORD vertexCount, DWORD boneCount, const std::vector<Weight>& weights);

struct Converted {
    HRESULT result = E_FAIL;
    Ref<ID3DXMesh> mesh;
    Ref<ID3DXBuffer> table;
    Ref<ID3DXBuffer> vertexRemap;
    DWORD maxFaceInfluences = 0;
    DWORD combinationCount = 0;
    std::vector<DWORD> faceRemap;
    std::vector<DWORD> adjacency;

    const D3DXBONECOMBINATION& combination(DWORD i) const
    {
        return static_cast<const D3DXBONECOMBINATION*>(table->GetBufferPointer())[i];
    }
    DWORD remappedVertex(DWORD i) const { return static_cast<const DWORD*>(vertexRemap->GetBufferPointer())[i]; }
};

Converted convert(ID3DXSkinInfo* skin, ID3DXMesh* mesh, DWORD options = D3DXMESH_MANAGED,
                  const DWORD* adjacencyIn = nullptr);

// The vertex data as stored.
std::vector<BYTE> readVertices(ID3DXMesh* mesh);

// Source weights of every vertex by bone, repeats summed, weightless ones left out.
std::vector<std::map<DWORD, float>> sourceWeights(ID3DXSkinInfo* skin, DWORD vertexCount);

// Every face in exactly one combination and drawn by its subset, combinations contiguous, in the
// attribute table, with distinct bones and unused slots last, corners mapped back to the
// source face, adjacency following the moved faces, untouched vertex data, and each corner's
// weights: the source ones renormalised over the combination's bones (a vertex with none of
// them rides on the first slot), its heaviest bone always kept, every bone kept wherever the
// face's bones fit one combination. Returns how many faces needed more bones than that.
DWORD expectFaithfulConversion(ID3DXSkinInfo* skin, ID3DXMesh* source, const Converted& converted);

}  // namespace skintest
