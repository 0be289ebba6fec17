#include "ShaderRules.h"
#include <windows.h>
#include <d3d9types.h>

#include <iterator>

namespace fxc {
namespace {

const bool R = false, W = true;        // writable
const bool Free = false, Dcl = true;   // declared

// Register tables of the shader assembly reference ("Registers - vs_2_0" and the others):
// kind, name, count, read ports, reads an instruction, writable, relative addressing, dcl.
const RegisterRule kVs20Registers[] = {
    {D3DSPR_TEMP, "r#", 12, 3, 0, W, 0, Free},           {D3DSPR_INPUT, "v#", 16, 1, 0, R, 0, Dcl},
    {D3DSPR_CONST, "c#", 256, 1, 2, R, kByA0 | kByLoop, Free}, {D3DSPR_ADDR, "a0", 1, 1, 2, W, 0, Free},
    {D3DSPR_CONSTBOOL, "b#", 16, 1, 1, R, 0, Free},      {D3DSPR_CONSTINT, "i#", 16, 1, 1, R, 0, Free},
    {D3DSPR_LOOP, "aL", 1, 1, 2, R, 0, Free},            {D3DSPR_LABEL, "l#", 16, 1, 1, R, 0, Free},
    {D3DSPR_RASTOUT, "oPos", 3, 0, 0, W, 0, Free},       {D3DSPR_ATTROUT, "oD#", 2, 0, 0, W, 0, Free},
    {D3DSPR_TEXCRDOUT, "oT#", 8, 0, 0, W, 0, Free},
};
const RegisterRule kVs2xRegisters[] = {
    {D3DSPR_TEMP, "r#", 12, 3, 0, W, 0, Free},           {D3DSPR_INPUT, "v#", 16, 1, 0, R, 0, Dcl},
    {D3DSPR_CONST, "c#", 256, 1, 2, R, kByA0 | kByLoop, Free}, {D3DSPR_ADDR, "a0", 1, 1, 2, W, 0, Free},
    {D3DSPR_CONSTBOOL, "b#", 16, 1, 1, R, 0, Free},      {D3DSPR_CONSTINT, "i#", 16, 1, 1, R, 0, Free},
    {D3DSPR_LOOP, "aL", 1, 1, 2, R, 0, Free},            {D3DSPR_LABEL, "l#", 16, 1, 1, R, 0, Free},
    {D3DSPR_PREDICATE, "p0", 1, 1, 1, W, 0, Free},       {D3DSPR_RASTOUT, "oPos", 3, 0, 0, W, 0, Free},
    {D3DSPR_ATTROUT, "oD#", 2, 0, 0, W, 0, Free},        {D3DSPR_TEXCRDOUT, "oT#", 8, 0, 0, W, 0, Free},
};
const RegisterRule kVs30Registers[] = {
    {D3DSPR_TEMP, "r#", 32, 3, 0, W, 0, Free},           {D3DSPR_INPUT, "v#", 16, 1, 0, R, kByA0 | kByLoop, Dcl},
    {D3DSPR_CONST, "c#", 256, 1, 0, R, kByA0 | kByLoop, Free}, {D3DSPR_ADDR, "a0", 1, 1, 0, W, 0, Free},
    {D3DSPR_CONSTBOOL, "b#", 16, 1, 1, R, 0, Free},      {D3DSPR_CONSTINT, "i#", 16, 1, 1, R, 0, Free},
    {D3DSPR_LOOP, "aL", 1, 1, 0, R, 0, Free},            {D3DSPR_LABEL, "l#", 2048, 1, 1, R, 0, Free},
    {D3DSPR_PREDICATE, "p0", 1, 1, 1, W, 0, Free},       {D3DSPR_SAMPLER, "s#", 4, 1, 1, R, 0, Dcl},
    {D3DSPR_OUTPUT, "o#", 12, 0, 0, W, kByLoop, Dcl},
};
const RegisterRule kPs20Registers[] = {
    {D3DSPR_TEMP, "r#", 12, 3, 0, W, 0, Free},           {D3DSPR_INPUT, "v#", 2, 1, 0, R, 0, Dcl},
    {D3DSPR_CONST, "c#", 32, 1, 2, R, 0, Free},          {D3DSPR_TEXTURE, "t#", 8, 1, 1, R, 0, Dcl},
    {D3DSPR_SAMPLER, "s#", 16, 1, 1, R, 0, Dcl},         {D3DSPR_COLOROUT, "oC#", 4, 0, 0, W, 0, Free},
    {D3DSPR_DEPTHOUT, "oDepth", 1, 0, 0, W, 0, Free},
};
const RegisterRule kPs2xRegisters[] = {
    {D3DSPR_TEMP, "r#", 12, 3, 0, W, 0, Free},           {D3DSPR_INPUT, "v#", 2, 1, 0, R, 0, Dcl},
    {D3DSPR_CONST, "c#", 32, 1, 2, R, 0, Free},          {D3DSPR_TEXTURE, "t#", 8, 1, 1, R, 0, Dcl},
    {D3DSPR_CONSTINT, "i#", 16, 1, 1, R, 0, Free},       {D3DSPR_CONSTBOOL, "b#", 16, 1, 1, R, 0, Free},
    {D3DSPR_PREDICATE, "p0", 1, 1, 1, W, 0, Free},       {D3DSPR_SAMPLER, "s#", 16, 1, 1, R, 0, Dcl},
    {D3DSPR_LABEL, "l#", 16, 1, 1, R, 0, Free},          {D3DSPR_COLOROUT, "oC#", 4, 0, 0, W, 0, Free},
    {D3DSPR_DEPTHOUT, "oDepth", 1, 0, 0, W, 0, Free},
};
const RegisterRule kPs30Registers[] = {
    {D3DSPR_TEMP, "r#", 32, 3, 0, W, 0, Free},           {D3DSPR_INPUT, "v#", 10, 1, 0, R, kByLoop, Dcl},
    {D3DSPR_CONST, "c#", 224, 1, 0, R, 0, Free},         {D3DSPR_CONSTINT, "i#", 16, 1, 1, R, 0, Free},
    {D3DSPR_CONSTBOOL, "b#", 16, 1, 1, R, 0, Free},      {D3DSPR_PREDICATE, "p0", 1, 1, 1, W, 0, Free},
    {D3DSPR_SAMPLER, "s#", 16, 1, 1, R, 0, Dcl},         {D3DSPR_MISCTYPE, "vPos", 2, 1, 0, R, 0, Dcl},
    {D3DSPR_LOOP, "aL", 1, 1, 0, R, 0, Free},            {D3DSPR_LABEL, "l#", 2048, 1, 1, R, 0, Free},
    {D3DSPR_COLOROUT, "oC#", 4, 0, 0, W, 0, Free},       {D3DSPR_DEPTHOUT, "oDepth", 1, 0, 0, W, 0, Free},
};

// Instruction slots and flow control depths ("Instruction Count", "Flow Control Nesting Limits");
// 2_x takes the least its caps may report.
const ShaderModel kModels[] = {
    {"vs_2_0", kVs20, true, 0x200, kVs20Registers, std::size(kVs20Registers), 256, 0, {1, 1, 0, 0, 16}},
    {"vs_2_x", kVs2x, true, 0x201, kVs2xRegisters, std::size(kVs2xRegisters), 256, 0, {1, 1, 0, 24, 16}},
    {"vs_3_0", kVs30, true, 0x300, kVs30Registers, std::size(kVs30Registers), 512, 0, {4, 4, 24, 24, 0}},
    {"ps_2_0", kPs20, false, 0x200, kPs20Registers, std::size(kPs20Registers), 96, 32, {0, 0, 0, 0, 0}},
    {"ps_2_x", kPs2x, false, 0x201, kPs2xRegisters, std::size(kPs2xRegisters), 96, 32, {1, 1, 24, 24, 0}},
    {"ps_3_0", kPs30, false, 0x300, kPs30Registers, std::size(kPs30Registers), 512, 0, {4, 4, 24, 24, 0}},
};

const uint8_t kVs = kVs20 | kVs2x | kVs30, kPs = kPs20 | kPs2x | kPs30, kAll = kVs | kPs;
const uint8_t kFlow = kVs | kPs2x | kPs30;             // static flow control
const uint8_t kDynamic = kVs2x | kVs30 | kPs2x | kPs30;  // dynamic flow control and predication
const uint8_t kModel3 = kVs30 | kPs30;

const uint16_t kAnyMask = 0xFFFE, kFull = 1 << 0xF, kXY = 1 << 0x3, kXYZ = 1 << 0x7;
const uint16_t kSinCosMasks = (1 << 0x1) | (1 << 0x2) | (1 << 0x3);  // .x .y .xy
const uint16_t kCrossMasks = 0x00FE;                                 // .x .y .z .xy .xz .yz .xyz
const uint32_t kAny = 0xFF;

using K = InstructionKind;
using U = ComponentUse;

// Instruction sets and slots of "Instructions - vs_2_0" and the other models, with the operand
// rules of each instruction's page.
const InstructionRule kInstructions[] = {
    {D3DSIO_NOP, kAny, "nop", kAll, K::Arithmetic, 1, 1, 1, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_MOV, kAny, "mov", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_ADD, kAny, "add", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_SUB, kAny, "sub", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_MAD, kAny, "mad", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_MUL, kAny, "mul", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_RCP, kAny, "rcp", kAll, K::Arithmetic, 1, 1, 1, U::Scalar, kScalarSources, kAnyMask, 0, 0},
    {D3DSIO_RSQ, kAny, "rsq", kAll, K::Arithmetic, 1, 1, 1, U::Scalar, kScalarSources, kAnyMask, 0, 0},
    {D3DSIO_DP3, kAny, "dp3", kAll, K::Arithmetic, 1, 1, 1, U::Dot3, 0, kAnyMask, 0, 0},
    {D3DSIO_DP4, kAny, "dp4", kAll, K::Arithmetic, 1, 1, 1, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_MIN, kAny, "min", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_MAX, kAny, "max", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_SLT, kAny, "slt", kVs, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_SGE, kAny, "sge", kVs, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_EXP, kAny, "exp", kAll, K::Arithmetic, 1, 1, 1, U::Scalar, kScalarSources, kAnyMask, 0, 0},
    {D3DSIO_LOG, kAny, "log", kAll, K::Arithmetic, 1, 1, 1, U::Scalar, kScalarSources, kAnyMask, 0, 0},
    {D3DSIO_LIT, kAny, "lit", kVs, K::Arithmetic, 3, 3, 3, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_DST, kAny, "dst", kVs, K::Arithmetic, 1, 1, 1, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_LRP, kAny, "lrp", kAll, K::Arithmetic, 2, 2, 2, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_FRC, kAny, "frc", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, kNoSaturate, kAnyMask, 0, 0},
    {D3DSIO_M4x4, kAny, "m4x4", kAll, K::Arithmetic, 4, 4, 4, U::Matrix, kMatrixMultiply | kDestinationNotSource, kFull, 4, 4},
    {D3DSIO_M4x3, kAny, "m4x3", kAll, K::Arithmetic, 3, 3, 3, U::Matrix, kMatrixMultiply | kDestinationNotSource, kXYZ, 3, 4},
    {D3DSIO_M3x4, kAny, "m3x4", kAll, K::Arithmetic, 4, 4, 4, U::Matrix, kMatrixMultiply | kDestinationNotSource, kFull, 4, 3},
    {D3DSIO_M3x3, kAny, "m3x3", kAll, K::Arithmetic, 3, 3, 3, U::Matrix, kMatrixMultiply | kDestinationNotSource, kXYZ, 3, 3},
    {D3DSIO_M3x2, kAny, "m3x2", kAll, K::Arithmetic, 2, 2, 2, U::Matrix, kMatrixMultiply | kDestinationNotSource, kXY, 2, 3},
    {D3DSIO_CALL, kAny, "call", kFlow, K::Flow, 2, 2, 2, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_CALLNZ, kAny, "callnz", kFlow, K::Flow, 3, 3, 3, U::Scalar, 0, kAnyMask, 0, 0},
    {D3DSIO_LOOP, kAny, "loop", kVs | kPs30, K::Flow, 3, 3, 3, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_RET, kAny, "ret", kFlow, K::Flow, 1, 1, 1, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_ENDLOOP, kAny, "endloop", kVs | kPs30, K::Flow, 2, 2, 2, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_LABEL, kAny, "label", kFlow, K::Flow, 0, 0, 0, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_DCL, kAny, "dcl", kAll, K::Setup, 0, 0, 0, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_POW, kAny, "pow", kAll, K::Arithmetic, 3, 3, 3, U::Scalar, kReplicateSources | kTemporaryDestination, kAnyMask, 0, 0},
    {D3DSIO_CRS, kAny, "crs", kAll, K::Arithmetic, 2, 2, 2, U::Dot3,
     kTemporaryDestination | kDestinationNotSource | kDefaultSwizzles, kCrossMasks, 0, 0},
    {D3DSIO_SGN, kAny, "sgn", kVs, K::Arithmetic, 3, 3, 3, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_ABS, kAny, "abs", kAll, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_NRM, kAny, "nrm", kAll, K::Arithmetic, 3, 3, 3, U::Dot3, kTemporaryDestination | kDestinationNotSource, kAnyMask, 0, 0},
    {D3DSIO_SINCOS, kAny, "sincos", kAll, K::Arithmetic, 8, 8, 8, U::Scalar, kTemporaryDestination | kNoSaturate, kSinCosMasks, 0, 0},
    {D3DSIO_REP, kAny, "rep", kFlow, K::Flow, 3, 3, 3, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_ENDREP, kAny, "endrep", kFlow, K::Flow, 2, 2, 2, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_IF, kAny, "if", kFlow, K::Flow, 3, 3, 3, U::Scalar, 0, kAnyMask, 0, 0},
    {D3DSIO_IFC, kAny, "if_comp", kDynamic, K::Flow, 3, 3, 3, U::Scalar, kReplicateSources, kAnyMask, 0, 0},
    {D3DSIO_ELSE, kAny, "else", kFlow, K::Flow, 1, 1, 1, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_ENDIF, kAny, "endif", kFlow, K::Flow, 1, 1, 1, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_BREAK, kAny, "break", kDynamic, K::Flow, 1, 1, 1, U::Whole, 0, kAnyMask, 0, 0},
    {D3DSIO_BREAKC, kAny, "break_comp", kDynamic, K::Flow, 3, 3, 3, U::Scalar, kReplicateSources, kAnyMask, 0, 0},
    {D3DSIO_MOVA, kAny, "mova", kVs, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_DEFB, kAny, "defb", kFlow, K::Setup, 0, 0, 0, U::Whole, 0, kFull, 0, 0},
    {D3DSIO_DEFI, kAny, "defi", kFlow, K::Setup, 0, 0, 0, U::Whole, 0, kFull, 0, 0},
    {D3DSIO_TEXKILL, kAny, "texkill", kPs, K::Texture, 1, 2, 2, U::Dot3, 0, kAnyMask, 0, 0},
    {D3DSIO_TEX, 0, "texld", kPs, K::Texture, 1, 1, 4, U::Coordinates, kTemporaryDestination | kNoSaturate | kGradient, kAnyMask, 0, 0},
    {D3DSIO_TEX, 1, "texldp", kPs, K::Texture, 1, 3, 4, U::Coordinates, kTemporaryDestination | kNoSaturate | kGradient, kAnyMask, 0, 0},
    {D3DSIO_TEX, 2, "texldb", kPs, K::Texture, 1, 6, 6, U::Coordinates, kTemporaryDestination | kNoSaturate | kGradient, kAnyMask, 0, 0},
    {D3DSIO_EXPP, kAny, "expp", kVs, K::Arithmetic, 1, 1, 1, U::Scalar, kScalarSources, kAnyMask, 0, 0},
    {D3DSIO_LOGP, kAny, "logp", kVs, K::Arithmetic, 1, 1, 1, U::Scalar, kScalarSources, kAnyMask, 0, 0},
    {D3DSIO_DEF, kAny, "def", kAll, K::Setup, 0, 0, 0, U::Whole, 0, kFull, 0, 0},
    {D3DSIO_CMP, kAny, "cmp", kPs, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_DP2ADD, kAny, "dp2add", kPs, K::Arithmetic, 2, 2, 2, U::Dot2, 0, kAnyMask, 0, 0},
    {D3DSIO_DSX, kAny, "dsx", kPs2x | kPs30, K::Arithmetic, 2, 2, 2, U::PerComponent, kGradient, kAnyMask, 0, 0},
    {D3DSIO_DSY, kAny, "dsy", kPs2x | kPs30, K::Arithmetic, 2, 2, 2, U::PerComponent, kGradient, kAnyMask, 0, 0},
    {D3DSIO_TEXLDD, kAny, "texldd", kPs2x | kPs30, K::Texture, 3, 3, 3, U::Coordinates, kTemporaryDestination | kNoSaturate, kAnyMask, 0, 0},
    {D3DSIO_SETP, kAny, "setp_comp", kDynamic, K::Arithmetic, 1, 1, 1, U::PerComponent, 0, kAnyMask, 0, 0},
    {D3DSIO_TEXLDL, kAny, "texldl", kModel3, K::Texture, 2, 2, 5, U::Coordinates, kTemporaryDestination | kNoSaturate, kAnyMask, 0, 0},
    {D3DSIO_BREAKP, kAny, "breakp", kDynamic, K::Flow, 3, 3, 3, U::Scalar, 0, kAnyMask, 0, 0},
};

}  // namespace

const RegisterRule* ShaderModel::registerRule(uint32_t kind) const {
    for (size_t i = 0; i < registerCount; ++i)
        if (registers[i].kind == kind) return &registers[i];
    return nullptr;
}

const ShaderModel* findShaderModel(bool vertex, uint32_t version) {
    for (const ShaderModel& model : kModels)
        if (model.vertex == vertex && model.version == version) return &model;
    return nullptr;
}

std::string shaderModelName(bool vertex, uint32_t version) {
    std::string minor = (version & 0xFF) == 1 && (version >> 8) == 2 ? "x" : std::to_string(version & 0xFF);
    return std::string(vertex ? "vs_" : "ps_") + std::to_string((version >> 8) & 0xFF) + "_" + minor;
}

const InstructionRule* findInstruction(uint32_t opcode, uint32_t controls) {
    for (const InstructionRule& rule : kInstructions)
        if (rule.opcode == opcode && (rule.controls == kAny || rule.controls == controls)) return &rule;
    return nullptr;
}

}  // namespace fxc
