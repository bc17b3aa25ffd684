// Subscriptions on the event loop, for the verbs that stay until they are stopped.
//
// Connecting, subscribing again after the store was away, telling the user of it, and carrying an exception
// out of a callback are the same for all of them.
#ifndef ACCESS_LIVE_H
#define ACCESS_LIVE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <set>
#include <utility>

#include "access/store.h"
#include "base/output.h"
#include "records/record_types.h"
#include "vx_mom.h"

namespace cg
{

// What a subscription tells.
struct Change {
    int32_t cmd; // enum vx_mom_cmd
    const RecordType &type;
    int32_t db;
    int32_t error_code;                        // not 0: the store could not deliver the record
    bool existing;                             // it was there when the subscription began, or began anew
    const ProtobufCMessage *message = nullptr; // the record as it now is, or as it last was; null for
                                               // "subscribed" and for an error; dies with the handler
    uint64_t revision = 0;                     // of this change; 0: not known
    store::Origin origin{};                    // who made it, and why
};

class Live
{
public:
    using Handler = std::function<void(const Change &)>;

    Live(const Output &output, Store &store);
    ~Live();
    Live(const Live &) = delete;
    Live &operator=(const Live &) = delete;

    // What a store that does not answer when subscribe() is called is: a failure, or waited for in the loop.
    enum class Absent { failure, awaited };

    // Subscribes once the loop runs, and again whenever the store has returned. The handler may throw: that
    // ends the loop. Throws Failure when the store does not answer, unless it is awaited.
    void subscribe(const RecordType &type, int32_t db, Handler handler, Absent absent = Absent::failure);

    // A database's connection was lost, or is back.
    struct Outage {
        int32_t db;
        bool lost;
        bool same_data; // of one that is back: with what it had
    };
    enum class Told { with_message, alone };

    // Has `told` called when a connection is lost, and when it is back before what is in it is told anew. It
    // may throw, as handlers may. Told::alone: there is no message about it besides.
    void on_outage(std::function<void(const Outage &)> told, Told how = Told::with_message)
    {
        outage_ = std::move(told);
        outages_ = how;
    }

    // How long nothing was heard of a database's changes, not even that there are none: a second at most
    // while the store answers. Nothing: it never did.
    [[nodiscard]] std::optional<std::chrono::milliseconds> silent_for(int32_t db) const;

    // Calls `tick` from the loop after so many milliseconds, once. May be called by `tick`.
    void after(int64_t milliseconds, std::function<void()> tick);

    // Serves until SIGTERM, SIGINT or stop(). Throws what a handler threw.
    void run();

    // Ends run() when the callback that calls it has returned.
    void stop();
    [[nodiscard]] bool is_stopping() const { return store_.loop().is_stopping(); }

private:
    struct Subscription {
        const RecordType *type;
        int32_t db;
        Handler handler;
        store::Subscription handle{};
    };

    void connect(int32_t db, Absent absent);
    void take_event(const store::ConnectionEvent &event);
    void tell_outage(const Outage &outage);
    void subscribe_all(int32_t db);
    void deliver(const Subscription &subscription, const store::Change &news);

    const Output &output_;
    Store &store_;
    std::list<Subscription> subscriptions_;
    std::list<platform::Timer> delays_;
    std::set<int32_t> databases_;
    std::function<void(const Outage &)> outage_;
    Told outages_ = Told::with_message;
};

} // namespace cg

#endif
