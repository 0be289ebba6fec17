#pragma once
#include <cstdint>
#include <vector>

namespace fxc {

// One register operand of an instruction, as the token stream of shader model 2 and 3 encodes it.
struct ShaderOperand {
    uint32_t kind = 0;        // D3DSPR_*
    uint32_t index = 0;
    uint32_t mask = 0xF;      // destinations: components written, bit 0 = x
    uint32_t swizzle = 0xE4;  // sources: two bits a component, 0xE4 = .xyzw
    uint32_t modifier = 0;    // sources: D3DSPSM_* >> 24; destinations: D3DSPDM_* >> 20
    uint32_t shift = 0;       // destinations: result shift (pixel shader 1_x only)
    bool relative = false;
    uint32_t addressKind = 0;  // the register that indexes a relative operand
    uint32_t addressIndex = 0;
    uint32_t addressSwizzle = 0;

    uint32_t component(int position) const { return (swizzle >> (2 * position)) & 3; }
    bool isReplicate() const { return swizzle == 0x00 || swizzle == 0x55 || swizzle == 0xAA || swizzle == 0xFF; }
    bool sameRegister(const ShaderOperand& other) const { return kind == other.kind && index == other.index; }
};

// The sources of one instruction, held in place: instructions of these models take four at most
// (texldd).
class SourceList {
public:
    static const size_t kCapacity = 4;
    size_t size() const { return m_count; }
    bool empty() const { return m_count == 0; }
    bool full() const { return m_count == kCapacity; }
    ShaderOperand& add() { return m_items[m_count++]; }
    void assignOne(const ShaderOperand& operand) {
        m_items[0] = operand;
        m_count = 1;
    }
    const ShaderOperand& operator[](size_t position) const { return m_items[position]; }
    const ShaderOperand& back() const { return m_items[m_count - 1]; }
    const ShaderOperand* begin() const { return m_items; }
    const ShaderOperand* end() const { return m_items + m_count; }

private:
    ShaderOperand m_items[kCapacity];
    size_t m_count = 0;
};

struct ShaderInstruction {
    uint32_t opcode = 0;    // D3DSIO_*
    uint32_t controls = 0;  // comparison of ifc, breakc and setp; texldp (1) and texldb (2)
    bool predicated = false;
    ShaderOperand predicate;
    bool hasDestination = false;
    ShaderOperand destination;
    SourceList sources;
    uint32_t declaration = 0;  // dcl: the usage token (usage and index, or the sampler type)
    size_t writtenOperands = 0;  // operands the source text lists, literals of def included
};

struct ShaderCode {
    bool vertex = false;
    uint32_t version = 0;  // major << 8 | minor
    std::vector<ShaderInstruction> instructions;
};

// Reads assembled shader model 2 or 3 code; false when the tokens do not make a whole shader.
bool decodeShader(const std::vector<uint8_t>& bytes, ShaderCode& code);

}  // namespace fxc
