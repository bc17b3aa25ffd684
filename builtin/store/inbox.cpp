// What the connection on the loop brings; see the header.
#include "store/inbox.h"

#include <algorithm>

#include <malloc.h>

#include "loop/platform_context.h"

namespace store
{

namespace
{

constexpr size_t deliveries_per_turn = 64;
constexpr int checks_between_looks = 3; // at the server's functions
constexpr size_t burst = 1024 * 1024;   // bytes

} // namespace

Inbox::Inbox(Shared &shared, Calls &calls, AsyncConnection &loop)
    : shared_(shared), calls_(calls), loop_(loop)
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
    if (state_ == State::open && checks_ >= checks_between_looks) {
        checks_ = 0;
        calls_.keep_functions();
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
    shared_.outage.renew();
    pongs_ = 0;
    state_ = State::arrived;
    shared_.schedule_turn();
}

void Inbox::on_lost(const std::string &problem)
{
    const std::string loss = shared_.identity.endpoint.text + ": " + problem;
    shared_.outage.begin(Clock::now(), loss);
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
    if (lasting) {
        calls_.log_once(problem);
        return;
    }
    shared_.outage.begin(Clock::now(), shared_.identity.endpoint.text + ": " + problem, Outage::Known::no);
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
    checks_ += shared_.keeps_functions ? 1 : 0;
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

// The heap keeps what a burst took below pieces that live on, unless it is asked; what it gave back stays
// counted as free.
void Inbox::give_burst_back()
{
    const size_t free = mallinfo2().fordblks;
    given_back_ = std::min(given_back_, free);
    if (free >= given_back_ + burst) {
        (void)malloc_trim(0);
        given_back_ = free;
    }
}

void Inbox::report_loss()
{
    if (loss_due_) {
        const std::string reason = std::move(*loss_due_);
        loss_due_.reset();
        notify({ConnectionEvent::Kind::lost, calls_.number(), reason});
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
    notify({ConnectionEvent::Kind::returned, calls_.number(), {}, is_same});
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
