#include <VexilDX9/Adapter.h>

#include <VexilDX9/SiblingLog.h>
#include <VexilDX9/detail/DeviceNaming.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

#include <cstddef>
#include <cstdio>
#include <cstring>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

namespace {

const char* const kSource = "VexilDX9/Adapter";
const unsigned int kNotFound = 0xFFFFFFFF;

const D3DFORMAT kValidAdapterFormats[] = {D3DFMT_A2R10G10B10, D3DFMT_A8R8G8B8, D3DFMT_X8R8G8B8,
                                          D3DFMT_A1R5G5B5,    D3DFMT_X1R5G5B5, D3DFMT_R5G6B5};

const unsigned long kPresentationIntervals[] = {D3DPRESENT_INTERVAL_IMMEDIATE, D3DPRESENT_INTERVAL_DEFAULT,
                                                D3DPRESENT_INTERVAL_ONE,       D3DPRESENT_INTERVAL_TWO,
                                                D3DPRESENT_INTERVAL_THREE,     D3DPRESENT_INTERVAL_FOUR};

const DWORD kVertexProcessingModes[] = {D3DCREATE_HARDWARE_VERTEXPROCESSING, D3DCREATE_MIXED_VERTEXPROCESSING,
                                        D3DCREATE_SOFTWARE_VERTEXPROCESSING};

// Stencil-bearing formats first.
const zeb::Array<D3DFORMAT>& depthStencilPreference() {
    static zeb::Array<D3DFORMAT> formats;
    if (formats.empty()) {
        const D3DFORMAT order[] = {D3DFMT_D24S8, D3DFMT_D24X4S4, D3DFMT_D15S1, D3DFMT_D32, D3DFMT_D16};
        for (D3DFORMAT f : order) formats.append(f);
    }
    return formats;
}

const unsigned int kLostDeviceWaits = 10;
const DWORD kLostDeviceWaitMs = 500;

// Grows the set as needed so a head's entry can sit at its ordinal in the group.
void setEntry(zeb::Array<D3DPRESENT_PARAMETERS>& set, unsigned int index, const D3DPRESENT_PARAMETERS& pp) {
    if (set.size() <= index) set.resize(index + 1);
    set[index] = pp;
}

zeb::String deviceName(const AdapterD3D9::DisplayHead& head) { return VexilDX9::displayDeviceName(head.identifier); }

// ---- capability report layout ----
// Each entry is one report line; its tag is 104 plus its position. Printed entries are masks
// that go to standard output whatever the log thresholds.
enum CapsEntryKind { PRINTED, LOGGED, LOGGED_FLOAT };
struct CapsEntry {
    CapsEntryKind kind;
    const char* label;
    std::size_t offset;
};
#define VEXIL_CAPS(kind, label, member) {kind, label, offsetof(D3DCAPS9, member)}
const CapsEntry kCapsReport[] = {
    VEXIL_CAPS(LOGGED, " Adapter Ordinal ", AdapterOrdinal),
    VEXIL_CAPS(LOGGED, " Adapter Ordinal in group ", AdapterOrdinalInGroup),
    VEXIL_CAPS(LOGGED, " Num adapters in group ", NumberOfAdaptersInGroup),
    VEXIL_CAPS(PRINTED, " Alpha comparison caps %08X\n", AlphaCmpCaps),
    VEXIL_CAPS(PRINTED, " Caps %08X\n", Caps),
    VEXIL_CAPS(PRINTED, " Caps2 %08X\n", Caps2),
    VEXIL_CAPS(PRINTED, " Caps3 %08X\n", Caps3),
    VEXIL_CAPS(LOGGED, " Max presentation swap interval ", PresentationIntervals),
    VEXIL_CAPS(PRINTED, " Cursor transparency cap %08X\n", CursorCaps),
    VEXIL_CAPS(PRINTED, " Device capability %08X\n", DevCaps),
    VEXIL_CAPS(PRINTED, " Miscellaneous caps %08X\n", PrimitiveMiscCaps),
    VEXIL_CAPS(PRINTED, " Raster drawing caps %08X\n", RasterCaps),
    VEXIL_CAPS(PRINTED, " Z Buffer comparison caps %08X\n", ZCmpCaps),
    VEXIL_CAPS(PRINTED, " Source blending caps %08X\n", SrcBlendCaps),
    VEXIL_CAPS(PRINTED, " Destination blending caps %08X\n", DestBlendCaps),
    VEXIL_CAPS(PRINTED, " Alpha test comparison caps %08X\n", AlphaCmpCaps),
    VEXIL_CAPS(PRINTED, " Shading operation caps %08X\n", ShadeCaps),
    VEXIL_CAPS(PRINTED, " Misc texture mapping caps %08X\n", TextureCaps),
    VEXIL_CAPS(PRINTED, " Texture filtering caps %08X\n", TextureFilterCaps),
    VEXIL_CAPS(PRINTED, " Cube texture filter caps %08X\n", CubeTextureFilterCaps),
    VEXIL_CAPS(PRINTED, " Volume texture filter caps %08X\n", VolumeTextureFilterCaps),
    VEXIL_CAPS(PRINTED, " Texture addressing caps %08X\n", TextureAddressCaps),
    VEXIL_CAPS(PRINTED, " Volume texture addressing caps %08X\n", VolumeTextureAddressCaps),
    VEXIL_CAPS(PRINTED, " Line drawing cap %08X\n", LineCaps),
    VEXIL_CAPS(LOGGED, " Maximum texture width ", MaxTextureWidth),
    VEXIL_CAPS(LOGGED, " Maximum texture height ", MaxTextureHeight),
    VEXIL_CAPS(LOGGED, " Maximum texture volume extent (w x h x d) ", MaxVolumeExtent),
    VEXIL_CAPS(LOGGED, " Maximum texture repeat ", MaxTextureRepeat),
    VEXIL_CAPS(LOGGED, " Maximum texture aspect ratio ", MaxTextureAspectRatio),
    VEXIL_CAPS(LOGGED, " Max Anistropy value ", MaxAnisotropy),
    VEXIL_CAPS(LOGGED_FLOAT, " Max W depth value ", MaxVertexW),
    VEXIL_CAPS(LOGGED_FLOAT, " Screen space clip guard band left ", GuardBandLeft),
    VEXIL_CAPS(LOGGED_FLOAT, " Screen space clip guard band top ", GuardBandTop),
    VEXIL_CAPS(LOGGED_FLOAT, " Screen space clip guard band right ", GuardBandRight),
    VEXIL_CAPS(LOGGED_FLOAT, " Screen space clip  guard band bottom ", GuardBandBottom),
    VEXIL_CAPS(LOGGED_FLOAT, " Extents adjust pixels ", ExtentsAdjust),
    VEXIL_CAPS(PRINTED, " Stencil caps %08X\n", StencilCaps),
    VEXIL_CAPS(PRINTED, " FVF caps %08X\n", FVFCaps),
    VEXIL_CAPS(PRINTED, " Supported texture operation caps %08X\n", TextureOpCaps),
    VEXIL_CAPS(LOGGED, " Maximum texture blending stage ", MaxTextureBlendStages),
    VEXIL_CAPS(LOGGED, " Maximum simultaneous texture for pixel shader ", MaxSimultaneousTextures),
    VEXIL_CAPS(PRINTED, " Vertex processing caps %08X\n", VertexProcessingCaps),
    VEXIL_CAPS(LOGGED, " Maximum active lights ", MaxActiveLights),
    VEXIL_CAPS(LOGGED, " Maximum clip planes ", MaxUserClipPlanes),
    VEXIL_CAPS(LOGGED, " Maximum vertex blending matrices ", MaxVertexBlendMatrices),
    VEXIL_CAPS(LOGGED_FLOAT, " Maximum point size ", MaxPointSize),
    VEXIL_CAPS(LOGGED, " Maximum primitive count for DrawPrimitive ", MaxPrimitiveCount),
    VEXIL_CAPS(LOGGED, " Maximum vertex indices ", MaxVertexIndex),
    VEXIL_CAPS(LOGGED, " Maximum number of concurrent data streams ", MaxStreams),
    VEXIL_CAPS(LOGGED, " Maximum strides for SetStreamSource ", MaxStreamStride),
    VEXIL_CAPS(LOGGED, " Vertex shader version ", VertexShaderVersion),
    VEXIL_CAPS(LOGGED, " Number of vertex shader registers for constants ", MaxVertexShaderConst),
    VEXIL_CAPS(LOGGED, " Pixel shader version ", PixelShaderVersion),
    VEXIL_CAPS(LOGGED_FLOAT, " Maximum value of pixel shader arithmetic component ", PixelShader1xMaxValue),
    VEXIL_CAPS(PRINTED, " Adaptive tessalation caps %08X\n", DevCaps2),
    VEXIL_CAPS(LOGGED_FLOAT, " Maximum N-patch subdivision level ", MaxNpatchTessellationLevel),
    VEXIL_CAPS(LOGGED, " Master device ordinal ", MasterAdapterOrdinal),
    VEXIL_CAPS(PRINTED, " Supported vertex declaration types %08X\n", DeclTypes),
    VEXIL_CAPS(LOGGED, " Number of simultaneous render target ", NumSimultaneousRTs),
    VEXIL_CAPS(PRINTED, " Supported StretchRect operations %08X\n", StretchRectFilterCaps),
    VEXIL_CAPS(PRINTED, " Supported vertex shader 2.0 caps %08X\n", VS20Caps.Caps),
    VEXIL_CAPS(PRINTED, " Supported pixel shader 2.0 caps %08X\n", PS20Caps.Caps),
    VEXIL_CAPS(PRINTED, " Vertex shader texture filter caps %08X\n", VertexTextureFilterCaps),
    VEXIL_CAPS(LOGGED, " Maximum vertex shader instructions executable ", MaxVShaderInstructionsExecuted),
    VEXIL_CAPS(LOGGED, " Maximum pixel shader instructions executable ", MaxPShaderInstructionsExecuted),
    VEXIL_CAPS(LOGGED, " Maximum vertex shader instructions slots ", MaxVertexShader30InstructionSlots),
    VEXIL_CAPS(LOGGED, " Maximum pixel shader instructions slots ", MaxPixelShader30InstructionSlots),
};
#undef VEXIL_CAPS
const unsigned int kCapsTitleTag = 103;

template <class T> T capsField(const D3DCAPS9& caps, std::size_t offset) {
    T value;
    std::memcpy(&value, reinterpret_cast<const char*>(&caps) + offset, sizeof value);
    return value;
}

}  // namespace

zeb::Array<AdapterD3D9::DisplayHead> AdapterD3D9::m_headList;

AdapterD3D9::AdapterD3D9()
    : m_d3dDeviceParams(),
      m_deviceType(D3DDEVTYPE_HAL),
      m_currentAdapterIndex(kNotFound),
      m_clearFlag(D3DCLEAR_TARGET),
      m_focusWindow(nullptr),
      m_vertexProcessingMode(0),
      m_multiSampling(false) {
    m_swapChainGroup.m_masterHeadIndex = kNotFound;
    m_swapChainGroup.m_numActiveChain = 0;
}

AdapterD3D9::AdapterD3D9(bool initializeNow) : AdapterD3D9() {
    if (initializeNow) ZEB_ASSERT(kSource, 1034, initialize());
}

AdapterD3D9::~AdapterD3D9() { releaseDeviceResources(); }

// ---------------------------------------------------------------------------------------------
// Heads and names

bool AdapterD3D9::initialize() {
    ZEB_TRACE(fileLogger, "AdapterD3D9::initialize");
    if (m_direct3D9) cleanup();
    m_direct3D9.reset(Direct3DCreate9(32));
    if (!m_direct3D9) m_direct3D9.reset(Direct3DCreate9(31));
    if (!m_direct3D9) {
        ZEB_LOG(fileLogger, 4, 50, "Fail to initialize IDirect3D9, call to Direct3DCreate9 returns NULL");
        return false;
    }
    return enumerateAllHeads();
}

bool AdapterD3D9::enumerateAllHeads() {
    ZEB_TRACE(fileLogger, "AdapterD3D9::enumerateAllHeads");
    if (!m_direct3D9) {
        ZEB_LOG(fileLogger, 1, 63, "enumerateAllHeads called before calling initialize");
        return false;
    }
    if (!m_headList.empty()) {
        ZEB_LOG(fileLogger, 1, 69, "Head list already created");
        return true;
    }
    const unsigned int count = m_direct3D9->GetAdapterCount();
    m_headList.resize(count);
    for (unsigned int i = 0; i < count; ++i) {
        DisplayHead& head = m_headList[i];
        // Results are not examined: a failed call leaves its record zeroed.
        m_direct3D9->GetDeviceCaps(i, m_deviceType, &head.caps);
        m_direct3D9->GetAdapterIdentifier(i, 0, &head.identifier);
        D3DDISPLAYMODE current = {};
        m_direct3D9->GetAdapterDisplayMode(i, &current);
        const unsigned int modes = m_direct3D9->GetAdapterModeCount(i, current.Format);
        for (unsigned int j = 0; j < modes; ++j) {
            D3DDISPLAYMODE mode = {};
            m_direct3D9->EnumAdapterModes(i, current.Format, j, &mode);
            head.modes.append(mode);
        }
        head.renderFlag = false;
    }
    return true;
}

bool AdapterD3D9::isInitialized() const {
    const SwapChainGroup& group = m_swapChainGroup;
    ZEB_LOG(fileLogger, 1, 243,
            "m_swapChainGroup.m_device = " + reinterpret_cast<unsigned long long>(group.m_device.get()));
    ZEB_LOG(fileLogger, 1, 244, "m_direct3D9 = " + reinterpret_cast<unsigned long long>(m_direct3D9.get()));
    ZEB_LOG(fileLogger, 1, 245, "m_swapChainGroup.m_renderingHeadIndex.size() = " + group.m_renderingHeadIndex.size());
    return group.m_device && m_direct3D9 && group.m_renderingHeadIndex.size() > 0;
}

unsigned int AdapterD3D9::headCount() const { return m_headList.size(); }

const AdapterD3D9::DisplayHead& AdapterD3D9::displayHead(unsigned int headIndex) const { return m_headList[headIndex]; }

const AdapterD3D9::DisplayHead* AdapterD3D9::storedHead(unsigned long ordinal, unsigned int outOfBoundTag) const {
    if (ordinal < headCount()) return &m_headList[ordinal];
    ZEB_LOG(fileLogger, 4, outOfBoundTag, "Adapter index " + ordinal + " out of bound");
    return nullptr;
}

bool AdapterD3D9::adapterIdentifier(unsigned long ordinal, D3DADAPTER_IDENTIFIER9& identifier) const {
    const DisplayHead* head = storedHead(ordinal, 224);
    if (head) identifier = head->identifier;
    return head != nullptr;
}

bool AdapterD3D9::adapterCaps(unsigned long ordinal, D3DCAPS9& caps) const {
    const DisplayHead* head = storedHead(ordinal, 236);
    if (head) caps = head->caps;
    return head != nullptr;
}

unsigned int AdapterD3D9::osLocatorHeadIndex(const zeb::String& osLocator) const {
    ZEB_TRACE(fileLogger, "AdapterD3D9::osLocatorHeadIndex");
    for (unsigned int i = 0; i < m_headList.size(); ++i) {
        const zeb::String name = deviceName(m_headList[i]);
        ZEB_LOG(fileLogger, 1, 1056, "Comparing " + name + " with " + osLocator);
        if (name.compareNoCase(osLocator) == 0) return i;
    }
    return kNotFound;
}

unsigned int AdapterD3D9::masterHeadIndex(const zeb::Array<zeb::String>& osLocatorList) const {
    ZEB_ASSERT(kSource, 805, osLocatorList.size() > 0);
    // A single head is always taken as its own master.
    if (osLocatorList.size() == 1) return osLocatorHeadIndex(osLocatorList[0]);
    for (const zeb::String& name : osLocatorList) {
        const unsigned int index = osLocatorHeadIndex(name);
        if (index != kNotFound && isMasterHead(m_headList[index])) return m_headList[index].caps.AdapterOrdinal;
    }
    return kNotFound;
}

bool AdapterD3D9::isMasterHead(const DisplayHead& head) const {
    return head.caps.AdapterOrdinal == head.caps.MasterAdapterOrdinal;
}

bool AdapterD3D9::isSubordinateHead(const DisplayHead& head, const DisplayHead& master) const {
    return !isMasterHead(head) && master.caps.AdapterOrdinal == head.caps.MasterAdapterOrdinal;
}

zeb::Array<unsigned int> AdapterD3D9::listSubordinateHeadIndex(const DisplayHead& masterHead) const {
    ZEB_ASSERT(kSource, 812, isMasterHead(masterHead));
    zeb::Array<unsigned int> subordinates;
    for (unsigned int i = 0; i < m_headList.size(); ++i) {
        if (isSubordinateHead(m_headList[i], masterHead)) subordinates.append(i);
    }
    return subordinates;
}

unsigned int AdapterD3D9::chainIndex(const zeb::String& osLocator) const {
    ZEB_TRACE(fileLogger, "AdapterD3D9::chainIndex");
    const zeb::Array<zeb::String>& active = m_swapChainGroup.m_osLocator;
    for (unsigned int p = 0; p < active.size(); ++p) {
        if (active[p].compareNoCase(osLocator) != 0) continue;
        ZEB_LOG(fileLogger, 1, 1271, "os locator " + osLocator + " index= " + p);
        return p;
    }
    return kNotFound;
}

bool AdapterD3D9::isSameRenderingOSLocator(const zeb::Array<zeb::String>& osLocatorList) const {
    const zeb::Array<zeb::String>& active = m_swapChainGroup.m_osLocator;
    if (active.size() != osLocatorList.size()) return false;
    for (const zeb::String& name : active) {
        bool listed = false;
        for (const zeb::String& other : osLocatorList) listed = listed || name.compareNoCase(other) == 0;
        if (!listed) return false;
    }
    return true;
}

unsigned int AdapterD3D9::adapterIndex(const zeb::String&) const {
    if (!m_swapChainGroup.m_device) return kNotFound;
    D3DCAPS9 caps = {};
    if (FAILED(m_swapChainGroup.m_device->GetDeviceCaps(&caps))) return kNotFound;
    return caps.AdapterOrdinal;
}

void AdapterD3D9::resetHeadRenderFlag() {
    for (DisplayHead& head : m_headList) head.renderFlag = false;
}

// ---------------------------------------------------------------------------------------------
// Device creation and present parameters

bool AdapterD3D9::isAdapterFormatValid(D3DFORMAT format) {
    for (D3DFORMAT valid : kValidAdapterFormats) {
        if (valid == format) return true;
    }
    return false;
}

unsigned int AdapterD3D9::formatBitDepth(D3DFORMAT format) const {
    switch (format) {
    case D3DFMT_A8R8G8B8:
    case D3DFMT_X8R8G8B8:
    case D3DFMT_A2R10G10B10:
        return 32;
    case D3DFMT_R5G6B5:
    case D3DFMT_X1R5G5B5:
    case D3DFMT_A1R5G5B5:
        return 16;
    default:
        ZEB_LOG(fileLogger, 4, 1139, "Format not recognized, please update code");
        return 0;
    }
}

unsigned long AdapterD3D9::getFastestPresentationInterval(const D3DCAPS9& caps) const {
    // D3DPRESENT_INTERVAL_DEFAULT is 0 and so never matches; it keeps its place all the same.
    for (unsigned long interval : kPresentationIntervals) {
        if (caps.PresentationIntervals & interval) return interval;
    }
    return kNotFound;
}

D3DPRESENT_PARAMETERS AdapterD3D9::createDevicePresentParam(unsigned int headIndex, bool windowed, HWND window,
                                                            bool autoDepthStencil) {
    D3DCAPS9 caps = {};
    adapterCaps(headIndex, caps);
    D3DPRESENT_PARAMETERS pp = {};
    pp.BackBufferCount = 1;
    pp.Windowed = windowed;
    // Without a Direct3D object (initialize not called) every query fails and the fall-backs apply.
    D3DDISPLAYMODE mode = {};
    if (m_direct3D9) m_direct3D9->GetAdapterDisplayMode(headIndex, &mode);
    if (isAdapterFormatValid(mode.Format)) {
        pp.BackBufferFormat = mode.Format;
    } else {
        ZEB_LOG(fileLogger, 1, 314, "defaulting to D3DFMT_R5G6B5");
        pp.BackBufferFormat = D3DFMT_R5G6B5;
    }
    pp.hDeviceWindow = window;
    if (windowed) {
        pp.SwapEffect = D3DSWAPEFFECT_COPY;
        pp.PresentationInterval = D3DPRESENT_INTERVAL_DEFAULT;
    } else {
        pp.BackBufferWidth = mode.Width;
        pp.BackBufferHeight = mode.Height;
        pp.FullScreen_RefreshRateInHz = mode.RefreshRate;
        pp.SwapEffect = D3DSWAPEFFECT_FLIP;
        pp.PresentationInterval = getFastestPresentationInterval(caps);
    }
    pp.Flags = 0;
    configureDepthStencilParam(headIndex, caps, pp.BackBufferFormat, pp);
    // The format stays chosen even when the caller makes its own depth buffers.
    pp.EnableAutoDepthStencil = autoDepthStencil;
    pp.MultiSampleType = D3DMULTISAMPLE_NONE;
    if (!m_multiSampling) return pp;

    DWORD levels = 0;
    const bool supported = m_direct3D9 && SUCCEEDED(m_direct3D9->CheckDeviceMultiSampleType(
                                              headIndex, m_deviceType, pp.BackBufferFormat, pp.Windowed,
                                              D3DMULTISAMPLE_NONMASKABLE, &levels));
    if (!supported) {
        ZEB_LOG(fileLogger, 2, 378, "Multisample anti aliasing is not supported by the device");
        pp.MultiSampleQuality = 0;
        return pp;
    }
    ZEB_LOG(fileLogger, 2, 360, "MultiSampleQuality supported = " + levels);
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.MultiSampleType = D3DMULTISAMPLE_NONMASKABLE;
    pp.MultiSampleQuality = levels > 2 ? 2 : (levels > 0 ? levels - 1 : 0);
    pp.Flags &= ~static_cast<DWORD>(D3DPRESENTFLAG_LOCKABLE_BACKBUFFER);
    return pp;
}

bool AdapterD3D9::createDevicePresentParam(const zeb::Array<zeb::String>& osLocatorList,
                                           const zeb::Array<HWND>& deviceWindow, bool windowed) {
    ZEB_ASSERT(kSource, 743, osLocatorList.size() > 0);
    SwapChainGroup& group = m_swapChainGroup;
    group.m_presentParam.clear();
    if (group.m_renderingHeadIndex.size() == 1) {
        setEntry(group.m_presentParam, 0,
                 createDevicePresentParam(group.m_renderingHeadIndex[0], windowed, deviceWindow[0], true));
        return true;
    }
    // Several heads: one entry per head of the card, each at its ordinal in the group.
    const unsigned int master = group.m_masterHeadIndex;
    ZEB_LOG(fileLogger, 1, 757, "Master head index " + master);
    const zeb::Array<unsigned int> subordinate = listSubordinateHeadIndex(m_headList[master]);
    setEntry(group.m_presentParam, 0, createDevicePresentParam(master, windowed, deviceWindow[0], false));
    ZEB_ASSERT(kSource, 763, deviceWindow.size() >= (subordinate.size() + 1));
    for (unsigned int k = 0; k < subordinate.size(); ++k) {
        const unsigned int head = subordinate[k];
        setEntry(group.m_presentParam, m_headList[head].caps.AdapterOrdinalInGroup,
                 createDevicePresentParam(head, windowed, deviceWindow[k + 1], false));
    }
    return true;
}

void AdapterD3D9::configureDepthStencilParam(unsigned int headIndex, const D3DCAPS9& caps, D3DFORMAT adapterFormat,
                                             D3DPRESENT_PARAMETERS& pp) {
    ZEB_TRACE(fileLogger, "AdapterD3D9::configureDepthStencilParam");
    pp.EnableAutoDepthStencil = FALSE;
    for (D3DFORMAT format : depthStencilPreference()) {
        if (!m_direct3D9 || FAILED(m_direct3D9->CheckDeviceFormat(headIndex, caps.DeviceType, adapterFormat,
                                                                  D3DUSAGE_DEPTHSTENCIL, D3DRTYPE_SURFACE, format)))
            continue;
        ZEB_LOG(fileLogger, 2, 497, "Using ZStencil buffer format " + static_cast<unsigned int>(format));
        pp.AutoDepthStencilFormat = format;
        pp.EnableAutoDepthStencil = TRUE;
        return;
    }
    ZEB_LOG(fileLogger, 2, 505, "IDirect3DDevice9 will be created without a depth-stencil buffer");
}

void AdapterD3D9::downgradeResolution(unsigned int headIndex, D3DPRESENT_PARAMETERS& pp) {
    ZEB_TRACE(fileLogger, "AdapterD3D9::downgradeResolution");
    ZEB_ASSERT(kSource, 1005, headIndex < m_headList.size());
    const zeb::Array<D3DDISPLAYMODE>& modes = m_headList[headIndex].modes;
    if (modes.empty()) {
        ZEB_LOG(fileLogger, 4, __LINE__, "No display mode to downgrade to on head " + headIndex);
        return;
    }
    const unsigned long long target = 1ull * pp.BackBufferWidth * pp.BackBufferHeight;
    unsigned int best = 0;
    unsigned long long bestPixels = 0;
    for (unsigned int i = 0; i < modes.size(); ++i) {
        const unsigned long long pixels = 1ull * modes[i].Width * modes[i].Height;
        if (pixels < target && pixels > bestPixels) {
            best = i;
            bestPixels = pixels;
        }
    }
    pp.BackBufferWidth = modes[best].Width;
    pp.BackBufferHeight = modes[best].Height;
}

IDirect3DDevice9* AdapterD3D9::defaultD3DDevice(unsigned long adapter, HWND window, bool windowed,
                                                D3DDEVTYPE deviceType) {
    ZEB_TRACE(fileLogger, "AdapterD3D9::defaultD3DDevice");
    ZEB_ASSERT(kSource, 832, (deviceType == D3DDEVTYPE_HAL) || (deviceType == D3DDEVTYPE_REF));
    SetFocus(window);
    zeb::Array<D3DPRESENT_PARAMETERS>& set = m_swapChainGroup.m_presentParam;
    if (set.empty()) set.resize(1);
    HRESULT hr = E_FAIL;
    for (DWORD mode : kVertexProcessingModes) {
        if (!m_direct3D9) break;
        ZEB_LOG(fileLogger, 1, 871, "Creating Direct3D9 device using vertex processing mode " + mode);
        const DWORD flags = mode | (set.size() >= 2 && !windowed ? D3DCREATE_ADAPTERGROUP_DEVICE : 0);
        IDirect3DDevice9* device = nullptr;
        hr = createDeviceRetrying(adapter, deviceType, window, flags, &device);
        if (SUCCEEDED(hr) && device) {
            m_currentAdapterIndex = adapter;
            m_focusWindow = window;
            m_vertexProcessingMode = mode;
            m_clearFlag |= D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL;
            return device;
        }
    }
    ZEB_LOG(fileLogger, 4, 947,
            "Unable to create a Direct3DDevice9 object from adapter index " + adapter + ", HRESULT = " + hr);
    logD3DFunction(fileLogger, "IDirect3D9::CreateDevice", hr, false);
    return nullptr;
}

// Short video memory shrinks the group's back buffers and retries at once, without limit unless the
// head has no modes to shrink to; a lost or busy device is waited for, ten times at most.
HRESULT AdapterD3D9::createDeviceRetrying(unsigned long adapter, D3DDEVTYPE deviceType, HWND window, DWORD flags,
                                          IDirect3DDevice9** device) {
    zeb::Array<D3DPRESENT_PARAMETERS>& set = m_swapChainGroup.m_presentParam;
    unsigned int attempts = 0;
    for (;;) {
        const HRESULT hr = m_direct3D9->CreateDevice(adapter, deviceType, window, flags, &set[0], device);
        logD3DFunction(fileLogger, "IDirect3D9::CreateDevice", hr, false);
        if (hr == D3DERR_OUTOFVIDEOMEMORY) {
            if (!downgradeGroupResolution(adapter)) return hr;  // nothing smaller to try
            continue;
        }
        if (hr == D3DERR_DEVICELOST) ZEB_LOG(fileLogger, 4, 907, "Device is lost at creation time");
        if (hr != D3DERR_DEVICELOST && hr != D3DERR_NOTAVAILABLE) return hr;
        Sleep(kLostDeviceWaitMs);
        if (++attempts >= kLostDeviceWaits) return hr;
    }
}

// Every entry of the group is matched against the mode list of the creating head; false when
// that head has no modes, so that the retry ends.
bool AdapterD3D9::downgradeGroupResolution(unsigned long adapter) {
    zeb::Array<D3DPRESENT_PARAMETERS>& set = m_swapChainGroup.m_presentParam;
    if (adapter >= headCount() || m_headList[adapter].modes.empty()) {
        ZEB_LOG(fileLogger, 4, __LINE__, "No display mode to downgrade to on head " + static_cast<unsigned>(adapter));
        return false;
    }
    const unsigned int groupSize = m_headList[adapter].caps.NumberOfAdaptersInGroup;
    for (unsigned int e = 0; e < groupSize && e < set.size(); ++e) {
        downgradeResolution(adapter, set[e]);
        ZEB_LOG(fileLogger, 2, 901, "Downgraded dimension " + set[e].BackBufferWidth + " x " + set[e].BackBufferHeight);
    }
    return true;
}

// ---------------------------------------------------------------------------------------------
// Swap chains, depth buffers, reset

bool AdapterD3D9::createSwapChain(const zeb::Array<zeb::String>& osLocatorList, HWND focusWindow,
                                  const zeb::Array<HWND>& deviceWindow, bool windowed, D3DDEVTYPE deviceType) {
    ZEB_TRACE(fileLogger, "AdapterD3D9::createSwapChain");
    if (osLocatorList.empty()) {
        ZEB_LOG(fileLogger, 3, 563, "Zero size os locator list passed");
        return false;
    }
    releaseDeviceResources();
    SwapChainGroup& group = m_swapChainGroup;
    if (!m_direct3D9) {
        ZEB_LOG(fileLogger, 3, 633, "Unable to create swap chain mapping");
        return false;
    }
    group.m_renderingHeadIndex.clear();
    group.m_osLocator.clear();
    group.m_numActiveChain = 0;
    m_deviceType = deviceType;

    for (unsigned int locator = 0; locator < osLocatorList.size(); ++locator) {
        ZEB_LOG(fileLogger, 1, 577, "osLocatorList[locator] = " + osLocatorList[locator]);
        const unsigned int index = osLocatorHeadIndex(osLocatorList[locator]);
        // A head without a monitor cannot show a chain.
        if (index == kNotFound || !m_direct3D9->GetAdapterMonitor(m_headList[index].caps.AdapterOrdinal)) continue;
        m_headList[index].renderFlag = true;
        group.m_renderingHeadIndex.append(index);
        group.m_osLocator.append(osLocatorList[locator]);
    }
    if (group.m_renderingHeadIndex.empty()) {
        ZEB_LOG(fileLogger, 1, 612, "No monitor attached to video head, using default");
        group.m_masterHeadIndex = 0;
        m_headList[0].renderFlag = true;
        group.m_renderingHeadIndex.append(0);
        group.m_osLocator.append(osLocatorList[0]);
    }
    group.m_masterHeadIndex = group.m_renderingHeadIndex.size() == 1
                                  ? m_headList[group.m_renderingHeadIndex[0]].caps.AdapterOrdinal
                                  : masterHeadIndex(osLocatorList);

    createDevicePresentParam(osLocatorList, deviceWindow, windowed);
    group.m_device.reset(defaultD3DDevice(group.m_masterHeadIndex, focusWindow, windowed, deviceType));
    group.m_numActiveChain = group.m_renderingHeadIndex.size();
    if (!group.m_device) {
        ZEB_LOG(fileLogger, 3, 633, "Unable to create swap chain mapping");
        return false;
    }
    m_d3dDeviceParams = group.m_presentParam[0];
    return attachSwapChains(windowed) && createDepthStencilBuffer();
}

// Chain k shows head k of the rendering list: the device's own chain in full screen and at group
// position 0, an additional chain for every other windowed head.
bool AdapterD3D9::attachSwapChains(bool windowed) {
    SwapChainGroup& group = m_swapChainGroup;
    const unsigned int chains = group.m_renderingHeadIndex.size();
    for (unsigned int k = 0; k < chains; ++k) {
        const unsigned int position =
            chains >= 2 ? m_headList[group.m_renderingHeadIndex[k]].caps.AdapterOrdinalInGroup : 0;
        COMPtr<IDirect3DSwapChain9>::pointer chain;
        if (!windowed || position == 0) {
            if (FAILED(group.m_device->GetSwapChain(position, chain.receive()))) {
                ZEB_LOG(fileLogger, 4, 665, "GetSwapChain fails ");
                return false;
            }
        } else if (position >= group.m_presentParam.size() ||
                   FAILED(group.m_device->CreateAdditionalSwapChain(&group.m_presentParam[position],
                                                                    chain.receive()))) {
            ZEB_LOG(fileLogger, 4, 658, "CreateAdditionalSwapChain fails ");
            return false;
        }
        group.m_swapChain.append(chain);
    }
    return true;
}

bool AdapterD3D9::createDepthStencilBuffer() {
    ZEB_TRACE(fileLogger, "AdapterD3D9::createDepthStencilBuffer()");
    SwapChainGroup& group = m_swapChainGroup;
    group.m_depthBuffer.clear();
    if (group.m_numActiveChain == 0 || !group.m_device) {
        ZEB_LOG(fileLogger, 2, 691, "Number of active chain = " + group.m_numActiveChain);
        return false;
    }
    if (group.m_numActiveChain == 1) {
        COMPtr<IDirect3DSurface9>::pointer surface;
        if (FAILED(group.m_device->GetDepthStencilSurface(surface.receive())))
            ZEB_LOG(fileLogger, 3, 729, "Device does not have a depth stencil buffer ");
        group.m_depthBuffer.append(surface);
    } else {
        for (unsigned int k = 0; k < group.m_numActiveChain; ++k) {
            const unsigned int entry = m_headList[group.m_renderingHeadIndex[k]].caps.AdapterOrdinalInGroup;
            const D3DPRESENT_PARAMETERS pp = entry < group.m_presentParam.size() ? group.m_presentParam[entry]
                                                                                 : D3DPRESENT_PARAMETERS();
            COMPtr<IDirect3DSurface9>::pointer surface;
            const HRESULT hr = group.m_device->CreateDepthStencilSurface(
                pp.BackBufferWidth, pp.BackBufferHeight, pp.AutoDepthStencilFormat, pp.MultiSampleType,
                pp.MultiSampleQuality, TRUE, surface.receive(), nullptr);
            if (FAILED(hr)) {
                ZEB_LOG(fileLogger, 3, 719, "Unable to create a depth buffer for swap chain " + k + " result " + hr);
                return false;
            }
            group.m_depthBuffer.append(surface);
        }
    }
    ZEB_LOG(fileLogger, 1, 733, "CreateDepthStencilBuffer succeeded");
    return true;
}

COMPtr<IDirect3DSwapChain9>::pointer AdapterD3D9::swapChain(const zeb::String& osLocator) const {
    const unsigned int k = chainIndex(osLocator);
    const zeb::Array<COMPtr<IDirect3DSwapChain9>::pointer>& chains = m_swapChainGroup.m_swapChain;
    return k < chains.size() ? chains[k] : COMPtr<IDirect3DSwapChain9>::pointer();
}

COMPtr<IDirect3DSurface9>::pointer AdapterD3D9::depthBuffer(const zeb::String& osLocator) const {
    const unsigned int k = chainIndex(osLocator);
    const zeb::Array<COMPtr<IDirect3DSurface9>::pointer>& buffers = m_swapChainGroup.m_depthBuffer;
    return k < buffers.size() ? buffers[k] : COMPtr<IDirect3DSurface9>::pointer();
}

// Waits out a lost device, at most nine times 500 ms.
void AdapterD3D9::waitWhileLost() {
    IDirect3DDevice9* device = m_swapChainGroup.m_device.get();
    unsigned int countdown = kLostDeviceWaits;
    while (device->TestCooperativeLevel() == D3DERR_DEVICELOST) {
        if (--countdown == 0) break;
        ZEB_LOG(fileLogger, 1, 1233, "Device in lost state, sleeping 500 ms");
        Sleep(kLostDeviceWaitMs);
    }
}

void AdapterD3D9::releaseDeviceResources() {
    SwapChainGroup& group = m_swapChainGroup;
    ZEB_LOG(fileLogger, 1, 1218, "Releasing depth stencil");
    group.m_depthBuffer.clear();
    ZEB_LOG(fileLogger, 1, 1221, "Releasing swap chain");
    group.m_swapChain.clear();
    ZEB_LOG(fileLogger, 1, 1224, "Testing device validity");
    if (!group.m_device) return;
    ZEB_LOG(fileLogger, 1, 1229, "Testing device cooperative level for lost device");
    waitWhileLost();
    ZEB_LOG(fileLogger, 1, 1237, "Testing device cooperative level for device reset");
    if (group.m_device->TestCooperativeLevel() == D3DERR_DEVICENOTRESET && !group.m_presentParam.empty()) {
        ZEB_LOG(fileLogger, 1, 1240, "Device is in not reset state");
        logD3DFunction(fileLogger, "IDirect3DDevice9::Reset", group.m_device->Reset(&group.m_presentParam[0]), false);
    }
    ZEB_LOG(fileLogger, 1, 1244, "Releasing device");
    group.m_device.reset();
}

long AdapterD3D9::reset() {
    ZEB_TRACE(fileLogger, "AdapterD3D9::reset");
    SwapChainGroup& group = m_swapChainGroup;
    group.m_depthBuffer.clear();
    if (!group.m_device || group.m_presentParam.empty()) {
        ZEB_LOG(fileLogger, 3, __LINE__, "No device to reset: createSwapChain has not made one");
        return D3DERR_INVALIDCALL;
    }
    IDirect3DDevice9* device = group.m_device.get();
    // A lost device is reset until it stops reporting the loss.
    while (device->TestCooperativeLevel() == D3DERR_DEVICELOST) device->Reset(&group.m_presentParam[0]);
    const HRESULT level = device->TestCooperativeLevel();
    if (level != D3DERR_DEVICENOTRESET)
        return logD3DFunction(fileLogger, "IDirect3DDevice9::TestCooperativeLevel()", level, false);
    const HRESULT result = device->Reset(&group.m_presentParam[0]);
    bringFocusWindowForward();
    createDepthStencilBuffer();
    return SUCCEEDED(result) ? result : E_FAIL;
}

void AdapterD3D9::bringFocusWindowForward() {
    if (!SetForegroundWindow(m_focusWindow)) {
        const unsigned long error = GetLastError();
        ZEB_LOG(fileLogger, 3, 1194, "SetForegroundWindow fails " + error);
    }
    ShowWindow(m_focusWindow, SW_SHOWNORMAL);
    SetFocus(m_focusWindow);
    if (!SetActiveWindow(m_focusWindow)) {
        const unsigned long error = GetLastError();
        ZEB_LOG(fileLogger, 3, 1202, "SetActivceWindow fails " + error);
    }
}

void AdapterD3D9::cleanup() {
    ZEB_TRACE(fileLogger, "AdapterD3D9::cleanup");
    releaseDeviceResources();
    m_swapChainGroup.m_renderingHeadIndex.clear();
    m_swapChainGroup.m_osLocator.clear();
    m_swapChainGroup.m_presentParam.clear();
    m_swapChainGroup.m_numActiveChain = 0;
    m_direct3D9.reset();
}

bool AdapterD3D9::isZStencilBufferSupported() const {
    const zeb::Array<D3DPRESENT_PARAMETERS>& set = m_swapChainGroup.m_presentParam;
    return !set.empty() && set[0].AutoDepthStencilFormat != D3DFMT_UNKNOWN;
}

bool AdapterD3D9::toggleMultiSampling() {
    const bool before = m_multiSampling;
    m_multiSampling = !m_multiSampling;
    return before;
}

// ---------------------------------------------------------------------------------------------
// Reports

void AdapterD3D9::displayInfo(const zeb::String& osLocator) const {
    const unsigned int index = osLocatorHeadIndex(osLocator);
    if (index == kNotFound) {
        ZEB_LOG(fileLogger, 3, 208, "OS Locator " + osLocator + " has not been enumerated at initialize()");
        return;
    }
    displayInfo(m_headList[index]);
}

void AdapterD3D9::displayInfo(const DisplayHead& head) const {
    ZEB_TRACE(fileLogger, "AdapterD3D9::displayInfo(adapter)");
    const D3DADAPTER_IDENTIFIER9& id = head.identifier;
    ZEB_LOG(fileLogger, 2, 178, "    Description         " + zeb::String(id.Description));
    ZEB_LOG(fileLogger, 2, 179, "    DeviceID            " + id.DeviceId);
    const GUID& guid = id.DeviceIdentifier;
    std::printf("    Device Identifier %08X-%04X-%04X-", static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3);
    for (unsigned char byte : guid.Data4) std::printf("%02X", byte);
    ZEB_LOG(fileLogger, 2, 188, "    Device Name         " + deviceName(head));
    ZEB_LOG(fileLogger, 2, 189, "    Driver Name         " + zeb::String(id.Driver));
    ZEB_LOG(fileLogger, 2, 192,
            "    Driver version      " + id.DriverVersion.HighPart + "." + id.DriverVersion.LowPart);
    ZEB_LOG(fileLogger, 2, 193, "    Driver revision     " + id.Revision);
    ZEB_LOG(fileLogger, 2, 194, "    Subsystem ID        " + id.SubSysId);
    // The vendor number is reported under this label.
    ZEB_LOG(fileLogger, 2, 195, "    Adapter ID          " + id.VendorId);
}

void AdapterD3D9::displayCaps(const DisplayHead& head) const {
    ZEB_TRACE(fileLogger, "AdapterD3D9::displayCaps");
    ZEB_LOG(fileLogger, 2, kCapsTitleTag, "Adapter Capabilities");
    unsigned int tag = kCapsTitleTag;
    for (const CapsEntry& entry : kCapsReport) {
        ++tag;
        if (entry.kind == PRINTED) {
            std::printf(entry.label, static_cast<unsigned>(capsField<DWORD>(head.caps, entry.offset)));
        } else if (entry.kind == LOGGED) {
            ZEB_LOG(fileLogger, 2, tag, entry.label + capsField<DWORD>(head.caps, entry.offset));
        } else {
            ZEB_LOG(fileLogger, 2, tag, entry.label + capsField<float>(head.caps, entry.offset));
        }
    }
}
