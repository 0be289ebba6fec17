#include "ShaderValidator.h"
#include "ShaderCode.h"
#include "ShaderRules.h"
#include <windows.h>
#include <d3d9types.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <functional>
#include <map>
#include <set>

namespace fxc {
namespace {

// The rules as errors name them.
const char kModelRule[] = "shader model";
const char kInstructionSet[] = "instruction set";
const char kRegisterKind[] = "register kind";
const char kRegisterRange[] = "register range";
const char kReadPorts[] = "read ports";
const char kRelative[] = "relative addressing";
const char kDeclaration[] = "declaration";
const char kSlots[] = "instruction slots";
const char kFlow[] = "flow control";
const char kOperands[] = "operands";
const char kModifiers[] = "modifiers";
const char kOutputs[] = "outputs";
const char kUninitialised[] = "temporary registers";
const char kDependentReads[] = "dependent reads";

// Source modifiers of the token stream (D3DSPSM_* >> 24) and destination modifiers (D3DSPDM_* >> 20).
const uint32_t kNegate = 1, kAbs = 11, kAbsNegate = 12, kNot = 13;
const uint32_t kSaturate = 1, kPartialPrecision = 2, kCentroid = 4;
const uint32_t kIdentity = 0xE4;
// The swizzles ps_2_0 offers besides .xyzw and the replicates: .yzxw, .zxyw, .wzyx.
const uint32_t kPs20Swizzles[] = {0xC9, 0xD2, 0x1B};

// Character classes of the asm text, ASCII only (the C library's take a call per character).
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isAlphanumeric(char c) { return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Reads the asm text as the assembler splits it into instructions: an optional predicate in
// parentheses, an opcode, then operands separated by commas; line breaks do not matter.
class AsmScanner {
public:
    AsmScanner(const std::string& text, int firstLine) : m_text(text), m_line(firstLine) {}

    bool atEnd() {
        skipBlank();
        return m_position >= m_text.size();
    }

    // The next opcode and its line; false when there is none.
    bool opcode(std::string& name, int& line) {
        skipBlank();
        if (peek() == '(') {
            size_t close = m_text.find(')', m_position);
            countLines(close == std::string::npos ? m_text.size() : close + 1);
            skipBlank();
        }
        line = m_line;
        size_t start = m_position;
        if (!word()) return false;
        name.assign(m_text, start, m_position - start);
        return true;
    }

    // Reads past `count` operands; `first`, when given, takes the register the first one names.
    bool operands(size_t count, std::string* first) {
        for (size_t i = 0; i < count; ++i) {
            skipBlank();
            if (i > 0 && peek() != ',') return false;
            if (i > 0) ++m_position;
            size_t start = skipSign();
            if (!operand()) return false;
            if (i == 0 && first) *first = registerName(start);
        }
        return true;
    }

private:
    char peek() const { return m_position < m_text.size() ? m_text[m_position] : '\0'; }

    void skipToLineEnd() {
        while (m_position < m_text.size() && m_text[m_position] != '\n') ++m_position;
    }

    void countLines(size_t end) {
        for (size_t i = m_position; i < end; ++i) m_line += m_text[i] == '\n';
        m_position = end;
    }

    void skipBlank() {
        while (m_position < m_text.size()) {
            char c = m_text[m_position], after = m_position + 1 < m_text.size() ? m_text[m_position + 1] : '\0';
            if (c == '\n') {
                ++m_line;
                ++m_position;
            } else if (isBlank(c)) {
                ++m_position;
            } else if (c == ';' || c == '#' || (c == '/' && after == '/')) {
                skipToLineEnd();
            } else if (c == '/' && after == '*') {
                size_t end = m_text.find("*/", m_position + 2);
                countLines(end == std::string::npos ? m_text.size() : end + 2);
            } else {
                return;
            }
        }
    }

    static bool isWordCharacter(char c) { return isAlphanumeric(c) || c == '_' || c == '.'; }

    // A register name, an opcode or a number (an exponent's sign included).
    bool word() {
        size_t start = m_position;
        while (m_position < m_text.size()) {
            char c = m_text[m_position];
            bool exponentSign = (c == '-' || c == '+') && m_position > start && lowerCase(m_text[m_position - 1]) == 'e' &&
                                (isDigit(m_text[start]) || m_text[start] == '.');
            if (!isWordCharacter(c) && !exponentSign) break;
            ++m_position;
        }
        return m_position > start;
    }

    size_t skipSign() {
        skipBlank();
        if (peek() == '-' || peek() == '+' || peek() == '!') {
            ++m_position;
            skipBlank();
        }
        return m_position;
    }

    bool operand() {
        if (!word()) return false;
        if (peek() != '[') return true;
        size_t close = m_text.find(']', m_position);
        if (close == std::string::npos) return false;
        countLines(close + 1);
        word();  // a swizzle or modifier after the brackets
        return true;
    }

    std::string registerName(size_t start) const {
        std::string name;
        for (size_t i = start; i < m_text.size() && isAlphanumeric(m_text[i]); ++i) name += lowerCase(m_text[i]);
        return name;
    }

    const std::string& m_text;
    size_t m_position = 0;
    int m_line;
};

bool isSetup(uint32_t opcode) {
    return opcode == D3DSIO_DCL || opcode == D3DSIO_DEF || opcode == D3DSIO_DEFI || opcode == D3DSIO_DEFB;
}

bool equalsNoCase(const std::string& text, size_t length, const char* word) {
    if (text.size() < length || std::strlen(word) != length) return false;
    for (size_t i = 0; i < length; ++i)
        if (lowerCase(text[i]) != word[i]) return false;
    return true;
}

// Operands of a declaration or definition as written; 0 for other opcodes.
size_t setupOperands(const std::string& opcode) {
    if (equalsNoCase(opcode, 3, "dcl")) return 1;
    if (equalsNoCase(opcode, opcode.size(), "def") || equalsNoCase(opcode, opcode.size(), "defi")) return 5;
    return equalsNoCase(opcode, opcode.size(), "defb") ? 2 : 0;
}

struct SetupLine {
    std::string reg;
    int line;
    bool used;
};

// Where each instruction of the text stands: the version first, then the assembled instructions.
struct SourceLines {
    std::vector<int> lines;  // empty when the text did not read as expected
    int lateSetup = 0;       // the line of a declaration or definition after an instruction, if any
};

// The line of the version and of each instruction. The assembler may emit declarations and
// definitions in an order of its own, so those are found by the register they name; the rest
// follow the text's order. Empty when the text does not read as expected (macros of the
// assembler's own, say): errors then point at the asm block.
SourceLines instructionLines(const std::string& text, const ShaderCode& code, int firstLine,
                             const std::function<std::string(const ShaderOperand&)>& nameOf) {
    AsmScanner scanner(text, firstLine);
    std::string opcode, first;
    int versionLine = 0;
    SourceLines result;
    if (!scanner.opcode(opcode, versionLine)) return result;
    std::vector<SetupLine> setup;
    std::vector<int> executable;
    size_t next = 0;
    while (!scanner.atEnd()) {
        int line = 0;
        if (!scanner.opcode(opcode, line)) return result;
        size_t operands = setupOperands(opcode);
        bool declaration = operands != 0;
        if (!declaration) {
            while (next < code.instructions.size() && isSetup(code.instructions[next].opcode)) ++next;
            if (next == code.instructions.size()) return result;
            operands = code.instructions[next++].writtenOperands;
            executable.push_back(line);
        } else if (!executable.empty() && !result.lateSetup) {
            result.lateSetup = line;
        }
        if (!scanner.operands(operands, declaration ? &first : nullptr)) return result;
        if (declaration) setup.push_back({first, line, false});
    }
    std::vector<int> lines{versionLine};
    size_t executed = 0;
    for (const ShaderInstruction& instruction : code.instructions) {
        if (!isSetup(instruction.opcode)) {
            if (executed == executable.size()) return result;
            lines.push_back(executable[executed++]);
            continue;
        }
        std::string name = nameOf(instruction.destination);
        for (char& c : name) c = lowerCase(c);
        auto found = std::find_if(setup.begin(), setup.end(), [&](const SetupLine& s) { return !s.used && s.reg == name; });
        if (found == setup.end()) return result;
        found->used = true;
        lines.push_back(found->line);
    }
    if (executed == executable.size()) result.lines = lines;
    return result;
}

std::string maskText(uint32_t mask) {
    std::string text = ".";
    for (int i = 0; i < 4; ++i)
        if (mask & (1u << i)) text += "xyzw"[i];
    return text;
}

bool isTextureSample(uint32_t opcode) {
    return opcode == D3DSIO_TEX || opcode == D3DSIO_TEXLDL || opcode == D3DSIO_TEXLDD;
}

struct Block {
    uint32_t opcode;
    size_t at;
    bool dynamic;
    bool hasElse;
};

struct Call {
    uint32_t label;
    size_t at;
    int routine;  // -1: the main program
};

class Validator {
public:
    Validator(const ShaderCode& code, const ShaderModel& model, const SourceLocation& where)
        : m_code(code), m_model(model), m_where(where) {}

    // Finds the lines of the instructions; the assembler moves declarations to the front, so
    // their order is checked in the text.
    void locate(const std::string& text) {
        SourceLines found =
            instructionLines(text, m_code, m_where.line, [this](const ShaderOperand& operand) { return nameOf(operand); });
        m_lines = found.lines;
        if (found.lateSetup) {
            SourceLocation located = m_where;
            located.line = found.lateSetup;
            throw CompileError(located, std::string(kDeclaration) + ": declarations and definitions come before the "
                                                                    "first instruction");
        }
    }

    void run() {
        countSubroutineWrites();
        for (m_at = 0; m_at < m_code.instructions.size(); ++m_at) check(m_code.instructions[m_at]);
        finish();
    }

private:
    static const size_t kWholeShader = static_cast<size_t>(-1);

    [[noreturn]] void failAt(size_t at, const char* rule, const std::string& message) const {
        SourceLocation located = m_where;
        size_t line = at == kWholeShader ? 0 : at + 1;
        if (line < m_lines.size()) located.line = m_lines[line];
        throw CompileError(located, std::string(rule) + ": " + message);
    }
    [[noreturn]] void fail(const char* rule, const std::string& message) const { failAt(m_at, rule, message); }

    // ---- names ---------------------------------------------------------------------------------
    const char* pattern(uint32_t kind) const {
        if (const RegisterRule* rule = m_model.registerRule(kind)) return rule->name;
        switch (kind) {
        case D3DSPR_TEMP: return "r#";
        case D3DSPR_INPUT: return "v#";
        case D3DSPR_CONST: return "c#";
        case D3DSPR_ADDR: return m_model.vertex ? "a0" : "t#";
        case D3DSPR_RASTOUT: return "oPos";
        case D3DSPR_ATTROUT: return "oD#";
        case D3DSPR_OUTPUT: return m_model.vertex ? "oT#" : "o#";
        case D3DSPR_CONSTINT: return "i#";
        case D3DSPR_COLOROUT: return "oC#";
        case D3DSPR_DEPTHOUT: return "oDepth";
        case D3DSPR_SAMPLER: return "s#";
        case D3DSPR_CONSTBOOL: return "b#";
        case D3DSPR_LOOP: return "aL";
        case D3DSPR_MISCTYPE: return "vPos";
        case D3DSPR_LABEL: return "l#";
        case D3DSPR_PREDICATE: return "p0";
        default: return "register#";
        }
    }

    std::string nameOf(uint32_t kind, uint32_t index) const {
        if (kind == D3DSPR_RASTOUT && index < 3) return index == 0 ? "oPos" : index == 1 ? "oFog" : "oPts";
        if (kind == D3DSPR_MISCTYPE && index < 2) return index == 0 ? "vPos" : "vFace";
        std::string name = pattern(kind);
        size_t hash = name.find('#');
        return hash == std::string::npos ? name : name.replace(hash, 1, std::to_string(index));
    }
    std::string nameOf(const ShaderOperand& operand) const { return nameOf(operand.kind, operand.index); }

    std::string instructionName(const ShaderInstruction& instruction) const {
        const InstructionRule* rule = findInstruction(instruction.opcode, instruction.controls);
        return rule ? rule->name : "opcode " + std::to_string(instruction.opcode);
    }

    // ---- one instruction -------------------------------------------------------------------------
    void check(const ShaderInstruction& assembled) {
        const InstructionRule* rule = findInstruction(assembled.opcode, assembled.controls);
        if (!rule || !m_model.is(rule->models))
            fail(kInstructionSet, instructionName(assembled) + " is not an instruction of " + m_model.name);
        if (assembled.opcode != D3DSIO_TEXKILL) return checkInstruction(*rule, assembled);
        // texkill names the register it tests where other instructions name their destination.
        ShaderInstruction instruction = assembled;
        ShaderOperand tested = instruction.destination;
        tested.swizzle = kIdentity;
        tested.modifier = 0;
        instruction.sources.assignOne(tested);
        instruction.hasDestination = false;
        checkInstruction(*rule, instruction);
    }

    void checkInstruction(const InstructionRule& rule, const ShaderInstruction& instruction) {
        checkPlacement(rule, instruction);
        if (instruction.sources.size() < minimumSources(instruction.opcode))
            fail(kOperands, std::string(rule.name) + " lacks operands");
        if (instruction.opcode == D3DSIO_DCL) return declare(instruction);
        countSlots(rule, instruction);
        if (rule.kind == InstructionKind::Setup) return checkDefinition(rule, instruction);
        if (instruction.predicated) checkPredicate(rule, instruction);
        if (instruction.hasDestination) checkDestination(rule, instruction);
        for (size_t i = 0; i < instruction.sources.size(); ++i) checkSource(rule, instruction, i);
        checkReadPorts(rule, instruction);
        checkOperands(rule, instruction);
        if (m_model.is(kPs20 | kPs2x)) trackDependentReads(rule, instruction);
        recordTemporaryWrite(instruction);
        checkFlow(rule, instruction);
        if (!m_model.vertex) checkPixelOutput(rule, instruction);
    }

    // Sources the checks below rely on; the assembler gives at least these.
    static size_t minimumSources(uint32_t opcode) {
        switch (opcode) {
        case D3DSIO_NOP: case D3DSIO_RET: case D3DSIO_ENDLOOP: case D3DSIO_ENDREP: case D3DSIO_ELSE:
        case D3DSIO_ENDIF: case D3DSIO_BREAK: case D3DSIO_DCL: case D3DSIO_DEF: case D3DSIO_DEFI: case D3DSIO_DEFB:
            return 0;
        case D3DSIO_CALLNZ: case D3DSIO_LOOP: case D3DSIO_IFC: case D3DSIO_BREAKC: case D3DSIO_TEX: case D3DSIO_TEXLDL:
        case D3DSIO_SETP:
            return 2;
        default:
            return 1;
        }
    }

    void checkPlacement(const InstructionRule& rule, const ShaderInstruction& instruction) {
        if (rule.kind == InstructionKind::Setup) {
            if (m_executableSeen)
                fail(kDeclaration, std::string(rule.name) + " comes after the first instruction; declarations and "
                                   "definitions come first");
            return;
        }
        if (instruction.opcode == D3DSIO_LABEL && m_previous != D3DSIO_RET)
            fail(kFlow, "a label must directly follow ret");
        if (m_previous == D3DSIO_RET && instruction.opcode != D3DSIO_LABEL)
            fail(kFlow, std::string(rule.name) + " follows ret; only a label may");
        m_executableSeen = true;
        m_previous = instruction.opcode;
    }

    void countSlots(const InstructionRule& rule, const ShaderInstruction& instruction) {
        uint32_t slots = rule.slots;
        if (m_model.is(kVs30 | kPs30)) slots = samplesCube(instruction) ? rule.cubeSlots30 : rule.slots30;
        bool texture = m_model.textureSlots && rule.kind == InstructionKind::Texture;
        uint32_t& apart = texture ? m_textureSlots : m_otherSlots;
        uint32_t share = texture ? m_model.textureSlots : m_model.slots - m_model.textureSlots;
        apart += slots;
        m_slots += slots;
        if (m_model.textureSlots && apart > share)
            fail(kSlots, std::string(rule.name) + " needs " + (texture ? "texture" : "arithmetic") + " slot " +
                             std::to_string(apart) + "; " + m_model.name + " has " + std::to_string(share));
        if (m_slots > m_model.slots)
            fail(kSlots, std::string(rule.name) + " needs slot " + std::to_string(m_slots) + "; " + m_model.name +
                             " has " + std::to_string(m_model.slots));
    }

    // ---- declarations and definitions ----------------------------------------------------------
    const RegisterRule& registerRule(const ShaderOperand& operand) const {
        const RegisterRule* rule = m_model.registerRule(operand.kind);
        if (!rule) fail(kRegisterKind, std::string(m_model.name) + " has no " + pattern(operand.kind) + " registers");
        if (operand.index >= rule->count)
            fail(kRegisterRange, nameOf(operand) + " is past the " + std::to_string(rule->count) + " " + rule->name +
                                     " registers of " + m_model.name);
        return *rule;
    }

    void declare(const ShaderInstruction& instruction) {
        const ShaderOperand& target = instruction.destination;
        const RegisterRule& rule = registerRule(target);
        if (!rule.declared) fail(kDeclaration, std::string(rule.name) + " registers take no dcl in " + m_model.name);
        uint32_t key = target.kind << 16 | target.index;
        if (target.kind == D3DSPR_SAMPLER) return declareSampler(instruction, key);
        if (m_declared[key] & target.mask) fail(kDeclaration, nameOf(target) + maskText(target.mask) + " is declared twice");
        m_declared[key] |= target.mask;
        if (target.kind == D3DSPR_MISCTYPE && target.index == 0 && target.mask != 1 && target.mask != 2 && target.mask != 3)
            fail(kDeclaration, "vPos is declared with .x, .y or .xy");
        bool semantic = m_model.vertex || m_model.is(kPs30);
        if (!semantic || target.kind == D3DSPR_MISCTYPE) return;
        uint32_t usage = instruction.declaration & D3DSP_DCL_USAGE_MASK;
        uint32_t usageIndex = (instruction.declaration & D3DSP_DCL_USAGEINDEX_MASK) >> D3DSP_DCL_USAGEINDEX_SHIFT;
        if (!m_semantics.insert(target.kind << 16 | usage << 8 | usageIndex).second)
            fail(kDeclaration, nameOf(target) + " repeats a semantic already declared");
        bool positionOutput = target.kind == D3DSPR_OUTPUT && usage == D3DDECLUSAGE_POSITION && usageIndex == 0;
        bool pointSize = target.kind == D3DSPR_OUTPUT && usage == D3DDECLUSAGE_PSIZE;
        if ((positionOutput || pointSize) && target.mask != 0xF)
            fail(kDeclaration, nameOf(target) + " declares a position or point size with all four components");
        m_positionDeclared = m_positionDeclared || positionOutput;
    }

    void declareSampler(const ShaderInstruction& instruction, uint32_t key) {
        uint32_t type = instruction.declaration & D3DSP_TEXTURETYPE_MASK;
        if (type != D3DSTT_2D && type != D3DSTT_CUBE && type != D3DSTT_VOLUME)
            fail(kDeclaration, nameOf(instruction.destination) + " is declared as a 2d, cube or volume sampler");
        if (m_declared.count(key)) fail(kDeclaration, nameOf(instruction.destination) + " is declared twice");
        m_declared[key] = type;
    }

    void checkDefinition(const InstructionRule& rule, const ShaderInstruction& instruction) {
        const ShaderOperand& target = instruction.destination;
        registerRule(target);
        uint32_t expected = instruction.opcode == D3DSIO_DEF ? D3DSPR_CONST
                            : instruction.opcode == D3DSIO_DEFI ? D3DSPR_CONSTINT : D3DSPR_CONSTBOOL;
        if (target.kind != expected) fail(kOperands, std::string(rule.name) + " cannot define " + nameOf(target));
        if (target.mask != 0xF) fail(kOperands, std::string(rule.name) + " takes no write mask");
    }

    // The dimension a sample from the operand's sampler needs: 2 for 2d, 3 for cube and volume.
    uint32_t samplerType(const ShaderOperand& sampler) const {
        auto found = m_declared.find(sampler.kind << 16 | sampler.index);
        return found == m_declared.end() ? 0 : found->second;
    }
    bool samplesCube(const ShaderInstruction& instruction) const {
        return isTextureSample(instruction.opcode) && instruction.sources.size() > 1 &&
               samplerType(instruction.sources[1]) == D3DSTT_CUBE;
    }

    // ---- operands --------------------------------------------------------------------------------
    void checkPredicate(const InstructionRule& rule, const ShaderInstruction& instruction) {
        if (!m_model.registerRule(D3DSPR_PREDICATE)) fail(kInstructionSet, std::string("predication is not part of ") + m_model.name);
        if (rule.kind == InstructionKind::Flow) fail(kFlow, std::string(rule.name) + " cannot be predicated");
        const ShaderOperand& predicate = instruction.predicate;
        if (predicate.kind != D3DSPR_PREDICATE) fail(kRegisterKind, "instructions are predicated on p0");
        registerRule(predicate);
        bool replicate = predicate.isReplicate();
        bool sincos2 = instruction.opcode == D3DSIO_SINCOS && !m_model.is(kVs30 | kPs30);
        if (!(replicate || (predicate.swizzle == kIdentity && !sincos2)))
            fail(kOperands, std::string("the predicate of ") + rule.name + " takes " +
                                (sincos2 ? "a replicate swizzle" : "no swizzle or a replicate one"));
    }

    void checkDestination(const InstructionRule& rule, const ShaderInstruction& instruction) {
        const ShaderOperand& target = instruction.destination;
        const RegisterRule& registers = registerRule(target);
        if (!registers.writable) fail(kRegisterKind, nameOf(target) + " cannot be written");
        if (target.relative) checkAddress(registers, target);
        bool toAddress = target.kind == D3DSPR_ADDR && m_model.vertex, toPredicate = target.kind == D3DSPR_PREDICATE;
        if (toAddress != (instruction.opcode == D3DSIO_MOVA)) fail(kOperands, "only mova writes a0, and only a0");
        if (toPredicate != (instruction.opcode == D3DSIO_SETP)) fail(kOperands, "only setp writes p0, and only p0");
        if (target.shift) fail(kModifiers, "result shifts belong to ps_1_x");
        if ((target.modifier & kSaturate) && (rule.flags & kNoSaturate)) fail(kModifiers, std::string(rule.name) + " takes no _sat");
        if ((target.modifier & kSaturate) && m_model.is(kVs20 | kVs2x)) fail(kModifiers, "_sat needs vs_3_0");
        if ((target.modifier & kPartialPrecision) && m_model.vertex) fail(kModifiers, "_pp belongs to pixel shaders");
        if ((target.modifier & kCentroid) && rule.kind != InstructionKind::Texture)
            fail(kModifiers, "_centroid goes on declarations and texture instructions");
        if (((rule.masks >> target.mask) & 1) == 0)
            fail(kOperands, std::string(rule.name) + " cannot write " + maskText(target.mask));
        if ((rule.flags & kTemporaryDestination) && target.kind != D3DSPR_TEMP)
            fail(kOperands, std::string(rule.name) + " writes a temporary register, not " + nameOf(target));
        if (registers.declared && !target.relative) {
            uint32_t declared = m_declared[target.kind << 16 | target.index];
            if (target.mask & ~declared)
                fail(kDeclaration, nameOf(target) + maskText(target.mask) + " is written but " +
                                       (declared ? "declared " + maskText(declared) : std::string("not declared")));
        }
    }

    void checkAddress(const RegisterRule& registers, const ShaderOperand& operand) const {
        uint8_t by = operand.addressKind == D3DSPR_LOOP ? kByLoop : operand.addressKind == D3DSPR_ADDR ? kByA0 : 0;
        if ((registers.indexedBy & by) == 0)
            fail(kRelative, nameOf(operand) + " cannot be indexed by " + nameOf(operand.addressKind, operand.addressIndex) +
                                " in " + m_model.name);
        if (by == kByLoop && !insideLoop()) fail(kFlow, "aL is used outside a loop");
    }

    // The register kinds an instruction reads at a position; values are temporaries, inputs,
    // constants, texture coordinates and vPos/vFace.
    bool readsKind(const ShaderInstruction& instruction, size_t position, uint32_t kind) const {
        switch (instruction.opcode) {
        case D3DSIO_IF: return kind == D3DSPR_CONSTBOOL || kind == D3DSPR_PREDICATE;
        case D3DSIO_CALLNZ: return position == 0 ? kind == D3DSPR_LABEL : kind == D3DSPR_CONSTBOOL || kind == D3DSPR_PREDICATE;
        case D3DSIO_CALL: case D3DSIO_LABEL: return kind == D3DSPR_LABEL;
        case D3DSIO_LOOP: return position == 0 ? kind == D3DSPR_LOOP : kind == D3DSPR_CONSTINT;
        case D3DSIO_REP: return kind == D3DSPR_CONSTINT;
        case D3DSIO_BREAKP: return kind == D3DSPR_PREDICATE;
        default: break;
        }
        if (isTextureSample(instruction.opcode) && position == 1) return kind == D3DSPR_SAMPLER;
        return kind == D3DSPR_TEMP || kind == D3DSPR_INPUT || kind == D3DSPR_CONST || kind == D3DSPR_MISCTYPE ||
               (kind == D3DSPR_TEXTURE && !m_model.vertex);
    }

    void checkSource(const InstructionRule& rule, const ShaderInstruction& instruction, size_t position) {
        const ShaderOperand& source = instruction.sources[position];
        const RegisterRule& registers = registerRule(source);
        if (!registers.readPorts) fail(kRegisterKind, nameOf(source) + " cannot be read");
        if (!readsKind(instruction, position, source.kind))
            fail(kRegisterKind, std::string(rule.name) + " cannot read " + nameOf(source) + " there");
        if (source.relative) checkAddress(registers, source);
        checkSourceModifier(source);
        checkSwizzle(rule, instruction, position);
        if (source.kind == D3DSPR_TEMP && !source.relative) checkTemporaryRead(rule, instruction, position);
        if (source.kind == D3DSPR_CONST && m_model.is(kVs30 | kPs30)) checkConstantAbs(source);
        if (!registers.declared || source.relative) return;
        auto declared = m_declared.find(source.kind << 16 | source.index);
        if (declared == m_declared.end()) fail(kDeclaration, nameOf(source) + " is read without a dcl");
        uint32_t read = componentsRead(rule, instruction, position);
        if (source.kind != D3DSPR_SAMPLER && (read & ~declared->second))
            fail(kDeclaration, std::string(rule.name) + " reads " + nameOf(source) + maskText(read) + " but " +
                                   maskText(declared->second) + " is declared");
    }

    void checkSourceModifier(const ShaderOperand& source) const {
        uint32_t modifier = source.modifier;
        if (modifier == 0 || modifier == kNegate) return;
        if (modifier == kNot && (source.kind == D3DSPR_CONSTBOOL || source.kind == D3DSPR_PREDICATE)) return;
        if (modifier == kAbs || modifier == kAbsNegate) {
            if (!m_model.is(kVs30 | kPs30)) fail(kModifiers, std::string("_abs needs a 3_0 model, not ") + m_model.name);
            return;
        }
        fail(kModifiers, nameOf(source) + " carries a source modifier of ps_1_x");
    }

    // Every read of a constant float register takes _abs, or none does (3_0 models).
    void checkConstantAbs(const ShaderOperand& source) {
        int abs = source.modifier == kAbs || source.modifier == kAbsNegate ? 1 : 2;
        if (m_constantAbs && m_constantAbs != abs)
            fail(kModifiers, "either every read of a constant register takes _abs or none does");
        m_constantAbs = abs;
    }

    void checkSwizzle(const InstructionRule& rule, const ShaderInstruction& instruction, size_t position) const {
        const ShaderOperand& source = instruction.sources[position];
        bool replicate = source.isReplicate(), identity = source.swizzle == kIdentity;
        bool wantsReplicate = (rule.flags & kReplicateSources) || source.kind == D3DSPR_PREDICATE ||
                              (instruction.opcode == D3DSIO_SINCOS && position == 0) ||
                              (instruction.opcode == D3DSIO_DP2ADD && position == 2);
        if (wantsReplicate && !replicate) fail(kOperands, std::string(rule.name) + " reads " + nameOf(source) + " with a replicate swizzle (.x, .y, .z or .w)");
        if ((rule.flags & kScalarSources) && !replicate && !identity)
            fail(kOperands, std::string(rule.name) + " reads one component of " + nameOf(source));
        bool fixed = (rule.flags & kDefaultSwizzles) || ((rule.flags & kMatrixMultiply) && position == 1);
        if (fixed && !identity) fail(kOperands, std::string(rule.name) + " takes " + nameOf(source) + " without a swizzle");
        if ((rule.flags & kMatrixMultiply) && position == 1 && source.modifier != 0)
            fail(kOperands, std::string(rule.name) + " cannot negate its matrix");
        if (!m_model.is(kPs20) || replicate || identity) return;
        for (uint32_t allowed : kPs20Swizzles)
            if (source.swizzle == allowed) return;
        fail(kOperands, "ps_2_0 offers no arbitrary swizzles: .xyzw, .x .y .z .w, .yzxw, .zxyw and .wzyx only");
    }

    // ---- temporaries written before they are read ------------------------------------------------
    // The runtime refuses a shader that reads a component of r# no earlier instruction wrote. Earlier
    // means in the text; a subroutine's writes count as made before the main program, which may
    // call it before it reads what the routine left.
    void countSubroutineWrites() {
        bool inRoutine = false;
        for (const ShaderInstruction& instruction : m_code.instructions) {
            inRoutine = inRoutine || instruction.opcode == D3DSIO_LABEL;
            if (inRoutine) recordTemporaryWrite(instruction);
        }
    }

    void recordTemporaryWrite(const ShaderInstruction& instruction) {
        const ShaderOperand& target = instruction.destination;
        if (instruction.hasDestination && target.kind == D3DSPR_TEMP && !isSetup(instruction.opcode))
            m_temporariesWritten[target.index] |= target.mask;
    }

    void checkTemporaryRead(const InstructionRule& rule, const ShaderInstruction& instruction, size_t position) const {
        const ShaderOperand& source = instruction.sources[position];
        bool matrixRows = (rule.flags & kMatrixMultiply) && position == 1;
        uint32_t read = matrixRows ? (1u << rule.vectorSize) - 1 : temporaryComponentsRead(rule, instruction, position);
        uint32_t rows = matrixRows ? rule.matrixRows : 1;
        for (uint32_t row = 0; row < rows; ++row) {
            auto written = m_temporariesWritten.find(source.index + row);
            uint32_t missing = read & ~(written == m_temporariesWritten.end() ? 0u : written->second);
            if (missing)
                fail(kUninitialised, std::string(rule.name) + " reads " + nameOf(D3DSPR_TEMP, source.index + row) +
                                         maskText(missing) + " before any instruction writes it");
        }
    }

    // ---- dependent texture reads (ps 2) ------------------------------------------------------------
    // Without the no-limit cap a texture instruction may be dependent to the third order. One is of
    // the first order when it samples at r# or writes an r# already written; of order n + 1 when it
    // reads or overwrites an r# whose contents come, perhaps indirectly, from one of order n. Each
    // written r# keeps the highest order its contents come from.
    static const int kMostDependentOrder = 3;

    int dependentLevel(const ShaderOperand& operand) const {
        if (operand.kind != D3DSPR_TEMP) return 0;
        auto found = m_dependentLevels.find(operand.index);
        return found == m_dependentLevels.end() ? 0 : found->second;
    }

    void trackDependentReads(const InstructionRule& rule, const ShaderInstruction& instruction) {
        if (!instruction.hasDestination || instruction.destination.kind != D3DSPR_TEMP) return;
        const ShaderOperand& target = instruction.destination;
        const bool rewritten = m_dependentLevels.count(target.index) != 0;
        int level = 0;
        if (rule.kind == InstructionKind::Texture && instruction.opcode != D3DSIO_TEXKILL) {
            const ShaderOperand& coordinates = instruction.sources[0];
            for (int touched : {dependentLevel(coordinates), dependentLevel(target)})
                if (touched) level = std::max(level, touched + 1);
            if (coordinates.kind == D3DSPR_TEMP || rewritten) level = std::max(level, 1);
            if (level > kMostDependentOrder)
                fail(kDependentReads, std::string(rule.name) + " is a dependent read of order " + std::to_string(level) +
                                          "; " + m_model.name + " allows " + std::to_string(kMostDependentOrder));
        } else {
            for (size_t i = 0; i < instruction.sources.size(); ++i)
                level = std::max(level, dependentLevel(instruction.sources[i]));
            // Components the instruction leaves keep what they came from.
            if (target.mask != 0xF || instruction.predicated) level = std::max(level, dependentLevel(target));
        }
        m_dependentLevels[target.index] = level;
    }

    // lit and dst leave some components of their sources unread.
    uint32_t temporaryComponentsRead(const InstructionRule& rule, const ShaderInstruction& instruction, size_t position) const {
        const ShaderOperand& source = instruction.sources[position];
        uint32_t positions = instruction.opcode == D3DSIO_LIT ? 0xB           // x, y, w
                             : instruction.opcode == D3DSIO_DST ? (position == 0 ? 0x6 : 0xA)  // y, z | y, w
                                                                : 0;
        if (!positions) return componentsRead(rule, instruction, position);
        uint32_t mask = 0;
        for (int i = 0; i < 4; ++i)
            if (positions & (1u << i)) mask |= 1u << source.component(i);
        return mask;
    }

    uint32_t componentsRead(const InstructionRule& rule, const ShaderInstruction& instruction, size_t position) const {
        const ShaderOperand& source = instruction.sources[position];
        auto first = [&](uint32_t count) {
            uint32_t mask = 0;
            for (uint32_t i = 0; i < count && i < 4; ++i) mask |= 1u << source.component(static_cast<int>(i));
            return mask;
        };
        switch (rule.use) {
        case ComponentUse::PerComponent: {
            uint32_t written = instruction.hasDestination ? instruction.destination.mask : 0xF, mask = 0;
            for (int i = 0; i < 4; ++i)
                if (written & (1u << i)) mask |= 1u << source.component(i);
            return mask;
        }
        case ComponentUse::Dot2: return position == 2 ? first(1) : first(2);
        case ComponentUse::Dot3: return first(3);
        case ComponentUse::Scalar: return first(1);
        case ComponentUse::Matrix: return position == 0 ? first(rule.vectorSize) : first(4);
        case ComponentUse::Coordinates: return first(coordinatesNeeded(instruction, position));
        case ComponentUse::Whole: break;
        }
        return first(4);
    }

    // Coordinates a sample reads: the sampler's dimension, and w for texldp, texldb and texldl.
    uint32_t coordinatesNeeded(const ShaderInstruction& instruction, size_t position) const {
        uint32_t type = instruction.sources.size() > 1 ? samplerType(instruction.sources[1]) : 0;
        uint32_t dimension = type == D3DSTT_CUBE || type == D3DSTT_VOLUME ? 3 : 2;
        bool usesW = instruction.opcode == D3DSIO_TEXLDL || (instruction.opcode == D3DSIO_TEX && instruction.controls);
        return position == 0 && usesW ? 4 : dimension;
    }

    struct Read {
        uint32_t kind;
        uint32_t index;  // relatively addressed registers apart from the plain ones
    };
    // The predicate, the sources and the registers that index them.
    static const size_t kMostReads = 1 + 2 * SourceList::kCapacity;

    // Distinct registers of a kind one instruction reads, and reads of that kind in all.
    void checkReadPorts(const InstructionRule& rule, const ShaderInstruction& instruction) const {
        Read reads[kMostReads];
        size_t count = 0;
        if (instruction.predicated) reads[count++] = {instruction.predicate.kind, instruction.predicate.index};
        // The two constants of sincos in the 2 models are its own operands, not reads of the program.
        size_t counted = instruction.opcode == D3DSIO_SINCOS ? 1 : instruction.sources.size();
        for (size_t i = 0; i < counted; ++i) {
            const ShaderOperand& source = instruction.sources[i];
            reads[count++] = {source.kind, source.index | (source.relative ? 0x10000u : 0u)};
            if (source.relative) reads[count++] = {source.addressKind, source.addressIndex};
        }
        for (size_t i = 0; i < count; ++i) {
            auto sameKind = [&](const Read& read) { return read.kind == reads[i].kind; };
            if (std::none_of(reads, reads + i, sameKind)) checkReadsOfKind(rule, reads, count, reads[i].kind);
        }
    }

    void checkReadsOfKind(const InstructionRule& rule, const Read* reads, size_t count, uint32_t kind) const {
        const RegisterRule* registers = m_model.registerRule(kind);
        if (!registers) return;
        uint32_t distinct[kMostReads];
        size_t distinctCount = 0, readCount = 0;
        for (size_t i = 0; i < count; ++i) {
            if (reads[i].kind != kind) continue;
            ++readCount;
            if (std::find(distinct, distinct + distinctCount, reads[i].index) == distinct + distinctCount)
                distinct[distinctCount++] = reads[i].index;
        }
        if (distinctCount > registers->readPorts) {
            std::string names;
            for (size_t i = 0; i < distinctCount; ++i) names += (i ? ", " : "") + nameOf(kind, distinct[i] & 0xFFFF);
            fail(kReadPorts, std::string(rule.name) + " reads " + std::to_string(distinctCount) + " different " +
                                 registers->name + " registers (" + names + "); " + m_model.name + " reads " +
                                 std::to_string(registers->readPorts) + " per instruction");
        }
        if (registers->readsPerInstruction && readCount > registers->readsPerInstruction)
            fail(kReadPorts, std::string(rule.name) + " reads " + registers->name + " registers " +
                                 std::to_string(readCount) + " times; " + m_model.name + " allows " +
                                 std::to_string(registers->readsPerInstruction));
    }

    // Rules of single instructions that the flags do not cover.
    void checkOperands(const InstructionRule& rule, const ShaderInstruction& instruction) const {
        const SourceList& sources = instruction.sources;
        const ShaderOperand& target = instruction.destination;
        bool model3 = m_model.is(kVs30 | kPs30);
        for (size_t i = 0; i < sources.size() && (rule.flags & kDestinationNotSource); ++i) {
            bool rows = (rule.flags & kMatrixMultiply) && i == 1 && sources[i].kind == target.kind &&
                        target.index >= sources[i].index && target.index < sources[i].index + rule.matrixRows;
            if (sources[i].sameRegister(target) || rows)
                fail(kOperands, std::string(rule.name) + " cannot write " + nameOf(target) + ", which it reads");
        }
        if (instruction.opcode == D3DSIO_POW && sources.size() > 1 && sources[1].sameRegister(target))
            fail(kOperands, "pow cannot write its exponent's register " + nameOf(target));
        if (instruction.opcode == D3DSIO_SINCOS) checkSinCos(sources, model3);
        if (instruction.opcode == D3DSIO_TEX && !model3) checkTexld2(rule, instruction);
        if (isTextureSample(instruction.opcode) && sources.size() > 1 && sources[1].modifier)
            fail(kOperands, std::string(rule.name) + " takes its sampler without a modifier");
    }

    void checkSinCos(const SourceList& sources, bool model3) const {
        size_t expected = model3 ? 1 : 3;
        if (sources.size() != expected)
            fail(kOperands, std::string("sincos takes ") + std::to_string(expected) + " sources in " + m_model.name);
        if (!model3 && (sources[1].kind != D3DSPR_CONST || sources[2].kind != D3DSPR_CONST || sources[1].sameRegister(sources[2])))
            fail(kOperands, "sincos takes two different constant registers after the angle");
    }

    // texld, texldp and texldb of the 2 models: whole temporaries from t# or r#, nothing swizzled.
    void checkTexld2(const InstructionRule& rule, const ShaderInstruction& instruction) const {
        const ShaderOperand& coordinates = instruction.sources[0];
        if (instruction.destination.mask != 0xF) fail(kOperands, std::string(rule.name) + " writes all four components");
        if (coordinates.kind != D3DSPR_TEXTURE && coordinates.kind != D3DSPR_TEMP)
            fail(kOperands, std::string(rule.name) + " takes its coordinates from t# or r#");
        for (const ShaderOperand& source : instruction.sources)
            if (source.swizzle != kIdentity || source.modifier)
                fail(kOperands, std::string(rule.name) + " takes " + nameOf(source) + " without swizzle or modifier");
    }

    // ---- flow control ----------------------------------------------------------------------------
    bool insideLoop() const {
        for (const Block& block : m_blocks)
            if (block.opcode == D3DSIO_LOOP) return true;
        return false;
    }
    bool insideRepetition() const {
        for (const Block& block : m_blocks)
            if (block.opcode == D3DSIO_LOOP || block.opcode == D3DSIO_REP) return true;
        return false;
    }

    void deeper(uint32_t& depth, uint8_t limit, const char* what) const {
        if (limit && ++depth > limit)
            fail(kFlow, std::string(what) + " nested " + std::to_string(depth) + " deep; " + m_model.name + " allows " +
                            std::to_string(limit));
        if (!limit) ++depth;  // bounded by the static flow count alone
    }

    void countStaticFlow() {
        uint8_t limit = m_model.flow.staticFlowCount;
        if (limit && ++m_staticFlow > limit)
            fail(kFlow, "static flow control instruction " + std::to_string(m_staticFlow) + "; " + m_model.name +
                            " allows " + std::to_string(limit));
    }

    void open(uint32_t opcode, bool dynamic) { m_blocks.push_back({opcode, m_at, dynamic, false}); }

    void close(uint32_t opener, const char* name) {
        if (m_blocks.empty() || m_blocks.back().opcode != opener)
            fail(kFlow, std::string(name) + " closes no open block of its kind (blocks may not straddle)");
        Block block = m_blocks.back();
        m_blocks.pop_back();
        if (opener == D3DSIO_LOOP || opener == D3DSIO_REP) --m_loopDepth;
        else if (block.dynamic) --m_dynamicDepth;
        else --m_staticDepth;
    }

    void checkFlow(const InstructionRule& rule, const ShaderInstruction& instruction) {
        const FlowLimits& flow = m_model.flow;
        bool onPredicate = !instruction.sources.empty() && instruction.sources.back().kind == D3DSPR_PREDICATE;
        switch (instruction.opcode) {
        case D3DSIO_IF:
            open(D3DSIO_IF, onPredicate);
            if (onPredicate) {
                deeper(m_dynamicDepth, flow.dynamicNesting, "dynamic flow control");
            } else {
                deeper(m_staticDepth, flow.staticNesting, "if");
                countStaticFlow();
            }
            break;
        case D3DSIO_IFC:
            open(D3DSIO_IF, true);
            deeper(m_dynamicDepth, flow.dynamicNesting, "dynamic flow control");
            break;
        case D3DSIO_ELSE:
            if (m_blocks.empty() || m_blocks.back().opcode != D3DSIO_IF || m_blocks.back().hasElse)
                fail(kFlow, "else belongs to no open if");
            m_blocks.back().hasElse = true;
            if (!m_blocks.back().dynamic) countStaticFlow();
            break;
        case D3DSIO_ENDIF: close(D3DSIO_IF, "endif"); break;
        case D3DSIO_LOOP: case D3DSIO_REP:
            open(instruction.opcode, false);
            deeper(m_loopDepth, flow.loopNesting, "loop and rep");
            countStaticFlow();
            break;
        case D3DSIO_ENDLOOP: close(D3DSIO_LOOP, "endloop"); break;
        case D3DSIO_ENDREP: close(D3DSIO_REP, "endrep"); break;
        case D3DSIO_BREAK: case D3DSIO_BREAKP: case D3DSIO_BREAKC:
            if (!insideRepetition()) fail(kFlow, std::string(rule.name) + " is outside any loop or rep");
            if (instruction.opcode == D3DSIO_BREAKC) checkDynamicRoom();
            break;
        case D3DSIO_CALL: case D3DSIO_CALLNZ:
            m_calls.push_back({instruction.sources[0].index, m_at, m_routine});
            if (onPredicate) checkDynamicRoom();
            else countStaticFlow();
            break;
        case D3DSIO_RET:
            if (!m_blocks.empty()) failAt(m_blocks.back().at, kFlow, "this block is still open at ret");
            break;
        case D3DSIO_LABEL:
            m_routine = static_cast<int>(instruction.sources[0].index);
            if (!m_labels.emplace(instruction.sources[0].index, m_at).second) fail(kFlow, "the label is defined twice");
            break;
        default: break;
        }
    }

    void checkDynamicRoom() const {
        uint32_t depth = m_dynamicDepth;
        deeper(depth, m_model.flow.dynamicNesting, "dynamic flow control");
    }

    // ---- pixel shader outputs ----------------------------------------------------------------------
    void checkPixelOutput(const InstructionRule& rule, const ShaderInstruction& instruction) {
        const ShaderOperand& target = instruction.destination;
        bool dynamic = m_dynamicDepth > 0 || instruction.predicated;
        if ((rule.flags & kGradient) && m_dynamicDepth > 0 && instruction.sources[0].kind == D3DSPR_TEMP)
            fail(kFlow, std::string(rule.name) + " takes gradients of " + nameOf(instruction.sources[0]) +
                            " inside dynamic flow control");
        bool colour = target.kind == D3DSPR_COLOROUT, depth = target.kind == D3DSPR_DEPTHOUT;
        if (!instruction.hasDestination || !(colour || depth)) return;
        if (dynamic && (colour || !m_model.is(kPs30)))
            fail(kOutputs, nameOf(target) + " is written inside dynamic flow control or under a predicate");
        if (m_model.is(kPs30)) return;
        if (instruction.opcode != D3DSIO_MOV) fail(kOutputs, nameOf(target) + " is written by mov only in " + m_model.name);
        const ShaderOperand& source = instruction.sources[0];
        if (target.modifier || source.modifier) fail(kOutputs, nameOf(target) + " is written without modifiers");
        if (colour && (target.mask != 0xF || source.swizzle != kIdentity))
            fail(kOutputs, nameOf(target) + " is written whole, without write mask or swizzle");
        if (depth && (!source.isReplicate() || !m_blocks.empty()))
            fail(kOutputs, "oDepth takes a replicate swizzle, outside flow control");
        if (++m_outputWrites[target.kind << 16 | target.index] > 1) fail(kOutputs, nameOf(target) + " is written twice");
    }

    // ---- the whole shader ----------------------------------------------------------------------------
    void finish() {
        if (!m_blocks.empty()) failAt(m_blocks.back().at, kFlow, "this block is never closed");
        checkCalls();
        if (m_model.is(kVs30) && !m_positionDeclared)
            failAt(kWholeShader, kDeclaration, "vs_3_0 declares one output dcl_position o#");
        if (!m_model.is(kPs20 | kPs2x)) return;
        uint32_t colours = 0;
        while (m_outputWrites.count(D3DSPR_COLOROUT << 16 | colours)) ++colours;
        for (const auto& write : m_outputWrites)
            if ((write.first >> 16) == D3DSPR_COLOROUT && (write.first & 0xFFFF) >= colours)
                failAt(kWholeShader, kOutputs, "oC" + std::to_string(write.first & 0xFFFF) + " is written without all oC# before it");
        if (colours == 0) failAt(kWholeShader, kOutputs, std::string(m_model.name) + " writes oC0");
    }

    // Call depth of a routine: the longest chain of calls it starts (each routine reckoned once).
    uint32_t callDepth(int routine, std::set<int>& active, std::map<int, uint32_t>& known) const {
        auto found = known.find(routine);
        if (found != known.end()) return found->second;
        uint32_t depth = 0;
        for (const Call& call : m_calls) {
            if (call.routine != routine) continue;
            int target = static_cast<int>(call.label);
            if (!active.insert(target).second) failAt(call.at, kFlow, "l" + std::to_string(call.label) + " calls itself back");
            uint32_t below = 1 + callDepth(target, active, known);
            active.erase(target);
            if (routine == -1 && below > m_model.flow.callNesting)
                failAt(call.at, kFlow, "calls nest " + std::to_string(below) + " deep; " + m_model.name + " allows " +
                                           std::to_string(m_model.flow.callNesting));
            depth = std::max(depth, below);
        }
        known[routine] = depth;
        return depth;
    }

    void checkCalls() const {
        for (const Call& call : m_calls) {
            auto label = m_labels.find(call.label);
            if (label == m_labels.end()) failAt(call.at, kFlow, "no label l" + std::to_string(call.label) + " follows");
            if (m_model.vertex && label->second < call.at) failAt(call.at, kFlow, "vertex shaders call forward only");
        }
        std::set<int> active{-1};
        std::map<int, uint32_t> known;
        callDepth(-1, active, known);
    }

    const ShaderCode& m_code;
    const ShaderModel& m_model;
    std::vector<int> m_lines;
    SourceLocation m_where;
    size_t m_at = 0;

    bool m_executableSeen = false;
    uint32_t m_previous = D3DSIO_NOP;
    uint32_t m_slots = 0, m_textureSlots = 0, m_otherSlots = 0;
    std::map<uint32_t, uint32_t> m_declared;  // kind << 16 | index: declared components, or a sampler's type
    std::set<uint32_t> m_semantics;
    bool m_positionDeclared = false;
    int m_constantAbs = 0;  // 1: reads of c# take _abs, 2: they do not
    std::vector<Block> m_blocks;
    uint32_t m_loopDepth = 0, m_staticDepth = 0, m_dynamicDepth = 0, m_staticFlow = 0;
    std::vector<Call> m_calls;
    std::map<uint32_t, size_t> m_labels;
    int m_routine = -1;
    std::map<uint32_t, uint32_t> m_outputWrites;
    std::map<uint32_t, uint32_t> m_temporariesWritten;  // r# index: components some instruction wrote
    std::map<uint32_t, int> m_dependentLevels;          // r# written so far: the dependent-read order it comes from
};

}  // namespace

void validateShader(const std::vector<uint8_t>& bytes, const std::string& text, const SourceLocation& where) {
    ShaderCode code;
    if (!decodeShader(bytes, code)) throw CompileError(where, std::string(kModelRule) + ": the assembled code is incomplete");
    const ShaderModel* model = findShaderModel(code.vertex, code.version);
    if (!model) {
        SourceLocation located = where;
        std::string version;
        AsmScanner(text, where.line).opcode(version, located.line);
        throw CompileError(located, std::string(kModelRule) + ": " + shaderModelName(code.vertex, code.version) +
                                        " is not served; write vs/ps 2_0, 2_x or 3_0");
    }
    Validator validator(code, *model, where);
    validator.locate(text);
    validator.run();
}

}  // namespace fxc
