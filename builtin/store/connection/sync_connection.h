// The connection that calls go through: sends commands and waits for their replies, until a deadline.
//
// It knows nothing of repeating: the caller decides what a loss means.
#ifndef CONNECTION_SYNC_CONNECTION_H
#define CONNECTION_SYNC_CONNECTION_H

#include <optional>
#include <string>
#include <vector>

#include "store/connection/endpoint.h"
#include "store/connection/errors.h"
#include "store/connection/outage.h"
#include "store/connection/sentinel_view.h"
#include "store/connection/stream.h"

namespace store
{

enum class Outcome {
    answered,
    lost,      // the connection broke, or did not come about: may be tried again
    timed_out, // no answer before the deadline: the connection is closed
    rejected   // the server does not let us in: trying again is of no use
};

// Who comes, and where to.
struct ClientIdentity {
    Endpoint endpoint;
    Credentials credentials;
    std::string name; // for the server's list of its clients; without blanks
};

class SyncConnection
{
public:
    SyncConnection(const ClientIdentity &identity, int32_t database);

    bool is_open() const { return stream_.has_value(); }
    // Connects, signs in and selects the database. Of a group of servers it is the master that is asked for.
    Outcome open(Clock::time_point deadline);
    // Sends the commands and waits for all replies; an error of the server is a reply.
    Outcome exchange(const std::vector<Command> &commands, Clock::time_point deadline,
                     std::vector<Reply> &replies);
    void close();
    // Closes it for good, because of what the server answered. Returns `rejected`.
    Outcome reject(const std::string &problem) { return give_up(Outcome::rejected, problem); }
    // Closes it because the server cannot serve yet, or no longer. Returns `lost`.
    Outcome put_off(const std::string &problem) { return give_up(Outcome::lost, problem); }
    // After a subscription: waits for the next thing that the server sends.
    Outcome next(Clock::time_point deadline, Reply &reply);
    // What the sentinels said of the server that it is, or was last, connected to; nothing without a group.
    const std::optional<Master> &master() const { return master_; }
    // What went wrong in the last call that did not end in `answered`.
    const std::string &problem() const { return problem_; }
    // The error that an open() that ended in `rejected` stands for: `invalid` when the server has no such
    // database, else `denied`.
    Error rejection() const { return rejection_; }

private:
    enum class Wait { ready, timed_out, failed, moved };
    Outcome find_place(Clock::time_point deadline, Endpoint &place);
    bool has_moved(Clock::time_point deadline);
    Wait wait(short events, Clock::time_point deadline);
    Wait wait_here(short events, Clock::time_point deadline);
    std::string about_master(const std::string &problem) const;
    Outcome give_up_waiting(Wait waited, const char *what);
    Outcome give_up(Outcome how, const std::string &problem);
    Outcome send_all(Clock::time_point deadline);
    Outcome receive(size_t count, Clock::time_point deadline, std::vector<Reply> &replies);

    const ClientIdentity &identity_;
    int32_t database_;
    std::optional<Master> master_;
    std::optional<Stream> stream_;
    bool waits_inside_ = false; // reading waits for the server
    std::string problem_;
    Error rejection_ = denied;
};

// The commands that a new connection begins with: signing in, if there are credentials; the database; and
// last, the name under which the server lists it.
std::vector<Command> handshake(const ClientIdentity &identity, int32_t database);

// Whether the reply to the handshake's command number `at` of `count` means that the connection is of no use.
// Failing to set the client name is not an error.
bool is_turned_away(const redisReply *reply, size_t at, size_t count);

// Whether the reply says that the server has no database of the number asked for.
bool is_missing_database(const redisReply *reply);

// What a server's refusal of such a command means for an operator.
std::string explain_refusal(const redisReply *reply, int32_t database);

// Whether an error says that the server is there but cannot serve yet, or no longer: worth trying again.
bool is_passing(const redisReply *reply);

} // namespace store

#endif
