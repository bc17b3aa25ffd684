// The three forms of cgctl watch: records, events, and the live view.
#ifndef VERBS_WATCH_H
#define VERBS_WATCH_H

#include <cstdint>
#include <string>
#include <vector>

#include "command_line/session.h"

namespace cg
{

struct WatchOptions {
    std::vector<std::string> types{};
    int64_t count = 0;     // end after so many; 0 for no end
    bool existing = false; // print the records that there are, too
    std::string history{}; // the recorder's file; empty: where it usually is
    std::string color = "auto";
};

// Each serves until it is told to stop, and returns an exit status. Throws Failure.

// Prints every change of records of the types; of all types when none is named.
int watch_records(const Session &session, const WatchOptions &options);

// Prints what happens to cards, an event a line.
int watch_events(const Session &session, const WatchOptions &options);

// Shows the cards and what happens to them on the terminal.
int watch_screen(const Session &session, const WatchOptions &options);

} // namespace cg

#endif
