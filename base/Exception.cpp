#include <zeb/Array.h>
#include <zeb/Exception.h>
#include <zeb/Value.h>

#include <cstdio>

namespace zeb {

namespace {
String decimal(long long value) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld", value);
    return String(text);
}
}  // namespace

Exception::Exception(const String& message) : m_message(message) {
    // Out of memory the 8-bit text stays empty rather than failing the report of the failure.
    try {
        m_utf8 = message.getUTF8String();
    } catch (...) {
    }
}
Exception::Exception(const Exception& other) = default;
Exception& Exception::operator=(const Exception& other) = default;
Exception::~Exception() = default;

AssertionFailure::AssertionFailure(const char* file, unsigned long long line, const char* expression)
    : Exception(String("Assertion failed: ") + expression + " (" + file + ":" + decimal(static_cast<long long>(line)) + ")"),
      m_file(file),
      m_line(line),
      m_expression(expression) {}

IndexOutOfBounds::IndexOutOfBounds(int lower, int upper, int index)
    : Exception(String("Index out of bounds: ") + decimal(index) + " not in [" + decimal(lower) + ", " + decimal(upper) + "]"),
      m_lower(lower),
      m_upper(upper),
      m_index(index) {}

HashKeyMissing::HashKeyMissing(const String& key) : Exception(String("Hash key missing: ") + key), m_key(key) {}

HashKeyMissing::HashKeyMissing(unsigned int key) : HashKeyMissing(decimal(key)) {}

NullPointer::NullPointer(const String& text) : Exception(text) {}

SerializationFailed::SerializationFailed(const String& text) : Exception(text) {}

namespace detail {
NullPointer arraySizeFailure(unsigned n) {
    return NullPointer(String("Asked for array of size: ") + ZEBValue(n).toString(ZEBValue::nilValue));
}
}  // namespace detail

}  // namespace zeb
