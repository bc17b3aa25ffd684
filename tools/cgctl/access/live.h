// Subscriptions on the event loop, for the verbs that stay until they are stopped: each begins again whenever
// the store has returned.
#ifndef ACCESS_LIVE_H
#define ACCESS_LIVE_H

#include <cstdint>
#include <functional>
#include <list>
#include <set>
#include <string>

#include "access/store.h"
#include "records/record_types.h"

namespace cg
{

class Live
{
public:
    // Called from the loop; what it throws ends the loop. A record that does not decode has been a notice.
    using Handler = std::function<void(const store::Change &)>;
    // A database's connection was lost, or is back before anything is delivered again.
    using OutageHandler = std::function<void(const store::ConnectionEvent &)>;

    // Without a handler outages are notices. Output and store outlive this.
    Live(const Output &output, Store &store, OutageHandler on_outage = {});
    ~Live();
    Live(const Live &) = delete;
    Live &operator=(const Live &) = delete;

    // Subscribes in the type's usual database once the loop runs, and again whenever the store has returned.
    // Waits for the store's first answer, so that a wrong endpoint is an error at once. Throws Failure.
    void subscribe(const RecordType &type, Handler handler);

    // Serves until SIGTERM, SIGINT or stop(). Throws what a handler threw.
    void run();

    // Ends run() when the callback that calls it has returned.
    void stop();

private:
    struct Subscription {
        const RecordType *type;
        Handler handler;
        store::Subscription handle{};
    };

    void open(int32_t db);
    void handle(const store::ConnectionEvent &event);
    void subscribe_all(int32_t db);

    const Output &output_;
    Store &store_;
    OutageHandler on_outage_;
    std::list<Subscription> subscriptions_;
    std::set<int32_t> databases_;
};

// The text of such an event, for people.
std::string outage_text(int32_t db, bool lost, bool same_data);

} // namespace cg

#endif
