// The chassis as its front looks: slots as boxes, or cards as lines.
#ifndef CGCTL_FRONT_PANEL_H
#define CGCTL_FRONT_PANEL_H

#include "screen_layout.h"

namespace cgctl
{

struct FrontPanel {
    Canvas canvas; // as high as it needs to be
    std::vector<CardPlace> places{};
};

// rows  how many lines of it can be seen at a time.
FrontPanel front_panel(const Screen &screen, std::size_t width, std::size_t rows);

} // namespace cgctl

#endif
