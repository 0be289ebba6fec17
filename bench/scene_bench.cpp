// The scene path against the bare D3D9/D3DX calls that do the same work, measured in one run:
// render of a generated 500-subset rigid scene, animate of tiny.x, updateTransformation on large
// generated trees, loading tiny.x and Dwarf.x with their textures, and a hundred device-reset
// cycles of the bundled scene.
#include "BenchTimer.h"

#include <VexilDX9/VirtualRealityDX9.h>
#include <zeb/Logger.h>

#include <d3dx9.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

volatile float g_sink;

// Best times of both sides, run alternately so that the load of a shared machine hits both alike.
template <class Ours, class Bare> std::pair<double, double> bestOfBoth(int runs, Ours ours, Bare bare) {
    std::pair<double, double> best(1e30, 1e30);
    for (int r = 0; r < runs; ++r) {
        best.first = std::min(best.first, vexilbench::bestOf(1, ours));
        best.second = std::min(best.second, vexilbench::bestOf(1, bare));
    }
    return best;
}

std::string programDir() {
    char path[MAX_PATH];
    std::string program(path, GetModuleFileNameA(nullptr, path, MAX_PATH));
    return program.substr(0, program.rfind('\\'));
}

// <repository>/build/bin -> <repository>/../shared/samples
std::string samplesDir() {
    std::string dir = programDir() + "\\..\\..\\..\\shared\\samples";
    return GetFileAttributesA((dir + "\\README.md").c_str()) == INVALID_FILE_ATTRIBUTES ? std::string() : dir;
}

struct Device {
    HWND window = nullptr;
    IDirect3D9* d3d = nullptr;
    IDirect3DDevice9* device = nullptr;
    Device() {
        window = CreateWindowA("STATIC", "scene_bench", WS_OVERLAPPEDWINDOW, 0, 0, 256, 256, nullptr, nullptr, nullptr, nullptr);
        d3d = Direct3DCreate9(D3D_SDK_VERSION);
        D3DPRESENT_PARAMETERS pp = {};
        pp.Windowed = TRUE;
        pp.SwapEffect = D3DSWAPEFFECT_DISCARD;
        pp.BackBufferFormat = D3DFMT_X8R8G8B8;
        pp.BackBufferWidth = pp.BackBufferHeight = 256;
        pp.EnableAutoDepthStencil = TRUE;
        pp.AutoDepthStencilFormat = D3DFMT_D24S8;
        pp.hDeviceWindow = window;
        if (d3d)
            d3d->CreateDevice(D3DADAPTER_DEFAULT, D3DDEVTYPE_HAL, window, D3DCREATE_HARDWARE_VERTEXPROCESSING, &pp, &device);
    }
    ~Device() {
        if (device) device->Release();
        if (d3d) d3d->Release();
        DestroyWindow(window);
    }
};

// 50 frames, each with a mesh of 10 quads, one material per quad; materials cycle through five
// texture files and no texture: 500 subsets in six texture groups.
std::string generatedScene(const std::string& dir) {
    auto f1 = [](int value) { return std::to_string(value) + ".0"; };
    std::string text = "xof 0303txt 0032\nFrame Root { FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }\n";
    for (int f = 0; f < 50; ++f) {
        text += "Frame F" + std::to_string(f) + " { FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0," + f1(f % 7) +
                ",0.0," + f1(f) + ",1.0;; }\nMesh M" + std::to_string(f) + " { 40;";
        for (int q = 0; q < 10; ++q)
            for (int v = 0; v < 4; ++v)
                text += f1(q + (v == 1 || v == 2)) + ";" + f1(v >= 2) + ";0.0;" + (q == 9 && v == 3 ? ";" : ",");
        text += " 20;";
        for (int q = 0; q < 10; ++q) {
            int b = 4 * q;
            text += "3;" + std::to_string(b) + "," + std::to_string(b + 1) + "," + std::to_string(b + 2) + ";,3;" +
                    std::to_string(b) + "," + std::to_string(b + 2) + "," + std::to_string(b + 3) + ";" + (q == 9 ? ";" : ",");
        }
        text += " MeshMaterialList { 10; 20;";
        for (int face = 0; face < 20; ++face) text += std::to_string(face / 2) + (face == 19 ? ";;" : ",");
        for (int m = 0; m < 10; ++m) {
            text += " Material { 0.5;0.5;0.5;1.0;; 1.0; 0.0;0.0;0.0;; 0.0;0.0;0.0;;";
            if ((f + m) % 6) text += " TextureFilename { \"t" + std::to_string((f + m) % 6) + ".bmp\"; }";
            text += " }";
        }
        text += " } } }\n";
    }
    text += "}\n";
    std::string path = dir + "\\bench_scene.x";
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

// Until the device has drawn what it was given: each side's time holds its own drawing.
void waitForDevice(IDirect3DDevice9* device) {
    IDirect3DQuery9* query = nullptr;
    if (FAILED(device->CreateQuery(D3DQUERYTYPE_EVENT, &query))) return;
    query->Issue(D3DISSUE_END);
    while (query->GetData(nullptr, 0, D3DGETDATA_FLUSH) == S_FALSE) Sleep(0);
    query->Release();
}

// A 2x2 24-bit BMP.
void writeTexture(const std::string& path, unsigned char shade) {
    unsigned char bmp[70] = {'B', 'M', 70, 0, 0, 0, 0, 0, 0, 0, 54, 0, 0, 0, 40, 0, 0, 0, 2, 0, 0, 0, 2, 0, 0, 0, 1, 0, 24};
    bmp[34] = 16;
    for (int i = 54; i < 70; ++i) bmp[i] = shade;
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bmp), sizeof bmp);
}

void benchRender(IDirect3DDevice9* device, const std::string& dir) {
    for (int t = 1; t < 6; ++t) writeTexture(dir + "\\t" + std::to_string(t) + ".bmp", static_cast<unsigned char>(40 * t));
    VirtualRealityDX9 scene;
    if (!scene.loadVirtualReality(dir.c_str(), generatedScene(dir).c_str(), device, zeb::Array<zeb::String>())) {
        vexilbench::note("render, rigid scene", "FAILED: the generated scene did not load");
        return;
    }
    scene.meshManager().updateTransformation();
    // The reference: the same calls in frame order, textures looked up beforehand.
    struct Subset {
        ID3DXMesh* mesh;
        DWORD id;
        const D3DMATERIAL9* material;
        IDirect3DTexture9* texture;
        const D3DXMATRIX* world;
    };
    std::vector<Subset> subsets;
    const FrameNodeIndexer& frames = scene.meshManager().frameIndex();
    for (unsigned i = 0; i < frames.size(); ++i)
        for (D3DXMESHCONTAINER* c = frames[int(i)].m_frame->pMeshContainer; c; c = c->pNextMeshContainer)
            for (DWORD m = 0; m < c->NumMaterials; ++m)
                subsets.push_back({c->MeshData.pMesh, m, &c->pMaterials[m].MatD3D,
                                   frames[int(i)].m_containerTextures[0].m_textureList[m].get(), &frames[int(i)].m_combinedTransform});
    const int frameCount = 20;
    auto drawn = [&](const std::function<void()>& draw) {
        return [&, draw] {
            for (int f = 0; f < frameCount; ++f) {
                device->BeginScene();
                draw();
                device->EndScene();
            }
            device->Present(nullptr, nullptr, nullptr, nullptr);
            waitForDevice(device);
        };
    };
    auto times = bestOfBoth(7, drawn([&] { scene.render(device, true); }), drawn([&] {
        for (const Subset& s : subsets) {
            device->SetTexture(0, s.texture);
            device->SetTransform(D3DTS_WORLD, s.world);
            device->SetMaterial(s.material);
            s.mesh->DrawSubset(s.id);
        }
    }));
    std::printf("(%u subsets)\n", unsigned(subsets.size()));
    vexilbench::report("render, 500-subset rigid scene", times.first, times.second, "SetTexture/Transform/Material/Draw", 1.1);
}

// World matrices by recursion; with inverses, also the inverse and inverse-transpose the scene keeps.
void worldMatrices(D3DXFRAME* frame, const D3DXMATRIX& parent, std::vector<D3DXMATRIX>& out, size_t& next,
                   bool inverses = false) {
    for (; frame; frame = frame->pFrameSibling) {
        D3DXMATRIX& world = out[next++];
        D3DXMatrixMultiply(&world, &frame->TransformationMatrix, &parent);
        if (inverses) {
            D3DXMATRIX inverse;
            D3DXMatrixInverse(&inverse, nullptr, &world);
            D3DXMatrixTranspose(&out[0], &inverse);
        }
        worldMatrices(frame->pFrameFirstChild, world, out, next, inverses);
    }
}

// Animates with fractional steps, without the camera (tiny.x has no "CameraDummy").
class StepScene : public VirtualRealityDX9 {
public:
    bool step(double seconds) {
        const bool advanced = advanceTime(seconds);
        meshManager().updateTransformation();
        return advanced;
    }
};

void benchAnimate(IDirect3DDevice9* device, const std::string& tiny) {
    StepScene scene;
    SceneLoaderX loader;
    D3DXFRAME* root = nullptr;
    ID3DXAnimationController* controller = nullptr;
    std::wstring wide(tiny.begin(), tiny.end());
    if (!scene.loadVirtualReality("", tiny.c_str(), device, zeb::Array<zeb::String>()) ||
        FAILED(D3DXLoadMeshHierarchyFromXW(wide.c_str(), D3DXMESH_MANAGED, device, &loader, nullptr, &root, &controller))) {
        vexilbench::note("animate tiny.x", "FAILED: tiny.x did not load");
        return;
    }
    // The scene's track set-up: every track on, played backwards.
    for (UINT track = 0; track < controller->GetMaxNumTracks(); ++track) {
        controller->SetTrackEnable(track, TRUE);
        controller->SetTrackSpeed(track, -1.0);
    }
    std::vector<D3DXMATRIX> worlds(scene.meshManager().frameIndex().size() + 2);
    D3DXMATRIX identity;
    D3DXMatrixIdentity(&identity);
    const int steps = 2000;
    auto times = bestOfBoth(
        7,
        [&] {
            for (int i = 0; i < steps; ++i) scene.step(1.0 / 60);
        },
        [&] {
            for (int i = 0; i < steps; ++i) {
                controller->AdvanceTime(1.0 / 60, nullptr);
                size_t next = 0;
                worldMatrices(root, identity, worlds, next);
            }
            g_sink = worlds[1]._41;
        });
    vexilbench::report("animate tiny.x (advance + world matrices)", times.first, times.second,
                       "AdvanceTime + recursive update", 1.2);
    // The scene also keeps every frame's inverse and inverse-transpose: the same work by hand.
    times = bestOfBoth(
        7,
        [&] {
            for (int i = 0; i < steps; ++i) scene.step(1.0 / 60);
        },
        [&] {
            for (int i = 0; i < steps; ++i) {
                controller->AdvanceTime(1.0 / 60, nullptr);
                size_t next = 1;
                worldMatrices(root, identity, worlds, next, true);
            }
            g_sink = worlds[1]._41;
        });
    vexilbench::report("animate tiny.x, same three matrices by hand", times.first, times.second,
                       "AdvanceTime + update with inverses", 1.2);
    controller->Release();
    D3DXFrameDestroy(root, &loader);
}

// n frames, four children each, every matrix a small rotation and translation.
void benchUpdate(unsigned n) {
    std::vector<D3DXFRAME> tree(n);
    std::vector<std::string> names(n);
    for (unsigned i = 0; i < n; ++i) {
        names[i] = "f" + std::to_string(i);
        tree[i] = D3DXFRAME();
        tree[i].Name = &names[i][0];
        D3DXMatrixRotationYawPitchRoll(&tree[i].TransformationMatrix, 0.01f * (i % 7), 0.02f, 0.0f);
        tree[i].TransformationMatrix._41 = 1.0f;
        if (i) {
            tree[i].pFrameSibling = tree[(i - 1) / 4].pFrameFirstChild;
            tree[(i - 1) / 4].pFrameFirstChild = &tree[i];
        }
    }
    MeshManagerD3DX9 manager;
    manager.initialize(&tree[0]);
    // The same products in the same breadth-first order, on a bare array.
    struct Plain {
        const D3DXMATRIX* local;
        unsigned parent;
        D3DXMATRIX combined, inverse, inverseTranspose;
    };
    std::vector<Plain> plain;
    for (unsigned i = 0; i < manager.frameIndex().size(); ++i) {
        const FrameNode& node = manager.frameIndex()[int(i)];
        plain.push_back({&node.m_frame->TransformationMatrix, node.m_parentIndex, {}, {}, {}});
    }
    const int runs = n >= 1000000 ? 3 : 5;
    auto times = bestOfBoth(runs, [&] { manager.updateTransformation(); }, [&] {
        for (Plain& p : plain) {
            if (p.parent == FrameNode::noParent) {
                p.combined = *p.local;
                continue;
            }
            D3DXMatrixMultiply(&p.combined, p.local, &plain[p.parent].combined);
            D3DXMatrixInverse(&p.inverse, nullptr, &p.combined);
            D3DXMatrixTranspose(&p.inverseTranspose, &p.inverse);
        }
        g_sink = plain.back().inverseTranspose._11;
    });
    char what[64];
    std::snprintf(what, sizeof what, "updateTransformation, %u frames", n);
    vexilbench::report(what, times.first, times.second, "the same products in a plain loop", 1.5);
    manager.cleanup();
}

void benchLoad(IDirect3DDevice9* device, const std::string& file, const char* label) {
    std::string dir = file.substr(0, file.rfind('\\'));
    std::wstring wide(file.begin(), file.end());
    VirtualRealityDX9 scene;
    auto ours = [&] {
        scene.loadVirtualReality(dir.c_str(), file.c_str(), device, zeb::Array<zeb::String>());
        scene.cleanup();
    };
    // Bare: the hierarchy through the same allocator, then one texture per distinct file.
    auto bare = [&] {
        SceneLoaderX loader;
        loader.setTextureFileRootDirectory(dir.c_str());
        D3DXFRAME* root = nullptr;
        ID3DXAnimationController* controller = nullptr;
        if (FAILED(D3DXLoadMeshHierarchyFromXW(wide.c_str(), D3DXMESH_MANAGED, device, &loader, nullptr, &root, &controller))) return;
        std::vector<std::string> done;
        std::vector<IDirect3DTexture9*> textures;
        std::function<void(D3DXFRAME*)> visit = [&](D3DXFRAME* f) {
            for (; f; f = f->pFrameSibling) {
                for (D3DXMESHCONTAINER* c = f->pMeshContainer; c; c = c->pNextMeshContainer)
                    for (DWORD m = 0; m < c->NumMaterials; ++m) {
                        const char* name = c->pMaterials[m].pTextureFilename;
                        if (!name || !*name || std::find(done.begin(), done.end(), name) != done.end()) continue;
                        done.push_back(name);
                        IDirect3DTexture9* texture = nullptr;
                        if (SUCCEEDED(D3DXCreateTextureFromFileExA(device, name, D3DX_DEFAULT, D3DX_DEFAULT, D3DX_DEFAULT, 0,
                                                                   D3DFMT_FROM_FILE, D3DPOOL_MANAGED, D3DX_DEFAULT,
                                                                   D3DX_DEFAULT, 0, nullptr, nullptr, &texture)))
                            textures.push_back(texture);
                    }
                visit(f->pFrameFirstChild);
            }
        };
        visit(root);
        for (IDirect3DTexture9* texture : textures) texture->Release();
        if (controller) controller->Release();
        D3DXFrameDestroy(root, &loader);
    };
    auto times = bestOfBoth(5, ours, bare);
    vexilbench::report(label, times.first, times.second, "D3DX load + texture creation", 1.2);
}

}  // namespace

// The back buffer's pixels, to hold every cycle's picture to the first.
std::vector<D3DCOLOR> backBuffer(IDirect3DDevice9* device) {
    std::vector<D3DCOLOR> pixels;
    IDirect3DSurface9 *target = nullptr, *copy = nullptr;
    D3DSURFACE_DESC desc;
    D3DLOCKED_RECT locked;
    if (SUCCEEDED(device->GetRenderTarget(0, &target)) && SUCCEEDED(target->GetDesc(&desc)) &&
        SUCCEEDED(device->CreateOffscreenPlainSurface(desc.Width, desc.Height, desc.Format, D3DPOOL_SYSTEMMEM, &copy, nullptr)) &&
        SUCCEEDED(device->GetRenderTargetData(target, copy)) && SUCCEEDED(copy->LockRect(&locked, nullptr, D3DLOCK_READONLY))) {
        for (unsigned y = 0; y < desc.Height; ++y) {
            const D3DCOLOR* row = reinterpret_cast<const D3DCOLOR*>(static_cast<const char*>(locked.pBits) + y * locked.Pitch);
            pixels.insert(pixels.end(), row, row + desc.Width);
        }
        copy->UnlockRect();
    }
    if (copy) copy->Release();
    if (target) target->Release();
    return pixels;
}

// An application's reset cycle (cleanup, Reset, reallocateRenderResources, setupAnimation)
// against the bare Reset: what releasing and reloading the scene adds. A hundred cycles, each
// picture held to the first.
void benchResetCycles(IDirect3DDevice9* device, const std::string& file) {
    const char* label = "reset cycle, walker.x";
    const std::string dir = file.substr(0, file.rfind('\\'));
    const zeb::Array<zeb::String> frames;
    VirtualRealityDX9 scene;
    device->AddRef();
    const COMPtr<IDirect3DDevice9>::pointer holder(device);
    IDirect3DSwapChain9* chain = nullptr;
    D3DPRESENT_PARAMETERS parameters = {};
    if (FAILED(device->GetSwapChain(0, &chain)) || !scene.loadVirtualReality(dir.c_str(), file.c_str(), device, frames)) {
        vexilbench::note(label, "FAILED: no swap chain or the scene did not load");
        if (chain) chain->Release();
        return;
    }
    chain->GetPresentParameters(&parameters);
    chain->Release();
    auto picture = [&] {
        scene.setupAnimation(device);
        scene.animate(1);
        device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0x203040, 1, 0);
        device->BeginScene();
        scene.render(device, true);
        device->EndScene();
        return backBuffer(device);
    };
    const std::vector<D3DCOLOR> first = picture();
    unsigned differing = 0;
    double ours = 1e30, bare = 1e30;
    for (int cycle = 0; cycle < 100; ++cycle) {
        ours = std::min(ours, vexilbench::bestOf(1, [&] {
                            scene.cleanup();
                            device->Reset(&parameters);
                            scene.reallocateRenderResources(holder, frames);
                        }));
        differing += picture() != first;
        scene.cleanup();
        bare = std::min(bare, vexilbench::bestOf(1, [&] { device->Reset(&parameters); }));
        scene.reallocateRenderResources(holder, frames);
    }
    if (differing) vexilbench::note(label, "FAILED: " + std::to_string(differing) + " of 100 cycles drew another picture");
    vexilbench::report(label, ours, bare, "IDirect3DDevice9::Reset alone", 3.0);
}

int main() {
    zeb::LogFactory::setPriority(5);  // the library's messages are not part of what is measured
    Device d;
    if (!d.device) {
        vexilbench::note("scene_bench", "no Direct3D device");
        return 1;
    }
    benchRender(d.device, programDir());
    for (unsigned n : {10000u, 100000u, 1000000u}) benchUpdate(n);
    benchResetCycles(d.device, vexilbench::besideProgram("scene\\walker.x"));
    std::string samples = samplesDir();
    if (samples.empty()) {
        vexilbench::note("scene_bench samples", "skipped: ../shared/samples is absent");
        return 0;
    }
    benchAnimate(d.device, samples + "\\sdk\\Tiny\\tiny.x");
    benchLoad(d.device, samples + "\\sdk\\Tiny\\tiny.x", "loadVirtualReality tiny.x");
    benchLoad(d.device, samples + "\\sdk\\Dwarf\\Dwarf.x", "loadVirtualReality Dwarf.x");
    return 0;
}
