#pragma once
#include "EffectModel.h"
#include "Lexer.h"
#include <functional>

namespace fxc {

// Turns the text of an asm block into shader code, or throws CompileError.
using ShaderAssembler = std::function<std::vector<uint8_t>(const std::string& text, const SourceLocation& where)>;

// Builds the effect model from tokens; throws CompileError on anything outside the supported subset.
EffectModel parseEffect(const std::vector<Token>& tokens, const ShaderAssembler& assemble);

}  // namespace fxc
