// vexil-fuzz-runner: loads each file of a list through one target and says how each went, so
// that the campaign (vexil-fuzz) can tell which input a crash or a hang belongs to.
//   vexil-fuzz-runner x|scene|effect|fxc list.txt
// For every line of the list: "start N", then "done N loaded", "done N refused" or "done N leaked"
// (a device reference or a block of the library's COM task memory was kept after everything was
// let go). A compiler failure that is not a
// CompileError (file:line: message) ends the process: a crash. The scene target drives the whole
// scene path: load and index, animate, render through both skin paths, a device reset with the
// reallocation after it, and the clean-up.
#include <VexilDX9/Effect.h>
#include <VexilDX9/VirtualRealityDX9.h>
#include <zeb/Exception.h>

#include "CompileError.h"
#include "Compiler.h"

#include "ImportPatch.h"
#include "TestDevice.h"
#include "TestHierarchy.h"

#include <d3dx9.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <set>
#include <string>

// A ceiling on this process's heap: an input that makes the compiler ask for gigabytes ends it
// here (uncaught std::bad_alloc, reported as a crash) instead of exhausting the machine.
namespace {
std::atomic<size_t> g_liveBytes{0};
const size_t kHeapCeiling = size_t(2) << 30;
const size_t kHeader = 16;  // keeps the alignment malloc gives
}  // namespace

void* operator new(size_t size)
{
    if (size > kHeapCeiling || g_liveBytes.load() + size > kHeapCeiling)
        throw std::bad_alloc();
    char* block = static_cast<char*>(std::malloc(size + kHeader));
    if (!block)
        throw std::bad_alloc();
    std::memcpy(block, &size, sizeof size);
    g_liveBytes += size;
    return block + kHeader;
}

void operator delete(void* pointer) noexcept
{
    if (!pointer)
        return;
    char* block = static_cast<char*>(pointer) - kHeader;
    size_t size;
    std::memcpy(&size, block, sizeof size);
    g_liveBytes -= size;
    std::free(block);
}

void operator delete(void* pointer, size_t) noexcept
{
    operator delete(pointer);
}

namespace {

// Loads the file as one mesh, then as a hierarchy, measures that, registers its frames on a
// controller of its own, plays the file's animation a little, and lets it all go.
bool loadX(const std::string& path, IDirect3DDevice9* device)
{
    ID3DXMesh* mesh = nullptr;
    if (SUCCEEDED(D3DXLoadMeshFromXA(path.c_str(), D3DXMESH_SYSTEMMEM, device, nullptr, nullptr, nullptr, nullptr,
                                     &mesh)))
        mesh->Release();
    vexiltest::TestAllocator allocator;
    D3DXFRAME* root = nullptr;
    ID3DXAnimationController* controller = nullptr;
    const HRESULT hr = D3DXLoadMeshHierarchyFromXA(path.c_str(), D3DXMESH_SYSTEMMEM, device, &allocator, nullptr,
                                                   &root, &controller);
    D3DXVECTOR3 center;
    float radius;
    ID3DXAnimationController* named = nullptr;
    if (root && SUCCEEDED(D3DXFrameCalculateBoundingSphere(root, &center, &radius)) &&
        SUCCEEDED(D3DXCreateAnimationController(D3DXFrameNumNamedMatrices(root) + 1, 1, 1, 1, &named))) {
        D3DXFrameRegisterNamedMatrices(root, named);
        named->Release();
    }
    if (controller) {
        for (int step = 0; step < 4; ++step)
            controller->AdvanceTime(0.3, nullptr);
        controller->Release();
    }
    if (root)
        D3DXFrameDestroy(root, &allocator);
    return SUCCEEDED(hr);
}

enum class Outcome { Loaded, Refused, Leaked };

// CoTaskMemAlloc and CoTaskMemFree as VexilDX9.dll calls them: the scene loader's names,
// materials and adjacency. A block still live once a scene is gone has leaked.
std::set<void*> g_liveBlocks;

void* WINAPI countedAllocate(SIZE_T bytes)
{
    void* block = CoTaskMemAlloc(bytes);
    if (block)
        g_liveBlocks.insert(block);
    return block;
}

void WINAPI countedFree(void* block)
{
    g_liveBlocks.erase(block);
    CoTaskMemFree(block);
}

COMPtr<IDirect3DDevice9>::pointer holderOf(IDirect3DDevice9* device)
{
    device->AddRef();
    return COMPtr<IDirect3DDevice9>::pointer(device);
}

ULONG references(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}

bool loadEffect(const std::string& path, IDirect3DDevice9* device)
{
    Effect effect;
    return effect.load(zeb::String(path.c_str()), holderOf(device));
}

// What the scene target needs beside the device: the library's skinning effect and a k2m list
// that names a frame for more skinned containers than a seed has.
struct SceneTools {
    // Without a device (targets other than the scene), nothing.
    explicit SceneTools(IDirect3DDevice9* device)
    {
        if (!device)
            return;
        skinEffect.load(zeb::String((binDir() + "\\skinnedMesh.fxo").c_str()), holderOf(device));
        // D3DX makes the state it saves and restores on first use, and keeps it: not a leak.
        UINT count = 0;
        if (ID3DXEffect* effect = skinEffect.effect().get(); effect && SUCCEEDED(effect->Begin(&count, 0))) {
            effect->BeginPass(0), effect->EndPass();
            effect->End();
        }
        for (int k = 0; k < 16; ++k)
            frameList.append(zeb::String((std::to_string(k) + ":Root").c_str()));
        passes.append(0);
    }
    static std::string binDir()
    {
        char path[MAX_PATH];
        GetModuleFileNameA(nullptr, path, MAX_PATH);
        std::string dir(path);
        return dir.substr(0, dir.find_last_of('\\'));
    }
    Effect skinEffect;
    zeb::Array<zeb::String> frameList;
    zeb::Array<unsigned int> passes;
};

// A few frames: animated (a scene without "CameraDummy" raises HashKeyMissing once its world
// matrices are updated), then drawn through the fixed-function and the effect skin paths.
void animateAndDraw(VirtualRealityDX9& scene, IDirect3DDevice9* device, SceneTools& tools)
{
    for (unsigned step = 0; step < 3; ++step) {
        try {
            scene.animate(step);
        } catch (const zeb::HashKeyMissing&) {
        }
        device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0, 1.0f, 0);
        device->BeginScene();
        scene.render(device, true);
        if (tools.skinEffect.numTechniques() > 0)
            scene.meshManager().renderSkin(holderOf(device), scene, true, tools.passes);
        device->EndScene();
    }
}

// Wine resets a device only while nothing of it lives in the default pool.
bool resetDevice(IDirect3DDevice9* device)
{
    D3DPRESENT_PARAMETERS parameters;
    COMPtr<IDirect3DSwapChain9>::pointer chain;
    if (FAILED(device->GetSwapChain(0, chain.receive())) || FAILED(chain->GetPresentParameters(&parameters)))
        return false;
    chain.reset();
    return SUCCEEDED(device->Reset(&parameters));
}

// The device and the effect hold what was drawn last (buffers, declaration, textures, and the
// state the effect saved at its last Begin) until something else is bound: let it go, so that
// what remains is what the scene failed to release.
void unbind(IDirect3DDevice9* device, const Effect& skinEffect)
{
    device->SetStreamSource(0, nullptr, 0, 0);
    device->SetIndices(nullptr);
    device->SetVertexDeclaration(nullptr);
    device->SetTexture(0, nullptr);
    if (ID3DXEffect* effect = skinEffect.effect().get()) {
        UINT passes = 0;
        effect->SetTexture("textureMap", nullptr);
        effect->Begin(&passes, 0);  // the state it saves for End holds what was bound before
        effect->End();
    }
}

bool playScene(const std::string& path, IDirect3DDevice9* device, SceneTools& tools)
{
    const zeb::String textures((SceneTools::binDir() + "\\scene").c_str());
    VirtualRealityDX9 scene;
    if (!scene.loadVirtualReality(textures, zeb::String(path.c_str()), device, tools.frameList))
        return false;
    scene.setupAnimation(device);
    if (tools.skinEffect.numTechniques() > 0)
        scene.meshManager().setSkinEffect(BorrowedEffect(&tools.skinEffect));
    animateAndDraw(scene, device, tools);
    ID3DXEffect* effect = tools.skinEffect.effect().get();
    if (effect)
        effect->OnLostDevice();
    scene.cleanup();
    const bool reset = resetDevice(device);
    if (effect)
        effect->OnResetDevice();
    if (reset && scene.reallocateRenderResources(holderOf(device), tools.frameList))
        animateAndDraw(scene, device, tools);
    scene.cleanup();
    unbind(device, tools.skinEffect);
    return true;
}

// A load that throws one of the library's exceptions (a skinned mesh without a k2m entry, a
// broken precondition) is a refusal the application is told about; anything else is a crash.
bool loadScene(const std::string& path, IDirect3DDevice9* device, SceneTools& tools)
{
    try {
        return playScene(path, device, tools);
    } catch (const zeb::Exception&) {
        return false;
    }
}

bool compile(const std::string& path)
{
    try {
        fxc::compileEffectFile(path, fxc::PreprocessorOptions());
        return true;
    } catch (const fxc::CompileError&) {
        return false;
    }
}

bool loadTarget(const std::string& target, const std::string& path, IDirect3DDevice9* device, SceneTools& tools)
{
    if (target == "x")
        return loadX(path, device);
    if (target == "scene")
        return loadScene(path, device, tools);
    if (target == "effect")
        return loadEffect(path, device);
    return compile(path);
}

Outcome load(const std::string& target, const std::string& path, IDirect3DDevice9* device, SceneTools& tools)
{
    const ULONG before = references(device);
    const size_t blocks = g_liveBlocks.size();
    const bool loaded = loadTarget(target, path, device, tools);
    if (references(device) != before || g_liveBlocks.size() != blocks)
        return Outcome::Leaked;
    return loaded ? Outcome::Loaded : Outcome::Refused;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string target = argc == 3 ? argv[1] : "";
    if (target != "x" && target != "scene" && target != "effect" && target != "fxc") {
        std::fprintf(stderr, "usage: vexil-fuzz-runner x|scene|effect|fxc list.txt\n");
        return 2;
    }
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    // A crash ends the process at once, with the exception code as exit code: no debugger.
    SetUnhandledExceptionFilter([](EXCEPTION_POINTERS* exception) -> LONG {
        TerminateProcess(GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
        return EXCEPTION_EXECUTE_HANDLER;
    });
    if (!GetModuleHandleW(L"d3dx9_37.dll")) {
        std::fprintf(stderr, "vexil-fuzz-runner: D3DX does not come from the drop-in d3dx9_37.dll\n");
        return 3;
    }
    vexiltest::TestDevice device;
    if (!device.ok()) {
        std::fprintf(stderr, "vexil-fuzz-runner: no Direct3D device (0x%08lx)\n", device.creationResult());
        return 3;
    }
    vexiltest::ImportPatch allocate("VexilDX9.dll", "ole32.dll", "CoTaskMemAlloc", reinterpret_cast<void*>(&countedAllocate));
    vexiltest::ImportPatch release("VexilDX9.dll", "ole32.dll", "CoTaskMemFree", reinterpret_cast<void*>(&countedFree));
    if (!allocate.ok() || !release.ok()) {
        std::fprintf(stderr, "vexil-fuzz-runner: cannot reach VexilDX9.dll's imports of CoTaskMemAlloc and CoTaskMemFree\n");
        return 3;
    }
    SceneTools tools(target == "scene" ? device.device() : nullptr);
    if (target == "scene" && tools.skinEffect.numTechniques() == 0)
        std::fprintf(stderr, "vexil-fuzz-runner: no skinnedMesh.fxo beside the runner; the effect skin path is left out\n");
    std::ifstream list(argv[2]);
    std::string path;
    const char* const said[] = {"loaded", "refused", "leaked"};
    for (int index = 0; std::getline(list, path); ++index) {
        std::printf("start %d\n", index);
        std::fflush(stdout);
        const Outcome outcome = load(target, path, device.device(), tools);
        std::printf("done %d %s\n", index, said[int(outcome)]);
        std::fflush(stdout);
    }
    return 0;
}
