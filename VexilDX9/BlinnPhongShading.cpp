#include <VexilDX9/BlinnPhongShading.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

namespace {
ZEB_FILE_LOGGER(shadingLogger, "VexilDX9")
const char kSource[] = "VexilDX9/BlinnPhongShading";
const unsigned int kNoTechnique = 0xFFFFFFFF;
const char kTechniqueName[] = "BlinnPhongShading";
}  // namespace

BlinnPhongShading::BlinnPhongShading()
    : m_techniqueName(kTechniqueName), m_effect(nullptr), m_techniqueIndex(kNoTechnique) {}

BlinnPhongShading::BlinnPhongShading(const Effect& lightEffect) : BlinnPhongShading() {
    ZEB_ASSERT(kSource, 31, initialize(lightEffect));
}

bool BlinnPhongShading::initialize(const Effect& lightEffect) {
    ZEB_TRACE_AT(shadingLogger, "BlinnPhongShading::initialize(const Effect& lightEffect)", kSource, 36);
    m_effect = &lightEffect;
    m_techniqueIndex = lightEffect.techniqueIndex(m_techniqueName);
    return m_techniqueIndex < kNoTechnique;
}

bool BlinnPhongShading::isInitialized() const {
    return m_techniqueName == zeb::String(kTechniqueName) && m_effect && m_techniqueIndex < kNoTechnique;
}

// Without an effect there is no technique table to index: report the position as the table
// would for an empty one.
const Technique& BlinnPhongShading::technique() const {
    if (!m_effect) throw zeb::IndexOutOfBounds(0, -1, static_cast<int>(m_techniqueIndex));
    return m_effect->technique(m_techniqueIndex);
}

bool BlinnPhongShading::activate() const { return technique().activate(); }

bool BlinnPhongShading::begin() const { return technique().begin(); }

void BlinnPhongShading::end() const { technique().begin(); }

bool BlinnPhongShading::render(ID3DXMesh* mesh, unsigned int subset) { return technique().render(mesh, subset); }

bool BlinnPhongShading::renderPass(ID3DXMesh* mesh, unsigned int subset, const zeb::String& passName) {
    return technique().renderPass(mesh, subset, passName);
}

bool BlinnPhongShading::renderPass(ID3DXMesh* mesh, unsigned int subset, unsigned int passIndex) {
    return technique().renderPass(mesh, subset, passIndex);
}
