#include "Png.h"

#include <zlib.h>

#include <cstdio>

namespace vexilsupport {

namespace {

void putBigEndian(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
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

bool deflate(const std::vector<uint8_t>& raw, std::vector<uint8_t>& out) {
    uLongf size = compressBound(static_cast<uLong>(raw.size()));
    out.resize(size);
    if (compress2(out.data(), &size, raw.data(), static_cast<uLong>(raw.size()), Z_BEST_COMPRESSION) != Z_OK)
        return false;
    out.resize(size);
    return true;
}

}  // namespace

bool writePng(const std::string& path, const Image& image) {
    std::vector<uint8_t> compressed;
    if (!deflate(filteredRows(image), compressed)) return false;
    std::vector<uint8_t> header;
    putBigEndian(header, image.width);
    putBigEndian(header, image.height);
    header.insert(header.end(), {8, 2, 0, 0, 0});  // 8-bit RGB
    std::vector<uint8_t> file = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    putChunk(file, "IHDR", header);
    putChunk(file, "IDAT", compressed);
    putChunk(file, "IEND", {});
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(file.data(), 1, file.size(), f) == file.size();
    return std::fclose(f) == 0 && ok;
}

}  // namespace vexilsupport
