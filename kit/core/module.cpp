// A check module; see the header.
#include "core/module.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/times.h"
#include "core/records.h"
#include "log/platform_log.h"
#include "modules/contract.h"
#include "process/service_notice.h"

namespace kit
{

namespace
{

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

} // namespace

Module::Module(std::string name, std::optional<store::Place> place, Hooks hooks, Log log)
    : name_(std::move(name)), hooks_(std::move(hooks)), log_(std::move(log)), loop_(name_),
      client_(
          loop_.context(),
          {.place = std::move(place),
           .notice = [log = log_](int32_t level, const std::string &text) { log(level_of(level), text); }}),
      wake_(loop_.context(), [this] { handle_wake(); }),
      mailbox_(std::make_shared<Mailbox>([this] { wake_.call(); }, log_))
{
    // Has the client read its settings, here and not in the thread that runs the module: others that are
    // being made read them, too. What is wrong with them run() finds again.
    (void)client_.on_connection(database,
                                [this](const store::ConnectionEvent &event) { handle_connection(event); });
}

Module::~Module()
{
    mailbox_->close();
    end_jobs();
}

int Module::run(bool handle_signals)
{
    if (std::exchange(ran_, true)) {
        return APP_CG_KIT_E_STOPPED;
    }
    if (handle_signals) {
        // A service manager that cannot be reached is reported on standard error, and no reason not to serve.
        (void)platform::register_service();
    }
    if (const store::Status status = client_.open(database); !status) {
        log_(APP_CG_KIT_ERROR, "no connection to the store can be made: " + status.reason);
        return APP_CG_KIT_E_SYSTEM;
    }
    int result = 0;
    try {
        using Signals = platform::Loop::Signals;
        loop_.run(handle_signals ? Signals::end_it : Signals::leave);
    } catch (const std::exception &problem) {
        log_(APP_CG_KIT_ERROR, std::string("cannot serve: ") + problem.what());
        result = APP_CG_KIT_E_SYSTEM;
    }
    mailbox_->close();
    end_jobs();
    return result;
}

void Module::stop() noexcept
{
    stopping_ = true;
    wake_.call();
}

// An exception would end the loop. What throws here is memory that ran out; the other cards go on.
void Module::guard(const char *what, const std::function<void()> &action) noexcept
{
    try {
        action();
    } catch (const std::exception &problem) {
        log_(APP_CG_KIT_ERROR, std::string("could not handle ") + what + ": " + problem.what());
    }
}

// Subscriptions continue by themselves after an outage, with what was written meanwhile, or with everything
// when the store may have lost something, which may have been answers.
void Module::handle_connection(const store::ConnectionEvent &event)
{
    const std::string db = std::to_string(event.database);
    connected_ = event.kind != store::ConnectionEvent::Kind::lost;
    switch (event.kind) {
    case store::ConnectionEvent::Kind::connected:
        guard("the connection", [this] { subscribe(); });
        break;
    case store::ConnectionEvent::Kind::lost:
        log_(APP_CG_KIT_WARNING, "lost the store, database " + db +
                                     (event.reason.empty() ? "" : " (" + event.reason + ')') +
                                     "; reconnecting");
        break;
    case store::ConnectionEvent::Kind::returned:
        log_(APP_CG_KIT_INFO, "the store is back, database " + db +
                                  (event.same_data ? ""
                                                   : ", perhaps with other data; standing requests are "
                                                     "answered again"));
        guard("an answer", [this] { retry(); });
        break;
    }
}

// Cards first, so that a module that keeps account of them knows all before it examines one.
void Module::subscribe()
{
    const auto guarded = [this](const char *what, void (Module::*handle)(const store::Change &)) {
        return [this, what, handle](const store::Change &change) {
            guard(what, [&] { (this->*handle)(change); });
        };
    };
    if (hooks_.card) {
        cards_ = client_.subscribe(database, card_type(), guarded("a card", &Module::handle_card)).value;
    }
    auto requests =
        client_.subscribe(database, request_type(), guarded("a check request", &Module::handle_request));
    if (!requests) {
        log_(APP_CG_KIT_ERROR, "cannot subscribe to the check requests: " + requests.reason);
    }
    requests_ = std::move(requests.value);
}

void Module::handle_request(const store::Change &change)
{
    if (change.command == VX_MOM_CMD_SUBSCRIBED) {
        log_(APP_CG_KIT_INFO, "subscribed; module " + name_ + " waits for cards");
        return;
    }
    if (change.command == VX_MOM_CMD_DELETED) { // by its key: what it held may not decode
        const auto found = std::find_if(jobs_.begin(), jobs_.end(),
                                        [&](const auto &entry) { return entry.second.key == change.key; });
        if (found != jobs_.end()) {
            withdraw(found->first);
        }
        return;
    }
    if (change.error != 0) {
        log_(APP_CG_KIT_ERROR, "a check request could not be read: " + std::string(change.reason));
    }
    if (const std::optional<Request> request = request_in(change)) {
        open_job(*request, change);
    }
}

void Module::handle_card(const store::Change &change)
{
    if (change.error != 0) {
        log_(APP_CG_KIT_ERROR, "a card's information could not be read: " + std::string(change.reason));
    }
    if (const std::optional<Facts> card = card_in(change)) {
        hooks_.card(card->view(), change.command != VX_MOM_CMD_DELETED);
    }
}

// A request that is open and repeated is answered by the verdict that is under way, unless that is another
// card's: after an outage, a deletion and the next request arrive as one. When the store cannot say which
// card is there, that is checked again before the answer is written.
void Module::open_job(const Request &request, const store::Change &change)
{
    const auto found = jobs_.find(request.position);
    if (found != jobs_.end() && found->second.request == request) {
        Job &job = found->second;
        job.revision = change.revision;
        log_(APP_CG_KIT_DEBUG, request.position.text() + " is requested again, still under examination");
        watch_time(job, std::chrono::seconds(0)); // its time starts again
        if (job.check && has_other_card(*job.check).value) {
            end_for_other_card(job);
            examine(request.position);
        }
        return;
    }
    withdraw(request.position);
    Job &job = jobs_[request.position];
    job.request = request;
    job.key = change.key;
    job.revision = change.revision;
    watch_time(job, std::chrono::seconds(0));
    examine(request.position);
}

// The position is a copy, since the job that has it ends here.
void Module::withdraw(Position position)
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
    const store::Status read = connected_ ? read_info(client_, facts) : no_connection();
    if (!read) {
        retry_later(position.text() +
                    " is not examined yet: the card's information cannot be read: " + read.reason);
        return;
    }
    const auto check = std::make_shared<app_cg_kit_check>(std::move(facts), mailbox_);
    job.check = check;
    handle_verdict(position, *check, hooks_.check(check->facts().view(), *check));
}

void Module::handle_verdict(const Position &position, app_cg_kit_check &check, int verdict)
{
    switch (verdict) {
    case APP_CG_KIT_PASS:
    case APP_CG_KIT_DENY:
        (void)check.answer_from_callback(verdict == APP_CG_KIT_PASS); // one that was given before counts
        deliver(position);
        break;
    case APP_CG_KIT_LATER:
        if (check.is_answered()) {
            deliver(position);
        } else if (!check.promise()) {
            log_(APP_CG_KIT_ERROR, position.text() +
                                       ": a verdict was promised for later, but nobody holds the handle "
                                       "to give it (app_cg_kit_hold)");
        }
        break;
    default:
        if (check.end_unless_answered(APP_CG_KIT_E_WITHDRAWN)) {
            jobs_.at(position).check.reset();
            retry_later({});
        } else {
            deliver(position);
        }
    }
}

void Module::handle_wake()
{
    if (stopping_) {
        loop_.stop(); // verdicts that were given before are still written
    }
    for (const auto &check : mailbox_->receive()) {
        const auto found = jobs_.find(check->facts().request.position);
        if (found != jobs_.end() && found->second.check == check) {
            guard("a verdict", [&] { deliver(found->first); });
        }
    }
}

// Writes a verdict that was given. The position is a copy, since the job that has it ends here.
void Module::deliver(Position position)
{
    const auto found = jobs_.find(position);
    if (found == jobs_.end() || !found->second.check || !found->second.check->is_answered()) {
        return;
    }
    const std::shared_ptr<app_cg_kit_check> check = found->second.check;
    if (may_deliver(position, *check)) {
        write(jobs_.at(position), check->given());
    }
}

// A late answer would be taken for the reply to the card's next request, and one about another card admit or
// deny the wrong one. The request is read before the card: the other way round, both could change in between.
bool Module::may_deliver(const Position &position, const app_cg_kit_check &check)
{
    const auto standing =
        connected_ ? stands(client_, check.facts().request) : store::Result<bool>{no_connection(), false};
    if (standing && !standing.value) {
        log_(APP_CG_KIT_DEBUG, position.text() + ": the request is gone; its withdrawal is under way");
        return false;
    }
    const auto other = standing ? has_other_card(check) : standing;
    if (!other) {
        retry_later(position.text() + " is not answered yet: the store cannot be read: " + other.reason);
        return false;
    }
    if (other.value) {
        end_for_other_card(jobs_.at(position));
        retry_later({}); // the old request's deletion may be under way, and must be handled first
    }
    return !other.value;
}

// Whether the slot's card is another one than the one that is examined.
store::Result<bool> Module::has_other_card(const app_cg_kit_check &check)
{
    Facts present;
    present.request = check.facts().request;
    const store::Status read = connected_ ? read_info(client_, present) : no_connection();
    return {read, read && !present.is_same_card(check.facts())};
}

void Module::end_for_other_card(Job &job)
{
    const std::shared_ptr<app_cg_kit_check> check = std::move(job.check);
    check->end(APP_CG_KIT_E_WITHDRAWN);
    log_(APP_CG_KIT_INFO,
         job.request.position.text() + ": another card was plugged meanwhile, and is examined");
    if (hooks_.withdrawn) {
        hooks_.withdrawn(check->facts().view(), *check);
    }
}

// Its cause is the request, whenever and on whatever occasion the answer is written.
void Module::write(const Job &job, const Answer &answer)
{
    const Position position = job.request.position;
    std::optional<store::Handling> handling;
    if (job.revision != 0) {
        handling.emplace(client_, job.key, job.revision);
    }
    const store::Status written = write_answer(client_, position, name_, answer);
    if (!written) {
        retry_later(position.text() +
                    " is not answered yet: the answer cannot be written: " + written.reason);
        return;
    }
    logged_problem_.clear();
    jobs_.erase(position);
    const std::string reason = answer.reason.empty() ? "" : ' ' + answer.reason;
    log_(APP_CG_KIT_INFO, name_ + ' ' + position.text() + (answer.pass ? " PASS" : " DENY" + reason));
}

// A call would wait for the store until its deadline.
store::Status Module::no_connection() const
{
    return {-ENOTCONN, std::strerror(ENOTCONN)};
}

// An empty problem is the user's own wish.
void Module::retry_later(const std::string &problem)
{
    if (!problem.empty() && std::exchange(logged_problem_, problem) != problem) {
        log_(APP_CG_KIT_WARNING, problem + "; trying again");
    }
    if (!retry_.is_armed()) {
        retry_ = loop_.after(retry_pause, [this] { guard("a verdict", [this] { retry(); }); });
    }
}

void Module::retry()
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

void Module::watch_time(Job &job, std::chrono::seconds elapsed)
{
    const bool is_first = elapsed < warn_after;
    const std::chrono::seconds next = is_first ? warn_after : cg::check_timeout;
    job.patience = loop_.after(next - elapsed, [this, &job, is_first, next] {
        const std::string card =
            job.request.position.text() + ": no verdict for " + cg::seconds_text(next) + "; ";
        if (is_first) {
            log_(APP_CG_KIT_WARNING, card + "the daemon admits the card unexamined when " +
                                         cg::seconds_text(cg::check_timeout) + " are over");
            guard("a warning", [&] { watch_time(job, next); });
        } else {
            log_(APP_CG_KIT_WARNING, card + "the time is over, and the daemon admits the card unexamined");
        }
    });
}

void Module::end_jobs()
{
    for (const auto &[position, job] : jobs_) {
        if (job.check) {
            if (job.check->is_answered()) {
                log_(APP_CG_KIT_WARNING,
                     position.text() + ": the module ends before the verdict was written");
            }
            job.check->end(APP_CG_KIT_E_STOPPED);
        }
    }
    jobs_.clear();
}

} // namespace kit
