#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VexilDX9 {

// Walks a compiled effect (fx_2_0) the way D3DX reads it and answers whether every count, size
// and offset stays inside the data and is believable. D3DX itself reads such files unchecked, so
// a cut or damaged file would make it read past its buffer, hang or crash.
// Shader code and compiled expressions are checked as far as D3DX walks them (see EffectShaderCheck.h).
// When structuralWords is given, it receives the byte position of every count, offset and size
// word the walk read (not names, values, instructions or other blob contents).
// When reason is given and the effect is refused, it receives what was refused, in words.
bool isWellFormedEffectBinary(const uint8_t* data, size_t size, std::vector<size_t>* structuralWords = nullptr,
                              std::string* reason = nullptr);

// Whether the data starts with the tag of a compiled effect; other files are effect source.
bool hasEffectBinaryTag(const uint8_t* data, size_t size);

}  // namespace VexilDX9
