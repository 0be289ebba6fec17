#pragma once
#include "EffectModel.h"
#include <cstdint>
#include <vector>

namespace fxc {

// A parameter bound to a register of one shader: set is 'c', 'b', 'i' or 's'.
struct ConstantBinding {
    const Parameter* parameter;
    char set;
    uint32_t index;
};

// The number of registers a parameter fills in a register set.
uint32_t registerCount(const TypeDesc& type, char set);
// The number of registers of a set that the shader version offers.
uint32_t registerLimit(const std::vector<uint8_t>& code, char set);

// The shader code with a constant table naming the bound parameters, placed after the version
// token. D3DX effects feed shader constants from such tables by parameter name, whole matrices
// and arrays included, when a pass begins or changes are committed.
std::vector<uint8_t> withConstantTable(const std::vector<uint8_t>& code, const std::vector<ConstantBinding>& bindings);

}  // namespace fxc
