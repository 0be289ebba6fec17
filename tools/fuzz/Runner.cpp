// vexil-fuzz-runner: loads each file of a list through one target and says how each went, so
// that the campaign (vexil-fuzz) can tell which input a crash or a hang belongs to.
//   vexil-fuzz-runner x|effect|fxc list.txt
// For every line of the list: "start N", then "done N loaded" or "done N refused". A compiler
// failure that is not a CompileError (file:line: message) ends the process: a crash.
#include <VexilDX9/Effect.h>

#include "CompileError.h"
#include "Compiler.h"

#include "TestDevice.h"
#include "TestHierarchy.h"

#include <d3dx9.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
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

bool loadEffect(const std::string& path, IDirect3DDevice9* device)
{
    device->AddRef();
    COMPtr<IDirect3DDevice9>::pointer holder(device);
    Effect effect;
    return effect.load(zeb::String(path.c_str()), holder);
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

bool load(const std::string& target, const std::string& path, IDirect3DDevice9* device)
{
    if (target == "x")
        return loadX(path, device);
    if (target == "effect")
        return loadEffect(path, device);
    return compile(path);
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string target = argc == 3 ? argv[1] : "";
    if (target != "x" && target != "effect" && target != "fxc") {
        std::fprintf(stderr, "usage: vexil-fuzz-runner x|effect|fxc list.txt\n");
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
    std::ifstream list(argv[2]);
    std::string path;
    for (int index = 0; std::getline(list, path); ++index) {
        std::printf("start %d\n", index);
        std::fflush(stdout);
        const bool loaded = load(target, path, device.device());
        std::printf("done %d %s\n", index, loaded ? "loaded" : "refused");
        std::fflush(stdout);
    }
    return 0;
}
