#include "StateTable.h"
#include <cctype>
#include <cstring>

namespace fxc {
namespace {

using F = StateFamily;
using V = ValueKind;

// Row order is the operation numbering of the binary format; never reorder.
const StateInfo kStates[] = {
    {"ZEnable", F::Render, V::Bool}, {"FillMode", F::Render, V::Fill}, {"ShadeMode", F::Render, V::Shade},
    {"ZWriteEnable", F::Render, V::Bool}, {"AlphaTestEnable", F::Render, V::Bool},
    {"LastPixel", F::Render, V::Bool}, {"SrcBlend", F::Render, V::Blend}, {"DestBlend", F::Render, V::Blend},
    {"CullMode", F::Render, V::Cull}, {"ZFunc", F::Render, V::Compare}, {"AlphaRef", F::Render, V::Dword},
    {"AlphaFunc", F::Render, V::Compare}, {"DitherEnable", F::Render, V::Bool},
    {"AlphaBlendEnable", F::Render, V::Bool}, {"FogEnable", F::Render, V::Bool},
    {"SpecularEnable", F::Render, V::Bool}, {"FogColor", F::Render, V::Dword},
    {"FogTableMode", F::Render, V::Fog}, {"FogStart", F::Render, V::Float}, {"FogEnd", F::Render, V::Float},
    {"FogDensity", F::Render, V::Float}, {"RangeFogEnable", F::Render, V::Bool},
    {"StencilEnable", F::Render, V::Bool}, {"StencilFail", F::Render, V::StencilOp},
    {"StencilZFail", F::Render, V::StencilOp}, {"StencilPass", F::Render, V::StencilOp},
    {"StencilFunc", F::Render, V::Compare}, {"StencilRef", F::Render, V::Dword},
    {"StencilMask", F::Render, V::Dword}, {"StencilWriteMask", F::Render, V::Dword},
    {"TextureFactor", F::Render, V::Dword}, {"Wrap0", F::Render, V::Dword}, {"Wrap1", F::Render, V::Dword},
    {"Wrap2", F::Render, V::Dword}, {"Wrap3", F::Render, V::Dword}, {"Wrap4", F::Render, V::Dword},
    {"Wrap5", F::Render, V::Dword}, {"Wrap6", F::Render, V::Dword}, {"Wrap7", F::Render, V::Dword},
    {"Wrap8", F::Render, V::Dword}, {"Wrap9", F::Render, V::Dword}, {"Wrap10", F::Render, V::Dword},
    {"Wrap11", F::Render, V::Dword}, {"Wrap12", F::Render, V::Dword}, {"Wrap13", F::Render, V::Dword},
    {"Wrap14", F::Render, V::Dword}, {"Wrap15", F::Render, V::Dword}, {"Clipping", F::Render, V::Bool},
    {"Lighting", F::Render, V::Bool}, {"Ambient", F::Render, V::Dword},
    {"FogVertexMode", F::Render, V::Fog}, {"ColorVertex", F::Render, V::Bool},
    {"LocalViewer", F::Render, V::Bool}, {"NormalizeNormals", F::Render, V::Bool},
    {"DiffuseMaterialSource", F::Render, V::MaterialSource},
    {"SpecularMaterialSource", F::Render, V::MaterialSource},
    {"AmbientMaterialSource", F::Render, V::MaterialSource},
    {"EmissiveMaterialSource", F::Render, V::MaterialSource}, {"VertexBlend", F::Render, V::Dword},
    {"ClipPlaneEnable", F::Render, V::Dword}, {"PointSize", F::Render, V::Float},
    {"PointSize_Min", F::Render, V::Float}, {"PointSize_Max", F::Render, V::Float},
    {"PointSpriteEnable", F::Render, V::Bool}, {"PointScaleEnable", F::Render, V::Bool},
    {"PointScale_A", F::Render, V::Float}, {"PointScale_B", F::Render, V::Float},
    {"PointScale_C", F::Render, V::Float}, {"MultiSampleAntialias", F::Render, V::Bool},
    {"MultiSampleMask", F::Render, V::Dword}, {"PatchEdgeStyle", F::Render, V::Dword},
    {"DebugMonitorToken", F::Render, V::Dword}, {"IndexedVertexBlendEnable", F::Render, V::Bool},
    {"ColorWriteEnable", F::Render, V::ColorWrite}, {"TweenFactor", F::Render, V::Float},
    {"BlendOp", F::Render, V::BlendOp}, {"PositionDegree", F::Render, V::Dword},
    {"NormalDegree", F::Render, V::Dword}, {"ScissorTestEnable", F::Render, V::Bool},
    {"SlopeScaleDepthBias", F::Render, V::Float}, {"AntialiasedLineEnable", F::Render, V::Bool},
    {"MinTessellationLevel", F::Render, V::Float}, {"MaxTessellationLevel", F::Render, V::Float},
    {"AdaptiveTess_X", F::Render, V::Float}, {"AdaptiveTess_Y", F::Render, V::Float},
    {"AdaptiveTess_Z", F::Render, V::Float}, {"AdaptiveTess_W", F::Render, V::Float},
    {"EnableAdaptiveTessellation", F::Render, V::Bool}, {"TwoSidedStencilMode", F::Render, V::Bool},
    {"CCW_StencilFail", F::Render, V::StencilOp}, {"CCW_StencilZFail", F::Render, V::StencilOp},
    {"CCW_StencilPass", F::Render, V::StencilOp}, {"CCW_StencilFunc", F::Render, V::Compare},
    {"ColorWriteEnable1", F::Render, V::ColorWrite}, {"ColorWriteEnable2", F::Render, V::ColorWrite},
    {"ColorWriteEnable3", F::Render, V::ColorWrite}, {"BlendFactor", F::Render, V::Dword},
    {"SRGBWriteEnable", F::Render, V::Bool}, {"DepthBias", F::Render, V::Float},
    {"SeparateAlphaBlendEnable", F::Render, V::Bool}, {"SrcBlendAlpha", F::Render, V::Blend},
    {"DestBlendAlpha", F::Render, V::Blend}, {"BlendOpAlpha", F::Render, V::BlendOp},
    {"ColorOp", F::TextureStage, V::TextureOp}, {"ColorArg0", F::TextureStage, V::TextureArg},
    {"ColorArg1", F::TextureStage, V::TextureArg}, {"ColorArg2", F::TextureStage, V::TextureArg},
    {"AlphaOp", F::TextureStage, V::TextureOp}, {"AlphaArg0", F::TextureStage, V::TextureArg},
    {"AlphaArg1", F::TextureStage, V::TextureArg}, {"AlphaArg2", F::TextureStage, V::TextureArg},
    {"ResultArg", F::TextureStage, V::TextureArg}, {"BumpEnvMat00", F::TextureStage, V::Float},
    {"BumpEnvMat01", F::TextureStage, V::Float}, {"BumpEnvMat10", F::TextureStage, V::Float},
    {"BumpEnvMat11", F::TextureStage, V::Float}, {"TexCoordIndex", F::TextureStage, V::Dword},
    {"BumpEnvLScale", F::TextureStage, V::Float}, {"BumpEnvLOffset", F::TextureStage, V::Float},
    {"TextureTransformFlags", F::TextureStage, V::TextureTransformFlags},
    {"Constant", F::TextureStage, V::Dword}, {"NPatchMode", F::NPatchMode, V::Float},
    {"FVF", F::Fvf, V::Dword}, {"ProjectionTransform", F::Transform, V::Matrix},
    {"ViewTransform", F::Transform, V::Matrix}, {"WorldTransform", F::Transform, V::Matrix},
    {"TextureTransform", F::Transform, V::Matrix}, {"MaterialDiffuse", F::Material, V::Color},
    {"MaterialAmbient", F::Material, V::Color}, {"MaterialSpecular", F::Material, V::Color},
    {"MaterialEmissive", F::Material, V::Color}, {"MaterialPower", F::Material, V::Float},
    {"LightType", F::Light, V::LightType}, {"LightDiffuse", F::Light, V::Color},
    {"LightSpecular", F::Light, V::Color}, {"LightAmbient", F::Light, V::Color},
    {"LightPosition", F::Light, V::Vector3}, {"LightDirection", F::Light, V::Vector3},
    {"LightRange", F::Light, V::Float}, {"LightFallOff", F::Light, V::Float},
    {"LightAttenuation0", F::Light, V::Float}, {"LightAttenuation1", F::Light, V::Float},
    {"LightAttenuation2", F::Light, V::Float}, {"LightTheta", F::Light, V::Float},
    {"LightPhi", F::Light, V::Float}, {"LightEnable", F::LightEnable, V::Bool},
    {"VertexShader", F::VertexShader, V::Shader}, {"PixelShader", F::PixelShader, V::Shader},
    {"VertexShaderConstantF", F::ShaderConstantF, V::ShaderConstant},
    {"VertexShaderConstantB", F::ShaderConstantB, V::ShaderConstant},
    {"VertexShaderConstantI", F::ShaderConstantI, V::ShaderConstant},
    {"VertexShaderConstant", F::ShaderConstantF, V::ShaderConstant},
    {"VertexShaderConstant1", F::ShaderConstantF, V::ShaderConstant},
    {"VertexShaderConstant2", F::ShaderConstantF, V::ShaderConstant},
    {"VertexShaderConstant3", F::ShaderConstantF, V::ShaderConstant},
    {"VertexShaderConstant4", F::ShaderConstantF, V::ShaderConstant},
    {"PixelShaderConstantF", F::ShaderConstantF, V::ShaderConstant},
    {"PixelShaderConstantB", F::ShaderConstantB, V::ShaderConstant},
    {"PixelShaderConstantI", F::ShaderConstantI, V::ShaderConstant},
    {"PixelShaderConstant", F::ShaderConstantF, V::ShaderConstant},
    {"PixelShaderConstant1", F::ShaderConstantF, V::ShaderConstant},
    {"PixelShaderConstant2", F::ShaderConstantF, V::ShaderConstant},
    {"PixelShaderConstant3", F::ShaderConstantF, V::ShaderConstant},
    {"PixelShaderConstant4", F::ShaderConstantF, V::ShaderConstant}, {"Texture", F::Texture, V::TextureObject},
    {"AddressU", F::SamplerState, V::TextureAddress}, {"AddressV", F::SamplerState, V::TextureAddress},
    {"AddressW", F::SamplerState, V::TextureAddress}, {"BorderColor", F::SamplerState, V::Dword},
    {"MagFilter", F::SamplerState, V::TextureFilter}, {"MinFilter", F::SamplerState, V::TextureFilter},
    {"MipFilter", F::SamplerState, V::TextureFilter}, {"MipMapLodBias", F::SamplerState, V::Float},
    {"MaxMipLevel", F::SamplerState, V::Dword}, {"MaxAnisotropy", F::SamplerState, V::Dword},
    {"SRGBTexture", F::SamplerState, V::Bool}, {"ElementIndex", F::SamplerState, V::Dword},
    {"DMAPOffset", F::SamplerState, V::Dword}, {"Sampler", F::Sampler, V::SamplerObject},
};

struct Symbol {
    const char* name;
    uint32_t value;
};

const Symbol kBool[] = {{"TRUE", 1}, {"FALSE", 0}};
const Symbol kCompare[] = {{"NEVER", 1}, {"LESS", 2}, {"EQUAL", 3}, {"LESSEQUAL", 4},
                           {"GREATER", 5}, {"NOTEQUAL", 6}, {"GREATEREQUAL", 7}, {"ALWAYS", 8}};
const Symbol kBlend[] = {{"ZERO", 1}, {"ONE", 2}, {"SRCCOLOR", 3}, {"INVSRCCOLOR", 4}, {"SRCALPHA", 5},
                         {"INVSRCALPHA", 6}, {"DESTALPHA", 7}, {"INVDESTALPHA", 8}, {"DESTCOLOR", 9},
                         {"INVDESTCOLOR", 10}, {"SRCALPHASAT", 11}, {"BOTHSRCALPHA", 12},
                         {"BOTHINVSRCALPHA", 13}, {"BLENDFACTOR", 14}, {"INVBLENDFACTOR", 15}};
const Symbol kBlendOp[] = {{"ADD", 1}, {"SUBTRACT", 2}, {"REVSUBTRACT", 3}, {"MIN", 4}, {"MAX", 5}};
const Symbol kCull[] = {{"NONE", 1}, {"CW", 2}, {"CCW", 3}};
const Symbol kFill[] = {{"POINT", 1}, {"WIREFRAME", 2}, {"SOLID", 3}};
const Symbol kShade[] = {{"FLAT", 1}, {"GOURAUD", 2}, {"PHONG", 3}};
const Symbol kStencilOp[] = {{"KEEP", 1}, {"ZERO", 2}, {"REPLACE", 3}, {"INCRSAT", 4},
                             {"DECRSAT", 5}, {"INVERT", 6}, {"INCR", 7}, {"DECR", 8}};
const Symbol kFog[] = {{"NONE", 0}, {"EXP", 1}, {"EXP2", 2}, {"LINEAR", 3}};
const Symbol kMaterialSource[] = {{"MATERIAL", 0}, {"COLOR1", 1}, {"COLOR2", 2}};
const Symbol kColorWrite[] = {{"RED", 1}, {"GREEN", 2}, {"BLUE", 4}, {"ALPHA", 8}};
const Symbol kTextureOp[] = {
    {"DISABLE", 1}, {"SELECTARG1", 2}, {"SELECTARG2", 3}, {"MODULATE", 4}, {"MODULATE2X", 5},
    {"MODULATE4X", 6}, {"ADD", 7}, {"ADDSIGNED", 8}, {"ADDSIGNED2X", 9}, {"SUBTRACT", 10},
    {"ADDSMOOTH", 11}, {"BLENDDIFFUSEALPHA", 12}, {"BLENDTEXTUREALPHA", 13}, {"BLENDFACTORALPHA", 14},
    {"BLENDTEXTUREALPHAPM", 15}, {"BLENDCURRENTALPHA", 16}, {"PREMODULATE", 17},
    {"MODULATEALPHA_ADDCOLOR", 18}, {"MODULATECOLOR_ADDALPHA", 19}, {"MODULATEINVALPHA_ADDCOLOR", 20},
    {"MODULATEINVCOLOR_ADDALPHA", 21}, {"BUMPENVMAP", 22}, {"BUMPENVMAPLUMINANCE", 23},
    {"DOTPRODUCT3", 24}, {"MULTIPLYADD", 25}, {"LERP", 26}};
const Symbol kTextureArg[] = {{"DIFFUSE", 0}, {"CURRENT", 1}, {"TEXTURE", 2}, {"TFACTOR", 3},
                              {"SPECULAR", 4}, {"TEMP", 5}, {"CONSTANT", 6}, {"COMPLEMENT", 0x10},
                              {"ALPHAREPLICATE", 0x20}};
const Symbol kTextureAddress[] = {{"WRAP", 1}, {"MIRROR", 2}, {"CLAMP", 3}, {"BORDER", 4}, {"MIRRORONCE", 5}};
const Symbol kTextureFilter[] = {{"NONE", 0}, {"POINT", 1}, {"LINEAR", 2}, {"ANISOTROPIC", 3},
                                 {"PYRAMIDALQUAD", 6}, {"GAUSSIANQUAD", 7}};
const Symbol kTransformFlags[] = {{"DISABLE", 0}, {"COUNT1", 1}, {"COUNT2", 2}, {"COUNT3", 3},
                                  {"COUNT4", 4}, {"PROJECTED", 256}};
const Symbol kLightType[] = {{"POINT", 1}, {"SPOT", 2}, {"DIRECTIONAL", 3}};

bool equalsNoCase(const std::string& a, const char* b) {
    if (a.size() != std::strlen(b)) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::toupper(static_cast<unsigned char>(a[i])) != std::toupper(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

template <size_t N> bool lookup(const Symbol (&table)[N], const std::string& name, uint32_t* value) {
    for (const Symbol& symbol : table)
        if (equalsNoCase(name, symbol.name)) {
            *value = symbol.value;
            return true;
        }
    return false;
}

}  // namespace

const StateInfo* findState(const std::string& name, uint32_t* operation) {
    for (uint32_t i = 0; i < stateCount(); ++i)
        if (equalsNoCase(name, kStates[i].name)) {
            *operation = i;
            return &kStates[i];
        }
    return nullptr;
}

const StateInfo& stateAt(uint32_t operation) { return kStates[operation]; }
uint32_t stateCount() { return sizeof(kStates) / sizeof(kStates[0]); }

bool symbolicValue(ValueKind kind, const std::string& name, uint32_t* value) {
    switch (kind) {
    case V::Bool: return lookup(kBool, name, value);
    case V::Compare: return lookup(kCompare, name, value);
    case V::Blend: return lookup(kBlend, name, value);
    case V::BlendOp: return lookup(kBlendOp, name, value);
    case V::Cull: return lookup(kCull, name, value);
    case V::Fill: return lookup(kFill, name, value);
    case V::Shade: return lookup(kShade, name, value);
    case V::StencilOp: return lookup(kStencilOp, name, value);
    case V::Fog: return lookup(kFog, name, value);
    case V::MaterialSource: return lookup(kMaterialSource, name, value);
    case V::ColorWrite: return lookup(kColorWrite, name, value);
    case V::TextureOp: return lookup(kTextureOp, name, value);
    case V::TextureArg: return lookup(kTextureArg, name, value);
    case V::TextureAddress: return lookup(kTextureAddress, name, value);
    case V::TextureFilter: return lookup(kTextureFilter, name, value);
    case V::TextureTransformFlags: return lookup(kTransformFlags, name, value);
    case V::LightType: return lookup(kLightType, name, value);
    default: return lookup(kBool, name, value);
    }
}

bool needsIndexInPass(const StateInfo& state) {
    switch (state.family) {
    case F::TextureStage: case F::Light: case F::LightEnable: case F::ShaderConstantF: case F::ShaderConstantB:
    case F::ShaderConstantI: case F::Texture: case F::SamplerState: case F::Sampler:
        return true;
    default:
        return false;
    }
}

bool isFloatValued(ValueKind kind) {
    return kind == V::Float || kind == V::Color || kind == V::Vector3 || kind == V::Matrix;
}

}  // namespace fxc
