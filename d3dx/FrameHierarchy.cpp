// The frame utilities of the mesh-hierarchy API that the system D3DX leaves as stubs. Each walks
// a hierarchy as D3DXFrameFind and D3DXFrameDestroy do: the frame given, its siblings and
// everything below them.
#include <d3dx9.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

// Calls visit(frame, combined) for every frame, `combined` being the frame's matrix followed by
// its ancestors' (the transform from the frame's space to the one the root frame lives in).
// Iterative: hierarchies a program builds need not be shallow.
template <class Frame, class Visit>
void forEachFrame(Frame* root, Visit visit)
{
    struct Pending {
        Frame* frame;
        D3DXMATRIX parent;
    };
    D3DXMATRIX identity;
    D3DXMatrixIdentity(&identity);
    std::vector<Pending> pending{{root, identity}};
    while (!pending.empty()) {
        const Pending next = pending.back();
        pending.pop_back();
        for (Frame* frame = next.frame; frame; frame = frame->pFrameSibling) {
            D3DXMATRIX combined;
            D3DXMatrixMultiply(&combined, &frame->TransformationMatrix, &next.parent);
            visit(*frame, combined);
            if (frame->pFrameFirstChild)
                pending.push_back({frame->pFrameFirstChild, combined});
        }
    }
}

// The system loader names an unnamed frame "", where Microsoft's leaves the name null: both
// count as unnamed.
bool isNamed(const D3DXFRAME& frame)
{
    return frame.Name && frame.Name[0];
}

// A mesh of the hierarchy, where its positions lie in its vertices, and the matrix that places it.
struct PlacedMesh {
    ID3DXBaseMesh* mesh;
    DWORD positionOffset;
    DWORD stride;
    D3DXMATRIX combined;
};

bool findPositions(ID3DXBaseMesh* mesh, DWORD& offset)
{
    D3DVERTEXELEMENT9 declaration[MAX_FVF_DECL_SIZE];
    if (FAILED(mesh->GetDeclaration(declaration)))
        return false;
    for (const D3DVERTEXELEMENT9* element = declaration; element->Stream != 0xFF; ++element) {
        if (element->Usage == D3DDECLUSAGE_POSITION && element->UsageIndex == 0 && element->Stream == 0 &&
            (element->Type == D3DDECLTYPE_FLOAT3 || element->Type == D3DDECLTYPE_FLOAT4)) {
            offset = element->Offset;
            return true;
        }
    }
    return false;
}

// Meshes and progressive meshes (both ID3DXBaseMesh) count; patch meshes have no vertices to read.
std::vector<PlacedMesh> meshesOf(const D3DXFRAME* root)
{
    std::vector<PlacedMesh> meshes;
    forEachFrame(root, [&](const D3DXFRAME& frame, const D3DXMATRIX& combined) {
        for (const D3DXMESHCONTAINER* c = frame.pMeshContainer; c; c = c->pNextMeshContainer) {
            ID3DXBaseMesh* mesh = c->MeshData.Type == D3DXMESHTYPE_PATCHMESH ? nullptr : c->MeshData.pMesh;
            PlacedMesh placed{mesh, 0, 0, combined};
            if (mesh && mesh->GetNumVertices() > 0 && findPositions(mesh, placed.positionOffset)) {
                placed.stride = mesh->GetNumBytesPerVertex();
                meshes.push_back(placed);
            }
        }
    });
    return meshes;
}

// D3DXVec3TransformCoord, inline: the sphere's loop places every vertex of the hierarchy.
D3DXVECTOR3 placedPoint(const D3DXVECTOR3& p, const D3DXMATRIX& m)
{
    const float w = p.x * m._14 + p.y * m._24 + p.z * m._34 + m._44;
    return D3DXVECTOR3(p.x * m._11 + p.y * m._21 + p.z * m._31 + m._41, p.x * m._12 + p.y * m._22 + p.z * m._32 + m._42,
                       p.x * m._13 + p.y * m._23 + p.z * m._33 + m._43) /
           w;
}

// Calls see(position) for each vertex of the mesh, in the mesh's own space.
template <class See>
HRESULT forEachPosition(const PlacedMesh& placed, See see)
{
    BYTE* vertices = nullptr;
    const HRESULT hr = placed.mesh->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&vertices));
    if (FAILED(hr))
        return hr;
    const DWORD count = placed.mesh->GetNumVertices();
    for (DWORD v = 0; v < count; ++v)
        see(*reinterpret_cast<const D3DXVECTOR3*>(vertices + v * placed.stride + placed.positionOffset));
    placed.mesh->UnlockVertexBuffer();
    return D3D_OK;
}

}  // namespace

// The sphere of D3DXComputeBoundingSphere over every vertex of every mesh, each placed by its
// frame's combined matrix: centred on the mean of the placed vertices, reaching the farthest one.
// The mean is taken in each mesh's own space and then placed, so each vertex is transformed once.
extern "C" HRESULT WINAPI D3DXFrameCalculateBoundingSphere(const D3DXFRAME* root, D3DXVECTOR3* center,
                                                           FLOAT* radius)
{
    if (!root || !center || !radius)
        return D3DERR_INVALIDCALL;
    const std::vector<PlacedMesh> meshes = meshesOf(root);
    double sum[3] = {0, 0, 0}, vertexCount = 0;
    for (const PlacedMesh& placed : meshes) {
        double meshSum[3] = {0, 0, 0};
        const HRESULT hr = forEachPosition(placed, [&](const D3DXVECTOR3& p) {
            meshSum[0] += p.x;
            meshSum[1] += p.y;
            meshSum[2] += p.z;
        });
        if (FAILED(hr))
            return hr;
        const double count = placed.mesh->GetNumVertices();
        const D3DXVECTOR3 meshMean(float(meshSum[0] / count), float(meshSum[1] / count), float(meshSum[2] / count));
        const D3DXVECTOR3 mean = placedPoint(meshMean, placed.combined);
        sum[0] += mean.x * count;
        sum[1] += mean.y * count;
        sum[2] += mean.z * count;
        vertexCount += count;
    }
    *center = D3DXVECTOR3(0, 0, 0);
    if (vertexCount)
        *center = D3DXVECTOR3(float(sum[0] / vertexCount), float(sum[1] / vertexCount), float(sum[2] / vertexCount));
    float farthest = 0;
    for (const PlacedMesh& placed : meshes) {
        const HRESULT hr = forEachPosition(placed, [&](const D3DXVECTOR3& p) {
            const D3DXVECTOR3 offset = placedPoint(p, placed.combined) - *center;
            farthest = std::max(farthest, D3DXVec3LengthSq(&offset));
        });
        if (FAILED(hr))
            return hr;
    }
    *radius = std::sqrt(farthest);
    return D3D_OK;
}

extern "C" UINT WINAPI D3DXFrameNumNamedMatrices(const D3DXFRAME* root)
{
    UINT named = 0;
    forEachFrame(root, [&](const D3DXFRAME& frame, const D3DXMATRIX&) { named += isNamed(frame) ? 1 : 0; });
    return named;
}

// Each named frame's TransformationMatrix becomes the animation output of its name; the first
// registration the controller refuses (it is full, say) ends the walk with its answer.
extern "C" HRESULT WINAPI D3DXFrameRegisterNamedMatrices(D3DXFRAME* root, ID3DXAnimationController* controller)
{
    if (!root || !controller)
        return D3DERR_INVALIDCALL;
    HRESULT result = D3D_OK;
    forEachFrame(root, [&](D3DXFRAME& frame, const D3DXMATRIX&) {
        if (SUCCEEDED(result) && isNamed(frame))
            result = controller->RegisterAnimationOutput(frame.Name, &frame.TransformationMatrix, nullptr, nullptr,
                                                         nullptr);
    });
    return result;
}

// The child (with its siblings) goes last among the parent's children.
extern "C" HRESULT WINAPI D3DXFrameAppendChild(D3DXFRAME* parent, const D3DXFRAME* child)
{
    if (!parent || !child)
        return D3DERR_INVALIDCALL;
    D3DXFRAME** last = &parent->pFrameFirstChild;
    while (*last)
        last = &(*last)->pFrameSibling;
    *last = const_cast<D3DXFRAME*>(child);
    return D3D_OK;
}
