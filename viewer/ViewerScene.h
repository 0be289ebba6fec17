#pragma once
// The viewer's scene: the library's scene controller played as the file's author means it (see
// Playback), with a camera that frames the whole run when the file has no "CameraDummy" frame,
// and an orbit (yaw, pitch, zoom) that the window applies on top of either camera. It also works
// out what the library leaves undrawn or black, so that the renderer can draw it.
#include "Playback.h"

#include <VexilDX9/VirtualRealityDX9.h>

#include <d3dx9.h>

#include <vector>

namespace vexilview {

struct Orbit {
    float yaw = 0.0f;
    float pitch = 0.0f;
    float zoom = 1.0f;  // distance factor: below 1 nearer
};

// A light grey that shades well under the viewer's key light: what a mesh without a material is
// drawn with (Microsoft's sample hierarchy loaders give such meshes a default material too).
extern const D3DMATERIAL9 kNeutralMaterial;

// A mesh container the library does not draw because it has no material; the viewer draws its
// subsets with kNeutralMaterial.
struct BareMesh {
    unsigned frame;  // position in the frame index
    ID3DXMesh* mesh;
    std::vector<DWORD> subsets;
};

class ViewerScene : public VirtualRealityDX9 {
public:
    // After a successful load: fixed lights and camera, the first animation set, what the viewer
    // draws itself, and the framing sphere over the set's run.
    void prepare(IDirect3DDevice9* device, float aspectRatio);
    // Advances the animation by seconds (fractional steps) and updates matrices and camera.
    bool step(double seconds);
    bool animate(unsigned int time) override { return step(time); }
    // Plays another set from its start and frames its run.
    void selectAnimation(unsigned index);
    Playback& playback() { return m_playback; }
    const Playback& playback() const { return m_playback; }

    // Camera for the next picture: the scene's own or the framing one, turned by the orbit.
    void placeCamera(const Orbit& orbit);

    bool hasCameraFrame() const { return m_hasCameraFrame; }
    bool isAnimated() const { return animationController() != nullptr; }
    const std::vector<BareMesh>& bareMeshes() const { return m_bareMeshes; }
    // For each skinned mesh, the materials its bone combinations are drawn with where the library
    // left them black (a skin in a file that loads no texture); empty where the library's serve.
    const std::vector<std::vector<D3DMATERIAL9>>& skinMaterials() const { return m_skinMaterials; }
    // Triangles drawn each frame: the library's subsets, the bare meshes and the skins.
    unsigned triangleCount() const { return m_triangles; }
    const D3DXVECTOR3& centre() const { return m_centre; }
    float radius() const { return m_radius; }

private:
    // One mesh container's vertices in its own space, kept for framing.
    struct Geometry {
        unsigned frame;
        const D3DXMESHCONTAINER* container;
        std::vector<D3DXVECTOR3> positions;
    };
    void planDrawing();
    void collectGeometry();
    void addPosePoints(std::vector<D3DXVECTOR3>& points) const;
    void computeBounds();
    void frameBounds();

    Playback m_playback;
    std::vector<BareMesh> m_bareMeshes;
    std::vector<std::vector<D3DMATERIAL9>> m_skinMaterials;
    std::vector<Geometry> m_geometry;
    unsigned m_triangles = 0;
    bool m_hasCameraFrame = false;
    float m_aspectRatio = 4.0f / 3.0f;
    D3DXVECTOR3 m_centre = D3DXVECTOR3(0, 0, 0);
    float m_radius = 1.0f;
    D3DXVECTOR3 m_eye = D3DXVECTOR3(0, 0, -1);
    D3DXVECTOR3 m_lookAt = D3DXVECTOR3(0, 0, 0);
};

// D3DX hands rigid meshes an empty skin information; only bones make a mesh skinned.
bool isSkinned(const D3DXMESHCONTAINER& container);
// Faces of each subset (attribute id) of a mesh.
std::vector<unsigned> facesPerSubset(ID3DXMesh* mesh);

}  // namespace vexilview
