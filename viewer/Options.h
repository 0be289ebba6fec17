#pragma once
// The viewer's command line.
#include <string>
#include <vector>

namespace vexilview {

enum class SkinPath { Fixed, Effect };
enum class Lighting { Fixed, BlinnPhong };

struct Options {
    std::string scene;
    std::string textureDirectory;  // empty: the scene file's folder
    std::string k2mFile;           // empty: no frame list
    unsigned width = 640;
    unsigned height = 480;
    SkinPath skin = SkinPath::Fixed;
    bool textures = true;
    Lighting lighting = Lighting::Fixed;
    bool shadows = false;
    unsigned frames = 0;  // headless when set
    double fps = 30.0;
    std::string outputDirectory;
    bool verbose = false;
    std::string animation;  // a set's name or index; empty: the first the file defines
    bool once = false;      // play the set once and hold its last pose (else loop)
    double speed = 1.0;     // scene seconds a second
    bool info = false;      // describe the file, draw nothing
    std::string gallery;    // a folder whose X files become one web page in outputDirectory
    bool card = false;      // one file of a gallery: its preview and facts only
    double timeout = 30.0;  // seconds a gallery gives each file

    bool headless() const { return frames > 0; }
};

// Fills options from argv; returns an empty string, or what is wrong with the command line.
std::string parseOptions(const std::vector<std::string>& arguments, Options& options);
extern const char* const kUsage;

// Reads the "k:frameName" entries of a k2m file (one a line, blank lines skipped); returns an
// empty string, or what is wrong with the file.
std::string readFrameList(const std::string& path, std::vector<std::string>& entries);

}  // namespace vexilview
