#include <VexilDX9/RenderDeviceManagerDX9.h>

#include <VexilDX9/CComPtr.h>
#include <VexilDX9/detail/DeviceNaming.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9.RenderDeviceManagerDX9")

namespace VexilDX9 {

namespace {

const unsigned int kNoOrdinal = 0xFFFFFFFF;

bool hasGroups(const RenderDeviceManagerDX9::DeviceGroupListHolder& groups) { return groups && !groups->empty(); }

}  // namespace

const zeb::String& deviceClassificationName(D3DDEVTYPE type) {
    static bool built = false;
    static zeb::String names[5];
    if (!built) {
        names[0] = "INVALID CLASSIFICATION";
        names[1] = "HAL DEVICE";
        names[2] = "REF DEVICE";
        names[3] = "SW DEVICE";
        names[4] = "NULL DEVICE";
        built = true;
    }
    const unsigned int index = static_cast<unsigned int>(type);
    return index >= 1 && index <= 4 ? names[index] : names[0];
}

RenderDeviceManagerDX9::RenderDeviceManagerDX9() : m_usable(false) {
    ZEB_TRACE(fileLogger, "RenderDeviceManagerDX9::RenderDeviceManagerDX9");
    m_usable = createDirect3D9();
    m_halGroups = createDeviceGroup(D3DDEVTYPE_HAL);
    m_refGroups = createDeviceGroup(D3DDEVTYPE_REF);
}

// Members are copied with their holders' own semantics: the groups travel in transfer holders,
// so the copy takes them and the source is left without; devices are shared.
RenderDeviceManagerDX9::RenderDeviceManagerDX9(const RenderDeviceManagerDX9& other) = default;
RenderDeviceManagerDX9& RenderDeviceManagerDX9::operator=(const RenderDeviceManagerDX9& other) = default;

// Members go in reverse order: index, devices, groups, then the Direct3D object.
RenderDeviceManagerDX9::~RenderDeviceManagerDX9() = default;

bool RenderDeviceManagerDX9::createDirect3D9() {
    ZEB_TRACE(fileLogger, "RenderDeviceManagerDX9::createDirect3D9");
    m_d3d.reset(Direct3DCreate9(32));
    if (!m_d3d) m_d3d.reset(Direct3DCreate9(31));
    if (!m_d3d) ZEB_LOG(fileLogger, 3, 22, "Fail to initialize IDirect3D9, call to Direct3DCreate9 returns NULL");
    return !m_d3d.isNull();
}

RenderDeviceManagerDX9::AdapterInfoListHolder RenderDeviceManagerDX9::adapterProperties(D3DDEVTYPE type) {
    // Without a Direct3D object there is nothing to enumerate.
    const unsigned int n = m_d3d ? m_d3d->GetAdapterCount() : 0;
    AdapterInfoListHolder list(new AdapterInfoList(n));
    for (unsigned int i = 0; i < n; ++i) list->adapterInfoList()[i].populateInfo(i, type, m_d3d.get());
    return list;
}

RenderDeviceManagerDX9::DeviceGroupListHolder RenderDeviceManagerDX9::createDeviceGroup(D3DDEVTYPE type) {
    AdapterInfoListHolder list = adapterProperties(type);
    if (list->size() == 0) {
        ZEB_LOG(fileLogger, 3, 85, "No adapters of type " + deviceClassificationName(type) + " enumerated");
        return DeviceGroupListHolder();
    }
    DeviceGroupListHolder groups(new zeb::Array<DeviceGroup>());
    for (const AdapterInfo& adapter : list->adapterInfoList()) {
        const unsigned int master = adapter.caps().MasterAdapterOrdinal;
        unsigned int g = 0;
        while (g < groups->size() && (*groups)[g].headOrdinal() != master) ++g;
        if (g == groups->size()) {
            DeviceGroup group;
            group.headOrdinal() = master;
            groups->append(group);
        }
        (*groups)[g].group().adapterInfoList().append(adapter);
    }
    return groups;
}

void RenderDeviceManagerDX9::storeUserParameterToDeviceGroup(const zeb::Array<RenderDeviceParameterDX9>& params,
                                                             zeb::Array<DeviceGroup>& groups) {
    m_windowIndex = zeb::Array<DeviceWindowIndex>();
    for (unsigned int i = 0; i < params.size(); ++i) {
        const RenderDeviceParameterDX9& parameter = params[i];
        unsigned int j = 0;
        while (j < groups.size() && !groups[j].addParameter(parameter)) ++j;
        if (j == groups.size()) {
            ZEB_LOG(fileLogger, 1, 131, "Unable to associate device param " + i + " with a device");
            continue;
        }
        const unsigned int ordinal = adapterIdToOrdinal(parameter.adapterId, groups[j].group());
        for (const SwapChainParameterDX9& chain : parameter.swapChains)
            m_windowIndex.append(DeviceWindowIndex{chain.window, j, ordinal});
    }
}

unsigned int RenderDeviceManagerDX9::adapterIdToOrdinal(const zeb::String& adapterId, AdapterInfoList& list) {
    for (const AdapterInfo& adapter : list.adapterInfoList()) {
        const unsigned int ordinal = adapter.ordinal(adapterId);
        if (ordinal != kNoOrdinal) return ordinal;
    }
    return kNoOrdinal;
}

RenderDeviceManagerDX9::DeviceGroupListHolder& RenderDeviceManagerDX9::groupsOf(D3DDEVTYPE type) {
    return type == D3DDEVTYPE_HAL ? m_halGroups : m_refGroups;
}

zeb::Array<RenderDeviceManagerDX9::SharedRenderDevice>& RenderDeviceManagerDX9::devicesOf(D3DDEVTYPE type) {
    return type == D3DDEVTYPE_HAL ? m_halDevices : m_refDevices;
}

unsigned int RenderDeviceManagerDX9::createRenderDevice(D3DDEVTYPE type,
                                                        const zeb::Array<RenderDeviceParameterDX9>& params,
                                                        HWND focusWindow) {
    ZEB_TRACE(fileLogger, "RenderDeviceManagerDX9::createRenderDevice");
    DeviceGroupListHolder& groups = groupsOf(type);
    if (!hasGroups(groups)) {
        ZEB_LOG(fileLogger, 3, 178, "Cannot create render device with an empty device group list");
        return 0;
    }
    if (params.empty()) {
        ZEB_LOG(fileLogger, 3, 184, "Need at least one device parameter to create a device");
        return 0;
    }
    storeUserParameterToDeviceGroup(params, *groups);
    zeb::Array<SharedRenderDevice>& devices = devicesOf(type);
    devices = zeb::Array<SharedRenderDevice>();
    ATL::CComPtr<IDirect3D9> d3d(m_d3d.get());
    unsigned int total = 0;
    // One device per group, also for a group without parameters: the device list stays aligned
    // with the group list, which the window index relies on.
    for (const DeviceGroup& group : *groups) {
        SharedRenderDevice device(new RenderDeviceDX9(d3d));
        devices.append(device);
        total += device->initialize(type, group, focusWindow);
    }
    return total;
}

RenderDeviceManagerDX9::RenderDeviceReference RenderDeviceManagerDX9::renderDevice(D3DDEVTYPE type, HWND window) {
    for (const DeviceWindowIndex& entry : m_windowIndex) {
        if (entry.window != window) continue;
        // The index was filed for the latest call's type; the other list may not reach that far.
        const zeb::Array<SharedRenderDevice>& devices = devicesOf(type);
        return entry.deviceIndex < devices.size() ? RenderDeviceReference(devices[entry.deviceIndex].get())
                                                  : RenderDeviceReference();
    }
    return RenderDeviceReference();
}

unsigned int RenderDeviceManagerDX9::renderDevices(D3DDEVTYPE type, zeb::Array<RenderDeviceReference>& out) {
    out = zeb::Array<RenderDeviceReference>();
    for (const SharedRenderDevice& device : devicesOf(type)) out.append(RenderDeviceReference(device.get()));
    return out.size();
}

unsigned int RenderDeviceManagerDX9::currentAdapterFormat(const zeb::String& adapterId) {
    if (m_halGroups) {
        for (DeviceGroup& group : *m_halGroups) {
            const unsigned int ordinal = group.ordinal(adapterId);
            if (ordinal == kNoOrdinal) continue;
            D3DDISPLAYMODE mode = {};
            m_d3d->GetAdapterDisplayMode(ordinal, &mode);
            return mode.Format;
        }
    }
    ZEB_LOG(fileLogger, 3, 158, "Cannot verify that " + adapterId + " is an active device");
    return kNoOrdinal;
}

void RenderDeviceManagerDX9::clear() {
    m_halDevices = zeb::Array<SharedRenderDevice>();
    m_refDevices = zeb::Array<SharedRenderDevice>();
    m_windowIndex = zeb::Array<DeviceWindowIndex>();
}

}  // namespace VexilDX9
