#pragma once
// The viewer's device (through the library's render device manager) and the off-screen target
// that headless pictures are drawn into and read back from.
#include <VexilDX9/Adapter.h>
#include <VexilDX9/RenderDeviceManagerDX9.h>
#include <Png.h>

#include <d3d9.h>
#include <windows.h>

#include <memory>
#include <string>

namespace vexilview {

class ViewerDevice {
public:
    // One windowed device on the first HAL adapter, presenting to window; false with a message.
    // The lighting effect wants its device from a multi-head adapter: throughAdapter makes it there.
    bool create(HWND window, bool depthStencil, bool throughAdapter, std::string& problem);
    IDirect3DDevice9* get() const { return holder().get(); }
    const COMPtr<IDirect3DDevice9>::pointer& holder() const {
        return m_adapter ? m_adapter->device() : m_device->d3dDevice();
    }
    const AdapterD3D9* adapter() const { return m_adapter.get(); }
    // Resets a lost device once it can be; false with state when it cannot be yet or any more.
    bool reset(HRESULT& state);
    // False, with a message, when the device cannot draw pictures of that size.
    bool supportsSize(unsigned width, unsigned height, std::string& problem) const;

private:
    bool createThroughAdapter(HWND window, bool depthStencil, std::string& problem);

    std::unique_ptr<AdapterD3D9> m_adapter;
    VexilDX9::RenderDeviceManagerDX9 m_manager;
    VexilDX9::RenderDeviceManagerDX9::RenderDeviceReference m_device;
};

class OffscreenTarget {
public:
    // Colour target, depth buffer and the system-memory copy for read-back.
    HRESULT create(IDirect3DDevice9* device, unsigned width, unsigned height);
    void bind(IDirect3DDevice9* device) const;
    bool readBack(IDirect3DDevice9* device, vexilsupport::Image& image) const;

private:
    unsigned m_width = 0, m_height = 0;
    COMPtr<IDirect3DSurface9>::pointer m_colour, m_depth, m_copy;
};

// A window class and window for the viewer; hidden ones carry headless devices.
HWND createViewerWindow(unsigned width, unsigned height, bool visible, WNDPROC procedure);

}  // namespace vexilview
