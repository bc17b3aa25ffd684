// The daemon's admission, followed from outside.
//
// Each event is taken as the daemon takes it: the list waited for is filled when a position is first heard
// of, not when it is asked again, and emptied when the time is up. Where that list alone cannot tell a last
// PASS from a time-out (a card that returned after its list was empty), what was heard of the request
// decides.
#include "card_entry.h"

#include <algorithm>
#include <utility>

namespace admission
{

namespace
{

using std::chrono::milliseconds;

bool holds(const std::vector<std::string> &names, const std::string &name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// A module may answer as often as it likes, and strangers under as many names; so many are kept of each, and
// of all strangers together.
constexpr std::ptrdiff_t most_answers = 16;

// Returns where the answer stood that had to go; nothing when none had to.
std::optional<std::size_t> make_room(std::vector<Answer> &answers, const Answer &next)
{
    const auto alike = [&next](const Answer &answer) {
        return answer.registered == next.registered && (!next.registered || answer.module == next.module);
    };
    if (std::count_if(answers.begin(), answers.end(), alike) < most_answers) {
        return std::nullopt;
    }
    const auto oldest = std::find_if(answers.begin(), answers.end(), alike);
    const auto place = static_cast<std::size_t>(oldest - answers.begin());
    answers.erase(oldest);
    return place;
}

} // namespace

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

// Where two cards have the same id, the result is more likely of the one that waits for it.
CardTracker::Entry *CardTracker::entry_by_tipc(int32_t tipc_nodeid)
{
    Entry *found = nullptr;
    for (const auto &[position, known] : entries_) {
        const bool fits = known->has_card && known->shown.card.tipc_nodeid == tipc_nodeid;
        if (fits && (found == nullptr || (known->open && !found->open))) {
            found = known.get();
        }
    }
    return found;
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
    known.came_online = known.came_online || (card.online && !was_online && !existing);
    if (!card.online) {
        known.verdicts.reopen();
    }
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
    known.verdicts.forget();
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
    known.verdicts.forget();
    known.shown.request = true;
    known.shown.requested_at = existing ? std::nullopt : std::optional(at);
    known.shown.answers.clear();
    known.told = 0;
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

void CardTracker::answered(const Position &position, Answer answer, bool existing)
{
    const auto found = entries_.find(position);
    if (found == entries_.end()) {
        return; // the daemon passes over answers for cards that it does not know
    }
    Entry &known = *found->second;
    answer.registered = holds(modules_, answer.module);
    if (known.shown.requested_at && !existing) {
        const auto took = std::chrono::duration_cast<milliseconds>(answer.at - *known.shown.requested_at);
        if (took >= milliseconds{0} &&
            took <= 2 * timeout_) { // else a clock was set, or it is an afterthought
            answer.took = took;
        }
    }
    if (answer.registered && answer.ret == 0) {
        take_off_list(known, answer.module);
    }
    if (answer.registered && !existing && known.has_card) {
        known.verdicts.expect(answer, known.list.empty());
    }
    const Time at = answer.at;
    add_answer(known, std::move(answer));
    if (!existing && !known.open && known.shown.last && late_answer_) {
        late_answer_(position, known.shown.answers.back());
        known.told = known.shown.answers.size();
    }
    settle(known, at, existing);
}

// Of two modules with the same name the daemon clears only the first one, however often it answers.
void CardTracker::take_off_list(Entry &known, const std::string &module) const
{
    auto &list = known.list;
    const auto asked = std::count(modules_.begin(), modules_.end(), module);
    if (std::count(list.begin(), list.end(), module) >= asked) {
        const auto first = std::find(list.begin(), list.end(), module);
        if (first != list.end()) {
            list.erase(first);
        }
    }
}

void CardTracker::add_answer(Entry &known, Answer answer)
{
    const std::optional<std::size_t> gone = make_room(known.shown.answers, answer);
    if (gone && *gone < known.told) {
        --known.told;
    }
    known.shown.answers.push_back(std::move(answer));
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
