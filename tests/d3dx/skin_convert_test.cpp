// ConvertToBlendedMesh and the influence counts of the drop-in D3DX's skin info, on fixtures
// with known weights and on the third-party characters (skipped when ../shared/samples is absent).
#include <TestDevice.h>
#include <TestPaths.h>

#include "TestHierarchy.h"
#include "skin_fixtures.h"

#include <algorithm>
#include <cstring>
#include <random>

using namespace skintest;

namespace {

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
    // Seven columns of two vertices, a quad between neighbours, 16-bit indices.
    Ref<ID3DXMesh> strip()
    {
        std::vector<DWORD> indices;
        for (DWORD a = 0; a < 12; a += 2)
            indices.insert(indices.end(), {a, a + 1, a + 2, a + 1, a + 3, a + 2});
        return makeMesh(device(), 14, indices);
    }

    // Bone 0 on the left, bone 1 in the middle, bone 2 on the right, the joints (columns 2 and 4)
    // shared half and half; a weightless influence of bone 2 on column 2 must not count. No face
    // needs more than two bones, but three bones are in play.
    Ref<ID3DXSkinInfo> stripSkin()
    {
        std::vector<Weight> weights = {{2, 4, 0.0f}};
        const DWORD bone[7][2] = {{0, 0}, {0, 0}, {0, 1}, {1, 1}, {1, 2}, {2, 2}, {2, 2}};
        for (DWORD v = 0; v < 14; ++v) {
            const DWORD* pair = bone[v / 2];
            weights.push_back({pair[0], v, pair[0] == pair[1] ? 1.0f : 0.5f});
            if (pair[0] != pair[1])
                weights.push_back({pair[1], v, 0.5f});
        }
        return makeSkin(14, 3, weights);
    }
};

TEST_F(SkinConvert, StripSplitsIntoTheExpectedCombinations)
{
    Ref<ID3DXMesh> mesh = strip();
    Ref<ID3DXSkinInfo> skin = stripSkin();
    EXPECT_EQ(std::make_pair(2ul, 2ul), influenceCounts(skin.get(), mesh.get()));

    Converted c = convert(skin.get(), mesh.get());
    ASSERT_EQ(D3D_OK, c.result);
    EXPECT_EQ(2u, c.maxFaceInfluences);
    EXPECT_EQ(DWORD(D3DFVF_XYZB1 | D3DFVF_NORMAL | D3DFVF_TEX1), c.mesh->GetFVF());
    ASSERT_EQ(2u, c.combinationCount);
    ASSERT_EQ(2 * (sizeof(D3DXBONECOMBINATION) + 2 * sizeof(DWORD)), c.table->GetBufferSize());
    // Quads 0-2 need bones {0}, {0,1}, {0,1}; quads 3-5 {1,2}, {1,2}, {2}: columns 0-3, then 3-6.
    for (DWORD b = 0; b < 2; ++b) {
        const D3DXBONECOMBINATION& m = c.combination(b);
        EXPECT_EQ((std::vector<DWORD>{6 * b, 6, 8 * b, 8, b, b + 1}),
                  (std::vector<DWORD>{m.FaceStart, m.FaceCount, m.VertexStart, m.VertexCout, m.BoneId[0], m.BoneId[1]}))
            << "combination " << b;
    }
    EXPECT_EQ(0u, expectFaithfulConversion(skin.get(), mesh.get(), c));
}

TEST_F(SkinConvert, FaceTouchingSixBonesKeepsTheFourThatMatterMost)
{
    // Triangle 0 touches bones 0-5 (bone 0 given twice on vertex 0); triangle 1 only bones 6 and 7.
    Ref<ID3DXMesh> mesh = makeMesh(device(), 6, {0, 1, 2, 3, 4, 5});
    Ref<ID3DXSkinInfo> skin = makeSkin(6, 8,
                                       {{0, 0, 0.25f}, {1, 0, 0.3f}, {0, 0, 0.25f}, {2, 0, 0.2f}, {3, 1, 0.6f},
                                        {4, 1, 0.4f}, {5, 2, 0.9f}, {1, 2, 0.1f}, {6, 3, 1.0f}, {6, 4, 0.7f},
                                        {7, 4, 0.3f}, {7, 5, 1.0f}});
    EXPECT_EQ(std::make_pair(3ul, 6ul), influenceCounts(skin.get(), mesh.get()));

    Converted c = convert(skin.get(), mesh.get());
    ASSERT_EQ(D3D_OK, c.result);
    EXPECT_EQ(4u, c.maxFaceInfluences) << "three stored weights at most";
    EXPECT_EQ(DWORD(D3DFVF_XYZB3 | D3DFVF_NORMAL | D3DFVF_TEX1), c.mesh->GetFVF());
    ASSERT_EQ(2u, c.combinationCount) << "bones 6 and 7 cannot join the four of triangle 0";
    ASSERT_EQ(0u, c.faceRemap[0]);
    // Each corner's heaviest (0, 3, 5) first; then bone 1 (0.4 in all) wins the tie with bone 4 by number.
    const DWORD* kept = c.combination(0).BoneId;
    EXPECT_EQ((std::vector<DWORD>{0, 1, 3, 5}), std::vector<DWORD>(kept, kept + 4));
    EXPECT_EQ(1u, expectFaithfulConversion(skin.get(), mesh.get(), c));
}

// Random faces and materials over random weights, up to three bones a vertex (or none), so that
// many faces need more bones than a combination holds. Up to 64 bones faces are grouped by bit
// masks, beyond by bone lists: bone numbers moved past 100 give the same split. The options
// decide the index size and pool; the adjacency is given or left for the conversion to find.
TEST_F(SkinConvert, RandomMeshesConvertFaithfullyWhateverTheBoneNumbers)
{
    for (unsigned round = 0; round < 20; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        std::vector<Converted> results;
        const bool wide = round % 2;
        const DWORD options = wide ? D3DXMESH_SYSTEMMEM | D3DXMESH_32BIT : D3DXMESH_MANAGED | D3DXMESHOPT_VERTEXCACHE;
        for (DWORD offset : {0u, 100u}) {
            std::mt19937 random(round);
            const DWORD vertices = 60, bones = 2 + random() % 10;
            std::vector<DWORD> indices(240), attributes(80);
            for (DWORD& index : indices)
                index = random() % vertices;
            for (DWORD& attribute : attributes)
                attribute = random() % 3;
            std::vector<Weight> weights;
            for (DWORD v = 0; v < vertices; ++v)
                for (DWORD n = random() % 4; n > 0; --n)
                    weights.push_back({offset + random() % bones, v, 0.1f + float(random() % 100) / 100.0f});
            Ref<ID3DXMesh> mesh = makeMesh(device(), vertices, indices, attributes, options & D3DXMESH_32BIT);
            Ref<ID3DXSkinInfo> skin = makeSkin(vertices, offset + bones, weights);
            std::vector<DWORD> adjacency(indices.size());
            ASSERT_EQ(D3D_OK, mesh->GenerateAdjacency(0.0f, adjacency.data()));
            results.push_back(convert(skin.get(), mesh.get(), options, round % 4 < 2 ? adjacency.data() : nullptr));
            expectFaithfulConversion(skin.get(), mesh.get(), results.back());
        }
        const Converted &low = results[0], &high = results[1];
        ASSERT_TRUE(low.mesh && high.mesh);
        ASSERT_EQ(low.combinationCount, high.combinationCount);
        for (DWORD c = 0; c < low.combinationCount; ++c)
            for (DWORD slot = 0; slot < low.maxFaceInfluences; ++slot) {
                const DWORD bone = low.combination(c).BoneId[slot];
                EXPECT_EQ(bone == 0xFFFFFFFF ? bone : bone + 100, high.combination(c).BoneId[slot]);
            }
        EXPECT_EQ(low.faceRemap, high.faceRemap);
        EXPECT_EQ(readVertices(low.mesh.get()), readVertices(high.mesh.get())) << "the same weights";
        Ref<IDirect3DVertexBuffer9> vertices;
        ASSERT_EQ(D3D_OK, low.mesh->GetVertexBuffer(vertices.out()));
        D3DVERTEXBUFFER_DESC desc;
        vertices->GetDesc(&desc);
        EXPECT_EQ(wide ? D3DPOOL_SYSTEMMEM : D3DPOOL_MANAGED, desc.Pool);
        EXPECT_EQ(wide, (low.mesh->GetOptions() & D3DXMESH_32BIT) != 0);
    }
}

TEST_F(SkinConvert, BadInputIsRefusedWithoutLeaks)
{
    Ref<ID3DXMesh> mesh = strip();
    struct Case {
        const char* what;
        DWORD bones;
        std::vector<Weight> weights;
        DWORD faceInfluences;  // vertices no face reaches do not count
    } cases[] = {{"zero bones", 0, {}, 0},
                 {"no weights", 3, {}, 0},
                 {"vertex past the mesh", 3, {{0, 0, 1.0f}, {1, 14, 1.0f}}, 1},
                 {"weights of zero only", 2, {{0, 0, 0.0f}, {1, 3, 0.0f}}, 0}};
    for (Case& test : cases) {
        Ref<ID3DXSkinInfo> skin = makeSkin(14, test.bones, test.weights);
        ASSERT_TRUE(skin) << test.what;
        EXPECT_EQ(test.faceInfluences, influenceCounts(skin.get(), mesh.get()).second) << test.what;
        Converted c = convert(skin.get(), mesh.get());
        EXPECT_EQ(D3DERR_INVALIDCALL, c.result) << test.what;
        EXPECT_FALSE(c.mesh || c.table || c.vertexRemap) << test.what;
        EXPECT_EQ(0u, skin.releaseCount()) << test.what << ": the skin info keeps a reference";
    }
    Ref<ID3DXMesh> pastTheEnd = makeMesh(device(), 3, {0, 1, 3});
    Ref<ID3DXSkinInfo> skin = makeSkin(3, 1, {{0, 0, 1.0f}});
    EXPECT_EQ(D3DERR_INVALIDCALL, convert(skin.get(), pastTheEnd.get()).result) << "an index past the vertices";

    DWORD influences, count;
    ID3DXMesh* out = reinterpret_cast<ID3DXMesh*>(1);
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
    queried.releaseCount();
    EXPECT_EQ(0u, clone.releaseCount());
    EXPECT_EQ(0u, back.releaseCount());
    EXPECT_EQ(0u, skin.releaseCount());
}

// Mesh containers whose skin info has bones.
void collectSkins(const D3DXFRAME* frame, std::vector<const D3DXMESHCONTAINER*>& out)
{
    for (; frame; frame = frame->pFrameSibling) {
        for (const D3DXMESHCONTAINER* c = frame->pMeshContainer; c; c = c->pNextMeshContainer) {
            if (c->pSkinInfo && c->pSkinInfo->GetNumBones() > 0 && c->MeshData.Type == D3DXMESHTYPE_MESH)
                out.push_back(c);
        }
        collectSkins(frame->pFrameFirstChild, out);
    }
}

// The names of the controller's sets in order, after checking that half a second moves `bone`.
std::string playedSets(vexiltest::LoadedScene& scene, const char* bone)
{
    EXPECT_NE(nullptr, scene.controller);
    if (!scene.controller)
        return "";
    D3DXFRAME* frame = bone ? scene.frame(bone) : nullptr;
    const D3DXMATRIX before = frame ? frame->TransformationMatrix : D3DXMATRIX();
    for (int step = 0; step < 5; ++step)
        EXPECT_EQ(S_OK, scene.controller->AdvanceTime(0.1, nullptr));
    if (frame) {
        EXPECT_FALSE(vexiltest::matrixNear(frame->TransformationMatrix, before, 1e-3f)) << bone << " did not move";
    }
    std::string names;
    for (UINT i = 0; i < scene.controller->GetNumAnimationSets(); ++i) {
        ID3DXAnimationSet* set = nullptr;
        scene.controller->GetAnimationSet(i, &set);
        names += (i ? "," : "") + std::string(set->GetName());
        set->Release();
    }
    return names;
}

// Skinned scenes load their sets and move their bones, and their skins convert
// faithfully; weights past the vertex array are refused by the loader or by the conversion.
TEST_F(SkinConvert, SamplesAnimateAndTheirSkinsConvertFaithfully)
{
    VEXIL_REQUIRE_SAMPLES();
    const struct {
        const char* file;
        const char* sets;  // null: not animated
        const char* bone;
    } samples[] = {{"sdk\\Tiny\\tiny.x", "", "Bip01_L_Thigh"},  // its one set has no name
                   {"sdk\\MultiAnimation\\tiny_4anim.x", "Loiter,Walk,Jog,Wave", "Bip01_R_Calf"},
                   {"assimp\\Testwuson.X", "Wuson_Run,Wuson_Walk,Wuson_Bind", "Tail02"},
                   {"assimp\\anim_test.x", "cylinder_test", nullptr},
                   {"assimp\\test_cube_compressed.x", nullptr, nullptr},
                   {"assimp\\malformed_skinweights_oob.x", nullptr, nullptr}};
    for (const auto& sample : samples) {
        SCOPED_TRACE(sample.file);
        const bool malformed = std::strstr(sample.file, "malformed");
        vexiltest::LoadedScene scene;
        vexiltest::loadFromFile(scene, device(), vexiltest::samplesDir() + "\\" + sample.file);
        if (malformed && FAILED(scene.result))
            continue;
        ASSERT_EQ(D3D_OK, scene.result);
        std::vector<const D3DXMESHCONTAINER*> skins;
        collectSkins(scene.root, skins);
        EXPECT_FALSE(skins.empty()) << "every one of them is skinned";
        for (const D3DXMESHCONTAINER* loaded : skins) {
            SCOPED_TRACE(std::string("container '") + (loaded->Name ? loaded->Name : "") + "'");
            Converted c = convert(loaded->pSkinInfo, loaded->MeshData.pMesh, D3DXMESH_MANAGED | D3DXMESHOPT_VERTEXCACHE);
            if (malformed) {
                EXPECT_EQ(D3DERR_INVALIDCALL, c.result);
                EXPECT_FALSE(c.mesh);
                continue;
            }
            const DWORD most = influenceCounts(loaded->pSkinInfo, loaded->MeshData.pMesh).second;
            EXPECT_EQ(std::min<DWORD>(most, 4), c.maxFaceInfluences);
            expectFaithfulConversion(loaded->pSkinInfo, loaded->MeshData.pMesh, c);
        }
        if (sample.sets) {
            EXPECT_EQ(sample.sets, playedSets(scene, sample.bone));
        }
    }
}

}  // namespace
