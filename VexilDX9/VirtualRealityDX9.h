#pragma once
#include <VexilDX9/Export.h>
#include <VexilDX9/MeshManagerd3dx9.h>
#include <VexilDX9/SceneLoaderX.h>
#include <VexilDX9/Viewer.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/String.h>

#include <d3dx9.h>

// The scene an application holds: an X file loaded through D3DX with its textures, skin and
// animation, animated, followed by the camera on the frame "CameraDummy" and drawn (rigid
// geometry texture by texture, then the skinned meshes).
//
//   VirtualRealityDX9 scene;
//   scene.loadVirtualReality(textureDir, "scene.x", device, frameList);
//   scene.meshManager().setSkinEffect(BorrowedEffect(&skinEffect));  // for the effect path
//   each frame: scene.animate(step); scene.render(device, true);
class VEXILDX9_API VirtualRealityDX9 {
public:
    VirtualRealityDX9();
    virtual ~VirtualRealityDX9();
    VirtualRealityDX9(const VirtualRealityDX9&) = delete;
    VirtualRealityDX9& operator=(const VirtualRealityDX9&) = delete;

    // Loads with managed buffers, then in system memory; the previous scene goes first. Texture
    // paths are re-rooted into textureRootDirectory; frameList holds the "k:frameName" entries.
    // A load leaves the scene whole or empty: when indexing throws (a skinned mesh that cannot be
    // built and has no frameList entry raises zeb::IndexOutOfBounds), the scene is emptied before
    // the exception reaches the caller, and what was remembered of the last successful load
    // (file, directory, device) stays.
    bool loadVirtualReality(const zeb::String& textureRootDirectory, const zeb::String& fileName,
                            IDirect3DDevice9* device, const zeb::Array<zeb::String>& frameList);
    bool loadVirtualReality(const zeb::String& textureRootDirectory, const zeb::String& fileName,
                            const COMPtr<IDirect3DDevice9>::pointer& device, const zeb::Array<zeb::String>& frameList);

    // Advances the animation by time (unscaled), updates every world matrix and puts the camera
    // on "CameraDummy" (a scene without it raises zeb::HashKeyMissing after the update).
    virtual bool animate(unsigned int time);

    bool renderRigid(IDirect3DDevice9* renderDevice, bool useTextures);
    // View transform from the viewer, rigid geometry, then the skinned meshes.
    bool render(IDirect3DDevice9* renderDevice, bool useTextures);
    bool renderSkin(IDirect3DDevice9* renderDevice, bool useTextures);

    // After a device reset: loads the last scene again onto the device. The skin effect given to
    // meshManager().setSkinEffect is handed to the reloaded skinned meshes.
    bool reallocateRenderResources(const COMPtr<IDirect3DDevice9>::pointer& device,
                                   const zeb::Array<zeb::String>& frameList);

    // Fixed camera and the three scene lights, switched on on the device (and off on the device
    // of an earlier call). The scene holds a reference to that device until cleanup().
    bool setupAnimation(IDirect3DDevice9* device);
    const D3DLIGHT9& light(unsigned int index) const { return m_lights[index]; }
    unsigned int numberOfLights() const { return m_lights.size(); }

    MeshManagerD3DX9& meshManager() { return m_meshManager; }
    const MeshManagerD3DX9& meshManager() const { return m_meshManager; }
    const zeb::OrderedHashTable<zeb::String, TextureTuple>& textureTable() const { return m_meshManager.textureTable(); }
    FrameNode& frameRefByName(const zeb::String& name) { return m_meshManager.frameByName(name); }
    PerspectiveViewer& perspectiveViewer() { return m_viewer; }
    const PerspectiveViewer& perspectiveViewer() const { return m_viewer; }
    D3DXFRAME* frameRoot() const { return m_frameRoot; }

    // Releases the scene and switches its lights off; every load runs it first. Call it before
    // IDirect3DDevice9::Reset (Wine never frees the slot of a light left on through a reset),
    // then after the reset reallocateRenderResources and setupAnimation.
    void cleanup();

    // Full white, opaque, no power: the material of a subset that has none.
    static const D3DMATERIAL9 s_whiteMaterial;

protected:
    // For subclasses that drive the animation themselves (fractional steps, several controllers
    // of their own): the controller, null without a scene.
    ID3DXAnimationController* animationController() const { return m_animationController; }
    // AdvanceTime by step (no callback); false without a controller or when D3DX fails.
    bool advanceTime(double step);
    // Every world matrix, then the camera on "CameraDummy": what animate does after advancing.
    void updateTransformationAndCamera();

private:
    bool loadVirtualRealityImpl(const zeb::String& textureRootDirectory, const zeb::String& fileName,
                                IDirect3DDevice9* device, const zeb::Array<zeb::String>& frameList);
    HRESULT loadHierarchy(const zeb::String& fileName, IDirect3DDevice9* device);
    void startTracks();
    void placeCamera();
    static void drawSubsets(IDirect3DDevice9* renderDevice, const MeshContainerTuple& container);
    void switchOffLights();

    D3DXFRAME* m_frameRoot;
    ID3DXAnimationController* m_animationController;
    MeshManagerD3DX9 m_meshManager;
    IDirect3DDevice9* m_device;
    zeb::String m_fileName;
    zeb::String m_textureRootDirectory;
    SceneLoaderX m_loader;
    PerspectiveViewer m_viewer;
    zeb::Array<D3DLIGHT9> m_lights;
    COMPtr<IDirect3DDevice9>::pointer m_litDevice;  // where setupAnimation switched the lights on
};
