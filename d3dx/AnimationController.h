#pragma once
#include <d3dx9.h>

#include <string>
#include <unordered_map>
#include <vector>

// Plays animation sets on tracks and blends the tracks by weight into the registered outputs.
// Callback keys of the sets reach the handler given to AdvanceTime. Track events
// (Key*/Unkey*/...Event) are not kept: the Key* calls schedule nothing and return a null handle.
class AnimationController final : public ID3DXAnimationController {
public:
    AnimationController(UINT maxOutputs, UINT maxSets, UINT maxTracks, UINT maxEvents);

    // IUnknown
    STDMETHOD(QueryInterface)(THIS_ REFIID riid, void** out) override;
    STDMETHOD_(ULONG, AddRef)(THIS) override;
    STDMETHOD_(ULONG, Release)(THIS) override;

    // ID3DXAnimationController
    STDMETHOD_(UINT, GetMaxNumAnimationOutputs)(THIS) override;
    STDMETHOD_(UINT, GetMaxNumAnimationSets)(THIS) override;
    STDMETHOD_(UINT, GetMaxNumTracks)(THIS) override;
    STDMETHOD_(UINT, GetMaxNumEvents)(THIS) override;
    STDMETHOD(RegisterAnimationOutput)(THIS_ const char* name, D3DXMATRIX* matrix, D3DXVECTOR3* scale,
                                       D3DXQUATERNION* rotation, D3DXVECTOR3* translation) override;
    STDMETHOD(RegisterAnimationSet)(THIS_ ID3DXAnimationSet* set) override;
    STDMETHOD(UnregisterAnimationSet)(THIS_ ID3DXAnimationSet* set) override;
    STDMETHOD_(UINT, GetNumAnimationSets)(THIS) override;
    STDMETHOD(GetAnimationSet)(THIS_ UINT index, ID3DXAnimationSet** set) override;
    STDMETHOD(GetAnimationSetByName)(THIS_ const char* name, ID3DXAnimationSet** set) override;
    STDMETHOD(AdvanceTime)(THIS_ double timeDelta, ID3DXAnimationCallbackHandler* handler) override;
    STDMETHOD(ResetTime)(THIS) override;
    STDMETHOD_(double, GetTime)(THIS) override;
    STDMETHOD(SetTrackAnimationSet)(THIS_ UINT track, ID3DXAnimationSet* set) override;
    STDMETHOD(GetTrackAnimationSet)(THIS_ UINT track, ID3DXAnimationSet** set) override;
    STDMETHOD(SetTrackPriority)(THIS_ UINT track, D3DXPRIORITY_TYPE priority) override;
    STDMETHOD(SetTrackSpeed)(THIS_ UINT track, float speed) override;
    STDMETHOD(SetTrackWeight)(THIS_ UINT track, float weight) override;
    STDMETHOD(SetTrackPosition)(THIS_ UINT track, double position) override;
    STDMETHOD(SetTrackEnable)(THIS_ UINT track, WINBOOL enable) override;
    STDMETHOD(SetTrackDesc)(THIS_ UINT track, D3DXTRACK_DESC* desc) override;
    STDMETHOD(GetTrackDesc)(THIS_ UINT track, D3DXTRACK_DESC* desc) override;
    STDMETHOD(SetPriorityBlend)(THIS_ float blendWeight) override;
    STDMETHOD_(float, GetPriorityBlend)(THIS) override;
    STDMETHOD_(D3DXEVENTHANDLE, KeyTrackSpeed)(THIS_ UINT track, float speed, double start, double duration,
                                               D3DXTRANSITION_TYPE transition) override;
    STDMETHOD_(D3DXEVENTHANDLE, KeyTrackWeight)(THIS_ UINT track, float weight, double start, double duration,
                                                D3DXTRANSITION_TYPE transition) override;
    STDMETHOD_(D3DXEVENTHANDLE, KeyTrackPosition)(THIS_ UINT track, double position, double start) override;
    STDMETHOD_(D3DXEVENTHANDLE, KeyTrackEnable)(THIS_ UINT track, WINBOOL enable, double start) override;
    STDMETHOD_(D3DXEVENTHANDLE, KeyPriorityBlend)(THIS_ float blendWeight, double start, double duration,
                                                  D3DXTRANSITION_TYPE transition) override;
    STDMETHOD(UnkeyEvent)(THIS_ D3DXEVENTHANDLE event) override;
    STDMETHOD(UnkeyAllTrackEvents)(THIS_ UINT track) override;
    STDMETHOD(UnkeyAllPriorityBlends)(THIS) override;
    STDMETHOD_(D3DXEVENTHANDLE, GetCurrentTrackEvent)(THIS_ UINT track, D3DXEVENT_TYPE type) override;
    STDMETHOD_(D3DXEVENTHANDLE, GetCurrentPriorityBlend)(THIS) override;
    STDMETHOD_(D3DXEVENTHANDLE, GetUpcomingTrackEvent)(THIS_ UINT track, D3DXEVENTHANDLE event) override;
    STDMETHOD_(D3DXEVENTHANDLE, GetUpcomingPriorityBlend)(THIS_ D3DXEVENTHANDLE event) override;
    STDMETHOD(ValidateEvent)(THIS_ D3DXEVENTHANDLE event) override;
    STDMETHOD(GetEventDesc)(THIS_ D3DXEVENTHANDLE event, D3DXEVENT_DESC* desc) override;
    STDMETHOD(CloneAnimationController)(THIS_ UINT maxOutputs, UINT maxSets, UINT maxTracks, UINT maxEvents,
                                        ID3DXAnimationController** clone) override;

private:
    struct Output {
        std::string name;
        D3DXMATRIX* matrix;
        D3DXVECTOR3* scale;
        D3DXQUATERNION* rotation;
        D3DXVECTOR3* translation;
    };
    struct Track {
        ID3DXAnimationSet* set = nullptr;
        D3DXTRACK_DESC desc{};
        std::vector<int> outputOfAnimation;  // -1: no output of that name
    };
    // The weighted blend of one output within one priority group.
    struct Blend {
        float weight;
        D3DXVECTOR3 scale;
        D3DXQUATERNION rotation;
        D3DXVECTOR3 translation;
    };

    ~AnimationController();
    bool validTrack(UINT track) const { return track < m_tracks.size(); }
    template <class Field>
    HRESULT setTrackField(UINT track, Field D3DXTRACK_DESC::*field, Field value);
    void bindTracks();
    void bindTrack(Track& track);
    void accumulateTrack(const Track& track);
    void reportCallbacks(UINT track, double from, double to, ID3DXAnimationCallbackHandler* handler);
    void writeOutput(const Output& output, const Blend* high, const Blend* low);

    LONG m_references = 1;
    UINT m_maxOutputs;
    UINT m_maxSets;
    UINT m_maxEvents;
    std::vector<Output> m_outputs;
    std::unordered_map<std::string, int> m_outputByName;
    std::vector<ID3DXAnimationSet*> m_sets;
    std::vector<Track> m_tracks;
    double m_time = 0;
    float m_priorityBlend = 0;
    bool m_bindingsStale = false;
    std::vector<Blend> m_blends[2];  // by D3DXPRIORITY_TYPE
};
