// What is remembered of cards from before somebody listened.
//
// What was heard goes before what is remembered: the memory is the older one, whenever it comes.
#include <algorithm>
#include <utility>

#include "card_entry.h"

namespace admission
{

void CardTracker::remember_card(const CardFacts &card)
{
    Entry &known = entry(card.position);
    if (known.has_card) {
        return;
    }
    known.shown.card = card;
    known.shown.card.online = false; // whether it still is, its record tells
    known.asked = known.shown.card;
}

void CardTracker::remember_open(const OpenCheck &check)
{
    Entry &known = entry(check.card.position);
    known.open = true;
    remember_list(known, check);
    known.shown.requested_at = check.requested_at;
    known.shown.since = check.requested_at;
    known.shown.answers = check.answers;
}

// Where any of them will do, the daemon's list is empty.
void CardTracker::remember_list(Entry &known, const OpenCheck &check) const
{
    known.list = check.any_will_do ? std::vector<std::string>{} : check.waiting_for;
    known.list_blank = known.list.empty() && !modules_known_;
}

void CardTracker::remember_decision(const Decision &decision)
{
    Entry &known = entry(decision.card.position);
    if (known.decided_here) {
        return;
    }
    known.shown.last = decision;
    if (known.has_card) {
        settle(known, decision.decided_at, true);
    }
}

void CardTracker::take_up(const OpenCheck &check, bool daemon_ended, Time at)
{
    Entry &known = entry(check.card.position);
    if (!known.first && !complete_since_) {
        remember_card(check.card);
        remember_open(check);
        known.asked = check.card;
        known.daemon_ended = daemon_ended;
        return;
    }
    const bool has_time =
        known.first && (!check.requested_at || known.first->at - *check.requested_at <= timeout_ + slack);
    if (!has_time || !known.first->found || daemon_ended || !is_same_card(known.first->card, check.card)) {
        const bool may_be_older = daemon_ended && known.open && known.checks == 1 && known.first->found;
        known.leftover = known.leftover || (may_be_older && !known.daemon_ended);
        tell_unseen(known, check, known.first ? known.first->at : complete_since_.value_or(at));
    } else if (known.open && known.checks == 1) {
        join(known, check, at);
    }
}

void CardTracker::join(Entry &known, const OpenCheck &check, Time at)
{
    const std::vector<Answer> heard = std::exchange(known.shown.answers, check.answers);
    remember_list(known, check);
    for (const Answer &answer : heard) {
        if (was_heard(known.shown.answers, answer)) {
            continue; // it stood, and was told anew
        }
        add_answer(known, answer);
        if (answer.registered && answer.ret == 0) {
            take_off_list(known, answer.module);
        }
    }
    known.shown.requested_at = check.requested_at;
    settle(known, at, true);
}

// The card's state is not concluded from it.
void CardTracker::tell_unseen(Entry &known, const OpenCheck &check, Time at)
{
    Decision end;
    end.card = check.card;
    end.outcome = Outcome::unseen;
    end.requested_at = check.requested_at;
    end.decided_at = at;
    end.answers = check.answers;
    end.complete = false;
    if (!known.decided_here) {
        known.shown.last = end;
        settle(known, at, true);
    }
    if (on_decision_) {
        on_decision_(end);
    }
}

void CardTracker::snapshot_done(Time at)
{
    complete_since_ = complete_since_.value_or(at);
    std::vector<Position> positions;
    for (const auto &[position, known] : entries_) {
        positions.push_back(position);
        if (known->open && !known->shown.request) {
            end_unseen(*known, at, known->result);
        }
        settle(*known, at, true);
    }
    std::for_each(positions.begin(), positions.end(),
                  [this](const Position &position) { forget_if_empty(position); });
}

} // namespace admission
