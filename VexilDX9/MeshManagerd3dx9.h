#pragma once
#include <VexilDX9/EffectValue.h>
#include <VexilDX9/Export.h>
#include <VexilDX9/FrameNodeIndexer.h>
#include <VexilDX9/SkinnedMesh.h>
#include <VexilDX9/TextureTuple.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/HashTable.h>
#include <zeb/String.h>

#include <d3dx9.h>

class VirtualRealityDX9;

// What the renderers need from a loaded frame tree: the breadth-first frame index, one texture per
// distinct texture file, the rigid subsets grouped by texture ("NULL" for the untextured ones) and
// one SkinnedMesh per skinned mesh container. Copies are deep: a copy's texture groups point into
// the copy's own frame table.
class VEXILDX9_API MeshManagerD3DX9 {
public:
    MeshManagerD3DX9();
    MeshManagerD3DX9(const MeshManagerD3DX9& other);
    MeshManagerD3DX9& operator=(const MeshManagerD3DX9& other);
    ~MeshManagerD3DX9();

    void setDevice(IDirect3DDevice9* device) { m_device = device; }

    // Entries "k:frameName" put the frame into the list of the k-th skinned mesh container: the
    // frames hidden when that skinned mesh cannot be built. Stops with false at a malformed entry.
    // k must name one of the tree's mesh containers: an entry past meshContainerCount is refused
    // (logged, false) and the others still read. Without a count, the containers of the frame
    // index held are counted.
    bool parseSkinnedFrameExternalFrame(const zeb::Array<zeb::String>& entries);
    bool parseSkinnedFrameExternalFrame(const zeb::Array<zeb::String>& entries, unsigned int meshContainerCount);
    // Builds every index for a freshly loaded tree; false when a texture could not be found. A
    // skinned container whose mesh cannot be built and that has no frame list raises
    // zeb::IndexOutOfBounds. The skin effect given to setSkinEffect is handed to the new skinned
    // meshes.
    bool initialize(D3DXFRAME* root);
    // World, inverse and inverse-transpose matrices of every frame, parents first.
    void updateTransformation();

    FrameNode& frameByName(const zeb::String& name) { return m_frameIndex.frameByName(name); }
    const FrameNode& frameByName(const zeb::String& name) const { return m_frameIndex.frameByName(name); }

    // Hands the effect to every skinned mesh and gives them the library's material and light;
    // the manager keeps it for the skinned meshes of later loads (a reload after a device reset
    // included), so the effect must outlive the manager or be replaced first.
    bool setSkinEffect(const BorrowedEffect& effect);
    bool renderSkin(IDirect3DDevice9* device, bool useTexture) const;
    bool renderSkin(const COMPtr<IDirect3DDevice9>::pointer& device, const VirtualRealityDX9& scene, bool useTexture,
                    const zeb::Array<unsigned int>& passes) const;

    const zeb::Array<SkinnedMesh>& skinnedMesh() const { return m_skinnedMeshes; }
    const zeb::OrderedHashTable<zeb::String, TextureTuple>& textureTable() const { return m_textureTable; }
    const FrameNodeIndexer& frameIndex() const { return m_frameIndex; }
    const TextureResourceTable& textureResources() const { return m_textureResources; }
    const zeb::Array<zeb::String>& failedTextures() const { return m_failedTextures; }
    const zeb::Array<zeb::Array<zeb::String>>& externalFrameLists() const { return m_externalFrameLists; }

    void cleanup();

    // D3DX gives every mesh container it loads a skin information, an empty one (no bones) to
    // rigid meshes: only a container whose skin has at least one bone is a skinned mesh.
    static bool isSkinnedContainer(const D3DXMESHCONTAINER& container);

private:
    unsigned int populateTextureResource();
    bool indexMeshRootByTexture();
    bool createSkinInfoList();
    void addTexturesOfContainer(const FrameNode& node, D3DXMESHCONTAINER* container, MeshContainerTexture& textures,
                                unsigned int& created);
    COMPtr<IDirect3DTexture9>::pointer textureOf(const FrameNode& node, const zeb::String& fileName, unsigned int& created);
    COMPtr<IDirect3DTexture9>::pointer createTextureFromFile(const zeb::String& fileName);
    bool indexContainer(FrameNode& node, D3DXMESHCONTAINER* container, zeb::Array<zeb::String>& missing);
    void copyTextureTableOf(const MeshManagerD3DX9& other);

    IDirect3DDevice9* m_device;
    zeb::Array<zeb::Array<zeb::String>> m_externalFrameLists;
    zeb::Array<SkinnedMesh> m_skinnedMeshes;
    BorrowedEffect m_skinEffect;
    TextureResourceTable m_textureResources;
    zeb::Array<zeb::String> m_failedTextures;
    zeb::OrderedHashTable<zeb::String, TextureTuple> m_textureTable;
    FrameNodeIndexer m_frameIndex;
};
