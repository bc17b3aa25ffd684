// The cards and what happens to them, live from the store: for the lines and for the screen.
#ifndef CARDS_LIVE_CARDS_H
#define CARDS_LIVE_CARDS_H

#include <string>

#include "access/live.h"
#include "admission/feed.h"
#include "cards/card_events.h"
#include "cards/surroundings.h"
#include "command_line/session.h"

namespace cg
{

class LiveCards
{
public:
    // Subscribes to all that is about cards, once live().run() runs. Throws Failure when the store does not
    // answer. Session and store outlive this. `complete` is called when every existing record was told.
    LiveCards(const Session &session, Store &store, const std::string &history_file,
              CardEvents::Listener listener, std::function<void()> complete);

    [[nodiscard]] Live &live() { return live_; }
    [[nodiscard]] const CardEvents &events() const { return events_; }

private:
    void take(const Change &change);
    void take_outage(const Live::Outage &outage);
    void refresh_modules(Time now);
    void tell_unseen() const;
    void tell_health() const;
    void look_around();
    void take_heard(const Heard &heard);

    const Session &session_;
    CardEvents events_;
    Live live_;
    std::function<void()> complete_;
    admission::InPlace in_place_;
    bool completed_ = false;
    Time modules_asked_at_{};
    DaemonView daemon_; // as it was at the beginning, and the recorder's file
    Past past_;
    Surroundings surroundings_;
    std::chrono::steady_clock::time_point looked_at_{};
};

} // namespace cg

#endif
