#pragma once
#include <cstddef>
#include <cstdint>

namespace VexilDX9 {

// Whether shader code is a version token, then instructions and comments that each lie inside the
// code, then the end token as the last word. The device walks the code without knowing its size,
// instruction by instruction, so an instruction that claims more or fewer tokens than it has, or an
// opcode it does not know, would carry it past the end token and out of the code.
bool isSoundInstructionStream(const uint8_t* code, size_t words);

}  // namespace VexilDX9
