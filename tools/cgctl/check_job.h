// One card under examination by a check module's command: its environment, its process and its verdict.
#ifndef CGCTL_CHECK_JOB_H
#define CGCTL_CHECK_JOB_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "child_process.h"
#include "position.h"
#include "record_text.h"

namespace cgctl
{

using Clock = std::chrono::steady_clock;

// What a module answers.
struct Verdict {
    bool pass = false;
    std::string reason; // empty for PASS
};

// What a command's end means: exit status 0 is PASS, anything else DENY with the first line of its output,
// else of its errors, as the reason. `time_limit_s` is set when it was ended for having taken longer.
Verdict verdict_of(int wait_status, const std::string &output, const std::string &errors,
                   std::optional<double> time_limit_s);

// The environment of a check command: ours, with the card. `request` is a check request, `info` the card_info
// of the position when there is one.
std::vector<std::string> check_environment(const std::string &module, const Json &request,
                                           const std::optional<Json> &info);

// Whether two card_infos of a position are of one card, as far as they tell.
bool is_same_card(const std::optional<Json> &one, const std::optional<Json> &other);

// The first line that is not blank; empty when there is none.
std::string first_line(const std::string &text);

// A card's request as the runner works on it.
struct CheckJob {
    enum class State { waiting, running, answering };

    Json request{};
    std::optional<Json> info{}; // of the card that is examined
    State state = State::waiting;
    Clock::time_point not_before{}; // when to try again what failed
    Clock::time_point started{};
    std::unique_ptr<ChildProcess> process{}; // while running
    bool timed_out = false;
    Verdict verdict{}; // while answering
};

// A process that was told to end and whose result is wanted no more.
struct EndingProcess {
    std::unique_ptr<ChildProcess> process;
    Clock::time_point kill_at; // when SIGTERM was not enough
};

} // namespace cgctl

#endif
