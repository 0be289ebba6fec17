#pragma once
#include "CompileError.h"
#include <cstdint>
#include <string>
#include <vector>

namespace fxc {

// Refuses assembled code that Direct3D 9 refuses when the shader is created (Wine's runtime
// checks far less). `text` is the asm block the code was assembled from, starting on the line of
// `where`; the CompileError names the line of the offending instruction and the rule it breaks.
void validateShader(const std::vector<uint8_t>& code, const std::string& text, const SourceLocation& where);

}  // namespace fxc
