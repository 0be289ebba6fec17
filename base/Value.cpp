#include <zeb/Value.h>

#include <cstdio>
#include <cstring>

namespace zeb {

ZEBValue::ZEBValue(unsigned int value) : m_kind(UNSIGNED) { m_value.u = value; }
ZEBValue::ZEBValue(float value) : m_kind(FLOAT) { m_value.f = value; }
ZEBValue::ZEBValue(bool value) : m_kind(BOOL) { m_value.b = value; }

String ZEBValue::toString(unsigned int nil) const {
    char text[48];
    switch (m_kind) {
    case UNSIGNED:
        if (nil != nilValue && m_value.u == nil) return String("nil");
        std::snprintf(text, sizeof text, "%u", m_value.u);
        break;
    case FLOAT:
        std::snprintf(text, sizeof text, "%g", static_cast<double>(m_value.f));
        break;
    case BOOL:
        return String(m_value.b ? "true" : "false");
    }
    return String(text);
}

String ZEBValue::toHexString(bool withPrefix) const {
    unsigned bits = 0;
    switch (m_kind) {
    case UNSIGNED: bits = m_value.u; break;
    case FLOAT: std::memcpy(&bits, &m_value.f, sizeof bits); break;
    case BOOL: bits = m_value.b ? 1u : 0u; break;
    }
    char text[16];
    std::snprintf(text, sizeof text, withPrefix ? "0x%08X" : "%08X", bits);
    return String(text);
}

}  // namespace zeb
