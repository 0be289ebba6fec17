#include "DeviceFixtures.h"

#include <algorithm>
#include <cctype>

namespace vexiltest {

VexilDX9::SwapChainParameterDX9 windowedChain(HWND window, bool depthStencil, unsigned backBuffers,
                                              unsigned multiSample) {
    VexilDX9::SwapChainParameterDX9 chain;
    chain.multiSampleType = multiSample;
    chain.backBufferCount = backBuffers;
    chain.spareWord = 0;
    chain.windowed = true;
    chain.depthStencil = depthStencil;
    chain.window = window;
    return chain;
}

VexilDX9::SwapChainParameterDX9 fullScreenChain(HWND window, bool depthStencil) {
    VexilDX9::SwapChainParameterDX9 chain = windowedChain(window, depthStencil);
    chain.windowed = false;
    return chain;
}

VexilDX9::RenderDeviceParameterDX9 parameter(const std::string& adapterId,
                                             std::initializer_list<VexilDX9::SwapChainParameterDX9> chains) {
    VexilDX9::RenderDeviceParameterDX9 p;
    p.adapterId = zeb::String(adapterId.c_str());
    for (const VexilDX9::SwapChainParameterDX9& chain : chains) p.swapChains.append(chain);
    return p;
}

zeb::Array<VexilDX9::RenderDeviceParameterDX9> parameters(std::initializer_list<VexilDX9::RenderDeviceParameterDX9> list) {
    zeb::Array<VexilDX9::RenderDeviceParameterDX9> all;
    for (const VexilDX9::RenderDeviceParameterDX9& p : list) all.append(p);
    return all;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string realAdapterName(IDirect3D9* d3d, UINT ordinal) {
    D3DADAPTER_IDENTIFIER9 identifier = {};
    d3d->GetAdapterIdentifier(ordinal, 0, &identifier);
    return identifier.DeviceName;
}

D3DPRESENT_PARAMETERS swapChainPresentParameters(const VexilDX9::RenderBuffer& buffer) {
    D3DPRESENT_PARAMETERS pp = {};
    if (buffer.swapChain && buffer.swapChain->swapChain()) buffer.swapChain->swapChain()->GetPresentParameters(&pp);
    return pp;
}

std::vector<unsigned> toVector(const zeb::Array<unsigned>& array) { return std::vector<unsigned>(array.begin(), array.end()); }

void expectLogged(const LogCapture& log, const char* logger, std::initializer_list<std::pair<int, std::string>> lines) {
    for (const auto& line : lines) EXPECT_TRUE(log.contains(logger, line.first, line.second)) << line.second << "\n" << log.dump();
}

void expectAssertion(const std::function<void()>& action, unsigned long long line, const char* expression,
                     const char* file) {
    try {
        action();
        ADD_FAILURE() << "no assertion failure for " << expression;
    } catch (const zeb::AssertionFailure& failure) {
        EXPECT_STREQ(file, failure.file());
        EXPECT_TRUE(line == 0 || line == failure.line()) << failure.line();
        EXPECT_STREQ(expression, failure.expression());
    }
}

TestWindows::TestWindows(unsigned count) {
    for (unsigned i = 0; i < count; ++i) m_windows.emplace_back(new TestWindow());
}

zeb::Array<HWND> TestWindows::list(unsigned n) const {
    zeb::Array<HWND> handles;
    for (unsigned i = 0; i < n; ++i) handles.append((*this)[i]);
    return handles;
}

// ---- RealDirect3DTest ----

void RealDirect3DTest::SetUp() {
    m_hook.reset(new Direct3DCreateHook([this](UINT sdkVersion) {
        IDirect3D9* d3d = m_hook->createReal(sdkVersion);
        if (d3d) {
            d3d->AddRef();
            m_created.push_back(d3d);
        }
        return d3d;
    }));
    ASSERT_TRUE(m_hook->ok()) << "cannot reach VexilDX9.dll's import of Direct3DCreate9";
    IDirect3D9* probe = m_hook->createReal(D3D_SDK_VERSION);
    ASSERT_NE(nullptr, probe);
    m_adapterName = realAdapterName(probe);
    probe->GetAdapterDisplayMode(0, &m_displayMode);
    probe->Release();
}

void RealDirect3DTest::watch(IDirect3DDevice9* device) {
    ASSERT_NE(nullptr, device);
    device->AddRef();
    m_devices.push_back(device);
}

void RealDirect3DTest::TearDown() {
    for (IDirect3DDevice9* device : m_devices) EXPECT_EQ(0u, device->Release()) << "device still referenced";
    for (IDirect3D9* d3d : m_created) EXPECT_EQ(0u, d3d->Release()) << "Direct3D object still referenced";
    m_hook.reset();
}

// ---- ScriptedDirect3DTest ----

void ScriptedDirect3DTest::SetUp() {
    ledger = std::make_shared<ComLedger>();
    IDirect3D9* real = Direct3DCreate9(D3D_SDK_VERSION);
    ASSERT_NE(nullptr, real);
    d3d = new ScriptedDirect3D9(real, ledger);
    hook.reset(new Direct3DCreateHook([this](UINT) {
        d3d->AddRef();
        return static_cast<IDirect3D9*>(d3d);
    }));
    sleeps.reset(new SleepHook());
    ASSERT_TRUE(hook->ok() && sleeps->ok()) << "cannot reach VexilDX9.dll's imports";
}

void ScriptedDirect3DTest::TearDown() {
    hook.reset();
    sleeps.reset();
    if (d3d) {
        EXPECT_EQ(0u, d3d->Release()) << "the library still holds the Direct3D object";
    }
    d3d = nullptr;
    EXPECT_TRUE(ledger->allReleasedToZero()) << "live Direct3D " << ledger->liveDirect3D << ", live devices "
                                             << ledger->liveDevices;
}

void ScriptedDirect3DTest::setHeads(const std::vector<UINT>& masters) {
    std::vector<ScriptedAdapter> adapters;
    for (UINT master : masters) {
        ScriptedAdapter a;
        a.deviceName = headName(static_cast<UINT>(adapters.size()));
        a.masterOrdinal = master;
        a.ordinalInGroup = static_cast<UINT>(std::count(masters.begin(), masters.begin() + adapters.size(), master));
        a.adaptersInGroup = static_cast<UINT>(std::count(masters.begin(), masters.end(), master));
        adapters.push_back(a);
    }
    d3d->setAdapters(adapters);
}

}  // namespace vexiltest
