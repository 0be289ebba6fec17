#pragma once
#include <VexilDX9/Export.h>
#include <zeb/String.h>

#include <d3dx9.h>

// The allocation object D3DX calls while it reads an X file. It builds plain D3DXFRAME and
// D3DXMESHCONTAINER records (nothing appended), names nameless frames, copies what D3DX hands
// over and frees it all again when D3DXFrameDestroy walks the tree. Every block it allocates
// comes from the COM task allocator.
class VEXILDX9_API SceneLoaderX : public ID3DXAllocateHierarchy {
public:
    SceneLoaderX();

    STDMETHOD(CreateFrame)(THIS_ const char* name, D3DXFRAME** newFrame) override;
    STDMETHOD(CreateMeshContainer)(THIS_ const char* name, const D3DXMESHDATA* meshData,
                                   const D3DXMATERIAL* materials, const D3DXEFFECTINSTANCE* effectInstances,
                                   DWORD numMaterials, const DWORD* adjacency, ID3DXSkinInfo* skinInfo,
                                   D3DXMESHCONTAINER** newMeshContainer) override;
    STDMETHOD(DestroyFrame)(THIS_ D3DXFRAME* frame) override;
    STDMETHOD(DestroyMeshContainer)(THIS_ D3DXMESHCONTAINER* meshContainer) override;

    void setTextureFileRootDirectory(const zeb::String& directory);
    void assignNamelessFrameToName(const zeb::String& prefix);
    void resetDummyFrameCounter();

    // Shared by every loader of the process; the scene controller resets it before each load.
    static unsigned int m_namelessFrameCount;

private:
    void replaceRootDirectory(zeb::String& path);
    zeb::String nextNamelessFrameName();
    bool copyMaterials(D3DXMESHCONTAINER* container, const D3DXMATERIAL* materials, DWORD numMaterials);
    char* copyTextureFileName(const char* fileName);

    zeb::String m_textureFileRootDirectory;
    zeb::String m_namelessFramePrefix;
};
