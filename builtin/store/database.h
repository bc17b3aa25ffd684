// One numbered database of the store: its two connections, what is known of its data, its subscriptions.
//
// Calls ride out a lost connection here, and here is decided what a returning store is taken for. Users are
// called back from turn() only, which runs on the loop, so that none of their calls can come from within the
// handling of a connection.
#ifndef STORE_DATABASE_H
#define STORE_DATABASE_H

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "log/messages.h"
#include "store/change.h"
#include "store/connection/async_connection.h"
#include "store/connection/errors.h"
#include "store/connection/outage.h"
#include "store/connection/sync_connection.h"
#include "store/data_set.h"
#include "store/subscription.h"

namespace vx_mom
{

// How many replicas must have a write before the call returns, and how long it waits for them.
struct ReplicaWait {
    int count = 0;
    std::chrono::milliseconds limit{0};
    bool is_missed = false; // they did not confirm the last write
};

// What the databases of a client share. All of it outlives them.
struct Shared {
    vx_global_t *global;
    event_base *base;
    platform::Messages messages;
    Visitor visitor;
    Outage outage;
    ReplicaWait replicas;
    std::function<void()> schedule_turn; // has turn() called soon, from the loop
    // Since when the server has no functions and refuses to be given them.
    std::optional<Clock::time_point> lacks_functions_since{};
    std::string instance{}; // of the client, which its marks begin with
    uint64_t writes = 0;    // that have been given a mark
    std::string told_starter{}; // the problem that whoever started the program was told of last
};

struct Answer {
    int32_t error = ok; // of the transport; an error of the server is a reply
    std::vector<Reply> replies;
};

enum class Purpose { read, write };

class Database : private AsyncObserver
{
public:
    Database(Shared &shared, int32_t number);

    int32_t number() const { return number_; }
    vx_global_t *context() const { return shared_.global; }
    platform::Messages &messages() const { return shared_.messages; }
    // Waits for the connection of the calls. Returns ok or an error.
    int32_t connect();
    // Sends commands in one go and waits for all replies, whatever happens to the connection meanwhile.
    Answer ask(const std::vector<Command> &commands, Purpose purpose);
    // Makes a call of a function that changes records of the named type. Returns ok or an error.
    int32_t change(Command &&call, const std::string &type);
    // What the channels of this database begin with.
    const std::string &channels() const { return channel_prefix_; }
    // What the next write says of itself: who makes it, and what is being handled; see store/origin.h. No
    // other write bears it: the server knows by it a write that is repeated.
    std::string new_mark();
    // A revision of a type was told by the server, or came with a change.
    void learn(const std::string &type, uint64_t revision) { data_set_.learn(type, revision); }
    void hear(const std::string &type, uint64_t revision) { data_set_.hear(type, revision); }

    // Wants the connection on the loop.
    void begin();
    // Whether it has come up once, and the user may be told.
    bool has_arrived() const { return arrived_; }
    // Who is told of a loss and a return.
    void set_handler(store::ConnectionHandler handler);
    // Calls it, unless there is none.
    void tell(const store::ConnectionEvent &event);
    // In place of the subscription to this type that there is.
    std::shared_ptr<Subscription> subscribe(const ProtobufCMessageDescriptor &type,
                                            store::ChangeHandler handler);
    // Reports what is due and advances the subscriptions. Returns whether there is more to do at once.
    bool turn();

    // For subscriptions.
    void watch(const std::string &channel) { async_.subscribe(channel); }
    void watch_all(const std::string &pattern) { async_.subscribe_all(pattern); }
    // When something last came on the connection of the loop, and nothing waited to be delivered.
    std::optional<Clock::time_point> heard_at() const { return heard_at_; }
    // Sends a ping, whose answer comes after all changes published before; returns its number.
    uint64_t ping();
    bool is_answered(uint64_t ping) const { return pongs_ >= ping; }
    // Cuts the connection on the loop, so that its loss and return are reported.
    void drop(const std::string &problem) { async_.drop(problem); }
    // Whether the data is still the known one; if not, or if that cannot be told, the connection is cut.
    bool confirm_data_set();

private:
    void on_up(const std::string &run, const std::string &data_set_id) override;
    void on_lost(const std::string &problem) override;
    void on_failed(const std::string &problem, bool lasting) override;
    void on_subscribed(std::string_view watched) override;
    void on_refused(const std::string &problem) override;
    void on_message(std::string_view watched, std::string_view channel, std::string_view payload) override;
    void on_pong() override;
    void on_checked() override;

    // What came on the connection of the loop: a message for somebody, or, for nobody, the answer to a ping.
    // One queue for all, so that changes of different record types are delivered in the order in which they
    // were made.
    struct Arrival {
        std::shared_ptr<Subscription> receiver;
        std::string key; // of the record, from the channel's name
        std::string payload;
    };

    Exchange attempt(const std::vector<Command> &commands, Clock::time_point deadline,
                     std::vector<Reply> &replies);
    Exchange open(Clock::time_point deadline);
    Exchange identify(Clock::time_point deadline, DataSet::Answers &answers);
    bool is_believable(const DataSet::Answers &answers, std::string &problem) const;
    Exchange register_run(Clock::time_point deadline, DataSet::Answers &answers);
    Answer load_and_call(const std::vector<Command> &call);
    void note_replicas(const redisReply *reply);
    Answer give_up(Purpose purpose, const std::string &problem);
    Answer refuse();
    void end_outage(Purpose purpose);
    void tell_once(const std::string &problem);
    void tell_starter(const std::string &problem);
    void note_heard();
    void report_loss();
    bool settle_arrival();
    bool identify_returned(bool &other);
    bool hand_out_arrivals();
    bool advance_subscriptions();
    std::shared_ptr<Subscription> subscription_of(std::string_view watched);

    Shared &shared_;
    int32_t number_;
    SyncConnection sync_;
    AsyncConnection async_;
    DataSet data_set_;
    std::string told_problem_; // the last one logged, so that each is logged once
    std::string told_oddity_;
    std::string channel_prefix_;

    bool wanted_ = false;      // the connection on the loop was asked for
    bool arrived_ = false;     // it came up once
    bool reported_up_ = false; // as far as the user was told
    bool loss_due_ = false;    // a loss is to be reported
    bool arrival_due_ = false; // the connection is up and nobody has been told
    bool other_data_ = false;  // the store was found to hold other data
    bool settling_ = false;    // a return is being looked into
    bool write_given_up_ = false;
    bool writes_refused_ = false; // by a server that answers, for a reason that may pass
    std::string
        async_run_; // the server run, and the data's identity, as the connection on the loop sees them
    std::string async_id_;

    std::deque<Arrival> arrivals_; // of the present connection of the loop
    uint64_t pings_ = 0;           // sent on the present connection of the loop
    uint64_t pongs_ = 0;
    std::optional<Clock::time_point> heard_at_{}; // what waits among the arrivals is not heard yet

    std::shared_ptr<const store::ConnectionHandler> handler_;
    std::string loss_;                                       // why the connection was lost
    std::list<std::shared_ptr<Subscription>> subscriptions_; // in the order asked
};

} // namespace vx_mom

#endif
