#include "ShaderCode.h"
#include <windows.h>
#include <d3d9types.h>

#include <cstring>

namespace fxc {
namespace {

class TokenReader {
public:
    explicit TokenReader(const std::vector<uint8_t>& bytes) : m_bytes(bytes) {}

    bool atEnd() const { return m_offset + 4 > m_bytes.size(); }
    bool read(uint32_t& token) {
        if (atEnd()) return false;
        std::memcpy(&token, &m_bytes[m_offset], 4);
        m_offset += 4;
        return true;
    }
    bool skip(size_t tokens) {
        if (tokens > (m_bytes.size() - m_offset) / 4) return false;
        m_offset += tokens * 4;
        return true;
    }

private:
    const std::vector<uint8_t>& m_bytes;
    size_t m_offset = 0;
};

uint32_t registerKind(uint32_t token) {
    return ((token & D3DSP_REGTYPE_MASK) >> D3DSP_REGTYPE_SHIFT) |
           ((token & D3DSP_REGTYPE_MASK2) >> D3DSP_REGTYPE_SHIFT2);
}

// A parameter token, and the address token that follows it when it is relatively addressed.
bool readOperand(TokenReader& reader, size_t& left, bool destination, ShaderOperand& operand) {
    uint32_t token;
    if (left == 0 || !reader.read(token)) return false;
    --left;
    operand.kind = registerKind(token);
    operand.index = token & D3DSP_REGNUM_MASK;
    operand.relative = (token & D3DSHADER_ADDRMODE_RELATIVE) != 0;
    if (destination) {
        operand.mask = (token & D3DSP_WRITEMASK_ALL) >> 16;
        operand.modifier = (token & D3DSP_DSTMOD_MASK) >> D3DSP_DSTMOD_SHIFT;
        operand.shift = (token & D3DSP_DSTSHIFT_MASK) >> D3DSP_DSTSHIFT_SHIFT;
    } else {
        operand.swizzle = (token & D3DVS_SWIZZLE_MASK) >> D3DVS_SWIZZLE_SHIFT;
        operand.modifier = (token & D3DSP_SRCMOD_MASK) >> D3DSP_SRCMOD_SHIFT;
    }
    if (!operand.relative) return true;
    uint32_t address;
    if (left == 0 || !reader.read(address)) return false;
    --left;
    operand.addressKind = registerKind(address);
    operand.addressIndex = address & D3DSP_REGNUM_MASK;
    operand.addressSwizzle = (address & D3DVS_SWIZZLE_MASK) >> D3DVS_SWIZZLE_SHIFT;
    return true;
}

// Flow control and nop name no destination; every other instruction writes its first operand.
bool writesFirstOperand(uint32_t opcode) {
    switch (opcode) {
    case D3DSIO_NOP: case D3DSIO_CALL: case D3DSIO_CALLNZ: case D3DSIO_LOOP: case D3DSIO_RET:
    case D3DSIO_ENDLOOP: case D3DSIO_LABEL: case D3DSIO_REP: case D3DSIO_ENDREP: case D3DSIO_IF:
    case D3DSIO_IFC: case D3DSIO_ELSE: case D3DSIO_ENDIF: case D3DSIO_BREAK: case D3DSIO_BREAKC:
    case D3DSIO_BREAKP:
        return false;
    default:
        return true;
    }
}

// def carries four literal words after its register, defi four, defb one.
size_t literalCount(uint32_t opcode) {
    switch (opcode) {
    case D3DSIO_DEF: case D3DSIO_DEFI: return 4;
    case D3DSIO_DEFB: return 1;
    default: return 0;
    }
}

bool readInstruction(TokenReader& reader, uint32_t token, ShaderInstruction& instruction) {
    instruction.opcode = token & D3DSI_OPCODE_MASK;
    instruction.controls = (token & D3DSP_OPCODESPECIFICCONTROL_MASK) >> D3DSP_OPCODESPECIFICCONTROL_SHIFT;
    instruction.predicated = (token & D3DSHADER_INSTRUCTION_PREDICATED) != 0;
    size_t left = (token & D3DSI_INSTLENGTH_MASK) >> D3DSI_INSTLENGTH_SHIFT;
    if (instruction.opcode == D3DSIO_DCL) {
        if (left == 0 || !reader.read(instruction.declaration)) return false;
        --left;
    }
    instruction.hasDestination = writesFirstOperand(instruction.opcode);
    if (instruction.hasDestination && !readOperand(reader, left, true, instruction.destination)) return false;
    size_t literals = literalCount(instruction.opcode);
    if (literals) {
        instruction.writtenOperands = 1 + literals;
        return left == literals && reader.skip(literals);
    }
    if (instruction.predicated && !readOperand(reader, left, false, instruction.predicate)) return false;
    while (left > 0) {
        if (instruction.sources.full() || !readOperand(reader, left, false, instruction.sources.add())) return false;
    }
    instruction.writtenOperands = (instruction.hasDestination ? 1 : 0) + instruction.sources.size();
    return true;
}

}  // namespace

bool decodeShader(const std::vector<uint8_t>& bytes, ShaderCode& code) {
    TokenReader reader(bytes);
    uint32_t token;
    if (!reader.read(token)) return false;
    code.vertex = (token >> 16) == 0xFFFE;
    code.version = token & 0xFFFF;
    if (!code.vertex && (token >> 16) != 0xFFFF) return false;
    // Models before 2_0 encode no instruction lengths; the validator refuses them by version.
    if (code.version < 0x200) return true;
    code.instructions.reserve(bytes.size() / 16);
    while (reader.read(token)) {
        uint32_t opcode = token & D3DSI_OPCODE_MASK;
        if (opcode == D3DSIO_END) return true;
        if (opcode == D3DSIO_COMMENT) {
            if (!reader.skip((token & D3DSI_COMMENTSIZE_MASK) >> D3DSI_COMMENTSIZE_SHIFT)) return false;
            continue;
        }
        code.instructions.emplace_back();
        if (!readInstruction(reader, token, code.instructions.back())) return false;
    }
    return false;
}

}  // namespace fxc
