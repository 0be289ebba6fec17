#pragma once
// Read-only snapshot of every adapter's caps and identity for one device type, looked up by
// display device name; plus a process-wide HAL snapshot for asking shader models before any
// device exists.
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/Resource.h>
#include <zeb/String.h>

#include <d3d9.h>

class VEXILDX9_API DeviceInfo {
public:
    struct CapsAndID {
        D3DCAPS9 caps;
        D3DADAPTER_IDENTIFIER9 identifier;
    };

    DeviceInfo();
    DeviceInfo(const COMPtr<IDirect3D9>::pointer& d3d9Obj, D3DDEVTYPE type);
    DeviceInfo(const DeviceInfo& other);
    DeviceInfo& operator=(const DeviceInfo& other);
    ~DeviceInfo();

    // Re-reads every adapter; returns the number of adapters.
    unsigned int initialize(const COMPtr<IDirect3D9>::pointer& d3d9Obj, D3DDEVTYPE type);

    unsigned int numDevices() const { return m_records.size(); }
    const zeb::Array<zeb::String>& deviceNames() const { return m_deviceNames; }

    // Lookups by display device name (letter case ignored); false, outputs untouched, when no
    // adapter has that name.
    bool deviceOrdinal(const zeb::String& name, unsigned int& ordinal) const;
    bool groupInfo(const zeb::String& name, unsigned int& masterOrdinal, unsigned int& ordinalInGroup) const;
    // Raw Direct3D version tokens.
    bool vertexShaderVersion(const zeb::String& name, unsigned int& version) const;
    bool pixelShaderVersion(const zeb::String& name, unsigned int& version) const;
    // The vertex form keeps the token's type bits in major (vs 3.0 gives 0xFFFE03); the pixel
    // form masks them off (ps 3.0 gives 3). Applications rely on both as they are.
    bool vertexShaderVersion(const zeb::String& name, unsigned int& major, unsigned int& minor) const;
    bool pixelShaderVersion(const zeb::String& name, unsigned int& major, unsigned int& minor) const;

private:
    unsigned int displayIDHeadIndex(const zeb::String& name) const;
    const D3DCAPS9* capsOf(const zeb::String& name) const;

    zeb::Array<CapsAndID> m_records;
    zeb::Array<zeb::String> m_deviceNames;
};

typedef zeb::SharedResource<zeb::PointerStorage<DeviceInfo, 0, 3>, 0> SharedDeviceInfo;

// The HAL snapshot, built on the first call and kept for the life of the process.
VEXILDX9_API SharedDeviceInfo& enumerateHALDeviceInformation();
// A fresh Direct3D object, or an empty holder when Direct3D cannot be created.
VEXILDX9_API COMPtr<IDirect3D9>::pointer direct3D9Object();

// Shader versions of a HAL adapter, by display device name, from the shared snapshot; false
// (logged) for a null version pointer.
extern "C" {
VEXILDX9_API bool vertexShaderVersion(const zeb::String& name, unsigned int* version);
VEXILDX9_API bool pixelShaderVersion(const zeb::String& name, unsigned int* version);
}
