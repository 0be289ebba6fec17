#include "SceneReport.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace vexilview {

namespace {

std::string baseName(const std::string& path) { return path.substr(path.find_last_of("\\/") + 1); }

std::string quoted(const char* name) { return std::string("'") + (name && *name ? name : "(nameless)") + "'"; }

void addOnce(std::vector<std::string>& list, const std::string& item) {
    if (std::find(list.begin(), list.end(), item) == list.end()) list.push_back(item);
}

bool contains(const zeb::Array<zeb::String>& names, const zeb::String& name) {
    for (const zeb::String& n : names)
        if (n == name) return true;
    return false;
}

// The library drops a skinned container it cannot build; the skins it kept name theirs.
bool wasBuilt(const MeshManagerD3DX9& manager, const D3DXMESHCONTAINER* container) {
    for (const SkinnedMesh& skinned : manager.skinnedMesh())
        if (const_cast<SkinnedMesh&>(skinned).sourceMeshContainer() == container) return true;  // reads only
    return false;
}

class Describer {
public:
    Describer(const ViewerScene& scene, bool textures) : m_scene(scene), m_textures(textures) {}

    SceneReport run() {
        const FrameNodeIndexer& frames = m_scene.meshManager().frameIndex();
        m_report.frames = frames.size();
        for (unsigned i = 0; i < frames.size(); ++i)
            for (const D3DXMESHCONTAINER* c = frames[static_cast<int>(i)].m_frame->pMeshContainer; c; c = c->pNextMeshContainer)
                addContainer(*frames[static_cast<int>(i)].m_frame, *c);
        m_report.bones = static_cast<unsigned>(m_bones.size());
        addSets();
        addSubstitutes();
        m_report.centre = m_scene.centre();
        m_report.radius = m_scene.radius();
        m_report.triangles = m_scene.triangleCount();
        m_report.cameraFrame = m_scene.hasCameraFrame();
        if (m_report.triangles == 0) warn("nothing to draw: the file holds no mesh the viewer can show");
        return m_report;
    }

private:
    void warn(const std::string& text) { addOnce(m_report.warnings, text); }

    void addContainer(const D3DXFRAME& frame, const D3DXMESHCONTAINER& c) {
        ContainerFacts facts;
        facts.frame = frame.Name ? frame.Name : "";
        facts.name = c.Name ? c.Name : "";
        facts.skinned = isSkinned(c);
        facts.materials = c.pMaterials ? c.NumMaterials : 0;
        if (c.MeshData.Type != D3DXMESHTYPE_MESH || !c.MeshData.pMesh) {
            warn("mesh " + quoted(c.Name) + " of frame " + quoted(frame.Name) + " is a patch or progressive mesh: not drawn");
        } else {
            facts.vertices = c.MeshData.pMesh->GetNumVertices();
            facts.triangles = c.MeshData.pMesh->GetNumFaces();
        }
        for (DWORD m = 0; m < facts.materials; ++m) addTexture(facts, c.pMaterials[m].pTextureFilename);
        if (facts.skinned) addSkin(facts, c);
        m_report.containers.push_back(facts);
    }

    void addTexture(ContainerFacts& facts, const char* file) {
        if (!file || !*file) return;
        const zeb::String name(file);
        if (m_scene.meshManager().textureResources().find(name)) {
            addOnce(facts.texturesFound, baseName(file));
        } else if (contains(m_scene.meshManager().failedTextures(), name)) {
            addOnce(facts.texturesMissing, baseName(file));
            if (m_textures) warn(std::string("texture ") + file + " did not load: drawn without it (--textures DIR looks elsewhere)");
        }
    }

    void addSkin(ContainerFacts& facts, const D3DXMESHCONTAINER& c) {
        ID3DXSkinInfo* skin = c.pSkinInfo;
        facts.bones = skin->GetNumBones();
        for (DWORD b = 0; b < skin->GetNumBones(); ++b) {
            const char* bone = skin->GetBoneName(b);
            m_bones.insert(bone ? bone : "");
            if (!m_scene.meshManager().frameIndex().frameListIndex().find(zeb::String(bone ? bone : "")))
                warn("bone " + quoted(bone) + " of " + quoted(c.Name) + " is not a frame of the file: its vertices follow the first frame");
        }
        if (!wasBuilt(m_scene.meshManager(), &c))
            warn("skinned mesh " + quoted(c.Name) + " could not be built: not drawn (frames a --k2m list names for it are hidden)");
    }

    void addSets() {
        const Playback& playback = m_scene.playback();
        m_report.sets = playback.sets();
        m_report.playing = playback.current();
        for (const AnimationSetFacts& set : m_report.sets) {
            std::string frames;
            for (const std::string& f : set.missingFrames) frames += (frames.empty() ? "'" : ", '") + f + "'";
            if (!frames.empty())
                warn("animation set " + quoted(set.name.c_str()) + " moves frames the file does not have (" + frames +
                     "): those keys are ignored");
        }
    }

    // What the viewer draws in the library's place.
    void addSubstitutes() {
        const FrameNodeIndexer& frames = m_scene.meshManager().frameIndex();
        for (const BareMesh& bare : m_scene.bareMeshes())
            for (const D3DXMESHCONTAINER* c = frames[static_cast<int>(bare.frame)].m_frame->pMeshContainer; c; c = c->pNextMeshContainer)
                if (c->MeshData.pMesh == bare.mesh)
                    warn("mesh " + quoted(c->Name) + " of frame " + quoted(frames[static_cast<int>(bare.frame)].m_frame->Name) +
                         " has no material: drawn in neutral grey");
        const zeb::Array<SkinnedMesh>& skins = m_scene.meshManager().skinnedMesh();
        for (unsigned i = 0; i < skins.size(); ++i) {
            if (m_scene.skinMaterials()[i].empty()) continue;
            const D3DXMESHCONTAINER* c = const_cast<SkinnedMesh&>(skins[i]).sourceMeshContainer();  // reads only
            warn("skinned mesh " + quoted(c ? c->Name : nullptr) +
                 " is left black by the library (the file loads no texture): drawn with the file's material");
        }
    }

    const ViewerScene& m_scene;
    bool m_textures;
    SceneReport m_report;
    std::set<std::string> m_bones;
};

std::string counted(unsigned count, const std::string& thing, const std::string& things = "") {
    return std::to_string(count) + " " + (count == 1 ? thing : things.empty() ? thing + "s" : things);
}

// A coordinate, with what is only rounding error next to the sphere's size shown as 0.
double tidy(float value, float radius) { return std::fabs(value) < radius * 1e-4f ? 0.0 : value; }

void printList(std::FILE* out, const char* label, const std::vector<std::string>& items) {
    if (items.empty()) return;
    std::fprintf(out, "  %s", label);
    for (size_t i = 0; i < items.size(); ++i) std::fprintf(out, "%s%s", i ? ", " : " ", items[i].c_str());
}

}  // namespace

std::vector<std::string> SceneReport::texturesFound() const {
    std::vector<std::string> all;
    for (const ContainerFacts& c : containers)
        for (const std::string& t : c.texturesFound) addOnce(all, t);
    return all;
}

std::vector<std::string> SceneReport::texturesMissing() const {
    std::vector<std::string> all;
    for (const ContainerFacts& c : containers)
        for (const std::string& t : c.texturesMissing) addOnce(all, t);
    return all;
}

SceneReport describeScene(const ViewerScene& scene, bool textures) { return Describer(scene, textures).run(); }

void printReport(std::FILE* out, const std::string& file, const SceneReport& r) {
    std::fprintf(out, "%s\n", file.c_str());
    std::fprintf(out, "frames      %u\n", r.frames);
    std::fprintf(out, "meshes      %s, %s drawn a frame\n", counted(static_cast<unsigned>(r.containers.size()), "mesh container").c_str(),
                 counted(r.triangles, "triangle").c_str());
    for (const ContainerFacts& c : r.containers) {
        std::fprintf(out, "  %s in frame %s: %s, %s, %s, %s", quoted(c.name.c_str()).c_str(), quoted(c.frame.c_str()).c_str(),
                     c.skinned ? "skinned" : "rigid",
                     counted(c.vertices, "vertex", "vertices").c_str(), counted(c.triangles, "triangle").c_str(),
                     counted(c.materials, "material").c_str());
        if (c.skinned) std::fprintf(out, ", %s", counted(c.bones, "bone").c_str());
        printList(out, "textures found:", c.texturesFound);
        printList(out, "missing:", c.texturesMissing);
        std::fprintf(out, "\n");
    }
    std::fprintf(out, "bones       %u\n", r.bones);
    std::fprintf(out, "animation   %s%s\n", counted(static_cast<unsigned>(r.sets.size()), "set").c_str(),
                 r.sets.empty() ? "" : " (index, name, length, ticks a second, the file's playback)");
    for (size_t i = 0; i < r.sets.size(); ++i) {
        const AnimationSetFacts& s = r.sets[i];
        std::fprintf(out, "  %zu %s %.2f s, %g ticks a second, %s%s\n", i, quoted(s.name.c_str()).c_str(), s.seconds, s.ticksPerSecond,
                     s.looped ? "loop" : "once", i == r.playing ? " (plays)" : "");
    }
    std::fprintf(out, "bounds      sphere at (%.4g, %.4g, %.4g), radius %.4g%s\n", tidy(r.centre.x, r.radius),
                 tidy(r.centre.y, r.radius), tidy(r.centre.z, r.radius), r.radius,
                 r.sets.empty() ? "" : ", over the run of the set that plays");
    std::fprintf(out, "camera      %s\n", r.cameraFrame ? "the file's \"CameraDummy\" frame" : "framing the bounding sphere");
    std::fprintf(out, "warnings    %zu\n", r.warnings.size());
    for (const std::string& w : r.warnings) std::fprintf(out, "  %s\n", w.c_str());
}

}  // namespace vexilview
