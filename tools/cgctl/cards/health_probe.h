// Asks the daemon and the recorder each second how they are, beside the event loop.
//
// A daemon that hangs answers after seconds or never, and the keys and the store cannot wait for that: a
// thread asks, touches nothing that anybody else has, and wakes the loop when it has done.
#ifndef CARDS_HEALTH_PROBE_H
#define CARDS_HEALTH_PROBE_H

#include <functional>
#include <string>
#include <thread>

#include "cards/past.h"
#include "daemon/daemon_view.h"
#include "loop/loop.h"

namespace cg
{

struct HealthReport {
    DaemonView daemon{}; // without the cards
    Heartbeat recorder{};
};

class HealthProbe
{
public:
    using Listener = std::function<void(const HealthReport &)>;

    // Asks from now on, as long as the loop runs; `report` is called on the loop's thread. `socket` is the
    // daemon's, empty for the usual one; `history` as read_past() has it. The loop outlives this.
    HealthProbe(platform::Loop &loop, std::string socket, std::string history, Listener report);
    // Waits for an answer that is under way: seconds at most, and only when the daemon hangs.
    ~HealthProbe();
    HealthProbe(const HealthProbe &) = delete;
    HealthProbe &operator=(const HealthProbe &) = delete;

private:
    void start();
    void finish();

    platform::Loop &loop_;
    std::string socket_;
    std::string history_;
    Listener listener_;
    platform::Wake finished_;
    platform::Timer next_;
    HealthReport report_; // the thread's until it has ended
    std::thread thread_;
};

} // namespace cg

#endif
