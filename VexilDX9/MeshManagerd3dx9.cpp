#include <VexilDX9/MeshManagerd3dx9.h>
#include <VexilDX9/VirtualRealityDX9.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(managerLogger, "meshManagerD3DX9")

namespace {

const char kSource[] = "VexilDX9/MeshManagerd3dx9";
const char kUntexturedKey[] = "NULL";

// A broken precondition, named by the text of the check as the callers write it.
void require(bool holds, unsigned long long line, const char* expression) {
    if (!holds) throw zeb::AssertionFailure(kSource, line, expression);
}

zeb::String textureFileOf(const D3DXMATERIAL& material) {
    return zeb::String(material.pTextureFilename ? material.pTextureFilename : "");
}

// The library's own shading of skinned meshes: coefficients, then one light from the upper left.
struct MaterialSetting {
    EffectValue<float> GeneralMaterial::*member;
    float value;
};
const MaterialSetting kSkinMaterial[] = {
    {&GeneralMaterial::m_ambientCoeff, 0.2f},  {&GeneralMaterial::m_diffuseCoeff, 1.0f},
    {&GeneralMaterial::m_specularCoeff, 0.4f}, {&GeneralMaterial::m_selfShadowPower, 5.0f},
    {&GeneralMaterial::m_specularPower, 90.0f},
};
const D3DXVECTOR3 kSkinLightDirection(-1.0f, -1.0f, 1.0f);

// A skinned container whose mesh ConvertToBlendedMesh can take; others cannot be built.
bool hasBlendableMesh(const D3DXMESHCONTAINER& container) {
    if (container.MeshData.Type == D3DXMESHTYPE_MESH && container.MeshData.pMesh) return true;
    ZEB_LOG(managerLogger, 4, __LINE__, "Skinned mesh container " + zeb::String(container.Name) + " has no mesh to blend");
    return false;
}

// The decimal number that starts text (0 without digits), or limit when it reaches limit.
unsigned int boundedNumber(const zeb::String& text, unsigned int limit) {
    unsigned long long value = 0;
    for (unsigned int i = 0; i < text.size() && text[i] >= '0' && text[i] <= '9' && value < limit; ++i)
        value = value * 10 + static_cast<unsigned>(text[i] - '0');
    return value < limit ? static_cast<unsigned int>(value) : limit;
}

}  // namespace

bool MeshManagerD3DX9::isSkinnedContainer(const D3DXMESHCONTAINER& container) {
    return container.pSkinInfo && container.pSkinInfo->GetNumBones() > 0;
}

MeshManagerD3DX9::MeshManagerD3DX9() : m_device(nullptr) {}

MeshManagerD3DX9::MeshManagerD3DX9(const MeshManagerD3DX9& other)
    : m_device(other.m_device),
      m_externalFrameLists(other.m_externalFrameLists),
      m_skinnedMeshes(other.m_skinnedMeshes),
      m_skinEffect(other.m_skinEffect),
      m_textureResources(other.m_textureResources),
      m_failedTextures(other.m_failedTextures),
      m_frameIndex(other.m_frameIndex) {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::MeshManagerD3DX9");
    copyTextureTableOf(other);
}

MeshManagerD3DX9& MeshManagerD3DX9::operator=(const MeshManagerD3DX9& other) {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::operator=");
    if (this == &other) return *this;
    m_textureTable.clear();  // its frame tuples point into the frame table replaced below
    m_device = other.m_device;
    m_externalFrameLists = other.m_externalFrameLists;
    m_skinnedMeshes = other.m_skinnedMeshes;
    m_skinEffect = other.m_skinEffect;
    m_textureResources = other.m_textureResources;
    m_failedTextures = other.m_failedTextures;
    m_frameIndex = other.m_frameIndex;
    copyTextureTableOf(other);
    return *this;
}

MeshManagerD3DX9::~MeshManagerD3DX9() {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::~MeshManagerD3DX9");
    cleanup();
}

// The texture groups again, with every frame tuple moved from the other's frame table to the
// node at the same position of ours.
void MeshManagerD3DX9::copyTextureTableOf(const MeshManagerD3DX9& other) {
    m_textureTable.clear();
    for (unsigned int t = 0; t < other.m_textureTable.size(); ++t) {
        const TextureTuple& source = other.m_textureTable.valueAt(t);
        TextureTuple group;
        COMPtr<IDirect3DTexture9>::pointer texture(source.texture());
        if (texture) texture->AddRef();  // the holder adopts; the group shares the reference
        group.setTexture(texture);
        for (const FrameTuple& frame : source.frameTable().values()) {
            FrameTuple copy;
            copy.setFrame(&m_frameIndex.m_frameList[static_cast<unsigned>(frame.frame() - &other.m_frameIndex.m_frameList[0])]);
            for (const MeshContainerTuple& container : frame.childMeshTable().values()) copy.addMeshContainer(container);
            group.addFrame(copy);
        }
        m_textureTable.insert(other.m_textureTable.keyAt(t), group);
    }
}

bool MeshManagerD3DX9::parseSkinnedFrameExternalFrame(const zeb::Array<zeb::String>& entries) {
    unsigned int containers = 0;
    for (const FrameNode& node : m_frameIndex.m_frameList)
        for (D3DXMESHCONTAINER* c = node.m_frame->pMeshContainer; c; c = c->pNextMeshContainer) ++containers;
    return parseSkinnedFrameExternalFrame(entries, containers);
}

bool MeshManagerD3DX9::parseSkinnedFrameExternalFrame(const zeb::Array<zeb::String>& entries,
                                                      unsigned int meshContainerCount) {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::parseSkinnedFrameExternalFrame");
    if (entries.empty()) {
        ZEB_LOG(managerLogger, 2, __LINE__, "Frame list is empty in the k2m");
        return true;
    }
    bool allRead = true;
    for (const zeb::String& entry : entries) {
        const unsigned int colon = entry.find(':');
        if (colon == 0xFFFFFFFFu || entry.find(':', colon + 1) != 0xFFFFFFFFu) {
            ZEB_LOG(managerLogger, 2, __LINE__, "Frame list in k2m is malformed");
            return false;
        }
        const unsigned int k = boundedNumber(entry.subString(0, colon), meshContainerCount);
        if (k == meshContainerCount) {  // a list no container could ever use, however large
            ZEB_LOG(managerLogger, 3, __LINE__,
                    "Frame list entry " + entry + " refused: the scene has " + meshContainerCount + " mesh containers");
            allRead = false;
            continue;
        }
        while (m_externalFrameLists.size() < k + 1) m_externalFrameLists.append(zeb::Array<zeb::String>());
        m_externalFrameLists[k].append(entry.subString(colon + 1, entry.size() - colon - 1));
    }
    return allRead;
}

bool MeshManagerD3DX9::initialize(D3DXFRAME* root) {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::initialize");
    m_frameIndex.initialize(root);
    const unsigned int created = populateTextureResource();
    ZEB_LOG(managerLogger, 1, __LINE__, "Number of textures added = " + created);
    const bool allTexturesFound = indexMeshRootByTexture();
    const bool skinsListed = createSkinInfoList();
    if (m_skinEffect) setSkinEffect(m_skinEffect);  // the new skinned meshes take the effect kept
    return allTexturesFound && skinsListed;
}

unsigned int MeshManagerD3DX9::populateTextureResource() {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::populateTextureResource");
    unsigned int created = 0;
    for (FrameNode& node : m_frameIndex.m_frameList) {
        node.m_containerTextures.clear();
        for (D3DXMESHCONTAINER* container = node.m_frame->pMeshContainer; container;
             container = container->pNextMeshContainer) {
            node.m_containerTextures.append(MeshContainerTexture());
            addTexturesOfContainer(node, container, node.m_containerTextures.last(), created);
        }
    }
    return created;
}

void MeshManagerD3DX9::addTexturesOfContainer(const FrameNode& node, D3DXMESHCONTAINER* container,
                                              MeshContainerTexture& textures, unsigned int& created) {
    if (!container->pMaterials) return;
    for (DWORD m = 0; m < container->NumMaterials; ++m) {
        const zeb::String fileName = textureFileOf(container->pMaterials[m]);
        textures.m_textureList.append(fileName.empty() ? COMPtr<IDirect3DTexture9>::pointer()
                                                       : textureOf(node, fileName, created));
    }
}

// The texture made from the file, made on first use: one texture per distinct file. A file that
// failed once is not tried again.
COMPtr<IDirect3DTexture9>::pointer MeshManagerD3DX9::textureOf(const FrameNode& node, const zeb::String& fileName,
                                                               unsigned int& created) {
    if (const COMPtr<IDirect3DTexture9>::pointer* known = m_textureResources.find(fileName)) return *known;
    for (const zeb::String& failed : m_failedTextures)
        if (failed == fileName) return COMPtr<IDirect3DTexture9>::pointer();
    COMPtr<IDirect3DTexture9>::pointer texture = createTextureFromFile(fileName);
    if (!texture) {
        ZEB_LOG(managerLogger, 4, __LINE__, "Fail to create texture" + fileName);
        m_failedTextures.append(fileName);
        return texture;
    }
    m_textureResources.insert(fileName, texture);
    ++created;
    ZEB_LOG(managerLogger, 2, __LINE__, "Frame " + zeb::String(node.m_frame->Name) + "has texture " + fileName);
    return texture;
}

COMPtr<IDirect3DTexture9>::pointer MeshManagerD3DX9::createTextureFromFile(const zeb::String& fileName) {
    ZEB_TRACE(managerLogger, "createTextureFromFile");
    require(m_device != nullptr, __LINE__, "device");
    COMPtr<IDirect3DTexture9>::pointer texture;
    HRESULT hr = D3DXCreateTextureFromFileExW(m_device, fileName.getWideBuffer(), D3DX_DEFAULT, D3DX_DEFAULT, D3DX_DEFAULT, 0,
                                              D3DFMT_FROM_FILE, D3DPOOL_MANAGED, D3DX_DEFAULT, D3DX_DEFAULT, 0, nullptr,
                                              nullptr, texture.receive());
    if (FAILED(hr)) {
        ZEB_LOG(managerLogger, 4, __LINE__, "Failed to load texture " + fileName);
        texture.reset();
    }
    return texture;
}

bool MeshManagerD3DX9::indexMeshRootByTexture() {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::indexMeshRootByTexture");
    if (!m_device) {
        ZEB_LOG(managerLogger, 4, __LINE__, "Device is not assigned");
        return false;
    }
    zeb::Array<zeb::String> missing;
    for (FrameNode& node : m_frameIndex.m_frameList)
        for (D3DXMESHCONTAINER* container = node.m_frame->pMeshContainer; container;
             container = container->pNextMeshContainer)
            indexContainer(node, container, missing);
    for (const zeb::String& key : missing) ZEB_LOG(managerLogger, 1, __LINE__, "Texture fails to load " + key);
    return missing.empty();
}

// Files each material subset of a rigid container under its texture file ("NULL" without one).
bool MeshManagerD3DX9::indexContainer(FrameNode& node, D3DXMESHCONTAINER* container, zeb::Array<zeb::String>& missing) {
    const zeb::String containerName(container->Name);
    if (isSkinnedContainer(*container)) {
        ZEB_LOG(managerLogger, 1, __LINE__, "Encounters a skin info in mesh container " + containerName);
        return false;
    }
    if (!container->pMaterials || container->NumMaterials == 0) {
        ZEB_LOG(managerLogger, 1, __LINE__, "This mesh container has no material " + containerName);
        return false;
    }
    MeshContainerTuple drawable;
    drawable.setMeshContainer(container);
    if (!drawable.mesh()) {
        ZEB_LOG(managerLogger, 1, __LINE__, "This mesh container has no mesh to draw " + containerName);
        return false;
    }
    for (DWORD a = 0; a < container->NumMaterials; ++a) {
        MeshContainerTuple subset;
        subset.setMeshContainer(container);
        subset.addAttributeId(a);
        FrameTuple frame;
        frame.setFrame(&node);
        frame.addMeshContainer(subset);
        zeb::String key = textureFileOf(container->pMaterials[a]);
        if (key.empty()) key = kUntexturedKey;
        if (TextureTuple* group = m_textureTable.find(key)) {
            group->addFrame(frame);
            continue;
        }
        TextureTuple group;
        if (key.compareNoCase(kUntexturedKey) != 0) {
            if (COMPtr<IDirect3DTexture9>::pointer* texture = m_textureResources.find(key)) {
                group.setTexture(*texture);
            } else {
                ZEB_LOG(managerLogger, 4, __LINE__,
                        "Cannot find texture " + key + ". This texture should have been allocated !");
                missing.append(key);
            }
        }
        group.addFrame(frame);
        m_textureTable.insert(key, group);
    }
    return true;
}

bool MeshManagerD3DX9::createSkinInfoList() {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::createSkinInfoList");
    require(m_frameIndex.m_frameList.size() > 0, __LINE__, "m_frameList.size() > 0");
    unsigned int k = 0;
    for (FrameNode& node : m_frameIndex.m_frameList) {
        for (D3DXMESHCONTAINER* container = node.m_frame->pMeshContainer; container;
             container = container->pNextMeshContainer) {
            if (!isSkinnedContainer(*container)) continue;
            m_skinnedMeshes.append(SkinnedMesh());
            SkinnedMesh& skinned = m_skinnedMeshes.last();
            skinned.setSourceMeshContainer(container);
            if (!hasBlendableMesh(*container) ||
                !skinned.constructSkinnedMesh(m_frameIndex.frameListIndex(), m_textureResources)) {
                // The frames listed for this container stand in for it; without the mesh they hide.
                for (const zeb::String& name : m_externalFrameLists[k]) m_frameIndex.disableFrameRendering(name);
                m_skinnedMeshes.removeAt(m_skinnedMeshes.size() - 1);
            }
            ++k;
        }
    }
    return true;
}

void MeshManagerD3DX9::updateTransformation() {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::updateTransformation");
    zeb::Array<FrameNode>& frames = m_frameIndex.m_frameList;
    for (unsigned int frameID = 0; frameID < frames.size(); ++frameID) {
        FrameNode& node = frames[frameID];
        require(node.m_frame != nullptr, __LINE__, "m_frameList[frameID].m_frame");
        if (node.m_parentIndex == FrameNode::noParent) {
            // Top-level frames take their own matrix; their inverses are left as they are.
            node.m_combinedTransform = node.m_frame->TransformationMatrix;
            continue;
        }
        D3DXMatrixMultiply(&node.m_combinedTransform, &node.m_frame->TransformationMatrix,
                           &frames[node.m_parentIndex].m_combinedTransform);
        D3DXMatrixInverse(&node.m_inverseTransform, nullptr, &node.m_combinedTransform);
        D3DXMatrixTranspose(&node.m_invTransposeTransform, &node.m_inverseTransform);
    }
}

bool MeshManagerD3DX9::setSkinEffect(const BorrowedEffect& effect) {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::setSkinEffect");
    m_skinEffect = effect;
    bool lightSet = false;
    for (SkinnedMesh& skinned : m_skinnedMeshes) {
        skinned.setEffect(effect);  // its verdict is overwritten by the light's below
        if (!skinned.material() || !skinned.light()) {
            lightSet = false;
            continue;
        }
        for (const MaterialSetting& setting : kSkinMaterial) (skinned.material()->*setting.member).set(setting.value);
        lightSet = skinned.light()->m_lightDirection.set(kSkinLightDirection);
    }
    return lightSet;
}

bool MeshManagerD3DX9::renderSkin(IDirect3DDevice9* device, bool useTexture) const {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::renderSkin");
    bool all = true;
    for (const SkinnedMesh& skinned : m_skinnedMeshes) all = skinned.renderSkin(device, m_frameIndex, useTexture) && all;
    return all;
}

bool MeshManagerD3DX9::renderSkin(const COMPtr<IDirect3DDevice9>::pointer& device, const VirtualRealityDX9& scene,
                                  bool useTexture, const zeb::Array<unsigned int>& passes) const {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::renderSkin");
    bool all = true;
    for (const SkinnedMesh& skinned : m_skinnedMeshes)
        all = skinned.renderSkin(device, m_frameIndex, useTexture, passes, scene) && all;
    return all;
}

void MeshManagerD3DX9::cleanup() {
    ZEB_TRACE(managerLogger, "MeshManagerD3DX9::cleanup");
    if (m_frameIndex.size() > 0) m_frameIndex.clear();
    if (!m_textureTable.empty()) m_textureTable.clear();
    if (!m_textureResources.empty()) m_textureResources.clear();
    m_failedTextures.clear();  // each load tries its files afresh
    if (!m_skinnedMeshes.empty()) m_skinnedMeshes.clear();
    // Each load hands in its own frame list.
    m_externalFrameLists.clear();
}
