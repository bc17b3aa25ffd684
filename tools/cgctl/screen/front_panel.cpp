// The chassis seen from the front.
//
// Every position is first placed, then drawn: the places are what the arrow keys move over, too.
#include "screen/front_panel.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace cg
{

namespace
{

constexpr std::size_t least_box = 24;
constexpr std::size_t widest_box = 40;
constexpr std::size_t least_line = 38;
constexpr std::size_t bar_in_line = 6;

using Cards = std::vector<const ScreenCard *>;

struct Heading {
    std::size_t y;
    std::string text;
};

struct Box {
    std::size_t x;
    std::size_t y;
    std::size_t width;
    std::size_t height;
    std::string title;
};

struct Plan {
    std::size_t height = 0;
    std::vector<Heading> headings{};
    std::vector<Box> boxes{};
    std::vector<CardPlace> places{}; // one for each card, in the cards' order
};

std::map<int32_t, Cards> by_device(const std::vector<ScreenCard> &cards)
{
    std::map<int32_t, Cards> devices;
    for (const ScreenCard &card : cards) {
        devices[card.position.devid].push_back(&card);
    }
    return devices;
}

std::string heading_of(int32_t device, std::size_t count)
{
    return "device " + std::to_string(device) + ": " + std::to_string(count) +
           (count == 1 ? " card" : " cards");
}

// Name, state and bar; in a sub-slot name and state, and a bar only where time runs.
std::size_t height_in_box(const ScreenCard &card)
{
    return card.position.sslotid == 0 || card.share_left ? 3 : 2;
}

// The cards of each slot, in their order.
std::vector<Cards> by_slot(const Cards &cards)
{
    std::vector<Cards> slots;
    for (const ScreenCard *card : cards) {
        if (slots.empty() || slots.back().front()->position.slotid != card->position.slotid) {
            slots.emplace_back();
        }
        slots.back().push_back(card);
    }
    return slots;
}

std::size_t height_of_box(const Cards &slot)
{
    std::size_t height = 2; // the borders
    for (const ScreenCard *card : slot) {
        height += height_in_box(*card);
    }
    return height;
}

void plan_box(Plan &plan, const Cards &slot, const Box &box)
{
    plan.boxes.push_back(box);
    std::size_t y = box.y + 1;
    for (const ScreenCard *card : slot) {
        plan.places.push_back({card->position, box.x + 1, y, box.width - 2, height_in_box(*card)});
        y += height_in_box(*card);
    }
}

Plan plan_boxes(const Chassis &chassis, std::size_t width)
{
    Plan plan;
    const std::size_t columns = width / least_box;
    const std::size_t box_width = std::min(width / columns, widest_box);
    for (const auto &[device, cards] : by_device(chassis.cards)) {
        plan.headings.push_back({plan.height++, heading_of(device, cards.size())});
        const std::vector<Cards> slots = by_slot(cards);
        for (std::size_t first = 0; first < slots.size(); first += columns) {
            const std::size_t end = std::min(first + columns, slots.size());
            std::size_t height = 0;
            for (std::size_t i = first; i < end; ++i) {
                height = std::max(height, height_of_box(slots[i]));
            }
            for (std::size_t i = first; i < end; ++i) {
                const std::string title = "slot " + std::to_string(slots[i].front()->position.slotid);
                plan_box(plan, slots[i], {(i - first) * box_width, plan.height, box_width, height, title});
            }
            plan.height += height;
        }
    }
    return plan;
}

Plan plan_lines(const Chassis &chassis, std::size_t width, std::size_t rows)
{
    Plan plan;
    const auto devices = by_device(chassis.cards);
    // As few columns as will do: a line with room shows more.
    const std::size_t room = rows > devices.size() ? rows - devices.size() : 1;
    const std::size_t wanted = (chassis.cards.size() + room - 1) / room;
    const std::size_t columns = std::clamp<std::size_t>(wanted, 1, width / least_line);
    const std::size_t line_width = width / columns;
    for (const auto &[device, cards] : devices) {
        plan.headings.push_back({plan.height++, heading_of(device, cards.size())});
        const std::size_t height = (cards.size() + columns - 1) / columns;
        for (std::size_t i = 0; i < cards.size(); ++i) {
            plan.places.push_back({cards[i]->position, i / height * line_width, plan.height + i % height,
                                   line_width - (columns > 1 ? 1 : 0), 1});
        }
        plan.height += height;
    }
    return plan;
}

std::string repeated(const char *text, std::size_t times)
{
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

void draw_box(Canvas &canvas, const Box &box)
{
    const std::string line = repeated("─", box.width - 2);
    canvas.put(box.x, box.y, "┌" + line + "┐", box.width, Tone::quiet);
    canvas.put(box.x + 2, box.y, ' ' + box.title + ' ', box.width - 4);
    for (std::size_t y = box.y + 1; y + 1 < box.y + box.height; ++y) {
        canvas.put(box.x, y, "│", 1, Tone::quiet);
        canvas.put(box.x + box.width - 1, y, "│", 1, Tone::quiet);
    }
    canvas.put(box.x, box.y + box.height - 1, "└" + line + "┘", box.width, Tone::quiet);
}

void draw_in_box(Canvas &canvas, const ScreenCard &card, const CardPlace &place)
{
    const bool is_sub = card.position.sslotid != 0;
    const std::string name = (is_sub ? '/' + std::to_string(card.position.sslotid) + ' ' : "") + card.name +
                             (card.type.empty() ? "" : " (" + card.type + ')');
    canvas.put(place.x, place.y, name, place.width, Tone::heading);
    canvas.put(place.x, place.y + 1, card.state, place.width, card.tone);
    if (card.share_left) {
        const std::size_t beside = card.left.size() + 1;
        const std::size_t width = place.width > beside ? place.width - beside : 0;
        canvas.put(place.x, place.y + 2, bar(*card.share_left, width) + ' ' + card.left, place.width,
                   card.tone);
    }
}

void draw_line(Canvas &canvas, const ScreenCard &card, const CardPlace &place, std::size_t position_width,
               std::size_t name_width)
{
    std::size_t x = place.x;
    std::size_t end = place.x + place.width;
    canvas.put(x, place.y, card.position.text(), position_width);
    x += position_width + 1;
    canvas.put(x, place.y, card.name, name_width);
    x += name_width + 1;
    if (card.share_left) {
        const std::string left = bar(*card.share_left, bar_in_line) + ' ' + card.left;
        end -= columns_of(left) + 1;
        canvas.put(end + 1, place.y, left, columns_of(left), card.tone);
    }
    canvas.put(x, place.y, card.state, end > x ? end - x : 0, card.tone);
}

void draw_lines(Canvas &canvas, const Chassis &chassis, const std::vector<CardPlace> &places)
{
    constexpr std::size_t widest_name = 10;
    std::size_t position_width = 0;
    std::size_t name_width = 0;
    for (const ScreenCard &card : chassis.cards) {
        position_width = std::max(position_width, card.position.text().size());
        name_width = std::max(name_width, std::min(columns_of(card.name), widest_name));
    }
    for (std::size_t i = 0; i < places.size(); ++i) {
        draw_line(canvas, chassis.cards[i], places[i], position_width, name_width);
    }
}

} // namespace

std::string bar(double share, std::size_t width)
{
    const double clamped = std::clamp(share, 0.0, 1.0);
    const auto full = static_cast<std::size_t>(std::lround(clamped * static_cast<double>(width)));
    std::string text;
    for (std::size_t i = 0; i < width; ++i) {
        text += i < full ? "█" : "░";
    }
    return text;
}

FrontPanel front_panel(const Chassis &chassis, std::size_t width, std::size_t rows)
{
    Plan plan = plan_boxes(chassis, width);
    const bool boxes =
        chassis.panel == Panel::boxes || (chassis.panel == Panel::automatic && plan.height <= rows);
    if (!boxes) {
        plan = plan_lines(chassis, width, rows);
    }
    FrontPanel panel{Canvas({width, plan.height}), std::move(plan.places)};
    for (const Heading &heading : plan.headings) {
        panel.canvas.put(0, heading.y, heading.text, width, Tone::quiet);
    }
    for (const Box &box : plan.boxes) {
        draw_box(panel.canvas, box);
    }
    if (boxes) {
        for (std::size_t i = 0; i < panel.places.size(); ++i) {
            draw_in_box(panel.canvas, chassis.cards[i], panel.places[i]);
        }
    } else {
        draw_lines(panel.canvas, chassis, panel.places);
    }
    for (const CardPlace &place : panel.places) {
        if (chassis.selected == place.position) {
            panel.canvas.mark(place.x, place.y, place.width);
        }
    }
    return panel;
}

} // namespace cg
