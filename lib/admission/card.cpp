// One position, as the daemon sees it.
#include "card.h"

#include <algorithm>
#include <utility>

namespace admission
{

namespace
{

using std::chrono::milliseconds;

// As the system log has it where the module gave no reason.
std::string fallback_reason(const std::string &module)
{
    return module + " not compatible";
}

bool is_known(const store::Origin &origin)
{
    return origin.cause.kind != store::Cause::Kind::unknown;
}

} // namespace

bool Shared::is_module(const std::string &name) const
{
    return !modules || std::find(modules->begin(), modules->end(), name) != modules->end();
}

std::optional<milliseconds> Shared::time_between(std::optional<Time> asked, Time answered) const
{
    if (!asked) {
        return std::nullopt;
    }
    const auto took = std::chrono::duration_cast<milliseconds>(answered - *asked);
    return took >= milliseconds{0} && took <= 2 * timeout ? std::optional(took) : std::nullopt;
}

Card::Card(const Position &position, const Shared &shared) : shared_(shared)
{
    shown_.card.position = position;
}

void Card::written(const CardFacts &card, const std::optional<Result> &result, const Change &change)
{
    if (!std::exchange(is_there_, true) && !list_.is_set()) {
        list_.fill(shared_.modules, !change.existing);
    }
    shown_.card = card;
    result_ = result;
    refresh(change);
}

// The daemon's node is gone, and with it whom it waited for.
void Card::deleted(const Change &change)
{
    is_there_ = false;
    list_ = {};
    daemon_.clear();
    result_.reset();
    refresh(change);
}

// Others may write a request again: the daemon does not look at it, and goes on with its check. One that
// lives takes its request back before it writes another, so one in the place of one that stands says that the
// card left and came back. A file of an earlier version does not say which request began a check: found is
// one that does not say who wrote it either.
void Card::request_written(const Change &change)
{
    const store::Cause &cause = change.write.origin.cause;
    const bool is_unknown = cause.kind == store::Cause::Kind::unknown;
    const bool is_unwritten = is_open() && !was_asked() && is_unknown && is_same_card(asked_, shown_.card);
    shown_.request = true;
    if (change.existing && (is_unwritten || is_same(change.write, shown_.asked))) {
        shown_.asked = change.write;
        miss_changes();
    } else if (!is_open() || is_unknown || is_daemons_request(cause, shown_.card.position)) {
        if (is_open()) {
            end_check(change.existing || is_unknown ? Outcome::unseen : Outcome::withdrawn, change.at);
        }
        begin_check(change);
    }
    refresh(change);
}

// Without a result only where the store refused it.
void Card::request_deleted(const Change &change)
{
    shown_.request = false;
    if (is_open() && !change.existing) {
        const Outcome cause = explanation_of(true, change.write.origin.cause, 0).outcome;
        const bool decided = cause == Outcome::passed || cause == Outcome::silence;
        end_check(decided ? Outcome::unseen : Outcome::withdrawn, change.at);
    }
    refresh(change);
}

void Card::answer_written(Answer answer, const Change &change)
{
    answer.registered = shared_.is_module(answer.module);
    answer.at = change.at;
    answer.revision = change.write.revision;
    answers_.set_standing(answer.module, answer.revision);
    if (change.existing && was_heard(answers_.all(), answer)) {
        return; // it still stands
    }
    if (!change.existing) {
        answer.took = shared_.time_between(shown_.requested_at, change.at);
    }
    hear(std::move(answer), change.existing);
    refresh(change);
}

// The daemon deletes each answer as it reads it. What it reads counts for it, also where the answer stood
// before it asked.
void Card::answer_deleted(Answer answer, const Change &change)
{
    const store::Cause &cause = change.write.origin.cause;
    const bool is_what_was_read = answers_.stands(answer.module, cause.revision);
    answers_.set_gone(answer.module);
    if (!is_there_ || !is_read(cause, shown_.card.position, answer.module)) {
        return; // it counts for nobody
    }
    answers_.set_read(answer.module, cause.revision);
    answer.registered = shared_.is_module(answer.module);
    answer.at = change.at;
    answer.revision = cause.revision;
    if (const Answer *heard = answers_.find(answer.module, cause.revision, answer.ret == 0)) {
        answer = *heard;
    } else {
        if (!is_what_was_read) {
            miss_changes(); // the record may say what a later answer did
        }
        hear(answer, change.existing);
    }
    if (answer.registered && answer.ret == 0) {
        list_.passed(answer.module, shared_.modules);
    }
    refresh(change);
}

void Card::hear(Answer answer, bool existing)
{
    answers_.add(std::move(answer));
    if (!shared_.on_answer) {
        return;
    }
    const bool late = !existing && !is_open() && shown_.last;
    shared_.on_answer(shown_.card.position, answers_.all().back(), late);
    if (late) {
        answers_.set_told();
    }
}

// One that is found is news of the check that stood before; of one that was found itself nobody knows.
void Card::result_written(const Result &result, const Change &change)
{
    result_ = result;
    if (change.existing && check_ == Check::found && outranks_request(result)) {
        check_ = Check::none;
    } else if (!change.existing || (is_open() && outranks_request(result))) {
        decide(change);
    }
    refresh(change);
}

void Card::result_deleted(const Change &change)
{
    result_.reset();
    refresh(change);
}

Explanation Card::explanation() const
{
    return result_ ? explanation_of(result_->pass, result_->write.origin.cause, result_->node_type)
                   : Explanation{};
}

// Of two writes of one daemon the one with the greater number is the later one. A daemon that was started
// asks again for what another one had asked, unless it has no modules: then it admits the card by its
// information, and the request outlives that.
bool Card::outranks_request(const Result &result) const
{
    const store::Origin &by = result.write.origin;
    const store::Origin &asked = shown_.asked.origin;
    if (!is_known(by) || !is_known(asked) || !is_same_card(asked_, shown_.card)) {
        return false;
    }
    if (by.instance == asked.instance) {
        return by.number > asked.number;
    }
    const bool is_newer_card =
        asked.cause.kind == store::Cause::Kind::record && by.cause.revision > asked.cause.revision;
    return explanation().outcome == Outcome::unasked &&
           (is_newer_card || (shared_.modules && shared_.modules->empty()));
}

// Nobody but the daemon cuts a check off, also where somebody else wrote the request.
bool Card::is_asked_by_another(const std::string &instance) const
{
    const store::Origin &asked = shown_.asked.origin;
    return is_open() && asked.instance != instance &&
           (!is_known(asked) || is_daemons_request(asked.cause, shown_.card.position));
}

void Card::daemon_started(const std::string &instance, Time at)
{
    if (is_asked_by_another(instance)) {
        daemon_ = shown_.asked.origin.instance;
        cut_off(at);
    }
    adopt(instance, true);
    refresh({at});
}

// Another daemon has met the card again. Where the list may be this very one's, it stays; one that is found
// has met the card before, with the modules that are known by now.
void Card::adopt(const std::string &instance, bool exact)
{
    if (instance.empty() || instance == daemon_) {
        return;
    }
    if (!daemon_.empty() || list_.is_exact() || (!exact && !list_.is_set())) {
        list_.fill(shared_.modules, exact);
    }
    daemon_ = instance;
}

void Card::modules_known()
{
    if (!list_.is_known() && !was_asked() && shared_.modules) {
        list_.learn(*shared_.modules);
    }
}

bool Card::was_asked() const
{
    return shown_.asked.revision != 0 || shown_.asked.origin.number != 0;
}

// The end of the check that the last request began was heard of, or is remembered: a request outlives it
// where a daemon without modules follows, which does not know of it.
bool Card::has_ended() const
{
    return shown_.last && is_same(shown_.last->request, shown_.asked);
}

void Card::begin_check(const Change &change)
{
    const store::Origin &origin = change.write.origin;
    const bool is_daemons = is_daemons_request(origin.cause, shown_.card.position);
    if (is_daemons) {
        adopt(origin.instance, !change.existing);
    }
    shown_.asked = change.write;
    asked_ = is_there_ ? shown_.card : CardFacts{};
    if (has_ended()) {
        check_ = Check::none;
    } else if (change.existing) {
        check_ = Check::found;
    } else {
        check_ = list_.is_exact() && shared_.modules_exact && is_daemons ? Check::whole : Check::partial;
    }
    shown_.requested_at = change.existing ? std::nullopt : std::optional(change.at);
    answers_.begin_check();
}

// The result that stands ends the check, if there is one.
void Card::decide(const Change &change)
{
    const Explanation explanation = this->explanation();
    if (explanation.outcome != Outcome::unseen && is_asked_by_another(result_->write.origin.instance)) {
        cut_off(change.at);
    }
    if (is_open() && !is_check(explanation.outcome)) {
        end_check(Outcome::withdrawn, change.at); // nobody is asked any more
    }
    Decision decision;
    decision.outcome = explanation.outcome;
    decision.decided_at = change.at;
    decision.admitted = result_->pass;
    decision.decider = explanation.module;
    decision.result = result_->write;
    if (change.existing || explanation.outcome == Outcome::unseen) {
        miss_changes();
    }
    if (!explanation.module.empty()) {
        answers_.set_read(explanation.module, explanation.answer);
        const Answer *answer = answers_.find(explanation.module, explanation.answer, result_->pass);
        if (answer == nullptr) {
            miss_changes();
        }
        if (explanation.outcome == Outcome::denied && answer != nullptr) {
            decision.reason = answer->reason.empty() ? fallback_reason(explanation.module) : answer->reason;
        }
    }
    if (explanation.outcome == Outcome::silence) {
        decision.silent = list_.waiting(answers_.all(), shared_.modules);
    }
    finish(std::move(decision));
}

void Card::end_check(Outcome outcome, Time at, std::optional<bool> admitted)
{
    Decision end;
    end.outcome = outcome;
    end.decided_at = at;
    end.admitted = admitted;
    if (outcome == Outcome::unseen) {
        miss_changes();
    }
    finish(std::move(end));
}

// Something that counts for the check may not have been heard.
void Card::miss_changes()
{
    check_ = check_ == Check::whole ? Check::partial : check_;
}

// A card that went while no daemon was there was withdrawn by that, and its check does not begin again.
void Card::cut_off(Time at)
{
    Decision end;
    end.outcome = Outcome::withdrawn;
    end.decided_at = at;
    if (is_there_ && shown_.card.online && is_same_card(asked_, shown_.card)) {
        end.reason = daemon_restarted;
        end.silent = list_.waiting(answers_.all(), shared_.modules);
    }
    finish(std::move(end));
}

void Card::finish(Decision decision)
{
    // Another card may have come before the check of this one's forerunner is seen to have ended.
    const bool is_other = !decision.admitted && !is_same_card(asked_, shown_.card);
    decision.card = is_other ? asked_ : shown_.card;
    decision.role = shared_.role;
    decision.request = shown_.asked;
    if (is_check(decision.outcome)) {
        decision.requested_at = shown_.requested_at;
        decision.answers = answers_.all();
        decision.told_before = answers_.told();
        decision.complete = check_ == Check::whole;
        answers_.set_told();
    }
    check_ = Check::none;
    decided_here_ = true;
    shown_.last = std::move(decision);
    if (shared_.on_decision) {
        shared_.on_decision(*shown_.last);
    }
}

void Card::snapshot_done(Time at)
{
    if (is_open() && !shown_.request) {
        const bool may_be_its_end = result_ && !is_known(result_->write.origin);
        end_check(Outcome::unseen, at, may_be_its_end ? std::optional(result_->pass) : std::nullopt);
    }
    check_ = check_ == Check::found ? Check::partial : check_;
    refresh({at, true});
}

void Card::remember_decision(const Decision &decision)
{
    if (!shown_.last) {
        shown_.last = decision;
        check_ = has_ended() ? Check::none : check_;
        refresh({decision.decided_at, true});
    }
}

void Card::remember_list(std::vector<std::string> names, bool any_will_do)
{
    list_.set(std::move(names), any_will_do, shared_.modules);
    daemon_.clear(); // it is the living one's, whichever that is
    refresh({{}, true});
}

void Card::take_up(const OpenCheck &check, Time at)
{
    const bool is_unwritten = was_asked() && !is_known(shown_.asked.origin) && check.request == Write{} &&
                              is_same_card(check.card, asked_);
    const bool is_this = is_unwritten || is_same(check.request, shown_.asked);
    if (is_this && has_ended()) {
        return;
    }
    if (!is_this && (was_asked() || decided_here_)) {
        report_unseen(check, at);
        return;
    }
    if (!is_this) {
        if (!is_there_) {
            shown_.card = check.card;
            shown_.card.online = false; // whether it still is, its record tells
        }
        shown_.asked = check.request;
        asked_ = check.card;
        daemon_ = shown_.asked.origin.instance;
    }
    go_on_with(check);
    check_ = Check::partial;
    if (result_ && outranks_request(*result_)) {
        decide({at, true});
    } else if (shared_.listening_since && !shown_.request) {
        end_check(Outcome::unseen, *shared_.listening_since);
    }
    refresh({at, true});
}

// What was heard goes before it, so it changes nothing.
void Card::report_unseen(const OpenCheck &check, Time at)
{
    Decision end;
    end.card = check.card;
    end.requested_at = check.requested_at;
    end.decided_at = shared_.listening_since.value_or(at);
    end.answers = check.answers;
    end.complete = false;
    end.request = check.request;
    if (!decided_here_) {
        shown_.last = end;
        refresh({at, true});
    }
    if (shared_.on_decision) {
        shared_.on_decision(end);
    }
}

// What is remembered of the check is older than what was heard of it.
void Card::go_on_with(const OpenCheck &check)
{
    const std::vector<Answer> heard = answers_.all();
    list_.set(check.waiting_for, check.any_will_do, shared_.modules);
    answers_.replace(check.answers);
    for (const Answer &answer : heard) {
        if (was_heard(answers_.all(), answer)) {
            continue; // it stood, and was notified again
        }
        answers_.add(answer);
        if (answer.registered && answer.ret == 0 && !answers_.stands(answer)) {
            list_.passed(answer.module, shared_.modules);
        }
    }
    shown_.requested_at = check.requested_at;
}

bool Card::is_empty() const
{
    return !is_there_ && !shown_.request && !is_open() && !shown_.power_off && !shown_.cannot_start &&
           !shown_.last;
}

void Card::refresh(const Change &change)
{
    const State before = shown_.state;
    const Explanation explanation = this->explanation();
    if (daemon_.empty() && !list_.is_set() && explanation.outcome != Outcome::unseen) {
        daemon_ = result_->write.origin.instance;
    }
    const bool is_admitted =
        explanation.outcome == Outcome::passed || explanation.outcome == Outcome::silence;
    if (is_admitted && daemon_ == result_->write.origin.instance) {
        list_.clear();
    }
    shown_.open = is_open();
    shown_.state = state_of({is_there_, shown_.card.online, shown_.open,
                             result_ ? std::optional(result_->pass) : std::nullopt, explanation.outcome});
    const bool waits = shown_.state == State::waiting;
    shown_.waiting_for = waits ? list_.waiting(answers_.all(), shared_.modules) : std::vector<std::string>{};
    shown_.any_will_do = !shown_.waiting_for.empty() && list_.any_will_do();
    shown_.answers = answers_.all();
    shown_.decider = explanation.module;
    shown_.denied =
        shown_.state == State::denied || (shown_.state == State::offline && result_ && !result_->pass);
    shown_.explained = result_ && shown_.last && is_same(shown_.last->result, result_->write);
    if (waits) {
        shown_.since = shown_.requested_at;
    } else if (change.existing && shown_.explained && shown_.state != State::offline) {
        shown_.since = shown_.last->decided_at;
    } else if (shown_.state != before) {
        shown_.since = change.existing ? std::nullopt : std::optional(change.at);
    }
}

} // namespace admission
