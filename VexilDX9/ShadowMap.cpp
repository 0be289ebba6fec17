#include <VexilDX9/LogD3D.h>
#include <VexilDX9/ShadowMap.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

namespace {
ZEB_FILE_LOGGER(shadowLogger, "VexilDX9")
const char kSource[] = "VexilDX9/ShadowMap";
const char kEffectFile[] = "shadowMap.fxo";

// Reports a refused creation: the call's result, then the request at trace level.
bool creationFailed(const char* function, HRESULT hr, unsigned tag, const char* usage, unsigned dimension,
                    const char* formatName, D3DFORMAT format) {
    VexilDX9::logD3DFunction(shadowLogger, function, hr, false);
    ZEB_LOG(shadowLogger, 1, tag, usage + " m_shadowMapDimension " + dimension + formatName + static_cast<unsigned>(format));
    return false;
}
}  // namespace

ShadowMapSingleLamp::ShadowMapSingleLamp(const BorrowedEffect& effect)
    : mapDimension(effect, "mapDimension"),
      lampView(effect, "lampView"),
      lampProjection(effect, "lampProjection"),
      colorBuffer(effect, "colorBuffer"),
      zBias(effect, "zBias"),
      zNear(effect, "zNear"),
      zFar(effect, "zFar") {}

bool ShadowMapSingleLamp::isInitialized() const {
    return mapDimension.m_handle && lampView.m_handle && lampProjection.m_handle && colorBuffer.m_handle &&
           zBias.m_handle && zNear.m_handle && zFar.m_handle;
}

// The dimension starts at 0 rather than undefined, so that copies of an unallocated map are defined.
ShadowMap::ShadowMap() : m_shadowDepthMapFormat(D3DFMT_R32F), m_zStencilFormat(D3DFMT_D24S8), m_shadowMapDimension(0) {}

ShadowMap::ShadowMap(const COMPtr<IDirect3DDevice9>::pointer& device) : ShadowMap() {
    ZEB_ASSERT(kSource, 166, initialize(device));
}

ShadowMap::ShadowMap(const ShadowMap& other) : ShadowMap() { *this = other; }

ShadowMap& ShadowMap::operator=(const ShadowMap& other) {
    if (this == &other) return *this;
    m_effect = other.m_effect;
    m_shadowDepthMap = other.m_shadowDepthMap;
    m_shadowDepthMapSurface = other.m_shadowDepthMapSurface;
    m_shadowDepthMapFormat = other.m_shadowDepthMapFormat;
    m_zStencil = other.m_zStencil;
    m_zStencilFormat = other.m_zStencilFormat;
    m_shadowMapDimension = other.m_shadowMapDimension;
    if (other.m_light) {
        bindBlocks();  // ours, bound to our own effect: the other's would dangle when it goes
    } else {
        m_light.reset(), m_material.reset(), m_texture.reset(), m_shadowMapResource.reset(), m_transformation.reset();
    }
    return *this;
}

bool ShadowMap::initialize(const COMPtr<IDirect3DDevice9>::pointer& device) {
    ZEB_TRACE_AT(shadowLogger, "bool ShadowMap::initialize(const COMPtr<IDirect3DDevice9>::pointer& device)", kSource,
                 100);
    if (!m_effect.load(kEffectFile, device)) {
        ZEB_LOG(shadowLogger, 3, 104, "Unable to load " + kEffectFile);
        return false;
    }
    bindBlocks();
    return areHandlesInitialized();
}

void ShadowMap::bindBlocks() {
    BorrowedEffect effect(&m_effect);
    m_light.reset(new DirectionalLight(effect));
    m_material.reset(new GeneralMaterial(effect));
    m_texture.reset(new GeneralTexture(effect));
    m_shadowMapResource.reset(new ShadowMapSingleLamp(effect));
    m_transformation.reset(new GeneralTransformation(effect));
}

bool ShadowMap::areHandlesInitialized() const {
    return m_transformation && m_material && m_texture && m_shadowMapResource && m_light &&
           m_transformation->isInitialized() && m_material->isInitialized() && m_texture->isInitialized() &&
           m_shadowMapResource->isInitialized() && m_light->isInitialized();
}

bool ShadowMap::isInitialized() const { return areHandlesInitialized() && m_shadowDepthMap && m_zStencil; }

bool ShadowMap::allocateShadowMapResources(const COMPtr<IDirect3DDevice9>::pointer& device, unsigned int dimension) {
    ZEB_TRACE_AT(shadowLogger,
                 "bool ShadowMap::allocateShadowMapResources(const COMPtr<IDirect3DDevice9>::pointer& device, "
                 "zeb::Uint32 dimension)",
                 kSource, 27);
    m_shadowMapDimension = dimension;
    releaseShadowMapResources();  // nothing of the old size may outlive a failure below
    if (!device) {
        ZEB_LOG(shadowLogger, 3, __LINE__, "NULL render device not allowed");
        return false;
    }
    if (!createDepthStencil(device.get())) return false;
    checkMapFormat(device.get());
    if (!createMap(device.get()) || !m_shadowMapResource) return false;  // no effect to hand the map to
    const ShadowMapSingleLamp& lamp = *m_shadowMapResource;
    setParameter(m_effect, lamp.mapDimension.m_handle, static_cast<float>(dimension));
    IDirect3DBaseTexture9* map = m_shadowDepthMap.get();
    return setParameter(m_effect, lamp.colorBuffer.m_handle, map);
}

void ShadowMap::releaseShadowMapResources() {
    if (m_shadowMapResource && m_effect.effect()) {
        IDirect3DBaseTexture9* none = nullptr;
        setParameter(m_effect, m_shadowMapResource->colorBuffer.m_handle, none);
    }
    m_shadowDepthMapSurface.reset();
    m_shadowDepthMap.reset();
    m_zStencil.reset();
}

bool ShadowMap::createDepthStencil(IDirect3DDevice9* device) {
    IDirect3DSurface9* surface = nullptr;
    HRESULT hr = device->CreateDepthStencilSurface(m_shadowMapDimension, m_shadowMapDimension, m_zStencilFormat,
                                                   D3DMULTISAMPLE_NONE, 0, TRUE, &surface, nullptr);
    if (FAILED(hr))
        return creationFailed("IDirect3DDevice9::CreateDepthStencilSurface", hr, 43, "D3DUSAGE_DEPTHSTENCIL",
                              m_shadowMapDimension, " m_zStencilFormat ", m_zStencilFormat);
    m_zStencil.reset(surface);
    return true;
}

// Reported only: drivers that deny the format sometimes make the texture all the same.
void ShadowMap::checkMapFormat(IDirect3DDevice9* device) const {
    COMPtr<IDirect3D9>::pointer direct3D;
    if (FAILED(device->GetDirect3D(direct3D.receive())) || !direct3D) return;
    D3DDEVICE_CREATION_PARAMETERS creation = {};
    D3DDISPLAYMODE mode = {};
    device->GetCreationParameters(&creation);
    device->GetDisplayMode(0, &mode);
    HRESULT hr = direct3D->CheckDeviceFormat(creation.AdapterOrdinal, creation.DeviceType, mode.Format,
                                             D3DUSAGE_RENDERTARGET, D3DRTYPE_TEXTURE, m_shadowDepthMapFormat);
    VexilDX9::logD3DFunction(shadowLogger, "IDirect3D9::CheckDeviceFormat", hr, false);
}

bool ShadowMap::createMap(IDirect3DDevice9* device) {
    IDirect3DTexture9* texture = nullptr;
    HRESULT hr = device->CreateTexture(m_shadowMapDimension, m_shadowMapDimension, 1, D3DUSAGE_RENDERTARGET,
                                       m_shadowDepthMapFormat, D3DPOOL_DEFAULT, &texture, nullptr);
    if (FAILED(hr))
        return creationFailed("IDirect3DDevice9::CreateTexture", hr, 80, "D3DUSAGE_RENDERTARGET", m_shadowMapDimension,
                              " m_shadowDepthMapFormat ", m_shadowDepthMapFormat);
    m_shadowDepthMap.reset(texture);
    texture->GetSurfaceLevel(0, m_shadowDepthMapSurface.receive());
    return true;
}

bool ShadowMap::activate() const { return m_effect.technique(0).activate(); }

bool ShadowMap::begin() const { return m_effect.technique(0).begin(); }

void ShadowMap::end() const { m_effect.technique(0).end(); }

bool ShadowMap::render(ID3DXMesh* mesh, unsigned int subset) { return m_effect.technique(0).render(mesh, subset); }

bool ShadowMap::renderPass(ID3DXMesh* mesh, unsigned int subset, const zeb::String& passName) {
    return m_effect.technique(0).renderPass(mesh, subset, passName);
}

bool ShadowMap::renderPass(ID3DXMesh* mesh, unsigned int subset, unsigned int passIndex) {
    return m_effect.technique(0).renderPass(mesh, subset, passIndex);
}
