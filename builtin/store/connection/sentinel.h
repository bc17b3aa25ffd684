// Which server of a group is its master: asked of the sentinels that watch it.
//
// All of them are asked at once, and sentinel_view.h says which is believed. Following their announcements
// (+switch-master) was rejected: a stream that breaks loses them, and a new connection has to ask anyway.
//
// Uses no event library, so that calls that wait (poll) and the event loop drive the same search.
#ifndef CONNECTION_SENTINEL_H
#define CONNECTION_SENTINEL_H

#include <poll.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "store/connection/endpoint.h"
#include "store/connection/outage.h"
#include "store/connection/sentinel_view.h"

namespace store
{

// One search. To be called again: whenever one of watched() is ready, and at due().
class MasterSearch
{
public:
    // Starts to ask the sentinels of an endpoint that has a group. Names of hosts are looked up here, and
    // that waits for the name server, as hiredis knows no other way: addresses are the better choice.
    MasterSearch(const Endpoint &endpoint, const Credentials &credentials);
    MasterSearch(MasterSearch &&) noexcept;
    MasterSearch &operator=(MasterSearch &&) noexcept;
    MasterSearch(const MasterSearch &) = delete;
    MasterSearch &operator=(const MasterSearch &) = delete;
    ~MasterSearch();

    // Does what is possible without waiting. Returns true when the search is over: each sentinel has
    // answered or failed, or the time is up that the slower ones get after the first answer. Sentinels that
    // are all silent never end it; that is up to the caller's deadline.
    bool advance(Clock::time_point now = Clock::now());
    // What the search waits for; nothing when it is over. Another call may give other descriptors.
    std::vector<pollfd> watched() const;
    // When to call advance() even if nothing is ready; nothing when there is no such moment.
    std::optional<Clock::time_point> due() const;
    // The master by the answers so far.
    std::optional<Master> found() const;
    // One line: what each sentinel said, or that it did not.
    std::string problem() const;

private:
    class Inquiry;

    std::string group_;
    std::vector<std::unique_ptr<Inquiry>> inquiries_; // in the order configured
    std::optional<Clock::time_point> first_answer_;
    bool over_ = false;
};

// Drives a search until it is over or the deadline. Returns the reason when it cannot be driven.
std::optional<std::string> run_search(MasterSearch &search, Clock::time_point deadline);

// Searches so. Returns nothing, and says in `problem` what each
// sentinel said, when no master was found.
std::optional<Master> find_master(const Endpoint &endpoint, const Credentials &credentials,
                                  Clock::time_point deadline, std::string &problem);

} // namespace store

#endif
