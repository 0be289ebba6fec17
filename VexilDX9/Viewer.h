#pragma once
#include <VexilDX9/Export.h>

#include <d3dx9.h>

// The camera: eye, look-at point, up vector and lens, with the matrices derived from them.
// Each matrix is recomputed only by its own operation.
class VEXILDX9_API PerspectiveViewer {
public:
    PerspectiveViewer();

    void setTranslation(const D3DXVECTOR3& position) { m_position = position; }
    D3DXVECTOR3 worldPosition() const { return m_position; }
    void setLookAt(const D3DXVECTOR3& lookAt) { m_lookAt = lookAt; }
    D3DXVECTOR3 lookAtVector() const { return m_lookAt; }
    void setUpVector(const D3DXVECTOR3& up) { m_up = up; }
    D3DXVECTOR3 upVector() const { return m_up; }
    // Despite the name: the full vertical angle handed to the projection.
    void setFOVHalfAngle(float fovY) { m_fovY = fovY; }
    float fovHalfAngle() const { return m_fovY; }
    void setAspectRatio(float aspectRatio) { m_aspectRatio = aspectRatio; }
    float aspectRatio() const { return m_aspectRatio; }
    void setZPlane(float znear, float zfar);
    void zPlane(float& znear, float& zfar) const;

    const D3DXMATRIX& view() const { return m_view; }
    const D3DXMATRIX& projection() const { return m_projection; }
    const D3DXMATRIX& viewProjection() const { return m_viewProjection; }
    const D3DXMATRIX& viewInverse() const { return m_viewInverse; }

    // Turns the look-at point and the up vector (both as points) about the eye.
    void setRotation(float pitch, float yaw, float roll);
    const D3DXMATRIX& matrixLookAtLH();
    const D3DXMATRIX& matrixLookAtRH();
    const D3DXMATRIX& matrixPerspectiveFovLH();
    const D3DXMATRIX& calculateViewInverse();
    const D3DXMATRIX& calculateViewProjectionLH();

private:
    D3DXVECTOR3 m_position;
    D3DXVECTOR3 m_lookAt;
    D3DXVECTOR3 m_up;
    float m_fovY;
    float m_aspectRatio;
    float m_znear;
    float m_zFar;
    D3DXMATRIX m_viewProjection;
    D3DXMATRIX m_view;
    D3DXMATRIX m_projection;
    D3DXMATRIX m_viewInverse;
};
