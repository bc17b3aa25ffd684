// The budget of an outage; see the header.
#include "store/connection/outage.h"

#include <algorithm>

namespace store
{

namespace
{

constexpr std::chrono::milliseconds short_attempt{50};
constexpr std::chrono::milliseconds rest_after_attempt{100};

} // namespace

Clock::time_point Outage::deadline() const
{
    const Clock::time_point now = Clock::now();
    return lasting_ ? std::max(since_ + budget_, now + std::min(short_attempt, budget_)) : now + budget_;
}

void Outage::begin(Clock::time_point when, const std::string &problem, Known known)
{
    if (!lasting_) {
        lasting_ = true;
        since_ = when;
        if (messages_.go_to_log() || known == Known::no) {
            LOG_TO(messages_, platform::log_warn, "store lost: %s", problem.c_str());
        }
    }
}

void Outage::renew()
{
    since_ = Clock::now();
    rests_until_ = {};
}

void Outage::rest(const std::string &problem)
{
    rests_until_ = Clock::now() + rest_after_attempt;
    problem_ = problem;
}

std::optional<std::string> Outage::resting() const
{
    return Clock::now() < rests_until_ ? std::optional(problem_) : std::nullopt;
}

void Outage::end(const char *at)
{
    if (lasting_) {
        lasting_ = false;
        rests_until_ = {};
        if (messages_.go_to_log()) {
            LOG_TO(messages_, platform::log_notice, "store answers again%s", at);
        }
    }
}

} // namespace store
