// The chassis as its front looks: slots as boxes, or cards as lines.
#ifndef SCREEN_FRONT_PANEL_H
#define SCREEN_FRONT_PANEL_H

#include "screen/screen_layout.h"

namespace cg
{

struct FrontPanel {
    Canvas canvas; // as high as it needs to be
    std::vector<CardPlace> places{};
};

// rows  how many lines of it can be seen at a time.
FrontPanel front_panel(const Screen &screen, std::size_t width, std::size_t rows);

} // namespace cg

#endif
