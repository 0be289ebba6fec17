#include "XCompressed.h"

#include <zlib.h>

#include <cstdint>
#include <cstring>

namespace {

const size_t kHeaderSize = 16;
const size_t kChunkLimit = 32768;  // an MSZIP chunk never inflates to more than its 32 KB window
const char kChunkSignature[2] = {'C', 'K'};

uint16_t readWord(const char* at)
{
    uint16_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

uint32_t readDword(const char* at)
{
    uint32_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

// One chunk: "CK" and a raw deflate stream that may look back into the chunk before it, as
// MSZIP chunks do. It must end exactly where the chunk ends and give exactly `expected` bytes.
bool inflateChunk(const char* data, size_t size, size_t expected, const std::string& history, std::string& out)
{
    if (size < sizeof kChunkSignature || std::memcmp(data, kChunkSignature, sizeof kChunkSignature) != 0)
        return false;
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK)
        return false;
    const size_t window = history.size() < kChunkLimit ? history.size() : kChunkLimit;
    bool ok = window == 0 ||
              inflateSetDictionary(&stream, reinterpret_cast<const Bytef*>(history.data() + history.size() - window),
                                   uInt(window)) == Z_OK;
    const size_t start = out.size();
    out.resize(start + expected);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data + sizeof kChunkSignature));
    stream.avail_in = uInt(size - sizeof kChunkSignature);
    stream.next_out = reinterpret_cast<Bytef*>(&out[start]);
    stream.avail_out = uInt(expected);
    ok = ok && inflate(&stream, Z_FINISH) == Z_STREAM_END && stream.avail_out == 0 && stream.avail_in == 0;
    inflateEnd(&stream);
    return ok;
}

}  // namespace

bool isCompressedXFile(const char* data, size_t size)
{
    return size >= kHeaderSize && std::memcmp(data, "xof ", 4) == 0 &&
           (std::memcmp(data + 8, "tzip", 4) == 0 || std::memcmp(data + 8, "bzip", 4) == 0);
}

// Layout after the 16-byte header: the plain file's size (header included), then chunks of
// [inflated size][stored size]["CK" + deflate data of stored size - 2].
bool decompressXFile(const char* data, size_t size, std::string& plain)
{
    if (!isCompressedXFile(data, size) || size < kHeaderSize + 4)
        return false;
    const uint32_t plainSize = readDword(data + kHeaderSize);
    if (plainSize < kHeaderSize)
        return false;
    plain.assign(data, kHeaderSize);
    std::memcpy(&plain[8], data[8] == 't' ? "txt " : "bin ", 4);
    std::string body;
    size_t at = kHeaderSize + 4;
    while (at < size) {
        if (size - at < 4)
            return false;
        const size_t inflated = readWord(data + at);
        const size_t stored = readWord(data + at + 2);
        at += 4;
        if (inflated == 0 || inflated > kChunkLimit || stored > size - at || body.size() + inflated > plainSize)
            return false;
        std::string history = body.size() > kChunkLimit ? body.substr(body.size() - kChunkLimit) : body;
        if (!inflateChunk(data + at, stored, inflated, history, body))
            return false;
        at += stored;
    }
    if (body.size() != plainSize - kHeaderSize)
        return false;
    plain += body;
    return true;
}
