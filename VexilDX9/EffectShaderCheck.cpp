#include <VexilDX9/EffectShaderCheck.h>
#include <VexilDX9/ShaderInstructionCheck.h>

#include <d3dx9.h>

#include <algorithm>
#include <cstring>

namespace VexilDX9 {
namespace {

const uint32_t kEndToken = 0x0000FFFF;
const uint32_t kCommentOpcode = 0xFFFE;
const uint32_t kConstantTableTag = MAKEFOURCC('C', 'T', 'A', 'B');
const uint32_t kPreshaderTag = MAKEFOURCC('P', 'R', 'E', 'S');
const uint32_t kPreshaderCodeTag = MAKEFOURCC('F', 'X', 'L', 'C');
const uint32_t kLiteralTag = MAKEFOURCC('C', 'L', 'I', 'T');
const size_t kTableHeaderBytes = 28, kConstantRecordBytes = 20, kTypeRecordBytes = 16, kMemberRecordBytes = 8;
const unsigned kMaxTypeNesting = 16;
// D3DX makes one constant per element and struct member; a table may ask for no more than this.
const long kConstantBudget = 1 << 16;

uint32_t wordAt(const uint8_t* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

uint16_t halfAt(const uint8_t* bytes) {
    uint16_t half;
    std::memcpy(&half, bytes, sizeof(half));
    return half;
}

// Counts, offsets and sizes go through one reader so that every one of them is both bounded and
// reported to the caller that wants to know where they lie.
class Reader {
public:
    Reader(const uint8_t* fileStart, std::vector<size_t>* structuralWords, const ConstantRule& agrees)
        : agrees(agrees), m_fileStart(fileStart), m_structuralWords(structuralWords) {}

    uint32_t structural(const uint8_t* at) const {
        if (m_structuralWords && m_fileStart) m_structuralWords->push_back(static_cast<size_t>(at - m_fileStart));
        return wordAt(at);
    }

    const ConstantRule& agrees;

private:
    const uint8_t* m_fileStart;
    std::vector<size_t>* m_structuralWords;
};

// The constant table as D3DXGetShaderConstantTable reads it: offsets count from the table's start.
class ConstantTableCheck {
public:
    ConstantTableCheck(const uint8_t* table, size_t size, const Reader& reader)
        : m_table(table), m_size(size), m_reader(reader) {}

    bool check() {
        if (m_size < kTableHeaderBytes) return false;
        uint32_t headerSize = word(0), creator = word(4), constants = word(12), records = word(16), target = word(24);
        if (headerSize != kTableHeaderBytes || !optionalText(creator) || !optionalText(target) ||
            !fits(records, uint64_t(constants) * kConstantRecordBytes))
            return false;
        for (uint32_t i = 0; i < constants; ++i)
            if (!constant(records + i * kConstantRecordBytes)) return false;
        return true;
    }

private:
    uint32_t word(size_t at) const { return m_reader.structural(m_table + at); }
    // Elements read their type again; it is reported once.
    uint32_t field(size_t at, bool again) const { return again ? wordAt(m_table + at) : word(at); }
    uint16_t half(size_t at) const { return halfAt(m_table + at); }
    bool fits(uint64_t at, uint64_t bytes) const { return at <= m_size && bytes <= m_size - at; }

    bool text(uint32_t at) const { return at < m_size && std::memchr(m_table + at, 0, m_size - at) != nullptr; }
    bool optionalText(uint32_t at) const { return at == 0 || text(at); }

    bool constant(size_t at) {
        uint32_t name = word(at), typeInfo = word(at + 12), defaultValue = word(at + 16);
        word(at + 4);  // register set and index
        word(at + 8);  // register count
        return half(at + 4) <= D3DXRS_SAMPLER && text(name) && defaultValue <= m_size && type(typeInfo, name, false, 0) &&
               agrees(name, typeInfo);
    }

    bool agrees(uint32_t name, uint32_t type) const {
        const uint8_t* t = m_table + type;
        ConstantShape shape = {reinterpret_cast<const char*>(m_table + name), halfAt(t), halfAt(t + 2), halfAt(t + 4),
                               halfAt(t + 6), halfAt(t + 8)};
        return !m_reader.agrees || m_reader.agrees(shape);
    }

    // One constant node; elements and struct members are nodes of their own, as D3DX builds them.
    bool type(uint32_t at, uint32_t name, bool isElement, unsigned depth) {
        if (depth > kMaxTypeNesting || --m_budget < 0 || !fits(at, kTypeRecordBytes) || !text(name)) return false;
        field(at, isElement);
        field(at + 4, isElement);
        uint32_t shape = field(at + 8, isElement), memberInfo = field(at + 12, isElement);
        uint16_t cls = half(at), elements = static_cast<uint16_t>(shape & 0xFFFF);
        uint16_t members = static_cast<uint16_t>(shape >> 16);
        if (cls > D3DXPC_STRUCT) return false;
        if (elements > 1 && !isElement) {
            for (uint16_t i = 0; i < elements; ++i)
                if (!type(at, name, true, depth + 1)) return false;
            return true;
        }
        if (cls != D3DXPC_STRUCT || members == 0) return true;
        if (!fits(memberInfo, uint64_t(members) * kMemberRecordBytes)) return false;
        for (uint16_t i = 0; i < members; ++i) {
            size_t member = memberInfo + i * kMemberRecordBytes;
            if (!type(word(member + 4), word(member), false, depth + 1)) return false;
        }
        return true;
    }

    const uint8_t* m_table;
    size_t m_size;
    const Reader& m_reader;
    long m_budget = kConstantBudget;
};

// Register tables of preshader operands, as preshader code numbers them.
enum RegisterTable : uint32_t { Literal = 1, Input = 2, Output = 4, OutputBool = 5, OutputInt = 6, Temporary = 7, TableCount = 8 };
const bool kKnownTable[TableCount] = {false, true, true, false, true, true, true, true};
const uint32_t kMaxRegister = 1 << 14;  // D3DX sizes each table by its highest register

struct PreshaderOperation {
    uint32_t opcode, inputs;
};
// nop mov neg rcp frc exp log rsq sin cos asin acos atan min max lt ge add mul atan2 div cmp dot dotswiz
const PreshaderOperation kPreshaderOperations[] = {
    {0x000, 0}, {0x100, 1}, {0x101, 1}, {0x103, 1}, {0x104, 1}, {0x105, 1}, {0x106, 1}, {0x107, 1}, {0x108, 1},
    {0x109, 1}, {0x10A, 1}, {0x10B, 1}, {0x10C, 1}, {0x200, 2}, {0x201, 2}, {0x202, 2}, {0x203, 2}, {0x204, 2},
    {0x205, 2}, {0x206, 2}, {0x208, 2}, {0x300, 3}, {0x500, 2}, {0x70E, 6}, {0x70E, 8}};

bool isPreshaderOperation(uint32_t opcode, uint32_t inputs) {
    for (const PreshaderOperation& operation : kPreshaderOperations)
        if (operation.opcode == opcode && operation.inputs == inputs) return true;
    return false;
}

// Preshader instructions as D3DX reads and runs them. D3DX bounds the registers read directly; a
// read through an address register wraps modulo the size of its table instead, so that table may
// not be empty (the input table wraps to a power of two, at least one). D3DX also copies the
// literal table from a literal block it takes to be there unless the code writes that table.
class PreshaderCode {
public:
    PreshaderCode(const uint8_t* code, size_t words, uint32_t literalRegisters, const Reader& reader)
        : m_code(code), m_words(words), m_reader(reader) {
        m_sizes[Literal] = literalRegisters;
    }

    bool check(bool hasLiterals) {
        if (m_words == 0) return false;
        uint32_t instructions = m_reader.structural(m_code);
        size_t at = 1;
        for (uint32_t i = 0; i < instructions; ++i)  // each takes words, so this ends with them
            if (!instruction(at)) return false;
        for (uint32_t table = 0; table < TableCount; ++table)
            if ((m_addressedTables >> table & 1) && table != Input && m_sizes[table] == 0) return false;
        return hasLiterals || m_sizes[Literal] > 0;
    }

private:
    struct Operand {
        uint32_t table, offset;
        bool relative;
    };

    uint32_t word(size_t index) const { return wordAt(m_code + index * 4); }

    static bool knownRegister(uint32_t table, uint32_t offset) {
        return table < TableCount && kKnownTable[table] && offset / 4 < kMaxRegister;
    }

    // Inputs, then the output; the output cannot be addressed through a register.
    bool instruction(size_t& at) {
        if (m_words - at < 2) return false;
        uint32_t code = word(at), inputs = word(at + 1), components = code & 0xFFFF;
        if (components < 1 || components > 4 || !isPreshaderOperation((code & 0x7FF00000) >> 20, inputs)) return false;
        at += 2;
        Operand operand = {};
        for (uint32_t i = 0; i <= inputs; ++i) {
            if (!this->operand(at, operand)) return false;
            if (operand.relative) m_addressedTables |= 1u << operand.table;
        }
        if (operand.relative) return false;
        // Bool registers count one component each; the others four.
        uint32_t last = operand.table == OutputBool ? operand.offset / 4 + components - 1
                                                     : (operand.offset + components - 1) / 4;
        m_sizes[operand.table] = std::max(m_sizes[operand.table], last + 1);
        return true;
    }

    // A relative flag, the address register when it is set, then the register.
    bool operand(size_t& at, Operand& out) const {
        if (m_words - at < 3) return false;
        uint32_t relative = word(at);
        if (relative > 1 || (relative && m_words - at < 5)) return false;
        if (relative && !knownRegister(word(at + 1), word(at + 2))) return false;
        size_t reg = at + 1 + 2 * relative;
        if (!knownRegister(word(reg), word(reg + 1))) return false;
        out = {word(reg), word(reg + 1), relative == 1};
        at = reg + 2;
        return true;
    }

    const uint8_t* m_code;
    size_t m_words;
    const Reader& m_reader;
    uint32_t m_sizes[TableCount] = {};
    uint32_t m_addressedTables = 0;  // a bit per table read through an address register
};

enum class Search { Found, Absent, Broken };

// Tokens of a code blob, as D3DX walks them.
class CodeCheck {
public:
    CodeCheck(const uint8_t* code, size_t size, const Reader& reader)
        : m_code(code), m_words(size / 4), m_reader(reader) {}

    bool shader() {
        if (!isSoundInstructionStream(m_code, m_words) || !constantTableAt(0)) return false;
        size_t preshader = 0, preshaderWords = 0;
        return !leadingComment(1, m_words - 1, kPreshaderTag, preshader, preshaderWords) ||
               (preshader + preshaderWords < m_words && this->preshader(preshader, preshaderWords));
    }

    // A preshader reads its constant table, literals and instructions only when it has code.
    bool preshader(size_t start, size_t words) {
        size_t code = 0, codeWords = 0, literals = 0, literalWords = 0;
        if (words == 0 || !leadingComment(start + 1, words - 1, kPreshaderCodeTag, code, codeWords)) return true;
        bool hasLiterals = leadingComment(start + 1, words - 1, kLiteralTag, literals, literalWords);
        uint32_t literalCount = hasLiterals ? structuralToken(literals) : 0;
        // Literals are doubles, whole registers of four.
        if (hasLiterals && (literalCount > (literalWords - 1) / 2 || literalCount % 4 != 0)) return false;
        PreshaderCode instructions(m_code + code * 4, codeWords - 1, literalCount / 4, m_reader);
        return constantTableAt(start) && instructions.check(hasLiterals);
    }

    size_t words() const { return m_words; }

private:
    uint32_t token(size_t index) const { return wordAt(m_code + index * 4); }
    uint32_t structuralToken(size_t index) const { return m_reader.structural(m_code + index * 4); }

    static bool isComment(uint32_t token) { return (token & 0xFFFF) == kCommentOpcode; }
    static size_t commentWords(uint32_t token) { return (token & D3DSI_COMMENTSIZE_MASK) >> D3DSI_COMMENTSIZE_SHIFT; }

    // The search for a tagged comment that stops only at the end token: it may not leave the
    // blob, and an empty comment would be read as a table of about 4 GB.
    Search findComment(size_t from, uint32_t tag, size_t& data, size_t& dataWords) const {
        for (size_t i = from + 1; i < m_words; ++i) {
            uint32_t current = token(i);
            if (current == kEndToken) return Search::Absent;
            if (!isComment(current)) continue;
            size_t size = commentWords(structuralToken(i));
            if (size == 0 || size >= m_words - i) return Search::Broken;
            if (token(i + 1) == tag) {
                data = i + 2;
                dataWords = size - 1;
                return Search::Found;
            }
            i += size;
        }
        return Search::Broken;
    }

    bool constantTableAt(size_t start) const {
        size_t data = 0, dataWords = 0;
        Search search = findComment(start, kConstantTableTag, data, dataWords);
        if (search != Search::Found) return search == Search::Absent;
        return ConstantTableCheck(m_code + data * 4, dataWords * 4, m_reader).check();
    }

    // The bounded search of comments that directly follow each other from `from`.
    bool leadingComment(size_t from, size_t count, uint32_t tag, size_t& data, size_t& dataWords) const {
        while (count > 2 && isComment(token(from))) {
            size_t size = commentWords(structuralToken(from));
            if (size == 0 || size + 1 > count) return false;
            if (token(from + 1) == tag) {
                data = from + 2;
                dataWords = size;
                return true;
            }
            count -= size + 1;
            from += size + 1;
        }
        return false;
    }

    const uint8_t* m_code;
    size_t m_words;
    const Reader& m_reader;
};

}  // namespace

bool isSoundEffectCode(const uint8_t* code, size_t size, CodeKind kind, const ConstantRule& agrees,
                       const uint8_t* fileStart, std::vector<size_t>* structuralWords) {
    Reader reader(fileStart, structuralWords, agrees);
    if (kind == CodeKind::Expression) {
        CodeCheck check(code, size, reader);
        return check.preshader(0, check.words());
    }
    if (size < 8 || size % 4 != 0) return false;
    return CodeCheck(code, size, reader).shader();
}

}  // namespace VexilDX9
