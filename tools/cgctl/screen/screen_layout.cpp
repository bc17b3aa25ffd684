// Where everything stands on the live view's screen.
#include "screen/screen_layout.h"

#include <algorithm>
#include <cstdlib>

namespace cg
{

namespace
{

constexpr const char *keys =
    "q quit  arrows select  Enter detail  f filter  / search  p pause  v view  ? help";
constexpr std::size_t least_events = 3;
constexpr std::size_t most_events = 12;

// The title, a line between panel and events, the keys.
constexpr std::size_t fixed_lines = 3;

void draw_popup(Canvas &canvas, const std::vector<std::string> &lines, std::size_t rows)
{
    std::size_t inner = 0;
    for (const std::string &line : lines) {
        inner = std::max(inner, columns_of(line));
    }
    inner = std::min(inner, canvas.size().width - 4);
    const std::size_t height = std::min(lines.size() + 1, rows);
    const std::size_t x = (canvas.size().width - inner - 4) / 2;
    const std::string blank(inner + 4, ' ');
    for (std::size_t i = 0; i < height; ++i) {
        const bool is_last = i + 1 == height;
        canvas.put(x, 1 + i, blank, inner + 4, Tone::plain, true);
        if (!is_last) {
            const bool more_below = i + 2 == height && i + 1 < lines.size();
            canvas.put(x + 2, 1 + i, more_below ? "…" : lines[i], inner, i == 0 ? Tone::heading : Tone::plain,
                       true);
        }
    }
}

void draw_events(Canvas &canvas, const std::vector<ScreenEvent> &events, std::size_t y, std::size_t rows)
{
    const std::size_t width = canvas.size().width;
    std::string line;
    for (std::size_t i = 0; i < width; ++i) {
        line += "─";
    }
    canvas.put(0, y, line, width, Tone::quiet);
    canvas.put(2, y, " events ", width, Tone::quiet);
    const std::size_t first = events.size() > rows ? events.size() - rows : 0;
    for (std::size_t i = first; i < events.size(); ++i) {
        canvas.put(0, y + 1 + i - first, events[i].text, width, events[i].tone);
    }
}

// The scroll that shows the selected card, as near to the present one as can be.
std::size_t scrolled(const Screen &screen, const std::vector<CardPlace> &places, std::size_t height,
                     std::size_t rows)
{
    std::size_t scroll = std::min(screen.scroll, height > rows ? height - rows : 0);
    for (const CardPlace &place : places) {
        if (screen.selected != place.position) {
            continue;
        }
        if (place.y + place.height > scroll + rows) {
            scroll = place.y + place.height - rows;
        }
        // The line above belongs to it: a device's heading, or a box's border.
        scroll = std::min(scroll, place.y == 0 ? 0 : place.y - 1);
    }
    return scroll;
}

} // namespace

Drawn draw(Screen &screen, Size size)
{
    Drawn drawn{Canvas(size)};
    Canvas &canvas = drawn.canvas;
    if (size.width < least_screen.width || size.height < least_screen.height) {
        canvas.put(0, 0, "This terminal is too small:", size.width);
        canvas.put(0, 1, "40x10 at least. q quits.", size.width);
        return drawn;
    }
    const std::size_t events = std::clamp((size.height - fixed_lines) / 4, least_events, most_events);
    const std::size_t rows = size.height - fixed_lines - events;
    FrontPanel panel = front_panel(screen, size.width, rows);
    drawn.places = std::move(panel.places);
    screen.scroll = scrolled(screen, drawn.places, panel.canvas.size().height, rows);
    for (std::size_t i = 0; i < rows && screen.scroll + i < panel.canvas.size().height; ++i) {
        canvas.copy_line(panel.canvas, screen.scroll + i, 1 + i);
    }
    const Tone title = screen.alarm ? Tone::bad : Tone::heading;
    canvas.put(0, 0, std::string(size.width, ' '), size.width, title, true);
    canvas.put(0, 0, screen.title, size.width, title, true);
    if (screen.cards.empty()) {
        canvas.put(2, 2, "no cards", size.width - 2, Tone::quiet);
    }
    draw_events(canvas, screen.events, 1 + rows, events);
    canvas.put(0, size.height - 1, screen.prompt.empty() ? keys : screen.prompt, size.width, Tone::quiet);
    if (!screen.popup.empty()) {
        draw_popup(canvas, screen.popup, rows);
    }
    return drawn;
}

Position neighbour(const std::vector<CardPlace> &places, const Position &from, int dx, int dy)
{
    const auto start = std::find_if(places.begin(), places.end(),
                                    [&](const CardPlace &place) { return place.position == from; });
    if (start == places.end()) {
        return places.empty() ? from : places.front().position;
    }
    Position best = from;
    int64_t best_distance = INT64_MAX;
    for (const CardPlace &place : places) {
        const auto across = static_cast<int64_t>(place.x) - static_cast<int64_t>(start->x);
        const auto down = static_cast<int64_t>(place.y) - static_cast<int64_t>(start->y);
        const int64_t along = across * dx + down * dy;
        // What is straight ahead comes before what is near but aside.
        const int64_t aside = std::abs(across * dy) + std::abs(down * dx);
        const int64_t distance = along + 4 * aside;
        if (along > 0 && distance < best_distance) {
            best_distance = distance;
            best = place.position;
        }
    }
    return best;
}

} // namespace cg
