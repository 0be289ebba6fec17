#pragma once
// What a loaded file holds, and what the viewer does about what it cannot draw as the file says:
// printed by --info, the warnings repeated by the headless summary.
#include "ViewerScene.h"

#include <cstdio>
#include <string>
#include <vector>

namespace vexilview {

struct ContainerFacts {
    std::string frame, name;
    bool skinned = false;
    unsigned vertices = 0, triangles = 0, materials = 0, bones = 0;
    std::vector<std::string> texturesFound, texturesMissing;  // file names, each once
};

struct SceneReport {
    unsigned frames = 0;
    std::vector<ContainerFacts> containers;
    unsigned bones = 0;  // distinct bone names over all skins
    std::vector<AnimationSetFacts> sets;
    unsigned playing = 0;  // the set drawn, when there are sets
    D3DXVECTOR3 centre = D3DXVECTOR3(0, 0, 0);
    float radius = 0.0f;
    unsigned triangles = 0;  // drawn each frame
    bool cameraFrame = false;
    std::vector<std::string> warnings;

    std::vector<std::string> texturesFound() const;
    std::vector<std::string> texturesMissing() const;
};

// The facts of a prepared scene; textures tells whether missing textures matter (not with
// --no-textures).
SceneReport describeScene(const ViewerScene& scene, bool textures);
// The report as --info prints it, after a first line naming the file.
void printReport(std::FILE* out, const std::string& file, const SceneReport& report);

}  // namespace vexilview
