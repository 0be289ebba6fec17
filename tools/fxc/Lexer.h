#pragma once
#include "CompileError.h"
#include <map>
#include <string>
#include <vector>

namespace fxc {

enum class TokenKind { Identifier, Number, String, Punct, AsmBody, End };

struct Token {
    TokenKind kind = TokenKind::End;
    std::string text;
    SourceLocation where;
};

struct PreprocessorOptions {
    std::map<std::string, std::string> macros;  // -D NAME=VALUE
    std::vector<std::string> includeDirs;       // -I dir
};

// Reads an effect file into tokens: comments dropped, directives (#define, #undef, #include,
// #if/#ifdef/#ifndef/#elif/#else/#endif) obeyed, object-like macros expanded, and the text of
// every asm { ... } block kept verbatim as one AsmBody token.
std::vector<Token> tokenizeFile(const std::string& path, const PreprocessorOptions& options);

// The same for text already in memory (the name is used in diagnostics and for relative includes).
std::vector<Token> tokenizeText(const std::string& text, const std::string& name,
                                const PreprocessorOptions& options);

}  // namespace fxc
