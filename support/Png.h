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

// The picture `factor` times smaller in each direction (at least one pixel), each pixel the mean
// of those it covers.
Image shrink(const Image& picture, unsigned factor);

// An animated PNG, looping for ever, that web browsers play (other programs show its first
// frame). Frames are added one by one, all of one size; each after the first keeps only the
// rectangle in which it differs from the one before, so still backgrounds cost nothing.
class AnimatedPng {
public:
    explicit AnimatedPng(unsigned frameMilliseconds) : m_delay(frameMilliseconds) {}
    // False when the frame's size differs from the first's or it cannot be compressed.
    bool add(const Image& frame);
    unsigned frameCount() const { return m_frames; }
    // False when no frame was added or the file cannot be written.
    bool write(const std::string& path) const;

private:
    unsigned m_delay;
    unsigned m_frames = 0;
    uint32_t m_sequence = 0;
    Image m_previous;
    std::vector<uint8_t> m_chunks;  // frame controls and frame data, in order
};

}  // namespace vexilsupport
