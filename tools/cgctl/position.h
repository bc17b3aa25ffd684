// Card positions as a user writes them: devid/slotid/sslotid.
#ifndef CGCTL_POSITION_H
#define CGCTL_POSITION_H

#include <string>

#include "admission/position.h"
#include "record_text.h"

namespace cgctl
{

using admission::Position;

// The fields of a card_info_index.
Json key_of(const Position &position);

// Reads "1/3/0", or "1/3" for sub-slot 0. Throws Failure (wrong usage) for anything else.
Position parse_position(const std::string &text);

// A device, a slot with its sub-slots, or one position.
struct PositionPrefix {
    Position position{};
    int parts = 3; // how many of its ids count

    [[nodiscard]] bool holds(const Position &other) const;
};

// Reads "1", "1/3" or "1/3/0". Throws Failure (wrong usage) for anything else.
PositionPrefix parse_prefix(const std::string &text);

// The position in a record's key, whichever of devid and t_devid (slotid and t_slotid, ...) its fields are
// called.
Position position_in(const Json &key);

} // namespace cgctl

#endif
