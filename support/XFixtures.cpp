#include "XFixtures.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace xfixtures {

// Floats are written with a decimal point: Wine reads "1" as an integer where a float is due.
const char* const kFrames = R"(
Frame Root {
  FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
  Frame Arm {
    FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,7.0,8.0,9.0,1.0;; }
  }
  Frame Still {
    FrameTransformMatrix { 2.0,0.0,0.0,0.0,0.0,2.0,0.0,0.0,0.0,0.0,2.0,0.0,1.0,2.0,3.0,1.0;; }
  }
}
)";

// A turn of +90 degrees about Y, as D3DX matrices apply it, is written 0.7071068, 0, -0.7071068, 0.
const char* const kWaveAndIdle = R"(
AnimationSet Wave {
  Animation Anim-Arm {
    { Arm }
    AnimationKey pos { 2; 2; 0;3;0.0,0.0,0.0;;, 10;3;1.0e1,2.0E+1,0.0;;; }
    AnimationKey { 1; 2; 0;3;1.0,1.0,1.0;;, 20;3;3.0,1.0,1.0;;; }
    AnimationKey { 0; 2; 0;4;1.0,0.0,0.0,0.0;;, 10;4;0.7071068,0.0,-0.7071068,0.0;;; }
  }
  Animation {
    { Root }
    AnimationKey { 4; 2; 0;16;1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;;, 20;16;1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,40.0,1.0;;; }
  }
}
AnimationSet Idle {
  Animation {
    AnimationOptions { 1; 0; }
    { Arm }
    AnimationKey { 2; 2; 0;3;1.0,1.0,1.0;;, 30;3;4.0,1.0,1.0;;; }
  }
}
)";

const char* const kSkinnedTriangle = R"(
Frame Body {
  FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
  Mesh Triangle {
    3; 0.0;0.0;0.0;, 1.0;0.0;0.0;, 0.0;1.0;0.0;;
    1; 3;0,1,2;;
    XSkinMeshHeader { 1; 1; 1; }
    VertexDuplicationIndices { 3; 3; 0, 1, 2; }
    SkinWeights { "Bone"; 3; 0,1,2; 1.0,1.0,1.0; 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
  }
  Frame Bone { FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; } }
}
AnimationSet Sway { Animation { { Bone } AnimationKey { 2; 2; 0;3;0.0,0.0,0.0;;, 4800;3;0.0,2.0,0.0;;; } } }
)";

const char* const kReferencedCube = R"(
Mesh CubeMesh {
  4; -1.0;-1.0;0.0;, 1.0;-1.0;0.0;, 1.0;1.0;0.0;, -1.0;1.0;0.0;;
  2; 3;0,1,2;, 3;0,2,3;;
}
Frame CubeFrame {
  FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
  {CubeMesh}
}
AnimationSet AnimationSet0 {
  Animation Animation0 {
    {CubeFrame}
    AnimationKey { 2; 2; 0;3;0.0,0.0,0.0;;, 4800;3;0.0,3.0,0.0;;; }
  }
}
)";

std::string textFile(std::initializer_list<std::string> parts)
{
    std::string file = "xof 0303txt 0032\n";
    for (const std::string& part : parts)
        file += part;
    return file;
}

BinaryX::BinaryX() : m_bytes("xof 0303bin 0032") {}

BinaryX& BinaryX::word(uint16_t value)
{
    m_bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    return *this;
}

BinaryX& BinaryX::dword(uint32_t value)
{
    m_bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    return *this;
}

BinaryX& BinaryX::name(const std::string& text)
{
    word(1).dword(uint32_t(text.size()));
    m_bytes += text;
    return *this;
}

BinaryX& BinaryX::string(const std::string& text)
{
    word(2).dword(uint32_t(text.size()));
    m_bytes += text;
    return word(20);
}

BinaryX& BinaryX::integers(const std::vector<uint32_t>& values)
{
    word(6).dword(uint32_t(values.size()));
    for (uint32_t v : values)
        dword(v);
    return *this;
}

BinaryX& BinaryX::floats(const std::vector<float>& values)
{
    word(7).dword(uint32_t(values.size()));
    for (float v : values)
        m_bytes.append(reinterpret_cast<const char*>(&v), sizeof v);
    return *this;
}

BinaryX& BinaryX::object(const std::string& type, const std::string& objectName)
{
    name(type);
    if (!objectName.empty())
        name(objectName);
    return open();
}

BinaryX& BinaryX::matrix(float x, float y, float z)
{
    return object("FrameTransformMatrix").floats({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1}).close();
}

std::string binarySkinnedScene()
{
    BinaryX x;
    x.object("AnimTicksPerSecond").integers({10}).close();
    x.object("Frame", "Body").matrix(0, 0, 0);
    x.object("Mesh", "Triangle").integers({3}).floats({0, 0, 0, 1, 0, 0, 0, 1, 0}).integers({1, 3, 0, 1, 2});
    x.object("XSkinMeshHeader").integers({1, 1, 1}).close();
    x.object("SkinWeights").string("Arm").integers({3, 0, 1, 2});
    x.floats({1, 1, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}).close();
    x.close();  // Mesh
    x.object("Frame", "Arm").matrix(7, 8, 9).close();
    x.close();  // Body
    x.object("AnimationSet", "Wave").object("Animation").reference("Arm");
    x.object("AnimationKey").integers({2, 2}).integers({0, 3}).floats({0, 0, 0}).integers({10, 3}).floats({10, 20, 0});
    x.close().close().close();
    return x.bytes();
}

namespace {

struct Strip {
    std::vector<float> corners;     // x, y, z of each vertex
    std::vector<uint32_t> quads;    // face count, then 4 and four corners a face
};

Strip strip(size_t faces)
{
    Strip out;
    for (size_t i = 0; i <= faces; ++i)
        out.corners.insert(out.corners.end(), {float(i), 0, 0, float(i), 1, 0});
    out.quads.push_back(uint32_t(faces));
    for (uint32_t i = 0; i < faces; ++i)
        out.quads.insert(out.quads.end(), {4, 2 * i, 2 * i + 2, 2 * i + 3, 2 * i + 1});
    return out;
}

// Diffuse colour, power, specular, emissive.
const std::vector<float> kRed = {1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0};
const std::vector<float> kBlue = {0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0};
const char* const kRedText = "Material Red { 1.0;0.0;0.0;1.0;; 0.0; 0.0;0.0;0.0;; 0.0;0.0;0.0;; }\n";
const char* const kBlueText = "Material Blue { 0.0;0.0;1.0;1.0;; 0.0; 0.0;0.0;0.0;; 0.0;0.0;0.0;; }\n";

// "a,b,c" of the numbers [from, from + count).
std::string listed(const std::vector<uint32_t>& values, size_t from, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += (i ? "," : "") + std::to_string(values[from + i]);
    return text;
}

std::string textStrip(size_t faces, const std::vector<uint32_t>& indices)
{
    const Strip s = strip(faces);
    std::string text = "Mesh StripMesh {\n" + std::to_string(s.corners.size() / 3) + ";\n";
    for (size_t v = 0; v < s.corners.size(); v += 3)
        text += std::to_string(int(s.corners[v])) + ".0;" + std::to_string(int(s.corners[v + 1])) + ".0;0.0;" +
                (v + 3 < s.corners.size() ? ",\n" : ";\n");
    text += std::to_string(faces) + ";\n";
    for (size_t f = 0; f < faces; ++f)
        text += "4;" + listed(s.quads, 2 + 5 * f, 4) + (f + 1 < faces ? ";,\n" : ";;\n");
    text += "MeshMaterialList {\n2;\n" + std::to_string(indices.size()) + ";\n" +
            listed(indices, 0, indices.size()) + ";;\n";
    return text + kRedText + kBlueText + "}\n}\n";
}

void binaryStrip(BinaryX& x, size_t faces, const std::vector<uint32_t>& indices)
{
    const Strip s = strip(faces);
    std::vector<uint32_t> list = {2, uint32_t(indices.size())};
    list.insert(list.end(), indices.begin(), indices.end());
    x.object("Mesh", "StripMesh").integers({uint32_t(s.corners.size() / 3)}).floats(s.corners).integers(s.quads);
    x.object("MeshMaterialList").integers(list);
    x.object("Material", "Red").floats(kRed).close().object("Material", "Blue").floats(kBlue).close();
    x.close().close();
}

// "CK" and one raw deflate stream. As in MSZIP, the chunk before is the history the stream may
// refer back into.
std::string deflateChunk(const char* data, size_t size, const std::string& history)
{
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    if (!history.empty())
        deflateSetDictionary(&stream, reinterpret_cast<const Bytef*>(history.data()), uInt(history.size()));
    std::string out(deflateBound(&stream, uLong(size)) + 2, '\0');
    out[0] = 'C';
    out[1] = 'K';
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
    stream.avail_in = uInt(size);
    stream.next_out = reinterpret_cast<Bytef*>(&out[2]);
    stream.avail_out = uInt(out.size() - 2);
    deflate(&stream, Z_FINISH);
    out.resize(2 + stream.total_out);
    deflateEnd(&stream);
    return out;
}

void appendWord(std::string& out, uint16_t value)
{
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

std::string compressed(const std::string& plain, size_t chunk)
{
    std::string out = plain.substr(0, 16);
    std::memcpy(&out[8], plain.compare(8, 4, "txt ") == 0 ? "tzip" : "bzip", 4);
    const uint32_t size = uint32_t(plain.size());
    out.append(reinterpret_cast<const char*>(&size), sizeof size);
    std::string history;
    for (size_t at = 16; at < plain.size(); at += chunk) {
        const size_t length = std::min(chunk, plain.size() - at);
        const std::string packed = deflateChunk(plain.data() + at, length, history);
        history = plain.substr(at, length);
        appendWord(out, uint16_t(length));
        appendWord(out, uint16_t(packed.size()));
        out += packed;
    }
    return out;
}

std::string materialListFile(size_t faces, const std::vector<uint32_t>& indices, bool binary, bool referenced)
{
    const std::string identity = "FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }\n";
    if (!binary) {
        const std::string mesh = textStrip(faces, indices);
        return referenced ? textFile({mesh, "Frame Strip {\n", identity, "{ StripMesh }\n}\n"})
                          : textFile({"Frame Strip {\n", identity, mesh, "}\n"});
    }
    BinaryX x;
    if (referenced)
        binaryStrip(x, faces, indices);
    x.object("Frame", "Strip").matrix(0, 0, 0);
    if (referenced)
        x.reference("StripMesh");
    else
        binaryStrip(x, faces, indices);
    return x.close().bytes();
}

std::vector<std::pair<std::string, std::string>> seedFiles()
{
    const std::string scene = textFile({"AnimTicksPerSecond { 10; }\n", kFrames, kWaveAndIdle});
    const std::string skinned = textFile({kSkinnedTriangle});
    const std::string binary = binarySkinnedScene();
    return {{"scene.x", scene},
            {"skinned.x", skinned},
            {"cube-reference.x", textFile({kReferencedCube})},
            {"binary.x", binary},
            {"scene-tzip.x", compressed(scene, 200)},
            {"binary-bzip.x", compressed(binary)},
            {"short-list.x", materialListFile(6, {1, 0}, false, true)},
            {"short-list-bzip.x", compressed(materialListFile(6, {1}, true))}};
}

}  // namespace xfixtures
