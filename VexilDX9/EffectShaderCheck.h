#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace VexilDX9 {

// What D3DX reads out of a code blob of a compiled effect.
enum class CodeKind { Shader, Expression };

// What a constant table says of one of its constants.
struct ConstantShape {
    const char* name;
    uint16_t cls, type, rows, columns, elements;
};
// Whether the effect's parameter of that name (if there is one) agrees with the constant: D3DX
// copies parameter values into registers by the constant's description.
typedef std::function<bool(const ConstantShape&)> ConstantRule;

// Checks the parts of shader code and of compiled expressions that D3DX walks without bounds:
// the comment blocks it searches, the preshader inside a shader and the constant tables (their
// header, constant records, type descriptions, struct members, names and offsets).
// fileStart and structuralWords, when given, receive the file position of every count, offset and
// size word read, as isWellFormedEffectBinary reports them.
bool isSoundEffectCode(const uint8_t* code, size_t size, CodeKind kind, const ConstantRule& agrees = {},
                       const uint8_t* fileStart = nullptr, std::vector<size_t>* structuralWords = nullptr);

}  // namespace VexilDX9
