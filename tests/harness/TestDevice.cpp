#include "TestDevice.h"

#include "TestPaths.h"

#include <malloc.h>

#include <cstdio>
#include <cstdlib>

namespace vexiltest {

namespace {

int channel(D3DCOLOR c, int shift) { return static_cast<int>((c >> shift) & 0xFF); }

}  // namespace

std::string currentTestName() {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info ? std::string(info->test_suite_name()) + "." + info->name() : "image";
    for (char& c : name)
        if (c == '/' || c == '\\') c = '_';
    return name;
}

::testing::AssertionResult pixelNear(const vexilsupport::Image& image, unsigned x, unsigned y, D3DCOLOR expected,
                                     int tolerance, const std::string& name) {
    if (x >= image.width || y >= image.height)
        return ::testing::AssertionFailure() << "pixel (" << x << "," << y << ") outside a " << image.width << "x"
                                             << image.height << " image";
    D3DCOLOR actual = image.at(x, y);
    for (int shift : {16, 8, 0}) {
        if (std::abs(channel(actual, shift) - channel(expected, shift)) <= tolerance) continue;
        std::string path = outputDir() + "\\" + name + ".png";
        char text[160];
        std::snprintf(text, sizeof text, "pixel (%u,%u) is %06X, expected %06X (tolerance %d)", x, y,
                      static_cast<unsigned>(actual & 0xFFFFFF), static_cast<unsigned>(expected & 0xFFFFFF), tolerance);
        return ::testing::AssertionFailure()
               << text << (vexilsupport::writePng(path, image) ? "; picture saved as " + path : "; picture not saved");
    }
    return ::testing::AssertionSuccess();
}

ULONG referencesOf(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

vexilsupport::Image readRenderTarget(IDirect3DDevice9* device) {
    vexilsupport::Image image;
    IDirect3DSurface9* target = nullptr;
    IDirect3DSurface9* copy = nullptr;
    D3DSURFACE_DESC desc;
    D3DLOCKED_RECT locked;
    if (SUCCEEDED(device->GetRenderTarget(0, &target)) && SUCCEEDED(target->GetDesc(&desc)) &&
        SUCCEEDED(device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy,
                                                       nullptr)) &&
        SUCCEEDED(device->GetRenderTargetData(target, copy)) &&
        SUCCEEDED(copy->LockRect(&locked, nullptr, D3DLOCK_READONLY))) {
        image.width = desc.Width;
        image.height = desc.Height;
        for (unsigned y = 0; y < desc.Height; ++y) {
            const D3DCOLOR* row = reinterpret_cast<const D3DCOLOR*>(static_cast<const char*>(locked.pBits) + y * locked.Pitch);
            image.pixels.insert(image.pixels.end(), row, row + desc.Width);
        }
        copy->UnlockRect();
    }
    if (copy) copy->Release();
    if (target) target->Release();
    return image;
}

HRESULT resetDevice(IDirect3DDevice9* device) {
    IDirect3DSwapChain9* chain = nullptr;  // released before the reset, which it would hold up
    D3DPRESENT_PARAMETERS parameters;
    HRESULT hr = device->GetSwapChain(0, &chain);
    if (SUCCEEDED(hr)) hr = chain->GetPresentParameters(&parameters), chain->Release();
    return SUCCEEDED(hr) ? device->Reset(&parameters) : hr;
}

unsigned resetCycles() {
    const char* cycles = std::getenv("VEXIL_RESET_CYCLES");
    return cycles && std::atoi(cycles) > 0 ? static_cast<unsigned>(std::atoi(cycles)) : 10;
}

std::pair<size_t, size_t> runtimeHeapInUse() {
    HANDLE heap = reinterpret_cast<HANDLE>(_get_heap_handle());
    std::pair<size_t, size_t> use(0, 0);
    PROCESS_HEAP_ENTRY entry = {};
    HeapLock(heap);
    while (HeapWalk(heap, &entry))
        if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) use.first += entry.cbData, ++use.second;
    HeapUnlock(heap);
    return use;
}

TestWindow::TestWindow(unsigned width, unsigned height) {
    RECT r = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    AdjustWindowRect(&r, WS_OVERLAPPEDWINDOW, FALSE);
    m_window = CreateWindowExW(0, L"STATIC", L"VexilDX9 test", WS_OVERLAPPEDWINDOW, 0, 0, r.right - r.left,
                               r.bottom - r.top, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
}

TestWindow::~TestWindow() {
    if (m_window) DestroyWindow(m_window);
}

TestDevice::TestDevice(unsigned width, unsigned height) : m_window(width, height) {
    m_d3d = Direct3DCreate9(D3D_SDK_VERSION);
    if (!m_d3d) return;
    // Back buffer size and format, no multisampling, discard, windowed, D24S8 depth, no vsync.
    D3DPRESENT_PARAMETERS pp = {width, height, D3DFMT_X8R8G8B8, 0, D3DMULTISAMPLE_NONE, 0, D3DSWAPEFFECT_DISCARD,
                                m_window.handle(), TRUE, TRUE, D3DFMT_D24S8, 0, 0, D3DPRESENT_INTERVAL_IMMEDIATE};
    m_result = m_d3d->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, m_window.handle(),
                                   D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp, &m_device);
}

TestDevice::~TestDevice() { shutdown(); }

unsigned long TestDevice::shutdown() {
    unsigned long remaining = (m_device ? m_device->Release() : 0) + (m_d3d ? m_d3d->Release() : 0);
    m_device = nullptr;
    m_d3d = nullptr;
    return remaining;
}

void TestDevice::clear(D3DCOLOR color) {
    m_device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL, color, 1.0f, 0);
}

void TestDevice::fillRect(float left, float top, float right, float bottom, D3DCOLOR color) {
    struct Vertex {
        float x, y, z, rhw;
        D3DCOLOR color;
    };
    // Pixel centres sit at integer coordinates: shift by half a pixel to cover whole pixels.
    left -= 0.5f, top -= 0.5f, right -= 0.5f, bottom -= 0.5f;
    Vertex quad[4] = {{left, top, 0.5f, 1.0f, color},
                      {right, top, 0.5f, 1.0f, color},
                      {left, bottom, 0.5f, 1.0f, color},
                      {right, bottom, 0.5f, 1.0f, color}};
    m_device->SetVertexShader(nullptr);
    m_device->SetPixelShader(nullptr);
    m_device->SetFVF(D3DFVF_XYZRHW | D3DFVF_DIFFUSE);
    m_device->SetTexture(0, nullptr);
    m_device->SetRenderState(D3DRS_LIGHTING, FALSE);
    m_device->SetRenderState(D3DRS_CULLMODE, D3DCULL_NONE);
    m_device->SetRenderState(D3DRS_ZENABLE, FALSE);
    m_device->BeginScene();
    m_device->DrawPrimitiveUP(D3DPT_TRIANGLESTRIP, 2, quad, sizeof(Vertex));
    m_device->EndScene();
}

vexilsupport::Image TestDevice::readRenderTarget() { return vexiltest::readRenderTarget(m_device); }

void DeviceTest::SetUp() {
    m_device = new TestDevice(m_size, m_size);
    ASSERT_TRUE(m_device->ok()) << "CreateDevice failed: 0x" << std::hex << m_device->creationResult();
}

void DeviceTest::TearDown() {
    if (!m_device) return;
    EXPECT_EQ(0u, m_device->shutdown()) << "something still holds a reference to the device or Direct3D";
    delete m_device;
    m_device = nullptr;
}

COMPtr<IDirect3DDevice9>::pointer DeviceTest::deviceHolder() const {
    device()->AddRef();
    return COMPtr<IDirect3DDevice9>::pointer(device());
}

::testing::AssertionResult DeviceTest::renderedPixelIs(unsigned x, unsigned y, D3DCOLOR expected, int tolerance) {
    return pixelNear(m_device->readRenderTarget(), x, y, expected, tolerance, currentTestName());
}

}  // namespace vexiltest
