// The stations of a subscription; see the header. Every station leaves its work at once when a callback made
// the subscription start over, which `round_` tells.
#include "subscription.h"

#include <algorithm>

#include "database.h"
#include "platform_log.h"

namespace vx_mom
{

namespace
{

constexpr size_t changes_per_turn = 64;
constexpr size_t sweep_size = 128;

} // namespace

Subscription::Subscription(Database &database, const ProtobufCMessageDescriptor &type, Subscriber subscriber)
    : database_(database), type_(type), name_(type.name), channel_(channel_name(database.number(), name_)),
      subscriber_(subscriber)
{
}

void Subscription::ask_again(Subscriber subscriber)
{
    subscriber_ = subscriber;
    announce_ = true;
    start_over(true);
}

void Subscription::on_confirmed()
{
    subscribed_ = true;
    if (phase_ == Phase::confirming) {
        phase_ = Phase::confirmed;
    }
}

void Subscription::on_refused(const std::string &problem)
{
    PLATFORM_LOG(platform::log_error, "subscription to %s refused: %s", channel_.c_str(), problem.c_str());
    phase_ = Phase::refused;
}

void Subscription::on_message(std::string &&payload)
{
    queue_.push_back(std::move(payload));
    if (phase_ == Phase::live) {
        (void)deliver_queued();
    }
}

void Subscription::on_lost()
{
    subscribed_ = false;
    queue_.clear();
    start_over(deliver_all_ && !is_settled());
}

void Subscription::on_returned(bool everything)
{
    start_over(deliver_all_ || everything);
}

bool Subscription::advance()
{
    switch (phase_) {
    case Phase::asked:
        return begin();
    case Phase::confirmed:
        return take_fence();
    case Phase::sweeping:
        return sweep();
    case Phase::reading:
        return read();
    case Phase::draining:
        return drain();
    case Phase::live:
        return deliver_queued();
    case Phase::confirming:
    case Phase::refused:
        break;
    }
    return false;
}

void Subscription::start_over(bool everything)
{
    round_++;
    phase_ = Phase::asked;
    deliver_all_ = everything;
}

bool Subscription::begin()
{
    if (subscribed_) {
        phase_ = Phase::confirmed;
        return true;
    }
    phase_ = Phase::confirming;
    database_.watch(channel_);
    return false;
}

bool Subscription::take_fence()
{
    const uint64_t round = round_;
    const int32_t error = read_revision(database_, name_, fence_);
    if (round != round_) {
        return false;
    }
    if (error != ok) {
        return fail(error);
    }
    last_ = fence_;
    read_up_to_ = 0;
    gone_.clear();
    to_sweep_.clear();
    for (const auto &known : known_) {
        to_sweep_.push_back(known.first);
    }
    phase_ = Phase::sweeping;
    return true;
}

// Reports records that are known and not in the index any more. One that vanished after the fence is reported
// here, before everything else, and its deletion in the queue is passed over.
bool Subscription::sweep()
{
    if (to_sweep_.empty()) {
        phase_ = Phase::reading;
        return true;
    }
    const size_t count = std::min(sweep_size, to_sweep_.size());
    const std::vector<std::string> keys(to_sweep_.end() - static_cast<std::ptrdiff_t>(count),
                                        to_sweep_.end());
    to_sweep_.resize(to_sweep_.size() - count);
    Command command{"ZMSCORE", index_key(name_)};
    command.insert(command.end(), keys.begin(), keys.end());
    const uint64_t round = round_;
    const Answer answer = database_.ask({command}, Purpose::read);
    if (round != round_) {
        return false;
    }
    const bool usable = answer.error == ok && answer.replies[0]->type == REDIS_REPLY_ARRAY &&
                        answer.replies[0]->elements == count;
    if (!usable) {
        return fail(answer.error != ok ? answer.error : int32_t{refused});
    }
    for (size_t i = 0; i < count && round == round_; i++) {
        if (answer.replies[0]->element[i]->type == REDIS_REPLY_NIL) {
            report_gone(keys[i]);
        }
    }
    return true;
}

bool Subscription::read()
{
    const uint64_t round = round_;
    Slice slice;
    const auto wanted = [this](const std::string &key, uint64_t revision) {
        const auto known = known_.find(key);
        return deliver_all_ || known == known_.end() || known->second.revision != revision;
    };
    const int32_t error = read_slice(database_, name_, read_up_to_, fence_, wanted, slice);
    if (round != round_) {
        return false;
    }
    if (error != ok) {
        return fail(error);
    }
    for (StoredRecord &record : slice.records) {
        if (record.revision > fence_) {
            continue; // comes from the queue
        }
        const MessagePtr message = decode_or_log(type_, record.key, record.fields);
        if (message == nullptr) {
            continue;
        }
        known_[record.key] = {record.revision, std::move(record.fields)};
        call_back(VX_MOM_CMD_SET, message.get());
        if (round != round_) {
            return true;
        }
    }
    return slice.done ? finish_reading() : true;
}

// All records up to the fence are delivered. Changes up to now come before command 29; the answer to a ping
// tells that none of them is still on its way.
bool Subscription::finish_reading()
{
    const uint64_t round = round_;
    const int32_t error = read_revision(database_, name_, target_);
    if (round != round_) {
        return false;
    }
    if (error != ok) {
        return fail(error);
    }
    phase_ = Phase::draining;
    ping_ = database_.ping();
    return false;
}

bool Subscription::drain()
{
    const uint64_t round = round_;
    if (deliver_queued() || round != round_) {
        return true;
    }
    if (!database_.is_answered(ping_)) {
        return false;
    }
    if (last_ < target_) {
        return resynchronise("changes did not arrive");
    }
    return settle();
}

bool Subscription::settle()
{
    phase_ = Phase::live;
    deliver_all_ = false;
    gone_.clear();
    if (announce_) {
        announce_ = false;
        call_back(VX_MOM_CMD_SUBSCRIBED, nullptr);
    }
    return true;
}

// Delivers some changes. Returns whether there are more.
bool Subscription::deliver_queued()
{
    const uint64_t round = round_;
    for (size_t i = 0; i < changes_per_turn && !queue_.empty(); i++) {
        if (!deliver_next() || round != round_) {
            return true;
        }
    }
    return !queue_.empty();
}

// Delivers the change at the front of the queue. Returns false when it does not follow the last one.
bool Subscription::deliver_next()
{
    Change change;
    const bool decoded = decode_change(queue_.front(), change);
    queue_.pop_front();
    if (!decoded) {
        return resynchronise("an unreadable change arrived"), false;
    }
    if (change.revision <= fence_ && phase_ == Phase::draining) {
        return true; // in the snapshot already
    }
    if (change.revision != last_ + 1) {
        return resynchronise("a change is missing"), false;
    }
    last_ = change.revision;
    database_.learn(name_, last_);
    if (change.command == VX_MOM_CMD_DELETED) {
        deliver_deleted(std::move(change));
    } else {
        deliver_written(std::move(change));
    }
    return true;
}

void Subscription::deliver_written(Change &&change)
{
    const MessagePtr message = decode_or_log(type_, change.key, change.fields);
    gone_.erase(change.key);
    if (message == nullptr) {
        return;
    }
    // Until command 29 a record that was not delivered yet is one that existed: delivered as a whole.
    const bool is_first = phase_ == Phase::draining && known_.count(change.key) == 0;
    known_[change.key] = {change.revision, std::move(change.fields)};
    call_back(is_first ? int32_t{VX_MOM_CMD_SET} : change.command, message.get());
}

void Subscription::deliver_deleted(Change &&change)
{
    if (gone_.erase(change.key) != 0) {
        return;
    }
    const auto known = known_.find(change.key);
    if (known != known_.end() && change.fields.empty()) {
        change.fields = known->second.fields;
    }
    MessagePtr message = decode_or_log(type_, change.key, change.fields);
    // Somebody spoilt the record past the client. The user has it as it was and must be told that it is gone.
    if (message == nullptr && known != known_.end()) {
        message = decode_or_log(type_, change.key, known->second.fields);
    }
    // Until command 29 a record that was not delivered yet is one that existed at the fence: nothing has
    // changed it since, so it is delivered as it then was, and its deletion after that.
    if (message != nullptr && phase_ == Phase::draining && known == known_.end()) {
        const uint64_t round = round_;
        known_[change.key] = {change.revision, change.fields};
        call_back(VX_MOM_CMD_SET, message.get());
        if (round != round_) {
            return; // starting over tells of the deletion
        }
    }
    known_.erase(change.key);
    if (message != nullptr) {
        call_back(VX_MOM_CMD_DELETED, message.get());
    }
}

void Subscription::report_gone(const std::string &key)
{
    const auto known = known_.find(key);
    if (known == known_.end()) {
        return;
    }
    const Fields fields = std::move(known->second.fields);
    known_.erase(known);
    gone_.insert(key);
    if (const MessagePtr message = decode_or_log(type_, key, fields)) {
        call_back(VX_MOM_CMD_DELETED, message.get());
    }
}

// The store did not answer: the connection counts as lost, and all begins anew with its return. A refusal
// would only be repeated, so it ends the subscription until it is asked again.
bool Subscription::fail(int32_t error)
{
    if (error == refused) {
        on_refused("the records cannot be read");
        return true;
    }
    database_.drop("the records cannot be read");
    return false;
}

bool Subscription::resynchronise(const char *why)
{
    PLATFORM_LOG(platform::log_warn, "subscription to %s: %s, starting over", channel_.c_str(), why);
    const uint64_t round = round_;
    if (database_.confirm_data_set() && round == round_) {
        start_over(deliver_all_);
    }
    return true;
}

void Subscription::call_back(int32_t command, ProtobufCMessage *record)
{
    vx_mom_pmsg_t notification{};
    vx_mom_result_t result{ok, record};
    notification.cmd = command;
    if (command == VX_MOM_CMD_DELETED) {
        notification.record = record;
    } else if (record != nullptr) {
        notification.result = &result;
    }
    (void)subscriber_.callback(subscriber_.arg, &notification);
}

} // namespace vx_mom
