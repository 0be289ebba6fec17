#include "Compiler.h"
#include "StateTable.h"
#include "TestPaths.h"

#include <gtest/gtest.h>
#include <windows.h>
#include <d3d9.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

namespace {

struct BadSource { std::string source; int line; const char* message; };

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

// Each faulty source fails with the file and line of its fault (line 0: the source compiles).
TEST(EffectCompilerDiagnostics, SourcesCompileOrNameTheLineOfTheirFault) {
    const std::string ps3 = ";\ntechnique T { pass { PixelShader = asm { ps_3_0 mov oC0, c0 }; } }";
    const std::string vs3 = ";\ntechnique T { pass { VertexShader = asm { vs_3_0 dcl_position o0 mov o0, c0 }; } }";
    const char kNoRoom[] = "P does not fit the registers of the shader";
    const BadSource cases[] = {
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
        {"int Counts[3] = 5;", 1, "initializer has 1 values where the type needs 3"},
        {"float a;\nfloat a;", 2, "parameter a declared twice"},
        {"int Flags : register(c0);", 1, "register c does not fit"},
        {"sampler S = sampler_state {\n CullMode = NONE; };", 2, "state CullMode does not belong in sampler_state"},
        {"float x = 1", 1, "expected ';' before end of file"},
        {"#include \"nowhere.fxh\"\n", 1, "cannot find include file nowhere.fxh"},
        {"#ifdef X\nfloat a;\n", 3, "#if without #endif"},
        {"#define F(x) x\n", 1, "function-like macros are not supported"},
        {"/* open\n\n", 1, "unterminated comment"},
        {"/* one\n two */\n#define X 1 \\\r\n 2\r\ntechnique T { pass { VertexShader = asm {\n vs_2_0 dcl_position v0\n"
         " mov oPos, v0 }; } }\nbad", 8, "unknown type 'bad'"},
        // Sizes and nesting no effect needs end in a located error, not in a runaway or a crash.
        {"float4x4 Palette[4294967296];", 1, "array size 4294967296 is larger than 65535"},
        {"float a;\n\nstring Notes < int Pages[70000] = 0; >;", 3, "array size 70000 is larger than 65535"},
        {"float4 P : register(c4294967300);", 1, "unsupported register c4294967300"},
        {"technique T { pass P {\n Sampler[4294967296] = <S>; } }", 2, "a state index 4294967296 is larger than 65535"},
        {"\n#if " + repeated("(", 100000) + "1" + repeated(")", 100000) + "\n#endif", 2, "#if expression nested too deeply"},
        {"#if " + repeated("!-", 50000) + "1\n#endif", 1, "#if expression nested too deeply"},
        {"#if 0\n#if 1\n#elif 1\nbad\n#else\nbad\n#endif\n#elif 8 - 4 - 2 != 2 || (-2147483647 - 1) / -1 > 0 || "
         "(-2147483647 - 1) % -1 != 0\nbad\n#endif\nworse", 11, "unknown type 'worse'"},
        {"float4 v =\n" + repeated("{", 20000) + "1" + repeated("}", 20000) + ";", 2, "values nested too deeply"},
        {"\n" + repeated("vector<", 10000), 2, "values nested too deeply"},
        {doublingMacros(24), 26, "effect source expands too far"},
        // A register binding fits the registers of the shader model reading it: a matrix takes a
        // register a row, or a column when column_major.
        {"\ncolumn_major float4x3 P[2] : register(ps, c218)" + ps3, 0, ""}, {"\nfloat4x3 P[2] : register(ps, c217)" + ps3, 2, kNoRoom},
        {"\nint4 P : register(ps, i15)" + ps3, 0, ""},        {"\nint4 P[2] : register(ps, i15)" + ps3, 2, kNoRoom},
        {"\nsampler2D P : register(vs, s3)" + vs3, 0, ""},    {"\nsampler2D P : register(vs, s4)" + vs3, 2, kNoRoom},
    };
    for (const BadSource& bad : cases) {
        std::string expected = bad.line ? "bad.fx:" + std::to_string(bad.line) + ": " + bad.message : "compiled";
        std::string error = compileError(bad.source);
        EXPECT_EQ(0u, error.find(expected)) << bad.source.substr(0, 80) << "\n  gave: " << error;
    }
}

// Each broken shader assembles under Wine but breaks one rule Direct3D 9 checks when the shader is
// created; its neighbour without a line stands exactly at the limit and compiles.
TEST(EffectCompilerDiagnostics, ShadersFollowTheRulesOfTheirModel) {
    const std::string ps2Adds = "ps_2_0\nmov r0, c0\n" + repeated("add r0, r0, c0\n", 62), vs2Slots = "vs_2_0\n" + repeated("nrm r1, c0\nlrp r2, r1, r1, c0\n", 51);
    const std::string ps3Adds = "ps_3_0\nmov r0, c0\n" + repeated("add r0, r0, c0\n", 510);
    std::string samples = "ps_2_0\ndcl t0\ndcl_2d s0\n";  // each r# written thrice at most: dependent to the second order
    for (int i = 0; i < 32; ++i) samples += "texld r" + std::to_string(i % 12) + ", t0, s0\n";
    const std::string loops = "vs_3_0\ndcl_position o0\ndefi i0, 2, 0, 1, 0\n" + repeated("loop aL, i0\n", 4);
    const std::string ifs = "vs_3_0\ndcl_position o0\ndefb b0, true\n" + repeated("if b0\n", 24), endifs = repeated("endif\n", 24) + "mov o0, c0";
    const std::string calls = "vs_2_0\ncall l0\nmov oPos, c0\nret\nlabel l0\n";
    const std::string chain = "ps_2_0\ndcl t0\ndcl_2d s0\ntexld r0, t0, s0\ntexld r1, r0, s0\ntexld r2, r1, s0\ntexld r3, r2, s0\n";
    // The line refused, 1 being the version (0: the shader compiles), and the rule it breaks.
    const struct { std::string shader; int line; const char* rule; } cases[] = {
        {"vs_1_1\nmov oPos, c0", 1, "shader model"},
        {"vs_3_0\ndcl_position o0\nmad r0, c1, c2, c3\nmov o0, r0", 3, "read ports: mad reads 3 different c# registers"},
        {"vs_3_0\ndcl_position o0\nmad r0, c1, c1, c1\nmov o0, r0", 0, ""},
        {"vs_2_0\nmad r0, c1, c1, c1\nmov oPos, r0", 2, "read ports: mad reads c# registers 3 times"},
        {"vs_2_0\ndcl_position v0\nmad r0, c1, c1, v0\nmov oPos, r0", 0, ""},
        {"vs_2_0\nsincos r0.xy, c2.x, c0, c1\nmov oPos, r0.xyyy", 0, ""},
        {"ps_2_0\ndcl v0\ndcl v1\nadd r0, v0, v1\nmov oC0, r0", 4, "read ports"},
        {"vs_2_0\n/* two\nlines */ mov oPos, c256", 3, "register range"},
        {"vs_2_0\nmov oPos, c255", 0, ""},
        {"ps_2_0\ndcl_2d s0\ntexld r0, t0, s0\nmov oC0, r0", 3, "declaration: t0 is read without a dcl"},
        {"ps_2_0\ndcl t0.xy\ndcl_cube s0\ntexld r0, t0, s0\nmov oC0, r0", 4, "declaration: texld reads t0.xyz"},
        {"vs_2_0\ndcl_position v0\nmov r0, v0\ndcl_normal v1\nmov oPos, r0", 4, "declaration"},
        {"vs_3_0\ndcl_position o0\nmov o1, c0", 3, "declaration"},
        {"vs_3_0\ndcl_texcoord0 o0\nmov o0, c0", 1, "declaration"},
        {ps2Adds + "mov oC0, r0", 0, ""},
        {ps2Adds + "add r0, r0, c0\nmov oC0, r0", 66, "instruction slots"},
        {samples + "mov oC0, r0", 0, ""},
        {samples + "texld r0, t0, s0\nmov oC0, r0", 36, "instruction slots"},
        {vs2Slots + "mov oPos, r2", 0, ""},
        {vs2Slots + "add r0, r2, c0\nmov oPos, r0", 105, "instruction slots"},
        {ps3Adds + "mov oC0, r0", 0, ""},
        {ps3Adds + "add r0, r0, c0\nmov oC0, r0", 514, "instruction slots"},
        {loops + repeated("endloop\n", 4) + "mov o0, c0", 0, ""},
        {loops + "loop aL, i0\n" + repeated("endloop\n", 5) + "mov o0, c0", 8, "flow control: loop and rep nested 5 deep"},
        {"vs_2_0\ndefi i0, 2, 0, 1, 0\nloop aL, i0\nloop aL, i0\nendloop\nendloop\nmov oPos, c0", 4, "flow control"},
        {ifs + endifs, 0, ""},
        {ifs + "if b0\nendif\n" + endifs, 28, "flow control: if nested 25 deep"},
        {"vs_2_0\n" + repeated("if b0\nendif\n", 8) + "mov oPos, c0", 0, ""},
        {"vs_2_0\n" + repeated("if b0\nelse\nendif\n", 8) + "if b0\nendif\nmov oPos, c0", 26, "flow control: static flow"},
        {calls + "ret", 0, ""},
        {calls + "call l1\nret\nlabel l1\nret", 2, "flow control: calls nest 2 deep"},
        {"vs_2_0\nmov oPos, c0\nlabel l0\nret", 3, "flow control"},
        {"vs_2_0\nelse\nmov oPos, c0", 2, "flow control"},
        {"vs_2_0\ndefi i0, 1, 0, 0, 0\nrep i0\nmov oPos, c[aL]\nendrep", 4, "flow control: aL is used outside a loop"},
        {"ps_3_0\ndcl_texcoord0 v0\ndefi i0, 1, 0, 0, 0\nloop aL, i0\nmov r0, v0[aL]\nendloop\nmov oC0, r0", 0, ""},
        {"ps_3_0\ndcl_texcoord0 v0\ndcl_2d s0\nmov r0, v0\nif_gt r0.x, v0.x\ntexld r1, r0, s0\nendif\nmov oC0, r1", 6, "flow control"},
        {"vs_2_0\ndcl_position v0\nmov r0, v0\nnrm r0, r0\nmov oPos, r0", 4, "operands: nrm cannot write r0"},
        {"vs_2_0\nrcp r0, c0.xy\nmov oPos, r0", 2, "operands"},
        {"ps_2_0\nmov r0, c0.xzyw\nmov oC0, r0", 2, "operands: ps_2_0 offers no arbitrary swizzles"},
        {"ps_2_0\nmov r0, c0.yzxw\nmov oC0, r0", 0, ""},
        {"vs_2_0\ndcl_position v0\nm4x4 r0, v0, c0\nm4x4 r0.xyz, r0, c4\nmov oPos, r0", 4, "operands"},
        {"vs_2_x\ndcl_position v0\nmov_sat oPos, v0", 3, "modifiers: _sat needs vs_3_0"},
        {"ps_3_0\nmov r0, -c0_abs\nadd r0, r0, c1\nmov oC0, r0", 3, "modifiers"},
        {"vs_2_0\nmov r0.xyz, c0\nmov oPos, r0", 3, "temporary registers: mov reads r0.w before"},
        {"vs_2_0\nmov r0.xyz, c0\nmov r1.xyw, c0\nlit r2, r1\nmov oPos, r0.xyzz", 0, ""},
        {"vs_2_0\ndcl_position v0\nmov r4, c0\nmov r5.xyz, c1\nm3x3 r0.xyz, v0, r4\nmov oPos, r0.xyzz", 5, "temporary registers: m3x3 reads r6.xyz"},
        {"vs_2_0\ncall l0\nmov oPos, r0\nret\nlabel l0\nmov r0, c0\nret", 0, ""},
        {chain + "mov oC0, r3", 0, ""},
        {chain + "texld r4, r3, s0\nmov oC0, r4", 8, "dependent reads: texld is a dependent read of order 4"},
        {"ps_2_0\ndcl t0\ndcl_2d s0\ntexld r0, t0, s0\ntexld r0, t0, s0\nadd r1, r0, c0\ntexld r1, t0, s0\n"
         "texld r2, r1, s0\ntexld r3, r2, s0\nmov oC0, r3", 9, "dependent reads"},
        {"ps_2_0\nadd oC0, c0, c0", 2, "outputs"},
        {"ps_2_x\nmov oC1, c0", 1, "outputs"},
        {"ps_3_0\nmov r0, c1\nif_gt r0.x, c0.x\nmov oC0, c0\nendif", 4, "outputs"},
    };
    for (const auto& c : cases) {
        bool pixel = c.shader[0] == 'p';
        std::string source = std::string("technique T { pass P { ") + (pixel ? "PixelShader" : "VertexShader") +
                             " = asm {\n" + c.shader + "\n}; } }";
        std::string expected = c.line ? "bad.fx:" + std::to_string(c.line + 1) + ": " + c.rule : "compiled";
        EXPECT_EQ(0u, compileError(source).find(expected)) << c.shader.substr(0, 120) << "\n  gave: " << compileError(source);
    }
}

// Symbolic state values are Direct3D's: each list counts up from its first value, or doubles for flags.
TEST(EffectCompilerDiagnostics, SymbolicStateValuesAreDirect3DValues) {
    using V = fxc::ValueKind;
    const struct { V kind; uint32_t first; bool flags; const char* names; } lists[] = {
        {V::Bool, FALSE, false, "FALSE TRUE"},
        {V::Compare, D3DCMP_NEVER, false, "NEVER LESS EQUAL LESSEQUAL GREATER NOTEQUAL GREATEREQUAL ALWAYS"},
        {V::Blend, D3DBLEND_ZERO, false, "ZERO ONE SRCCOLOR INVSRCCOLOR SRCALPHA INVSRCALPHA DESTALPHA INVDESTALPHA DESTCOLOR "
                                         "INVDESTCOLOR SRCALPHASAT BOTHSRCALPHA BOTHINVSRCALPHA BLENDFACTOR INVBLENDFACTOR"},
        {V::BlendOp, D3DBLENDOP_ADD, false, "ADD SUBTRACT REVSUBTRACT MIN MAX"},
        {V::Cull, D3DCULL_NONE, false, "NONE CW CCW"},
        {V::Fill, D3DFILL_POINT, false, "POINT WIREFRAME SOLID"},
        {V::Shade, D3DSHADE_FLAT, false, "FLAT GOURAUD PHONG"},
        {V::StencilOp, D3DSTENCILOP_KEEP, false, "KEEP ZERO REPLACE INCRSAT DECRSAT INVERT INCR DECR"},
        {V::Fog, D3DFOG_NONE, false, "NONE EXP EXP2 LINEAR"},
        {V::MaterialSource, D3DMCS_MATERIAL, false, "MATERIAL COLOR1 COLOR2"},
        {V::ColorWrite, D3DCOLORWRITEENABLE_RED, true, "RED GREEN BLUE ALPHA"},
        {V::TextureOp, D3DTOP_DISABLE, false, "DISABLE SELECTARG1 SELECTARG2 MODULATE MODULATE2X MODULATE4X ADD ADDSIGNED "
                                              "ADDSIGNED2X SUBTRACT ADDSMOOTH BLENDDIFFUSEALPHA BLENDTEXTUREALPHA BLENDFACTORALPHA "
                                              "BLENDTEXTUREALPHAPM BLENDCURRENTALPHA PREMODULATE MODULATEALPHA_ADDCOLOR "
                                              "MODULATECOLOR_ADDALPHA MODULATEINVALPHA_ADDCOLOR MODULATEINVCOLOR_ADDALPHA "
                                              "BUMPENVMAP BUMPENVMAPLUMINANCE DOTPRODUCT3 MULTIPLYADD LERP"},
        {V::TextureArg, D3DTA_DIFFUSE, false, "DIFFUSE CURRENT TEXTURE TFACTOR SPECULAR TEMP CONSTANT"},
        {V::TextureArg, D3DTA_COMPLEMENT, true, "COMPLEMENT ALPHAREPLICATE"},
        {V::TextureAddress, D3DTADDRESS_WRAP, false, "WRAP MIRROR CLAMP BORDER MIRRORONCE"},
        {V::TextureFilter, D3DTEXF_NONE, false, "NONE POINT LINEAR ANISOTROPIC"},
        {V::TextureFilter, D3DTEXF_PYRAMIDALQUAD, false, "PYRAMIDALQUAD GAUSSIANQUAD"},
        {V::TextureTransformFlags, D3DTTFF_DISABLE, false, "DISABLE COUNT1 COUNT2 COUNT3 COUNT4"},
        {V::TextureTransformFlags, D3DTTFF_PROJECTED, false, "PROJECTED"},
        {V::LightType, D3DLIGHT_POINT, false, "POINT SPOT DIRECTIONAL"},
    };
    for (const auto& list : lists) {
        std::istringstream names(list.names);
        uint32_t expected = list.first;
        for (std::string name; names >> name; expected = list.flags ? expected * 2 : expected + 1) {
            uint32_t value = 0xFFFFFFFF;
            EXPECT_TRUE(fxc::symbolicValue(list.kind, name, &value)) << name;
            EXPECT_EQ(expected, value) << name;
        }
    }
}

// The command line reaches the preprocessor: a wrong branch taken or a miscounted line after the
// include shows in the message of the failing run.
TEST(EffectCompilerTool, CompilesReportsAndLeavesNoOutputOnFailure) {
    std::string dir = vexiltest::outputDir();
    std::string good = dir + "\\tool_good.fx", bad = dir + "\\tool_bad.fx";
    std::string output = dir + "\\tool.fxo", includes = " -I " + dir + "\\fxc-include";
    CreateDirectoryA((dir + "\\fxc-include").c_str(), nullptr);
    writeText(dir + "\\fxc-include\\colours.fxh", "#define RED_LEVEL 0.5\nfloat4 FromHeader = { RED_LEVEL, 0, 0, 1 };\n");
    writeText(good, "#include <colours.fxh>\nfloat4 Colour = COLOUR_VALUE;\ntechnique T { pass { CullMode = NONE; } }\n");
    writeText(bad, "#include <colours.fxh>\n#if QUALITY > 1 && defined(QUALITY)\nfloat High = RED_LEVEL;\n"
                   "#elif QUALITY == 1\nmiddle\n#else\nlow\n#endif\n#ifndef QUALITY\nnever\n#endif\n"
                   "technique T { pass { CullMode = NONE } }\n");
    DeleteFileA(output.c_str());
    const std::string compileGood = good + " -o " + output + includes + " -DCOLOUR_VALUE=float4(1,0,0,1)";
    // A failed compile removes the stale output.
    const struct { std::string arguments; int exitCode; const char* says; bool leavesOutput; } runs[] = {
        {"", 2, "usage: vexil-fxc input.fx -o output.fxo", false},
        {compileGood, 0, "", true},
        {bad + " -o " + output + includes + " -D QUALITY=2", 1, "tool_bad.fx:12: expected ';' before '}'", false},
        {bad + " -o " + output + includes + " -DQUALITY", 1, "tool_bad.fx:5: unknown type 'middle'", false},
        {compileGood, 0, "", true},
        {dir + "\\absent.fx -o " + output, 1, "cannot open file", false},
    };
    for (const auto& run : runs) {
        std::pair<int, std::string> result = runTool(run.arguments);
        EXPECT_EQ(run.exitCode, result.first) << run.arguments.substr(0, 100);
        EXPECT_NE(std::string::npos, result.second.find(run.says)) << result.second;
        EXPECT_EQ(run.leavesOutput, vexiltest::fileExists(output)) << run.arguments.substr(0, 100);
    }
}
