#include "Png.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>

namespace vexilsupport {

namespace {

const uint8_t kSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

void putBigEndian(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void putShort(std::vector<uint8_t>& out, unsigned value) {
    out.push_back(static_cast<uint8_t>(value >> 8));
    out.push_back(static_cast<uint8_t>(value));
}

void putChunk(std::vector<uint8_t>& out, const char* type, const std::vector<uint8_t>& data) {
    putBigEndian(out, static_cast<uint32_t>(data.size()));
    std::vector<uint8_t> body(type, type + 4);
    body.insert(body.end(), data.begin(), data.end());
    out.insert(out.end(), body.begin(), body.end());
    putBigEndian(out, static_cast<uint32_t>(crc32(0, body.data(), static_cast<uInt>(body.size()))));
}

// Each row is written with the "Up" filter (difference to the row above), which turns the large
// flat and smoothly shaded areas of rendered pictures into runs of zeros that deflate well.
std::vector<uint8_t> filteredRows(const Image& image) {
    const size_t rowBytes = static_cast<size_t>(image.width) * 3;
    std::vector<uint8_t> raw;
    raw.reserve(image.height * (rowBytes + 1));
    std::vector<uint8_t> previous(rowBytes, 0), row(rowBytes);
    for (unsigned y = 0; y < image.height; ++y) {
        for (unsigned x = 0; x < image.width; ++x) {
            uint32_t p = image.at(x, y);
            row[x * 3] = static_cast<uint8_t>(p >> 16);
            row[x * 3 + 1] = static_cast<uint8_t>(p >> 8);
            row[x * 3 + 2] = static_cast<uint8_t>(p);
        }
        raw.push_back(2);
        for (size_t i = 0; i < rowBytes; ++i) raw.push_back(static_cast<uint8_t>(row[i] - previous[i]));
        previous.swap(row);
    }
    return raw;
}

bool compressed(const Image& image, std::vector<uint8_t>& out) {
    const std::vector<uint8_t> raw = filteredRows(image);
    uLongf size = compressBound(static_cast<uLong>(raw.size()));
    out.resize(size);
    if (compress2(out.data(), &size, raw.data(), static_cast<uLong>(raw.size()), Z_BEST_COMPRESSION) != Z_OK)
        return false;
    out.resize(size);
    return true;
}

std::vector<uint8_t> header(unsigned width, unsigned height) {
    std::vector<uint8_t> data;
    putBigEndian(data, width);
    putBigEndian(data, height);
    data.insert(data.end(), {8, 2, 0, 0, 0});  // 8-bit RGB
    return data;
}

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return std::fclose(f) == 0 && ok;
}

// The smallest rectangle holding every pixel in which two pictures of one size differ; one
// pixel when they are alike (a frame cannot be empty).
struct Rectangle {
    unsigned left, top, width, height;
};

Rectangle changed(const Image& before, const Image& after) {
    unsigned left = after.width, right = 0, top = after.height, bottom = 0;
    for (unsigned y = 0; y < after.height; ++y)
        for (unsigned x = 0; x < after.width; ++x)
            if (before.at(x, y) != after.at(x, y)) {
                left = std::min(left, x), right = std::max(right, x);
                top = std::min(top, y), bottom = std::max(bottom, y);
            }
    if (left > right) return {0, 0, 1, 1};
    return {left, top, right - left + 1, bottom - top + 1};
}

Image cut(const Image& image, const Rectangle& r) {
    Image part;
    part.width = r.width;
    part.height = r.height;
    for (unsigned y = 0; y < r.height; ++y)
        for (unsigned x = 0; x < r.width; ++x) part.pixels.push_back(image.at(r.left + x, r.top + y));
    return part;
}

}  // namespace

bool writePng(const std::string& path, const Image& image) {
    std::vector<uint8_t> data;
    if (!compressed(image, data)) return false;
    std::vector<uint8_t> file(std::begin(kSignature), std::end(kSignature));
    putChunk(file, "IHDR", header(image.width, image.height));
    putChunk(file, "IDAT", data);
    putChunk(file, "IEND", {});
    return writeFile(path, file);
}

Image shrink(const Image& picture, unsigned factor) {
    Image small;
    small.width = std::max(1u, picture.width / factor);
    small.height = std::max(1u, picture.height / factor);
    small.pixels.resize(static_cast<size_t>(small.width) * small.height);
    for (unsigned y = 0; y < small.height; ++y) {
        for (unsigned x = 0; x < small.width; ++x) {
            unsigned sum[3] = {0, 0, 0}, count = 0;
            for (unsigned dy = 0; dy < factor && y * factor + dy < picture.height; ++dy)
                for (unsigned dx = 0; dx < factor && x * factor + dx < picture.width; ++dx, ++count)
                    for (unsigned c = 0; c < 3; ++c) sum[c] += (picture.at(x * factor + dx, y * factor + dy) >> (16 - 8 * c)) & 0xFF;
            small.pixels[y * small.width + x] = 0xFF000000u | (sum[0] / count) << 16 | (sum[1] / count) << 8 | (sum[2] / count);
        }
    }
    return small;
}

bool AnimatedPng::add(const Image& frame) {
    if (m_frames > 0 && (frame.width != m_previous.width || frame.height != m_previous.height)) return false;
    const Rectangle r = m_frames == 0 ? Rectangle{0, 0, frame.width, frame.height} : changed(m_previous, frame);
    std::vector<uint8_t> data;
    if (!compressed(r.width == frame.width && r.height == frame.height ? frame : cut(frame, r), data)) return false;
    std::vector<uint8_t> control;
    putBigEndian(control, m_sequence++);
    for (unsigned value : {r.width, r.height, r.left, r.top}) putBigEndian(control, value);
    putShort(control, std::min(m_delay, 65535u));
    putShort(control, 1000);                    // the delay is in milliseconds
    control.insert(control.end(), {0, 0});      // leave the canvas as drawn; replace the rectangle
    putChunk(m_chunks, "fcTL", control);
    if (m_frames == 0) {
        putChunk(m_chunks, "IDAT", data);
    } else {
        std::vector<uint8_t> body;
        putBigEndian(body, m_sequence++);
        body.insert(body.end(), data.begin(), data.end());
        putChunk(m_chunks, "fdAT", body);
    }
    m_previous = frame;
    ++m_frames;
    return true;
}

bool AnimatedPng::write(const std::string& path) const {
    if (m_frames == 0) return false;
    std::vector<uint8_t> file(std::begin(kSignature), std::end(kSignature));
    putChunk(file, "IHDR", header(m_previous.width, m_previous.height));
    std::vector<uint8_t> animation;
    putBigEndian(animation, m_frames);
    putBigEndian(animation, 0);  // plays for ever
    putChunk(file, "acTL", animation);
    file.insert(file.end(), m_chunks.begin(), m_chunks.end());
    putChunk(file, "IEND", {});
    return writeFile(path, file);
}

}  // namespace vexilsupport
