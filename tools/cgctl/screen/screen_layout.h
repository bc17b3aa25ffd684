// Where everything stands on the live view's screen. A pure function from what there is to show and the size
// of the terminal to characters, so that it is tested without a terminal; watch_screen.cpp paints it.
//
// The chassis is drawn as a front panel: a box for each slot, its sub-slots inside, devices one below the
// other. Where the boxes would not all fit, each card is one line instead, since an operator looks for the
// one card that is wrong and should not have to scroll for it.
#ifndef SCREEN_SCREEN_LAYOUT_H
#define SCREEN_SCREEN_LAYOUT_H

#include <string>
#include <vector>

#include "records/position.h"
#include "screen/canvas.h"
#include "screen/front_panel.h"

namespace cg
{

struct ScreenEvent {
    std::string text{};
    Tone tone = Tone::plain;
};

struct Screen : Chassis {
    std::string title{};               // the first line
    bool alarm = false;                // the title says that the rest is out of date
    std::string prompt{};              // the last line, in place of the keys
    std::vector<ScreenEvent> events{}; // the newest last
    std::vector<std::string> popup{};  // over the panel; the first line is its title
    std::size_t scroll = 0; // the panel's first line shown; draw() moves it to where the selected one is
};

struct Drawn {
    Canvas canvas;
    std::vector<CardPlace> places{};
};

inline constexpr Size least_screen{40, 10};

// Draws all of it; on a terminal smaller than the least one only a word about that.
Drawn draw(Screen &screen, Size size);

// The card next to this one in a direction; this one when there is none.
Position neighbour(const std::vector<CardPlace> &places, const Position &from, int dx, int dy);

} // namespace cg

#endif
