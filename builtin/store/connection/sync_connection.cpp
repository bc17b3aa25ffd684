// The connection that calls go through; see the header.
#include "store/connection/sync_connection.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "store/connection/sentinel.h"

namespace store
{

namespace
{

constexpr int64_t databases_in_use = 64; // what the documentation has users configure
constexpr std::chrono::milliseconds search_pause{500};
constexpr std::chrono::milliseconds longest_search{250};
// How long one read waits by itself. Longer waits are made of several; what is left of a shorter one is
// polled for.
constexpr std::chrono::milliseconds patience{100};

} // namespace

SyncConnection::SyncConnection(const ClientIdentity &identity, int32_t database)
    : identity_(identity), database_(database)
{
}

Outcome SyncConnection::open(Clock::time_point deadline)
{
    Endpoint place = identity_.endpoint;
    const Outcome found = find_place(deadline, place);
    if (found != Outcome::answered) {
        return found;
    }
    stream_.emplace(place);
    if (stream_->failed()) {
        return give_up(Outcome::lost, about_master(stream_->problem()));
    }
    const Wait waited = wait(POLLOUT, deadline);
    if (waited != Wait::ready) {
        return give_up_waiting(waited, "no connection in time");
    }
    if (!stream_->finish_connecting()) {
        return give_up(Outcome::lost, stream_->problem());
    }
    // A group's server has to be looked after while it is waited for.
    waits_inside_ = !master_ && stream_->wait_inside(patience);
    std::vector<Reply> replies;
    const Outcome result = exchange(handshake(identity_, database_), deadline, replies);
    if (result != Outcome::answered) {
        return result;
    }
    for (size_t i = 0; i < replies.size(); i++) {
        const redisReply *reply = replies[i].get();
        if (is_turned_away(reply, i, replies.size())) {
            rejection_ = is_missing_database(reply) ? invalid : denied;
            return give_up(is_passing(reply) ? Outcome::lost : Outcome::rejected,
                           explain_refusal(reply, database_));
        }
    }
    return Outcome::answered;
}

Outcome SyncConnection::exchange(const std::vector<Command> &commands, Clock::time_point deadline,
                                 std::vector<Reply> &replies)
{
    replies.clear();
    for (const Command &command : commands) {
        stream_->append(command);
    }
    const Outcome sent = send_all(deadline);
    return sent == Outcome::answered ? receive(commands.size(), deadline, replies) : sent;
}

void SyncConnection::close()
{
    stream_.reset();
}

Outcome SyncConnection::find_place(Clock::time_point deadline, Endpoint &place)
{
    master_.reset();
    if (identity_.endpoint.group.empty()) {
        return Outcome::answered;
    }
    std::string problem;
    master_ = find_master(identity_.endpoint, identity_.credentials, deadline, problem);
    if (!master_) {
        return give_up(Clock::now() >= deadline ? Outcome::timed_out : Outcome::lost, problem);
    }
    place = master_->place;
    return Outcome::answered;
}

// Whether the sentinels name another server by now: then the one that is waited for will never answer, and
// what it was sent dies with its data.
bool SyncConnection::has_moved(Clock::time_point deadline)
{
    std::string problem;
    const auto now = find_master(identity_.endpoint, identity_.credentials,
                                 std::min(deadline, Clock::now() + longest_search), problem);
    return now && now->place.text != master_->place.text;
}

// Waits for the server, and, of a group, asks from time to time whether it is still the one to wait for.
SyncConnection::Wait SyncConnection::wait(short events, Clock::time_point deadline)
{
    while (master_) {
        const Clock::time_point pause_end = Clock::now() + search_pause;
        if (pause_end >= deadline) {
            break;
        }
        const Wait waited = wait_here(events, pause_end);
        if (waited != Wait::timed_out) {
            return waited;
        }
        if (has_moved(deadline)) {
            return Wait::moved;
        }
    }
    return wait_here(events, deadline);
}

SyncConnection::Wait SyncConnection::wait_here(short events, Clock::time_point deadline)
{
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd watched{stream_->fd(), events, 0};
        // One millisecond more: what is left was rounded down.
        const int ready = poll(&watched, 1, static_cast<int>(std::max<int64_t>(left + 1, 0)));
        if (ready > 0) {
            return Wait::ready;
        }
        if (ready < 0 && errno != EINTR) {
            return Wait::failed;
        }
        if (ready == 0 && Clock::now() >= deadline) {
            return Wait::timed_out;
        }
    }
}

// Callers name the endpoint; of a group it is the server that matters.
std::string SyncConnection::about_master(const std::string &problem) const
{
    return master_ ? master_->place.text + ": " + problem : problem;
}

Outcome SyncConnection::give_up_waiting(Wait waited, const char *what)
{
    switch (waited) {
    case Wait::timed_out:
        return give_up(Outcome::timed_out, about_master(what));
    case Wait::moved:
        return give_up(Outcome::lost, about_master("another server is the master now"));
    default:
        return give_up(Outcome::lost, about_master(std::strerror(errno)));
    }
}

Outcome SyncConnection::give_up(Outcome how, const std::string &problem)
{
    problem_ = problem;
    close();
    return how;
}

Outcome SyncConnection::send_all(Clock::time_point deadline)
{
    for (;;) {
        if (!stream_->send_some()) {
            return give_up(Outcome::lost, stream_->problem());
        }
        if (!stream_->has_output()) {
            return Outcome::answered;
        }
        const Wait waited = wait(POLLOUT, deadline);
        if (waited != Wait::ready) {
            return give_up_waiting(waited, "cannot send in time");
        }
    }
}

Outcome SyncConnection::receive(size_t count, Clock::time_point deadline, std::vector<Reply> &replies)
{
    while (replies.size() < count) {
        Reply reply = stream_->next_reply();
        if (reply != nullptr) {
            replies.push_back(std::move(reply));
            continue;
        }
        if (stream_->failed()) {
            return give_up(Outcome::lost, stream_->problem());
        }
        // Waiting in the read and not before it spares a call of the system for each answer.
        if (!waits_inside_ || deadline - Clock::now() <= patience) {
            const Wait waited = wait(POLLIN, deadline);
            if (waited != Wait::ready) {
                return give_up_waiting(waited, "no answer in time");
            }
        }
        if (!stream_->read_some()) {
            return give_up(Outcome::lost, stream_->problem());
        }
    }
    return Outcome::answered;
}

Outcome SyncConnection::next(Clock::time_point deadline, Reply &reply)
{
    std::vector<Reply> replies;
    const Outcome result = receive(1, deadline, replies);
    if (result == Outcome::answered) {
        reply = std::move(replies[0]);
    }
    return result;
}

std::vector<Command> handshake(const ClientIdentity &identity, int32_t database)
{
    const Credentials &credentials = identity.credentials;
    std::vector<Command> commands;
    if (!credentials.password.empty()) {
        commands.push_back(credentials.user.empty()
                               ? Command{"AUTH", credentials.password}
                               : Command{"AUTH", credentials.user, credentials.password});
    }
    commands.push_back({"SELECT", std::to_string(database)});
    commands.push_back({"CLIENT", "SETNAME", identity.name});
    return commands;
}

bool is_turned_away(const redisReply *reply, size_t at, size_t count)
{
    return is_error(reply) && (at + 1 < count || is_passing(reply));
}

bool is_missing_database(const redisReply *reply)
{
    return is_error(reply) && text_of(reply).find("DB index is out of range") != std::string::npos;
}

std::string explain_refusal(const redisReply *reply, int32_t database)
{
    if (is_missing_database(reply)) {
        const int64_t needed = std::max(databases_in_use, int64_t{database} + 1);
        return "the store server has no database " + std::to_string(database) +
               ": it must be configured with 'databases " + std::to_string(needed) + "'";
    }
    return "the store server refuses: " + text_of(reply);
}

bool is_passing(const redisReply *reply)
{
    if (!is_error(reply)) {
        return false; // which is asked of every answer
    }
    return is_error(reply, "LOADING") || is_error(reply, "BUSY") || is_error(reply, "MASTERDOWN") ||
           is_error(reply, "READONLY") || is_error(reply, "TRYAGAIN") || is_error(reply, "NOREPLICAS");
}

} // namespace store
