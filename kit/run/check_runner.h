// A check module that examines cards with a command.
//
// It is built on the kit as any module is: the kit finds requests, answers each once, handles outages of the
// store and reserves the name; this file handles processes. It uses the kit's core and not its C functions,
// so that the module's loop watches the processes and there is no second thread.
#ifndef RUN_CHECK_RUNNER_H
#define RUN_CHECK_RUNNER_H

#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "base/output.h"
#include "core/opening.h"
#include "process/child_process.h"

namespace cg
{

class CheckRunner
{
public:
    struct Options {
        std::string module;               // the name of the answers
        std::vector<std::string> command; // program and arguments
        std::size_t parallel;             // how many commands may run at the same time
        std::chrono::duration<double> time_limit;
    };

    // The settings of the store must be in order. The output outlives the object. Throws Failure when the
    // module may not start.
    CheckRunner(const Output &output, Options options);

    // Serves until SIGTERM or SIGINT, then ends what still runs. Throws Failure.
    void run();

private:
    // A process with what the loop does about it. The members end in the reverse order.
    struct Command {
        std::unique_ptr<ChildProcess> process{};
        platform::Watch watch{};
        platform::Timer limit{};
    };
    struct ReleaseCheck {
        void operator()(app_cg_kit_check *check) const { check->release(); }
    };
    struct Job {
        std::unique_ptr<app_cg_kit_check, ReleaseCheck> check{}; // held while a verdict is needed
        Command command{};                                       // empty until it is its turn
        bool timed_out = false;
    };

    [[nodiscard]] kit::Module::Hooks hooks();
    int examine(app_cg_kit_check &check);
    void withdraw(const app_cg_kit_check &check);
    void start_commands();
    void start(Job &job);
    void handle_progress(Job &job);
    void end(Job &job);
    void reap(Command &ending);
    void end_all();
    [[nodiscard]] platform::Loop &loop() { return opened_.module->loop(); }
    [[nodiscard]] std::size_t processes() const;

    const Output &output_;
    const Options options_;
    kit::Opened opened_;
    platform::Timer retry_;     // of a start that failed
    std::list<Job> jobs_;       // in the order of the requests
    std::list<Command> ending_; // were sent SIGTERM, and their results are not needed
};

} // namespace cg

#endif
