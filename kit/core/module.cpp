// A check module; see the header for what it rests on.
#include "core/module.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "core/records.h"
#include "ham.h"
#include "log/platform_log.h"
#include "loop/settings.h"
#include "modules/contract.h"

namespace kit
{

namespace
{

Module *current = nullptr;

constexpr int32_t same_data = 2;
constexpr std::chrono::seconds retry_pause{1};
constexpr std::chrono::seconds warn_after{240};

int level_of(int32_t platform_level)
{
    if (platform_level >= platform::log_error) {
        return APP_CG_KIT_ERROR;
    }
    if (platform_level >= platform::log_warn) {
        return APP_CG_KIT_WARNING;
    }
    return APP_CG_KIT_DEBUG;
}

std::string result_text(int32_t result)
{
    return '(' + std::to_string(result) + ": " + strerror(-result) + ')';
}

} // namespace

Module::Listening::Listening(const Log &log)
{
    platform::log_listen([log](int32_t level, const std::string &text) { log(level_of(level), text); });
    platform::tell_setting_mistakes([log](const std::string &text) { log(APP_CG_KIT_WARNING, text); });
}

Module::Listening::~Listening()
{
    platform::log_listen({});
    platform::tell_setting_mistakes({});
}

Module::Module(std::string name, Hooks hooks, Log log)
    : name_(std::move(name)), hooks_(std::move(hooks)), log_(std::move(log)), listening_(log_)
{
    context_.reset(vx_global_init(name_.c_str(), nullptr));
    if (!context_) {
        throw std::runtime_error("the event loop could not be set up");
    }
    wake_ =
        std::make_unique<platform::Wake>(context(), [this] { guard("a verdict", [this] { take_mail(); }); });
    mailbox_ = std::make_shared<Mailbox>([wake = wake_.get()] { wake->call(); }, log_);
    current = this;
}

Module::~Module()
{
    mailbox_->close();
    end_jobs();
    jobs_.clear();
    retry_.cancel();
    wake_.reset();
    context_.reset();
    current = nullptr;
}

int Module::run(bool take_signals)
{
    if (std::exchange(ran_, true)) {
        return APP_CG_KIT_E_STOPPED;
    }
    if (take_signals) {
        // A manager that cannot be reached has been told of on standard error, and is no reason not to serve.
        (void)reg_process_exit_action(0, 0);
    }
    try {
        connect();
    } catch (const std::runtime_error &problem) {
        log_(APP_CG_KIT_ERROR, problem.what());
        return APP_CG_KIT_E_SYSTEM;
    }
    const int32_t result = take_signals ? vx_global_run(context()) : platform::loop_run(context());
    mailbox_->close();
    end_jobs();
    if (result != 0) {
        log_(APP_CG_KIT_ERROR, "the event loop could not run " + result_text(result));
        return APP_CG_KIT_E_SYSTEM;
    }
    return 0;
}

void Module::stop() noexcept
{
    stopping_ = true;
    wake_->call();
}

// Nothing may leave a callback of the platform by an exception. What throws here is memory that ran out.
void Module::guard(const char *what, const std::function<void()> &action) noexcept
{
    try {
        action();
    } catch (const std::exception &problem) {
        log_(APP_CG_KIT_ERROR, std::string("lost ") + what + ": " + problem.what());
    }
}

void Module::connect()
{
    const int32_t result = vx_mom_client_connect(context(), database, on_connected, this);
    if (result != 0 || vx_mom_client_set_disconnect_cb(context(), database, on_lost, nullptr) != 0 ||
        vx_mom_client_set_reconnect_cb(context(), database, on_return, nullptr) != 0) {
        throw std::runtime_error("no connection to the store can be made " + result_text(result));
    }
}

int32_t Module::on_connected(void * /*first*/, void *second)
{
    auto &self = *static_cast<Module *>(second);
    self.connected_ = true;
    self.guard("the subscription", [&] { self.subscribe(); });
    return 0;
}

int32_t Module::on_lost(void * /*first*/, int32_t db)
{
    if (current != nullptr) {
        current->connected_ = false;
        current->log_(APP_CG_KIT_WARNING,
                      "lost the store, database " + std::to_string(db) + "; connecting again");
    }
    return 0;
}

// The subscriptions go on by themselves, with what was written meanwhile, or with everything when the store
// may have lost something: then answers may be among it.
int32_t Module::on_return(void * /*first*/, int32_t db, int32_t change)
{
    if (current != nullptr) {
        current->connected_ = true;
        current->log_(
            APP_CG_KIT_INFO,
            "the store is back, database " + std::to_string(db) +
                (change == same_data ? "" : ", perhaps with other data; whatever stands is answered anew"));
        current->guard("an answer", [] { current->try_again(); });
    }
    return 0;
}

// Cards first, so that who keeps account of them knows those that are there before one is examined.
void Module::subscribe()
{
    int32_t result = hooks_.card ? subscribe_cards(context(), on_card, this) : 0;
    if (result == 0) {
        result = subscribe_requests(context(), on_request, this);
    }
    if (result != 0) {
        log_(APP_CG_KIT_ERROR, "cannot subscribe to the check requests " + result_text(result));
    }
}

int32_t Module::on_request(void *arg, vx_mom_pmsg_t *message)
{
    auto &self = *static_cast<Module *>(arg);
    self.guard("a check request", [&] { self.take_request(*message); });
    return 0;
}

int32_t Module::on_card(void *arg, vx_mom_pmsg_t *message)
{
    auto &self = *static_cast<Module *>(arg);
    self.guard("a card", [&] { self.take_card(*message); });
    return 0;
}

void Module::take_request(const vx_mom_pmsg_t &message)
{
    if (message.cmd == VX_MOM_CMD_SUBSCRIBED) {
        log_(APP_CG_KIT_INFO, "subscribed; module " + name_ + " waits for cards");
        return;
    }
    int32_t error = 0;
    const std::optional<Told> told = request_told(message, error);
    if (error != 0) {
        log_(APP_CG_KIT_ERROR, "a check request could not be read " + result_text(error));
    }
    if (!told) {
        return;
    }
    if (told->present) {
        ask(told->facts.request);
    } else {
        withdraw(told->facts.request.position);
    }
}

void Module::take_card(const vx_mom_pmsg_t &message)
{
    int32_t error = 0;
    const std::optional<Told> told = card_told(message, error);
    if (told) {
        hooks_.card(told->facts.view(), told->present);
    } else if (error != 0) {
        log_(APP_CG_KIT_ERROR, "a card's information could not be read " + result_text(error));
    }
}

// The same request while it is open is answered by the verdict that is on its way, unless that is another
// card's: after an outage, a deletion and the next request come as one. A store that cannot tell is asked
// once more before the delivery.
void Module::ask(const Request &request)
{
    const auto found = jobs_.find(request.position);
    if (found != jobs_.end() && found->second.request == request) {
        Job &job = found->second;
        log_(APP_CG_KIT_DEBUG, request.position.text() + " is asked about again and still open");
        watch_time(job, std::chrono::seconds(0)); // who asks waits its 300 s from now
        int32_t error = 0;
        if (job.check && is_exchanged(*job.check, error)) {
            end_for_another(job);
            examine(request.position);
        }
        return;
    }
    withdraw(request.position);
    Job &job = jobs_[request.position];
    job.request = request;
    watch_time(job, std::chrono::seconds(0));
    examine(request.position);
}

void Module::withdraw(const Position &position)
{
    const auto found = jobs_.find(position);
    if (found == jobs_.end()) {
        return;
    }
    const std::shared_ptr<app_cg_kit_check> check = found->second.check;
    jobs_.erase(found);
    if (!check) {
        return;
    }
    if (!check->end_unless_answered(APP_CG_KIT_E_WITHDRAWN)) {
        check->end(APP_CG_KIT_E_WITHDRAWN);
        log_(APP_CG_KIT_INFO, position.text() + ": the request was withdrawn before the verdict was written");
        return;
    }
    log_(APP_CG_KIT_INFO, position.text() + ": the request was withdrawn");
    if (hooks_.withdrawn) {
        hooks_.withdrawn(check->facts().view(), *check);
    }
}

void Module::examine(const Position &position)
{
    Job &job = jobs_.at(position);
    Facts facts;
    facts.request = job.request;
    const int32_t error = connected_ ? read_info(context(), facts) : -ENOTCONN;
    if (error != 0) {
        try_later(position.text() + " is not examined yet: the card's information cannot be read " +
                  result_text(error));
        return;
    }
    const auto check = std::make_shared<app_cg_kit_check>(std::move(facts), mailbox_);
    job.check = check;
    take_verdict(position, *check, hooks_.check(check->facts().view(), *check));
}

void Module::take_verdict(const Position &position, app_cg_kit_check &check, int verdict)
{
    if (verdict == APP_CG_KIT_PASS || verdict == APP_CG_KIT_DENY) {
        (void)check.settle(verdict == APP_CG_KIT_PASS); // one that was given before counts
        deliver(position);
        return;
    }
    if (verdict != APP_CG_KIT_LATER) {
        if (check.end_unless_answered(APP_CG_KIT_E_WITHDRAWN)) {
            jobs_.at(position).check.reset();
            try_later({});
        } else {
            deliver(position);
        }
    } else if (check.is_answered()) {
        deliver(position);
    } else if (!check.promise()) {
        log_(APP_CG_KIT_ERROR, position.text() +
                                   ": a verdict was promised for later, but nobody holds the handle "
                                   "to give it (app_cg_kit_hold)");
    }
}

void Module::take_mail()
{
    if (stopping_) {
        platform::loop_end(context()); // whatever becomes of the verdicts that came before
    }
    for (const auto &check : mailbox_->take()) {
        const auto found = jobs_.find(check->facts().request.position);
        if (found != jobs_.end() && found->second.check == check) {
            guard("a verdict", [&] { deliver(found->first); });
        }
    }
}

// Writes a verdict that is there. By value: the job dies.
void Module::deliver(const Position &position_of_job)
{
    const Position position = position_of_job;
    const auto found = jobs_.find(position);
    if (found == jobs_.end() || !found->second.check || !found->second.check->is_answered()) {
        return;
    }
    const std::shared_ptr<app_cg_kit_check> check = found->second.check;
    if (may_deliver(position, *check)) {
        write(position, check->given());
    }
}

// An answer to nobody would meet the card's next request, and one about another card admit or deny the wrong
// one. The request is looked at before the card: the other way round, both could change in between.
bool Module::may_deliver(const Position &position, const app_cg_kit_check &check)
{
    int32_t error = 0;
    const int32_t result = connected_ ? stands(context(), check.facts().request) : -ENOTCONN;
    const bool is_another = result == 1 && is_exchanged(check, error);
    if (result < 0 || error != 0) {
        try_later(position.text() + " is not answered yet: the store does not answer " +
                  result_text(result < 0 ? result : error));
    } else if (result == 0) {
        log_(APP_CG_KIT_DEBUG, position.text() + ": the request is gone; its withdrawal is on the way");
    } else if (is_another) {
        end_for_another(jobs_.at(position));
        try_later({}); // the old request's deletion may be on the way, and is read first
    }
    return result == 1 && error == 0 && !is_another;
}

// Whether the slot's card is another one than the one that is examined. False, and the error, when the store
// does not tell.
bool Module::is_exchanged(const app_cg_kit_check &check, int32_t &error)
{
    Facts present;
    present.request = check.facts().request;
    error = connected_ ? read_info(context(), present) : -ENOTCONN;
    return error == 0 && !present.is_same_card(check.facts());
}

void Module::end_for_another(Job &job)
{
    const std::shared_ptr<app_cg_kit_check> check = std::move(job.check);
    check->end(APP_CG_KIT_E_WITHDRAWN);
    log_(APP_CG_KIT_INFO, job.request.position.text() + ": another card came meanwhile; it is examined anew");
    if (hooks_.withdrawn) {
        hooks_.withdrawn(check->facts().view(), *check);
    }
}

void Module::write(const Position &position, const Answer &answer)
{
    const int32_t result = write_answer(context(), position, name_, answer.pass, answer.reason);
    if (result != 0) {
        try_later(position.text() + " is not answered yet: the store did not take it " + result_text(result));
        return;
    }
    told_problem_.clear();
    jobs_.erase(position);
    const std::string reason = answer.reason.empty() ? "" : ' ' + answer.reason;
    log_(APP_CG_KIT_INFO, name_ + ' ' + position.text() + (answer.pass ? " PASS" : " DENY" + reason));
}

// An empty problem is the user's own wish.
void Module::try_later(const std::string &problem)
{
    if (!problem.empty() && std::exchange(told_problem_, problem) != problem) {
        log_(APP_CG_KIT_WARNING, problem + "; trying again");
    }
    if (!retry_.is_armed() &&
        !retry_.arm(context(), retry_pause, [this] { guard("a verdict", [this] { try_again(); }); })) {
        log_(APP_CG_KIT_ERROR, "no timer can be armed; verdicts wait for the next event");
    }
}

void Module::try_again()
{
    std::vector<Position> positions; // jobs end on the way
    for (const auto &[position, job] : jobs_) {
        positions.push_back(position);
    }
    for (const Position &position : positions) {
        const auto found = jobs_.find(position);
        if (found != jobs_.end() && !found->second.check) {
            examine(position);
        } else {
            deliver(position);
        }
    }
}

void Module::watch_time(Job &job, std::chrono::seconds asked_for)
{
    const bool is_first = asked_for < warn_after;
    const auto next = is_first ? warn_after : cg::check_timeout;
    const auto due = [this, &job, next] {
        const std::string card =
            job.request.position.text() + ": no verdict for " + std::to_string(next.count()) + " s; ";
        if (next == warn_after) {
            log_(APP_CG_KIT_WARNING, card + "the daemon admits the card unexamined when 300 s are over");
            watch_time(job, next);
        } else {
            log_(APP_CG_KIT_WARNING, card + "the time is over, and the daemon admits the card unexamined");
        }
    };
    if (!job.patience.arm(context(), next - asked_for, due)) {
        log_(APP_CG_KIT_WARNING, "no timer can be armed; nobody warns when 300 s run out");
    }
}

void Module::end_jobs()
{
    for (const auto &[position, job] : jobs_) {
        if (job.check) {
            if (job.check->is_answered()) {
                log_(APP_CG_KIT_WARNING,
                     position.text() + ": the module ends before the store took the verdict");
            }
            job.check->end(APP_CG_KIT_E_STOPPED);
        }
    }
    jobs_.clear();
}

} // namespace kit
