#pragma once
#include <d3dx9.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace vexiltest {

// Owns one reference.
template <class T>
class Ref {
public:
    Ref() = default;
    Ref(Ref&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~Ref() { releaseCount(); }
    // Releases and reports what the last Release returned.
    ULONG releaseCount() { return m_object ? std::exchange(m_object, nullptr)->Release() : 0; }
    T** out() { return &m_object; }
    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

// A plain allocate-hierarchy that keeps what D3DX hands it, the way an application does.
class TestAllocator : public ID3DXAllocateHierarchy {
public:
    STDMETHOD(CreateFrame)(THIS_ const char* name, D3DXFRAME** newFrame) override;
    STDMETHOD(CreateMeshContainer)(THIS_ const char* name, const D3DXMESHDATA* meshData,
                                   const D3DXMATERIAL* materials, const D3DXEFFECTINSTANCE* effectInstances,
                                   DWORD materialCount, const DWORD* adjacency, ID3DXSkinInfo* skinInfo,
                                   D3DXMESHCONTAINER** newMeshContainer) override;
    STDMETHOD(DestroyFrame)(THIS_ D3DXFRAME* frame) override;
    STDMETHOD(DestroyMeshContainer)(THIS_ D3DXMESHCONTAINER* meshContainer) override;

    int meshContainers = 0;
    int skinnedContainers = 0;  // with bones and a completed skin info
    ULONG skinReferencesLeft = ~0ul;  // what the last skin-info Release returned
};

struct FromFile {
    std::string path;
};

// A hierarchy loaded from memory or from a file, with its controller, destroyed with the
// allocator that made it.
struct LoadedScene {
    HRESULT result = E_FAIL;
    D3DXFRAME* root = nullptr;
    ID3DXAnimationController* controller = nullptr;
    TestAllocator allocator;

    LoadedScene(IDirect3DDevice9* device, const std::string& text);
    LoadedScene(IDirect3DDevice9* device, const FromFile& file);
    LoadedScene(const LoadedScene&) = delete;
    LoadedScene& operator=(const LoadedScene&) = delete;
    ~LoadedScene();

    D3DXFRAME* frame(const char* name) const { return root ? D3DXFrameFind(root, name) : nullptr; }
};

// A D3DX matrix from scale, rotation about an axis in degrees and translation, the order the
// controller composes them in.
D3DXMATRIX srtMatrix(const D3DXVECTOR3& scale, const D3DXVECTOR3& axis, float degrees,
                     const D3DXVECTOR3& translation);

::testing::AssertionResult matrixNear(const D3DXMATRIX& actual, const D3DXMATRIX& expected, float tolerance = 1e-4f);

}  // namespace vexiltest
