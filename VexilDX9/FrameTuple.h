#pragma once
#include <VexilDX9/Export.h>
#include <VexilDX9/FrameNodeIndexer.h>
#include <VexilDX9/MeshContainerTuple.h>
#include <zeb/HashTable.h>

// One frame of a texture group with the mesh containers (by name) whose subsets use that texture.
class VEXILDX9_API FrameTuple {
public:
    FrameTuple();

    void setFrame(FrameNode* frame);
    FrameNode* frame() const { return m_ownerFrame; }
    zeb::String name() const;
    const zeb::OrderedHashTable<zeb::String, MeshContainerTuple>& childMeshTable() const { return m_childMeshTable; }

    // A container already present (same name) takes the incoming attribute ids instead. Nameless
    // containers share the empty name, so they merge into the first one of the frame.
    bool addMeshContainer(const MeshContainerTuple& tuple);

    bool drawFrame() const;
    const D3DXMATRIX& transformMatrix() const;
    const D3DXMATRIX& inverseTransformMatrix() const;
    const D3DXMATRIX& invTransposeTransformMatrix() const;

private:
    FrameNode* m_ownerFrame;
    zeb::OrderedHashTable<zeb::String, MeshContainerTuple> m_childMeshTable;
};
