#pragma once
// How the library's messages and lookups name device types and adapters. Internal: not installed.
#include <zeb/String.h>

#include <d3d9.h>

#include <cstring>

namespace VexilDX9 {

// "HAL DEVICE", "REF DEVICE", "SW DEVICE", "NULL DEVICE" or "INVALID CLASSIFICATION".
const zeb::String& deviceClassificationName(D3DDEVTYPE type);

// The display device name of an adapter; a name filling the whole field has no terminator.
inline zeb::String displayDeviceName(const D3DADAPTER_IDENTIFIER9& identifier) {
    char name[sizeof identifier.DeviceName + 1] = {};
    std::memcpy(name, identifier.DeviceName, sizeof identifier.DeviceName);
    return zeb::String(name);
}

}  // namespace VexilDX9
