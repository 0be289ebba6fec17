#include <VexilDX9/ShaderInstructionCheck.h>

#include <cstring>

namespace VexilDX9 {
namespace {

const uint32_t kEndToken = 0x0000FFFF;
const uint32_t kCommentOpcode = 0xFFFE, kPhaseOpcode = 0xFFFD;
const uint32_t kVertexShaderKind = 0xFFFE, kPixelShaderKind = 0xFFFF;
const uint32_t kRelativeAddress = 1u << 13;  // a register token followed by its address token
const uint32_t kPredicated = 1u << 28;       // an instruction with a predicate register after its destination
const uint32_t kUnknown = 0xFF;
const unsigned kSoftware = 0xFF;  // the minor version of the software shader models

enum Opcode : uint32_t { Dcl = 31, Sincos = 37, Defb = 47, Defi = 48, Texcoord = 64, Tex = 66, Def = 81 };

// Parameter tokens of each opcode, address and predicate tokens aside; 49 to 63 are not opcodes.
const uint8_t kParameterCounts[] = {
    0, 2, 3, 3, 4, 3, 2, 2, 3, 3,  // nop mov add sub mad mul rcp rsq dp3 dp4
    3, 3, 3, 3, 2, 2, 2, 3, 4, 2,  // min max slt sge exp log lit dst lrp frc
    3, 3, 3, 3, 3, 1, 2, 2, 0, 0,  // m4x4 m4x3 m3x4 m3x3 m3x2 call callnz loop ret endloop
    1, 2, 3, 3, 4, 2, 2, 4, 1, 0,  // label dcl pow crs sgn abs nrm sincos rep endrep
    1, 2, 0, 0, 0, 2, 2, 2, 5,     // if ifc else endif break breakc mova defb defi
    kUnknown, kUnknown, kUnknown, kUnknown, kUnknown, kUnknown, kUnknown, kUnknown,
    kUnknown, kUnknown, kUnknown, kUnknown, kUnknown, kUnknown, kUnknown,
    1, 1, 1, 2, 2, 2, 2, 2, 2, 2,  // texcoord texkill tex texbem texbeml texreg2ar texreg2gb texm3x2pad texm3x2tex texm3x3pad
    2, 2, 3, 2, 2, 2, 4, 5, 2, 2,  // texm3x3tex texm3x3diff texm3x3spec texm3x3vspec expp logp cnd def texreg2rgb texdp3tex
    2, 2, 2, 1, 4, 3, 4, 2, 2, 5,  // texm3x2depth texdp3 texm3x3 texdepth cmp bem dp2add dsx dsy texldd
    3, 3, 1,                       // setp texldl breakp
};
static_assert(sizeof(kParameterCounts) == 97, "one entry per opcode up to breakp");

uint32_t wordAt(const uint8_t* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

struct Version {
    unsigned major, minor;
};

// Which parameters name registers (and may so carry an address token): declarations start with
// a usage token, constant definitions end with literal values.
struct RegisterSpan {
    unsigned first, count;
};

RegisterSpan registersOf(uint32_t opcode, unsigned parameters) {
    switch (opcode) {
    case Dcl: return {1, 1};
    case Def:
    case Defi:
    case Defb: return {0, 1};
    default: return {0, parameters};
    }
}

unsigned parameterCount(uint32_t opcode, const Version& version) {
    if (opcode == kPhaseOpcode) return 0;
    if (opcode >= sizeof(kParameterCounts)) return kUnknown;
    bool ps14 = version.major == 1 && version.minor == 4;
    switch (opcode) {
    case Sincos: return version.major >= 3 ? 2 : 4;
    case Tex: return version.major >= 2 ? 3 : ps14 ? 2 : 1;
    case Texcoord: return ps14 ? 2 : 1;
    default: return kParameterCounts[opcode];
    }
}

class InstructionWalk {
public:
    InstructionWalk(const uint8_t* code, size_t words) : m_code(code), m_words(words) {}

    bool check() {
        uint32_t versionToken = token(0);
        uint32_t kind = versionToken >> 16;
        m_version = {(versionToken >> 8) & 0xFF, versionToken & 0xFF};
        if (kind != kVertexShaderKind && kind != kPixelShaderKind) return false;
        // Shader model 3 is 3.0, or 3.sw (minor 0xFF) for software vertex processing, as 2.sw is.
        if (m_version.major > 3 || (m_version.major == 3 && m_version.minor != 0 && m_version.minor != kSoftware))
            return false;
        for (size_t at = 1; at < m_words;) {
            uint32_t current = token(at);
            if (current == kEndToken) return at == m_words - 1;
            size_t length = (current & 0xFFFF) == kCommentOpcode ? 1 + ((current >> 16) & 0x7FFF) : instruction(at);
            if (length == 0 || length >= m_words - at) return false;
            at += length;
        }
        return false;
    }

private:
    uint32_t token(size_t index) const { return wordAt(m_code + index * 4); }

    // The tokens of the instruction at `at` (0 when it cannot be read): from shader model 2 on, the
    // opcode token also states this count, and the device goes by it.
    size_t instruction(size_t at) const {
        uint32_t opcodeToken = token(at), opcode = opcodeToken & 0xFFFF;
        unsigned parameters = parameterCount(opcode, m_version);
        bool modern = m_version.major >= 2, predicated = (opcodeToken & kPredicated) != 0;
        if (parameters == kUnknown || (predicated && !modern)) return 0;
        RegisterSpan registers = registersOf(opcode, parameters);
        unsigned slots = parameters + (predicated ? 1 : 0);
        registers.count += predicated ? 1 : 0;
        size_t next = at + 1;
        for (unsigned slot = 0; slot < slots; ++slot) {
            if (next >= m_words) return 0;
            bool isRegister = slot >= registers.first && slot < registers.first + registers.count;
            next += isRegister && modern && (token(next) & kRelativeAddress) ? 2 : 1;
        }
        size_t length = next - at;
        if (modern && ((opcodeToken >> 24) & 0xF) != length - 1) return 0;
        return length;
    }

    const uint8_t* m_code;
    size_t m_words;
    Version m_version = {};
};

}  // namespace

bool isSoundInstructionStream(const uint8_t* code, size_t words) {
    return words >= 2 && InstructionWalk(code, words).check();
}

}  // namespace VexilDX9
