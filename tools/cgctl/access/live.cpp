// Subscriptions on the event loop.
#include "access/live.h"

#include <string>
#include <utility>

#include "base/failure.h"
#include "base/output.h"
#include "base/text.h"

namespace cg
{

namespace
{

using Kind = store::ConnectionEvent::Kind;

} // namespace

Live::Live(const Output &output, Store &store, OutageHandler on_outage)
    : output_(output), store_(store), on_outage_(std::move(on_outage))
{
}

Live::~Live()
{
    for (const int32_t db : databases_) {
        (void)store_.client().on_connection(db, {});
    }
}

void Live::subscribe(const RecordType &type, Handler handler)
{
    subscriptions_.push_back({&type, std::move(handler)});
    if (databases_.insert(type.db).second) {
        open(type.db);
    }
}

void Live::open(int32_t db)
{
    store_.connect(db);
    store::Client &client = store_.client();
    (void)client.on_connection(db, [this](const store::ConnectionEvent &event) { handle(event); });
    if (const store::Status status = client.open(db); !status) {
        throw Failure(failed, "no lasting connection to database " + std::to_string(db) +
                                  " can be made: " + visible(status.reason));
    }
}

void Live::run()
{
    store_.loop().run();
}

void Live::stop()
{
    store_.loop().stop();
}

void Live::handle(const store::ConnectionEvent &event)
{
    if (event.kind != Kind::connected && on_outage_) {
        on_outage_(event);
    } else if (event.kind != Kind::connected) {
        output_.notice(outage_text(event.database, event.kind == Kind::lost, event.same_data));
    }
    if (event.kind != Kind::lost) {
        subscribe_all(event.database);
    }
}

void Live::subscribe_all(int32_t db)
{
    for (Subscription &subscription : subscriptions_) {
        if (subscription.type->db != db) {
            continue;
        }
        auto asked = store_.client().subscribe(
            db, *subscription.type->descriptor, [this, &subscription](const store::Change &change) {
                if (change.error != 0) {
                    output_.notice("record " + visible(change.key) +
                                   " does not decode: " + visible(change.reason));
                }
                subscription.handler(change);
            });
        if (!asked) {
            throw Failure(failed, std::string("cannot subscribe to ") + subscription.type->name() +
                                      " in database " + std::to_string(db) + ": " + visible(asked.reason));
        }
        subscription.handle = std::move(asked.value);
    }
}

std::string outage_text(int32_t db, bool lost, bool same_data)
{
    const std::string number = std::to_string(db);
    return lost
               ? "lost the store, database " + number + "; connecting again"
               : "the store is back, database " + number + (same_data ? "" : ", with other data than before");
}

} // namespace cg
