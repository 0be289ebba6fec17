#include "BinaryWriter.h"
#include <cstring>
#include <map>

namespace fxc {
namespace {

const uint32_t kEffectTag = 0xFEFF0901;  // fx_2_0
const uint32_t kNone = 0xFFFFFFFF;

enum ResourceUsage : uint32_t { UsageObjectData = 0, UsageParameterName = 1 };

// Object 0 is scratch space: the loader stores referenced parameter names of numeric states there.
const uint32_t kFirstObjectId = 1;

struct ObjectData {
    uint32_t id;
    std::vector<uint8_t> bytes;
};

struct Resource {
    uint32_t technique;  // kNone: a state of a sampler parameter
    uint32_t index;      // pass index, or parameter index
    uint32_t element;
    uint32_t state;
    uint32_t usage;
    std::vector<uint8_t> bytes;
};

// Where a state lives, so that a resource can point back at it.
struct StateOwner {
    uint32_t technique;
    uint32_t index;
};

std::vector<uint8_t> nulTerminated(const std::string& text) {
    std::vector<uint8_t> bytes(text.begin(), text.end());
    bytes.push_back(0);
    return bytes;
}

class Writer {
public:
    explicit Writer(const EffectModel& effect) : m_effect(effect) {}

    std::vector<uint8_t> write() {
        std::vector<uint32_t> table;
        table.push_back(static_cast<uint32_t>(m_effect.parameters.size()));
        table.push_back(static_cast<uint32_t>(m_effect.techniques.size()));
        table.push_back(0);
        size_t objectCountSlot = table.size();
        table.push_back(0);
        for (uint32_t i = 0; i < m_effect.parameters.size(); ++i) writeParameter(i, table);
        for (uint32_t i = 0; i < m_effect.techniques.size(); ++i) writeTechnique(i, table);
        table[objectCountSlot] = m_nextObjectId;
        table.push_back(static_cast<uint32_t>(m_objects.size()));
        table.push_back(static_cast<uint32_t>(m_resources.size()));
        for (const ObjectData& object : m_objects) {
            table.push_back(object.id);
            appendSized(table, object.bytes);
        }
        for (const Resource& resource : m_resources) {
            table.insert(table.end(), {resource.technique, resource.index, resource.element, resource.state,
                                       resource.usage});
            appendSized(table, resource.bytes);
        }

        std::vector<uint32_t> file{kEffectTag, static_cast<uint32_t>(m_blob.size() * 4)};
        file.insert(file.end(), m_blob.begin(), m_blob.end());
        file.insert(file.end(), table.begin(), table.end());
        std::vector<uint8_t> bytes(file.size() * 4);
        std::memcpy(bytes.data(), file.data(), bytes.size());
        return bytes;
    }

private:
    static void appendSized(std::vector<uint32_t>& out, const std::vector<uint8_t>& bytes) {
        out.push_back(static_cast<uint32_t>(bytes.size()));
        std::vector<uint32_t> words((bytes.size() + 3) / 4, 0);
        if (!bytes.empty()) std::memcpy(words.data(), bytes.data(), bytes.size());
        out.insert(out.end(), words.begin(), words.end());
    }

    // Offsets are counted in bytes from the start of the blob.
    uint32_t blobOffset() const { return static_cast<uint32_t>(m_blob.size() * 4); }

    uint32_t addName(const std::string& name) {
        auto known = m_names.find(name);
        if (known != m_names.end()) return known->second;
        uint32_t offset = blobOffset();
        appendSized(m_blob, name.empty() ? std::vector<uint8_t>() : nulTerminated(name));
        m_names[name] = offset;
        return offset;
    }

    uint32_t addTypedef(const TypeDesc& type, const std::string& name, const std::string& semantic) {
        uint32_t nameOffset = addName(name);
        uint32_t semanticOffset = addName(semantic);
        uint32_t offset = blobOffset();
        m_blob.insert(m_blob.end(), {type.type, type.cls, nameOffset, semanticOffset, type.elements});
        if (type.cls == PC_VECTOR) m_blob.insert(m_blob.end(), {type.columns, type.rows});
        else if (type.cls != PC_OBJECT) m_blob.insert(m_blob.end(), {type.rows, type.columns});
        return offset;
    }

    uint32_t addWords(const std::vector<uint32_t>& words) {
        uint32_t offset = blobOffset();
        m_blob.insert(m_blob.end(), words.begin(), words.end());
        return offset;
    }

    uint32_t newObject() { return m_nextObjectId++; }

    // Value words of an object-class value: one fresh object id per element.
    std::vector<uint32_t> objectIds(const TypeDesc& type) {
        std::vector<uint32_t> ids;
        for (uint32_t i = 0; i < type.elementCount(); ++i) ids.push_back(newObject());
        return ids;
    }

    void writeAnnotations(const std::vector<Annotation>& annotations, std::vector<uint32_t>& table) {
        for (const Annotation& annotation : annotations) {
            table.push_back(addTypedef(annotation.type, annotation.name, std::string()));
            if (annotation.type.type == PT_STRING) {
                uint32_t id = newObject();
                m_objects.push_back({id, nulTerminated(annotation.text)});
                table.push_back(addWords({id}));
            } else {
                table.push_back(addWords(annotation.words));
            }
        }
    }

    void writeParameter(uint32_t index, std::vector<uint32_t>& table) {
        const Parameter& parameter = m_effect.parameters[index];
        table.push_back(addTypedef(parameter.type, parameter.name, parameter.semantic));
        table.push_back(parameterValue(index));
        table.push_back(parameter.shared ? 1u : 0u);
        table.push_back(static_cast<uint32_t>(parameter.annotations.size()));
        writeAnnotations(parameter.annotations, table);
    }

    uint32_t parameterValue(uint32_t index) {
        const Parameter& parameter = m_effect.parameters[index];
        const TypeDesc& type = parameter.type;
        if (type.isNumeric()) return addWords(parameter.words);
        if (type.isSampler()) {
            std::vector<uint32_t> words{static_cast<uint32_t>(parameter.samplerStates.size())};
            for (uint32_t i = 0; i < parameter.samplerStates.size(); ++i)
                appendState(parameter.samplerStates[i], StateOwner{kNone, index}, i, words);
            return addWords(words);
        }
        std::vector<uint32_t> ids = objectIds(type);
        if (type.type == PT_STRING) m_objects.push_back({ids[0], nulTerminated(parameter.text)});
        if (type.isShader() && !parameter.shaderCode.empty()) m_objects.push_back({ids[0], parameter.shaderCode});
        return addWords(ids);
    }

    void writeTechnique(uint32_t index, std::vector<uint32_t>& table) {
        const Technique& technique = m_effect.techniques[index];
        table.push_back(addName(technique.name));
        table.push_back(static_cast<uint32_t>(technique.annotations.size()));
        table.push_back(static_cast<uint32_t>(technique.passes.size()));
        writeAnnotations(technique.annotations, table);
        for (uint32_t p = 0; p < technique.passes.size(); ++p) {
            const Pass& pass = technique.passes[p];
            table.push_back(addName(pass.name));
            table.push_back(static_cast<uint32_t>(pass.annotations.size()));
            table.push_back(static_cast<uint32_t>(pass.states.size()));
            writeAnnotations(pass.annotations, table);
            for (uint32_t s = 0; s < pass.states.size(); ++s)
                appendState(pass.states[s], StateOwner{index, p}, s, table);
        }
    }

    void appendState(const StateAssignment& state, const StateOwner& owner, uint32_t stateIndex,
                     std::vector<uint32_t>& out) {
        uint32_t typedefOffset = addTypedef(state.type, std::string(), std::string());
        uint32_t valueOffset = addWords(stateValue(state, owner, stateIndex));
        out.insert(out.end(), {state.operation, state.index, typedefOffset, valueOffset});
    }

    std::vector<uint32_t> stateValue(const StateAssignment& state, const StateOwner& owner, uint32_t stateIndex) {
        const TypeDesc& type = state.type;
        switch (state.kind) {
        case StateAssignment::Kind::Constant:
            return state.words;
        case StateAssignment::Kind::Object: {
            std::vector<uint32_t> ids = objectIds(type);
            if (!state.shaderCode.empty()) addResource(owner, stateIndex, UsageObjectData, state.shaderCode);
            return ids;
        }
        case StateAssignment::Kind::ParameterReference:
        default:
            addResource(owner, stateIndex, UsageParameterName, nulTerminated(state.referencedName));
            if (type.isSampler()) return {0};  // an empty sampler block; the parameter supplies the states
            if (type.isObject()) return objectIds(type);
            return std::vector<uint32_t>(type.componentCount(), 0);
        }
    }

    void addResource(const StateOwner& owner, uint32_t stateIndex, uint32_t usage, const std::vector<uint8_t>& bytes) {
        m_resources.push_back({owner.technique, owner.index, kNone, stateIndex, usage, bytes});
    }

    const EffectModel& m_effect;
    std::vector<uint32_t> m_blob;
    std::map<std::string, uint32_t> m_names;
    std::vector<ObjectData> m_objects;
    std::vector<Resource> m_resources;
    uint32_t m_nextObjectId = kFirstObjectId;
};

}  // namespace

std::vector<uint8_t> writeEffectBinary(const EffectModel& effect) { return Writer(effect).write(); }

}  // namespace fxc
