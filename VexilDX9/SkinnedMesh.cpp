#include <VexilDX9/SkinnedMesh.h>
#include <VexilDX9/VirtualRealityDX9.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>
#include <zeb/Value.h>

ZEB_FILE_LOGGER(skinLogger, "VexilDX9")

namespace {

const char kSource[] = "VexilDX9/SkinnedMesh";
// D3DXMESH_MANAGED with D3DXMESHOPT_VERTEXCACHE.
const DWORD kBlendedMeshOptions = 0x4000220;
// The effect path blends at most this many bones per vertex.
const unsigned int kPaletteSize = 3;

D3DXMATRIX identity() {
    D3DXMATRIX matrix;
    D3DXMatrixIdentity(&matrix);
    return matrix;
}

// Offset matrix of the bone times the world matrix of its frame.
D3DXMATRIX boneWorld(const SkinnedMesh::BoneNode& node, const FrameNodeIndexer& frames) {
    D3DXMATRIX world;
    D3DXMatrixMultiply(&world, &node.offsetMatrix, &frames[static_cast<int>(node.frameIndex)].m_combinedTransform);
    return world;
}

D3DXVECTOR4 colourOf(const D3DCOLORVALUE& colour) { return D3DXVECTOR4(colour.r, colour.g, colour.b, colour.a); }

}  // namespace

GeneralTransformation::GeneralTransformation(const BorrowedEffect& effect)
    : m_matWorld(effect, "matWorld"),
      m_matViewProjection(effect, "matViewProjection"),
      m_matWorldInverseTranspose(effect, "matWorldInverseTranspose"),
      m_matViewInverse(effect, "matViewInverse") {}

bool GeneralTransformation::isInitialized() const {
    return m_matWorld.isBound() && m_matViewProjection.isBound() && m_matWorldInverseTranspose.isBound() &&
           m_matViewInverse.isBound();
}

GeneralMaterial::GeneralMaterial(const BorrowedEffect& effect)
    : m_ambientCoeff(effect, "ambientCoeff"),
      m_ambientColor(effect, "ambientColor"),
      m_diffuseCoeff(effect, "diffuseCoeff"),
      m_diffuseColor(effect, "diffuseColor"),
      m_specularCoeff(effect, "specularCoeff"),
      m_specularPower(effect, "specularPower"),
      m_specularColor(effect, "specularColor"),
      m_selfShadowPower(effect, "selfShadowPower") {}

bool GeneralMaterial::isInitialized() const {
    return m_ambientCoeff.isBound() && m_ambientColor.isBound() && m_diffuseCoeff.isBound() && m_diffuseColor.isBound() &&
           m_specularCoeff.isBound() && m_specularPower.isBound() && m_specularColor.isBound() &&
           m_selfShadowPower.isBound();
}

GeneralTexture::GeneralTexture(const BorrowedEffect& effect)
    : m_hasTextureMap(effect, "hasTextureMap"),
      m_hasNormalMap(effect, "hasNormalMap"),
      m_textureMap(effect, "textureMap"),
      m_normalMap(effect, "normalMap") {}

bool GeneralTexture::isInitialized() const {
    return m_hasTextureMap.isBound() && m_hasNormalMap.isBound() && m_textureMap.isBound() && m_normalMap.isBound();
}

DirectionalLight::DirectionalLight(const BorrowedEffect& effect) : m_lightDirection(effect, "lightDirection") {}

bool DirectionalLight::isInitialized() const { return m_lightDirection.isBound(); }

SkinnedMeshVertexBlend::SkinnedMeshVertexBlend(const BorrowedEffect& effect)
    : m_blendIndices(effect, "blendIndices"),
      m_blendMatrices(effect, "blendMatrices"),
      m_blendMatricesInverseTranspose(effect, "blendMatricesInverseTranspose") {}

bool SkinnedMeshVertexBlend::isInitialized() const {
    return m_blendIndices.isBound() && m_blendMatrices.isBound() && m_blendMatricesInverseTranspose.isBound();
}

SkinnedMesh::SkinnedMesh()
    : m_boneCombinations(nullptr), m_numBoneCombinations(0), m_maxFaceInfluences(0), m_sourceMeshContainer(nullptr) {}

SkinnedMesh::~SkinnedMesh() { cleanup(); }

void SkinnedMesh::cleanup() {
    m_mesh.reset();
    m_boneCombinationBuffer.reset();
    m_boneCombinations = nullptr;
    m_boneArrays.clear();
}

unsigned int SkinnedMesh::fvf() const { return m_mesh ? m_mesh->GetFVF() : 0; }

bool SkinnedMesh::constructSkinnedMesh(const zeb::OrderedHashTable<zeb::String, unsigned int>& frameIndexTable,
                                       TextureResourceTable& textureTable) {
    ZEB_TRACE(skinLogger, "VirtualRealityDX9::constructSkinnedMesh");
    ZEB_ASSERT(kSource, 96, m_sourceMeshContainer != NULL);
    ZEB_ASSERT(kSource, 97, m_sourceMeshContainer->MeshData.pMesh != NULL);
    ID3DXSkinInfo* skinInfo = m_sourceMeshContainer->pSkinInfo;
    ZEB_ASSERT(kSource, 99, skinInfo != NULL);

    cleanup();
    HRESULT hr = skinInfo->ConvertToBlendedMesh(m_sourceMeshContainer->MeshData.pMesh, kBlendedMeshOptions,
                                                m_sourceMeshContainer->pAdjacency, nullptr, nullptr, nullptr,
                                                &m_maxFaceInfluences, &m_numBoneCombinations,
                                                m_boneCombinationBuffer.receive(), m_mesh.receive());
    if (FAILED(hr)) {
        ZEB_LOG(skinLogger, 4, 111, "ConvertToBlendedMesh fails ");
        return false;
    }
    m_boneCombinations = static_cast<D3DXBONECOMBINATION*>(m_boneCombinationBuffer->GetBufferPointer());
    const DWORD numBones = skinInfo->GetNumBones();
    m_boneArrays.reserve(m_numBoneCombinations);
    for (unsigned int b = 0; b < m_numBoneCombinations; ++b) {
        const D3DXBONECOMBINATION& combination = m_boneCombinations[b];
        BoneArray bones{};  // without a texture table the material stays zero: no texture, black
        bones.attributeId = combination.AttribId;
        createBoneMaterial(materialOf(combination.AttribId), textureTable, bones.material);
        for (unsigned int i = 0; i < m_maxFaceInfluences; ++i) {
            const DWORD boneId = combination.BoneId[i];
            // Less-or-equal: the unused-slot marker is skipped, a bone id equal to the count is not.
            if (boneId > numBones) continue;
            BoneNode node = {0, 0, 0, identity()};
            createBoneNode(boneId, skinInfo, i, frameIndexTable, node);
            bones.nodes.append(node);
        }
        m_boneArrays.append(bones);
    }
    return true;
}

// The container's material of a combination's attribute; a container without that material (none
// at all, or fewer than its faces name) draws the attribute in plain white.
D3DXMATERIAL SkinnedMesh::materialOf(unsigned int attributeId) const {
    if (m_sourceMeshContainer->pMaterials && attributeId < m_sourceMeshContainer->NumMaterials)
        return m_sourceMeshContainer->pMaterials[attributeId];
    ZEB_LOG(skinLogger, 3, __LINE__, "No material " + attributeId + " in skinned mesh container, drawn in white");
    D3DXMATERIAL white = {VirtualRealityDX9::s_whiteMaterial, nullptr};
    return white;
}

bool SkinnedMesh::createBoneNode(unsigned int boneId, ID3DXSkinInfo* skinInfo, unsigned int influenceIndex,
                                 const zeb::OrderedHashTable<zeb::String, unsigned int>& frameIndexTable,
                                 BoneNode& node) const {
    ZEB_TRACE(skinLogger, "SkinnedMesh::createBoneNode");
    if (frameIndexTable.empty() || !skinInfo) {
        ZEB_LOG(skinLogger, 4, 64, "SkinInfo is NULL");
        return false;
    }
    node.influenceIndex = influenceIndex;
    node.boneId = boneId;
    const char* boneName = skinInfo->GetBoneName(boneId);  // null for the bone id equal to the count
    const zeb::String name(boneName ? boneName : "");
    const unsigned int* frameIndex = frameIndexTable.find(name);
    const D3DXMATRIX* offset = skinInfo->GetBoneOffsetMatrix(boneId);
    if (!frameIndex || !offset) {
        ZEB_LOG(skinLogger, 4, 80, "Cannot find bone name " + name + " from frameNodeIndex");
        return true;
    }
    node.frameIndex = *frameIndex;
    node.offsetMatrix = *offset;
    return true;
}

bool SkinnedMesh::createBoneMaterial(const D3DXMATERIAL& material, const TextureResourceTable& textureTable,
                                     BoneMaterial& result) const {
    ZEB_TRACE(skinLogger, "SkinnedMesh::createBoneMaterial");
    if (textureTable.empty()) {
        ZEB_LOG(skinLogger, 4, 28, "Unable to create bone material");
        return false;
    }
    result.material = material.MatD3D;
    result.texture = nullptr;
    const zeb::String name(material.pTextureFilename ? material.pTextureFilename : "");
    if (name.empty()) {
        ZEB_LOG(skinLogger, 1, 49, "Not assigning texture to bone material");
        return true;
    }
    if (const COMPtr<IDirect3DTexture9>::pointer* texture = textureTable.find(name))
        result.texture = texture->get();
    else
        ZEB_LOG(skinLogger, 3, 44, "Cannot find texture " + name);
    return true;
}

bool SkinnedMesh::setEffect(const BorrowedEffect& effect) {
    if (!effect) return false;
    m_effect = effect;
    m_texture.reset(new GeneralTexture(effect));
    m_material.reset(new GeneralMaterial(effect));
    m_transformation.reset(new GeneralTransformation(effect));
    m_vertexBlend.reset(new SkinnedMeshVertexBlend(effect));
    m_light.reset(new DirectionalLight(effect));
    m_transformation->m_matWorld.set(identity());
    return m_texture->isInitialized() && m_material->isInitialized() && m_transformation->isInitialized() &&
           m_vertexBlend->isInitialized() && m_light->isInitialized();
}

bool SkinnedMesh::renderSkin(IDirect3DDevice9* renderDevice, const FrameNodeIndexer& frames, bool useTexture) const {
    ZEB_ASSERT(kSource, 155, renderDevice != NULL);
    for (unsigned int b = 0; b < m_boneArrays.size(); ++b) {
        const BoneArray& bones = m_boneArrays[b];
        for (const BoneNode& node : bones.nodes) {
            const D3DXMATRIX world = boneWorld(node, frames);
            renderDevice->SetTransform(D3DTS_WORLDMATRIX(node.influenceIndex), &world);
        }
        renderDevice->SetMaterial(&bones.material.material);
        const bool textured = bones.material.texture && useTexture;
        if (textured) renderDevice->SetTexture(0, bones.material.texture);
        // One matrix fewer than the bones; a combination left without bones blends nothing.
        renderDevice->SetRenderState(D3DRS_VERTEXBLEND, bones.nodes.empty() ? 0 : bones.nodes.size() - 1);
        m_mesh->DrawSubset(b);
        if (textured) renderDevice->SetTexture(0, nullptr);
        renderDevice->SetRenderState(D3DRS_VERTEXBLEND, 0);
    }
    return true;
}

bool SkinnedMesh::renderSkin(const COMPtr<IDirect3DDevice9>::pointer& renderDevice, const FrameNodeIndexer& frames,
                             bool useTexture, const zeb::Array<unsigned int>& passes,
                             const VirtualRealityDX9& scene) const {
    ZEB_TRACE(skinLogger, "SkinnedMesh::renderSkin");
    ZEB_ASSERT(kSource, 206, renderDevice.get() != NULL);
    if (!m_effect || !m_transformation) return false;  // setEffect has not bound an effect yet
    const Technique& technique = m_effect->technique(0);
    m_effect->setActiveTechnique(0u);
    technique.begin();
    m_transformation->m_matViewProjection.set(scene.perspectiveViewer().viewProjection());
    m_transformation->m_matViewInverse.set(scene.perspectiveViewer().viewInverse());

    for (unsigned int b = 0; b < m_boneArrays.size(); ++b)
        if (!renderCombination(renderDevice, b, frames, useTexture, passes)) return false;  // technique left begun
    technique.end();
    return true;
}

bool SkinnedMesh::renderCombination(const COMPtr<IDirect3DDevice9>::pointer&, unsigned int b,
                                    const FrameNodeIndexer& frames, bool useTexture,
                                    const zeb::Array<unsigned int>& passes) const {
    const BoneArray& bones = m_boneArrays[b];
    zeb::Array<int> indices;
    zeb::Array<D3DXMATRIX> blendMatrices;
    zeb::Array<D3DXMATRIX> inverseTransposes;
    indices.resize(kPaletteSize);
    blendMatrices.resize(kPaletteSize);
    inverseTransposes.resize(kPaletteSize);
    for (unsigned int i = 0; i < kPaletteSize; ++i) {
        indices[i] = -1;
        blendMatrices[i] = inverseTransposes[i] = identity();
    }
    const unsigned int used = bones.nodes.size() < kPaletteSize ? bones.nodes.size() : kPaletteSize;
    for (unsigned int i = 0; i < used; ++i) {
        const BoneNode& node = bones.nodes[i];
        const D3DXMATRIX blend = boneWorld(node, frames);
        D3DXMATRIX inverse;
        D3DXMatrixInverse(&inverse, nullptr, &blend);
        indices[i] = static_cast<int>(node.influenceIndex);
        blendMatrices[i] = blend;
        D3DXMatrixTranspose(&inverseTransposes[i], &inverse);
    }
    // Entries past the last bone repeat it: a vertex's implied last weight then moves it with
    // that bone, however many weights the blended mesh stores.
    for (unsigned int i = used; used > 0 && i < kPaletteSize; ++i) {
        blendMatrices[i] = blendMatrices[used - 1];
        inverseTransposes[i] = inverseTransposes[used - 1];
    }
    m_texture->m_hasNormalMap.set(false);
    if (!bones.material.texture || !useTexture) {
        const D3DXVECTOR4 diffuse = colourOf(bones.material.material.Diffuse);
        m_texture->m_hasTextureMap.set(false);
        m_texture->m_textureMap.set(nullptr);
        m_material->m_diffuseColor.set(diffuse);
        m_material->m_specularColor.set(diffuse);  // the specular colour takes the diffuse one
    } else {
        m_texture->m_hasTextureMap.set(true);
        m_texture->m_textureMap.set(bones.material.texture);
    }
    m_vertexBlend->m_blendIndices.set(indices);
    m_vertexBlend->m_blendMatrices.set(blendMatrices);
    // The parameter named for the inverse transposes receives the blend matrices: shaders that
    // take it for normals see the bone's own rotation (the transposes are computed, not sent).
    m_vertexBlend->m_blendMatricesInverseTranspose.set(blendMatrices);
    const Technique& technique = m_effect->technique(0);
    for (unsigned int p : passes) {
        if (!technique.renderPass(m_mesh.get(), b, p)) {
            ZEB_LOG(skinLogger, 3, 284, "Skinned mesh draw subset failed " + zeb::ZEBValue(false).toHexString(true));
            return false;
        }
    }
    return true;
}
