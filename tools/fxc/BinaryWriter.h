#pragma once
#include "EffectModel.h"
#include <cstdint>
#include <vector>

namespace fxc {

// Lays the model out as an fx_2_0 effect binary, the form D3DXCreateEffect* loads.
std::vector<uint8_t> writeEffectBinary(const EffectModel& effect);

}  // namespace fxc
