#include <VexilDX9/FrameNodeIndexer.h>
#include <zeb/Logger.h>


ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

namespace {

struct BreadthFirstEntry {
    D3DXFRAME* frame;
    unsigned int parentIndex;
};

}  // namespace

const unsigned int FrameNode::noParent;

FrameNode::FrameNode() : m_renderFrame(true), m_frame(nullptr), m_parentIndex(noParent) {
    ZEB_TRACE(fileLogger, "FrameNode::FrameNode");
    D3DXMatrixIdentity(&m_combinedTransform);
    // Recomputed for every child node by the transform update before anyone reads them.
    D3DXMatrixIdentity(&m_inverseTransform);
    D3DXMatrixIdentity(&m_invTransposeTransform);
}

FrameNode::~FrameNode() {
    ZEB_TRACE(fileLogger, "FrameNode::~FrameNode");
    cleanup();
}

void FrameNode::cleanup() {
    ZEB_TRACE(fileLogger, "FrameNode::cleanup");
    m_containerTextures.clear();
    m_frame = nullptr;
}

FrameNodeIndexer::FrameNodeIndexer() {}

void FrameNodeIndexer::clear() {
    m_frameList = zeb::Array<FrameNode>();
    m_frameListIndex.clear();
}

void FrameNodeIndexer::appendNode(D3DXFRAME* frame, unsigned int parentIndex) {
    static const FrameNode defaultNode;
    m_frameList.append(defaultNode);
    FrameNode& node = m_frameList.last();
    node.m_frame = frame;
    node.m_parentIndex = parentIndex;
}

unsigned int FrameNodeIndexer::flattenFrameHierarchy(D3DXFRAME* root) {
    ZEB_TRACE(fileLogger, "FrameNodeIndexer::flattenFrameHierarchy");
    if (!root) return m_frameList.size();
    // The order is worked out on a list of bare (frame, parent) pairs first, so that the table of
    // full nodes is sized once instead of being copied each time it grows.
    zeb::Array<BreadthFirstEntry> order;  // its blocks are pooled and reused, unlike the C heap's
    for (D3DXFRAME* frame = root; frame; frame = frame->pFrameSibling) order.append({frame, FrameNode::noParent});
    // The list grows while it is scanned: each entry appends its children, so the walk needs
    // neither recursion nor a separate queue.
    for (unsigned int i = 0; i < order.size(); ++i) {
        D3DXFRAME* child = order[i].frame->pFrameFirstChild;
        if (!child) continue;
        const unsigned int parent = m_frameList.size() + i;
        for (; child; child = child->pFrameSibling) order.append({child, parent});
    }
    m_frameList.reserve(m_frameList.size() + order.size());
    for (const BreadthFirstEntry& entry : order) appendNode(entry.frame, entry.parentIndex);
    return m_frameList.size();
}

bool FrameNodeIndexer::initialize(D3DXFRAME* root) {
    ZEB_TRACE(fileLogger, "FrameNodeIndexer::initialize");
    if (!root) {
        ZEB_LOG(fileLogger, 4, __LINE__, "Null root passed to function");
        return false;
    }
    clear();
    unsigned int n = flattenFrameHierarchy(root);
    if (n == 0) {
        ZEB_LOG(fileLogger, 4, __LINE__, "flattenFrameHierarachy cannot create BFS table");
        return false;
    }
    // Sized once: the index then grows neither its arrays nor its buckets while it fills.
    m_frameListIndex.reserve(n);
    // A repeated name stays out of the index: the first frame of that name wins.
    for (unsigned int i = 0; i < n; ++i) m_frameListIndex.insert(zeb::String(m_frameList[i].m_frame->Name), i);
    return m_frameListIndex.size() == n;
}

FrameNode& FrameNodeIndexer::frameByName(const zeb::String& name) { return m_frameList[m_frameListIndex.lookup(name)]; }

const FrameNode& FrameNodeIndexer::frameByName(const zeb::String& name) const {
    return m_frameList[m_frameListIndex.lookup(name)];
}

zeb::Array<zeb::String> FrameNodeIndexer::disableFrameRendering(const zeb::String& name) {
    ZEB_TRACE(fileLogger, "FrameNodeIndexer::disableFrameRendering");
    zeb::Array<zeb::String> switchedOff;
    const unsigned int* found = m_frameListIndex.find(name);
    if (!found) {
        ZEB_LOG(fileLogger, 4, __LINE__, "Cannot find frame " + name);
        return switchedOff;
    }
    unsigned int k = *found;
    zeb::HashTable<unsigned int, bool> subtree;
    m_frameList[k].m_renderFrame = false;
    switchedOff.append(zeb::String(m_frameList[k].m_frame->Name));
    subtree.insert(k, true);
    // Parents precede their children, so one forward pass reaches every descendant.
    for (unsigned int j = k; j < m_frameList.size(); ++j) {
        FrameNode& node = m_frameList[j];
        if (!subtree.contains(node.m_parentIndex)) continue;
        node.m_renderFrame = false;
        switchedOff.append(zeb::String(node.m_frame->Name));
        subtree.insert(j, true);
    }
    return switchedOff;
}
