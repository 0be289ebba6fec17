#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace vexilsupport {

// 32-bit pixels as D3DCOLOR (0xAARRGGBB), rows top to bottom.
struct Image {
    unsigned width = 0;
    unsigned height = 0;
    std::vector<uint32_t> pixels;
    uint32_t at(unsigned x, unsigned y) const { return pixels[y * width + x]; }
};

// Writes an RGB PNG; false when the file cannot be written.
bool writePng(const std::string& path, const Image& image);

}  // namespace vexilsupport
