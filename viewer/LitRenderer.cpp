#include "LitRenderer.h"

#include "FrameRenderer.h"

#include <VexilDX9/Adapter.h>

#include <algorithm>

namespace vexilview {

namespace {

const unsigned kShadowMapSize = 1024;
const float kShadowBias = 0.004f;
const D3DXVECTOR4 kKeyLightColour(0.85f, 0.85f, 0.82f, 1.0f);
const D3DXVECTOR4 kLightOff(0, 0, 0, 1);

// The effects open their files relative to the working directory; they lie beside the program.
class BesideProgram {
public:
    BesideProgram() {
        GetCurrentDirectoryW(MAX_PATH, m_saved);
        SetCurrentDirectoryW(programDirectory().c_str());
    }
    ~BesideProgram() { SetCurrentDirectoryW(m_saved); }

private:
    wchar_t m_saved[MAX_PATH] = {};
};

// The effects' material terms from an X file material: its diffuse colour lit by the key light
// over an ambient share, and its highlight only where the file gives it a power.
struct SurfaceTerms {
    float ambientCoeff = 0.45f, diffuseCoeff = 0.8f, specularCoeff, specularPower, selfShadowPower = 4.0f;
    D3DXVECTOR4 diffuse, specular;

    explicit SurfaceTerms(const D3DMATERIAL9& m)
        : specularCoeff(m.Power > 0.0f ? 0.5f : 0.0f), specularPower(std::max(m.Power, 1.0f)),
          diffuse(m.Diffuse.r, m.Diffuse.g, m.Diffuse.b, 1.0f), specular(m.Specular.r, m.Specular.g, m.Specular.b, 1.0f) {}
};

D3DXMATRIX inverseTranspose(const D3DXMATRIX& world) {
    D3DXMATRIX inverse;
    if (!D3DXMatrixInverse(&inverse, nullptr, &world)) return *D3DXMatrixIdentity(&inverse);
    return *D3DXMatrixTranspose(&inverse, &inverse);
}

D3DXVECTOR4 direction4(const D3DXVECTOR3& v) { return D3DXVECTOR4(v.x, v.y, v.z, 0.0f); }

}  // namespace

bool LitRenderer::loadLighting(const AdapterD3D9& adapter, std::string& problem) {
    auto lighting = std::make_unique<LightingEffect>();
    BesideProgram beside;
    if (!lighting->initialize(adapter) || !getParameterHandle(lighting->effect(), "textureMap", m_lightingTexture)) {
        problem = "the lighting effect lightingEffect.fxo beside vexil-view did not load";
        return false;
    }
    m_lighting = std::move(lighting);
    return true;
}

bool LitRenderer::loadShadows(const COMPtr<IDirect3DDevice9>::pointer& device, std::string& problem) {
    auto shadows = std::make_unique<ShadowMap>();
    BesideProgram beside;
    if (!shadows->initialize(device) || !shadows->allocateShadowMapResources(device, kShadowMapSize)) {
        problem = "the shadow effect shadowMap.fxo beside vexil-view did not load, or the device has no map for it";
        return false;
    }
    m_shadows = std::move(shadows);
    return true;
}

template <class Draw> bool LitRenderer::forEachRigidSubset(bool textures, const Draw& draw) const {
    bool drawn = true;
    for (const TextureTuple& group : m_scene.meshManager().textureTable().values())
        for (const FrameTuple& frame : group.frameTable().values()) {
            if (!frame.drawFrame()) continue;
            for (const MeshContainerTuple& container : frame.childMeshTable().values())
                for (unsigned int i = 0; i < container.numAttribute(); ++i) {
                    const unsigned int id = container[static_cast<int>(i)];
                    drawn &= draw(Subset{frame.transformMatrix(), container.material()[id].MatD3D,
                                         textures ? group.texture() : nullptr, container.mesh(), id});
                }
        }
    const FrameNodeIndexer& frames = m_scene.meshManager().frameIndex();
    for (const BareMesh& bare : m_scene.bareMeshes())
        for (DWORD id : bare.subsets)
            drawn &= draw(Subset{frames[static_cast<int>(bare.frame)].m_combinedTransform, kNeutralMaterial, nullptr, bare.mesh, id});
    return drawn;
}

bool LitRenderer::drawLit(IDirect3DDevice9*, bool textures) {
    const LightingEffect::GeneralParameter& general = m_lighting->generalParameter();
    PerspectiveViewer& viewer = m_scene.perspectiveViewer();
    general.matViewProjection.set(viewer.viewProjection());
    general.matViewInv.set(viewer.viewInverse());
    general.squareDistanceFactor.set(0.0f);
    m_lighting->directionalLightParameter().lightDirection.set(direction4(kKeyLightDirection));
    m_lighting->directionalLightParameter().lightColor.set(kKeyLightColour);
    m_lighting->spotLightParameter().spotLightColor.set(kLightOff);
    m_lighting->pointLightParameter().pointLightColor.set(kLightOff);
    BlinnPhongShading& shading = m_lighting->blinnPhongShading();
    return forEachRigidSubset(textures, [&](const Subset& s) {
        const SurfaceTerms terms(s.material);
        general.matWorld.set(s.world);
        general.matWorldInverseTranspose.set(inverseTranspose(s.world));
        general.ambientCoeff.set(terms.ambientCoeff), general.ambientColor.set(terms.diffuse);
        general.diffuseCoeff.set(terms.diffuseCoeff), general.diffuseColor.set(terms.diffuse);
        general.specularCoeff.set(terms.specularCoeff), general.specularPower.set(terms.specularPower);
        general.specularColor.set(terms.specular), general.selfShadowPower.set(terms.selfShadowPower);
        IDirect3DBaseTexture9* texture = s.texture;
        general.hasTexture.set(texture != nullptr);
        if (texture) setParameter(m_lighting->effect(), m_lightingTexture, texture);
        return shading.render(s.mesh, s.id);
    });
}

void LitRenderer::setTransformation(const GeneralTransformation& block, const D3DXMATRIX& world) const {
    block.m_matWorld.set(world);
    block.m_matWorldInverseTranspose.set(inverseTranspose(world));
}

// An orthographic lamp along the key light that takes in the scene's bounding sphere.
void LitRenderer::setLampMatrices() {
    const float radius = m_scene.radius();
    D3DXVECTOR3 direction;
    D3DXVec3Normalize(&direction, &kKeyLightDirection);
    const D3DXVECTOR3 at = m_scene.centre(), eye = at - direction * (2.0f * radius), up(0, 1, 0);
    D3DXMATRIX view, projection;
    D3DXMatrixLookAtLH(&view, &eye, &at, &up);
    D3DXMatrixOrthoLH(&projection, 2.0f * radius, 2.0f * radius, radius * 0.5f, radius * 3.5f);
    const ShadowMapSingleLamp& lamp = m_shadows->shadowMapResource();
    lamp.lampView.set(view), lamp.lampProjection.set(projection), lamp.zBias.set(kShadowBias);
    lamp.zNear.set(radius * 0.5f), lamp.zFar.set(radius * 3.5f);
    m_shadows->light().m_lightDirection.set(direction);
}

bool LitRenderer::drawShadowed(IDirect3DDevice9* device, bool textures) {
    setLampMatrices();
    const GeneralTransformation& transformation = m_shadows->transformation();
    PerspectiveViewer& viewer = m_scene.perspectiveViewer();
    transformation.m_matViewProjection.set(viewer.viewProjection());
    transformation.m_matViewInverse.set(viewer.viewInverse());

    COMPtr<IDirect3DSurface9>::pointer target, depth;
    device->GetRenderTarget(0, target.receive());
    device->GetDepthStencilSurface(depth.receive());
    device->SetRenderTarget(0, m_shadows->shadowDepthMapSurface().get());
    device->SetDepthStencilSurface(m_shadows->zStencil().get());
    device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFFFFFFFF, 1.0f, 0);
    const Technique& depthPass = m_shadows->effect().technique(0);
    const bool cast = forEachRigidSubset(false, [&](const Subset& s) {
        setTransformation(transformation, s.world);
        return depthPass.render(s.mesh, s.id);
    });
    device->SetRenderTarget(0, target.get());
    device->SetDepthStencilSurface(depth.get());

    const GeneralMaterial& material = m_shadows->material();
    const GeneralTexture& texture = m_shadows->texture();
    const Technique& receiver = m_shadows->effect().technique(1);
    return forEachRigidSubset(textures, [&](const Subset& s) {
        const SurfaceTerms terms(s.material);
        setTransformation(transformation, s.world);
        material.m_ambientCoeff.set(terms.ambientCoeff), material.m_ambientColor.set(terms.diffuse);
        material.m_diffuseCoeff.set(terms.diffuseCoeff), material.m_diffuseColor.set(terms.diffuse);
        material.m_specularCoeff.set(terms.specularCoeff), material.m_specularPower.set(terms.specularPower);
        material.m_specularColor.set(terms.specular), material.m_selfShadowPower.set(terms.selfShadowPower);
        IDirect3DBaseTexture9* map = s.texture;
        texture.m_hasTextureMap.set(map != nullptr);
        if (map) texture.m_textureMap.set(map);
        return receiver.render(s.mesh, s.id);
    }) && cast;
}

void LitRenderer::releaseDeviceResources() {
    if (m_lighting) m_lighting->effect().effect()->OnLostDevice();
    if (!m_shadows) return;
    m_shadows->effect().effect()->OnLostDevice();
    m_shadows->releaseShadowMapResources();
}

bool LitRenderer::restoreDeviceResources(const COMPtr<IDirect3DDevice9>::pointer& device) {
    if (m_lighting) m_lighting->effect().effect()->OnResetDevice();
    if (!m_shadows) return true;
    m_shadows->effect().effect()->OnResetDevice();
    return m_shadows->allocateShadowMapResources(device, m_shadows->shadowMapDimension());
}

}  // namespace vexilview
