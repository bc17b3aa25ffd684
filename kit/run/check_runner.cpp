// The check-module runner.
#include "run/check_runner.h"

#include <algorithm>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include "base/failure.h"
#include "base/text.h"
#include "modules/module_folder.h"

namespace cg
{

namespace
{

constexpr std::chrono::milliseconds tick_pause{20};
constexpr std::chrono::seconds retry_pause{1};   // after a start that failed
constexpr std::chrono::milliseconds grace{1000}; // between SIGTERM and SIGKILL
constexpr const char *lock_folder = "/run/lock"; // where the kit has it too

// What the module has to say.
kit::Log log_to(const Output &output)
{
    return {[&output](int level, const std::string &text) {
                if (level <= APP_CG_KIT_ERROR) {
                    output.error(visible(text));
                } else {
                    output.notice(visible(text));
                }
            },
            APP_CG_KIT_INFO};
}

} // namespace

CheckRunner::CheckRunner(const Output &output, Options options)
    : output_(output), options_(std::move(options))
{
    // The store is known to be usable, so what is refused is the name.
    const kit::Wanted wanted{options_.module, std::nullopt, default_module_folder, lock_folder};
    if (kit::open(wanted, hooks(), log_to(output_), opened_) != 0) {
        throw Failure(failed, ""); // the log has it
    }
}

kit::Module::Hooks CheckRunner::hooks()
{
    kit::Module::Hooks hooks;
    hooks.check = [this](const app_cg_kit_card_t & /*card*/, app_cg_kit_check &check) {
        return examine(check);
    };
    hooks.withdrawn = [this](const app_cg_kit_card_t & /*card*/, app_cg_kit_check &check) {
        withdraw(check);
    };
    return hooks;
}

void CheckRunner::run()
{
    const int result = opened_.module->run(true);
    timer_.cancel();
    for (CheckJob &job : jobs_) {
        end(job);
    }
    jobs_.clear();
    // The loop is over; what is left is to see the processes off.
    while (reap_ending(), !ending_.empty()) {
        std::this_thread::sleep_for(tick_pause);
    }
    if (result != 0 || has_failed_) {
        throw Failure(failed, ""); // the log has it
    }
}

// The command is started from the loop, when it is its turn.
int CheckRunner::examine(app_cg_kit_check &check) noexcept
{
    try {
        check.hold();
        std::unique_ptr<app_cg_kit_check, ReleaseCheck> held{&check};
        jobs_.emplace_back().check = std::move(held);
        if (!timer_.is_armed()) {
            tick_after(std::chrono::milliseconds(0));
        }
        return APP_CG_KIT_LATER;
    } catch (const std::exception &problem) {
        output_.error(check.facts().request.position.text() + " is not examined yet: " + problem.what());
        withdraw(check);
        return APP_CG_KIT_AGAIN;
    }
}

void CheckRunner::withdraw(const app_cg_kit_check &check)
{
    const auto is_it = [&](const CheckJob &job) { return job.check.get() == &check; };
    const auto job = std::find_if(jobs_.begin(), jobs_.end(), is_it);
    if (job != jobs_.end()) {
        end(*job);
        jobs_.erase(job);
    }
}

// Ends a job's process without waiting for it.
void CheckRunner::end(CheckJob &job)
{
    if (job.process) {
        job.process->signal_group(SIGTERM);
        ending_.push_back({std::move(job.process), Clock::now() + grace});
    }
}

void CheckRunner::tick_after(std::chrono::milliseconds delay)
{
    if (!timer_.arm(opened_.module->context(), delay, [this] { tick(); })) {
        output_.error("no timer can be armed, so commands cannot be looked after");
        has_failed_ = true;
        opened_.module->stop();
    }
}

void CheckRunner::tick() noexcept
{
    try {
        reap_ending();
        jobs_.remove_if([this](CheckJob &job) { return advance(job); });
        if (!jobs_.empty() || !ending_.empty()) {
            tick_after(tick_pause);
        }
    } catch (const std::exception &problem) {
        output_.error(std::string("the commands cannot be looked after: ") + problem.what());
        has_failed_ = true;
        opened_.module->stop();
    }
}

// Returns true when nothing is left to do for the card.
bool CheckRunner::advance(CheckJob &job)
{
    if (!job.process && Clock::now() >= job.not_before && processes() < options_.parallel) {
        start(job);
    }
    return job.process && look_after(job);
}

void CheckRunner::start(CheckJob &job)
{
    const kit::Facts &card = job.check->facts();
    try {
        job.process =
            std::make_unique<ChildProcess>(options_.command, check_environment(options_.module, card));
        job.started = Clock::now();
    } catch (const std::system_error &problem) {
        output_.error(card.request.position.text() + " is not examined yet: " + problem.what());
        job.not_before = Clock::now() + retry_pause;
    }
}

// Returns true when the command has ended, and its verdict is on the way.
bool CheckRunner::look_after(CheckJob &job)
{
    const std::optional<int> status = job.process->poll();
    if (!status) {
        enforce_time_limit(job);
        return false;
    }
    const Verdict verdict =
        verdict_of(*status, job.process->output(), job.process->errors(),
                   job.timed_out ? std::optional(options_.time_limit.count()) : std::nullopt);
    (void)job.check->answer(verdict.pass, verdict.reason); // dropped when nobody waits any more
    return true;
}

// Ended for good only after the grace, so that the command can say something and clean up.
void CheckRunner::enforce_time_limit(CheckJob &job) const
{
    const Clock::duration age = Clock::now() - job.started;
    if (age > options_.time_limit && !std::exchange(job.timed_out, true)) {
        job.process->signal_group(SIGTERM);
    } else if (age > options_.time_limit + grace) {
        job.process->signal_group(SIGKILL);
    }
}

void CheckRunner::reap_ending()
{
    ending_.remove_if([](EndingProcess &ending) {
        if (Clock::now() >= ending.kill_at) {
            ending.process->signal_group(SIGKILL);
        }
        return ending.process->poll().has_value();
    });
}

std::size_t CheckRunner::processes() const
{
    const auto running =
        std::count_if(jobs_.begin(), jobs_.end(), [](const CheckJob &job) { return job.process != nullptr; });
    return static_cast<std::size_t>(running) + ending_.size();
}

} // namespace cg
