// Positions in the keys of records.
#ifndef RECORDS_POSITION_KEY_H
#define RECORDS_POSITION_KEY_H

#include <optional>

#include "base/json.h"
#include "p_dev.pb-c.h"
#include "records/position.h"

namespace cg
{

// The fields of a card_info_index.
Json key_of(const Position &position);

// The position in a record's key, whichever of devid and t_devid (slotid and t_slotid, ...) its fields are
// called. Nothing for a record without a key, or with one that names no position.
std::optional<Position> position_of(const ProtobufCMessage &record);

// The card_info of a position with nothing but its key. Further fields may be set.
struct CardInfoAt {
    explicit CardInfoAt(const Position &position);
    CardInfoAt(const CardInfoAt &) = delete;
    CardInfoAt &operator=(const CardInfoAt &) = delete;

    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    PDev__CardInfo record = P_DEV__CARD_INFO__INIT; // its key is `index`
};

} // namespace cg

#endif
