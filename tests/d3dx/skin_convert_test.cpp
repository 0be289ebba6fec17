// ConvertToBlendedMesh and the influence counts of the drop-in D3DX's skin info, on meshes
// with known weights.

// Defines the D3DX interface identifiers for the tests (no import library carries them).
#include <initguid.h>

#include <TestDevice.h>

#include "TestHierarchy.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <set>

namespace {

using vexiltest::Ref;

struct Weight {
    DWORD bone;
    DWORD vertex;
    float weight;
};

constexpr DWORD kMeshFVF = D3DFVF_XYZ | D3DFVF_NORMAL | D3DFVF_TEX1;

struct Converted {
    HRESULT result = E_FAIL;
    Ref<ID3DXMesh> mesh;
    Ref<ID3DXBuffer> table;
    Ref<ID3DXBuffer> vertexRemap;
    DWORD maxFaceInfluences = 0;
    DWORD combinationCount = 0;
    std::vector<DWORD> faceRemap;
    std::vector<DWORD> adjacency;

    const D3DXBONECOMBINATION& combination(DWORD i) const
    {
        return static_cast<const D3DXBONECOMBINATION*>(table->GetBufferPointer())[i];
    }
    DWORD remappedVertex(DWORD i) const { return static_cast<const DWORD*>(vertexRemap->GetBufferPointer())[i]; }
};

// kMeshFVF vertices, each with distinct values, faces as given; 16- or 32-bit indices as
// `options` say.
Ref<ID3DXMesh> makeMesh(IDirect3DDevice9* device, DWORD vertexCount, const std::vector<DWORD>& indices,
                        const std::vector<DWORD>& attributes = {}, DWORD options = D3DXMESH_MANAGED)
{
    Ref<ID3DXMesh> mesh;
    EXPECT_EQ(D3D_OK, D3DXCreateMeshFVF(DWORD(indices.size() / 3), vertexCount, options, kMeshFVF, device, mesh.out()));
    if (!mesh)
        return mesh;
    float* vertex = nullptr;
    mesh->LockVertexBuffer(0, reinterpret_cast<void**>(&vertex));
    for (float f = 0; f < vertexCount; ++f) {
        for (float value : {f, f * 0.5f, 1.0f, 1.0f, f, 1.0f, f / 100.0f, 1.0f - f / 100.0f})
            *vertex++ = value;
    }
    mesh->UnlockVertexBuffer();
    void* data = nullptr;
    mesh->LockIndexBuffer(0, &data);
    for (size_t i = 0; i < indices.size(); ++i) {
        if (options & D3DXMESH_32BIT)
            static_cast<DWORD*>(data)[i] = indices[i];
        else
            static_cast<WORD*>(data)[i] = WORD(indices[i]);
    }
    mesh->UnlockIndexBuffer();
    DWORD* attribute = nullptr;
    mesh->LockAttributeBuffer(0, &attribute);
    for (DWORD f = 0; f < mesh->GetNumFaces(); ++f)
        attribute[f] = attributes.empty() ? 0 : attributes[f];
    mesh->UnlockAttributeBuffer();
    return mesh;
}

Ref<ID3DXSkinInfo> makeSkin(DWORD vertexCount, DWORD boneCount, const std::vector<Weight>& weights)
{
    Ref<ID3DXSkinInfo> skin;
    EXPECT_EQ(D3D_OK, D3DXCreateSkinInfoFVF(vertexCount, kMeshFVF, boneCount, skin.out()));
    if (!skin)
        return skin;
    std::map<DWORD, std::pair<std::vector<DWORD>, std::vector<float>>> byBone;
    for (const Weight& w : weights) {
        byBone[w.bone].first.push_back(w.vertex);
        byBone[w.bone].second.push_back(w.weight);
    }
    for (auto& [bone, influences] : byBone) {
        EXPECT_EQ(D3D_OK, skin->SetBoneInfluence(bone, DWORD(influences.first.size()), influences.first.data(),
                                                 influences.second.data()));
    }
    return skin;
}

Converted convert(ID3DXSkinInfo* skin, ID3DXMesh* mesh, DWORD options = D3DXMESH_MANAGED,
                  const DWORD* adjacencyIn = nullptr)
{
    Converted c;
    c.faceRemap.assign(mesh->GetNumFaces(), 0xDEADBEEF);
    c.adjacency.assign(3 * size_t(mesh->GetNumFaces()), 0xDEADBEEF);
    c.result = skin->ConvertToBlendedMesh(mesh, options, adjacencyIn, c.adjacency.data(), c.faceRemap.data(),
                                          c.vertexRemap.out(), &c.maxFaceInfluences, &c.combinationCount,
                                          c.table.out(), c.mesh.out());
    return c;
}

// Source weights of every vertex by bone, repeats summed, weightless ones left out.
std::vector<std::map<DWORD, float>> sourceWeights(ID3DXSkinInfo* skin, DWORD vertexCount)
{
    std::vector<std::map<DWORD, float>> result(vertexCount);
    for (DWORD b = 0; b < skin->GetNumBones(); ++b) {
        DWORD n = skin->GetNumBoneInfluences(b);
        std::vector<DWORD> vertices(n + 1);
        std::vector<float> weights(n + 1);
        skin->GetBoneInfluence(b, vertices.data(), weights.data());
        for (DWORD i = 0; i < n; ++i)
            if (weights[i] > 0 && vertices[i] < vertexCount)
                result[vertices[i]][b] += weights[i];
    }
    return result;
}

// The vertex data as stored.
std::vector<BYTE> readVertices(ID3DXMesh* mesh)
{
    BYTE* data = nullptr;
    mesh->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&data));
    std::vector<BYTE> out(data, data + size_t(mesh->GetNumVertices()) * mesh->GetNumBytesPerVertex());
    mesh->UnlockVertexBuffer();
    return out;
}

std::vector<DWORD> readIndices(ID3DXMesh* mesh)
{
    std::vector<DWORD> out(3 * size_t(mesh->GetNumFaces()));
    void* data = nullptr;
    mesh->LockIndexBuffer(D3DLOCK_READONLY, &data);
    const bool wide = mesh->GetOptions() & D3DXMESH_32BIT;
    for (size_t i = 0; i < out.size(); ++i)
        out[i] = wide ? static_cast<DWORD*>(data)[i] : static_cast<WORD*>(data)[i];
    mesh->UnlockIndexBuffer();
    return out;
}

std::vector<DWORD> readAttributes(ID3DXMesh* mesh)
{
    DWORD* data = nullptr;
    mesh->LockAttributeBuffer(D3DLOCK_READONLY, &data);
    std::vector<DWORD> out(data, data + mesh->GetNumFaces());
    mesh->UnlockAttributeBuffer();
    return out;
}

// One corner's weights as fixed-function blending applies them (the stored ones, the last used
// slot taking the rest): the source ones renormalised over the combination's bones, or all on the
// first slot when none of them weighs on the vertex; the heaviest bone is always there.
void expectCornerWeights(const std::map<DWORD, float>& weights, const BYTE* vertex, const D3DXBONECOMBINATION& c,
                         DWORD slots)
{
    const auto source = [&](DWORD slot) { return weights.count(c.BoneId[slot]) ? weights.at(c.BoneId[slot]) : 0.0f; };
    const float* stored = reinterpret_cast<const float*>(vertex + 12);
    DWORD last = 0;
    float kept = 0, rest = 1;
    for (DWORD i = 0; i < slots; ++i) {
        last = c.BoneId[i] != 0xFFFFFFFF ? i : last;
        kept += source(i);
    }
    for (DWORD i = 0; i < slots; ++i) {
        const float applied = i < last ? stored[i] : (i == last ? rest : 0.0f);
        rest -= applied;
        EXPECT_NEAR(kept > 0 ? source(i) / kept : (i == 0 ? 1.0f : 0.0f), applied, 1e-4f) << "bone " << c.BoneId[i];
    }
    if (!weights.empty()) {
        auto heaviest = std::max_element(weights.begin(), weights.end(),
                                         [](auto& a, auto& b) { return a.second < b.second; });
        EXPECT_NE(c.BoneId + slots, std::find(c.BoneId, c.BoneId + slots, heaviest->first)) << "heaviest bone lost";
    }
}

// Bones distinct, in range, unused slots last.
std::set<DWORD> bonesOf(const D3DXBONECOMBINATION& c, DWORD slots, DWORD boneCount)
{
    std::set<DWORD> bones;
    for (DWORD i = 0; i < slots; ++i) {
        if (c.BoneId[i] == 0xFFFFFFFF) {
            EXPECT_TRUE(std::all_of(c.BoneId + i, c.BoneId + slots, [](DWORD b) { return b == 0xFFFFFFFF; }));
            break;
        }
        EXPECT_LT(c.BoneId[i], boneCount);
        EXPECT_TRUE(bones.insert(c.BoneId[i]).second) << "bone " << c.BoneId[i] << " twice";
    }
    return bones;
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

// Every face in exactly one combination and drawn by its subset, combinations contiguous, in the
// attribute table, with distinct bones and unused slots last, corners mapped back to the
// source face, adjacency following the moved faces, untouched vertex data, and each corner's
// weights: the source ones renormalised over the combination's bones (a vertex with none of
// them rides on the first slot), its heaviest bone always kept, every bone kept wherever the
// face's bones fit one combination, as many slots as the most bones a face needs, up to four.
// Returns how many faces needed more bones than that.
DWORD expectFaithfulConversion(ID3DXSkinInfo* skin, ID3DXMesh* source, const Converted& converted)
{
    EXPECT_EQ(D3D_OK, converted.result);
    if (FAILED(converted.result) || !converted.mesh || !converted.table || !converted.vertexRemap)
        return 0;
    ID3DXMesh* blended = converted.mesh.get();
    const DWORD slots = converted.maxFaceInfluences;
    const DWORD faces = source->GetNumFaces();
    EXPECT_EQ(faces, blended->GetNumFaces());
    EXPECT_EQ(blended->GetNumVertices() * sizeof(DWORD), converted.vertexRemap->GetBufferSize());

    const auto weights = sourceWeights(skin, source->GetNumVertices());
    const auto sourceIndices = readIndices(source);
    const auto sourceVertices = readVertices(source);
    const auto sourceAttributes = readAttributes(source);
    const auto indices = readIndices(blended);
    const auto vertices = readVertices(blended);
    const auto attributes = readAttributes(blended);
    const DWORD sourceStride = source->GetNumBytesPerVertex();
    const DWORD stride = blended->GetNumBytesPerVertex();
    EXPECT_EQ(sourceStride + 4 * (slots - 1), stride);
    std::vector<DWORD> sourceAdjacency(3 * size_t(faces)), newFace(faces);
    source->GenerateAdjacency(0.0f, sourceAdjacency.data());
    for (DWORD f = 0; f < faces; ++f)
        newFace[converted.faceRemap[f] % faces] = f;

    DWORD rangeCount = 0;
    EXPECT_EQ(D3D_OK, blended->GetAttributeTable(nullptr, &rangeCount));
    EXPECT_EQ(converted.combinationCount, rangeCount);
    std::vector<D3DXATTRIBUTERANGE> ranges(rangeCount);
    blended->GetAttributeTable(ranges.data(), &rangeCount);

    std::vector<int> timesSeen(faces, 0);
    DWORD crowded = 0, nextFace = 0, nextVertex = 0, mostNeeded = 0;
    for (DWORD b = 0; b < converted.combinationCount; ++b) {
        SCOPED_TRACE("combination " + std::to_string(b));
        const D3DXBONECOMBINATION& c = converted.combination(b);
        const DWORD vertexCount = c.VertexCout;  // so the MinGW header spells it
        const D3DXATTRIBUTERANGE range{b, c.FaceStart, c.FaceCount, c.VertexStart, vertexCount};
        EXPECT_TRUE(b < ranges.size() && std::memcmp(&ranges[b], &range, sizeof range) == 0);
        EXPECT_EQ(nextFace, c.FaceStart);
        EXPECT_EQ(nextVertex, c.VertexStart);
        nextFace += c.FaceCount;
        nextVertex += vertexCount;
        const std::set<DWORD> bones = bonesOf(c, slots, skin->GetNumBones());
        for (DWORD f = c.FaceStart; f < c.FaceStart + c.FaceCount; ++f) {
            SCOPED_TRACE("face " + std::to_string(f));
            EXPECT_EQ(b, attributes[f]) << "drawn by its combination's subset";
            const DWORD original = converted.faceRemap[f];
            EXPECT_EQ(sourceAttributes[original], c.AttribId);
            ++timesSeen[original];
            for (int edge = 0; edge < 3; ++edge) {
                const DWORD before = sourceAdjacency[3 * original + edge];
                EXPECT_EQ(before == 0xFFFFFFFF ? before : newFace[before], converted.adjacency[3 * f + edge]);
            }
            std::set<DWORD> needed;
            for (int k = 0; k < 3; ++k)
                for (const auto& w : weights[sourceIndices[3 * original + k]])
                    needed.insert(w.first);
            mostNeeded = std::max(mostNeeded, DWORD(needed.size()));
            if (needed.size() > slots)
                ++crowded;
            else
                EXPECT_TRUE(std::includes(bones.begin(), bones.end(), needed.begin(), needed.end()));
            for (int k = 0; k < 3; ++k) {
                const DWORD v = indices[3 * f + k];
                const DWORD from = sourceIndices[3 * original + k];
                EXPECT_TRUE(v >= c.VertexStart && v < c.VertexStart + vertexCount);
                EXPECT_EQ(from, converted.remappedVertex(v));
                const BYTE* out = vertices.data() + size_t(v) * stride;
                const BYTE* in = sourceVertices.data() + size_t(from) * sourceStride;
                EXPECT_EQ(0, std::memcmp(out, in, 12)) << "position of vertex " << v;
                EXPECT_EQ(0, std::memcmp(out + 12 + 4 * (slots - 1), in + 12, sourceStride - 12))
                    << "other components of vertex " << v;
                expectCornerWeights(weights[from], out, c, slots);
            }
        }
    }
    EXPECT_EQ(faces, DWORD(std::count(timesSeen.begin(), timesSeen.end(), 1)))
        << "every face in exactly one combination";
    EXPECT_EQ(faces, nextFace);
    EXPECT_EQ(blended->GetNumVertices(), nextVertex);
    EXPECT_EQ(mostNeeded, influenceCounts(skin, source).second);
    EXPECT_EQ(std::min<DWORD>(mostNeeded, 4), slots);
    return crowded;
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

// The strip's faces split into two combinations. Clones, interface queries and skin infos made
// from the blended mesh are completed too; the last gives the weights back.
TEST_F(SkinConvert, StripSplitsIntoTheExpectedCombinationsAndEverySkinInfoIsCompleted)
{
    Ref<ID3DXMesh> mesh = strip();
    Ref<ID3DXSkinInfo> skin = stripSkin();
    EXPECT_EQ(std::make_pair(2ul, 2ul), influenceCounts(skin.get(), mesh.get()));

    Converted c = convert(skin.get(), mesh.get());
    ASSERT_EQ(D3D_OK, c.result);
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

    Ref<ID3DXSkinInfo> clone, queried, back;
    ASSERT_EQ(D3D_OK, skin->Clone(clone.out()));
    EXPECT_EQ(std::make_pair(2ul, 2ul), influenceCounts(clone.get(), mesh.get()));
    ASSERT_EQ(D3D_OK, skin->QueryInterface(IID_ID3DXSkinInfo, reinterpret_cast<void**>(queried.out())));
    EXPECT_EQ(skin.get(), queried.get());
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
// masks, beyond by bone lists: each mesh is converted again with its bones moved up to end at
// bone 64. The options decide the index size and pool; the adjacency is given or left for the
// conversion to find.
TEST_F(SkinConvert, RandomMeshesConvertFaithfullyWhateverTheBoneNumbers)
{
    for (unsigned round = 0; round < 20; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const bool wide = round % 2;
        const DWORD options = wide ? D3DXMESH_SYSTEMMEM | D3DXMESH_32BIT : D3DXMESH_MANAGED | D3DXMESHOPT_VERTEXCACHE;
        const DWORD vertices = 60, bones = 2 + round % 10;
        for (DWORD offset : {DWORD(0), 65 - bones}) {
            std::mt19937 random(round);
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
            Converted c = convert(skin.get(), mesh.get(), options, round % 4 < 2 ? adjacency.data() : nullptr);
            expectFaithfulConversion(skin.get(), mesh.get(), c);
            ASSERT_TRUE(c.mesh);
            Ref<IDirect3DVertexBuffer9> buffer;
            ASSERT_EQ(D3D_OK, c.mesh->GetVertexBuffer(buffer.out()));
            D3DVERTEXBUFFER_DESC desc;
            buffer->GetDesc(&desc);
            EXPECT_EQ(wide ? D3DPOOL_SYSTEMMEM : D3DPOOL_MANAGED, desc.Pool);
            EXPECT_EQ(wide, (c.mesh->GetOptions() & D3DXMESH_32BIT) != 0);
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

}  // namespace
