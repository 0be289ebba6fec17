#include <VexilDX9/MeshContainerTuple.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

MeshContainerTexture::MeshContainerTexture() {}
MeshContainerTexture::MeshContainerTexture(const MeshContainerTexture& other) : m_textureList(other.m_textureList) {}
MeshContainerTexture& MeshContainerTexture::operator=(const MeshContainerTexture& other) {
    m_textureList = other.m_textureList;
    return *this;
}
MeshContainerTexture::~MeshContainerTexture() {}

MeshContainerTuple::MeshContainerTuple() : m_meshContainer(nullptr) {}

void MeshContainerTuple::setMeshContainer(D3DXMESHCONTAINER* meshContainer) { m_meshContainer = meshContainer; }

ID3DXMesh* MeshContainerTuple::mesh() const {
    if (!m_meshContainer) return nullptr;
    const D3DXMESHDATA& data = m_meshContainer->MeshData;
    return data.Type == D3DXMESHTYPE_MESH || data.Type == D3DXMESHTYPE_PMESH ? data.pMesh : nullptr;
}

D3DXMATERIAL* MeshContainerTuple::material() const { return m_meshContainer ? m_meshContainer->pMaterials : nullptr; }

zeb::String MeshContainerTuple::name() const {
    return zeb::String(m_meshContainer ? m_meshContainer->Name : nullptr);
}

bool MeshContainerTuple::addAttributeId(unsigned int id) {
    ZEB_TRACE(fileLogger, "MeshContainerTuple::addAttributeId");
    for (unsigned int known : m_attributeIds) {
        if (known == id) {
            ZEB_LOG(fileLogger, 1, __LINE__, "Attribute exist " + id);
            return false;
        }
    }
    m_attributeIds.append(id);
    return true;
}
