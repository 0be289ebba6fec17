#pragma once
// One Direct3D 9 device over one head or all heads of a multi-head card. Heads are enumerated
// once per process and named by their display device name ("os locator", e.g. "\\.\DISPLAY1",
// letter case ignored); createSwapChain makes the device with one swap chain and one depth
// buffer per named head, and reset/cleanup carry it through device loss.
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/String.h>

#include <d3d9.h>
#include <windows.h>

class VEXILDX9_API AdapterD3D9 {
public:
    // One adapter ordinal as enumerated at initialize().
    struct DisplayHead {
        bool renderFlag;                   // one of the rendering heads of the current device
        zeb::Array<D3DDISPLAYMODE> modes;  // every mode in the head's current desktop format
        D3DCAPS9 caps;
        D3DADAPTER_IDENTIFIER9 identifier;
    };

    // The device and its chains; chain k is entry k of every per-chain array.
    struct SwapChainGroup {
        COMPtr<IDirect3DDevice9>::pointer m_device;
        zeb::Array<unsigned int> m_renderingHeadIndex;  // master first
        zeb::Array<zeb::String> m_osLocator;            // the active chain's names
        unsigned int m_masterHeadIndex;
        // One entry per head of the group, at the head's ordinal in its group.
        zeb::Array<D3DPRESENT_PARAMETERS> m_presentParam;
        zeb::Array<COMPtr<IDirect3DSwapChain9>::pointer> m_swapChain;
        zeb::Array<COMPtr<IDirect3DSurface9>::pointer> m_depthBuffer;
        unsigned int m_numActiveChain;
    };

    AdapterD3D9();
    // With true, initializes at once and fails its check when that does not succeed.
    explicit AdapterD3D9(bool initializeNow);
    ~AdapterD3D9();
    AdapterD3D9(const AdapterD3D9&) = delete;
    AdapterD3D9& operator=(const AdapterD3D9&) = delete;

    // --- heads and names -------------------------------------------------------------------
    // Creates the Direct3D object and, once per process, the head list.
    bool initialize();
    bool enumerateAllHeads();
    // True once a device with at least one rendering head exists.
    bool isInitialized() const;

    unsigned int headCount() const;
    // The stored record of a head; throws zeb::IndexOutOfBounds past headCount().
    const DisplayHead& displayHead(unsigned int headIndex) const;
    bool adapterIdentifier(unsigned long ordinal, D3DADAPTER_IDENTIFIER9& identifier) const;
    bool adapterCaps(unsigned long ordinal, D3DCAPS9& caps) const;

    // Lookups answer 0xFFFFFFFF for a name or index they cannot place.
    unsigned int osLocatorHeadIndex(const zeb::String& osLocator) const;
    // One name is its own master; among several, the ordinal of the first master head named.
    unsigned int masterHeadIndex(const zeb::Array<zeb::String>& osLocatorList) const;
    bool isMasterHead(const DisplayHead& head) const;
    bool isSubordinateHead(const DisplayHead& head, const DisplayHead& master) const;
    zeb::Array<unsigned int> listSubordinateHeadIndex(const DisplayHead& master) const;
    unsigned int chainIndex(const zeb::String& osLocator) const;
    bool isSameRenderingOSLocator(const zeb::Array<zeb::String>& osLocatorList) const;
    // The ordinal the device reports; the name takes no part.
    unsigned int adapterIndex(const zeb::String& osLocator) const;
    void resetHeadRenderFlag();

    const zeb::Array<zeb::String>& activeChainOSLocator() const { return m_swapChainGroup.m_osLocator; }
    const COMPtr<IDirect3D9>::pointer& direct3D9() const { return m_direct3D9; }
    const COMPtr<IDirect3DDevice9>::pointer& device() const { return m_swapChainGroup.m_device; }

    D3DDEVTYPE deviceType() const { return m_deviceType; }
    unsigned int numActiveChain() const { return m_swapChainGroup.m_numActiveChain; }
    unsigned long currentAdapterIndex() const { return m_currentAdapterIndex; }
    unsigned long clearFlag() const { return m_clearFlag; }
    HWND focusWindow() const { return m_focusWindow; }
    unsigned int vertexProcessingMode() const { return m_vertexProcessingMode; }

    // --- device creation and present parameters -------------------------------------------
    D3DPRESENT_PARAMETERS createDevicePresentParam(unsigned int headIndex, bool windowed, HWND window,
                                                   bool autoDepthStencil);
    // Fills the group's present parameters for the rendering heads chosen by createSwapChain.
    bool createDevicePresentParam(const zeb::Array<zeb::String>& osLocatorList, const zeb::Array<HWND>& deviceWindow,
                                  bool windowed);
    void configureDepthStencilParam(unsigned int headIndex, const D3DCAPS9& caps, D3DFORMAT adapterFormat,
                                    D3DPRESENT_PARAMETERS& pp);
    static bool isAdapterFormatValid(D3DFORMAT format);
    unsigned int formatBitDepth(D3DFORMAT format) const;
    unsigned long getFastestPresentationInterval(const D3DCAPS9& caps) const;
    // Shrinks the back buffer to the largest mode of the head below it; a head without modes
    // leaves it as it is (logged). Device creation retries on short video memory without limit,
    // shrinking each time, and stops (failed) only when the creating head has no modes.
    void downgradeResolution(unsigned int headIndex, D3DPRESENT_PARAMETERS& pp);
    // A new device (the caller owns its reference) or null.
    IDirect3DDevice9* defaultD3DDevice(unsigned long adapter, HWND window, bool windowed, D3DDEVTYPE deviceType);
    D3DPRESENT_PARAMETERS d3dDeviceParams() const { return m_d3dDeviceParams; }

    // --- swap chains, depth buffers, reset -------------------------------------------------
    // Several names need their card's master head among them: without it there is no master
    // index (0xFFFFFFFF) and building the group's present parameters raises
    // zeb::IndexOutOfBounds, after the previous device was released.
    bool createSwapChain(const zeb::Array<zeb::String>& osLocatorList, HWND focusWindow,
                         const zeb::Array<HWND>& deviceWindow, bool windowed, D3DDEVTYPE deviceType);
    bool createDepthStencilBuffer();
    // Empty holders for a name outside the active chain.
    COMPtr<IDirect3DSwapChain9>::pointer swapChain(const zeb::String& osLocator) const;
    COMPtr<IDirect3DSurface9>::pointer depthBuffer(const zeb::String& osLocator) const;
    long reset();
    void cleanup();
    bool isStencilCreated() const { return true; }
    bool isZStencilBufferSupported() const;
    // Returns the state before the flip; applies at the next device creation.
    bool toggleMultiSampling();

    // --- reports -----------------------------------------------------------------------------
    void displayInfo(const zeb::String& osLocator) const;
    void displayInfo(const DisplayHead& head) const;
    void displayCaps(const DisplayHead& head) const;

private:
    // The head of that ordinal, or null after logging the out-of-bound line with that tag.
    const DisplayHead* storedHead(unsigned long ordinal, unsigned int outOfBoundTag) const;
    HRESULT createDeviceRetrying(unsigned long adapter, D3DDEVTYPE deviceType, HWND window, DWORD flags,
                                 IDirect3DDevice9** device);
    bool downgradeGroupResolution(unsigned long adapter);
    void releaseDeviceResources();
    bool attachSwapChains(bool windowed);
    void waitWhileLost();
    void bringFocusWindowForward();

    static zeb::Array<DisplayHead> m_headList;

    SwapChainGroup m_swapChainGroup;
    COMPtr<IDirect3D9>::pointer m_direct3D9;
    D3DPRESENT_PARAMETERS m_d3dDeviceParams;
    D3DDEVTYPE m_deviceType;
    unsigned long m_currentAdapterIndex;
    unsigned long m_clearFlag;
    HWND m_focusWindow;
    unsigned int m_vertexProcessingMode;
    bool m_multiSampling;
};
