// How long calls may still wait for a store that does not answer.
//
// The budget counts from the beginning of the outage and not from each call, and is shared by all databases
// of a server: a hundred calls in a row block the loop once, not a hundred times.
#ifndef CONNECTION_OUTAGE_H
#define CONNECTION_OUTAGE_H

#include <chrono>
#include <optional>
#include <string>

#include "log/messages.h"

namespace store
{

using Clock = std::chrono::steady_clock;

class Outage
{
public:
    // `messages` outlives the object.
    Outage(std::chrono::milliseconds budget, platform::Messages &messages)
        : budget_(budget), messages_(messages)
    {
    }

    std::chrono::milliseconds budget() const { return budget_; }
    // Whether the budget is used up: a call gets one short attempt then, and is not repeated.
    bool is_exhausted() const { return lasting_ && Clock::now() >= since_ + budget_; }
    // The moment until which a call that begins now may wait.
    Clock::time_point deadline() const;
    // Whether a handler of messages hears of a problem anyway: by the reason of a call, or by the event of a
    // connection that was up.
    enum class Known { yes, no };
    // The store did not answer, since `when`. What begins an outage is logged; to a handler of messages it is
    // handed only if that does not know it yet.
    void begin(Clock::time_point when, const std::string &problem, Known known = Known::yes);
    // The store can be connected to again, so the budget counts from now: finding out what came back takes
    // several round trips, for which a short attempt may be too short every time.
    void renew();
    // A call failed for which no more than a short attempt was left: there is none for a moment. Else many
    // calls in a row, each with its attempt, would hold up what does not need this store.
    void rest(const std::string &problem);
    // While that lasts, with what the attempt failed; else nothing.
    std::optional<std::string> resting() const;
    // The store answered. This is for the log alone, which says `at` where.
    void end(const char *at = "");

private:
    std::chrono::milliseconds budget_;
    platform::Messages &messages_;
    bool lasting_ = false;
    Clock::time_point since_;
    Clock::time_point rests_until_{};
    std::string problem_; // of the last attempt
};

} // namespace store

#endif
