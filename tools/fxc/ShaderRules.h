#pragma once
#include <cstdint>
#include <string>

// What Direct3D 9 accepts in shader models vs/ps 2_0, 2_x and 3_0, as tables of constants from
// the shader assembly reference. 2_x features that hang on device caps (predication, dynamic flow
// control, gradients, arbitrary swizzles) are accepted; counts and depths are the ones every 2_x
// device offers, so that an effect loads wherever its model is supported.
namespace fxc {

enum ShaderModelBit : uint8_t { kVs20 = 1, kVs2x = 2, kVs30 = 4, kPs20 = 8, kPs2x = 16, kPs30 = 32 };

// Registers that may index another one relatively.
enum AddressBit : uint8_t { kByA0 = 1, kByLoop = 2 };

struct RegisterRule {
    uint32_t kind;                 // D3DSPR_*
    const char* name;              // as written, "#" standing for the index
    uint32_t count;
    uint8_t readPorts;             // distinct registers of the kind one instruction may read; 0: never read
    uint8_t readsPerInstruction;   // operands of the kind one instruction may read; 0: no limit
    bool writable;
    uint8_t indexedBy;             // AddressBit set
    bool declared;                 // a dcl must come before any use
};

struct FlowLimits {
    uint8_t loopNesting;      // loop and rep
    uint8_t callNesting;
    uint8_t staticNesting;    // if on a boolean; 0: bounded by the static flow count alone
    uint8_t dynamicNesting;   // if_comp, if on a predicate, break_comp, callnz on a predicate
    uint8_t staticFlowCount;  // if, else, loop, rep, call and callnz on booleans; 0: no limit
};

struct ShaderModel {
    const char* name;
    uint8_t bit;
    bool vertex;
    uint32_t version;  // major << 8 | minor
    const RegisterRule* registers;
    size_t registerCount;
    uint32_t slots;
    uint32_t textureSlots;  // texture instructions counted apart (ps 2): their share; 0: not apart
    FlowLimits flow;

    bool is(uint8_t bits) const { return (bit & bits) != 0; }
    const RegisterRule* registerRule(uint32_t kind) const;
};

// The model of a version token's kind and number; null for models the validator does not serve.
const ShaderModel* findShaderModel(bool vertex, uint32_t version);
// "vs_3_0" and the like, for any version.
std::string shaderModelName(bool vertex, uint32_t version);

enum class InstructionKind : uint8_t { Setup, Arithmetic, Texture, Flow };

// Which components of its sources an instruction reads.
enum class ComponentUse : uint8_t {
    PerComponent,  // the swizzled components the write mask selects
    Dot2,          // the first two swizzled components
    Dot3,          // the first three
    Scalar,        // the first
    Matrix,        // the first three or four of the vector, whole rows of the matrix
    Coordinates,   // as many as the sampler's dimension needs
    Whole,         // all four
};

enum InstructionFlag : uint16_t {
    kScalarSources = 1,        // one component a source: a replicate swizzle or none
    kReplicateSources = 2,     // a replicate swizzle on every source
    kTemporaryDestination = 4,
    kDestinationNotSource = 8,
    kNoSaturate = 16,
    kDefaultSwizzles = 32,     // sources take no swizzle
    kMatrixMultiply = 64,      // the second source names consecutive rows, unswizzled and not negated
    kGradient = 128,           // computes screen-space gradients of its first source
};

struct InstructionRule {
    uint32_t opcode;     // D3DSIO_*
    uint32_t controls;   // texld variants (1 texldp, 2 texldb); other rows: any
    const char* name;
    uint8_t models;      // ShaderModelBit set
    InstructionKind kind;
    uint8_t slots;
    uint8_t slots30;     // in 3_0 models
    uint8_t cubeSlots30; // in 3_0 models on a cube sampler
    ComponentUse use;
    uint16_t flags;      // InstructionFlag set
    uint16_t masks;      // allowed destination write masks: bit m set when mask m is allowed
    uint8_t matrixRows;  // matrix multiplies: registers the matrix takes
    uint8_t vectorSize;  // matrix multiplies: components of the vector
};

const InstructionRule* findInstruction(uint32_t opcode, uint32_t controls);

}  // namespace fxc
