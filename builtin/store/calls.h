// The calls on one database: ridden out over a lost connection, and what is known of the data.
//
// A call is repeated only after its connection broke or another server took over, never after a mere silence:
// a command that is still on its way to a paused server would otherwise be carried out a second time, later,
// over somebody's newer write.
//
// Whatever makes a call doubt the data cuts the connection on the loop, so that its loss and return are
// reported; the return has the data examined.
#ifndef STORE_CALLS_H
#define STORE_CALLS_H

#include <cstdint>
#include <string>
#include <vector>

#include "log/messages.h"
#include "store/connection/async_connection.h"
#include "store/connection/errors.h"
#include "store/connection/sync_connection.h"
#include "store/data_set.h"
#include "store/server.h"
#include "store/status.h"

namespace store
{

struct Answer {
    Status status; // of the transport; an error of the server is a reply
    std::vector<Reply> replies;
};

enum class Purpose { read, write };

class Calls
{
public:
    // server  that has the database.
    // loop    the database's connection on the loop. Both outlive the object.
    Calls(Server &server, int32_t number, AsyncConnection &loop);

    int32_t number() const { return number_; }
    Server &server() const { return server_; }
    vx_global_t *context() const { return shared_.global; }
    platform::Messages &messages() const { return shared_.messages; }
    // What the channels of this database begin with.
    const std::string &channels() const { return channel_prefix_; }

    // Waits for the connection of the calls.
    Status connect();
    // Sends commands in one go and waits for all replies, whatever happens to the connection meanwhile.
    Answer ask(const std::vector<Command> &commands, Purpose purpose);
    // Makes a call of a function that changes records of the named type.
    Status change(Command &&call, const std::string &type);
    // What the next write says of itself: who makes it, and what is being handled; see store/origin.h. No
    // other write bears it: the server knows by it a write that is repeated.
    std::string new_mark();
    // A revision of a type came from the server itself, or with a change.
    void learn(const std::string &type, uint64_t revision) { data_set_.learn(type, revision); }
    void hear(const std::string &type, uint64_t revision) { data_set_.hear(type, revision); }

    // Whether the data is still the known one; if not, or if nobody can say, the connection on the loop
    // is cut.
    bool confirm_data_set();
    // What the data that came back with the connection on the loop is.
    enum class Returned {
        same,         // the known data, and no write was given up meanwhile
        other,        // other data, or a write is missing in it
        unidentified, // unknown: that connection has been cut, and has to come back once more
    };
    // Compares it with the known data and adopts it.
    Returned examine_returned();
    // Logs a problem, unless it was the last one that was.
    void log_once(const std::string &problem);
    // The status of a failed call. Logs the reason, unless a handler receives messages: then the caller has
    // it.
    Status failure(int32_t code, const char *format, ...) const VX_PRINTF_FORMAT(3, 4);
    // Gives the handler of messages, if there is one, the reason of a failure that no caller is given.
    void notify(const Status &failure) const;

private:
    // What is thought of the data.
    enum class Data {
        believed,
        doubted,  // it is another one: calls fail until it has come back and was examined
        examined, // just now
    };

    Outcome attempt(const std::vector<Command> &commands, Clock::time_point deadline,
                    std::vector<Reply> &replies);
    Outcome open(Clock::time_point deadline);
    Outcome identify(Clock::time_point deadline, DataSet::Answers &answers);
    Outcome register_run(Clock::time_point deadline, DataSet::Answers &answers);
    Answer load_and_call(const std::vector<Command> &call);
    std::string identify_returned(bool &other);
    void note_replicas(const redisReply *reply);
    Answer give_up(Purpose purpose, const std::string &problem);
    Answer refuse();
    void end_outage(Purpose purpose);
    void notify_starter(const std::string &problem);

    Server &server_;
    Shared &shared_;
    int32_t number_;
    AsyncConnection &loop_;
    SyncConnection sync_;
    const ReplicaSetting replicas_;
    bool misses_replicas_ = false; // they did not confirm the last write
    DataSet data_set_;
    Data data_ = Data::believed;
    bool write_given_up_ = false; // since the data was examined
    bool writes_refused_ = false; // by a server that answers, for a reason that may pass
    std::string logged_problem_;  // the last one logged, so that each is logged once
    std::string logged_oddity_;
    std::string unidentified_; // why the data that came back could not be identified, the last time
    std::string channel_prefix_;
};

} // namespace store

#endif
