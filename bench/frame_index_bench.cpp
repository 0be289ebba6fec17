// Frame index build and name look-up against the plain alternatives, on generated trees.
// Prints times and ratios measured in this one run.
#include <VexilDX9/FrameNodeIndexer.h>

#include <d3dx9.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

double now() {
    static LARGE_INTEGER frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return f;
    }();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<double>(counter.QuadPart) / static_cast<double>(frequency.QuadPart);
}

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
    unsigned size() const { return static_cast<unsigned>(m_frames.size()); }

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

template <class F> double bestOf(int runs, F&& work) {
    double best = 1e30;
    for (int r = 0; r < runs; ++r) {
        double start = now();
        work();
        best = std::min(best, now() - start);
    }
    return best;
}

volatile size_t g_sink;

void measure(unsigned n) {
    GeneratedTree tree(n);
    const int runs = n >= 1000000 ? 3 : 7;

    double walk = bestOf(runs, [&] {
        std::vector<D3DXFRAME*> frames;
        collect(tree.root(), frames);
        g_sink = frames.size();
    });
    // Each run builds a fresh index; tearing the previous one down is not part of the time.
    double build = 1e30;
    bool ok = true;
    for (int r = 0; r < runs; ++r) {
        FrameNodeIndexer* fresh = new FrameNodeIndexer;
        double start = now();
        ok = fresh->initialize(tree.root()) && ok;
        build = std::min(build, now() - start);
        delete fresh;
    }
    FrameNodeIndexer index;
    ok = index.initialize(tree.root()) && ok;
    if (!ok || index.size() != n) std::printf("  index build failed for %u frames\n", n);

    // Names spread over the whole tree; D3DXFrameFind walks it, so it gets fewer of them.
    const unsigned lookups = 20000;
    const unsigned finds = std::max(10u, 2000000u / n);
    std::vector<zeb::String> keys;
    std::vector<const char*> rawKeys;
    for (unsigned i = 0; i < lookups; ++i) {
        unsigned k = static_cast<unsigned>((static_cast<unsigned long long>(i) * 2654435761u) % n);
        keys.push_back(zeb::String(tree.name(k).c_str()));
        rawKeys.push_back(tree.name(k).c_str());
    }
    double byName = bestOf(3, [&] {
        size_t sum = 0;
        for (const zeb::String& key : keys) sum += reinterpret_cast<size_t>(index.frameByName(key).m_frame);
        g_sink = sum;
    }) / lookups;
    double frameFind = bestOf(1, [&] {
        size_t sum = 0;
        for (unsigned i = 0; i < finds; ++i) sum += reinterpret_cast<size_t>(D3DXFrameFind(tree.root(), rawKeys[i]));
        g_sink = sum;
    }) / finds;

    // Where the build time goes: one name-index insertion and one node append per frame.
    double indexPart = bestOf(1, [&] {
        zeb::OrderedHashTable<zeb::String, unsigned int> names;
        for (unsigned i = 0; i < n; ++i) names.insert(zeb::String(tree.name(i).c_str()), i);
    });
    double nodePart = bestOf(1, [&] {
        zeb::Array<FrameNode> nodes;
        nodes.reserve(n);
        const FrameNode node;
        for (unsigned i = 0; i < n; ++i) nodes.append(node);
    });

    std::printf("%9u frames | walk %9.3f ms | initialize %9.3f ms (%6.2f ns/frame) | ratio %6.2fx | "
                "frameByName %8.1f ns | D3DXFrameFind %12.1f ns | find/byName %10.1fx\n",
                n, walk * 1e3, build * 1e3, build * 1e9 / n, build / walk, byName * 1e9, frameFind * 1e9,
                frameFind / byName);
    std::printf("%9s        | of which, measured alone: name-index insert %6.1f ns/frame, node append+free %6.1f ns/frame\n",
                "", indexPart * 1e9 / n, nodePart * 1e9 / n);
    index.clear();
}

}  // namespace

int main() {
    std::printf("FrameNodeIndexer::initialize vs a recursive walk collecting frame pointers (best of several runs);\n"
                "frameByName vs D3DXFrameFind per look-up.\n");
    for (unsigned n : {10000u, 100000u, 1000000u}) measure(n);
    return 0;
}
