// A converted mesh drawn through fixed-function vertex blending on the real device: one bone
// moved by a known matrix moves exactly the vertices it weighs, by its share of their weight.
#include <TestDevice.h>

#include "skin_fixtures.h"

using namespace skintest;

namespace {

const std::vector<float> kColumns = {-0.75f, -0.5f, -0.25f, 0.0f, 0.25f, 0.5f, 0.75f};
constexpr D3DCOLOR kWhite = 0xFFFFFF;
constexpr D3DCOLOR kBlack = 0x000000;

// Bone 0 on columns 0-2, bone 1 on 2-4, bone 2 on 4-6; columns 2 and 4 half and half.
std::vector<Weight> threeBoneStrip()
{
    std::vector<Weight> weights;
    const DWORD bone[7][2] = {{0, 0}, {0, 0}, {0, 1}, {1, 1}, {1, 2}, {2, 2}, {2, 2}};
    for (DWORD c = 0; c < 7; ++c)
        for (DWORD row = 0; row < 2; ++row) {
            const bool shared = bone[c][0] != bone[c][1];
            weights.push_back({bone[c][0], 2 * c + row, shared ? 0.5f : 1.0f});
            if (shared)
                weights.push_back({bone[c][1], 2 * c + row, 0.5f});
        }
    return weights;
}

class SkinRender : public vexiltest::DeviceTest {
protected:
    // Draws every combination with its bones' matrices, as a skinned-mesh renderer does.
    void draw(const Converted& c, const std::vector<D3DXMATRIX>& bones)
    {
        testDevice().clear(kBlack);
        device()->SetRenderState(D3DRS_LIGHTING, FALSE);
        device()->SetRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
        device()->SetRenderState(D3DRS_ZENABLE, FALSE);
        ASSERT_EQ(D3D_OK, device()->BeginScene());
        for (DWORD b = 0; b < c.combinationCount; ++b) {
            const D3DXBONECOMBINATION& combination = c.combination(b);
            DWORD lastSlot = 0;
            for (DWORD i = 0; i < c.maxFaceInfluences; ++i) {
                if (combination.BoneId[i] == 0xFFFFFFFF)
                    continue;
                device()->SetTransform(D3DTS_WORLDMATRIX(i), &bones[combination.BoneId[i]]);
                lastSlot = i;
            }
            device()->SetRenderState(D3DRS_VERTEXBLEND, lastSlot);
            EXPECT_EQ(D3D_OK, c.mesh->DrawSubset(b));
        }
        device()->EndScene();
        device()->SetRenderState(D3DRS_VERTEXBLEND, D3DVBF_DISABLE);
    }
    // Pixel centre nearest to a clip-space point of the 64x64 target.
    static unsigned px(float x) { return unsigned((x + 1.0f) * 32.0f); }
    static unsigned py(float y) { return unsigned((1.0f - y) * 32.0f); }
};

}  // namespace

TEST_F(SkinRender, MovingOneBoneMovesExactlyTheVerticesItWeighs)
{
    D3DCAPS9 caps;
    device()->GetDeviceCaps(&caps);
    ASSERT_GE(caps.MaxVertexBlendMatrices, 2u) << "the device cannot blend two matrices";

    Ref<ID3DXMesh> mesh = makeStrip(device(), kColumns, -0.25f, 0.25f);
    Ref<ID3DXSkinInfo> skin = makeSkin(14, kStripFVF, 3, threeBoneStrip());
    Converted c = convert(skin.get(), mesh.get());
    ASSERT_EQ(D3D_OK, c.result);
    ASSERT_EQ(2u, c.combinationCount) << "bone 1 sits in a different slot in each combination";

    std::vector<D3DXMATRIX> bones(3);
    for (D3DXMATRIX& m : bones)
        D3DXMatrixIdentity(&m);
    draw(c, bones);
    for (float x : {-0.625f, -0.26f, 0.03f, 0.625f}) {
        EXPECT_TRUE(renderedPixelIs(px(x), py(0.0f), kWhite)) << "rest pose, x " << x;
        EXPECT_TRUE(renderedPixelIs(px(x), py(0.4f), kBlack)) << "rest pose, x " << x;
    }

    D3DXMatrixTranslation(&bones[1], 0.0f, 0.5f, 0.0f);
    draw(c, bones);
    // Columns bound to bones 0 and 2 alone stay put.
    for (float x : {-0.625f, 0.625f}) {
        EXPECT_TRUE(renderedPixelIs(px(x), py(0.0f), kWhite)) << "x " << x;
        EXPECT_TRUE(renderedPixelIs(px(x), py(0.4f), kBlack)) << "x " << x;
    }
    // Column 3 is bone 1's alone: it moves the full half unit.
    EXPECT_TRUE(renderedPixelIs(px(0.03f), py(0.6f), kWhite));
    EXPECT_TRUE(renderedPixelIs(px(0.03f), py(0.1f), kBlack));
    // Column 2 is half bone 1: its edge rises by a quarter, not by a half.
    EXPECT_TRUE(renderedPixelIs(px(-0.27f), py(0.39f), kWhite));
    EXPECT_TRUE(renderedPixelIs(px(-0.27f), py(0.55f), kBlack));
    EXPECT_TRUE(renderedPixelIs(px(-0.27f), py(-0.11f), kBlack));
}
