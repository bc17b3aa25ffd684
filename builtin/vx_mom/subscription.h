// One subscription: every record of a type, then every change, in order and each once.
//
// Asked, it subscribes to the channel and waits for the confirmation; reads the revision of the last change
// (the fence); reports what vanished since it last knew; reads, slice by slice, the records that are not
// newer than the fence, while changes newer than the fence gather in a queue; delivers those; says that it is
// in place; and goes on with the queue. Revisions are contiguous, so a gap shows a loss; then it starts over,
// delivering only differences. Listing first and subscribing afterwards would lose what happens in between.
#ifndef VX_MOM_SUBSCRIPTION_H
#define VX_MOM_SUBSCRIPTION_H

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "payload.h"
#include "snapshot.h"
#include "vx_mom.h"

namespace vx_mom
{

struct Subscriber {
    vx_mom_pmsg_f callback = nullptr;
    void *arg = nullptr;
};

class Subscription
{
public:
    Subscription(Database &database, const ProtobufCMessageDescriptor &type, Subscriber subscriber);

    const ProtobufCMessageDescriptor &type() const { return type_; }
    const std::string &channel() const { return channel_; }
    // Whether it is in place or was refused, so that the next one in the queue may begin.
    bool is_settled() const { return phase_ == Phase::live || phase_ == Phase::refused; }
    bool awaits_confirmation() const { return phase_ == Phase::confirming; }

    // Starts over for another subscriber: all records as written, then command 29.
    void ask_again(Subscriber subscriber);
    void on_confirmed();
    void on_refused(const std::string &problem);
    // A change arrived: delivered at once when the subscription is in place, kept otherwise.
    void on_message(std::string &&payload);
    // The connection is lost: what is queued is void.
    void on_lost();
    // The connection is back; `everything` when the data is another, so that revisions compare no more.
    void on_returned(bool everything);
    // One piece of work. Returns whether there is more to do at once. Calls the subscriber back.
    bool advance();

private:
    enum class Phase { asked, confirming, confirmed, sweeping, reading, draining, live, refused };

    // What the subscriber was last told of a record.
    struct Known {
        uint64_t revision = 0;
        Fields fields;
    };

    void start_over(bool everything);
    bool begin();
    bool take_fence();
    bool sweep();
    bool read();
    bool finish_reading();
    bool drain();
    bool deliver_queued();
    bool deliver_next();
    void deliver_written(Change &&change);
    void deliver_deleted(Change &&change);
    bool settle();
    bool fail(int32_t error);
    bool resynchronise(const char *why);
    void call_back(int32_t command, ProtobufCMessage *record);
    void report_gone(const std::string &key);

    Database &database_;
    const ProtobufCMessageDescriptor &type_;
    std::string name_;
    std::string channel_;
    Subscriber subscriber_;
    Phase phase_ = Phase::asked;
    uint64_t round_ = 0;      // grows whenever it starts over: a callback may have made it do so
    bool subscribed_ = false; // the channel is confirmed on the present connection
    bool deliver_all_ = true; // or only what differs from what is known
    bool announce_ = true;    // command 29 is owed
    uint64_t ping_ = 0;       // the ping whose answer ends the waiting for changes on their way
    uint64_t last_ = 0;       // revision of the last change delivered or covered by the snapshot
    uint64_t fence_ = 0;
    uint64_t read_up_to_ = 0;
    uint64_t target_ = 0;           // changes up to here come before command 29
    std::deque<std::string> queue_; // payloads
    std::map<std::string, Known> known_;
    std::vector<std::string> to_sweep_;
    std::set<std::string> gone_; // reported as vanished before the queue told of it
};

} // namespace vx_mom

#endif
