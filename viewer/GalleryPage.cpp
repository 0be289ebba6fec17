// The gallery's page: one static HTML file with its style and script inside, a card per file.
#include "Gallery.h"

#include <windows.h>

#include <cstdio>
#include <sstream>

namespace vexilview {

namespace {

struct StatusLook {
    const char* key;    // the card's data-status, the filter's value
    const char* label;  // what the page calls it
};
const StatusLook kStatuses[] = {
    {"shown", "shown"}, {"warned", "shown with warnings"}, {"refused", "refused"}, {"crashed", "crashed or timed out"}};

const StatusLook& lookOf(FileStatus status) { return kStatuses[static_cast<int>(status)]; }

const char* const kStyle = R"(
body { margin: 0; font: 14px/1.4 system-ui, sans-serif; background: #1d2129; color: #dde3ea; }
header { padding: 16px 24px; background: #272c36; border-bottom: 1px solid #3a404c; }
h1 { margin: 0 0 6px; font-size: 20px; font-weight: 600; }
h1 code { font-size: 16px; color: #a9b4c2; }
.summary { margin: 0 0 10px; }
.summary b { font-weight: 600; }
nav { display: flex; flex-wrap: wrap; gap: 6px; align-items: center; }
nav button, nav select { font: inherit; color: inherit; background: #343a46; border: 1px solid #4a5160;
  border-radius: 4px; padding: 3px 10px; cursor: pointer; }
nav button.on { background: #4d6a9a; border-color: #6d8ac0; }
nav .gap { width: 16px; }
main { display: grid; grid-template-columns: repeat(auto-fill, minmax(240px, 1fr)); gap: 16px; padding: 20px 24px; }
.card { background: #272c36; border: 1px solid #3a404c; border-top: 4px solid; border-radius: 6px; overflow: hidden; }
.card[hidden] { display: none; }
.shown { border-top-color: #4caf6e; } .warned { border-top-color: #e0a83a; }
.refused { border-top-color: #d9534f; } .crashed { border-top-color: #a065d0; }
.preview { display: block; width: 100%; aspect-ratio: 4 / 3; object-fit: contain; background: #2e3440; }
.nopreview { display: flex; align-items: center; justify-content: center; aspect-ratio: 4 / 3; background: #2e3440;
  color: #8a93a3; font-size: 18px; }
.body { padding: 10px 12px 12px; }
h2 { margin: 0 0 4px; font-size: 14px; font-weight: 600; word-break: break-all; }
.badge { display: inline-block; font-size: 12px; padding: 1px 8px; border-radius: 9px; color: #1d2129; font-weight: 600; }
.badge.shown { background: #4caf6e; } .badge.warned { background: #e0a83a; }
.badge.refused { background: #d9534f; } .badge.crashed { background: #a065d0; }
.reason { margin: 6px 0 0; color: #f0b9b7; overflow-wrap: anywhere; }
dl { display: grid; grid-template-columns: auto 1fr; gap: 1px 10px; margin: 8px 0 0; font-size: 13px; }
dt { color: #8a93a3; } dd { margin: 0; word-break: break-word; }
.missing { color: #f0b9b7; }
ul { margin: 8px 0 0; padding-left: 18px; font-size: 13px; color: #f2d39b; overflow-wrap: anywhere; }
)";

// Sorting and filtering; without scripts the page still shows every card in path order.
const char* const kScript = R"(
const main = document.querySelector('main');
const cards = Array.from(main.children);
const rank = { crashed: 0, refused: 1, warned: 2, shown: 3 };
let shown = 'all';
function update() {
  const key = document.getElementById('sort').value;
  const order = (a, b) => key === 'path' ? a.dataset.path.localeCompare(b.dataset.path)
    : key === 'status' ? rank[a.dataset.status] - rank[b.dataset.status] || a.dataset.path.localeCompare(b.dataset.path)
    : Number(b.dataset[key]) - Number(a.dataset[key]);
  for (const card of cards.slice().sort(order)) {
    card.hidden = shown !== 'all' && card.dataset.status !== shown;
    main.appendChild(card);
  }
  for (const button of document.querySelectorAll('nav button')) button.classList.toggle('on', button.value === shown);
}
for (const button of document.querySelectorAll('nav button'))
  button.addEventListener('click', () => { shown = button.value; update(); });
document.getElementById('sort').addEventListener('change', update);
update();
)";

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
        case '&': out += "&amp;"; break;
        case '<': out += "&lt;"; break;
        case '>': out += "&gt;"; break;
        case '"': out += "&quot;"; break;
        case '\'': out += "&#39;"; break;
        default: out += c;
        }
    }
    return out;
}

// The messages name files by their full path; on the page the gallery's folder goes without saying.
std::string withinFolder(std::string text, const std::string& folder) {
    const std::string prefix = folder + "\\";
    for (size_t at; (at = text.find(prefix)) != std::string::npos;) text.erase(at, prefix.size());
    return text;
}

std::string fileSize(unsigned long long bytes) {
    char text[32];
    if (bytes < 1024) std::snprintf(text, sizeof text, "%llu bytes", bytes);
    else if (bytes < 1024 * 1024) std::snprintf(text, sizeof text, "%.1f KiB", bytes / 1024.0);
    else std::snprintf(text, sizeof text, "%.1f MiB", bytes / (1024.0 * 1024.0));
    return text;
}

std::string joined(const std::vector<std::string>& items) {
    std::string out;
    for (const std::string& item : items) out += (out.empty() ? "" : ", ") + escaped(item);
    return out;
}

void fact(std::ostream& out, const char* name, const std::string& html) { out << "<dt>" << name << "</dt><dd>" << html << "</dd>"; }

void writeFacts(std::ostream& out, const GalleryEntry& e) {
    const Card& c = e.card;
    char number[64];
    out << "<dl>";
    fact(out, "size", fileSize(e.bytes));
    if (e.status == FileStatus::Shown || e.status == FileStatus::Warned) {
        fact(out, "triangles", std::to_string(c.triangles));
        fact(out, "frames", std::to_string(c.frames));
        fact(out, "bones", std::to_string(c.bones));
        std::string sets;
        for (const auto& set : c.sets) {
            std::snprintf(number, sizeof number, " %.2f&nbsp;s", set.second);
            sets += (sets.empty() ? "" : ", ") + escaped(set.first.empty() ? "(nameless)" : set.first) + number;
        }
        fact(out, "animation", sets.empty() ? "none" : sets);
        std::string textures = c.texturesFound.empty() ? "" : joined(c.texturesFound);
        if (!c.texturesMissing.empty())
            textures += (textures.empty() ? "" : "; ") + std::string("<span class=\"missing\">missing: ") + joined(c.texturesMissing) + "</span>";
        fact(out, "textures", textures.empty() ? "none" : textures);
        std::snprintf(number, sizeof number, "%.0f ms", c.loadMilliseconds);
        fact(out, "load", number);
    }
    std::snprintf(number, sizeof number, "%.1f s", e.seconds);
    fact(out, "drawn in", number);
    out << "</dl>";
}

void writeCardHtml(std::ostream& out, const GalleryEntry& e, const std::string& folder) {
    const StatusLook& look = lookOf(e.status);
    out << "<article class=\"card " << look.key << "\" data-status=\"" << look.key << "\" data-path=\"" << escaped(e.path)
        << "\" data-triangles=\"" << e.card.triangles << "\" data-load=\"" << e.card.loadMilliseconds << "\" data-size=\""
        << e.bytes << "\">\n";
    if (e.preview) {
        out << "<img class=\"preview\" src=\"" << escaped(e.folder) << "/animation.png\" alt=\"" << escaped(e.path) << "\">\n";
    } else {
        out << "<div class=\"nopreview\">" << look.label << "</div>\n";
    }
    out << "<div class=\"body\"><h2>" << escaped(e.path) << "</h2><span class=\"badge " << look.key << "\">" << look.label
        << "</span>\n";
    if (!e.reason.empty()) out << "<p class=\"reason\">" << escaped(withinFolder(e.reason, folder)) << "</p>\n";
    writeFacts(out, e);
    if (!e.card.warnings.empty()) {
        out << "<ul>";
        for (const std::string& w : e.card.warnings) out << "<li>" << escaped(withinFolder(w, folder)) << "</li>";
        out << "</ul>";
    }
    out << "</div></article>\n";
}

void writeHeader(std::ostream& out, const std::string& folder, const std::vector<GalleryEntry>& entries, double seconds) {
    size_t counts[4] = {0, 0, 0, 0};
    for (const GalleryEntry& e : entries) ++counts[static_cast<int>(e.status)];
    out << "<header><h1>X files in <code>" << escaped(folder) << "</code></h1>\n<p class=\"summary\" id=\"summary\"><b>"
        << entries.size() << " files</b>: ";
    for (int s = 0; s < 4; ++s)
        out << (s ? ", " : "") << "<span class=\"" << kStatuses[s].key << "\" data-count=\"" << counts[s] << "\">" << counts[s]
            << " " << kStatuses[s].label << "</span>";
    char time[32];
    std::snprintf(time, sizeof time, "%.1f", seconds);
    out << " &middot; drawn by vexil-view in " << time << " s</p>\n<nav>Show <button value=\"all\">all</button>";
    for (const StatusLook& look : kStatuses) out << "<button value=\"" << look.key << "\">" << look.label << "</button>";
    out << "<span class=\"gap\"></span>Sort by <select id=\"sort\"><option value=\"path\">path</option>"
           "<option value=\"status\">status</option><option value=\"triangles\">triangles</option>"
           "<option value=\"load\">load time</option><option value=\"size\">size</option></select></nav></header>\n";
}

}  // namespace

bool writeGalleryPage(const std::wstring& path, const std::string& folder, const std::vector<GalleryEntry>& entries,
                      double seconds) {
    std::ostringstream out;
    out << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n<title>X files in " << escaped(folder)
        << "</title>\n<style>" << kStyle << "</style></head>\n<body>\n";
    writeHeader(out, folder, entries, seconds);
    out << "<main>\n";
    for (const GalleryEntry& e : entries) writeCardHtml(out, e, folder);
    out << "</main>\n<script>" << kScript << "</script>\n</body></html>\n";
    const std::string page = out.str();
    FILE* f = _wfopen(path.c_str(), L"wb");
    if (!f) return false;
    const bool written = std::fwrite(page.data(), 1, page.size(), f) == page.size();
    return std::fclose(f) == 0 && written;
}

}  // namespace vexilview
