#pragma once
#include <zeb/Export.h>
#include <cstddef>

namespace zeb {

template <class T> class Array;

// Owned 8-bit text handed out by String conversions.
class ZEB_API CString {
public:
    CString();
    CString(const char* text, unsigned length);
    CString(const CString& other);
    CString& operator=(const CString& other);
    ~CString();

    operator const char*() const { return c_str(); }
    const char* c_str() const { return m_text ? m_text : ""; }
    unsigned size() const { return m_size; }

private:
    char* m_text;  // null for the empty text that needed no block
    unsigned m_size;
};

// Text as 16-bit code units (UCS-2), deep-copied value type.
class ZEB_API String {
public:
    String();
    String(const char* text);                // each byte one character
    String(const unsigned short* text);      // zero-terminated UCS-2
    String(const wchar_t* text);             // zero-terminated UTF-16 of the Windows API
    String(const unsigned short* text, unsigned length);
    String(const String& other);
    String(String&& other) noexcept;
    ~String();

    String& operator=(const String& other);
    String& operator=(String&& other) noexcept;
    String& operator=(const char* text);

    String& append(const char* text);
    String& append(const String& text);
    String& append(const unsigned short* units, unsigned count);
    String& append(unsigned short unit);
    String& operator+=(const String& text);

    bool operator==(const String& other) const;
    bool operator==(const char* text) const;
    bool operator!=(const String& other) const { return !(*this == other); }
    bool operator!=(const char* text) const { return !(*this == text); }
    // Exact ordering by code unit, for sorted containers.
    bool operator<(const String& other) const;

    // 0 when equal ignoring letter case, otherwise the sign of the first difference.
    int compareNoCase(const String& other) const;
    static int compareNoCase(const String& a, const String& b);

    // Pieces between any of the separator characters; empty pieces are dropped.
    Array<String> tokenize(const String& separators) const;

    // Characters [start, start + length), clipped to the text.
    String subString(unsigned start, unsigned length) const;
    // Removes up to count characters from start on.
    String& remove(unsigned start, unsigned count);
    void clear();
    bool empty() const { return m_size == 0; }
    unsigned size() const { return m_size; }
    unsigned short operator[](unsigned index) const { return m_units[index]; }

    // Index of the first occurrence of unit at or after start, or 0xFFFFFFFF.
    unsigned find(unsigned short unit, unsigned start = 0) const;
    unsigned findLast(unsigned short unit) const;

    // Unsigned number in the given base (2..36); parsing stops at the first non-digit.
    static unsigned int strToUInt(const String& text, int base);
    static String fromUTF8(const char* text);

    CString getUTF8String() const;
    CString getLowerByteString() const;
    const unsigned short* getUCS2Buffer() const { return m_units; }
    const wchar_t* getWideBuffer() const { return reinterpret_cast<const wchar_t*>(m_units); }

private:
    // Names of frames, textures and devices are short: up to this many units live inside the
    // object, without a heap block.
    static const unsigned kInlineUnits = 23;

    void reserve(unsigned long long capacity);
    bool isInline() const { return m_units == m_inline; }
    void becomeEmptyInline();

    unsigned short* m_units;  // always zero-terminated; m_inline or a heap block
    unsigned m_size;
    unsigned m_capacity;      // units available before the terminator
    unsigned short m_inline[kInlineUnits + 1];
};

ZEB_API String operator+(const char* left, const String& right);
ZEB_API String operator+(const String& left, const String& right);
ZEB_API String operator+(const String& left, const char* right);

}  // namespace zeb
