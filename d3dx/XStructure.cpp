#include "XStructure.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

const size_t kHeaderSize = 16;

// Bad: something no X file holds (an unknown binary token, an over-long name).
enum class Token { End, Bad, Name, Number, String, Guid, OpenBrace, CloseBrace, Other };

// Binary token codes of the X format.
enum BinaryToken : uint16_t {
    kName = 1,
    kString = 2,
    kInteger = 3,
    kGuid = 5,
    kIntegerList = 6,
    kFloatList = 7,
    kOpenBrace = 10,
    kCloseBrace = 11,
    kLastPunctuation = 20,
    kTemplate = 31,
    kFirstKeyword = 40,
    kLastKeyword = 53,
};

bool isPunctuationOrKeyword(uint16_t code)
{
    return (code > kCloseBrace && code <= kLastPunctuation) || (code >= kFirstKeyword && code <= kLastKeyword);
}

// One stream of tokens over either encoding. Lists of the binary encoding come out one number
// at a time, so the reader above never knows which encoding it reads.
class Tokenizer {
public:
    Tokenizer(const char* data, size_t size)
        : m_data(data), m_size(size), m_pos(kHeaderSize), m_binary(isBinaryXFile(data, size)),
          m_doubles(size >= kHeaderSize && std::memcmp(data + 12, "0064", 4) == 0)
    {
    }

    Token next()
    {
        if (m_binary)
            return nextBinary();
        skipBlanksAndComments();
        m_start = m_pos;
        if (m_pos >= m_size)
            return Token::End;
        char c = m_data[m_pos];
        if (c == '{' || c == '}') {
            ++m_pos;
            return c == '{' ? Token::OpenBrace : Token::CloseBrace;
        }
        if (c == '<')
            return skipPast('>', Token::Guid);
        if (c == '"')
            return skipString();  // length checked by the caller through start()/position()
        if (isNumberStart(c) && readNumber())
            return Token::Number;
        if (isNameChar(c)) {
            m_pos = m_start;
            while (m_pos < m_size && isNameChar(m_data[m_pos]))
                ++m_pos;
            if (m_pos - m_start > kMaxXNameLength)
                return Token::Bad;
            m_text.assign(m_data + m_start, m_pos - m_start);
            return Token::Name;
        }
        m_pos = m_start + 1;  // ';' ',' '[' ']' and anything unexpected
        return Token::Other;
    }

    struct Mark {
        size_t pos, start;
        uint32_t listLeft;
        std::string text;
    };
    Mark mark() const { return {m_pos, m_start, m_listLeft, m_text}; }
    void rewind(const Mark& mark)
    {
        m_pos = mark.pos;
        m_start = mark.start;
        m_listLeft = mark.listLeft;
        m_text = mark.text;
    }

    const std::string& text() const { return m_text; }
    double number() const { return m_number; }
    size_t start() const { return m_start; }
    size_t position() const { return m_pos; }

private:
    static bool isNameChar(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.'; }
    static bool isNumberStart(char c) { return std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '+' || c == '.'; }

    bool has(size_t bytes) const { return m_pos + bytes <= m_size && m_pos + bytes >= m_pos; }

    template <class T>
    T take()
    {
        T value;
        std::memcpy(&value, m_data + m_pos, sizeof value);
        m_pos += sizeof value;
        return value;
    }

    Token nextBinary()
    {
        if (m_listLeft > 0)
            return nextListNumber();
        m_start = m_pos;
        if (!has(2))
            return Token::End;
        const uint16_t code = take<uint16_t>();
        switch (code) {
        case kName:
            return readCounted(Token::Name);
        case kString:
            if (readCounted(Token::String) == Token::End || !has(2))
                return Token::End;
            m_pos += 2;  // the terminating ';' or ','
            return Token::String;
        case kInteger:
            if (!has(4))
                return Token::End;
            m_number = take<uint32_t>();
            return Token::Number;
        case kGuid:
            if (!has(16))
                return Token::End;
            m_pos += 16;
            return Token::Guid;
        case kIntegerList:
        case kFloatList: {
            const bool floats = code == kFloatList;
            if (!has(4))
                return Token::End;
            m_listLeft = take<uint32_t>();
            m_listFloats = floats;
            return m_listLeft ? nextListNumber() : Token::Other;
        }
        case kOpenBrace:
            return Token::OpenBrace;
        case kCloseBrace:
            return Token::CloseBrace;
        case kTemplate:
            m_text = "template";
            return Token::Name;
        default:
            return isPunctuationOrKeyword(code) ? Token::Other : Token::Bad;
        }
    }

    Token readCounted(Token kind)
    {
        if (!has(4))
            return Token::End;
        uint32_t count = take<uint32_t>();
        if (count > kMaxXNameLength)
            return Token::Bad;
        if (!has(count))
            return Token::End;
        m_text.assign(m_data + m_pos, count);
        m_pos += count;
        return kind;
    }

    Token nextListNumber()
    {
        const size_t width = m_listFloats ? (m_doubles ? 8 : 4) : 4;
        if (!has(width)) {
            m_listLeft = 0;
            return Token::End;
        }
        --m_listLeft;
        if (!m_listFloats)
            m_number = take<uint32_t>();
        else if (m_doubles)
            m_number = take<double>();
        else
            m_number = take<float>();
        return Token::Number;
    }

    void skipBlanksAndComments()
    {
        while (m_pos < m_size) {
            char c = m_data[m_pos];
            if (std::isspace(static_cast<unsigned char>(c))) {
                ++m_pos;
            } else if (c == '#' || (c == '/' && m_pos + 1 < m_size && m_data[m_pos + 1] == '/')) {
                while (m_pos < m_size && m_data[m_pos] != '\n')
                    ++m_pos;
            } else {
                return;
            }
        }
    }

    Token skipPast(char last, Token kind)
    {
        while (m_pos < m_size && m_data[m_pos] != last)
            ++m_pos;
        if (m_pos < m_size)
            ++m_pos;
        return kind;
    }

    Token skipString()
    {
        ++m_pos;
        const Token token = skipPast('"', Token::String);
        return m_pos - m_start > kMaxXNameLength + 2 ? Token::Bad : token;
    }

    // A number, or false for a word that only starts like one ("1stJoint").
    bool readNumber()
    {
        // strtod needs a terminated copy: the buffer is not ours to terminate.
        char digits[64];
        size_t length = 0;
        while (m_pos < m_size && length + 1 < sizeof digits &&
               (std::isdigit(static_cast<unsigned char>(m_data[m_pos])) || std::strchr("+-.eE", m_data[m_pos]))) {
            digits[length++] = m_data[m_pos++];
        }
        digits[length] = '\0';
        char* stop = nullptr;
        m_number = std::strtod(digits, &stop);
        if (stop == digits)
            return false;
        m_pos = m_start + size_t(stop - digits);
        return m_pos >= m_size || !isNameChar(m_data[m_pos]);
    }

    const char* m_data;
    size_t m_size;
    size_t m_pos;
    size_t m_start = 0;
    bool m_binary;
    bool m_doubles;
    double m_number = 0;
    std::string m_text;
    uint32_t m_listLeft = 0;
    bool m_listFloats = false;
};

// Follows a mesh's data to its face count: the vertex count, three numbers a vertex, the face count,
// then the faces.
class MeshFaceCount {
public:
    void see(double number)
    {
        if (m_seen == 0)
            m_countAt = 1 + 3 * number;
        else if (double(m_seen) == m_countAt && number >= 0 && number <= double(UINT32_MAX))
            m_faces = size_t(number);
        ++m_seen;
    }
    // Known once the data holds at least a number for each face: a count of a damaged file
    // promises no faces it does not hold.
    bool known() const { return m_faces != kUnknown && double(m_seen) >= m_countAt + 1 + double(m_faces); }
    size_t faces() const { return m_faces; }

private:
    static const size_t kUnknown = ~size_t(0);
    size_t m_seen = 0;
    double m_countAt = 0;
    size_t m_faces = kUnknown;
};

// readObject and readBody recurse once per level of nesting, so what they call per token is kept
// out of line (noinline): kMaxXNesting levels must fit in the stack of the caller's thread.
class Reader {
public:
    Reader(const char* data, size_t size, bool (*keepNumbers)(const std::string&))
        : m_tokens(data, size), m_keepNumbers(keepNumbers)
    {
    }

    bool readFile(XFileOutline& file)
    {
        m_file = &file;
        for (;;) {
            Token token = m_tokens.next();
            if (token == Token::End)
                return true;
            if (token == Token::Bad)
                return false;
            if (token != Token::Name)
                continue;  // stray separators between objects are tolerated
            std::string word = m_tokens.text();
            if (word == "template") {
                if (!readTemplate(file))
                    return false;
                continue;
            }
            XObject object;
            if (!readObject(word, m_tokens.start(), object))
                return false;
            file.topLevel.push_back(std::move(object));
        }
    }

private:
    bool readTemplate(XFileOutline& file)
    {
        if (m_tokens.next() != Token::Name)
            return false;
        file.declaredTemplates.push_back(m_tokens.text());
        if (m_tokens.next() != Token::OpenBrace)
            return false;
        return skipToClose();
    }

    bool skipToClose()
    {
        for (int depth = 1; depth > 0;) {
            Token token = m_tokens.next();
            if (token == Token::End || token == Token::Bad || depth > kMaxXNesting)
                return false;
            if (token == Token::OpenBrace)
                ++depth;
            else if (token == Token::CloseBrace)
                --depth;
        }
        return true;
    }

    // The type name has been read; reads "[name] { ... }".
    bool readObject(std::string type, size_t begin, XObject& object)
    {
        object.type = std::move(type);
        object.begin = begin;
        Token token = m_tokens.next();
        if (token == Token::Name) {
            object.name = m_tokens.text();
            token = m_tokens.next();
        }
        if (token != Token::OpenBrace || m_depth >= kMaxXNesting)
            return false;
        object.dataBegin = m_tokens.position();
        ++m_depth;
        const bool read = readBody(object, m_keepNumbers(object.type) || object.type == "MeshMaterialList");
        --m_depth;
        object.end = m_tokens.position();
        return read;
    }

    bool readBody(XObject& object, bool keep)
    {
        MeshFaceCount faces;
        const bool mesh = object.type == "Mesh";
        for (;;) {
            Token token = m_tokens.next();
            const bool child = token == Token::Name && startsObject();
            if (!object.dataEnd && (child || token == Token::CloseBrace || token == Token::OpenBrace))
                object.dataEnd = m_tokens.start();
            switch (token) {
            case Token::End:
            case Token::Bad:
                return false;
            case Token::CloseBrace:
                return true;
            case Token::Number:
                if (keep)
                    object.numbers.push_back(m_tokens.number());
                if (mesh && !object.dataEnd)
                    faces.see(m_tokens.number());
                break;
            case Token::OpenBrace:
                if (!readReference(object, m_tokens.start()))
                    return false;
                break;
            case Token::Name: {
                if (!child)
                    break;  // a bare word among the data
                auto inner = std::make_unique<XObject>();
                if (!readObject(m_tokens.text(), m_tokens.start(), *inner))
                    return false;
                if (mesh && faces.known() && inner->type == "MeshMaterialList")
                    noteMaterialList(faces.faces(), *inner);
                if (keep)
                    object.children.push_back(std::move(*inner));
                break;
            }
            default:
                break;
            }
        }
    }

    __attribute__((noinline)) void noteMaterialList(size_t meshFaces, const XObject& list)
    {
        m_file->materialLists.push_back({meshFaces, list});
    }

    // After a word: does "[name] {" follow?
    __attribute__((noinline)) bool startsObject()
    {
        Tokenizer::Mark word = m_tokens.mark();
        Token token = m_tokens.next();
        if (token == Token::Name)
            token = m_tokens.next();
        m_tokens.rewind(word);
        return token == Token::OpenBrace;
    }

    // "{ name }" or "{ name <guid> }" or "{ <guid> }". Frames' references keep their byte range.
    __attribute__((noinline)) bool readReference(XObject& object, size_t begin)
    {
        std::string name;
        for (;;) {
            Token token = m_tokens.next();
            if (token == Token::End || token == Token::Bad || token == Token::OpenBrace)
                return false;
            if (token == Token::Name && name.empty())
                name = m_tokens.text();
            if (token != Token::CloseBrace)
                continue;
            if (name.empty())
                return true;
            object.references.push_back(name);
            if (object.type == "Frame")
                m_file->frameReferences.push_back({name, begin, m_tokens.position()});
            return true;
        }
    }

    Tokenizer m_tokens;
    bool (*m_keepNumbers)(const std::string&);
    XFileOutline* m_file = nullptr;
    int m_depth = 0;
};

} // namespace

bool isTextXFile(const char* data, size_t size)
{
    return size >= kHeaderSize && std::memcmp(data, "xof ", 4) == 0 && std::memcmp(data + 8, "txt ", 4) == 0;
}

bool isBinaryXFile(const char* data, size_t size)
{
    return size >= kHeaderSize && std::memcmp(data, "xof ", 4) == 0 && std::memcmp(data + 8, "bin ", 4) == 0;
}

bool readXStructure(const char* data, size_t size, bool (*keepNumbers)(const std::string&), XFileOutline& file)
{
    if (!isTextXFile(data, size) && !isBinaryXFile(data, size))
        return false;
    Reader reader(data, size, keepNumbers);
    return reader.readFile(file);
}

void appendXWord(std::string& out, uint16_t value)
{
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void appendXDword(std::string& out, uint32_t value)
{
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}
