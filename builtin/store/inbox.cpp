// What the connection on the loop brings; see the header.
#include "store/inbox.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include <malloc.h>
#include <unistd.h>

#include "loop/health.h"
#include "loop/platform_context.h"
#include "store/functions.h"

namespace store
{

namespace
{

constexpr size_t deliveries_per_turn = 64;
constexpr size_t burst = size_t{1024} * 1024; // bytes

} // namespace

Inbox::Memory Inbox::memory()
{
    std::ifstream statm("/proc/self/statm");
    size_t all = 0;
    size_t resident = 0;
    statm >> all >> resident;
    return {mallinfo2().fordblks, resident * static_cast<size_t>(sysconf(_SC_PAGESIZE))};
}

Inbox::Inbox(Calls &calls, AsyncConnection &loop)
    : server_(calls.server()), shared_(server_.shared), calls_(calls), loop_(loop)
{
}

void Inbox::begin()
{
    loop_.begin(*this);
}

void Inbox::set_handler(ConnectionHandler handler)
{
    handler_ = handler ? std::make_shared<const ConnectionHandler>(std::move(handler)) : nullptr;
}

void Inbox::notify(const ConnectionEvent &event)
{
    if (const auto handler = handler_) { // kept: it may set another one
        const platform::Handling handling(shared_.global, {platform::Activity::Kind::connection});
        platform::call_handler(shared_.global, [&] { (*handler)(event); });
    }
}

std::shared_ptr<TypeSubscription> Inbox::subscribe(const ProtobufCMessageDescriptor &type,
                                                   ChangeHandler handler)
{
    begin();
    const auto found = std::find_if(subscriptions_.begin(), subscriptions_.end(),
                                    [&](const auto &known) { return &known->type() == &type; });
    std::shared_ptr<TypeSubscription> asked;
    if (found != subscriptions_.end()) {
        asked = *found;
        subscriptions_.erase(found);
    } else {
        asked = std::make_shared<TypeSubscription>(calls_, loop_, type);
    }
    subscriptions_.push_back(asked);
    asked->ask(std::move(handler));
    shared_.schedule_turn();
    return asked;
}

bool Inbox::turn()
{
    if (platform::is_ending(shared_.global)) {
        return true; // nothing would be reported: for the next run
    }
    report_loss();
    if (state_ == State::arrived && !open()) {
        return false;
    }
    if (state_ != State::open) {
        return false;
    }
    const bool more = deliver();
    return advance_subscriptions() || more;
}

// An outage ends when a call is answered: the server may be none to be believed.
void Inbox::on_up()
{
    server_.outage.renew();
    note_away(false);
    pongs_ = 0;
    state_ = State::arrived;
    shared_.schedule_turn();
}

void Inbox::on_lost(const std::string &problem)
{
    const std::string loss = server_.identity.endpoint.text + ": " + problem;
    server_.outage.begin(Clock::now(), loss);
    note_away(true);
    if (state_ == State::open) {
        loss_due_ = loss;
    }
    state_ = State::down;
    for (const auto &subscription : subscriptions_) {
        subscription->on_lost();
    }
    shared_.schedule_turn();
}

void Inbox::on_failed(const std::string &problem, bool lasting)
{
    note_away(true);
    if (lasting) {
        calls_.log_once(problem);
        return;
    }
    server_.outage.begin(Clock::now(), server_.identity.endpoint.text + ": " + problem, Outage::Known::no);
}

// Who reads the process's health sees by itself whether its server is there, and of another one only what
// this says.
void Inbox::note_away(bool is_away)
{
    if (shared_.health_at == nullptr || shared_.health_at == &server_) {
        return;
    }
    if (std::exchange(is_noted_away_, is_away) != is_away) {
        platform::note_health(("away_" + std::to_string(calls_.number())).c_str(), is_away ? 1 : 0);
    }
}

void Inbox::on_subscribed(std::string_view watched)
{
    note_heard();
    if (const auto subscription = subscription_of(watched)) {
        subscription->on_confirmed();
        shared_.schedule_turn();
    }
}

void Inbox::on_refused(std::string_view watched, const std::string &problem)
{
    const auto subscription = subscription_of(watched);
    if (subscription != nullptr && subscription->awaits_confirmation()) {
        subscription->on_refused(problem);
        shared_.schedule_turn();
    }
}

void Inbox::on_message(std::string_view watched, std::string_view channel, std::string_view payload)
{
    note_heard();
    if (const auto receiver = subscription_of(watched)) {
        channel.remove_prefix(std::min(channel.size(), calls_.channels().size()));
        receiver->on_message(++arrivals_, channel, payload);
        shared_.schedule_turn();
    }
}

void Inbox::on_pong()
{
    note_heard();
    pongs_++;
    for (const auto &subscription : subscriptions_) {
        subscription->on_pong(pongs_);
    }
    shared_.schedule_turn();
}

// What was refused may be allowed by now.
void Inbox::on_checked()
{
    note_heard();
    give_burst_back();
    for (const auto &subscription : subscriptions_) {
        subscription->on_checked();
    }
    shared_.schedule_turn();
}

void Inbox::note_heard()
{
    if (std::none_of(subscriptions_.begin(), subscriptions_.end(),
                     [](const auto &known) { return known->is_behind(); })) {
        heard_at_ = Clock::now();
    }
}

// The heap keeps what a burst took below pieces that live on, unless it is asked. What it gave back stays
// counted as free, so a burst that came and went since then shows in what is resident only.
void Inbox::give_burst_back()
{
    const Memory now = memory();
    least_.free = std::min(least_.free, now.free);
    least_.resident = std::min(least_.resident, now.resident);
    if (now.free >= least_.free + burst || now.resident >= least_.resident + burst) {
        (void)malloc_trim(0);
        least_ = memory();
    }
}

void Inbox::report_loss()
{
    if (loss_due_) {
        const std::string reason = std::move(*loss_due_);
        loss_due_.reset();
        notify({ConnectionEvent::Kind::lost, calls_.number(), reason, false, server_.name()});
    }
}

// The connection is up: finds out what came back and notifies the user. Returns false when it has to be tried
// again.
bool Inbox::open()
{
    state_ = State::down; // until it is known what came back
    const Calls::Returned returned = calls_.examine_returned();
    if (returned == Calls::Returned::unidentified) {
        return false;
    }
    state_ = State::open;
    if (!has_arrived_) {
        has_arrived_ = true;
        return true;
    }
    const bool is_same = returned == Calls::Returned::same;
    for (const auto &subscription : subscriptions_) {
        subscription->on_returned(!is_same);
    }
    notify({ConnectionEvent::Kind::returned, calls_.number(), {}, is_same, server_.name()});
    return true;
}

// Delivers some of what has arrived, in the order in which it came, so that changes of different record types
// are delivered as they were made. Returns whether there is more.
bool Inbox::deliver()
{
    for (size_t i = 0; i < deliveries_per_turn && !platform::is_ending(shared_.global); i++) {
        std::shared_ptr<TypeSubscription> next;
        for (const auto &subscription : subscriptions_) {
            if (subscription->due() && (next == nullptr || *subscription->due() < *next->due())) {
                next = subscription;
            }
        }
        if (next == nullptr) {
            return false;
        }
        next->deliver_due();
    }
    return true;
}

bool Inbox::advance_subscriptions()
{
    bool more = false;
    bool one_is_served = false;
    // A copy: callbacks may subscribe.
    const auto subscriptions = subscriptions_;
    for (const auto &subscription : subscriptions) {
        if (!subscription->is_in_place()) {
            if (one_is_served) {
                continue;
            }
            one_is_served = true;
        }
        more = subscription->advance() || more;
    }
    return more;
}

std::shared_ptr<TypeSubscription> Inbox::subscription_of(std::string_view watched)
{
    const auto found = std::find_if(subscriptions_.begin(), subscriptions_.end(),
                                    [&](const auto &known) { return known->watched() == watched; });
    return found == subscriptions_.end() ? nullptr : *found;
}

} // namespace store
