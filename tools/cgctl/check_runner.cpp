// The check-module runner.
#include "check_runner.h"

#include <algorithm>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include "failure.h"
#include "text.h"

namespace cgctl
{

namespace
{

constexpr int64_t tick_ms = 20;
constexpr std::chrono::seconds retry_pause{1};   // after a start or an answer that failed
constexpr std::chrono::milliseconds grace{1000}; // between SIGTERM and SIGKILL
constexpr int32_t ret_pass = 0;
constexpr int32_t ret_deny = 1;

} // namespace

CheckRunner::CheckRunner(const Session &session, Store &store, Options options)
    : session_(session), store_(store), options_(std::move(options)),
      request_type_(record_type("p_libpub.app_cg_card_check_info")),
      answer_type_(record_type("p_libpub.app_cg_card_check_ack")), card_type_(record_type("p_dev.card_info")),
      live_(session, store)
{
    live_.subscribe(request_type_, request_type_.db, [this](const Change &change) { take(change); });
}

void CheckRunner::run()
{
    live_.run();
    for (auto &[position, job] : jobs_) {
        end(job);
    }
    // The loop is over; what is left is to see the processes off.
    while (reap_ending(), !ending_.empty()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(tick_ms));
    }
}

void CheckRunner::take(const Change &change)
{
    if (change.cmd == VX_MOM_CMD_SUBSCRIBED) {
        session_.notice("subscribed; module " + options_.module + " waits for cards");
        return;
    }
    if (change.error_code != 0) {
        session_.error("a check request could not be read (result " + std::to_string(change.error_code) +
                       ")");
        return;
    }
    const Position position = position_in(key_part(change.type, *change.record));
    if (change.cmd == VX_MOM_CMD_DELETED) {
        withdraw(position);
    } else {
        request(position, *change.record);
    }
}

// The same request once more is none: the store delivers what stands again after it was away. Once a card was
// answered its job is gone, and whatever comes then asks again.
void CheckRunner::request(const Position &position, const Json &record)
{
    const auto found = jobs_.find(position);
    if (found != jobs_.end() && found->second.request == record) {
        return;
    }
    withdraw(position);
    jobs_[position].request = record;
    wake();
}

void CheckRunner::withdraw(const Position &position)
{
    const auto found = jobs_.find(position);
    if (found != jobs_.end()) {
        end(found->second);
        jobs_.erase(found);
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

void CheckRunner::wake()
{
    if (!std::exchange(ticking_, true)) {
        live_.after(0, [this] { tick(); });
    }
}

void CheckRunner::tick()
{
    reap_ending();
    for (auto place = jobs_.begin(); place != jobs_.end();) {
        place = advance(place->first, place->second) ? jobs_.erase(place) : std::next(place);
    }
    ticking_ = !jobs_.empty() || !ending_.empty();
    if (ticking_) {
        live_.after(tick_ms, [this] { tick(); });
    }
}

// Returns true when nothing is left to do for the card.
bool CheckRunner::advance(const Position &position, CheckJob &job)
{
    if (job.state == CheckJob::State::waiting && Clock::now() >= job.not_before &&
        processes() < options_.parallel) {
        start(position, job);
    }
    if (job.state == CheckJob::State::running) {
        look_after(job);
    }
    return job.state == CheckJob::State::answering && Clock::now() >= job.not_before && answer(position, job);
}

void CheckRunner::start(const Position &position, CheckJob &job)
{
    try {
        job.info = store_.read(card_type_, card_type_.db, key_of(position));
        job.process = std::make_unique<ChildProcess>(
            options_.command, check_environment(options_.module, job.request, job.info));
        job.started = Clock::now();
        job.state = CheckJob::State::running;
    } catch (const Failure &problem) {
        session_.error(position.text() + " is not examined yet: " + problem.what());
        job.not_before = Clock::now() + retry_pause;
    } catch (const std::system_error &problem) {
        session_.error(position.text() + " is not examined yet: " + problem.what());
        job.not_before = Clock::now() + retry_pause;
    }
}

void CheckRunner::look_after(CheckJob &job)
{
    const std::optional<int> status = job.process->poll();
    if (!status) {
        enforce_time_limit(job);
        return;
    }
    job.verdict = verdict_of(*status, job.process->output(), job.process->errors(),
                             job.timed_out ? std::optional(options_.time_limit.count()) : std::nullopt);
    job.process.reset();
    job.state = CheckJob::State::answering;
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

// Writes the verdict, unless the request is gone: an answer to nobody would meet the card's next request.
bool CheckRunner::answer(const Position &position, CheckJob &job)
{
    try {
        if (!store_.exists(request_type_, request_type_.db, key_part(request_type_, job.request))) {
            return true;
        }
        if (is_exchanged(position, job)) {
            return false;
        }
        store_.set(answer_type_, answer_type_.db,
                   {{"index",
                     {{"devid", position.devid},
                      {"slotid", position.slotid},
                      {"t_sslotid", position.sslotid},
                      {"mod_name", options_.module}}},
                    {"ret", job.verdict.pass ? ret_pass : ret_deny},
                    {"reason", job.verdict.reason}});
    } catch (const Failure &problem) {
        session_.error(position.text() + " is not answered yet: " + problem.what());
        job.not_before = Clock::now() + retry_pause;
        return false;
    }
    session_.notice(options_.module + ' ' + position.text() +
                    (job.verdict.pass ? " PASS" : " DENY " + job.verdict.reason));
    return true;
}

// A request says the same of the slot's next card. Then the verdict is dropped, and the command is started
// anew when the old request's deletion, if it is still on the way, was read.
bool CheckRunner::is_exchanged(const Position &position, CheckJob &job)
{
    if (is_same_card(job.info, store_.read(card_type_, card_type_.db, key_of(position)))) {
        return false;
    }
    session_.notice(position.text() + ": another card came meanwhile; it is examined anew");
    CheckJob anew;
    anew.request = std::move(job.request);
    anew.not_before = Clock::now() + retry_pause;
    job = std::move(anew);
    return true;
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
    const auto running = std::count_if(jobs_.begin(), jobs_.end(),
                                       [](const auto &entry) { return entry.second.process != nullptr; });
    return static_cast<std::size_t>(running) + ending_.size();
}

} // namespace cgctl
