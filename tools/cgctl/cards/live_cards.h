// The cards and what happens to them, live from the store: for the lines and for the screen.
#ifndef CARDS_LIVE_CARDS_H
#define CARDS_LIVE_CARDS_H

#include <functional>
#include <map>
#include <string>

#include "access/store.h"
#include "admission/follower.h"
#include "cards/card_events.h"
#include "cards/health_probe.h"
#include "command_line/session.h"

namespace cg
{

class LiveCards
{
public:
    // Follows all that is about cards once the store's loop runs. Throws Failure when the store of database 1
    // does not answer; another one that does not is a notice, and its database is followed when it is there.
    // Session and store outlive this. `complete` is called when every existing record was received of those
    // that are there.
    LiveCards(const Session &session, Store &store, const std::string &history_file,
              CardEvents::Listener listener, std::function<void()> complete);

    [[nodiscard]] const CardEvents &events() const { return events_; }

private:
    void handle(const ProtobufCMessage &record, bool deleted, const admission::Change &change);
    void connect(Store &store);
    void handle_outage(const store::ConnectionEvent &event);
    void finish_snapshot(int32_t db);
    void notice_arrival(int32_t db);
    void begin_to_listen();
    void refresh_modules(Time now);
    void notice_health() const;
    void handle_health(const HealthReport &report);

    const Session &session_;
    CardEvents events_;
    admission::Follower follower_;
    std::function<void()> complete_;        // empty once it was called
    std::map<int32_t, std::string> absent_; // databases that have not been there yet, and their servers
    Time modules_asked_at_{};
    DaemonView daemon_; // as it was at the beginning, and the recorder's file
    Past past_;
    HealthProbe probe_;
};

} // namespace cg

#endif
