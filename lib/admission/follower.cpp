// All that the tracker wants to hear of, followed in a store.
#include "admission/follower.h"

#include <cerrno>
#include <utility>

#include "base/failure.h"
#include "base/text.h"

namespace admission
{

namespace
{

using Kind = store::ConnectionEvent::Kind;

// `problem` is what a failure means.
void require(const store::Status &status, const std::string &problem)
{
    if (!status) {
        throw cg::Failure(status.code == -EINVAL ? cg::wrong_usage : cg::failed,
                          problem + ": " + cg::visible(status.reason));
    }
}

} // namespace

Follower::Follower(store::Client &client, Listener listener) : client_(client), listener_(std::move(listener))
{
}

void Follower::start(bool at_once)
{
    for (const int32_t db : tracked_databases()) {
        const std::string problem = "cannot use database " + std::to_string(db) + " of the store";
        if (at_once) {
            require(client_.connect(db), problem);
        }
        const auto handler = [this](const store::ConnectionEvent &event) { handle(event); };
        require(client_.on_connection(db, handler), problem);
        require(client_.open(db), problem);
    }
}

// After an outage all records are asked for again: else nothing would say where the missed changes end.
void Follower::handle(const store::ConnectionEvent &event)
{
    if (event.kind != Kind::connected) {
        listener_.outage(event);
        in_place_.lost(event.database);
    }
    if (event.kind == Kind::lost) {
        return;
    }
    for (const TrackedType &type : tracked_types()) {
        if (type.db == event.database) {
            subscribe(type);
        }
    }
}

void Follower::subscribe(const TrackedType &type)
{
    auto made =
        client_.subscribe(type.db, *type.descriptor, [this](const store::Change &change) { handle(change); });
    require(made, "cannot subscribe to " + std::string(type.descriptor->name) + " in database " +
                      std::to_string(type.db));
    subscriptions_[type.descriptor] = std::move(made.value);
}

void Follower::handle(const store::Change &change)
{
    if (change.command == VX_MOM_CMD_SUBSCRIBED) {
        in_place_.told(change.type);
        if (in_place_.is_complete(change.database)) {
            listener_.snapshot_done(change.database);
        }
    } else if (change.error != 0) {
        listener_.undecodable(change.database, cg::visible(change.key), cg::visible(change.reason));
    } else {
        const bool existing = change.existing || !in_place_.is_complete(change.database);
        listener_.changed(*change.record, change.command == VX_MOM_CMD_DELETED,
                          {std::chrono::system_clock::now(), existing, {change.revision, change.origin()}});
    }
}

std::string text_of(const store::ConnectionEvent &event)
{
    const std::string number = std::to_string(event.database);
    if (event.kind == Kind::lost) {
        return "lost the store, database " + number + ": " + cg::visible(event.reason) + "; reconnecting";
    }
    return "the store is back, database " + number +
           (event.server.empty() ? "" : " at " + cg::visible(event.server)) +
           (event.same_data ? "" : ", with other data than before");
}

} // namespace admission
