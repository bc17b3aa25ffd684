// One card under examination by a check module's command: its environment, its process and its verdict.
#ifndef RUN_CHECK_JOB_H
#define RUN_CHECK_JOB_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/check.h"
#include "process/child_process.h"

namespace cg
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

// The environment of a check command: ours, with the card.
std::vector<std::string> check_environment(const std::string &module, const kit::Facts &card);

// The first line that is not blank; empty when there is none.
std::string first_line(const std::string &text);

// Gives an examination's handle back.
struct ReleaseCheck {
    void operator()(app_cg_kit_check *check) const { check->release(); }
};

// An examination as the runner works on it: it waits for its turn, or its command runs.
struct CheckJob {
    std::unique_ptr<app_cg_kit_check, ReleaseCheck>
        check;                      // held until the verdict, or until nobody wants one
    Clock::time_point not_before{}; // when to try again to start the command
    Clock::time_point started{};
    std::unique_ptr<ChildProcess> process{}; // while it runs
    bool timed_out = false;
};

// A process that was told to end and whose result is wanted no more.
struct EndingProcess {
    std::unique_ptr<ChildProcess> process;
    Clock::time_point kill_at; // when SIGTERM was not enough
};

} // namespace cg

#endif
