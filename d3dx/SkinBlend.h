#pragma once
#include <cstdint>
#include <vector>

// Geometry side of vertex-blended skinning, free of Direct3D so it can be checked on its own:
// which bones weigh on which vertex, how many bones a face needs, and how faces split into
// bone combinations that the fixed-function pipeline can draw one subset at a time.
namespace skinblend {

constexpr uint32_t kUnusedBone = 0xFFFFFFFFu;
// The fixed-function pipeline blends at most four matrices (three stored weights).
constexpr uint32_t kMaxBlendMatrices = 4;

enum class Status { Ok, VertexOutOfRange, IndexOutOfRange, NoInfluences };

// The influences one bone has, as ID3DXSkinInfo::GetBoneInfluence reports them.
struct BoneWeights {
    std::vector<uint32_t> vertices;
    std::vector<float> weights;
};

struct Influence {
    uint32_t bone;
    float weight;
};

// Influences grouped by vertex, heaviest first; weights of zero or less are dropped, repeated
// (vertex, bone) pairs are summed.
struct VertexInfluences {
    std::vector<uint32_t> offsets;  // vertexCount + 1 entries
    std::vector<Influence> entries;

    uint32_t vertexCount() const { return offsets.empty() ? 0 : uint32_t(offsets.size() - 1); }
    const Influence* begin(uint32_t vertex) const { return entries.data() + offsets[vertex]; }
    const Influence* end(uint32_t vertex) const { return entries.data() + offsets[vertex + 1]; }
    uint32_t count(uint32_t vertex) const { return offsets[vertex + 1] - offsets[vertex]; }
};

// Influences naming a vertex at or past vertexCount fail with VertexOutOfRange, unless
// ignoreOutOfRange is set (then they are left out).
Status gatherInfluences(const std::vector<BoneWeights>& bones, uint32_t vertexCount,
                        bool ignoreOutOfRange, VertexInfluences& out);

// The most bones weighing on one vertex; with no vertex count known, counts distinct bones per
// vertex index without sizing anything by the indices.
uint32_t maxVertexInfluences(const std::vector<BoneWeights>& bones);

// The most distinct bones weighing on the three vertices of one face.
Status maxFaceInfluences(const VertexInfluences& influences, const uint32_t* indices,
                         uint32_t faceCount, uint32_t& result);

struct Combination {
    uint32_t attribute = 0;
    uint32_t faceStart = 0;
    uint32_t faceCount = 0;
    uint32_t vertexStart = 0;
    uint32_t vertexCount = 0;
    std::vector<uint32_t> bones;  // slots, kUnusedBone past the used ones
};

struct MeshTopology {
    uint32_t vertexCount = 0;
    uint32_t faceCount = 0;
    const uint32_t* indices = nullptr;     // three per face
    const uint32_t* attributes = nullptr;  // one per face; null means all zero
};

struct BlendLayout {
    uint32_t influencesPerFace = 0;  // slots per combination
    std::vector<Combination> combinations;
    std::vector<uint32_t> faceRemap;    // new face -> source face
    std::vector<uint32_t> vertexRemap;  // new vertex -> source vertex
    std::vector<uint32_t> indices;      // three per new face, into the new vertices
    std::vector<float> weights;         // influencesPerFace per new vertex, summing to one
};

// Splits the mesh into combinations of at most min(max face influences, kMaxBlendMatrices)
// bones, one material attribute each; faces needing more keep their heaviest bones. Faces stay
// in source order within a combination and each combination owns a private vertex range.
// Without `withWeights` the weights are left for the caller to take from vertexWeights as it
// writes each vertex.
Status buildBlendLayout(const VertexInfluences& influences, const MeshTopology& mesh,
                        BlendLayout& out, bool withWeights = true);

// One vertex's weights over a combination's slots, renormalised over the bones present; a
// vertex none of whose bones is present rides on the first slot.
void vertexWeights(const VertexInfluences& influences, uint32_t vertex, const std::vector<uint32_t>& bones,
                   float* weights);

}  // namespace skinblend
