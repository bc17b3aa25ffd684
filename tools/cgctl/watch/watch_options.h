// What is to be watched, and how it is shown.
#ifndef WATCH_WATCH_OPTIONS_H
#define WATCH_WATCH_OPTIONS_H

#include <cstdint>
#include <string>
#include <vector>

namespace cg
{

struct WatchOptions {
    std::vector<std::string> types{};
    int64_t count = 0;     // end after so many; 0 for no end
    bool existing = false; // print the records that there are, too
    std::string history{}; // the recorder's file; empty: where it usually is
    std::string color = "auto";
};

} // namespace cg

#endif
