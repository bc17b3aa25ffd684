// A loop that sends what the daemon sends, in the same order, after the same notifications, and does nothing
// else. What a daemon's time on a card's road is compared with.
#ifndef BENCH_BARE_DAEMON_H
#define BENCH_BARE_DAEMON_H

#include <map>
#include <string>
#include <vector>

#include "device.h"

namespace bench
{

// What a daemon was seen to send, by card.
struct Script {
    struct Line {
        int database;
        Prepared command;
    };
    struct Card {
        std::vector<Line> plugged; // after the card's information was written
        std::vector<Line> passed;  // after the last module's answer
        std::vector<Line> unplugged;
    };
    std::map<int, Card> slots; // of device 1
};

// Reads a script: a line for each command, `SLOT plugged|passed|unplugged DATABASE WORD...`; bytes of a word
// that are none of letters, digits and "@:._-" stand as % and two hexadecimal digits.
Script read_script(const std::string &path);

// Runs for ever.
[[noreturn]] void run_bare_daemon(const std::string &socket, const Script &script, int modules);

} // namespace bench

#endif
