#pragma once
// X files written on the fly for the tests, in the text encoding.
#include <d3dx9.h>

#include <string>
#include <vector>

namespace vexiltest {
namespace xtext {

// The file's first line, and the skin templates: stock Wine refuses skinned files without them.
std::string xHeader();
std::string frame(const std::string& name, const std::string& body);
std::string transform(const D3DXMATRIX& matrix);
std::string translation(float x, float y, float z);
// One quad (two faces taking materials face0 and face1) with optional material list and extras.
std::string quadMesh(const std::string& name, const std::string& materials, const std::string& extra = "");
std::string material(float r, float g, float b, float a, float power, const std::string& textureFile);
std::string materialList(const std::vector<std::string>& materials, unsigned face0, unsigned face1);
// Header plus one weight block per bone, each with that offset matrix.
std::string skin(const std::vector<std::string>& bones,
                 const D3DXMATRIX& offset = D3DXMATRIX(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1));
std::string writeFixture(const std::string& fileName, const std::string& text);  // Windows path

}  // namespace xtext
}  // namespace vexiltest
