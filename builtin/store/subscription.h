// One subscription: every record of a type, then every change, in order and each once.
//
// Asked, it subscribes to the channels of the type's records and waits for the confirmation; reads the
// revision of the last change (the fence); reads the records slice by slice, while changes newer than the
// fence gather in a queue; reports what vanished since it last knew; delivers, in the order of their changes,
// those that are not newer than the fence; goes on with the queue; and says in between that it is in place.
// Revisions are contiguous, so a gap shows a loss; then it starts over, delivering only differences. Listing
// first and subscribing afterwards would lose what happens in between.
//
// A step calls the subscriber, or the store, at most once, as the last thing that it does: what that brings
// about (a loss, another question, an end) only leaves a mark, which is applied in one place, after each
// step.
//
// A user who may write a record may publish anything as its changes. So a change is believed about its
// record, but what it says of the type's revision is compared with the server's own count afterwards.
#ifndef STORE_SUBSCRIPTION_H
#define STORE_SUBSCRIPTION_H

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "store/change.h"
#include "store/codec/payload.h"
#include "store/connection/async_connection.h"
#include "store/snapshot.h"

namespace store
{

class TypeSubscription
{
public:
    // Does nothing before ask(). `calls` reads the records; on `loop` the changes come. Both outlive it.
    TypeSubscription(Calls &calls, AsyncConnection &loop, const ProtobufCMessageDescriptor &type);

    const ProtobufCMessageDescriptor &type() const { return type_; }
    // The channel, or the pattern of channels, on which its changes come.
    const std::string &watched() const { return watched_; }
    // Whether it is in place, refused or cancelled, so that the next one in the queue may begin.
    bool is_in_place() const
    {
        return phase_ == Phase::live || phase_ == Phase::refused || phase_ == Phase::cancelled;
    }
    bool awaits_confirmation() const { return phase_ == Phase::confirming; }

    // Starts over for this subscriber: all records as written, then command 29.
    void ask(ChangeHandler handler);
    // How often it was asked: whose handle is older has no say any more.
    uint64_t times_asked() const { return times_asked_; }
    // Delivers nothing any more until it is asked again. The channel stays subscribed: taking that back would
    // have to wait for the server's word before it may be asked for again, and a program that cancels is
    // about to end.
    void cancel();
    void on_confirmed();
    void on_refused(const std::string &problem);
    // Some time has passed: what was refused is tried again now and then.
    void on_checked();
    // A change arrived, as number `arrival` of all that came on the connection: kept until it is delivered.
    void on_message(uint64_t arrival, std::string_view key, std::string_view payload);
    // The answer to a ping arrived, after all changes that were published before it.
    void on_pong(uint64_t number);
    // The connection is lost: what is queued is void. There is no advance() before on_returned().
    void on_lost();
    // The connection is back; `everything` when the data is another, so that revisions compare no more.
    void on_returned(bool everything);
    // Whether there may be a change that it has not delivered, of those up to now: since command 29 it has
    // all, but while it starts over, or is refused.
    bool is_behind() const
    {
        const bool is_current = announce_ || phase_ == Phase::live || phase_ == Phase::cancelled;
        return !queue_.empty() || !is_current;
    }
    // The number of the arrival that is to be delivered next; nothing as long as it is not in place.
    std::optional<uint64_t> due() const;
    // Delivers that one. Calls the subscriber back.
    void deliver_due();
    // Some other work. Returns whether there is more to do at once. Calls the subscriber back.
    bool advance();

private:
    enum class Phase {
        asked,
        confirming,
        confirmed,
        reading,
        sweeping,
        delivering,
        draining,
        live,
        refused,
        cancelled
    };
    // What a step comes to: go on at once, leave the rest to another turn, or wait for something to happen.
    enum class Step { more, yield, wait };

    struct Arrived {
        uint64_t arrival;
        std::string key;
        std::string payload;
    };

    // What the subscriber last heard of a record.
    struct Known {
        uint64_t revision = 0;
        Fields fields;
    };

    // Which change of which record a notification is about.
    struct About {
        const std::string &key;
        uint64_t revision = 0;
        std::string_view mark{};
    };

    void start_over(bool everything);
    bool apply_mark();
    Step run(Step (TypeSubscription::*work)());
    Step step();
    Step begin();
    Step read_fence();
    Step read();
    bool is_news(const StoredRecord &record) const;
    void finish_reading();
    Step sweep();
    Step deliver();
    Step read_target();
    Step drain();
    Step verify();
    Step go_live();
    Step deliver_next();
    void deliver_written(PublishedChange &&change);
    void deliver_deleted(const PublishedChange &change);
    Step fail(const Status &status);
    Step resynchronise(const char *why);
    void call_back(int32_t command, const About &about, const ProtobufCMessage *record);
    void call_back_undecodable(int32_t command, const About &about, const std::string &why);
    void call_back(const Change &news);
    void report_gone(const std::string &key);

    Calls &calls_;
    AsyncConnection &loop_;
    const ProtobufCMessageDescriptor &type_;
    std::string name_;
    bool has_index_;
    std::string watched_;
    std::shared_ptr<const ChangeHandler> handler_;
    uint64_t times_asked_ = 0;
    Phase phase_ = Phase::cancelled;
    bool busy_ = false;                  // in a step
    std::optional<bool> start_over_due_; // the mark: with everything, or with what differs
    bool subscribed_ = false;            // the channel is confirmed on the present connection
    bool deliver_all_ = true;            // or only what differs from what is known
    bool announce_ = true;               // command 29 is owed
    uint64_t ping_ = 0;                  // the ping whose answer ends the waiting for changes on their way
    uint64_t pong_ = 0;                  // the last one answered
    uint64_t last_ = 0;                  // revision of the last change delivered or covered by the snapshot
    uint64_t fence_ = 0;
    uint64_t target_ = 0;     // changes up to here come before command 29
    uint64_t unverified_ = 0; // changes delivered since the server's own count was last asked for
    std::deque<Arrived> queue_;
    std::optional<PublishedChange> deletion_due_; // of a record that was only just delivered
    std::unordered_map<std::string, Known> known_;
    Snapshot snapshot_;
    std::vector<LeftOut> to_report_;
    std::vector<StoredRecord> to_deliver_; // in the order of their changes
    size_t next_to_deliver_ = 0;
    std::vector<std::string> to_sweep_;
    int checks_ = 0;             // since it was refused
    std::string logged_refusal_; // so that each is logged once
    std::set<std::string> gone_; // reported as vanished before the queue came to it
};

} // namespace store

#endif
