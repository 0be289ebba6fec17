#pragma once
// Skinned meshes with known weights, conversion through the drop-in D3DX and the checks every
// converted mesh must pass.
#include <d3dx9.h>

#include <map>
#include <string>
#include <vector>

namespace skintest {

// Owns one reference.
template <class T>
class Ref {
public:
    Ref() = default;
    explicit Ref(T* object) : m_object(object) {}
    Ref(const Ref&) = delete;
    Ref& operator=(const Ref&) = delete;
    Ref(Ref&& other) noexcept : m_object(other.m_object) { other.m_object = nullptr; }
    Ref& operator=(Ref&& other) noexcept
    {
        std::swap(m_object, other.m_object);
        return *this;
    }
    ~Ref() { reset(); }
    void reset()
    {
        if (m_object)
            m_object->Release();
        m_object = nullptr;
    }
    // Releases and reports what the last Release returned.
    ULONG releaseCount()
    {
        ULONG left = m_object ? m_object->Release() : 0;
        m_object = nullptr;
        return left;
    }
    T** out() { return &m_object; }
    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

struct Weight {
    DWORD bone;
    DWORD vertex;
    float weight;
};

// Vertices of a strip of quads in clip space, one column of two vertices per x value, all white.
struct StripVertex {
    float x, y, z;
    D3DCOLOR color;
};
constexpr DWORD kStripFVF = D3DFVF_XYZ | D3DFVF_DIFFUSE;

Ref<ID3DXMesh> makeStrip(IDirect3DDevice9* device, const std::vector<float>& columnsX, float bottom, float top,
                         DWORD options = D3DXMESH_MANAGED);
// Vertices with position, normal and texture coordinates (each distinct), faces as given.
Ref<ID3DXMesh> makeMesh(IDirect3DDevice9* device, DWORD vertexCount, const std::vector<DWORD>& indices,
                        const std::vector<DWORD>& attributes, DWORD options = D3DXMESH_MANAGED);
Ref<ID3DXSkinInfo> makeSkin(DWORD vertexCount, DWORD fvf, DWORD boneCount, const std::vector<Weight>& weights);

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

// The MinGW header names the field VertexCout.
inline DWORD vertexCountOf(const D3DXBONECOMBINATION& c) { return c.VertexCout; }

// Source weights of every vertex, normalised, by bone.
std::vector<std::map<DWORD, float>> sourceWeights(ID3DXSkinInfo* skin, DWORD vertexCount);

// Every face in exactly one combination and drawn by its subset, corners mapped back to the
// source face, untouched vertex data, weights that match the source wherever the face's bones
// fit one combination (otherwise each corner keeps its heaviest bone). Returns how many faces
// needed more bones than a combination holds.
DWORD expectFaithfulConversion(ID3DXSkinInfo* skin, ID3DXMesh* source, const Converted& converted);

// Loads an X file through the drop-in D3DX and returns its skinned mesh containers' meshes and
// skin infos (references owned by the caller).
struct LoadedSkin {
    std::string name;
    Ref<ID3DXMesh> mesh;
    Ref<ID3DXSkinInfo> skin;
};
HRESULT loadSkinnedMeshes(IDirect3DDevice9* device, const std::string& path, std::vector<LoadedSkin>& out);

}  // namespace skintest
