// The cards and what happens to them, live from the store: for the lines and for the screen.
#ifndef CARDS_LIVE_CARDS_H
#define CARDS_LIVE_CARDS_H

#include <string>

#include "access/live.h"
#include "admission/feed.h"
#include "cards/card_events.h"
#include "cards/health_probe.h"
#include "command_line/session.h"

namespace cg
{

class LiveCards
{
public:
    // Subscribes to all that is about cards, once live().run() runs. Throws Failure when the store does not
    // answer. Session and store outlive this. `complete` is called when every existing record was received.
    LiveCards(const Session &session, Store &store, const std::string &history_file,
              CardEvents::Listener listener, std::function<void()> complete);

    [[nodiscard]] Live &live() { return live_; }
    [[nodiscard]] const CardEvents &events() const { return events_; }

private:
    void handle(const store::Change &change);
    void handle_outage(const store::ConnectionEvent &event);
    void refresh_modules(Time now);
    void notice_health() const;
    void handle_health(const HealthReport &report);

    const Session &session_;
    CardEvents events_;
    Live live_;
    std::function<void()> complete_;
    admission::InPlace in_place_;
    bool completed_ = false;
    Time modules_asked_at_{};
    DaemonView daemon_; // as it was at the beginning, and the recorder's file
    Past past_;
    HealthProbe probe_;
};

} // namespace cg

#endif
