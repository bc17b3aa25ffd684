// Subscriptions on the event loop.
#include "access/live.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "base/failure.h"
#include "base/text.h"

namespace cg
{

Live::Live(const Output &output, Store &store) : output_(output), store_(store) {}

Live::~Live()
{
    for (const int32_t db : databases_) {
        (void)store_.client().on_connection(db, {});
    }
}

void Live::subscribe(const RecordType &type, int32_t db, Handler handler, Absent absent)
{
    subscriptions_.push_back({&type, db, std::move(handler)});
    if (databases_.insert(db).second) {
        connect(db, absent);
    }
}

// The first answer is waited for, so that a wrong endpoint is told at once instead of being tried for ever;
// unless that is wanted.
void Live::connect(int32_t db, Absent absent)
{
    if (absent == Absent::failure) {
        store_.connect(db);
    }
    store::Client &client = store_.client();
    (void)client.on_connection(db, [this](const store::ConnectionEvent &event) { take_event(event); });
    if (const store::Status status = client.open(db); !status) {
        throw Failure(failed, "no lasting connection to database " + std::to_string(db) +
                                  " can be made: " + visible(status.reason));
    }
}

void Live::after(int64_t milliseconds, std::function<void()> tick)
{
    std::erase_if(delays_, [](const platform::Timer &delay) { return !delay.is_armed(); });
    delays_.push_back(store_.loop().after(std::chrono::milliseconds(milliseconds), std::move(tick)));
}

std::optional<std::chrono::milliseconds> Live::silent_for(int32_t db) const
{
    const auto heard = store_.client().last_contact(db);
    using std::chrono::milliseconds;
    return heard ? std::optional(
                       std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - *heard))
                 : std::nullopt;
}

void Live::run()
{
    store_.loop().run();
}

void Live::stop()
{
    store_.loop().stop();
}

void Live::take_event(const store::ConnectionEvent &event)
{
    using Kind = store::ConnectionEvent::Kind;
    if (event.kind != Kind::connected) {
        tell_outage({event.database, event.kind == Kind::lost, event.same_data});
    }
    if (event.kind != Kind::lost) {
        subscribe_all(event.database);
    }
}

void Live::tell_outage(const Outage &outage)
{
    const std::string db = std::to_string(outage.db);
    if (outages_ == Told::alone) {
        // who is told says it
    } else if (outage.lost) {
        output_.notice("lost the store, database " + db + "; connecting again");
    } else {
        output_.notice("the store is back, database " + db +
                       (outage.same_data ? "" : ", with other data than before"));
    }
    if (outage_) {
        outage_(outage);
    }
}

void Live::subscribe_all(int32_t db)
{
    for (Subscription &subscription : subscriptions_) {
        if (subscription.db != db) {
            continue;
        }
        const RecordType &type = *subscription.type;
        auto asked =
            store_.client().subscribe(db, *type.descriptor, [this, &subscription](const store::Change &news) {
                deliver(subscription, news);
            });
        if (!asked) {
            throw Failure(failed, std::string("cannot subscribe to ") + type.name() + " in database " +
                                      std::to_string(db) + ": " + visible(asked.reason));
        }
        subscription.handle = std::move(asked.value);
    }
}

void Live::deliver(const Subscription &subscription, const store::Change &news)
{
    Change change{news.command, *subscription.type, subscription.db, news.error, news.existing};
    if (news.error != 0) {
        output_.notice("record " + visible(std::string(news.key)) +
                       " does not decode: " + visible(std::string(news.reason)));
    } else if (news.record != nullptr) {
        change.message = news.record;
        change.revision = news.revision;
        change.origin = news.origin();
    }
    subscription.handler(change);
}

} // namespace cg
