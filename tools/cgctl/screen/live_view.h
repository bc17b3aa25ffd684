// What the live view shows and what its keys do, without a terminal: watch_screen.cpp reads keys and paints.
#ifndef SCREEN_LIVE_VIEW_H
#define SCREEN_LIVE_VIEW_H

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "cards/card_events.h"
#include "screen/screen_layout.h"

namespace cg
{

// A key that was pressed. Characters are themselves; these stand beyond all of them.
enum Key : int32_t {
    key_up = 0x200000,
    key_down,
    key_left,
    key_right,
    key_page_up,
    key_page_down,
    key_home,
    key_end,
    key_enter,
    key_escape,
    key_backspace,
};

class LiveView
{
public:
    // The tracker and the role outlive this.
    explicit LiveView(const CardEvents &source) : source_(source) {}

    // Something happened to a card, or has to be said.
    void add(const Event &event);
    void add_message(const std::string &text, Time at);

    // Does what the key means. False: it means the end.
    bool press(int32_t key);

    // Draws what there is now.
    Canvas draw(Size size, Time now);

private:
    void press_in_view(int32_t key);
    void press_in_search(int32_t key);
    void move(int32_t key);
    void jump_to_found();
    static void add_line(std::deque<ScreenEvent> &target, const std::string &text, Tone tone);
    [[nodiscard]] std::string title(Time now) const;
    [[nodiscard]] std::vector<ScreenCard> cards(Time now) const;
    [[nodiscard]] bool passes(const admission::TrackedCard &card) const;
    [[nodiscard]] std::vector<std::string> popup(Time now) const;
    [[nodiscard]] std::vector<std::string> detail(Time now) const;

    const CardEvents &source_;
    std::deque<ScreenEvent> events_;
    std::deque<ScreenEvent> waiting_; // what came while the stream was paused
    Screen screen_;
    std::vector<CardPlace> places_;
    std::size_t filter_ = 0; // which of the filters
    std::optional<std::string> search_;
    bool paused_ = false;
    bool shows_detail_ = false;
    bool shows_help_ = false;
};

} // namespace cg

#endif
