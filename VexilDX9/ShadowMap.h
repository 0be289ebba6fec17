#pragma once
#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>
#include <VexilDX9/Export.h>
#include <VexilDX9/SkinnedMesh.h>
#include <zeb/ComPtr.h>
#include <zeb/Resource.h>
#include <zeb/String.h>

#include <d3dx9.h>

// The shadow-map parameters of "shadowMap.fxo"; each member binds the parameter of its name.
struct VEXILDX9_API ShadowMapSingleLamp {
    explicit ShadowMapSingleLamp(const BorrowedEffect& effect);
    bool isInitialized() const;

    EffectValue<float> mapDimension;                   // edge length of the map in texels
    EffectValue<D3DXMATRIX> lampView;
    EffectValue<D3DXMATRIX> lampProjection;
    EffectValue<IDirect3DBaseTexture9*> colorBuffer;  // the depth map
    EffectValue<float> zBias;
    EffectValue<float> zNear;
    EffectValue<float> zFar;
};

// Shadow mapping for one lamp through the library's "shadowMap.fxo" (opened relative to the
// working directory): the effect with its five parameter blocks, and the square R32F render
// target that holds the lamp's depth with a matching D24S8 depth-stencil surface.
//
// Use: initialize(device), allocateShadowMapResources(device, dimension); each frame set the
// lamp's matrices and the other blocks, make shadowDepthMapSurface() the render target with
// zStencil() as depth buffer, clear it to white, and draw the casters with technique 0 (render,
// or begin / renderPass / end). The effect's second technique, "ShadowReceiver", draws the scene
// darkened where the map says the lamp is hidden.
//
// A copy shares the effect, the map and the surfaces, and binds parameter blocks of its own to
// its own effect, so it stays usable when the original goes. The block accessors need the blocks
// of a successful initialize(); before it they throw zeb::AssertionFailure.
//
// Device reset: the map and the depth-stencil surface live in the default pool. Before
// IDirect3DDevice9::Reset call effect().effect()->OnLostDevice() and
// releaseShadowMapResources() (and drop any reference of your own to the map and surfaces);
// after it call OnResetDevice() and allocateShadowMapResources(device, shadowMapDimension()),
// which makes new ones and hands the new map to the effect.
class VEXILDX9_API ShadowMap {
public:
    ShadowMap();
    // Loads the effect; throws zeb::AssertionFailure when that fails. Allocates no map.
    explicit ShadowMap(const COMPtr<IDirect3DDevice9>::pointer& device);
    ShadowMap(const ShadowMap& other);
    ShadowMap& operator=(const ShadowMap& other);

    // Loads "shadowMap.fxo" and binds the blocks; a parameter missing from it throws the
    // EffectValue assertion.
    bool initialize(const COMPtr<IDirect3DDevice9>::pointer& device);
    // Drops the earlier map and surfaces, makes the depth-stencil surface, then the map, and hands
    // the map and its dimension to the effect. The dimension is stored even when creation fails;
    // what a failure leaves (at most the new depth-stencil surface) is of that dimension.
    bool allocateShadowMapResources(const COMPtr<IDirect3DDevice9>::pointer& device, unsigned int dimension);
    // Drops the map, its surface and the depth-stencil surface, and takes the map from the
    // effect, so that the device can be reset.
    void releaseShadowMapResources();
    // Every block bound, map and depth-stencil surface made.
    bool isInitialized() const;

    const zeb::String& fileName() const { return m_effect.effectFileName(); }
    const Effect& effect() const { return m_effect; }
    unsigned int shadowMapDimension() const { return m_shadowMapDimension; }
    const COMPtr<IDirect3DTexture9>::pointer& shadowDepthMap() const { return m_shadowDepthMap; }
    const COMPtr<IDirect3DSurface9>::pointer& shadowDepthMapSurface() const { return m_shadowDepthMapSurface; }
    const COMPtr<IDirect3DSurface9>::pointer& zStencil() const { return m_zStencil; }

    GeneralTransformation& transformation() { return *m_transformation; }
    const GeneralTransformation& transformation() const { return *m_transformation; }
    GeneralMaterial& material() { return *m_material; }
    const GeneralMaterial& material() const { return *m_material; }
    GeneralTexture& texture() { return *m_texture; }
    const GeneralTexture& texture() const { return *m_texture; }
    DirectionalLight& light() { return *m_light; }
    const DirectionalLight& light() const { return *m_light; }
    ShadowMapSingleLamp& shadowMapResource() { return *m_shadowMapResource; }
    const ShadowMapSingleLamp& shadowMapResource() const { return *m_shadowMapResource; }

    // Technique 0 of the effect; before a successful load these throw zeb::IndexOutOfBounds.
    bool activate() const;
    bool begin() const;
    void end() const;
    bool render(ID3DXMesh* mesh, unsigned int subset);
    bool renderPass(ID3DXMesh* mesh, unsigned int subset, const zeb::String& passName);
    bool renderPass(ID3DXMesh* mesh, unsigned int subset, unsigned int passIndex);

private:
    template <class Block> using Holder = zeb::SharedResource<zeb::PointerStorage<Block, 0, 3>>;

    void bindBlocks();
    bool areHandlesInitialized() const;
    bool createDepthStencil(IDirect3DDevice9* device);
    void checkMapFormat(IDirect3DDevice9* device) const;
    bool createMap(IDirect3DDevice9* device);

    Effect m_effect;
    Holder<GeneralTransformation> m_transformation;
    Holder<GeneralMaterial> m_material;
    Holder<GeneralTexture> m_texture;
    Holder<ShadowMapSingleLamp> m_shadowMapResource;
    Holder<DirectionalLight> m_light;
    COMPtr<IDirect3DTexture9>::pointer m_shadowDepthMap;
    COMPtr<IDirect3DSurface9>::pointer m_shadowDepthMapSurface;
    D3DFORMAT m_shadowDepthMapFormat;
    COMPtr<IDirect3DSurface9>::pointer m_zStencil;
    D3DFORMAT m_zStencilFormat;
    unsigned int m_shadowMapDimension;
};
