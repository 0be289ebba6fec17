#include "XMaterialList.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace {

const uint16_t kIntegerListToken = 6;

std::vector<uint32_t> indexPerFace(const XMaterialList& entry)
{
    const std::vector<double>& n = entry.list.numbers;  // materials, index count, indices
    const size_t present = n.size() - 2;
    const size_t listed = n[1] < double(present) ? size_t(n[1]) : present;
    std::vector<uint32_t> indices(entry.meshFaces, 0);
    for (size_t face = 0; face < entry.meshFaces; ++face) {
        if (listed)
            indices[face] = uint32_t(n[2 + std::min(face, listed - 1)]);
    }
    return indices;
}

std::string textList(uint32_t materials, const std::vector<uint32_t>& indices)
{
    std::string text = " " + std::to_string(materials) + ";\n" + std::to_string(indices.size()) + ";\n";
    for (size_t i = 0; i < indices.size(); ++i)
        text += std::to_string(indices[i]) + (i + 1 < indices.size() ? "," : ";;\n");
    return text;
}

std::string binaryList(uint32_t materials, const std::vector<uint32_t>& indices)
{
    std::string data;
    appendXWord(data, kIntegerListToken);
    appendXDword(data, uint32_t(indices.size() + 2));
    appendXDword(data, materials);
    appendXDword(data, uint32_t(indices.size()));
    for (uint32_t index : indices)
        appendXDword(data, index);
    return data;
}

}  // namespace

bool faceByFaceMaterialList(const XMaterialList& entry, bool binary, std::string& data)
{
    const std::vector<double>& n = entry.list.numbers;
    if (n.size() < 2 || !(n[0] >= 1 && n[0] <= double(UINT32_MAX)) || !(n[1] >= 0) ||
        n[1] == double(entry.meshFaces) || entry.meshFaces == 0 || !entry.list.dataEnd)
        return false;
    const std::vector<uint32_t> indices = indexPerFace(entry);
    data = binary ? binaryList(uint32_t(n[0]), indices) : textList(uint32_t(n[0]), indices);
    return true;
}
