#include "SkinInfoWrap.h"

#include <new>

#include "SkinConvert.h"

namespace {

// Forwards everything to the system object and answers the operations the system D3DX
// leaves unimplemented itself.
class CompletedSkinInfo final : public ID3DXSkinInfo {
public:
    explicit CompletedSkinInfo(ID3DXSkinInfo* system) : m_system(system) { m_system->AddRef(); }
    CompletedSkinInfo(const CompletedSkinInfo&) = delete;
    CompletedSkinInfo& operator=(const CompletedSkinInfo&) = delete;

    STDMETHOD(QueryInterface)(REFIID riid, void** out) override
    {
        if (!out)
            return E_POINTER;
        if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_ID3DXSkinInfo)) {
            AddRef();
            *out = static_cast<ID3DXSkinInfo*>(this);
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHOD_(ULONG, AddRef)() override { return ULONG(InterlockedIncrement(&m_references)); }
    STDMETHOD_(ULONG, Release)() override
    {
        LONG left = InterlockedDecrement(&m_references);
        if (left == 0)
            delete this;
        return ULONG(left);
    }

    STDMETHOD(SetBoneInfluence)(DWORD bone, DWORD count, const DWORD* vertices, const FLOAT* weights) override
    {
        return m_system->SetBoneInfluence(bone, count, vertices, weights);
    }
    STDMETHOD(SetBoneVertexInfluence)(DWORD bone, DWORD influence, float weight) override
    {
        return m_system->SetBoneVertexInfluence(bone, influence, weight);
    }
    STDMETHOD_(DWORD, GetNumBoneInfluences)(DWORD bone) override { return m_system->GetNumBoneInfluences(bone); }
    STDMETHOD(GetBoneInfluence)(DWORD bone, DWORD* vertices, FLOAT* weights) override
    {
        return m_system->GetBoneInfluence(bone, vertices, weights);
    }
    STDMETHOD(GetBoneVertexInfluence)(DWORD bone, DWORD influence, float* weight, DWORD* vertex) override
    {
        return m_system->GetBoneVertexInfluence(bone, influence, weight, vertex);
    }
    STDMETHOD(GetMaxVertexInfluences)(DWORD* result) override
    {
        return skinconvert::maxVertexInfluences(m_system, result);
    }
    STDMETHOD_(DWORD, GetNumBones)() override { return m_system->GetNumBones(); }
    STDMETHOD(FindBoneVertexInfluenceIndex)(DWORD bone, DWORD vertex, DWORD* influence) override
    {
        return m_system->FindBoneVertexInfluenceIndex(bone, vertex, influence);
    }
    STDMETHOD(GetMaxFaceInfluences)(IDirect3DIndexBuffer9* indices, DWORD faceCount, DWORD* result) override
    {
        return skinconvert::maxFaceInfluences(m_system, indices, faceCount, result);
    }
    STDMETHOD(SetMinBoneInfluence)(FLOAT minimum) override { return m_system->SetMinBoneInfluence(minimum); }
    STDMETHOD_(FLOAT, GetMinBoneInfluence)() override { return m_system->GetMinBoneInfluence(); }
    STDMETHOD(SetBoneName)(DWORD bone, const char* name) override { return m_system->SetBoneName(bone, name); }
    STDMETHOD_(const char*, GetBoneName)(DWORD bone) override { return m_system->GetBoneName(bone); }
    STDMETHOD(SetBoneOffsetMatrix)(DWORD bone, const D3DXMATRIX* matrix) override
    {
        return m_system->SetBoneOffsetMatrix(bone, matrix);
    }
    STDMETHOD_(D3DXMATRIX*, GetBoneOffsetMatrix)(DWORD bone) override { return m_system->GetBoneOffsetMatrix(bone); }
    STDMETHOD(Clone)(ID3DXSkinInfo** out) override
    {
        if (!out)
            return D3DERR_INVALIDCALL;
        ID3DXSkinInfo* copy = nullptr;
        HRESULT hr = m_system->Clone(&copy);
        if (FAILED(hr))
            return hr;
        *out = vexilWrapSkinInfo(copy);
        copy->Release();
        return *out ? D3D_OK : E_OUTOFMEMORY;
    }
    STDMETHOD(Remap)(DWORD count, DWORD* remap) override { return m_system->Remap(count, remap); }
    STDMETHOD(SetFVF)(DWORD fvf) override { return m_system->SetFVF(fvf); }
    STDMETHOD(SetDeclaration)(const D3DVERTEXELEMENT9* declaration) override
    {
        return m_system->SetDeclaration(declaration);
    }
    STDMETHOD_(DWORD, GetFVF)() override { return m_system->GetFVF(); }
    STDMETHOD(GetDeclaration)(D3DVERTEXELEMENT9 declaration[MAX_FVF_DECL_SIZE]) override
    {
        return m_system->GetDeclaration(declaration);
    }
    STDMETHOD(UpdateSkinnedMesh)(const D3DXMATRIX* transforms, const D3DXMATRIX* inverseTransposes,
                                 const void* source, void* target) override
    {
        return m_system->UpdateSkinnedMesh(transforms, inverseTransposes, source, target);
    }
    STDMETHOD(ConvertToBlendedMesh)(ID3DXMesh* meshIn, DWORD options, const DWORD* adjacencyIn,
                                    DWORD* adjacencyOut, DWORD* faceRemap, ID3DXBuffer** vertexRemap,
                                    DWORD* maxFaceInfl, DWORD* combinationCount,
                                    ID3DXBuffer** combinationTable, ID3DXMesh** meshOut) override
    {
        return skinconvert::convertToBlendedMesh(m_system, meshIn, options, adjacencyIn, adjacencyOut, faceRemap,
                                                 vertexRemap, maxFaceInfl, combinationCount, combinationTable,
                                                 meshOut);
    }
    STDMETHOD(ConvertToIndexedBlendedMesh)(ID3DXMesh* meshIn, DWORD options, DWORD paletteSize,
                                           const DWORD* adjacencyIn, DWORD* adjacencyOut, DWORD* faceRemap,
                                           ID3DXBuffer** vertexRemap, DWORD* maxVertexInfl,
                                           DWORD* combinationCount, ID3DXBuffer** combinationTable,
                                           ID3DXMesh** meshOut) override
    {
        return m_system->ConvertToIndexedBlendedMesh(meshIn, options, paletteSize, adjacencyIn, adjacencyOut,
                                                     faceRemap, vertexRemap, maxVertexInfl, combinationCount,
                                                     combinationTable, meshOut);
    }

    // Our objects are told apart by their vtable: the system's objects carry no type info.
    static bool isOurs(ID3DXSkinInfo* object)
    {
        static const void* const ourVtable = [] {
            CompletedSkinInfo probe;
            return *reinterpret_cast<void* const*>(&probe);
        }();
        return *reinterpret_cast<void* const*>(object) == ourVtable;
    }

private:
    CompletedSkinInfo() : m_system(nullptr) {}
    ~CompletedSkinInfo()
    {
        if (m_system)
            m_system->Release();
    }

    ID3DXSkinInfo* m_system;
    LONG m_references = 1;
};

}  // namespace

ID3DXSkinInfo* vexilWrapSkinInfo(ID3DXSkinInfo* system)
{
    if (!system)
        return nullptr;
    if (CompletedSkinInfo::isOurs(system)) {
        system->AddRef();
        return system;
    }
    return new (std::nothrow) CompletedSkinInfo(system);
}
