#include "Mutator.h"

#include <VexilDX9/EffectFile.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <vector>

namespace fuzz {

namespace {

using Random = std::mt19937;

size_t below(Random& random, size_t limit)
{
    return limit ? size_t(random() % limit) : 0;
}

// Data begins after the 16-byte header of X files; effects are damaged anywhere.
size_t bodyStart(const std::string& file, Encoding encoding)
{
    const bool x = encoding == Encoding::XText || encoding == Encoding::XBinary;
    return x && file.size() > 16 ? 16 : 0;
}

void cutShort(std::string& file, size_t start, Random& random, std::string& what)
{
    const size_t keep = start + below(random, file.size() - start);
    file.resize(keep);
    what += "cut to " + std::to_string(keep) + " bytes; ";
}

void flipBytes(std::string& file, size_t start, Random& random, std::string& what)
{
    const size_t count = 1 + below(random, 8);
    for (size_t i = 0; i < count && file.size() > start; ++i) {
        const size_t at = start + below(random, file.size() - start);
        file[at] = char(uint8_t(file[at]) ^ uint8_t(1 + below(random, 255)));
        what += "flipped byte " + std::to_string(at) + "; ";
    }
}

const char* const kHugeNumbers[] = {"4294967295", "2147483648", "4294967296", "65536", "100000000", "0", "-1"};
const uint32_t kHugeWords[] = {0xFFFFFFFFu, 0x7FFFFFFFu, 0x80000000u, 0x40000001u, 0x10000u, 0u};

// Text: a number becomes a huge (or zero, or negative) one. Binary: an aligned 32-bit word does.
void inflateCount(std::string& file, size_t start, bool text, Random& random, std::string& what)
{
    if (file.size() <= start + 4)
        return;
    if (!text) {
        const size_t at = start + below(random, (file.size() - start - 4) / 2) * 2;
        const uint32_t value = kHugeWords[below(random, sizeof kHugeWords / sizeof *kHugeWords)];
        std::memcpy(&file[at], &value, sizeof value);
        what += "word at " + std::to_string(at) + " set to " + std::to_string(value) + "; ";
        return;
    }
    std::vector<size_t> numbers;
    for (size_t i = start; i < file.size(); ++i) {
        if (std::isdigit(static_cast<unsigned char>(file[i])) &&
            (i == 0 || !std::isdigit(static_cast<unsigned char>(file[i - 1]))))
            numbers.push_back(i);
    }
    if (numbers.empty())
        return;
    const size_t at = numbers[below(random, numbers.size())];
    size_t end = at;
    while (end < file.size() && std::isdigit(static_cast<unsigned char>(file[end])))
        ++end;
    const char* value = kHugeNumbers[below(random, sizeof kHugeNumbers / sizeof *kHugeNumbers)];
    file.replace(at, end - at, value);
    what += "number at " + std::to_string(at) + " set to " + value + "; ";
}

std::string repeated(const std::string& piece, size_t times)
{
    std::string out;
    out.reserve(piece.size() * times);
    for (size_t i = 0; i < times; ++i)
        out += piece;
    return out;
}

std::string binaryWord(uint16_t value)
{
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

// Compiled effects: one or two of the count, offset and size words that the library's check reads
// set to a value a broken writer or a bit flip could leave, so that damage whose structure still
// holds goes on to D3DX.
void damageStructure(std::string& file, Random& random, std::string& what)
{
    static const uint32_t kExtremes[] = {0, 1, 2, 4, 0xFF, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFC, 0xFFFFFFFF};
    std::vector<size_t> words;
    if (!VexilDX9::isWellFormedEffectBinary(reinterpret_cast<const uint8_t*>(file.data()), file.size(), &words))
        return;
    for (size_t edits = 1 + below(random, 2); edits > 0; --edits) {
        const size_t at = words[below(random, words.size())];
        uint32_t word;
        std::memcpy(&word, &file[at], sizeof word);
        switch (below(random, 5)) {
        case 0: word = kExtremes[below(random, sizeof kExtremes / sizeof *kExtremes)]; break;
        case 1: word += 4 * (uint32_t(below(random, 9)) - 4); break;
        case 2: word ^= 1u << below(random, 32); break;
        case 3: word = uint32_t(file.size() - below(random, 16)); break;
        default: word = uint32_t(random()); break;
        }
        std::memcpy(&file[at], &word, sizeof word);
        what += "structure word at " + std::to_string(at) + " set to " + std::to_string(word) + "; ";
    }
}

// Frames inside frames (X files), #if blocks or parentheses inside each other (effect source); a
// compiled effect has its structure damaged instead.
void nestDeeply(std::string& file, size_t start, Encoding encoding, Random& random, std::string& what)
{
    static const size_t kDepths[] = {200, 2000, 20000, 30000};
    const size_t depth = kDepths[below(random, 4)];
    std::string open, close;
    switch (encoding) {
    case Encoding::XText:
        open = "Frame f {\n";
        close = "}\n";
        break;
    case Encoding::XBinary:
        open = binaryWord(1) + std::string("\5\0\0\0Frame", 9) + binaryWord(10);
        close = binaryWord(11);
        break;
    case Encoding::EffectSource:
        if (random() % 2) {
            open = "#if 1\n";
            close = "#endif\n";
        } else {
            open = "static const float nested = ";
            file.insert(start, open + repeated("(", depth) + "1" + repeated(")", depth) + ";\n");
            what += "expression nested " + std::to_string(depth) + " deep; ";
            return;
        }
        break;
    case Encoding::EffectBinary:
        return damageStructure(file, random, what);
    }
    file.insert(start, repeated(open, depth) + repeated(close, depth));
    what += "nested " + std::to_string(depth) + " deep; ";
}

void splice(std::string& file, size_t start, Random& random, std::string& what)
{
    if (file.size() <= start + 1)
        return;
    const size_t from = start + below(random, file.size() - start);
    const size_t length = 1 + below(random, std::min<size_t>(file.size() - from, 256));
    if (random() % 2) {
        file.erase(from, length);
        what += "dropped " + std::to_string(length) + " bytes at " + std::to_string(from) + "; ";
    } else {
        const size_t to = start + below(random, file.size() - start);
        file.insert(to, file.substr(from, length));
        what += "repeated " + std::to_string(length) + " bytes at " + std::to_string(to) + "; ";
    }
}

void insertNoise(std::string& file, size_t start, Random& random, std::string& what)
{
    const size_t at = start + below(random, file.size() - start + 1);
    std::string noise(1 + below(random, 16), '\0');
    for (char& c : noise)
        c = char(random());
    file.insert(at, noise);
    what += "inserted " + std::to_string(noise.size()) + " bytes at " + std::to_string(at) + "; ";
}

void mutateOnce(std::string& file, Encoding encoding, Random& random, std::string& what)
{
    const size_t start = bodyStart(file, encoding);
    const bool text = encoding == Encoding::XText || encoding == Encoding::EffectSource;
    switch (below(random, 6)) {
    case 0:
        return cutShort(file, start, random, what);
    case 1:
        return flipBytes(file, start, random, what);
    case 2:
        return inflateCount(file, start, text, random, what);
    case 3:
        return nestDeeply(file, start, encoding, random, what);
    case 4:
        return splice(file, start, random, what);
    default:
        return insertNoise(file, start, random, what);
    }
}

}  // namespace

Encoding encodingOf(const std::string& file, bool effect, bool source)
{
    if (effect)
        return source ? Encoding::EffectSource : Encoding::EffectBinary;
    return file.compare(8, 4, "txt ") == 0 ? Encoding::XText : Encoding::XBinary;
}

std::string mutate(const std::string& seed, Encoding encoding, std::mt19937& random, std::string& what)
{
    std::string file = seed;
    const int rounds = random() % 10 < 7 ? 1 : 2;
    for (int i = 0; i < rounds; ++i)
        mutateOnce(file, encoding, random, what);
    return file;
}

}  // namespace fuzz
