// The loop's side of a database: what its connection there brings, what a return is taken for, and the turns
// of its subscriptions. The calls are in database_calls.cpp.
#include <algorithm>

#include "loop/platform_context.h"
#include "store/codec/names.h"
#include "store/database.h"

namespace vx_mom
{

namespace
{

constexpr size_t arrivals_per_turn = 64;

} // namespace

Database::Database(Shared &shared, int32_t number)
    : shared_(shared), number_(number), sync_(shared.visitor, number),
      async_(shared.base, shared.visitor, number, shared.outage.budget(), *this, shared.messages),
      channel_prefix_(channel_prefix(number))
{
}

void Database::begin()
{
    wanted_ = true;
    async_.begin();
}

void Database::set_handler(store::ConnectionHandler handler)
{
    handler_ = handler ? std::make_shared<const store::ConnectionHandler>(std::move(handler)) : nullptr;
}

void Database::tell(const store::ConnectionEvent &event)
{
    if (const auto handler = handler_) { // kept: it may set another one
        const platform::Handling handling(shared_.global, {platform::Activity::Kind::connection});
        platform::call_handler(shared_.global, [&] { (*handler)(event); });
    }
}

std::shared_ptr<Subscription> Database::subscribe(const ProtobufCMessageDescriptor &type,
                                                  store::ChangeHandler handler)
{
    begin();
    const auto found = std::find_if(subscriptions_.begin(), subscriptions_.end(),
                                    [&](const auto &known) { return &known->type() == &type; });
    std::shared_ptr<Subscription> asked;
    if (found != subscriptions_.end()) {
        asked = *found;
        subscriptions_.erase(found);
    } else {
        asked = std::make_shared<Subscription>(*this, type);
    }
    subscriptions_.push_back(asked);
    asked->ask(std::move(handler));
    shared_.schedule_turn();
    return asked;
}

bool Database::turn()
{
    report_loss();
    if (arrival_due_ && !settle_arrival()) {
        return false;
    }
    if (!reported_up_) {
        return false;
    }
    const bool more = hand_out_arrivals();
    return advance_subscriptions() || more;
}

uint64_t Database::ping()
{
    async_.ping();
    return ++pings_;
}

bool Database::confirm_data_set()
{
    const Answer answer = ask(data_set_.questions(), Purpose::read);
    DataSet::Answers answers;
    std::string problem = "no answer";
    if (answer.error != ok || !data_set_.read(answer.replies, answers, problem)) {
        drop("the store's data cannot be identified: " + problem);
        return false;
    }
    if (!data_set_.is_same(answers, false)) {
        other_data_ = true;
        drop("the store holds other data");
        return false;
    }
    return true;
}

void Database::on_up(const std::string &run, const std::string &data_set_id)
{
    async_run_ = run;
    async_id_ = data_set_id;
    pings_ = 0;
    pongs_ = 0;
    arrival_due_ = true; // an outage ends when a call is answered: the server may be none to be believed
    shared_.schedule_turn();
}

void Database::on_lost(const std::string &problem)
{
    loss_ = shared_.visitor.endpoint.text + ": " + problem;
    shared_.outage.begin(Clock::now(), loss_);
    arrival_due_ = false;
    arrivals_.clear();
    loss_due_ = reported_up_ || loss_due_;
    reported_up_ = false;
    for (const auto &subscription : subscriptions_) {
        subscription->on_lost();
    }
    shared_.schedule_turn();
}

void Database::on_failed(const std::string &problem, bool lasting)
{
    if (lasting) {
        tell_once(problem);
        return;
    }
    shared_.outage.begin(Clock::now(), shared_.visitor.endpoint.text + ": " + problem);
}

void Database::on_subscribed(std::string_view watched)
{
    note_heard();
    if (const auto subscription = subscription_of(watched)) {
        subscription->on_confirmed();
        shared_.schedule_turn();
    }
}

void Database::on_refused(const std::string &problem)
{
    const auto waiting = std::find_if(subscriptions_.begin(), subscriptions_.end(),
                                      [](const auto &known) { return known->awaits_confirmation(); });
    if (waiting != subscriptions_.end()) {
        (*waiting)->on_refused(problem);
        shared_.schedule_turn();
    }
}

void Database::on_message(std::string_view watched, std::string_view channel, std::string_view payload)
{
    note_heard();
    if (auto receiver = subscription_of(watched)) {
        channel.remove_prefix(std::min(channel.size(), channel_prefix_.size()));
        arrivals_.push_back({std::move(receiver), std::string(channel), std::string(payload)});
        shared_.schedule_turn();
    }
}

void Database::on_pong()
{
    note_heard();
    arrivals_.push_back({});
    shared_.schedule_turn();
}

// Something was refused for good, it seemed; but whoever refused it may have changed his mind.
void Database::on_checked()
{
    note_heard();
    for (const auto &subscription : subscriptions_) {
        subscription->on_checked();
    }
    shared_.schedule_turn();
}

void Database::note_heard()
{
    if (arrivals_.empty()) {
        heard_at_ = Clock::now();
    }
}

void Database::report_loss()
{
    if (loss_due_) {
        loss_due_ = false;
        tell({store::ConnectionEvent::Kind::lost, number_, loss_});
    }
}

// The connection on the loop is up: finds out what came back and tells the user. Returns false when it has to
// be tried again.
bool Database::settle_arrival()
{
    arrival_due_ = false;
    bool other = other_data_;
    other_data_ = false;
    settling_ = true;
    const bool identified = identify_returned(other);
    settling_ = false;
    if (!identified) {
        other_data_ = other;
        return false;
    }
    const bool believable = !other && !write_given_up_;
    write_given_up_ = false;
    reported_up_ = true;
    if (!arrived_) {
        arrived_ = true;
        return true;
    }
    for (const auto &subscription : subscriptions_) {
        subscription->on_returned(!believable);
    }
    tell({store::ConnectionEvent::Kind::returned, number_, {}, believable});
    return true;
}

// Compares the data that came back with the known data and adopts it. `other` becomes true when it differs.
// Returns false when the store did not answer, or both connections do not see the same data.
bool Database::identify_returned(bool &other)
{
    Answer answer = ask(data_set_.questions(), Purpose::read);
    if (answer.error == other_data_set || other) {
        other = true;
        other_data_ = false;
        data_set_ = DataSet();
        sync_.close();
        answer = ask(data_set_.questions(), Purpose::read);
    }
    DataSet::Answers answers;
    std::string problem = "no answer";
    if (answer.error != ok || !async_.is_up() || !data_set_.read(answer.replies, answers, problem)) {
        drop("the store's data cannot be identified: " + problem);
        return false;
    }
    // The identity may have been given after the connection on the loop asked for it.
    if (async_run_ != answers.server.run() || (!async_id_.empty() && async_id_ != answers.id)) {
        sync_.close();
        drop("the connections reach different data");
        return false;
    }
    if (!data_set_.is_same(answers)) {
        other = true;
        data_set_.adopt(answers);
    }
    return true;
}

// Gives some of what has arrived to the subscriptions, one by one. Returns whether there is more.
bool Database::hand_out_arrivals()
{
    for (size_t i = 0; i < arrivals_per_turn && !arrivals_.empty(); i++) {
        Arrival arrival = std::move(arrivals_.front());
        arrivals_.pop_front();
        if (arrival.receiver == nullptr) {
            pongs_++;
        } else {
            arrival.receiver->on_message(std::move(arrival.key), std::move(arrival.payload));
        }
    }
    return !arrivals_.empty();
}

bool Database::advance_subscriptions()
{
    bool more = false;
    bool one_is_served = false;
    // A copy: callbacks may subscribe.
    const auto subscriptions = subscriptions_;
    for (const auto &subscription : subscriptions) {
        if (!subscription->is_settled()) {
            if (one_is_served) {
                continue;
            }
            one_is_served = true;
        }
        more = subscription->advance() || more;
    }
    return more;
}

std::shared_ptr<Subscription> Database::subscription_of(std::string_view watched)
{
    const auto found = std::find_if(subscriptions_.begin(), subscriptions_.end(),
                                    [&](const auto &known) { return known->watched() == watched; });
    return found == subscriptions_.end() ? nullptr : *found;
}

} // namespace vx_mom
