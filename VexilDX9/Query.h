#pragma once
// One Direct3D 9 asynchronous query of a given type: checks support, creates it, and marks a
// point in the command stream. Reading its data is left to the caller through query().
#include <VexilDX9/Export.h>
#include <zeb/ComPtr.h>

#include <d3d9.h>

class VEXILDX9_API QueryCommon {
public:
    QueryCommon();
    // The device must be present and support the type; otherwise construction fails its check.
    QueryCommon(const COMPtr<IDirect3DDevice9>::pointer& device, D3DQUERYTYPE query);
    QueryCommon(const QueryCommon& other);
    QueryCommon& operator=(const QueryCommon& other);
    ~QueryCommon();

    // The probe's failure for an unsupported type (the held query is then kept), otherwise the
    // creation's result.
    HRESULT initialize(IDirect3DDevice9* device, D3DQUERYTYPE type);
    HRESULT initialize(const COMPtr<IDirect3DDevice9>::pointer& device, D3DQUERYTYPE type);
    // Issues the query with the given D3DISSUE flags.
    void mark(unsigned long flags) const;

    const COMPtr<IDirect3DQuery9>::pointer& query() const { return m_query; }

private:
    COMPtr<IDirect3DQuery9>::pointer m_query;
};
