#pragma once
#include "Options.h"

namespace vexilview {

class Session;

int runHeadless(const Options& options);
int renderFrames(Session& session);  // the headless loop on an opened session
int runWindow(const Options& options);
// Every X file under options.gallery, each drawn by a process of its own, into one web page.
int runGallery(const Options& options);

}  // namespace vexilview
