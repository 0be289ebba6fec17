#include "ViewerScene.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

namespace vexilview {

namespace {

const char* const kCameraFrame = "CameraDummy";
// Poses of the animation set sampled to frame its whole run.
const unsigned kFramingSamples = 24;

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

bool isBlack(const D3DMATERIAL9& m) {
    const D3DCOLORVALUE* colours[] = {&m.Diffuse, &m.Ambient, &m.Emissive};
    for (const D3DCOLORVALUE* c : colours)
        if (c->r > 0.0f || c->g > 0.0f || c->b > 0.0f) return false;
    return true;
}

// The library takes a skin's materials through its texture table; in a file that loads no
// texture the combinations keep a zero material and draw black. Those take the material the
// file gives their subset (or the neutral one); an empty result leaves the library's.
std::vector<D3DMATERIAL9> substituteMaterials(const SkinnedMesh& skinned) {
    // The accessor only reads, but is not marked const.
    const D3DXMESHCONTAINER* container = const_cast<SkinnedMesh&>(skinned).sourceMeshContainer();
    std::vector<D3DMATERIAL9> materials;
    bool needed = false;
    for (const SkinnedMesh::BoneArray& bones : skinned.boneArrays()) {
        const D3DMATERIAL9& own = bones.material.material;
        const bool black = isBlack(own) && !bones.material.texture;
        const DWORD id = bones.attributeId;
        const bool fileHasOne = container && container->pMaterials && id < container->NumMaterials &&
                                !isBlack(container->pMaterials[id].MatD3D);
        materials.push_back(!black ? own : fileHasOne ? container->pMaterials[id].MatD3D : kNeutralMaterial);
        needed |= black;
    }
    if (!needed) materials.clear();
    return materials;
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

const D3DMATERIAL9 kNeutralMaterial = {
    {0.72f, 0.72f, 0.7f, 1.0f}, {0.72f, 0.72f, 0.7f, 1.0f}, {0.15f, 0.15f, 0.15f, 1.0f}, {0.0f, 0.0f, 0.0f, 0.0f}, 8.0f};

// The library's rule (at least one bone), kept in one place.
bool isSkinned(const D3DXMESHCONTAINER& container) { return MeshManagerD3DX9::isSkinnedContainer(container); }

std::vector<unsigned> facesPerSubset(ID3DXMesh* mesh) {
    std::vector<unsigned> faces;
    DWORD* attributes = nullptr;
    if (!mesh || FAILED(mesh->LockAttributeBuffer(D3DLOCK_READONLY, &attributes))) return faces;
    for (DWORD f = 0; f < mesh->GetNumFaces(); ++f) {
        if (attributes[f] >= faces.size()) faces.resize(attributes[f] + 1, 0);
        ++faces[attributes[f]];
    }
    mesh->UnlockAttributeBuffer();
    return faces;
}

void ViewerScene::prepare(IDirect3DDevice9* device, float aspectRatio) {
    m_aspectRatio = aspectRatio;
    m_hasCameraFrame = D3DXFrameFind(frameRoot(), kCameraFrame) != nullptr;
    setupAnimation(device);
    m_playback.attach(animationController(), frameRoot());
    meshManager().updateTransformation();
    planDrawing();
    collectGeometry();
    computeBounds();
    frameBounds();
    step(0.0);
}

void ViewerScene::selectAnimation(unsigned index) {
    m_playback.select(index);
    computeBounds();
    frameBounds();
    step(0.0);
}

bool ViewerScene::step(double seconds) {
    m_playback.advance(seconds);
    if (m_hasCameraFrame) {
        updateTransformationAndCamera();
    } else {
        meshManager().updateTransformation();
    }
    return true;
}

// Rigid containers without a material are left to the viewer; the triangle count follows what
// is drawn: the material subsets of the rigid containers, the bare meshes and the skins.
void ViewerScene::planDrawing() {
    m_bareMeshes.clear();
    m_skinMaterials.clear();
    m_triangles = 0;
    const FrameNodeIndexer& frames = meshManager().frameIndex();
    for (unsigned i = 0; i < frames.size(); ++i) {
        const FrameNode& node = frames[static_cast<int>(i)];
        if (!node.m_renderFrame) continue;
        for (D3DXMESHCONTAINER* c = node.m_frame->pMeshContainer; c; c = c->pNextMeshContainer) {
            if (isSkinned(*c) || c->MeshData.Type != D3DXMESHTYPE_MESH || !c->MeshData.pMesh) continue;
            const std::vector<unsigned> faces = facesPerSubset(c->MeshData.pMesh);
            const bool bare = !c->pMaterials || c->NumMaterials == 0;
            BareMesh mesh{i, c->MeshData.pMesh, {}};
            for (DWORD id = 0; id < faces.size(); ++id) {
                if (!bare && id < c->NumMaterials) m_triangles += faces[id];
                if (bare && faces[id] > 0) mesh.subsets.push_back(id), m_triangles += faces[id];
            }
            if (bare) m_bareMeshes.push_back(mesh);
        }
    }
    for (const SkinnedMesh& skinned : meshManager().skinnedMesh()) {
        m_skinMaterials.push_back(substituteMaterials(skinned));
        if (skinned.mesh()) m_triangles += skinned.mesh()->GetNumFaces();
    }
}

void ViewerScene::collectGeometry() {
    m_geometry.clear();
    const FrameNodeIndexer& frames = meshManager().frameIndex();
    for (unsigned i = 0; i < frames.size(); ++i)
        for (const D3DXMESHCONTAINER* c = frames[static_cast<int>(i)].m_frame->pMeshContainer; c; c = c->pNextMeshContainer)
            if (c->MeshData.Type == D3DXMESHTYPE_MESH) m_geometry.push_back({i, c, vertexPositions(c->MeshData.pMesh)});
}

void ViewerScene::addPosePoints(std::vector<D3DXVECTOR3>& points) const {
    const FrameNodeIndexer& frames = meshManager().frameIndex();
    for (const Geometry& g : m_geometry) {
        if (isSkinned(*g.container)) {
            addSkinnedPoints(points, *g.container, g.positions, frames);
        } else {
            for (const D3DXVECTOR3& p : g.positions) addTransformed(points, p, frames[static_cast<int>(g.frame)].m_combinedTransform);
        }
    }
}

// The sphere around every pose of the set's run, so that a character whose animation takes it
// away from its bind pose stays in the picture all the way.
void ViewerScene::computeBounds() {
    std::vector<D3DXVECTOR3> points;
    const std::vector<AnimationSetFacts>& sets = m_playback.sets();
    const double length = sets.empty() ? 0.0 : sets[m_playback.current()].seconds;
    const unsigned samples = length > 0.0 ? kFramingSamples : 0;
    for (unsigned k = 0; k <= samples; ++k) {
        m_playback.poseAt(samples ? length * k / samples : 0.0);
        meshManager().updateTransformation();
        addPosePoints(points);
    }
    m_playback.poseAt(m_playback.position());
    meshManager().updateTransformation();
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

}  // namespace vexilview
