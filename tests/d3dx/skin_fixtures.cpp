// Defines the D3DX interface identifiers for the tests (no import library carries them).
#include <initguid.h>

#include "skin_fixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

namespace skintest {

Ref<ID3DXMesh> makeMesh(IDirect3DDevice9* device, DWORD vertexCount, const std::vector<DWORD>& indices,
                        const std::vector<DWORD>& attributes, DWORD options)
{
    Ref<ID3DXMesh> mesh;
    EXPECT_EQ(D3D_OK, D3DXCreateMeshFVF(DWORD(indices.size() / 3), vertexCount, options, kMeshFVF, device, mesh.out()));
    if (!mesh)
        return mesh;
    float* vertex = nullptr;
    mesh->LockVertexBuffer(0, reinterpret_cast<void**>(&vertex));
    for (float f = 0; f < vertexCount; ++f) {
        for (float value : {f, f * 0.5f, 1.0f, 0.0f, f, 1.0f, f / 100.0f, 1.0f - f / 100.0f})
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

Converted convert(ID3DXSkinInfo* skin, ID3DXMesh* mesh, DWORD options, const DWORD* adjacencyIn)
{
    Converted c;
    c.faceRemap.assign(mesh->GetNumFaces(), 0xDEADBEEF);
    c.adjacency.assign(3 * size_t(mesh->GetNumFaces()), 0xDEADBEEF);
    c.result = skin->ConvertToBlendedMesh(mesh, options, adjacencyIn, c.adjacency.data(), c.faceRemap.data(),
                                          c.vertexRemap.out(), &c.maxFaceInfluences, &c.combinationCount,
                                          c.table.out(), c.mesh.out());
    return c;
}

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

std::vector<BYTE> readVertices(ID3DXMesh* mesh)
{
    BYTE* data = nullptr;
    mesh->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&data));
    std::vector<BYTE> out(data, data + size_t(mesh->GetNumVertices()) * mesh->GetNumBytesPerVertex());
    mesh->UnlockVertexBuffer();
    return out;
}

namespace {

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

// Weights as fixed-function blending applies them: stored ones, the last used slot taking the rest.
std::vector<float> effectiveWeights(const BYTE* vertex, const D3DXBONECOMBINATION& c, DWORD slots)
{
    const float* stored = reinterpret_cast<const float*>(vertex + 12);
    DWORD last = 0;
    for (DWORD i = 0; i < slots; ++i)
        if (c.BoneId[i] != 0xFFFFFFFF)
            last = i;
    std::vector<float> weights(slots, 0.0f);
    float sum = 0;
    for (DWORD i = 0; i < last; ++i) {
        weights[i] = stored[i];
        sum += stored[i];
    }
    weights[last] = 1.0f - sum;
    return weights;
}

// One corner's weights: the source ones renormalised over the combination's bones, or all on the
// first slot when none of them weighs on the vertex; the heaviest bone is always there.
void expectCornerWeights(const std::map<DWORD, float>& weights, const BYTE* vertex, const D3DXBONECOMBINATION& c,
                         DWORD slots)
{
    float kept = 0;
    for (DWORD i = 0; i < slots; ++i)
        kept += weights.count(c.BoneId[i]) ? weights.at(c.BoneId[i]) : 0.0f;
    const auto applied = effectiveWeights(vertex, c, slots);
    for (DWORD i = 0; i < slots; ++i) {
        const float source = weights.count(c.BoneId[i]) ? weights.at(c.BoneId[i]) : 0.0f;
        EXPECT_NEAR(kept > 0 ? source / kept : (i == 0 ? 1.0f : 0.0f), applied[i], 1e-4f) << "bone " << c.BoneId[i];
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

}  // namespace

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
    DWORD crowded = 0, nextFace = 0, nextVertex = 0;
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
    return crowded;
}

}  // namespace skintest
