// What happens to cards, as events that people and programs can follow.
//
// The store notifies of records; this says what each change means: a card came, was asked about, answered,
// decided. What was there when listening began is no event, and neither is what a subscription repeats after
// the store was away, unless it differs from what was known.
#ifndef CARDS_CARD_EVENTS_H
#define CARDS_CARD_EVENTS_H

#include <protobuf-c/protobuf-c.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "admission/card_tracker.h"
#include "cards/event.h"
#include "cards/health.h"
#include "cards/past.h"

namespace cg
{

class CardEvents
{
public:
    using Listener = std::function<void(const Event &)>;

    explicit CardEvents(Listener listener);
    CardEvents(const CardEvents &) = delete;
    CardEvents &operator=(const CardEvents &) = delete;

    // The tracker that the events come from; for views that show the cards, too.
    [[nodiscard]] admission::CardTracker &tracker() { return tracker_; }
    [[nodiscard]] const admission::CardTracker &tracker() const { return tracker_; }
    [[nodiscard]] const std::optional<int32_t> &role() const { return role_; }
    // What keeps all this from being believed.
    [[nodiscard]] const Health &health() const { return health_; }

    // The reasons of denials as the daemon has them, for those whose decision nobody saw.
    void set_daemons_reasons(std::map<Position, std::string> reasons)
    {
        daemons_reasons_ = std::move(reasons);
    }
    // Why a card is denied; empty when it is not, or when that is not known.
    [[nodiscard]] std::string reason_of(const admission::TrackedCard &card) const;

    // A change, as admission::feed() wants it.
    void handle(const ProtobufCMessage &record, bool deleted, const admission::Change &change);
    // Every existing record of a database was received, at first or again after an outage: from now on there
    // are events of it, and with database 1 those that are of none.
    void received(int32_t db, Time at);
    // The store went away, or came back.
    void store_heard(const StoreChange &store, Time at);
    // The daemon answered, or nobody did for this reason.
    void daemon_heard(bool answers, const std::string &problem, Time at);
    // What the recorder's file says of the recorder. A device need not have one, so only a file that was
    // there before is missed.
    void heartbeat_read(const Heartbeat &heartbeat, Time at);

private:
    struct Before;

    void report(Event event) const;
    void compare(const Position &position, const Before &before, const admission::Change &change) const;
    void set_role(const std::optional<int32_t> &role, const admission::Change &change);
    void decided(const admission::Decision &decision) const;

    Listener listener_;
    admission::CardTracker tracker_;
    std::optional<int32_t> role_;
    std::map<Position, std::string> daemons_reasons_;
    Health health_;
    bool has_history_ = false;   // the recorder's file was read at least once
    std::set<int32_t> received_; // databases
    bool meanwhile_ = false;     // of the change that is being handled
};

} // namespace cg

#endif
