#pragma once
#include <d3dx9.h>

#include <string>
#include <vector>

// The animation content of an X file, ready to become keyframed animation sets.
struct XAnimation {
    std::string frameName;
    std::vector<D3DXKEY_VECTOR3> scale;
    std::vector<D3DXKEY_QUATERNION> rotation;
    std::vector<D3DXKEY_VECTOR3> translation;
};

struct XAnimationSet {
    std::string name;
    bool open = false;  // AnimationOptions "open": plays once instead of looping
    std::vector<XAnimation> animations;
};

struct XAnimationContent {
    double ticksPerSecond = 4800;  // when the file does not say, or says 0
    std::vector<XAnimationSet> sets;
    std::string loadableFile;  // the file as the system loader can read it (see prepareXFile)
};

enum class XPreparation {
    Ready,    // content.loadableFile is what the system loader gets
    Foreign,  // not an X file: the system loader gives its own answer
    Damaged,  // an X file that does not hold together: refused before the system loader sees it
};

// Reads the animation sets of a text, binary or compressed X file and prepares a plain copy for
// the system loader: the skin templates and AnimTicksPerSecond declared when the file does not
// declare them, the animation objects taken out (they are ours to read, and a key naming a
// missing frame would otherwise fail the whole load), and a frame's reference to a top-level
// mesh replaced by that mesh.
XPreparation prepareXFile(const char* data, size_t size, XAnimationContent& content);

// Builds the controller for `content` over the loaded hierarchy: one keyframed set per
// animation set, outputs registered to the frames' TransformationMatrix by name, the first set
// on track 0. Null when the file has no animation sets.
ID3DXAnimationController* createXAnimationController(const XAnimationContent& content, D3DXFRAME* root);
