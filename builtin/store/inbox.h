// What the connection on the loop brings to one database: changes for its subscriptions, in one order, and
// the connection's own loss and return.
//
// Users are called back from turn() only, which runs on the loop, so that none of their calls can come from
// within the handling of a connection.
#ifndef STORE_INBOX_H
#define STORE_INBOX_H

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "store/calls.h"
#include "store/change.h"
#include "store/connection/async_connection.h"
#include "store/subscription.h"

namespace store
{

class Inbox : private AsyncObserver
{
public:
    // Both are those of the same database, and outlive the object.
    Inbox(Calls &calls, AsyncConnection &loop);

    // Wants the connection.
    void begin();
    // Whether it has come up once, and the user may hear of it.
    bool has_arrived() const { return has_arrived_; }
    // Who receives the events of the connection.
    void set_handler(ConnectionHandler handler);
    // Calls it, unless there is none.
    void notify(const ConnectionEvent &event);
    // In place of the subscription to this type that there is.
    std::shared_ptr<TypeSubscription> subscribe(const ProtobufCMessageDescriptor &type,
                                                ChangeHandler handler);
    // Reports what is due and advances the subscriptions. Returns whether there is more to do at once.
    bool turn();
    // When something last came, and nothing waited to be delivered.
    std::optional<Clock::time_point> heard_at() const { return heard_at_; }

private:
    // Of this process: bytes of the heap that are free, and bytes that are in memory (0: not known).
    struct Memory {
        size_t free;
        size_t resident;
    };
    static Memory memory();

    enum class State {
        down,
        arrived, // the connection is up, and nobody has been notified
        open,    // as far as the user knows
    };

    void on_up() override;
    void on_lost(const std::string &problem) override;
    void on_failed(const std::string &problem, bool lasting) override;
    void on_subscribed(std::string_view watched) override;
    void on_refused(std::string_view watched, const std::string &problem) override;
    void on_message(std::string_view watched, std::string_view channel, std::string_view payload) override;
    void on_pong() override;
    void on_checked() override;

    void note_away(bool is_away);
    void note_heard();
    void give_burst_back();
    void report_loss();
    bool open();
    bool deliver();
    bool advance_subscriptions();
    std::shared_ptr<TypeSubscription> subscription_of(std::string_view watched);

    Server &server_;
    Shared &shared_;
    Calls &calls_;
    AsyncConnection &loop_;
    State state_ = State::down;
    bool has_arrived_ = false;
    std::optional<std::string> loss_due_; // why: a loss is to be reported
    uint64_t arrivals_ = 0;               // changes that have come
    Memory least_ = memory();             // since memory was given back
    uint64_t pongs_ = 0;                  // of the present connection
    bool is_noted_away_ = false;
    std::optional<Clock::time_point> heard_at_{}; // what waits for its delivery is not heard yet
    std::shared_ptr<const ConnectionHandler> handler_;
    std::list<std::shared_ptr<TypeSubscription>> subscriptions_; // in the order asked
};

} // namespace store

#endif
