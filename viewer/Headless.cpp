// Headless mode: N pictures at F frames a second of scene time, drawn off-screen and written as
// DIR/frame_0001.png ..., then the contact sheet, the animated preview and a summary. --info
// loads the file the same way and describes it instead.
#include "ContactSheet.h"
#include "Gallery.h"
#include "Modes.h"
#include "Session.h"

#include <io.h>

#include <algorithm>
#include <cstdio>

namespace vexilview {

namespace {

std::string frameFileName(const std::string& directory, unsigned frame) {
    char name[32];
    std::snprintf(name, sizeof name, "frame_%04u.png", frame);
    return directory + "\\" + name;
}

// The animated preview stays small: at most this many frames, at most about this many pixels on
// its longer side, and six bits a colour channel (the low bits of a textured floor's noise cost
// more than the rest of the picture).
const unsigned kPreviewFrames = 24;
const unsigned kPreviewSide = 240;
const uint32_t kPreviewBits = 0xFFFCFCFCu;

// Every step-th frame of the run goes into the preview, shrunk by a whole factor.
class Preview {
public:
    explicit Preview(const Options& o)
        : m_step((o.frames + kPreviewFrames - 1) / kPreviewFrames),
          m_shrink((std::max(o.width, o.height) + kPreviewSide / 2) / kPreviewSide),
          m_png(static_cast<unsigned>(m_step * 1000.0 / o.fps + 0.5)) {}
    bool wants(unsigned frame) const { return (frame - 1) % m_step == 0; }
    bool add(const vexilsupport::Image& picture) {
        vexilsupport::Image small = vexilsupport::shrink(picture, std::max(1u, m_shrink));
        for (uint32_t& p : small.pixels) p &= kPreviewBits;
        return m_png.add(small);
    }
    bool write(const std::string& path) const { return m_png.write(path); }

private:
    unsigned m_step, m_shrink;
    vexilsupport::AnimatedPng m_png;
};

struct FrameTimes {
    double total = 0.0, worst = 0.0;
    void add(double seconds) {
        total += seconds;
        worst = std::max(worst, seconds);
    }
};

bool onTerminal() {
    static const bool terminal = _isatty(_fileno(stdout)) != 0;
    return terminal;
}

// On a terminal one line rewritten each frame; into a file or pipe a line at every tenth.
void reportProgress(unsigned frame, unsigned frames) {
    if (onTerminal()) {
        std::printf("\rvexil-view: frame %u/%u", frame, frames);
    } else if (frame == frames || frame * 10 / frames != (frame - 1) * 10 / frames) {
        std::printf("vexil-view: frame %u/%u\n", frame, frames);
    }
    std::fflush(stdout);
}

// One frame: the scene advanced to it, drawn, read back and written; its time goes to times.
bool drawAndWrite(Session& session, const OffscreenTarget& target, unsigned frame, ContactSheet& sheet,
                  Preview& preview, FrameTimes& times) {
    const Options& o = session.options();
    const double start = secondsNow();
    session.scene().step(frame == 1 ? 0.0 : 1.0 / o.fps);
    session.scene().placeCamera(Orbit());
    vexilsupport::Image picture;
    if (!session.renderer().draw(session.device().holder(), o.skin, session.textures()) ||
        !target.readBack(session.device().get(), picture)) {
        complain("frame " + std::to_string(frame) + " could not be drawn");
        return false;
    }
    times.add(secondsNow() - start);
    if (!o.card && !vexilsupport::writePng(frameFileName(o.outputDirectory, frame), picture)) {
        complain("cannot write " + frameFileName(o.outputDirectory, frame));
        return false;
    }
    if (sheet.wants(frame) && !o.card) sheet.add(picture);
    if (preview.wants(frame)) preview.add(picture);
    return true;
}

// The contact sheet and the preview, or for a gallery the preview and the card.
bool writeSummaryFiles(const Session& session, const ContactSheet& sheet, const Preview& preview) {
    const Options& o = session.options();
    if (!preview.write(o.outputDirectory + "\\animation.png")) return false;
    if (o.card) return writeCard(o.outputDirectory + "\\card.txt", cardOf(session.report(), session.loadMilliseconds()));
    return vexilsupport::writePng(o.outputDirectory + "\\contact.png", sheet.compose());
}

void printSummary(const Session& session, const FrameTimes& times) {
    const Options& o = session.options();
    const unsigned triangles = session.scene().triangleCount();
    std::printf("%svexil-view: %u frames of %ux%u, %s written to %s\n", onTerminal() ? "\n" : "", o.frames, o.width,
                o.height, o.card ? "animation.png and card.txt" : "contact.png and animation.png", o.outputDirectory.c_str());
    std::printf("vexil-view: load %.1f ms, %u frames, frame time average %.2f ms, worst %.2f ms, "
                "%u triangles a frame (%llu drawn)\n",
                session.loadMilliseconds(), o.frames, times.total * 1000.0 / o.frames, times.worst * 1000.0, triangles,
                static_cast<unsigned long long>(triangles) * o.frames);
    for (const std::string& warning : session.report().warnings) std::printf("vexil-view: warning: %s\n", warning.c_str());
}

}  // namespace

int runHeadless(const Options& options) {
    HWND window = createViewerWindow(64, 64, false, nullptr);
    int code = kExitFailure;
    {
        Session session(options);
        code = session.open(window, false);
        if (code == kExitOk && options.info) printReport(stdout, options.scene, session.report());
        else if (code == kExitOk) code = renderFrames(session);
    }
    DestroyWindow(window);
    return code;
}

int renderFrames(Session& session) {
    const Options& o = session.options();
    IDirect3DDevice9* device = session.device().get();
    OffscreenTarget target;
    const HRESULT created = target.create(device, o.width, o.height);
    if (FAILED(created)) {
        complain("the device refuses a " + std::to_string(o.width) + "x" + std::to_string(o.height) + " picture");
        return kExitRefused;
    }
    if (!createDirectories(widen(o.outputDirectory))) {
        complain("cannot create the output directory " + o.outputDirectory);
        return kExitFailure;
    }
    std::printf("vexil-view: %s, loaded in %.1f ms\n", session.describe().c_str(), session.loadMilliseconds());
    target.bind(device);
    ContactSheet sheet(o.frames);
    Preview preview(o);
    FrameTimes times;
    for (unsigned frame = 1; frame <= o.frames; ++frame) {
        if (!drawAndWrite(session, target, frame, sheet, preview, times)) return kExitFailure;
        reportProgress(frame, o.frames);
    }
    if (!writeSummaryFiles(session, sheet, preview)) {
        complain("cannot write the contact sheet, the animated preview or the card into " + o.outputDirectory);
        return kExitFailure;
    }
    printSummary(session, times);
    return kExitOk;
}

}  // namespace vexilview
