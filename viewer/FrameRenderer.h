#pragma once
// Draws one picture of the scene with the viewer's render states, through the fixed-function
// skinning or through the skinning effect, its rigid meshes lit by fixed-function lighting, the
// Blinn-Phong effect or the shadow effect.
#include "LitRenderer.h"
#include "Options.h"
#include "ViewerScene.h"

#include <VexilDX9/Effect.h>

#include <string>
#include <vector>

namespace vexilview {

class FrameRenderer {
public:
    static const D3DCOLOR kBackground = D3DCOLOR_XRGB(46, 52, 64);

    explicit FrameRenderer(ViewerScene& scene) : m_scene(scene), m_lit(scene) {}

    // Loads the library's skinning effect (from beside the program) and hands it to the scene; false with
    // a message when it cannot be had.
    bool useSkinEffect(const COMPtr<IDirect3DDevice9>::pointer& device, std::string& problem);
    bool hasSkinEffect() const { return m_effectReady; }

    LitRenderer& lit() { return m_lit; }
    // How the rigid meshes are lit from the next picture on; a mode whose effect is not loaded
    // falls back to fixed-function lighting.
    void setLighting(Lighting lighting, bool shadows) { m_lighting = lighting, m_shadows = shadows; }

    // Clears the current target and draws the scene into it, between BeginScene and EndScene.
    bool draw(const COMPtr<IDirect3DDevice9>::pointer& device, SkinPath skin, bool textures);
    // Before a device reset: Wine keeps the slot of a light left on through a reset for good.
    void switchOffKeyLight(IDirect3DDevice9* device) const;

private:
    void setStates(IDirect3DDevice9* device) const;
    bool drawScene(const COMPtr<IDirect3DDevice9>::pointer& device, SkinPath skin, bool textures);
    bool drawRigid(IDirect3DDevice9* device, bool textures);
    bool drawSkin(const COMPtr<IDirect3DDevice9>::pointer& device, SkinPath skin, bool textures);
    void drawBareMeshes(IDirect3DDevice9* device) const;
    void drawBlended(IDirect3DDevice9* device, const SkinnedMesh& skin, const std::vector<D3DMATERIAL9>& materials,
                     bool textures) const;

    ViewerScene& m_scene;
    Effect m_skinEffect;
    bool m_effectReady = false;
    LitRenderer m_lit;
    Lighting m_lighting = Lighting::Fixed;
    bool m_shadows = false;
};

// Folder of the running program, with a trailing backslash.
std::wstring programDirectory();

}  // namespace vexilview
