// A check module: the daemon's requests in, one answer to each out.
//
// Which requests are new is decided by the store client's subscription: after an outage it delivers only what
// was written meanwhile, by the records' revisions. So each delivered request is examined, unless the same
// one is open. Comparing contents was rejected: a restarted daemon repeats its requests and must be answered
// again.
#ifndef KIT_MODULE_H
#define KIT_MODULE_H

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "core/check.h"
#include "core/facts.h"
#include "core/log.h"
#include "loop/loop.h"
#include "store/client.h"

namespace kit
{

// A process may have several, one thread each.
class Module
{
public:
    // The user's functions; see app_cg_kit.h. They must not throw. `check` must be set.
    struct Hooks {
        std::function<int(const app_cg_kit_card_t &card, app_cg_kit_check &check)> check;
        std::function<void(const app_cg_kit_card_t &card, app_cg_kit_check &check)> withdrawn;
        std::function<void(const app_cg_kit_card_t &card, bool present)> card;
    };

    // place  the store; nothing: as the settings have it. Connects to nothing yet. Throws std::exception.
    Module(std::string name, std::optional<store::Place> place, Hooks hooks, Log log);
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    // Serves until stop() or, with `handle_signals`, until SIGTERM or SIGINT; then it also notifies a service
    // manager. Once only. Returns 0 or an enum app_cg_kit_error.
    int run(bool handle_signals);

    // From any thread and in signal handlers.
    void stop() noexcept;

    // For timers and watches of the user's own. Lives as long as this object.
    [[nodiscard]] platform::Loop &loop() { return loop_; }

private:
    // A standing request.
    struct Job {
        Request request;
        std::string key{};                         // of its record, and the change that wrote it
        uint64_t revision = 0;                     // 0: not known
        std::shared_ptr<app_cg_kit_check> check{}; // null: to be examined, perhaps not for the first time
        platform::Timer patience{};                // for the warnings that the time runs out
    };

    void guard(const char *what, const std::function<void()> &action) noexcept;
    void handle_connection(const store::ConnectionEvent &event);
    void subscribe();
    void handle_request(const store::Change &change);
    void handle_card(const store::Change &change);
    void handle_wake();
    void open_job(const Request &request, const store::Change &change);
    void withdraw(Position position);
    void examine(const Position &position);
    void handle_verdict(const Position &position, app_cg_kit_check &check, int verdict);
    void deliver(Position position);
    bool may_deliver(const Position &position, const app_cg_kit_check &check);
    store::Result<bool> has_other_card(const app_cg_kit_check &check);
    void end_for_other_card(Job &job);
    void write(const Job &job, const Answer &answer);
    [[nodiscard]] store::Status no_connection() const;
    void retry_later(const std::string &problem);
    void retry();
    void watch_time(Job &job, std::chrono::seconds elapsed);
    void end_jobs();

    const std::string name_;
    const Hooks hooks_;
    const Log log_;
    platform::Loop loop_;
    store::Client client_;
    store::Subscription cards_;
    store::Subscription requests_;
    platform::Wake wake_;
    std::shared_ptr<Mailbox> mailbox_;
    std::map<Position, Job> jobs_;
    platform::Timer retry_;
    std::string logged_problem_; // so that a lasting one is logged once
    bool connected_ = false;
    bool ran_ = false;
    std::atomic<bool> stopping_{false};
};

} // namespace kit

#endif
