#include <d3dx9.h>
#include <gtest/gtest.h>

#include "TestDevice.h"
#include "TestHierarchy.h"
#include "XFixtures.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace {

using namespace xfixtures;
using vexiltest::LoadedScene;
using vexiltest::Ref;

class XMeshLoad : public vexiltest::DeviceTest {};

// The material of each quad of the strip, told by where its triangles lie (the loader sorts
// faces by material); 99 for a quad whose two triangles differ.
std::vector<DWORD> quadMaterials(ID3DXMesh* mesh)
{
    DWORD* attributes = nullptr;
    WORD* indices = nullptr;
    BYTE* vertices = nullptr;
    std::vector<DWORD> quads(mesh->GetNumFaces() / 2, 98);
    if (FAILED(mesh->LockAttributeBuffer(D3DLOCK_READONLY, &attributes)) ||
        FAILED(mesh->LockIndexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&indices))) ||
        FAILED(mesh->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&vertices))))
        return {};
    for (DWORD face = 0; face < mesh->GetNumFaces(); ++face) {
        float left = 1e9f;
        for (int corner = 0; corner < 3; ++corner)
            left = std::min(left, reinterpret_cast<const float*>(vertices + indices[3 * face + corner] *
                                                                 mesh->GetNumBytesPerVertex())[0]);
        DWORD& quad = quads.at(size_t(left));
        quad = quad == 98 || quad == attributes[face] ? attributes[face] : 99;
    }
    mesh->UnlockVertexBuffer();
    mesh->UnlockIndexBuffer();
    mesh->UnlockAttributeBuffer();
    return quads;
}

// Short and long material lists read as Microsoft's loader reads them, in every encoding and
// with the mesh inside its frame or named by it from the top level.
TEST_F(XMeshLoad, ShortMaterialListsGiveTheLastIndexToTheRemainingFaces)
{
    const struct {
        const char* what;
        std::vector<uint32_t> listed;
        std::vector<DWORD> expected;  // of the 4 quads
    } lists[] = {{"one index", {1}, {1, 1, 1, 1}},
                 {"one fewer than faces", {0, 0, 1}, {0, 0, 1, 1}},
                 {"one a face", {1, 0, 1, 0}, {1, 0, 1, 0}},
                 {"one more than faces", {0, 1, 1, 0, 1}, {0, 1, 1, 0}},
                 {"none", {}, {0, 0, 0, 0}}};
    for (const auto& list : lists) {
        for (int variant = 0; variant < 6; ++variant) {
            const bool binary = variant % 2, packed = variant / 2 == 1, referenced = variant / 2 == 2;
            SCOPED_TRACE(std::string(list.what) + (binary ? ", binary" : ", text") + (packed ? ", compressed" : "") +
                         (referenced ? ", referenced" : ""));
            const std::string plain = materialListFile(4, list.listed, binary, referenced);
            LoadedScene scene(device(), packed ? compressed(plain, 64) : plain);
            ASSERT_EQ(S_OK, scene.result);
            const D3DXMESHCONTAINER* container = scene.frame("Strip")->pMeshContainer;
            ASSERT_NE(nullptr, container);
            EXPECT_EQ(2u, container->NumMaterials);
            EXPECT_EQ(list.expected, quadMaterials(container->MeshData.pMesh));
        }
    }
}

// Root turned a quarter about z and moved to x = 10 holds Big (stretched 2 along x, moved 3
// along x) with the six points at unit distance on the axes, and Small (moved -6 along x) with
// the points 0, 3 and 6 of its y axis and an unnamed frame. In the world Big's points lie around
// (10, 3, 0), out to (10, 5, 0); Small's at (10, -6, 0), (7, -6, 0) and (4, -6, 0).
const char* const kTwoBalls = R"(
Frame Root {
  FrameTransformMatrix { 0.0,1.0,0.0,0.0,-1.0,0.0,0.0,0.0,0.0,0.0,1.0,0.0,10.0,0.0,0.0,1.0;; }
  Frame Big {
    FrameTransformMatrix { 2.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,3.0,0.0,0.0,1.0;; }
    Mesh { 6; 1.0;0.0;0.0;, -1.0;0.0;0.0;, 0.0;1.0;0.0;, 0.0;-1.0;0.0;, 0.0;0.0;1.0;, 0.0;0.0;-1.0;;
           2; 3;0,2,4;, 3;1,3,5;; }
  }
  Frame Small {
    FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,-6.0,0.0,0.0,1.0;; }
    Mesh { 3; 0.0;0.0;0.0;, 0.0;3.0;0.0;, 0.0;6.0;0.0;; 1; 3;0,1,2;; }
    Frame { FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; } }
  }
}
)";

// The sphere holds every vertex where its frame and then the frame's parents place it: centred
// on the mean of the nine, (9, 0, 0), out to Small's farthest one.
TEST_F(XMeshLoad, FrameUtilitiesMeasureCountAndRegisterTheHierarchy)
{
    LoadedScene scene(device(), textFile({kTwoBalls}));
    ASSERT_EQ(S_OK, scene.result);
    D3DXVECTOR3 center;
    float radius = 0;
    ASSERT_EQ(D3D_OK, D3DXFrameCalculateBoundingSphere(scene.root, &center, &radius));
    EXPECT_NEAR(9, center.x, 1e-5);
    EXPECT_NEAR(0, std::fabs(center.y) + std::fabs(center.z), 1e-5);
    EXPECT_NEAR(std::sqrt(61.0f), radius, 1e-5);

    EXPECT_EQ(3u, D3DXFrameNumNamedMatrices(scene.root)) << "the unnamed frame does not count";
    D3DXFRAME* leaf = nullptr;
    ASSERT_EQ(S_OK, scene.allocator.CreateFrame("Leaf", &leaf));
    ASSERT_EQ(D3D_OK, D3DXFrameAppendChild(scene.root, leaf));
    EXPECT_EQ(leaf, scene.frame("Small")->pFrameSibling) << "after Root's last child";
    EXPECT_EQ(4u, D3DXFrameNumNamedMatrices(scene.root));

    // Registered outputs are what a keyframed set drives, the set put on its track before or
    // after; a controller too small refuses the rest.
    Ref<ID3DXAnimationController> small, controller;
    ASSERT_EQ(D3D_OK, D3DXCreateAnimationController(2, 1, 1, 1, small.out()));
    EXPECT_EQ(D3DERR_INVALIDCALL, D3DXFrameRegisterNamedMatrices(scene.root, small.get()));
    ASSERT_EQ(D3D_OK, D3DXCreateAnimationController(4, 1, 1, 1, controller.out()));
    Ref<ID3DXKeyframedAnimationSet> set;
    const D3DXKEY_VECTOR3 keys[2] = {{0, D3DXVECTOR3(0, 0, 0)}, {1, D3DXVECTOR3(0, 8, 0)}};
    ASSERT_EQ(D3D_OK, D3DXCreateKeyframedAnimationSet("Lift", 1, D3DXPLAY_ONCE, 1, 0, nullptr, set.out()));
    ASSERT_EQ(D3D_OK, set->RegisterAnimationSRTKeys("Leaf", 0, 0, 2, nullptr, nullptr, keys, nullptr));
    ASSERT_EQ(D3D_OK, controller->RegisterAnimationSet(set.get()));
    ASSERT_EQ(D3D_OK, controller->SetTrackAnimationSet(0, set.get()));
    ASSERT_EQ(D3D_OK, D3DXFrameRegisterNamedMatrices(scene.root, controller.get()));
    ASSERT_EQ(D3D_OK, controller->AdvanceTime(0.5, nullptr));
    EXPECT_FLOAT_EQ(4, leaf->TransformationMatrix._42);
}

float distance(const float* point, const D3DXVECTOR3& expected)
{
    const D3DXVECTOR3 offset = *reinterpret_cast<const D3DXVECTOR3*>(point) - expected;
    return D3DXVec3Length(&offset);
}

// A unit quad with texture coordinates whose one-index material list puts both triangles in
// material 1 (read by the single-mesh loader).
const char* const kQuad = R"(
Mesh { 4; 0.0;0.0;0.0;, 1.0;0.0;0.0;, 1.0;1.0;0.0;, 0.0;1.0;0.0;; 2; 3;0,1,2;, 3;0,2,3;;
  MeshTextureCoords { 4; 0.0;0.0;, 1.0;0.0;, 1.0;1.0;, 0.0;1.0;; }
  MeshMaterialList { 2; 1; 1;; Material { 1.0;0.0;0.0;1.0;; 0.0; 0.0;0.0;0.0;; 0.0;0.0;0.0;; }
                               Material { 0.0;0.0;1.0;1.0;; 0.0; 0.0;0.0;0.0;; 0.0;0.0;0.0;; } }
}
)";

// A box (position, normal; material 0) turned and then stretched along y, and the quad moved 5
// along x, its coordinates scaled by 2: one mesh holding both, the quad's indices after the box's
// vertices, the declaration the union of theirs, both attribute tables.
TEST_F(XMeshLoad, ConcatenatedMeshesKeepEveryVertexFaceAndMaterial)
{
    Ref<ID3DXMesh> box, quad, joined;
    const std::string quadFile = textFile({kQuad});
    ASSERT_EQ(D3D_OK, D3DXCreateBox(device(), 2, 2, 2, box.out(), nullptr));
    ASSERT_EQ(D3D_OK, D3DXLoadMeshFromXInMemory(quadFile.data(), DWORD(quadFile.size()), D3DXMESH_SYSTEMMEM, device(),
                                                nullptr, nullptr, nullptr, nullptr, quad.out()));
    float* v = nullptr;
    WORD* i = nullptr;

    float boxCorner[6];  // position and normal of the box's first vertex
    box->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&v));
    std::copy(v, v + 6, boxCorner);
    box->UnlockVertexBuffer();

    ID3DXMesh* both[2] = {box.get(), quad.get()};
    D3DXMATRIX geometry[2], texture[2], turn, stretch;
    D3DXMatrixRotationYawPitchRoll(&turn, 0.5f, 0.5f, 0.5f);
    D3DXMatrixMultiply(&geometry[0], &turn, D3DXMatrixScaling(&stretch, 1, 2, 1));
    D3DXMatrixTranslation(&geometry[1], 5, 0, 0);
    D3DXMatrixScaling(&texture[1], 2, 2, 1);
    D3DXMatrixIdentity(&texture[0]);
    ASSERT_EQ(D3D_OK, D3DXConcatenateMeshes(both, 2, D3DXMESH_SYSTEMMEM, geometry, texture, nullptr, device(),
                                            joined.out()));
    ASSERT_EQ(28u, joined->GetNumVertices());
    ASSERT_EQ(14u, joined->GetNumFaces());
    EXPECT_EQ(D3DFVF_XYZ | D3DFVF_NORMAL | D3DFVF_TEX1, joined->GetFVF());
    joined->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&v));
    const float* corner = v + 8 * 26;  // the quad's (1, 1): x, y, z, normal, u, v
    EXPECT_TRUE(corner[0] == 6 && corner[1] == 1 && corner[6] == 2 && corner[7] == 2);
    // A normal goes by the inverse transpose: turned, then divided by the stretch, then made unit.
    D3DXVECTOR3 position, normal;
    D3DXVec3TransformCoord(&position, reinterpret_cast<const D3DXVECTOR3*>(boxCorner), &geometry[0]);
    D3DXVec3TransformNormal(&normal, reinterpret_cast<const D3DXVECTOR3*>(boxCorner + 3), &turn);
    normal.y /= 2;
    D3DXVec3Normalize(&normal, &normal);
    EXPECT_LT(distance(v, position), 1e-5f);
    EXPECT_LT(distance(v + 3, normal), 1e-5f);
    EXPECT_TRUE(v[6] == 0 && v[7] == 0) << "no texture coordinates for the box";
    joined->UnlockVertexBuffer();
    joined->LockIndexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&i));
    EXPECT_TRUE(i[36] == 24 && i[37] == 25 && i[38] == 26);
    joined->UnlockIndexBuffer();
    D3DXATTRIBUTERANGE table[2] = {};
    DWORD entries = 2;
    ASSERT_EQ(D3D_OK, joined->GetAttributeTable(table, &entries));
    ASSERT_EQ(2u, entries);
    EXPECT_TRUE(table[1].AttribId == 1 && table[1].FaceStart == 12 && table[1].VertexStart == 24 &&
                table[1].VertexCount == 4);
}

}  // namespace
