#pragma once
#include <VexilDX9/Export.h>
#include <VexilDX9/Technique.h>
#include <zeb/Array.h>
#include <zeb/ComPtr.h>
#include <zeb/String.h>

#include <d3dx9.h>

// A D3DX effect loaded from a compiled effect file, with what it takes to load it again (macros,
// include handler, pool, file name) and one Technique per technique of the effect.
class VEXILDX9_API Effect {
public:
    Effect();
    ~Effect();
    Effect(const Effect& other) = default;
    Effect& operator=(const Effect& other) = default;

    // Appended as given: the caller keeps the strings alive and ends the list with {null, null}.
    void addMacro(const D3DXMACRO& macro);
    void setIncludes(ID3DXInclude* includes);
    void setPool(const COMPtr<ID3DXEffectPool>::pointer& pool);

    // Loads the effect; on failure the previously loaded effect stays as it was. A compiled effect
    // whose counts, offsets or sizes do not hold together is refused (D3DXERR_INVALIDDATA, logged)
    // before D3DX reads it.
    bool load(const zeb::String& effectFile, const COMPtr<IDirect3DDevice9>::pointer& device);
    // Drops the effect, then loads the file again; after a failure no effect is held and the
    // counts are 0.
    bool reload(const COMPtr<IDirect3DDevice9>::pointer& device);

    const zeb::String& effectFileName() const { return m_effectFileName; }
    unsigned int numParameters() const { return m_desc.Parameters; }
    unsigned int numTechniques() const { return m_desc.Techniques; }
    const COMPtr<ID3DXEffect>::pointer& effect() const { return m_effect; }

    const Technique& technique(unsigned int index) const { return m_techniques[index]; }
    // First technique named so, ignoring case; 0xFFFFFFFF when there is none.
    unsigned int techniqueIndex(const zeb::String& name) const;
    bool setActiveTechnique(const zeb::String& name) const;
    bool setActiveTechnique(unsigned int index) const;
    const Technique& currentActiveTechnique() const;

private:
    void cleanup();

    unsigned int m_flags;
    ID3DXInclude* m_includes;
    COMPtr<ID3DXEffect>::pointer m_effect;
    zeb::Array<D3DXMACRO> m_macros;
    COMPtr<ID3DXEffectPool>::pointer m_pool;
    zeb::String m_effectFileName;
    D3DXEFFECT_DESC m_desc;
    zeb::Array<Technique> m_techniques;
};
