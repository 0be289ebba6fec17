// ConvertToBlendedMesh and the influence counts of the drop-in D3DX's skin info, on fixtures
// with known weights, drawn through fixed-function blending on the real device, and on the
// third-party skinned characters (skipped when ../shared/samples is absent).
#include <TestDevice.h>
#include <TestPaths.h>

#include "TestHierarchy.h"
#include "skin_fixtures.h"

#include <cstdio>

using namespace skintest;

namespace {

// Seven columns: bone 0 on the left, bone 1 in the middle, bone 2 on the right, the joints
// shared half and half. No face needs more than two bones, but three bones are in play.
const std::vector<float> kColumns = {-0.75f, -0.5f, -0.25f, 0.0f, 0.25f, 0.5f, 0.75f};

std::vector<Weight> threeBoneStrip()
{
    std::vector<Weight> weights;
    const DWORD bone[7][2] = {{0, 0}, {0, 0}, {0, 1}, {1, 1}, {1, 2}, {2, 2}, {2, 2}};
    for (DWORD c = 0; c < 7; ++c) {
        for (DWORD row = 0; row < 2; ++row) {
            const bool shared = bone[c][0] != bone[c][1];
            weights.push_back({bone[c][0], 2 * c + row, shared ? 0.5f : 1.0f});
            if (shared)
                weights.push_back({bone[c][1], 2 * c + row, 0.5f});
        }
    }
    return weights;
}

// Most influences on one vertex and on one face.
std::pair<DWORD, DWORD> influenceCounts(ID3DXSkinInfo* skin, ID3DXMesh* mesh)
{
    DWORD vertex = 0, face = 0;
    Ref<IDirect3DIndexBuffer9> indices;
    EXPECT_EQ(D3D_OK, skin->GetMaxVertexInfluences(&vertex));
    EXPECT_EQ(D3D_OK, mesh->GetIndexBuffer(indices.out()));
    EXPECT_EQ(D3D_OK, skin->GetMaxFaceInfluences(indices.get(), mesh->GetNumFaces(), &face));
    return {vertex, face};
}

class SkinConvert : public vexiltest::DeviceTest {
protected:
    Ref<ID3DXMesh> strip(DWORD options = D3DXMESH_MANAGED) { return makeStrip(device(), kColumns, -0.25f, 0.25f, options); }
    Ref<ID3DXSkinInfo> stripSkin() { return makeSkin(14, kStripFVF, 3, threeBoneStrip()); }
};

TEST_F(SkinConvert, StripSplitsIntoTheExpectedCombinations)
{
    Ref<ID3DXMesh> mesh = strip();
    Ref<ID3DXSkinInfo> skin = stripSkin();
    EXPECT_EQ(std::make_pair(2ul, 2ul), influenceCounts(skin.get(), mesh.get()));

    Converted c = convert(skin.get(), mesh.get());
    ASSERT_EQ(D3D_OK, c.result);
    EXPECT_EQ(2u, c.maxFaceInfluences);
    EXPECT_EQ(DWORD(D3DFVF_XYZB1 | D3DFVF_DIFFUSE), c.mesh->GetFVF());
    ASSERT_EQ(2u, c.combinationCount);
    ASSERT_EQ(2 * (sizeof(D3DXBONECOMBINATION) + 2 * sizeof(DWORD)), c.table->GetBufferSize());
    // Quads 0-2 need bones {0}, {0,1}, {0,1}; quads 3-5 {1,2}, {1,2}, {2}.
    const DWORD expected[2][6] = {{0, 0, 6, 0, 8, 0}, {0, 6, 6, 8, 8, 1}};
    for (DWORD b = 0; b < 2; ++b) {
        const D3DXBONECOMBINATION& combination = c.combination(b);
        EXPECT_EQ(expected[b][0], combination.AttribId);
        EXPECT_EQ(expected[b][1], combination.FaceStart);
        EXPECT_EQ(expected[b][2], combination.FaceCount);
        EXPECT_EQ(expected[b][3], combination.VertexStart);
        EXPECT_EQ(expected[b][4], vertexCountOf(combination));
        EXPECT_EQ(expected[b][5], combination.BoneId[0]);
        EXPECT_EQ(expected[b][5] + 1, combination.BoneId[1]);
    }
    D3DXATTRIBUTERANGE ranges[2];
    DWORD rangeCount = 2;
    ASSERT_EQ(D3D_OK, c.mesh->GetAttributeTable(ranges, &rangeCount));
    ASSERT_EQ(2u, rangeCount);
    EXPECT_EQ(1u, ranges[1].AttribId);
    EXPECT_EQ(6u, ranges[1].FaceStart);
    EXPECT_EQ(0u, expectFaithfulConversion(skin.get(), mesh.get(), c));
}

TEST_F(SkinConvert, FaceTouchingSixBonesKeepsTheFourThatMatterMost)
{
    // Triangle 0 touches bones 0-5; triangle 1 only bones 6 and 7.
    Ref<ID3DXMesh> mesh = makeMesh(device(), 6, {0, 1, 2, 3, 4, 5}, {});
    Ref<ID3DXSkinInfo> skin = makeSkin(6, kMeshFVF, 8,
                                       {{0, 0, 0.5f}, {1, 0, 0.3f}, {2, 0, 0.2f}, {3, 1, 0.6f}, {4, 1, 0.4f},
                                        {5, 2, 0.9f}, {1, 2, 0.1f}, {6, 3, 1.0f}, {6, 4, 0.7f}, {7, 4, 0.3f},
                                        {7, 5, 1.0f}});
    EXPECT_EQ(std::make_pair(3ul, 6ul), influenceCounts(skin.get(), mesh.get()));

    Converted c = convert(skin.get(), mesh.get());
    ASSERT_EQ(D3D_OK, c.result);
    EXPECT_EQ(4u, c.maxFaceInfluences) << "three stored weights at most";
    EXPECT_EQ(DWORD(D3DFVF_XYZB3 | D3DFVF_NORMAL | D3DFVF_TEX1), c.mesh->GetFVF());
    ASSERT_EQ(2u, c.combinationCount) << "bones 6 and 7 cannot join the four of triangle 0";
    EXPECT_EQ(1u, expectFaithfulConversion(skin.get(), mesh.get(), c));
}

TEST_F(SkinConvert, MeshOptionsDecidePoolAndIndexSize)
{
    Ref<ID3DXMesh> mesh = strip();
    Ref<ID3DXSkinInfo> skin = stripSkin();
    struct Case {
        DWORD options;
        D3DPOOL pool;
        bool wide;
    } cases[] = {{D3DXMESH_MANAGED | D3DXMESHOPT_VERTEXCACHE, D3DPOOL_MANAGED, false},
                 {D3DXMESH_SYSTEMMEM | D3DXMESH_32BIT, D3DPOOL_SYSTEMMEM, true}};
    for (const Case& test : cases) {
        Converted c = convert(skin.get(), mesh.get(), test.options);
        ASSERT_EQ(D3D_OK, c.result);
        Ref<IDirect3DVertexBuffer9> vertices;
        ASSERT_EQ(D3D_OK, c.mesh->GetVertexBuffer(vertices.out()));
        D3DVERTEXBUFFER_DESC desc;
        vertices->GetDesc(&desc);
        EXPECT_EQ(test.pool, desc.Pool) << "options " << std::hex << test.options;
        EXPECT_EQ(test.wide, (c.mesh->GetOptions() & D3DXMESH_32BIT) != 0);
        expectFaithfulConversion(skin.get(), mesh.get(), c);
    }
}

TEST_F(SkinConvert, RemapsAndAdjacencyFollowTheReorderedFaces)
{
    // Materials alternate, so faces must move to keep each combination contiguous.
    std::vector<DWORD> indices, attributes;
    const DWORD columns = 6;
    for (DWORD q = 0; q + 1 < columns; ++q) {
        DWORD a = 2 * q;
        indices.insert(indices.end(), {a, a + 1, a + 2, a + 1, a + 3, a + 2});
        attributes.insert(attributes.end(), {q % 2, q % 2});
    }
    std::vector<Weight> weights;
    for (DWORD v = 0; v < 2 * columns; ++v) {
        weights.push_back({v / 4, v, 0.75f});
        weights.push_back({v / 4 + 1, v, 0.25f});
    }
    Ref<ID3DXMesh> mesh = makeMesh(device(), 2 * columns, indices, attributes);
    Ref<ID3DXSkinInfo> skin = makeSkin(2 * columns, kMeshFVF, 5, weights);
    std::vector<DWORD> adjacency(indices.size());
    ASSERT_EQ(D3D_OK, mesh->GenerateAdjacency(0.0f, adjacency.data()));

    for (const DWORD* given : {static_cast<const DWORD*>(adjacency.data()), static_cast<const DWORD*>(nullptr)}) {
        Converted c = convert(skin.get(), mesh.get(), D3DXMESH_MANAGED, given);
        ASSERT_EQ(D3D_OK, c.result);
        expectFaithfulConversion(skin.get(), mesh.get(), c);
        EXPECT_NE(c.faceRemap, std::vector<DWORD>({0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
        std::vector<DWORD> newFace(c.faceRemap.size());
        for (DWORD f = 0; f < c.faceRemap.size(); ++f)
            newFace[c.faceRemap[f]] = f;
        for (DWORD f = 0; f < c.faceRemap.size(); ++f) {
            for (int edge = 0; edge < 3; ++edge) {
                DWORD before = adjacency[3 * c.faceRemap[f] + edge];
                DWORD expected = before == 0xFFFFFFFF ? 0xFFFFFFFF : newFace[before];
                EXPECT_EQ(expected, c.adjacency[3 * f + edge]) << "face " << f << " edge " << edge;
            }
        }
    }
}

TEST_F(SkinConvert, BadInputIsRefusedWithoutLeaks)
{
    Ref<ID3DXMesh> mesh = strip();
    struct Case {
        const char* what;
        DWORD bones;
        std::vector<Weight> weights;
    } cases[] = {{"zero bones", 0, {}},
                 {"no weights", 3, {}},
                 {"vertex past the mesh", 3, {{0, 0, 1.0f}, {1, 14, 1.0f}}},
                 {"weights of zero only", 2, {{0, 0, 0.0f}, {1, 3, 0.0f}}}};
    for (Case& test : cases) {
        Ref<ID3DXSkinInfo> skin = makeSkin(14, kStripFVF, test.bones, test.weights);
        ASSERT_TRUE(skin) << test.what;
        Converted c = convert(skin.get(), mesh.get());
        EXPECT_EQ(D3DERR_INVALIDCALL, c.result) << test.what;
        EXPECT_FALSE(c.mesh) << test.what;
        EXPECT_FALSE(c.table) << test.what;
        EXPECT_FALSE(c.vertexRemap) << test.what;
        EXPECT_EQ(0u, skin.releaseCount()) << test.what << ": the skin info keeps a reference";
    }
    Ref<ID3DXSkinInfo> skin = stripSkin();
    ID3DXMesh* out = reinterpret_cast<ID3DXMesh*>(1);
    DWORD influences, count;
    ID3DXBuffer* table = nullptr;
    EXPECT_EQ(D3DERR_INVALIDCALL, skin->ConvertToBlendedMesh(nullptr, 0, nullptr, nullptr, nullptr, nullptr,
                                                             &influences, &count, &table, &out));
    EXPECT_EQ(D3DERR_INVALIDCALL, skin->ConvertToBlendedMesh(mesh.get(), 0, nullptr, nullptr, nullptr, nullptr,
                                                             &influences, &count, &table, nullptr));
    EXPECT_EQ(D3DERR_INVALIDCALL, skin->GetMaxFaceInfluences(nullptr, 1, &influences));
    EXPECT_EQ(D3DERR_INVALIDCALL, skin->GetMaxVertexInfluences(nullptr));
    EXPECT_EQ(0u, mesh.releaseCount()) << "the source mesh keeps a reference";
}

// Clones, interface queries and skin infos made from a blended mesh are completed too; the last
// gives the weights back.
TEST_F(SkinConvert, EverySkinInfoHandedOutIsCompleted)
{
    Ref<ID3DXMesh> mesh = strip();
    Ref<ID3DXSkinInfo> skin = stripSkin();
    Ref<ID3DXSkinInfo> clone, queried, back;
    ASSERT_EQ(D3D_OK, skin->Clone(clone.out()));
    EXPECT_EQ(std::make_pair(2ul, 2ul), influenceCounts(clone.get(), mesh.get()));
    ASSERT_EQ(D3D_OK, skin->QueryInterface(IID_ID3DXSkinInfo, reinterpret_cast<void**>(queried.out())));
    EXPECT_EQ(skin.get(), queried.get());

    Converted c = convert(skin.get(), mesh.get());
    ASSERT_EQ(D3D_OK, c.result);
    const auto* table = static_cast<const D3DXBONECOMBINATION*>(c.table->GetBufferPointer());
    ASSERT_EQ(D3D_OK, D3DXCreateSkinInfoFromBlendedMesh(c.mesh.get(), 3, table, back.out()));
    ASSERT_EQ(3u, back->GetNumBones());
    const auto original = sourceWeights(skin.get(), mesh->GetNumVertices());
    const auto recovered = sourceWeights(back.get(), c.mesh->GetNumVertices());
    for (DWORD v = 0; v < c.mesh->GetNumVertices(); ++v) {
        const auto& expected = original[c.remappedVertex(v)];
        ASSERT_EQ(expected.size(), recovered[v].size()) << "blended vertex " << v;
        for (const auto& w : expected)
            EXPECT_NEAR(w.second, recovered[v].at(w.first), 1e-5f) << "blended vertex " << v;
    }
    EXPECT_EQ(2ul, influenceCounts(back.get(), c.mesh.get()).first);
    EXPECT_EQ(D3DERR_INVALIDCALL, D3DXCreateSkinInfoFromBlendedMesh(c.mesh.get(), 3, nullptr, back.out()));
    queried.reset();
    EXPECT_EQ(0u, clone.releaseCount());
    EXPECT_EQ(0u, back.releaseCount());
    EXPECT_EQ(0u, skin.releaseCount());
}

// Draws every combination with its bones' matrices, as a skinned-mesh renderer does.
void drawBlended(IDirect3DDevice9* device, const Converted& c, const std::vector<D3DXMATRIX>& bones)
{
    device->SetRenderState(D3DRS_LIGHTING, FALSE);
    device->SetRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
    device->SetRenderState(D3DRS_ZENABLE, FALSE);
    ASSERT_EQ(D3D_OK, device->BeginScene());
    for (DWORD b = 0; b < c.combinationCount; ++b) {
        const D3DXBONECOMBINATION& combination = c.combination(b);
        DWORD lastSlot = 0;
        for (DWORD i = 0; i < c.maxFaceInfluences; ++i) {
            if (combination.BoneId[i] == 0xFFFFFFFF)
                continue;
            device->SetTransform(D3DTS_WORLDMATRIX(i), &bones[combination.BoneId[i]]);
            lastSlot = i;
        }
        device->SetRenderState(D3DRS_VERTEXBLEND, lastSlot);
        EXPECT_EQ(D3D_OK, c.mesh->DrawSubset(b));
    }
    device->EndScene();
    device->SetRenderState(D3DRS_VERTEXBLEND, D3DVBF_DISABLE);
}

// Pixel centre nearest to a clip-space point of the 64x64 target.
unsigned px(float x) { return unsigned((x + 1.0f) * 32.0f); }
unsigned py(float y) { return unsigned((1.0f - y) * 32.0f); }

// One bone moved by a known matrix moves exactly the vertices it weighs, by its share of their
// weight: columns 0-1 are bone 0's, 3 bone 1's, 5-6 bone 2's; 2 and 4 are shared half and half.
TEST_F(SkinConvert, MovingOneBoneMovesExactlyTheVerticesItWeighs)
{
    D3DCAPS9 caps;
    device()->GetDeviceCaps(&caps);
    ASSERT_GE(caps.MaxVertexBlendMatrices, 2u) << "the device cannot blend two matrices";
    Ref<ID3DXMesh> mesh = strip();
    Ref<ID3DXSkinInfo> skin = stripSkin();
    Converted c = convert(skin.get(), mesh.get());
    ASSERT_EQ(D3D_OK, c.result);
    std::vector<D3DXMATRIX> bones(3);
    for (D3DXMATRIX& m : bones)
        D3DXMatrixIdentity(&m);
    D3DXMatrixTranslation(&bones[1], 0.0f, 0.5f, 0.0f);
    testDevice().clear(0);
    drawBlended(device(), c, bones);
    const struct {
        float x, y;
        bool covered;
    } pixels[] = {{-0.625f, 0.0f, true}, {-0.625f, 0.4f, false}, {0.625f, 0.0f, true}, {0.625f, 0.4f, false},
                  {0.03f, 0.6f, true},   {0.03f, 0.1f, false},    // bone 1's alone: up by half a unit
                  {-0.27f, 0.39f, true}, {-0.27f, 0.55f, false}, {-0.27f, -0.11f, false}};  // half: a quarter
    for (const auto& p : pixels)
        EXPECT_TRUE(renderedPixelIs(px(p.x), py(p.y), p.covered ? 0xFFFFFF : 0)) << p.x << ", " << p.y;
}

void collectSkins(const D3DXFRAME* frame, std::vector<const D3DXMESHCONTAINER*>& out)
{
    for (; frame; frame = frame->pFrameSibling) {
        for (const D3DXMESHCONTAINER* c = frame->pMeshContainer; c; c = c->pNextMeshContainer) {
            if (c->pSkinInfo && c->MeshData.Type == D3DXMESHTYPE_MESH)
                out.push_back(c);
        }
        collectSkins(frame->pFrameFirstChild, out);
    }
}

// Skinned characters convert faithfully; weights past the vertex array are refused by the loader
// or by the conversion.
TEST_F(SkinConvert, SampleCharactersConvertFaithfully)
{
    VEXIL_REQUIRE_SAMPLES();
    for (const char* file : {"sdk\\Tiny\\tiny.x", "assimp\\Testwuson.X", "assimp\\malformed_skinweights_oob.x"}) {
        const bool malformed = std::string(file).find("malformed") != std::string::npos;
        vexiltest::LoadedScene scene;
        vexiltest::loadFromFile(scene, device(), vexiltest::samplesDir() + "\\" + file);
        std::vector<const D3DXMESHCONTAINER*> skins;
        collectSkins(scene.root, skins);
        if (malformed && FAILED(scene.result))
            continue;
        ASSERT_EQ(D3D_OK, scene.result) << file;
        ASSERT_FALSE(skins.empty()) << file << " has no skinned mesh";
        for (const D3DXMESHCONTAINER* loaded : skins) {
            SCOPED_TRACE(std::string(file) + " container '" + (loaded->Name ? loaded->Name : "") + "'");
            Converted c = convert(loaded->pSkinInfo, loaded->MeshData.pMesh, D3DXMESH_MANAGED | D3DXMESHOPT_VERTEXCACHE);
            if (malformed) {
                EXPECT_EQ(D3DERR_INVALIDCALL, c.result);
                EXPECT_FALSE(c.mesh);
                continue;
            }
            const DWORD most = influenceCounts(loaded->pSkinInfo, loaded->MeshData.pMesh).second;
            EXPECT_EQ(std::min<DWORD>(most, 4), c.maxFaceInfluences);
            const DWORD crowded = expectFaithfulConversion(loaded->pSkinInfo, loaded->MeshData.pMesh, c);
            std::printf("%s: %lu combinations, %lu faces reduced\n", file, c.combinationCount, crowded);
        }
    }
}

}  // namespace
