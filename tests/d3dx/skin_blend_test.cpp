// The Direct3D-free core of blended-mesh conversion: influence gathering and the split into bone
// combinations, on cases the device tests do not reach.
#include <SkinBlend.h>
#include <gtest/gtest.h>

using namespace skinblend;

namespace {

struct Influence {
    uint32_t bone, vertex;
    float weight;
};

// Vertices 0-2 (the face 0, 1, 2 when `face`) with the given influences.
struct Triangle {
    static constexpr uint32_t vertexCount = 3;
    std::vector<uint32_t> indices;
    std::vector<BoneWeights> bones;

    Triangle(std::initializer_list<Influence> influences, bool face = true)
    {
        if (face)
            indices = {0, 1, 2};
        for (const Influence& i : influences)
            weigh(i.bone, i.vertex, i.weight);
    }
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
        return t;
    }
    Status layout(BlendLayout& out) const
    {
        VertexInfluences influences;
        EXPECT_EQ(Status::Ok, gatherInfluences(bones, vertexCount, false, influences));
        return buildBlendLayout(influences, topology(), out);
    }
};

}  // namespace

// Repeats add up, weightless influences vanish, the heaviest come first; a vertex past the mesh
// is refused, or left out when asked.
TEST(SkinInfluences, RepeatsFoldZeroWeightsDropHeaviestFirstOutOfRangeRefused)
{
    Triangle f({{0, 0, 0.2f}, {1, 0, 0.5f}, {0, 0, 0.1f}, {2, 0, 0.0f}, {2, 2, 1.0f}}, false);
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

    Triangle outside({{0, 1, 1.0f}, {1, 7, 1.0f}}, false);
    EXPECT_EQ(Status::VertexOutOfRange, gatherInfluences(outside.bones, 4, false, inf));
    ASSERT_EQ(Status::Ok, gatherInfluences(outside.bones, 4, true, inf));
    EXPECT_EQ(1u, inf.entries.size());
}

TEST(SkinLayout, FaceWithMoreBonesThanACombinationKeepsEachCornersHeaviest)
{
    BlendLayout layout;
    ASSERT_EQ(Status::Ok, Triangle({{0, 0, 0.5f}, {1, 0, 0.3f}, {2, 0, 0.2f}, {3, 1, 0.6f}, {4, 1, 0.4f}, {5, 2, 0.9f},
                                    {1, 2, 0.1f}}).layout(layout));
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
}

TEST(SkinLayout, VerticesWithoutWeightsRideOnTheFirstSlotAndNothingToBlendIsRefused)
{
    BlendLayout layout;
    ASSERT_EQ(Status::Ok, Triangle({{0, 0, 1.0f}, {1, 1, 1.0f}}).layout(layout));
    ASSERT_EQ(2u, layout.influencesPerFace);
    EXPECT_FLOAT_EQ(1.0f, layout.weights[2 * 2 + 0]);
    EXPECT_FLOAT_EQ(0.0f, layout.weights[2 * 2 + 1]);

    EXPECT_EQ(Status::NoInfluences, Triangle({}).layout(layout));
    Triangle pastTheEnd({{0, 0, 1.0f}});
    pastTheEnd.indices = {0, 1, 3};
    EXPECT_EQ(Status::IndexOutOfRange, pastTheEnd.layout(layout));
}
