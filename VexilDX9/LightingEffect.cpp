#include <VexilDX9/Adapter.h>
#include <VexilDX9/LightingEffect.h>
#include <zeb/Logger.h>

namespace {
ZEB_FILE_LOGGER(lightingLogger, "VexilDX9")
const char kSource[] = "VexilDX9/LightingEffect";
}  // namespace

LightingEffect::GeneralParameter::GeneralParameter(const BorrowedEffect& effect)
    : ambientCoeff(effect, "ambientCoeff"),
      ambientColor(effect, "ambientColor"),
      matWorld(effect, "matWorld"),
      matViewProjection(effect, "matViewProjection"),
      matWorldInverseTranspose(effect, "matWorldInverseTranspose"),
      matViewInv(effect, "matViewInv"),
      diffuseCoeff(effect, "diffuseCoeff"),
      diffuseColor(effect, "diffuseColor"),
      specularCoeff(effect, "specularCoeff"),
      specularPower(effect, "specularPower"),
      specularColor(effect, "specularColor"),
      selfShadowPower(effect, "selfShadowPower"),
      hasTexture(effect, "hasTexture"),
      squareDistanceFactor(effect, "squareDistanceFactor") {}

bool LightingEffect::GeneralParameter::isInitialized() const {
    const char* const handles[] = {ambientCoeff.m_handle,      ambientColor.m_handle,      matWorld.m_handle,
                                   matViewProjection.m_handle, matWorldInverseTranspose.m_handle,
                                   matViewInv.m_handle,        diffuseCoeff.m_handle,      diffuseColor.m_handle,
                                   specularCoeff.m_handle,     specularPower.m_handle,     specularColor.m_handle,
                                   selfShadowPower.m_handle,   hasTexture.m_handle,        squareDistanceFactor.m_handle};
    for (const char* handle : handles)
        if (!handle) return false;
    return true;
}

LightingEffect::DirectionalLightParameter::DirectionalLightParameter(const BorrowedEffect& effect)
    : lightDirection(effect, "lightDirection"), lightColor(effect, "lightColor") {}

bool LightingEffect::DirectionalLightParameter::isInitialized() const {
    return lightDirection.m_handle && lightColor.m_handle;
}

LightingEffect::SpotLightParameter::SpotLightParameter(const BorrowedEffect& effect)
    : spotLightPosition(effect, "spotLightPosition"),
      spotLightDirection(effect, "spotLightDirection"),
      spotLightColor(effect, "spotLightColor"),
      innerAngle(effect, "innerAngle"),
      outerAngle(effect, "outerAngle") {}

bool LightingEffect::SpotLightParameter::isInitialized() const {
    return spotLightPosition.m_handle && spotLightDirection.m_handle && spotLightColor.m_handle &&
           innerAngle.m_handle && outerAngle.m_handle;
}

LightingEffect::PointLightParameter::PointLightParameter(const BorrowedEffect& effect)
    : pointLightPosition(effect, "pointLightPosition"), pointLightColor(effect, "pointLightColor") {}

bool LightingEffect::PointLightParameter::isInitialized() const {
    return pointLightPosition.m_handle && pointLightColor.m_handle;
}

LightingEffect::LightingEffect() : m_effectFileName("lightingEffect.fxo") {}

bool LightingEffect::initialize(const AdapterD3D9& adapter) {
    ZEB_TRACE_AT(lightingLogger, "LightingEffect::initialize", kSource, 70);
    if (!m_effect.load(m_effectFileName, adapter.device())) {
        ZEB_LOG(lightingLogger, 3, 75, "Failed to load effect file " + m_effectFileName);
        return false;
    }
    BorrowedEffect effect(&m_effect);
    m_generalParameter.reset(new GeneralParameter(effect));
    m_directionalLightParameter.reset(new DirectionalLightParameter(effect));
    m_spotLightParameter.reset(new SpotLightParameter(effect));
    m_pointLightParameter.reset(new PointLightParameter(effect));
    bool techniqueFound = m_blinnPhongShading.initialize(m_effect);
    return techniqueFound && m_generalParameter->isInitialized() && m_directionalLightParameter->isInitialized() &&
           m_spotLightParameter->isInitialized() && m_pointLightParameter->isInitialized();
}
