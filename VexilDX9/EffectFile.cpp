#include <VexilDX9/EffectFile.h>
#include <VexilDX9/EffectShaderCheck.h>

#include <d3dx9.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace VexilDX9 {
namespace {

const uint32_t kEffectTag = 0xFEFF0901;  // fx_2_0
const size_t kHeaderBytes = 8;           // tag, then the offset of the structure section
const uint32_t kNone = 0xFFFFFFFF;
const uint32_t kNoUser = 0xFFFFFFFF;
const uint32_t kStateOperationCount = 0xB3;  // entries of D3DX's state table
const uint32_t kMaxDimension = 4;            // rows and columns of Direct3D 9 types
const unsigned kMaxNesting = 16;             // D3DX recurses once per level
const uint64_t kObjectValueBytes = sizeof(void*);  // D3DX keeps an object value as a pointer

// Smallest size of one record, to refuse counts the remaining bytes could never hold.
const size_t kParameterRecord = 16, kTechniqueRecord = 12, kPassRecord = 12, kAnnotationRecord = 8,
             kStateRecord = 16, kTypeRecord = 20, kObjectRecord = 8, kResourceRecord = 24;

enum ResourceUsage : uint32_t { UsageObjectData = 0, UsageParameterName = 1, UsageArraySelector = 2 };

bool isSamplerType(uint32_t type) { return type >= D3DXPT_SAMPLER && type <= D3DXPT_SAMPLERCUBE; }
bool isShaderType(uint32_t type) { return type == D3DXPT_PIXELSHADER || type == D3DXPT_VERTEXSHADER; }
bool isObjectType(uint32_t type) { return (type >= D3DXPT_STRING && type <= D3DXPT_SAMPLERCUBE) || isShaderType(type); }
bool isNumericType(uint32_t type) { return type == D3DXPT_BOOL || type == D3DXPT_INT || type == D3DXPT_FLOAT; }
bool isExpressionType(uint32_t type) {
    return type == D3DXPT_BOOL || type == D3DXPT_INT || type == D3DXPT_FLOAT || type == D3DXPT_STRING;
}

uint64_t saturatingProduct(uint64_t a, uint64_t b) {
    if (a != 0 && b > UINT64_MAX / a) return UINT64_MAX;
    return a * b;
}

uint64_t saturatingSum(uint64_t a, uint64_t b) { return b > UINT64_MAX - a ? UINT64_MAX : a + b; }

uint32_t wordAt(const uint8_t* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

bool hasTerminator(const uint8_t* bytes, size_t size) { return size > 0 && std::memchr(bytes, 0, size) != nullptr; }

struct TypeDef {
    uint32_t type = 0;
    uint32_t cls = 0;
    uint32_t elements = 0;
    uint32_t rows = 0;
    uint32_t columns = 0;
    uint64_t elementBytes = 0;  // what D3DX allocates for one element
    uint32_t nameOffset = 0;
    std::vector<TypeDef> members;

    uint64_t bytes() const { return elements ? saturatingProduct(elementBytes, elements) : elementBytes; }
    bool isPlainObject() const { return elements == 0 && cls == D3DXPC_OBJECT && !isSamplerType(type); }
};

// What a resource record needs to know of the state it addresses.
struct StateInfo {
    uint32_t type = 0;
    uint32_t objectId = 0;  // D3DX's object id of the state value: 0 unless a single non-sampler object
};
typedef std::vector<StateInfo> StateList;

struct ParameterInfo {
    TypeDef type;
    std::vector<StateList> samplers;  // one block per element of a sampler parameter
};
typedef std::vector<StateList> TechniqueInfo;  // the states of each pass

class EffectWalker {
public:
    EffectWalker(const uint8_t* data, size_t size, std::vector<size_t>* structuralWords)
        : m_base(data + kHeaderBytes), m_size(size - kHeaderBytes), m_structuralWords(structuralWords),
          m_budget(size + 64) {}

    bool walk(uint32_t start) {
        size_t at = start;
        uint32_t parameterCount = 0, techniqueCount = 0, unused = 0, objectCount = 0;
        if (!count(at, parameterCount, kParameterRecord) || !count(at, techniqueCount, kTechniqueRecord) ||
            !plain(at, unused) || !structural(at, objectCount))
            return refuse("its parameter, technique or object count exceeds the file");
        // Object 0 is scratch space; every other one is named by a value word.
        if (objectCount > m_size / 4 + 1) return refuse("its parameter, technique or object count exceeds the file");
        m_objectUsers.assign(objectCount, kNoUser);
        m_objectFilled.assign(objectCount, false);
        return parameters(at, parameterCount) && techniques(at, techniqueCount) && objectsAndResources(at);
    }

    // The first reason given is the one the walk stopped for.
    const std::string& reason() const { return m_reason; }

private:
    bool refuse(const std::string& why) const {
        if (m_reason.empty()) m_reason = why;
        return false;
    }
    static std::string numbered(const char* what, size_t index) { return what + std::to_string(index); }

    size_t remaining(size_t at) const { return at <= m_size ? m_size - at : 0; }
    bool fits(size_t at, uint64_t bytes) const { return at <= m_size && bytes <= m_size - at; }

    // Every parameter node D3DX builds costs one; a file cannot ask for more than its size.
    bool spend() { return m_budget-- > 0; }

    bool plain(size_t& at, uint32_t& word) {
        if (!fits(at, 4)) return false;
        word = wordAt(m_base + at);
        at += 4;
        return true;
    }

    bool structural(size_t& at, uint32_t& word) {
        if (m_structuralWords && fits(at, 4)) m_structuralWords->push_back(at + kHeaderBytes);
        return plain(at, word);
    }

    bool count(size_t& at, uint32_t& value, size_t recordBytes) {
        return structural(at, value) && value <= remaining(at) / recordBytes;
    }

    bool name(uint32_t offset, bool required) {
        size_t at = offset;
        uint32_t length = 0;
        if (!structural(at, length)) return false;
        if (length == 0) return !required;  // D3DX uses names of parameters as C strings
        return fits(at, length) && hasTerminator(m_base + at, length);
    }

    bool blob(size_t& at, uint32_t& size, const uint8_t*& bytes) {
        if (!structural(at, size)) return false;
        uint64_t padded = (uint64_t(size) + 3) & ~uint64_t(3);
        if (!fits(at, padded)) return false;
        bytes = m_base + at;
        at += padded;
        return true;
    }

    bool typeDef(size_t& at, bool named, unsigned depth, TypeDef& out) {
        uint32_t nameOffset = 0, semanticOffset = 0;
        if (depth > kMaxNesting || !spend()) return false;
        if (!plain(at, out.type) || !plain(at, out.cls) || !structural(at, nameOffset) ||
            !structural(at, semanticOffset) || !structural(at, out.elements))
            return false;
        out.nameOffset = nameOffset;
        return name(nameOffset, named) && name(semanticOffset, false) && typeShape(at, named, depth, out);
    }

    bool typeShape(size_t& at, bool named, unsigned depth, TypeDef& out) {
        switch (out.cls) {
        case D3DXPC_SCALAR:
        case D3DXPC_VECTOR:
        case D3DXPC_MATRIX_ROWS:
        case D3DXPC_MATRIX_COLUMNS:
            return isNumericType(out.type) && numericShape(at, out) && numericShapeFitsClass(out);
        case D3DXPC_OBJECT:
            out.elementBytes = isSamplerType(out.type) ? 0 : kObjectValueBytes;
            return isObjectType(out.type);
        case D3DXPC_STRUCT:
            return structShape(at, named, depth, out);
        default:
            return false;
        }
    }

    // Vectors give columns first, the others rows first.
    bool numericShape(size_t& at, TypeDef& out) {
        uint32_t first = 0, second = 0;
        if (!structural(at, first) || !structural(at, second)) return false;
        out.rows = out.cls == D3DXPC_VECTOR ? second : first;
        out.columns = out.cls == D3DXPC_VECTOR ? first : second;
        out.elementBytes = 4ull * first * second;
        return true;
    }

    // D3DX divides by rows and columns when it sets values and shader constants.
    static bool numericShapeFitsClass(const TypeDef& type) {
        if (type.rows < 1 || type.rows > kMaxDimension || type.columns < 1 || type.columns > kMaxDimension)
            return false;
        if (type.cls == D3DXPC_SCALAR) return type.rows == 1 && type.columns == 1;
        return type.cls != D3DXPC_VECTOR || type.rows == 1;
    }

    // D3DX divides by the size of a struct's members, so a struct has at least one.
    bool structShape(size_t& at, bool named, unsigned depth, TypeDef& out) {
        uint32_t memberCount = 0;
        if (!count(at, memberCount, kTypeRecord) || memberCount == 0) return false;
        out.members.resize(memberCount);
        for (TypeDef& member : out.members) {
            if (!typeDef(at, named, depth + 1, member)) return false;
            out.elementBytes = saturatingSum(out.elementBytes, member.bytes());
        }
        return true;
    }

    // D3DX copies numeric values whole, then takes the value apart: each object reads its id,
    // each sampler its block of states.
    bool initialValue(const TypeDef& type, uint32_t offset, unsigned depth, std::vector<StateList>* samplers) {
        size_t at = offset;
        if (type.cls != D3DXPC_OBJECT && !fits(at, type.bytes())) return false;
        return value(type, false, at, depth, samplers);
    }

    bool value(const TypeDef& type, bool isElement, size_t& at, unsigned depth, std::vector<StateList>* samplers) {
        if (!spend()) return false;
        if (!isElement && type.elements) {
            for (uint32_t i = 0; i < type.elements; ++i)
                if (!value(type, true, at, depth, samplers)) return false;
            return true;
        }
        if (type.cls == D3DXPC_STRUCT) {
            for (const TypeDef& member : type.members)
                if (!value(member, false, at, depth, nullptr)) return false;
            return true;
        }
        if (type.cls != D3DXPC_OBJECT) return true;
        if (isSamplerType(type.type)) return samplerValue(at, depth, samplers);
        return objectId(at, type.type);
    }

    bool objectId(size_t& at, uint32_t type) {
        uint32_t id = 0;
        // D3DX creates an object into the value that names it: a second name would leak the first.
        // Object 0 is scratch space for names and expressions, never a value.
        if (!structural(at, id) || id == 0 || id >= m_objectUsers.size() || m_objectUsers[id] != kNoUser)
            return false;
        m_objectUsers[id] = type;
        m_lastObjectId = id;
        return true;
    }

    bool samplerValue(size_t& at, unsigned depth, std::vector<StateList>* samplers) {
        StateList states;
        if (!samplerBlock(at, depth + 1, states)) return false;
        if (samplers) samplers->push_back(states);
        return true;
    }

    bool samplerBlock(size_t& at, unsigned depth, StateList& states) {
        uint32_t stateCount = 0;
        if (depth > kMaxNesting || !count(at, stateCount, kStateRecord)) return false;
        states.resize(stateCount);
        for (StateInfo& state : states)
            if (!this->state(at, depth, state)) return false;
        return true;
    }

    bool state(size_t& at, unsigned depth, StateInfo& info) {
        uint32_t operation = 0, index = 0, typeOffset = 0, valueOffset = 0;
        if (!spend() || !plain(at, operation) || !plain(at, index) || !structural(at, typeOffset) ||
            !structural(at, valueOffset) || operation >= kStateOperationCount)
            return false;
        TypeDef type;
        size_t typeAt = typeOffset;
        m_lastObjectId = 0;
        if (!typeDef(typeAt, false, depth, type) || !initialValue(type, valueOffset, depth, nullptr)) return false;
        info.type = type.type;
        info.objectId = type.isPlainObject() ? m_lastObjectId : 0;
        return true;
    }

    bool annotations(size_t& at, uint32_t annotationCount, unsigned depth) {
        for (uint32_t i = 0; i < annotationCount; ++i) {
            uint32_t typeOffset = 0, valueOffset = 0;
            if (!structural(at, typeOffset) || !structural(at, valueOffset)) return false;
            TypeDef type;
            size_t typeAt = typeOffset;
            if (!typeDef(typeAt, true, depth, type) || !initialValue(type, valueOffset, depth, nullptr)) return false;
        }
        return true;
    }

    bool parameters(size_t& at, uint32_t parameterCount) {
        m_parameters.resize(parameterCount);
        for (size_t i = 0; i < m_parameters.size(); ++i)
            if (!parameter(at, m_parameters[i]))
                return refuse(numbered("parameter ", i) + " (type, value or annotations) does not hold together");
        return true;
    }

    bool parameter(size_t& at, ParameterInfo& info) {
        uint32_t typeOffset = 0, valueOffset = 0, flags = 0, annotationCount = 0;
        if (!structural(at, typeOffset) || !structural(at, valueOffset) || !plain(at, flags) ||
            !count(at, annotationCount, kAnnotationRecord))
            return false;
        size_t typeAt = typeOffset;
        return typeDef(typeAt, true, 0, info.type) && initialValue(info.type, valueOffset, 0, &info.samplers) &&
               annotations(at, annotationCount, 0);
    }

    bool techniques(size_t& at, uint32_t techniqueCount) {
        m_techniques.resize(techniqueCount);
        for (size_t t = 0; t < m_techniques.size(); ++t) {
            TechniqueInfo& technique = m_techniques[t];
            uint32_t nameOffset = 0, annotationCount = 0, passCount = 0;
            if (!structural(at, nameOffset) || !count(at, annotationCount, kAnnotationRecord) ||
                !count(at, passCount, kPassRecord) || !name(nameOffset, false) || !annotations(at, annotationCount, 0))
                return refuse(numbered("technique ", t) + " (name, annotations or pass count) does not hold together");
            technique.resize(passCount);
            for (size_t p = 0; p < technique.size(); ++p)
                if (!pass(at, technique[p]))
                    return refuse(numbered("pass ", p) + numbered(" of technique ", t) + " does not hold together");
        }
        return true;
    }

    bool pass(size_t& at, StateList& states) {
        uint32_t nameOffset = 0, annotationCount = 0, stateCount = 0;
        if (!structural(at, nameOffset) || !count(at, annotationCount, kAnnotationRecord) ||
            !count(at, stateCount, kStateRecord) || !name(nameOffset, false) || !annotations(at, annotationCount, 0))
            return false;
        states.resize(stateCount);
        for (StateInfo& state : states)
            if (!this->state(at, 0, state)) return false;
        return true;
    }

    bool objectsAndResources(size_t& at) {
        uint32_t objectCount = 0, resourceCount = 0;
        if (!count(at, objectCount, kObjectRecord) || !count(at, resourceCount, kResourceRecord))
            return refuse("its object data or resource count exceeds the file");
        for (uint32_t i = 0; i < objectCount; ++i)
            if (!objectData(at))
                return refuse(numbered("object data ", i) + " (an object named twice or by no parameter, or shader "
                                                           "code that does not hold together) is refused");
        for (uint32_t i = 0; i < resourceCount; ++i)
            if (!resource(at))
                return refuse(numbered("resource ", i) + " (its state, shader code or expression) is refused");
        return true;
    }

    bool objectData(size_t& at) {
        uint32_t id = 0, size = 0;
        const uint8_t* bytes = nullptr;
        if (!structural(at, id) || !fillOnce(id) || !blob(at, size, bytes)) return false;
        return size == 0 || objectFits(m_objectUsers[id], bytes, size);
    }

    // Data given twice to an object would be created twice into the same value, leaking the first.
    bool fillOnce(uint32_t id) {
        if (id >= m_objectUsers.size()) return false;
        if (id == 0) return true;
        if (m_objectFilled[id]) return false;
        m_objectFilled[id] = true;
        return true;
    }

    // D3DX creates the object through the parameter that named it, so there must be one.
    bool objectFits(uint32_t user, const uint8_t* bytes, uint32_t size) const {
        if (user == kNoUser) return false;
        return !isShaderType(user) || code(bytes, size, CodeKind::Shader);
    }

    // Shader code must start with a version token and end with the end token (the device walks it
    // without a size); D3DX reads its comments and constant tables unchecked.
    bool code(const uint8_t* bytes, size_t size, CodeKind kind) const {
        ConstantRule agrees = [this](const ConstantShape& shape) { return parameterAgrees(shape); };
        return isSoundEffectCode(bytes, size, kind, agrees, m_base - kHeaderBytes, m_structuralWords);
    }

    // A constant names a top-level parameter by its name. D3DX reshapes a numeric value into the
    // constant's registers whatever the two say of class, type, rows and columns (it transposes,
    // converts and bounds the copy by the parameter), so those may differ; it refuses constants
    // whose elements differ from the parameter's, and so does this.
    bool parameterAgrees(const ConstantShape& shape) const {
        for (const ParameterInfo& parameter : m_parameters) {
            const TypeDef& type = parameter.type;
            if (std::strcmp(reinterpret_cast<const char*>(m_base + type.nameOffset + 4), shape.name) != 0) continue;
            if (type.cls > D3DXPC_MATRIX_COLUMNS) return true;  // D3DX checks samplers and structs itself
            if (std::max<uint32_t>(shape.elements, 1) == std::max<uint32_t>(type.elements, 1)) return true;
            return refuse(std::string("constant ") + shape.name + " has other elements than its parameter");
        }
        return true;
    }

    bool resource(size_t& at) {
        uint32_t technique = 0, index = 0, element = 0, stateIndex = 0, usage = 0, size = 0;
        const uint8_t* bytes = nullptr;
        if (!structural(at, technique) || !structural(at, index) || !structural(at, element) ||
            !structural(at, stateIndex) || !plain(at, usage))
            return false;
        const StateInfo* state =
            technique == kNone ? samplerState(index, element, stateIndex) : passState(technique, index, stateIndex);
        if (!state || !fillOnce(state->objectId) || !blob(at, size, bytes)) return false;
        return resourceFits(*state, usage, bytes, size);
    }

    bool resourceFits(const StateInfo& state, uint32_t usage, const uint8_t* bytes, uint32_t size) const {
        switch (usage) {
        case UsageObjectData:
            if (isShaderType(state.type))
                return size == 0 || objectFits(m_objectUsers[state.objectId], bytes, size);
            return isExpressionType(state.type) && size > 0 && code(bytes, size, CodeKind::Expression);
        case UsageParameterName:
            return hasTerminator(bytes, size);
        case UsageArraySelector:
            return arraySelectorFits(bytes, size);
        default:
            return false;  // D3DX cannot use it either
        }
    }

    // The name of the array (its size word first), then the expression choosing the element.
    bool arraySelectorFits(const uint8_t* bytes, uint32_t size) const {
        if (size < 8) return false;
        uint64_t nameLength = wordAt(bytes);
        if (nameLength + 4 > size || !hasTerminator(bytes + 4, static_cast<size_t>(nameLength))) return false;
        size_t expression = static_cast<size_t>(nameLength) + 4;
        return code(bytes + expression, size - expression, CodeKind::Expression);
    }

    const StateInfo* samplerState(uint32_t index, uint32_t element, uint32_t stateIndex) const {
        if (index >= m_parameters.size()) return nullptr;
        const ParameterInfo& parameter = m_parameters[index];
        if (parameter.type.cls != D3DXPC_OBJECT || !isSamplerType(parameter.type.type)) return nullptr;
        // An array needs an element; a single sampler ignores it, as D3DX does.
        uint32_t block = parameter.type.elements ? element : 0;
        if (block >= parameter.samplers.size()) return nullptr;
        const StateList& states = parameter.samplers[block];
        return stateIndex < states.size() ? &states[stateIndex] : nullptr;
    }

    const StateInfo* passState(uint32_t technique, uint32_t pass, uint32_t stateIndex) const {
        if (technique >= m_techniques.size() || pass >= m_techniques[technique].size()) return nullptr;
        const StateList& states = m_techniques[technique][pass];
        return stateIndex < states.size() ? &states[stateIndex] : nullptr;
    }

    const uint8_t* m_base;  // offsets in the file count from here
    size_t m_size;
    std::vector<size_t>* m_structuralWords;
    int64_t m_budget;
    std::vector<uint32_t> m_objectUsers;  // type of the value naming each object
    std::vector<bool> m_objectFilled;
    uint32_t m_lastObjectId = 0;
    std::vector<ParameterInfo> m_parameters;
    std::vector<TechniqueInfo> m_techniques;
    mutable std::string m_reason;  // the checks of shader code are const walks that may refuse
};

}  // namespace

bool hasEffectBinaryTag(const uint8_t* data, size_t size) { return data && size >= 4 && wordAt(data) == kEffectTag; }

bool isWellFormedEffectBinary(const uint8_t* data, size_t size, std::vector<size_t>* structuralWords,
                              std::string* reason) {
    if (size < kHeaderBytes || !hasEffectBinaryTag(data, size)) {
        if (reason) *reason = "it is shorter than an effect header or lacks the fx_2_0 tag";
        return false;
    }
    if (structuralWords) structuralWords->push_back(4);
    EffectWalker walker(data, size, structuralWords);
    const bool sound = walker.walk(wordAt(data + 4));
    if (!sound && reason) *reason = walker.reason().empty() ? "its structure does not hold together" : walker.reason();
    return sound;
}

}  // namespace VexilDX9
