#include "ViewerScene.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

namespace vexilview {

namespace {

const char* const kCameraFrame = "CameraDummy";

// Positions of a mesh's vertices: the first element of every vertex that is not pre-transformed.
std::vector<D3DXVECTOR3> vertexPositions(ID3DXMesh* mesh) {
    std::vector<D3DXVECTOR3> positions;
    void* data = nullptr;
    if (!mesh || (mesh->GetFVF() & D3DFVF_POSITION_MASK) == D3DFVF_XYZRHW) return positions;
    if (FAILED(mesh->LockVertexBuffer(D3DLOCK_READONLY, &data))) return positions;
    const DWORD stride = mesh->GetNumBytesPerVertex();
    for (DWORD v = 0; v < mesh->GetNumVertices(); ++v)
        positions.push_back(*reinterpret_cast<const D3DXVECTOR3*>(static_cast<const char*>(data) + v * stride));
    mesh->UnlockVertexBuffer();
    return positions;
}

void addTransformed(std::vector<D3DXVECTOR3>& points, const D3DXVECTOR3& p, const D3DXMATRIX& m) {
    D3DXVECTOR3 out;
    D3DXVec3TransformCoord(&out, &p, &m);
    points.push_back(out);
}

// A skinned container's vertices where the current pose puts them: each vertex through every
// bone that moves it (enough for bounds; weights do not matter there).
void addSkinnedPoints(std::vector<D3DXVECTOR3>& points, const D3DXMESHCONTAINER& container,
                      const std::vector<D3DXVECTOR3>& positions, const FrameNodeIndexer& frames) {
    ID3DXSkinInfo* skin = container.pSkinInfo;
    for (DWORD bone = 0; bone < skin->GetNumBones(); ++bone) {
        const unsigned* index = frames.frameListIndex().find(zeb::String(skin->GetBoneName(bone)));
        const DWORD count = skin->GetNumBoneInfluences(bone);
        if (!index || !count) continue;
        D3DXMATRIX toWorld;
        D3DXMatrixMultiply(&toWorld, skin->GetBoneOffsetMatrix(bone), &frames[static_cast<int>(*index)].m_combinedTransform);
        std::vector<DWORD> vertices(count);
        std::vector<float> weights(count);
        if (FAILED(skin->GetBoneInfluence(bone, vertices.data(), weights.data()))) continue;
        for (DWORD v : vertices)
            if (v < positions.size()) addTransformed(points, positions[v], toWorld);
    }
}

}  // namespace

void ViewerScene::prepare(IDirect3DDevice9* device, float aspectRatio) {
    m_aspectRatio = aspectRatio;
    m_hasCameraFrame = D3DXFrameFind(frameRoot(), kCameraFrame) != nullptr;
    setupAnimation(device);
    meshManager().updateTransformation();
    computeBounds();
    frameBounds();
}

bool ViewerScene::step(double seconds) {
    const bool advanced = !isAnimated() || advanceTime(seconds);
    if (m_hasCameraFrame) {
        updateTransformationAndCamera();
    } else {
        meshManager().updateTransformation();
    }
    return advanced;
}

void ViewerScene::computeBounds() {
    std::vector<D3DXVECTOR3> points;
    const FrameNodeIndexer& frames = meshManager().frameIndex();
    for (unsigned i = 0; i < frames.size(); ++i) {
        const FrameNode& node = frames[static_cast<int>(i)];
        for (D3DXMESHCONTAINER* c = node.m_frame->pMeshContainer; c; c = c->pNextMeshContainer) {
            if (c->MeshData.Type != D3DXMESHTYPE_MESH) continue;
            const std::vector<D3DXVECTOR3> positions = vertexPositions(c->MeshData.pMesh);
            if (MeshManagerD3DX9::isSkinnedContainer(*c)) {
                addSkinnedPoints(points, *c, positions, frames);
            } else {
                for (const D3DXVECTOR3& p : positions) addTransformed(points, p, node.m_combinedTransform);
            }
        }
    }
    if (points.empty()) return;
    D3DXVECTOR3 low(FLT_MAX, FLT_MAX, FLT_MAX), high(-FLT_MAX, -FLT_MAX, -FLT_MAX);
    for (const D3DXVECTOR3& p : points) {
        D3DXVec3Minimize(&low, &low, &p);
        D3DXVec3Maximize(&high, &high, &p);
    }
    m_centre = (low + high) * 0.5f;
    float radius = 0.0f;
    for (const D3DXVECTOR3& p : points) {
        const D3DXVECTOR3 d = p - m_centre;
        radius = std::max(radius, D3DXVec3Length(&d));
    }
    m_radius = std::max(radius, 1e-3f);
}

// From the front, a little to the right and above, far enough for the sphere to fit both the
// vertical and the horizontal field of view.
void ViewerScene::frameBounds() {
    const float fovY = perspectiveViewer().fovHalfAngle();
    const float fovX = 2.0f * std::atan(std::tan(fovY / 2) * m_aspectRatio);
    const float distance = 1.05f * m_radius / std::sin(std::min(fovX, fovY) / 2);
    D3DXVECTOR3 direction(0.35f, 0.4f, -1.0f);
    D3DXVec3Normalize(&direction, &direction);
    m_lookAt = m_centre;
    m_eye = m_centre + direction * distance;
}

void ViewerScene::placeCamera(const Orbit& orbit) {
    PerspectiveViewer& viewer = perspectiveViewer();
    D3DXVECTOR3 eye = m_hasCameraFrame ? viewer.worldPosition() : m_eye;
    const D3DXVECTOR3 lookAt = m_hasCameraFrame ? viewer.lookAtVector() : m_lookAt;
    D3DXMATRIX turn;
    D3DXMatrixRotationYawPitchRoll(&turn, orbit.yaw, orbit.pitch, 0.0f);
    const D3DXVECTOR3 arm = eye - lookAt;
    D3DXVECTOR3 turned;
    D3DXVec3TransformNormal(&turned, &arm, &turn);
    eye = lookAt + turned * orbit.zoom;
    const float distance = D3DXVec3Length(&turned) * orbit.zoom;

    viewer.setTranslation(eye);
    viewer.setLookAt(lookAt);
    viewer.setUpVector(D3DXVECTOR3(0, 1, 0));
    viewer.setAspectRatio(m_aspectRatio);
    if (!m_hasCameraFrame) {
        // Clip planes around the framed sphere, so small and huge models both keep depth precision.
        const float farPlane = distance + 2.0f * m_radius;
        viewer.setZPlane(std::max(farPlane / 5000.0f, distance - 2.0f * m_radius), farPlane);
    }
    viewer.matrixLookAtLH();
    viewer.calculateViewInverse();
    viewer.matrixPerspectiveFovLH();
    viewer.calculateViewProjectionLH();
}

unsigned ViewerScene::triangleCount() const {
    unsigned triangles = 0;
    const FrameNodeIndexer& frames = meshManager().frameIndex();
    for (unsigned i = 0; i < frames.size(); ++i) {
        const FrameNode& node = frames[static_cast<int>(i)];
        if (!node.m_renderFrame) continue;
        for (D3DXMESHCONTAINER* c = node.m_frame->pMeshContainer; c; c = c->pNextMeshContainer)
            if (!MeshManagerD3DX9::isSkinnedContainer(*c) && c->MeshData.Type == D3DXMESHTYPE_MESH && c->MeshData.pMesh)
                triangles += c->MeshData.pMesh->GetNumFaces();
    }
    for (const SkinnedMesh& skinned : meshManager().skinnedMesh())
        if (skinned.mesh()) triangles += skinned.mesh()->GetNumFaces();
    return triangles;
}

}  // namespace vexilview
