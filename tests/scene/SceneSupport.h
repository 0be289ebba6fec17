#pragma once
// Shared pieces of the scene tests: a tree loaded and destroyed through one loader, a block counter on the library's COM task allocations, and the frame tables.
#include "../device/ImportPatch.h"

#include <VexilDX9/FrameNodeIndexer.h>
#include <VexilDX9/SceneLoaderX.h>

#include <TestDevice.h>
#include <XText.h>

#include <d3dx9.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace scenetest {

using namespace vexiltest::xtext;

// CoTaskMemAlloc and CoTaskMemFree as VexilDX9.dll sees them while the spy lives: the blocks
// still live are counted, and the n-th allocation can be refused.
class AllocationSpy {
public:
    AllocationSpy();
    ~AllocationSpy();
    bool registered() const { return m_allocate.ok() && m_free.ok(); }
    size_t liveBlocks() const { return m_live.size(); }
    unsigned allocations() const { return m_allocations; }
    void failAllocation(unsigned n) { m_failAt = n ? m_allocations + n : 0; }  // 1 = the next one

private:
    static void* WINAPI allocate(SIZE_T bytes);
    static void WINAPI free(void* block);

    vexiltest::ImportPatch m_allocate, m_free;
    unsigned m_allocations = 0, m_failAt = 0;
    std::set<void*> m_live;
};

// A tree loaded through a loader and destroyed through the same loader.
class LoadedHierarchy {
public:
    LoadedHierarchy(IDirect3DDevice9* device, const std::string& path, SceneLoaderX& loader);
    ~LoadedHierarchy() { destroy(); }
    HRESULT result() const { return m_result; }
    bool ok() const { return SUCCEEDED(m_result) && m_root; }
    D3DXFRAME* root() const { return m_root; }
    HRESULT destroy();

private:
    SceneLoaderX& m_loader;
    D3DXFRAME* m_root = nullptr;
    ID3DXAnimationController* m_animation = nullptr;
    HRESULT m_result = E_FAIL;
};

// A device and a loader that names nameless frames dummy_0, dummy_1... and roots texture files
// in C:\scene; the name counter starts from zero in every test.
class LoaderTest : public vexiltest::DeviceTest {
protected:
    void SetUp() override {
        DeviceTest::SetUp();
        loader.assignNamelessFrameToName("dummy_");
        loader.setTextureFileRootDirectory("C:\\scene");
        loader.resetDummyFrameCounter();
    }
    SceneLoaderX loader;
};

using vexiltest::referencesOf;
using vexiltest::same;
std::vector<D3DXMESHCONTAINER*> containersOf(const D3DXFRAME* frame);

typedef std::pair<std::string, unsigned> FrameRow;  // a frame's name and its parent's row
std::vector<FrameRow> tableOf(const FrameNodeIndexer& index);

}  // namespace scenetest
