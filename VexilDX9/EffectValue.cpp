#include <VexilDX9/EffectValue.h>
#include <zeb/Exception.h>
#include <zeb/Logger.h>

#include <algorithm>
#include <memory>

namespace {

ZEB_FILE_LOGGER(valueLogger, "VexilDX9")
const char kSource[] = "VexilDX9/EffectValue";

ID3DXEffect* d3dx(const Effect& effect) { return effect.effect().get(); }

// Logs "<message><effect file>" at the given line tag. Kept out of line, so that a successful call
// costs no more than the D3DX call it wraps and one test.
[[gnu::noinline, gnu::cold]] bool failed(unsigned line, const char* message, const Effect& effect) {
    ZEB_LOG(valueLogger, 3, line, message + effect.effectFileName());
    return false;
}

inline bool succeeded(HRESULT hr, unsigned line, const char* message, const Effect& effect) {
    return SUCCEEDED(hr) || failed(line, message, effect);
}

bool arrayHasStorage(unsigned size, unsigned line) {
    if (size > 0) return true;
    ZEB_LOG(valueLogger, 3, line, "Must allocate array storage before calling getParameter ");
    return false;
}

// Reads into a buffer first, so that a failed read leaves the array as it was. Palettes and the
// like fit a buffer on the stack; only larger arrays take one from the heap.
template <class T, class Read>
bool readArray(const Effect& effect, zeb::Array<T>& values, Read read) {
    const unsigned size = values.size();
    if (!arrayHasStorage(size, 72)) return false;
    const unsigned kOnStack = 3840 / sizeof(T);
    T local[kOnStack];
    std::unique_ptr<T[]> onHeap(size > kOnStack ? new T[size] : nullptr);
    T* buffer = onHeap ? onHeap.get() : local;
    if (!succeeded(read(buffer, size), 84, "Unable to get Array from effect ", effect)) return false;
    std::copy(buffer, buffer + size, values.getData());
    return true;
}

}  // namespace

bool getParameterHandle(const Effect& effect, const zeb::String& name, const char*& handle) {
    ZEB_ASSERT(kSource, 32, effect.effect().get());
    ZEB_LOG(valueLogger, 1, 33, "Loading parameter " + name);
    handle = d3dx(effect)->GetParameterByName(nullptr, name.getUTF8String());
    if (!handle) ZEB_LOG(valueLogger, 3, 37, "Cannot load " + name + " from effect file " + effect.effectFileName());
    return handle != nullptr;
}

bool setParameter(const Effect& effect, const char* const& handle, float value) {
    return succeeded(d3dx(effect)->SetFloat(handle, value), 77, "Unable to set float value to effect ", effect);
}

bool setParameter(const Effect& effect, const char* const& handle, bool value) {
    return succeeded(d3dx(effect)->SetBool(handle, value ? 1 : 0), 88, "Unable to set boolean value to effect ", effect);
}

bool setParameter(const Effect& effect, const char* const& handle, const D3DXVECTOR3& value) {
    D3DXVECTOR4 widened(value.x, value.y, value.z, 1.0f);
    return succeeded(d3dx(effect)->SetVector(handle, &widened), 98, "Unable to set vector value to effect ", effect);
}

bool setParameter(const Effect& effect, const char* const& handle, const D3DXVECTOR4& value) {
    return succeeded(d3dx(effect)->SetVector(handle, &value), 98, "Unable to set vector value to effect ", effect);
}

bool setParameter(const Effect& effect, const char* const& handle, const D3DXMATRIX& value) {
    return succeeded(d3dx(effect)->SetMatrix(handle, &value), 67, "Unable to set matrix value to effect ", effect);
}

bool setParameter(const Effect& effect, const char* const& handle, IDirect3DBaseTexture9* const& texture) {
    return succeeded(d3dx(effect)->SetTexture(handle, texture), 57, "Unable to set texture to effect ", effect);
}

bool setParameter(const Effect& effect, const char* const& handle, const zeb::Array<int>& values) {
    if (!arrayHasStorage(values.size(), 101)) return false;
    return succeeded(d3dx(effect)->SetIntArray(handle, values.getData(), values.size()), 111,
                     "Unable to set Array from effect ", effect);
}

bool setParameter(const Effect& effect, const char* const& handle, const zeb::Array<D3DXMATRIX>& values) {
    if (!arrayHasStorage(values.size(), 101)) return false;
    return succeeded(d3dx(effect)->SetMatrixArray(handle, values.getData(), values.size()), 111,
                     "Unable to set Array from effect ", effect);
}

bool getParameter(const Effect& effect, const char* const& handle, float& value) {
    return succeeded(d3dx(effect)->GetFloat(handle, &value), 124, "Unable to get float value to effect ", effect);
}

bool getParameter(const Effect& effect, const char* const& handle, bool& value) {
    BOOL stored = 0;
    HRESULT hr = d3dx(effect)->GetBool(handle, &stored);
    value = stored == 1;
    return succeeded(hr, 136, "Unable to get boolean value to effect ", effect);
}

bool getParameter(const Effect& effect, const char* const& handle, D3DXVECTOR3& value) {
    D3DXVECTOR4 stored(0.0f, 0.0f, 0.0f, 0.0f);
    HRESULT hr = d3dx(effect)->GetVector(handle, &stored);
    value = D3DXVECTOR3(stored.x, stored.y, stored.z);
    return succeeded(hr, 146, "Unable to get vector value to effect ", effect);
}

bool getParameter(const Effect& effect, const char* const& handle, D3DXVECTOR4& value) {
    return succeeded(d3dx(effect)->GetVector(handle, &value), 146, "Unable to get vector value to effect ", effect);
}

bool getParameter(const Effect& effect, const char* const& handle, D3DXMATRIX& value) {
    return succeeded(d3dx(effect)->GetMatrix(handle, &value), 114, "Unable to get matrix value to effect ", effect);
}

bool getParameter(const Effect& effect, const char* const& handle, IDirect3DBaseTexture9*& texture) {
    if (!succeeded(d3dx(effect)->GetTexture(handle, &texture), 166, "Unable to get texture from effect ", effect))
        return false;
    if (!texture || texture->GetType() != D3DRTYPE_TEXTURE) {
        ZEB_LOG(valueLogger, 3, 172, "Base type of the texture indicates that the resource is not a 2D texture");
        return false;
    }
    return true;
}

bool getParameter(const Effect& effect, const char* const& handle, zeb::Array<int>& values) {
    return readArray(effect, values, [&](int* buffer, unsigned count) {
        return d3dx(effect)->GetIntArray(handle, buffer, count);
    });
}

bool getParameter(const Effect& effect, const char* const& handle, zeb::Array<D3DXMATRIX>& values) {
    return readArray(effect, values, [&](D3DXMATRIX* buffer, unsigned count) {
        return d3dx(effect)->GetMatrixArray(handle, buffer, count);
    });
}
