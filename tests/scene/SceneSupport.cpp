#include "SceneSupport.h"

namespace scenetest {

static AllocationSpy* activeSpy = nullptr;

AllocationSpy::AllocationSpy()
    : m_allocate("VexilDX9.dll", "ole32.dll", "CoTaskMemAlloc", reinterpret_cast<void*>(&AllocationSpy::allocate)),
      m_free("VexilDX9.dll", "ole32.dll", "CoTaskMemFree", reinterpret_cast<void*>(&AllocationSpy::free)) {
    activeSpy = this;
}

AllocationSpy::~AllocationSpy() { activeSpy = nullptr; }

void* WINAPI AllocationSpy::allocate(SIZE_T bytes) {
    if (++activeSpy->m_allocations == activeSpy->m_failAt) return nullptr;
    void* block = CoTaskMemAlloc(bytes);
    if (block) activeSpy->m_live.insert(block);
    return block;
}

void WINAPI AllocationSpy::free(void* block) {
    activeSpy->m_live.erase(block);
    CoTaskMemFree(block);
}

LoadedHierarchy::LoadedHierarchy(IDirect3DDevice9* device, const std::string& path, SceneLoaderX& loader)
    : m_loader(loader) {
    std::wstring wide(path.begin(), path.end());
    m_result = D3DXLoadMeshHierarchyFromXW(wide.c_str(), D3DXMESH_MANAGED, device, &loader, nullptr, &m_root,
                                           &m_animation);
}

HRESULT LoadedHierarchy::destroy() {
    if (m_animation) m_animation->Release();
    m_animation = nullptr;
    HRESULT hr = m_root ? D3DXFrameDestroy(m_root, &m_loader) : S_OK;
    m_root = nullptr;
    return hr;
}

std::vector<D3DXMESHCONTAINER*> containersOf(const D3DXFRAME* frame) {
    std::vector<D3DXMESHCONTAINER*> result;
    for (D3DXMESHCONTAINER* c = frame->pMeshContainer; c; c = c->pNextMeshContainer) result.push_back(c);
    return result;
}

std::vector<FrameRow> tableOf(const FrameNodeIndexer& index) {
    std::vector<FrameRow> rows;
    for (unsigned i = 0; i < index.size(); ++i) rows.push_back({index[int(i)].m_frame->Name, index[int(i)].m_parentIndex});
    return rows;
}

}  // namespace scenetest
