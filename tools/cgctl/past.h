// What the recorder's file remembers of the cards.
#ifndef CGCTL_PAST_H
#define CGCTL_PAST_H

#include <optional>
#include <string>
#include <vector>

#include "admission/decision.h"

namespace cgctl
{

// A check of which the recorder has not seen the end.
struct OpenCheck {
    admission::Position position{};
    admission::Time requested_at{};
    std::vector<std::string> waiting_for{};
    std::vector<admission::Answer> answers{};
};

struct Past {
    std::string file{};
    std::string problem{};                   // why it could not be read; empty when it was
    std::optional<admission::Time> newest{}; // when the recorder was last known to be at work
    std::vector<OpenCheck> open{};
    std::vector<admission::Decision> decisions{}; // the last one on each position
};

// Reads the recorder's file: `file`, or when that is empty where CG_HISTORY says, or at its usual place.
Past read_past(const std::string &file);

} // namespace cgctl

#endif
