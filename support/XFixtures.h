#pragma once
// The X files the d3dx tests and the fuzz campaign are made of: text fixtures, a writer for the
// binary encoding, and MSZIP compression of either.
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace xfixtures {

// Frames Root > {Arm at (7,8,9), Still scaled by 2 at (1,2,3)}.
extern const char* const kFrames;
// "Wave" (Arm by position, scale and rotation keys, Root by matrix keys) and "Idle" (open,
// Arm by position keys over 30 ticks). Rotations are stored as w, x, y, z of the inverse.
extern const char* const kWaveAndIdle;
// Frame Body holding a skinned triangle (undeclared skin templates) and its bone frame "Bone",
// with "Sway" moving Bone up by 2 over one second at 4800 ticks.
extern const char* const kSkinnedTriangle;
// A top-level mesh "CubeMesh" that frame "CubeFrame" references by name, and an animation of
// CubeFrame.
extern const char* const kReferencedCube;

// "xof 0303txt 0032" and the given parts.
std::string textFile(std::initializer_list<std::string> parts);

// Writes the binary encoding of X files token by token.
class BinaryX {
public:
    BinaryX();
    BinaryX& name(const std::string& text);
    BinaryX& string(const std::string& text);
    BinaryX& integers(const std::vector<uint32_t>& values);
    BinaryX& floats(const std::vector<float>& values);
    BinaryX& open() { return word(10); }
    BinaryX& close() { return word(11); }
    BinaryX& object(const std::string& type, const std::string& objectName = std::string());
    BinaryX& reference(const std::string& target) { return open().name(target).close(); }
    BinaryX& matrix(float x, float y, float z);
    BinaryX& word(uint16_t value);
    BinaryX& dword(uint32_t value);
    const std::string& bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

// The binary twin of kSkinnedTriangle's kind: a skinned triangle under frame Body, bone frame
// Arm at (7,8,9), "Wave" moving Arm from (0,0,0) to (10,20,0) over 10 ticks at 10 per second.
std::string binarySkinnedScene();

// Frame "Strip" holding a row of `faces` unit quads along x (quad i from x = i to i + 1) with
// the materials Red and Blue, whose MeshMaterialList lists `indices` (as many as given, however
// many faces there are). `referenced`: the mesh stands at the top level and the frame names it.
std::string materialListFile(size_t faces, const std::vector<uint32_t>& indices, bool binary,
                             bool referenced = false);

// A plain X file in the MSZIP encoding ("tzip" for text, "bzip" for binary), in chunks of at
// most `chunk` bytes.
std::string compressed(const std::string& plain, size_t chunk = 32768);

// The project's own X files, named, for the fuzz campaign.
std::vector<std::pair<std::string, std::string>> seedFiles();

}  // namespace xfixtures
