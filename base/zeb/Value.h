#pragma once
#include <zeb/String.h>

namespace zeb {

// Puts numbers and flags into text.
class ZEB_API ZEBValue {
public:
    // Passed to toString when no value is to be shown as "nil".
    static const unsigned int nilValue = 0xFFFFFFFFu;

    explicit ZEBValue(unsigned int value);
    explicit ZEBValue(float value);
    explicit ZEBValue(bool value);

    // Decimal text ("true"/"false" for flags); an unsigned value equal to nil, unless nil is
    // nilValue, reads "nil".
    String toString(unsigned int nil) const;
    // Upper-case hexadecimal of the value's bits, with a "0x" prefix when asked.
    String toHexString(bool withPrefix) const;

private:
    enum Kind { UNSIGNED, FLOAT, BOOL };
    Kind m_kind;
    union {
        unsigned int u;
        float f;
        bool b;
    } m_value;
};

}  // namespace zeb
