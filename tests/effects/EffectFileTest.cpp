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

std::vector<uint32_t> paddedWords(const std::string& bytes) {
    std::vector<uint32_t> words((bytes.size() + 3) / 4, 0);
    for (size_t i = 0; i < bytes.size(); ++i)
        words[i / 4] |= uint32_t(static_cast<uint8_t>(bytes[i])) << (8 * (i % 4));
    return words;
}

// Lays out small effects word by word, to aim at single rules of the check.
class TinyEffect {
public:
    TinyEffect() : m_emptyName(text("", false)) {}

    uint32_t text(const std::string& value, bool terminated = true) {
        uint32_t offset = blobOffset();
        std::string bytes = terminated ? value + std::string(1, '\0') : value;
        m_blob.push_back(static_cast<uint32_t>(bytes.size()));
        std::vector<uint32_t> padded = paddedWords(bytes);
        m_blob.insert(m_blob.end(), padded.begin(), padded.end());
        return offset;
    }

    uint32_t words(const std::vector<uint32_t>& values) {
        uint32_t offset = blobOffset();
        m_blob.insert(m_blob.end(), values.begin(), values.end());
        return offset;
    }

    uint32_t type(uint32_t type, uint32_t cls, uint32_t name, uint32_t elements, std::vector<uint32_t> shape = {}) {
        std::vector<uint32_t> record{type, cls, name, m_emptyName, elements};
        record.insert(record.end(), shape.begin(), shape.end());
        return words(record);
    }

    uint32_t floatType(uint32_t name) { return type(D3DXPT_FLOAT, D3DXPC_SCALAR, name, 0, {1, 1}); }

    void parameter(uint32_t typeOffset, uint32_t valueOffset) {
        m_parameters.insert(m_parameters.end(), {typeOffset, valueOffset, 0, 0});
        ++m_parameterCount;
    }
    void objectData(uint32_t id, const std::string& data) { append(m_objects, {id}, data, m_objectRecords); }
    void resource(const std::vector<uint32_t>& fields, const std::string& data) {
        append(m_resources, fields, data, m_resourceRecords);
    }

    uint32_t objectCount = 1;

    Bytes bytes() const {
        std::vector<uint32_t> file{0xFEFF0901, static_cast<uint32_t>(m_blob.size() * 4)};
        file.insert(file.end(), m_blob.begin(), m_blob.end());
        file.insert(file.end(), {m_parameterCount, 0, 0, objectCount});
        file.insert(file.end(), m_parameters.begin(), m_parameters.end());
        file.insert(file.end(), {m_objectRecords, m_resourceRecords});
        file.insert(file.end(), m_objects.begin(), m_objects.end());
        file.insert(file.end(), m_resources.begin(), m_resources.end());
        Bytes bytes(file.size() * 4);
        std::memcpy(bytes.data(), file.data(), bytes.size());
        return bytes;
    }

private:
    uint32_t blobOffset() const { return static_cast<uint32_t>(m_blob.size() * 4); }

    static void append(std::vector<uint32_t>& out, const std::vector<uint32_t>& fields, const std::string& data,
                       uint32_t& records) {
        out.insert(out.end(), fields.begin(), fields.end());
        out.push_back(static_cast<uint32_t>(data.size()));
        std::vector<uint32_t> padded = paddedWords(data);
        out.insert(out.end(), padded.begin(), padded.end());
        ++records;
    }

    std::vector<uint32_t> m_blob;
    uint32_t m_emptyName;
    std::vector<uint32_t> m_parameters, m_objects, m_resources;
    uint32_t m_parameterCount = 0, m_objectRecords = 0, m_resourceRecords = 0;
};

bool wellFormed(const TinyEffect& effect) {
    Bytes bytes = effect.bytes();
    return VexilDX9::isWellFormedEffectBinary(bytes.data(), bytes.size());
}

const uint32_t kTextureOperation = 0xA4, kNone = 0xFFFFFFFF;

// "Scale" = 2, texture "Tex" (object 1) and sampler "Smp" whose state 0 (object 2) sets its texture.
TinyEffect samplerEffect() {
    TinyEffect effect;
    effect.objectCount = 3;
    effect.parameter(effect.floatType(effect.text("Scale")), effect.words({0x40000000}));
    effect.parameter(effect.type(D3DXPT_TEXTURE, D3DXPC_OBJECT, effect.text("Tex"), 0), effect.words({1}));
    uint32_t stateType = effect.type(D3DXPT_TEXTURE, D3DXPC_OBJECT, effect.text("", false), 0);
    uint32_t samplerValue = effect.words({1, kTextureOperation, 0, stateType, effect.words({2})});
    effect.parameter(effect.type(D3DXPT_SAMPLER2D, D3DXPC_OBJECT, effect.text("Smp"), 0), samplerValue);
    return effect;
}

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
        EXPECT_TRUE(wellFormedPrefix(bytes, bytes.size())) << path;
        EXPECT_FALSE(wellFormedPrefix(bytes, bytes.size() - 1)) << path;
    }
}

TEST(EffectFileCheck, NamesMustBeThereAndEnd) {
    EXPECT_TRUE(wellFormed(samplerEffect()));
    TinyEffect unnamed;
    unnamed.parameter(unnamed.floatType(unnamed.text("", false)), unnamed.words({0}));
    EXPECT_FALSE(wellFormed(unnamed)) << "D3DX files parameters by name";
    TinyEffect unterminated;
    unterminated.parameter(unterminated.floatType(unterminated.text("Scale", false)), unterminated.words({0}));
    EXPECT_FALSE(wellFormed(unterminated));
}

TEST(EffectFileCheck, ObjectsAreNamedOnceAndFilledThroughTheirValue) {
    TinyEffect beyond = samplerEffect();
    beyond.parameter(beyond.type(D3DXPT_TEXTURE, D3DXPC_OBJECT, beyond.text("Far"), 0), beyond.words({3}));
    EXPECT_FALSE(wellFormed(beyond)) << "object 3 of 3";
    TinyEffect twice = samplerEffect();
    twice.objectCount = 4;
    twice.parameter(twice.type(D3DXPT_TEXTURE, D3DXPC_OBJECT, twice.text("Again"), 0), twice.words({1}));
    EXPECT_FALSE(wellFormed(twice));

    TinyEffect text;
    text.objectCount = 2;
    text.parameter(text.type(D3DXPT_STRING, D3DXPC_OBJECT, text.text("Note"), 0), text.words({1}));
    TinyEffect orphan = text;
    text.objectData(1, std::string("hello", 6));
    EXPECT_TRUE(wellFormed(text));
    orphan.objectCount = 3;
    orphan.objectData(2, std::string("hello", 6));
    EXPECT_FALSE(wellFormed(orphan)) << "no value names object 2";
    TinyEffect shader = text;
    shader.parameter(shader.type(D3DXPT_PIXELSHADER, D3DXPC_OBJECT, shader.text("PS"), 0), shader.words({2}));
    shader.objectCount = 3;
    TinyEffect brokenShader = shader;
    const uint32_t code[] = {0xFFFF0200, 0x0000FFFF};
    shader.objectData(2, std::string(reinterpret_cast<const char*>(code), sizeof(code)));
    EXPECT_TRUE(wellFormed(shader));
    brokenShader.objectData(2, std::string(reinterpret_cast<const char*>(code), 4));
    EXPECT_FALSE(wellFormed(brokenShader)) << "shader code without its end";
}

TEST(EffectFileCheck, RecursionAndRepetitionStayBounded) {
    TinyEffect cycle;
    uint32_t stateType = cycle.type(D3DXPT_SAMPLER, D3DXPC_OBJECT, cycle.text("", false), 0);
    uint32_t block = cycle.words({1, 0xB2, 0, stateType});
    cycle.words({block});  // the state's value is its own block
    cycle.parameter(cycle.type(D3DXPT_SAMPLER, D3DXPC_OBJECT, cycle.text("Loop"), 0), block);
    EXPECT_FALSE(wellFormed(cycle));

    TinyEffect huge;
    huge.parameter(huge.type(D3DXPT_VOID, D3DXPC_STRUCT, huge.text("Nothing"), 0x00FFFFFF, {0}), huge.words({}));
    EXPECT_FALSE(wellFormed(huge)) << "16 million empty elements in a file of a few bytes";
    TinyEffect wide;
    wide.parameter(wide.type(D3DXPT_FLOAT, D3DXPC_VECTOR, wide.text("Wide"), 0, {0, 1}), wide.words({0}));
    EXPECT_FALSE(wellFormed(wide)) << "no columns";
}

TEST(EffectFileCheck, ResourcesAddressExistingSamplerStates) {
    TinyEffect named = samplerEffect();
    named.resource({kNone, 2, kNone, 0, 1}, std::string("Tex", 4));
    EXPECT_TRUE(wellFormed(named));
    TinyEffect notSampler = samplerEffect();
    notSampler.resource({kNone, 0, kNone, 0, 1}, std::string("Tex", 4));
    EXPECT_FALSE(wellFormed(notSampler)) << "Scale has no sampler states";
    TinyEffect noState = samplerEffect();
    noState.resource({kNone, 2, kNone, 1, 1}, std::string("Tex", 4));
    EXPECT_FALSE(wellFormed(noState));
    TinyEffect noTechnique = samplerEffect();
    noTechnique.resource({0, 0, kNone, 0, 1}, std::string("Tex", 4));
    EXPECT_FALSE(wellFormed(noTechnique));
}

TEST_F(EffectTest, HandLaidEffectsLoadAsTheCheckReadsThem) {
    TinyEffect tiny = samplerEffect();
    tiny.resource({kNone, 2, kNone, 0, 1}, std::string("Tex", 4));
    Bytes bytes = tiny.bytes();
    Effect effect;
    ASSERT_TRUE(effect.load(writeFile("tiny.fxo", bytes, bytes.size()).c_str(), deviceHolder()));
    EXPECT_EQ(3u, effect.numParameters());
    float scale = 0.0f;
    EXPECT_EQ(D3D_OK, effect.effect()->GetFloat("Scale", &scale));
    EXPECT_EQ(2.0f, scale);
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
