// Defines the D3DX interface identifiers for the tests (no import library carries them).
#include <initguid.h>

#include "skin_fixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

namespace skintest {

namespace {

// A mesh of `fvf` whose vertices are the given 32-bit words, 16- or 32-bit indices as `options` say.
Ref<ID3DXMesh> meshOf(IDirect3DDevice9* device, DWORD fvf, const std::vector<DWORD>& words,
                      const std::vector<DWORD>& indices, const std::vector<DWORD>& attributes, DWORD options)
{
    Ref<ID3DXMesh> mesh;
    const DWORD vertices = DWORD(words.size() * 4 / D3DXGetFVFVertexSize(fvf));
    EXPECT_EQ(D3D_OK, D3DXCreateMeshFVF(DWORD(indices.size() / 3), vertices, options, fvf, device, mesh.out()));
    if (!mesh)
        return mesh;
    void* data = nullptr;
    mesh->LockVertexBuffer(0, &data);
    std::memcpy(data, words.data(), words.size() * 4);
    mesh->UnlockVertexBuffer();
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

DWORD bitsOf(float value)
{
    DWORD bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

}  // namespace

Ref<ID3DXMesh> makeStrip(IDirect3DDevice9* device, const std::vector<float>& columnsX, float bottom, float top,
                         DWORD options)
{
    std::vector<DWORD> words, indices;
    for (DWORD c = 0; c < columnsX.size(); ++c) {
        for (float y : {bottom, top})
            words.insert(words.end(), {bitsOf(columnsX[c]), bitsOf(y), bitsOf(0.5f), 0xFFFFFFFF});
        if (c + 1 < columnsX.size())
            indices.insert(indices.end(), {2 * c, 2 * c + 1, 2 * c + 2, 2 * c + 1, 2 * c + 3, 2 * c + 2});
    }
    return meshOf(device, kStripFVF, words, indices, {}, options);
}

Ref<ID3DXMesh> makeMesh(IDirect3DDevice9* device, DWORD vertexCount, const std::vector<DWORD>& indices,
                        const std::vector<DWORD>& attributes, DWORD options)
{
    std::vector<DWORD> words;
    for (DWORD v = 0; v < vertexCount; ++v) {
        const float f = float(v);
        for (float value : {f, f * 0.5f, 1.0f, 0.0f, f, 1.0f, f / 100.0f, 1.0f - f / 100.0f})
            words.push_back(bitsOf(value));
    }
    return meshOf(device, kMeshFVF, words, indices, attributes, options | D3DXMESH_32BIT);
}

Ref<ID3DXSkinInfo> makeSkin(DWORD vertexCount, DWORD fvf, DWORD boneCount, const std::vector<Weight>& weights)
{
    Ref<ID3DXSkinInfo> skin;
    EXPECT_EQ(D3D_OK, D3DXCreateSkinInfoFVF(vertexCount, fvf, boneCount, skin.out()));
    if (!skin)
        return skin;
    for (DWORD b = 0; b < boneCount; ++b) {
        std::vector<DWORD> vertices;
        std::vector<float> values;
        for (const Weight& w : weights) {
            if (w.bone == b) {
                vertices.push_back(w.vertex);
                values.push_back(w.weight);
            }
        }
        if (!vertices.empty()) {
            EXPECT_EQ(D3D_OK, skin->SetBoneInfluence(b, DWORD(vertices.size()), vertices.data(), values.data()));
        }
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
    for (auto& vertex : result) {
        float total = 0;
        for (auto& entry : vertex)
            total += entry.second;
        for (auto& entry : vertex)
            entry.second /= total;
    }
    return result;
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

std::vector<BYTE> readVertices(ID3DXMesh* mesh)
{
    BYTE* data = nullptr;
    mesh->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(&data));
    std::vector<BYTE> out(data, data + size_t(mesh->GetNumVertices()) * mesh->GetNumBytesPerVertex());
    mesh->UnlockVertexBuffer();
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

    std::vector<int> timesSeen(faces, 0);
    DWORD crowded = 0;
    for (DWORD b = 0; b < converted.combinationCount; ++b) {
        const D3DXBONECOMBINATION& c = converted.combination(b);
        std::set<DWORD> bones;
        for (DWORD i = 0; i < slots; ++i)
            if (c.BoneId[i] != 0xFFFFFFFF) {
                EXPECT_LT(c.BoneId[i], skin->GetNumBones());
                bones.insert(c.BoneId[i]);
            }
        for (DWORD f = c.FaceStart; f < c.FaceStart + c.FaceCount; ++f) {
            EXPECT_EQ(b, attributes[f]) << "face " << f << " is drawn by subset " << b;
            const DWORD original = converted.faceRemap[f];
            EXPECT_EQ(sourceAttributes[original], c.AttribId);
            ++timesSeen[original];
            std::set<DWORD> needed;
            for (int k = 0; k < 3; ++k)
                for (const auto& w : weights[sourceIndices[3 * original + k]])
                    needed.insert(w.first);
            const bool fits = needed.size() <= slots;
            crowded += fits ? 0 : 1;
            for (int k = 0; k < 3; ++k) {
                const DWORD v = indices[3 * f + k];
                const DWORD from = sourceIndices[3 * original + k];
                EXPECT_TRUE(v >= c.VertexStart && v < c.VertexStart + vertexCountOf(c)) << "face " << f;
                EXPECT_EQ(from, converted.remappedVertex(v));
                const BYTE* out = vertices.data() + size_t(v) * stride;
                const BYTE* in = sourceVertices.data() + size_t(from) * sourceStride;
                EXPECT_EQ(0, std::memcmp(out, in, 12)) << "position of vertex " << v;
                EXPECT_EQ(0, std::memcmp(out + 12 + 4 * (slots - 1), in + 12, sourceStride - 12))
                    << "other components of vertex " << v;
                const auto applied = effectiveWeights(out, c, slots);
                for (DWORD i = 0; i < slots; ++i) {
                    EXPECT_GE(applied[i], -1e-5f);
                    if (fits && !weights[from].empty() && c.BoneId[i] != 0xFFFFFFFF) {
                        auto found = weights[from].find(c.BoneId[i]);
                        float expected = found == weights[from].end() ? 0.0f : found->second;
                        EXPECT_NEAR(expected, applied[i], 1e-4f) << "vertex " << from << " bone " << c.BoneId[i];
                    }
                }
                if (!weights[from].empty()) {
                    auto heaviest = std::max_element(weights[from].begin(), weights[from].end(),
                                                     [](auto& a, auto& b) { return a.second < b.second; });
                    EXPECT_TRUE(bones.count(heaviest->first))
                        << "face " << original << " lost the heaviest bone of vertex " << from;
                }
            }
            for (DWORD bone : needed) {
                if (fits) {
                    EXPECT_TRUE(bones.count(bone)) << "face " << original << " needs bone " << bone;
                }
            }
        }
    }
    EXPECT_EQ(faces, DWORD(std::count(timesSeen.begin(), timesSeen.end(), 1)))
        << "every face in exactly one combination";
    return crowded;
}

}  // namespace skintest
