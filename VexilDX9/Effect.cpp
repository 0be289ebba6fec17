#include <VexilDX9/Effect.h>
#include <VexilDX9/EffectFile.h>
#include <VexilDX9/SiblingLog.h>
#include <zeb/Exception.h>

#include <string>
#include <vector>

namespace {
ZEB_FILE_LOGGER(effectLogger, "VexilDX9")
const char kSource[] = "VexilDX9/Effect";
const LONGLONG kLargestEffectFile = 0x40000000;

bool readWholeFile(HANDLE file, LONGLONG size, std::vector<uint8_t>& bytes) {
    bytes.resize(static_cast<size_t>(size));
    DWORD read = 0;
    return bytes.empty() || (ReadFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr) &&
                             read == bytes.size());
}

bool carriesEffectTag(HANDLE file) {
    uint8_t tag[4];
    DWORD read = 0;
    LARGE_INTEGER start = {};
    bool tagged = ReadFile(file, tag, sizeof(tag), &read, nullptr) && VexilDX9::hasEffectBinaryTag(tag, read);
    return SetFilePointerEx(file, start, nullptr, FILE_BEGIN) && tagged;
}

// True when the file is a compiled effect (it carries the fx_2_0 tag) that does not hold together,
// or is far too large to be one: D3DX reads compiled effects without bounds checks. Every other
// file, effect source included (D3DX compiles it itself on Windows), goes to D3DX as it is, as
// does a file that cannot be read. A refusal names its reason.
bool isRefusedEffectFile(const zeb::String& effectFile, std::string& reason) {
    HANDLE file = CreateFileW(effectFile.getWideBuffer(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    LARGE_INTEGER size;
    std::vector<uint8_t> bytes;
    bool refused = GetFileSizeEx(file, &size) && carriesEffectTag(file) &&
                   (size.QuadPart > kLargestEffectFile ||
                    (readWholeFile(file, size.QuadPart, bytes) &&
                     !VexilDX9::isWellFormedEffectBinary(bytes.data(), bytes.size(), nullptr, &reason)));
    if (refused && reason.empty()) reason = "it is larger than any compiled effect";
    CloseHandle(file);
    return refused;
}
}  // namespace

Effect::Effect() : m_flags(0), m_includes(nullptr), m_desc() {}

Effect::~Effect() { m_includes = nullptr; }

void Effect::addMacro(const D3DXMACRO& macro) { m_macros.append(macro); }

void Effect::setIncludes(ID3DXInclude* includes) { m_includes = includes; }

void Effect::setPool(const COMPtr<ID3DXEffectPool>::pointer& pool) { m_pool = pool; }

bool Effect::load(const zeb::String& effectFile, const COMPtr<IDirect3DDevice9>::pointer& device) {
    ZEB_TRACE_AT(effectLogger, "Effect::load(const String& effectFile, const COMPtr<IDirect3DDevice9>::pointer& device)",
                 kSource, 36);
    std::string reason;
    if (isRefusedEffectFile(effectFile, reason)) {
        ZEB_LOG(effectLogger, 3, __LINE__,
                "Compiled effect " + effectFile + " refused before D3DX reads it: " + zeb::String(reason.c_str()));
        logD3DFunction(effectLogger, "D3DXCreateEffectFromFile", D3DXERR_INVALIDDATA, false);
        return false;
    }
    ID3DXEffect* created = nullptr;
    COMPtr<ID3DXBuffer>::pointer errors;
    HRESULT hr = D3DXCreateEffectFromFileW(device.get(), effectFile.getWideBuffer(),
                                           m_macros.empty() ? nullptr : m_macros.getData(), m_includes, m_flags,
                                           m_pool.get(), &created, errors.receive());
    if (FAILED(hr)) {
        logD3DFunction(effectLogger, "D3DXCreateEffectFromFile", hr, false);
        return false;
    }
    m_effect.reset(created);
    m_effectFileName = effectFile;
    m_effect->GetDesc(&m_desc);
    m_techniques = zeb::Array<Technique>();
    m_techniques.resize(m_desc.Techniques);
    for (unsigned int index = 0; index < m_desc.Techniques; ++index)
        if (!m_techniques[index].initialize(created, index)) return false;
    return true;
}

bool Effect::reload(const COMPtr<IDirect3DDevice9>::pointer& device) {
    cleanup();
    return load(m_effectFileName, device);
}

void Effect::cleanup() {
    m_techniques = zeb::Array<Technique>();
    m_effect.reset();
    m_desc = D3DXEFFECT_DESC();  // the counts describe the effect held, and there is none
}

unsigned int Effect::techniqueIndex(const zeb::String& name) const {
    for (unsigned int i = 0; i < m_techniques.size(); ++i)
        if (m_techniques[i].name().compareNoCase(name) == 0) return i;
    ZEB_LOG(effectLogger, 3, 158, "Cannot find technique " + name);
    return 0xFFFFFFFF;
}

bool Effect::setActiveTechnique(const zeb::String& name) const {
    D3DXHANDLE handle = m_effect ? m_effect->GetTechniqueByName(name.getUTF8String()) : nullptr;
    if (!handle) {
        ZEB_LOG(effectLogger, 3, 122, name + " technique does not exist in the effect.");
        return false;
    }
    if (FAILED(m_effect->SetTechnique(handle))) {
        ZEB_LOG(effectLogger, 3, 117, "Unable to set technique " + name);
        return false;
    }
    return true;
}

bool Effect::setActiveTechnique(unsigned int index) const {
    ZEB_ASSERT(kSource, 128, m_effect.get());
    return SUCCEEDED(m_effect->SetTechnique(technique(index).handle()));
}

const Technique& Effect::currentActiveTechnique() const {
    ZEB_ASSERT(kSource, 135, m_effect.get());
    D3DXHANDLE tech = m_effect->GetCurrentTechnique();
    ZEB_ASSERT(kSource, 137, tech);
    for (unsigned int i = 0; i < m_techniques.size(); ++i)
        if (m_techniques[i].handle() == tech) return m_techniques[i];
    ZEB_LOG(effectLogger, 3, 145, "Currently active technique is not registered with this effect " + m_effectFileName);
    ZEB_ASSERT(kSource, 146, false);
    return m_techniques[0];  // not reached
}
