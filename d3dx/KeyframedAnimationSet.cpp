#include "KeyframedAnimationSet.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace {

template <class Key>
bool earlier(const Key& a, const Key& b)
{
    return a.Time < b.Time;
}

// Index i such that keys[i - 1].Time <= tick < keys[i].Time, kept inside the key range so that
// keys edited out of order can never send us past either end.
template <class Key>
size_t segmentEnd(const std::vector<Key>& keys, double tick)
{
    size_t lo = 1;
    size_t hi = keys.size() - 1;
    while (lo < hi) {
        size_t mid = (lo + hi) / 2;
        if (keys[mid].Time <= tick)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

template <class Key>
float segmentFraction(const Key& a, const Key& b, double tick)
{
    double span = double(b.Time) - double(a.Time);
    if (span <= 0)
        return 0.0f;
    return float((tick - a.Time) / span);
}

D3DXVECTOR3 sampleVector(const std::vector<D3DXKEY_VECTOR3>& keys, double tick, const D3DXVECTOR3& none)
{
    if (keys.empty())
        return none;
    if (tick <= keys.front().Time || keys.size() == 1)
        return keys.front().Value;
    if (tick >= keys.back().Time)
        return keys.back().Value;
    size_t i = segmentEnd(keys, tick);
    const D3DXKEY_VECTOR3& a = keys[i - 1];
    const D3DXKEY_VECTOR3& b = keys[i];
    float f = segmentFraction(a, b, tick);
    return a.Value + (b.Value - a.Value) * f;
}

D3DXQUATERNION sampleRotation(const std::vector<D3DXKEY_QUATERNION>& keys, double tick)
{
    if (keys.empty())
        return D3DXQUATERNION(0, 0, 0, 1);
    if (tick <= keys.front().Time || keys.size() == 1)
        return keys.front().Value;
    if (tick >= keys.back().Time)
        return keys.back().Value;
    size_t i = segmentEnd(keys, tick);
    D3DXQUATERNION out;
    D3DXQuaternionSlerp(&out, &keys[i - 1].Value, &keys[i].Value, segmentFraction(keys[i - 1], keys[i], tick));
    return out;
}

template <class Key>
float lastTime(const std::vector<Key>& keys)
{
    return keys.empty() ? 0.0f : keys.back().Time;
}

} // namespace

KeyframedAnimationSet::KeyframedAnimationSet(const char* name, double ticksPerSecond, D3DXPLAYBACK_TYPE playback,
                                             UINT maxAnimations, UINT callbackKeyCount,
                                             const D3DXKEY_CALLBACK* callbackKeys)
    : m_name(name ? name : ""), m_ticksPerSecond(ticksPerSecond), m_playback(playback), m_maxAnimations(maxAnimations)
{
    if (callbackKeys)
        m_callbacks.assign(callbackKeys, callbackKeys + callbackKeyCount);
    std::stable_sort(m_callbacks.begin(), m_callbacks.end(), earlier<D3DXKEY_CALLBACK>);
    m_animations.reserve(maxAnimations);
}

HRESULT KeyframedAnimationSet::QueryInterface(REFIID riid, void** out)
{
    if (!out)
        return E_POINTER;
    if (IsEqualGUID(riid, IID_IUnknown) || IsEqualGUID(riid, IID_ID3DXAnimationSet) ||
        IsEqualGUID(riid, IID_ID3DXKeyframedAnimationSet)) {
        AddRef();
        *out = this;
        return S_OK;
    }
    *out = nullptr;
    return E_NOINTERFACE;
}

ULONG KeyframedAnimationSet::AddRef()
{
    return InterlockedIncrement(&m_references);
}

ULONG KeyframedAnimationSet::Release()
{
    ULONG left = InterlockedDecrement(&m_references);
    if (left == 0)
        delete this;
    return left;
}

const char* KeyframedAnimationSet::GetName()
{
    return m_name.c_str();
}

DOUBLE KeyframedAnimationSet::GetPeriod()
{
    return m_period;
}

DOUBLE KeyframedAnimationSet::GetPeriodicPosition(DOUBLE position)
{
    if (m_period <= 0)
        return 0;
    switch (m_playback) {
    case D3DXPLAY_ONCE:
        return std::min(std::max(position, 0.0), m_period);
    case D3DXPLAY_PINGPONG: {
        double p = std::fmod(position, 2 * m_period);
        if (p < 0)
            p += 2 * m_period;
        return p > m_period ? 2 * m_period - p : p;
    }
    default: {
        double p = std::fmod(position, m_period);
        return p < 0 ? p + m_period : p;
    }
    }
}

UINT KeyframedAnimationSet::GetNumAnimations()
{
    return UINT(m_animations.size());
}

HRESULT KeyframedAnimationSet::GetAnimationNameByIndex(UINT index, const char** name)
{
    if (!name || index >= m_animations.size())
        return D3DERR_INVALIDCALL;
    *name = m_animations[index].name.c_str();
    return S_OK;
}

HRESULT KeyframedAnimationSet::GetAnimationIndexByName(const char* name, UINT* index)
{
    if (!name || !index)
        return D3DERR_INVALIDCALL;
    for (size_t i = 0; i < m_animations.size(); ++i) {
        if (m_animations[i].name == name) {
            *index = UINT(i);
            return S_OK;
        }
    }
    return D3DERR_NOTFOUND;
}

HRESULT KeyframedAnimationSet::GetSRT(DOUBLE periodicPosition, UINT animation, D3DXVECTOR3* scale,
                                      D3DXQUATERNION* rotation, D3DXVECTOR3* translation)
{
    if (animation >= m_animations.size())
        return D3DERR_INVALIDCALL;
    const Animation& a = m_animations[animation];
    double tick = periodicPosition * m_ticksPerSecond;
    if (scale)
        *scale = sampleVector(a.scale, tick, D3DXVECTOR3(1, 1, 1));
    if (rotation)
        *rotation = sampleRotation(a.rotation, tick);
    if (translation)
        *translation = sampleVector(a.translation, tick, D3DXVECTOR3(0, 0, 0));
    return S_OK;
}

// Finds the next callback key at or after `position` (or before it when searching behind), in
// the time frame of the caller's position: keys repeat every period unless played once.
HRESULT KeyframedAnimationSet::GetCallback(double position, DWORD flags, double* callbackPosition,
                                           void** callbackData)
{
    if (m_callbacks.empty() || m_ticksPerSecond <= 0)
        return D3DERR_NOTFOUND;
    const bool behind = flags & D3DXCALLBACK_SEARCH_BEHIND_INITIAL_POSITION;
    const bool excluding = flags & D3DXCALLBACK_SEARCH_EXCLUDING_INITIAL_POSITION;
    const bool repeats = m_playback == D3DXPLAY_LOOP && m_period > 0;
    const double cycle = repeats ? std::floor(position / m_period) * m_period : 0;
    for (int turn = 0; turn < 3; ++turn) {
        const double base = cycle + (behind ? -turn : turn) * (repeats ? m_period : 0);
        for (size_t n = 0; n < m_callbacks.size(); ++n) {
            const D3DXKEY_CALLBACK& key = m_callbacks[behind ? m_callbacks.size() - 1 - n : n];
            double at = base + key.Time / m_ticksPerSecond;
            bool found = behind ? (excluding ? at < position : at <= position)
                                : (excluding ? at > position : at >= position);
            if (found) {
                if (callbackPosition)
                    *callbackPosition = at;
                if (callbackData)
                    *callbackData = key.pCallbackData;
                return S_OK;
            }
        }
        if (!repeats)
            break;
    }
    return D3DERR_NOTFOUND;
}

D3DXPLAYBACK_TYPE KeyframedAnimationSet::GetPlaybackType()
{
    return m_playback;
}

DOUBLE KeyframedAnimationSet::GetSourceTicksPerSecond()
{
    return m_ticksPerSecond;
}

template <class Key>
HRESULT KeyframedAnimationSet::copyKey(const std::vector<Key>& keys, UINT key, Key* value)
{
    if (!value || key >= keys.size())
        return D3DERR_INVALIDCALL;
    *value = keys[key];
    return S_OK;
}

template <class Key>
HRESULT KeyframedAnimationSet::replaceKey(std::vector<Key>& keys, UINT key, const Key* value)
{
    if (!value || key >= keys.size())
        return D3DERR_INVALIDCALL;
    keys[key] = *value;
    updatePeriod();
    return S_OK;
}

template <class Key>
std::vector<Key>* KeyframedAnimationSet::keysOf(UINT animation, KeyList<Key> list)
{
    return animation < m_animations.size() ? &(m_animations[animation].*list) : nullptr;
}

template <class Key>
UINT KeyframedAnimationSet::countKeys(UINT animation, KeyList<Key> list)
{
    const std::vector<Key>* keys = keysOf(animation, list);
    return keys ? UINT(keys->size()) : 0;
}

template <class Key>
HRESULT KeyframedAnimationSet::copyKeys(UINT animation, KeyList<Key> list, Key* out)
{
    const std::vector<Key>* keys = keysOf(animation, list);
    if (!keys || !out)
        return D3DERR_INVALIDCALL;
    std::copy(keys->begin(), keys->end(), out);
    return S_OK;
}

template <class Key>
HRESULT KeyframedAnimationSet::copyKey(UINT animation, KeyList<Key> list, UINT key, Key* value)
{
    const std::vector<Key>* keys = keysOf(animation, list);
    return keys ? copyKey(*keys, key, value) : D3DERR_INVALIDCALL;
}

template <class Key>
HRESULT KeyframedAnimationSet::replaceKey(UINT animation, KeyList<Key> list, UINT key, const Key* value)
{
    std::vector<Key>* keys = keysOf(animation, list);
    return keys ? replaceKey(*keys, key, value) : D3DERR_INVALIDCALL;
}

template <class Key>
HRESULT KeyframedAnimationSet::eraseKey(UINT animation, KeyList<Key> list, UINT key)
{
    std::vector<Key>* keys = keysOf(animation, list);
    if (!keys || key >= keys->size())
        return D3DERR_INVALIDCALL;
    keys->erase(keys->begin() + key);
    updatePeriod();
    return S_OK;
}

// The scale, rotation and translation key lists share the templates above.
#define VEXIL_KEY_LIST_METHODS(Kind, list, KeyType)                                        \
    UINT KeyframedAnimationSet::GetNum##Kind##Keys(UINT animation)                       \
    {                                                                                    \
        return countKeys(animation, &Animation::list);                                   \
    }                                                                                    \
    HRESULT KeyframedAnimationSet::Get##Kind##Keys(UINT animation, KeyType* keys)        \
    {                                                                                    \
        return copyKeys(animation, &Animation::list, keys);                              \
    }                                                                                    \
    HRESULT KeyframedAnimationSet::Get##Kind##Key(UINT animation, UINT key, KeyType* value)\
    {                                                                                    \
        return copyKey(animation, &Animation::list, key, value);                         \
    }                                                                                    \
    HRESULT KeyframedAnimationSet::Set##Kind##Key(UINT animation, UINT key, KeyType* value)\
    {                                                                                    \
        return replaceKey(animation, &Animation::list, key, value);                      \
    }                                                                                    \
    HRESULT KeyframedAnimationSet::Unregister##Kind##Key(UINT animation, UINT key)       \
    {                                                                                    \
        return eraseKey(animation, &Animation::list, key);                               \
    }

VEXIL_KEY_LIST_METHODS(Scale, scale, D3DXKEY_VECTOR3)
VEXIL_KEY_LIST_METHODS(Rotation, rotation, D3DXKEY_QUATERNION)
VEXIL_KEY_LIST_METHODS(Translation, translation, D3DXKEY_VECTOR3)

UINT KeyframedAnimationSet::GetNumCallbackKeys()
{
    return UINT(m_callbacks.size());
}

HRESULT KeyframedAnimationSet::GetCallbackKeys(LPD3DXKEY_CALLBACK keys)
{
    if (!keys)
        return D3DERR_INVALIDCALL;
    std::copy(m_callbacks.begin(), m_callbacks.end(), keys);
    return S_OK;
}

HRESULT KeyframedAnimationSet::GetCallbackKey(UINT key, LPD3DXKEY_CALLBACK value)
{
    return copyKey(m_callbacks, key, value);
}

HRESULT KeyframedAnimationSet::SetCallbackKey(UINT key, LPD3DXKEY_CALLBACK value)
{
    return replaceKey(m_callbacks, key, value);
}

// Keys are kept sorted by time (stable, so equal times keep file order): files with keys out of
// order play as if they had been written in order.
HRESULT KeyframedAnimationSet::RegisterAnimationSRTKeys(const char* name, UINT scaleKeyCount, UINT rotationKeyCount,
                                                        UINT translationKeyCount, const D3DXKEY_VECTOR3* scaleKeys,
                                                        const D3DXKEY_QUATERNION* rotationKeys,
                                                        const D3DXKEY_VECTOR3* translationKeys, DWORD* index)
{
    if (!name || m_animations.size() >= m_maxAnimations)
        return D3DERR_INVALIDCALL;
    if ((scaleKeyCount && !scaleKeys) || (rotationKeyCount && !rotationKeys) ||
        (translationKeyCount && !translationKeys))
        return D3DERR_INVALIDCALL;
    for (const Animation& existing : m_animations) {
        if (existing.name == name)
            return D3DERR_INVALIDCALL;
    }
    Animation a;
    a.name = name;
    if (scaleKeyCount)
        a.scale.assign(scaleKeys, scaleKeys + scaleKeyCount);
    if (rotationKeyCount)
        a.rotation.assign(rotationKeys, rotationKeys + rotationKeyCount);
    if (translationKeyCount)
        a.translation.assign(translationKeys, translationKeys + translationKeyCount);
    std::stable_sort(a.scale.begin(), a.scale.end(), earlier<D3DXKEY_VECTOR3>);
    std::stable_sort(a.rotation.begin(), a.rotation.end(), earlier<D3DXKEY_QUATERNION>);
    std::stable_sort(a.translation.begin(), a.translation.end(), earlier<D3DXKEY_VECTOR3>);
    m_animations.push_back(std::move(a));
    if (index)
        *index = DWORD(m_animations.size() - 1);
    updatePeriod();
    return S_OK;
}

HRESULT KeyframedAnimationSet::Compress(DWORD, float, D3DXFRAME*, ID3DXBuffer**)
{
    return E_NOTIMPL;
}

HRESULT KeyframedAnimationSet::UnregisterAnimation(UINT index)
{
    if (index >= m_animations.size())
        return D3DERR_INVALIDCALL;
    m_animations.erase(m_animations.begin() + index);
    updatePeriod();
    return S_OK;
}

// The period runs from time 0 to the last key of any animation.
void KeyframedAnimationSet::updatePeriod()
{
    float last = 0;
    for (const Animation& a : m_animations)
        last = std::max({last, lastTime(a.scale), lastTime(a.rotation), lastTime(a.translation)});
    m_period = m_ticksPerSecond > 0 ? last / m_ticksPerSecond : 0;
}

extern "C" HRESULT WINAPI D3DXCreateKeyframedAnimationSet(const char* name, double ticksPerSecond,
                                                          D3DXPLAYBACK_TYPE playback, UINT animationCount,
                                                          UINT callbackKeyCount, const D3DXKEY_CALLBACK* callbackKeys,
                                                          ID3DXKeyframedAnimationSet** animationSet)
{
    if (!animationSet || !animationCount || ticksPerSecond <= 0 || playback < D3DXPLAY_LOOP ||
        playback > D3DXPLAY_PINGPONG || (callbackKeyCount && !callbackKeys))
        return D3DERR_INVALIDCALL;
    *animationSet = new (std::nothrow)
        KeyframedAnimationSet(name, ticksPerSecond, playback, animationCount, callbackKeyCount, callbackKeys);
    return *animationSet ? S_OK : E_OUTOFMEMORY;
}
