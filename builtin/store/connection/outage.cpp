// The budget of an outage; see the header.
#include "store/connection/outage.h"

#include <algorithm>

namespace store
{

namespace
{

constexpr std::chrono::milliseconds short_attempt{50};

}

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
}

void Outage::end()
{
    if (lasting_) {
        lasting_ = false;
        if (messages_.go_to_log()) {
            LOG_TO(messages_, platform::log_notice, "store answers again");
        }
    }
}

} // namespace store
