#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>

#include "EffectFixture.h"
#include "LogCapture.h"
#include "TestPaths.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

const unsigned kCentre = 32, kLeft = 16, kRight = 48, kBottomRow = 57;

std::vector<char> fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string writeFile(const std::string& name, const std::vector<char>& bytes) {
    std::string path = vexiltest::outputDir() + "\\" + name;
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
}

}  // namespace

TEST_F(EffectTest, LoadListsTechniquesAndPassesInEffectOrder) {
    Effect effect;
    ASSERT_TRUE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    EXPECT_TRUE(effect.effectFileName() == effectPath("marks.fxo"));
    ASSERT_EQ(3u, effect.numTechniques());
    EXPECT_TRUE(effect.technique(0).name() == "Solid");
    EXPECT_TRUE(effect.technique(1).name() == "TwoPasses");
    EXPECT_TRUE(effect.technique(2).name() == "SHADOW");
    const Technique& two = effect.technique(1);
    ASSERT_EQ(2u, two.numPasses());
    EXPECT_STREQ("Left", two.passes()[0].desc.Name);
    EXPECT_STREQ("Right", two.passes()[1].desc.Name);
    EXPECT_TRUE(two.passes()[1] == two.passes()[1].handle);
    EXPECT_EQ(13u, effect.numParameters());
    try {
        effect.technique(3);
        FAIL() << "no exception";
    } catch (const zeb::IndexOutOfBounds& e) {
        EXPECT_EQ(0, e.lower());
        EXPECT_EQ(2, e.upper());
        EXPECT_EQ(3, e.index());
    }
}

TEST_F(EffectTest, TechniquesAreFoundByNameAndActivated) {
    vexiltest::LogCapture log;
    Effect effect;
    ASSERT_TRUE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    EXPECT_EQ(2u, effect.techniqueIndex("shadow")) << "names compare without case";
    EXPECT_EQ(0xFFFFFFFFu, effect.techniqueIndex("Glow"));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "158 Cannot find technique Glow"));

    EXPECT_TRUE(effect.setActiveTechnique(zeb::String("TwoPasses")));
    EXPECT_TRUE(effect.currentActiveTechnique().name() == "TwoPasses");
    EXPECT_FALSE(effect.setActiveTechnique(zeb::String("Glow")));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "122 Glow technique does not exist in the effect."));
    EXPECT_TRUE(effect.setActiveTechnique(2u));
    EXPECT_TRUE(effect.currentActiveTechnique().name() == "SHADOW");
    EXPECT_THROW(effect.setActiveTechnique(3u), zeb::IndexOutOfBounds);
    EXPECT_TRUE(effect.technique(0).activate());
    EXPECT_TRUE(effect.currentActiveTechnique().name() == "Solid");
}

TEST_F(EffectTest, RenderDrawsEveryPassAndSubsets) {
    Effect effect;
    ASSERT_TRUE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    ASSERT_TRUE(drawn([&] { return effect.technique(1).render(m_mesh, 0); }));
    EXPECT_TRUE(renderedPixelIs(kLeft, kCentre, kRed));
    EXPECT_TRUE(renderedPixelIs(kRight, kCentre, kBlue));
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kBlack));

    ASSERT_TRUE(drawn([&] { return effect.technique(0).render(m_mesh, 1); }));
    EXPECT_TRUE(renderedPixelIs(kCentre, kBottomRow, kRed)) << "subset 1 is the bottom strip";
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kBlack));
}

TEST_F(EffectTest, SinglePassesByIndexAndByName) {
    vexiltest::LogCapture log;
    Effect effect;
    ASSERT_TRUE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    const Technique& two = effect.technique(1);
    ASSERT_TRUE(two.activate());
    ASSERT_TRUE(drawn([&] {
        if (!two.begin()) return false;
        bool ok = two.renderPass(m_mesh, 0, zeb::String("Right"));
        two.end();
        return ok;
    }));
    EXPECT_TRUE(renderedPixelIs(kRight, kCentre, kBlue));
    EXPECT_TRUE(renderedPixelIs(kLeft, kCentre, kBlack));

    EXPECT_EQ(0u, two.passIndexByName("Middle"));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "176 Cannot find Middle pass in technique TwoPasses"));
    ASSERT_TRUE(drawn([&] {
        two.begin();
        bool ok = two.renderPass(m_mesh, 0, zeb::String("Middle"));
        two.end();
        return ok;
    }));
    EXPECT_TRUE(renderedPixelIs(kLeft, kCentre, kRed)) << "an unknown pass name renders pass 0";

    log.clear();
    EXPECT_FALSE(drawn([&] {
        two.begin();
        bool ok = two.renderPass(m_mesh, 0, 7u);
        two.end();
        return ok;
    }));
    ASSERT_EQ(1u, log.count("VexilDX9", "14 BeginPass ")) << log.dump();
}

TEST_F(EffectTest, TechniquesThatCannotBeReadFailTheirConstruction) {
    vexiltest::LogCapture log;
    Effect effect;
    ASSERT_TRUE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    try {
        Technique(effect.effect().get(), 9);
        FAIL() << "no exception";
    } catch (const zeb::AssertionFailure& e) {
        EXPECT_STREQ("VexilDX9/Technique", e.file());
        EXPECT_EQ(17u, e.line());
        EXPECT_STREQ("initialize(effect, index)", e.expression());
    }
    EXPECT_TRUE(log.contains("VexilDX9", 3, "34 Technique index is invalid 9"));
    EXPECT_THROW(Technique(nullptr, 0), zeb::AssertionFailure);
    EXPECT_TRUE(log.contains("VexilDX9", 3, "27 Effect is invalid."));
    Technique copy(effect.effect().get(), 1);
    EXPECT_EQ(2u, copy.numPasses());
    EXPECT_EQ(effect.technique(1).handle(), copy.handle());
}

TEST_F(EffectTest, ParameterValuesReachTheShader) {
    Effect effect;
    ASSERT_TRUE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    const char* fill = nullptr;
    ASSERT_TRUE(getParameterHandle(effect, "FillColour", fill));
    ASSERT_TRUE(setParameter(effect, fill, D3DXVECTOR4(0.0f, 1.0f, 0.0f, 1.0f)));
    ASSERT_TRUE(drawn([&] { return effect.technique(0).render(m_mesh, 0); }));
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kGreen));
    ASSERT_TRUE(setParameter(effect, fill, D3DXVECTOR3(1.0f, 1.0f, 0.0f)));
    ASSERT_TRUE(drawn([&] { return effect.technique(0).render(m_mesh, 0); }));
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, D3DCOLOR_XRGB(255, 255, 0)));
}

TEST_F(EffectTest, PoolSharesParametersBetweenEffects) {
    ID3DXEffectPool* rawPool = nullptr;
    ASSERT_EQ(D3D_OK, D3DXCreateEffectPool(&rawPool));
    COMPtr<ID3DXEffectPool>::pointer pool(rawPool);
    Effect writer, reader;
    writer.setPool(pool);
    reader.setPool(pool);
    ASSERT_TRUE(writer.load(effectPath("shared_pool.fxo"), deviceHolder()));
    ASSERT_TRUE(reader.load(effectPath("shared_pool.fxo"), deviceHolder()));
    const char* written = nullptr;
    const char* read = nullptr;
    ASSERT_TRUE(getParameterHandle(writer, "SharedColour", written));
    ASSERT_TRUE(getParameterHandle(reader, "SharedColour", read));
    ASSERT_TRUE(setParameter(writer, written, D3DXVECTOR4(1.0f, 0.0f, 1.0f, 1.0f)));
    D3DXVECTOR4 seen;
    ASSERT_TRUE(getParameter(reader, read, seen));
    EXPECT_EQ(D3DXVECTOR4(1.0f, 0.0f, 1.0f, 1.0f), seen);
    ASSERT_TRUE(drawn([&] { return reader.technique(0).render(m_mesh, 0); }));
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, D3DCOLOR_XRGB(255, 0, 255)));
}

TEST_F(EffectTest, FailedLoadsKeepThePreviousEffect) {
    vexiltest::LogCapture log;
    Effect effect;
    ASSERT_TRUE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    EXPECT_FALSE(effect.load(effectPath("missing.fxo"), deviceHolder()));
    EXPECT_EQ(1u, log.count("VexilDX9", "14 D3DXCreateEffectFromFile ")) << log.dump();

    std::vector<char> good = fileBytes("test-effects\\marks.fxo");
    ASSERT_GT(good.size(), 64u);
    std::vector<char> garbage(good.size(), '\x5A');
    EXPECT_FALSE(effect.load(writeFile("garbage.fxo", garbage).c_str(), deviceHolder()));
    EXPECT_FALSE(effect.load(writeFile("empty.fxo", {}).c_str(), deviceHolder()));
    EXPECT_EQ(3u, log.count("VexilDX9", "14 D3DXCreateEffectFromFile ")) << log.dump();

    EXPECT_TRUE(effect.effectFileName() == effectPath("marks.fxo"));
    EXPECT_EQ(3u, effect.numTechniques());
    ASSERT_TRUE(drawn([&] { return effect.technique(0).render(m_mesh, 0); }));
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kRed));
    EXPECT_TRUE(effect.reload(deviceHolder()));
    EXPECT_EQ(3u, effect.numTechniques());
}

TEST_F(EffectTest, EffectsWithoutTechniquesOrNeverLoaded) {
    Effect empty;
    EXPECT_TRUE(empty.load(effectPath("empty.fxo"), deviceHolder()));
    EXPECT_EQ(0u, empty.numTechniques());
    EXPECT_EQ(1u, empty.numParameters());

    Effect never;
    try {
        never.currentActiveTechnique();
        FAIL() << "no exception";
    } catch (const zeb::AssertionFailure& e) {
        EXPECT_STREQ("VexilDX9/Effect", e.file());
        EXPECT_EQ(135u, e.line());
        EXPECT_STREQ("m_effect.get()", e.expression());
    }
    try {
        never.setActiveTechnique(0u);
        FAIL() << "no exception";
    } catch (const zeb::AssertionFailure& e) {
        EXPECT_EQ(128u, e.line());
    }
    EXPECT_FALSE(never.reload(deviceHolder())) << "reloading an empty file name fails in D3DX";
}
