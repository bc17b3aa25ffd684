// cgctl list, and cgctl alone: one line for each card.
//
// What is for eyes only, a table that is cut to the terminal and a sum at its end, never gets into a pipe.
#include <algorithm>
#include <tuple>
#include <utility>

#include "admission/card_text.h"
#include "base/failure.h"
#include "base/table.h"
#include "base/text.h"
#include "cards/overview.h"
#include "command_line/verbs.h"

namespace cg
{

namespace
{

using admission::State;

struct ListOptions {
    std::vector<std::string> positions{};
    std::vector<std::string> states{};
    std::string color = "auto";
    std::string history{};
};

constexpr std::array all_states{State::waiting,   State::denied,  State::silence,
                                State::passed,    State::exempt,  State::unasked,
                                State::undecided, State::offline, State::absent};

std::vector<std::string> state_words()
{
    std::vector<std::string> words;
    std::transform(all_states.begin(), all_states.end(), std::back_inserter(words),
                   [](State state) { return admission::word_of(state); });
    return words;
}

class Filter
{
public:
    explicit Filter(const ListOptions &options)
    {
        for (const std::string &text : options.positions) {
            prefixes_.push_back(parse_prefix(text));
        }
        for (const std::string &word : options.states) {
            std::copy_if(all_states.begin(), all_states.end(), std::back_inserter(states_),
                         [&](State state) { return word == admission::word_of(state); });
        }
        wanted_ = options;
    }

    [[nodiscard]] bool is_empty() const { return prefixes_.empty() && states_.empty(); }

    [[nodiscard]] bool passes(const CardRow &row) const
    {
        // A position that is only remembered is shown to who asks for those that are empty.
        const bool shown = row.is_present() || holds_state(State::absent);
        return shown && (states_.empty() || holds_state(row.tracked.state) || holds_denied(row)) &&
               holds_position(row.position());
    }

    // "no card at 1/9 is waiting, denied"
    [[nodiscard]] std::string nothing_found() const
    {
        std::string text = "no card";
        for (std::size_t i = 0; i < wanted_.positions.size(); ++i) {
            text += (i == 0 ? " at " : " or ") + visible(wanted_.positions[i]);
        }
        for (std::size_t i = 0; i < states_.size(); ++i) {
            text += (i == 0 ? " is " : " or ") + std::string(admission::text_of(states_[i]));
        }
        return text + "; `cgctl list` shows those that there are";
    }

private:
    [[nodiscard]] bool holds_state(State state) const
    {
        return std::find(states_.begin(), states_.end(), state) != states_.end();
    }
    // Also one that its denial took offline.
    [[nodiscard]] bool holds_denied(const CardRow &row) const
    {
        return row.tracked.denied && holds_state(State::denied);
    }
    [[nodiscard]] bool holds_position(const Position &position) const
    {
        return prefixes_.empty() ||
               std::any_of(prefixes_.begin(), prefixes_.end(),
                           [&](const PositionPrefix &prefix) { return prefix.holds(position); });
    }

    std::vector<PositionPrefix> prefixes_;
    std::vector<State> states_;
    ListOptions wanted_;
};

// In a pipe each text is as it is in the other views, whole.
std::vector<Cell> cells_of(const CardRow &row, admission::Time now, const Terminal &terminal)
{
    const admission::TrackedCard &tracked = row.tracked;
    Cell state{state_text(tracked, row.left), tone_of(tracked)};
    Cell since{since_text(tracked, now)};
    Cell reason{visible(row.reason)};
    if (terminal.is_one) {
        std::tie(state.text, state.rest) = state_parts(tracked, row.left);
        since.text = tracked.since ? short_clock_text(*tracked.since, now) : "";
        since.rest = tracked.since ? ago_text(*tracked.since, now) : "";
        reason.rest = std::exchange(reason.text, "");
    }
    return {{row.position().text()},
            {row.stored ? visible(tracked.card.name) : "-"},
            {row.stored ? short_type(tracked.card.node_type) : "-"},
            std::move(state),
            std::move(since),
            {tracked.power_off ? "off" : "-", tracked.power_off ? Tone::bad : Tone::plain},
            std::move(reason)};
}

void print_table(const Session &session, const std::vector<const CardRow *> &rows, admission::Time now,
                 const Terminal &terminal)
{
    // The least widths keep what tells the cards apart, and the beginning of each state.
    const std::vector<Column> columns{
        {"CARD", 0},  {"NAME", 6, 16}, {"TYPE", 0}, {"STATE", 16}, {"SINCE", 8, 0, Rest::dropped},
        {"POWER", 0}, {"REASON", 12}};
    std::vector<std::vector<Cell>> cells;
    Summary summary;
    for (const CardRow *row : rows) {
        cells.push_back(cells_of(*row, now, terminal));
        summary.add(row->tracked);
    }
    for (const std::string &line : table_lines(columns, cells, terminal)) {
        session.line(line);
    }
    session.notice(summary.text());
}

Json json_of(const Overview &overview, const std::vector<const CardRow *> &rows)
{
    Json cards = Json::array();
    for (const CardRow *row : rows) {
        cards.push_back(card_json(*row));
    }
    return {{"version", 1}, {"sources", overview.sources()}, {"cards", cards}};
}

int list(const Session &session, const ListOptions &options)
{
    const Filter filter(options);
    const Terminal terminal = terminal_of(session, options.color);
    Store store(session);
    const Overview overview(session, store, options.history);
    std::vector<const CardRow *> rows;
    for (const CardRow &row : overview.rows()) {
        if (filter.passes(row)) {
            rows.push_back(&row);
        }
    }
    if (session.json) {
        session.line(dump(store.with_left_out(json_of(overview, rows))));
    } else {
        if (!rows.empty()) {
            print_table(session, rows, overview.now(), terminal);
        }
        overview.tell_what_is_missing(session);
    }
    if (rows.empty() && !filter.is_empty()) {
        throw Failure(failed, filter.nothing_found());
    }
    if (rows.empty() && !session.json) {
        session.notice("no cards");
    }
    return store.tell_left_out();
}

} // namespace

void add_list(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "list",
                              "List the cards: what each waits for, who denied it and why (the default verb)",
                              "  cgctl list\n"
                              "  cgctl list 1/3 --state waiting,denied,silence\n"
                              "  cgctl list --json | jq '.cards[] | select(.state == \"denied\")'");
    auto options = std::make_shared<ListOptions>();
    verb->add_option("POS", options->positions,
                     "Only a card, a slot with its sub-slots (1/3) or a device (1)");
    verb->add_option("--state", options->states,
                     "Only cards in these states, several with commas; silence: admitted by time-out")
        ->check(CLI::IsMember(state_words()))
        ->delimiter(',')
        ->allow_extra_args(false);
    add_view_options(*verb, options->color, options->history);
    session.action = [options, &session] { return list(session, *options); };
    set_action(*verb, session, options, list);
}

} // namespace cg
