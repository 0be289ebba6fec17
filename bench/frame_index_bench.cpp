// Frame index build and name look-up against the plain alternatives, on generated trees:
// FrameNodeIndexer::initialize against a recursive walk that only collects frame pointers, and
// against the obvious standard-library index (a vector of nodes and an unordered_map from name to
// position, filled by the same breadth-first walk).
#include <VexilDX9/FrameNodeIndexer.h>

#include "BenchTimer.h"

#include <d3dx9.h>

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

volatile size_t g_sink;

// A tree of n frames, four children per frame, filled level by level.
class GeneratedTree {
public:
    explicit GeneratedTree(unsigned n) : m_frames(n), m_names(n) {
        for (unsigned i = 0; i < n; ++i) {
            m_names[i] = "frame_" + std::to_string(i);
            m_frames[i] = D3DXFRAME();
            m_frames[i].Name = &m_names[i][0];
            D3DXMatrixIdentity(&m_frames[i].TransformationMatrix);
        }
        for (unsigned i = 1; i < n; ++i) {
            D3DXFRAME& parent = m_frames[(i - 1) / 4];
            // Children are pushed at the front of the chain; order does not matter here.
            m_frames[i].pFrameSibling = parent.pFrameFirstChild;
            parent.pFrameFirstChild = &m_frames[i];
        }
    }
    D3DXFRAME* root() { return &m_frames[0]; }
    const std::string& name(unsigned i) const { return m_names[i]; }

private:
    std::vector<D3DXFRAME> m_frames;
    std::vector<std::string> m_names;
};

void collect(D3DXFRAME* frame, std::vector<D3DXFRAME*>& out) {
    for (; frame; frame = frame->pFrameSibling) {
        out.push_back(frame);
        collect(frame->pFrameFirstChild, out);
    }
}

// The same table and index built from standard containers.
struct PlainIndex {
    struct Node {
        bool render = true;
        D3DXFRAME* frame = nullptr;
        unsigned parent = 0xFFFFFFFFu;
        D3DXMATRIX combined, inverse, inverseTranspose;
        std::vector<void*> textures;
    };
    std::vector<Node> nodes;
    std::unordered_map<std::wstring, unsigned> byName;

    void build(D3DXFRAME* root) {
        for (D3DXFRAME* f = root; f; f = f->pFrameSibling) append(f, 0xFFFFFFFFu);
        for (size_t i = 0; i < nodes.size(); ++i)
            for (D3DXFRAME* child = nodes[i].frame->pFrameFirstChild; child; child = child->pFrameSibling)
                append(child, static_cast<unsigned>(i));
        for (size_t i = 0; i < nodes.size(); ++i) {
            const char* name = nodes[i].frame->Name;
            byName.emplace(std::wstring(name, name + std::char_traits<char>::length(name)), static_cast<unsigned>(i));
        }
    }
    void append(D3DXFRAME* frame, unsigned parent) {
        nodes.emplace_back();
        nodes.back().frame = frame;
        nodes.back().parent = parent;
        D3DXMatrixIdentity(&nodes.back().combined);
    }
};

// Fastest build of `runs`, each into a fresh object; tearing the object down is not timed.
template <class Index, class Build> double bestBuild(int runs, Build build) {
    double best = 1e30;
    for (int r = 0; r < runs; ++r) {
        Index* fresh = new Index;
        best = std::min(best, vexilbench::bestOf(1, [&] { build(*fresh); }));
        delete fresh;
    }
    return best;
}

// Per-frame build time, for the linearity row.
double measure(unsigned n, GeneratedTree& tree) {
    const int runs = n >= 1000000 ? 3 : 7;
    double walk = vexilbench::bestOf(runs, [&] {
        std::vector<D3DXFRAME*> frames;
        collect(tree.root(), frames);
        g_sink = frames.size();
    });
    bool ok = true;
    double ours = bestBuild<FrameNodeIndexer>(runs, [&](FrameNodeIndexer& index) {
        ok = index.initialize(tree.root()) && index.size() == n && ok;
    });
    double plain = bestBuild<PlainIndex>(runs, [&](PlainIndex& index) { index.build(tree.root()); });
    std::string what = "FrameNodeIndexer::initialize, " + std::to_string(n / 1000) + "k frames";
    if (!ok) {
        vexilbench::note(what.c_str(), "FAILED: the index is incomplete");
        return 0;
    }
    vexilbench::report(what.c_str(), ours, walk, "recursive pointer walk", 10.0);
    vexilbench::report(what.c_str(), ours, plain, "vector + unordered_map<wstring>", 1.5);
    return ours / n;
}

void measureLookup(unsigned n, GeneratedTree& tree) {
    FrameNodeIndexer index;
    index.initialize(tree.root());
    // Names spread over the whole tree; D3DXFrameFind walks it, so it gets fewer of them.
    const unsigned lookups = 20000, finds = 20;
    std::vector<zeb::String> keys;
    for (unsigned i = 0; i < lookups; ++i)
        keys.push_back(zeb::String(tree.name(static_cast<unsigned>((i * 2654435761ull) % n)).c_str()));
    double byName = vexilbench::bestOf(3, [&] {
        size_t sum = 0;
        for (const zeb::String& key : keys) sum += reinterpret_cast<size_t>(index.frameByName(key).m_frame);
        g_sink = sum;
    }) / lookups;
    double frameFind = vexilbench::bestOf(1, [&] {
        size_t sum = 0;
        for (unsigned i = 0; i < finds; ++i) sum += reinterpret_cast<size_t>(D3DXFrameFind(tree.root(), tree.name(i * 4999 % n).c_str()));
        g_sink = sum;
    }) / finds;
    std::string what = "frameByName, " + std::to_string(n / 1000) + "k frames";
    vexilbench::report(what.c_str(), byName, frameFind, "D3DXFrameFind", 1.0);
}

}  // namespace

int main() {
    double perFrame10k = 0, perFrame1M = 0;
    for (unsigned n : {10000u, 100000u, 1000000u}) {
        GeneratedTree tree(n);
        double perFrame = measure(n, tree);
        if (n == 10000u) perFrame10k = perFrame;
        if (n == 1000000u) perFrame1M = perFrame;
        if (n == 100000u) measureLookup(n, tree);
    }
    if (perFrame10k > 0 && perFrame1M > 0)
        vexilbench::report("initialize per frame, 1M vs 10k frames", perFrame1M, perFrame10k, "per frame at 10k", 1.5);
    return 0;
}
