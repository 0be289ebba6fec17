#include "SceneSupport.h"

#include <TestPaths.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace scenetest {

// ---- AllocationSpy ------------------------------------------------------------------------

AllocationSpy::AllocationSpy() { m_registered = SUCCEEDED(CoRegisterMallocSpy(this)); }

AllocationSpy::~AllocationSpy() {
    if (m_registered) CoRevokeMallocSpy();
}

HRESULT AllocationSpy::QueryInterface(REFIID riid, void** object) {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMallocSpy)) {
        *object = static_cast<IMallocSpy*>(this);
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

SIZE_T AllocationSpy::PreAlloc(SIZE_T request) {
    ++m_allocations;
    if (m_failAt && m_allocations == m_failAt) return 0;
    m_pending = request;
    return request;
}

void* AllocationSpy::PostAlloc(void* actual) {
    if (actual) {
        m_live[actual] = m_pending;
        m_liveBytes += static_cast<long long>(m_pending);
    }
    return actual;
}

void* AllocationSpy::PreFree(void* request, BOOL) {
    auto found = m_live.find(request);
    if (found != m_live.end()) {
        m_liveBytes -= static_cast<long long>(found->second);
        m_live.erase(found);
    }
    return request;
}

SIZE_T AllocationSpy::PreRealloc(void* request, SIZE_T size, void** newRequest, BOOL spyed) {
    PreFree(request, spyed);
    *newRequest = request;
    m_pending = size;
    return size;
}

void* AllocationSpy::PostRealloc(void* actual, BOOL) { return PostAlloc(actual); }

// ---- X text -------------------------------------------------------------------------------

std::string xHeader() {
    return "xof 0303txt 0032\n"
           "template XSkinMeshHeader {\n <3cf169ce-ff7c-44ab-93c0-f78f62d172e2>\n"
           " WORD nMaxSkinWeightsPerVertex;\n WORD nMaxSkinWeightsPerFace;\n WORD nBones;\n}\n"
           "template SkinWeights {\n <6f0d123b-bad2-4167-a0d0-80224f25fabb>\n"
           " STRING transformNodeName;\n DWORD nWeights;\n array DWORD vertexIndices[nWeights];\n"
           " array FLOAT weights[nWeights];\n Matrix4x4 matrixOffset;\n}\n";
}

std::string frame(const std::string& name, const std::string& body) {
    return "Frame " + name + (name.empty() ? "" : " ") + "{\n" + body + "}\n";
}

namespace {
std::string number(float value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.6f", value);
    return buffer;
}
}  // namespace

std::string translation(float x, float y, float z) {
    return "FrameTransformMatrix {\n 1.0,0.0,0.0,0.0, 0.0,1.0,0.0,0.0, 0.0,0.0,1.0,0.0, " + number(x) + "," +
           number(y) + "," + number(z) + ",1.0;;\n}\n";
}

std::string quadMesh(const std::string& name, const std::string& materials, const std::string& extra) {
    return "Mesh " + name + (name.empty() ? "" : " ") +
           "{\n 4;\n 0.0;0.0;0.0;,\n 1.0;0.0;0.0;,\n 1.0;1.0;0.0;,\n 0.0;1.0;0.0;;\n"
           " 2;\n 3;0,1,2;,\n 3;0,2,3;;\n" +
           materials + extra + "}\n";
}

std::string material(float r, float g, float b, float a, float power, const std::string& textureFile) {
    std::string text = "Material {\n " + number(r) + ";" + number(g) + ";" + number(b) + ";" + number(a) + ";;\n " +
                       number(power) + ";\n 0.25;0.5;0.75;;\n 0.1;0.2;0.3;;\n";
    if (!textureFile.empty()) text += " TextureFilename {\n  \"" + textureFile + "\";\n }\n";
    return text + "}\n";
}

std::string materialList(const std::vector<std::string>& materials, unsigned face0, unsigned face1) {
    std::string text = "MeshMaterialList {\n " + std::to_string(materials.size()) + ";\n 2;\n " +
                       std::to_string(face0) + ",\n " + std::to_string(face1) + ";;\n";
    for (const std::string& m : materials) text += m;
    return text + "}\n";
}

std::string skinHeader(unsigned bones) {
    return "XSkinMeshHeader {\n 2;\n 2;\n " + std::to_string(bones) + ";\n}\n";
}

std::string skinWeights(const std::string& bone, const std::vector<unsigned>& vertices) {
    std::string text = "SkinWeights {\n \"" + bone + "\";\n " + std::to_string(vertices.size()) + ";\n ";
    for (size_t i = 0; i < vertices.size(); ++i) text += std::to_string(vertices[i]) + (i + 1 < vertices.size() ? "," : ";\n ");
    for (size_t i = 0; i < vertices.size(); ++i) text += std::string("1.0") + (i + 1 < vertices.size() ? "," : ";\n ");
    return text + "1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;;\n}\n";
}

std::string writeFixture(const std::string& fileName, const std::string& text) {
    std::string path = vexiltest::outputDir() + "\\" + fileName;
    std::ofstream out(path, std::ios::binary);
    out << text;
    return path;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// ---- Loading ------------------------------------------------------------------------------

namespace {
std::wstring wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }
}  // namespace

LoadedHierarchy::LoadedHierarchy(IDirect3DDevice9* device, const std::string& path, SceneLoaderX& loader)
    : m_loader(loader) {
    m_result = D3DXLoadMeshHierarchyFromXW(wide(path).c_str(), D3DXMESH_MANAGED, device, &loader, nullptr, &m_root,
                                           &m_animation);
}

LoadedHierarchy::~LoadedHierarchy() { destroy(); }

HRESULT LoadedHierarchy::destroy() {
    if (m_animation) m_animation->Release();
    m_animation = nullptr;
    HRESULT hr = S_OK;
    if (m_root) hr = D3DXFrameDestroy(m_root, &m_loader);
    m_root = nullptr;
    return hr;
}

D3DXFRAME* findFrame(D3DXFRAME* root, const char* name) { return D3DXFrameFind(root, name); }

std::vector<D3DXMESHCONTAINER*> containersOf(const D3DXFRAME* frame) {
    std::vector<D3DXMESHCONTAINER*> result;
    for (D3DXMESHCONTAINER* c = frame->pMeshContainer; c; c = c->pNextMeshContainer) result.push_back(c);
    return result;
}

std::vector<D3DXFRAME*> framesPreOrder(D3DXFRAME* root) {
    std::vector<D3DXFRAME*> result;
    std::function<void(D3DXFRAME*)> visit = [&](D3DXFRAME* f) {
        for (; f; f = f->pFrameSibling) {
            result.push_back(f);
            visit(f->pFrameFirstChild);
        }
    };
    visit(root);
    return result;
}

void PrintTo(const FrameRow& row, std::ostream* out) {
    *out << "{" << row.name << ", " << static_cast<int>(row.parent) << "}";
}

std::vector<FrameRow> tableOf(const FrameNodeIndexer& index) {
    std::vector<FrameRow> rows;
    for (unsigned i = 0; i < index.size(); ++i) {
        const FrameNode& node = index[static_cast<int>(i)];
        rows.push_back({node.m_frame->Name ? node.m_frame->Name : "", node.m_parentIndex});
    }
    return rows;
}

// ---- Expected tables from X text ----------------------------------------------------------

namespace {

// Words and braces of X text; strings, comments and numbers are dropped.
std::vector<std::string> xTokens(const std::string& text) {
    std::vector<std::string> tokens;
    size_t i = 0;
    while (i < text.size()) {
        char c = text[i];
        if (c == '"') {
            i = text.find('"', i + 1);
            i = i == std::string::npos ? text.size() : i + 1;
        } else if (c == '#' || (c == '/' && i + 1 < text.size() && text[i + 1] == '/')) {
            i = text.find('\n', i);
            if (i == std::string::npos) i = text.size();
        } else if (c == '<') {
            i = text.find('>', i);
            i = i == std::string::npos ? text.size() : i + 1;
        } else if (c == '{' || c == '}') {
            tokens.push_back(std::string(1, c));
            ++i;
        } else if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
            size_t start = i;
            while (i < text.size() && (std::isalnum(static_cast<unsigned char>(text[i])) || text[i] == '_' ||
                                       text[i] == '-' || text[i] == '.'))
                ++i;
            tokens.push_back(text.substr(start, i - start));
        } else {
            ++i;
        }
    }
    return tokens;
}

struct ParsedFrame {
    std::string name;
    std::vector<size_t> children;
};

}  // namespace

std::vector<FrameRow> expectedTableFromText(const std::string& text, const std::string& prefix, unsigned firstNumber) {
    std::vector<std::string> tokens = xTokens(text);
    std::vector<ParsedFrame> frames;
    std::vector<size_t> topLevel;
    std::vector<long> open;  // frame index per open brace, -1 for other blocks
    unsigned nameless = firstNumber;
    for (size_t i = 0; i < tokens.size(); ++i) {
        if (tokens[i] == "}") {
            if (!open.empty()) open.pop_back();
            continue;
        }
        if (tokens[i] != "{") continue;
        bool isFrame = false;
        std::string name;
        if (i >= 1 && tokens[i - 1] == "Frame" && (i < 2 || tokens[i - 2] != "template")) {
            isFrame = true;
        } else if (i >= 2 && tokens[i - 2] == "Frame" && (i < 3 || tokens[i - 3] != "template")) {
            isFrame = true;
            name = tokens[i - 1];
        }
        if (!isFrame) {
            open.push_back(-1);
            continue;
        }
        if (name.empty()) name = prefix + std::to_string(nameless++);
        frames.push_back({name, {}});
        long parent = -1;
        for (auto it = open.rbegin(); it != open.rend(); ++it)
            if (*it >= 0) {
                parent = *it;
                break;
            }
        if (parent < 0) topLevel.push_back(frames.size() - 1);
        else frames[static_cast<size_t>(parent)].children.push_back(frames.size() - 1);
        open.push_back(static_cast<long>(frames.size() - 1));
    }
    std::vector<FrameRow> rows;
    std::vector<size_t> order;
    for (size_t f : topLevel) {
        order.push_back(f);
        rows.push_back({frames[f].name, 0xFFFFFFFFu});
    }
    for (size_t i = 0; i < order.size(); ++i)
        for (size_t child : frames[order[i]].children) {
            order.push_back(child);
            rows.push_back({frames[child].name, static_cast<unsigned>(i)});
        }
    return rows;
}

// ---- Invariants ---------------------------------------------------------------------------

::testing::AssertionResult indexInvariantsHold(const FrameNodeIndexer& index, D3DXFRAME* root) {
    const unsigned n = index.size();
    if (n == 0) return ::testing::AssertionFailure() << "empty table";
    std::vector<D3DXFRAME*> treeFrames = framesPreOrder(root);
    if (treeFrames.size() != n)
        return ::testing::AssertionFailure() << "table has " << n << " nodes, tree " << treeFrames.size();
    std::set<D3DXFRAME*> seen;
    unsigned lastParent = 0;
    for (unsigned i = 0; i < n; ++i) {
        const FrameNode& node = index[static_cast<int>(i)];
        if (!node.m_frame) return ::testing::AssertionFailure() << "node " << i << " has no frame";
        if (!seen.insert(node.m_frame).second) return ::testing::AssertionFailure() << "frame twice at " << i;
        if (node.m_parentIndex == FrameNode::noParent) {
            if (i > 0 && index[static_cast<int>(i - 1)].m_parentIndex != FrameNode::noParent)
                return ::testing::AssertionFailure() << "top-level node " << i << " after a child";
            continue;
        }
        if (node.m_parentIndex >= i)
            return ::testing::AssertionFailure() << "node " << i << " before its parent " << node.m_parentIndex;
        if (node.m_parentIndex < lastParent)
            return ::testing::AssertionFailure() << "node " << i << " breaks breadth-first order";
        lastParent = node.m_parentIndex;
    }
    // Each parent's children: one run, in sibling-chain order, starting with the first child.
    std::map<unsigned, std::vector<D3DXFRAME*>> children;
    std::vector<D3DXFRAME*> top;
    for (unsigned i = 0; i < n; ++i) {
        const FrameNode& node = index[static_cast<int>(i)];
        if (node.m_parentIndex == FrameNode::noParent) top.push_back(node.m_frame);
        else children[node.m_parentIndex].push_back(node.m_frame);
    }
    std::vector<D3DXFRAME*> chain;
    for (D3DXFRAME* f = root; f; f = f->pFrameSibling) chain.push_back(f);
    if (chain != top) return ::testing::AssertionFailure() << "top level differs from the root's sibling chain";
    for (unsigned i = 0; i < n; ++i) {
        chain.clear();
        for (D3DXFRAME* f = index[static_cast<int>(i)].m_frame->pFrameFirstChild; f; f = f->pFrameSibling)
            chain.push_back(f);
        if (chain != children[i]) return ::testing::AssertionFailure() << "children of node " << i << " differ";
    }
    // Name index: one key per distinct name, pointing at its first occurrence.
    std::map<std::string, unsigned> first;
    for (unsigned i = 0; i < n; ++i) first.emplace(index[static_cast<int>(i)].m_frame->Name, i);
    const auto& names = index.frameListIndex();
    if (names.size() != first.size())
        return ::testing::AssertionFailure() << names.size() << " index keys for " << first.size() << " names";
    for (const auto& entry : first) {
        const unsigned* found = names.find(zeb::String(entry.first.c_str()));
        unsigned position = found ? *found : FrameNode::noParent;
        if (position != entry.second)
            return ::testing::AssertionFailure() << "name " << entry.first << " indexed at " << position
                                                 << ", first at " << entry.second;
    }
    return ::testing::AssertionSuccess();
}

}  // namespace scenetest
