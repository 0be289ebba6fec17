#include <zeb/Array.h>
#include <zeb/Memory.h>
#include <zeb/String.h>

#include <windows.h>

#include <cstring>

namespace zeb {

namespace {

const char kTextBlock[] = "text";

unsigned short* allocateUnits(unsigned long long capacity) {
    // Capacities past 2^31 units cannot be expressed in the 32-bit sizes of a String.
    if (capacity >= 0x80000000ull) throw detail::allocationFailure(kTextBlock);
    return static_cast<unsigned short*>(allocateOrThrow((static_cast<size_t>(capacity) + 1) * sizeof(unsigned short), kTextBlock));
}

void releaseUnits(unsigned short* units, unsigned capacity) {
    zebRelease(units, (static_cast<size_t>(capacity) + 1) * sizeof(unsigned short));
}

// A CString of the first length bytes of a scratch buffer, which is given back either way.
CString adoptText(char* buffer, unsigned length, size_t bytes) {
    try {
        CString result(buffer, length);
        zebRelease(buffer, bytes);
        return result;
    } catch (...) {
        zebRelease(buffer, bytes);
        throw;
    }
}

unsigned unitLength(const unsigned short* text) {
    unsigned n = 0;
    while (text[n]) ++n;
    return n;
}

unsigned short foldCase(unsigned short unit) {
    if (unit < 0x80) return (unit >= 'A' && unit <= 'Z') ? static_cast<unsigned short>(unit + 32) : unit;
    // Outside ASCII the system's case table decides.
    WCHAR one[1] = {static_cast<WCHAR>(unit)};
    CharLowerBuffW(one, 1);
    return static_cast<unsigned short>(one[0]);
}

int digitValue(unsigned short unit) {
    if (unit >= '0' && unit <= '9') return unit - '0';
    if (unit >= 'a' && unit <= 'z') return unit - 'a' + 10;
    if (unit >= 'A' && unit <= 'Z') return unit - 'A' + 10;
    return 99;
}

void appendUTF8(char*& out, unsigned codePoint) {
    if (codePoint < 0x80) {
        *out++ = static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        *out++ = static_cast<char>(0xC0 | (codePoint >> 6));
        *out++ = static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        *out++ = static_cast<char>(0xE0 | (codePoint >> 12));
        *out++ = static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        *out++ = static_cast<char>(0xF0 | (codePoint >> 18));
        *out++ = static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

}  // namespace

// ---- CString ----

CString::CString() : m_text(nullptr), m_size(0) {}

CString::CString(const char* text, unsigned length) : m_text(nullptr), m_size(length) {
    m_text = static_cast<char*>(allocateOrThrow(static_cast<size_t>(length) + 1, kTextBlock));
    if (length) std::memcpy(m_text, text, length);
    m_text[length] = 0;
}

CString::CString(const CString& other) : CString(other.m_text, other.m_size) {}

CString& CString::operator=(const CString& other) {
    if (this != &other) {
        CString copy(other);
        std::swap(m_text, copy.m_text);
        std::swap(m_size, copy.m_size);
    }
    return *this;
}

CString::~CString() {
    if (m_text) zebRelease(m_text, static_cast<size_t>(m_size) + 1);
}

// ---- String ----

void String::becomeEmptyInline() {
    m_units = m_inline;
    m_size = 0;
    m_capacity = kInlineUnits;
    m_inline[0] = 0;
}

String::String() { becomeEmptyInline(); }

String::String(const char* text) : String() {
    if (text) append(text);
}

String::String(const unsigned short* text) : String() {
    if (text) append(text, unitLength(text));
}

String::String(const wchar_t* text) : String(reinterpret_cast<const unsigned short*>(text)) {}

String::String(const unsigned short* text, unsigned length) : String() { append(text, length); }

String::String(const String& other) : String() { append(other.m_units, other.m_size); }

String::String(String&& other) noexcept : String() { *this = std::move(other); }

String::~String() {
    if (!isInline()) releaseUnits(m_units, m_capacity);
}

String& String::operator=(const String& other) {
    if (this != &other) {
        clear();
        append(other.m_units, other.m_size);
    }
    return *this;
}

String& String::operator=(String&& other) noexcept {
    if (this == &other) return *this;
    if (!isInline()) releaseUnits(m_units, m_capacity);
    if (other.isInline()) {
        becomeEmptyInline();
        std::memcpy(m_inline, other.m_inline, (other.m_size + 1) * sizeof(unsigned short));
        m_size = other.m_size;
    } else {
        m_units = other.m_units;
        m_size = other.m_size;
        m_capacity = other.m_capacity;
    }
    other.becomeEmptyInline();
    return *this;
}

String& String::operator=(const char* text) {
    clear();
    if (text) append(text);
    return *this;
}

void String::reserve(unsigned long long capacity) {
    if (capacity <= m_capacity) return;
    unsigned long long grown = m_capacity * 2ull;
    while (grown < capacity) grown *= 2;
    unsigned short* units = allocateUnits(grown);
    std::memcpy(units, m_units, (m_size + 1) * sizeof(unsigned short));
    if (!isInline()) releaseUnits(m_units, m_capacity);
    m_units = units;
    m_capacity = static_cast<unsigned>(grown);
}

String& String::append(const unsigned short* units, unsigned count) {
    if (count == 0) return *this;
    if (units >= m_units && units < m_units + m_size) {
        String copy(units, count);  // appending a piece of ourselves
        return append(copy.m_units, count);
    }
    reserve(static_cast<unsigned long long>(m_size) + count);
    std::memcpy(m_units + m_size, units, count * sizeof(unsigned short));
    m_size += count;
    m_units[m_size] = 0;
    return *this;
}

String& String::append(unsigned short unit) { return append(&unit, 1); }

String& String::append(const char* text) {
    if (!text) return *this;
    unsigned count = static_cast<unsigned>(std::strlen(text));
    reserve(static_cast<unsigned long long>(m_size) + count);
    for (unsigned i = 0; i < count; ++i) m_units[m_size + i] = static_cast<unsigned char>(text[i]);
    m_size += count;
    m_units[m_size] = 0;
    return *this;
}

String& String::append(const String& text) { return append(text.m_units, text.m_size); }

String& String::operator+=(const String& text) { return append(text); }

bool String::operator==(const String& other) const {
    return m_size == other.m_size && std::memcmp(m_units, other.m_units, m_size * sizeof(unsigned short)) == 0;
}

bool String::operator==(const char* text) const {
    if (!text) return m_size == 0;
    unsigned i = 0;
    for (; i < m_size; ++i)
        if (text[i] == 0 || m_units[i] != static_cast<unsigned char>(text[i])) return false;
    return text[i] == 0;
}

bool String::operator<(const String& other) const {
    unsigned n = m_size < other.m_size ? m_size : other.m_size;
    for (unsigned i = 0; i < n; ++i)
        if (m_units[i] != other.m_units[i]) return m_units[i] < other.m_units[i];
    return m_size < other.m_size;
}

int String::compareNoCase(const String& other) const {
    const unsigned short* a = m_units;
    const unsigned short* b = other.m_units;
    for (;; ++a, ++b) {
        unsigned short x = *a, y = *b;
        if (x != y) {
            x = foldCase(x);
            y = foldCase(y);
            if (x != y) return x < y ? -1 : 1;
        }
        if (x == 0) return 0;
    }
}

int String::compareNoCase(const String& a, const String& b) { return a.compareNoCase(b); }

Array<String> String::tokenize(const String& separators) const {
    Array<String> tokens;
    unsigned start = 0;
    for (unsigned i = 0; i <= m_size; ++i) {
        bool atEnd = i == m_size;
        if (atEnd || separators.find(m_units[i]) != 0xFFFFFFFFu) {
            if (i > start) tokens.append(String(m_units + start, i - start));
            start = i + 1;
        }
    }
    return tokens;
}

String String::subString(unsigned start, unsigned length) const {
    if (start >= m_size) return String();
    unsigned available = m_size - start;
    return String(m_units + start, length < available ? length : available);
}

String& String::remove(unsigned start, unsigned count) {
    if (start >= m_size) return *this;
    unsigned available = m_size - start;
    if (count > available) count = available;
    std::memmove(m_units + start, m_units + start + count, (available - count + 1) * sizeof(unsigned short));
    m_size -= count;
    return *this;
}

void String::clear() {
    m_size = 0;
    m_units[0] = 0;
}

unsigned String::find(unsigned short unit, unsigned start) const {
    for (unsigned i = start; i < m_size; ++i)
        if (m_units[i] == unit) return i;
    return 0xFFFFFFFFu;
}

unsigned String::findLast(unsigned short unit) const {
    for (unsigned i = m_size; i > 0; --i)
        if (m_units[i - 1] == unit) return i - 1;
    return 0xFFFFFFFFu;
}

unsigned int String::strToUInt(const String& text, int base) {
    if (base < 2 || base > 36) return 0;
    unsigned i = 0;
    while (i < text.m_size && (text.m_units[i] == ' ' || text.m_units[i] == '\t')) ++i;
    if (base == 16 && i + 1 < text.m_size && text.m_units[i] == '0' && (text.m_units[i + 1] | 0x20) == 'x') i += 2;
    unsigned int value = 0;
    for (; i < text.m_size; ++i) {
        int digit = digitValue(text.m_units[i]);
        if (digit >= base) break;
        value = value * static_cast<unsigned>(base) + static_cast<unsigned>(digit);
    }
    return value;
}

String String::fromUTF8(const char* text) {
    String result;
    if (!text) return result;
    int count = MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
    if (count <= 1) return result;
    result.reserve(static_cast<unsigned>(count));
    MultiByteToWideChar(CP_UTF8, 0, text, -1, reinterpret_cast<WCHAR*>(result.m_units), count);
    result.m_size = static_cast<unsigned>(count - 1);
    return result;
}

CString String::getUTF8String() const {
    size_t bytes = static_cast<size_t>(m_size) * 3 + 1;
    char* buffer = static_cast<char*>(allocateOrThrow(bytes, kTextBlock));
    char* out = buffer;
    for (unsigned i = 0; i < m_size; ++i) {
        unsigned unit = m_units[i];
        bool pair = unit >= 0xD800 && unit < 0xDC00 && i + 1 < m_size && m_units[i + 1] >= 0xDC00 &&
                    m_units[i + 1] < 0xE000;
        if (pair) {
            appendUTF8(out, 0x10000 + ((unit - 0xD800) << 10) + (m_units[i + 1] - 0xDC00));
            ++i;
        } else {
            appendUTF8(out, unit);
        }
    }
    return adoptText(buffer, static_cast<unsigned>(out - buffer), bytes);
}

CString String::getLowerByteString() const {
    size_t bytes = static_cast<size_t>(m_size) + 1;
    char* buffer = static_cast<char*>(allocateOrThrow(bytes, kTextBlock));
    for (unsigned i = 0; i < m_size; ++i) buffer[i] = static_cast<char>(m_units[i] & 0xFF);
    return adoptText(buffer, m_size, bytes);
}

String operator+(const char* left, const String& right) {
    String result(left);
    result.append(right);
    return result;
}

String operator+(const String& left, const String& right) {
    String result(left);
    result.append(right);
    return result;
}

String operator+(const String& left, const char* right) {
    String result(left);
    result.append(right);
    return result;
}

}  // namespace zeb
