// A check module: the daemon's requests in, one answer to each out.
//
// What is asked again and what is not hangs on the store client's subscription: after an outage it delivers
// only what was written meanwhile, by the records' revisions. So whatever is delivered asks, unless the same
// question is open. Comparing contents was rejected: a daemon that starts afresh asks the same again and must
// be answered again.
#ifndef KIT_MODULE_H
#define KIT_MODULE_H

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "core/check.h"
#include "core/facts.h"
#include "core/log.h"
#include "core/timer.h"
#include "loop/loop.h"
#include "vx_mom.h"

namespace kit
{

// There is one at a time: the platform tells of a loss without saying to whom.
class Module
{
public:
    // What the kit's user wants to know; see app_cg_kit.h. They throw nothing. `check` must be set.
    struct Hooks {
        std::function<int(const app_cg_kit_card_t &card, app_cg_kit_check &check)> check;
        std::function<void(const app_cg_kit_card_t &card, app_cg_kit_check &check)> withdrawn;
        std::function<void(const app_cg_kit_card_t &card, bool present)> card;
    };

    // Listens to the platform's messages and makes its context. Throws std::exception.
    Module(std::string name, Hooks hooks, Log log);
    ~Module();
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    // Serves until stop() or, with `take_signals`, until SIGTERM or SIGINT. Returns 0 or an enum
    // app_cg_kit_error.
    int run(bool take_signals);

    // From any thread and in signal handlers.
    void stop() noexcept;

    // For timers of the user's own. Lives as long as this object.
    [[nodiscard]] vx_global_t *context() const { return context_.get(); }

private:
    using Clock = std::chrono::steady_clock;

    // A request that stands.
    struct Job {
        Request request;
        std::shared_ptr<app_cg_kit_check> check; // null: to be examined, once more perhaps
        Timer patience;
    };
    struct Finish {
        void operator()(vx_global_t *context) const noexcept { vx_global_finish(context); }
    };

    // What the platform has to say goes to the module's log.
    struct Listening {
        explicit Listening(const Log &log);
        ~Listening();
        Listening(const Listening &) = delete;
        Listening &operator=(const Listening &) = delete;
    };

    static int32_t on_connected(void *first, void *second);
    static int32_t on_lost(void *first, int32_t db);
    static int32_t on_return(void *first, int32_t db, int32_t change);
    static int32_t on_request(void *arg, vx_mom_pmsg_t *message);
    static int32_t on_card(void *arg, vx_mom_pmsg_t *message);

    void guard(const char *what, const std::function<void()> &action) noexcept;
    void connect();
    void subscribe();
    void take_request(const vx_mom_pmsg_t &message);
    void take_card(const vx_mom_pmsg_t &message);
    void ask(const Request &request);
    void withdraw(const Position &position);
    void examine(const Position &position);
    void take_verdict(const Position &position, app_cg_kit_check &check, int verdict);
    void take_mail();
    void deliver(const Position &position);
    bool may_deliver(const Position &position, const app_cg_kit_check &check);
    bool is_exchanged(const app_cg_kit_check &check, int32_t &error);
    void end_for_another(Job &job);
    void write(const Position &position, const Answer &answer);
    void try_later(const std::string &problem);
    void try_again();
    void watch_time(Job &job, std::chrono::seconds asked_for);
    void end_jobs();

    const std::string name_;
    const Hooks hooks_;
    const Log log_;
    const Listening listening_;
    std::unique_ptr<vx_global_t, Finish> context_;
    std::unique_ptr<platform::Wake> wake_;
    std::shared_ptr<Mailbox> mailbox_;
    std::map<Position, Job> jobs_;
    Timer retry_;
    std::string told_problem_; // so that one that lasts is told once
    bool connected_ = false;
    bool ran_ = false;
    std::atomic<bool> stopping_{false};
};

} // namespace kit

#endif
