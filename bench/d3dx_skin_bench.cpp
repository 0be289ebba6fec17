// ConvertToBlendedMesh of the drop-in D3DX against the least any conversion must do: read every
// face's influences, create the output mesh and copy the vertex buffer into it. Runs on tiny.x
// (when ../shared/samples is there) and on generated grids of 25k, 50k and 100k vertices.
#include <d3dx9.h>
#include <windows.h>

#include "BenchDevice.h"
#include "BenchTimer.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

volatile float g_sink;

struct Subject {
    std::string name;
    ID3DXMesh* mesh = nullptr;
    ID3DXSkinInfo* skin = nullptr;
    ~Subject()
    {
        if (mesh)
            mesh->Release();
        if (skin)
            skin->Release();
    }
};

// A grid of `columns` x `rows` vertices; bone b runs along rows, each vertex shared between the
// two bones nearest its row and a third, lighter one, as a limb chain would be.
bool generateGrid(IDirect3DDevice9* device, DWORD columns, DWORD rows, DWORD boneCount, Subject& out)
{
    const DWORD vertexCount = columns * rows;
    const DWORD faceCount = 2 * (columns - 1) * (rows - 1);
    const DWORD fvf = D3DFVF_XYZ | D3DFVF_NORMAL | D3DFVF_TEX1;
    if (FAILED(D3DXCreateMeshFVF(faceCount, vertexCount, D3DXMESH_MANAGED | D3DXMESH_32BIT, fvf, device, &out.mesh)))
        return false;
    float* v = nullptr;
    out.mesh->LockVertexBuffer(0, reinterpret_cast<void**>(&v));
    for (DWORD r = 0; r < rows; ++r)
        for (DWORD c = 0; c < columns; ++c, v += 8) {
            const float values[8] = {float(c), float(r), 0, 0, 0, -1, float(c) / columns, float(r) / rows};
            std::memcpy(v, values, sizeof values);
        }
    out.mesh->UnlockVertexBuffer();
    DWORD* index = nullptr;
    out.mesh->LockIndexBuffer(0, reinterpret_cast<void**>(&index));
    for (DWORD r = 0; r + 1 < rows; ++r)
        for (DWORD c = 0; c + 1 < columns; ++c) {
            const DWORD a = r * columns + c, b = a + 1, d = a + columns, e = d + 1;
            const DWORD quad[6] = {a, d, b, b, d, e};
            std::memcpy(index, quad, sizeof quad);
            index += 6;
        }
    out.mesh->UnlockIndexBuffer();
    DWORD* attributes = nullptr;
    out.mesh->LockAttributeBuffer(0, &attributes);
    std::memset(attributes, 0, faceCount * sizeof(DWORD));
    out.mesh->UnlockAttributeBuffer();

    if (FAILED(D3DXCreateSkinInfoFVF(vertexCount, fvf, boneCount, &out.skin)))
        return false;
    std::vector<std::vector<DWORD>> vertices(boneCount);
    std::vector<std::vector<float>> weights(boneCount);
    for (DWORD r = 0; r < rows; ++r) {
        const float along = float(r) * (boneCount - 1) / rows;
        const DWORD bone = DWORD(along);
        const float t = along - float(bone);
        for (DWORD c = 0; c < columns; ++c) {
            const DWORD vertex = r * columns + c;
            const DWORD third = (bone + 2 + c % 3) % boneCount;
            const struct { DWORD bone; float weight; } shares[3] = {
                {bone, 0.8f * (1 - t)}, {bone + 1, 0.8f * t}, {third, 0.2f}};
            for (const auto& share : shares) {
                if (share.weight <= 0)
                    continue;
                vertices[share.bone].push_back(vertex);
                weights[share.bone].push_back(share.weight);
            }
        }
    }
    for (DWORD b = 0; b < boneCount; ++b)
        if (!vertices[b].empty())
            out.skin->SetBoneInfluence(b, DWORD(vertices[b].size()), vertices[b].data(), weights[b].data());
    out.name = "generated " + std::to_string(vertexCount / 1000) + "k vertices";
    return true;
}

// Only keeps what the benchmark needs of an X file: the first skinned mesh.
class FirstSkinAllocator : public ID3DXAllocateHierarchy {
public:
    Subject* subject = nullptr;
    STDMETHOD(CreateFrame)(const char*, D3DXFRAME** out) override
    {
        *out = new D3DXFRAME();
        D3DXMatrixIdentity(&(*out)->TransformationMatrix);
        return D3D_OK;
    }
    STDMETHOD(CreateMeshContainer)(const char*, const D3DXMESHDATA* data, const D3DXMATERIAL*,
                                   const D3DXEFFECTINSTANCE*, DWORD, const DWORD*, ID3DXSkinInfo* skin,
                                   D3DXMESHCONTAINER** out) override
    {
        if (skin && !subject->skin && data->Type == D3DXMESHTYPE_MESH) {
            subject->mesh = data->pMesh;
            subject->mesh->AddRef();
            subject->skin = skin;
            skin->AddRef();
        }
        *out = new D3DXMESHCONTAINER();
        return D3D_OK;
    }
    STDMETHOD(DestroyFrame)(D3DXFRAME* frame) override
    {
        delete frame;
        return D3D_OK;
    }
    STDMETHOD(DestroyMeshContainer)(D3DXMESHCONTAINER* container) override
    {
        delete container;
        return D3D_OK;
    }
};

bool loadTiny(IDirect3DDevice9* device, Subject& out)
{
    const std::string path = vexilbench::samplePath("sdk\\Tiny\\tiny.x");
    FirstSkinAllocator allocator;
    allocator.subject = &out;
    D3DXFRAME* root = nullptr;
    ID3DXAnimationController* controller = nullptr;
    if (FAILED(D3DXLoadMeshHierarchyFromXA(path.c_str(), D3DXMESH_MANAGED, device, &allocator, nullptr, &root, &controller)))
        return false;
    if (controller)
        controller->Release();
    D3DXFrameDestroy(root, &allocator);
    out.name = "tiny.x";
    return out.skin != nullptr;
}

void convert(const Subject& s)
{
    ID3DXMesh* blended = nullptr;
    ID3DXBuffer* table = nullptr;
    DWORD influences = 0, combinations = 0;
    if (FAILED(s.skin->ConvertToBlendedMesh(s.mesh, D3DXMESH_MANAGED | D3DXMESHOPT_VERTEXCACHE, nullptr, nullptr,
                                            nullptr, nullptr, &influences, &combinations, &table, &blended))) {
        vexilbench::note(("ConvertToBlendedMesh " + s.name).c_str(), "FAILED: the conversion failed");
        std::exit(1);
    }
    table->Release();
    blended->Release();
}

// Reads every bone's influences into a per-vertex table, sums each face's influences, creates a
// mesh of the same size and copies the vertex buffer into it.
void plainPass(const Subject& s)
{
    const DWORD vertexCount = s.mesh->GetNumVertices();
    const DWORD faceCount = s.mesh->GetNumFaces();
    std::vector<DWORD> start(vertexCount + 1, 0);
    std::vector<std::vector<DWORD>> boneVertices(s.skin->GetNumBones());
    std::vector<std::vector<float>> boneWeights(s.skin->GetNumBones());
    for (DWORD b = 0; b < boneVertices.size(); ++b) {
        const DWORD n = s.skin->GetNumBoneInfluences(b);
        boneVertices[b].resize(n);
        boneWeights[b].resize(n);
        if (n)
            s.skin->GetBoneInfluence(b, boneVertices[b].data(), boneWeights[b].data());
        for (DWORD v : boneVertices[b])
            ++start[v + 1];
    }
    for (DWORD v = 0; v < vertexCount; ++v)
        start[v + 1] += start[v];
    std::vector<float> perVertex(start[vertexCount]);
    std::vector<DWORD> fill(start.begin(), start.end() - 1);
    for (DWORD b = 0; b < boneVertices.size(); ++b)
        for (size_t i = 0; i < boneVertices[b].size(); ++i)
            perVertex[fill[boneVertices[b][i]]++] = boneWeights[b][i];

    void* indexData = nullptr;
    s.mesh->LockIndexBuffer(D3DLOCK_READONLY, &indexData);
    const bool wide = s.mesh->GetOptions() & D3DXMESH_32BIT;
    float total = 0;
    for (DWORD i = 0; i < 3 * faceCount; ++i) {
        const DWORD v = wide ? static_cast<DWORD*>(indexData)[i] : static_cast<WORD*>(indexData)[i];
        for (DWORD k = start[v]; k < start[v + 1]; ++k)
            total += perVertex[k];
    }
    s.mesh->UnlockIndexBuffer();

    IDirect3DDevice9* device = nullptr;
    s.mesh->GetDevice(&device);
    ID3DXMesh* copy = nullptr;
    D3DXCreateMeshFVF(faceCount, vertexCount, D3DXMESH_MANAGED | (wide ? D3DXMESH_32BIT : 0), s.mesh->GetFVF(),
                      device, &copy);
    device->Release();
    void* from = nullptr;
    void* to = nullptr;
    s.mesh->LockVertexBuffer(D3DLOCK_READONLY, &from);
    copy->LockVertexBuffer(0, &to);
    std::memcpy(to, from, size_t(vertexCount) * s.mesh->GetNumBytesPerVertex());
    copy->UnlockVertexBuffer();
    s.mesh->UnlockVertexBuffer();
    copy->Release();
    g_sink = total;
}

double measure(const Subject& s, const char* label)
{
    const int runs = s.mesh->GetNumVertices() > 50000 ? 7 : 25;
    const double ours = vexilbench::bestOf(runs, [&] { convert(s); });
    const double plain = vexilbench::bestOf(runs, [&] { plainPass(s); });
    const std::string what = "ConvertToBlendedMesh " + s.name;
    vexilbench::report(what.c_str(), ours, plain, label, 5.0);
    return ours;
}

// Wine's Direct3D runs a command thread by default, and every buffer lock then waits for it
// to be scheduled: on a busy machine that wait, not the work, decides the timings. The
// benchmark runs itself again with that thread off (a no-op on Windows).
bool rerunWithoutCommandThread(int& exitCode)
{
    if (std::getenv("WINE_D3D_CONFIG") || !GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version"))
        return false;
    SetEnvironmentVariableA("WINE_D3D_CONFIG", "csmt=0");
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessA(nullptr, GetCommandLineA(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process))
        return false;
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD code = 1;
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    exitCode = int(code);
    return true;
}

}  // namespace

int main()
{
    int exitCode = 0;
    if (rerunWithoutCommandThread(exitCode))
        return exitCode;
    vexilbench::BenchDevice d;
    if (!d.create(D3DCREATE_HARDWARE_VERTEXPROCESSING)) {
        vexilbench::note("d3dx_skin_bench", "no Direct3D device");
        return 1;
    }
    const char* plainLabel = "influences + new mesh + VB copy";
    Subject tiny;
    if (loadTiny(d.device, tiny))
        measure(tiny, plainLabel);
    else
        vexilbench::note("ConvertToBlendedMesh tiny.x", "skipped: ../shared/samples is absent");

    // Same bone layout at every size (columns vary, rows and bones do not), so time per vertex
    // should stay flat.
    const DWORD columns[3] = {63, 125, 250};
    double perVertex[3] = {};
    for (int i = 0; i < 3; ++i) {
        Subject grid;
        if (!generateGrid(d.device, columns[i], 400, 64, grid)) {
            vexilbench::note("ConvertToBlendedMesh grid", "could not generate the grid");
            return 1;
        }
        perVertex[i] = measure(grid, plainLabel) / (400.0 * columns[i]);
    }
    vexilbench::report("ConvertToBlendedMesh per vertex, 100k vs 25k", perVertex[2], perVertex[0], "per vertex at 25k", 1.3);
    return 0;
}
