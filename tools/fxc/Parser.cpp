#include "Parser.h"
#include "ConstantTable.h"
#include "StateTable.h"
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <set>

namespace fxc {
namespace {

std::string lower(const std::string& text) {
    std::string result = text;
    for (char& c : result) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

// An effect keeps every element of an array, and constant tables count elements in 16 bits.
const uint32_t kMaxArrayElements = 65535;
const uint32_t kMaxIndex = 65535;
const unsigned kMaxNesting = 64;

uint32_t floatBits(double value) {
    float single = static_cast<float>(value);
    uint32_t bits;
    std::memcpy(&bits, &single, sizeof(bits));
    return bits;
}

// A literal of an initializer before it is converted to the declared type.
struct Literal {
    double value = 0;
    bool isFloat = false;
};

uint32_t convertLiteral(const Literal& literal, ParameterType type) {
    switch (type) {
    case PT_FLOAT: return floatBits(literal.value);
    case PT_BOOL: return literal.value != 0 ? 1u : 0u;
    default: return static_cast<uint32_t>(static_cast<int32_t>(literal.value));
    }
}

class Parser {
public:
    Parser(const std::vector<Token>& tokens, const ShaderAssembler& assemble)
        : m_tokens(tokens), m_assemble(assemble) {}

    EffectModel parse() {
        while (peek().kind != TokenKind::End) {
            if (acceptPunct(";")) continue;
            if (isKeyword(peek(), "technique") || isKeyword(peek(), "technique9"))
                parseTechnique();
            else
                parseParameter();
        }
        bindRegisters();
        return std::move(m_effect);
    }

private:
    // ---- token helpers -------------------------------------------------------------------
    const Token& peek(size_t ahead = 0) const {
        size_t index = std::min(m_position + ahead, m_tokens.size() - 1);
        return m_tokens[index];
    }
    const Token& next() {
        const Token& token = peek();
        if (m_position < m_tokens.size() - 1) ++m_position;
        return token;
    }
    static bool isKeyword(const Token& token, const char* word) {
        return token.kind == TokenKind::Identifier && lower(token.text) == word;
    }
    static bool isPunct(const Token& token, const char* text) {
        return token.kind == TokenKind::Punct && token.text == text;
    }
    bool acceptPunct(const char* text) {
        if (!isPunct(peek(), text)) return false;
        next();
        return true;
    }
    [[noreturn]] static void fail(const Token& token, const std::string& message) {
        throw CompileError(token.where, message);
    }
    static std::string describe(const Token& token) {
        switch (token.kind) {
        case TokenKind::End: return "end of file";
        case TokenKind::String: return "string \"" + token.text + "\"";
        case TokenKind::AsmBody: return "asm block";
        default: return "'" + token.text + "'";
        }
    }
    void expectPunct(const char* text) {
        if (!acceptPunct(text)) fail(peek(), std::string("expected '") + text + "' before " + describe(peek()));
    }
    const Token& expectIdentifier(const char* what) {
        if (peek().kind != TokenKind::Identifier) fail(peek(), std::string("expected ") + what + " before " + describe(peek()));
        return next();
    }
    uint32_t expectUnsigned(const char* what, uint32_t maximum = kMaxIndex) {
        const Token& token = next();
        if (token.kind != TokenKind::Number || token.text.find('.') != std::string::npos)
            fail(token, std::string("expected ") + what + " (a whole number)");
        unsigned long long value = std::strtoull(token.text.c_str(), nullptr, 0);
        if (value > maximum) fail(token, std::string(what) + " " + token.text + " is larger than " + std::to_string(maximum));
        return static_cast<uint32_t>(value);
    }

    // Source nesting (initializer lists, constructors, generic types) is read recursively.
    class NestingGuard {
    public:
        NestingGuard(Parser& parser, const Token& at) : m_parser(parser) {
            if (++m_parser.m_nesting > kMaxNesting) fail(at, "values nested too deeply");
        }
        ~NestingGuard() { --m_parser.m_nesting; }
        NestingGuard(const NestingGuard&) = delete;
        NestingGuard& operator=(const NestingGuard&) = delete;

    private:
        Parser& m_parser;
    };

    // ---- types -----------------------------------------------------------------------------
    // Reads a type name; false (nothing consumed) when the token names no type.
    bool parseType(TypeDesc& type, bool columnMajor) {
        const Token& token = peek();
        if (token.kind != TokenKind::Identifier) return false;
        std::string name = lower(token.text);
        if (parseObjectType(name, type) || parseNumericType(name, type, columnMajor)) {
            next();
            return true;
        }
        if (name == "vector" || name == "matrix") {
            next();
            parseGenericNumeric(name == "matrix", type, columnMajor, token);
            return true;
        }
        return false;
    }

    static bool parseObjectType(const std::string& name, TypeDesc& type) {
        static const struct { const char* name; ParameterType type; } objects[] = {
            {"string", PT_STRING}, {"texture", PT_TEXTURE}, {"texture1d", PT_TEXTURE1D},
            {"texture2d", PT_TEXTURE2D}, {"texture3d", PT_TEXTURE3D}, {"texturecube", PT_TEXTURECUBE},
            {"sampler", PT_SAMPLER}, {"sampler1d", PT_SAMPLER1D}, {"sampler2d", PT_SAMPLER2D},
            {"sampler3d", PT_SAMPLER3D}, {"samplercube", PT_SAMPLERCUBE}, {"pixelshader", PT_PIXELSHADER},
            {"vertexshader", PT_VERTEXSHADER}};
        for (const auto& object : objects)
            if (name == object.name) {
                type = TypeDesc();
                type.type = object.type;
                type.cls = PC_OBJECT;
                return true;
            }
        return false;
    }

    static bool numericBase(const std::string& name, size_t& length, ParameterType& base) {
        static const struct { const char* name; ParameterType type; } bases[] = {
            {"bool", PT_BOOL}, {"int", PT_INT}, {"uint", PT_INT}, {"dword", PT_INT},
            {"float", PT_FLOAT}, {"half", PT_FLOAT}, {"double", PT_FLOAT}};
        for (const auto& candidate : bases)
            if (name.compare(0, std::strlen(candidate.name), candidate.name) == 0) {
                length = std::strlen(candidate.name);
                base = candidate.type;
                return true;
            }
        return false;
    }

    static bool parseNumericType(const std::string& name, TypeDesc& type, bool columnMajor) {
        size_t length;
        ParameterType base;
        if (!numericBase(name, length, base)) return false;
        std::string suffix = name.substr(length);
        type = TypeDesc();
        type.type = base;
        auto digit = [](char c) { return c >= '1' && c <= '4'; };
        if (suffix.empty()) {
            type.cls = PC_SCALAR;
        } else if (suffix.size() == 1 && digit(suffix[0])) {
            type.cls = PC_VECTOR;
            type.columns = static_cast<uint32_t>(suffix[0] - '0');
        } else if (suffix.size() == 3 && digit(suffix[0]) && suffix[1] == 'x' && digit(suffix[2])) {
            type.cls = columnMajor ? PC_MATRIX_COLUMNS : PC_MATRIX_ROWS;
            type.rows = static_cast<uint32_t>(suffix[0] - '0');
            type.columns = static_cast<uint32_t>(suffix[2] - '0');
        } else {
            return false;
        }
        return true;
    }

    // vector<float, 3>, matrix<float, 4, 3>, or plain vector / matrix (float4 / float4x4).
    void parseGenericNumeric(bool isMatrix, TypeDesc& type, bool columnMajor, const Token& at) {
        NestingGuard guard(*this, at);
        type = TypeDesc();
        type.type = PT_FLOAT;
        type.cls = isMatrix ? (columnMajor ? PC_MATRIX_COLUMNS : PC_MATRIX_ROWS) : PC_VECTOR;
        type.rows = isMatrix ? 4 : 1;
        type.columns = 4;
        if (!acceptPunct("<")) return;
        TypeDesc component;
        if (!parseType(component, false) || component.cls != PC_SCALAR) fail(at, "expected a scalar type in '<...>'");
        type.type = component.type;
        expectPunct(",");
        uint32_t first = expectUnsigned("a dimension");
        uint32_t second = 1;
        if (isMatrix) {
            expectPunct(",");
            second = expectUnsigned("a dimension");
        }
        expectPunct(">");
        if (first < 1 || first > 4 || second < 1 || second > 4) fail(at, "dimensions must lie between 1 and 4");
        if (isMatrix) {
            type.rows = first;
            type.columns = second;
        } else {
            type.columns = first;
        }
    }

    // ---- literals and initializers ------------------------------------------------------------
    bool parseLiteral(Literal& literal) {
        bool negative = false;
        if (isPunct(peek(), "-") && peek(1).kind == TokenKind::Number) {
            next();
            negative = true;
        } else if (isPunct(peek(), "+") && peek(1).kind == TokenKind::Number) {
            next();
        }
        const Token& token = peek();
        if (token.kind == TokenKind::Number) {
            next();
            std::string text = token.text;
            bool hex = text.size() > 1 && (text[1] == 'x' || text[1] == 'X');
            while (!hex && !text.empty() && std::strchr("fFhHlLuU", text.back())) text.pop_back();
            literal.isFloat = !hex && text.find_first_of(".eE") != std::string::npos;
            literal.value = literal.isFloat ? std::strtod(text.c_str(), nullptr)
                                            : static_cast<double>(std::strtoll(text.c_str(), nullptr, 0));
            if (negative) literal.value = -literal.value;
            return true;
        }
        if (isKeyword(token, "true") || isKeyword(token, "false")) {
            next();
            literal.value = isKeyword(token, "true") ? 1 : 0;
            literal.isFloat = false;
            return true;
        }
        return false;
    }

    // Gathers the scalars of an initializer: literals, { lists } and constructors such as float4(...).
    void gatherLiterals(std::vector<Literal>& literals) {
        Literal literal;
        if (parseLiteral(literal)) {
            literals.push_back(literal);
            return;
        }
        const Token& start = peek();
        NestingGuard guard(*this, start);
        if (acceptPunct("{")) {
            while (!isPunct(peek(), "}")) {
                gatherLiterals(literals);
                if (!acceptPunct(",")) break;
            }
            expectPunct("}");
            return;
        }
        TypeDesc constructor;
        if (parseType(constructor, false)) {
            if (!constructor.isNumeric()) fail(start, "only numeric constructors are supported in values");
            size_t before = literals.size();
            expectPunct("(");
            while (!isPunct(peek(), ")")) {
                gatherLiterals(literals);
                if (!acceptPunct(",")) break;
            }
            expectPunct(")");
            if (literals.size() - before != constructor.componentCount())
                fail(start, "constructor " + start.text + " needs " + std::to_string(constructor.componentCount()) +
                                " values");
            return;
        }
        fail(start, "unsupported value " + describe(start));
    }

    std::vector<uint32_t> parseNumericInitializer(const TypeDesc& type, const Token& at) {
        std::vector<Literal> literals;
        gatherLiterals(literals);
        uint32_t needed = type.componentCount();
        if (literals.size() == 1 && needed > 1 && !type.elements) literals.assign(needed, literals[0]);
        if (literals.size() != needed)
            fail(at, "initializer has " + std::to_string(literals.size()) + " values where the type needs " +
                         std::to_string(needed));
        std::vector<uint32_t> words;
        for (const Literal& literal : literals) words.push_back(convertLiteral(literal, type.type));
        return type.cls == PC_MATRIX_COLUMNS ? columnByColumn(words, type) : words;
    }

    // Initializers list a matrix row by row; a column_major one is stored as its registers hold it,
    // a column after the other.
    static std::vector<uint32_t> columnByColumn(const std::vector<uint32_t>& rowByRow, const TypeDesc& type) {
        std::vector<uint32_t> stored(rowByRow.size());
        const size_t size = type.rows * type.columns;
        for (size_t element = 0; element < rowByRow.size(); element += size)
            for (uint32_t r = 0; r < type.rows; ++r)
                for (uint32_t c = 0; c < type.columns; ++c)
                    stored[element + c * type.rows + r] = rowByRow[element + r * type.columns + c];
        return stored;
    }

    std::vector<uint8_t> parseShaderValue(const Token& at) {
        if (isKeyword(peek(), "compile"))
            fail(peek(), "HLSL compile targets are not supported; write the shader in an asm block");
        if (isKeyword(peek(), "null")) {
            next();
            return {};
        }
        if (!isKeyword(peek(), "asm")) fail(at, "expected an asm block before " + describe(peek()));
        next();
        const Token& body = next();
        if (body.kind != TokenKind::AsmBody) fail(body, "expected the body of the asm block");
        return m_assemble(body.text, body.where);
    }

    // ---- annotations -------------------------------------------------------------------------
    std::vector<Annotation> parseAnnotations() {
        std::vector<Annotation> annotations;
        if (!acceptPunct("<")) return annotations;
        while (!acceptPunct(">")) {
            const Token& start = peek();
            Annotation annotation;
            if (!parseType(annotation.type, false)) fail(start, "unknown annotation type " + describe(start));
            if (annotation.type.isObject() && annotation.type.type != PT_STRING)
                fail(start, "annotations must be numeric or strings");
            annotation.name = expectIdentifier("an annotation name").text;
            if (acceptPunct("[")) {
                annotation.type.elements = expectUnsigned("array size", kMaxArrayElements);
                expectPunct("]");
            }
            expectPunct("=");
            if (annotation.type.type == PT_STRING) {
                const Token& text = next();
                if (text.kind != TokenKind::String) fail(text, "expected a string value");
                annotation.text = text.text;
            } else {
                annotation.words = parseNumericInitializer(annotation.type, start);
            }
            expectPunct(";");
            annotations.push_back(annotation);
        }
        return annotations;
    }

    // ---- parameters --------------------------------------------------------------------------
    void parseParameter() {
        const Token& start = peek();
        Parameter parameter;
        parameter.where = start.where;
        // Effect parameters are row-major unless declared otherwise: D3DX sets matrices only on those.
        bool columnMajor = false;
        for (;;) {
            const Token& token = peek();
            if (isKeyword(token, "shared")) parameter.shared = true;
            else if (isKeyword(token, "column_major")) columnMajor = true;
            else if (isKeyword(token, "uniform") || isKeyword(token, "extern") || isKeyword(token, "const") ||
                     isKeyword(token, "row_major"))
                ;
            else if (isKeyword(token, "static")) fail(token, "static variables are not supported");
            else break;
            next();
        }
        const Token& typeToken = peek();
        if (!parseType(parameter.type, columnMajor)) {
            if (typeToken.kind == TokenKind::Identifier && isPunct(peek(1), "("))
                fail(typeToken, "HLSL functions are not supported; write shaders in asm blocks");
            fail(typeToken, "unknown type " + describe(typeToken));
        }
        parameter.name = expectIdentifier("a parameter name").text;
        if (m_effect.findParameter(parameter.name)) fail(start, "parameter " + parameter.name + " declared twice");
        if (isPunct(peek(), "(")) fail(peek(), "HLSL functions are not supported; write shaders in asm blocks");
        if (acceptPunct("[")) {
            parameter.type.elements = expectUnsigned("array size", kMaxArrayElements);
            if (!parameter.type.elements) fail(start, "arrays need at least one element");
            expectPunct("]");
        }
        if ((parameter.type.isSampler() || parameter.type.isShader()) && parameter.type.elements)
            fail(start, "arrays of samplers and shaders are not supported");
        while (acceptPunct(":")) {
            if (isKeyword(peek(), "register")) parseRegister(parameter);
            else parameter.semantic = expectIdentifier("a semantic").text;
        }
        parameter.annotations = parseAnnotations();
        if (parameter.type.isNumeric()) parameter.words.assign(parameter.type.componentCount(), 0);
        if (acceptPunct("=")) parseParameterInitializer(parameter, start);
        if (isPunct(peek(), ",")) fail(peek(), "declare one parameter per statement");
        expectPunct(";");
        m_effect.parameters.push_back(parameter);
    }

    void parseRegister(Parameter& parameter) {
        const Token& at = next();
        expectPunct("(");
        const Token* reg = &expectIdentifier("a register");
        if (acceptPunct(",")) {
            std::string profile = lower(reg->text);
            if (profile.compare(0, 2, "vs") == 0) parameter.binding.stage = RegisterBinding::Stage::Vertex;
            else if (profile.compare(0, 2, "ps") == 0) parameter.binding.stage = RegisterBinding::Stage::Pixel;
            else fail(*reg, "unknown shader profile " + reg->text + " in register()");
            reg = &expectIdentifier("a register");
        }
        expectPunct(")");
        std::string text = lower(reg->text);
        if (text.size() < 2 || !std::strchr("cbis", text[0]) ||
            text.find_first_not_of("0123456789", 1) != std::string::npos)
            fail(*reg, "unsupported register " + reg->text);
        parameter.binding.set = text[0];
        if (text.size() > 6) fail(*reg, "unsupported register " + reg->text);
        parameter.binding.index = static_cast<uint32_t>(std::strtoul(text.c_str() + 1, nullptr, 10));
        checkRegisterType(parameter, at);
    }

    static void checkRegisterType(const Parameter& parameter, const Token& at) {
        const TypeDesc& type = parameter.type;
        bool fits = (parameter.binding.set == 'c' && type.type == PT_FLOAT) ||
                    (parameter.binding.set == 'b' && type.type == PT_BOOL) ||
                    (parameter.binding.set == 'i' && type.type == PT_INT) ||
                    (parameter.binding.set == 's' && type.isSampler());
        if (!fits)
            throw CompileError(at.where, std::string("register ") + parameter.binding.set + " does not fit the type of " +
                                             parameter.name);
    }

    void parseParameterInitializer(Parameter& parameter, const Token& start) {
        const TypeDesc& type = parameter.type;
        if (type.isNumeric()) {
            parameter.words = parseNumericInitializer(type, start);
        } else if (type.type == PT_STRING) {
            const Token& text = next();
            if (text.kind != TokenKind::String) fail(text, "expected a string value");
            parameter.text = text.text;
        } else if (type.isSampler()) {
            if (!isKeyword(peek(), "sampler_state")) fail(peek(), "expected sampler_state before " + describe(peek()));
            next();
            parameter.samplerStates = parseStateBlock(true);
        } else if (type.isShader()) {
            parameter.shaderCode = parseShaderValue(start);
            checkShaderKind(parameter.shaderCode, type.type == PT_VERTEXSHADER, start);
        } else {
            fail(start, "texture parameters take no initial value");
        }
    }

    // ---- techniques and states ----------------------------------------------------------------
    void parseTechnique() {
        next();
        Technique technique;
        if (peek().kind == TokenKind::Identifier) technique.name = next().text;
        technique.annotations = parseAnnotations();
        expectPunct("{");
        while (!acceptPunct("}")) {
            if (!isKeyword(peek(), "pass")) fail(peek(), "expected pass before " + describe(peek()));
            next();
            Pass pass;
            if (peek().kind == TokenKind::Identifier) pass.name = next().text;
            pass.annotations = parseAnnotations();
            pass.states = parseStateBlock(false);
            technique.passes.push_back(pass);
        }
        m_effect.techniques.push_back(technique);
    }

    std::vector<StateAssignment> parseStateBlock(bool samplerBlock) {
        std::vector<StateAssignment> states;
        expectPunct("{");
        while (!acceptPunct("}")) {
            if (acceptPunct(";")) continue;
            states.push_back(parseState(samplerBlock));
        }
        return states;
    }

    StateAssignment parseState(bool samplerBlock) {
        const Token& nameToken = expectIdentifier("a state name");
        StateAssignment state;
        state.where = nameToken.where;
        const StateInfo* info = findState(nameToken.text, &state.operation);
        if (!info) fail(nameToken, "unknown state " + nameToken.text);
        if (samplerBlock && info->family != StateFamily::SamplerState && info->family != StateFamily::Texture)
            fail(nameToken, "state " + nameToken.text + " does not belong in sampler_state");
        bool indexed = false;
        if (acceptPunct("[")) {
            state.index = expectUnsigned("a state index");
            expectPunct("]");
            indexed = true;
        }
        if (samplerBlock && indexed) fail(nameToken, "sampler_state entries take no index");
        bool needsIndex = info->family == StateFamily::ShaderConstantF || info->family == StateFamily::ShaderConstantB ||
                          info->family == StateFamily::ShaderConstantI || info->family == StateFamily::Sampler;
        if (needsIndex && !indexed) fail(nameToken, "state " + nameToken.text + " needs an index [n]");
        if (indexed && !needsIndexInPass(*info) && !isKeyword(nameToken, "texturetransform"))
            fail(nameToken, "state " + nameToken.text + " takes no index");
        expectPunct("=");
        parseStateValue(*info, state, nameToken);
        expectPunct(";");
        return state;
    }

    // <name>, (name) or a bare name that is a declared parameter.
    const Parameter* parseParameterReference(ValueKind kind) {
        if (isPunct(peek(), "<") || isPunct(peek(), "(")) {
            bool angle = isPunct(peek(), "<");
            if (peek(1).kind != TokenKind::Identifier || !isPunct(peek(2), angle ? ">" : ")")) return nullptr;
            next();
            const Token& name = next();
            next();
            const Parameter* parameter = m_effect.findParameter(name.text);
            if (!parameter) fail(name, "unknown parameter " + name.text);
            return parameter;
        }
        const Token& token = peek();
        uint32_t ignored;
        if (token.kind != TokenKind::Identifier || symbolicValue(kind, token.text, &ignored)) return nullptr;
        const Parameter* parameter = m_effect.findParameter(token.text);
        if (parameter) next();
        return parameter;
    }

    void parseStateValue(const StateInfo& info, StateAssignment& state, const Token& at) {
        const Parameter* referenced = parseParameterReference(info.value);
        if (referenced) {
            checkReference(info, *referenced, at);
            state.kind = StateAssignment::Kind::ParameterReference;
            state.referencedName = referenced->name;
            state.type = referenced->type;
            return;
        }
        switch (info.value) {
        case ValueKind::Shader:
            state.kind = StateAssignment::Kind::Object;
            state.type.type = info.family == StateFamily::VertexShader ? PT_VERTEXSHADER : PT_PIXELSHADER;
            state.type.cls = PC_OBJECT;
            state.shaderCode = parseShaderValue(at);
            checkShaderKind(state.shaderCode, info.family == StateFamily::VertexShader, at);
            return;
        case ValueKind::TextureObject:
            if (!isKeyword(peek(), "null")) fail(peek(), "expected a texture parameter before " + describe(peek()));
            next();
            state.kind = StateAssignment::Kind::Object;
            state.type.type = PT_TEXTURE;
            state.type.cls = PC_OBJECT;
            return;
        case ValueKind::SamplerObject:
            fail(peek(), "expected a sampler parameter before " + describe(peek()));
        case ValueKind::ShaderConstant:
            return parseConstantValue(info, state, at);
        default:
            return parseSimpleValue(info, state, at);
        }
    }

    void checkReference(const StateInfo& info, const Parameter& referenced, const Token& at) {
        const TypeDesc& type = referenced.type;
        std::string problem;
        switch (info.family) {
        case StateFamily::VertexShader: if (type.type != PT_VERTEXSHADER) problem = "a vertexshader"; break;
        case StateFamily::PixelShader: if (type.type != PT_PIXELSHADER) problem = "a pixelshader"; break;
        case StateFamily::Texture: if (!type.isTexture() || type.elements) problem = "a texture"; break;
        case StateFamily::Sampler: if (!type.isSampler()) problem = "a sampler"; break;
        case StateFamily::ShaderConstantF: if (type.type != PT_FLOAT) problem = "a float parameter"; break;
        case StateFamily::ShaderConstantB: if (type.type != PT_BOOL) problem = "a bool parameter"; break;
        case StateFamily::ShaderConstantI: if (type.type != PT_INT) problem = "an int parameter"; break;
        default: if (!type.isNumeric()) problem = "a numeric parameter"; break;
        }
        if (!problem.empty()) fail(at, "state " + at.text + " needs " + problem + ", " + referenced.name + " is not");
    }

    // Literal shader constants: float4(...), {...}; bool and int forms likewise.
    void parseConstantValue(const StateInfo& info, StateAssignment& state, const Token& at) {
        std::vector<Literal> literals;
        gatherLiterals(literals);
        ParameterType type = info.family == StateFamily::ShaderConstantB ? PT_BOOL
                             : info.family == StateFamily::ShaderConstantI ? PT_INT : PT_FLOAT;
        state.kind = StateAssignment::Kind::Constant;
        state.type.type = type;
        if (literals.size() <= 4) {
            state.type.cls = literals.size() == 1 ? PC_SCALAR : PC_VECTOR;
            state.type.columns = static_cast<uint32_t>(literals.size());
        } else if (literals.size() % 4 == 0 && literals.size() <= 16) {
            state.type.cls = PC_MATRIX_ROWS;
            state.type.rows = static_cast<uint32_t>(literals.size() / 4);
            state.type.columns = 4;
        } else {
            fail(at, "a shader constant value takes up to 4 values or 4 rows of 4");
        }
        for (const Literal& literal : literals) state.words.push_back(convertLiteral(literal, type));
    }

    // Render, texture-stage, sampler, light, material and transform values.
    void parseSimpleValue(const StateInfo& info, StateAssignment& state, const Token& at) {
        state.kind = StateAssignment::Kind::Constant;
        if (isFloatValued(info.value)) {
            state.type.type = PT_FLOAT;
            uint32_t count = info.value == ValueKind::Color ? 4 : info.value == ValueKind::Vector3 ? 3
                             : info.value == ValueKind::Matrix ? 16 : 1;
            state.type.cls = count == 1 ? PC_SCALAR : count == 16 ? PC_MATRIX_ROWS : PC_VECTOR;
            state.type.rows = count == 16 ? 4 : 1;
            state.type.columns = count == 16 ? 4 : count;
            state.words = parseNumericInitializer(state.type, at);
            return;
        }
        state.type.type = info.value == ValueKind::Bool ? PT_BOOL : PT_INT;
        state.type.cls = PC_SCALAR;
        uint32_t value = parseFlagTerm(info.value, at);
        while (acceptPunct("|")) value |= parseFlagTerm(info.value, at);
        state.words.push_back(value);
    }

    uint32_t parseFlagTerm(ValueKind kind, const Token& at) {
        Literal literal;
        if (parseLiteral(literal)) {
            if (literal.isFloat) fail(at, "state " + at.text + " takes a whole number");
            return static_cast<uint32_t>(static_cast<int64_t>(literal.value));
        }
        const Token& token = next();
        uint32_t value;
        if (token.kind == TokenKind::Identifier && symbolicValue(kind, token.text, &value)) return value;
        fail(token, "unknown value " + describe(token) + " for state " + at.text);
    }

    static void checkShaderKind(const std::vector<uint8_t>& code, bool vertex, const Token& at) {
        if (code.size() < 4) return;
        uint16_t kind = static_cast<uint16_t>(code[2] | (code[3] << 8));
        if (kind != (vertex ? 0xFFFE : 0xFFFF))
            fail(at, vertex ? "expected a vertex shader (vs_...)" : "expected a pixel shader (ps_...)");
    }

    // ---- register bindings ------------------------------------------------------------------
    // Parameters reach a pass's shaders through a constant table in each shader, as in effects
    // compiled from HLSL: D3DX then copies whole matrices and arrays by name when the pass begins.
    // Bound are parameters declared with register(...) and those that shader-constant states name.
    void bindRegisters() {
        for (Technique& technique : m_effect.techniques)
            for (Pass& pass : technique.passes) {
                bindStage(pass, true);
                bindStage(pass, false);
            }
    }

    static bool isVertexStage(const StateAssignment& state) { return stateAt(state.operation).name[0] == 'V'; }

    static bool isShaderConstant(const StateAssignment& state) {
        StateFamily family = stateAt(state.operation).family;
        return family == StateFamily::ShaderConstantF || family == StateFamily::ShaderConstantB ||
               family == StateFamily::ShaderConstantI;
    }

    static char registerSetOf(const StateAssignment& state) {
        switch (stateAt(state.operation).family) {
        case StateFamily::ShaderConstantB: return 'b';
        case StateFamily::ShaderConstantI: return 'i';
        default: return 'c';
        }
    }

    StateAssignment* inlineShader(Pass& pass, bool vertex) {
        StateFamily wanted = vertex ? StateFamily::VertexShader : StateFamily::PixelShader;
        StateAssignment* found = nullptr;
        for (StateAssignment& state : pass.states)
            if (stateAt(state.operation).family == wanted)
                found = state.kind == StateAssignment::Kind::Object && !state.shaderCode.empty() ? &state : nullptr;
        return found;
    }

    void bindStage(Pass& pass, bool vertex) {
        StateAssignment* shader = inlineShader(pass, vertex);
        if (!shader) return bindWithStates(pass, vertex);
        std::vector<ConstantBinding> bindings;
        for (const Parameter& parameter : m_effect.parameters) {
            const RegisterBinding& binding = parameter.binding;
            if (!binding.set || binding.stage == (vertex ? RegisterBinding::Stage::Pixel : RegisterBinding::Stage::Vertex))
                continue;
            bool fits = binding.index + registerCount(parameter.type, binding.set) <=
                        registerLimit(shader->shaderCode, binding.set);
            if (fits) bindings.push_back({&parameter, binding.set, binding.index});
            else if (binding.stage != RegisterBinding::Stage::Any)
                throw CompileError(parameter.where, parameter.name + " does not fit the registers of the shader");
        }
        std::vector<StateAssignment> kept;
        for (const StateAssignment& state : pass.states) {
            bool moves = isShaderConstant(state) && isVertexStage(state) == vertex &&
                         state.kind == StateAssignment::Kind::ParameterReference;
            if (!moves) {
                kept.push_back(state);
                continue;
            }
            const Parameter* parameter = m_effect.findParameter(state.referencedName);
            char set = registerSetOf(state);
            if (state.index + registerCount(parameter->type, set) > registerLimit(shader->shaderCode, set))
                throw CompileError(state.where, parameter->name + " does not fit the registers of the shader");
            bindings.push_back({parameter, set, state.index});
        }
        pass.states = kept;
        shader = inlineShader(pass, vertex);
        if (!bindings.empty()) shader->shaderCode = withConstantTable(shader->shaderCode, bindings);
    }

    // Shaders given by parameter get register-bound values through states, which suits values
    // of one register.
    void bindWithStates(Pass& pass, bool vertex) {
        bool present = false;
        StateFamily wanted = vertex ? StateFamily::VertexShader : StateFamily::PixelShader;
        for (const StateAssignment& state : pass.states)
            if (stateAt(state.operation).family == wanted)
                present = state.kind != StateAssignment::Kind::Object || !state.shaderCode.empty();
        if (!present) return;
        std::vector<StateAssignment> implicit;
        for (const Parameter& parameter : m_effect.parameters) {
            const RegisterBinding& binding = parameter.binding;
            if (!binding.set || binding.stage == (vertex ? RegisterBinding::Stage::Pixel : RegisterBinding::Stage::Vertex))
                continue;
            if (vertex && binding.set == 's' && binding.stage != RegisterBinding::Stage::Vertex) continue;
            implicit.push_back(bindingState(parameter, vertex));
        }
        pass.states.insert(pass.states.begin(), implicit.begin(), implicit.end());
    }

    static StateAssignment bindingState(const Parameter& parameter, bool vertex) {
        const char* name = nullptr;
        uint32_t index = parameter.binding.index;
        switch (parameter.binding.set) {
        case 'c': name = vertex ? "VertexShaderConstantF" : "PixelShaderConstantF"; break;
        case 'b': name = vertex ? "VertexShaderConstantB" : "PixelShaderConstantB"; break;
        case 'i': name = vertex ? "VertexShaderConstantI" : "PixelShaderConstantI"; break;
        default:
            name = "Sampler";
            if (vertex) index += 257;  // D3DVERTEXTEXTURESAMPLER0
            break;
        }
        StateAssignment state;
        findState(name, &state.operation);
        state.index = index;
        state.kind = StateAssignment::Kind::ParameterReference;
        state.referencedName = parameter.name;
        state.type = parameter.type;
        state.where = parameter.where;
        return state;
    }

    const std::vector<Token>& m_tokens;
    const ShaderAssembler& m_assemble;
    size_t m_position = 0;
    unsigned m_nesting = 0;
    EffectModel m_effect;
};

}  // namespace

EffectModel parseEffect(const std::vector<Token>& tokens, const ShaderAssembler& assemble) {
    return Parser(tokens, assemble).parse();
}

}  // namespace fxc
