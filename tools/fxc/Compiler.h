#pragma once
#include "Lexer.h"
#include <cstdint>
#include <string>
#include <vector>

namespace fxc {

// Compiles an effect file to an fx_2_0 binary; throws CompileError.
std::vector<uint8_t> compileEffectFile(const std::string& path, const PreprocessorOptions& options);
std::vector<uint8_t> compileEffectText(const std::string& text, const std::string& name,
                                       const PreprocessorOptions& options);

// Assembles shader assembly with D3DXAssembleShader; line numbers in errors count from `where`.
std::vector<uint8_t> assembleShader(const std::string& text, const SourceLocation& where);

}  // namespace fxc
