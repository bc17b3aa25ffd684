// One position: what the daemon does with the card in it, from the changes of the records about it.
//
// The causes of the daemon's writes say which of its callbacks made them, and the writer says which life of
// the daemon it was: nothing is concluded from times, or from the order in which records of several types
// arrive.
#ifndef ADMISSION_CARD_H
#define ADMISSION_CARD_H

#include <functional>

#include "admission/tracked_card.h"
#include "answer_list.h"
#include "explanation.h"
#include "wait_list.h"

namespace admission
{

// What all positions share.
struct Shared {
    std::function<void(const Decision &)> on_decision{};
    std::function<void(const Position &, const Answer &, bool late)> on_answer{};
    std::chrono::milliseconds timeout{};
    Modules modules{};
    bool modules_exact = false; // they are those that the daemon asks, and not only the best that is known
    std::optional<int32_t> role{};
    std::optional<Time> listening_since{}; // all existing records were notified of, for the first time

    // Whether the daemon takes answers by this name, as far as is known.
    [[nodiscard]] bool is_module(const std::string &name) const;
    // From a request to an answer; nothing when the time cannot be: a clock was set, or it is an
    // afterthought.
    [[nodiscard]] std::optional<std::chrono::milliseconds> time_between(std::optional<Time> asked,
                                                                        Time answered) const;
};

// A result that stands: what the start-up software reads.
struct Result {
    bool pass = false;
    int32_t node_type = 0; // of the card that was decided on
    Write write{};
};

// The check of a card, from its request to its end. What makes one of another:
//
//   request written, with whom the daemon waits for known    any    -> whole
//   request written, otherwise                               any    -> partial
//   request found, that none of the known decisions ended    any    -> found
//   the same request found again: changes were missed        whole  -> partial
//   taken up from what is remembered                         any    -> partial
//   all existing records were notified of                    found  -> partial, its end is news from now on
//   result, request deleted, cut off by another daemon       any    -> none, with a decision to report
//   result found that ended it                               found  -> none, with nothing to report
enum class Check {
    none,    // is decided, or there was none
    found,   // is open and stood when all began: nobody was told of it, nor is to be of its end
    partial, // is open, and may have been changed by what nobody heard
    whole,   // is open, and all of it was heard
};

class Card
{
public:
    // `shared` outlives it.
    Card(const Position &position, const Shared &shared);

    // Each of these is a change of a record about the position. `result`: the one that stands for the card's
    // TIPC node; nothing without one.
    void written(const CardFacts &card, const std::optional<Result> &result, const Change &change);
    void deleted(const Change &change);
    void request_written(const Change &change);
    void request_deleted(const Change &change);
    void answer_written(Answer answer, const Change &change);
    void answer_deleted(Answer answer, const Change &change); // the answer as it last was
    void result_written(const Result &result, const Change &change);
    void result_deleted(const Change &change);
    void set_power_off(bool off) { shown_.power_off = off; }
    void set_cannot_start(bool cannot_start) { shown_.cannot_start = cannot_start; }

    // A daemon of this instance has begun to write: what another one asked is cut off.
    void daemon_started(const std::string &instance, Time at);
    // Which modules there are is known now.
    void modules_known();
    // All existing records were notified of: a check whose request is not among them has ended.
    void snapshot_done(Time at);

    // What is remembered from before; see CardTracker.
    void remember_decision(const Decision &decision);
    void remember_list(std::vector<std::string> names, bool any_will_do);
    void take_up(const OpenCheck &check, Time at);

    [[nodiscard]] const TrackedCard &shown() const { return shown_; }
    [[nodiscard]] bool is_there() const { return is_there_; }
    // No record names the position, and nothing is remembered of it.
    [[nodiscard]] bool is_empty() const;

private:
    [[nodiscard]] Explanation explanation() const;
    [[nodiscard]] bool outranks_request(const Result &result) const;
    [[nodiscard]] bool is_asked_by_another(const std::string &instance) const;
    [[nodiscard]] bool was_asked() const;
    [[nodiscard]] bool has_ended() const;
    [[nodiscard]] bool is_open() const { return check_ != Check::none; }
    void miss_changes();
    void adopt(const std::string &instance, bool exact);
    void begin_check(const Change &change);
    void hear(Answer answer, bool existing);
    void decide(const Change &change);
    void end_check(Outcome outcome, Time at, std::optional<bool> admitted = std::nullopt);
    void cut_off(Time at);
    void finish(Decision decision);
    void go_on_with(const OpenCheck &check);
    void report_unseen(const OpenCheck &check, Time at);
    void refresh(const Change &change);

    const Shared &shared_;
    TrackedCard shown_{};
    bool is_there_ = false;
    WaitList list_{};
    std::string daemon_{}; // the instance whose list that is; empty: not known
    CardFacts asked_{};    // the card that the last request was written for
    Check check_ = Check::none;
    bool decided_here_ = false; // the last decision was heard of, not remembered
    AnswerList answers_{};
    std::optional<Result> result_{}; // of this very card
};

} // namespace admission

#endif
