#include <VexilDX9/SiblingLog.h>
#include <VexilDX9/Technique.h>
#include <zeb/Exception.h>

namespace {
ZEB_FILE_LOGGER(techniqueLogger, "VexilDX9")
const char kSource[] = "VexilDX9/Technique";
}  // namespace

Technique::Technique() : m_handle(nullptr), m_desc(), m_effect(nullptr) {}

Technique::Technique(ID3DXEffect* effect, unsigned int index) : Technique() {
    ZEB_TRACE_AT(techniqueLogger, "Technique::Technique(const Effect& effect, zeb::Uint32 index)", kSource, 16);
    if (!initialize(effect, index)) throw zeb::AssertionFailure(kSource, 17, "initialize(effect, index)");
}

bool Technique::initialize(ID3DXEffect* effect, unsigned int index) {
    ZEB_TRACE_AT(techniqueLogger, "Technique::initialize(const Effect& owningEffect, zeb::Uint32 index)", kSource, 22);
    m_passes = zeb::Array<Pass>();
    m_effect = effect;
    if (!effect) {
        ZEB_LOG(techniqueLogger, 3, 27, "Effect is invalid.");
        return false;
    }
    m_handle = effect->GetTechnique(index);
    if (!m_handle) {
        ZEB_LOG(techniqueLogger, 3, 34, "Technique index is invalid " + index);
        return false;
    }
    effect->GetTechniqueDesc(m_handle, &m_desc);
    m_name = zeb::String(m_desc.Name);  // 8-bit text, each byte one character
    for (unsigned int i = 0; i < m_desc.Passes; ++i) {
        Pass pass;
        pass.handle = effect->GetPass(m_handle, i);
        effect->GetPassDesc(pass.handle, &pass.desc);
        m_passes.append(pass);
    }
    return true;
}

// A technique left unread by a failed load has no effect: everything on it fails, logged.
bool Technique::hasEffect() const {
    if (m_effect) return true;
    ZEB_LOG(techniqueLogger, 3, __LINE__, "Effect is invalid.");
    return false;
}

bool Technique::activate() const { return hasEffect() && SUCCEEDED(m_effect->SetTechnique(m_handle)); }

bool Technique::begin() const {
    UINT passes = 0;
    if (!m_effect || FAILED(m_effect->Begin(&passes, 0))) {
        ZEB_LOG(techniqueLogger, 3, 72, "Cannot begin technique " + m_name);
        return false;
    }
    return true;
}

void Technique::end() const {
    if (m_effect) m_effect->End();
}

bool Technique::render(ID3DXMesh* mesh, unsigned int subset) const {
    if (!hasEffect() || FAILED(m_effect->SetTechnique(m_handle))) return false;
    if (!begin()) return false;
    bool allPassesDrawn = true;
    for (unsigned int i = 0; i < m_desc.Passes; ++i) {
        HRESULT hr = m_effect->BeginPass(i);
        if (FAILED(hr)) {
            logD3DFunction(techniqueLogger, "ID3DXEffect::BeginPass", hr, false);
            allPassesDrawn = false;
        } else {
            m_effect->CommitChanges();
            hr = mesh->DrawSubset(subset);
            if (FAILED(hr)) {
                logD3DFunction(techniqueLogger, "ID3DXEffect::DrawSubset", hr, false);
                allPassesDrawn = false;
            }
        }
        m_effect->EndPass();
    }
    m_effect->End();
    return allPassesDrawn;
}

bool Technique::renderPass(ID3DXMesh* mesh, unsigned int subset, unsigned int passIndex) const {
    if (!hasEffect()) return false;
    HRESULT hr = m_effect->BeginPass(passIndex);
    if (FAILED(hr)) {
        logD3DFunction(techniqueLogger, "BeginPass", hr, false);
        m_effect->EndPass();
        return false;
    }
    m_effect->CommitChanges();
    hr = mesh->DrawSubset(subset);
    if (FAILED(hr)) logD3DFunction(techniqueLogger, "DrawSubset", hr, false);
    m_effect->EndPass();
    return SUCCEEDED(hr);
}

bool Technique::renderPass(ID3DXMesh* mesh, unsigned int subset, const zeb::String& passName) const {
    return renderPass(mesh, subset, passIndexByName(passName));
}

unsigned int Technique::passIndexByName(const zeb::String& name) const {
    if (!hasEffect()) return 0xFFFFFFFF;
    D3DXHANDLE pass = m_effect->GetPassByName(m_handle, name.getUTF8String());
    if (!pass) {
        ZEB_LOG(techniqueLogger, 3, 176, "Cannot find " + name + " pass in technique " + m_name);
        return 0;
    }
    for (unsigned int i = 0; i < m_passes.size(); ++i)
        if (m_passes[i] == pass) return i;
    ZEB_LOG(techniqueLogger, 3, 188, name + " pass does not exist in technique " + m_name);
    return 0xFFFFFFFF;
}
