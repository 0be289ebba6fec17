#pragma once
// Damaged variants of a file: cut short, bytes flipped, counts inflated, deep nesting, pieces
// repeated or dropped, noise inserted. The same generator state gives the same variant.
#include <random>
#include <string>

namespace fuzz {

enum class Encoding {
    XText,         // "xof ....txt " X files
    XBinary,       // "xof ....bin " and compressed X files
    EffectBinary,  // compiled effects
    EffectSource,  // effect source for the compiler
};

Encoding encodingOf(const std::string& file, bool effect, bool source);

// Returns the variant and says in `what` how it was made.
std::string mutate(const std::string& seed, Encoding encoding, std::mt19937& random, std::string& what);

}  // namespace fuzz
