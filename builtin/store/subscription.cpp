// The stations of a subscription; see the header. Every station leaves its work at once when a callback made
// the subscription start over, which `round_` tells.
#include "store/subscription.h"

#include <algorithm>

#include "loop/platform_context.h"
#include "store/codec/key.h"
#include "store/codec/names.h"
#include "store/database.h"

namespace vx_mom
{

namespace
{

constexpr size_t changes_per_turn = 64;
constexpr size_t records_per_turn = 64;
constexpr uint64_t changes_per_verification = 64; // while more of them are waiting
constexpr int checks_until_retry = 5;

// The server keeps a hash with a long value in another order than it was published in.
bool is_same_content(const Fields &one, const Fields &other)
{
    return std::is_permutation(one.begin(), one.end(), other.begin(), other.end());
}

// What handling a notification is. A record that vanished while the client was away has no change that could
// be named, but that it is gone has come with the return.
platform::Activity activity_for(const store::Change &change)
{
    using platform::Activity;
    return change.revision == 0 ? Activity{Activity::Kind::connection}
                                : Activity{Activity::Kind::record, change.revision, change.key};
}

} // namespace

Subscription::Subscription(Database &database, const ProtobufCMessageDescriptor &type)
    : database_(database), type_(type), name_(type.name), has_index_(key_field_count(type) != 0),
      watched_(channel_prefix(database.number()) + name_ + (has_index_ ? ":*" : ""))
{
}

void Subscription::ask(store::ChangeHandler handler)
{
    handler_ = std::make_shared<const store::ChangeHandler>(std::move(handler));
    times_asked_++;
    announce_ = true;
    phase_ = Phase::asked;
    start_over(true);
}

void Subscription::cancel()
{
    start_over(true);
    phase_ = Phase::cancelled;
    handler_.reset();
    queue_.clear();
    known_.clear();
    to_deliver_.clear();
    to_sweep_.clear();
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
    if (problem != told_refusal_) {
        told_refusal_ = problem;
        LOG_TO(database_.messages(), platform::log_error, "subscription to %s refused: %s", watched_.c_str(),
               problem.c_str());
    }
    phase_ = Phase::refused;
    checks_ = 0;
    queue_.clear();
}

void Subscription::on_checked()
{
    if (phase_ == Phase::refused && ++checks_ >= checks_until_retry) {
        start_over(deliver_all_);
    }
}

void Subscription::on_message(std::string &&key, std::string &&payload)
{
    if (phase_ == Phase::refused || phase_ == Phase::cancelled) {
        return; // asking or trying again reads everything
    }
    queue_.push_back({std::move(key), std::move(payload)});
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
    case Phase::reading:
        return read();
    case Phase::sweeping:
        return sweep();
    case Phase::delivering:
        return deliver();
    case Phase::draining:
        return drain();
    case Phase::live:
        return stay_live();
    case Phase::confirming:
    case Phase::refused:
    case Phase::cancelled:
        break;
    }
    return false;
}

void Subscription::start_over(bool everything)
{
    round_++;
    deliver_all_ = everything;
    if (phase_ != Phase::cancelled) {
        phase_ = Phase::asked;
    }
}

bool Subscription::begin()
{
    if (subscribed_) {
        phase_ = Phase::confirmed;
        return true;
    }
    phase_ = Phase::confirming;
    if (has_index_) {
        database_.watch_all(watched_);
    } else {
        database_.watch(watched_);
    }
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
    unverified_ = 0;
    gone_.clear();
    to_sweep_.clear();
    to_deliver_.clear();
    snapshot_ = {};
    phase_ = Phase::reading;
    return true;
}

bool Subscription::read()
{
    const uint64_t round = round_;
    const int32_t error = read_slice(database_, name_, snapshot_);
    if (round != round_) {
        return false;
    }
    if (error != ok) {
        return fail(error);
    }
    for (const store::LeftOut &what : snapshot_.left_out) {
        call_back({.command = VX_MOM_CMD_SET, .key = what.key, .error = bad_data, .reason = what.why});
        if (round != round_) {
            return false;
        }
    }
    for (StoredRecord &record : snapshot_.records) {
        if (is_news(record)) {
            to_deliver_.push_back(std::move(record));
        }
    }
    if (snapshot_.done) {
        finish_reading();
    }
    return true;
}

// Whether the subscriber does not know it yet. What is newer than the fence comes from the queue.
bool Subscription::is_news(const StoredRecord &record) const
{
    const auto known = known_.find(record.key);
    const bool is_known = known != known_.end() && known->second.revision == record.revision &&
                          is_same_content(known->second.fields, record.fields);
    return record.revision <= fence_ && (deliver_all_ || !is_known);
}

void Subscription::finish_reading()
{
    sort_by_revision(to_deliver_);
    next_to_deliver_ = 0;
    for (const auto &known : known_) {
        if (snapshot_.present.count(known.first) == 0) {
            to_sweep_.push_back(known.first);
        }
    }
    std::sort(to_sweep_.begin(), to_sweep_.end());
    snapshot_ = {};
    phase_ = Phase::sweeping;
}

// Reports records that are known and not there any more. One that vanished after the fence is reported here,
// before everything else, and its deletion in the queue is passed over.
bool Subscription::sweep()
{
    const uint64_t round = round_;
    for (size_t i = 0; i < records_per_turn && !to_sweep_.empty(); i++) {
        const std::string key = std::move(to_sweep_.back());
        to_sweep_.pop_back();
        report_gone(key);
        if (round != round_) {
            return true;
        }
    }
    if (to_sweep_.empty()) {
        phase_ = Phase::delivering;
    }
    return true;
}

bool Subscription::deliver()
{
    const uint64_t round = round_;
    for (size_t i = 0; i < records_per_turn && next_to_deliver_ < to_deliver_.size(); i++) {
        StoredRecord record = std::move(to_deliver_[next_to_deliver_++]);
        const About about{record.key, record.revision, record.mark};
        if (const MessagePtr message = decode_for(VX_MOM_CMD_SET, about, record.fields)) {
            known_[record.key] = {record.revision, std::move(record.fields)};
            call_back(VX_MOM_CMD_SET, about, message.get());
        }
        if (round != round_) {
            return true;
        }
    }
    if (next_to_deliver_ < to_deliver_.size()) {
        return true;
    }
    to_deliver_ = std::vector<StoredRecord>(); // gives the memory back
    return finish_delivering();
}

// All records up to the fence are delivered. Changes up to now come before command 29; the answer to a ping
// tells that none of them is still on its way.
bool Subscription::finish_delivering()
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
    told_refusal_.clear();
    deliver_all_ = false;
    gone_.clear();
    if (announce_) {
        announce_ = false;
        call_back({.command = VX_MOM_CMD_SUBSCRIBED});
    }
    return true;
}

// Delivers what has come, and asks the server whether it has counted as far as the changes tell: whoever may
// publish could otherwise have this client believe that a store that comes back has lost something.
bool Subscription::stay_live()
{
    const uint64_t round = round_;
    const bool more = deliver_queued();
    if (round != round_ || phase_ != Phase::live || unverified_ == 0 ||
        (more && unverified_ < changes_per_verification)) {
        return more;
    }
    unverified_ = 0;
    const uint64_t delivered = last_;
    uint64_t counted = 0;
    const int32_t error = read_revision(database_, name_, counted);
    if (round != round_) {
        return false;
    }
    if (error != ok) {
        return fail(error);
    }
    if (counted < delivered) {
        return resynchronise("changes came that the server has not counted");
    }
    return more;
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
    const bool decoded = decode_change(queue_.front().payload, change);
    change.key = std::move(queue_.front().key);
    queue_.pop_front();
    if (!decoded) {
        // No function of ours writes such a thing. If a change was meant, its number will be missing.
        LOG_TO(database_.messages(), platform::log_error, "what was published as a change of %s is none",
               change.key.c_str());
        return true;
    }
    if (change.revision <= fence_ && phase_ == Phase::draining) {
        return true; // in the snapshot already
    }
    if (change.revision != last_ + 1) {
        return resynchronise("a change is missing"), false;
    }
    last_ = change.revision;
    unverified_++;
    database_.hear(name_, last_);
    if (change.command == VX_MOM_CMD_DELETED) {
        deliver_deleted(std::move(change));
    } else {
        deliver_written(std::move(change));
    }
    return true;
}

void Subscription::deliver_written(Change &&change)
{
    const About about{change.key, change.revision, change.mark};
    gone_.erase(change.key);
    const MessagePtr message = decode_for(change.command, about, change.fields);
    if (message == nullptr) {
        return;
    }
    // Until command 29 a record that was not delivered yet is one that existed: delivered as a whole.
    const auto [known, is_new] = known_.try_emplace(change.key);
    known->second = {change.revision, std::move(change.fields)};
    const bool is_first = is_new && phase_ == Phase::draining;
    call_back(is_first ? int32_t{VX_MOM_CMD_SET} : change.command, about, message.get());
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
    const uint64_t round = round_;
    const About about{change.key, change.revision, change.mark};
    MessagePtr message = decode_for(VX_MOM_CMD_DELETED, about, change.fields);
    if (round != round_) {
        return;
    }
    // Somebody spoilt the record past the client. The user has it as it was and must be told that it is gone.
    if (message == nullptr && known != known_.end()) {
        message = decode_for(VX_MOM_CMD_DELETED, about, known->second.fields);
        if (round != round_) {
            return;
        }
    }
    // Until command 29 a record that was not delivered yet is one that existed at the fence: nothing has
    // changed it since, so it is delivered as it then was, and its deletion after that.
    if (message != nullptr && phase_ == Phase::draining && known == known_.end()) {
        known_[change.key] = {change.revision, change.fields};
        call_back(VX_MOM_CMD_SET, {change.key}, message.get());
        if (round != round_) {
            return; // starting over tells of the deletion
        }
    }
    known_.erase(change.key);
    if (message != nullptr) {
        call_back(VX_MOM_CMD_DELETED, about, message.get());
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
    if (const MessagePtr message = decode_for(VX_MOM_CMD_DELETED, {key}, fields)) {
        call_back(VX_MOM_CMD_DELETED, {key}, message.get());
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
    LOG_TO(database_.messages(), platform::log_warn, "subscription to %s: %s, starting over",
           watched_.c_str(), why);
    const uint64_t round = round_;
    if (database_.confirm_data_set() && round == round_) {
        start_over(deliver_all_);
    }
    return true;
}

// Decodes a record for a notification; when that fails, notifies of that and returns null.
MessagePtr Subscription::decode_for(int32_t command, const About &about, const Fields &fields)
{
    std::string why;
    MessagePtr message = decode(database_, type_, about.key, fields, why);
    if (message == nullptr) {
        call_back({.command = command,
                   .key = about.key,
                   .revision = about.revision,
                   .mark = about.mark,
                   .error = bad_data,
                   .reason = why});
    }
    return message;
}

void Subscription::call_back(int32_t command, const About &about, const ProtobufCMessage *record)
{
    call_back({.command = command,
               .record = record,
               .key = about.key,
               .revision = about.revision,
               .mark = about.mark});
}

void Subscription::call_back(const store::Change &news)
{
    store::Change change = news;
    change.database = database_.number();
    change.type = &type_;
    change.existing = phase_ != Phase::live;
    const auto handler = handler_; // kept: it may ask for another one
    if (handler != nullptr) {
        const platform::Handling handling(database_.context(), activity_for(change));
        platform::call_handler(database_.context(), [&] { (*handler)(change); });
    }
}

} // namespace vx_mom
