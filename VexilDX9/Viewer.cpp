#include <VexilDX9/Viewer.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

namespace {

D3DXVECTOR3 transformedPoint(const D3DXVECTOR3& point, const D3DXMATRIX& transform) {
    D3DXVECTOR4 result;
    D3DXVec3Transform(&result, &point, &transform);
    return D3DXVECTOR3(result.x, result.y, result.z);
}

}  // namespace

PerspectiveViewer::PerspectiveViewer()
    : m_position(0.0f, 0.0f, 0.0f),
      m_lookAt(0.0f, 0.0f, 1.0f),
      m_up(0.0f, 1.0f, 0.0f),
      m_fovY(0.7853982f),
      m_aspectRatio(1.33f),
      m_znear(1.0f),
      m_zFar(10000.0f) {
    ZEB_TRACE(fileLogger, "PerspectiveViewer::PerspectiveViewer");
}

void PerspectiveViewer::setZPlane(float znear, float zfar) {
    m_znear = znear;
    m_zFar = zfar;
}

void PerspectiveViewer::zPlane(float& znear, float& zfar) const {
    znear = m_znear;
    zfar = m_zFar;
}

void PerspectiveViewer::setRotation(float pitch, float yaw, float roll) {
    ZEB_TRACE(fileLogger, "PerspectiveViewer::setRotation");
    D3DXMATRIX toOrigin, rotation, back, transform;
    D3DXMatrixTranslation(&toOrigin, -m_position.x, -m_position.y, -m_position.z);
    D3DXMatrixRotationYawPitchRoll(&rotation, yaw, pitch, roll);
    D3DXMatrixTranslation(&back, m_position.x, m_position.y, m_position.z);
    D3DXMatrixMultiply(&transform, &toOrigin, &rotation);
    D3DXMatrixMultiply(&transform, &transform, &back);
    m_lookAt = transformedPoint(m_lookAt, transform);
    // The up vector goes through the same point transform (w = 1), so it turns about the eye.
    m_up = transformedPoint(m_up, transform);
}

const D3DXMATRIX& PerspectiveViewer::matrixLookAtLH() {
    D3DXMatrixLookAtLH(&m_view, &m_position, &m_lookAt, &m_up);
    return m_view;
}

const D3DXMATRIX& PerspectiveViewer::matrixLookAtRH() {
    D3DXMatrixLookAtRH(&m_view, &m_position, &m_lookAt, &m_up);
    return m_view;
}

const D3DXMATRIX& PerspectiveViewer::matrixPerspectiveFovLH() {
    ZEB_LOG(fileLogger, 2, __LINE__, "m_fovY " + m_fovY + " m_aspectRatio " + m_aspectRatio + " m_znear " + m_znear +
                                         " m_zFar " + m_zFar);
    D3DXMatrixPerspectiveFovLH(&m_projection, m_fovY, m_aspectRatio, m_znear, m_zFar);
    return m_projection;
}

const D3DXMATRIX& PerspectiveViewer::calculateViewInverse() {
    float determinant = D3DXMatrixDeterminant(&m_view);
    D3DXMatrixInverse(&m_viewInverse, &determinant, &m_view);
    return m_viewInverse;
}

const D3DXMATRIX& PerspectiveViewer::calculateViewProjectionLH() {
    D3DXMatrixMultiply(&m_viewProjection, &m_view, &m_projection);
    return m_viewProjection;
}
