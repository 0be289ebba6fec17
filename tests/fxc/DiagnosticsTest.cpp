#include "Compiler.h"
#include "StateTable.h"
#include "TestPaths.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

namespace {

struct BadSource {
    std::string source;
    int line;
    const char* message;
};

std::string repeated(const char* text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) result += text;
    return result;
}

// Macros that each expand to two of the one before grow to 2^levels tokens.
std::string doublingMacros(int levels) {
    std::string source = "#define M0 x\n";
    for (int i = 1; i <= levels; ++i)
        source += "#define M" + std::to_string(i) + " M" + std::to_string(i - 1) + " M" + std::to_string(i - 1) + "\n";
    return source + "M" + std::to_string(levels) + "\n";
}

std::string compileError(const std::string& source) {
    try {
        fxc::compileEffectText(source, "bad.fx", fxc::PreprocessorOptions());
    } catch (const fxc::CompileError& error) {
        return error.describe();
    }
    return "compiled";
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

// Runs the compiler beside this test program; returns its exit code and what it prints.
std::pair<int, std::string> runTool(const std::string& arguments) {
    char self[MAX_PATH];
    GetModuleFileNameA(nullptr, self, MAX_PATH);
    std::string tool(self), log = vexiltest::outputDir() + "\\tool.log";
    tool = tool.substr(0, tool.find_last_of('\\') + 1) + "vexil-fxc.exe";
    int code = std::system(("\"\"" + tool + "\" " + arguments + " > " + log + " 2>&1\"").c_str());
    std::ifstream in(log, std::ios::binary);
    return {code, std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())};
}

}  // namespace

TEST(EffectCompilerDiagnostics, ErrorsNameTheFileAndLineOfTheFault) {
    const BadSource cases[] = {
        {"float a;\nquaternion q;", 2, "unknown type 'quaternion'"},
        {"technique T {\n pass P {\n  ZEnable = TRUE;\n  Frobnicate = 1;\n } }", 4, "unknown state Frobnicate"},
        {"technique T { pass P {\n CullMode = SIDEWAYS; } }", 2, "unknown value 'SIDEWAYS' for state CullMode"},
        {"technique T { pass P {\n\n VertexShader = asm {\n vs_2_0\n undefined_op r0\n }; } }", 5,
         "shader does not assemble"},
        {"technique T { pass P { PixelShader = asm { vs_2_0 mov oPos, v0 }; } }", 1, "expected a pixel shader"},
        {"technique T { pass P {\n VertexShaderConstantF[0] = <Missing>; } }", 2, "unknown parameter Missing"},
        {"int Count;\ntechnique T { pass P {\n VertexShaderConstantF[0] = <Count>; } }", 3, "state VertexShaderConstantF needs a float parameter, Count is not"},
        {"float4 Colour;\ntechnique T { pass P { PixelShaderConstantF = <Colour>; } }", 2, "state PixelShaderConstantF needs an index [n]"},
        {"technique T { pass P {\n VertexShader = compile vs_2_0 main(); } }", 2, "HLSL compile targets are not supported"},
        {"float4 main() : COLOR { return 0; }", 1, "HLSL functions are not supported"},
        {"float2 Pair = { 1, 2, 3 };", 1, "initializer has 3 values where the type needs 2"},
        {"float a;\nfloat a;", 2, "parameter a declared twice"},
        {"int Flags : register(c0);", 1, "register c does not fit"},
        {"sampler S = sampler_state {\n CullMode = NONE; };", 2, "state CullMode does not belong in sampler_state"},
        {"float x = 1", 1, "expected ';' before end of file"},
        {"#include \"nowhere.fxh\"\n", 1, "cannot find include file nowhere.fxh"},
        {"#ifdef X\nfloat a;\n", 3, "#if without #endif"},
        {"#define F(x) x\n", 1, "function-like macros are not supported"},
        {"/* open\n\n", 1, "unterminated comment"},
        // Sizes and nesting no effect needs end in a located error, not in a runaway or a crash.
        {"float4x4 Palette[4294967296];", 1, "array size 4294967296 is larger than 65535"},
        {"float a;\n\nstring Notes < int Pages[70000] = 0; >;", 3, "array size 70000 is larger than 65535"},
        {"float4 P : register(c4294967300);", 1, "unsupported register c4294967300"},
        {"technique T { pass P {\n Sampler[4294967296] = <S>; } }", 2, "a state index 4294967296 is larger than 65535"},
        {"\n#if " + repeated("(", 100000) + "1" + repeated(")", 100000) + "\n#endif", 2, "#if expression nested too deeply"},
        {"#if " + repeated("!-", 50000) + "1\n#endif", 1, "#if expression nested too deeply"},
        {"#if (-2147483647 - 1) / -1 < 0 || (-2147483647 - 1) % -1 == 0\n#endif\nbad", 3, "unknown type 'bad'"},
        {"float4 v =\n" + repeated("{", 20000) + "1" + repeated("}", 20000) + ";", 2, "values nested too deeply"},
        {"\n" + repeated("vector<", 10000), 2, "values nested too deeply"},
        {doublingMacros(24), 26, "effect source expands too far"},
    };
    for (const BadSource& bad : cases) {
        std::string expected = "bad.fx:" + std::to_string(bad.line) + ": " + bad.message;
        std::string error = compileError(bad.source);
        EXPECT_EQ(0u, error.find(expected)) << bad.source.substr(0, 80) << "\n  gave: " << error;
    }
}

// A register binding must fit the registers that the profile of the shader reading it offers.
TEST(EffectCompilerDiagnostics, RegisterBindingsFitTheirShaderProfile) {
    const char kVs2[] = "VertexShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 }";
    const char kVs3[] = "VertexShader = asm { vs_3_0 dcl_position v0 dcl_position o0 mov o0, v0 }";
    const char kPs2[] = "PixelShader = asm { ps_2_0 mov oC0, c0 }";
    const char kPs3[] = "PixelShader = asm { ps_3_0 mov oC0, c0 }";
    const struct {
        const char* declaration;
        const char* shader;
        bool fits;
    } cases[] = {
        {"float4 P[4] : register(vs, c252)", kVs2, true}, {"float4 P[4] : register(vs, c253)", kVs2, false},
        {"float4 P : register(ps, c31)", kPs2, true},     {"float4 P : register(ps, c32)", kPs2, false},
        {"float4 P : register(ps, c223)", kPs3, true},    {"float4 P : register(ps, c224)", kPs3, false},
        {"bool P : register(ps, b15)", kPs3, true},       {"bool P : register(ps, b16)", kPs3, false},
        {"int4 P : register(vs, i15)", kVs3, true},       {"int4 P : register(vs, i16)", kVs3, false},
        {"sampler2D P : register(ps, s15)", kPs2, true},  {"sampler2D P : register(ps, s16)", kPs2, false},
        {"sampler2D P : register(vs, s3)", kVs3, true},   {"sampler2D P : register(vs, s4)", kVs3, false},
    };
    for (const auto& c : cases) {
        std::string source = std::string("\n") + c.declaration + ";\ntechnique T { pass { " + c.shader + "; } }";
        EXPECT_EQ(c.fits ? "compiled" : "bad.fx:2: P does not fit the registers of the shader", compileError(source))
            << c.declaration << " read by " << c.shader;
    }
}

// The numbering of the state table is the binary format: spot checks at every sixteenth row.
TEST(EffectCompilerDiagnostics, StateOperationsFollowTheFormatNumbering) {
    const std::pair<const char*, uint32_t> anchors[] = {
        {"ZEnable", 0x00}, {"FogColor", 0x10}, {"Wrap1", 0x20}, {"Lighting", 0x30}, {"PointScaleEnable", 0x40},
        {"AntialiasedLineEnable", 0x50}, {"BlendFactor", 0x60}, {"BumpEnvMat00", 0x70}, {"MaterialAmbient", 0x80},
        {"LightPhi", 0x90}, {"PixelShaderConstant1", 0xa0}, {"ElementIndex", 0xb0}, {"Sampler", 0xb2}};
    for (const auto& anchor : anchors) {
        uint32_t operation = 0xFFFFFFFF;
        EXPECT_TRUE(fxc::findState(anchor.first, &operation)) << anchor.first;
        EXPECT_EQ(anchor.second, operation) << anchor.first;
    }
    EXPECT_EQ(0xb3u, fxc::stateCount());
}

// The command line reaches the preprocessor: a wrong branch taken or a miscounted line after the
// include shows in the message of the failing run.
TEST(EffectCompilerTool, CompilesReportsAndLeavesNoOutputOnFailure) {
    std::string dir = vexiltest::outputDir();
    std::string good = dir + "\\tool_good.fx", bad = dir + "\\tool_bad.fx", deep = dir + "\\tool_deep.fx";
    std::string output = dir + "\\tool.fxo", includes = " -I " + dir + "\\fxc-include";
    CreateDirectoryA((dir + "\\fxc-include").c_str(), nullptr);
    writeText(dir + "\\fxc-include\\colours.fxh", "#define RED_LEVEL 0.5\nfloat4 FromHeader = { RED_LEVEL, 0, 0, 1 };\n");
    writeText(good, "#include <colours.fxh>\nfloat4 Colour = COLOUR_VALUE;\ntechnique T { pass { CullMode = NONE; } }\n");
    writeText(bad, "#include <colours.fxh>\n#if QUALITY > 1 && defined(QUALITY)\nfloat High = RED_LEVEL;\n"
                   "#elif QUALITY == 1\nmiddle\n#else\nlow\n#endif\n#ifndef QUALITY\nnever\n#endif\n"
                   "technique T { pass { CullMode = NONE } }\n");
    writeText(deep, "#if " + repeated("(", 100000) + "1\n#endif\n");
    DeleteFileA(output.c_str());
    const std::string compileGood = good + " -o " + output + includes + " -DCOLOUR_VALUE=float4(1,0,0,1)";
    const struct {
        std::string arguments;
        int exitCode;
        const char* says;
        bool leavesOutput;  // a failed compile removes the stale output
    } runs[] = {
        {"", 2, "usage: vexil-fxc input.fx -o output.fxo", false},
        {compileGood, 0, "", true},
        {bad + " -o " + output + includes + " -D QUALITY=2", 1, "tool_bad.fx:12: expected ';' before '}'", false},
        {compileGood, 0, "", true},
        {deep + " -o " + output, 1, "tool_deep.fx:1: #if expression nested too deeply", false},
        {dir + "\\absent.fx -o " + output, 1, "cannot open file", false},
        {good + " -o " + output, 1, "tool_good.fx:1: cannot find include file colours.fxh", false},
    };
    for (const auto& run : runs) {
        std::pair<int, std::string> result = runTool(run.arguments);
        EXPECT_EQ(run.exitCode, result.first) << run.arguments.substr(0, 100);
        EXPECT_NE(std::string::npos, result.second.find(run.says)) << result.second;
        EXPECT_EQ(run.leavesOutput, vexiltest::fileExists(output)) << run.arguments.substr(0, 100);
    }
}

// Every cut of a valid effect either compiles or stops with a located error, never anything else.
TEST(EffectCompilerDiagnostics, TruncatedSourcesFailCleanly) {
    const std::string source =
        "#define ONE 1\nfloat4 Colour : COLOR < string UIName = \"c\"; > = { ONE, 0, 0, 1 };\n"
        "float4x4 Bones[4] : register(vs, c4);\ntexture T;\n"
        "sampler2D S = sampler_state { Texture = <T>; MinFilter = LINEAR; };\n"
        "technique Main < int Order = 1; > { pass P0 { CullMode = NONE; ColorOp[1] = MODULATE | COMPLEMENT;\n"
        " VertexShaderConstantF[0] = <Colour>; Sampler[0] = (S);\n"
        " VertexShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 };\n"
        " PixelShader = asm { ps_2_0 mov oC0, c0 }; } }\n";
    int compiled = 0, refused = 0;
    for (size_t length = 0; length <= source.size(); ++length) {
        std::string error = compileError(source.substr(0, length));
        ++(error == "compiled" ? compiled : refused);
        EXPECT_TRUE(error == "compiled" || error.find("bad.fx:") == 0) << error;
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(compiled, 0);
}
