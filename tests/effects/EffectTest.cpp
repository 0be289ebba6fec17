#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>

#include "EffectFixture.h"
#include "LogCapture.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

D3DXHANDLE(WINAPI* g_realGetTechnique)(ID3DXEffect*, UINT) = nullptr;
D3DXHANDLE WINAPI onlyFirstTechnique(ID3DXEffect* effect, UINT index) {
    return index == 0 ? g_realGetTechnique(effect, index) : nullptr;
}

D3DXHANDLE WINAPI foreignPass(ID3DXEffect*, D3DXHANDLE, const char*) { return "a pass of another effect"; }

// Reads what D3DX asks for from disk (Wine's D3DX opens the effect file itself through it).
struct FileInclude : ID3DXInclude {
    Bytes read;
    STDMETHOD(Open)(D3DXINCLUDE_TYPE, LPCSTR name, LPCVOID, LPCVOID* data, UINT* bytes) override {
        read = fileBytes(name);
        *data = read.data(), *bytes = static_cast<UINT>(read.size());
        return read.empty() ? E_FAIL : S_OK;
    }
    STDMETHOD(Close)(LPCVOID) override { return S_OK; }
};

}  // namespace

TEST_F(EffectTest, TechniquesAndPassesAreListedInEffectOrderFoundByNameAndActivated) {
    vexiltest::LogCapture log;
    ASSERT_EQ(4u, m_marks.numTechniques());
    const char* names[] = {"Solid", "TwoPasses", "SHADOW", "BrokenFirst"};
    for (unsigned i = 0; i < 4; ++i) EXPECT_TRUE(m_marks.technique(i).name() == names[i]) << names[i];
    const Technique& two = m_marks.technique(1);
    ASSERT_EQ(2u, two.numPasses());
    EXPECT_STREQ("Left", two.passes()[0].desc.Name);
    EXPECT_STREQ("Right", two.passes()[1].desc.Name);
    EXPECT_THROW(m_marks.technique(4), zeb::IndexOutOfBounds);
    EXPECT_EQ(2u, m_marks.techniqueIndex("shadow")) << "names compare without case";
    EXPECT_EQ(0xFFFFFFFFu, m_marks.techniqueIndex("Glow"));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "158 Cannot find technique Glow"));
    EXPECT_TRUE(m_marks.setActiveTechnique(zeb::String("TwoPasses")));
    EXPECT_TRUE(m_marks.currentActiveTechnique().name() == "TwoPasses");
    EXPECT_FALSE(m_marks.setActiveTechnique(zeb::String("Glow")));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "122 Glow technique does not exist in the effect."));
    EXPECT_TRUE(m_marks.setActiveTechnique(2u));
    EXPECT_TRUE(m_marks.currentActiveTechnique().name() == "SHADOW");
    EXPECT_THROW(m_marks.setActiveTechnique(4u), zeb::IndexOutOfBounds);
    EXPECT_TRUE(m_marks.technique(0).activate());
    EXPECT_TRUE(m_marks.currentActiveTechnique().name() == "Solid");

    // Names take each byte as one character.
    Bytes bytes = fileBytes("test-effects\\marks.fxo");
    const char shadow[] = "SHADOW";
    auto at = std::search(bytes.begin(), bytes.end(), shadow, shadow + sizeof(shadow));
    ASSERT_NE(bytes.end(), at);
    at[2] = 0xC4;  // "SH\xC4" is no UTF-8
    Effect effect;
    ASSERT_TRUE(effect.load(writeFile("latin1.fxo", bytes).c_str(), deviceHolder()));
    EXPECT_TRUE(effect.technique(2).name() == zeb::String(L"SH\u00C4DOW"));
}

TEST_F(EffectTest, RenderDrawsEveryPassAndGoesOnAfterAFailedOneAndSinglePassesDrawByIndexOrName) {
    vexiltest::LogCapture log;
    ASSERT_TRUE(drawn([&] { return m_marks.technique(1).render(m_mesh.get(), 0); }));
    EXPECT_TRUE(renderedPixelIs(kLeft, kCentre, kRed));
    EXPECT_TRUE(renderedPixelIs(kRight, kCentre, kBlue));
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kBlack));
    ASSERT_TRUE(drawn([&] { return m_marks.technique(0).render(m_mesh.get(), 1); }));
    EXPECT_TRUE(renderedPixelIs(kCentre, kBottomRow, kRed)) << "subset 1 is the bottom strip";
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kBlack));

    EXPECT_FALSE(drawn([&] { return m_marks.technique(3).render(m_mesh.get(), 0); }));
    EXPECT_EQ(1u, log.count("VexilDX9", "14 ID3DXEffect::BeginPass ")) << log.dump();
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kRed)) << "the pass after the failed one still draws";
    EXPECT_TRUE(drawn([&] { return m_marks.technique(0).render(m_mesh.get(), 0); })) << "the failed render ended its effect";

    const Technique& two = m_marks.technique(1);
    ASSERT_TRUE(drawnPass(two, zeb::String("Right")));
    EXPECT_TRUE(renderedPixelIs(kRight, kCentre, kBlue));
    EXPECT_TRUE(renderedPixelIs(kLeft, kCentre, kBlack));

    EXPECT_EQ(0u, two.passIndexByName("Middle"));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "176 Cannot find Middle pass in technique TwoPasses"));
    ASSERT_TRUE(drawnPass(two, zeb::String("Middle")));
    EXPECT_TRUE(renderedPixelIs(kLeft, kCentre, kRed)) << "an unknown pass name renders pass 0";
    EXPECT_FALSE(drawnPass(two, 7u));
    EXPECT_EQ(1u, log.count("VexilDX9", "14 BeginPass ")) << log.dump();

    // A pass D3DX finds in another effect has no index here.
    overrideEffectMethod(m_marks.effect().get(), kGetPassByName, reinterpret_cast<void*>(&foreignPass));
    EXPECT_EQ(0xFFFFFFFFu, two.passIndexByName("Right"));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "188 Right pass does not exist in technique TwoPasses")) << log.dump();
    EXPECT_FALSE(drawnPass(two, zeb::String("Right")));

    // A render that cannot begin stops there; failed draws are reported by each under its own name.
    void* begin = overrideEffectMethod(m_marks.effect().get(), kBegin,
                                       reinterpret_cast<void*>(+[](ID3DXEffect*, UINT*, DWORD) { return D3DERR_INVALIDCALL; }));
    EXPECT_FALSE(m_marks.technique(0).render(m_mesh.get(), 0));
    overrideEffectMethod(m_marks.effect().get(), kBegin, begin);
    EXPECT_TRUE(log.contains("VexilDX9", 3, "72 Cannot begin technique Solid"));
    void* methods[29];  // ID3DXMesh's, DrawSubset (slot 3) failing
    void**& table = *reinterpret_cast<void***>(m_mesh.get());
    void** real = std::exchange(table, static_cast<void**>(std::memcpy(methods, table, sizeof methods)));
    methods[3] = reinterpret_cast<void*>(+[](ID3DXMesh*, DWORD) -> HRESULT { return D3DERR_INVALIDCALL; });
    EXPECT_FALSE(drawn([&] { return m_marks.technique(1).render(m_mesh.get(), 0); }) || drawnPass(two, 0u));
    table = real;
    EXPECT_EQ(2u, log.count("VexilDX9", "14 ID3DXEffect::DrawSubset D3DERR_INVALIDCALL", 3)) << "once per pass";
    EXPECT_EQ(1u, log.count("VexilDX9", "14 DrawSubset D3DERR_INVALIDCALL", 3));
}

TEST_F(EffectTest, TechniquesThatCannotBeReadFailTheirAssertionsOrLeaveTheRestEmpty) {
    vexiltest::LogCapture log;
    expectAssertion([&] { Technique(m_marks.effect().get(), 9); }, 17, "initialize(effect, index)", "VexilDX9/Technique");
    EXPECT_TRUE(log.contains("VexilDX9", 3, "34 Technique index is invalid 9"));
    EXPECT_THROW(Technique(nullptr, 0), zeb::AssertionFailure);
    EXPECT_TRUE(log.contains("VexilDX9", 3, "27 Effect is invalid."));

    Effect never;
    expectAssertion([&] { never.currentActiveTechnique(); }, 135, "m_effect.get()", "VexilDX9/Effect");
    expectAssertion([&] { never.setActiveTechnique(0u); }, 128, "m_effect.get()", "VexilDX9/Effect");
    EXPECT_FALSE(never.setActiveTechnique(zeb::String("Solid")));
    EXPECT_FALSE(never.reload(deviceHolder())) << "reloading an empty file name fails in D3DX";
    Effect empty;
    EXPECT_TRUE(empty.load(effectPath("empty.fxo"), deviceHolder()));
    EXPECT_EQ(0u, empty.numTechniques());
    EXPECT_EQ(1u, empty.numParameters());
    expectAssertion([&] { empty.currentActiveTechnique(); }, 137, "tech", "VexilDX9/Effect");

    // A technique failing during load leaves the rest empty.
    log.clear();
    EffectCreationHook hook([](ID3DXEffect* created) {
        g_realGetTechnique = reinterpret_cast<decltype(g_realGetTechnique)>(
            overrideEffectMethod(created, kGetTechnique, reinterpret_cast<void*>(&onlyFirstTechnique)));
    });
    ASSERT_TRUE(hook.ok());
    Effect effect;
    EXPECT_FALSE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    EXPECT_TRUE(log.contains("VexilDX9", 3, "34 Technique index is invalid 1")) << log.dump();
    EXPECT_TRUE(effect.effect().get()) << "the new effect stays loaded";
    EXPECT_TRUE(effect.effectFileName() == effectPath("marks.fxo"));
    ASSERT_EQ(4u, effect.numTechniques());
    EXPECT_TRUE(effect.technique(0).name() == "Solid");
    for (unsigned i = 1; i < 4; ++i) {
        const Technique& rest = effect.technique(i);
        EXPECT_TRUE(!rest.handle() && rest.name() == "" && rest.numPasses() == 0) << i;
    }
    EXPECT_EQ(1u, log.count("VexilDX9", "34 Technique index is invalid")) << "no technique after the failed one is read";
    const Technique& unread = effect.technique(3);  // without an effect: all fails, logged, nothing reaches D3DX
    EXPECT_FALSE(unread.activate() || unread.begin() || unread.render(m_mesh.get(), 0) || unread.renderPass(m_mesh.get(), 0, 0u));
    EXPECT_EQ(0xFFFFFFFFu, unread.passIndexByName("Left"));
    unread.end();
    EXPECT_EQ(4u, log.count("VexilDX9", "Effect is invalid.", 3));
    // D3DX's current technique is one the effect left unread.
    ASSERT_TRUE(effect.setActiveTechnique(zeb::String("SHADOW")));
    expectAssertion([&] { effect.currentActiveTechnique(); }, 146, "false", "VexilDX9/Effect");
    EXPECT_TRUE(log.contains("VexilDX9", 3, "145 Currently active technique is not registered with this effect " +
                                                std::string(effect.effectFileName().getUTF8String())));
}

// Only compiled effects are checked; everything else (effect source on Windows) is D3DX's to judge.
TEST_F(EffectTest, FailedLoadsKeepThePreviousEffect) {
    vexiltest::LogCapture log;
    EffectCreationHook hook;
    ASSERT_TRUE(hook.ok());
    Bytes good = fileBytes("test-effects\\marks.fxo");
    ASSERT_GT(good.size(), 64u);
    const struct {
        std::string file;
        unsigned reachesD3DX;
    } failures[] = {
        {"test-effects\\missing.fxo", 1},
        {writeFile("garbage.fxo", Bytes(good.size(), 0x5A)), 1},
        {writeFile("empty.fxo", {}), 1},
        {writeFile("source.fx", Bytes(good.begin() + 4, good.end())), 1},
        {writeFile("header.fxo", good, 12), 0},  // D3DX itself would read past it, so we refuse it, saying why
    };
    for (const auto& failure : failures) {
        unsigned before = hook.calls();
        EXPECT_FALSE(m_marks.load(failure.file.c_str(), deviceHolder())) << failure.file;
        EXPECT_EQ(failure.reachesD3DX, hook.calls() - before) << failure.file;
    }
    EXPECT_EQ(5u, log.count("VexilDX9", "14 D3DXCreateEffectFromFile ")) << log.dump();
    EXPECT_EQ(1u, log.count("VexilDX9", "header.fxo refused before D3DX reads it: ", 3)) << log.dump();
    EXPECT_TRUE(m_marks.effectFileName() == effectPath("marks.fxo"));
    EXPECT_EQ(4u, m_marks.numTechniques());
    ASSERT_TRUE(drawn([&] { return m_marks.technique(0).render(m_mesh.get(), 0); }));
    EXPECT_TRUE(renderedPixelIs(kCentre, kCentre, kRed));
    EXPECT_TRUE(!hook.macros && !hook.include && !hook.pool);

    // Macros go to D3DX as the caller listed them, terminator included, with the include handler and the pool.
    const D3DXMACRO macros[] = {{"LIGHTS", "3"}, {nullptr, nullptr}};
    m_marks.addMacro(macros[0]), m_marks.addMacro(macros[1]);
    FileInclude include;
    m_marks.setIncludes(&include);
    COMPtr<ID3DXEffectPool>::pointer pool;
    ASSERT_EQ(D3D_OK, D3DXCreateEffectPool(pool.receive()));
    m_marks.setPool(pool);
    EXPECT_TRUE(m_marks.reload(deviceHolder()));
    EXPECT_EQ(4u, m_marks.numTechniques());
    EXPECT_TRUE(hook.macros && hook.macros[0].Name == macros[0].Name && !hook.macros[1].Name);
    EXPECT_TRUE(hook.include == &include && hook.pool == pool.get());
    const std::string gone = writeFile("gone.fxo", good);
    ASSERT_TRUE(m_marks.load(gone.c_str(), deviceHolder()) && DeleteFileA(gone.c_str()));
    EXPECT_FALSE(m_marks.reload(deviceHolder()));
    EXPECT_TRUE(m_marks.numTechniques() == 0 && !m_marks.effect()) << "nothing is left to count";
    m_marks.setIncludes(nullptr);
}
