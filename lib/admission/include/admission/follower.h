// All that the tracker wants to hear of, followed in a store: the subscriptions, made again after each
// outage, and which of their changes are news.
#ifndef ADMISSION_FOLLOWER_H
#define ADMISSION_FOLLOWER_H

#include <functional>
#include <map>
#include <string>

#include "admission/change.h"
#include "admission/in_place.h"
#include "store/client.h"

namespace admission
{

class Follower
{
public:
    // Called from the loop. What one of them throws ends it.
    struct Listener {
        // A change, with the arguments of feed(); existing records come first.
        std::function<void(const ProtobufCMessage &record, bool deleted, const Change &change)> changed;
        // The record with this key changed in a database, and does not decode, for this reason. Both can be
        // printed.
        std::function<void(int32_t db, const std::string &key, const std::string &reason)> undecodable;
        // All existing records of this database were reported, at first or again.
        std::function<void(int32_t db)> snapshot_done;
        // A database's connection is lost, or is back and everything in it is about to be reported again.
        std::function<void(const store::ConnectionEvent &event)> outage;
    };

    // Follows nothing yet. The client outlives this; nobody else has its connection events.
    Follower(store::Client &client, Listener listener);

    // Follows once the loop runs. `at_once`: waits for the store first. Throws cg::Failure when that does not
    // answer, or when the settings are of no use (wrong usage).
    void start(bool at_once);

    // Which types' existing records were reported.
    [[nodiscard]] InPlace &in_place() { return in_place_; }

private:
    void handle(const store::ConnectionEvent &event);
    void handle(const store::Change &change);
    void subscribe(const TrackedType &type);

    store::Client &client_;
    Listener listener_;
    std::map<const ProtobufCMessageDescriptor *, store::Subscription> subscriptions_;
    InPlace in_place_;
};

// "lost the store, database 1: REASON; reconnecting", "the store is back, database 1", where there are
// several servers "... at ENDPOINT".
std::string text_of(const store::ConnectionEvent &event);

} // namespace admission

#endif
