// Positions in the keys of records.
#ifndef RECORDS_POSITION_KEY_H
#define RECORDS_POSITION_KEY_H

#include "base/json.h"
#include "records/position.h"

namespace cg
{

// The fields of a card_info_index.
Json key_of(const Position &position);

// The position in a record's key, whichever of devid and t_devid (slotid and t_slotid, ...) its fields are
// called.
Position position_in(const Json &key);

} // namespace cg

#endif
