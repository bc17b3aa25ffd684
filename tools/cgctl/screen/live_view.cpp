// What the live view shows and what its keys do.
#include "screen/live_view.h"

#include <algorithm>
#include <array>
#include <map>

#include "admission/card_facts.h"
#include "admission/card_text.h"
#include "base/text.h"
#include "forms/text_form.h"

namespace cg
{

namespace
{

using admission::State;
using admission::TrackedCard;

constexpr std::size_t most_events = 500;

// What f steps through; nothing: all of them.
constexpr std::array<std::optional<State>, 9> filters{std::nullopt,   State::waiting, State::denied,
                                                      State::silence, State::offline, State::passed,
                                                      State::exempt,  State::unasked, State::undecided};

std::vector<std::string> help()
{
    return {"Keys",
            "arrows    select a card; Page Up, Page Down, Home, End as well",
            "Enter     everything about the card that is selected; again or Esc: back",
            "f         show only waiting, denied, admitted by time-out, offline, ... cards",
            "/         search: type a position (1/3) or a part of a name, then Enter",
            "p         pause the stream of events, but no message; again: go on",
            "v         boxes, lines, or what fits",
            "?         this page",
            "q         quit"};
}

bool is_shown(const TrackedCard &card)
{
    return card.state != State::absent || card.request || card.power_off;
}

} // namespace

void LiveView::add_line(std::deque<ScreenEvent> &target, const std::string &text, Tone tone)
{
    target.push_back({text, tone});
    if (target.size() > most_events) {
        target.pop_front();
    }
}

void LiveView::add(const Event &event)
{
    const bool is_about_a_card = event.position.has_value(); // the rest is never held back
    add_line(paused_ && is_about_a_card ? waiting_ : events_,
             clock_text(event.at, event.at) + ' ' + event_text(event), tone_of(event));
}

void LiveView::add_message(const std::string &text, Time at)
{
    add_line(events_, clock_text(at, at) + ' ' + text, Tone::warning);
}

bool LiveView::press(int32_t key)
{
    if (search_) {
        press_in_search(key);
        return true;
    }
    if (key == 'q') {
        return false;
    }
    press_in_view(key);
    return true;
}

void LiveView::press_in_view(int32_t key)
{
    switch (key) {
    case 'f':
        filter_ = (filter_ + 1) % filters.size();
        break;
    case 'p':
        paused_ = !paused_;
        while (!paused_ && !waiting_.empty()) {
            const ScreenEvent event = waiting_.front();
            waiting_.pop_front();
            add_line(events_, event.text, event.tone);
        }
        break;
    case 'v':
        screen_.panel = static_cast<Panel>((static_cast<int>(screen_.panel) + 1) % 3);
        break;
    case '?':
        shows_help_ = !shows_help_;
        break;
    case '/':
        search_ = "";
        break;
    case key_enter:
        shows_detail_ = !shows_detail_ && screen_.selected.has_value();
        shows_help_ = false;
        break;
    case key_escape:
        shows_help_ = shows_detail_ = false;
        break;
    default:
        move(key);
    }
}

void LiveView::press_in_search(int32_t key)
{
    if (key == key_enter || key == key_escape) {
        search_.reset();
    } else if (key == key_backspace) {
        search_->resize(search_->empty() ? 0 : search_->size() - 1);
    } else if (key >= ' ' && key < 0x7F) {
        *search_ += static_cast<char>(key);
        jump_to_found();
    }
}

void LiveView::jump_to_found()
{
    const auto by_position = [&](const ScreenCard &card) {
        return card.position.text().starts_with(*search_);
    };
    const auto by_name = [&](const ScreenCard &card) {
        return card.name.find(*search_) != std::string::npos;
    };
    auto found = std::find_if(screen_.cards.begin(), screen_.cards.end(), by_position);
    if (found == screen_.cards.end()) {
        found = std::find_if(screen_.cards.begin(), screen_.cards.end(), by_name);
    }
    if (found != screen_.cards.end()) {
        screen_.selected = found->position;
    }
}

void LiveView::move(int32_t key)
{
    if (places_.empty()) {
        return;
    }
    constexpr int page = 10;
    const Position from = screen_.selected.value_or(Position{INT32_MIN, 0, 0}); // none: the first one
    const auto step = [&](int dx, int dy) {
        return neighbour(places_, screen_.selected.value_or(from), dx, dy);
    };
    static const std::map<int32_t, std::pair<int, int>> directions{
        {key_up, {0, -1}},   {key_down, {0, 1}},     {key_left, {-1, 0}},
        {key_right, {1, 0}}, {key_page_up, {0, -1}}, {key_page_down, {0, 1}}};
    if (key == key_home || key == key_end) {
        screen_.selected = key == key_home ? places_.front().position : places_.back().position;
    } else if (const auto found = directions.find(key); found != directions.end()) {
        const int times = key == key_page_up || key == key_page_down ? page : 1;
        for (int i = 0; i < times; ++i) {
            screen_.selected = step(found->second.first, found->second.second);
        }
    }
}

bool LiveView::passes(const TrackedCard &card) const
{
    const std::optional<State> wanted = filters.at(filter_);
    return is_shown(card) && (!wanted || wanted == card.state || (wanted == State::denied && card.denied));
}

// Without the store nothing here is new: it stands as it was then, and no colour says otherwise.
std::vector<ScreenCard> LiveView::cards(Time now) const
{
    std::vector<ScreenCard> shown;
    const std::optional<Time> lost = source_.health().store_lost();
    now = lost.value_or(now);
    const auto &tracker = source_.tracker();
    for (const TrackedCard *card : tracker.cards()) {
        if (!passes(*card)) {
            continue;
        }
        ScreenCard entry;
        entry.position = card->card.position;
        entry.name = visible(card->card.name);
        entry.type = card->state == State::absent ? "" : short_type(card->card.node_type);
        entry.state = state_text(*card);
        entry.tone = lost ? Tone::quiet : tone_of(*card);
        if (const std::string reason = source_.reason_of(*card); !reason.empty()) {
            entry.state += ": " + visible(reason);
        }
        if (const auto left = tracker.time_left(*card, now); left && card->state == State::waiting) {
            entry.share_left =
                static_cast<double>(left->count()) / static_cast<double>(tracker.timeout().count());
            entry.left = std::to_string(std::chrono::ceil<std::chrono::seconds>(*left).count()) + " s";
        }
        shown.push_back(std::move(entry));
    }
    return shown;
}

std::string LiveView::title(Time now) const
{
    Summary summary;
    for (const TrackedCard *card : source_.tracker().cards()) {
        if (is_shown(*card)) {
            summary.add(*card);
        }
    }
    std::string text = " " + summary.text();
    if (filters.at(filter_)) {
        text = std::string(" only ") + admission::text_of(*filters.at(filter_)) + " |" + text;
    }
    if (paused_) {
        text = " paused |" + text;
    }
    if (const std::string trouble = source_.health().text(now); !trouble.empty()) {
        text = ' ' + trouble + " |" + text;
    }
    return text + (source_.role() ? " | " + role_word(*source_.role()) : "");
}

std::vector<std::string> LiveView::detail(Time now) const
{
    const TrackedCard *card = screen_.selected ? source_.tracker().find(*screen_.selected) : nullptr;
    if (card == nullptr) {
        return {};
    }
    std::vector<std::string> lines{"card " + card->card.position.text()};
    for (const auto &[name, text] : facts_of_card(*card, source_.tracker().time_left(*card, now), now)) {
        lines.push_back(name);
        lines.back().append(name.size() < 10 ? 10 - name.size() : 1, ' ').append(text);
    }
    if (const std::string reason = source_.reason_of(*card); !reason.empty() && denial_of(*card) == nullptr) {
        lines.push_back("reason    " + visible(reason)); // else the decision has it already
    }
    return lines;
}

std::vector<std::string> LiveView::popup(Time now) const
{
    return shows_help_ ? help() : shows_detail_ ? detail(now) : std::vector<std::string>{};
}

Canvas LiveView::draw(Size size, Time now)
{
    screen_.cards = cards(now);
    const bool still_there =
        std::any_of(screen_.cards.begin(), screen_.cards.end(),
                    [&](const ScreenCard &card) { return screen_.selected == card.position; });
    if (!still_there) {
        screen_.selected.reset();
        shows_detail_ = false;
    }
    screen_.events.assign(events_.begin(), events_.end());
    screen_.title = title(now);
    screen_.alarm = !source_.health().text(now).empty();
    screen_.prompt = search_ ? "search: " + *search_ + "_" : "";
    screen_.popup = popup(now);
    Drawn drawn = cg::draw(screen_, size);
    places_ = std::move(drawn.places);
    return std::move(drawn.canvas);
}

} // namespace cg
