// The device around the daemon, as bare as can be: plugs cards, answers as its check modules, watches the
// store.
//
// Chassis manager and all modules are one process with one connection for what it writes and one for what it
// hears, so that next to nothing of what is measured is its own work.
#ifndef BENCH_DEVICE_H
#define BENCH_DEVICE_H

#include <cstdint>
#include <string>
#include <vector>

#include "raw.h"

namespace bench
{

struct Position {
    int32_t devid;
    int32_t slot;

    bool operator==(const Position &other) const = default;
};

// A change of a record as it was published.
struct Heard {
    std::string type;
    Position at{0, 0};
    char command = '0'; // '4' written, '6' fields written, '3' deleted
};

// Reads a message of a pattern subscription to channels of database 1; false for what is none.
bool read_message(const redisReply &message, Heard &heard);

class Device
{
public:
    // With so many check modules, m1, m2, ...; this device is the master of the stack.
    Device(const std::string &socket, int modules);

    void plug(const std::vector<Position> &cards);
    void unplug(const std::vector<Position> &cards);
    // All modules say PASS.
    void pass(const Position &card);
    // Waits for the next change of a check request or of a result by TIPC node.
    Heard hear();

    // Plugs one card and answers; returns how long it took, in microseconds, until the check request was
    // deleted, which is the last that is written about it.
    double road(const Position &card);
    // The same where there is no daemon: writes the card and the answers, and returns how long that took.
    // What was written is gone afterwards.
    double road_of_its_own(const Position &card);

private:
    std::string mark();

    Raw commands_;
    Raw events_;
    int modules_;
    uint64_t marks_ = 0;
};

constexpr const char *request_type = "p_libpub.app_cg_card_check_info";
constexpr const char *verdict_type = "p_libpub.app_cg_mom_deny_check_result";

} // namespace bench

#endif
