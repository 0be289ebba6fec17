#pragma once
#include <Png.h>
#include <zeb/ComPtr.h>

#include <d3d9.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cmath>
#include <string>

namespace vexiltest {

// A hidden top-level window of the given client size.
class TestWindow {
public:
    TestWindow(unsigned width = 64, unsigned height = 64);
    ~TestWindow();
    TestWindow(const TestWindow&) = delete;
    TestWindow& operator=(const TestWindow&) = delete;
    HWND handle() const { return m_window; }

private:
    HWND m_window;
};

// A real HAL device on a hidden window: X8R8G8B8 back buffer, D24S8 automatic depth buffer.
class TestDevice {
public:
    explicit TestDevice(unsigned width = 64, unsigned height = 64);
    ~TestDevice();
    TestDevice(const TestDevice&) = delete;
    TestDevice& operator=(const TestDevice&) = delete;

    bool ok() const { return m_device != nullptr; }
    HRESULT creationResult() const { return m_result; }
    IDirect3DDevice9* device() const { return m_device; }

    void clear(D3DCOLOR color);
    // Draws a screen-space rectangle of one colour (pre-transformed vertices).
    void fillRect(float left, float top, float right, float bottom, D3DCOLOR color);
    // The current render target's pixels (through GetRenderTargetData).
    vexilsupport::Image readRenderTarget();
    // Releases the device and the Direct3D object; returns the sum of what their last Release
    // calls reported (0 when nothing else holds a reference).
    unsigned long shutdown();

private:
    TestWindow m_window;
    IDirect3D9* m_d3d = nullptr;
    IDirect3DDevice9* m_device = nullptr;
    HRESULT m_result = E_FAIL;
};

// Compares a pixel with a tolerance per channel (alpha ignored); on a mismatch the whole image
// is saved as test-output/<name>.png and the message says where.
::testing::AssertionResult pixelNear(const vexilsupport::Image& image, unsigned x, unsigned y, D3DCOLOR expected,
                                     int tolerance, const std::string& name);

// Fixture for tests on a real device; checks at teardown that nothing holds a device reference.
class DeviceTest : public ::testing::Test {
protected:
    explicit DeviceTest(unsigned size = 64) : m_size(size) {}
    void SetUp() override;
    void TearDown() override;
    IDirect3DDevice9* device() const { return m_device->device(); }
    // A new reference to the device, for the library's holders.
    COMPtr<IDirect3DDevice9>::pointer deviceHolder() const;
    TestDevice& testDevice() { return *m_device; }
    // Image of the render target, with pixelNear-style checks that name the running test.
    ::testing::AssertionResult renderedPixelIs(unsigned x, unsigned y, D3DCOLOR expected, int tolerance = 2);

private:
    unsigned m_size;
    TestDevice* m_device = nullptr;
};

// Vectors and matrices alike, element by element.
template <class T>::testing::AssertionResult same(const T& actual, const T& expected) {
    const float *a = actual, *e = expected;
    for (size_t i = 0; i < sizeof(T) / sizeof(float); ++i)
        if (std::fabs(a[i] - e[i]) > 1e-5f * (1.0f + std::fabs(e[i])))
            return ::testing::AssertionFailure() << "element " << i << ": " << a[i] << " vs " << e[i];
    return ::testing::AssertionSuccess();
}

std::string currentTestName();
// The reference count of a COM object.
ULONG referencesOf(IUnknown* object);
// The device's render target 0 (through GetRenderTargetData).
vexilsupport::Image readRenderTarget(IDirect3DDevice9* device);
// IDirect3DDevice9::Reset with the present parameters of the device's own swap chain.
HRESULT resetDevice(IDirect3DDevice9* device);
// How many reset cycles the reset checks run: VEXIL_RESET_CYCLES, else 10 (two more than the
// lights a device can have on at once).
unsigned resetCycles();
// Bytes and blocks in use on the C runtime's heap, where the library, the drop-in D3DX and the
// tests allocate (Wine's own objects live on the process heap).
std::pair<size_t, size_t> runtimeHeapInUse();

}  // namespace vexiltest
