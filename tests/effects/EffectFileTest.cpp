#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectFile.h>

#include "EffectFixture.h"
#include "LogCapture.h"
#include "TestPaths.h"

#include <windows.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

typedef std::vector<uint8_t> Bytes;

Bytes fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string writeFile(const std::string& name, const Bytes& bytes, size_t length) {
    std::string path = vexiltest::outputDir() + "\\" + name;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(length));
    return path;
}

std::vector<std::string> filesIn(const std::string& folder, const char* pattern) {
    std::vector<std::string> paths;
    WIN32_FIND_DATAA found;
    HANDLE search = FindFirstFileA((folder + "\\" + pattern).c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return paths;
    do {
        paths.push_back(folder + "\\" + found.cFileName);
    } while (FindNextFileA(search, &found));
    FindClose(search);
    return paths;
}

// The effects the build compiles for the tests.
std::vector<std::string> testEffects() { return filesIn("test-effects", "*.fxo"); }

// A copy of exactly that length, so that reading past it is reading past the allocation.
bool wellFormedPrefix(const Bytes& bytes, size_t length) {
    Bytes prefix(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
    return VexilDX9::isWellFormedEffectBinary(prefix.data(), prefix.size());
}

class Damage {
public:
    explicit Damage(uint32_t seed) : m_random(seed) {}

    // Overwrites one or two of the given words with a value a broken writer or a bit flip could leave.
    void apply(Bytes& bytes, const std::vector<size_t>& words) {
        int edits = 1 + static_cast<int>(m_random() % 2);
        for (int i = 0; i < edits; ++i) {
            size_t at = words[m_random() % words.size()];
            uint32_t word;
            std::memcpy(&word, bytes.data() + at, 4);
            word = damaged(word, static_cast<uint32_t>(bytes.size()));
            std::memcpy(bytes.data() + at, &word, 4);
        }
    }

private:
    uint32_t damaged(uint32_t word, uint32_t fileSize) {
        static const uint32_t kExtremes[] = {0, 1, 2, 4, 0xFF, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFC, 0xFFFFFFFF};
        switch (m_random() % 5) {
        case 0: return kExtremes[m_random() % (sizeof(kExtremes) / sizeof(kExtremes[0]))];
        case 1: return word + 4 * (static_cast<uint32_t>(m_random() % 9) - 4);
        case 2: return word ^ (1u << (m_random() % 32));
        case 3: return fileSize - static_cast<uint32_t>(m_random() % 16);
        default: return static_cast<uint32_t>(m_random());
        }
    }

    std::mt19937 m_random;
};

ULONG referencesOf(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

}  // namespace

TEST(EffectFileCheck, CompiledEffectsPassAndEveryCutOfThemIsRefused) {
    std::vector<std::string> effects = testEffects();
    ASSERT_GE(effects.size(), 3u) << "the build compiles the test effects into test-effects";
    for (const std::string& path : effects) {
        Bytes bytes = fileBytes(path);
        EXPECT_TRUE(wellFormedPrefix(bytes, bytes.size())) << path;
        for (size_t length = 0; length < bytes.size(); ++length)
            if (wellFormedPrefix(bytes, length)) {
                ADD_FAILURE() << path << " cut to " << length << " of " << bytes.size() << " bytes passes";
                break;
            }
    }
}

TEST(EffectFileCheck, ThirdPartyCompiledEffectsPass) {
    VEXIL_REQUIRE_SAMPLES();
    std::vector<std::string> effects = filesIn(vexiltest::samplesDir() + "\\fna", "*.fxb");
    if (effects.empty()) GTEST_SKIP() << "no fna/*.fxb in the samples: third-party effect check skipped";
    for (const std::string& path : effects) {
        Bytes bytes = fileBytes(path);
        std::vector<size_t> words;
        EXPECT_TRUE(VexilDX9::isWellFormedEffectBinary(bytes.data(), bytes.size(), &words)) << path;
        EXPECT_FALSE(wellFormedPrefix(bytes, bytes.size() - 1)) << path;
    }
}

TEST_F(EffectTest, CutEffectFilesAreRefusedAndKeepThePreviousEffect) {
    vexiltest::LogCapture log;
    Effect effect;
    ASSERT_TRUE(effect.load(effectPath("marks.fxo"), deviceHolder()));
    size_t cuts = 0;
    for (const std::string& path : testEffects()) {
        Bytes bytes = fileBytes(path);
        for (size_t length = 0; length < bytes.size(); ++length, ++cuts) {
            std::string cut = writeFile("cut.fxo", bytes, length);
            if (effect.load(cut.c_str(), deviceHolder())) {
                ADD_FAILURE() << path << " cut to " << length << " bytes loads";
                break;
            }
        }
    }
    ASSERT_GT(cuts, 100u);
    EXPECT_EQ(cuts, log.count("VexilDX9", "14 D3DXCreateEffectFromFile "));
    EXPECT_TRUE(effect.effectFileName() == effectPath("marks.fxo"));
    EXPECT_EQ(3u, effect.numTechniques());
    ASSERT_TRUE(drawn([&] { return effect.technique(0).render(m_mesh, 0); }));
    EXPECT_TRUE(renderedPixelIs(32, 32, kRed));
}

// Damaged counts, offsets and sizes (never shader code): what the check lets through goes on to
// D3DX, which must then neither crash, hang nor leak a reference to the device.
void EffectTest::loadDamagedCopies(const std::vector<std::string>& effects, int rounds, uint32_t seed) {
    Damage damage(seed);
    const ULONG deviceRefs = referencesOf(device());
    size_t passedOn = 0;
    for (const std::string& path : effects) {
        Bytes bytes = fileBytes(path);
        std::vector<size_t> words;
        ASSERT_TRUE(VexilDX9::isWellFormedEffectBinary(bytes.data(), bytes.size(), &words)) << path;
        ASSERT_GT(words.size(), 8u) << path;
        for (int round = 0; round < rounds; ++round) {
            Bytes damaged = bytes;
            damage.apply(damaged, words);
            bool accepted = VexilDX9::isWellFormedEffectBinary(damaged.data(), damaged.size());
            passedOn += accepted ? 1 : 0;
            {
                Effect effect;
                bool loaded = effect.load(writeFile("damaged.fxo", damaged, damaged.size()).c_str(), deviceHolder());
                EXPECT_TRUE(accepted || !loaded) << path << " round " << round;
            }
            ASSERT_EQ(deviceRefs, referencesOf(device())) << path << " round " << round << " leaks";
        }
    }
    EXPECT_GT(passedOn, 0u) << "some damage is harmless and reaches D3DX";
}

TEST_F(EffectTest, DamagedEffectStructureNeverBreaksTheLoader) { loadDamagedCopies(testEffects(), 400, 20261122); }

TEST_F(EffectTest, DamagedThirdPartyEffectsNeverBreakTheLoader) {
    VEXIL_REQUIRE_SAMPLES();
    std::vector<std::string> effects = filesIn(vexiltest::samplesDir() + "\\fna", "*.fxb");
    if (effects.empty()) GTEST_SKIP() << "no fna/*.fxb in the samples: third-party effect check skipped";
    loadDamagedCopies(effects, 300, 1122);
}
