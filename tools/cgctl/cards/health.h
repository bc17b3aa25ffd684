// What a live view cannot be believed for: the store, the daemon or the recorder is not there.
//
// Kept apart from the cards, and passive: the listener hands in what it received.
#ifndef CARDS_HEALTH_H
#define CARDS_HEALTH_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "admission/decision.h"

namespace cg
{

using admission::Time;

class Health
{
public:
    // Each returns whether that is news. A database's connection was lost, or is back.
    bool hear_store(int32_t db, bool connected, Time at);
    // The daemon answered, or nobody did.
    bool hear_daemon(bool answers, Time at);
    // The recorder is at work, or wrote nothing since `last_heartbeat`.
    bool hear_recorder(bool at_work, Time last_heartbeat);
    // Whether the recorder's file can be read.
    bool hear_history(bool readable, Time at);

    // Since when what the store holds of cards, database 1, is not known; nothing while it is there.
    [[nodiscard]] std::optional<Time> store_lost() const;
    [[nodiscard]] std::optional<Time> daemon_silent() const { return daemon_silent_; }
    // What is wrong, the worst first: "STORE LOST since 18:03:58, DAEMON SILENT since 18:04:10", or, while
    // database 1 is there, "DATABASE 33 LOST since ..."; empty when nothing is.
    [[nodiscard]] std::string text(Time now) const;

private:
    std::map<int32_t, Time> lost_{};
    std::optional<Time> daemon_silent_{};
    std::optional<Time> recorder_away_{};
    std::optional<Time> history_unreadable_{};
};

} // namespace cg

#endif
