#pragma once
#include <VexilDX9/Export.h>
#include <VexilDX9/FrameTuple.h>
#include <zeb/ComPtr.h>
#include <zeb/HashTable.h>

// One texture (null for the untextured subsets) with the frames, by name, that draw with it.
class VEXILDX9_API TextureTuple {
public:
    TextureTuple();

    void setTexture(COMPtr<IDirect3DTexture9>::pointer& texture);
    IDirect3DTexture9* texture() const { return m_texture.get(); }
    const zeb::OrderedHashTable<zeb::String, FrameTuple>& frameTable() const { return m_frameTable; }

    // A frame whose name is present already merges its containers into the stored frame tuple,
    // which keeps the frame node of the first insertion.
    bool addFrame(const FrameTuple& frameTuple);
    void cleanup();

private:
    COMPtr<IDirect3DTexture9>::pointer m_texture;
    zeb::OrderedHashTable<zeb::String, FrameTuple> m_frameTable;
};
