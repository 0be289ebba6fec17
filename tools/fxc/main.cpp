// vexil-fxc: compiles effect source (.fx, asm shaders) to fx_2_0 binaries (.fxo).
#include "Compiler.h"
#include <cstdio>
#include <fstream>

namespace {

const char kUsage[] =
    "usage: vexil-fxc input.fx -o output.fxo [-D NAME=VALUE]... [-I dir]...\n"
    "Compiles an effect file with asm shaders into an fx_2_0 effect binary.\n";

struct CommandLine {
    std::string input;
    std::string output;
    fxc::PreprocessorOptions options;
};

void addMacro(const std::string& definition, fxc::PreprocessorOptions& options) {
    size_t equals = definition.find('=');
    if (equals == std::string::npos) options.macros[definition] = "1";
    else options.macros[definition.substr(0, equals)] = definition.substr(equals + 1);
}

// Accepts "-X value" and "-Xvalue" forms; false on anything it does not understand.
bool parseCommandLine(int argc, char** argv, CommandLine& line) {
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg.size() >= 2 && arg[0] == '-' && (arg[1] == 'o' || arg[1] == 'D' || arg[1] == 'I')) {
            std::string value = arg.substr(2);
            if (value.empty()) {
                if (++i >= argc) return false;
                value = argv[i];
            }
            if (arg[1] == 'o') line.output = value;
            else if (arg[1] == 'D') addMacro(value, line.options);
            else line.options.includeDirs.push_back(value);
        } else if (!arg.empty() && arg[0] != '-' && line.input.empty()) {
            line.input = arg;
        } else {
            return false;
        }
    }
    return !line.input.empty() && !line.output.empty();
}

bool writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    return static_cast<bool>(out);
}

// A stale output would let the build go on with an old effect.
int fail(const std::string& output, const std::string& message) {
    std::remove(output.c_str());
    std::fprintf(stderr, "%s\n", message.c_str());
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    CommandLine line;
    if (argc < 2 || !parseCommandLine(argc, argv, line)) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    try {
        std::vector<uint8_t> binary = fxc::compileEffectFile(line.input, line.options);
        if (!writeFile(line.output, binary)) return fail(line.output, line.output + ":1: cannot write output file");
    } catch (const fxc::CompileError& error) {
        return fail(line.output, error.describe());
    } catch (const std::exception& error) {
        // Out of memory and the like: no line to point at, so the file's first.
        return fail(line.output, line.input + ":1: " + error.what());
    }
    return 0;
}
