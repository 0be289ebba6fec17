#pragma once
// Draws one picture of the scene with the viewer's render states, through the fixed-function
// skinning or through the skinning effect.
#include "Options.h"
#include "ViewerScene.h"

#include <VexilDX9/Effect.h>

#include <string>

namespace vexilview {

class FrameRenderer {
public:
    static const D3DCOLOR kBackground = D3DCOLOR_XRGB(46, 52, 64);

    explicit FrameRenderer(ViewerScene& scene) : m_scene(scene) {}

    // Loads the library's skinning effect (from beside the program) and hands it to the scene; false with
    // a message when it cannot be had.
    bool useSkinEffect(const COMPtr<IDirect3DDevice9>::pointer& device, std::string& problem);
    bool hasSkinEffect() const { return m_effectReady; }

    // Clears the current target and draws the scene into it, between BeginScene and EndScene.
    bool draw(const COMPtr<IDirect3DDevice9>::pointer& device, SkinPath skin, bool textures);

private:
    void setStates(IDirect3DDevice9* device) const;
    bool drawScene(const COMPtr<IDirect3DDevice9>::pointer& device, SkinPath skin, bool textures);

    ViewerScene& m_scene;
    Effect m_skinEffect;
    bool m_effectReady = false;
};

// Folder of the running program, with a trailing backslash.
std::wstring programDirectory();

}  // namespace vexilview
