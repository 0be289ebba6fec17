#pragma once
#include <cstdint>
#include <string>

namespace fxc {

enum class StateFamily {
    Render, TextureStage, NPatchMode, Fvf, Transform, Material, Light, LightEnable, VertexShader,
    PixelShader, ShaderConstantF, ShaderConstantB, ShaderConstantI, Texture, SamplerState, Sampler
};

// What a state's value looks like in source: which names it accepts and how it is stored.
enum class ValueKind {
    Dword, Bool, Float, Compare, Blend, BlendOp, Cull, Fill, Shade, StencilOp, Fog, MaterialSource,
    ColorWrite, TextureOp, TextureArg, TextureAddress, TextureFilter, TextureTransformFlags, LightType,
    Color, Vector3, Matrix, Shader, TextureObject, SamplerObject, ShaderConstant
};

struct StateInfo {
    const char* name;  // spelling in effect source, compared without regard to case
    StateFamily family;
    ValueKind value;
};

// The row of the state table whose name matches, or nullptr. The row number is the operation code.
const StateInfo* findState(const std::string& name, uint32_t* operation);
const StateInfo& stateAt(uint32_t operation);
uint32_t stateCount();

// The value of a symbolic name for a kind of state (TRUE, CCW, SRCALPHA, ...); false when unknown.
bool symbolicValue(ValueKind kind, const std::string& name, uint32_t* value);

// States that need [n] in a pass (texture stages, samplers, lights, shader constants, ...).
bool needsIndexInPass(const StateInfo& state);
bool isFloatValued(ValueKind kind);

}  // namespace fxc
