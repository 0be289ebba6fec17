#include "TestDevice.h"

#include "TestPaths.h"

#include <cstdio>
#include <cstdlib>

namespace vexiltest {

namespace {

const wchar_t kWindowClass[] = L"VexilTestWindow";

void registerWindowClass() {
    static bool registered = false;
    if (registered) return;
    WNDCLASSW wc = {};
    wc.lpfnWndProc = DefWindowProcW;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = kWindowClass;
    RegisterClassW(&wc);
    registered = true;
}

int channel(D3DCOLOR c, int shift) { return static_cast<int>((c >> shift) & 0xFF); }

}  // namespace

TestWindow::TestWindow(unsigned width, unsigned height) {
    registerWindowClass();
    RECT r = {0, 0, static_cast<LONG>(width), static_cast<LONG>(height)};
    AdjustWindowRect(&r, WS_OVERLAPPEDWINDOW, FALSE);
    m_window = CreateWindowExW(0, kWindowClass, L"VexilDX9 test", WS_OVERLAPPEDWINDOW, 0, 0, r.right - r.left,
                               r.bottom - r.top, nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
}

TestWindow::~TestWindow() {
    if (m_window) DestroyWindow(m_window);
}

TestDevice::TestDevice(unsigned width, unsigned height) : m_window(width, height), m_width(width), m_height(height) {
    m_d3d = Direct3DCreate9(D3D_SDK_VERSION);
    if (!m_d3d) return;
    D3DPRESENT_PARAMETERS pp = {};
    pp.Windowed = TRUE;
    pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
    pp.BackBufferFormat = D3DFMT_X8R8G8B8;
    pp.BackBufferWidth = width;
    pp.BackBufferHeight = height;
    pp.hDeviceWindow = m_window.handle();
    pp.EnableAutoDepthStencil = TRUE;
    pp.AutoDepthStencilFormat = D3DFMT_D24S8;
    pp.PresentationInterval = D3DPRESENT_INTERVAL_IMMEDIATE;
    m_result = m_d3d->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, m_window.handle(),
                                   D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp, &m_device);
}

TestDevice::~TestDevice() { shutdown(); }

unsigned long TestDevice::shutdown() {
    unsigned long remaining = 0;
    if (m_device) remaining += m_device->Release();
    if (m_d3d) remaining += m_d3d->Release();
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
    const float o = -0.5f;
    Vertex quad[4] = {{left + o, top + o, 0.5f, 1.0f, color},
                      {right + o, top + o, 0.5f, 1.0f, color},
                      {left + o, bottom + o, 0.5f, 1.0f, color},
                      {right + o, bottom + o, 0.5f, 1.0f, color}};
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

vexilsupport::Image TestDevice::readRenderTarget() {
    vexilsupport::Image image;
    IDirect3DSurface9* target = nullptr;
    if (FAILED(m_device->GetRenderTarget(0, &target))) return image;
    D3DSURFACE_DESC desc;
    target->GetDesc(&desc);
    IDirect3DSurface9* copy = nullptr;
    if (SUCCEEDED(m_device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM,
                                                         &copy, nullptr)) &&
        SUCCEEDED(m_device->GetRenderTargetData(target, copy))) {
        D3DLOCKED_RECT locked;
        if (SUCCEEDED(copy->LockRect(&locked, nullptr, D3DLOCK_READONLY))) {
            image.width = desc.Width;
            image.height = desc.Height;
            image.pixels.resize(static_cast<size_t>(desc.Width) * desc.Height);
            for (unsigned y = 0; y < desc.Height; ++y) {
                const D3DCOLOR* row = reinterpret_cast<const D3DCOLOR*>(static_cast<const char*>(locked.pBits) + y * locked.Pitch);
                for (unsigned x = 0; x < desc.Width; ++x) image.pixels[y * desc.Width + x] = row[x];
            }
            copy->UnlockRect();
        }
    }
    if (copy) copy->Release();
    target->Release();
    return image;
}

std::string currentTestName() {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    if (!info) return "image";
    std::string name = std::string(info->test_suite_name()) + "." + info->name();
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
        if (std::abs(channel(actual, shift) - channel(expected, shift)) > tolerance) {
            std::string path = outputDir() + "\\" + name + ".png";
            bool saved = vexilsupport::writePng(path, image);
            char text[160];
            std::snprintf(text, sizeof text, "pixel (%u,%u) is %06X, expected %06X (tolerance %d)", x, y,
                          static_cast<unsigned>(actual & 0xFFFFFF), static_cast<unsigned>(expected & 0xFFFFFF), tolerance);
            return ::testing::AssertionFailure() << text << (saved ? "; picture saved as " + path : "; picture not saved");
        }
    }
    return ::testing::AssertionSuccess();
}

void DeviceTest::SetUp() {
    m_device = new TestDevice();
    ASSERT_TRUE(m_device->ok()) << "CreateDevice failed: 0x" << std::hex << m_device->creationResult();
}

void DeviceTest::TearDown() {
    if (!m_device) return;
    EXPECT_EQ(0u, m_device->shutdown()) << "something still holds a reference to the device or Direct3D";
    delete m_device;
    m_device = nullptr;
}

::testing::AssertionResult DeviceTest::renderedPixelIs(unsigned x, unsigned y, D3DCOLOR expected, int tolerance) {
    return pixelNear(m_device->readRenderTarget(), x, y, expected, tolerance, currentTestName());
}

}  // namespace vexiltest
