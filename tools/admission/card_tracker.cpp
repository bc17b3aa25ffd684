// The daemon's admission, followed from outside.
//
// Each event is taken as the daemon takes it: the list waited for is filled when a position is first heard
// of, not when it is asked again, and emptied when the time is up. Where that list alone cannot tell a last
// PASS from a time-out (a card that returned after its list was empty), what was heard of the request
// decides.
#include "card_tracker.h"

#include <algorithm>
#include <utility>

namespace admission
{

namespace
{

using std::chrono::milliseconds;

constexpr int32_t main_board = 2; // p_dev.DM_TYPE_MB

// A timer may fire, and its writes arrive, a little beside the time; nobody answers this near to the end by
// chance often enough to matter.
constexpr std::chrono::seconds slack{5};

bool holds(const std::vector<std::string> &names, const std::string &name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// A module may answer as often as it likes, and strangers under as many names; so many are kept of each, and
// of all strangers together.
constexpr std::ptrdiff_t most_answers = 16;

void make_room(std::vector<Answer> &answers, const Answer &next)
{
    const auto alike = [&next](const Answer &answer) {
        return answer.registered == next.registered && (!next.registered || answer.module == next.module);
    };
    if (std::count_if(answers.begin(), answers.end(), alike) >= most_answers) {
        answers.erase(std::find_if(answers.begin(), answers.end(), alike));
    }
}

std::string fallback_reason(const std::string &module)
{
    return module + " not compatible";
}

// How a card stands after a check ended so; nothing when the end says nothing of that.
std::optional<State> state_after(Outcome outcome)
{
    switch (outcome) {
    case Outcome::passed:
        return State::passed;
    case Outcome::silence:
        return State::silence;
    case Outcome::denied:
        return State::denied;
    case Outcome::exempt:
        return State::exempt;
    case Outcome::unasked:
        return State::unasked;
    case Outcome::withdrawn:
    case Outcome::unseen:
        break;
    }
    return std::nullopt;
}

} // namespace

struct CardTracker::Entry {
    TrackedCard shown{};
    bool has_card = false;
    std::vector<std::string> list{}; // whom the daemon still waits for
    bool list_known = false;         // false: some of it may have answered before we listened
    bool came_online = false;        // since the last request
    bool open = false;               // a request stands that was not decided
    bool seen_whole = false;         // the present check, from its beginning
    std::vector<Time> earlier{};     // requests whose timers the daemon still runs, the present one not
    std::optional<bool> result{};    // that the store holds: whether it says PASS
    std::optional<State> settled{};  // what the last decision left behind, while the result stands
};

CardTracker::CardTracker(Listener on_decision, milliseconds timeout)
    : on_decision_(std::move(on_decision)), timeout_(timeout)
{
}

CardTracker::~CardTracker() = default;

void CardTracker::set_modules(std::vector<std::string> modules)
{
    modules_ = std::move(modules);
}

CardTracker::Entry &CardTracker::entry(const Position &position)
{
    auto &place = entries_[position];
    if (!place) {
        place = std::make_unique<Entry>();
        place->shown.card.position = position;
    }
    return *place;
}

CardTracker::Entry *CardTracker::entry_by_tipc(int32_t tipc_nodeid)
{
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const auto &known) {
        return known.second->has_card && known.second->shown.card.tipc_nodeid == tipc_nodeid;
    });
    return found == entries_.end() ? nullptr : found->second.get();
}

void CardTracker::card_written(const CardFacts &card, Time at, bool existing)
{
    Entry &known = entry(card.position);
    if (!known.has_card) {
        known.has_card = true;
        if (!(existing && known.open)) { // a remembered check has its list
            known.list = modules_;
            known.list_known = !existing;
        }
    }
    const bool was_online = std::exchange(known.shown.card, card).online;
    known.came_online = known.came_online || (card.online && !was_online);
    const auto result = results_.find(card.tipc_nodeid);
    known.result = result == results_.end() ? std::nullopt : std::optional(result->second);
    settle(known, at, existing);
}

void CardTracker::card_deleted(const Position &position, Time at)
{
    Entry &known = entry(position);
    known.has_card = false;
    known.result.reset();
    known.settled.reset();
    known.list.clear();
    known.earlier.clear(); // the daemon cancels them with the card's information
    settle(known, at, false);
    forget_if_empty(position);
}

void CardTracker::request_written(const Position &position, Time at, bool existing)
{
    Entry &known = entry(position);
    if (existing && known.open && goes_on(known, at)) {
        known.shown.request = true;
        known.seen_whole = false; // there may have been answers that nobody heard
    } else {
        if (existing && known.open) {
            end_undecided(known, at, true);
        }
        begin_check(known, at, existing);
    }
    settle(known, at, existing);
}

// A request that was heard of before a loss is the same one; a remembered one only while its time runs: the
// daemon would have ended it.
bool CardTracker::goes_on(const Entry &known, Time at) const
{
    return known.shown.request || !known.shown.requested_at ||
           at - *known.shown.requested_at <= timeout_ + slack;
}

// A card that came on line keeps what is left of its list. A request without that comes from a daemon that
// was started afresh, whose table is new.
void CardTracker::begin_check(Entry &known, Time at, bool existing)
{
    if (!known.came_online || existing) {
        if (!existing && known.has_card && fresh_daemon_) {
            fresh_daemon_();
        }
        known.earlier.clear();
        known.list = modules_;
        known.list_known = !existing;
    } else if (known.shown.requested_at) {
        std::erase_if(known.earlier, [&](Time asked) { return at - asked > timeout_ + slack; });
        known.earlier.push_back(*known.shown.requested_at);
    }
    known.came_online = false;
    known.open = true;
    known.seen_whole = !existing && known.list_known;
    known.settled.reset();
    known.shown.request = true;
    known.shown.requested_at = existing ? std::nullopt : std::optional(at);
    known.shown.answers.clear();
    known.shown.since = known.shown.requested_at;
}

void CardTracker::request_deleted(const Position &position, Time at, bool existing)
{
    Entry &known = entry(position);
    known.shown.request = false;
    if (known.open) {
        end_undecided(known, at, existing);
    }
    settle(known, at, existing);
    forget_if_empty(position);
}

void CardTracker::end_undecided(Entry &known, Time at, bool existing)
{
    Decision end;
    end.outcome = existing ? Outcome::unseen : Outcome::withdrawn;
    end.decided_at = at;
    if (existing) {
        known.seen_whole = false;
        end.admitted = known.result;
    }
    finish(known, std::move(end));
}

void CardTracker::answered(const Position &position, Answer answer, bool existing)
{
    const auto found = entries_.find(position);
    if (found == entries_.end()) {
        return; // the daemon passes over answers for cards that it does not know
    }
    Entry &known = *found->second;
    answer.registered = holds(modules_, answer.module);
    if (known.shown.requested_at && !existing) {
        answer.took = std::chrono::duration_cast<milliseconds>(answer.at - *known.shown.requested_at);
    }
    if (answer.ret == 0 && answer.registered) {
        std::erase(known.list, answer.module);
    }
    make_room(known.shown.answers, answer);
    known.shown.answers.push_back(std::move(answer));
    settle(known, found->second->shown.answers.back().at, existing);
}

void CardTracker::result_written(int32_t tipc_nodeid, bool pass, Time at, bool existing)
{
    results_[tipc_nodeid] = pass;
    Entry *known = entry_by_tipc(tipc_nodeid);
    if (known == nullptr) {
        return;
    }
    const bool is_news = known->result != std::optional(pass);
    known->result = pass;
    if (!existing) {
        decide(*known, pass, at);
    } else if (is_news) {
        known->settled.reset();
    }
    settle(*known, at, existing);
}

void CardTracker::result_deleted(int32_t tipc_nodeid, Time at)
{
    results_.erase(tipc_nodeid);
    if (Entry *known = entry_by_tipc(tipc_nodeid)) {
        known->result.reset();
        known->settled.reset();
        settle(*known, at, false);
    }
}

void CardTracker::power_off_written(const Position &position, bool off)
{
    entry(position).shown.power_off = off;
    forget_if_empty(position);
}

void CardTracker::cannot_start_written(const Position &position, bool cannot_start)
{
    entry(position).shown.cannot_start = cannot_start;
    forget_if_empty(position);
}

void CardTracker::remember_card(const CardFacts &card)
{
    CardFacts &shown = entry(card.position).shown.card;
    shown = card;
    shown.online = false; // whether it still is, its record tells
}

void CardTracker::remember_open(const Position &position, std::optional<Time> requested_at,
                                std::vector<std::string> waiting_for, std::vector<Answer> answers)
{
    Entry &known = entry(position);
    known.open = true;
    known.list = std::move(waiting_for);
    known.shown.requested_at = requested_at;
    known.shown.since = requested_at;
    known.shown.answers = std::move(answers);
}

void CardTracker::remember_decision(const Decision &decision)
{
    Entry &known = entry(decision.card.position);
    known.shown.last = decision;
}

void CardTracker::snapshot_done(Time at)
{
    std::vector<Position> positions;
    for (const auto &[position, known] : entries_) {
        positions.push_back(position);
        if (known->open && !known->shown.request) {
            end_undecided(*known, at, true);
        }
        settle(*known, at, true);
    }
    std::for_each(positions.begin(), positions.end(),
                  [this](const Position &position) { forget_if_empty(position); });
}

void CardTracker::decide(Entry &known, bool pass, Time at)
{
    Decision decision;
    if (!pass) {
        decision.outcome = Outcome::denied;
        decision.decided_at = at;
        const auto &answers = known.shown.answers;
        const auto denial = std::find_if(answers.rbegin(), answers.rend(), [](const Answer &answer) {
            return answer.ret != 0 && answer.registered;
        });
        if (denial != answers.rend()) {
            decision.decider = denial->module;
            decision.reason = denial->reason.empty() ? fallback_reason(denial->module) : denial->reason;
        } else {
            known.seen_whole = false;
        }
    } else {
        decision = known.open ? passed(known, at) : passed_unrequested(known, at);
    }
    decision.admitted = pass;
    if (decision.outcome == Outcome::silence) {
        known.list.clear();
        known.list_known = true;
    }
    finish(known, std::move(decision));
}

// An earlier request's timer ends the present check at its own time.
bool CardTracker::is_time_up(const Entry &known, Time at) const
{
    const milliseconds tolerance = std::min<milliseconds>(slack, timeout_ / 10);
    if (known.shown.requested_at && at - *known.shown.requested_at >= timeout_ - tolerance) {
        return true;
    }
    return std::any_of(known.earlier.begin(), known.earlier.end(), [&](Time asked) {
        return at - asked >= timeout_ - tolerance && at - asked <= timeout_ + tolerance;
    });
}

std::vector<std::string> CardTracker::silent_ones(const Entry &known) const
{
    // With an empty list any one would have done, and all were asked.
    std::vector<std::string> silent = known.list.empty() ? modules_ : known.list;
    std::erase_if(silent, [&](const std::string &module) {
        return std::any_of(known.shown.answers.begin(), known.shown.answers.end(),
                           [&](const Answer &answer) { return answer.module == module; });
    });
    return silent;
}

// The end of a request by PASS: by the last one waited for, or by the time.
Decision CardTracker::passed(const Entry &known, Time at) const
{
    Decision decision;
    decision.decided_at = at;
    const auto &answers = known.shown.answers;
    const bool last_passes = !answers.empty() && answers.back().ret == 0 && answers.back().registered;
    // Where the list is not known to be right, the time tells.
    const bool none_left = known.list.empty() || (!known.list_known && !is_time_up(known, at));
    if (last_passes && (none_left || !is_time_up(known, at))) {
        decision.outcome = Outcome::passed;
        decision.decider = answers.back().module;
    } else {
        decision.outcome = Outcome::silence;
        decision.silent = silent_ones(known);
    }
    return decision;
}

// A PASS where no request stood: nobody had to be asked, a denial was lifted, or an earlier timer fired.
Decision CardTracker::passed_unrequested(const Entry &known, Time at) const
{
    Decision decision;
    decision.decided_at = at;
    const auto &answers = known.shown.answers;
    const bool after_denial = known.shown.last && known.shown.last->outcome == Outcome::denied;
    if (known.shown.card.node_type == main_board) {
        decision.outcome = Outcome::exempt;
    } else if (after_denial && !answers.empty() && answers.back().ret == 0 && known.list.empty()) {
        decision.outcome = Outcome::passed;
        decision.decider = answers.back().module;
    } else if (after_denial && is_time_up(known, at)) {
        decision.outcome = Outcome::silence;
        decision.silent = silent_ones(known);
    } else {
        decision.outcome = Outcome::unasked;
    }
    return decision;
}

void CardTracker::finish(Entry &known, Decision decision)
{
    const bool checked = decision.outcome != Outcome::exempt && decision.outcome != Outcome::unasked;
    decision.card = known.shown.card;
    decision.role = role_;
    if (checked) {
        decision.requested_at = known.shown.requested_at;
        decision.answers = known.shown.answers;
        decision.complete = known.seen_whole;
    }
    known.open = false;
    known.settled = state_after(decision.outcome);
    known.shown.last = std::move(decision);
    if (on_decision_) {
        on_decision_(*known.shown.last);
    }
}

// The card's state as it now is, and since when.
void CardTracker::settle(Entry &known, Time at, bool existing)
{
    TrackedCard &shown = known.shown;
    const State before = shown.state;
    shown.state = state_of(known);
    shown.waiting_for = shown.state == State::waiting ? silent_ones(known) : std::vector<std::string>{};
    if (shown.state == State::waiting) {
        shown.since = shown.requested_at;
    } else if (shown.state != before) {
        const bool remembered = !known.settled && shown.last && agrees(known, *shown.last);
        const std::optional<Time> long_ago =
            remembered ? std::optional(shown.last->decided_at) : std::nullopt;
        shown.since = existing ? long_ago : std::optional(at);
    }
}

State CardTracker::state_of(const Entry &known)
{
    const CardFacts &card = known.shown.card;
    if (!known.has_card) {
        return State::absent;
    }
    if (card.node_type == main_board && known.result == std::optional(true)) {
        return State::exempt;
    }
    if (!card.online) {
        return State::offline;
    }
    if (known.shown.request) {
        return State::waiting;
    }
    if (known.settled) {
        return *known.settled;
    }
    if (known.shown.last && agrees(known, *known.shown.last)) {
        return *state_after(known.shown.last->outcome);
    }
    if (!known.result) {
        return State::undecided;
    }
    return *known.result ? State::passed : State::denied;
}

// Whether what the store says is what a remembered decision left behind.
bool CardTracker::agrees(const Entry &known, const Decision &last)
{
    return state_after(last.outcome).has_value() && known.result.has_value() && last.admitted == known.result;
}

// A position that no record names any more is kept only for what is remembered of it.
void CardTracker::forget_if_empty(const Position &position)
{
    const auto found = entries_.find(position);
    const TrackedCard &shown = found->second->shown;
    if (!found->second->has_card && !shown.request && !found->second->open && !shown.power_off &&
        !shown.cannot_start && !shown.last) {
        entries_.erase(found);
    }
}

std::vector<const TrackedCard *> CardTracker::cards() const
{
    std::vector<const TrackedCard *> all;
    all.reserve(entries_.size());
    for (const auto &known : entries_) {
        all.push_back(&known.second->shown);
    }
    return all;
}

const TrackedCard *CardTracker::find(const Position &position) const
{
    const auto found = entries_.find(position);
    return found == entries_.end() ? nullptr : &found->second->shown;
}

std::optional<milliseconds> CardTracker::time_left(const TrackedCard &card, Time now) const
{
    if (!card.request || !card.requested_at) {
        return std::nullopt;
    }
    return std::max(milliseconds{0},
                    std::chrono::duration_cast<milliseconds>(*card.requested_at + timeout_ - now));
}

} // namespace admission
