#include <VexilDX9/DeviceInfo.h>

#include <VexilDX9/detail/DeviceNaming.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

namespace {

const unsigned int kNoIndex = 0xFFFFFFFF;

SharedDeviceInfo halSnapshot;
bool halSnapshotBuilt = false;

}  // namespace

DeviceInfo::DeviceInfo() = default;

DeviceInfo::DeviceInfo(const COMPtr<IDirect3D9>::pointer& d3d9Obj, D3DDEVTYPE type) { initialize(d3d9Obj, type); }

DeviceInfo::DeviceInfo(const DeviceInfo& other) = default;
DeviceInfo& DeviceInfo::operator=(const DeviceInfo& other) = default;
DeviceInfo::~DeviceInfo() = default;

unsigned int DeviceInfo::initialize(const COMPtr<IDirect3D9>::pointer& d3d9Obj, D3DDEVTYPE type) {
    ZEB_TRACE(fileLogger, "AdapterInfo::initialize");
    ZEB_ASSERT("VexilDX9/DeviceInfo", 41, d3d9Obj.get() != NULL);
    const unsigned int n = d3d9Obj->GetAdapterCount();
    m_records = zeb::Array<CapsAndID>();
    // Names restart too, so they stay aligned with the records on a second call.
    m_deviceNames = zeb::Array<zeb::String>();
    for (unsigned int i = 0; i < n; ++i) {
        // Zero-filled: a failed call leaves a record that matches no name.
        CapsAndID record = {};
        d3d9Obj->GetDeviceCaps(i, type, &record.caps);
        d3d9Obj->GetAdapterIdentifier(i, 0, &record.identifier);
        m_records.append(record);
        m_deviceNames.append(VexilDX9::displayDeviceName(record.identifier));
    }
    return n;
}

unsigned int DeviceInfo::displayIDHeadIndex(const zeb::String& name) const {
    for (unsigned int i = 0; i < m_records.size(); ++i)
        if (VexilDX9::displayDeviceName(m_records[i].identifier).compareNoCase(name) == 0) return i;
    return kNoIndex;
}

const D3DCAPS9* DeviceInfo::capsOf(const zeb::String& name) const {
    const unsigned int index = displayIDHeadIndex(name);
    return index == kNoIndex ? nullptr : &m_records[index].caps;
}

bool DeviceInfo::deviceOrdinal(const zeb::String& name, unsigned int& ordinal) const {
    const D3DCAPS9* caps = capsOf(name);
    if (!caps) return false;
    ordinal = caps->AdapterOrdinal;
    return true;
}

bool DeviceInfo::groupInfo(const zeb::String& name, unsigned int& masterOrdinal, unsigned int& ordinalInGroup) const {
    const D3DCAPS9* caps = capsOf(name);
    if (!caps) return false;
    masterOrdinal = caps->MasterAdapterOrdinal;
    ordinalInGroup = caps->AdapterOrdinalInGroup;
    return true;
}

bool DeviceInfo::vertexShaderVersion(const zeb::String& name, unsigned int& version) const {
    const D3DCAPS9* caps = capsOf(name);
    if (!caps) return false;
    version = caps->VertexShaderVersion;
    return true;
}

bool DeviceInfo::pixelShaderVersion(const zeb::String& name, unsigned int& version) const {
    const D3DCAPS9* caps = capsOf(name);
    if (!caps) return false;
    version = caps->PixelShaderVersion;
    return true;
}

bool DeviceInfo::vertexShaderVersion(const zeb::String& name, unsigned int& major, unsigned int& minor) const {
    unsigned int token = 0;
    if (!vertexShaderVersion(name, token)) return false;
    major = token >> 8;
    minor = token & 0xFF;
    return true;
}

bool DeviceInfo::pixelShaderVersion(const zeb::String& name, unsigned int& major, unsigned int& minor) const {
    unsigned int token = 0;
    if (!pixelShaderVersion(name, token)) return false;
    major = (token >> 8) & 0xFF;
    minor = token & 0xFF;
    return true;
}

SharedDeviceInfo& enumerateHALDeviceInformation() {
    // A plain flag: the library is driven from one thread.
    if (!halSnapshotBuilt) {
        COMPtr<IDirect3D9>::pointer d3d = direct3D9Object();
        // Without Direct3D the snapshot stays empty (every lookup fails) and is tried again next time.
        if (!d3d) {
            if (!halSnapshot) halSnapshot.reset(new DeviceInfo());
            return halSnapshot;
        }
        halSnapshot.reset(new DeviceInfo(d3d, D3DDEVTYPE_HAL));
        halSnapshotBuilt = true;
    }
    return halSnapshot;
}

COMPtr<IDirect3D9>::pointer direct3D9Object() {
    ZEB_TRACE(fileLogger, "direct3D9Object");
    COMPtr<IDirect3D9>::pointer d3d(Direct3DCreate9(32));
    if (!d3d) d3d.reset(Direct3DCreate9(31));
    if (!d3d) ZEB_LOG(fileLogger, 3, 26, "Fail to initialize IDirect3D9, call to Direct3DCreate9 returns NULL");
    return d3d;
}

// Without a place for the answer there is nothing to report: false, logged.
static bool hasOutput(const unsigned int* version) {
    if (version) return true;
    ZEB_LOG(fileLogger, 3, __LINE__, "NULL output pointer for the shader version");
    return false;
}

extern "C" bool vertexShaderVersion(const zeb::String& name, unsigned int* version) {
    return hasOutput(version) && enumerateHALDeviceInformation()->vertexShaderVersion(name, *version);
}

extern "C" bool pixelShaderVersion(const zeb::String& name, unsigned int* version) {
    return hasOutput(version) && enumerateHALDeviceInformation()->pixelShaderVersion(name, *version);
}
