// What became of a card, and what is known of how it came to that.
#ifndef ADMISSION_DECISION_H
#define ADMISSION_DECISION_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "admission/change.h"
#include "records/position.h"

namespace admission
{

using cg::Position;

// How a check, or the want of one, ended.
enum class Outcome {
    passed,    // a module's PASS was the last one wanted
    silence,   // admitted by time-out: somebody did not answer in time
    denied,    // a module answered DENY
    exempt,    // a main board is never checked
    unasked,   // no module was registered
    withdrawn, // the card went offline or away, or the daemon was restarted, before it was decided
    unseen,    // how is not known: it ended while nobody was listening and left no result, or what ended it
               // was written by an earlier build, or by somebody else than the daemon
};

// Whether a check ended so: without a module to ask, and for a main board, there is none.
bool is_check(Outcome outcome);

// The reason of Outcome::withdrawn where a restart of the daemon cut the check off; else there is none.
inline constexpr const char *daemon_restarted = "the daemon was restarted";

// What a module said to one request.
struct Answer {
    std::string module{};
    int32_t ret = 0;        // 0 PASS, anything else DENY
    std::string reason{};   // as the module wrote it
    Time at{};              // when the answer was heard of
    bool registered = true; // false: no module of the folder, so the daemon passed it over
    std::optional<std::chrono::milliseconds> took{}; // since the request; nothing when that was not seen
    uint64_t revision = 0;                           // of its record; 0: not known

    friend bool operator==(const Answer &, const Answer &) = default;
};

// Whether this is what the module said last: an answer that still stands is notified again with the other
// records.
bool was_heard(const std::vector<Answer> &answers, const Answer &again);

// What a card's information said of it.
struct CardFacts {
    Position position{};
    std::string name{};
    std::string serial{}; // lower-case hexadecimal digits
    int32_t node_type = 0;
    int32_t config_dev_type = 0;
    int32_t nodeid = 0;
    int32_t tipc_nodeid = 0;
    bool online = false;

    friend bool operator==(const CardFacts &, const CardFacts &) = default;
};

// Whether both are facts of one card; a card without facts may be any.
bool is_same_card(const CardFacts &one, const CardFacts &other);

// The end of one check.
struct Decision {
    CardFacts card{}; // as it was then
    Outcome outcome = Outcome::unseen;
    std::optional<bool> admitted{};     // nothing: withdrawn, or not known
    std::optional<Time> requested_at{}; // nothing: there was no request, or nobody saw it
    Time decided_at{};                  // when it was heard of
    std::string decider{};              // the module whose answer it was; empty when it was none's
    std::string reason{};               // of a denial, as the system log has it; or daemon_restarted
    std::vector<Answer> answers{};      // in the order in which they came
    std::size_t told_before = 0;        // the first so many answers were told before, on the same request
    std::vector<std::string> silent{};  // with Outcome::silence, and of a check that was cut off: who was
                                        // waited for in vain
    std::optional<int32_t> role{};      // this device's global role then (enum dm_role_e)
    bool complete = true; // false: it began before somebody was listening, so answers may be missing
    Write request{};      // the last one: that began the check, where there was one
    Write result{};       // that ended it; unknown where none did
};

// From the request to the decision. Nothing when either is not known, or when the clock was set back between
// them.
std::optional<std::chrono::milliseconds> duration_of(const Decision &decision);

// Whether a restart of the daemon cut the check off: the card is still there, and its check begins again.
bool was_cut_off(const Decision &decision);

// A check that stands, for who goes on with it after a restart.
struct OpenCheck {
    CardFacts card{};
    std::optional<Time> requested_at{}; // nothing: it began before somebody was listening
    std::vector<std::string> waiting_for{};
    std::vector<Answer> answers{};
    bool any_will_do = false; // of those waited for, the PASS of one is enough
    Write request{};

    friend bool operator==(const OpenCheck &, const OpenCheck &) = default;
};

} // namespace admission

#endif
