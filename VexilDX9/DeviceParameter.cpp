#include <VexilDX9/DeviceParameter.h>

#include <VexilDX9/detail/DeviceNaming.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9.Common")

namespace VexilDX9 {

namespace {

const unsigned int kNoOrdinal = 0xFFFFFFFF;

// Fresh output arrays for the swap chain listings.
void restartListing(zeb::Array<unsigned int>& ordinals, zeb::Array<SwapChainParameterDX9>& params) {
    ordinals = zeb::Array<unsigned int>();
    params = zeb::Array<SwapChainParameterDX9>();
}

}  // namespace

// ---- SwapChainParameterDX9 ----

SwapChainParameterDX9::SwapChainParameterDX9() : multiSampleType(0), reservedWord(0) {}

// ---- RenderDeviceParameterDX9 ----

RenderDeviceParameterDX9::RenderDeviceParameterDX9() = default;
RenderDeviceParameterDX9::RenderDeviceParameterDX9(const RenderDeviceParameterDX9& other) = default;
RenderDeviceParameterDX9::~RenderDeviceParameterDX9() = default;

RenderDeviceParameterDX9& RenderDeviceParameterDX9::operator=(const RenderDeviceParameterDX9& other) {
    if (this != &other) {
        adapterId = other.adapterId;
        swapChains = other.swapChains;
    }
    return *this;
}

// ---- AdapterInfo ----

const D3DCAPS9 AdapterInfo::m_emptyCaps = {};
const D3DADAPTER_IDENTIFIER9 AdapterInfo::m_emptyIdentifier = {};

AdapterInfo::AdapterInfo() = default;
AdapterInfo::AdapterInfo(const AdapterInfo& other) = default;
AdapterInfo& AdapterInfo::operator=(const AdapterInfo& other) = default;
AdapterInfo::~AdapterInfo() = default;

void AdapterInfo::populateInfo(unsigned int ordinal, D3DDEVTYPE type, IDirect3D9* d3d) {
    // Zero-filled, so a block whose call fails reads as the empty record does.
    m_caps.reset(new D3DCAPS9());
    m_identifier.reset(new D3DADAPTER_IDENTIFIER9());
    if (FAILED(d3d->GetAdapterIdentifier(ordinal, 0, m_identifier.get()))) {
        ZEB_LOG(fileLogger, 3, 74, "GetAdapterIdentifier failed for ordinal " + ordinal);
        return;
    }
    if (FAILED(d3d->GetDeviceCaps(ordinal, type, m_caps.get()))) {
        ZEB_LOG(fileLogger, 3, 69, "GetDeviceCaps failed. Invalid device type " + deviceClassificationName(type) +
                                       " for ordinal " + ordinal);
    }
}

const D3DCAPS9& AdapterInfo::caps() const { return m_caps ? *m_caps : m_emptyCaps; }

const D3DADAPTER_IDENTIFIER9& AdapterInfo::identifier() const {
    return m_identifier ? *m_identifier : m_emptyIdentifier;
}

unsigned int AdapterInfo::ordinal(const zeb::String& adapterId) const {
    if (displayDeviceName(identifier()).compareNoCase(adapterId) != 0) return kNoOrdinal;
    return caps().AdapterOrdinal;
}

bool AdapterInfo::addParameter(const RenderDeviceParameterDX9& p) {
    if (ordinal(p.adapterId) == kNoOrdinal) return false;
    // The first filed id stays; later parameters only add swap chains behind the first ones.
    if (m_renderParameter.adapterId.empty()) m_renderParameter.adapterId = p.adapterId;
    for (const SwapChainParameterDX9& chain : p.swapChains) m_renderParameter.swapChains.append(chain);
    return true;
}

// ---- AdapterInfoList ----

AdapterInfoList::AdapterInfoList() = default;
AdapterInfoList::AdapterInfoList(unsigned int count) { m_list.resize(count); }
AdapterInfoList::AdapterInfoList(const AdapterInfoList& other) = default;
AdapterInfoList& AdapterInfoList::operator=(const AdapterInfoList& other) = default;
AdapterInfoList::~AdapterInfoList() = default;

unsigned int AdapterInfoList::ordinal(const zeb::String& adapterId) {
    for (const AdapterInfo& adapter : m_list) {
        unsigned int found = adapter.ordinal(adapterId);
        if (found != kNoOrdinal) return found;
    }
    return kNoOrdinal;
}

unsigned int AdapterInfoList::findIndex(unsigned int ordinal) const {
    for (unsigned int i = 0; i < m_list.size(); ++i)
        if (m_list[i].caps().AdapterOrdinal == ordinal) return i;
    return kNoOrdinal;
}

bool AdapterInfoList::contains(unsigned int ordinal) { return findIndex(ordinal) != kNoOrdinal; }

bool AdapterInfoList::find(unsigned int ordinal, AdapterInfo& out) const {
    unsigned int index = findIndex(ordinal);
    if (index == kNoOrdinal) return false;
    out = m_list[index];
    return true;
}

// ---- DeviceGroup ----

// The head ordinal stays unset: the manager sets it when it makes the group.
DeviceGroup::DeviceGroup() = default;
DeviceGroup::DeviceGroup(const DeviceGroup& other) = default;
DeviceGroup& DeviceGroup::operator=(const DeviceGroup& other) = default;
DeviceGroup::~DeviceGroup() = default;

bool DeviceGroup::operator==(const DeviceGroup& other) const { return m_headOrdinal == other.m_headOrdinal; }

unsigned int DeviceGroup::ordinal(const zeb::String& adapterId) { return m_group.ordinal(adapterId); }

bool DeviceGroup::addParameter(const RenderDeviceParameterDX9& p) {
    for (AdapterInfo& adapter : m_group.adapterInfoList())
        if (adapter.addParameter(p)) return true;
    return false;
}

unsigned int DeviceGroup::mainSwapChainParam(zeb::Array<unsigned int>& ordinals,
                                             zeb::Array<SwapChainParameterDX9>& params) const {
    restartListing(ordinals, params);
    for (const AdapterInfo& adapter : m_group.adapterInfoList()) {
        const zeb::Array<SwapChainParameterDX9>& chains = adapter.renderParameter().swapChains;
        if (chains.empty()) continue;
        params.append(chains[0]);
        ordinals.append(adapter.caps().AdapterOrdinal);
    }
    return params.size();
}

unsigned int DeviceGroup::additionalSwapChainParam(zeb::Array<unsigned int>& ordinals,
                                                   zeb::Array<SwapChainParameterDX9>& params) const {
    restartListing(ordinals, params);
    for (const AdapterInfo& adapter : m_group.adapterInfoList()) {
        const zeb::Array<SwapChainParameterDX9>& chains = adapter.renderParameter().swapChains;
        for (unsigned int i = 1; i < chains.size(); ++i) {
            params.append(chains[i]);
            ordinals.append(adapter.caps().AdapterOrdinal);
        }
    }
    return params.size();
}

unsigned int DeviceGroup::listDeviceWindowsHandles(zeb::Array<HWND>& windows) const {
    for (const AdapterInfo& adapter : m_group.adapterInfoList())
        for (const SwapChainParameterDX9& chain : adapter.renderParameter().swapChains) windows.append(chain.window);
    return windows.size();
}

}  // namespace VexilDX9

// The record arrays of the device interface, instantiated whole so every member compiles here.
template class zeb::Array<VexilDX9::SwapChainParameterDX9>;
template class zeb::Array<VexilDX9::RenderDeviceParameterDX9>;
template class zeb::Array<VexilDX9::AdapterInfo>;
template class zeb::Array<VexilDX9::DeviceGroup>;
