// D3DXConcatenateMeshes, a stub of the system D3DX: the meshes one after another in one new
// mesh, each optionally moved by its geometry matrix and its texture coordinates by its texture
// matrix, the attributes of the faces kept. Without a declaration from the caller the new mesh's vertices carry every element any
// input has; an element whose type differs between inputs becomes FLOATn wide enough for all.
#include <d3dx9.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

struct MeshLock {
    ID3DXMesh* mesh;
    BYTE* vertices = nullptr;
    void* indices = nullptr;
    DWORD* attributes = nullptr;
    HRESULT result;
    MeshLock(ID3DXMesh* m, DWORD flags) : mesh(m)
    {
        result = mesh->LockVertexBuffer(flags, reinterpret_cast<void**>(&vertices));
        if (SUCCEEDED(result))
            result = mesh->LockIndexBuffer(flags, &indices);
        if (SUCCEEDED(result))
            result = mesh->LockAttributeBuffer(flags, &attributes);
    }
    ~MeshLock()
    {
        if (attributes)
            mesh->UnlockAttributeBuffer();
        if (indices)
            mesh->UnlockIndexBuffer();
        if (vertices)
            mesh->UnlockVertexBuffer();
    }
    bool wide() const { return mesh->GetOptions() & D3DXMESH_32BIT; }
    DWORD index(DWORD i) const { return wide() ? static_cast<DWORD*>(indices)[i] : static_cast<WORD*>(indices)[i]; }
};

int componentsOf(BYTE type)
{
    switch (type) {
    case D3DDECLTYPE_FLOAT1:
        return 1;
    case D3DDECLTYPE_FLOAT2:
    case D3DDECLTYPE_SHORT2:
    case D3DDECLTYPE_SHORT2N:
    case D3DDECLTYPE_USHORT2N:
    case D3DDECLTYPE_FLOAT16_2:
        return 2;
    case D3DDECLTYPE_FLOAT3:
        return 3;
    default:
        return 4;
    }
}

bool decodable(BYTE type)
{
    return type <= D3DDECLTYPE_USHORT4N || type == D3DDECLTYPE_FLOAT16_2 || type == D3DDECLTYPE_FLOAT16_4;
}

// One element as four floats, the missing ones 0, 0, 0, 1 as the pipeline fills them in.
D3DXVECTOR4 decode(const BYTE* at, BYTE type)
{
    float v[4] = {0, 0, 0, 1};
    const int n = componentsOf(type);
    for (int i = 0; i < n; ++i) {
        switch (type) {
        case D3DDECLTYPE_D3DCOLOR:  // stored B, G, R, A; read as R, G, B, A
            v[i] = at[i == 3 ? 3 : 2 - i] / 255.0f;
            break;
        case D3DDECLTYPE_UBYTE4:
            v[i] = at[i];
            break;
        case D3DDECLTYPE_UBYTE4N:
            v[i] = at[i] / 255.0f;
            break;
        case D3DDECLTYPE_SHORT2:
        case D3DDECLTYPE_SHORT4:
        case D3DDECLTYPE_SHORT2N:
        case D3DDECLTYPE_SHORT4N: {
            short s;
            std::memcpy(&s, at + 2 * i, 2);
            v[i] = (type == D3DDECLTYPE_SHORT2N || type == D3DDECLTYPE_SHORT4N) ? std::max(s / 32767.0f, -1.0f) : s;
            break;
        }
        case D3DDECLTYPE_USHORT2N:
        case D3DDECLTYPE_USHORT4N: {
            WORD w;
            std::memcpy(&w, at + 2 * i, 2);
            v[i] = w / 65535.0f;
            break;
        }
        case D3DDECLTYPE_FLOAT16_2:
        case D3DDECLTYPE_FLOAT16_4:
            D3DXFloat16To32Array(&v[i], reinterpret_cast<const D3DXFLOAT16*>(at + 2 * i), 1);
            break;
        default:
            std::memcpy(&v[i], at + 4 * i, 4);
        }
    }
    return D3DXVECTOR4(v[0], v[1], v[2], v[3]);
}

template <class T>
void put(BYTE* at, int i, T value)
{
    std::memcpy(at + sizeof(T) * i, &value, sizeof(T));
}

BYTE unitByte(float value)
{
    return BYTE(std::min(std::max(value, 0.0f), 1.0f) * 255.0f + 0.5f);
}

void encode(BYTE* at, BYTE type, const D3DXVECTOR4& value)
{
    const float v[4] = {value.x, value.y, value.z, value.w};
    for (int i = 0; i < componentsOf(type); ++i) {
        switch (type) {
        case D3DDECLTYPE_D3DCOLOR:
            at[i == 3 ? 3 : 2 - i] = unitByte(v[i]);
            break;
        case D3DDECLTYPE_UBYTE4:
            at[i] = BYTE(std::min(std::max(v[i], 0.0f), 255.0f));
            break;
        case D3DDECLTYPE_UBYTE4N:
            at[i] = unitByte(v[i]);
            break;
        case D3DDECLTYPE_SHORT2:
        case D3DDECLTYPE_SHORT4:
            put(at, i, short(std::min(std::max(v[i], -32768.0f), 32767.0f)));
            break;
        case D3DDECLTYPE_SHORT2N:
        case D3DDECLTYPE_SHORT4N:
            put(at, i, short(std::min(std::max(v[i], -1.0f), 1.0f) * 32767.0f));
            break;
        case D3DDECLTYPE_USHORT2N:
        case D3DDECLTYPE_USHORT4N:
            put(at, i, WORD(std::min(std::max(v[i], 0.0f), 1.0f) * 65535.0f));
            break;
        case D3DDECLTYPE_FLOAT16_2:
        case D3DDECLTYPE_FLOAT16_4:
            D3DXFloat32To16Array(reinterpret_cast<D3DXFLOAT16*>(at + 2 * i), &v[i], 1);
            break;
        default:
            put(at, i, v[i]);
        }
    }
}

std::vector<D3DVERTEXELEMENT9> declarationOf(ID3DXMesh* mesh)
{
    D3DVERTEXELEMENT9 elements[MAX_FVF_DECL_SIZE];
    std::vector<D3DVERTEXELEMENT9> out;
    if (SUCCEEDED(mesh->GetDeclaration(elements))) {
        for (const D3DVERTEXELEMENT9* e = elements; e->Stream != 0xFF; ++e)
            out.push_back(*e);
    }
    return out;
}

const D3DVERTEXELEMENT9* matching(const std::vector<D3DVERTEXELEMENT9>& elements, const D3DVERTEXELEMENT9& wanted)
{
    for (const D3DVERTEXELEMENT9& e : elements) {
        if (e.Usage == wanted.Usage && e.UsageIndex == wanted.UsageIndex)
            return &e;
    }
    return nullptr;
}

BYTE sizeOf(BYTE type)
{
    static const BYTE sizes[] = {4, 8, 12, 16, 4, 4, 4, 8, 4, 4, 8, 4, 8, 4, 4, 4, 8};
    return type < sizeof sizes ? sizes[type] : 0;
}

// Every element of every input, in the order first met, packed into stream 0.
std::vector<D3DVERTEXELEMENT9> unionOf(ID3DXMesh* const* meshes, UINT count)
{
    std::vector<D3DVERTEXELEMENT9> out;
    for (UINT m = 0; m < count; ++m) {
        for (const D3DVERTEXELEMENT9& e : declarationOf(meshes[m])) {
            D3DVERTEXELEMENT9* known = const_cast<D3DVERTEXELEMENT9*>(matching(out, e));
            if (!known)
                out.push_back(e);
            else if (known->Type != e.Type)
                known->Type = BYTE(D3DDECLTYPE_FLOAT1 + std::max(componentsOf(known->Type), componentsOf(e.Type)) - 1);
        }
    }
    WORD offset = 0;
    for (D3DVERTEXELEMENT9& e : out) {
        e.Stream = 0;
        e.Offset = offset;
        offset = WORD(offset + sizeOf(e.Type));
    }
    out.push_back(D3DVERTEXELEMENT9 D3DDECL_END());
    return out;
}

struct Transforms {
    const D3DXMATRIX* geometry;
    D3DXMATRIX normals;  // inverse transpose of the geometry matrix
    const D3DXMATRIX* texture;
};

// Positions by the geometry matrix, normals, tangents and binormals by its inverse transpose (then
// made unit length again), texture coordinates by the texture matrix.
D3DXVECTOR4 transformed(const D3DXVECTOR4& v, const D3DVERTEXELEMENT9& element, const Transforms& t)
{
    D3DXVECTOR3 xyz(v.x, v.y, v.z), moved;
    const BYTE usage = element.Usage;
    if (t.geometry && usage == D3DDECLUSAGE_POSITION) {
        D3DXVec3TransformCoord(&moved, &xyz, t.geometry);
    } else if (t.geometry && (usage == D3DDECLUSAGE_NORMAL || usage == D3DDECLUSAGE_TANGENT ||
                              usage == D3DDECLUSAGE_BINORMAL)) {
        D3DXVec3Normalize(&moved, D3DXVec3TransformNormal(&moved, &xyz, &t.normals));
    } else if (t.texture && usage == D3DDECLUSAGE_TEXCOORD) {
        if (componentsOf(element.Type) < 3)
            xyz.z = 0;
        D3DXVec3TransformCoord(&moved, &xyz, t.texture);
    } else {
        return v;
    }
    return D3DXVECTOR4(moved.x, moved.y, moved.z, v.w);
}

void copyVertex(const BYTE* from, const std::vector<D3DVERTEXELEMENT9>& fromElements, BYTE* to,
                const std::vector<D3DVERTEXELEMENT9>& toElements, const Transforms& t)
{
    for (const D3DVERTEXELEMENT9& target : toElements) {
        if (target.Stream == 0xFF)
            break;
        const D3DVERTEXELEMENT9* source = matching(fromElements, target);
        if (!source)
            continue;  // left zero
        if (decodable(source->Type) && decodable(target.Type))
            encode(to + target.Offset, target.Type, transformed(decode(from + source->Offset, source->Type), target, t));
        else if (source->Type == target.Type)
            std::memcpy(to + target.Offset, from + source->Offset, sizeOf(target.Type));
    }
}

// The attribute table of the joined faces: one range per run of faces of one attribute, when no
// attribute comes in two runs; else none (ID3DXMesh::Optimize with D3DXMESHOPT_ATTRSORT makes one).
std::vector<D3DXATTRIBUTERANGE> attributeTableOf(const MeshLock& mesh)
{
    std::vector<D3DXATTRIBUTERANGE> table;
    std::vector<DWORD> highest;  // vertex of each range
    for (DWORD face = 0; face < mesh.mesh->GetNumFaces(); ++face) {
        const DWORD id = mesh.attributes[face];
        if (table.empty() || table.back().AttribId != id) {
            if (std::any_of(table.begin(), table.end(), [&](const D3DXATTRIBUTERANGE& r) { return r.AttribId == id; }))
                return {};
            table.push_back({id, face, 0, ~DWORD(0), 0});
            highest.push_back(0);
        }
        ++table.back().FaceCount;
        for (DWORD corner = 0; corner < 3; ++corner) {
            const DWORD vertex = mesh.index(3 * face + corner);
            table.back().VertexStart = std::min(table.back().VertexStart, vertex);
            highest.back() = std::max(highest.back(), vertex);
        }
    }
    for (size_t r = 0; r < table.size(); ++r)
        table[r].VertexCount = highest[r] - table[r].VertexStart + 1;
    return table;
}

HRESULT fill(ID3DXMesh* const* meshes, UINT count, const D3DXMATRIX* geometry, const D3DXMATRIX* texture,
             const std::vector<D3DVERTEXELEMENT9>& elements, ID3DXMesh* out)
{
    MeshLock target(out, 0);
    if (FAILED(target.result))
        return target.result;
    const DWORD stride = out->GetNumBytesPerVertex();
    std::memset(target.vertices, 0, size_t(stride) * out->GetNumVertices());
    DWORD vertexBase = 0, faceBase = 0;
    for (UINT m = 0; m < count; ++m) {
        ID3DXMesh* mesh = meshes[m];
        MeshLock source(mesh, D3DLOCK_READONLY);
        if (FAILED(source.result))
            return source.result;
        Transforms t{geometry ? &geometry[m] : nullptr, {}, texture ? &texture[m] : nullptr};
        if (t.geometry && D3DXMatrixInverse(&t.normals, nullptr, t.geometry))
            D3DXMatrixTranspose(&t.normals, &t.normals);
        else if (t.geometry)
            t.normals = *t.geometry;
        const std::vector<D3DVERTEXELEMENT9> sourceElements = declarationOf(mesh);
        for (DWORD v = 0; v < mesh->GetNumVertices(); ++v)
            copyVertex(source.vertices + v * mesh->GetNumBytesPerVertex(), sourceElements,
                       target.vertices + (vertexBase + v) * stride, elements, t);
        for (DWORD i = 0; i < 3 * mesh->GetNumFaces(); ++i) {
            const DWORD index = vertexBase + source.index(i);
            if (target.wide())
                static_cast<DWORD*>(target.indices)[3 * faceBase + i] = index;
            else
                static_cast<WORD*>(target.indices)[3 * faceBase + i] = WORD(index);
        }
        std::copy(source.attributes, source.attributes + mesh->GetNumFaces(), target.attributes + faceBase);
        vertexBase += mesh->GetNumVertices();
        faceBase += mesh->GetNumFaces();
    }
    const std::vector<D3DXATTRIBUTERANGE> table = attributeTableOf(target);
    return table.empty() ? D3D_OK : out->SetAttributeTable(table.data(), DWORD(table.size()));
}

}  // namespace

extern "C" HRESULT WINAPI D3DXConcatenateMeshes(ID3DXMesh** meshes, UINT count, DWORD options,
                                                const D3DXMATRIX* geometry, const D3DXMATRIX* texture,
                                                const D3DVERTEXELEMENT9* declaration, IDirect3DDevice9* device,
                                                ID3DXMesh** out)
{
    if (!meshes || !count || !device || !out || std::find(meshes, meshes + count, nullptr) != meshes + count)
        return D3DERR_INVALIDCALL;
    std::vector<D3DVERTEXELEMENT9> elements;
    if (declaration) {
        for (const D3DVERTEXELEMENT9* e = declaration; e->Stream != 0xFF; ++e)
            elements.push_back(*e);
        elements.push_back(D3DVERTEXELEMENT9 D3DDECL_END());
    } else {
        elements = unionOf(meshes, count);
    }
    DWORD faces = 0, vertices = 0;
    for (UINT m = 0; m < count; ++m) {
        faces += meshes[m]->GetNumFaces();
        vertices += meshes[m]->GetNumVertices();
    }
    if (vertices > 0x10000 && !(options & D3DXMESH_32BIT))
        return D3DERR_INVALIDCALL;  // 16-bit indices cannot reach them all
    ID3DXMesh* mesh = nullptr;
    HRESULT hr = D3DXCreateMesh(faces, vertices, options, elements.data(), device, &mesh);
    if (SUCCEEDED(hr))
        hr = fill(meshes, count, geometry, texture, elements, mesh);
    if (FAILED(hr) && mesh) {
        mesh->Release();
        mesh = nullptr;
    }
    *out = mesh;
    return hr;
}
