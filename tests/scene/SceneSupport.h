#pragma once
// Shared pieces of the scene tests: X text written on the fly, a tree loaded and destroyed through
// one loader, a byte counter on the COM task allocator, and the frame-table checks.
#include <VexilDX9/FrameNodeIndexer.h>
#include <VexilDX9/SceneLoaderX.h>

#include <TestDevice.h>

#include <d3dx9.h>
#include <gtest/gtest.h>
#include <objidl.h>

#include <map>
#include <string>
#include <vector>

namespace scenetest {

// Counts the live blocks of the COM task allocator while it lives; can fail the n-th allocation.
class AllocationSpy : public IMallocSpy {
public:
    AllocationSpy() { m_registered = SUCCEEDED(CoRegisterMallocSpy(this)); }
    ~AllocationSpy() { if (m_registered) CoRevokeMallocSpy(); }
    bool registered() const { return m_registered; }
    long long liveBytes() const { return m_liveBytes; }
    unsigned allocations() const { return m_allocations; }
    void failAllocation(unsigned n) { m_failAt = n ? m_allocations + n : 0; }  // 1 = the next one

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    SIZE_T STDMETHODCALLTYPE PreAlloc(SIZE_T request) override;
    void* STDMETHODCALLTYPE PostAlloc(void* actual) override;
    void* STDMETHODCALLTYPE PreFree(void* request, BOOL) override;
    void STDMETHODCALLTYPE PostFree(BOOL) override {}
    SIZE_T STDMETHODCALLTYPE PreRealloc(void* request, SIZE_T size, void** newRequest, BOOL) override;
    void* STDMETHODCALLTYPE PostRealloc(void* actual, BOOL) override { return PostAlloc(actual); }
    void* STDMETHODCALLTYPE PreGetSize(void* request, BOOL) override { return request; }
    SIZE_T STDMETHODCALLTYPE PostGetSize(SIZE_T actual, BOOL) override { return actual; }
    void* STDMETHODCALLTYPE PreDidAlloc(void* request, BOOL) override { return request; }
    int STDMETHODCALLTYPE PostDidAlloc(void*, BOOL, int actual) override { return actual; }
    void STDMETHODCALLTYPE PreHeapMinimize() override {}
    void STDMETHODCALLTYPE PostHeapMinimize() override {}

private:
    bool m_registered = false;
    unsigned m_allocations = 0, m_failAt = 0;
    SIZE_T m_pending = 0;
    long long m_liveBytes = 0;
    std::map<void*, SIZE_T> m_live;
};

// X text. The skin templates are declared inline: stock Wine refuses skinned files without.
std::string xHeader();
std::string frame(const std::string& name, const std::string& body);
std::string translation(float x, float y, float z, float scale = 1.0f);
// One quad (two faces taking materials face0 and face1) with optional material list and extras.
std::string quadMesh(const std::string& name, const std::string& materials, const std::string& extra = "");
std::string material(float r, float g, float b, float a, float power, const std::string& textureFile);
std::string materialList(const std::vector<std::string>& materials, unsigned face0, unsigned face1);
std::string skin(const std::vector<std::string>& bones);  // header plus one weight block per bone
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

inline ULONG references(IUnknown* object) {
    object->AddRef();
    return object->Release();
}
std::vector<D3DXMESHCONTAINER*> containersOf(const D3DXFRAME* frame);
std::vector<D3DXFRAME*> framesPreOrder(D3DXFRAME* root);

struct FrameRow {
    std::string name;
    unsigned parent;
    bool operator==(const FrameRow& other) const { return name == other.name && parent == other.parent; }
};
void PrintTo(const FrameRow& row, std::ostream* out);
std::vector<FrameRow> tableOf(const FrameNodeIndexer& index);
// Parents before children, breadth-first grouping, siblings adjacent in chain order, every frame
// of the tree once, first occurrence wins in the name index.
::testing::AssertionResult indexInvariantsHold(const FrameNodeIndexer& index, D3DXFRAME* root);

}  // namespace scenetest
