#pragma once
// Shared pieces of the scene tests: X-file fixtures written on the fly, a loaded hierarchy that
// destroys itself through the same loader, a byte counter on the COM task allocator, and the
// frame-table checks every fixture and sample must pass.
#include <VexilDX9/FrameNodeIndexer.h>
#include <VexilDX9/SceneLoaderX.h>

#include <d3dx9.h>
#include <gtest/gtest.h>
#include <objidl.h>

#include <map>
#include <string>
#include <vector>

namespace scenetest {

// Counts every block of the COM task allocator while it lives, and can make the n-th
// allocation from now fail.
class AllocationSpy : public IMallocSpy {
public:
    AllocationSpy();
    ~AllocationSpy();
    AllocationSpy(const AllocationSpy&) = delete;
    AllocationSpy& operator=(const AllocationSpy&) = delete;

    bool registered() const { return m_registered; }
    long long liveBytes() const { return m_liveBytes; }
    size_t liveBlocks() const { return m_live.size(); }
    unsigned allocations() const { return m_allocations; }
    // 1 fails the next allocation; 0 fails none.
    void failAllocation(unsigned n) { m_failAt = n ? m_allocations + n : 0; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    SIZE_T STDMETHODCALLTYPE PreAlloc(SIZE_T request) override;
    void* STDMETHODCALLTYPE PostAlloc(void* actual) override;
    void* STDMETHODCALLTYPE PreFree(void* request, BOOL spyed) override;
    void STDMETHODCALLTYPE PostFree(BOOL) override {}
    SIZE_T STDMETHODCALLTYPE PreRealloc(void* request, SIZE_T size, void** newRequest, BOOL spyed) override;
    void* STDMETHODCALLTYPE PostRealloc(void* actual, BOOL) override;
    void* STDMETHODCALLTYPE PreGetSize(void* request, BOOL) override { return request; }
    SIZE_T STDMETHODCALLTYPE PostGetSize(SIZE_T actual, BOOL) override { return actual; }
    void* STDMETHODCALLTYPE PreDidAlloc(void* request, BOOL) override { return request; }
    int STDMETHODCALLTYPE PostDidAlloc(void*, BOOL, int actual) override { return actual; }
    void STDMETHODCALLTYPE PreHeapMinimize() override {}
    void STDMETHODCALLTYPE PostHeapMinimize() override {}

private:
    bool m_registered = false;
    unsigned m_allocations = 0;
    unsigned m_failAt = 0;
    SIZE_T m_pending = 0;
    long long m_liveBytes = 0;
    std::map<void*, SIZE_T> m_live;
};

// Text X files. Skin templates are declared inline: stock Wine refuses skinned files without.
std::string xHeader();
std::string frame(const std::string& name, const std::string& body);
std::string translation(float x, float y, float z);
// A triangle pair (one quad) as a mesh; each face takes the material index given.
std::string quadMesh(const std::string& name, const std::string& materialList, const std::string& extra = "");
std::string material(float r, float g, float b, float a, float power, const std::string& textureFile);
std::string materialList(const std::vector<std::string>& materials, unsigned face0, unsigned face1);
std::string skinWeights(const std::string& bone, const std::vector<unsigned>& vertices);
std::string skinHeader(unsigned bones);

// Writes the text into the test output folder and returns its Windows path.
std::string writeFixture(const std::string& fileName, const std::string& text);
std::string readFile(const std::string& path);

// A tree loaded through a SceneLoaderX; destroyed through the same loader.
class LoadedHierarchy {
public:
    LoadedHierarchy(IDirect3DDevice9* device, const std::string& path, SceneLoaderX& loader);
    ~LoadedHierarchy();
    LoadedHierarchy(const LoadedHierarchy&) = delete;
    LoadedHierarchy& operator=(const LoadedHierarchy&) = delete;

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

D3DXFRAME* findFrame(D3DXFRAME* root, const char* name);
std::vector<D3DXMESHCONTAINER*> containersOf(const D3DXFRAME* frame);
std::vector<D3DXFRAME*> framesPreOrder(D3DXFRAME* root);

struct FrameRow {
    std::string name;
    unsigned parent;
    bool operator==(const FrameRow& other) const { return name == other.name && parent == other.parent; }
};
void PrintTo(const FrameRow& row, std::ostream* out);
std::vector<FrameRow> tableOf(const FrameNodeIndexer& index);

// The frame table a breadth-first index must produce for a text X file, worked out from the
// file's own nesting: nameless frames are named prefix + number in file order from firstNumber.
std::vector<FrameRow> expectedTableFromText(const std::string& text, const std::string& prefix, unsigned firstNumber);

// Parents before children, breadth-first grouping, siblings adjacent in chain order, every frame
// of the tree once, first occurrence wins in the name index.
::testing::AssertionResult indexInvariantsHold(const FrameNodeIndexer& index, D3DXFRAME* root);

}  // namespace scenetest
