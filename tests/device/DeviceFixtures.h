#pragma once
// Fixtures and builders shared by the device management tests.
#include "ImportPatch.h"
#include "ScriptedDirect3D.h"

#include <LogCapture.h>
#include <TestDevice.h>
#include <VexilDX9/VexilDX9.h>

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vexiltest {

VexilDX9::SwapChainParameterDX9 windowedChain(HWND window, bool depthStencil = true, unsigned backBuffers = 1,
                                              unsigned multiSample = 0);
VexilDX9::SwapChainParameterDX9 fullScreenChain(HWND window, bool depthStencil = true);
VexilDX9::RenderDeviceParameterDX9 parameter(const std::string& adapterId,
                                             std::initializer_list<VexilDX9::SwapChainParameterDX9> chains);
zeb::Array<VexilDX9::RenderDeviceParameterDX9> parameters(std::initializer_list<VexilDX9::RenderDeviceParameterDX9> list);
std::string lowerCase(std::string text);
// The display device name of a real adapter.
std::string realAdapterName(IDirect3D9* d3d, UINT ordinal = 0);
D3DPRESENT_PARAMETERS swapChainPresentParameters(const VexilDX9::RenderBuffer& buffer);

const unsigned kNotFound = 0xFFFFFFFF;
std::vector<unsigned> toVector(const zeb::Array<unsigned>& array);
// Checks that logger logged each text at its priority.
void expectLogged(const LogCapture& log, const char* logger, std::initializer_list<std::pair<int, std::string>> lines);
// Runs action and checks that it fails the check of that text (and line, unless 0) in file.
void expectAssertion(const std::function<void()>& action, unsigned long long line, const char* expression,
                     const char* file = "VexilDX9/Adapter");

// Hidden windows, handed out as handles or as the first n in a library array.
class TestWindows {
public:
    explicit TestWindows(unsigned count);
    HWND operator[](unsigned i) const { return m_windows[i]->handle(); }
    zeb::Array<HWND> list(unsigned n) const;

private:
    std::vector<std::unique_ptr<TestWindow>> m_windows;
};

// The library on the real Direct3D of wined3d. Every Direct3D object the library creates is
// watched, as are devices handed to watch(); at teardown each must be released to zero.
class RealDirect3DTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    void watch(IDirect3DDevice9* device);
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
    void SetUp() override;
    void TearDown() override;
    // Adapters named HEAD0, HEAD1, ... with the given master ordinals (ordinals in group and
    // group sizes follow from them).
    void setHeads(const std::vector<UINT>& masters);
    std::string headName(UINT ordinal) const { return "\\\\.\\HEAD" + std::to_string(ordinal); }

    LogCapture log;
    std::shared_ptr<ComLedger> ledger;
    ScriptedDirect3D9* d3d = nullptr;
    std::unique_ptr<Direct3DCreateHook> hook;
    std::unique_ptr<SleepHook> sleeps;
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
