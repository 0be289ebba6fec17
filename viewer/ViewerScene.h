#pragma once
// The viewer's scene: the library's scene controller driven at fractional time steps, with a
// camera that frames the whole scene when the file has no "CameraDummy" frame, and an orbit
// (yaw, pitch, zoom) that the window applies on top of either camera.
#include <VexilDX9/VirtualRealityDX9.h>

#include <d3dx9.h>

namespace vexilview {

struct Orbit {
    float yaw = 0.0f;
    float pitch = 0.0f;
    float zoom = 1.0f;  // distance factor: below 1 nearer
};

class ViewerScene : public VirtualRealityDX9 {
public:
    // After a successful load: fixed lights and camera, the framing sphere at time 0.
    void prepare(IDirect3DDevice9* device, float aspectRatio);
    // Advances the animation by seconds (fractional steps) and updates matrices and camera.
    bool step(double seconds);
    bool animate(unsigned int time) override { return step(time); }

    // Camera for the next picture: the scene's own or the framing one, turned by the orbit.
    void placeCamera(const Orbit& orbit);

    bool hasCameraFrame() const { return m_hasCameraFrame; }
    bool isAnimated() const { return animationController() != nullptr; }
    unsigned triangleCount() const;
    const D3DXVECTOR3& centre() const { return m_centre; }
    float radius() const { return m_radius; }

private:
    void computeBounds();
    void frameBounds();

    bool m_hasCameraFrame = false;
    float m_aspectRatio = 4.0f / 3.0f;
    D3DXVECTOR3 m_centre = D3DXVECTOR3(0, 0, 0);
    float m_radius = 1.0f;
    D3DXVECTOR3 m_eye = D3DXVECTOR3(0, 0, -1);
    D3DXVECTOR3 m_lookAt = D3DXVECTOR3(0, 0, 0);
};

}  // namespace vexilview
