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

// The position in a record's key, whichever of devid and t_devid (slotid and t_slotid, ...) its fields are
// called.
Position position_in(const Json &key);

} // namespace cgctl

#endif
