#include "ContactSheet.h"

#include <algorithm>

namespace vexilview {

namespace {

const unsigned kShrink = 4;     // tiles are a quarter of the picture in each direction
const unsigned kGap = 4;        // pixels between tiles and around the sheet
const uint32_t kPaper = 0xFF181818u;

}  // namespace

ContactSheet::ContactSheet(unsigned frameCount) {
    const unsigned tiles = std::min(frameCount, kMaxTiles);
    for (unsigned i = 0; i < tiles; ++i)
        m_frames.push_back(tiles == 1 ? 1 : 1 + (i * (frameCount - 1) + (tiles - 1) / 2) / (tiles - 1));
}

bool ContactSheet::wants(unsigned frame) const {
    return std::find(m_frames.begin(), m_frames.end(), frame) != m_frames.end();
}

void ContactSheet::add(const vexilsupport::Image& picture) { m_tiles.push_back(vexilsupport::shrink(picture, kShrink)); }

vexilsupport::Image ContactSheet::compose() const {
    vexilsupport::Image sheet;
    if (m_tiles.empty()) return sheet;
    const unsigned columns = std::min<unsigned>(kColumns, static_cast<unsigned>(m_tiles.size()));
    const unsigned rows = static_cast<unsigned>((m_tiles.size() + columns - 1) / columns);
    const unsigned tileWidth = m_tiles[0].width, tileHeight = m_tiles[0].height;
    sheet.width = kGap + columns * (tileWidth + kGap);
    sheet.height = kGap + rows * (tileHeight + kGap);
    sheet.pixels.assign(static_cast<size_t>(sheet.width) * sheet.height, kPaper);
    for (unsigned i = 0; i < m_tiles.size(); ++i) {
        const unsigned left = kGap + (i % columns) * (tileWidth + kGap);
        const unsigned top = kGap + (i / columns) * (tileHeight + kGap);
        for (unsigned y = 0; y < tileHeight; ++y)
            std::copy_n(&m_tiles[i].pixels[y * tileWidth], tileWidth, &sheet.pixels[(top + y) * sheet.width + left]);
    }
    return sheet;
}

}  // namespace vexilview
