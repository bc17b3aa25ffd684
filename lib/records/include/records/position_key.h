// Positions in the keys of records.
#ifndef RECORDS_POSITION_KEY_H
#define RECORDS_POSITION_KEY_H

#include <optional>

#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "records/position.h"

namespace cg
{

// The position in a record's key, whichever of devid and t_devid (slotid and t_slotid, ...) its fields are
// called. Nothing for a record without a key, or with one that names no position.
std::optional<Position> position_of(const ProtobufCMessage &record);

// The records of a position with nothing but their key. Further fields may be set.
struct CardInfoAt {
    explicit CardInfoAt(const Position &position);
    CardInfoAt(const CardInfoAt &) = delete;
    CardInfoAt &operator=(const CardInfoAt &) = delete;

    PDev__CardInfoIndex index;
    PDev__CardInfo record = P_DEV__CARD_INFO__INIT; // its key is `index`
};

struct CheckRequestAt {
    explicit CheckRequestAt(const Position &position);
    CheckRequestAt(const CheckRequestAt &) = delete;
    CheckRequestAt &operator=(const CheckRequestAt &) = delete;

    PDev__CardInfoIndex index;
    PLibpub__AppCgCardCheckInfo record = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT; // its key is `index`
};

} // namespace cg

#endif
