// What the recorder's file has of a time span, as plain data.
#ifndef CARDS_RECORDED_H
#define CARDS_RECORDED_H

#include <optional>
#include <string>
#include <vector>

#include "history/history.h"

namespace cg
{

struct Recorded {
    admission::Time now{};
    std::string file{};
    std::vector<history::Decision> decisions{};
    std::vector<history::Gap> gaps{};
    std::vector<history::LifeEvent> life{};
    std::optional<admission::Time> alive_at{};
    std::optional<admission::Time> begun_at{};
    bool with_answers = false; // the lines for people have each module's answer, too
};

} // namespace cg

#endif
