#include "Png.h"

#include <cstdio>

namespace vexilsupport {

namespace {

uint32_t crc32(const uint8_t* data, size_t size, uint32_t crc = 0) {
    crc = ~crc;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

void putBigEndian(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void putChunk(std::vector<uint8_t>& out, const char* type, const std::vector<uint8_t>& data) {
    putBigEndian(out, static_cast<uint32_t>(data.size()));
    std::vector<uint8_t> body(type, type + 4);
    body.insert(body.end(), data.begin(), data.end());
    out.insert(out.end(), body.begin(), body.end());
    putBigEndian(out, crc32(body.data(), body.size()));
}

// zlib stream of stored (uncompressed) deflate blocks: tiny and dependency-free.
std::vector<uint8_t> storedZlib(const std::vector<uint8_t>& raw) {
    std::vector<uint8_t> out = {0x78, 0x01};
    size_t at = 0;
    do {
        size_t n = raw.size() - at < 65535 ? raw.size() - at : 65535;
        bool last = at + n == raw.size();
        out.push_back(last ? 1 : 0);
        out.push_back(static_cast<uint8_t>(n));
        out.push_back(static_cast<uint8_t>(n >> 8));
        out.push_back(static_cast<uint8_t>(~n));
        out.push_back(static_cast<uint8_t>(~n >> 8));
        out.insert(out.end(), raw.begin() + static_cast<long>(at), raw.begin() + static_cast<long>(at + n));
        at += n;
    } while (at < raw.size());
    uint32_t a = 1, b = 0;
    for (uint8_t byte : raw) {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    putBigEndian(out, (b << 16) | a);
    return out;
}

}  // namespace

bool writePng(const std::string& path, const Image& image) {
    std::vector<uint8_t> raw;
    raw.reserve(static_cast<size_t>(image.height) * (image.width * 3 + 1));
    for (unsigned y = 0; y < image.height; ++y) {
        raw.push_back(0);  // no row filter
        for (unsigned x = 0; x < image.width; ++x) {
            uint32_t p = image.at(x, y);
            raw.push_back(static_cast<uint8_t>(p >> 16));
            raw.push_back(static_cast<uint8_t>(p >> 8));
            raw.push_back(static_cast<uint8_t>(p));
        }
    }
    std::vector<uint8_t> header;
    putBigEndian(header, image.width);
    putBigEndian(header, image.height);
    header.insert(header.end(), {8, 2, 0, 0, 0});  // 8-bit RGB
    std::vector<uint8_t> file = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    putChunk(file, "IHDR", header);
    putChunk(file, "IDAT", storedZlib(raw));
    putChunk(file, "IEND", {});
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    bool ok = std::fwrite(file.data(), 1, file.size(), f) == file.size();
    return std::fclose(f) == 0 && ok;
}

}  // namespace vexilsupport
