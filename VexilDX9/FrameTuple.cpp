#include <VexilDX9/FrameTuple.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

ZEB_FILE_LOGGER(fileLogger, "VexilDX9")

FrameTuple::FrameTuple() : m_ownerFrame(nullptr) {}

void FrameTuple::setFrame(FrameNode* frame) { m_ownerFrame = frame; }

zeb::String FrameTuple::name() const {
    return zeb::String(m_ownerFrame && m_ownerFrame->m_frame ? m_ownerFrame->m_frame->Name : nullptr);
}

bool FrameTuple::addMeshContainer(const MeshContainerTuple& tuple) {
    ZEB_TRACE(fileLogger, "FrameTuple::addMeshContainer");
    zeb::String key = tuple.name();
    MeshContainerTuple* stored = m_childMeshTable.find(key);
    if (!stored) return m_childMeshTable.insert(key, tuple);
    // The stored tuple keeps the container of its first insertion.
    for (unsigned int p = 0; p < tuple.numAttribute(); ++p) {
        if (!stored->addAttributeId(tuple[static_cast<int>(p)]))
            ZEB_LOG(fileLogger, 1, __LINE__, "Duplicate attrib " + p + " for mesh " + key);
    }
    return true;
}

bool FrameTuple::drawFrame() const {
    ZEB_ASSERT("VexilDX9/FrameTuple", __LINE__, m_ownerFrame);
    return m_ownerFrame->m_renderFrame;
}

const D3DXMATRIX& FrameTuple::transformMatrix() const { return m_ownerFrame->m_combinedTransform; }

const D3DXMATRIX& FrameTuple::inverseTransformMatrix() const { return m_ownerFrame->m_inverseTransform; }

const D3DXMATRIX& FrameTuple::invTransposeTransformMatrix() const { return m_ownerFrame->m_invTransposeTransform; }
