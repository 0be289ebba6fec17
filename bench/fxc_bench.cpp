// The effect compiler's shader checks against the same compile without them: both read, parse,
// assemble (D3DX) and lay out the library's lighting and shadow effects in full.
#include "BenchTimer.h"
#include "BinaryWriter.h"
#include "Compiler.h"
#include "Parser.h"

#include <d3dx9.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

std::string effectSource(const std::string& name) {
    const char* source = std::getenv("VEXIL_SOURCE_DIR");
    std::string root = source ? std::string("Z:") + source : vexilbench::besideProgram("..\\..");
    std::ifstream in(root + "\\VexilDX9\\effects\\" + name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The assembly step alone, as the compiler took it before it checked shaders.
std::vector<uint8_t> assembleUnchecked(const std::string& text, const fxc::SourceLocation& where) {
    ID3DXBuffer* code = nullptr;
    if (FAILED(D3DXAssembleShader(text.c_str(), static_cast<UINT>(text.size()), nullptr, nullptr, 0, &code, nullptr)))
        throw fxc::CompileError(where, "shader does not assemble");
    const uint8_t* bytes = static_cast<const uint8_t*>(code->GetBufferPointer());
    std::vector<uint8_t> result(bytes, bytes + code->GetBufferSize());
    code->Release();
    return result;
}

}  // namespace

int main() {
    const fxc::PreprocessorOptions options;
    for (const char* name : {"lightingEffect.fx", "shadowMap.fx"}) {
        std::string text = effectSource(name), what = std::string("vexil-fxc ") + name + ", shaders checked";
        if (text.empty()) {
            vexilbench::note(what.c_str(), "effect source not found (set VEXIL_SOURCE_DIR)");
            continue;
        }
        double checked = 1e30, unchecked = 1e30;
        for (int round = 0; round < 15; ++round) {
            checked = std::min(checked, vexilbench::bestOf(1, [&] { fxc::compileEffectText(text, name, options); }));
            unchecked = std::min(unchecked, vexilbench::bestOf(1, [&] {
                fxc::writeEffectBinary(fxc::parseEffect(fxc::tokenizeText(text, name, options), assembleUnchecked));
            }));
        }
        vexilbench::report(what.c_str(), checked, unchecked, "the compile unchecked", 1.2);
    }
    return 0;
}
