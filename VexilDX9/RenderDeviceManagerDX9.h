#pragma once
// Entry point for render devices: enumerates HAL and REF adapters into device groups, files the
// caller's per-adapter parameters into them, creates one render device per group and finds the
// device that serves a window.
#include <VexilDX9/DeviceParameter.h>
#include <VexilDX9/Export.h>
#include <VexilDX9/RenderDeviceDX9.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/Resource.h>

#include <d3d9.h>
#include <windows.h>

namespace VexilDX9 {

class VEXILDX9_API RenderDeviceManagerDX9 {
public:
    struct DeviceWindowIndex {
        HWND window;
        unsigned int deviceIndex;     // of the group, and so of the device, in its list
        unsigned int adapterOrdinal;  // of the parameter's adapter
    };
    typedef zeb::SharedResource<zeb::PointerStorage<RenderDeviceDX9, 0, 3>, 0> SharedRenderDevice;
    typedef zeb::CopiedResource<zeb::PointerStorage<RenderDeviceDX9, 3, 2>> RenderDeviceReference;
    typedef zeb::TransferResource<zeb::PointerStorage<AdapterInfoList, 0, 3>> AdapterInfoListHolder;
    typedef zeb::TransferResource<zeb::PointerStorage<zeb::Array<DeviceGroup>, 0, 3>> DeviceGroupListHolder;

    RenderDeviceManagerDX9();
    RenderDeviceManagerDX9(const RenderDeviceManagerDX9& other);
    RenderDeviceManagerDX9& operator=(const RenderDeviceManagerDX9& other);
    ~RenderDeviceManagerDX9();

    bool isUsable() const { return m_usable; }

    // Files params into the groups of type and brings up one device per group; returns the
    // number of main swap chains brought up (0: no device came up).
    unsigned int createRenderDevice(D3DDEVTYPE type, const zeb::Array<RenderDeviceParameterDX9>& params,
                                    HWND focusWindow);
    // The device that serves window, or an empty holder.
    //
    // Borrowed, not shared: renderDevice and renderDevices hand out the manager's own devices
    // without taking a share of them. A reference dangles as soon as the manager lets its device
    // go: at the next createRenderDevice of that type, at clear() and when the manager is
    // destroyed. Take a fresh one after each of these, and keep the device alive by keeping the
    // manager (or a holder of d3dDevice(), which shares the IDirect3DDevice9 itself).
    RenderDeviceReference renderDevice(D3DDEVTYPE type, HWND window);
    // Replaces out by borrowed references to every device of type, in group order (see above).
    unsigned int renderDevices(D3DDEVTYPE type, zeb::Array<RenderDeviceReference>& out);
    // The current display format of a HAL adapter, or 0xFFFFFFFF.
    unsigned int currentAdapterFormat(const zeb::String& adapterId);
    // Drops every device and the window index; groups and filed parameters stay.
    void clear();

private:
    bool createDirect3D9();
    AdapterInfoListHolder adapterProperties(D3DDEVTYPE type);
    DeviceGroupListHolder createDeviceGroup(D3DDEVTYPE type);
    void storeUserParameterToDeviceGroup(const zeb::Array<RenderDeviceParameterDX9>& params,
                                         zeb::Array<DeviceGroup>& groups);
    unsigned int adapterIdToOrdinal(const zeb::String& adapterId, AdapterInfoList& list);
    DeviceGroupListHolder& groupsOf(D3DDEVTYPE type);
    zeb::Array<SharedRenderDevice>& devicesOf(D3DDEVTYPE type);

    bool m_usable;
    COMPtr<IDirect3D9>::pointer m_d3d;
    DeviceGroupListHolder m_halGroups;
    DeviceGroupListHolder m_refGroups;
    zeb::Array<SharedRenderDevice> m_halDevices;
    zeb::Array<SharedRenderDevice> m_refDevices;
    zeb::Array<DeviceWindowIndex> m_windowIndex;
};

}  // namespace VexilDX9
