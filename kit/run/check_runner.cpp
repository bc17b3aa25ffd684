// A check module that examines cards with a command.
#include "run/check_runner.h"

#include <algorithm>
#include <csignal>
#include <system_error>
#include <utility>

#include "base/failure.h"
#include "base/text.h"
#include "modules/module_folder.h"
#include "run/check_command.h"

namespace cg
{

namespace
{

constexpr std::chrono::seconds retry_pause{1};   // after a start that failed
constexpr std::chrono::milliseconds grace{1000}; // between SIGTERM and SIGKILL

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
    const kit::Wanted wanted{options_.module, std::nullopt, default_module_folder, kit::default_lock_folder};
    if (kit::open(wanted, hooks(), log_to(output_), opened_) != 0) {
        throw Failure(failed, ""); // the reason is logged
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
    end_all();
    if (result != 0) {
        throw Failure(failed, ""); // the reason is logged
    }
}

int CheckRunner::examine(app_cg_kit_check &check)
{
    try {
        Job &job = jobs_.emplace_back();
        check.hold();
        job.check.reset(&check);
        start_commands();
        return APP_CG_KIT_LATER;
    } catch (const std::exception &problem) {
        output_.error(check.facts().request.position.text() + " is not examined yet: " + problem.what());
        jobs_.remove_if([&](const Job &job) { return !job.check || job.check.get() == &check; });
        return APP_CG_KIT_AGAIN;
    }
}

void CheckRunner::withdraw(const app_cg_kit_check &check)
{
    const auto job =
        std::find_if(jobs_.begin(), jobs_.end(), [&](const Job &one) { return one.check.get() == &check; });
    if (job != jobs_.end()) {
        end(*job);
        jobs_.erase(job);
        start_commands();
    }
}

// A card whose command cannot be started waits; with it all that come after it.
void CheckRunner::start_commands()
{
    for (Job &job : jobs_) {
        if (job.command.process) {
            continue;
        }
        if (processes() >= options_.parallel || retry_.is_armed()) {
            return;
        }
        start(job);
    }
}

void CheckRunner::start(Job &job)
{
    const kit::Facts &card = job.check->facts();
    try {
        job.command.process =
            std::make_unique<ChildProcess>(options_.command, check_environment(options_.module, card));
    } catch (const std::system_error &problem) {
        output_.error(card.request.position.text() + " is not examined yet: " + problem.what());
        retry_ = loop().after(retry_pause, [this] { start_commands(); });
        return;
    }
    ChildProcess &process = *job.command.process;
    job.command.watch = loop().watch(process.descriptor(), platform::Watch::Until::readable,
                                     [this, &job] { handle_progress(job); });
    const auto limit = std::chrono::ceil<std::chrono::milliseconds>(options_.time_limit);
    job.command.limit = loop().after(limit, [this, &job, &process] {
        job.timed_out = true;
        process.signal_group(SIGTERM);
        // Killed only later, so that it can print something and clean up.
        job.command.limit = loop().after(grace, [&process] { process.signal_group(SIGKILL); });
    });
}

void CheckRunner::handle_progress(Job &job)
{
    ChildProcess &process = *job.command.process;
    const std::optional<int> status = process.poll();
    if (!status) {
        return;
    }
    const kit::Answer verdict =
        verdict_of(*status, process.output(), process.errors(),
                   job.timed_out ? std::optional(options_.time_limit.count()) : std::nullopt);
    (void)job.check->answer(verdict.pass, verdict.reason); // dropped when the request is gone
    jobs_.remove_if([&](const Job &one) { return &one == &job; });
    start_commands();
}

// Ends a job's command without waiting for it.
void CheckRunner::end(Job &job)
{
    if (!job.command.process) {
        return;
    }
    job.command.watch.cancel();
    ending_.push_back({std::move(job.command.process)});
    Command &ending = ending_.back();
    ChildProcess &process = *ending.process;
    process.signal_group(SIGTERM);
    ending.watch = loop().watch(process.descriptor(), platform::Watch::Until::readable,
                                [this, &ending] { reap(ending); });
    ending.limit = loop().after(grace, [&process] { process.signal_group(SIGKILL); });
}

void CheckRunner::reap(Command &ending)
{
    if (ending.process->poll()) {
        ending_.remove_if([&](const Command &one) { return &one == &ending; });
        start_commands();
    }
}

// The loop has ended.
void CheckRunner::end_all()
{
    for (Job &job : jobs_) {
        end(job);
    }
    jobs_.clear();
    const auto deadline = std::chrono::steady_clock::now() + grace;
    for (const Command &ending : ending_) {
        (void)ending.process->wait_for(
            std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()));
    }
    ending_.clear(); // kills what still runs
}

std::size_t CheckRunner::processes() const
{
    const auto running = std::count_if(jobs_.begin(), jobs_.end(),
                                       [](const Job &job) { return job.command.process != nullptr; });
    return static_cast<std::size_t>(running) + ending_.size();
}

} // namespace cg
