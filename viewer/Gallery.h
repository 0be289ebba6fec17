#pragma once
// A gallery: every X file under a folder drawn headless, each by a process of its own with a time
// limit, into one static web page with a card per file saying what it holds and what is wrong
// with it.
#include "SceneReport.h"

#include <string>
#include <utility>
#include <vector>

namespace vexilview {

// What a card shows of a file that was drawn; the file's process writes it beside its preview.
struct Card {
    double loadMilliseconds = 0.0;
    unsigned triangles = 0, frames = 0, bones = 0;
    std::vector<std::pair<std::string, double>> sets;  // name, seconds
    std::vector<std::string> texturesFound, texturesMissing, warnings;
};

Card cardOf(const SceneReport& report, double loadMilliseconds);
bool writeCard(const std::string& path, const Card& card);
bool readCard(const std::wstring& path, Card& card);

enum class FileStatus { Shown, Warned, Refused, Crashed };

struct GalleryEntry {
    std::wstring file;
    std::string path;  // relative to the gallery's folder, '/' between names
    unsigned long long bytes = 0;
    std::string folder;  // of its preview and card, relative to the page
    FileStatus status = FileStatus::Crashed;
    std::string reason;    // why it was refused, crashed or stopped
    double seconds = 0.0;  // its process, from start to end
    bool preview = false;  // animation.png was written
    Card card;
};

// Every *.x file under root, in any case of the extension, sorted by path, each given its card
// folder.
std::vector<GalleryEntry> galleryFiles(const std::wstring& root);

// The page: a summary line counting each status, controls that sort and filter the cards, and
// a card per file. Static, with its style and script inside; previews are linked by relative path.
bool writeGalleryPage(const std::wstring& path, const std::string& folder, const std::vector<GalleryEntry>& entries,
                      double seconds);

}  // namespace vexilview
