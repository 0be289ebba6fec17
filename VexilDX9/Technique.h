#pragma once
#include <VexilDX9/Export.h>
#include <zeb/Array.h>
#include <zeb/String.h>

#include <d3dx9.h>

// One technique of an effect: its handle, description and passes, and the rendering of a mesh
// subset through all passes or through one. A technique that a failed load left unread has no
// effect: its operations fail (logging "Effect is invalid.") instead of touching one.
class VEXILDX9_API Technique {
public:
    struct Pass {
        D3DXHANDLE handle = nullptr;
        D3DXPASS_DESC desc = {};
        // Compares handles, not names.
        bool operator==(const char* const& other) const { return handle == other; }
    };

    // Throws zeb::AssertionFailure when the technique cannot be read from the effect.
    Technique(ID3DXEffect* effect, unsigned int index);
    Technique(const Technique& other) = default;
    Technique& operator=(const Technique& other) = default;

    bool initialize(ID3DXEffect* effect, unsigned int index);

    const char* handle() const { return m_handle; }
    const zeb::String& name() const { return m_name; }
    unsigned int numPasses() const { return m_desc.Passes; }
    const zeb::Array<Pass>& passes() const { return m_passes; }

    bool activate() const;
    // Begin/end of a pass-by-pass rendering bracket; the effect saves and restores device state.
    bool begin() const;
    void end() const;
    // Sets this technique and draws the subset through every pass.
    bool render(ID3DXMesh* mesh, unsigned int subset) const;
    // One pass, inside a begin()/end() bracket that the caller opens and closes.
    bool renderPass(ID3DXMesh* mesh, unsigned int subset, unsigned int passIndex) const;
    bool renderPass(ID3DXMesh* mesh, unsigned int subset, const zeb::String& passName) const;
    // Index of the named pass; 0 when the effect knows no such pass (a misspelt name renders the
    // first pass), 0xFFFFFFFF when the pass belongs to another effect's technique.
    unsigned int passIndexByName(const zeb::String& name) const;

private:
    friend class zeb::Array<Technique>;  // fills the technique table before initialisation
    Technique();
    bool hasEffect() const;

    D3DXHANDLE m_handle;
    D3DXTECHNIQUE_DESC m_desc;
    zeb::Array<Pass> m_passes;
    zeb::String m_name;
    ID3DXEffect* m_effect;
};
