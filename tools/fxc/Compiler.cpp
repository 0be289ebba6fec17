#include "Compiler.h"
#include "BinaryWriter.h"
#include "Parser.h"
#include "ShaderValidator.h"
#include <d3dx9.h>

#include <cstdlib>

namespace fxc {
namespace {

std::string firstLine(const char* text) {
    std::string line(text);
    size_t end = line.find_first_of("\r\n");
    return end == std::string::npos ? line : line.substr(0, end);
}

// D3DX prefixes its messages with "(line): " or "Line line: "; point at the line instead.
SourceLocation locateMessage(const std::string& message, const SourceLocation& where, std::string& rest) {
    SourceLocation located = where;
    rest = message;
    if (message.compare(0, 5, "Line ") == 0) {
        int line = std::atoi(message.c_str() + 5);
        size_t colon = message.find(": ");
        if (line > 0 && colon != std::string::npos) {
            located.line = line;
            rest = message.substr(colon + 2);
        }
        return located;
    }
    size_t open = message.find('('), close = message.find("): ");
    if (open != std::string::npos && close != std::string::npos && open < close) {
        int line = std::atoi(message.c_str() + open + 1);
        if (line > 0) located.line = line;
        rest = message.substr(close + 3);
    }
    return located;
}

}  // namespace

std::vector<uint8_t> assembleShader(const std::string& text, const SourceLocation& where) {
    // Blank lines in front make the assembler's line numbers those of the effect file.
    std::string padded(where.line > 1 ? where.line - 1 : 0, '\n');
    padded += text;
    ID3DXBuffer* code = nullptr;
    ID3DXBuffer* errors = nullptr;
    HRESULT hr = D3DXAssembleShader(padded.c_str(), static_cast<UINT>(padded.size()), nullptr, nullptr, 0, &code,
                                    &errors);
    std::string message = errors ? firstLine(static_cast<const char*>(errors->GetBufferPointer())) : std::string();
    if (errors) errors->Release();
    // Wine's assembler reports some errors yet succeeds, with the faulty operand replaced.
    bool reportedError = !message.empty() && message.find("warning") == std::string::npos;
    if (FAILED(hr) || !code || reportedError) {
        if (code) code->Release();
        std::string rest;
        SourceLocation located = locateMessage(message, where, rest);
        throw CompileError(located, "shader does not assemble" + (rest.empty() ? std::string() : ": " + rest));
    }
    const uint8_t* bytes = static_cast<const uint8_t*>(code->GetBufferPointer());
    std::vector<uint8_t> result(bytes, bytes + code->GetBufferSize());
    code->Release();
    validateShader(result, text, where);
    return result;
}

std::vector<uint8_t> compileEffectFile(const std::string& path, const PreprocessorOptions& options) {
    return writeEffectBinary(parseEffect(tokenizeFile(path, options), assembleShader));
}

std::vector<uint8_t> compileEffectText(const std::string& text, const std::string& name,
                                       const PreprocessorOptions& options) {
    return writeEffectBinary(parseEffect(tokenizeText(text, name, options), assembleShader));
}

}  // namespace fxc
