#include "XText.h"

#include "TestPaths.h"

#include <fstream>

namespace vexiltest {
namespace xtext {

namespace {

// The sixteen numbers row by row, as a Matrix4x4.
std::string matrixText(const D3DXMATRIX& m) {
    std::string text;
    for (int i = 0; i < 16; ++i) text += std::to_string(m[i]) + (i < 15 ? "," : ";;");
    return text;
}

}  // namespace

std::string xHeader() {
    return "xof 0303txt 0032\n"
           "template XSkinMeshHeader { <3cf169ce-ff7c-44ab-93c0-f78f62d172e2>\n"
           " WORD nMaxSkinWeightsPerVertex; WORD nMaxSkinWeightsPerFace; WORD nBones; }\n"
           "template SkinWeights { <6f0d123b-bad2-4167-a0d0-80224f25fabb>\n"
           " STRING transformNodeName; DWORD nWeights; array DWORD vertexIndices[nWeights];\n"
           " array FLOAT weights[nWeights]; Matrix4x4 matrixOffset; }\n";
}

std::string frame(const std::string& name, const std::string& body) { return "Frame " + name + " {\n" + body + "}\n"; }

std::string transform(const D3DXMATRIX& matrix) { return "FrameTransformMatrix { " + matrixText(matrix) + " }\n"; }

std::string translation(float x, float y, float z) {
    return transform(D3DXMATRIX(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1));
}

std::string quadMesh(const std::string& name, const std::string& materials, const std::string& extra) {
    return "Mesh " + name + " {\n 4; 0.0;0.0;0.0;, 1.0;0.0;0.0;, 1.0;1.0;0.0;, 0.0;1.0;0.0;;\n 2; 3;0,1,2;, 3;0,2,3;;\n" + materials + extra +
           "}\n";
}

std::string material(float r, float g, float b, float a, float power, const std::string& textureFile) {
    std::string text = "Material { " + std::to_string(r) + ";" + std::to_string(g) + ";" + std::to_string(b) + ";" +
                       std::to_string(a) + ";; " + std::to_string(power) + "; 0.25;0.5;0.75;; 0.1;0.2;0.3;;\n";
    if (!textureFile.empty()) text += " TextureFilename { \"" + textureFile + "\"; }\n";
    return text + "}\n";
}

std::string materialList(const std::vector<std::string>& materials, unsigned face0, unsigned face1) {
    std::string text = "MeshMaterialList { " + std::to_string(materials.size()) + "; 2; " + std::to_string(face0) + ", " +
                       std::to_string(face1) + ";;\n";
    for (const std::string& m : materials) text += m;
    return text + "}\n";
}

std::string skin(const std::vector<std::string>& bones, const D3DXMATRIX& offset) {
    std::string text = "XSkinMeshHeader { 2; 2; " + std::to_string(bones.size()) + "; }\n";
    for (size_t b = 0; b < bones.size(); ++b)
        text += "SkinWeights { \"" + bones[b] + "\"; 2; " + std::to_string(2 * b % 4) + "," + std::to_string(2 * b % 4 + 1) +
                "; 1.0,1.0; " + matrixText(offset) + " }\n";
    return text;
}

std::string writeFixture(const std::string& fileName, const std::string& text) {
    std::string path = vexiltest::outputDir() + "\\" + fileName;
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

}  // namespace xtext
}  // namespace vexiltest
