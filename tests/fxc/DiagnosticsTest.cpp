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
        {"technique T { pass P { PixelShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 }; } }", 1, "expected a pixel shader"},
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

// A register binding must fit the registers that the model of the shader reading it offers (the
// counts themselves are the rule tables').
TEST(EffectCompilerDiagnostics, RegisterBindingsFitTheirShaderProfile) {
    const char kVs2[] = "VertexShader = asm { vs_2_0 dcl_position v0 mov oPos, v0 }";
    const char kVs3[] = "VertexShader = asm { vs_3_0 dcl_position v0 dcl_position o0 mov o0, v0 }";
    const char kPs3[] = "PixelShader = asm { ps_3_0 mov oC0, c0 }";
    const struct {
        const char* declaration;
        const char* shader;
        bool fits;
    } cases[] = {
        {"float4 P[4] : register(vs, c252)", kVs2, true}, {"float4 P[4] : register(vs, c253)", kVs2, false},
        {"bool P : register(ps, b15)", kPs3, true},       {"bool P : register(ps, b16)", kPs3, false},
        {"sampler2D P : register(vs, s3)", kVs3, true},   {"sampler2D P : register(vs, s4)", kVs3, false},
    };
    for (const auto& c : cases) {
        std::string source = std::string("\n") + c.declaration + ";\ntechnique T { pass { " + c.shader + "; } }";
        EXPECT_EQ(c.fits ? "compiled" : "bad.fx:2: P does not fit the registers of the shader", compileError(source))
            << c.declaration << " read by " << c.shader;
    }
}

// Each broken shader assembles under Wine but breaks one rule Direct3D 9 checks when the shader is
// created; its neighbour without a line stands exactly at the limit and compiles.
TEST(EffectCompilerDiagnostics, ShadersFollowTheRulesOfTheirModel) {
    const std::string ps2Adds = "ps_2_0\n" + repeated("add r0, r0, c0\n", 63), vs2Adds = "vs_2_0\n" + repeated("add r0, r0, c0\n", 255);
    const std::string ps3Adds = "ps_3_0\n" + repeated("add r0, r0, c0\n", 511), samples = "ps_2_0\ndcl t0\ndcl_2d s0\n" + repeated("texld r0, t0, s0\n", 32);
    const std::string loops = "vs_3_0\ndcl_position o0\ndefi i0, 2, 0, 1, 0\n" + repeated("loop aL, i0\n", 4);
    const std::string ifs = "vs_3_0\ndcl_position o0\n" + repeated("if b0\n", 24), endifs = repeated("endif\n", 24) + "mov o0, c0";
    const std::string calls = "vs_2_0\ncall l0\nmov oPos, c0\nret\nlabel l0\n";
    const struct {
        std::string shader;
        int line;  // the line refused, 1 being the version; 0: compiles
        const char* rule;
    } cases[] = {
        {"vs_1_1\nmov oPos, c0", 1, "shader model"},
        {"vs_3_0\ndcl_position o0\nmad r0, c1, c2, c3\nmov o0, r0", 3, "read ports: mad reads 3 different c# registers"},
        {"vs_3_0\ndcl_position o0\nmad r0, c1, c1, c1\nmov o0, r0", 0, ""},
        {"vs_2_0\nmad r0, c1, c1, c1\nmov oPos, r0", 2, "read ports: mad reads c# registers 3 times"},
        {"vs_2_0\nmad r0, c1, c1, r1\nmov oPos, r0", 0, ""},
        {"vs_2_0\nsincos r0.xy, c2.x, c0, c1\nmov oPos, r0", 0, ""},
        {"ps_2_0\ndcl v0\ndcl v1\nadd r0, v0, v1\nmov oC0, r0", 4, "read ports"},
        {"vs_2_0\nmov oPos, c256", 2, "register range"},
        {"vs_2_0\nmov oPos, c255", 0, ""},
        {"vs_2_0\nmov c0, c1\nmov oPos, c0", 2, "shader does not assemble"},
        {"ps_2_0\ndcl_2d s0\ntexld r0, t0, s0\nmov oC0, r0", 3, "declaration: t0 is read without a dcl"},
        {"ps_2_0\ndcl t0.xy\ndcl_cube s0\ntexld r0, t0, s0\nmov oC0, r0", 4, "declaration: texld reads t0.xyz"},
        {"vs_2_0\ndcl_position v0\nmov r0, v0\ndcl_normal v1\nmov oPos, r0", 4, "declaration"},
        {"vs_3_0\ndcl_position o0\nmov o1, c0", 3, "declaration"},
        {"vs_3_0\ndcl_texcoord0 o0\nmov o0, c0", 1, "declaration"},
        {ps2Adds + "mov oC0, r0", 0, ""},
        {ps2Adds + "add r0, r0, c0\nmov oC0, r0", 66, "instruction slots"},
        {samples + "mov oC0, r0", 0, ""},
        {samples + "texld r0, t0, s0\nmov oC0, r0", 36, "instruction slots"},
        {vs2Adds + "mov oPos, r0", 0, ""},
        {vs2Adds + "add r0, r0, c0\nmov oPos, r0", 258, "instruction slots"},
        {ps3Adds + "mov oC0, r0", 0, ""},
        {ps3Adds + "add r0, r0, c0\nmov oC0, r0", 514, "instruction slots"},
        {loops + repeated("endloop\n", 4) + "mov o0, c0", 0, ""},
        {loops + "loop aL, i0\n" + repeated("endloop\n", 5) + "mov o0, c0", 8, "flow control: loop and rep nested 5 deep"},
        {"vs_2_0\ndefi i0, 2, 0, 1, 0\nloop aL, i0\nloop aL, i0\nendloop\nendloop\nmov oPos, c0", 4, "flow control"},
        {ifs + endifs, 0, ""},
        {ifs + "if b0\nendif\n" + endifs, 27, "flow control: if nested 25 deep"},
        {"vs_2_0\n" + repeated("if b0\nendif\n", 8) + "mov oPos, c0", 0, ""},
        {"vs_2_0\n" + repeated("if b0\nelse\nendif\n", 8) + "if b0\nendif\nmov oPos, c0", 26, "flow control: static flow"},
        {calls + "ret", 0, ""},
        {calls + "call l1\nret\nlabel l1\nret", 2, "flow control: calls nest 2 deep"},
        {"vs_2_0\nmov oPos, c0\nlabel l0\nret", 3, "flow control"},
        {"vs_2_0\nelse\nmov oPos, c0", 2, "flow control"},
        {"vs_2_0\nmov oPos, c[aL]", 2, "flow control: aL is used outside a loop"},
        {"ps_3_0\ndcl_texcoord0 v0\ndcl_2d s0\nmov r0, v0\nif_gt r0.x, v0.x\ntexld r1, r0, s0\nendif\nmov oC0, r1", 6, "flow control"},
        {"vs_2_0\ndcl_position v0\nnrm r0, r0\nmov oPos, r0", 3, "operands: nrm cannot write r0"},
        {"vs_2_0\nrcp r0, c0.xy\nmov oPos, r0", 2, "operands"},
        {"ps_2_0\nmov r0, c0.xzyw\nmov oC0, r0", 2, "operands: ps_2_0 offers no arbitrary swizzles"},
        {"ps_2_0\nmov r0, c0.yzxw\nmov oC0, r0", 0, ""},
        {"vs_2_0\ndcl_position v0\nm4x4 r0, v0, c0\nm4x4 r0.xyz, r0, c4\nmov oPos, r0", 4, "operands"},
        {"vs_2_0\ndcl_position v0\nmov_sat oPos, v0", 3, "modifiers: _sat needs vs_3_0"},
        {"ps_3_0\nmov r0, -c0_abs\nadd r0, r0, c1\nmov oC0, r0", 3, "modifiers"},
        {"ps_2_0\nadd oC0, c0, r0", 2, "outputs"},
        {"ps_2_x\nmov oC1, c0", 1, "outputs"},
        {"ps_3_0\nif_gt r0.x, c0.x\nmov oC0, c0\nendif", 3, "outputs"},
    };
    for (const auto& c : cases) {
        bool pixel = c.shader[0] == 'p';
        std::string source = std::string("technique T { pass P { ") + (pixel ? "PixelShader" : "VertexShader") +
                             " = asm {\n" + c.shader + "\n}; } }";
        std::string expected = c.line ? "bad.fx:" + std::to_string(c.line + 1) + ": " + c.rule : "compiled";
        EXPECT_EQ(0u, compileError(source).find(expected)) << c.shader.substr(0, 120) << "\n  gave: " << compileError(source);
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
