#pragma once
#include <VexilDX9/Export.h>
#include <VexilDX9/MeshContainerTuple.h>
#include <zeb/Array.h>
#include <zeb/HashTable.h>
#include <zeb/String.h>

#include <d3dx9.h>

// One frame of the breadth-first table: its frame, its parent's table position, a render
// switch and the frame's world matrices.
struct VEXILDX9_API FrameNode {
    static const unsigned int noParent = 0xFFFFFFFFu;

    FrameNode();
    FrameNode(const FrameNode& other) = default;
    FrameNode& operator=(const FrameNode& other) = default;
    ~FrameNode();
    // Releases the container textures and forgets the frame.
    void cleanup();

    bool m_renderFrame;
    D3DXFRAME* m_frame;
    unsigned int m_parentIndex;
    D3DXMATRIX m_combinedTransform;
    D3DXMATRIX m_inverseTransform;
    D3DXMATRIX m_invTransposeTransform;
    zeb::Array<MeshContainerTexture> m_containerTextures;
};

// A frame tree flattened breadth-first (parents before children, siblings side by side in chain
// order) with an index from frame name to table position.
class VEXILDX9_API FrameNodeIndexer {
public:
    FrameNodeIndexer();

    // Rebuilds table and index from the tree under root (root and its siblings are the top
    // level). True when the table is non-empty and every frame name is distinct.
    bool initialize(D3DXFRAME* root);
    void clear();

    unsigned int size() const { return m_frameList.size(); }
    FrameNode& operator[](int i) { return m_frameList[static_cast<unsigned>(i)]; }
    const FrameNode& operator[](int i) const { return m_frameList[static_cast<unsigned>(i)]; }
    FrameNode& frameByName(const zeb::String& name);
    const FrameNode& frameByName(const zeb::String& name) const;
    const zeb::OrderedHashTable<zeb::String, unsigned int>& frameListIndex() const { return m_frameListIndex; }

    // Switches off the named frame and all its descendants; returns their names, the named
    // frame first, then the descendants in table order.
    zeb::Array<zeb::String> disableFrameRendering(const zeb::String& name);

private:
    friend class MeshManagerD3DX9;

    unsigned int flattenFrameHierarchy(D3DXFRAME* root);
    void appendNode(D3DXFRAME* frame, unsigned int parentIndex);

    zeb::Array<FrameNode> m_frameList;
    zeb::OrderedHashTable<zeb::String, unsigned int> m_frameListIndex;
};
