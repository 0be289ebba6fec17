// The Direct3D-free core of blended-mesh conversion: influence gathering and the split into bone
// combinations, on cases the device tests do not reach.
#include <SkinBlend.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>

using namespace skinblend;

namespace {

struct Fixture {
    uint32_t vertexCount = 0;
    std::vector<uint32_t> indices;
    std::vector<uint32_t> attributes;
    std::vector<BoneWeights> bones;

    void weigh(uint32_t bone, uint32_t vertex, float weight)
    {
        if (bones.size() <= bone)
            bones.resize(bone + 1);
        bones[bone].vertices.push_back(vertex);
        bones[bone].weights.push_back(weight);
    }
    MeshTopology topology() const
    {
        MeshTopology t;
        t.vertexCount = vertexCount;
        t.faceCount = uint32_t(indices.size() / 3);
        t.indices = indices.data();
        t.attributes = attributes.empty() ? nullptr : attributes.data();
        return t;
    }
    // Normalised source weights of one vertex, by bone.
    std::map<uint32_t, float> weightsOf(uint32_t vertex) const
    {
        std::map<uint32_t, float> result;
        float total = 0;
        for (uint32_t b = 0; b < bones.size(); ++b)
            for (size_t i = 0; i < bones[b].vertices.size(); ++i)
                if (bones[b].vertices[i] == vertex && bones[b].weights[i] > 0) {
                    result[b] += bones[b].weights[i];
                    total += bones[b].weights[i];
                }
        for (auto& entry : result)
            entry.second /= total;
        return result;
    }
    std::set<uint32_t> faceBones(uint32_t face) const
    {
        std::set<uint32_t> result;
        for (int k = 0; k < 3; ++k)
            for (const auto& entry : weightsOf(indices[3 * face + k]))
                result.insert(entry.first);
        return result;
    }
};

struct Influence {
    uint32_t bone, vertex;
    float weight;
};

// Vertices 0-2 (the face 0, 1, 2 when `face`) with the given influences.
Fixture triangle(std::initializer_list<Influence> influences, bool face = true)
{
    Fixture f;
    f.vertexCount = 3;
    if (face)
        f.indices = {0, 1, 2};
    for (const Influence& i : influences)
        f.weigh(i.bone, i.vertex, i.weight);
    return f;
}

BlendLayout convert(const Fixture& fixture)
{
    VertexInfluences influences;
    EXPECT_EQ(Status::Ok, gatherInfluences(fixture.bones, fixture.vertexCount, false, influences));
    BlendLayout layout;
    EXPECT_EQ(Status::Ok, buildBlendLayout(influences, fixture.topology(), layout));
    return layout;
}

float slotWeight(const BlendLayout& layout, const Combination& combination, uint32_t vertex, uint32_t bone)
{
    for (uint32_t slot = 0; slot < layout.influencesPerFace; ++slot)
        if (combination.bones[slot] == bone)
            return layout.weights[vertex * layout.influencesPerFace + slot];
    return 0.0f;
}

// What every conversion must satisfy, whatever the fixture.
void expectConsistent(const Fixture& fixture, const BlendLayout& layout)
{
    const uint32_t faceCount = uint32_t(fixture.indices.size() / 3);
    const uint32_t slots = layout.influencesPerFace;
    ASSERT_GE(slots, 1u);
    ASSERT_LE(slots, kMaxBlendMatrices);

    std::vector<uint32_t> seen(faceCount, 0);
    for (uint32_t source : layout.faceRemap)
        ++seen[source];
    EXPECT_TRUE(std::all_of(seen.begin(), seen.end(), [](uint32_t n) { return n == 1; }))
        << "every source face appears exactly once";

    uint32_t nextFace = 0, nextVertex = 0;
    for (const Combination& combination : layout.combinations) {
        EXPECT_EQ(nextFace, combination.faceStart);
        EXPECT_EQ(nextVertex, combination.vertexStart);
        EXPECT_GT(combination.faceCount, 0u);
        nextFace += combination.faceCount;
        nextVertex += combination.vertexCount;

        ASSERT_EQ(slots, combination.bones.size());
        std::set<uint32_t> used;
        bool unusedSeen = false;
        for (uint32_t bone : combination.bones) {
            if (bone == kUnusedBone) {
                unusedSeen = true;
                continue;
            }
            EXPECT_FALSE(unusedSeen) << "unused slots only after the used ones";
            EXPECT_TRUE(used.insert(bone).second) << "bone " << bone << " twice in a combination";
        }

        for (uint32_t f = combination.faceStart; f < combination.faceStart + combination.faceCount; ++f) {
            const uint32_t source = layout.faceRemap[f];
            if (!fixture.attributes.empty()) {
                EXPECT_EQ(fixture.attributes[source], combination.attribute);
            }
            const std::set<uint32_t> needed = fixture.faceBones(source);
            for (int k = 0; k < 3; ++k) {
                const uint32_t v = layout.indices[3 * f + k];
                ASSERT_GE(v, combination.vertexStart);
                ASSERT_LT(v, combination.vertexStart + combination.vertexCount);
                EXPECT_EQ(fixture.indices[3 * source + k], layout.vertexRemap[v]);
                float sum = 0;
                for (uint32_t slot = 0; slot < slots; ++slot)
                    sum += layout.weights[v * slots + slot];
                EXPECT_NEAR(1.0f, sum, 1e-5f);
                if (needed.size() > slots)
                    continue;
                for (const auto& expected : fixture.weightsOf(layout.vertexRemap[v]))
                    EXPECT_NEAR(expected.second, slotWeight(layout, combination, v, expected.first), 1e-5f)
                        << "face " << source << " vertex " << layout.vertexRemap[v] << " bone " << expected.first;
            }
            for (uint32_t bone : needed) {
                if (needed.size() <= slots) {
                    EXPECT_TRUE(used.count(bone)) << "face " << source << " needs bone " << bone;
                }
            }
        }
    }
    EXPECT_EQ(faceCount, nextFace);
    EXPECT_EQ(nextVertex, layout.vertexRemap.size());
    EXPECT_EQ(size_t(nextVertex) * slots, layout.weights.size());
}

// Random faces over random weights, up to three bones a vertex, so many faces need more
// bones than a combination holds.
Fixture randomFixture(std::mt19937& random, uint32_t boneOffset = 0)
{
    Fixture f;
    f.vertexCount = 60;
    const uint32_t boneCount = 2 + random() % 10;
    for (int i = 0; i < 240; ++i)
        f.indices.push_back(random() % f.vertexCount);
    for (int face = 0; face < 80; ++face)
        f.attributes.push_back(random() % 3);
    for (uint32_t v = 0; v < f.vertexCount; ++v) {
        int influences = 1 + random() % 3;
        for (int i = 0; i < influences; ++i)
            f.weigh(boneOffset + random() % boneCount, v, 0.1f + float(random() % 100) / 100.0f);
    }
    return f;
}

}  // namespace

TEST(SkinInfluences, RepeatsFoldZeroWeightsDropHeaviestFirst)
{
    // Bone 0 on vertex 0 twice (added up); bone 2 on vertex 0 weightless (no influence at all).
    Fixture f = triangle({{0, 0, 0.2f}, {1, 0, 0.5f}, {0, 0, 0.1f}, {2, 0, 0.0f}, {2, 2, 1.0f}}, false);
    VertexInfluences inf;
    ASSERT_EQ(Status::Ok, gatherInfluences(f.bones, 3, false, inf));
    ASSERT_EQ(2u, inf.count(0));
    EXPECT_EQ(1u, inf.begin(0)[0].bone);
    EXPECT_FLOAT_EQ(0.5f, inf.begin(0)[0].weight);
    EXPECT_EQ(0u, inf.begin(0)[1].bone);
    EXPECT_NEAR(0.3f, inf.begin(0)[1].weight, 1e-6f);
    EXPECT_EQ(0u, inf.count(1));
    EXPECT_EQ(1u, inf.count(2));
    EXPECT_EQ(2u, maxVertexInfluences(f.bones));
}

TEST(SkinInfluences, VertexPastTheMeshIsRefusedOrLeftOut)
{
    Fixture f = triangle({{0, 1, 1.0f}, {1, 7, 1.0f}}, false);
    VertexInfluences inf;
    EXPECT_EQ(Status::VertexOutOfRange, gatherInfluences(f.bones, 4, false, inf));
    ASSERT_EQ(Status::Ok, gatherInfluences(f.bones, 4, true, inf));
    EXPECT_EQ(1u, inf.entries.size());
}

TEST(SkinLayout, FaceWithMoreBonesThanACombinationKeepsEachCornersHeaviest)
{
    Fixture f = triangle({{0, 0, 0.5f}, {1, 0, 0.3f}, {2, 0, 0.2f}, {3, 1, 0.6f}, {4, 1, 0.4f}, {5, 2, 0.9f},
                          {1, 2, 0.1f}});
    BlendLayout layout = convert(f);
    ASSERT_EQ(4u, layout.influencesPerFace);
    ASSERT_EQ(1u, layout.combinations.size());
    // Corners' heaviest 0, 3, 5; then bone 1 (0.4 in all) wins the tie with bone 4 by number.
    EXPECT_EQ((std::vector<uint32_t>{0, 1, 3, 5}), layout.combinations[0].bones);
    const float* w = layout.weights.data();
    EXPECT_NEAR(0.625f, w[0], 1e-6f);
    EXPECT_NEAR(0.375f, w[1], 1e-6f);
    EXPECT_NEAR(1.0f, w[4 + 2], 1e-6f) << "bone 4 dropped, vertex 1 renormalised onto bone 3";
    EXPECT_NEAR(0.1f, w[8 + 1], 1e-6f);
    EXPECT_NEAR(0.9f, w[8 + 3], 1e-6f);
    expectConsistent(f, layout);
}

TEST(SkinLayout, VerticesWithoutWeightsRideOnTheFirstSlot)
{
    Fixture f = triangle({{0, 0, 1.0f}, {1, 1, 1.0f}});
    BlendLayout layout = convert(f);
    ASSERT_EQ(2u, layout.influencesPerFace);
    EXPECT_FLOAT_EQ(1.0f, layout.weights[2 * 2 + 0]);
    EXPECT_FLOAT_EQ(0.0f, layout.weights[2 * 2 + 1]);
}

TEST(SkinLayout, NothingToBlendIsRefused)
{
    Fixture f = triangle({});
    VertexInfluences inf;
    gatherInfluences(f.bones, f.vertexCount, false, inf);
    BlendLayout layout;
    EXPECT_EQ(Status::NoInfluences, buildBlendLayout(inf, f.topology(), layout));
    f.indices = {0, 1, 3};
    f.weigh(0, 0, 1.0f);
    gatherInfluences(f.bones, f.vertexCount, false, inf);
    EXPECT_EQ(Status::IndexOutOfRange, buildBlendLayout(inf, f.topology(), layout));
}

TEST(SkinLayout, RandomMeshesStayConsistent)
{
    std::mt19937 random(1234);
    for (int round = 0; round < 20; ++round) {
        Fixture f = randomFixture(random);
        SCOPED_TRACE("round " + std::to_string(round));
        expectConsistent(f, convert(f));
    }
}

TEST(SkinLayout, BoneNumbersPastSixtyFourGiveTheSameSplit)
{
    // Up to 64 bones faces are grouped by bit masks, beyond by bone lists: same answer.
    std::mt19937 first(99), second(99);
    Fixture small = randomFixture(first);
    Fixture large = randomFixture(second, 100);
    BlendLayout a = convert(small);
    BlendLayout b = convert(large);
    expectConsistent(large, b);
    ASSERT_EQ(a.combinations.size(), b.combinations.size());
    for (size_t c = 0; c < a.combinations.size(); ++c)
        for (size_t slot = 0; slot < a.influencesPerFace; ++slot) {
            const uint32_t bone = a.combinations[c].bones[slot];
            EXPECT_EQ(bone == kUnusedBone ? kUnusedBone : bone + 100, b.combinations[c].bones[slot]);
        }
    EXPECT_EQ(a.faceRemap, b.faceRemap);
    EXPECT_EQ(a.weights, b.weights);
}
