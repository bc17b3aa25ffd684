// The check-module runner: answers the admission daemon's requests with what a command says about each card.
//
// It is a module made with the kit, as everybody's is: that requests are found, answered once and withdrawn,
// that the store may go and return, and that a name is used once, is the kit's affair; processes are this
// file's. The kit's inside and not its C functions: the loop's timers look after the processes, so that
// nothing here runs on a second thread.
//
// The loop is never blocked by a command: processes are looked after from a timer every 20 ms, which runs
// only while there is something to look after. SIGCHLD was the alternative; the platform's loop takes no
// signals of ours.
#ifndef RUN_CHECK_RUNNER_H
#define RUN_CHECK_RUNNER_H

#include <chrono>
#include <list>
#include <string>
#include <vector>

#include "base/output.h"
#include "core/opening.h"
#include "core/timer.h"
#include "run/check_job.h"

namespace cg
{

class CheckRunner
{
public:
    struct Options {
        std::string module;               // the name that the answers carry
        std::vector<std::string> command; // program and arguments
        std::size_t parallel;             // how many commands run at the same time
        std::chrono::duration<double> time_limit;
    };

    // The settings of the store are in order. Throws Failure when the module may not start.
    CheckRunner(const Output &output, Options options);

    // Serves until SIGTERM or SIGINT, then ends what still runs. Throws Failure.
    void run();

private:
    [[nodiscard]] kit::Module::Hooks hooks();
    int examine(app_cg_kit_check &check) noexcept;
    void withdraw(const app_cg_kit_check &check);
    void tick_after(std::chrono::milliseconds delay);
    void tick() noexcept;
    bool advance(CheckJob &job);
    void start(CheckJob &job);
    bool look_after(CheckJob &job);
    void enforce_time_limit(CheckJob &job) const;
    void end(CheckJob &job);
    void reap_ending();
    [[nodiscard]] std::size_t processes() const;

    const Output &output_;
    const Options options_;
    std::list<CheckJob> jobs_; // in the order of the requests
    std::list<EndingProcess> ending_;
    bool has_failed_ = false;
    kit::Opened opened_;
    kit::Timer timer_; // on the module's loop
};

} // namespace cg

#endif
