#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>

#include "EffectFixture.h"
#include "TestPaths.h"

namespace {

const char* const kSampleEffects[] = {"AlphaTestEffect.fxb", "BasicEffect.fxb", "DualTextureEffect.fxb",
                                      "EnvironmentMapEffect.fxb", "SkinnedEffect.fxb", "SpriteEffect.fxb"};

}  // namespace

// Effects compiled by Microsoft's tools load through Effect and list what D3DX itself reports.
TEST_F(EffectTest, ThirdPartyCompiledEffectsListWhatD3DXReports) {
    VEXIL_REQUIRE_SAMPLES();
    for (const char* name : kSampleEffects) {
        SCOPED_TRACE(name);
        std::string path = vexiltest::samplesDir() + "\\fna\\" + name;
        Effect effect;
        ASSERT_TRUE(effect.load(path.c_str(), deviceHolder()));
        ID3DXEffect* d3dx = effect.effect().get();
        D3DXEFFECT_DESC desc;
        ASSERT_EQ(D3D_OK, d3dx->GetDesc(&desc));
        ASSERT_EQ(desc.Techniques, effect.numTechniques());
        EXPECT_EQ(desc.Parameters, effect.numParameters());
        EXPECT_GT(desc.Techniques, 0u);
        for (unsigned t = 0; t < desc.Techniques; ++t) {
            D3DXTECHNIQUE_DESC techniqueDesc;
            d3dx->GetTechniqueDesc(d3dx->GetTechnique(t), &techniqueDesc);
            const Technique& technique = effect.technique(t);
            EXPECT_EQ(d3dx->GetTechnique(t), technique.handle());
            EXPECT_TRUE(technique.name() == techniqueDesc.Name) << techniqueDesc.Name;
            ASSERT_EQ(techniqueDesc.Passes, technique.numPasses());
            for (unsigned p = 0; p < techniqueDesc.Passes; ++p) {
                D3DXPASS_DESC passDesc;
                d3dx->GetPassDesc(d3dx->GetPass(technique.handle(), p), &passDesc);
                EXPECT_STREQ(passDesc.Name, technique.passes()[p].desc.Name);
                EXPECT_EQ(d3dx->GetPass(technique.handle(), p), technique.passes()[p].handle);
            }
        }
        for (unsigned i = 0; i < desc.Parameters; ++i) {
            D3DXHANDLE expected = d3dx->GetParameter(nullptr, i);
            D3DXPARAMETER_DESC parameterDesc;
            d3dx->GetParameterDesc(expected, &parameterDesc);
            const char* handle = nullptr;
            EXPECT_TRUE(getParameterHandle(effect, parameterDesc.Name, handle)) << parameterDesc.Name;
            EXPECT_EQ(expected, handle) << parameterDesc.Name;
        }
    }
}
