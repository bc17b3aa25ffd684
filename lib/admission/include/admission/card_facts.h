// What became of one card and how, in full.
#ifndef ADMISSION_CARD_FACTS_H
#define ADMISSION_CARD_FACTS_H

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "admission/tracked_card.h"

namespace cg
{

// Names and texts, in the order in which to show them. An empty name goes on with the one before. `left` is
// the tracker's time_left().
std::vector<std::pair<std::string, std::string>>
facts_of_card(const admission::TrackedCard &card, std::optional<std::chrono::milliseconds> left, Time now);

} // namespace cg

#endif
