// How a check ended, concluded from its answers, the list waited for and the time.
#include <algorithm>
#include <utility>

#include "card_entry.h"

namespace admission
{

namespace
{

using std::chrono::milliseconds;

std::string fallback_reason(const std::string &module)
{
    return module + " not compatible";
}

// The answer that a denial is put down to where it is not known which one the daemon read.
std::optional<Verdict> last_denial(const std::vector<Answer> &answers)
{
    const auto denial = std::find_if(answers.rbegin(), answers.rend(), [](const Answer &answer) {
        return answer.ret != 0 && answer.registered;
    });
    return denial == answers.rend() ? std::nullopt
                                    : std::optional(Verdict{false, denial->module, denial->reason});
}

Decision decision_of(const Verdict &verdict, Time at)
{
    Decision decision;
    decision.outcome = verdict.pass ? Outcome::passed : Outcome::denied;
    decision.decided_at = at;
    decision.decider = verdict.module;
    if (!verdict.pass && !verdict.module.empty()) {
        decision.reason = verdict.reason.empty() ? fallback_reason(verdict.module) : verdict.reason;
    }
    return decision;
}

} // namespace

void CardTracker::decide(Entry &known, bool pass, Time at)
{
    Decision decision;
    std::optional<Verdict> verdict = known.verdicts.take(pass, is_time_up(known, at));
    if (!verdict && !pass) {
        verdict = last_denial(known.shown.answers);
        known.seen_whole = known.seen_whole && verdict;
        verdict = verdict.value_or(Verdict{});
    }
    if (verdict) {
        decision = decision_of(*verdict, at);
    } else {
        decision = known.open ? passed(known, at) : passed_unrequested(known, at);
    }
    decision.admitted = pass;
    if (decision.outcome == Outcome::silence) {
        known.list.clear();
        known.list_known = true;
        known.list_blank = false;
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

// With an empty list any one would have done, and all were asked. Of two with the same name one is waited for
// in vain whatever they answer.
std::vector<std::string> CardTracker::silent_ones(const Entry &known) const
{
    if (known.list_blank) {
        return {};
    }
    const bool anyone = known.list.empty();
    std::vector<std::string> silent = anyone ? modules_ : known.list;
    std::erase_if(silent, [&](const std::string &module) {
        const bool answered = std::any_of(known.shown.answers.begin(), known.shown.answers.end(),
                                          [&](const Answer &answer) { return answer.module == module; });
        return answered && (anyone || std::count(modules_.begin(), modules_.end(), module) < 2);
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
    // Where the list is not right, the time tells: a last PASS has its result at once.
    const bool at_once = last_passes && at >= answers.back().at && // else a clock was set
                         at - answers.back().at <= std::min<milliseconds>(slack, timeout_ / 10);
    // Before its time a check ends by an answer, also where nobody knows who is asked.
    const bool by_answer = at_once || (known.list_blank && known.shown.requested_at);
    if (last_passes && (known.has_all_answers() || (by_answer && !is_time_up(known, at)))) {
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
    const bool by_answer = known.has_all_answers() || (known.list_blank && !is_time_up(known, at));
    if (known.shown.card.node_type == main_board) {
        decision.outcome = Outcome::exempt;
    } else if (after_denial && !answers.empty() && answers.back().ret == 0 && by_answer) {
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

void CardTracker::end_withdrawn(Entry &known, Time at, bool cut_off)
{
    Decision end;
    end.outcome = Outcome::withdrawn;
    end.decided_at = at;
    if (cut_off) {
        end.reason = started_afresh;
        end.silent = silent_ones(known);
    }
    finish(known, std::move(end));
}

void CardTracker::end_unseen(Entry &known, Time at, std::optional<bool> admitted)
{
    Decision end;
    end.outcome = Outcome::unseen;
    end.decided_at = at;
    end.admitted = admitted;
    known.seen_whole = false;
    finish(known, std::move(end));
}

void CardTracker::finish(Entry &known, Decision decision)
{
    const bool checked = decision.outcome != Outcome::exempt && decision.outcome != Outcome::unasked;
    // Another card may have come before the check of this one's forerunner is seen to have ended.
    const bool other = !decision.admitted && !is_same_card(known.asked, known.shown.card);
    decision.card = other ? known.asked : known.shown.card;
    decision.role = role_;
    if (checked) {
        decision.requested_at = known.shown.requested_at;
        decision.answers = known.shown.answers;
        decision.told_before = known.told;
        decision.complete = known.seen_whole;
        known.told = known.shown.answers.size();
    }
    known.open = false;
    known.gone = false;
    known.decided_here = true;
    known.settled = state_after(decision.outcome);
    known.shown.last = std::move(decision);
    if (on_decision_) {
        on_decision_(*known.shown.last);
    }
}

} // namespace admission
