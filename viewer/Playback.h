#pragma once
// The animation as a file's author means it: one animation set on the first track, played
// forward from its start, looped or once, at a chosen speed. The viewer keeps the clock itself
// and puts the controller's track where the clock says, so a set plays the same whatever
// direction or speed the scene gave its tracks and whatever the set's own playback type.
#include <d3dx9.h>

#include <string>
#include <vector>

namespace vexilview {

struct AnimationSetFacts {
    std::string name;
    double seconds = 0.0;         // one pass through the set
    double ticksPerSecond = 0.0;  // 0 when the set does not say (not a keyframed set)
    bool looped = true;           // what the file asks for; the viewer loops unless told --once
    std::vector<std::string> missingFrames;  // frames the set animates that the scene lacks
};

class Playback {
public:
    // Reads the controller's sets and selects the one D3DX put on the first track (the first
    // the file defines); without a controller there is nothing to play.
    void attach(ID3DXAnimationController* controller, D3DXFRAME* root);

    const std::vector<AnimationSetFacts>& sets() const { return m_sets; }
    unsigned current() const { return m_current; }
    // The set named, or numbered as sets() lists them (from 0); -1 when there is none such.
    int find(const std::string& nameOrIndex) const;
    // Puts the set on the first track, the other tracks off, and the clock back to its start.
    void select(unsigned index);

    void setOnce(bool once) { m_once = once; }
    void setSpeed(double speed) { m_speed = speed; }
    // Moves the clock on by seconds of real time and poses the frames there.
    void advance(double seconds);
    // Poses the frames at a time of the current set (0 to its length), leaving the clock alone.
    void poseAt(double position);
    // Where the clock puts the set: looped, or held at the end once played.
    double position() const;

private:
    ID3DXAnimationController* m_controller = nullptr;
    std::vector<ID3DXAnimationSet*> m_handles;  // the controller's; it keeps them alive
    std::vector<AnimationSetFacts> m_sets;
    unsigned m_current = 0;
    double m_clock = 0.0;
    double m_speed = 1.0;
    bool m_once = false;
};

}  // namespace vexilview
