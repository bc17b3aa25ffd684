// The positions, and which of them a change is about.
#include "admission/card_tracker.h"

#include <algorithm>
#include <utility>

#include "card.h"

namespace admission
{

using std::chrono::milliseconds;

CardTracker::CardTracker(Listener on_decision, milliseconds timeout) : shared_(std::make_unique<Shared>())
{
    shared_->on_decision = std::move(on_decision);
    shared_->timeout = timeout;
}

CardTracker::~CardTracker() = default;

void CardTracker::set_modules(std::vector<std::string> modules, bool exact)
{
    shared_->modules = std::move(modules);
    shared_->modules_exact = exact;
    for (const auto &[position, card] : cards_) {
        card->modules_known();
    }
}

void CardTracker::on_answer(AnswerListener called)
{
    shared_->on_answer = std::move(called);
}

void CardTracker::set_role(std::optional<int32_t> role)
{
    shared_->role = role;
}

// Without modules the daemon asks for nothing.
void CardTracker::forget_that_there_are_no_modules()
{
    if (shared_->modules && shared_->modules->empty()) {
        shared_->modules.reset();
    }
}

// Which daemon wrote what is found cannot be told; one that writes now is the one that lives.
void CardTracker::hear_daemon(const Change &change)
{
    const std::string &instance = change.write.origin.instance;
    if (instance.empty() || instance == daemon_) {
        return;
    }
    if (change.existing) {
        found_.insert(instance);
        return;
    }
    daemon_ = instance;
    if (daemon_listener_) {
        daemon_listener_(instance, !found_.contains(instance));
    }
    for (const auto &[position, card] : cards_) {
        card->daemon_started(instance, change.at);
    }
}

Card &CardTracker::card(const Position &position)
{
    auto &place = cards_[position];
    if (!place) {
        place = std::make_unique<Card>(position, *shared_);
    }
    return *place;
}

Card *CardTracker::find_card(const Position &position)
{
    const auto found = cards_.find(position);
    return found == cards_.end() ? nullptr : found->second.get();
}

// A timer's result names no position. Where two cards have the same id, it is the one's that waits for it.
Card *CardTracker::card_of(int32_t tipc_nodeid, const Result &result)
{
    Card *found = nullptr;
    const auto position = explanation_of(result.pass, result.write.origin.cause, 0).position;
    for (const auto &[place, card] : cards_) {
        const TrackedCard &shown = card->shown();
        const bool fits =
            card->is_there() && shown.card.tipc_nodeid == tipc_nodeid && place == position.value_or(place);
        if (fits && (found == nullptr || (shown.open && !found->shown().open))) {
            found = card.get();
        }
    }
    return found;
}

void CardTracker::card_written(const CardFacts &facts, const Change &change)
{
    const auto result = results_.find(facts.tipc_nodeid);
    const bool is_this =
        result != results_.end() &&
        explanation_of(result->second.pass, result->second.write.origin.cause, result->second.node_type)
                .position.value_or(facts.position) == facts.position;
    card(facts.position).written(facts, is_this ? std::optional(result->second) : std::nullopt, change);
}

void CardTracker::card_deleted(const Position &position, const Change &change)
{
    card(position).deleted(change);
    forget_if_empty(position);
}

void CardTracker::request_written(const Position &position, const Change &change)
{
    if (!change.existing) {
        forget_that_there_are_no_modules();
    }
    if (is_daemons_request(change.write.origin.cause, position)) {
        hear_daemon(change);
        // It asks all cards again, so most likely it lives.
        if (change.existing && daemon_listener_) {
            daemon_listener_(change.write.origin.instance, false);
        }
    }
    card(position).request_written(change);
}

void CardTracker::request_deleted(const Position &position, const Change &change)
{
    card(position).request_deleted(change);
    forget_if_empty(position);
}

// The daemon passes over answers for cards that it does not know: they are heard, and not kept.
void CardTracker::answer_written(const Position &position, const Answer &answer, const Change &change)
{
    if (Card *known = find_card(position)) {
        known->answer_written(answer, change);
    } else if (!change.existing && shared_->on_answer) {
        Answer heard = answer;
        heard.at = change.at;
        heard.registered = is_module(answer.module);
        shared_->on_answer(position, heard, false);
    }
}

void CardTracker::answer_deleted(const Position &position, const Answer &answer, const Change &change)
{
    if (Card *known = find_card(position)) {
        known->answer_deleted(answer, change);
    }
}

void CardTracker::result_written(int32_t tipc_nodeid, bool pass, int32_t node_type, const Change &change)
{
    const Result result{pass, node_type, change.write};
    if (explanation_of(pass, change.write.origin.cause, 0).outcome != Outcome::unseen) {
        hear_daemon(change);
    }
    results_[tipc_nodeid] = result;
    if (Card *known = card_of(tipc_nodeid, result)) {
        known->result_written(result, change);
    }
}

void CardTracker::result_deleted(int32_t tipc_nodeid, const Change &change)
{
    const auto result = results_.find(tipc_nodeid);
    if (result == results_.end()) {
        return;
    }
    Card *known = card_of(tipc_nodeid, result->second);
    results_.erase(result);
    if (known != nullptr) {
        known->result_deleted(change);
    }
}

void CardTracker::power_off_written(const Position &position, bool off)
{
    card(position).set_power_off(off);
    forget_if_empty(position);
}

void CardTracker::cannot_start_written(const Position &position, bool cannot_start)
{
    card(position).set_cannot_start(cannot_start);
    forget_if_empty(position);
}

void CardTracker::snapshot_done(Time at)
{
    shared_->listening_since = shared_->listening_since.value_or(at);
    bool somebody_waits = false;
    for (const auto &[position, card] : cards_) {
        card->snapshot_done(at);
        somebody_waits = somebody_waits || card->shown().open;
    }
    if (somebody_waits) {
        forget_that_there_are_no_modules();
    }
    std::erase_if(cards_, [](const auto &known) { return known.second->is_empty(); });
}

void CardTracker::remember_decision(const Decision &decision)
{
    card(decision.card.position).remember_decision(decision);
}

void CardTracker::remember_list(const Position &position, std::vector<std::string> names, bool any_will_do)
{
    card(position).remember_list(std::move(names), any_will_do);
}

void CardTracker::take_up(const OpenCheck &check, Time at)
{
    card(check.card.position).take_up(check, at);
}

// A position that no record names any more is kept only for what is remembered of it.
void CardTracker::forget_if_empty(const Position &position)
{
    const auto found = cards_.find(position);
    if (found->second->is_empty()) {
        cards_.erase(found);
    }
}

std::vector<const TrackedCard *> CardTracker::cards() const
{
    std::vector<const TrackedCard *> all;
    all.reserve(cards_.size());
    for (const auto &known : cards_) {
        all.push_back(&known.second->shown());
    }
    return all;
}

const TrackedCard *CardTracker::find(const Position &position) const
{
    const auto found = cards_.find(position);
    return found == cards_.end() ? nullptr : &found->second->shown();
}

bool CardTracker::is_module(const std::string &name) const
{
    return shared_->is_module(name);
}

bool CardTracker::knows_modules() const
{
    return shared_->modules.has_value();
}

milliseconds CardTracker::timeout() const
{
    return shared_->timeout;
}

std::optional<milliseconds> CardTracker::time_left(const TrackedCard &card, Time now) const
{
    if (!card.open || !card.requested_at) {
        return std::nullopt;
    }
    const auto left = std::chrono::duration_cast<milliseconds>(*card.requested_at + shared_->timeout - now);
    return std::clamp(left, milliseconds{0}, shared_->timeout);
}

} // namespace admission
