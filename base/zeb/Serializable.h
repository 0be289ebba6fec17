#pragma once
#include <zeb/Exception.h>
#include <zeb/String.h>
#include <type_traits>

namespace zeb {

// Builds the XML text of serialized objects: <Tag name="...">text or children</Tag>.
class ZEB_API XmlWriter {
public:
    void begin(const char* tag, const String& name);
    void text(const String& text);
    void end(const char* tag);
    const String& xml() const { return m_xml; }

private:
    String m_xml;
};

// One parsed XML element with its children, as written by XmlWriter.
class ZEB_API XmlElement {
public:
    XmlElement();
    XmlElement(const XmlElement& other);
    XmlElement& operator=(const XmlElement& other);
    ~XmlElement();

    // Parses a document; throws SerializationFailed on malformed text.
    static XmlElement parse(const String& xml);

    const String& tag() const { return m_tag; }
    const String& name() const { return m_name; }
    const String& text() const { return m_text; }
    unsigned childCount() const { return m_childCount; }
    const XmlElement& child(unsigned index) const;
    // The child whose name attribute is name; throws SerializationFailed when absent.
    const XmlElement& childByName(const String& name) const;

private:
    friend class XmlParser;
    void addChild(const XmlElement& child);

    String m_tag;
    String m_name;
    String m_text;
    XmlElement* m_children;
    unsigned m_childCount;
    unsigned m_childCapacity;
};

// Base of the containers that can write themselves as XML and read themselves back.
class ZEB_API Serializable {
public:
    virtual ~Serializable();

    virtual const char* vClassName() const;

    // Writes this object as the document's root element called name.
    void doSerialization(const String& name, String& xmlOut) const;
    // Replaces the contents with the ones of a document written by doSerialization.
    void deserialize(const String& xml);

    // Hooks of the concrete classes. Classes that have none print a notice and go on.
    virtual void serializeImp(XmlWriter& out, const String& name) const;
    virtual void deserializeImp(const XmlElement& element);
};

// Value types the base library writes itself, with the class names of their arrays.
template <class T> struct SerialTraits {
    static constexpr bool builtin = false;
};

#define ZEB_BUILTIN_SERIAL(Type, ArrayName)                                     \
    template <> struct ZEB_API SerialTraits<Type> {                             \
        static constexpr bool builtin = true;                                   \
        static const char* arrayName() { return ArrayName; }                    \
        static void write(XmlWriter& out, const String& name, const Type& value); \
        static void read(const XmlElement& element, Type& value);               \
    }

ZEB_BUILTIN_SERIAL(String, "ArrayOfString");
ZEB_BUILTIN_SERIAL(unsigned int, "ArrayOfUInt");
ZEB_BUILTIN_SERIAL(int, "ArrayOfInt");
ZEB_BUILTIN_SERIAL(bool, "ArrayOfBool");
ZEB_BUILTIN_SERIAL(float, "ArrayOfFloat");
ZEB_BUILTIN_SERIAL(unsigned long, "ArrayOfULong");
#undef ZEB_BUILTIN_SERIAL

template <class T> constexpr bool isSerializableValue() {
    return SerialTraits<T>::builtin || std::is_base_of<Serializable, T>::value;
}

template <class T> void serializeValue(XmlWriter& out, const String& name, const T& value) {
    if constexpr (SerialTraits<T>::builtin) {
        SerialTraits<T>::write(out, name, value);
    } else {
        static_assert(std::is_base_of<Serializable, T>::value, "value type is not serializable");
        value.serializeImp(out, name);
    }
}

template <class T> void deserializeValue(const XmlElement& element, T& value) {
    if constexpr (SerialTraits<T>::builtin) {
        SerialTraits<T>::read(element, value);
    } else {
        static_assert(std::is_base_of<Serializable, T>::value, "value type is not serializable");
        value.deserializeImp(element);
    }
}

ZEB_API String unsupportedSerializationText(const char* className);

}  // namespace zeb
