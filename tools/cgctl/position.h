// Card positions as a user writes them: devid/slotid/sslotid.
#ifndef CGCTL_POSITION_H
#define CGCTL_POSITION_H

#include <cstdint>
#include <string>
#include <tuple>

#include "record_text.h"

namespace cgctl
{

// Where a card is. Ordered by device, slot, sub-slot.
struct Position {
    int32_t devid = 0;
    int32_t slotid = 0;
    int32_t sslotid = 0;

    friend bool operator==(const Position &a, const Position &b)
    {
        return a.devid == b.devid && a.slotid == b.slotid && a.sslotid == b.sslotid;
    }
    friend bool operator<(const Position &a, const Position &b)
    {
        return std::tie(a.devid, a.slotid, a.sslotid) < std::tie(b.devid, b.slotid, b.sslotid);
    }

    // "1/3/0"
    [[nodiscard]] std::string text() const;
    // The fields of a card_info_index.
    [[nodiscard]] Json key() const;
};

// Reads "1/3/0", or "1/3" for sub-slot 0. Throws Failure (wrong usage) for anything else.
Position parse_position(const std::string &text);

// The position in a record's key, whichever of devid and t_devid (slotid and t_slotid, ...) its fields are
// called.
Position position_in(const Json &key);

} // namespace cgctl

#endif
