#pragma once
#include <VexilDX9/BlinnPhongShading.h>
#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectValue.h>
#include <VexilDX9/Export.h>
#include <zeb/Resource.h>
#include <zeb/String.h>

#include <d3dx9.h>

class AdapterD3D9;

// The library's lighting effect, "lightingEffect.fxo" (opened relative to the working
// directory), on the device of a multi-head adapter: four blocks of bound effect parameters and
// the Blinn-Phong technique. The application sets values through each member's handle with
// setParameter; the effect's texture is its "textureMap" parameter, used when "hasTexture" is set.
//
// Every initialize() replaces the four blocks, deleting the old ones: references taken from the
// accessors before it dangle. The block accessors need a block: before a successful initialize()
// they throw zeb::AssertionFailure. A missing parameter name throws the EffectValue assertion out
// of initialize().
//
// Device reset: the effect lives in D3DX's managed state, so around IDirect3DDevice9::Reset call
// effect().effect()->OnLostDevice() before and OnResetDevice() after; the blocks, their handles
// and the technique stay valid. After a new device (not a reset) call initialize() again.
class VEXILDX9_API LightingEffect {
public:
    struct VEXILDX9_API GeneralParameter {
        explicit GeneralParameter(const BorrowedEffect& effect);
        bool isInitialized() const;

        EffectValue<float> ambientCoeff;
        EffectValue<D3DXVECTOR4> ambientColor;
        EffectValue<D3DXMATRIX> matWorld;
        EffectValue<D3DXMATRIX> matViewProjection;
        EffectValue<D3DXMATRIX> matWorldInverseTranspose;
        EffectValue<D3DXMATRIX> matViewInv;
        EffectValue<float> diffuseCoeff;
        EffectValue<D3DXVECTOR4> diffuseColor;
        EffectValue<float> specularCoeff;
        EffectValue<float> specularPower;
        EffectValue<D3DXVECTOR4> specularColor;
        EffectValue<float> selfShadowPower;
        EffectValue<bool> hasTexture;
        EffectValue<float> squareDistanceFactor;
    };
    struct VEXILDX9_API DirectionalLightParameter {
        explicit DirectionalLightParameter(const BorrowedEffect& effect);
        bool isInitialized() const;

        EffectValue<D3DXVECTOR4> lightDirection;
        EffectValue<D3DXVECTOR4> lightColor;
    };
    // innerAngle and outerAngle are the cone's half-angles in radians; between them the light
    // fades smoothly.
    struct VEXILDX9_API SpotLightParameter {
        explicit SpotLightParameter(const BorrowedEffect& effect);
        bool isInitialized() const;

        EffectValue<D3DXVECTOR4> spotLightPosition;
        EffectValue<D3DXVECTOR4> spotLightDirection;
        EffectValue<D3DXVECTOR4> spotLightColor;
        EffectValue<float> innerAngle;
        EffectValue<float> outerAngle;
    };
    // Attenuated by 1 / (1 + squareDistanceFactor * distance^2).
    struct VEXILDX9_API PointLightParameter {
        explicit PointLightParameter(const BorrowedEffect& effect);
        bool isInitialized() const;

        EffectValue<D3DXVECTOR4> pointLightPosition;
        EffectValue<D3DXVECTOR4> pointLightColor;
    };

    LightingEffect();
    LightingEffect(const LightingEffect&) = delete;  // the shading object points at our effect
    LightingEffect& operator=(const LightingEffect&) = delete;

    // Loads the effect on the adapter's device and binds the blocks and the technique; true
    // when the technique was found and every block is bound.
    bool initialize(const AdapterD3D9& adapter);

    const Effect& effect() const { return m_effect; }
    const zeb::String& effectFileName() const { return m_effectFileName; }

    GeneralParameter& generalParameter() { return *m_generalParameter; }
    const GeneralParameter& generalParameter() const { return *m_generalParameter; }
    DirectionalLightParameter& directionalLightParameter() { return *m_directionalLightParameter; }
    const DirectionalLightParameter& directionalLightParameter() const { return *m_directionalLightParameter; }
    SpotLightParameter& spotLightParameter() { return *m_spotLightParameter; }
    const SpotLightParameter& spotLightParameter() const { return *m_spotLightParameter; }
    PointLightParameter& pointLightParameter() { return *m_pointLightParameter; }
    const PointLightParameter& pointLightParameter() const { return *m_pointLightParameter; }
    BlinnPhongShading& blinnPhongShading() { return m_blinnPhongShading; }
    const BlinnPhongShading& blinnPhongShading() const { return m_blinnPhongShading; }

private:
    template <class Block> using Holder = zeb::SharedResource<zeb::PointerStorage<Block, 0, 3>>;

    zeb::String m_effectFileName;
    Effect m_effect;
    BlinnPhongShading m_blinnPhongShading;
    Holder<GeneralParameter> m_generalParameter;
    Holder<DirectionalLightParameter> m_directionalLightParameter;
    Holder<SpotLightParameter> m_spotLightParameter;
    Holder<PointLightParameter> m_pointLightParameter;
};
