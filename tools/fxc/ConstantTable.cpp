#include "ConstantTable.h"
#include "ShaderRules.h"
#include <windows.h>
#include <d3d9types.h>

#include <cstring>
#include <string>

namespace fxc {
namespace {

const uint32_t kCommentToken = 0xFFFE;
const uint32_t kConstantTableTag = 0x42415443;  // "CTAB"
const uint32_t kHeaderSize = 28;
const uint32_t kConstantInfoSize = 20;
const uint32_t kTypeInfoSize = 16;

// D3DXREGISTER_SET numbering.
uint16_t registerSet(char set) {
    switch (set) {
    case 'b': return 0;
    case 'i': return 1;
    case 'c': return 2;
    default: return 3;
    }
}

uint32_t versionToken(const std::vector<uint8_t>& code) {
    uint32_t token = 0;
    if (code.size() >= 4) std::memcpy(&token, code.data(), 4);
    return token;
}

bool isVertexShader(uint32_t version) { return (version >> 16) == 0xFFFE; }


class TableBuilder {
public:
    void put16(uint16_t value) { append(&value, 2); }
    void put32(uint32_t value) { append(&value, 4); }
    void set32(uint32_t offset, uint32_t value) { std::memcpy(&m_bytes[offset], &value, 4); }
    uint32_t size() const { return static_cast<uint32_t>(m_bytes.size()); }
    uint32_t putString(const std::string& text) {
        uint32_t offset = size();
        append(text.c_str(), text.size() + 1);
        while (m_bytes.size() % 4) m_bytes.push_back(0);
        return offset;
    }
    const std::vector<uint8_t>& bytes() const { return m_bytes; }

private:
    void append(const void* data, size_t count) {
        const uint8_t* bytes = static_cast<const uint8_t*>(data);
        m_bytes.insert(m_bytes.end(), bytes, bytes + count);
    }
    std::vector<uint8_t> m_bytes;
};

}  // namespace

uint32_t registerCount(const TypeDesc& type, char set) {
    if (set == 's') return 1;
    if (set == 'b') return type.componentCount();
    uint32_t perElement = type.cls == PC_MATRIX_ROWS ? type.rows : type.cls == PC_MATRIX_COLUMNS ? type.columns : 1;
    return perElement * type.elementCount();
}

uint32_t registerLimit(const std::vector<uint8_t>& code, char set) {
    uint32_t version = versionToken(code);
    const ShaderModel* model = findShaderModel(isVertexShader(version), version & 0xFFFF);
    uint32_t kind = set == 'c' ? D3DSPR_CONST : set == 'b' ? D3DSPR_CONSTBOOL : set == 'i' ? D3DSPR_CONSTINT : D3DSPR_SAMPLER;
    const RegisterRule* registers = model ? model->registerRule(kind) : nullptr;
    return registers ? registers->count : 0;
}

std::vector<uint8_t> withConstantTable(const std::vector<uint8_t>& code, const std::vector<ConstantBinding>& bindings) {
    uint32_t version = versionToken(code);
    uint32_t count = static_cast<uint32_t>(bindings.size());
    uint32_t infoOffset = kHeaderSize;
    uint32_t typeOffset = infoOffset + count * kConstantInfoSize;

    TableBuilder table;
    for (uint32_t i = 0; i < 7; ++i) table.put32(0);
    for (const ConstantBinding& binding : bindings) {
        table.put32(0);  // name, filled below
        table.put16(registerSet(binding.set));
        table.put16(static_cast<uint16_t>(binding.index));
        table.put16(static_cast<uint16_t>(registerCount(binding.parameter->type, binding.set)));
        table.put16(0);
        table.put32(0);  // type info, filled below
        table.put32(0);  // no default value
    }
    for (uint32_t i = 0; i < count; ++i) {
        const TypeDesc& type = bindings[i].parameter->type;
        table.set32(infoOffset + i * kConstantInfoSize + 12, typeOffset + i * kTypeInfoSize);
        table.put16(static_cast<uint16_t>(type.cls));
        table.put16(static_cast<uint16_t>(type.type));
        table.put16(static_cast<uint16_t>(type.isObject() ? 1 : type.rows));
        table.put16(static_cast<uint16_t>(type.isObject() ? 1 : type.columns));
        table.put16(static_cast<uint16_t>(type.elementCount()));
        table.put16(0);
        table.put32(0);
    }
    for (uint32_t i = 0; i < count; ++i)
        table.set32(infoOffset + i * kConstantInfoSize, table.putString(bindings[i].parameter->name));
    uint32_t creator = table.putString("vexil-fxc");
    uint32_t target = table.putString(shaderModelName(isVertexShader(version), version & 0xFFFF));
    table.set32(0, kHeaderSize);
    table.set32(4, creator);
    table.set32(8, version);
    table.set32(12, count);
    table.set32(16, infoOffset);
    table.set32(20, 0);
    table.set32(24, target);

    uint32_t commentWords = 1 + table.size() / 4;
    uint32_t comment = kCommentToken | (commentWords << 16);
    std::vector<uint8_t> result(code.begin(), code.begin() + 4);
    result.insert(result.end(), reinterpret_cast<const uint8_t*>(&comment), reinterpret_cast<const uint8_t*>(&comment) + 4);
    result.insert(result.end(), reinterpret_cast<const uint8_t*>(&kConstantTableTag),
                  reinterpret_cast<const uint8_t*>(&kConstantTableTag) + 4);
    result.insert(result.end(), table.bytes().begin(), table.bytes().end());
    result.insert(result.end(), code.begin() + 4, code.end());
    return result;
}

}  // namespace fxc
