#pragma once
#include <VexilDX9/Effect.h>
#include <VexilDX9/Export.h>
#include <zeb/String.h>

#include <d3dx9.h>

class LightingEffect;

// The "BlinnPhongShading" technique of the lighting effect. Only LightingEffect makes, copies and
// destroys one: it points at that LightingEffect's effect, so it is reached by reference through
// LightingEffect::blinnPhongShading() and lives exactly as long as its LightingEffect.
//
// Every operation fetches the technique from the effect, so before a successful initialisation
// they throw zeb::IndexOutOfBounds.
class VEXILDX9_API BlinnPhongShading {
public:
    bool isInitialized() const;
    const zeb::String& techniqueName() const { return m_techniqueName; }
    unsigned int techniqueIndex() const { return m_techniqueIndex; }

    bool activate() const;
    bool begin() const;
    // Begins the technique again rather than ending it (so after begin() it fails and logs
    // "Cannot begin technique "). Close a pass-by-pass bracket through the technique's own
    // end(), or draw with render(), which brackets its passes itself.
    void end() const;
    bool render(ID3DXMesh* mesh, unsigned int subset);
    bool renderPass(ID3DXMesh* mesh, unsigned int subset, const zeb::String& passName);
    bool renderPass(ID3DXMesh* mesh, unsigned int subset, unsigned int passIndex);

private:
    friend class LightingEffect;
    BlinnPhongShading();
    BlinnPhongShading(const BlinnPhongShading& other) = default;
    BlinnPhongShading& operator=(const BlinnPhongShading& other) = default;
    ~BlinnPhongShading() = default;
    // Throws zeb::AssertionFailure when the effect has no such technique.
    explicit BlinnPhongShading(const Effect& lightEffect);
    bool initialize(const Effect& lightEffect);
    const Technique& technique() const;

    zeb::String m_techniqueName;
    const Effect* m_effect;
    unsigned int m_techniqueIndex;
};
