#pragma once
#include "CompileError.h"
#include <cstdint>
#include <string>
#include <vector>

namespace fxc {

// Numbering of D3DXPARAMETER_TYPE and D3DXPARAMETER_CLASS, as the binary stores them.
enum ParameterType : uint32_t {
    PT_VOID, PT_BOOL, PT_INT, PT_FLOAT, PT_STRING, PT_TEXTURE, PT_TEXTURE1D, PT_TEXTURE2D, PT_TEXTURE3D,
    PT_TEXTURECUBE, PT_SAMPLER, PT_SAMPLER1D, PT_SAMPLER2D, PT_SAMPLER3D, PT_SAMPLERCUBE, PT_PIXELSHADER,
    PT_VERTEXSHADER
};
enum ParameterClass : uint32_t { PC_SCALAR, PC_VECTOR, PC_MATRIX_ROWS, PC_MATRIX_COLUMNS, PC_OBJECT, PC_STRUCT };

struct TypeDesc {
    ParameterType type = PT_VOID;
    ParameterClass cls = PC_SCALAR;
    uint32_t rows = 1;
    uint32_t columns = 1;
    uint32_t elements = 0;  // 0: not an array

    bool isObject() const { return cls == PC_OBJECT; }
    bool isNumeric() const { return type == PT_BOOL || type == PT_INT || type == PT_FLOAT; }
    bool isTexture() const { return type >= PT_TEXTURE && type <= PT_TEXTURECUBE; }
    bool isSampler() const { return type >= PT_SAMPLER && type <= PT_SAMPLERCUBE; }
    bool isShader() const { return type == PT_PIXELSHADER || type == PT_VERTEXSHADER; }
    uint32_t elementCount() const { return elements ? elements : 1; }
    uint32_t componentCount() const { return rows * columns * elementCount(); }
};

// One state assignment of a pass or a sampler_state block.
struct StateAssignment {
    enum class Kind { Constant, ParameterReference, Object };
    uint32_t operation = 0;  // row of the state table the binary refers to
    uint32_t index = 0;
    Kind kind = Kind::Constant;
    TypeDesc type;
    std::vector<uint32_t> words;       // Constant: the value
    std::string referencedName;        // ParameterReference
    std::vector<uint8_t> shaderCode;   // Object: assembled shader code, empty for NULL
    SourceLocation where;
};

struct Annotation {
    std::string name;
    TypeDesc type;
    std::vector<uint32_t> words;
    std::string text;  // string annotations
};

// register(...) binding: a set letter (c, b, i, s), an index and the shader stages it feeds.
struct RegisterBinding {
    enum class Stage { Any, Vertex, Pixel };
    char set = 0;
    uint32_t index = 0;
    Stage stage = Stage::Any;
};

struct Parameter {
    std::string name;
    std::string semantic;
    TypeDesc type;
    bool shared = false;
    std::vector<Annotation> annotations;
    std::vector<uint32_t> words;                // numeric default (zeros when none)
    std::string text;                           // string default
    std::vector<StateAssignment> samplerStates; // sampler_state block
    std::vector<uint8_t> shaderCode;            // shader parameter
    RegisterBinding binding;
    SourceLocation where;
};

struct Pass {
    std::string name;
    std::vector<Annotation> annotations;
    std::vector<StateAssignment> states;
};

struct Technique {
    std::string name;
    std::vector<Annotation> annotations;
    std::vector<Pass> passes;
};

struct EffectModel {
    std::vector<Parameter> parameters;
    std::vector<Technique> techniques;

    const Parameter* findParameter(const std::string& name) const {
        for (const Parameter& parameter : parameters)
            if (parameter.name == name) return &parameter;
        return nullptr;
    }
};

}  // namespace fxc
