// A card to be plugged, as the programs that plug one describe it.
//
// A card needs a node id and a TIPC node id that no other card has. Unless they are given, they are made from
// the position: the node id is devid * 65536 + slotid * 256 + sslotid, the TIPC node id is that plus 16777216
// (0x1000000). Counting up from the ids in use was the alternative; then a card that is pulled and plugged
// again would come back as another node.
#ifndef RECORDS_NEW_CARD_H
#define RECORDS_NEW_CARD_H

#include <optional>
#include <string>

#include "records/position.h"
#include "records/record_text.h"

namespace cg
{

struct NewCard {
    Position position{};
    bool offline = false;
    std::string type = "1";              // configured device type
    std::string node_type = "lc";        // as node_type_value() accepts it
    std::optional<std::string> nodeid{}; // else made from the position
    std::optional<std::string> tipc{};   // the same
    std::optional<std::string> name{};   // else "card POSITION"
    std::string serial{};                // hexadecimal digits
};

// The enumeration's name for "lc", "mb", ...; a number and a full name are left as they are. Throws Failure
// (wrong usage) that names the right ones.
std::string node_type_value(const std::string &text);

// Whether ids can be made from the position: up to 127/255/255.
bool has_derived_ids(const Position &position);

// The p_dev.card_info of the card. Throws Failure (wrong usage) for a value that does not fit.
MessagePtr card_info_of(const NewCard &card);

} // namespace cg

#endif
