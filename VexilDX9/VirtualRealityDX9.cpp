#include <VexilDX9/LogD3D.h>
#include <VexilDX9/VirtualRealityDX9.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

#include <cfloat>
#include <cmath>

ZEB_FILE_LOGGER(sceneLogger, "VexilDX9")

namespace {

const char kSource[] = "VexilDX9/VirtualRealityDX9";
const char kCameraFrame[] = "CameraDummy";
// Managed buffers first; a device that cannot hold them gets the scene in system memory.
const DWORD kMeshOptions[] = {D3DXMESH_MANAGED, D3DXMESH_SYSTEMMEM};
// Tracks play backwards: the scenes this library was made for were keyed that way.
const double kTrackSpeed = -1.0;

// The fixed camera of setupAnimation.
const D3DXVECTOR3 kCameraLookAt(0.0f, 0.0f, 0.0f);
const D3DXVECTOR3 kCameraPosition(28.08451f, 21.397806f, -30.78054f);
// Every scene light is this grey (64/255).
const D3DCOLORVALUE kLightColour = {0.2509804f, 0.2509804f, 0.2509804f, 1.0f};

struct LightPlacement {
    D3DLIGHTTYPE type;
    D3DVECTOR position;
    D3DVECTOR direction;
    float attenuation1;
    float theta;
    float phi;
};
const LightPlacement kLights[] = {
    {D3DLIGHT_SPOT, {-16.0f, 16.4f, -8.0f}, {16.0f, -16.4f, 8.0f}, 1.0f, 1.2566371f, 1.3194689f},
    {D3DLIGHT_POINT, {0.0f, 13.4f, 0.0f}, {0.0f, 0.0f, 0.0f}, 0.0f, 0.0f, 0.0f},
    {D3DLIGHT_SPOT, {11.0f, 15.4f, 16.3f}, {-11.0f, -15.4f, -16.3f}, 0.1f, 1.5707964f, 1.8849556f},
};

// A light of one colour for ambient, diffuse and specular, unlimited range, no fall-off beyond 1.
void createLight(const D3DCOLORVALUE& colour, D3DLIGHT9& light) {
    ZEB_TRACE(sceneLogger, "VirtualRealityDX9::createLight");
    light = D3DLIGHT9();
    light.Diffuse = light.Specular = light.Ambient = colour;
    light.Range = std::sqrt(FLT_MAX);
    light.Falloff = 1.0f;
    light.Attenuation0 = 1.0f;
}

// Every mesh container of the tree under root (root's siblings included).
unsigned int meshContainerCount(D3DXFRAME* root) {
    unsigned int count = 0;
    zeb::Array<D3DXFRAME*> pending;
    if (root) pending.append(root);
    while (!pending.empty()) {
        D3DXFRAME* frame = pending.last();
        pending.removeAt(pending.size() - 1);
        for (D3DXMESHCONTAINER* c = frame->pMeshContainer; c; c = c->pNextMeshContainer) ++count;
        if (frame->pFrameSibling) pending.append(frame->pFrameSibling);
        if (frame->pFrameFirstChild) pending.append(frame->pFrameFirstChild);
    }
    return count;
}

D3DLIGHT9 placedLight(const LightPlacement& placement) {
    D3DLIGHT9 light;
    createLight(kLightColour, light);
    light.Type = placement.type;
    light.Position = placement.position;
    light.Direction = placement.direction;
    light.Attenuation1 = placement.attenuation1;
    light.Theta = placement.theta;
    light.Phi = placement.phi;
    return light;
}

}  // namespace

const D3DMATERIAL9 VirtualRealityDX9::s_whiteMaterial = {
    {1.0f, 1.0f, 1.0f, 1.0f}, {1.0f, 1.0f, 1.0f, 1.0f}, {1.0f, 1.0f, 1.0f, 1.0f}, {0.0f, 0.0f, 0.0f, 1.0f}, 0.0f};

VirtualRealityDX9::VirtualRealityDX9() : m_frameRoot(nullptr), m_animationController(nullptr), m_device(nullptr) {}

VirtualRealityDX9::~VirtualRealityDX9() { cleanup(); }

bool VirtualRealityDX9::loadVirtualReality(const zeb::String& textureRootDirectory, const zeb::String& fileName,
                                           IDirect3DDevice9* device, const zeb::Array<zeb::String>& frameList) {
    return loadVirtualRealityImpl(textureRootDirectory, fileName, device, frameList);
}

bool VirtualRealityDX9::loadVirtualReality(const zeb::String& textureRootDirectory, const zeb::String& fileName,
                                           const COMPtr<IDirect3DDevice9>::pointer& device,
                                           const zeb::Array<zeb::String>& frameList) {
    return loadVirtualRealityImpl(textureRootDirectory, fileName, device.get(), frameList);
}

bool VirtualRealityDX9::loadVirtualRealityImpl(const zeb::String& textureRootDirectory, const zeb::String& fileName,
                                               IDirect3DDevice9* device, const zeb::Array<zeb::String>& frameList) {
    ZEB_TRACE(sceneLogger, "VirtualRealityDX9::loadVirtualRealityImpl");
    if (fileName.empty()) {
        ZEB_LOG(sceneLogger, 3, __LINE__, "Cannot load a file without a filename");
        return false;
    }
    if (!device) {
        ZEB_LOG(sceneLogger, 3, __LINE__, "NULL render device not allowed");
        return false;
    }
    // The arguments may be this scene's own remembered names (a reload): copy before cleaning up.
    const zeb::String root(textureRootDirectory), file(fileName);
    cleanup();
    m_loader.setTextureFileRootDirectory(root);
    m_loader.assignNamelessFrameToName("dummy_");
    const HRESULT hr = loadHierarchy(file, device);
    if (FAILED(hr)) {
        ZEB_LOG(sceneLogger, 4, __LINE__, "VirtualRealityDX9::loadVirtualReality failed to load " + file + " " + hr);
        VexilDX9::logD3DFunction(sceneLogger, "D3DXLoadMeshHierarchyFromX", hr, false);
        return false;
    }
    startTracks();
    m_meshManager.setDevice(device);
    try {
        m_meshManager.parseSkinnedFrameExternalFrame(frameList, meshContainerCount(m_frameRoot));
        m_meshManager.initialize(m_frameRoot);
    } catch (...) {
        cleanup();  // no half-built scene: the next render finds nothing to draw
        throw;
    }
    m_fileName = file;
    m_textureRootDirectory = root;
    m_device = device;
    return true;
}

HRESULT VirtualRealityDX9::loadHierarchy(const zeb::String& fileName, IDirect3DDevice9* device) {
    HRESULT hr = E_FAIL;
    for (DWORD options : kMeshOptions) {
        hr = D3DXLoadMeshHierarchyFromXW(fileName.getWideBuffer(), options, device, &m_loader, nullptr, &m_frameRoot,
                                         &m_animationController);
        if (hr == S_OK) break;
        if (hr == E_OUTOFMEMORY)
            ZEB_LOG(sceneLogger, 4, __LINE__, "D3DXLoadMeshHierarcyFromX runs out of memory");
        else if (hr == D3DERR_INVALIDCALL)
            ZEB_LOG(sceneLogger, 4, __LINE__, "D3DXLoadMeshHierarcyFromX returned D3DERR_INVALIDCALL");
        ZEB_LOG(sceneLogger, 3, __LINE__, "Switching to system memory");
    }
    return hr;
}

void VirtualRealityDX9::startTracks() {
    if (!m_animationController) return;  // a file without animation
    m_animationController->ResetTime();
    for (UINT track = 0; track < m_animationController->GetMaxNumTracks(); ++track) {
        m_animationController->SetTrackEnable(track, TRUE);
        m_animationController->SetTrackSpeed(track, kTrackSpeed);
    }
}

bool VirtualRealityDX9::animate(unsigned int time) {
    ZEB_TRACE(sceneLogger, "VirtualRealityDX9::animate");
    if (!m_animationController) {
        ZEB_LOG(sceneLogger, 4, __LINE__, "m_animationController is NULL");
        return false;
    }
    const bool advanced = advanceTime(static_cast<double>(time));
    updateTransformationAndCamera();
    return advanced;
}

bool VirtualRealityDX9::advanceTime(double step) {
    return m_animationController && SUCCEEDED(m_animationController->AdvanceTime(step, nullptr));
}

void VirtualRealityDX9::updateTransformationAndCamera() {
    m_meshManager.updateTransformation();
    placeCamera();
}

void VirtualRealityDX9::placeCamera() {
    const D3DXMATRIX& camera = m_meshManager.frameByName(kCameraFrame).m_combinedTransform;
    m_viewer.setTranslation(D3DXVECTOR3(camera._41, camera._42, camera._43));
    m_viewer.matrixLookAtLH();
    m_viewer.calculateViewInverse();
    m_viewer.matrixPerspectiveFovLH();
    m_viewer.calculateViewProjectionLH();
}

bool VirtualRealityDX9::renderRigid(IDirect3DDevice9* renderDevice, bool useTextures) {
    ZEB_TRACE(sceneLogger, "VirtualRealityDX9::renderRigid");
    ZEB_ASSERT(kSource, 359, renderDevice != NULL);
    ZEB_LOG(sceneLogger, 3, __LINE__, "Entering VirtualRealityDX9::renderRigid");
    const zeb::OrderedHashTable<zeb::String, TextureTuple>& groups = m_meshManager.textureTable();
    for (const TextureTuple& group : groups.values()) {
        renderDevice->SetTexture(0, nullptr);
        if (group.texture() && useTextures) renderDevice->SetTexture(0, group.texture());
        for (const FrameTuple& frame : group.frameTable().values()) {
            if (!frame.drawFrame()) continue;
            renderDevice->SetTransform(D3DTS_WORLD, &frame.transformMatrix());
            for (const MeshContainerTuple& container : frame.childMeshTable().values()) drawSubsets(renderDevice, container);
        }
    }
    return true;
}

// A container that lost its mesh, or a subset past its materials, is left out.
void VirtualRealityDX9::drawSubsets(IDirect3DDevice9* renderDevice, const MeshContainerTuple& container) {
    ID3DXMesh* mesh = container.mesh();
    const D3DXMESHCONTAINER* source = container.meshContainer();
    if (!mesh || !container.material()) return;
    for (unsigned int i = 0; i < container.numAttribute(); ++i) {
        const unsigned int id = container[static_cast<int>(i)];
        if (id >= source->NumMaterials) continue;
        renderDevice->SetMaterial(&container.material()[id].MatD3D);
        mesh->DrawSubset(id);
    }
}

bool VirtualRealityDX9::render(IDirect3DDevice9* renderDevice, bool useTextures) {
    ZEB_TRACE(sceneLogger, "VirtualRealityDX9::render");
    ZEB_ASSERT(kSource, 335, renderDevice != NULL);
    renderDevice->SetTransform(D3DTS_VIEW, &m_viewer.matrixLookAtLH());
    if (!renderRigid(renderDevice, useTextures)) {
        ZEB_LOG(sceneLogger, 4, 343, "Rigid body rendering fails");
        return false;
    }
    if (!m_meshManager.renderSkin(renderDevice, useTextures)) {
        ZEB_LOG(sceneLogger, 4, 350, "Skin rendering failed");
        return false;
    }
    return true;
}

bool VirtualRealityDX9::renderSkin(IDirect3DDevice9* renderDevice, bool useTextures) {
    ZEB_TRACE(sceneLogger, "VirtualRealityDX9::renderSkin");
    ZEB_ASSERT(kSource, __LINE__, renderDevice != NULL);
    return m_meshManager.renderSkin(renderDevice, useTextures);
}

bool VirtualRealityDX9::setupAnimation(IDirect3DDevice9* renderDevice) {
    ZEB_TRACE_AT(sceneLogger, "VirtualRealityDX9::setupAnimation", kSource, 410);
    ZEB_ASSERT(kSource, 411, renderDevice != NULL);
    m_viewer.setLookAt(kCameraLookAt);
    m_viewer.setTranslation(kCameraPosition);
    renderDevice->SetTransform(D3DTS_VIEW, &m_viewer.matrixLookAtLH());
    renderDevice->SetTransform(D3DTS_PROJECTION, &m_viewer.matrixPerspectiveFovLH());
    switchOffLights();
    renderDevice->AddRef();
    m_litDevice.reset(renderDevice);
    m_lights = zeb::Array<D3DLIGHT9>();
    for (DWORD index = 0; index < sizeof kLights / sizeof kLights[0]; ++index) {
        m_lights.append(placedLight(kLights[index]));
        const HRESULT set = renderDevice->SetLight(index, &m_lights[index]);
        // The point light is switched on only when the device took it.
        if (kLights[index].type != D3DLIGHT_POINT || SUCCEEDED(set)) renderDevice->LightEnable(index, TRUE);
    }
    return true;
}

bool VirtualRealityDX9::reallocateRenderResources(const COMPtr<IDirect3DDevice9>::pointer& renderDevice,
                                                  const zeb::Array<zeb::String>& frameList) {
    ZEB_TRACE_AT(sceneLogger, "VirtualRealityDX9::reallocateRenderResources", kSource, 544);
    ZEB_ASSERT(kSource, 546, renderDevice.get() != NULL);
    if (!loadVirtualReality(m_textureRootDirectory, m_fileName, renderDevice, frameList)) {
        ZEB_LOG(sceneLogger, 4, __LINE__, "Failed to reload virtual reality");
        return false;
    }
    return true;
}

// A light left on through IDirect3DDevice9::Reset keeps one of the device's few active-light
// slots for good under Wine (the light itself is gone), so after a few resets no light can be
// switched on and the scene draws black: the lights go off with the scene.
void VirtualRealityDX9::switchOffLights() {
    if (!m_litDevice) return;
    for (DWORD index = 0; index < m_lights.size(); ++index) m_litDevice->LightEnable(index, FALSE);
    m_litDevice.reset();
}

void VirtualRealityDX9::cleanup() {
    ZEB_TRACE(sceneLogger, "VirtualRealityDX9::cleanup");
    switchOffLights();
    // The indexes point into the frame tree: they go before it, so nothing refers to freed frames.
    m_meshManager.cleanup();
    if (m_frameRoot) D3DXFrameDestroy(m_frameRoot, &m_loader);
    m_frameRoot = nullptr;
    // Every load names its nameless frames from dummy_0 again.
    SceneLoaderX::m_namelessFrameCount = 0;
    if (m_animationController) m_animationController->Release();
    m_animationController = nullptr;
}
