#include <zeb/Array.h>
#include <zeb/Serializable.h>
#include <zeb/Value.h>

#include <cstdio>
#include <cstdlib>
#include <new>

namespace zeb {

namespace {

void appendEscaped(String& out, const String& text) {
    for (unsigned i = 0; i < text.size(); ++i) {
        switch (text[i]) {
        case '&': out.append("&amp;"); break;
        case '<': out.append("&lt;"); break;
        case '>': out.append("&gt;"); break;
        case '"': out.append("&quot;"); break;
        default: out.append(text[i]);
        }
    }
}

String decimalText(long long value) {
    char text[32];
    std::snprintf(text, sizeof text, "%lld", value);
    return String(text);
}

}  // namespace

// ---- writer ----

void XmlWriter::begin(const char* tag, const String& name) {
    m_xml.append("<").append(tag);
    if (!name.empty()) {
        m_xml.append(" name=\"");
        appendEscaped(m_xml, name);
        m_xml.append("\"");
    }
    m_xml.append(">");
}

void XmlWriter::text(const String& text) { appendEscaped(m_xml, text); }

void XmlWriter::end(const char* tag) { m_xml.append("</").append(tag).append(">"); }

// ---- element tree ----

XmlElement::XmlElement() : m_children(nullptr), m_childCount(0), m_childCapacity(0) {}

XmlElement::XmlElement(const XmlElement& other) : XmlElement() { *this = other; }

XmlElement& XmlElement::operator=(const XmlElement& other) {
    if (this == &other) return *this;
    XmlElement copy;
    copy.m_tag = other.m_tag;
    copy.m_name = other.m_name;
    copy.m_text = other.m_text;
    for (unsigned i = 0; i < other.m_childCount; ++i) copy.addChild(other.m_children[i]);
    std::swap(m_tag, copy.m_tag);
    std::swap(m_name, copy.m_name);
    std::swap(m_text, copy.m_text);
    std::swap(m_children, copy.m_children);
    std::swap(m_childCount, copy.m_childCount);
    std::swap(m_childCapacity, copy.m_childCapacity);
    return *this;
}

XmlElement::~XmlElement() { delete[] m_children; }

void XmlElement::addChild(const XmlElement& child) {
    if (m_childCount == m_childCapacity) {
        unsigned capacity = m_childCapacity ? m_childCapacity * 2 : 4;
        XmlElement* children = new XmlElement[capacity];
        for (unsigned i = 0; i < m_childCount; ++i) children[i] = m_children[i];
        delete[] m_children;
        m_children = children;
        m_childCapacity = capacity;
    }
    m_children[m_childCount++] = child;
}

const XmlElement& XmlElement::child(unsigned index) const {
    if (index >= m_childCount) throw IndexOutOfBounds(0, static_cast<int>(m_childCount) - 1, static_cast<int>(index));
    return m_children[index];
}

const XmlElement& XmlElement::childByName(const String& name) const {
    for (unsigned i = 0; i < m_childCount; ++i)
        if (m_children[i].m_name == name) return m_children[i];
    throw SerializationFailed(String("Missing serialized member: ") + name);
}

// Reads the subset of XML that XmlWriter produces.
class XmlParser {
public:
    explicit XmlParser(const String& text) : m_text(text), m_at(0) {}

    XmlElement document() {
        skipBlanks();
        XmlElement root = element();
        skipBlanks();
        if (m_at != m_text.size()) fail("text after the root element");
        return root;
    }

private:
    XmlElement element() {
        expect('<');
        XmlElement result;
        result.m_tag = identifier();
        skipBlanks();
        if (peek() == 'n') {
            String attribute = identifier();
            if (attribute != "name") fail("unknown attribute");
            expect('=');
            expect('"');
            result.m_name = textUntil('"');
            expect('"');
        }
        expect('>');
        for (;;) {
            result.m_text.append(textUntil('<'));
            if (m_at + 1 < m_text.size() && m_text[m_at + 1] == '/') break;
            result.addChild(element());
        }
        expect('<');
        expect('/');
        if (identifier() != result.m_tag) fail("mismatched closing tag");
        expect('>');
        return result;
    }

    String identifier() {
        unsigned start = m_at;
        while (m_at < m_text.size() && isNameUnit(m_text[m_at])) ++m_at;
        if (m_at == start) fail("name expected");
        return m_text.subString(start, m_at - start);
    }

    String textUntil(unsigned short stop) {
        String out;
        while (m_at < m_text.size() && m_text[m_at] != stop) {
            if (m_text[m_at] == '&') {
                out.append(entity());
            } else {
                out.append(m_text[m_at++]);
            }
        }
        if (m_at >= m_text.size()) fail("unexpected end of text");
        return out;
    }

    unsigned short entity() {
        static const struct {
            const char* name;
            unsigned short unit;
        } entities[] = {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}};
        for (const auto& e : entities) {
            String name(e.name);
            if (m_text.subString(m_at, name.size()) == name) {
                m_at += name.size();
                return e.unit;
            }
        }
        fail("unknown entity");
        return 0;
    }

    static bool isNameUnit(unsigned short unit) {
        return (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z') || (unit >= '0' && unit <= '9') || unit == '_';
    }
    unsigned short peek() const { return m_at < m_text.size() ? m_text[m_at] : 0; }
    void skipBlanks() {
        while (m_at < m_text.size() && (m_text[m_at] == ' ' || m_text[m_at] == '\n' || m_text[m_at] == '\r' || m_text[m_at] == '\t')) ++m_at;
    }
    void expect(unsigned short unit) {
        if (peek() != unit) fail("unexpected character");
        ++m_at;
    }
    [[noreturn]] void fail(const char* what) const {
        throw SerializationFailed(String("Malformed serialized text at ") + decimalText(m_at) + ": " + what);
    }

    const String& m_text;
    unsigned m_at;
};

XmlElement XmlElement::parse(const String& xml) { return XmlParser(xml).document(); }

// ---- the serializable base ----

Serializable::~Serializable() = default;

const char* Serializable::vClassName() const { return "Serializable"; }

void Serializable::doSerialization(const String& name, String& xmlOut) const {
    XmlWriter writer;
    serializeImp(writer, name);
    xmlOut = writer.xml();
}

void Serializable::deserialize(const String& xml) { deserializeImp(XmlElement::parse(xml)); }

void Serializable::serializeImp(XmlWriter&, const String&) const {
    std::printf("Serialization isn't support for this class!!!\n");
}

void Serializable::deserializeImp(const XmlElement&) { std::printf("Serialization isn't support for this class!!!\n"); }

String unsupportedSerializationText(const char* className) {
    return String("Serialization is not supported for: ") + className;
}

// ---- values the base library writes itself ----

namespace {
void writeText(XmlWriter& out, const char* tag, const String& name, const String& text) {
    out.begin(tag, name);
    out.text(text);
    out.end(tag);
}
}  // namespace

void SerialTraits<String>::write(XmlWriter& out, const String& name, const String& value) { writeText(out, "String", name, value); }
void SerialTraits<String>::read(const XmlElement& element, String& value) { value = element.text(); }

void SerialTraits<unsigned int>::write(XmlWriter& out, const String& name, const unsigned int& value) {
    writeText(out, "UInt", name, decimalText(value));
}
void SerialTraits<unsigned int>::read(const XmlElement& element, unsigned int& value) {
    value = static_cast<unsigned int>(std::strtoul(element.text().getLowerByteString(), nullptr, 10));
}

void SerialTraits<unsigned long>::write(XmlWriter& out, const String& name, const unsigned long& value) {
    writeText(out, "ULong", name, decimalText(static_cast<long long>(value)));
}
void SerialTraits<unsigned long>::read(const XmlElement& element, unsigned long& value) {
    value = std::strtoul(element.text().getLowerByteString(), nullptr, 10);
}

void SerialTraits<int>::write(XmlWriter& out, const String& name, const int& value) { writeText(out, "Int", name, decimalText(value)); }
void SerialTraits<int>::read(const XmlElement& element, int& value) {
    value = static_cast<int>(std::strtol(element.text().getLowerByteString(), nullptr, 10));
}

void SerialTraits<bool>::write(XmlWriter& out, const String& name, const bool& value) {
    writeText(out, "Bool", name, String(value ? "true" : "false"));
}
void SerialTraits<bool>::read(const XmlElement& element, bool& value) { value = element.text() == "true"; }

void SerialTraits<float>::write(XmlWriter& out, const String& name, const float& value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value));
    writeText(out, "Float", name, String(text));
}
void SerialTraits<float>::read(const XmlElement& element, float& value) {
    value = std::strtof(element.text().getLowerByteString(), nullptr);
}

}  // namespace zeb
