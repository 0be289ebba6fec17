#pragma once
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/String.h>

#include <d3dx9.h>

// The textures of one mesh container, one handle per material in material order; a null handle
// where the material has no usable texture.
struct VEXILDX9_API MeshContainerTexture {
    MeshContainerTexture();
    MeshContainerTexture(const MeshContainerTexture& other);
    MeshContainerTexture& operator=(const MeshContainerTexture& other);
    ~MeshContainerTexture();

    zeb::Array<COMPtr<IDirect3DTexture9>::pointer> m_textureList;
};

// The subsets (attribute ids) of one mesh container that share the enclosing texture.
class VEXILDX9_API MeshContainerTuple {
public:
    MeshContainerTuple();

    void setMeshContainer(D3DXMESHCONTAINER* meshContainer);
    D3DXMESHCONTAINER* meshContainer() const { return m_meshContainer; }
    // The container's mesh when it holds one that draws subsets (a mesh or a progressive mesh);
    // null without one or for a patch mesh.
    ID3DXMesh* mesh() const;
    D3DXMATERIAL* material() const;
    zeb::String name() const;

    unsigned int numAttribute() const { return m_attributeIds.size(); }
    unsigned int operator[](int i) const { return m_attributeIds[static_cast<unsigned>(i)]; }
    // False, leaving the list as it was, when the id is listed already.
    bool addAttributeId(unsigned int id);

private:
    D3DXMESHCONTAINER* m_meshContainer;
    zeb::Array<unsigned int> m_attributeIds;
};
