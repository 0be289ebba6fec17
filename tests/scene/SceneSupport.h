#pragma once
// Shared pieces of the scene tests: X text written on the fly, a tree loaded and destroyed through
// one loader, a block counter on the library's COM task allocations, and the frame tables.
#include "../device/ImportPatch.h"

#include <VexilDX9/FrameNodeIndexer.h>
#include <VexilDX9/SceneLoaderX.h>

#include <TestDevice.h>

#include <d3dx9.h>
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace scenetest {

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

// X text. The skin templates are declared inline: stock Wine refuses skinned files without.
std::string xHeader();
std::string frame(const std::string& name, const std::string& body);
std::string transform(const D3DXMATRIX& matrix);
std::string translation(float x, float y, float z);
// One quad (two faces taking materials face0 and face1) with optional material list and extras.
std::string quadMesh(const std::string& name, const std::string& materials, const std::string& extra = "");
std::string material(float r, float g, float b, float a, float power, const std::string& textureFile);
std::string materialList(const std::vector<std::string>& materials, unsigned face0, unsigned face1);
// Header plus one weight block per bone, each with that offset matrix.
std::string skin(const std::vector<std::string>& bones, const D3DXMATRIX& offset = D3DXMATRIX(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1));
std::string writeFixture(const std::string& fileName, const std::string& text);  // Windows path

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
// Vectors and matrices alike, element by element.
template <class T>::testing::AssertionResult same(const T& actual, const T& expected) {
    const float *a = actual, *e = expected;
    for (size_t i = 0; i < sizeof(T) / sizeof(float); ++i)
        if (std::fabs(a[i] - e[i]) > 1e-5f * (1.0f + std::fabs(e[i])))
            return ::testing::AssertionFailure() << "element " << i << ": " << a[i] << " vs " << e[i];
    return ::testing::AssertionSuccess();
}
std::vector<D3DXMESHCONTAINER*> containersOf(const D3DXFRAME* frame);
std::vector<D3DXFRAME*> framesPreOrder(D3DXFRAME* root);

typedef std::pair<std::string, unsigned> FrameRow;  // a frame's name and its parent's row
std::vector<FrameRow> tableOf(const FrameNodeIndexer& index);

}  // namespace scenetest
