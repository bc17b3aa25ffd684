// The stations of a subscription; see the header.
#include "store/subscription.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <utility>

#include "loop/platform_context.h"
#include "store/calls.h"
#include "store/codec/key.h"
#include "store/codec/names.h"

namespace store
{

namespace
{

constexpr size_t steps_per_turn = 64;
constexpr uint64_t changes_per_verification = 64; // while more of them are waiting
constexpr int checks_until_retry = 5;

// The server keeps a hash with a long value in another order than it was published in.
bool is_same_content(const Fields &one, const Fields &other)
{
    return std::is_permutation(one.begin(), one.end(), other.begin(), other.end());
}

// What handling a notification is. A record that vanished while the client was away has no change that could
// be named, but that it is gone has come with the return.
platform::Activity activity_for(const Change &change)
{
    using platform::Activity;
    return change.revision == 0 ? Activity{Activity::Kind::connection}
                                : Activity{Activity::Kind::record, change.revision, change.key};
}

} // namespace

TypeSubscription::TypeSubscription(Calls &calls, AsyncConnection &loop,
                                   const ProtobufCMessageDescriptor &type)
    : calls_(calls), loop_(loop), type_(type), name_(type.name), has_index_(key_field_count(type) != 0),
      watched_(channel_prefix(calls.number()) + name_ + (has_index_ ? ":*" : ""))
{
}

void TypeSubscription::ask(ChangeHandler handler)
{
    handler_ = std::make_shared<const ChangeHandler>(std::move(handler));
    times_asked_++;
    announce_ = true;
    phase_ = Phase::asked;
    start_over(true);
}

void TypeSubscription::cancel()
{
    handler_.reset();
    if (!busy_) {
        (void)apply_mark();
    }
}

void TypeSubscription::on_confirmed()
{
    subscribed_ = true;
    if (phase_ == Phase::confirming) {
        phase_ = Phase::confirmed;
    }
}

void TypeSubscription::on_refused(const std::string &problem)
{
    phase_ = Phase::refused;
    checks_ = 0;
    queue_.clear();
    if (problem != logged_refusal_) {
        logged_refusal_ = problem;
        LOG_TO(calls_.messages(), platform::log_error, "subscription to %s refused: %s", watched_.c_str(),
               problem.c_str());
    }
}

void TypeSubscription::on_checked()
{
    if (phase_ == Phase::refused && ++checks_ >= checks_until_retry) {
        start_over(deliver_all_);
    }
}

void TypeSubscription::on_message(uint64_t arrival, std::string_view key, std::string_view payload)
{
    if (phase_ != Phase::refused && phase_ != Phase::cancelled) { // asking or trying again reads everything
        queue_.push_back({arrival, std::string(key), std::string(payload)});
    }
}

void TypeSubscription::on_pong(uint64_t number)
{
    pong_ = number;
}

void TypeSubscription::on_lost()
{
    subscribed_ = false;
    pong_ = 0;
    queue_.clear();
}

void TypeSubscription::on_returned(bool everything)
{
    start_over(deliver_all_ || everything);
}

// Within a step this only leaves the mark.
void TypeSubscription::start_over(bool everything)
{
    start_over_due_ = everything || start_over_due_.value_or(false);
    if (!busy_) {
        (void)apply_mark();
    }
}

// Whether it starts over. Without a handler it was cancelled, and that prevails.
bool TypeSubscription::apply_mark()
{
    const std::optional<bool> everything = std::exchange(start_over_due_, std::nullopt);
    if (handler_ == nullptr) {
        phase_ = Phase::cancelled;
        queue_.clear();
        known_.clear();
        return false;
    }
    if (everything) {
        deliver_all_ = *everything;
        phase_ = Phase::asked;
    }
    return everything.has_value();
}

bool TypeSubscription::advance()
{
    assert(!busy_); // callbacks come from a turn alone
    for (size_t i = 0; i < steps_per_turn; i++) {
        if (!loop_.is_up()) {
            return false; // lost by the step before
        }
        if (platform::is_ending(calls_.context())) {
            return true; // nothing would be delivered: for the next run
        }
        const Step came_to = run(&TypeSubscription::step);
        if (apply_mark() || came_to == Step::yield) {
            return true;
        }
        if (came_to == Step::wait) {
            return false;
        }
    }
    return true;
}

// What throws is memory that ran out. A change may be lost with it, so all is compared again.
TypeSubscription::Step TypeSubscription::run(Step (TypeSubscription::*work)())
{
    busy_ = true;
    try {
        const Step came_to = (this->*work)();
        busy_ = false;
        return came_to;
    } catch (...) {
        busy_ = false;
        start_over(deliver_all_);
        throw;
    }
}

std::optional<uint64_t> TypeSubscription::due() const
{
    return phase_ == Phase::live && !queue_.empty() ? std::optional(queue_.front().arrival) : std::nullopt;
}

void TypeSubscription::deliver_due()
{
    assert(due() && !busy_); // else a change is delivered before the records that it changes
    (void)run(&TypeSubscription::deliver_next);
    (void)apply_mark();
}

TypeSubscription::Step TypeSubscription::step()
{
    switch (phase_) {
    case Phase::asked:
        return begin();
    case Phase::confirmed:
        return read_fence();
    case Phase::reading:
        return read();
    case Phase::sweeping:
        return sweep();
    case Phase::delivering:
        return deliver();
    case Phase::draining:
        return drain();
    case Phase::live:
        return verify();
    case Phase::confirming:
    case Phase::refused:
    case Phase::cancelled:
        break;
    }
    return Step::wait;
}

TypeSubscription::Step TypeSubscription::begin()
{
    if (subscribed_) {
        phase_ = Phase::confirmed;
        return Step::more;
    }
    phase_ = Phase::confirming;
    if (has_index_) {
        loop_.subscribe_all(watched_);
    } else {
        loop_.subscribe(watched_);
    }
    return Step::wait;
}

TypeSubscription::Step TypeSubscription::read_fence()
{
    if (const Status status = read_revision(calls_, name_, fence_); !status) {
        return fail(status);
    }
    last_ = fence_;
    unverified_ = 0;
    gone_.clear();
    to_report_.clear();
    to_sweep_.clear();
    to_deliver_.clear();
    next_to_deliver_ = 0;
    deletion_due_.reset();
    snapshot_ = {};
    phase_ = Phase::reading;
    return Step::yield;
}

TypeSubscription::Step TypeSubscription::read()
{
    if (const Status status = read_slice(calls_, name_, snapshot_); !status) {
        return fail(status);
    }
    std::move(snapshot_.left_out.begin(), snapshot_.left_out.end(), std::back_inserter(to_report_));
    for (StoredRecord &record : snapshot_.records) {
        if (is_news(record)) {
            to_deliver_.push_back(std::move(record));
        }
    }
    if (snapshot_.done) {
        finish_reading();
    }
    return Step::yield;
}

// Whether the subscriber does not know it yet. What is newer than the fence comes from the queue.
bool TypeSubscription::is_news(const StoredRecord &record) const
{
    const auto known = known_.find(record.key);
    const bool is_known = known != known_.end() && known->second.revision == record.revision &&
                          is_same_content(known->second.fields, record.fields);
    return record.revision <= fence_ && (deliver_all_ || !is_known);
}

void TypeSubscription::finish_reading()
{
    sort_by_revision(to_deliver_);
    for (const auto &known : known_) {
        if (snapshot_.present.count(known.first) == 0) {
            to_sweep_.push_back(known.first);
        }
    }
    std::sort(to_sweep_.begin(), to_sweep_.end());
    snapshot_ = {};
    phase_ = Phase::sweeping;
}

// Reports what cannot be read, and then records that are known and not there any more. One that vanished
// after the fence is reported here, before everything else, and its deletion in the queue is passed over.
TypeSubscription::Step TypeSubscription::sweep()
{
    if (!to_report_.empty()) {
        const LeftOut what = std::move(to_report_.back());
        to_report_.pop_back();
        call_back({.command = VX_MOM_CMD_SET, .key = what.key, .error = bad_data, .reason = what.why});
    } else if (!to_sweep_.empty()) {
        const std::string key = std::move(to_sweep_.back());
        to_sweep_.pop_back();
        report_gone(key);
    } else {
        phase_ = Phase::delivering;
    }
    return Step::more;
}

TypeSubscription::Step TypeSubscription::deliver()
{
    if (next_to_deliver_ == to_deliver_.size()) {
        to_deliver_ = std::vector<StoredRecord>(); // gives the memory back
        next_to_deliver_ = 0;
        return read_target();
    }
    StoredRecord record = std::move(to_deliver_[next_to_deliver_++]);
    const About about{record.key, record.revision, record.mark};
    std::string why;
    if (const MessagePtr message = decode(calls_, type_, record.key, record.fields, why)) {
        known_[record.key] = {record.revision, std::move(record.fields)};
        call_back(VX_MOM_CMD_SET, about, message.get());
    } else {
        call_back_undecodable(VX_MOM_CMD_SET, about, why);
    }
    return Step::more;
}

// All records up to the fence are delivered. Changes up to now come before command 29; the answer to a ping
// says that none of them is still on its way.
TypeSubscription::Step TypeSubscription::read_target()
{
    if (const Status status = read_revision(calls_, name_, target_); !status) {
        return fail(status);
    }
    phase_ = Phase::draining;
    ping_ = loop_.ping();
    return Step::wait;
}

TypeSubscription::Step TypeSubscription::drain()
{
    if (!queue_.empty() || deletion_due_) {
        return deliver_next();
    }
    if (pong_ < ping_) {
        return Step::wait;
    }
    if (last_ < target_) {
        return resynchronise("changes did not arrive");
    }
    return go_live();
}

TypeSubscription::Step TypeSubscription::go_live()
{
    assert(last_ >= target_ && queue_.empty()); // else command 29 comes before what was there
    phase_ = Phase::live;
    logged_refusal_.clear();
    deliver_all_ = false;
    gone_.clear();
    if (announce_) {
        announce_ = false;
        call_back({.command = VX_MOM_CMD_SUBSCRIBED});
    }
    return Step::yield;
}

// Asks the server whether it has counted as far as the changes say: a user who may publish could otherwise
// have this client believe that a store that comes back has lost something.
TypeSubscription::Step TypeSubscription::verify()
{
    if (unverified_ == 0 || (!queue_.empty() && unverified_ < changes_per_verification)) {
        return Step::wait;
    }
    unverified_ = 0;
    uint64_t counted = 0;
    if (const Status status = read_revision(calls_, name_, counted); !status) {
        return fail(status);
    }
    if (counted < last_) {
        return resynchronise("changes came that the server has not counted");
    }
    return Step::wait;
}

// Delivers the change at the front of the queue, or the second half of the one before.
TypeSubscription::Step TypeSubscription::deliver_next()
{
    if (deletion_due_) {
        const PublishedChange deletion = std::move(*deletion_due_);
        deletion_due_.reset();
        deliver_deleted(deletion);
        return Step::more;
    }
    PublishedChange change;
    const bool decoded = decode_change(queue_.front().payload, change);
    change.key = std::move(queue_.front().key);
    queue_.pop_front();
    if (!decoded) {
        // No function of ours writes such a thing. If a change was meant, its number will be missing.
        LOG_TO(calls_.messages(), platform::log_error, "what was published as a change of %s is none",
               change.key.c_str());
        return Step::more;
    }
    if (change.revision <= fence_ && phase_ == Phase::draining) {
        return Step::more; // in the snapshot already
    }
    if (change.revision != last_ + 1) {
        return resynchronise("a change is missing");
    }
    last_ = change.revision;
    unverified_++;
    calls_.hear(name_, last_);
    if (change.command == VX_MOM_CMD_DELETED) {
        deliver_deleted(change);
    } else {
        deliver_written(std::move(change));
    }
    return Step::more;
}

void TypeSubscription::deliver_written(PublishedChange &&change)
{
    const About about{change.key, change.revision, change.mark};
    gone_.erase(change.key);
    std::string why;
    const MessagePtr message = decode(calls_, type_, change.key, change.fields, why);
    if (message == nullptr) {
        call_back_undecodable(change.command, about, why);
        return;
    }
    // Until command 29 a record that was not delivered yet is one that existed: delivered as a whole.
    const auto [known, is_new] = known_.try_emplace(change.key);
    known->second = {change.revision, std::move(change.fields)};
    const bool is_first = is_new && phase_ == Phase::draining;
    call_back(is_first ? int32_t{VX_MOM_CMD_SET} : change.command, about, message.get());
}

void TypeSubscription::deliver_deleted(const PublishedChange &change)
{
    if (gone_.erase(change.key) != 0) {
        return;
    }
    const About about{change.key, change.revision, change.mark};
    const auto known = known_.find(change.key);
    const bool is_known = known != known_.end();
    std::string why;
    MessagePtr message =
        decode(calls_, type_, change.key,
               is_known && change.fields.empty() ? known->second.fields : change.fields, why);
    // The record was spoilt past the client. The subscriber has it as it was and must hear that it is gone.
    if (message == nullptr && is_known) {
        message = decode(calls_, type_, change.key, known->second.fields, why);
    }
    if (message == nullptr) {
        known_.erase(change.key);
        call_back_undecodable(VX_MOM_CMD_DELETED, about, why);
    } else if (phase_ == Phase::draining && !is_known) {
        // Until command 29 a record that was not delivered yet is one that existed at the fence: nothing has
        // changed it since, so it is delivered as it then was, and its deletion after that.
        known_[change.key] = {change.revision, change.fields};
        deletion_due_ = change;
        call_back(VX_MOM_CMD_SET, {change.key}, message.get());
    } else {
        known_.erase(change.key);
        call_back(VX_MOM_CMD_DELETED, about, message.get());
    }
}

void TypeSubscription::report_gone(const std::string &key)
{
    const auto known = known_.find(key);
    if (known == known_.end()) {
        return;
    }
    const Fields fields = std::move(known->second.fields);
    known_.erase(known);
    gone_.insert(key);
    std::string why;
    if (const MessagePtr message = decode(calls_, type_, key, fields, why)) {
        call_back(VX_MOM_CMD_DELETED, {key}, message.get());
    } else {
        call_back_undecodable(VX_MOM_CMD_DELETED, {key}, why);
    }
}

// The store did not answer: the connection counts as lost, and all begins again with its return. A refusal
// would only be repeated, so it ends the subscription until it is asked again.
TypeSubscription::Step TypeSubscription::fail(const Status &status)
{
    calls_.notify(status);
    if (status.code == refused) {
        on_refused("the records cannot be read");
        return Step::yield;
    }
    loop_.drop("the records cannot be read");
    return Step::wait;
}

TypeSubscription::Step TypeSubscription::resynchronise(const char *why)
{
    LOG_TO(calls_.messages(), platform::log_warn, "subscription to %s: %s, starting over", watched_.c_str(),
           why);
    if (calls_.confirm_data_set()) {
        start_over(deliver_all_);
    }
    return Step::yield;
}

void TypeSubscription::call_back(int32_t command, const About &about, const ProtobufCMessage *record)
{
    call_back({.command = command,
               .record = record,
               .key = about.key,
               .revision = about.revision,
               .mark = about.mark});
}

void TypeSubscription::call_back_undecodable(int32_t command, const About &about, const std::string &why)
{
    call_back({.command = command,
               .key = about.key,
               .revision = about.revision,
               .mark = about.mark,
               .error = bad_data,
               .reason = why});
}

void TypeSubscription::call_back(const Change &news)
{
    Change change = news;
    change.database = calls_.number();
    change.type = &type_;
    change.existing = phase_ != Phase::live;
    const auto handler = handler_; // kept: it may ask for another one
    if (handler != nullptr) {
        const platform::Handling handling(calls_.context(), activity_for(change));
        platform::call_handler(calls_.context(), [&] { (*handler)(change); });
    }
}

} // namespace store
