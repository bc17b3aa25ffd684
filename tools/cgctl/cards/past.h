// What the recorder's file remembers of the cards.
#ifndef CARDS_PAST_H
#define CARDS_PAST_H

#include <optional>
#include <string>
#include <vector>

#include "history/history.h"

namespace cg
{

struct Past {
    std::string file{};
    std::string problem{};                     // why it could not be read; empty when it was
    std::optional<admission::Time> alive_at{}; // when the recorder last said that it runs
    std::vector<history::OpenCheck> open{};
    std::vector<admission::Decision> decisions{}; // the last one on each position
};

// Reads the recorder's file: `file`, or when that is empty where CG_HISTORY says, or at its usual place. What
// is wrong with it is in `problem`; nothing is thrown for that.
Past read_past(const std::string &file);

// When the recorder last wrote that it runs. Nothing: the file cannot be read, or holds no heartbeat.
struct Heartbeat {
    std::optional<admission::Time> at{};
    std::string problem{}; // why the file cannot be read; empty where it can, or where that will pass

    // Whether it is so old that the recorder is away. A recorder at work writes one every ten
    // seconds, and a disk may hold it up for some of them.
    [[nodiscard]] bool is_old(admission::Time now) const;
};

// That nothing is recorded any more, and since when; empty while the recorder is at work.
std::string not_recorded_text(const Heartbeat &heartbeat, admission::Time now);

Heartbeat read_heartbeat(const std::string &file);

} // namespace cg

#endif
