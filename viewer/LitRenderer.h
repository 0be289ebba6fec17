#pragma once
// The scene's rigid meshes through the library's shading effects: Blinn-Phong lighting, and a
// shadow map of the key light that darkens the receivers. The skinned meshes stay with the
// scene's own skin path.
#include "ViewerScene.h"

#include <VexilDX9/LightingEffect.h>
#include <VexilDX9/ShadowMap.h>

#include <memory>
#include <string>

class AdapterD3D9;

namespace vexilview {

// Where the key light shines (the fixed-function light and both effects share it).
const D3DXVECTOR3 kKeyLightDirection(-0.35f, -0.8f, 0.5f);

class LitRenderer {
public:
    explicit LitRenderer(ViewerScene& scene) : m_scene(scene) {}

    // The lighting effect (from beside the program) on the adapter's device; false with a message.
    bool loadLighting(const AdapterD3D9& adapter, std::string& problem);
    // The shadow effect and its map; false with a message.
    bool loadShadows(const COMPtr<IDirect3DDevice9>::pointer& device, std::string& problem);
    bool hasLighting() const { return m_lighting != nullptr; }
    bool hasShadows() const { return m_shadows != nullptr; }

    // Inside BeginScene / EndScene, on the current target.
    bool drawLit(IDirect3DDevice9* device, bool textures);
    // Renders the lamp's depth into the map, then the receivers on the current target.
    bool drawShadowed(IDirect3DDevice9* device, bool textures);

    // Around a device reset: the effects' default-pool state and the map.
    void releaseDeviceResources();
    bool restoreDeviceResources(const COMPtr<IDirect3DDevice9>::pointer& device);

private:
    struct Subset {
        const D3DXMATRIX& world;
        const D3DMATERIAL9& material;
        IDirect3DTexture9* texture;
        ID3DXMesh* mesh;
        unsigned int id;
    };
    template <class Draw> bool forEachRigidSubset(bool textures, const Draw& draw) const;
    void setLampMatrices();
    void setTransformation(const GeneralTransformation& block, const D3DXMATRIX& world) const;

    ViewerScene& m_scene;
    std::unique_ptr<LightingEffect> m_lighting;
    const char* m_lightingTexture = nullptr;
    std::unique_ptr<ShadowMap> m_shadows;
};

}  // namespace vexilview
