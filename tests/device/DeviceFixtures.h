#pragma once
// Fixtures and builders shared by the device management tests.
#include "ImportPatch.h"
#include "ScriptedDirect3D.h"

#include <LogCapture.h>
#include <TestDevice.h>
#include <VexilDX9/VexilDX9.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vexiltest {

inline VexilDX9::SwapChainParameterDX9 windowedChain(HWND window, bool depthStencil = true, unsigned backBuffers = 1,
                                                     unsigned multiSample = 0) {
    VexilDX9::SwapChainParameterDX9 chain;
    chain.multiSampleType = multiSample;
    chain.backBufferCount = backBuffers;
    chain.spareWord = 0;
    chain.windowed = true;
    chain.depthStencil = depthStencil;
    chain.window = window;
    return chain;
}

inline VexilDX9::SwapChainParameterDX9 fullScreenChain(HWND window) {
    VexilDX9::SwapChainParameterDX9 chain = windowedChain(window);
    chain.windowed = false;
    return chain;
}

inline VexilDX9::RenderDeviceParameterDX9 parameter(const std::string& adapterId,
                                                    std::initializer_list<VexilDX9::SwapChainParameterDX9> chains) {
    VexilDX9::RenderDeviceParameterDX9 p;
    p.adapterId = zeb::String(adapterId.c_str());
    for (const VexilDX9::SwapChainParameterDX9& chain : chains) p.swapChains.append(chain);
    return p;
}

inline zeb::Array<VexilDX9::RenderDeviceParameterDX9> parameters(std::initializer_list<VexilDX9::RenderDeviceParameterDX9> list) {
    zeb::Array<VexilDX9::RenderDeviceParameterDX9> all;
    for (const VexilDX9::RenderDeviceParameterDX9& p : list) all.append(p);
    return all;
}

inline std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The display device name of a real adapter.
inline std::string realAdapterName(IDirect3D9* d3d) {
    D3DADAPTER_IDENTIFIER9 identifier = {};
    d3d->GetAdapterIdentifier(0, 0, &identifier);
    return identifier.DeviceName;
}

// The render buffer of window, from the HAL device that serves it.
inline VexilDX9::RenderBuffer renderBufferOf(VexilDX9::RenderDeviceManagerDX9& manager, HWND window) {
    VexilDX9::RenderBuffer buffer;
    VexilDX9::RenderDeviceManagerDX9::RenderDeviceReference device = manager.renderDevice(D3DDEVTYPE_HAL, window);
    EXPECT_TRUE(device && device->findRenderBuffer(window, buffer));
    return buffer;
}

inline D3DPRESENT_PARAMETERS swapChainPresentParameters(const VexilDX9::RenderBuffer& buffer) {
    D3DPRESENT_PARAMETERS pp = {};
    if (buffer.swapChain && buffer.swapChain->swapChain()) buffer.swapChain->swapChain()->GetPresentParameters(&pp);
    return pp;
}

const unsigned kNotFound = 0xFFFFFFFF;
const char kManagerLog[] = "VexilDX9.RenderDeviceManagerDX9";
const char kDeviceLog[] = "VexilDX9.RenderDeviceDX9";

inline std::vector<unsigned> toVector(const zeb::Array<unsigned>& array) {
    return std::vector<unsigned>(array.begin(), array.end());
}

// Checks that logger logged each text at its priority.
inline void expectLogged(const LogCapture& log, const char* logger, std::initializer_list<std::pair<int, std::string>> lines) {
    for (const auto& line : lines) EXPECT_TRUE(log.contains(logger, line.first, line.second)) << line.second << "\n" << log.dump();
}

// Runs action and checks that it fails the check of that text (and line, unless 0) in file.
inline void expectAssertion(const std::function<void()>& action, unsigned long long line, const char* expression,
                            const char* file = "VexilDX9/Adapter") {
    try {
        action();
        ADD_FAILURE() << "no assertion failure for " << expression;
    } catch (const zeb::AssertionFailure& failure) {
        EXPECT_STREQ(file, failure.file());
        EXPECT_TRUE(line == 0 || line == failure.line()) << failure.line();
        EXPECT_STREQ(expression, failure.expression());
    }
}

// Hidden windows, handed out as handles or as the first n in a library array.
class TestWindows {
public:
    explicit TestWindows(unsigned count) {
        for (unsigned i = 0; i < count; ++i) m_windows.emplace_back(new TestWindow());
    }
    HWND operator[](unsigned i) const { return m_windows[i]->handle(); }
    zeb::Array<HWND> list(unsigned n) const {
        zeb::Array<HWND> handles;
        for (unsigned i = 0; i < n; ++i) handles.append((*this)[i]);
        return handles;
    }

private:
    std::vector<std::unique_ptr<TestWindow>> m_windows;
};

// The library on the real Direct3D of wined3d. Every Direct3D object the library creates is
// watched, as are devices handed to watch(); at teardown each must be released to zero.
class RealDirect3DTest : public ::testing::Test {
protected:
    void SetUp() override {
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
    void TearDown() override {
        for (IDirect3DDevice9* device : m_devices) EXPECT_EQ(0u, device->Release()) << "device still referenced";
        for (IDirect3D9* d3d : m_created) EXPECT_EQ(0u, d3d->Release()) << "Direct3D object still referenced";
        m_hook.reset();
    }
    void watch(IDirect3DDevice9* device) {
        ASSERT_NE(nullptr, device);
        device->AddRef();
        m_devices.push_back(device);
    }
    const std::string& adapterName() const { return m_adapterName; }
    const D3DDISPLAYMODE& displayMode() const { return m_displayMode; }
    const Direct3DCreateHook& createHook() const { return *m_hook; }

    LogCapture log;

private:
    std::unique_ptr<Direct3DCreateHook> m_hook;
    std::vector<IDirect3D9*> m_created;
    std::vector<IDirect3DDevice9*> m_devices;
    std::string m_adapterName;
    D3DDISPLAYMODE m_displayMode = {};
};

// The library on a scripted decorator around the real Direct3D; Sleep is recorded, not waited.
class ScriptedDirect3DTest : public ::testing::Test {
protected:
    void SetUp() override {
        IDirect3D9* real = Direct3DCreate9(D3D_SDK_VERSION);
        ASSERT_NE(nullptr, real);
        d3d = new ScriptedDirect3D9(real, ledger);
        hook.reset(new Direct3DCreateHook([this](UINT) {
            d3d->AddRef();
            return static_cast<IDirect3D9*>(d3d);
        }));
        ASSERT_TRUE(hook->ok() && sleeps.ok()) << "cannot reach VexilDX9.dll's imports";
    }
    void TearDown() override {
        hook.reset();
        if (d3d) {
            EXPECT_EQ(0u, d3d->Release()) << "the library still holds the Direct3D object";
        }
        EXPECT_TRUE(ledger->allReleasedToZero()) << "live Direct3D " << ledger->liveDirect3D << ", live devices "
                                                 << ledger->liveDevices;
    }
    // Adapters named HEAD0, HEAD1, ... with the given master ordinals (ordinals in group and
    // group sizes follow from them).
    void setHeads(const std::vector<UINT>& masters) {
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
    std::string headName(UINT ordinal) const { return "\\\\.\\HEAD" + std::to_string(ordinal); }

    LogCapture log;
    std::shared_ptr<ComLedger> ledger = std::make_shared<ComLedger>();
    ScriptedDirect3D9* d3d = nullptr;
    std::unique_ptr<Direct3DCreateHook> hook;
    SleepHook sleeps;
};

// An adapter on the heads of Base, initialized before each test and cleaned up after it.
template <class Base> class AdapterTest : public Base {
protected:
    // The adapter's holders may throw from their destructors; the fixture's base may not.
    ~AdapterTest() noexcept override {}
    void SetUp() override {
        Base::SetUp();
        setUpHeads();
        ASSERT_TRUE(adapter.initialize());
    }
    void TearDown() override {
        adapter.cleanup();
        Base::TearDown();
    }
    virtual void setUpHeads() {}
    // The display device name of a head, as the adapter enumerated it.
    std::string headName(unsigned head) const {
        D3DADAPTER_IDENTIFIER9 identifier = {};
        adapter.adapterIdentifier(head, identifier);
        return identifier.DeviceName;
    }
    zeb::String name(unsigned head) const { return headName(head).c_str(); }
    zeb::Array<zeb::String> names(const std::vector<unsigned>& heads) const {
        zeb::Array<zeb::String> list;
        for (unsigned head : heads) list.append(name(head));
        return list;
    }
    // A device for these heads, a window each (at least one), focused on the first window.
    bool create(const std::vector<unsigned>& heads, bool windowed, D3DDEVTYPE type = D3DDEVTYPE_HAL) {
        const unsigned chains = heads.empty() ? 1 : static_cast<unsigned>(heads.size());
        return adapter.createSwapChain(names(heads), windows[0], windows.list(chains), windowed, type);
    }

    AdapterD3D9 adapter;
    TestWindows windows{3};
};

}  // namespace vexiltest
