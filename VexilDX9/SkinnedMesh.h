#pragma once
#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>
#include <VexilDX9/Export.h>
#include <VexilDX9/FrameNodeIndexer.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/HashTable.h>
#include <zeb/Resource.h>
#include <zeb/String.h>

#include <d3dx9.h>

class VirtualRealityDX9;

// Texture file name to the texture made from it, as the mesh manager keeps them.
typedef zeb::OrderedHashTable<zeb::String, COMPtr<IDirect3DTexture9>::pointer> TextureResourceTable;

// Parameter blocks shared by the shading objects: each binds its names when it is built from an
// effect and then offers the handles. isInitialized() is true when every handle is bound.
struct VEXILDX9_API GeneralTransformation {
    explicit GeneralTransformation(const BorrowedEffect& effect);
    bool isInitialized() const;

    EffectValue<D3DXMATRIX> m_matWorld;                  // "matWorld"
    EffectValue<D3DXMATRIX> m_matViewProjection;         // "matViewProjection"
    EffectValue<D3DXMATRIX> m_matWorldInverseTranspose;  // "matWorldInverseTranspose"
    EffectValue<D3DXMATRIX> m_matViewInverse;            // "matViewInverse"
};

struct VEXILDX9_API GeneralMaterial {
    explicit GeneralMaterial(const BorrowedEffect& effect);
    bool isInitialized() const;

    EffectValue<float> m_ambientCoeff;         // "ambientCoeff"
    EffectValue<D3DXVECTOR4> m_ambientColor;   // "ambientColor"
    EffectValue<float> m_diffuseCoeff;         // "diffuseCoeff"
    EffectValue<D3DXVECTOR4> m_diffuseColor;   // "diffuseColor"
    EffectValue<float> m_specularCoeff;        // "specularCoeff"
    EffectValue<float> m_specularPower;        // "specularPower"
    EffectValue<D3DXVECTOR4> m_specularColor;  // "specularColor"
    EffectValue<float> m_selfShadowPower;      // "selfShadowPower"
};

struct VEXILDX9_API GeneralTexture {
    explicit GeneralTexture(const BorrowedEffect& effect);
    bool isInitialized() const;

    EffectValue<bool> m_hasTextureMap;                   // "hasTextureMap"
    EffectValue<bool> m_hasNormalMap;                    // "hasNormalMap"
    EffectValue<IDirect3DBaseTexture9*> m_textureMap;    // "textureMap"
    EffectValue<IDirect3DBaseTexture9*> m_normalMap;     // "normalMap"
};

struct VEXILDX9_API DirectionalLight {
    explicit DirectionalLight(const BorrowedEffect& effect);
    bool isInitialized() const;

    EffectValue<D3DXVECTOR3> m_lightDirection;  // "lightDirection"
};

struct VEXILDX9_API SkinnedMeshVertexBlend {
    explicit SkinnedMeshVertexBlend(const BorrowedEffect& effect);
    bool isInitialized() const;

    EffectValue<zeb::Array<int>> m_blendIndices;                              // "blendIndices"
    EffectValue<zeb::Array<D3DXMATRIX>> m_blendMatrices;                      // "blendMatrices"
    EffectValue<zeb::Array<D3DXMATRIX>> m_blendMatricesInverseTranspose;      // "blendMatricesInverseTranspose"
};

// One skinned mesh container of a loaded hierarchy turned into a vertex-blended mesh split into
// bone combinations (subset b of the blended mesh is combination b). It renders through the
// fixed-function vertex blending or through the first technique of an effect, which blends up
// to three bones per vertex.
class VEXILDX9_API SkinnedMesh {
public:
    // One bone influence of a combination.
    struct BoneNode {
        unsigned int frameIndex;      // the bone's frame in the frame index; 0 until resolved
        unsigned int influenceIndex;  // slot of the bone within its combination
        unsigned int boneId;          // bone number in the skin information
        D3DXMATRIX offsetMatrix;      // identity until resolved
    };
    struct BoneMaterial {
        IDirect3DTexture9* texture;  // shared with the texture table, no reference of its own
        D3DMATERIAL9 material;
    };
    // One bone combination.
    struct BoneArray {
        unsigned int attributeId;
        BoneMaterial material;
        zeb::Array<BoneNode> nodes;  // in influence order
    };

    typedef zeb::SharedResource<zeb::PointerStorage<GeneralTransformation, 0, 3>, 0> TransformationBlock;
    typedef zeb::SharedResource<zeb::PointerStorage<GeneralMaterial, 0, 3>, 0> MaterialBlock;
    typedef zeb::SharedResource<zeb::PointerStorage<GeneralTexture, 0, 3>, 0> TextureBlock;
    typedef zeb::SharedResource<zeb::PointerStorage<SkinnedMeshVertexBlend, 0, 3>, 0> VertexBlendBlock;
    typedef zeb::SharedResource<zeb::PointerStorage<DirectionalLight, 0, 3>, 0> LightBlock;

    SkinnedMesh();
    SkinnedMesh(const SkinnedMesh& other) = default;
    SkinnedMesh& operator=(const SkinnedMesh& other) = default;
    ~SkinnedMesh();

    void setSourceMeshContainer(D3DXMESHCONTAINER* container) { m_sourceMeshContainer = container; }
    D3DXMESHCONTAINER* sourceMeshContainer() { return m_sourceMeshContainer; }

    // Builds the blended mesh, its bone combinations, their materials and bone nodes. Bones are
    // resolved to frames by name, textures by file name.
    bool constructSkinnedMesh(const zeb::OrderedHashTable<zeb::String, unsigned int>& frameIndexTable,
                              TextureResourceTable& textureTable);
    // Binds the five parameter blocks to the effect; true when all of them are bound.
    bool setEffect(const BorrowedEffect& effect);

    // Fixed-function vertex blending, every bone of a combination.
    bool renderSkin(IDirect3DDevice9* renderDevice, const FrameNodeIndexer& frames, bool useTexture) const;
    // Technique 0 of the effect, the given passes, at most three bones per combination; the
    // camera matrices come from the scene's viewer as they stand.
    bool renderSkin(const COMPtr<IDirect3DDevice9>::pointer& device, const FrameNodeIndexer& frames, bool useTexture,
                    const zeb::Array<unsigned int>& passes, const VirtualRealityDX9& scene) const;

    unsigned long boneTableSize() const { return m_numBoneCombinations; }
    unsigned long numBoneInfluencePerVertex() const { return m_maxFaceInfluences; }
    unsigned int fvf() const;
    ID3DXMesh* mesh() const { return m_mesh.get(); }
    const zeb::Array<BoneArray>& boneArrays() const { return m_boneArrays; }

    GeneralTransformation* transformation() { return m_transformation.get(); }
    const GeneralTransformation* transformation() const { return m_transformation.get(); }
    GeneralMaterial* material() { return m_material.get(); }
    const GeneralMaterial* material() const { return m_material.get(); }
    GeneralTexture* texture() { return m_texture.get(); }
    const GeneralTexture* texture() const { return m_texture.get(); }
    DirectionalLight* light() { return m_light.get(); }
    const DirectionalLight* light() const { return m_light.get(); }
    SkinnedMeshVertexBlend* vertexBlend() { return m_vertexBlend.get(); }
    const SkinnedMeshVertexBlend* vertexBlend() const { return m_vertexBlend.get(); }

    // Releases the blended mesh and the bone-combination table and forgets the combinations.
    void cleanup();

private:
    bool createBoneNode(unsigned int boneId, ID3DXSkinInfo* skinInfo, unsigned int influenceIndex,
                        const zeb::OrderedHashTable<zeb::String, unsigned int>& frameIndexTable, BoneNode& node) const;
    D3DXMATERIAL materialOf(unsigned int attributeId) const;
    bool createBoneMaterial(const D3DXMATERIAL& material, const TextureResourceTable& textureTable,
                            BoneMaterial& result) const;
    bool renderCombination(const COMPtr<IDirect3DDevice9>::pointer& device, unsigned int combination,
                           const FrameNodeIndexer& frames, bool useTexture, const zeb::Array<unsigned int>& passes) const;

    COMPtr<ID3DXMesh>::pointer m_mesh;
    COMPtr<ID3DXBuffer>::pointer m_boneCombinationBuffer;
    D3DXBONECOMBINATION* m_boneCombinations;
    zeb::Array<BoneArray> m_boneArrays;
    unsigned long m_numBoneCombinations;
    unsigned long m_maxFaceInfluences;
    D3DXMESHCONTAINER* m_sourceMeshContainer;
    BorrowedEffect m_effect;
    TransformationBlock m_transformation;
    TextureBlock m_texture;
    MaterialBlock m_material;
    VertexBlendBlock m_vertexBlend;
    LightBlock m_light;
};
