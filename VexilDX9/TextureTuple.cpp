#include <VexilDX9/TextureTuple.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

TextureTuple::TextureTuple() {}

void TextureTuple::setTexture(COMPtr<IDirect3DTexture9>::pointer& texture) {
    ZEB_TRACE(fileLogger, "TextureTuple::setTexture");
    m_texture = texture;
}

bool TextureTuple::addFrame(const FrameTuple& frameTuple) {
    FrameTuple* stored = m_frameTable.find(frameTuple.name());
    if (!stored) {
        m_frameTable.insert(frameTuple.name(), frameTuple);
        return true;
    }
    const zeb::OrderedHashTable<zeb::String, MeshContainerTuple>& incoming = frameTuple.childMeshTable();
    for (unsigned int i = 0; i < incoming.size(); ++i) stored->addMeshContainer(incoming.valueAt(i));
    return true;
}

void TextureTuple::cleanup() {
    m_texture.reset();
    m_frameTable.clear();
}
