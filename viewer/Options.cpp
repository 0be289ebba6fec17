#include "Options.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace vexilview {

const char* const kUsage =
    "usage: vexil-view SCENE.x [--textures DIR] [--k2m FILE] [--size WxH] [--skin fixed|effect]\n"
    "                  [--no-textures] [--lighting fixed|blinn-phong] [--shadows] [--verbose]\n"
    "                  [--animation NAME|INDEX] [--once] [--speed F]\n"
    "                  [--frames N [--fps F] --out DIR]   (--fps: 30 unless given)\n"
    "       vexil-view --info SCENE.x [--textures DIR] [--k2m FILE]\n"
    "       vexil-view --gallery DIR --out OUT [--size WxH] [--frames N] [--fps F] [--timeout S]\n"
    "                  (every X file under DIR drawn into one web page, OUT/index.html)\n"
    "Without --frames it opens a window: drag to orbit, wheel to zoom, space pauses,\n"
    "[ and ] step through the animation sets, S switches the skin path, T textures,\n"
    "L lighting, Esc quits.\n";

namespace {

bool parseUnsigned(const std::string& text, unsigned& value) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 9) return false;
    value = static_cast<unsigned>(std::strtoul(text.c_str(), nullptr, 10));
    return true;
}

bool parseSize(const std::string& text, unsigned& width, unsigned& height) {
    const size_t x = text.find_first_of("xX");
    return x != std::string::npos && parseUnsigned(text.substr(0, x), width) &&
           parseUnsigned(text.substr(x + 1), height) && width > 0 && height > 0;
}

bool parseRate(const std::string& text, double& rate) {
    char* end = nullptr;
    rate = std::strtod(text.c_str(), &end);
    return !text.empty() && *end == '\0' && rate > 0.0 && rate <= 1000.0;
}

// What a gallery draws of each file unless told otherwise: three seconds, small.
const unsigned kGalleryFrames = 24, kGalleryWidth = 240, kGalleryHeight = 180;
const double kGalleryFps = 8.0;

// Options that take a value: what each does with it, or the complaint when the value is bad.
std::string applyValue(const std::string& option, const std::string& value, Options& o) {
    if (option == "--textures") o.textureDirectory = value;
    else if (option == "--k2m") o.k2mFile = value;
    else if (option == "--out") o.outputDirectory = value;
    else if (option == "--size") {
        if (!parseSize(value, o.width, o.height)) return "--size wants WIDTHxHEIGHT, got '" + value + "'";
    } else if (option == "--frames") {
        if (!parseUnsigned(value, o.frames) || o.frames == 0) return "--frames wants a positive count, got '" + value + "'";
    } else if (option == "--fps" || option == "--speed" || option == "--timeout") {
        double& rate = option == "--fps" ? o.fps : option == "--speed" ? o.speed : o.timeout;
        if (!parseRate(value, rate)) return option + " wants a number above 0, got '" + value + "'";
    } else if (option == "--animation") {
        o.animation = value;
    } else if (option == "--gallery") {
        o.gallery = value;
    } else if (option == "--skin") {
        if (value != "fixed" && value != "effect") return "--skin is fixed or effect, got '" + value + "'";
        o.skin = value == "fixed" ? SkinPath::Fixed : SkinPath::Effect;
    } else if (option == "--lighting") {
        if (value != "fixed" && value != "blinn-phong") return "--lighting is fixed or blinn-phong, got '" + value + "'";
        o.lighting = value == "fixed" ? Lighting::Fixed : Lighting::BlinnPhong;
    } else {
        return "unknown option " + option;
    }
    return "";
}

bool takesValue(const std::string& option) {
    static const char* const valued[] = {"--textures", "--k2m",   "--size",      "--skin",    "--lighting", "--frames",
                                         "--fps",      "--out",   "--animation", "--speed",   "--gallery",  "--timeout"};
    for (const char* name : valued)
        if (option == name) return true;
    return false;
}

bool contains(const std::vector<std::string>& given, const char* option) {
    return std::find(given.begin(), given.end(), option) != given.end();
}

// A gallery draws every file headless, small unless told otherwise.
std::string checkGallery(Options& o, const std::vector<std::string>& given) {
    auto has = [&](const char* option) { return contains(given, option); };
    if (!o.scene.empty()) return "--gallery takes a folder, not a scene file";
    if (o.outputDirectory.empty()) return "--gallery needs --out";
    if (o.info || o.card) return "--gallery draws every file: no --info";
    if (!o.animation.empty()) return "--animation names a set of one file: not with --gallery";
    if (!has("--frames")) o.frames = kGalleryFrames;
    if (!has("--fps")) o.fps = kGalleryFps;
    if (!has("--size")) o.width = kGalleryWidth, o.height = kGalleryHeight;
    return "";
}

std::string checkCombination(Options& o, const std::vector<std::string>& given) {
    auto has = [&](const char* option) { return contains(given, option); };
    if (!o.gallery.empty()) return checkGallery(o, given);
    if (o.scene.empty()) return "no scene file given";
    if (has("--timeout")) return "--timeout needs --gallery";
    if (o.info && (o.headless() || !o.outputDirectory.empty())) return "--info draws nothing: no --frames or --out";
    if (o.headless() != !o.outputDirectory.empty()) return "--frames and --out go together";
    if (has("--fps") && !o.headless()) return "--fps needs --frames";
    if (o.card && !o.headless()) return "--card needs --frames and --out";
    return "";
}

}  // namespace

std::string parseOptions(const std::vector<std::string>& arguments, Options& o) {
    std::vector<std::string> given;
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& a = arguments[i];
        if (a == "--no-textures") o.textures = false;
        else if (a == "--shadows") o.shadows = true;
        else if (a == "--verbose") o.verbose = true;
        else if (a == "--once") o.once = true;
        else if (a == "--info") o.info = true;
        else if (a == "--card") o.card = true;
        else if (takesValue(a)) {
            if (i + 1 == arguments.size()) return a + " needs a value";
            given.push_back(a);
            const std::string problem = applyValue(a, arguments[++i], o);
            if (!problem.empty()) return problem;
        } else if (a.size() > 1 && a[0] == '-') {
            return "unknown option " + a;
        } else if (o.scene.empty()) {
            o.scene = a;
        } else {
            return "one scene file only, got '" + o.scene + "' and '" + a + "'";
        }
    }
    return checkCombination(o, given);
}

std::string readFrameList(const std::string& path, std::vector<std::string>& entries) {
    std::ifstream in(path);
    if (!in) return "cannot read the frame list " + path;
    std::string line;
    for (unsigned number = 1; std::getline(in, line); ++number) {
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) line.pop_back();
        if (line.empty()) continue;
        const size_t colon = line.find(':');
        unsigned index = 0;
        if (colon == std::string::npos || line.find(':', colon + 1) != std::string::npos ||
            !parseUnsigned(line.substr(0, colon), index) || colon + 1 == line.size())
            return path + ":" + std::to_string(number) + ": not a 'k:frameName' entry: " + line;
        entries.push_back(line);
    }
    return "";
}

}  // namespace vexilview
