#pragma once
// The frame half of an allocate-hierarchy for the benchmark programs that load X files: named
// frames at the identity. Each program adds the mesh containers it needs.
#include <d3dx9.h>

#include <cstdlib>
#include <cstring>

namespace vexilbench {

struct FrameAllocator : ID3DXAllocateHierarchy {
    STDMETHOD(CreateFrame)(THIS_ const char* name, D3DXFRAME** frame) override
    {
        *frame = new D3DXFRAME{};
        (*frame)->Name = name ? _strdup(name) : nullptr;
        D3DXMatrixIdentity(&(*frame)->TransformationMatrix);
        return S_OK;
    }
    STDMETHOD(DestroyFrame)(THIS_ D3DXFRAME* frame) override
    {
        std::free(frame->Name);
        delete frame;
        return S_OK;
    }
};

}  // namespace vexilbench
