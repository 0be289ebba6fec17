#pragma once
#include <d3dx9.h>

#include <string>
#include <vector>

// Scale, rotation and translation keys per animated frame, played by GetSRT: linear between
// scale and translation keys, spherical between rotation keys, clamped to the first and last key.
class KeyframedAnimationSet final : public ID3DXKeyframedAnimationSet {
public:
    KeyframedAnimationSet(const char* name, double ticksPerSecond, D3DXPLAYBACK_TYPE playback, UINT maxAnimations,
                          UINT callbackKeyCount, const D3DXKEY_CALLBACK* callbackKeys);

    // IUnknown
    STDMETHOD(QueryInterface)(THIS_ REFIID riid, void** out) override;
    STDMETHOD_(ULONG, AddRef)(THIS) override;
    STDMETHOD_(ULONG, Release)(THIS) override;

    // ID3DXAnimationSet
    STDMETHOD_(const char*, GetName)(THIS) override;
    STDMETHOD_(DOUBLE, GetPeriod)(THIS) override;
    STDMETHOD_(DOUBLE, GetPeriodicPosition)(THIS_ DOUBLE position) override;
    STDMETHOD_(UINT, GetNumAnimations)(THIS) override;
    STDMETHOD(GetAnimationNameByIndex)(THIS_ UINT index, const char** name) override;
    STDMETHOD(GetAnimationIndexByName)(THIS_ const char* name, UINT* index) override;
    STDMETHOD(GetSRT)(THIS_ DOUBLE periodicPosition, UINT animation, D3DXVECTOR3* scale, D3DXQUATERNION* rotation,
                      D3DXVECTOR3* translation) override;
    STDMETHOD(GetCallback)(THIS_ double position, DWORD flags, double* callbackPosition, void** callbackData) override;

    // ID3DXKeyframedAnimationSet
    STDMETHOD_(D3DXPLAYBACK_TYPE, GetPlaybackType)(THIS) override;
    STDMETHOD_(DOUBLE, GetSourceTicksPerSecond)(THIS) override;
    STDMETHOD_(UINT, GetNumScaleKeys)(THIS_ UINT animation) override;
    STDMETHOD(GetScaleKeys)(THIS_ UINT animation, LPD3DXKEY_VECTOR3 keys) override;
    STDMETHOD(GetScaleKey)(THIS_ UINT animation, UINT key, LPD3DXKEY_VECTOR3 value) override;
    STDMETHOD(SetScaleKey)(THIS_ UINT animation, UINT key, LPD3DXKEY_VECTOR3 value) override;
    STDMETHOD_(UINT, GetNumRotationKeys)(THIS_ UINT animation) override;
    STDMETHOD(GetRotationKeys)(THIS_ UINT animation, LPD3DXKEY_QUATERNION keys) override;
    STDMETHOD(GetRotationKey)(THIS_ UINT animation, UINT key, LPD3DXKEY_QUATERNION value) override;
    STDMETHOD(SetRotationKey)(THIS_ UINT animation, UINT key, LPD3DXKEY_QUATERNION value) override;
    STDMETHOD_(UINT, GetNumTranslationKeys)(THIS_ UINT animation) override;
    STDMETHOD(GetTranslationKeys)(THIS_ UINT animation, LPD3DXKEY_VECTOR3 keys) override;
    STDMETHOD(GetTranslationKey)(THIS_ UINT animation, UINT key, LPD3DXKEY_VECTOR3 value) override;
    STDMETHOD(SetTranslationKey)(THIS_ UINT animation, UINT key, LPD3DXKEY_VECTOR3 value) override;
    STDMETHOD_(UINT, GetNumCallbackKeys)(THIS) override;
    STDMETHOD(GetCallbackKeys)(THIS_ LPD3DXKEY_CALLBACK keys) override;
    STDMETHOD(GetCallbackKey)(THIS_ UINT key, LPD3DXKEY_CALLBACK value) override;
    STDMETHOD(SetCallbackKey)(THIS_ UINT key, LPD3DXKEY_CALLBACK value) override;
    STDMETHOD(UnregisterScaleKey)(THIS_ UINT animation, UINT key) override;
    STDMETHOD(UnregisterRotationKey)(THIS_ UINT animation, UINT key) override;
    STDMETHOD(UnregisterTranslationKey)(THIS_ UINT animation, UINT key) override;
    STDMETHOD(RegisterAnimationSRTKeys)(THIS_ const char* name, UINT scaleKeyCount, UINT rotationKeyCount,
                                        UINT translationKeyCount, const D3DXKEY_VECTOR3* scaleKeys,
                                        const D3DXKEY_QUATERNION* rotationKeys,
                                        const D3DXKEY_VECTOR3* translationKeys, DWORD* index) override;
    STDMETHOD(Compress)(THIS_ DWORD flags, float lossiness, D3DXFRAME* hierarchy,
                        ID3DXBuffer** compressedData) override;
    STDMETHOD(UnregisterAnimation)(THIS_ UINT index) override;

private:
    struct Animation {
        std::string name;
        std::vector<D3DXKEY_VECTOR3> scale;
        std::vector<D3DXKEY_QUATERNION> rotation;
        std::vector<D3DXKEY_VECTOR3> translation;
    };

    ~KeyframedAnimationSet() = default;
    void updatePeriod();
    template <class Key>
    using KeyList = std::vector<Key> Animation::*;

    template <class Key>
    static HRESULT copyKey(const std::vector<Key>& keys, UINT key, Key* value);
    template <class Key>
    HRESULT replaceKey(std::vector<Key>& keys, UINT key, const Key* value);
    // The same operations on one key list (scale, rotation or translation) of an animation;
    // an animation index past the end is D3DERR_INVALIDCALL (0 keys for countKeys).
    template <class Key>
    std::vector<Key>* keysOf(UINT animation, KeyList<Key> list);
    template <class Key>
    UINT countKeys(UINT animation, KeyList<Key> list);
    template <class Key>
    HRESULT copyKeys(UINT animation, KeyList<Key> list, Key* out);
    template <class Key>
    HRESULT copyKey(UINT animation, KeyList<Key> list, UINT key, Key* value);
    template <class Key>
    HRESULT replaceKey(UINT animation, KeyList<Key> list, UINT key, const Key* value);
    template <class Key>
    HRESULT eraseKey(UINT animation, KeyList<Key> list, UINT key);

    LONG m_references = 1;
    std::string m_name;
    double m_ticksPerSecond;
    D3DXPLAYBACK_TYPE m_playback;
    UINT m_maxAnimations;
    std::vector<Animation> m_animations;
    std::vector<D3DXKEY_CALLBACK> m_callbacks;
    double m_period = 0;  // seconds
};
