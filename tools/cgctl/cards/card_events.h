// What happens to cards, as events that people and programs can follow.
//
// The store tells of records; this says what each change means: a card came, was asked about, answered,
// decided. What was there when listening began is no event, and neither is what a subscription repeats after
// the store was away, unless it differs from what was known.
#ifndef CARDS_CARD_EVENTS_H
#define CARDS_CARD_EVENTS_H

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "admission/card_text.h"
#include "admission/card_tracker.h"
#include "cards/health.h"
#include "cards/past.h"
#include "records/position.h"

namespace cg
{

struct Event {
    Time at{};
    const char *kind = ""; // plugged, changed, online, offline, pulled, asked, answer, decision, power;
                           // without a position: role, store, daemon, recorder
    std::optional<Position> position{};
    std::string name{}; // the card's, as it wrote it
    std::string text{}; // for people, made visible
    Tone tone = Tone::plain;
    bool meanwhile = false;     // it happened while the store was away, or before
    Json more = Json::object(); // what the JSON form has beyond that
};

class CardEvents
{
public:
    using Listener = std::function<void(const Event &)>;

    explicit CardEvents(Listener listener);
    CardEvents(const CardEvents &) = delete;
    CardEvents &operator=(const CardEvents &) = delete;

    // The tracker that the events come from; for whoever shows the cards, too.
    [[nodiscard]] admission::CardTracker &tracker() { return tracker_; }
    [[nodiscard]] const admission::CardTracker &tracker() const { return tracker_; }
    [[nodiscard]] const std::optional<int32_t> &role() const { return role_; }
    // What keeps all this from being believed.
    [[nodiscard]] const Health &health() const { return health_; }

    // The reasons of denials as the daemon told them, for those whose decision nobody saw.
    void set_told_reasons(std::map<Position, std::string> reasons) { told_reasons_ = std::move(reasons); }
    // Why a card is denied; empty when it is not, or nobody knows.
    [[nodiscard]] std::string reason_of(const admission::TrackedCard &card) const;

    // A change, as admission::feed() wants it.
    void take(const ProtobufCMessage &record, bool deleted, const admission::Change &change);
    // Every existing record was told, at first or anew after an outage: from now on there are events.
    void all_told(Time at);
    // The store went away, or came back; whether with the same data.
    void store_lost(int32_t db, Time at);
    void store_returned(int32_t db, bool same_data, Time at);
    // The daemon answered, or nobody did for this reason.
    void daemon_heard(bool answers, const std::string &problem, Time at);
    // What the recorder's file says of the recorder. A device need not have one, so only a file that was
    // there is missed.
    void heartbeat_read(const Heartbeat &heartbeat, Time at);

private:
    struct Before;

    void recorder_heard(bool at_work, Time last_heartbeat, Time at);
    void history_read(const std::string &problem, Time at);

    void tell(Event event) const;
    void compare(const Position &position, const Before &before, Event event) const;
    void tell_card(const admission::TrackedCard &now, const Before &before, const Event &event) const;
    void tell_answer(const ProtobufCMessage &record, const admission::Change &change, Event event) const;
    void tell_role(const std::optional<int32_t> &role, Event event);
    void decided(const admission::Decision &decision) const;

    Listener listener_;
    admission::CardTracker tracker_;
    std::optional<int32_t> role_;
    std::map<Position, std::string> told_reasons_;
    Health health_;
    bool has_history_ = false; // the recorder's file was read at least once
    bool listening_ = false;
    bool meanwhile_ = false; // of the change that is being taken
};

// {"version": 1, "time": ..., "event": ..., "card": ..., ...}
Json event_json(const Event &event);
// "1/3/0 lc-48: asked m1, m2"
std::string event_text(const Event &event);

} // namespace cg

#endif
