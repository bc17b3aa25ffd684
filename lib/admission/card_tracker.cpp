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

// Whoever was not asked for yet has the list that the daemon would take now.
void CardTracker::set_modules(std::vector<std::string> modules)
{
    modules_known_ = true;
    modules_ = std::move(modules);
    for (const auto &[position, known] : entries_) {
        if (known->list_blank && !known->open && known->checks == 0) {
            take_list(*known, !known->list_known);
        }
    }
}

bool CardTracker::is_module(const std::string &name) const
{
    return !modules_known_ || holds(modules_, name);
}

void CardTracker::take_list(Entry &known, bool existing) const
{
    known.list = modules_;
    known.list_known = !existing;
    known.list_blank = !modules_known_;
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
    const bool was_there = std::exchange(known.has_card, true);
    if (!was_there) {
        if (!(existing && known.open)) { // a remembered check has its list
            take_list(known, existing);
        }
    }
    const bool was_online = std::exchange(known.shown.card, card).online;
    known.came_online = known.came_online || (card.online && !(was_there && was_online) && !existing);
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

void CardTracker::answered(const Position &position, Answer answer, bool existing)
{
    const auto found = entries_.find(position);
    if (found == entries_.end()) {
        return; // the daemon passes over answers for cards that it does not know
    }
    Entry &known = *found->second;
    answer.registered = is_module(answer.module);
    if (existing && was_heard(known.shown.answers, answer)) {
        return; // it still stands, since the daemon has not read it
    }
    answer.took = existing ? std::nullopt : time_to_answer(known.shown, answer.at);
    if (answer.registered && answer.ret == 0) {
        take_off_list(known, answer.module);
    }
    if (answer.registered && !existing && known.has_card) {
        known.verdicts.expect(answer, known.has_all_answers());
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

// A position that no record names any more is kept only for what is remembered of it.
void CardTracker::forget_if_empty(const Position &position)
{
    const auto found = entries_.find(position);
    const TrackedCard &shown = found->second->shown;
    if (!found->second->has_card && !shown.request && !found->second->shown.open && !shown.power_off &&
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
    const auto left = std::chrono::duration_cast<milliseconds>(*card.requested_at + timeout_ - now);
    return std::clamp(left, milliseconds{0}, timeout_);
}

std::optional<milliseconds> CardTracker::time_to_answer(const TrackedCard &card, Time at) const
{
    if (!card.requested_at) {
        return std::nullopt;
    }
    const auto took = std::chrono::duration_cast<milliseconds>(at - *card.requested_at);
    return took >= milliseconds{0} && took <= 2 * timeout_ ? std::optional(took) : std::nullopt;
}

} // namespace admission
