#pragma once
// Records with which a caller describes the devices it wants, and with which the device manager
// describes the adapters Direct3D reports, grouped by master adapter.
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/Resource.h>
#include <zeb/String.h>

#include <d3d9.h>
#include <windows.h>

namespace VexilDX9 {

// One swap chain wanted on an adapter. The default constructor clears only the first two words.
class VEXILDX9_API SwapChainParameterDX9 {
public:
    SwapChainParameterDX9();

    unsigned int multiSampleType;  // a D3DMULTISAMPLE_TYPE; 0 = none
    unsigned int reservedWord;     // kept for layout; nothing reads it
    unsigned int backBufferCount;  // clamped to 3 when present parameters are built
    unsigned int spareWord;        // kept for layout; nothing reads it
    bool windowed;
    bool depthStencil;  // wants an automatic depth-stencil buffer
    HWND window;        // presented to; in full screen also the device window
};

// The swap chains wanted on one adapter, named by its display device name. Element 0 is the
// adapter's main (implicit) swap chain.
class VEXILDX9_API RenderDeviceParameterDX9 {
public:
    RenderDeviceParameterDX9();
    RenderDeviceParameterDX9(const RenderDeviceParameterDX9& other);
    RenderDeviceParameterDX9& operator=(const RenderDeviceParameterDX9& other);
    ~RenderDeviceParameterDX9();

    zeb::String adapterId;
    zeb::Array<SwapChainParameterDX9> swapChains;
};

// One adapter as Direct3D reports it, with the caller parameters filed to it.
class VEXILDX9_API AdapterInfo {
public:
    typedef zeb::SharedResource<zeb::PointerStorage<D3DCAPS9, 0, 3>, 0> CapsHolder;
    typedef zeb::SharedResource<zeb::PointerStorage<D3DADAPTER_IDENTIFIER9, 0, 3>, 0> IdentifierHolder;

    AdapterInfo();
    AdapterInfo(const AdapterInfo& other);
    AdapterInfo& operator=(const AdapterInfo& other);
    ~AdapterInfo();

    // Reads identifier and caps of an adapter into fresh blocks; failures are logged only.
    void populateInfo(unsigned int ordinal, D3DDEVTYPE type, IDirect3D9* d3d);

    // The held blocks, or the all-zero records when none is held.
    const D3DCAPS9& caps() const;
    const D3DADAPTER_IDENTIFIER9& identifier() const;
    RenderDeviceParameterDX9& renderParameter() { return m_renderParameter; }
    const RenderDeviceParameterDX9& renderParameter() const { return m_renderParameter; }

    // The adapter ordinal when adapterId names this adapter (letter case ignored), else 0xFFFFFFFF.
    unsigned int ordinal(const zeb::String& adapterId) const;
    // Files p's swap chains here when p names this adapter.
    bool addParameter(const RenderDeviceParameterDX9& p);

    static const D3DCAPS9 m_emptyCaps;
    static const D3DADAPTER_IDENTIFIER9 m_emptyIdentifier;

private:
    CapsHolder m_caps;
    IdentifierHolder m_identifier;
    RenderDeviceParameterDX9 m_renderParameter;
};

class VEXILDX9_API AdapterInfoList {
public:
    AdapterInfoList();
    explicit AdapterInfoList(unsigned int count);
    AdapterInfoList(const AdapterInfoList& other);
    AdapterInfoList& operator=(const AdapterInfoList& other);
    ~AdapterInfoList();

    zeb::Array<AdapterInfo>& adapterInfoList() { return m_list; }
    const zeb::Array<AdapterInfo>& adapterInfoList() const { return m_list; }
    unsigned int size() const { return m_list.size(); }

    // The first ordinal that an adapter of the list gives for adapterId, or 0xFFFFFFFF.
    unsigned int ordinal(const zeb::String& adapterId);
    bool contains(unsigned int ordinal);
    bool find(unsigned int ordinal, AdapterInfo& out) const;

private:
    unsigned int findIndex(unsigned int ordinal) const;

    zeb::Array<AdapterInfo> m_list;
};

// The adapters sharing one master adapter: they become one render device.
class VEXILDX9_API DeviceGroup {
public:
    DeviceGroup();
    DeviceGroup(const DeviceGroup& other);
    DeviceGroup& operator=(const DeviceGroup& other);
    ~DeviceGroup();

    unsigned int headOrdinal() const { return m_headOrdinal; }
    unsigned int& headOrdinal() { return m_headOrdinal; }
    const AdapterInfoList& group() const { return m_group; }
    AdapterInfoList& group() { return m_group; }

    // Groups are the same group when their master adapters are.
    bool operator==(const DeviceGroup& other) const;

    unsigned int ordinal(const zeb::String& adapterId);
    // Files p with the first adapter of the group that takes it.
    bool addParameter(const RenderDeviceParameterDX9& p);
    // Swap chain 0 of every adapter that has one, with its ordinal; returns the count.
    unsigned int mainSwapChainParam(zeb::Array<unsigned int>& ordinals,
                                    zeb::Array<SwapChainParameterDX9>& params) const;
    // Every swap chain after the first, per adapter, with its ordinal; returns the count.
    unsigned int additionalSwapChainParam(zeb::Array<unsigned int>& ordinals,
                                          zeb::Array<SwapChainParameterDX9>& params) const;
    // Appends the window of every filed swap chain; returns the size of windows afterwards.
    unsigned int listDeviceWindowsHandles(zeb::Array<HWND>& windows) const;

private:
    unsigned int m_headOrdinal;
    AdapterInfoList m_group;
};

}  // namespace VexilDX9
