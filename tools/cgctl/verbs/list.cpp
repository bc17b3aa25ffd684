// cgctl list, and cgctl alone: one line for each card.
#include <algorithm>

#include "admission/words.h"
#include "base/failure.h"
#include "base/text.h"
#include "cards/overview.h"
#include "command_line/verbs.h"
#include "forms/forms.h"

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

int list(const Session &session, const ListOptions &options)
{
    const Filter filter(options);
    Store store(session);
    const Overview overview = read_overview(session, store, options.history);
    std::vector<const CardRow *> rows;
    for (const CardRow &row : overview.rows) {
        if (filter.passes(row)) {
            rows.push_back(&row);
        }
    }
    const Page page{session, terminal_of(session, options.color)};
    form_of(session).cards(page, {overview, rows, store.left_out()});
    const int away = report_away(session, overview);
    if (rows.empty() && !filter.is_empty()) {
        throw Failure(failed, filter.nothing_found());
    }
    if (rows.empty() && !session.json) {
        session.notice("no cards");
    }
    return std::max(away, store.report_left_out());
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
