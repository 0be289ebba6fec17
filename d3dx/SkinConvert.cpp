#include "SkinConvert.h"

#include <algorithm>
#include <cstring>

namespace skinconvert {
namespace {

using skinblend::BlendLayout;
using skinblend::BoneWeights;
using skinblend::Status;
using skinblend::VertexInfluences;

// Owns one reference; released on scope exit unless handed on.
template <class T>
class Owned {
public:
    Owned() = default;
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned()
    {
        if (m_object)
            m_object->Release();
    }
    T** out() { return &m_object; }
    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T* release()
    {
        T* object = m_object;
        m_object = nullptr;
        return object;
    }

private:
    T* m_object = nullptr;
};

HRESULT statusResult(Status status)
{
    return status == Status::Ok ? D3D_OK : D3DERR_INVALIDCALL;
}

void widenIndices(const void* data, bool wide, size_t count, std::vector<uint32_t>& out)
{
    out.resize(count);
    if (wide) {
        std::memcpy(out.data(), data, count * sizeof(uint32_t));
    } else {
        const WORD* narrow = static_cast<const WORD*>(data);
        for (size_t i = 0; i < count; ++i)
            out[i] = narrow[i];
    }
}

HRESULT readIndexBuffer(IDirect3DIndexBuffer9* buffer, DWORD faceCount, std::vector<uint32_t>& out)
{
    D3DINDEXBUFFER_DESC desc;
    HRESULT hr = buffer->GetDesc(&desc);
    if (FAILED(hr))
        return hr;
    const bool wide = desc.Format == D3DFMT_INDEX32;
    const UINT bytes = faceCount * 3 * (wide ? 4 : 2);
    if (size_t(faceCount) * 3 * (wide ? 4 : 2) > desc.Size)
        return D3DERR_INVALIDCALL;
    if (!faceCount) {
        out.clear();
        return D3D_OK;
    }
    void* data = nullptr;
    if (FAILED(hr = buffer->Lock(0, bytes, &data, D3DLOCK_READONLY)))
        return hr;
    widenIndices(data, wide, size_t(faceCount) * 3, out);
    buffer->Unlock();
    return D3D_OK;
}

// The mesh's indices as 32-bit values, read in place when they already are.
class MeshIndices {
public:
    explicit MeshIndices(ID3DXBaseMesh* mesh) : m_mesh(mesh)
    {
        void* data = nullptr;
        m_result = mesh->LockIndexBuffer(D3DLOCK_READONLY, &data);
        if (FAILED(m_result))
            return;
        if (mesh->GetOptions() & D3DXMESH_32BIT) {
            m_data = static_cast<const uint32_t*>(data);
        } else {
            widenIndices(data, false, size_t(mesh->GetNumFaces()) * 3, m_widened);
            m_data = m_widened.data();
        }
    }
    MeshIndices(const MeshIndices&) = delete;
    MeshIndices& operator=(const MeshIndices&) = delete;
    ~MeshIndices()
    {
        if (SUCCEEDED(m_result))
            m_mesh->UnlockIndexBuffer();
    }
    HRESULT result() const { return m_result; }
    const uint32_t* data() const { return m_data; }

private:
    ID3DXBaseMesh* m_mesh;
    HRESULT m_result;
    const uint32_t* m_data = nullptr;
    std::vector<uint32_t> m_widened;
};

HRESULT readAttributes(ID3DXMesh* mesh, std::vector<uint32_t>& out)
{
    DWORD* data = nullptr;
    HRESULT hr = mesh->LockAttributeBuffer(D3DLOCK_READONLY, &data);
    if (FAILED(hr))
        return hr;
    out.assign(data, data + mesh->GetNumFaces());
    mesh->UnlockAttributeBuffer();
    return D3D_OK;
}

UINT declTypeSize(BYTE type)
{
    switch (type) {
    case D3DDECLTYPE_FLOAT1: return 4;
    case D3DDECLTYPE_FLOAT2: return 8;
    case D3DDECLTYPE_FLOAT3: return 12;
    case D3DDECLTYPE_FLOAT4: return 16;
    case D3DDECLTYPE_SHORT4:
    case D3DDECLTYPE_SHORT4N:
    case D3DDECLTYPE_USHORT4N:
    case D3DDECLTYPE_FLOAT16_4: return 8;
    case D3DDECLTYPE_UNUSED: return 0;
    default: return 4;
    }
}

struct CopyRun {
    UINT source;
    UINT target;
    UINT size;
};

// The blended vertex: the source position, then `weightCount` floats, then every other source
// component (earlier blend data dropped) packed in source order.
struct BlendedFormat {
    D3DVERTEXELEMENT9 declaration[MAX_FVF_DECL_SIZE];
    std::vector<CopyRun> runs;
    UINT stride = 0;
};

bool isPositionFirst(const D3DVERTEXELEMENT9& e)
{
    return e.Stream == 0 && e.Offset == 0 && e.Type == D3DDECLTYPE_FLOAT3 &&
           e.Usage == D3DDECLUSAGE_POSITION && e.UsageIndex == 0;
}

void addRun(std::vector<CopyRun>& runs, UINT source, UINT target, UINT size)
{
    if (!runs.empty() && runs.back().source + runs.back().size == source &&
        runs.back().target + runs.back().size == target)
        runs.back().size += size;
    else
        runs.push_back(CopyRun{source, target, size});
}

HRESULT blendedFormat(const D3DVERTEXELEMENT9* source, UINT weightCount, BlendedFormat& out)
{
    if (!isPositionFirst(source[0]))
        return D3DERR_INVALIDCALL;
    UINT count = 0;
    out.declaration[count++] = source[0];
    UINT offset = 12;
    if (weightCount) {
        out.declaration[count++] = D3DVERTEXELEMENT9{0, WORD(offset), BYTE(D3DDECLTYPE_FLOAT1 + weightCount - 1),
                                                     D3DDECLMETHOD_DEFAULT, D3DDECLUSAGE_BLENDWEIGHT, 0};
        offset += 4 * weightCount;
    }
    for (const D3DVERTEXELEMENT9* e = source + 1; e->Stream != 0xFF; ++e) {
        if (e->Stream != 0)
            return D3DERR_INVALIDCALL;
        if (e->Usage == D3DDECLUSAGE_BLENDWEIGHT || e->Usage == D3DDECLUSAGE_BLENDINDICES)
            continue;
        if (count + 1 >= MAX_FVF_DECL_SIZE)
            return D3DERR_INVALIDCALL;
        D3DVERTEXELEMENT9 moved = *e;
        moved.Offset = WORD(offset);
        out.declaration[count++] = moved;
        addRun(out.runs, e->Offset, offset, declTypeSize(e->Type));
        offset += declTypeSize(e->Type);
    }
    out.declaration[count] = D3DVERTEXELEMENT9 D3DDECL_END();
    out.stride = offset;
    return D3D_OK;
}

// Vertex components are whole 32-bit words; a word loop beats a library call per vertex.
void copyWords(BYTE* to, const BYTE* from, UINT bytes)
{
    for (UINT i = 0; i < bytes; i += 4)
        std::memcpy(to + i, from + i, 4);
}

// Weights are worked out here, vertex by vertex, rather than kept in a table of their own.
HRESULT fillVertices(ID3DXMesh* source, ID3DXMesh* target, const BlendedFormat& format,
                     const VertexInfluences& influences, const BlendLayout& layout)
{
    const BYTE* from = nullptr;
    HRESULT hr = source->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(const_cast<BYTE**>(&from)));
    if (FAILED(hr))
        return hr;
    BYTE* to = nullptr;
    if (FAILED(hr = target->LockVertexBuffer(0, reinterpret_cast<void**>(&to)))) {
        source->UnlockVertexBuffer();
        return hr;
    }
    const UINT sourceStride = source->GetNumBytesPerVertex();
    const UINT slots = layout.influencesPerFace;
    float weights[skinblend::kMaxBlendMatrices];
    for (const skinblend::Combination& combination : layout.combinations) {
        for (size_t v = combination.vertexStart; v < combination.vertexStart + combination.vertexCount; ++v) {
            const BYTE* in = from + size_t(layout.vertexRemap[v]) * sourceStride;
            BYTE* out = to + v * format.stride;
            std::memcpy(out, in, 12);
            skinblend::vertexWeights(influences, layout.vertexRemap[v], combination.bones, weights);
            for (UINT i = 0; i + 1 < slots; ++i)
                std::memcpy(out + 12 + 4 * i, weights + i, 4);
            for (const CopyRun& run : format.runs)
                copyWords(out + run.target, in + run.source, run.size);
        }
    }
    target->UnlockVertexBuffer();
    source->UnlockVertexBuffer();
    return D3D_OK;
}

HRESULT fillIndices(ID3DXMesh* target, const BlendLayout& layout)
{
    void* data = nullptr;
    HRESULT hr = target->LockIndexBuffer(0, &data);
    if (FAILED(hr))
        return hr;
    if (target->GetOptions() & D3DXMESH_32BIT) {
        std::memcpy(data, layout.indices.data(), layout.indices.size() * sizeof(uint32_t));
    } else {
        WORD* narrow = static_cast<WORD*>(data);
        for (size_t i = 0; i < layout.indices.size(); ++i)
            narrow[i] = WORD(layout.indices[i]);
    }
    return target->UnlockIndexBuffer();
}

// Attribute b is combination b, so DrawSubset(b) draws exactly that combination.
HRESULT fillAttributes(ID3DXMesh* target, const BlendLayout& layout)
{
    DWORD* attributes = nullptr;
    HRESULT hr = target->LockAttributeBuffer(0, &attributes);
    if (FAILED(hr))
        return hr;
    std::vector<D3DXATTRIBUTERANGE> table(layout.combinations.size());
    for (DWORD c = 0; c < table.size(); ++c) {
        const skinblend::Combination& combination = layout.combinations[c];
        std::fill_n(attributes + combination.faceStart, combination.faceCount, c);
        table[c] = D3DXATTRIBUTERANGE{c, combination.faceStart, combination.faceCount,
                                      combination.vertexStart, combination.vertexCount};
    }
    target->UnlockAttributeBuffer();
    return target->SetAttributeTable(table.data(), DWORD(table.size()));
}

// D3DXBONECOMBINATION records followed by the bone slots they point to, in one buffer.
HRESULT combinationBuffer(const BlendLayout& layout, ID3DXBuffer** out)
{
    const size_t count = layout.combinations.size();
    const size_t slots = layout.influencesPerFace;
    HRESULT hr = D3DXCreateBuffer(DWORD(count * (sizeof(D3DXBONECOMBINATION) + slots * sizeof(DWORD))), out);
    if (FAILED(hr))
        return hr;
    auto* records = static_cast<D3DXBONECOMBINATION*>((*out)->GetBufferPointer());
    auto* boneIds = reinterpret_cast<DWORD*>(records + count);
    for (size_t c = 0; c < count; ++c) {
        const skinblend::Combination& combination = layout.combinations[c];
        DWORD* ids = boneIds + c * slots;
        std::copy(combination.bones.begin(), combination.bones.end(), ids);
        records[c] = D3DXBONECOMBINATION{combination.attribute, combination.faceStart, combination.faceCount,
                                         combination.vertexStart, combination.vertexCount, ids};
    }
    return D3D_OK;
}

HRESULT copyToBuffer(const std::vector<uint32_t>& values, ID3DXBuffer** out)
{
    HRESULT hr = D3DXCreateBuffer(DWORD(values.size() * sizeof(DWORD)), out);
    if (SUCCEEDED(hr) && !values.empty())
        std::memcpy((*out)->GetBufferPointer(), values.data(), values.size() * sizeof(DWORD));
    return hr;
}

// Neighbours keep their edge slots; only face numbers change.
HRESULT remapAdjacency(ID3DXMesh* source, const DWORD* adjacencyIn, const BlendLayout& layout, DWORD* out)
{
    const size_t faceCount = layout.faceRemap.size();
    std::vector<DWORD> generated;
    if (!adjacencyIn) {
        generated.resize(faceCount * 3);
        HRESULT hr = source->GenerateAdjacency(0.0f, generated.data());
        if (FAILED(hr))
            return hr;
        adjacencyIn = generated.data();
    }
    std::vector<DWORD> newFace(faceCount);
    for (size_t f = 0; f < faceCount; ++f)
        newFace[layout.faceRemap[f]] = DWORD(f);
    for (size_t f = 0; f < faceCount; ++f) {
        for (int edge = 0; edge < 3; ++edge) {
            DWORD neighbour = adjacencyIn[3 * size_t(layout.faceRemap[f]) + edge];
            out[3 * f + edge] = neighbour < faceCount ? newFace[neighbour] : 0xFFFFFFFF;
        }
    }
    return D3D_OK;
}

HRESULT createBlendedMesh(ID3DXMesh* source, DWORD options, const BlendedFormat& format,
                          const BlendLayout& layout, ID3DXMesh** out)
{
    // Only mesh-creation flags; optimisation requests do not apply to a new mesh, and a
    // vertex count past 16-bit reach leaves 32-bit indices as the only option.
    DWORD meshOptions = options & 0x1FFFF & ~DWORD(D3DXMESH_VB_SHARE);
    if (layout.vertexRemap.size() > 0xFFFF)
        meshOptions |= D3DXMESH_32BIT;
    Owned<IDirect3DDevice9> device;
    HRESULT hr = source->GetDevice(device.out());
    if (FAILED(hr))
        return hr;
    return D3DXCreateMesh(DWORD(layout.faceRemap.size()), DWORD(layout.vertexRemap.size()), meshOptions,
                          format.declaration, device.get(), out);
}

HRESULT buildLayout(ID3DXSkinInfo* skin, ID3DXMesh* mesh, VertexInfluences& influences, BlendLayout& layout)
{
    if (skin->GetNumBones() == 0)
        return D3DERR_INVALIDCALL;
    std::vector<BoneWeights> bones;
    HRESULT hr = readBones(skin, bones);
    if (FAILED(hr))
        return hr;
    MeshIndices indices(mesh);
    std::vector<uint32_t> attributes;
    if (FAILED(hr = indices.result()) || FAILED(hr = readAttributes(mesh, attributes)))
        return hr;
    skinblend::MeshTopology topology;
    topology.vertexCount = mesh->GetNumVertices();
    topology.faceCount = mesh->GetNumFaces();
    topology.indices = indices.data();
    topology.attributes = attributes.data();
    Status status = skinblend::gatherInfluences(bones, topology.vertexCount, false, influences);
    if (status == Status::Ok)
        status = skinblend::buildBlendLayout(influences, topology, layout, false);
    return statusResult(status);
}

}  // namespace

HRESULT readBones(ID3DXSkinInfo* skin, std::vector<BoneWeights>& bones)
{
    bones.assign(skin->GetNumBones(), BoneWeights());
    for (DWORD b = 0; b < bones.size(); ++b) {
        DWORD count = skin->GetNumBoneInfluences(b);
        std::vector<DWORD> vertices(count);
        bones[b].weights.resize(count);
        if (!count)
            continue;
        HRESULT hr = skin->GetBoneInfluence(b, vertices.data(), bones[b].weights.data());
        if (FAILED(hr))
            return hr;
        bones[b].vertices.assign(vertices.begin(), vertices.end());
    }
    return D3D_OK;
}

HRESULT maxVertexInfluences(ID3DXSkinInfo* skin, DWORD* result)
{
    if (!result)
        return D3DERR_INVALIDCALL;
    std::vector<BoneWeights> bones;
    HRESULT hr = readBones(skin, bones);
    if (FAILED(hr))
        return hr;
    *result = skinblend::maxVertexInfluences(bones);
    return D3D_OK;
}

HRESULT maxFaceInfluences(ID3DXSkinInfo* skin, IDirect3DIndexBuffer9* indexBuffer, DWORD faceCount,
                          DWORD* result)
{
    if (!indexBuffer || !result)
        return D3DERR_INVALIDCALL;
    std::vector<uint32_t> indices;
    std::vector<BoneWeights> bones;
    HRESULT hr = readIndexBuffer(indexBuffer, faceCount, indices);
    if (FAILED(hr) || FAILED(hr = readBones(skin, bones)))
        return hr;
    // Vertices no face reaches cannot raise the count, so the indices bound the table.
    uint32_t vertexCount = indices.empty() ? 0 : *std::max_element(indices.begin(), indices.end()) + 1;
    VertexInfluences influences;
    skinblend::gatherInfluences(bones, vertexCount, true, influences);
    uint32_t most = 0;
    skinblend::maxFaceInfluences(influences, indices.data(), faceCount, most);
    *result = most;
    return D3D_OK;
}

HRESULT convertToBlendedMesh(ID3DXSkinInfo* skin, ID3DXMesh* meshIn, DWORD options,
                             const DWORD* adjacencyIn, DWORD* adjacencyOut, DWORD* faceRemap,
                             ID3DXBuffer** vertexRemap, DWORD* maxFaceInfl,
                             DWORD* boneCombinationCount, ID3DXBuffer** boneCombinationTable,
                             ID3DXMesh** meshOut)
{
    if (!meshIn || !meshOut)
        return D3DERR_INVALIDCALL;
    *meshOut = nullptr;
    VertexInfluences influences;
    BlendLayout layout;
    HRESULT hr = buildLayout(skin, meshIn, influences, layout);
    if (FAILED(hr))
        return hr;

    D3DVERTEXELEMENT9 declaration[MAX_FVF_DECL_SIZE];
    BlendedFormat format;
    if (FAILED(hr = meshIn->GetDeclaration(declaration)) ||
        FAILED(hr = blendedFormat(declaration, layout.influencesPerFace - 1, format)))
        return hr;

    Owned<ID3DXMesh> mesh;
    Owned<ID3DXBuffer> combinations, remap;
    if (FAILED(hr = createBlendedMesh(meshIn, options, format, layout, mesh.out())) ||
        FAILED(hr = fillVertices(meshIn, mesh.get(), format, influences, layout)) ||
        FAILED(hr = fillIndices(mesh.get(), layout)) || FAILED(hr = fillAttributes(mesh.get(), layout)))
        return hr;
    if (boneCombinationTable && FAILED(hr = combinationBuffer(layout, combinations.out())))
        return hr;
    if (vertexRemap && FAILED(hr = copyToBuffer(layout.vertexRemap, remap.out())))
        return hr;
    if (adjacencyOut && FAILED(hr = remapAdjacency(meshIn, adjacencyIn, layout, adjacencyOut)))
        return hr;

    if (faceRemap)
        std::copy(layout.faceRemap.begin(), layout.faceRemap.end(), faceRemap);
    if (maxFaceInfl)
        *maxFaceInfl = layout.influencesPerFace;
    if (boneCombinationCount)
        *boneCombinationCount = DWORD(layout.combinations.size());
    if (boneCombinationTable)
        *boneCombinationTable = combinations.release();
    if (vertexRemap)
        *vertexRemap = remap.release();
    *meshOut = mesh.release();
    return D3D_OK;
}

namespace {

struct WeightLayout {
    UINT offset = 0;
    UINT count = 0;  // stored weights; one more bone than that per combination
};

HRESULT findWeights(ID3DXBaseMesh* mesh, WeightLayout& out)
{
    D3DVERTEXELEMENT9 declaration[MAX_FVF_DECL_SIZE];
    HRESULT hr = mesh->GetDeclaration(declaration);
    if (FAILED(hr))
        return hr;
    for (const D3DVERTEXELEMENT9* e = declaration; e->Stream != 0xFF; ++e) {
        if (e->Usage == D3DDECLUSAGE_BLENDWEIGHT && e->UsageIndex == 0) {
            if (e->Type > D3DDECLTYPE_FLOAT4)
                return D3DERR_INVALIDCALL;
            out.offset = e->Offset;
            out.count = e->Type - D3DDECLTYPE_FLOAT1 + 1;
        }
    }
    return D3D_OK;
}

// Weights as the fixed-function pipeline reads them: stored ones up to the last used slot,
// which takes whatever remains of one.
void slotWeights(const float* stored, const DWORD* boneIds, UINT slots, float* weights)
{
    UINT last = 0;
    for (UINT i = 0; i < slots; ++i)
        if (boneIds[i] != skinblend::kUnusedBone)
            last = i;
    float sum = 0.0f;
    for (UINT i = 0; i < slots; ++i) {
        weights[i] = i < last ? stored[i] : 0.0f;
        sum += weights[i];
    }
    weights[last] = 1.0f - sum;
}

}  // namespace

HRESULT influencesFromBlendedMesh(ID3DXBaseMesh* mesh, DWORD boneCount,
                                  const D3DXBONECOMBINATION* combinations, ID3DXSkinInfo* skin)
{
    WeightLayout weights;
    DWORD combinationCount = 0;
    HRESULT hr = findWeights(mesh, weights);
    if (FAILED(hr) || FAILED(hr = mesh->GetAttributeTable(nullptr, &combinationCount)))
        return hr;
    const BYTE* vertices = nullptr;
    if (FAILED(hr = mesh->LockVertexBuffer(D3DLOCK_READONLY, reinterpret_cast<void**>(const_cast<BYTE**>(&vertices)))))
        return hr;
    const UINT stride = mesh->GetNumBytesPerVertex();
    const UINT slots = weights.count + 1;
    const DWORD vertexCount = mesh->GetNumVertices();
    std::vector<std::vector<DWORD>> boneVertices(boneCount);
    std::vector<std::vector<float>> boneWeights(boneCount);
    std::vector<float> slotWeight(slots);
    hr = D3D_OK;
    for (DWORD c = 0; c < combinationCount && SUCCEEDED(hr); ++c) {
        const D3DXBONECOMBINATION& combination = combinations[c];
        // The MinGW header spells the vertex-count field VertexCout.
        const DWORD end = combination.VertexStart + combination.VertexCout;
        if (end > vertexCount || end < combination.VertexStart || !combination.BoneId) {
            hr = D3DERR_INVALIDCALL;
            break;
        }
        for (DWORD v = combination.VertexStart; v < end && SUCCEEDED(hr); ++v) {
            slotWeights(reinterpret_cast<const float*>(vertices + size_t(v) * stride + weights.offset),
                        combination.BoneId, slots, slotWeight.data());
            for (UINT i = 0; i < slots; ++i) {
                DWORD bone = combination.BoneId[i];
                if (bone == skinblend::kUnusedBone || slotWeight[i] <= 0.0f)
                    continue;
                if (bone >= boneCount) {
                    hr = D3DERR_INVALIDCALL;
                    break;
                }
                boneVertices[bone].push_back(v);
                boneWeights[bone].push_back(slotWeight[i]);
            }
        }
    }
    mesh->UnlockVertexBuffer();
    for (DWORD b = 0; b < boneCount && SUCCEEDED(hr); ++b)
        if (!boneVertices[b].empty())
            hr = skin->SetBoneInfluence(b, DWORD(boneVertices[b].size()), boneVertices[b].data(),
                                        boneWeights[b].data());
    return hr;
}

}  // namespace skinconvert
