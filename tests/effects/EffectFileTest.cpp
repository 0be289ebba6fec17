#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectFile.h>
#include <VexilDX9/EffectShaderCheck.h>

#include "EffectFixture.h"
#include "TestPaths.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace {

// Ours, and those compiled by Microsoft's tools when the samples are there.
std::vector<std::string> compiledEffects() {
    std::vector<std::string> paths{"test-effects\\marks.fxo", "test-effects\\shared_pool.fxo", "test-effects\\empty.fxo"};
    for (const char* name : {"AlphaTestEffect", "BasicEffect", "DualTextureEffect", "EnvironmentMapEffect",
                             "SkinnedEffect", "SpriteEffect"})
        if (!vexiltest::samplesDir().empty()) paths.push_back(vexiltest::samplesDir() + "\\fna\\" + name + ".fxb");
    return paths;
}

// A copy of exactly that length, so that reading past it is reading past the allocation.
bool wellFormedPrefix(const Bytes& bytes, size_t length = SIZE_MAX) {
    Bytes prefix(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(length, bytes.size())));
    return VexilDX9::isWellFormedEffectBinary(prefix.data(), prefix.size());
}

typedef std::vector<uint32_t> Words;

Words operator+(Words head, const Words& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

Words paddedWords(const std::string& bytes) {
    Words words((bytes.size() + 3) / 4, 0);
    std::memcpy(words.data(), bytes.data(), bytes.size());
    return words;
}

// Lays out small effects word by word, to aim at single rules of the check.
class TinyEffect {
public:
    uint32_t text(const std::string& value, bool terminated = true) {
        std::string bytes = terminated ? value + std::string(1, '\0') : value;
        return words(Words{static_cast<uint32_t>(bytes.size())} + paddedWords(bytes));
    }
    uint32_t words(const Words& values) {
        uint32_t offset = static_cast<uint32_t>(m_blob.size() * 4);
        m_blob.insert(m_blob.end(), values.begin(), values.end());
        return offset;
    }
    uint32_t type(uint32_t type, uint32_t cls, uint32_t name, uint32_t elements, Words shape = {}) {
        return words(Words{type, cls, name, text("", false), elements} + shape);
    }
    void parameter(uint32_t type, const std::string& name, uint32_t cls, const Words& value, Words shape = {}) {
        parameterAt(this->type(type, cls, text(name), 0, shape), words(value));
    }
    void parameterAt(uint32_t typeOffset, uint32_t valueOffset) {
        m_parameters = m_parameters + Words{typeOffset, valueOffset, 0, 0};
    }
    // A technique of one pass that sets one state (an int of 1) by its operation.
    void techniqueSetting(uint32_t operation) {
        Words state{operation, 0, type(D3DXPT_INT, D3DXPC_SCALAR, text("", false), 0, {1, 1}), words({1})};
        m_techniques = m_techniques + Words{text("T"), 0, 1, text("P"), 0, 1} + state;
        ++m_techniqueCount;
    }
    void objectData(uint32_t id, const Words& data) { append(m_objects, {id}, data, m_objectRecords); }
    void resource(const Words& fields, const std::string& data) {
        append(m_resources, fields, paddedWords(data), m_resourceRecords, static_cast<uint32_t>(data.size()));
    }

    uint32_t objectCount = 1;

    Bytes bytes() const {
        const uint32_t parameters = static_cast<uint32_t>(m_parameters.size() / 4);
        Words file = Words{0xFEFF0901, static_cast<uint32_t>(m_blob.size() * 4)} + m_blob +
                     Words{parameters, m_techniqueCount, 0, objectCount} + m_parameters + m_techniques +
                     Words{m_objectRecords, m_resourceRecords} +
                     m_objects + m_resources;
        Bytes bytes(file.size() * 4);
        std::memcpy(bytes.data(), file.data(), bytes.size());
        return bytes;
    }
    bool wellFormed() const { return wellFormedPrefix(bytes()); }

private:
    static void append(Words& out, const Words& fields, const Words& data, uint32_t& records, uint32_t size = ~0u) {
        out = out + fields + Words{size != ~0u ? size : static_cast<uint32_t>(data.size() * 4)} + data;
        ++records;
    }

    Words m_blob, m_parameters, m_techniques, m_objects, m_resources;
    uint32_t m_techniqueCount = 0, m_objectRecords = 0, m_resourceRecords = 0;
};

const uint32_t kTextureOperation = 0xA4, kNone = 0xFFFFFFFF;
const Words kScalarShape{1, 1};

// "Scale" = 2, texture "Tex" (object 1) and sampler "Smp" whose state 0 (object 2) sets its texture
// (or whichever state the operation names).
TinyEffect samplerEffect(uint32_t operation = kTextureOperation) {
    TinyEffect effect;
    effect.objectCount = 3;
    effect.parameter(D3DXPT_FLOAT, "Scale", D3DXPC_SCALAR, {0x40000000}, kScalarShape);
    effect.parameter(D3DXPT_TEXTURE, "Tex", D3DXPC_OBJECT, {1});
    uint32_t stateType = effect.type(D3DXPT_TEXTURE, D3DXPC_OBJECT, effect.text("", false), 0);
    uint32_t samplerValue = effect.words({1, operation, 0, stateType, effect.words({2})});
    effect.parameterAt(effect.type(D3DXPT_SAMPLER2D, D3DXPC_OBJECT, effect.text("Smp"), 0), samplerValue);
    return effect;
}

// ps_2_0 code reading c0 with a constant table that binds "Scale" there. Words 3 on are the table.
Words shaderWithTable() {
    Words code{0xFFFF0200, 0xFFFE | (23u << 16), MAKEFOURCC('C', 'T', 'A', 'B'),
               28, 72, 0xFFFF0200, 1, 28, 0, 80,          // header: size, creator, version, constants, records, flags, target
               64, D3DXRS_FLOAT4, 1, 48, 0,               // "Scale": name, set and register, count, type, default
               D3DXPC_SCALAR | (D3DXPT_FLOAT << 16), 1 | (1 << 16), 1, 0};  // class and type, rows and columns, elements
    for (const char* text : {"Scale", "vexil", "ps_2_0"}) code = code + paddedWords(std::string(text, 8));
    return code + Words{0x02000001, 0x800F0800, 0xA0E40000, 0x0000FFFF};  // mov oC0, c0; end
}

TinyEffect shaderEffect(const Words& code) {
    TinyEffect effect = samplerEffect();
    effect.objectCount = 4;
    effect.parameter(D3DXPT_PIXELSHADER, "PS", D3DXPC_OBJECT, {3});
    effect.objectData(3, code);
    return effect;
}

// An expression moving literal 0 to output c0 through the operands given; the literal block holds
// one register (four doubles).
Words expression(const Words& source = {0, 1, 0}, const Words& output = {0, 4, 0},
                 uint32_t literalTag = MAKEFOURCC('C', 'L', 'I', 'T')) {
    Words instructions = Words{MAKEFOURCC('F', 'X', 'L', 'C'), 1, 0x10000001, 1} + source + output;
    return Words{0x46580200, 0xFFFE | (10u << 16), literalTag, 4, 0, 0, 0, 0, 0, 0, 0, 0,
                 0xFFFE | static_cast<uint32_t>(instructions.size() << 16)} +
           instructions + Words{0x0000FFFF};
}

}  // namespace

// Ours and Microsoft's compiled effects pass; no cut of ours does.
TEST(EffectFileCheck, CompiledEffectsPassAndEveryCutOfThemIsRefused) {
    for (const std::string& path : compiledEffects()) {
        Bytes bytes = fileBytes(path);
        ASSERT_FALSE(bytes.empty()) << path;
        EXPECT_TRUE(wellFormedPrefix(bytes)) << path;
        for (size_t length = path.find("fna") == std::string::npos ? 0 : bytes.size() - 1; length < bytes.size(); ++length)
            if (wellFormedPrefix(bytes, length)) {
                ADD_FAILURE() << path << " cut to " << length << " of " << bytes.size() << " bytes passes";
                break;
            }
    }
}

// Each rule of the check on the smallest effect that breaks it.
// A float wrapped in `levels` structs of one member each.
uint32_t nestedStruct(TinyEffect& e, int levels) {
    Words type{D3DXPT_FLOAT, D3DXPC_SCALAR, e.text("x"), e.text("", false), 0, 1, 1};
    for (int i = 0; i < levels; ++i) type = Words{D3DXPT_VOID, D3DXPC_STRUCT, e.text("s"), e.text("", false), 0, 1} + type;
    return e.words(type);
}

TEST(EffectFileCheck, EffectsBreakingOneRuleAreRefused) {
    const struct {
        const char* rule;
        std::function<void(TinyEffect&)> change;
        bool sound;
    } cases[] = {
        {"a sound effect", [](TinyEffect&) {}, true},
        {"D3DX files parameters by name", [](TinyEffect& e) { e.parameterAt(e.type(D3DXPT_FLOAT, D3DXPC_SCALAR, e.text("", false), 0, kScalarShape), e.words({0})); }, false},
        {"names end", [](TinyEffect& e) { e.parameterAt(e.type(D3DXPT_FLOAT, D3DXPC_SCALAR, e.text("X", false), 0, kScalarShape), e.words({0})); }, false},
        {"object 3 of 3", [](TinyEffect& e) { e.parameter(D3DXPT_TEXTURE, "Far", D3DXPC_OBJECT, {3}); }, false},
        {"an object named twice", [](TinyEffect& e) { e.objectCount = 4; e.parameter(D3DXPT_TEXTURE, "Again", D3DXPC_OBJECT, {1}); }, false},
        {"data for an object no value names", [](TinyEffect& e) { e.objectCount = 4; e.objectData(3, {0x6C6C6568, 0x6F}); }, false},
        {"string data", [](TinyEffect& e) { e.objectCount = 4; e.parameter(D3DXPT_STRING, "Note", D3DXPC_OBJECT, {3}); e.objectData(3, {0x6C6C6568, 0x6F}); }, true},
        {"shader code without its end", [](TinyEffect& e) { e.objectCount = 4; e.parameter(D3DXPT_PIXELSHADER, "PS", D3DXPC_OBJECT, {3}); e.objectData(3, {0xFFFF0200}); }, false},
        {"16 million empty elements", [](TinyEffect& e) { e.parameterAt(e.type(D3DXPT_VOID, D3DXPC_STRUCT, e.text("None"), 0x00FFFFFF, {0}), e.words({})); }, false},
        {"structs nested 16 deep", [](TinyEffect& e) { e.parameterAt(nestedStruct(e, 16), e.words({0})); }, true},
        {"structs nested 17 deep", [](TinyEffect& e) { e.parameterAt(nestedStruct(e, 17), e.words({0})); }, false},
        {"a struct without members", [](TinyEffect& e) { e.parameterAt(e.type(D3DXPT_VOID, D3DXPC_STRUCT, e.text("None"), 0, {0}), e.words({})); }, false},
        {"a struct member naming object 3 of 3", [](TinyEffect& e) {
             Words member{1, D3DXPT_TEXTURE, D3DXPC_OBJECT, e.text("Member"), e.text("", false), 0};
             e.parameterAt(e.type(D3DXPT_VOID, D3DXPC_STRUCT, e.text("Holder"), 0, member), e.words({3}));
         }, false},
        {"a pass setting the last state of D3DX's table", [](TinyEffect& e) { e.techniqueSetting(0xB2); }, true},
        {"a pass setting a state past D3DX's table", [](TinyEffect& e) { e.techniqueSetting(0xB3); }, false},
        {"a scalar of an object type", [](TinyEffect& e) { e.parameter(D3DXPT_TEXTURE, "T", D3DXPC_SCALAR, {0}, kScalarShape); }, false},
        {"a vector without columns", [](TinyEffect& e) { e.parameter(D3DXPT_FLOAT, "Wide", D3DXPC_VECTOR, {0}, {0, 1}); }, false},
        {"a sampler state that is its own block", [](TinyEffect& e) {
             uint32_t block = e.words({1, 0xB2, 0, e.type(D3DXPT_SAMPLER, D3DXPC_OBJECT, e.text("", false), 0)});
             e.words({block});
             e.parameterAt(e.type(D3DXPT_SAMPLER, D3DXPC_OBJECT, e.text("Loop"), 0), block);
         }, false},
        {"a resource naming a sampler's state", [](TinyEffect& e) { e.resource({kNone, 2, kNone, 0, 1}, std::string("Tex", 4)); }, true},
        {"Scale has no sampler states", [](TinyEffect& e) { e.resource({kNone, 0, kNone, 0, 1}, std::string("Tex", 4)); }, false},
        {"a sampler state that is not there", [](TinyEffect& e) { e.resource({kNone, 2, kNone, 1, 1}, std::string("Tex", 4)); }, false},
        {"a technique that is not there", [](TinyEffect& e) { e.resource({0, 0, kNone, 0, 1}, std::string("Tex", 4)); }, false},
    };
    for (const auto& c : cases) {
        TinyEffect effect = samplerEffect();
        c.change(effect);
        EXPECT_EQ(c.sound, effect.wellFormed()) << c.rule;
    }
    EXPECT_TRUE(samplerEffect(0xB2).wellFormed()) << "the last state of D3DX's table";
    EXPECT_FALSE(samplerEffect(0xB3).wellFormed()) << "one past it";
}

// D3DX walks the comments of shader code up to its end token and reads the constant table it
// finds by the offsets and counts inside it; the device walks the instructions by their lengths.
TEST(EffectFileCheck, ShaderCodeAndExpressionsAreCheckedAsD3DXAndTheDeviceRunThem) {
    const struct {
        size_t word;
        uint32_t value;
        bool sound;
    } cases[] = {
        {0, 0, true},
        {0, 0xFFFF03FF, true},            // ps_3_sw: the software models are 2.sw and 3.sw
        {0, 0xFFFF0301, false},           // there is no shader model 3.1
        {0, 0xFFFD0200, false},           // neither a vertex nor a pixel shader
        {1, 0xFFFE, false},               // an empty comment reads as a table of 4 GB
        {1, 0xFFFE | (200u << 16), false},  // past the end token
        {3, 32, false},                   // header size
        {4, 1000, false},                 // creator
        {6, 2, false},                    // constants
        {7, 80, false},                   // constant records
        {9, 88, false},                   // target
        {10, 88, false},                  // constant name
        {11, 7, false},                   // register set
        {13, 80, false},                  // type
        {15, 9, false},                   // class
        {12, 4, true},                    // register counts are D3DX's to clamp
        {10, 72, true},                   // a constant of no parameter is skipped
        {17, 0xFFFF, false},              // 65535 elements, where the parameter it names has one
        {15, D3DXPC_MATRIX_ROWS | (D3DXPT_INT << 16), true},  // D3DX converts and reshapes a value into
        {16, 1 | (4u << 16), true},       // registers of another type, class, rows or columns
        {25, 0x7FFFFFFF, false},          // an instruction 15 tokens long walks past the end token
        {25, 0x03000001, false},          // mov with three operand tokens
        {25, 0x02000031, false},          // no such opcode
        {26, 0x800F2800, false},          // an address token the length leaves out
    };
    for (const auto& c : cases) {
        Words code = shaderWithTable();
        if (c.word || c.value) code[c.word] = c.value;
        EXPECT_EQ(c.sound, shaderEffect(code).wellFormed()) << "word " << c.word << " = " << c.value;
    }

    // D3DX bounds the registers an expression reads directly, not those read through an address
    // register: it wraps those by their table's size, and fills the literal table unchecked.
    auto sound = [](Words code, size_t word = 0, uint32_t value = 0) {
        if (word) code[word] = value;
        return VexilDX9::isSoundEffectCode(reinterpret_cast<const uint8_t*>(code.data()), code.size() * 4,
                                           VexilDX9::CodeKind::Expression);
    };
    EXPECT_TRUE(sound(expression()));
    EXPECT_TRUE(sound(expression({1, 2, 0, 1, 0}))) << "literals through an input register";
    EXPECT_TRUE(sound(expression({1, 1, 0, 2, 0}))) << "inputs through a literal";
    EXPECT_FALSE(sound(expression({1, 2, 0, 7, 0}))) << "temporaries nothing writes";
    EXPECT_FALSE(sound(expression({0, 2, 4 << 14}))) << "an input one past the highest register";
    EXPECT_FALSE(sound(expression({0, 1, 0}, {0, 4, 0}, MAKEFOURCC('C', 'T', 'I', 'T')))) << "no literal block";
    EXPECT_FALSE(sound(expression({0, 1, 0}, {1, 2, 0, 4, 0}))) << "an output through an address register";
    EXPECT_FALSE(sound(expression(), 3, 2)) << "literals in part of a register";
    EXPECT_FALSE(sound(expression(), 3, 1000)) << "more literals than the block holds";
    EXPECT_FALSE(sound(expression(), 15, 0x10000005)) << "five components";
    EXPECT_FALSE(sound(expression(), 15, 0x10200001)) << "no such operation";
    EXPECT_FALSE(sound(expression(), 14, 2)) << "more instructions than the code holds";
}

// Inputs the damage campaign found passing the check and crashing D3DX or the device.
TEST(EffectFileCheck, DamageFoundByTheCampaignIsRefused) {
    const struct {
        const char* file;
        std::vector<std::pair<size_t, uint8_t>> bytes;
    } cases[] = {
        {"test-effects\\marks.fxo", {{4194, 0xFF}, {4195, 0xFF}, {4196, 0xFF}, {4197, 0x7F}}},
        {"fna\\AlphaTestEffect.fxb", {{4576, 0xFF}, {4577, 0xFF}, {4578, 0xFF}, {4579, 0xFF}, {5084, 1}}},
        {"fna\\SkinnedEffect.fxb", {{19273, 0x85}, {22606, 0x42}, {48125, 0x33}, {55429, 0x54}}},
    };
    for (const auto& c : cases) {
        bool sample = std::strncmp(c.file, "fna", 3) == 0;
        if (sample && vexiltest::samplesDir().empty()) continue;
        Bytes bytes = fileBytes(sample ? vexiltest::samplesDir() + "\\" + c.file : std::string(c.file));
        ASSERT_TRUE(VexilDX9::isWellFormedEffectBinary(bytes.data(), bytes.size())) << c.file;
        for (const auto& edit : c.bytes) bytes.at(edit.first) = edit.second;
        EXPECT_FALSE(VexilDX9::isWellFormedEffectBinary(bytes.data(), bytes.size())) << c.file;
    }
}

TEST_F(EffectTest, HandLaidEffectsLoadAsTheCheckReadsThem) {
    TinyEffect tiny = shaderEffect(shaderWithTable());
    tiny.resource({kNone, 2, kNone, 0, 1}, std::string("Tex", 4));
    Effect effect;
    ASSERT_TRUE(effect.load(writeFile("tiny.fxo", tiny.bytes()).c_str(), deviceHolder()));
    EXPECT_EQ(4u, effect.numParameters());
    float scale = 0.0f;
    EXPECT_EQ(D3D_OK, effect.effect()->GetFloat("Scale", &scale));
    EXPECT_EQ(2.0f, scale);
}
