// The chassis seen from the front: slots as boxes, or cards as lines.
#ifndef SCREEN_FRONT_PANEL_H
#define SCREEN_FRONT_PANEL_H

#include <optional>
#include <string>
#include <vector>

#include "records/position.h"
#include "screen/canvas.h"

namespace cg
{

// Texts here are as visible() made them.
struct ScreenCard {
    Position position{};
    std::string name{};
    std::string type{};
    std::string state{};
    Tone tone = Tone::plain;
    std::optional<double> share_left{}; // of the time to answer, 0 to 1
    std::string left{};                 // "212 s"
};

enum class Panel { automatic, boxes, lines };

struct Chassis {
    std::vector<ScreenCard> cards{}; // by position
    std::optional<Position> selected{};
    Panel panel = Panel::automatic;
};

// Where a card stands in the panel.
struct CardPlace {
    Position position{};
    std::size_t x = 0;
    std::size_t y = 0;
    std::size_t width = 0;
    std::size_t height = 0;
};

struct FrontPanel {
    Canvas canvas; // as high as it needs to be
    std::vector<CardPlace> places{};
};

// rows  how many lines of it can be seen at a time.
FrontPanel front_panel(const Chassis &chassis, std::size_t width, std::size_t rows);

// "█████░░░" in so many columns.
std::string bar(double share, std::size_t width);

} // namespace cg

#endif
