#pragma once
// A sheet of evenly spaced frames, small enough to take in at a glance.
#include <Png.h>

#include <vector>

namespace vexilview {

class ContactSheet {
public:
    static const unsigned kColumns = 4;
    static const unsigned kMaxTiles = 12;

    explicit ContactSheet(unsigned frameCount);
    // Whether frame (1-based) is one of the sheet's; add it then.
    bool wants(unsigned frame) const;
    void add(const vexilsupport::Image& picture);
    vexilsupport::Image compose() const;

private:
    std::vector<unsigned> m_frames;
    std::vector<vexilsupport::Image> m_tiles;
};

}  // namespace vexilview
